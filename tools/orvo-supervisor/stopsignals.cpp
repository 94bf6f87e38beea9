#include "stopsignals.h"

#include <csignal>
#include <cstdint>

#include <sys/eventfd.h>
#include <unistd.h>

namespace {

int s_event = -1;

void onSignal(int)
{
    const uint64_t one = 1;
    (void)!::write(s_event, &one, sizeof one);
}

int openEvent()
{
    s_event = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    Q_ASSERT(s_event >= 0);
    return s_event;
}

} // namespace

StopSignals::StopSignals() : m_notifier(openEvent(), QSocketNotifier::Read)
{
    connect(&m_notifier, &QSocketNotifier::activated, this, [this] {
        uint64_t count = 0;
        if (::read(s_event, &count, sizeof count) != sizeof count)
            return;
        for (; count > 0; --count)
            emit received();
    });
    for (const int number : {SIGTERM, SIGINT, SIGHUP})
        signal(number, onSignal);
}
