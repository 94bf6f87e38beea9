// The window of a CMRowsBrowser: what it shows, what of it is missing, and how changes of single rows move it.
//
// In each change the slots, the count and the current row agree again before the first signal goes out: whoever hears
// it may move the current row.

#include "core/model/cmrowsbrowser_p.h"

#include "core/orvoLog_p.h"

#include <climits>

namespace {

ORVO_LOGGER("CMRowsBrowser")

/// The number of a change string; false when it is none.
bool parse(const QString& text, int* number)
{
    bool ok = false;
    *number = text.toInt(&ok, 10);
    return ok && *number != INT_MIN;
}

} // namespace

CMRowsBrowser::RowsCount CMRowsBrowser::size() const
{
    const int count = isEndKnown() ? m_rowsCount : m_currentRow + m_radius;
    return {count + m_acceptRows, m_rowsCountUnknown};
}

OrvoRoles CMRowsBrowser::item(int row) const
{
    if (m_expandAccept && row >= m_rowsCount && (isEndKnown() || row > m_currentRow + m_radius)) {
        OrvoRoles accept = m_rowsRoles.roles().accept();
        LOG4CPLUS_TRACE(logger(), "Returning accept roles: " << accept);
        return accept;
    }
    const RowConstIterator slot = getIteratorForRow(row);
    return slot == m_items.end() ? OrvoRoles() : slot->roles;
}

int CMRowsBrowser::indexOf(int row) const
{
    Q_ASSERT(m_currentRow >= 0);
    const qint64 index = qint64(row) - m_currentRow + centre();
    return index < 0 || index >= m_items.size() ? m_items.size() : int(index);
}

CMRowsBrowser::RowIterator CMRowsBrowser::getIteratorForRow(int row)
{
    return {&m_items, indexOf(row)};
}

CMRowsBrowser::RowConstIterator CMRowsBrowser::getIteratorForRow(int row) const
{
    return {&m_items, indexOf(row)};
}

CMRowsBrowser::RowConstIterator CMRowsBrowser::getIteratorBeginActiveRange() const
{
    return {&m_items, centre() - qMin(m_currentRow, m_radius)};
}

CMRowsBrowser::RowConstIterator CMRowsBrowser::getIteratorEndActiveRange() const
{
    Q_ASSERT(m_rowsCountUnknown || m_currentRow <= m_rowsCount);
    const RowConstIterator begin = getIteratorBeginActiveRange();
    if (!isEndKnown())
        return {&m_items, centre() + m_radius + 1};
    // In an open-ended list the current row may lie behind the rows that are known: then the range is empty.
    const int rowsAhead = qMin(m_rowsCount - m_currentRow, m_radius + 1);
    return {&m_items, qMax(begin.index(), centre() + rowsAhead)};
}

std::pair<int, int> CMRowsBrowser::calculateFromToRow() const
{
    if (m_version < 0)
        return {qMax(0, m_currentRow - m_radius), m_currentRow + m_radius};
    const RowConstIterator end = getIteratorEndActiveRange();
    RowConstIterator first = getIteratorBeginActiveRange();
    while (first != end && first->isLoaded())
        ++first;
    if (first == end) {
        LOG4CPLUS_TRACE(logger(), "No empty rows in active range, all done");
        return {-1, -1};
    }
    RowConstIterator next = first;
    do
        ++next;
    while (next != end && !next->isLoaded());
    const int from = rowAt(first.index());
    if (next != end)
        return {from, rowAt(next.index()) - 1};
    const int to = m_currentRow + m_radius;
    return {from, isEndKnown() ? qMin(to, m_rowsCount - 1) : to};
}

void CMRowsBrowser::applyChange(const QString& change)
{
    int row = -1;
    if (change.startsWith(QLatin1Char('='))) {
        const QStringList rows = change.mid(1).split(QStringLiteral(".."));
        int to = -1;
        if (rows.size() == 2 && parse(rows.first(), &row) && parse(rows.last(), &to))
            rowMoved(row, to);
    } else if (parse(change, &row)) {
        if (change.startsWith(QLatin1Char('+')))
            rowInsert(row, OrvoRoles());
        else if (change.startsWith(QLatin1Char('-')))
            rowRemoveAt(-row);
        else
            rowReload(row);
    }
}

void CMRowsBrowser::setRowsCount(int count)
{
    if (count == m_rowsCount)
        return;
    m_rowsCount = count;
    emit sizeChanged(size());
}

void CMRowsBrowser::setRowsRoles(const OrvoRowsRoles& rowsRoles)
{
    if (rowsRoles == m_rowsRoles)
        return;
    m_rowsRoles = rowsRoles;
    m_acceptRows = m_rowsRoles.roles().accept().isEmpty() ? 0 : 1;
    emit rowsRolesChanged(m_rowsRoles);
}

void CMRowsBrowser::rowSet(int row, const OrvoRoles& roles)
{
    const RowIterator slot = getIteratorForRow(row);
    // A stale row whose roles come back as they were stays stale.
    if (slot == m_items.end() || slot->roles == roles)
        return;
    const OrvoRoles oldRoles = slot->roles;
    *slot = Item{roles, false};
    emit itemChanged(roles, oldRoles, row);
}

