#include "core/model/cmrowsclone.h"

#include "core/model/cmchangesmerger.h"
#include "core/orvo.h"
#include "core/orvoLog_p.h"

#include <QPointer>

#include <algorithm>

namespace {

ORVO_LOGGER("CMRowsClone")

/// Rows of one request, save the first, which counts on top.
constexpr int chunkRows = 100;

} // namespace

CMRowsClone::CMRowsClone(QObject* parent, const CMPath& path, QObject* receiver, const char* slot,
                         Qt::ConnectionType type, int maxCount)
    : CMRowsFetcherRows(parent, path), m_itemsMerger(new CMChangesMerger(this)), m_maxCount(maxCount)
{
    orvoConnect(this, SIGNAL(itemChanged()), m_itemsMerger, SLOT(change()));
    orvoConnect(m_itemsMerger, SIGNAL(changed()), this, SIGNAL(itemsChanged()));
    orvoConnect(fetcher(), SIGNAL(loadingChanged(bool)), this, SLOT(on_fetcher_loadingChanged(bool)));
    orvoConnect(fetcher(), SIGNAL(closed()), this, SLOT(on_fetcher_closed()));
    if (receiver)
        orvoConnect(this, SIGNAL(itemChanged(OrvoRoles,OrvoRoles,int)), receiver, slot, type);
}

CMRowsClone::~CMRowsClone() = default;

CMRowsFetcherRows::RequestReply CMRowsClone::getRequest()
{
    if (fetcher()->isLoading())
        return RequestReply(0, m_maxCount > 0 && m_maxCount < chunkRows ? m_maxCount - 1 : chunkRows);
    const int limit = m_maxCount > 0 ? qMin(m_rows.size(), m_maxCount) : m_rows.size();
    const auto begin = m_rows.cbegin();
    const auto isEmpty = [](const OrvoRoles& roles) { return roles.__isEmpty(); };
    const int from = int(std::find_if(begin, begin + limit, isEmpty) - begin);
    if (from == limit)
        return RequestReply();
    const int end = m_maxCount > 0 && m_maxCount <= from + chunkRows - 1 ? m_maxCount : from + chunkRows;
    int to = from;
    for (int row = from; row < limit && row <= end; ++row)
        if (m_rows.at(row).__isEmpty())
            to = row;
    return RequestReply(from, to);
}

void CMRowsClone::on_fetcher_loadingChanged(bool loading)
{
    if (loading) {
        ++m_loads;
        m_rows.clear();
        m_loadingList.clear();
        m_rows2loadingList.clear();
        m_initialRowsCount = unknownCount;
        updateLoading();
        return;
    }
    const int rowsCount = fetcher()->rowsCount();
    Q_ASSERT(rowsCount >= 0);
    Q_ASSERT_X(m_rows.isEmpty(), "CMRowsClone", "m_rows not empty when fetcherLoading changed to 0");
    const int target = m_maxCount > 0 ? qMin(rowsCount, m_maxCount) : rowsCount;
    m_rows.reserve(target);
    m_rows2loadingList.reserve(target);
    while (m_rows.size() < target)
        insertItem(m_rows.size(), OrvoRoles());
    m_initialRowsCount = target;
    updateLoading();
}

void CMRowsClone::on_fetcher_closed()
{
    LOG4CPLUS_ERROR(logger(), path() << " closed signal from fetcher in CMRowsClone.");
}

void CMRowsClone::updateLoading()
{
    const bool loading = m_initialRowsCount > m_loadingList.size();
    if (loading == m_loading)
        return;
    if (!loading) {
        m_initialRowsCount = -1;
        // An event loop inside a receiver may have come here, too.
        if (!updateListToLoadingList() || !m_loading)
            return;
    }
    m_loading = loading;
    emit loadingChanged(loading);
}

