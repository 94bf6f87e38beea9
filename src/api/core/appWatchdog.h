#pragma once

#include "records/orvovalue.h"

#include <QDBusConnection>
#include <QHash>
#include <QProcess>
#include <QRecursiveMutex>
#include <QStringList>

#include <memory>

class CMPath;
class CMValueItem;
class QDBusAbstractInterface;
class QDBusPendingCallWatcher;
class QDBusServiceWatcher;
class QTimer;
struct passwd;

/**
 * A process that may run as another user, and end with its parent.
 *
 * Lives in the thread of its owner. What is set holds for the next start.
 */
class AppProcess : public QProcess
{
    Q_OBJECT

public:
    explicit AppProcess(QObject* parent = nullptr);
    ~AppProcess() override;

    /// User, group and supplementary groups of the child; an unknown name is logged and leaves it those of this
    /// process.
    void setUser(const QString& name);
    /// The signal that the child gets when the thread that started it ends; -1 for none.
    void setParentDeathSignal(int signal) { m_parentDeathSignal = signal; }

protected:
    /// Runs in the child between fork and exec, where hardly anything may be called.
    void setupChildProcess() override;

private:
    std::unique_ptr<passwd> m_user;
    /// The strings of m_user.
    QByteArray m_userBuffer;
    int m_parentDeathSignal = -1;
};

/**
 * Runs one child process, and stops it when it no longer answers on the bus, when a watched value changes or when the
 * network goes down. It never restarts the child: every end is told by terminated(), and the owner decides.
 *
 * Lives in the supervisor's main thread and needs its event loop. It may be destroyed at any time, also inside its
 * own signals; a child that runs is killed then.
 *
 * Only start() waits for the child, until its program is loaded. A child that hangs later, even in the moment in which
 * it takes its bus name, costs the event loop nothing: all that is asked of it is asked asynchronously, and the only
 * answers waited for are those of the bus daemon.
 */
class AppWatchdog : public QObject
{
    Q_OBJECT

public:
    /// Signals for sendSignal() and stopSignal(), by their numbers.
    enum Enum { SigHup = 1, SigInt = 2, SigAbrt = 6, SigKill = 9, SigUsr1 = 10, SigUsr2 = 12, SigTerm = 15 };
    Q_ENUM(Enum)

    /// `id` names the child in log lines and signals.
    AppWatchdog(const QString& id, const QString& program, const QStringList& args);
    ~AppWatchdog() override;

    /**
     * Blocks until the program is loaded, at most 30 s; false, and no signal, when it cannot be. May be called inside
     * a slot on terminated().
     */
    bool start();
    /// Asks the child to end, or kills it; one that ignores being asked is not pressed further.
    void stop(bool reportCrash = true, bool kill = false);
    /// Sends the signal, and SIGKILL when the child has not ended `timeoutMs` later; below 0 that is 10 s.
    void stopSignal(bool reportCrash, int signal, int timeoutMs = -1);
    void sendSignal(AppWatchdog::Enum signal);
    /// False as soon as a stop was requested, also while the child is still ending.
    bool isRunning() const { return m_pid > 0; }

    /// The program that is run.
    QString name() const { return m_program; }
    QStringList args() const { return m_args; }

    void setUser(const QString& name);
    void setParentDeathSignal(int signal);
    /// With a bus name the child counts as started only when the name has an owner.
    void setServiceWatcherName(const QString& serviceName);
    /**
     * Calls the ping each `intervalMs`; 0 ends that. No answer for `timeoutMs` ends the child; a timeout outside 1 to
     * the interval is the interval. Only after setServiceWatcherName().
     */
    void setDBusPingInterval(int intervalMs, int timeoutMs);
    /// With `ignoreErrors` any answer is a sign of life, an error too. Only after setServiceWatcherName().
    void setDBusPingMethod(const QString& path, const QString& interface, const QString& method, bool ignoreErrors);
    /// The file that the child writes its log to; it is kept with ".crash" behind its name when the child crashes.
    void setLogFileName(const QString& fileName) { m_logFileName = fileName; }
    void setStopOnNetworkDown(bool stop) { m_stopOnNetworkDown = stop; }
    bool stopOnNetworkDown() const { return m_stopOnNetworkDown; }
    void addEnvironments(const QHash<QString, QString>& environments);
    /// Kills the child when the value at the path changes from one value to another.
    void addRestartOnChangedItem(const CMPath& path);
    /// Runs the program by "nice", which name() and args() tell from then on. Before start().
    void renice(int niceValue);

signals:
    /// The child counts as up; `newOwner` is the owner of its bus name, if it has one.
    void started(QString appId, QString newOwner = QString());
    /// `code` is the exit code, or the signal that ended the child.
    void terminated(QString appId, int code);

private slots:
    void processFinished(int exitCode, QProcess::ExitStatus exitStatus);
    void serviceOwnerChanged(QString serviceName, QString oldOwner, QString newOwner);
    void startDBusPing();
    void stopDBusPing();
    void dbusPingIntervalTimeout();
    void dbusPingTimeoutTimeout();
    void dbusPingCallFinished(QDBusPendingCallWatcher* call);
    void dbusPingFailed();
    void on_restartOnChangedItem_changed(OrvoValue newValue, OrvoValue oldValue);
    void on_stopTimer_timeout();

private:
    void writeCrashReport();

    const QString m_id;
    QString m_program;
    QStringList m_args;
    QDBusConnection m_connection;
    QDBusServiceWatcher* m_dbusServiceWatcher = nullptr;
    QString m_serviceName;
    QString m_pingPath = QStringLiteral("/");
    QString m_pingInterface = QStringLiteral("org.orvo.ping");
    QString m_pingMethod = QStringLiteral("ping");
    int m_pingInterval = 0;
    int m_pingTimeout = 0;
    bool m_ignorePingErrors = true;
    QDBusAbstractInterface* m_pingProxy = nullptr;
    QTimer* m_pingIntervalTimer = nullptr;
    QTimer* m_pingTimeoutTimer = nullptr;
    /// The ping in flight.
    QDBusPendingCallWatcher* m_dbusPingCallWatcher = nullptr;
    bool m_serviceUp = false;
    /// -1 when not running, and from the request to stop on.
    int m_pid = -1;
    /// Whom the stop timer kills.
    int m_pidToKill = -1;
    QTimer* const m_stopTimer;
    AppProcess* const m_process;
    QString m_logFileName;
    bool m_stopOnNetworkDown = false;
    /// Whether the next end of the child is reported as a crash.
    bool m_reportCrash = true;
    /// Successful starts; tells a new child from the one that ended, whatever their process ids.
    unsigned m_starts = 0;
};

/**
 * All running children of this process: stops them all, or those marked for it when the network goes down.
 *
 * One for the process, made on first use and never destroyed. Its list may be used from any thread; the network state
 * is followed in the thread that starts the first marked child.
 */
class AppWatchdogMonitor : public QObject
{
    Q_OBJECT

public:
    static AppWatchdogMonitor* instance();

    void addProcess(int pid, AppWatchdog* watchdog);
    void removeProcess(int pid);
    /// Kills them, each with a crash report.
    void stopAllProcesses();

private slots:
    void on_networkStateConnectedItem_changed(OrvoValue newValue);

private:
    AppWatchdogMonitor() = default;

    static AppWatchdogMonitor* s_instance;

    QRecursiveMutex m_mutex;
    QHash<int, AppWatchdog*> m_processes;
    std::shared_ptr<CMValueItem> m_networkItem;
    bool m_connected = false;
};
