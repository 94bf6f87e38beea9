#include "core/systemAttenuationProxy.h"

#include "core/model/cmabstractworker.h"
#include "core/model/cminitwatcher.h"
#include "core/model/cmreply.h"
#include "core/model/cmroot.h"
#include "core/model/cmvalueitem.h"
#include "core/orvo.h"
#include "core/orvoLog_p.h"
#include "records/orvoconstants.h"

#include <QPointer>

#include <algorithm>

namespace {

// One name for both proxies, so that one setting shows the volume of either kind of service.
ORVO_LOGGER("SystemVolumeProxy")

} // namespace

SystemAttenuationProxy::SystemAttenuationProxy(const QString& name, int ignoreMs, bool noTimer)
    : m_name(name),
      m_muteSynchronizer(name, noTimer ? 0 : ignoreMs, ignoreMs),
      m_attenuationSynchronizer(name, noTimer ? 0 : ignoreMs, ignoreMs)
{
    LOG4CPLUS_DEBUG(logger(), m_name << (noTimer ? " no timer" : " timer"));
    const OrvoValue map(CMRoot()->getValue(OrvoPlayerVolumeMapPath()).toHash());
    const OrvoList<double> attenuations = map.doubleList();
    for (const QVariant& attenuation : attenuations)
        m_attenuations.append(attenuation.toDouble());

    // As children they follow to another thread.
    m_muteSynchronizer.setParent(this);
    m_attenuationSynchronizer.setParent(this);

    auto* watcher = new CMInitWatcher(this, m_name);
    orvoConnect(watcher, SIGNAL(done()), this, SLOT(on_init()));
    m_attenuationItem = watcher->newCMValueItem(OrvoPlayerAttenuationPath(), this,
                                                SLOT(on_attenuationItem_changed(OrvoValue,OrvoValue)));
    m_muteItem = watcher->newCMValueItem(OrvoPlayerMutePath(), this, SLOT(on_muteItem_changed(OrvoValue,OrvoValue)));

    orvoConnect(&m_attenuationSynchronizer, SIGNAL(updateServiceValue(QVariant)), this,
                                                   SLOT(on_attenuationSynchronizer_updateServiceValue(QVariant)));
    orvoConnect(&m_attenuationSynchronizer, SIGNAL(updateSystemValue(QVariant)), this,
                                                   SLOT(on_attenuationSynchronizer_updateSystemValue(QVariant)));
    orvoConnect(&m_muteSynchronizer, SIGNAL(updateServiceValue(QVariant)), this,
                                            SLOT(on_muteSynchronizer_updateServiceValue(QVariant)));
    orvoConnect(&m_muteSynchronizer, SIGNAL(updateSystemValue(QVariant)), this,
                                            SLOT(on_muteSynchronizer_updateSystemValue(QVariant)));
}

SystemAttenuationProxy::~SystemAttenuationProxy() = default;

void SystemAttenuationProxy::enable()
{
    m_attenuationSynchronizer.enable();
    m_muteSynchronizer.enable();
}

void SystemAttenuationProxy::disable()
{
    m_attenuationSynchronizer.disable();
    m_muteSynchronizer.disable();
}

void SystemAttenuationProxy::requireVolumeConfirmation(bool require)
{
    m_attenuationSynchronizer.requireValueConfirmation(require);
}

double SystemAttenuationProxy::attenuation() const
{
    return m_attenuationItem->value().double_();
}

bool SystemAttenuationProxy::isMuted() const
{
    return m_muteItem->value().bool_();
}

double SystemAttenuationProxy::maxOrvoAttenuation() const
{
    // QVector::first() makes sure that it is not empty, in these words too.
    return m_attenuations.first();
}

void SystemAttenuationProxy::setAttenuation(double attenuation)
{
    LOG4CPLUS_TRACE(logger(), m_name << ": service attenuation " << attenuation);
    attenuation = qMin(attenuation, m_attenuations.last());
    auto nearest = std::lower_bound(m_attenuations.cbegin(), m_attenuations.cend(), attenuation);
    if (nearest != m_attenuations.cbegin() && attenuation - *(nearest - 1) < *nearest - attenuation)
        --nearest;
    m_attenuationSynchronizer.setServiceValue(*nearest);
}

void SystemAttenuationProxy::setMute(bool mute)
{
    LOG4CPLUS_TRACE(logger(), m_name << ": service " << (mute ? "muted" : "unmuted"));
    m_muteSynchronizer.setServiceValue(mute);
}

void SystemAttenuationProxy::on_init()
{
    const QPointer<SystemAttenuationProxy> alive(this);
    on_attenuationItem_changed(m_attenuationItem->value(), OrvoValue());
    if (alive)
        on_muteItem_changed(m_muteItem->value(), OrvoValue());
}

void SystemAttenuationProxy::on_attenuationItem_changed(OrvoValue newValue, OrvoValue oldValue)
{
    LOG4CPLUS_TRACE(logger(),
                    m_name << ": attenuation " << newValue.double_() << ", previous value was " << oldValue.double_());
    m_attenuationSynchronizer.setSystemValue(newValue.double_());
}

void SystemAttenuationProxy::on_muteItem_changed(OrvoValue newValue, OrvoValue oldValue)
{
    LOG4CPLUS_TRACE(logger(), m_name << ": mute " << newValue.bool_() << ", previous value was " << oldValue.bool_());
    m_muteSynchronizer.setSystemValue(newValue.bool_());
}

void SystemAttenuationProxy::on_attenuationSynchronizer_updateServiceValue(QVariant value)
{
    emit attenuationChanged(value.toDouble());
}

void SystemAttenuationProxy::on_attenuationSynchronizer_updateSystemValue(QVariant value)
{
    CMRoot()->setValue(OrvoPlayerAttenuationPath(), OrvoValue().setDouble_(value.toDouble()));
}

void SystemAttenuationProxy::on_muteSynchronizer_updateServiceValue(QVariant value)
{
    emit muteChanged(value.toBool());
}

void SystemAttenuationProxy::on_muteSynchronizer_updateSystemValue(QVariant value)
{
    CMRoot()->setValue(OrvoPlayerMutePath(), OrvoValue().setBool_(value.toBool()));
}
