#include "core/model/cmbrowser.h"

#include "core/model/cmreply.h"
#include "core/model/cmrowsbrowser.h"
#include "core/orvo.h"
#include "core/orvoLog_p.h"

#include <QPointer>

#include <algorithm>
#include <functional>

namespace {

ORVO_LOGGER("CMBrowser")

struct Forward
{
    const char* signal;
    const char* topSignal;
};

const Forward forwards[] = {
    {SIGNAL(updated()), SIGNAL(topRowsUpdated())},
            {SIGNAL(pathChanged(CMPath)), SIGNAL(topRowsPathChanged(CMPath))},
                    {SIGNAL(loadingChanged(bool)), SIGNAL(topRowsLoadingChanged(bool))},
                            {SIGNAL(sizeChanged(int)), SIGNAL(topRowsSizeChanged(int))},
                                    {SIGNAL(currentRowChanged(int)), SIGNAL(topRowsCurrentRowChanged(int))},
                                            {SIGNAL(rowsRolesChanged(OrvoRowsRoles)),
                                                    SIGNAL(topRowsRowsRolesChanged(OrvoRowsRoles))},
                                                    {SIGNAL(currentItemChanged(OrvoRoles)),
                                                            SIGNAL(topRowsCurrentItemChanged(OrvoRoles))},
                                                            {SIGNAL(itemsChanged()), SIGNAL(topRowsItemsChanged())},
                                                                    {SIGNAL(errorChanged(CMError)),
                                                                            SIGNAL(topRowsErrorChanged(CMError))},
};

} // namespace

CMBrowser::RowsFactory::~RowsFactory() = default;

CMRowsBrowser* CMBrowser::RowsFactory::create()
{
    return new CMRowsBrowser;
}

CMBrowser::CMBrowser(CMAbstractWorker* worker) : m_worker(worker), m_rowsFactory(new RowsFactory) {}

CMBrowser::~CMBrowser() = default;

void CMBrowser::setRoles(const QStringList& roles)
{
    if (roles == m_roles)
        return;
    m_roles = roles;
    const QList<CMRowsBrowser*> all = m_rows;
    const QPointer<CMBrowser> alive(this);
    for (CMRowsBrowser* rows : all) {
        rows->setRoles(roles);
        if (!alive)
            return;
    }
}

void CMBrowser::setRadius(int radius)
{
    if (radius == m_radius)
        return;
    m_radius = radius;
    for (CMRowsBrowser* rows : qAsConst(m_rows))
        rows->setRadius(radius);
}

void CMBrowser::setActive(bool active)
{
    if (active == m_active)
        return;
    m_active = active;
    for (CMRowsBrowser* rows : qAsConst(m_rows))
        rows->setActive(active);
}

void CMBrowser::setEnumValue(const OrvoValue& value)
{
    m_enumValue = value;
}

void CMBrowser::open(const CMPath& path)
{
    const int index = findRows(path);
    if (index >= 0) {
        m_rows.at(index)->resetCloseTimer();
        if (index < m_rows.size() - 1)
            closeAll(index + 1, -1);
        return;
    }

    push(path);
}

void CMBrowser::open(const CMVariantReply& reply)
{
    LOG4CPLUS_TRACE(logger(), "async path");
    const QPointer<CMRowsBrowser> rows = push(CMPath());
    if (rows)
        rows->addPathWatcher(reply);
}

QPointer<CMRowsBrowser> CMBrowser::push(const CMPath& path)
{
    QPointer<CMRowsBrowser> rows = m_rowsFactory->create();
    rows->setExpandAccept(true);
    rows->setParent(this);
    rows->setWorker(m_worker);
    rows->setPath(path);
    rows->setRoles(m_roles);
    rows->setRadius(m_radius);
    if (m_topRows) {
        LOG4CPLUS_DEBUG(logger(), "Copy enumPath/Value into child: path = " << m_topRows->enumPath());
        rows->setEnumPath(m_topRows->enumPath());
    }
    orvoConnect(rows, SIGNAL(closed()), this, SLOT(on_rows_closed()));
    orvoConnect(rows, SIGNAL(pathChanged(CMPath)), this, SLOT(on_rows_pathChanged(CMPath)));
    orvoConnect(rows, SIGNAL(currentItemChanged(OrvoRoles)), this, SLOT(on_rows_currentItemChanged(OrvoRoles)));
    orvoConnect(rows, SIGNAL(itemsChanged()), this, SLOT(on_item_changed()));
    rows->setActive(m_active);
    m_rows.append(rows);
    const QPointer<CMBrowser> alive(this);
    updateTopRows();
    if (alive)
        emit rowsStackChanged();
    return rows;
}

void CMBrowser::retire(CMRowsBrowser* rows)
{
    rows->disconnect(this);
    rows->deleteLater();
}

bool CMBrowser::close(const CMPath& path)
{
    return closeAt(findRows(path));
}

bool CMBrowser::close(CMRowsBrowser* rows)
{
    return closeAt(findRows(rows));
}

bool CMBrowser::closeAt(int index)
{
    if (index < 0 || index >= m_rows.size())
        return false;
    retire(m_rows.takeAt(index));
    const QPointer<CMBrowser> alive(this);
    if (index == m_rows.size())
        updateTopRows();
    if (alive)
        emit rowsStackChanged();
    return true;
}

