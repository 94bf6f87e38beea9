#pragma once

#include "core/serviceValueSynchronizer.h"
#include "records/orvovalue.h"

#include <QObject>

class CMValueItem;

/**
 * Its constructor blocks until the volume map is answered, so it must not run in the thread that answers the model.
 *
 * Connects a streaming service's own volume scale and mute with the player's volume and mute in the model, without the
 * two echoing each other. A service embeds one and speaks to it in its own units: nothing passes in either direction
 * before enable() and after disable().
 *
 * Lives in one thread with an event loop and speaks to CMRoot(). May be destroyed inside its own signals.
 */
class SystemVolumeProxy : public QObject
{
    Q_OBJECT

public:
    /**
     * The service's volumes go from 0 to `maxServiceVolume`; below 0, the service uses the device's scale. For
     * `ignoreMs` milliseconds after a change by one side the other one is not listened to; with `noTimer` this holds
     * for changes by the service only.
     */
    SystemVolumeProxy(const QString& name, int maxServiceVolume, int ignoreMs, bool noTimer);
    ~SystemVolumeProxy() override;

    void enable();
    void disable();
    /// Whether a volume that the service reported shortly ahead of a change of the device's is applied after it.
    void requireVolumeConfirmation(bool require);

    /// The device's volume on the service's scale.
    int volume() const;
    bool isMuted() const;
    /// The top of the device's scale; -1 when the device has no volume map.
    int maxOrvoVolume() const { return m_maxOrvoVolume; }

public slots:
    /// The service's volume changed. Within the service's scale.
    void setVolume(int volume);
    void setMute(bool mute);

signals:
    /// The service shall take this volume.
    void volumeChanged(int serviceVolume);
    void muteChanged(bool muted);

private slots:
    void on_init();
    void on_volumeItem_changed(OrvoValue newValue, OrvoValue oldValue);
    void on_muteItem_changed(OrvoValue newValue, OrvoValue oldValue);
    void on_volumeSynchronizer_updateServiceValue(QVariant value);
    void on_volumeSynchronizer_updateSystemValue(QVariant value);
    void on_muteSynchronizer_updateServiceValue(QVariant value);
    void on_muteSynchronizer_updateSystemValue(QVariant value);

private:
    const QString m_name;
    int m_maxServiceVolume;
    int m_maxOrvoVolume = -1;
    CMValueItem* m_volumeItem = nullptr;
    CMValueItem* m_muteItem = nullptr;
    ServiceValueSynchronizer m_muteSynchronizer;
    ServiceValueSynchronizer m_volumeSynchronizer;
};
