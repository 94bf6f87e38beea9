#include "medialibrary.h"

#include "confignode.h"
#include "foldedtext.h"
#include "tracknode.h"

#include "core/model/cmnodes.h"
#include "core/orvo.h"
#include "records/orvoconstants.h"

#include <QFileInfo>

#include <algorithm>

namespace {

QString withoutSuffix(const QString& id)
{
    return QFileInfo(id).completeBaseName();
}

bool isHidden(const QString& id)
{
    return id.startsWith(QLatin1Char('.')) || id.contains(QLatin1String("/."));
}

/// What is not known goes behind what is.
QString textKey(const QString& text)
{
    const QString folded = foldedText(text);
    return folded.isEmpty() ? QStringLiteral("1") : QLatin1Char('0') + folded;
}

/// As wide as any number of its kind, so that texts compare as the numbers do.
QString numberKey(qint64 number)
{
    return QStringLiteral("%1").arg(std::max<qint64>(0, number), 12, 10, QLatin1Char('0'));
}

/// A tab sorts ahead of everything that a text can hold: "Ann" with all albums stands before "Anna".
QString joined(const QStringList& keys)
{
    return keys.join(QLatin1Char('\t'));
}

} // namespace

MediaLibrary::MediaLibrary(CMNodesWorker* worker, ConfigNode* config, QObject* parent)
    : QObject(parent),
      m_config(config),
      m_sortBy(SortBy(config->number(ConfigDocument::sortBy))),
      m_showHidden(config->number(ConfigDocument::showHidden) != 0)
{
    CMNodes* nodes = worker->nodes();
    m_list = CMListRowsNode::create(nodes, worker->addPrefix(QStringLiteral("library")));
    m_list->setTitle(TrString("Library"));
    m_list->setSortOrder({OrvoRoles::SortKey(), OrvoRoles::Id()});

    m_trackNode = TrackNode::create(nodes, worker->addPrefix(QStringLiteral("track")), [this](const QString& id) {
        const auto track = m_tracks.constFind(id);
        return track == m_tracks.cend() ? OrvoRoles() : toRow(*track);
    });

    m_rescan = CMActivateNode::create(nodes, worker->addPrefix(QStringLiteral("library/rescan")), this,
                                      SLOT(on_rescan_invoked(CMSetDataRequest)));
    m_rescan->setTitle(TrString("Read all files again"));
    m_rescan->setDescription(TrString("Answers with the number of tracks when all files have been read"));
    m_rescan->setBusyText(QStringLiteral("Reading"));

    connect(m_config, &ConfigNode::changed, this, &MediaLibrary::on_config_changed);
}

CMPath MediaLibrary::path() const
{
    return m_list->path();
}

CMPath MediaLibrary::rescanPath() const
{
    return m_rescan->path();
}

QVector<OrvoRoles> MediaLibrary::rows() const
{
    QVector<OrvoRoles> rows;
    for (const Track& track : qAsConst(m_tracks))
        if (isShown(track.id))
            rows.append(toRow(track));
    std::sort(rows.begin(), rows.end(), [](const OrvoRoles& a, const OrvoRoles& b) {
        const int order = a.sortKey().compare(b.sortKey());
        return order < 0 || (order == 0 && a.id() < b.id());
    });
    return rows;
}

void MediaLibrary::trackRead(const Track& track)
{
    m_tracks.insert(track.id, track);
    if (isShown(track.id))
        showRow(toRow(track));
    m_trackNode->trackChanged(track.id);
}

void MediaLibrary::trackGone(const QString& id)
{
    if (m_tracks.remove(id) == 0)
        return;
    hideRow(id);
    m_trackNode->trackChanged(id);
}

void MediaLibrary::showRow(const OrvoRoles& row)
{
    m_list->rowsSetById(row);
    emit rowShown(row);
}

void MediaLibrary::hideRow(const QString& id)
{
    m_list->rowsRemoveById(id);
    emit rowHidden(id);
}

void MediaLibrary::busy()
{
    m_list->setActivity(true);
}

void MediaLibrary::caughtUp(int number)
{
    m_list->setActivity(false);
    while (!m_rescans.isEmpty() && m_rescans.first().number <= number)
        m_rescans.takeFirst().request.reply().setValue(m_tracks.size());
}

void MediaLibrary::on_rescan_invoked(const CMSetDataRequest& request)
{
    m_rescans.append({++m_lastRescan, request});
    emit rescanWanted(m_lastRescan);
}

void MediaLibrary::on_config_changed()
{
    const auto sortBy = SortBy(m_config->number(ConfigDocument::sortBy));
    if (m_sortBy != sortBy)
        setSortBy(sortBy);
    const bool showHidden = m_config->number(ConfigDocument::showHidden) != 0;
    if (m_showHidden != showHidden)
        setShowHidden(showHidden);
}

void MediaLibrary::setSortBy(SortBy sortBy)
{
    m_sortBy = sortBy;
    const QVector<OrvoRoles> sorted = rows();
    m_list->rowsClear();
    for (const OrvoRoles& row : sorted)
        m_list->rowsAppend(row);
    emit sortedAnew();
}

void MediaLibrary::setShowHidden(bool showHidden)
{
    m_showHidden = showHidden;
    for (const Track& track : qAsConst(m_tracks)) {
        if (!isHidden(track.id))
            continue;
        if (showHidden)
            showRow(toRow(track));
        else
            hideRow(track.id);
    }
}

OrvoRoles MediaLibrary::toRow(const Track& track) const
{
    const QString title = track.data.title();
    return OrvoRoles()
        .setId(track.id)
        .setTitle(title.isEmpty() ? withoutSuffix(track.id) : title)
        .setPath(m_trackNode->trackPath(track.id))
        .setIcon(QStringLiteral("audio-x-generic"))
        .setType(OrvoRolesType::Audio_)
        .setMediaData(track.data)
        .setTimestamp(track.changed)
        .setSortKey(sortKey(track));
}

QString MediaLibrary::sortKey(const Track& track) const
{
    const OrvoMediaData& data = track.data;
    const QString title = textKey(data.title().isEmpty() ? withoutSuffix(track.id) : data.title());
    const QString byArtist =
        joined({textKey(data.artist()), textKey(data.album()), numberKey(data.trackNumber()), title});
    switch (m_sortBy) {
    case ByArtist:
        break;
    case ByTitle:
        return joined({title, byArtist});
    case ByYear:
        return joined({data.year() > 0 ? numberKey(data.year()) : textKey(QString()), byArtist});
    case ByDuration:
        return joined({numberKey(data.duration()), byArtist});
    }
    return byArtist;
}

bool MediaLibrary::isShown(const QString& id) const
{
    return m_showHidden || !isHidden(id);
}