void CMBrowser::closeAll(int begin, int end)
{
    const int size = m_rows.size();
    if (end == -1)
        end = size;
    LOG4CPLUS_DEBUG(logger(), "begin:" << begin << " end:" << end << " size:" << size);
    Q_ASSERT(0 <= begin && begin <= end && end <= size);
    if (begin == end)
        return;
    for (int index = begin; index < end; ++index)
        retire(m_rows.at(index));
    m_rows.erase(m_rows.begin() + begin, m_rows.begin() + end);
    const QPointer<CMBrowser> alive(this);
    if (end == size)
        updateTopRows();
    if (alive)
        emit rowsStackChanged();
}

bool CMBrowser::closeTop()
{
    if (m_rows.isEmpty()) {
        LOG4CPLUS_WARN(logger(), "Screen stack is empty!");
        return false;
    }
    const OrvoRowsRoles rowsRoles = m_rows.last()->rowsRoles();
    const CMPath backPath = rowsRoles.rowsBackPath();
    if (backPath.isEmpty())
        return closeAt(m_rows.size() - 1);
    const CMPath barrier = rowsRoles.rowsBackPathBarrier();
    LOG4CPLUS_DEBUG(logger(), "BackPath: " << backPath << " / " << barrier);
    const QPointer<CMBrowser> alive(this);
    // Whoever hears of a closed screen may close others.
    for (int depth = m_rows.size() - 1; depth > 0; depth = std::min(depth, m_rows.size()) - 1) {
        const CMPath path = m_rows.at(depth)->path();
        LOG4CPLUS_TRACE(logger(), "  depth " << depth << ' ' << path);
        if (path.startsWith(barrier))
            break;
        closeAt(depth);
        if (!alive)
            return true;
    }
    open(backPath);
    return true;
}

int CMBrowser::findRows(const CMPath& path) const
{
    if (path.isEmpty())
        return -1;
    const auto it =
        std::find_if(m_rows.crbegin(), m_rows.crend(), [&](const CMRowsBrowser* rows) { return rows->path() == path; });
    return int(m_rows.crend() - it) - 1;
}

int CMBrowser::findRows(CMRowsBrowser* rows) const
{
    return m_rows.lastIndexOf(rows);
}

void CMBrowser::updateTopRows()
{
    CMRowsBrowser* top = m_rows.isEmpty() ? nullptr : m_rows.last();
    if (top == m_topRows)
        return;
    if (m_topRows)
        for (const Forward& forward : forwards)
            orvoDisconnect(m_topRows, forward.signal, this, forward.topSignal);
    m_topRows = top;
    if (m_topRows)
        for (const Forward& forward : forwards)
            orvoConnect(m_topRows, forward.signal, this, forward.topSignal);
    const QPointer<CMBrowser> alive(this);
    emit topRowsChanged(m_topRows);
    if (alive && top && m_topRows == top)
        replayTop();
}

void CMBrowser::replayTop()
{
    CMRowsBrowser* const top = m_topRows;
    const std::function<void()> steps[] = {
        [=] { emit topRowsPathChanged(top->path()); },
        [=] { emit topRowsLoadingChanged(top->isLoading()); },
        [=] { emit topRowsSizeChanged(top->size()); },
        [=] { emit topRowsCurrentRowChanged(top->currentRow()); },
        [=] { emit topRowsCurrentItemChanged(top->item(top->currentRow())); },
        [=] { emit topRowsRowsRolesChanged(top->rowsRoles()); },
        [=] { emit topRowsItemsChanged(); },
        [=] { emit topRowsErrorChanged(top->error()); },
    };
    const QPointer<CMBrowser> alive(this);
    for (const auto& step : steps) {
        step();
        // Another top has told its own state meanwhile.
        if (!alive || m_topRows != top)
            return;
    }
}

void CMBrowser::on_rows_closed()
{
    auto* rows = qobject_cast<CMRowsBrowser*>(sender());
    Q_ASSERT_X(rows, "CMBrowser", "rows is not null");
    close(rows);
}

void CMBrowser::on_rows_pathChanged(CMPath path)
{
    // Screens that still wait for their paths are no duplicates.
    if (path.isEmpty())
        return;
    int first = -1;
    int last = -1;
    for (int index = 0; index < m_rows.size(); ++index) {
        if (m_rows.at(index)->path() != path)
            continue;
        first = first < 0 ? index : first;
        last = index;
    }
    if (first != last)
        closeAll(first, last);
}

void CMBrowser::on_rows_currentItemChanged(OrvoRoles item)
{
    auto* rows = qobject_cast<CMRowsBrowser*>(sender());
    Q_ASSERT_X(rows, "CMBrowser", "rows is not null");
    emit anyCurrentItemChanged(rows, item);
}

void CMBrowser::on_item_changed()
{
    if (m_rows.size() < 2)
        return;
    const auto isContext = [](const CMRowsBrowser* rows) {
        return rows->rowsRoles().roles().containerType() == OrvoRolesContainerType::Context_;
    };
    if (isContext(m_rows.at(m_rows.size() - 2)) && !isContext(m_rows.last()))
        LOG4CPLUS_ERROR(logger(), "### Don't open non context from context ###");
}
