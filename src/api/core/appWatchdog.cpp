#include "core/appWatchdog.h"

#include "core/model/cmpath.h"
#include "core/model/cmvalueitem.h"
#include "core/orvo.h"
#include "core/orvoLog_p.h"
#include "records/orvoconstants.h"

#include <QDBusAbstractInterface>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QFile>
#include <QPointer>
#include <QTimer>

#include <csignal>
#include <cstdio>
#include <grp.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int startTimeoutMs = 30000;
constexpr int stopTimeoutMs = 10000;

ORVO_LOGGER("AppWatchdog")

namespace process {
ORVO_LOGGER("AppProcess")
} // namespace process

namespace monitor {
ORVO_LOGGER("AppWatchdogMonitor")
} // namespace monitor

/// 0 and negative numbers are groups of processes for kill(), with this process in the first of them.
void sendTo(int pid, int signal)
{
    if (pid > 0)
        ::kill(pid, signal);
}

/**
 * What calls the ping. QDBusInterface would introspect the child while it is being made, and block for 25 s on one that
 * hangs; a call by name needs nothing of that.
 */
class PingProxy : public QDBusAbstractInterface
{
public:
    PingProxy(const QString& service, const QString& path, const QString& interface, const QDBusConnection& connection,
              QObject* parent)
        : QDBusAbstractInterface(service, path, interface.toLatin1().constData(), connection, parent)
    {}
};

} // namespace

// AppProcess

AppProcess::AppProcess(QObject* parent) : QProcess(parent) {}

AppProcess::~AppProcess() = default;

void AppProcess::setUser(const QString& name)
{
    const long size = sysconf(_SC_GETPW_R_SIZE_MAX);
    m_userBuffer.resize(size == -1 ? 8196 : int(size));
    m_user = std::make_unique<passwd>();
    passwd* found = nullptr;
    if (getpwnam_r(name.toLocal8Bit().constData(), m_user.get(), m_userBuffer.data(), size_t(m_userBuffer.size()),
                   &found)
            != 0
        || !found) {
        LOG4CPLUS_ERROR(process::logger(), "Failed to get info about user: " << name);
        m_user.reset();
    }
}

void AppProcess::setupChildProcess()
{
    static const char noGroups[] = "Cannot initialize supplementary groups\n";
    static const char noUser[] = "Cannot change user/group\n";
    if (m_user) {
        if (initgroups(m_user->pw_name, m_user->pw_gid) != 0)
            fwrite(noGroups, 1, sizeof noGroups - 1, stderr);
        // The group first: without the old user's rights it could not be changed.
        const bool groupChanged = setregid(m_user->pw_gid, m_user->pw_gid) == 0;
        const bool userChanged = setreuid(m_user->pw_uid, m_user->pw_uid) == 0;
        if (!groupChanged || !userChanged)
            fwrite(noUser, 1, sizeof noUser - 1, stderr);
    }
    // A change of the user clears it, so it comes last.
    if (m_parentDeathSignal != -1)
        prctl(PR_SET_PDEATHSIG, m_parentDeathSignal);
}

// AppWatchdog

AppWatchdog::AppWatchdog(const QString& id, const QString& program, const QStringList& args)
    : m_id(id),
      m_program(program),
      m_args(args),
      m_connection(orvoDBusConnection()),
      m_stopTimer(new QTimer(this)),
      m_process(new AppProcess(this))
{
    m_stopTimer->setSingleShot(true);
    m_stopTimer->setInterval(stopTimeoutMs);
    orvoConnect(m_stopTimer, SIGNAL(timeout()), this, SLOT(on_stopTimer_timeout()));
    m_process->setProcessChannelMode(QProcess::ForwardedChannels);
    m_process->setProcessEnvironment(QProcessEnvironment::systemEnvironment());
    orvoConnect(m_process, SIGNAL(finished(int,QProcess::ExitStatus)), this,
                                  SLOT(processFinished(int,QProcess::ExitStatus)));
}

AppWatchdog::~AppWatchdog()
{
    if (m_pid > 0)
        AppWatchdogMonitor::instance()->removeProcess(m_pid);
}

