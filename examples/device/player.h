#pragma once

#include "core/model/cmrequest.h"
#include "playback.h"
#include "records/orvoroles.h"

#include <QObject>
#include <QTimer>

class CMListRowsNode;
class CMNodesWorker;
class CMValueNode;

/**
 * The player of the device: its volume in steps and as the attenuation that goes with the step, mute, and a queue of
 * tracks of other services that it plays one after the other.
 *
 * Volume and mute are kept in a file, so that a player which comes back is as loud as it was. Lives in the main thread.
 */
class Player : public QObject
{
    Q_OBJECT

public:
    /// Without a file nothing is kept.
    Player(CMNodesWorker* tree, const QString& sinkUri, const QString& stateFile);

private slots:
    void on_play_invoked(CMSetDataRequest request);
    void on_pause_invoked(CMSetDataRequest request);
    void on_next_invoked(CMSetDataRequest request);
    void on_add_invoked(CMSetDataRequest request);
    void on_clear_invoked(CMSetDataRequest request);

private:
    void on_volume_changed();
    void on_attenuation_changed();
    void soundChanged();
    void load();
    void save() const;
    void append(const CMPath& path, const OrvoRoles& track, const CMSetDataRequest& request);
    /// Begins with the row; false behind the last one.
    bool playRow(int row);
    void on_playback_finished();
    void update();

    Playback m_playback;
    const QString m_stateFile;
    QList<double> m_map;
    CMValueNode* m_volume;
    CMValueNode* m_mute;
    CMValueNode* m_attenuation;
    CMValueNode* m_state;
    CMValueNode* m_current;
    CMValueNode* m_position;
    CMListRowsNode* m_queue;
    QTimer m_positionTimer;
    int m_lastId = 0;
};
