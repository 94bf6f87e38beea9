#include "core/model/nodes/cmnodelocker.h"

#include <QMutex>

#include <utility>

namespace {

struct Work
{
    std::function<void()> run;
    Work* next = nullptr;
};

// Plain data: nodes may be locked while the thread, or the process, ends and its objects are gone.
thread_local int lockers = 0;
thread_local Work* firstWork = nullptr;
thread_local Work* lastWork = nullptr;

void runWork()
{
    // Work may lock nodes and leave work of its own, which is then done ahead of what is left here.
    Work* work = std::exchange(firstWork, nullptr);
    lastWork = nullptr;
    while (work) {
        work->run();
        delete std::exchange(work, work->next);
    }
}

} // namespace

CMNodeLocker::CMNodeLocker(QMutex* mutex) : m_mutex(mutex)
{
    if (m_mutex)
        m_mutex->lock();
    ++lockers;
}

CMNodeLocker::~CMNodeLocker()
{
    unlock();
}

void CMNodeLocker::unlock()
{
    if (!m_locked)
        return;
    m_locked = false;
    if (m_mutex)
        m_mutex->unlock();
    if (--lockers == 0 && firstWork)
        runWork();
}

void CMNodeLocker::whenUnlocked(std::function<void()> work)
{
    if (lockers == 0) {
        work();
        return;
    }
    auto* entry = new Work{std::move(work)};
    (lastWork ? lastWork->next : firstWork) = entry;
    lastWork = entry;
}
