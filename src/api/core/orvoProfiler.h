#pragma once

#include <QHash>
#include <QList>
#include <QMutex>
#include <QString>
#include <QVariant>

#include <sys/time.h>

/**
 * Measures how long a sequence of named events takes, across threads and classes: one place opens a named watcher,
 * others mark events on it by name, and its final event writes all of them with their times on one line of the log.
 *
 * One object for the process, made by the first call of instance(), which must not race with another one, and never
 * deleted. All else may be called from any thread. A mark while nobody measures costs one lock and one look-up.
 */
class Profiler
{
public:
    struct EventInfo
    {
        QString name;
        /// Kept, not printed.
        QVariantHash params;
        timeval time;
    };

    struct WatcherInfo
    {
        QString name;
        QString finalEvent;
        timeval startTime;
        timeval endTime;
        /// In order, the final one included.
        QList<EventInfo> events;
    };

    static Profiler* instance();

    /**
     * Starts to measure. False while a watcher of that name runs; its measurement goes on untouched. A watcher whose
     * final event never comes stays for ever.
     */
    bool createWatcher(const QString& name, const QString& finalEvent);
    /// Marks an event; nothing happens without a watcher of that name.
    void event(const QString& watcher, const QString& name, const QVariantHash& params);

    /// From a key press until its effect is drawn.
    static const QString& UIResponseWatcher();
    static const QString& UIConsoleDataEvent();
    static const QString& UISGEDataEvent();
    static const QString& UIDrawStartEvent();
    static const QString& UIDrawEvent();

private:
    Profiler() = default;

    static void print(WatcherInfo* info);
    static long long timeDiff(timeval* from, timeval* to);

    static Profiler* s_profiler;

    QMutex m_mutex;
    QHash<QString, WatcherInfo> m_watchers;
};
