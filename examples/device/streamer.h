#pragma once

#include "core/systemAttenuationProxy.h"
#include "core/systemVolumeProxy.h"

#include <QObject>

#include <memory>

class CMListRowsNode;
class CMNodesWorker;
class CMValueNode;

/**
 * A simulated streaming service: its user moves its volume and mute at `volume` and `mute`, on its own scale, and the
 * device moves them, too. As such services do, it reports every change of its volume, also one that it was told.
 *
 * What the device told it is kept as rows at `told`. Lives in the main thread, which waits for the player at the start.
 */
class Streamer : public QObject
{
    Q_OBJECT

public:
    enum class Kind { Volume, Attenuation };

    /// `maxVolume` is the top of its scale; a service that speaks in attenuations has none.
    Streamer(CMNodesWorker* tree, const QString& name, Kind kind, int maxVolume);

private:
    void tell(const QString& text);
    void setVolume(const OrvoValue& value);

    std::unique_ptr<SystemVolumeProxy> m_volumeProxy;
    std::unique_ptr<SystemAttenuationProxy> m_attenuationProxy;
    CMValueNode* m_volume;
    CMValueNode* m_mute;
    CMListRowsNode* m_told;
};