void CMRowsBrowser::rowReload(int row)
{
    const RowIterator slot = getIteratorForRow(row);
    if (slot != m_items.end())
        slot->reloadFlag = true;
}

void CMRowsBrowser::rowInsert(int row, const OrvoRoles& roles)
{
    if (row < 0 || (!m_rowsCountUnknown && row > m_rowsCount))
        return;
    const RowIterator slot = getIteratorForRow(row);
    const bool hasSlot = slot != m_items.end();
    if (hasSlot)
        m_items.insert(slot.index(), roles);
    const bool isCounted = isEndKnown() && m_rowsCount < INT_MAX;
    if (isCounted)
        ++m_rowsCount;
    bool isMoved = false;
    Lost lost;
    if (m_currentRow >= row) {
        if (m_currentRow + 1 >= endOfRows()) {
            // The window stays where it is, and the rows move on below it.
            if (!hasSlot)
                lost = takeItems();
        } else if (!hasSlot) {
            ++m_currentRow;
        } else if (m_rowsCountUnknown || m_currentRow + 1 < size()) {
            moveWindow(m_currentRow + 1);
            isMoved = true;
        }
    }
    const Watch watch(this);
    if (isCounted)
        emit sizeChanged(size());
    if (!watch.isOver() && isMoved)
        tellCurrentRow();
    if (!watch.isOver())
        emit itemAdded(row, roles);
    if (!watch.isOver())
        tellLost(lost);
}

void CMRowsBrowser::rowRemoveAt(int row)
{
    if (row < 0 || (!m_rowsCountUnknown && row > m_rowsCount))
        return;
    const RowIterator slot = getIteratorForRow(row);
    const bool hasSlot = slot != m_items.end();
    if (hasSlot)
        m_items.erase(slot.index());
    const bool isCounted = m_rowsCount > 0;
    if (isCounted)
        --m_rowsCount;
    const bool isFirst = row == 0 && m_currentRow == 0;
    bool isMoved = false;
    if (row <= m_currentRow && !isFirst) {
        Q_ASSERT(m_currentRow > 0);
        if (hasSlot) {
            moveWindow(m_currentRow - 1);
            isMoved = true;
        } else {
            --m_currentRow;
        }
    }
    const Watch watch(this);
    if (isCounted)
        emit sizeChanged(size());
    if (!watch.isOver() && isMoved)
        tellCurrentRow();
    if (!watch.isOver() && isFirst)
        tellCurrentItem();
    if (!watch.isOver())
        emit itemRemoved(row);
}

void CMRowsBrowser::rowMoved(int from, int to)
{
    const int end = m_rowsCountUnknown ? endOfRows() : qMin(endOfRows(), m_rowsCount);
    const auto isRow = [end](int row) { return row >= 0 && row < end; };
    if (!isRow(from) || !isRow(to))
        return;
    const int firstRow = rowAt(0);
    const RowIterator fromSlot = getIteratorForRow(from);
    const bool hasFromSlot = fromSlot != m_items.end();
    const bool hasToSlot = getIteratorForRow(to) != m_items.end();
    Lost lost;
    OrvoRoles roles;
    if (hasFromSlot) {
        // A stale row arrives empty: its flag does not travel, and without it the old roles would pass for good ones.
        if (!fromSlot->reloadFlag)
            roles = fromSlot->roles;
        else if (hasToSlot && !fromSlot->roles.isEmpty())
            lost.emplace_back(to, fromSlot->roles);
        m_items.erase(fromSlot.index());
    }
    if (hasToSlot)
        m_items.insert(indexOf(to), roles);

    const bool isCurrent = m_currentRow == from;
    const int oldRow = m_currentRow;
    bool isMoved = false;
    if (oldRow > from && oldRow <= to) {
        Q_ASSERT(m_currentRow > 0);
        if (hasFromSlot)
            moveWindow(oldRow - 1);
        else
            --m_currentRow;
        isMoved = hasFromSlot;
    } else if (oldRow >= to && oldRow < from) {
        if (hasToSlot)
            moveWindow(oldRow + 1);
        else
            ++m_currentRow;
        isMoved = hasToSlot;
    }

    // With one end before the window the slots between that end and the window's middle went the wrong way.
    if (from < firstRow && hasToSlot) {
        if (oldRow > to) {
            lost = takeItems();
        } else {
            const RowIterator slot = getIteratorForRow(to);
            if (slot != m_items.end() && !slot->roles.isEmpty())
                lost.emplace_back(to, slot->roles);
            if (slot != m_items.end())
                *slot = Item();
        }
    } else if (to < firstRow && hasFromSlot && oldRow >= from) {
        lost = takeItems();
    }

    const Watch watch(this);
    if (isCurrent)
        tellCurrentItem();
    else if (isMoved)
        tellCurrentRow();
    if (!watch.isOver())
        emit itemMoved(from, to);
    if (!watch.isOver())
        tellLost(lost);
}
