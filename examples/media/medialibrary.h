#pragma once

#include "track.h"

#include "core/model/cmpath.h"
#include "core/model/cmrequest.h"
#include "records/orvoroles.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QVector>

class CMActivateNode;
class CMListRowsNode;
class CMNodesWorker;
class ConfigNode;
class TrackNode;

/**
 * The tracks as nodes: keeps the rows of "library" as the tracks come and go and as the configuration tells, and makes
 * the nodes "track" and "library/rescan".
 *
 * Lives in the service's thread; the registry of the worker owns the nodes and outlives this object, but no request may
 * reach them then.
 */
class MediaLibrary : public QObject
{
    Q_OBJECT

public:
    /// The values of ConfigDocument::sortBy.
    enum SortBy { ByArtist = 0, ByTitle = 1, ByYear = 2, ByDuration = 3 };

    MediaLibrary(CMNodesWorker* worker, ConfigNode* config, QObject* parent = nullptr);

    CMPath path() const;
    CMPath rescanPath() const;
    /// What the list shows, in its order.
    QVector<OrvoRoles> rows() const;

public slots:
    void trackRead(const Track& track);
    void trackGone(const QString& id);
    void busy();
    /// Answers those who asked for one of the rescans up to the number.
    void caughtUp(int number);

signals:
    /// Somebody wants all files read again.
    void rescanWanted(int number);
    // What the list shows: a row came or changed, or went.
    void rowShown(const OrvoRoles& row);
    void rowHidden(const QString& id);
    /// All rows have new sort keys.
    void sortedAnew();

private slots:
    void on_rescan_invoked(const CMSetDataRequest& request);
    void on_config_changed();

private:
    struct Rescan
    {
        int number;
        CMSetDataRequest request;
    };

    void setSortBy(SortBy sortBy);
    void setShowHidden(bool showHidden);
    void showRow(const OrvoRoles& row);
    void hideRow(const QString& id);

    OrvoRoles toRow(const Track& track) const;
    QString sortKey(const Track& track) const;
    bool isShown(const QString& id) const;

    ConfigNode* const m_config;
    CMListRowsNode* m_list;
    TrackNode* m_trackNode;
    CMActivateNode* m_rescan;
    /// All tracks, shown or not.
    QHash<QString, Track> m_tracks;
    // As the rows show them; the configuration holds them.
    SortBy m_sortBy;
    bool m_showHidden;
    int m_lastRescan = 0;
    QList<Rescan> m_rescans;
};
