#include "service.h"

#include "core/model/cmvalueitem.h"
#include "core/orvo.h"
#include "log.h"
#include "records/orvoconstants.h"

#include <algorithm>
#include <csignal>

Service::Service(const ServiceConfig& config)
    : m_config(config), m_watchdog(config.id, config.program, config.arguments)
{
    m_watchdog.addEnvironments(config.environment);
    if (!config.user.isEmpty())
        m_watchdog.setUser(config.user);
    if (config.nice != 0)
        m_watchdog.renice(config.nice);
    // No service is left behind when the supervisor is killed.
    m_watchdog.setParentDeathSignal(SIGTERM);
    m_watchdog.setLogFileName(config.logFile);
    m_watchdog.setStopOnNetworkDown(config.stopOnNetworkDown);
    if (!config.busName.isEmpty()) {
        m_watchdog.setServiceWatcherName(config.busName);
        if (config.pingInterval > 0)
            m_watchdog.setDBusPingInterval(config.pingInterval, config.pingTimeout);
    }
    for (const CMPath& path : config.restartOnChanged)
        m_watchdog.addRestartOnChangedItem(path);
    orvoConnect(&m_watchdog, SIGNAL(started(QString,QString)), this, SLOT(on_watchdog_started()));
    orvoConnect(&m_watchdog, SIGNAL(terminated(QString,int)), this, SLOT(on_watchdog_terminated(QString,int)));

    // The watchdog stops the process for these as for a failed ping, and does not tell why.
    const auto items = m_watchdog.findChildren<CMValueItem*>(QString(), Qt::FindDirectChildrenOnly);
    for (CMValueItem* item : items) {
        connect(item, &CMValueItem::changed, this, [this](const OrvoValue& value, const OrvoValue& oldValue) {
            m_valueChanged = m_valueChanged || (hasProcess() && !oldValue.isEmpty() && oldValue != value);
        });
    }
    if (config.stopOnNetworkDown) {
        auto* network = new CMValueItem(this, OrvoNetworkStateConnected());
        connect(network, &CMValueItem::changed, this, [this](const OrvoValue& value, const OrvoValue& oldValue) {
            m_valueChanged = m_valueChanged || (hasProcess() && oldValue.bool_() && !value.bool_());
        });
    }

    m_backOffTimer.setSingleShot(true);
    connect(&m_backOffTimer, &QTimer::timeout, this, &Service::enter);
    m_startTimer.setSingleShot(true);
    m_startTimer.setInterval(config.startTimeout);
    connect(&m_startTimer, &QTimer::timeout, this, &Service::on_startTimer_timeout);
}

QString Service::stateText() const
{
    switch (m_state) {
    case State::Stopped:
        return QStringLiteral("stopped");
    case State::Waiting:
        return QStringLiteral("waiting");
    case State::Starting:
        return QStringLiteral("starting");
    case State::Running:
        return QStringLiteral("running");
    case State::BackOff:
        return QStringLiteral("backOff");
    case State::Stopping:
        return QStringLiteral("stopping");
    case State::Failed:
        return QStringLiteral("failed");
    }
    return QString();
}

bool Service::hasProcess() const
{
    return m_state == State::Starting || m_state == State::Running || m_state == State::Stopping;
}

int Service::pid() const
{
    // Behind a request to stop the watchdog no longer tells it.
    const auto* process = m_watchdog.findChild<AppProcess*>(QString(), Qt::FindDirectChildrenOnly);
    return hasProcess() ? int(process->processId()) : 0;
}

qint64 Service::uptime() const
{
    return m_state == State::Running ? m_up.elapsed() : 0;
}

void Service::start()
{
    m_wanted = true;
    if (hasProcess())
        return;
    m_row = 0;
    m_backOffTimer.stop();
    enter();
}

void Service::stop()
{
    m_wanted = false;
    m_backOffTimer.stop();
    if (hasProcess())
        askToEnd();
    else
        setState(State::Stopped);
}

void Service::restart()
{
    if (!hasProcess()) {
        start();
        return;
    }
    m_wanted = true;
    askToEnd();
}

