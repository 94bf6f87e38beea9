#include "core/model/nodes/cmlistrowsnode.h"

#include "core/model/cmrequest.h"
#include "core/model/cmsubscribe.h"
#include "core/orvoLog_p.h"
#include "core/orvoQHash.h"

#include <algorithm>

namespace {

ORVO_LOGGER("CMListRowsNode")

const char* const dataSlot = SLOT(watchedDataChanged(CMPath));

bool isPathRow(const QVariant& row)
{
    return row.type() == QVariant::String;
}

bool hasId(const QVariant& row, const QString& id)
{
    return !isPathRow(row) && OrvoRoles(row.toHash()).id() == id;
}

} // namespace

CMListRowsNode::CMListRowsNode(const CMPath& path) : CMContainerNode(path)
{
    m_exactPathOnly = true;
}

CMListRowsNode* CMListRowsNode::create(CMNodes* nodes, const CMPath& path)
{
    auto* node = new CMListRowsNode(path);
    node->setNodes(nodes);
    return node;
}

bool CMListRowsNode::getRowsRequest(const CMGetRowsRequest& request)
{
    if (!request.path().equals(path(), CMPath::WithoutParams))
        return false;
    CMNodeLocker lock(mutex());
    const QList<QVariant> rows = m_rows;
    const int version = subscribe()->rowsVersion(request.path());
    const OrvoRowsRoles rowsRoles = m_rowsRoles;
    const bool copyPathParams = m_copyPathParams;
    lock.unlock();

    const DynamicContent content{rows.size(), [&rows](int offset, int count) { return rows.mid(offset, count); }};
    respondGetRowsRequest(request, {content}, version, rowsRoles, copyPathParams);
    return true;
}

void CMListRowsNode::rowsPathAdd(const CMPath& path)
{
    const CMNodeLocker lock(mutex());
    // The hub may tell of a path that is known already.
    const bool isNew = !rowsPaths().contains(path);
    CMContainerNode::rowsPathAdd(path);
    if (!isNew)
        return;
    const CMPath::Params params = path.params();
    for (auto it = m_targets.cbegin(); it != m_targets.cend(); ++it)
        connectWatchedDataChange(CMPath(it.key()).addParams(params));
}

void CMListRowsNode::rowsPathRemove(const CMPath& path)
{
    const CMNodeLocker lock(mutex());
    const bool wasKnown = rowsPaths().contains(path);
    CMContainerNode::rowsPathRemove(path);
    if (!wasKnown)
        return;
    const CMPath::Params params = path.params();
    for (auto it = m_targets.cbegin(); it != m_targets.cend(); ++it)
        disconnectWatchedDataChange(CMPath(it.key()).addParams(params));
}

int CMListRowsNode::rowsSize() const
{
    const CMNodeLocker lock(mutex());
    return m_rows.size();
}

int CMListRowsNode::rowsIndexOf(const CMPath& path) const
{
    const CMNodeLocker lock(mutex());
    return m_rows.indexOf(path.__variant());
}

int CMListRowsNode::rowsIndexById(const QString& id) const
{
    const CMNodeLocker lock(mutex());
    const auto it = std::find_if(m_rows.cbegin(), m_rows.cend(), [&](const QVariant& row) { return hasId(row, id); });
    return it == m_rows.cend() ? -1 : int(it - m_rows.cbegin());
}

OrvoRoles CMListRowsNode::rowsGetById(const QString& id) const
{
    const CMNodeLocker lock(mutex());
    return getRowRoles(rowsIndexById(id));
}

QVariant CMListRowsNode::getRow(int index) const
{
    const CMNodeLocker lock(mutex());
    return m_rows.value(index);
}

OrvoRoles CMListRowsNode::getRowRoles(int index) const
{
    return OrvoRoles(getRow(index).toHash());
}

OrvoRowsRoles CMListRowsNode::rowsRoles() const
{
    return locked(m_rowsRoles);
}

QStringList CMListRowsNode::sortOrder() const
{
    return locked(m_sortOrder);
}

void CMListRowsNode::rowsInsert(int pos, const QVariant& row)
{
    // Ahead of the report: a reader that is told of the row misses no change of its target.
    watchInsert(row);
    insertWatched(pos, row);
}

void CMListRowsNode::insertWatched(int pos, const QVariant& row)
{
    const CMNodeLocker lock(mutex());
    m_rows.insert(qBound(0, pos, m_rows.size()), row);
    m_pathRowsDirty = true;
    nextRowsVersion(QLatin1Char('+') + QString::number(qMin(pos, m_rows.size() - 1)));
}

void CMListRowsNode::rowsInsert(int pos, const OrvoRoles& row)
{
    rowsInsert(pos, row.__variant());
}

void CMListRowsNode::rowsInsert(int pos, const CMPath& row)
{
    if (row.isEmpty())
        LOG4CPLUS_WARN(logger(), "Failed to insert empty path to position: " << pos);
    else
        rowsInsert(pos, row.__variant());
}

