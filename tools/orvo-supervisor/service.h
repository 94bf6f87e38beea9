#pragma once

#include "config.h"
#include "core/appWatchdog.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

/**
 * One supervised service: starts its process, starts it again as its configuration says, and stops it.
 *
 * It is wanted from start() to stop(). While it is wanted it runs, or waits: for the services that it depends on, which
 * its owner tells by setReady(), or for its back-off to pass. It gives up, as failed, when too many restarts in a row
 * did not help.
 *
 * Owned by the Supervisor; lives in the main thread. Its process is killed with it.
 */
class Service : public QObject
{
    Q_OBJECT

public:
    enum class State {
        /// Not wanted, or ended in a way that its policy takes for its end.
        Stopped,
        /// For what it depends on.
        Waiting,
        /// The process runs, its bus name is to come.
        Starting,
        Running,
        /// For the next start.
        BackOff,
        Stopping,
        Failed,
    };

    explicit Service(const ServiceConfig& config);

    const ServiceConfig& config() const { return m_config; }
    State state() const { return m_state; }
    QString stateText() const;
    bool isWanted() const { return m_wanted; }
    /// Whether the process exists, in whatever state.
    bool hasProcess() const;
    /// 0 without a process.
    int pid() const;
    /// How often the process was started after the first time.
    int restarts() const { return m_starts > 1 ? m_starts - 1 : 0; }
    /// "exit 1", "signal 9", why it could not be started; empty before the first end.
    QString lastExit() const { return m_lastExit; }
    /// Milliseconds since it came up; 0 when it is not.
    qint64 uptime() const;

    /// Wants the service. A failed one begins anew; on one that is about to stop, it comes back afterwards.
    void start();
    void stop();
    void restart();
    /// Whether all that it depends on is up; false at first. A service that runs is left alone when one of them goes.
    void setReady(bool ready);
    /// Kills what is still there.
    void kill();

signals:
    /// The state, or what is told of the process, is other than before.
    void changed();

private slots:
    void on_watchdog_started();
    void on_watchdog_terminated(QString appId, int code);

private:
    /// Why the process ended: on its own, or because somebody or a value wanted it, which is no failure.
    enum class End { Clean, Failure, ByHand, ByValue };

    void setState(State state);
    void enter();
    void launch();
    void askToEnd();
    void ended(const QString& exit, End end);
    void on_startTimer_timeout();

    const ServiceConfig m_config;
    AppWatchdog m_watchdog;
    State m_state = State::Stopped;
    bool m_wanted = false;
    bool m_ready = false;
    /// A value changed for which the watchdog kills the process.
    bool m_valueChanged = false;
    /// It did not take its bus name in time.
    bool m_late = false;
    int m_starts = 0;
    /// Restarts in a row that did not lead to a healthy service.
    int m_row = 0;
    QString m_lastExit;
    QElapsedTimer m_up;
    QTimer m_backOffTimer;
    QTimer m_startTimer;
};
