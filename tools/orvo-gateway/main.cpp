// The content tree of the device over HTTP; docs/gateway.md tells how to ask.

#include "core/model/cmmetatypes.h"
#include "core/model/cmroot.h"
#include "core/orvoJson.h"
#include "orvohttpgateway.h"
#include "services.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QHostAddress>
#include <QSocketNotifier>

#include <log4cplus/consoleappender.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sys/signalfd.h>

namespace {

constexpr int usageStatus = 2;

[[noreturn]] void usage(const QString& text)
{
    fprintf(stderr, "orvo-gateway: %s\n", qPrintable(text));
    exit(usageStatus);
}

/// SIGINT, SIGTERM and SIGHUP end the event loop, so that open requests get their answers.
void quitOnSignals(QCoreApplication* application)
{
    sigset_t stopping;
    sigemptyset(&stopping);
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&stopping, number);
    pthread_sigmask(SIG_BLOCK, &stopping, nullptr);
    const int fd = signalfd(-1, &stopping, SFD_NONBLOCK | SFD_CLOEXEC);
    QObject::connect(new QSocketNotifier(fd, QSocketNotifier::Read, application), &QSocketNotifier::activated,
                     application, &QCoreApplication::quit);
}

void configureLogging(bool verbose)
{
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.setLogLevel(verbose ? log4cplus::DEBUG_LOG_LEVEL : log4cplus::WARN_LOG_LEVEL);
    log4cplus::SharedAppenderPtr appender(new log4cplus::ConsoleAppender(true, true));
    appender->setLayout(std::make_unique<log4cplus::PatternLayout>("%p %c: %m%n"));
    root.addAppender(appender);
}

/// "127.0.0.1:8480" or "[::1]:8480".
bool readListen(const QString& text, QHostAddress* address, quint16* port)
{
    const int colon = text.lastIndexOf(QLatin1Char(':'));
    bool ok = colon > 0;
    *port = text.midRef(colon + 1).toUShort(&ok);
    QString host = text.left(colon);
    if (host.startsWith(QLatin1Char('[')) && host.endsWith(QLatin1Char(']')))
        host = host.mid(1, host.size() - 2);
    return ok && colon > 0 && address->setAddress(host);
}

int readSeconds(const QCommandLineParser& parser, const QString& option)
{
    bool ok = false;
    const int seconds = parser.value(option).toInt(&ok);
    if (!ok || seconds < 1 || seconds > 3600)
        usage(QStringLiteral("--%1 takes seconds, 1 to 3600").arg(option));
    return seconds;
}

void addPage(OrvoHttpGateway* gateway, const QString& start)
{
    const struct
    {
        const char* target;
        const char* file;
        const char* contentType;
    } files[] = {
        {"/", ":/page/index.html", "text/html; charset=utf-8"},
        {"/page.css", ":/page/page.css", "text/css; charset=utf-8"},
        {"/page.js", ":/page/page.js", "text/javascript; charset=utf-8"},
        {"/rows.js", ":/page/rows.js", "text/javascript; charset=utf-8"},
        {"/tree.js", ":/page/tree.js", "text/javascript; charset=utf-8"},
    };
    for (const auto& entry : files) {
        QFile file(QString::fromLatin1(entry.file));
        if (!file.open(QIODevice::ReadOnly))
            qFatal("No %s", entry.file);
        gateway->setFile(QString::fromLatin1(entry.target), entry.contentType, file.readAll());
    }
    gateway->setFile(QStringLiteral("/start.json"), "application/json",
                     OrvoJson::serialize(QVariantHash{{QStringLiteral("path"), start}}));
}

} // namespace

int main(int argc, char* argv[])
{
    signal(SIGPIPE, SIG_IGN);
    // Qt's own event dispatcher is faster than GLib's for this work.
    if (!qEnvironmentVariableIsSet("QT_NO_GLIB"))
        qputenv("QT_NO_GLIB", "1");
    QCoreApplication application(argc, argv);
    quitOnSignals(&application);

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Serves the content tree of this device over HTTP, and a page to browse it."));
    parser.addHelpOption();
    parser.addOptions({
        {QStringLiteral("listen"), QStringLiteral("Where to listen; port 0 picks one."), QStringLiteral("ADDRESS:PORT"),
         QStringLiteral("127.0.0.1:8480")},
        {QStringLiteral("allow-writes"), QStringLiteral("Serve setData and invoke, too.")},
        {QStringLiteral("host"), QStringLiteral("A name of this device that clients may use; may be repeated."),
         QStringLiteral("NAME")},
        {QStringLiteral("start"), QStringLiteral("The list that the page shows first."), QStringLiteral("PATH")},
        {QStringLiteral("timeout"), QStringLiteral("How long a service may take for an answer."),
         QStringLiteral("SECONDS"), QStringLiteral("10")},
        {QStringLiteral("idle-timeout"), QStringLiteral("When a client that does nothing is let go."),
         QStringLiteral("SECONDS"), QStringLiteral("30")},
        {QStringLiteral("verbose"), QStringLiteral("Log what is refused, too.")},
    });
    // Not process(): what is wrong with the arguments is told with a status of its own.
    if (!parser.parse(application.arguments()))
        usage(parser.errorText());
    if (parser.isSet(QStringLiteral("help")))
        parser.showHelp();
    if (!parser.positionalArguments().isEmpty())
        usage(QStringLiteral("Unexpected argument '%1'").arg(parser.positionalArguments().constFirst()));
    QHostAddress address;
    quint16 port = 0;
    if (!readListen(parser.value(QStringLiteral("listen")), &address, &port))
        usage(QStringLiteral("--listen takes an address and a port, as in 127.0.0.1:8480"));

    configureLogging(parser.isSet(QStringLiteral("verbose")));
    orvoRegisterMetaTypes();
    Services services;
    CMRoot_setInstance(services.worker());

    OrvoHttpGateway gateway;
    gateway.setWritesAllowed(parser.isSet(QStringLiteral("allow-writes")));
    gateway.setHostNames(parser.values(QStringLiteral("host")));
    gateway.setRequestTimeout(1000 * readSeconds(parser, QStringLiteral("timeout")));
    gateway.setIdleTimeout(readSeconds(parser, QStringLiteral("idle-timeout")));
    gateway.setPathCheck([&services](const CMPath& path) { return services.check(path); });
    addPage(&gateway, parser.value(QStringLiteral("start")));
    const QString error = gateway.listen(address, port);
    if (!error.isEmpty()) {
        fprintf(stderr, "orvo-gateway: %s\n", qPrintable(error));
        return EXIT_FAILURE;
    }
    const QString host = address.protocol() == QAbstractSocket::IPv6Protocol
                             ? QLatin1Char('[') + address.toString() + QLatin1Char(']')
                             : address.toString();
    printf("http://%s:%d/\n", qPrintable(host), gateway.port());
    fflush(stdout);
    return application.exec();
}
