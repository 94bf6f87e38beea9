#pragma once

#include <functional>

class QMutex;

/**
 * Holds a node's mutex, and keeps work that reaches for other nodes until the thread holds none any more.
 *
 * A subscription at another node ends in that node's mutex. Two nodes that refer to each other, each of them changed by
 * a thread of its own, would wait for each other for ever if it were made under the referring node's mutex. So nodes
 * give such work to whenUnlocked(), and the lock is gone by the time it runs. The calling thread does it all before the
 * outermost call into a node returns: who has subscribed at a node is sure that the node has subscribed at its targets.
 *
 * Everything in the library that takes a node's mutex takes it through this class. A node class of an application does
 * so, too; the mutex locked by other means hides from this class that it is held.
 */
class CMNodeLocker
{
public:
    /// A null mutex, which a value node may have, is no lock but counts as one.
    explicit CMNodeLocker(QMutex* mutex);
    ~CMNodeLocker();
    CMNodeLocker(const CMNodeLocker&) = delete;
    CMNodeLocker& operator=(const CMNodeLocker&) = delete;

    /// Gives the mutex back ahead of the end of the scope. Once.
    void unlock();

    /// Runs the work in this thread: at once, or, in the order of the calls, when its last locker is gone.
    static void whenUnlocked(std::function<void()> work);

private:
    QMutex* const m_mutex;
    bool m_locked = true;
};
