#pragma once

#include "track.h"

#include "core/model/cmpath.h"
#include "core/model/cmrequest.h"
#include "records/orvoroles.h"

#include <QHash>
#include <QList>
#include <QObject>

class CMActivateNode;
class CMListRowsNode;
class CMNodesWorker;
class CMValueNode;
class OrvoValue;
class TrackNode;

/**
 * The tracks as nodes: keeps the rows of "library" as the tracks come and go and as the settings tell, and makes the
 * nodes beside it: "track", "library/rescan", "settings" with "sortBy" and "showHidden", and the root that leads there.
 *
 * Lives in the service's thread; the registry of the worker owns the nodes and outlives this object, but no request may
 * reach them then.
 */
class MediaLibrary : public QObject
{
    Q_OBJECT

public:
    /// The values of "settings/sortBy".
    enum SortBy { ByArtist = 0, ByTitle = 1, ByYear = 2, ByDuration = 3 };

    explicit MediaLibrary(CMNodesWorker* worker, QObject* parent = nullptr);

public slots:
    void trackRead(const Track& track);
    void trackGone(const QString& id);
    void busy();
    /// Answers those who asked for one of the rescans up to the number.
    void caughtUp(int number);

signals:
    /// Somebody wants all files read again.
    void rescanWanted(int number);

private slots:
    void on_rescan_invoked(const CMSetDataRequest& request);

private:
    struct Rescan
    {
        int number;
        CMSetDataRequest request;
    };

    void makeSettings(CMNodesWorker* worker);
    void makeRoot(CMNodesWorker* worker);
    void on_sortBy_changed(const OrvoValue& value);
    void on_showHidden_changed(const OrvoValue& value);

    OrvoRoles toRow(const Track& track) const;
    QString sortKey(const Track& track) const;
    bool isShown(const QString& id) const;

    CMListRowsNode* m_list;
    TrackNode* m_trackNode;
    CMActivateNode* m_rescan;
    CMListRowsNode* m_settings;
    /// All tracks, shown or not.
    QHash<QString, Track> m_tracks;
    SortBy m_sortBy = ByArtist;
    bool m_showHidden = false;
    int m_lastRescan = 0;
    QList<Rescan> m_rescans;
};