bool AppWatchdog::start()
{
    // An argument that makes a child run under valgrind; set while looking for a leak.
    const QString valgrindMarker;
    if (!valgrindMarker.isEmpty() && m_args.contains(valgrindMarker)) {
        m_process->start(QStringLiteral("valgrind"),
                         QStringList{QStringLiteral("--leak-check=full"), QStringLiteral("oRVO")} + m_args);
    } else {
        m_process->start(m_program, m_args, QIODevice::ReadWrite);
    }
    if (!m_process->waitForStarted(startTimeoutMs))
        return false;
    ++m_starts;
    m_pid = int(m_process->processId());
    AppWatchdogMonitor::instance()->addProcess(m_pid, this);
    if (!m_dbusServiceWatcher) {
        m_serviceUp = true;
        emit started(m_id, QLatin1String(""));
    }
    return true;
}

void AppWatchdog::stop(bool reportCrash, bool kill)
{
    if (m_pid > 0) {
        AppWatchdogMonitor::instance()->removeProcess(m_pid);
        m_pid = -1;
    }
    m_reportCrash = reportCrash;
    if (kill)
        m_process->kill();
    else
        m_process->terminate();
}

void AppWatchdog::stopSignal(bool reportCrash, int signal, int timeoutMs)
{
    m_reportCrash = reportCrash;
    if (m_pid <= 0)
        return;
    AppWatchdogMonitor::instance()->removeProcess(m_pid);
    if (signal != SIGKILL) {
        m_pidToKill = m_pid;
        m_stopTimer->start(timeoutMs < 0 ? stopTimeoutMs : timeoutMs);
    }
    sendTo(m_pid, signal);
    m_pid = -1;
}

void AppWatchdog::sendSignal(AppWatchdog::Enum signal)
{
    sendTo(m_pid, signal);
}

void AppWatchdog::setUser(const QString& name)
{
    m_process->setUser(name);
}

void AppWatchdog::setParentDeathSignal(int signal)
{
    m_process->setParentDeathSignal(signal);
}

void AppWatchdog::setServiceWatcherName(const QString& serviceName)
{
    m_serviceName = serviceName;
    delete m_dbusServiceWatcher;
    m_dbusServiceWatcher = new QDBusServiceWatcher(
        serviceName, m_connection,
        QDBusServiceWatcher::WatchForRegistration | QDBusServiceWatcher::WatchForUnregistration, this);
    orvoConnect(m_dbusServiceWatcher, SIGNAL(serviceOwnerChanged(QString,QString,QString)), this,
                                             SLOT(serviceOwnerChanged(QString,QString,QString)));
}

void AppWatchdog::addEnvironments(const QHash<QString, QString>& environments)
{
    QProcessEnvironment environment = m_process->processEnvironment();
    for (auto it = environments.cbegin(); it != environments.cend(); ++it)
        environment.insert(it.key(), it.value());
    m_process->setProcessEnvironment(environment);
}

void AppWatchdog::addRestartOnChangedItem(const CMPath& path)
{
    new CMValueItem(this, path, this, SLOT(on_restartOnChangedItem_changed(OrvoValue,OrvoValue)));
}

void AppWatchdog::renice(int niceValue)
{
    m_args = QStringList{QStringLiteral("-n"), QString::number(niceValue), m_program} + m_args;
    m_program = QStringLiteral("nice");
}

void AppWatchdog::processFinished(int exitCode, QProcess::ExitStatus exitStatus)
{
    LOG4CPLUS_DEBUG(logger(), "processFinished(exitCode=" << exitCode << ", exitStatus=" << exitStatus);
    m_stopTimer->stop();
    if (exitStatus == QProcess::CrashExit && WIFSIGNALED(exitCode))
        LOG4CPLUS_WARN(logger(), "Process " << m_id << " crashed due the signal: " << (exitCode & 127));
    if (m_reportCrash)
        writeCrashReport();
    m_serviceUp = false;
    m_pidToKill = -1;
    m_reportCrash = true;
    stopDBusPing();

    const int endedPid = m_pid;
    const unsigned endedStart = m_starts;
    const QPointer<AppWatchdog> alive(this);
    emit terminated(m_id, exitCode);
    if (!alive || endedPid <= 0)
        return;
    if (m_starts == endedStart) {
        if (m_pid <= 0)
            return;
        m_pid = -1;
    } else if (m_pid == endedPid) {
        // The slot started the next child, which got the same process id.
        return;
    }
    AppWatchdogMonitor::instance()->removeProcess(endedPid);
}

