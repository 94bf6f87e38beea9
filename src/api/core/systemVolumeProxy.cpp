#include "core/systemVolumeProxy.h"

#include "core/model/cmabstractworker.h"
#include "core/model/cminitwatcher.h"
#include "core/model/cmreply.h"
#include "core/model/cmroot.h"
#include "core/model/cmvalueitem.h"
#include "core/orvo.h"
#include "core/orvoLog_p.h"
#include "records/orvoconstants.h"

#include <QPointer>

namespace {

ORVO_LOGGER("SystemVolumeProxy")

} // namespace

SystemVolumeProxy::SystemVolumeProxy(const QString& name, int maxServiceVolume, int ignoreMs, bool noTimer)
    : m_name(name),
      m_maxServiceVolume(maxServiceVolume),
      m_muteSynchronizer(name, noTimer ? 0 : ignoreMs, ignoreMs),
      m_volumeSynchronizer(name, noTimer ? 0 : ignoreMs, ignoreMs)
{
    LOG4CPLUS_DEBUG(logger(),
                    m_name << ": Service max volume " << m_maxServiceVolume << (noTimer ? " no timer" : " timer"));
    const OrvoValue map(CMRoot()->getValue(OrvoPlayerVolumeMapPath()).toHash());
    m_maxOrvoVolume = map.doubleList().size() - 1;
    if (m_maxServiceVolume < 0)
        m_maxServiceVolume = m_maxOrvoVolume;

    // As children they follow to another thread.
    m_muteSynchronizer.setParent(this);
    m_volumeSynchronizer.setParent(this);

    auto* watcher = new CMInitWatcher(this, m_name);
    orvoConnect(watcher, SIGNAL(done()), this, SLOT(on_init()));
    m_volumeItem =
        watcher->newCMValueItem(OrvoPlayerVolumePath(), this, SLOT(on_volumeItem_changed(OrvoValue,OrvoValue)));
    m_muteItem = watcher->newCMValueItem(OrvoPlayerMutePath(), this, SLOT(on_muteItem_changed(OrvoValue,OrvoValue)));

    orvoConnect(&m_volumeSynchronizer, SIGNAL(updateServiceValue(QVariant)), this,
                                              SLOT(on_volumeSynchronizer_updateServiceValue(QVariant)));
    orvoConnect(&m_volumeSynchronizer, SIGNAL(updateSystemValue(QVariant)), this,
                                              SLOT(on_volumeSynchronizer_updateSystemValue(QVariant)));
    orvoConnect(&m_muteSynchronizer, SIGNAL(updateServiceValue(QVariant)), this,
                                            SLOT(on_muteSynchronizer_updateServiceValue(QVariant)));
    orvoConnect(&m_muteSynchronizer, SIGNAL(updateSystemValue(QVariant)), this,
                                            SLOT(on_muteSynchronizer_updateSystemValue(QVariant)));
}

SystemVolumeProxy::~SystemVolumeProxy() = default;

void SystemVolumeProxy::enable()
{
    m_volumeSynchronizer.enable();
    m_muteSynchronizer.enable();
}

void SystemVolumeProxy::disable()
{
    m_volumeSynchronizer.disable();
    m_muteSynchronizer.disable();
}

void SystemVolumeProxy::requireVolumeConfirmation(bool require)
{
    m_volumeSynchronizer.requireValueConfirmation(require);
}

int SystemVolumeProxy::volume() const
{
    return orvoScaleVolume(m_volumeItem->value().i32_(), m_maxOrvoVolume, m_maxServiceVolume);
}

bool SystemVolumeProxy::isMuted() const
{
    return m_muteItem->value().bool_();
}

void SystemVolumeProxy::setVolume(int volume)
{
    LOG4CPLUS_TRACE(logger(), m_name << ": service volume " << volume);
    m_volumeSynchronizer.setServiceValue(orvoScaleVolume(volume, m_maxServiceVolume, m_maxOrvoVolume));
}

void SystemVolumeProxy::setMute(bool mute)
{
    LOG4CPLUS_TRACE(logger(), m_name << ": service " << (mute ? "muted" : "unmuted"));
    m_muteSynchronizer.setServiceValue(mute);
}

void SystemVolumeProxy::on_init()
{
    const QPointer<SystemVolumeProxy> alive(this);
    on_volumeItem_changed(m_volumeItem->value(), OrvoValue());
    if (alive)
        on_muteItem_changed(m_muteItem->value(), OrvoValue());
}

void SystemVolumeProxy::on_volumeItem_changed(OrvoValue newValue, OrvoValue oldValue)
{
    LOG4CPLUS_TRACE(logger(), m_name << ": volume " << newValue.i32_() << ", previous value was " << oldValue.i32_());
    m_volumeSynchronizer.setSystemValue(newValue.i32_());
}

void SystemVolumeProxy::on_muteItem_changed(OrvoValue newValue, OrvoValue oldValue)
{
    LOG4CPLUS_TRACE(logger(), m_name << ": mute " << newValue.bool_() << ", previous value was " << oldValue.bool_());
    m_muteSynchronizer.setSystemValue(newValue.bool_());
}

void SystemVolumeProxy::on_volumeSynchronizer_updateServiceValue(QVariant value)
{
    emit volumeChanged(orvoScaleVolume(value.toInt(), m_maxOrvoVolume, m_maxServiceVolume));
}

void SystemVolumeProxy::on_volumeSynchronizer_updateSystemValue(QVariant value)
{
    CMRoot()->setValue(OrvoPlayerVolumePath(), OrvoValue().setI32_(value.toInt()));
}

void SystemVolumeProxy::on_muteSynchronizer_updateServiceValue(QVariant value)
{
    emit muteChanged(value.toBool());
}

void SystemVolumeProxy::on_muteSynchronizer_updateSystemValue(QVariant value)
{
    CMRoot()->setValue(OrvoPlayerMutePath(), OrvoValue().setBool_(value.toBool()));
}
