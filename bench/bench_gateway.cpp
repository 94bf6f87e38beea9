#include "core/model/cmmetatypes.h"
#include "core/model/cmnodes.h"
#include "core/model/cmnodesworker.h"
#include "core/model/cmroot.h"
#include "core/model/cmrpcserver.h"
#include "core/model/nodes/cmvaluenode.h"
#include "records/orvoconstants.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSocketNotifier>

#include <benchmark/benchmark.h>
#include <log4cplus/logger.h>

#include <arpa/inet.h>
#include <cstdio>
#include <memory>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

// Long polls that wait at a real orvo-gateway for a service in a third process, which is this program again, started
// with "--service NAME". One value changes, and every poll is answered. The counter "threads" is the gateway's.

namespace {

/// A connection that is kept; its calls block.
class Http
{
public:
    explicit Http(quint16 port) : m_port(port), m_fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const int on = 1;
        setsockopt(m_fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        m_ok = connect(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }
    ~Http() { close(m_fd); }
    Http(const Http&) = delete;
    Http& operator=(const Http&) = delete;

    void send(const QByteArray& request, const QByteArray& body = QByteArray())
    {
        QByteArray bytes = request + " HTTP/1.1\r\nHost: 127.0.0.1:" + QByteArray::number(m_port) + "\r\n";
        if (!body.isEmpty())
            bytes += "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
        bytes += "\r\n" + body;
        m_ok = m_ok && ::send(m_fd, bytes.constData(), size_t(bytes.size()), MSG_NOSIGNAL) == bytes.size();
    }
    /// The body of a good answer; empty for any other.
    QByteArray receive()
    {
        QByteArray bytes;
        for (int head = -1, size = 0; head < 0 || bytes.size() < head + size;) {
            char piece[4096];
            const ssize_t count = m_ok ? recv(m_fd, piece, sizeof piece, 0) : 0;
            if (count <= 0)
                return QByteArray();
            bytes.append(piece, int(count));
            if (head < 0 && (head = bytes.indexOf("\r\n\r\n")) >= 0) {
                head += 4;
                const int length = bytes.indexOf("Content-Length: ");
                size = bytes.mid(length + 16, bytes.indexOf("\r\n", length) - length - 16).toInt();
            }
        }
        return bytes.startsWith("HTTP/1.1 200 ") ? bytes.mid(bytes.indexOf("\r\n\r\n") + 4) : QByteArray();
    }
    QByteArray ask(const QByteArray& request, const QByteArray& body = QByteArray())
    {
        send(request, body);
        return receive();
    }

private:
    const quint16 m_port;
    const int m_fd;
    bool m_ok = false;
};

/// The gateway and the service behind it.
class Processes
{
public:
    Processes()
    {
        m_service.start(QCoreApplication::applicationFilePath(), {"--service", name()});
        m_gateway.start(QCoreApplication::applicationDirPath() + "/orvo-gateway",
                        {"--allow-writes", "--listen", "127.0.0.1:0"});
        if (m_service.waitForReadyRead(10000) && m_gateway.waitForReadyRead(10000)) {
            const QByteArray url = m_gateway.readLine().trimmed();
            m_port = url.mid(url.lastIndexOf(':') + 1).chopped(1).toUShort();
        }
    }
    ~Processes()
    {
        for (QProcess* process : {&m_gateway, &m_service}) {
            process->kill();
            process->waitForFinished();
        }
    }

