// orvo-play: sends the samples of a sound file to another process, block by block.

#include "core/orvoMsgAudioPayload.h"
#include "core/orvoMsgPipeline.h"
#include "soundreader.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>

#include <log4cplus/configurator.h>
#include <log4cplus/initializer.h>

#include <chrono>
#include <csignal>
#include <iostream>
#include <thread>

using Clock = std::chrono::steady_clock;

namespace {

enum Status { Failed = 1, Usage = 2 };

int fail(Status status, const QString& text)
{
    std::cerr << "orvo-play: " << text.toStdString() << std::endl;
    return status;
}

void configureLogging(bool verbose)
{
    log4cplus::helpers::Properties properties;
    properties.setProperty("log4cplus.rootLogger", verbose ? "DEBUG, console" : "WARN, console");
    properties.setProperty("log4cplus.appender.console", "log4cplus::ConsoleAppender");
    properties.setProperty("log4cplus.appender.console.logToStdErr", "true");
    properties.setProperty("log4cplus.appender.console.layout", "log4cplus::PatternLayout");
    properties.setProperty("log4cplus.appender.console.layout.ConversionPattern", "%c: %p: %m%n");
    log4cplus::PropertyConfigurator(properties).configure();
}

bool canBeReached(const QString& uri)
{
    return uri.startsWith(QLatin1String("ipc://")) || uri.startsWith(QLatin1String("tcp://"))
           || uri.startsWith(QLatin1String("ws://"));
}

volatile std::sig_atomic_t s_stopped = 0;

void stopOn(int signal)
{
    struct sigaction action = {};
    action.sa_handler = [](int) { s_stopped = 1; };
    sigaction(signal, &action, nullptr);
}

/// Nothing comes back on a pipeline, and closing it loses what the reader has not taken: it is given some time.
void waitForReader(std::chrono::milliseconds linger)
{
    const Clock::time_point until = Clock::now() + linger;
    while (!s_stopped && Clock::now() < until)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Sends the samples of a sound file, 16 bits each, to the process that reads at the URI.\n"
                       "The first block and the end of the stream carry the flush flag; a block's time stamp is the\n"
                       "number of its first frame. SIGINT and SIGTERM stop it, also while it stays at the end."));
    parser.addHelpOption();
    const QCommandLineOption fast(QStringLiteral("fast"),
                                  QStringLiteral("Send as fast as the reader takes it, not at the sample rate."));
    const QCommandLineOption drop(QStringLiteral("drop"),
                                  QStringLiteral("Drop the blocks that the reader cannot take in time."));
    const QCommandLineOption frames(QStringLiteral("frames"),
                                    QStringLiteral("Frames of a block (as many as fit into a message)."),
                                    QStringLiteral("count"));
    const QCommandLineOption linger(QStringLiteral("linger"),
                                    QStringLiteral("Stay so long at the end for the reader to take the rest (2000)."),
                                    QStringLiteral("ms"), QStringLiteral("2000"));
    const QCommandLineOption verbose(QStringLiteral("verbose"), QStringLiteral("Log what the pipeline does."));
    parser.addOptions({fast, drop, frames, linger, verbose});
    parser.addPositionalArgument(QStringLiteral("file"), QStringLiteral("The sound file."));
    parser.addPositionalArgument(QStringLiteral("uri"), QStringLiteral("For instance ipc:///tmp/audio."));
    parser.process(application);
    if (parser.positionalArguments().size() != 2)
        return fail(Usage, QStringLiteral("a file and a URI are needed (--help)"));
    const QString fileName = parser.positionalArguments().at(0);
    const QString uri = parser.positionalArguments().at(1);
    if (!canBeReached(uri))
        return fail(Usage, QStringLiteral("no URI of the kinds ipc://, tcp://, ws://: ") + uri);

    const log4cplus::Initializer logging;
    configureLogging(parser.isSet(verbose));

    SoundReader reader(QFile::encodeName(fileName).toStdString());
    if (!reader.error().empty())
        return fail(Failed, fileName + QLatin1String(": ") + QString::fromStdString(reader.error()));
    const size_t frameSize = reader.channels() * sizeof(int16_t);
    const size_t fitting = (OrvoMsgPipeline::MaxMessageSize - OrvoMsgAudioPayload::HeaderSize) / frameSize;
    if (reader.channels() > 255)
        return fail(Failed, fileName + QLatin1String(": more than 255 channels"));
    const size_t blockFrames = parser.isSet(frames) ? parser.value(frames).toUInt() : fitting;
    if (blockFrames < 1 || blockFrames > fitting)
        return fail(Usage, QStringLiteral("a block has 1 to %1 frames here").arg(fitting));

    stopOn(SIGINT);
    stopOn(SIGTERM);
    OrvoMsgPipeline pipeline;
    pipeline.setNonBlock(parser.isSet(drop));
    pipeline.setURI(uri);
    OrvoMsgAudioPayload block;
    const auto channels = static_cast<unsigned char>(reader.channels());
    const Clock::time_point start = Clock::now();
    unsigned long sent = 0;
    unsigned long dropped = 0;
    bool isFirst = true;
    while (!s_stopped) {
        const std::vector<int16_t>& samples = reader.read(blockFrames);
        if (samples.empty())
            break;
        const unsigned long timestamp = sent + dropped;
        if (!parser.isSet(fast))
            std::this_thread::sleep_until(start + std::chrono::microseconds(timestamp * 1000000 / reader.rate()));
        block.setSamples(reinterpret_cast<const unsigned char*>(samples.data()), samples.size(), sizeof(int16_t),
                         reader.rate(), channels);
        block.setTimestamp(timestamp);
        block.setFlushFlag(isFirst);
        const OrvoMsgStatus::Type status = pipeline.sendMsg(block);
        if (status == OrvoMsgStatus::TryAgain) {
            dropped += samples.size() / channels;
            continue;
        }
        if (s_stopped)
            break;
        if (status != OrvoMsgStatus::Sent)
            return fail(Failed, QStringLiteral("a block was not sent: status %1").arg(status));
        isFirst = false;
        sent += samples.size() / channels;
    }

    // The end of the stream is a header alone.
    static const unsigned char none = 0;
    block.setSamples(&none, 1, 0, reader.rate(), channels);
    block.setTimestamp(sent + dropped);
    block.setFlushFlag(true);
    if (sent > 0 && !s_stopped) {
        if (pipeline.sendMsg(block) != OrvoMsgStatus::Sent)
            std::cerr << "orvo-play: the reader did not take the end of the stream" << std::endl;
        waitForReader(std::chrono::milliseconds(parser.value(linger).toUInt()));
    }
    std::cout << "sent " << sent << " frames, dropped " << dropped << std::endl;
    return 0;
}