void CMListRowsNode::rowsAppend(const QVariant& row)
{
    watchInsert(row);
    const CMNodeLocker lock(mutex());
    insertWatched(m_rows.size(), row);
}

void CMListRowsNode::rowsAppend(const OrvoRoles& row)
{
    rowsAppend(row.__variant());
}

void CMListRowsNode::rowsAppend(const CMPath& row)
{
    rowsAppend(row.__variant());
}

bool CMListRowsNode::rowsSet(int pos, const QVariant& row)
{
    const CMNodeLocker lock(mutex());
    Q_ASSERT(pos >= 0 && pos < m_rows.size());
    if (m_rows.at(pos) == row)
        return false;
    m_rows[pos] = row;
    rowsChanged(QString::number(pos));
    return true;
}

bool CMListRowsNode::rowsSet(int pos, const OrvoRoles& row)
{
    return rowsSet(pos, row.__variant());
}

bool CMListRowsNode::rowsSet(int pos, const CMPath& row)
{
    return rowsSet(pos, row.__variant());
}

/// The numbers count the rows that stay, so they are right for strings applied in order.
template <typename Matches>
int CMListRowsNode::removeMatching(Matches matches)
{
    const CMNodeLocker lock(mutex());
    QList<QVariant> kept;
    QList<QVariant> removed;
    QStringList changes;
    for (const QVariant& row : qAsConst(m_rows)) {
        if (matches(row)) {
            changes.append(QLatin1Char('-') + QString::number(kept.size()));
            removed.append(row);
        } else {
            kept.append(row);
        }
    }
    m_rows = kept;
    m_pathRowsDirty = true;
    for (const QVariant& row : qAsConst(removed))
        watchRemove(row);
    nextRowsVersion(changes);
    return removed.size();
}

int CMListRowsNode::rowsRemove(const QVariant& row)
{
    // A copy: the argument may be a row of this list.
    return removeMatching([row](const QVariant& other) { return other == row; });
}

int CMListRowsNode::rowsRemove(const OrvoRoles& row)
{
    return rowsRemove(row.__variant());
}

int CMListRowsNode::rowsRemove(const CMPath& row)
{
    return rowsRemove(row.__variant());
}

void CMListRowsNode::rowsRemoveAll(const QVariant& row)
{
    rowsRemove(row);
}

void CMListRowsNode::rowsRemoveAll(const OrvoRoles& row)
{
    rowsRemove(row);
}

void CMListRowsNode::rowsRemoveAll(const CMPath& row)
{
    rowsRemove(row);
}

int CMListRowsNode::rowsRemoveById(const QString& id)
{
    return removeMatching([&](const QVariant& row) { return hasId(row, id); });
}

void CMListRowsNode::rowsRemoveStartingWithPath(const CMPath& prefix)
{
    removeMatching([&](const QVariant& row) {
        const CMPath path = isPathRow(row) ? CMPath::fromQVariant(row) : OrvoRoles(row.toHash()).path();
        return path.startsWith(prefix);
    });
}

void CMListRowsNode::rowsRemoveAt(int pos)
{
    const CMNodeLocker lock(mutex());
    if (pos < 0 || pos >= m_rows.size())
        return;
    const QVariant row = m_rows.takeAt(pos);
    m_pathRowsDirty = true;
    watchRemove(row);
    nextRowsVersion(QLatin1Char('-') + QString::number(pos));
}

void CMListRowsNode::rowsClear()
{
    const CMNodeLocker lock(mutex());
    const QList<QVariant> removed = m_rows;
    m_rows.clear();
    m_pathRowsDirty = true;
    for (const QVariant& row : removed)
        watchRemove(row);
    nextRowsVersion(CMSubscribe::RowsChangeReset());
}

bool CMListRowsNode::rowsMove(int from, int count, int to)
{
    const CMNodeLocker lock(mutex());
    const int size = m_rows.size();
    if (from < 0 || to < 0 || count < 1 || from >= size || to >= size) {
        LOG4CPLUS_ERROR(logger(), "Invalid from, to or count. From: " << from << " count: " << count << " to: " << to
                                                                      << " rows: " << size);
        return false;
    }
    if (from <= to && to - from < count)
        return true;
    // Measured by the size, not by the last index: readers rely on the strings that follow from it.
    const int last = int(qMin(qint64(from) + count - 1, qint64(INT_MAX)));
    if (last > size)
        count -= last - size;

    QStringList changes;
    for (int i = 0; i < count; ++i) {
        m_rows.move(from, to);
        changes.append(QStringLiteral("=%1..%2").arg(from).arg(to));
        if (from < to) {
            to += 2;
        } else {
            ++from;
            ++to;
        }
    }
    m_pathRowsDirty = true;
    nextRowsVersion(changes);
    return true;
}

bool CMListRowsNode::rowsMove(int from, int to)
{
    return rowsMove(from, 1, to);
}