    static QString name() { return QStringLiteral("gatewaybench%1").arg(QCoreApplication::applicationPid()); }
    quint16 port() const { return m_port; }
    int threads() const
    {
        return QDir(QStringLiteral("/proc/%1/task").arg(m_gateway.processId()))
            .entryList(QDir::NoDotAndDotDot | QDir::Dirs)
            .size();
    }
    qint64 residentBytes() const
    {
        QFile file(QStringLiteral("/proc/%1/statm").arg(m_gateway.processId()));
        return file.open(QIODevice::ReadOnly) ? file.readAll().split(' ').value(1).toLongLong() * sysconf(_SC_PAGESIZE)
                                              : 0;
    }

private:
    QProcess m_service;
    QProcess m_gateway;
    quint16 m_port = 0;
};

/// Polls that wait, each at a queue of its own.
class Polls
{
public:
    Polls(quint16 port, int count) : m_writer(port)
    {
        const QByteArray body =
            "{\"subscribes\":[{\"path\":\"" + Processes::name().toLatin1() + ":value\",\"type\":13}]}";
        for (int i = 0; i < count; ++i) {
            auto connection = std::make_unique<Http>(port);
            const QByteArray answer = connection->ask("POST /api/event/modifyQueue", body);
            m_polls.push_back({std::move(connection), answer.mid(answer.indexOf("\"{") + 1, 38)});
        }
    }

    void park()
    {
        for (const Poll& poll : m_polls)
            poll.connection->send("GET /api/event/pollQueue?timeout=300&queueId=" + poll.queueId);
        // Asked behind them.
        m_writer.ask("GET /start.json");
    }
    /// Whether every poll was answered with the change.
    bool change()
    {
        const QByteArray value = "\"i32_\":" + QByteArray::number(++m_value);
        m_writer.send("POST /api/setData", "{\"path\":\"" + Processes::name().toLatin1()
                                               + ":value\",\"role\":\"value\",\"value\":{\"type\":\"i32_\"," + value
                                               + "}}");
        bool ok = true;
        for (const Poll& poll : m_polls)
            ok = poll.connection->receive().contains(value) && ok;
        return ok;
    }
    bool endChange() { return !m_writer.receive().isEmpty(); }

private:
    struct Poll
    {
        std::unique_ptr<Http> connection;
        QByteArray queueId;
    };

    Http m_writer;
    std::vector<Poll> m_polls;
    int m_value = 0;
};

void changeToAllPolls(benchmark::State& state)
{
    const Processes processes;
    Polls polls(processes.port(), int(state.range(0)));
    for (auto _ : state) {
        state.PauseTiming();
        polls.park();
        state.ResumeTiming();
        const bool ok = polls.change();
        state.PauseTiming();
        if (!ok || !polls.endChange())
            return state.SkipWithError("a poll was not answered");
        state.ResumeTiming();
    }
    state.counters["threads"] = processes.threads();
}

/// What the waiting polls add to the resident memory of the gateway: connections, queues and subscriptions.
void memoryOfWaitingPolls(benchmark::State& state)
{
    for (auto _ : state) {
        const Processes processes;
        Http(processes.port()).ask("GET /start.json");
        const qint64 before = processes.residentBytes();
        Polls polls(processes.port(), int(state.range(0)));
        polls.park();
        const qint64 after = processes.residentBytes();
        if (!polls.change())
            return state.SkipWithError("a poll was not answered");
        state.counters["bytes"] = double(after - before);
        state.counters["threads"] = processes.threads();
    }
}

BENCHMARK(changeToAllPolls)->Arg(1)->Arg(50)->Arg(200)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(memoryOfWaitingPolls)->Arg(1)->Arg(200)->Iterations(1);

int serve(QCoreApplication& application, const QString& name)
{
    orvoRegisterMetaTypes();
    CMNodesWorker worker({{OrvoWorkerArguments::Prefix(), name + ':'}}, name);
    CMRoot_setInstance(&worker);
    CMValueNode* node = CMValueNode::create(worker.nodes(), worker.addPrefix(QStringLiteral("value")));
    node->setValue(OrvoValue().setI32_(0));
    new CMRPCServer(&worker, name);
    // Ends with its parent.
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, &application, &QCoreApplication::quit);
    puts("ready");
    fflush(stdout);
    return application.exec();
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::OFF_LOG_LEVEL);
    const QStringList arguments = application.arguments();
    if (arguments.value(1) == QLatin1String("--service"))
        return serve(application, arguments.value(2));
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