void AppWatchdog::writeCrashReport()
{
    const QString crashFileName = m_logFileName + QStringLiteral(".crash");
    if (QFile::exists(crashFileName))
        QFile::remove(crashFileName);
    QString reportFileName;
    if (QFile::exists(m_logFileName)) {
        if (QFile::rename(m_logFileName, crashFileName))
            reportFileName = crashFileName;
        else
            LOG4CPLUS_WARN(logger(), "Can't rename file:" << m_logFileName);
    }
    LOG4CPLUS_FATAL(logger(), "==Report file:" << reportFileName << "==Module crashed:" << m_id);
}

void AppWatchdog::serviceOwnerChanged(QString serviceName, QString oldOwner, QString newOwner)
{
    LOG4CPLUS_DEBUG(logger(), "serviceOwnerChanged(name=" << serviceName << oldOwner << " -> " << newOwner);
    if (serviceName != m_serviceName || newOwner.isEmpty() || m_serviceUp)
        return;
    m_serviceUp = true;
    const QPointer<AppWatchdog> alive(this);
    emit started(m_id, newOwner);
    if (alive && m_pingInterval != 0)
        startDBusPing();
}

// The ping

void AppWatchdog::setDBusPingInterval(int intervalMs, int timeoutMs)
{
    Q_ASSERT(m_dbusServiceWatcher);
    if (m_pingInterval != 0)
        stopDBusPing();
    m_pingInterval = intervalMs;
    m_pingTimeout = timeoutMs < 1 || timeoutMs > intervalMs ? intervalMs : timeoutMs;
    if (m_pingInterval != 0 && m_serviceUp)
        startDBusPing();
}

void AppWatchdog::setDBusPingMethod(const QString& path, const QString& interface, const QString& method,
                                    bool ignoreErrors)
{
    Q_ASSERT(m_dbusServiceWatcher);
    stopDBusPing();
    m_pingPath = path;
    m_pingInterface = interface;
    m_pingMethod = method;
    m_ignorePingErrors = ignoreErrors;
    if (m_pingInterval != 0 && m_serviceUp)
        startDBusPing();
}

void AppWatchdog::startDBusPing()
{
    if (!m_serviceUp || m_pingInterval == 0)
        return;
    if (!m_pingIntervalTimer) {
        m_pingIntervalTimer = new QTimer(this);
        orvoConnect(m_pingIntervalTimer, SIGNAL(timeout()), this, SLOT(dbusPingIntervalTimeout()));
    }
    m_pingIntervalTimer->setInterval(m_pingInterval);
    if (m_pingTimeout < m_pingInterval) {
        if (!m_pingTimeoutTimer) {
            m_pingTimeoutTimer = new QTimer(this);
            orvoConnect(m_pingTimeoutTimer, SIGNAL(timeout()), this, SLOT(dbusPingTimeoutTimeout()));
        }
        m_pingTimeoutTimer->setSingleShot(true);
        m_pingTimeoutTimer->setInterval(m_pingTimeout);
    } else {
        // The next tick finds the ping unanswered; one left from other settings would find that too early.
        delete m_pingTimeoutTimer;
        m_pingTimeoutTimer = nullptr;
    }
    if (!m_pingProxy)
        m_pingProxy = new PingProxy(m_serviceName, m_pingPath, m_pingInterface, m_connection, this);
    LOG4CPLUS_DEBUG(logger(), "starting ping timer");
    m_pingIntervalTimer->start();
}

void AppWatchdog::stopDBusPing()
{
    if (m_pingIntervalTimer)
        m_pingIntervalTimer->stop();
    if (m_pingTimeoutTimer)
        m_pingTimeoutTimer->stop();
    delete m_dbusPingCallWatcher;
    m_dbusPingCallWatcher = nullptr;
    delete m_pingProxy;
    m_pingProxy = nullptr;
}

void AppWatchdog::dbusPingIntervalTimeout()
{
    if (m_dbusPingCallWatcher)
        dbusPingTimeoutTimeout();
    if (!m_serviceUp || m_pingInterval == 0)
        return;
    LOG4CPLUS_TRACE(logger(), "calling " << m_pingMethod << " on " << m_serviceName);
    m_dbusPingCallWatcher = new QDBusPendingCallWatcher(m_pingProxy->asyncCall(m_pingMethod), this);
    orvoConnect(m_dbusPingCallWatcher, SIGNAL(finished(QDBusPendingCallWatcher*)), this,
                                              SLOT(dbusPingCallFinished(QDBusPendingCallWatcher*)));
    if (m_pingTimeoutTimer)
        m_pingTimeoutTimer->start();
}