/// False when a receiver has destroyed this, or begun another load.
bool CMRowsClone::updateListToLoadingList()
{
    const QPointer<CMRowsClone> alive(this);
    const int loads = m_loads;
    for (int i = 0; i < m_list.size() || i < m_loadingList.size();) {
        const int lSize = m_list.size();
        const int diff = lSize - m_loadingList.size();
        const OrvoRoles lRoles = m_list.value(i);
        const OrvoRoles llRoles = m_loadingList.value(i);
        if (lRoles == llRoles) {
            ++i;
            continue;
        }
        const QString id = lRoles.id();
        const bool isSameRow = !id.isEmpty() && id == llRoles.id();
        if (!isSameRow && diff > 0) {
            listChange(OrvoRoles(), lRoles, i);
        } else if (!isSameRow && diff < 0) {
            listChange(llRoles, OrvoRoles(), i);
            ++i;
        } else {
            listChange(llRoles, lRoles, i);
            ++i;
        }
        if (!alive || m_loads != loads)
            return false;
    }
    return true;
}

void CMRowsClone::listChange(const OrvoRoles& newRoles, const OrvoRoles& oldRoles, int index)
{
    indexChange(newRoles, oldRoles);
    const char* sign = "";
    if (oldRoles.__isEmpty()) {
        sign = "+";
        m_list.insert(index, newRoles);
    } else if (!newRoles.__isEmpty()) {
        m_list.replace(index, newRoles);
    } else {
        sign = "-";
        m_list.removeAt(index);
    }
    LOG4CPLUS_INFO(logger(), path() << " emit itemChanged:" << sign << index);
    emit itemChanged(newRoles, oldRoles, index);
}

/// While rows swap their places, two of them have the same id for a moment; and some lists simply have such rows.
void CMRowsClone::indexChange(const OrvoRoles& newRoles, const OrvoRoles& oldRoles)
{
    const QString oldId = oldRoles.id();
    if (!oldId.isEmpty()) {
        const auto same = m_sameIds.find(oldId);
        if (same == m_sameIds.end()) {
            m_idIndex.remove(oldId);
        } else {
            const auto own = m_sameIds.find(oldId, oldRoles);
            if (own == m_sameIds.end())
                m_idIndex.insert(oldId, *same);
            m_sameIds.erase(own == m_sameIds.end() ? same : own);
        }
    }
    const QString newId = newRoles.id();
    if (newId.isEmpty())
        return;
    const auto present = m_idIndex.constFind(newId);
    if (present != m_idIndex.constEnd())
        m_sameIds.insert(newId, *present);
    m_idIndex.insert(newId, newRoles);
}

void CMRowsClone::loadingListInsert(int row)
{
    Q_ASSERT(m_rows2loadingList.at(row) < 0);
    const OrvoRoles roles = m_rows.at(row);
    if (roles.__isEmpty())
        return;
    int position = 0;
    for (int earlier = row - 1; earlier >= 0; --earlier) {
        if (m_rows2loadingList.at(earlier) >= 0) {
            position = m_rows2loadingList.at(earlier) + 1;
            break;
        }
    }
    m_rows2loadingList[row] = position;
    // While a list loads in its order, no later row is there yet.
    if (position < m_loadingList.size())
        std::for_each(m_rows2loadingList.begin() + row + 1, m_rows2loadingList.end(), [](int& place) {
            if (place >= 0)
                ++place;
        });
    m_loadingList.insert(position, roles);
    publish(roles, OrvoRoles(), position);
}

void CMRowsClone::loadingListSet(int row)
{
    const OrvoRoles roles = m_rows.at(row);
    if (roles.__isEmpty())
        return;
    const int position = m_rows2loadingList.at(row);
    if (position < 0) {
        loadingListInsert(row);
        return;
    }
    const OrvoRoles oldRoles = m_loadingList.at(position);
    if (oldRoles == roles)
        return updateLoading();
    m_loadingList.replace(position, roles);
    publish(roles, oldRoles, position);
}

