#include "process.h"

#include <QByteArray>
#include <QHashFunctions>
#include <QSocketNotifier>

#include <log4cplus/consoleappender.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

int s_stopEvent = -1;
int s_resizeEvent = -1;

void onSignal(int number)
{
    const uint64_t one = 1;
    (void)!::write(number == SIGWINCH ? s_resizeEvent : s_stopEvent, &one, sizeof one);
}

bool s_verbose = false;

void onQtMessage(QtMsgType type, const QMessageLogContext&, const QString& text)
{
    if (type == QtFatalMsg || (s_verbose && type != QtDebugMsg && type != QtInfoMsg))
        fprintf(stderr, "%s\n", text.toUtf8().constData());
    if (type == QtFatalMsg)
        abort();
}

} // namespace

void prepareProcess()
{
    // A closed pipe is noticed where it is written to.
    signal(SIGPIPE, SIG_IGN);
    // Qt's own event dispatcher is up to twice as fast as GLib's for this work.
    if (!qEnvironmentVariableIsSet("QT_NO_GLIB"))
        qputenv("QT_NO_GLIB", "1");
    // Equal documents print equally in every run.
    qSetGlobalQHashSeed(0);
}

void configureLogging(bool verbose)
{
    s_verbose = verbose;
    qInstallMessageHandler(onQtMessage);
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.removeAllAppenders();
    root.setLogLevel(verbose ? log4cplus::WARN_LOG_LEVEL : log4cplus::OFF_LOG_LEVEL);
    if (!verbose)
        return;
    log4cplus::SharedAppenderPtr appender(new log4cplus::ConsoleAppender(true, true));
    appender->setLayout(std::make_unique<log4cplus::PatternLayout>("%p %c: %m%n"));
    root.addAppender(appender);
}

void callOnStop(QObject* parent, std::function<void()> stop)
{
    s_stopEvent = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    QObject::connect(new QSocketNotifier(s_stopEvent, QSocketNotifier::Read, parent), &QSocketNotifier::activated,
                     parent, stop);
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        signal(number, onSignal);

    // The writing end of a pipe reports the reader's end as an exception, also while there is nothing to write.
    struct stat status
    {};
    if (fstat(STDOUT_FILENO, &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode)))
        QObject::connect(new QSocketNotifier(STDOUT_FILENO, QSocketNotifier::Exception, parent),
                         &QSocketNotifier::activated, parent, stop);
}

void callOnResize(QObject* parent, std::function<void()> resize)
{
    s_resizeEvent = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    QObject::connect(new QSocketNotifier(s_resizeEvent, QSocketNotifier::Read, parent), &QSocketNotifier::activated,
                     parent, [resize] {
                         uint64_t times;
                         (void)!::read(s_resizeEvent, &times, sizeof times);
                         resize();
                     });
    signal(SIGWINCH, onSignal);
}
