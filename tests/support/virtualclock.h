#pragma once

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QMap>
#include <QThread>
#include <QTimerEvent>

#include <functional>
#include <memory>

/**
 * Time for the timers of one thread that goes on only when a test says so: hours pass in no time, and what happens in
 * which order does not depend on the machine. The thread has no event loop besides.
 */
class VirtualClock : public QAbstractEventDispatcher
{
public:
    /// Runs the function in a thread on such a clock, and waits for it.
    static void run(const std::function<void(VirtualClock*)>& function)
    {
        auto* clock = new VirtualClock;
        const std::unique_ptr<QThread> thread(QThread::create([&] { function(clock); }));
        thread->setEventDispatcher(clock);
        clock->moveToThread(thread.get());
        thread->start();
        thread->wait();
    }

    int now() const { return m_now; }
    bool idle() const { return m_queue.isEmpty(); }
    /// The function is called when the time has come, after what was planned for that time earlier.
    void at(int time, const std::function<void()>& function) { m_queue.insert({time, ++m_planned}, {0, function}); }
    /// Goes on to what is next, and does it.
    void step()
    {
        const Key key = m_queue.firstKey();
        const Entry entry = m_queue.take(key);
        m_now = key.first;
        if (entry.timer == 0) {
            entry.function();
            return;
        }
        // Repeats until it is stopped.
        Timer& timer = m_timers[entry.timer];
        QObject* object = timer.object;
        plan(entry.timer);
        QTimerEvent event(entry.timer);
        QCoreApplication::sendEvent(object, &event);
    }

    void registerTimer(int id, int interval, Qt::TimerType type, QObject* object) override
    {
        m_timers.insert(id, {interval, type, object, {}});
        plan(id);
    }
    bool unregisterTimer(int id) override
    {
        const auto timer = m_timers.find(id);
        if (timer == m_timers.end())
            return false;
        m_queue.remove(timer->planned);
        m_timers.erase(timer);
        return true;
    }
    bool unregisterTimers(QObject* object) override
    {
        const QList<TimerInfo> timers = registeredTimers(object);
        for (const TimerInfo& timer : timers)
            unregisterTimer(timer.timerId);
        return !timers.isEmpty();
    }
    QList<TimerInfo> registeredTimers(QObject* object) const override
    {
        QList<TimerInfo> timers;
        for (auto it = m_timers.cbegin(); it != m_timers.cend(); ++it)
            if (it->object == object)
                timers.append({it.key(), it->interval, it->type});
        return timers;
    }
    int remainingTime(int id) override { return m_timers.contains(id) ? m_timers[id].planned.first - m_now : -1; }

    bool processEvents(QEventLoop::ProcessEventsFlags) override { return false; }
    bool hasPendingEvents() override { return false; }
    void registerSocketNotifier(QSocketNotifier*) override {}
    void unregisterSocketNotifier(QSocketNotifier*) override {}
    void wakeUp() override {}
    void interrupt() override {}
    void flush() override {}

private:
    /// The time and the place in it.
    using Key = QPair<int, int>;
    struct Entry
    {
        int timer;
        std::function<void()> function;
    };
    struct Timer
    {
        int interval;
        Qt::TimerType type;
        QObject* object;
        Key planned;
    };

    void plan(int id)
    {
        Timer& timer = m_timers[id];
        timer.planned = {m_now + timer.interval, ++m_planned};
        m_queue.insert(timer.planned, {id, nullptr});
    }

    int m_now = 0;
    int m_planned = 0;
    QMap<Key, Entry> m_queue;
    QMap<int, Timer> m_timers;
};
