#pragma once

#include "core/model/cmpath.h"
#include "records/orvoroles.h"

#include <QHash>
#include <QMap>
#include <QObject>

class CMListRowsNode;
class CMNodesWorker;
class ConfigNode;
class MediaLibrary;

/**
 * The list "recent": the tracks of the library whose files have changed last, the newest one first, and as many as the
 * configuration says.
 *
 * Lives in the thread of the library; the registry of the worker owns the node and outlives this object.
 */
class RecentTracks : public QObject
{
    Q_OBJECT

public:
    RecentTracks(CMNodesWorker* worker, ConfigNode* config, const MediaLibrary* library, QObject* parent = nullptr);

    CMPath path() const;

private:
    void on_rowShown(const OrvoRoles& row);
    void on_rowHidden(const QString& id);
    void on_config_changed();
    bool forget(const QString& id);
    void showNewest();

    ConfigNode* const m_config;
    CMListRowsNode* m_list;
    int m_size;
    /// All shown tracks by their sort key, the newest one first; one is a row while it is among the first m_size.
    QMap<QString, OrvoRoles> m_rows;
    QHash<QString, QString> m_keys;
};