void AppWatchdog::dbusPingTimeoutTimeout()
{
    if (!m_dbusPingCallWatcher)
        return;
    delete m_dbusPingCallWatcher;
    m_dbusPingCallWatcher = nullptr;
    dbusPingFailed();
}

void AppWatchdog::dbusPingCallFinished(QDBusPendingCallWatcher* call)
{
    // An assignment, and meant: it makes sure of the stored watcher, whoever calls.
    Q_ASSERT(call = m_dbusPingCallWatcher);
    m_dbusPingCallWatcher = nullptr;
    if (m_pingTimeoutTimer && m_pingTimeoutTimer->isActive()) {
        LOG4CPLUS_TRACE(logger(), "ping call finished, stopping timeoutTimer");
        m_pingTimeoutTimer->stop();
    }
    const QDBusPendingReply<> reply = *call;
    if (reply.isError() && (reply.error().type() == QDBusError::NoReply || !m_ignorePingErrors))
        dbusPingFailed();
    call->deleteLater();
}

void AppWatchdog::dbusPingFailed()
{
    LOG4CPLUS_FATAL(logger(), "==Report== " << m_id << " stopped responding to DBUS calls");
    stopSignal(true, SIGABRT, -1);
}

void AppWatchdog::on_restartOnChangedItem_changed(OrvoValue newValue, OrvoValue oldValue)
{
    if (!oldValue.isEmpty() && oldValue != newValue)
        stop(false, true);
}

void AppWatchdog::on_stopTimer_timeout()
{
    sendTo(m_pidToKill, SIGKILL);
}

// AppWatchdogMonitor

AppWatchdogMonitor* AppWatchdogMonitor::s_instance = nullptr;

AppWatchdogMonitor* AppWatchdogMonitor::instance()
{
    static const bool made = [] {
        s_instance = new AppWatchdogMonitor;
        return true;
    }();
    Q_UNUSED(made)
    return s_instance;
}

void AppWatchdogMonitor::addProcess(int pid, AppWatchdog* watchdog)
{
    const QMutexLocker locker(&m_mutex);
    LOG4CPLUS_INFO(monitor::logger(), "Monitor: addProcess: id=" << pid << ", name=" << watchdog->name());
    m_processes.insert(pid, watchdog);
    if (watchdog->stopOnNetworkDown() && !m_networkItem) {
        m_networkItem = std::make_shared<CMValueItem>(nullptr, OrvoNetworkStateConnected(), this,
                                                      SLOT(on_networkStateConnectedItem_changed(OrvoValue)));
    }
}

void AppWatchdogMonitor::removeProcess(int pid)
{
    const QMutexLocker locker(&m_mutex);
    LOG4CPLUS_INFO(monitor::logger(), "Monitor: removeProcess: id=" << pid);
    m_processes.remove(pid);
}

void AppWatchdogMonitor::stopAllProcesses()
{
    const QMutexLocker locker(&m_mutex);
    LOG4CPLUS_INFO(monitor::logger(), "Monitor: stopAllProcesses: ");
    const QList<int> pids = m_processes.keys();
    for (const int pid : pids) {
        AppWatchdog* watchdog = m_processes.value(pid);
        LOG4CPLUS_INFO(monitor::logger(), "  process: id=" << pid << ", name=" << watchdog->name());
        watchdog->stop(true, true);
    }
}

void AppWatchdogMonitor::on_networkStateConnectedItem_changed(OrvoValue newValue)
{
    const QMutexLocker locker(&m_mutex);
    const bool connected = newValue.bool_();
    if (connected == m_connected)
        return;
    m_connected = connected;
    if (connected)
        return;
    LOG4CPLUS_INFO(monitor::logger(), "Monitor: Network down stopping processes:");
    const QHash<int, AppWatchdog*> processes = m_processes;
    for (auto it = processes.cbegin(); it != processes.cend(); ++it) {
        if (!it.value()->stopOnNetworkDown())
            continue;
        LOG4CPLUS_INFO(monitor::logger(), "  process: id=" << it.key() << ", name=" << it.value()->name());
        it.value()->stop(false, true);
    }
}
