#include "unixsignals.h"

#include <QCoreApplication>

#include <csignal>

#include <sys/signalfd.h>
#include <unistd.h>

namespace {

int openSignals()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    const int descriptor = signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
    Q_ASSERT(descriptor >= 0);
    return descriptor;
}

} // namespace

UnixSignals::UnixSignals(QObject* parent)
    : QObject(parent), m_descriptor(openSignals()), m_notifier(m_descriptor, QSocketNotifier::Read)
{
    connect(&m_notifier, &QSocketNotifier::activated, this, [this] {
        signalfd_siginfo info;
        if (read(m_descriptor, &info, sizeof info) == sizeof info)
            QCoreApplication::quit();
    });
}

UnixSignals::~UnixSignals()
{
    close(m_descriptor);
}
