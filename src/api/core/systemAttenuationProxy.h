#pragma once

#include "core/serviceValueSynchronizer.h"
#include "records/orvovalue.h"

#include <QObject>
#include <QVector>

class CMValueItem;

/**
 * Its constructor blocks until the volume map is answered, so it must not run in the thread that answers the model.
 *
 * What SystemVolumeProxy is, for a service that speaks in attenuations: those that it reports are moved to the nearest
 * of the device's, and no scale applies in the other direction. Nothing passes before enable() and after disable().
 *
 * Lives in one thread with an event loop and speaks to CMRoot(). May be destroyed inside its own signals.
 */
class SystemAttenuationProxy : public QObject
{
    Q_OBJECT

public:
    /**
     * For `ignoreMs` milliseconds after a change by one side the other one is not listened to; with `noTimer` this
     * holds for changes by the service only.
     */
    SystemAttenuationProxy(const QString& name, int ignoreMs, bool noTimer);
    ~SystemAttenuationProxy() override;

    void enable();
    void disable();
    /// Whether an attenuation that the service reported shortly ahead of a change of the device's is applied after it.
    void requireVolumeConfirmation(bool require);

    double attenuation() const;
    bool isMuted() const;
    /// The strongest of the device's attenuations, which must have some.
    double maxOrvoAttenuation() const;

public slots:
    /// The service's attenuation changed. The device must have attenuations.
    void setAttenuation(double attenuation);
    void setMute(bool mute);

signals:
    /// The service shall take this attenuation.
    void attenuationChanged(double serviceAttenaution);
    void muteChanged(bool muted);

private slots:
    void on_init();
    void on_attenuationItem_changed(OrvoValue newValue, OrvoValue oldValue);
    void on_muteItem_changed(OrvoValue newValue, OrvoValue oldValue);
    void on_attenuationSynchronizer_updateServiceValue(QVariant value);
    void on_attenuationSynchronizer_updateSystemValue(QVariant value);
    void on_muteSynchronizer_updateServiceValue(QVariant value);
    void on_muteSynchronizer_updateSystemValue(QVariant value);

private:
    const QString m_name;
    /// In ascending order.
    QVector<double> m_attenuations;
    CMValueItem* m_attenuationItem = nullptr;
    CMValueItem* m_muteItem = nullptr;
    ServiceValueSynchronizer m_muteSynchronizer;
    ServiceValueSynchronizer m_attenuationSynchronizer;
};