/// Takes the row out without a word; publish() tells it.
OrvoRoles CMRowsClone::loadingListRemove(int row, int position)
{
    m_rows2loadingList[row] = -1;
    std::for_each(m_rows2loadingList.begin() + row + 1, m_rows2loadingList.end(), [](int& place) {
        if (place >= 0)
            --place;
    });
    return m_loadingList.takeAt(position);
}

/// Brings a step of m_loadingList into m_list, unless that is frozen. The last thing that an operation does, since a
/// receiver may do anything.
void CMRowsClone::publish(const OrvoRoles& newRoles, const OrvoRoles& oldRoles, int position)
{
    if (!m_loading) {
        const QPointer<CMRowsClone> alive(this);
        listChange(newRoles, oldRoles, position);
        if (!alive)
            return;
        Q_ASSERT(m_loading || m_loadingList.size() == m_list.size());
    }
    updateLoading();
}

void CMRowsClone::setItem(int row, const OrvoRoles& roles)
{
    if (isBehindMaximum(row, "Seted"))
        return;
    if (row >= 0 && row < m_rows.size()) {
        if (roles == m_rows.at(row))
            return;
        m_rows.replace(row, roles);
        loadingListSet(row);
        return;
    }
    // The first request asks for one row more than a maximum of one chunk.
    if (m_maxCount > 0 && row == m_maxCount)
        return;
    consistencyError("setItem", row);
}

void CMRowsClone::insertItem(int row, const OrvoRoles& roles)
{
    if (isBehindMaximum(row, "Inserted"))
        return;
    if (row < 0 || row > m_rows.size()) {
        consistencyError("insertItem", row);
        return;
    }
    Q_ASSERT(m_loading || m_initialRowsCount == -1);
    m_rows.insert(row, roles);
    m_rows2loadingList.insert(row, -1);
    // Rows behind the maximum are not fetched, and so not waited for.
    if (m_initialRowsCount > row && m_initialRowsCount != unknownCount
        && (m_maxCount <= 0 || m_initialRowsCount < m_maxCount))
        ++m_initialRowsCount;
    loadingListInsert(row);
}

void CMRowsClone::removeItem(int row)
{
    if (isBehindMaximum(row, "Removed"))
        return;
    if (row < 0 || row >= m_rows.size()) {
        consistencyError("removeItem", row);
        return;
    }
    Q_ASSERT(m_loading || m_initialRowsCount == -1);
    if (m_initialRowsCount > row && m_initialRowsCount != unknownCount)
        --m_initialRowsCount;
    const int position = m_rows2loadingList.at(row);
    const OrvoRoles oldRoles = position < 0 ? OrvoRoles() : loadingListRemove(row, position);
    Q_ASSERT(m_rows2loadingList.at(row) == -1);
    m_rows.removeAt(row);
    m_rows2loadingList.removeAt(row);
    if (position < 0)
        updateLoading();
    else
        publish(OrvoRoles(), oldRoles, position);
}

void CMRowsClone::moveItem(int from, int to)
{
    const OrvoRoles roles = m_rows.value(from);
    const QPointer<CMRowsClone> alive(this);
    const int loads = m_loads;
    removeItem(from);
    // A receiver may have destroyed this, or begun another load.
    if (alive && m_loads == loads)
        insertItem(to, roles);
}

bool CMRowsClone::isBehindMaximum(int row, const char* what) const
{
    if (m_maxCount <= 0 || m_maxCount >= row)
        return false;
    LOG4CPLUS_TRACE(logger(), path() << ' ' << what << " row index > max count, ignore: maxCount: " << m_maxCount);
    return true;
}

void CMRowsClone::consistencyError(const char* operation, int row)
{
    LOG4CPLUS_ERROR(logger(),
                    path() << ' ' << operation << " for row " << row << " bigger than m_rows.size() " << m_rows.size());
    LOG4CPLUS_FATAL(logger(), "==Report== CMRowsClone: change consistency error");
    fetcher()->reset();
}
