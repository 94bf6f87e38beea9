#include "core/serviceValueSynchronizer.h"

#include "core/orvo.h"
#include "core/orvoLog_p.h"

#include <QPointer>

namespace {

ORVO_LOGGER("ServiceValueSynchronizer")

} // namespace

ServiceValueSynchronizer::ServiceValueSynchronizer(const QString& name, int systemChangeIgnoreMs,
                                                   int serviceChangeIgnoreMs)
    : m_name(name), m_serviceChangeTimer(this), m_systemChangeTimer(this)
{
    m_systemChangeTimer.setSingleShot(true);
    m_systemChangeTimer.setInterval(systemChangeIgnoreMs);
    m_serviceChangeTimer.setSingleShot(true);
    m_serviceChangeTimer.setInterval(serviceChangeIgnoreMs);
    orvoConnect(&m_systemChangeTimer, SIGNAL(timeout()), this, SLOT(on_ignoreTimer_timeout()));
    orvoConnect(&m_serviceChangeTimer, SIGNAL(timeout()), this, SLOT(on_ignoreTimer_timeout()));
}

void ServiceValueSynchronizer::setServiceValue(const QVariant& value)
{
    if (!m_enabled) {
        LOG4CPLUS_DEBUG(logger(), m_name << ": Service value synchronizer not enabled, skipping value update");
        return;
    }
    m_serviceValue = value;
    if (m_systemChangeTimer.isActive()) {
        LOG4CPLUS_DEBUG(logger(), m_name << ": Value is currently being updated from system, skipping update");
        return;
    }
    LOG4CPLUS_DEBUG(logger(), m_name << ": Setting system value to " << value.toString());
    m_serviceChangeTimer.start();
    emit updateSystemValue(value);
}

void ServiceValueSynchronizer::setSystemValue(const QVariant& value)
{
    m_systemValue = value;
    if (!m_enabled) {
        LOG4CPLUS_DEBUG(logger(), m_name << ": Service value synchronizer not enabled, skipping value update");
        return;
    }
    emitSystemValueChanged(value);
}

void ServiceValueSynchronizer::enable()
{
    m_enabled = true;
}

void ServiceValueSynchronizer::disable()
{
    m_enabled = false;
    m_serviceChangeTimer.stop();
    m_systemChangeTimer.stop();
}

void ServiceValueSynchronizer::requireValueConfirmation(bool require)
{
    m_requireConfirmation = require;
}

void ServiceValueSynchronizer::emitSystemValueChanged(const QVariant& value)
{
    if (m_serviceChangeTimer.isActive()) {
        LOG4CPLUS_DEBUG(logger(), m_name << ": Value is currently being updated from service, skipping value update");
        return;
    }
    if (m_systemChangeTimer.interval() > 0)
        m_systemChangeTimer.start();
    if (!m_requireConfirmation)
        m_serviceValue.clear();
    emit updateServiceValue(value);
}

void ServiceValueSynchronizer::on_ignoreTimer_timeout()
{
    if (m_systemChangeTimer.isActive() || m_serviceChangeTimer.isActive())
        return;
    const QPointer<ServiceValueSynchronizer> alive(this);
    if (m_systemValue != m_serviceValue && !m_serviceValue.isNull()) {
        // The texts tell of a mute whatever the value is.
        if (sender() == &m_systemChangeTimer) {
            LOG4CPLUS_DEBUG(logger(), "Timer expired: applying the last service mute " << m_serviceValue.toString());
            emit updateSystemValue(m_serviceValue);
        } else {
            LOG4CPLUS_DEBUG(logger(), "Timer expired: applying the last orvo mute " << m_systemValue.toString());
            // A copy, as a receiver may report the next value meanwhile.
            emitSystemValueChanged(QVariant(m_systemValue));
        }
    }
    if (alive)
        m_serviceValue.clear();
}