void Service::setReady(bool ready)
{
    m_ready = ready;
    if (ready && m_state == State::Waiting)
        enter();
}

void Service::kill()
{
    if (const int process = pid(); process > 0)
        ::kill(process, SIGKILL);
}

void Service::setState(State state)
{
    if (m_state == state)
        return;
    m_state = state;
    LOG4CPLUS_INFO(supervisorLog(), m_config.id << ": " << stateText());
    emit changed();
}

/// Starts the process as soon as all that it depends on is up.
void Service::enter()
{
    if (m_ready)
        launch();
    else
        setState(State::Waiting);
}

void Service::launch()
{
    m_valueChanged = false;
    m_late = false;
    ++m_starts;
    m_state = State::Starting;
    if (!m_watchdog.start()) {
        const auto* process = m_watchdog.findChild<AppProcess*>(QString(), Qt::FindDirectChildrenOnly);
        ended(QStringLiteral("cannot start: ") + process->errorString(), End::Failure);
        return;
    }
    if (m_config.busName.isEmpty())
        return;
    LOG4CPLUS_INFO(supervisorLog(), m_config.id << ": starting");
    if (m_config.startTimeout > 0)
        m_startTimer.start();
    emit changed();
}

void Service::on_watchdog_started()
{
    // The name came while the process was already asked to end.
    if (m_state != State::Starting)
        return;
    m_startTimer.stop();
    m_up.start();
    setState(State::Running);
}

void Service::on_startTimer_timeout()
{
    LOG4CPLUS_WARN(supervisorLog(), m_config.id << ": did not take its bus name in time");
    m_late = true;
    m_watchdog.stopSignal(true, SIGTERM, m_config.stopTimeout);
}

void Service::askToEnd()
{
    m_startTimer.stop();
    // Does nothing when the watchdog has begun to end it on its own.
    m_watchdog.stopSignal(false, SIGTERM, m_config.stopTimeout);
    setState(State::Stopping);
}

void Service::on_watchdog_terminated(QString, int code)
{
    const auto* process = m_watchdog.findChild<AppProcess*>(QString(), Qt::FindDirectChildrenOnly);
    const bool crashed = process->exitStatus() == QProcess::CrashExit;
    const QString exit =
        QStringLiteral("%1 %2").arg(crashed ? QStringLiteral("signal") : QStringLiteral("exit")).arg(code);
    if (m_state == State::Stopping)
        ended(exit, End::ByHand);
    else if (m_valueChanged && crashed && code == SIGKILL)
        ended(exit, End::ByValue);
    else
        ended(exit, crashed || code != 0 || m_late ? End::Failure : End::Clean);
}

void Service::ended(const QString& exit, End end)
{
    using Restart = ServiceConfig::Restart;
    const bool healthy = m_state == State::Running && m_up.elapsed() >= m_config.healthy;
    m_startTimer.stop();
    m_lastExit = exit;
    LOG4CPLUS_INFO(supervisorLog(), m_config.id << ": " << exit);
    if (!m_wanted) {
        setState(State::Stopped);
        return;
    }
    if (end == End::ByHand || (end == End::ByValue && m_config.restart != Restart::Never)) {
        m_row = 0;
        setState(State::BackOff);
        m_backOffTimer.start(0);
        return;
    }
    if (m_config.restart == Restart::Never || (m_config.restart == Restart::OnFailure && end == End::Clean)) {
        m_wanted = false;
        setState(end == End::Failure ? State::Failed : State::Stopped);
        return;
    }
    if (healthy)
        m_row = 0;
    if (m_config.limit > 0 && m_row >= m_config.limit) {
        LOG4CPLUS_ERROR(supervisorLog(), m_config.id << ": given up after " << m_row << " restarts in a row");
        m_wanted = false;
        setState(State::Failed);
        return;
    }
    const qint64 delay = std::min<qint64>(m_config.maxBackOff, qint64(m_config.backOff) << std::min(m_row, 30));
    ++m_row;
    LOG4CPLUS_INFO(supervisorLog(), m_config.id << ": starts again in " << delay << " ms");
    setState(State::BackOff);
    m_backOffTimer.start(int(delay));
}
