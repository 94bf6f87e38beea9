#include "allocations.h"
#include "core/orvoMimeTypes.h"
#include "core/orvoMsgAudioPayload.h"
#include "core/orvoMsgPipeline.h"
#include "core/orvoProfiler.h"

#include <QLoggingCategory>

#include <benchmark/benchmark.h>

#include <csignal>
#include <cstdlib>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>
#include <nanomsg/nn.h>
#include <nanomsg/pipeline.h>
#include <spawn.h>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

// What the plumbing of a process costs: an audio message to another process, a media type, a mark that nobody measures,
// a log line that nobody reads.

extern char** environ;

namespace {

constexpr char PullVariable[] = "ORVO_BENCH_PULL";

/// The other process is this program, too: it takes all messages and looks at none.
[[maybe_unused]] const bool isPuller = [] {
    const char* const uri = std::getenv(PullVariable);
    if (!uri)
        return false;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int socket = nn_socket(AF_SP, NN_PULL);
    if (socket < 0 || nn_bind(socket, uri) < 0)
        _exit(1);
    static char buffer[OrvoMsgPipeline::MaxMessageSize];
    while (nn_recv(socket, buffer, sizeof buffer, 0) >= 0) {}
    _exit(0);
}();

class Reader
{
public:
    Reader()
    {
        static int number = 0;
        m_path = "/tmp/orvo-bench-" + std::to_string(getpid()) + "-" + std::to_string(++number);
        const std::string setting = std::string(PullVariable) + "=" + uri();
        std::vector<char*> environment;
        for (char** variable = environ; *variable; ++variable)
            environment.push_back(*variable);
        environment.push_back(const_cast<char*>(setting.c_str()));
        environment.push_back(nullptr);
        char name[] = "puller";
        char* const arguments[] = {name, nullptr};
        if (posix_spawn(&m_pid, "/proc/self/exe", nullptr, nullptr, arguments, environment.data()) != 0)
            std::abort();
    }
    ~Reader()
    {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
        unlink(m_path.c_str());
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    std::string uri() const { return "ipc://" + m_path; }

private:
    std::string m_path;
    pid_t m_pid = 0;
};

void report(benchmark::State& state, const AllocationCounter& allocations)
{
    state.counters["allocations"] = benchmark::Counter(double(allocations.count()), benchmark::Counter::kAvgIterations);
    state.SetItemsProcessed(state.iterations());
}

/// As on a device, where the lines of debugging are off.
void quiet()
{
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::ERROR_LOG_LEVEL);
}

/// The argument is the size of the message, header included. Blocks whenever the reader is behind.
void audioMessage(benchmark::State& state)
{
    quiet();
    const Reader reader;
    OrvoMsgPipeline pipeline;
    pipeline.setURI(QString::fromStdString(reader.uri()));
    const auto size = size_t(state.range(0));
    const std::vector<unsigned char> samples(size, 's');
    OrvoMsgAudioPayload block;
    block.setSamples(samples.data(), (size - OrvoMsgAudioPayload::HeaderSize) / 2, 2, 44100, 2);
    // Stands until the reader is there.
    pipeline.sendMsg(block);
    unsigned long timestamp = 0;
    const AllocationCounter allocations;
    for (auto _ : state) {
        block.setTimestamp(++timestamp);
        if (pipeline.sendMsg(block) != OrvoMsgStatus::Sent)
            state.SkipWithError("not sent");
    }
    report(state, allocations);
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(audioMessage)->Arg(256)->Arg(1024)->Arg(4096)->Arg(8192)->UseRealTime()->Unit(benchmark::kMicrosecond);

/// The socket without us: what stays of the allocations is its copy of the message.
void nnSend(benchmark::State& state)
{
    const Reader reader;
    const int socket = nn_socket(AF_SP, NN_PUSH);
    nn_connect(socket, reader.uri().c_str());
    const std::vector<unsigned char> bytes(size_t(state.range(0)), 's');
    nn_send(socket, bytes.data(), bytes.size(), 0);
    const AllocationCounter allocations;
    for (auto _ : state)
        if (nn_send(socket, bytes.data(), bytes.size(), 0) < 0)
            state.SkipWithError("not sent");
    report(state, allocations);
    state.SetBytesProcessed(state.iterations() * state.range(0));
    nn_close(socket);
}
BENCHMARK(nnSend)
    ->Name("audioMessage/peer:nn_send alone")
    ->Arg(256)
    ->Arg(1024)
    ->Arg(4096)
    ->Arg(8192)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);

void audioMessageSerialized(benchmark::State& state)
{
    quiet();
    const auto size = size_t(state.range(0));
    const std::vector<unsigned char> samples(size, 's');
    std::vector<uint8_t> buffer(size);
    OrvoMsgAudioPayload block;
    block.setSamples(samples.data(), (size - OrvoMsgAudioPayload::HeaderSize) / 2, 2, 44100, 2);
    const AllocationCounter allocations;
    for (auto _ : state) {
        benchmark::DoNotOptimize(block.serialize(buffer.data(), buffer.size()));
        benchmark::ClobberMemory();
    }
    report(state, allocations);
}
BENCHMARK(audioMessageSerialized)->Arg(256)->Arg(8192);

void mimeTypeOfExtension(benchmark::State& state, const char* extension)
{
    const QString text = QString::fromLatin1(extension);
    const QString unknown;
    MimeTypes::extensionToMimeType(text, unknown);
    const AllocationCounter allocations;
    for (auto _ : state)
        benchmark::DoNotOptimize(MimeTypes::extensionToMimeType(text, unknown));
    report(state, allocations);
}
BENCHMARK_CAPTURE(mimeTypeOfExtension, flac, "flac");
BENCHMARK_CAPTURE(mimeTypeOfExtension, FLAC, "FLAC");
BENCHMARK_CAPTURE(mimeTypeOfExtension, unknown, "xyz");

void mimeTypeOfUri(benchmark::State& state)
{
    const QString uri = QStringLiteral("http://10.0.0.7/music/Some Artist/An Album of Songs/01 - Track.flac");
    const QString unknown;
    MimeTypes::URIToMimeType(uri, unknown);
    const AllocationCounter allocations;
    for (auto _ : state)
        benchmark::DoNotOptimize(MimeTypes::URIToMimeType(uri, unknown));
    report(state, allocations);
}
BENCHMARK(mimeTypeOfUri);

void profilerEventWithoutWatcher(benchmark::State& state)
{
    quiet();
    Profiler* const profiler = Profiler::instance();
    const QVariantHash none;
    profiler->event(Profiler::UIResponseWatcher(), Profiler::UIDrawEvent(), none);
    const AllocationCounter allocations;
    for (auto _ : state)
        profiler->event(Profiler::UIResponseWatcher(), Profiler::UIDrawEvent(), none);
    report(state, allocations);
}
BENCHMARK(profilerEventWithoutWatcher);

/// Of a logger as those of the library, without a level of its own: that of the root counts.
void disabledLogLine(benchmark::State& state)
{
    quiet();
    const auto logger = log4cplus::Logger::getInstance("bench");
    const std::string path = "media:library/albums";
    int row = 0;
    LOG4CPLUS_DEBUG(logger, path << " row " << row);
    const AllocationCounter allocations;
    for (auto _ : state) {
        benchmark::DoNotOptimize(++row);
        LOG4CPLUS_DEBUG(logger, path << " row " << row);
    }
    report(state, allocations);
}
BENCHMARK(disabledLogLine);

void disabledCategoryLine(benchmark::State& state)
{
    const QLoggingCategory category("bench", QtWarningMsg);
    if (category.isDebugEnabled())
        state.SkipWithError("the category is enabled");
    const std::string path = "media:library/albums";
    int row = 0;
    const AllocationCounter allocations;
    for (auto _ : state) {
        benchmark::DoNotOptimize(++row);
        qCDebug(category) << path.c_str() << " row " << row;
    }
    report(state, allocations);
}
BENCHMARK(disabledCategoryLine)->Name("disabledLogLine/peer:qCDebug");

} // namespace
