#include "recenttracks.h"

#include "confignode.h"
#include "medialibrary.h"

#include "core/model/cmnodes.h"

#include <QSet>

#include <algorithm>
#include <limits>

namespace {

/// As wide as any number of its kind, so that texts compare as the numbers do; a later time is a smaller one.
QString newestFirst(const OrvoRoles& row)
{
    const qint64 untilTheEnd = std::numeric_limits<qint64>::max() - std::max<qint64>(0, row.timestamp());
    return QStringLiteral("%1\t%2").arg(untilTheEnd, 19, 10, QLatin1Char('0')).arg(row.id());
}

} // namespace

RecentTracks::RecentTracks(CMNodesWorker* worker, ConfigNode* config, const MediaLibrary* library, QObject* parent)
    : QObject(parent),
      m_config(config),
      m_list(CMListRowsNode::create(worker->nodes(), worker->addPrefix(QStringLiteral("recent")))),
      m_size(config->number(ConfigDocument::recentSize))
{
    m_list->setTitle(TrString("Recent files"));
    m_list->setSortOrder({OrvoRoles::SortKey()});
    connect(m_config, &ConfigNode::changed, this, &RecentTracks::on_config_changed);
    connect(library, &MediaLibrary::rowShown, this, &RecentTracks::on_rowShown);
    connect(library, &MediaLibrary::rowHidden, this, &RecentTracks::on_rowHidden);
}

CMPath RecentTracks::path() const
{
    return m_list->path();
}

void RecentTracks::on_rowShown(const OrvoRoles& row)
{
    const bool wasShown = forget(row.id());
    const QString key = newestFirst(row);
    m_keys.insert(row.id(), key);
    m_rows.insert(key, OrvoRoles(row).setSortKey(key));
    // Most files of a first look are older than what is shown, and change nothing.
    if (wasShown || m_list->rowsSize() < m_size || key < m_list->getRowRoles(m_size - 1).sortKey())
        showNewest();
}

void RecentTracks::on_rowHidden(const QString& id)
{
    if (forget(id))
        showNewest();
}

void RecentTracks::on_config_changed()
{
    const int size = m_config->number(ConfigDocument::recentSize);
    if (m_size == size)
        return;
    m_size = size;
    showNewest();
}

/// Whether the list shows the track.
bool RecentTracks::forget(const QString& id)
{
    m_rows.remove(m_keys.take(id));
    return m_list->rowsIndexById(id) >= 0;
}

void RecentTracks::showNewest()
{
    QVector<OrvoRoles> newest;
    QSet<QString> ids;
    for (auto it = m_rows.cbegin(); it != m_rows.cend() && newest.size() < m_size; ++it) {
        newest.append(*it);
        ids.insert(it->id());
    }
    for (int i = m_list->rowsSize() - 1; i >= 0; --i)
        if (!ids.contains(m_list->getRowRoles(i).id()))
            m_list->rowsRemoveAt(i);
    for (const OrvoRoles& row : qAsConst(newest))
        m_list->rowsSetById(row);
}
