#include "medialibrary.h"

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

/// Letters that differ in case or accents only sort together, and what is not known goes behind what is.
QString textKey(const QString& text)
{
    QString key;
    for (const QChar& c : text.normalized(QString::NormalizationForm_KD))
        if (!c.isMark() && c.category() != QChar::Other_Control)
            key.append(c);
    return key.isEmpty() ? QStringLiteral("1") : QLatin1Char('0') + key.toCaseFolded();
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

CMValueNode* makeNumber(CMNodesWorker* worker, const CMPath& path, const char* title, const char* description, int max)
{
    CMValueNode* node = CMValueNode::create(worker->nodes(), path);
    node->setTitle(TrString(title));
    node->setDescription(TrString(description));
    node->setEdit(OrvoEdit().setMin(QStringLiteral("0")).setMax(QString::number(max)));
    node->setValue(OrvoValue().setI32_(0));
    return node;
}

} // namespace

MediaLibrary::MediaLibrary(CMNodesWorker* worker, QObject* parent) : QObject(parent)
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

    makeSettings(worker);
    makeRoot(worker);
}

void MediaLibrary::makeSettings(CMNodesWorker* worker)
{
    m_settings = CMListRowsNode::create(worker->nodes(), worker->addPrefix(QStringLiteral("settings")));
    m_settings->setTitle(TrString("Settings"));

    CMValueNode* sortBy = makeNumber(worker, worker->addPrefix(QStringLiteral("settings/sortBy")), "Sort by",
                                     "0 artist, 1 title, 2 year, 3 duration", ByDuration);
    connect(sortBy, &CMValueNode::valueChanged, this, &MediaLibrary::on_sortBy_changed);
    m_settings->rowsAppend(sortBy->path());

    // A number, not a bool: limits are kept for numbers, so whatever is written ends as one of the two.
    CMValueNode* showHidden =
        makeNumber(worker, worker->addPrefix(QStringLiteral("settings/showHidden")), "Show hidden files",
                   "1 shows files and folders whose names begin with a dot, 0 leaves them out", 1);
    connect(showHidden, &CMValueNode::valueChanged, this, &MediaLibrary::on_showHidden_changed);
    m_settings->rowsAppend(showHidden->path());
}

void MediaLibrary::makeRoot(CMNodesWorker* worker)
{
    CMListRowsNode* root = CMListRowsNode::create(worker->nodes(), worker->prefixPath());
    root->setTitle(TrString("Media"));
    root->rowsAppend(m_list->path());
    root->rowsAppend(m_rescan->path());
    root->rowsAppend(m_settings->path());
}

void MediaLibrary::trackRead(const Track& track)
{
    m_tracks.insert(track.id, track);
    if (isShown(track.id))
        m_list->rowsSetById(toRow(track));
    m_trackNode->trackChanged(track.id);
}

void MediaLibrary::trackGone(const QString& id)
{
    if (m_tracks.remove(id) == 0)
        return;
    m_list->rowsRemoveById(id);
    m_trackNode->trackChanged(id);
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

void MediaLibrary::on_sortBy_changed(const OrvoValue& value)
{
    m_sortBy = SortBy(value.i32_());
    QVector<OrvoRoles> rows;
    for (const Track& track : qAsConst(m_tracks))
        if (isShown(track.id))
            rows.append(toRow(track));
    std::sort(rows.begin(), rows.end(), [](const OrvoRoles& a, const OrvoRoles& b) {
        const int order = a.sortKey().compare(b.sortKey());
        return order < 0 || (order == 0 && a.id() < b.id());
    });
    m_list->rowsClear();
    for (const OrvoRoles& row : qAsConst(rows))
        m_list->rowsAppend(row);
}

void MediaLibrary::on_showHidden_changed(const OrvoValue& value)
{
    m_showHidden = value.i32_() != 0;
    for (const Track& track : qAsConst(m_tracks)) {
        if (isShown(track.id))
            m_list->rowsSetById(toRow(track));
        else
            m_list->rowsRemoveById(track.id);
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
    return m_showHidden || !(id.startsWith(QLatin1Char('.')) || id.contains(QLatin1String("/.")));
}