bool CMListRowsNode::rowsSetById(const OrvoRoles& roles)
{
    const CMNodeLocker lock(mutex());
    const QString id = roles.id();
    int upperBound = 0;
    int matchedIndex = -1;
    for (int i = 0; i < m_rows.size(); ++i) {
        if (isPathRow(m_rows.at(i)))
            continue;
        const OrvoRoles row(m_rows.at(i).toHash());
        if (row.id() == id)
            matchedIndex = i;
        int order = 0;
        for (const QString& attribute : qAsConst(m_sortOrder)) {
            order = orvoCompare(row.__hashAttribute(attribute), roles.__hashAttribute(attribute));
            if (order != 0)
                break;
        }
        if (order == 0 && matchedIndex == i) {
            upperBound = i;
            break;
        }
        if (order <= 0)
            upperBound = i + 1;
    }
    if (matchedIndex != -1) {
        if (upperBound == matchedIndex || upperBound == matchedIndex + 1)
            return rowsSet(matchedIndex, roles);
        rowsRemoveAt(matchedIndex);
        if (upperBound > matchedIndex)
            --upperBound;
    }
    rowsInsert(upperBound, roles);
    return true;
}

void CMListRowsNode::setRowsRoles(const OrvoRowsRoles& rowsRoles)
{
    const CMNodeLocker lock(mutex());
    m_rowsRoles = rowsRoles;
}

void CMListRowsNode::setSortOrder(const QStringList& sortOrder)
{
    const CMNodeLocker lock(mutex());
    m_sortOrder = sortOrder;
}

void CMListRowsNode::setCopyPathParams(bool copyPathParams)
{
    const CMNodeLocker lock(mutex());
    m_copyPathParams = copyPathParams;
}

void CMListRowsNode::nextRowsVersion(const QStringList& changes)
{
    if (!changes.isEmpty())
        rowsChanged(changes);
}

void CMListRowsNode::nextRowsVersion(const QString& change)
{
    nextRowsVersion(QStringList(change));
}

void CMListRowsNode::watchInsert(const QVariant& row)
{
    if (!isPathRow(row))
        return;
    const CMNodeLocker lock(mutex());
    const CMPath target = CMPath::fromQVariant(row);
    if (++m_targets[target] > 1)
        return;
    const QSet<CMPath> paths = rowsPaths();
    for (const CMPath& path : paths)
        connectWatchedDataChange(CMPath(target).addParams(path.params()));
}

void CMListRowsNode::watchRemove(const QVariant& row)
{
    if (!isPathRow(row))
        return;
    const CMNodeLocker lock(mutex());
    const CMPath target = CMPath::fromQVariant(row);
    const auto it = m_targets.find(target);
    if (it == m_targets.end() || --*it > 0)
        return;
    m_targets.erase(it);
    const QSet<CMPath> paths = rowsPaths();
    for (const CMPath& path : paths)
        disconnectWatchedDataChange(CMPath(target).addParams(path.params()));
}

void CMListRowsNode::connectWatchedDataChange(const CMPath& path)
{
    watch(CMAbstractWorker::DataChange, path, dataSlot);
}

void CMListRowsNode::disconnectWatchedDataChange(const CMPath& path)
{
    unwatch(CMAbstractWorker::DataChange, path, dataSlot);
}

void CMListRowsNode::itemChange(OrvoRoles newRoles, OrvoRoles oldRoles)
{
    if (!oldRoles.isEmpty())
        rowsRemoveById(oldRoles.id());
    if (!newRoles.isEmpty())
        rowsSetById(newRoles);
}

void CMListRowsNode::itemChangeIndex(OrvoRoles newRoles, OrvoRoles oldRoles, int index)
{
    if (oldRoles.isEmpty()) {
        Q_ASSERT(!newRoles.isEmpty());
        rowsInsert(index, newRoles);
    } else if (newRoles.isEmpty()) {
        rowsRemoveAt(index);
    } else {
        rowsSet(index, newRoles);
    }
}

void CMListRowsNode::watchedDataChanged(CMPath changePath)
{
    const CMNodeLocker lock(mutex());
    if (m_pathRowsDirty) {
        m_pathRows.clear();
        // Backwards, as equal keys come out in the reverse order of their insertion.
        for (int i = m_rows.size() - 1; i >= 0; --i)
            if (isPathRow(m_rows.at(i)))
                m_pathRows.insert(CMPath::fromQVariant(m_rows.at(i)), i);
        m_pathRowsDirty = false;
    }

    // Grows over the subscribed paths: a later one hears the numbers of those before it, too.
    QStringList changes;
    const QSet<CMPath> paths = rowsPaths();
    for (const CMPath& subscribed : paths) {
        CMPath target = changePath;
        const QStringList keys = subscribed.params().keys();
        if (!std::all_of(keys.cbegin(), keys.cend(), [&](const QString& key) { return target.hasParam(key); }))
            continue;
        for (const QString& key : keys)
            target.removeParam(key);
        for (auto it = m_pathRows.constFind(target); it != m_pathRows.cend() && it.key() == target; ++it)
            changes.append(QString::number(*it));
        if (!changes.isEmpty())
            subscribe()->rowsChanged(subscribed, changes, -1, -1);
    }
}
