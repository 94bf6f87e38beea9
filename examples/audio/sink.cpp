// orvo-sink: receives audio messages and writes their samples into a WAV file.

#include "audioblock.h"
#include "recording.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>

#include <cerrno>
#include <csignal>
#include <iostream>
#include <nanomsg/nn.h>
#include <nanomsg/pipeline.h>

namespace {

enum Status { Failed = 1, Usage = 2 };

int fail(Status status, const std::string& text)
{
    std::cerr << "orvo-sink: " << text << std::endl;
    return status;
}

volatile std::sig_atomic_t s_stopped = 0;

void stopOn(int signal)
{
    struct sigaction action = {};
    action.sa_handler = [](int) { s_stopped = 1; };
    sigaction(signal, &action, nullptr);
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Listens at the URI for audio messages and writes their samples into a WAV file.\n"
                       "Shows the format, flushes and gaps. Stops at the end of the first stream, or on SIGINT and\n"
                       "SIGTERM."));
    parser.addHelpOption();
    const QCommandLineOption keep(QStringLiteral("keep"),
                                  QStringLiteral("Go on behind the end of a stream; the next one is appended."));
    parser.addOption(keep);
    parser.addPositionalArgument(QStringLiteral("uri"), QStringLiteral("For instance ipc:///tmp/audio."));
    parser.addPositionalArgument(QStringLiteral("out.wav"), QStringLiteral("The file to write."));
    parser.process(application);
    if (parser.positionalArguments().size() != 2)
        return fail(Usage, "a URI and a file are needed (--help)");
    const std::string uri = parser.positionalArguments().at(0).toStdString();

    stopOn(SIGINT);
    stopOn(SIGTERM);
    const int socket = nn_socket(AF_SP, NN_PULL);
    if (socket < 0 || nn_bind(socket, uri.c_str()) < 0)
        return fail(Failed, uri + ": " + nn_strerror(nn_errno()));
    // A signal that comes between two reads is seen before long.
    const int patienceMs = 200;
    nn_setsockopt(socket, NN_SOL_SOCKET, NN_RCVTIMEO, &patienceMs, sizeof patienceMs);
    std::cout << "listening" << std::endl;

    Recording recording(QFile::encodeName(parser.positionalArguments().at(1)).toStdString());
    std::string error;
    while (!s_stopped && error.empty() && (parser.isSet(keep) || !recording.isAtEnd())) {
        void* message = nullptr;
        const int size = nn_recv(socket, &message, NN_MSG, 0);
        if (size < 0) {
            if (nn_errno() != ETIMEDOUT && nn_errno() != EINTR)
                error = nn_strerror(nn_errno());
            continue;
        }
        AudioBlock block;
        const std::string fault = readAudioBlock(static_cast<const uint8_t*>(message), size_t(size), block);
        if (fault.empty())
            error = recording.take(block);
        else
            std::cerr << "orvo-sink: dropped a message of " << size << " bytes: " << fault << std::endl;
        nn_freemsg(message);
    }
    recording.close();
    nn_close(socket);
    return error.empty() ? 0 : fail(Failed, error);
}
