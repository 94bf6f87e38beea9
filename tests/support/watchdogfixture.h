#pragma once

#include "core/appWatchdog.h"
#include "logcapture.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QDir>
#include <QEvent>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

#include <functional>

inline QString watchedChild()
{
    return QCoreApplication::applicationDirPath() + "/watchedchild";
}

inline QByteArray contentOf(const QString& fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// The children that this process has, ended ones that nobody asked for included.
inline QList<int> childPids()
{
    QList<int> pids;
    const QString tasks = QStringLiteral("/proc/self/task/");
    for (const QString& task : QDir(tasks).entryList(QDir::Dirs | QDir::NoDotAndDotDot))
        for (const QByteArray& pid : contentOf(tasks + task + "/children").split(' '))
            if (pid.toInt() > 0)
                pids.append(pid.toInt());
    return pids;
}

/// 'R', 'S', 'T', 'Z' and so on; 0 when there is no such process.
inline char stateOf(int pid)
{
    const QByteArray stat = contentOf(QStringLiteral("/proc/%1/stat").arg(pid));
    return stat.mid(stat.lastIndexOf(')') + 2, 1).toStdString().c_str()[0];
}

inline bool endsSoon(int pid)
{
    return QTest::qWaitFor([pid] { return stateOf(pid) == 0 || stateOf(pid) == 'Z'; }, 10000);
}

inline int openFiles()
{
    return QDir("/proc/self/fd").entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size();
}

/// Timers of the object and of all below it that run.
inline int runningTimers(QObject* object)
{
    int count = QAbstractEventDispatcher::instance()->registeredTimers(object).size();
    for (QObject* child : object->findChildren<QObject*>())
        count += QAbstractEventDispatcher::instance()->registeredTimers(child).size();
    return count;
}

/// Writes down a watchdog's signals and the lines of supervision in the order in which they come.
class Journal
{
public:
    Journal() : m_lines("AppWatchdog"), m_monitorLines("AppWatchdogMonitor") {}

    void follow(AppWatchdog* watchdog)
    {
        QObject::connect(watchdog, &AppWatchdog::started, &m_context,
                         [this, watchdog](const QString& id, const QString& owner) {
                             signalsSeen.append(QString("started %1 %2").arg(id, owner.isNull() ? "null" : owner));
                             runningInSignal.append(watchdog->isRunning());
                             if (onStarted)
                                 onStarted();
                         });
        QObject::connect(watchdog, &AppWatchdog::terminated, &m_context, [this, watchdog](const QString& id, int code) {
            signalsSeen.append(QString("terminated %1 %2").arg(id).arg(code));
            runningInSignal.append(watchdog->isRunning());
            linesAtEnd = lines();
            monitorLinesAtEnd = monitorLines();
            if (onTerminated)
                onTerminated();
        });
    }

    QStringList lines() const { return m_lines.lines(); }
    QStringList monitorLines() const { return m_monitorLines.lines(); }
    /// The report lines among them.
    QStringList fatalLines() const { return lines().filter(QRegularExpression("^FATAL ")); }
    bool ended() const { return !signalsSeen.isEmpty() && signalsSeen.last().startsWith("terminated"); }

    QStringList signalsSeen;
    QList<bool> runningInSignal;
    /// What stood there when the end was told.
    QStringList linesAtEnd;
    QStringList monitorLinesAtEnd;
    std::function<void()> onStarted;
    std::function<void()> onTerminated;

private:
    LogCapture m_lines;
    LogCapture m_monitorLines;
    QObject m_context;
};
