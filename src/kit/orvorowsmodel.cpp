#include "orvorowsmodel.h"

#include "core/model/cmroles.h"
#include "core/model/cmrowsbrowser.h"

#include <QPointer>
#include <QTimer>

namespace {

constexpr int firstRole = Qt::UserRole + 1;

} // namespace

int OrvoRowsModel::Step::apply(int row) const
{
    switch (kind) {
    case Insert:
        return row < from ? row : row + 1;
    case Remove:
        return row == from ? -1 : row < from ? row : row - 1;
    case Move:
        if (row == from)
            return to;
        if (row > from && row <= to)
            return row - 1;
        return row >= to && row < from ? row + 1 : row;
    case None:
        break;
    }
    return row;
}

OrvoRowsModel::OrvoRowsModel(QObject* parent, int radius)
    : QAbstractListModel(parent),
      m_radius(radius),
      m_keys(CMAllRoles()),
      m_browser(new CMRowsBrowser),
      m_turnTimer(new QTimer(this))
{
    m_turnTimer->setSingleShot(true);
    connect(m_turnTimer, &QTimer::timeout, this, &OrvoRowsModel::turn);

    CMRowsBrowser* browser = m_browser.get();
    connect(browser, &CMRowsBrowser::itemAdded, this, &OrvoRowsModel::onItemAdded);
    connect(browser, &CMRowsBrowser::itemRemoved, this, &OrvoRowsModel::onItemRemoved);
    connect(browser, &CMRowsBrowser::itemMoved, this, &OrvoRowsModel::onItemMoved);
    connect(browser, &CMRowsBrowser::itemChanged, this,
            [this](const OrvoRoles&, const OrvoRoles&, int row) { onItemChanged(row); });
    connect(browser, &CMRowsBrowser::itemsChanged, this, &OrvoRowsModel::onItemsChanged);
    connect(browser, &CMRowsBrowser::loadingChanged, this, &OrvoRowsModel::onLoadingChanged);
    connect(browser, &CMRowsBrowser::errorChanged, this, &OrvoRowsModel::settleError);
    connect(browser, &CMRowsBrowser::closed, this, &OrvoRowsModel::closed);
    // A count that changes with a single row is followed when that row is told.
    connect(browser, &CMRowsBrowser::sizeChanged, this, [this] {
        if (m_browser->isLoading())
            resetRows();
    });
    connect(browser, &CMRowsBrowser::pathChanged, this, [this] {
        const QPointer<OrvoRowsModel> self(this);
        if (m_browser->isLoading())
            resetRows();
        if (self)
            emit pathChanged();
    });
    browser->setRoles(m_keys);
    browser->setRadius(radius);
    // Its row behind the end, where the list accepts new ones.
    browser->setExpandAccept(true);
    browser->setActive(true);
}

OrvoRowsModel::~OrvoRowsModel()
{
    m_browser->disconnect(this);
}

void OrvoRowsModel::setWorker(CMAbstractWorker* worker)
{
    m_browser->setWorker(worker);
}

void OrvoRowsModel::setPath(const CMPath& path)
{
    m_browser->setPath(path);
}

void OrvoRowsModel::setPath(const QString& path)
{
    setPath(CMPath::fromEncoded(path));
}

QString OrvoRowsModel::path() const
{
    return m_browser->path().toEncoded();
}

QVariantMap OrvoRowsModel::errorMap() const
{
    QVariantMap map;
    for (auto it = m_error.cbegin(); it != m_error.cend(); ++it)
        map.insert(it.key(), it.value());
    return map;
}

int OrvoRowsModel::roleOf(const QString& key) const
{
    const int index = m_keys.indexOf(key);
    return index < 0 ? -1 : firstRole + index;
}

int OrvoRowsModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : m_count;
}

QVariant OrvoRowsModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= m_count)
        return {};
    const QString key = role == Qt::DisplayRole ? OrvoRoles::Title() : m_keys.value(role - firstRole);
    if (key.isEmpty())
        return {};
    want(index.row());
    const int row = m_step.apply(index.row());
    return row < 0 ? QVariant() : m_browser->item(row).__value(key);
}

QHash<int, QByteArray> OrvoRowsModel::roleNames() const
{
    // Not Qt's own names for roles that have no data here: one of them, "edit", is a key too.
    QHash<int, QByteArray> names{{Qt::DisplayRole, QByteArrayLiteral("display")}};
    for (int i = 0; i < m_keys.size(); ++i)
        names.insert(firstRole + i, m_keys.at(i).toLatin1());
    return names;
}

void OrvoRowsModel::onItemAdded(int row)
{
    if (row <= m_count && prepare({Step::Insert, row, row}) && row <= m_count)
        insertRows(row, row);
}

void OrvoRowsModel::onItemRemoved(int row)
{
    if (row < m_count && prepare({Step::Remove, row, row}) && row < m_count)
        removeRows(row, row);
}

void OrvoRowsModel::onItemMoved(int from, int to)
{
    const auto hasBoth = [&] { return from < m_count && to < m_count; };
    if (from == to || !hasBoth()) {
        // In an open list one end may lie behind what is counted; the count itself stays.
        if (from < m_count && from != to)
            onItemRemoved(from);
        else if (to < m_count && from != to)
            onItemAdded(to);
        return;
    }
    if (!prepare({Step::Move, from, to}) || !hasBoth())
        return;
    beginMoveRows(QModelIndex(), from, from, QModelIndex(), to > from ? to + 1 : to);
    const Step step = m_step;
    m_step = Step();
    // Rough where the one row comes from one of the ends; the radius makes up for it.
    if (!m_asked.isEmpty()) {
        const int a = step.apply(m_asked.from);
        const int b = step.apply(m_asked.to);
        m_asked = {qMin(a, b), qMax(a, b)};
    }
    endMoveRows();
}

void OrvoRowsModel::onItemChanged(int row)
{
    if (m_browser->isLoading())
        return resetRows();
    // What the views' own wish drives out of the window is still what they show.
    if (m_moving || row < 0 || row >= m_count)
        return;
    m_changed = m_changed.isEmpty() ? Range{row, row} : Range{qMin(m_changed.from, row), qMax(m_changed.to, row)};
    if (!m_turnTimer->isActive())
        m_turnTimer->start();
}

void OrvoRowsModel::onItemsChanged()
{
    const QPointer<OrvoRowsModel> self(this);
    settleCount();
    if (self)
        tellChanged();
    if (self)
        settleError();
}

void OrvoRowsModel::onLoadingChanged()
{
    const QPointer<OrvoRowsModel> self(this);
    settleCount();
    if (!self || m_loading == m_browser->isLoading())
        return;
    m_loading = m_browser->isLoading();
    emit loadingChanged();
}

void OrvoRowsModel::turn()
{
    const QPointer<OrvoRowsModel> self(this);
    tellChanged();
    if (self)
        moveWindow();
}

bool OrvoRowsModel::prepare(const Step& step)
{
    const QPointer<OrvoRowsModel> self(this);
    m_step = step;
    tellChanged();
    if (!self)
        return false;
    // The list may be gone, as whoever heard of a changed row has set another path.
    if (!m_browser->isLoading())
        return true;
    m_step = Step();
    return false;
}

void OrvoRowsModel::insertRows(int first, int last)
{
    const int count = last - first + 1;
    beginInsertRows(QModelIndex(), first, last);
    m_count += count;
    m_step = Step();
    if (m_asked.from >= first)
        m_asked.from += count;
    if (m_asked.to >= first)
        m_asked.to += count;
    const QPointer<OrvoRowsModel> self(this);
    endInsertRows();
    if (self)
        emit countChanged();
}

void OrvoRowsModel::removeRows(int first, int last)
{
    const int count = last - first + 1;
    beginRemoveRows(QModelIndex(), first, last);
    m_count -= count;
    m_step = Step();
    if (m_asked.from > last)
        m_asked.from -= count;
    if (m_asked.to > last)
        m_asked.to -= count;
    const QPointer<OrvoRowsModel> self(this);
    endRemoveRows();
    if (self)
        emit countChanged();
}

void OrvoRowsModel::resetRows()
{
    if (m_count == 0)
        return;
    beginResetModel();
    m_count = 0;
    m_step = Step();
    m_changed = Range();
    m_asked = Range();
    const QPointer<OrvoRowsModel> self(this);
    endResetModel();
    if (self)
        emit countChanged();
}

void OrvoRowsModel::settleCount()
{
    if (m_browser->isLoading())
        return resetRows();
    const int size = m_browser->size();
    if (size > m_count)
        insertRows(m_count, size - 1);
    else if (size < m_count)
        removeRows(size, m_count - 1);
}

void OrvoRowsModel::settleError()
{
    if (m_error == m_browser->error())
        return;
    m_error = m_browser->error();
    emit errorChanged();
}

void OrvoRowsModel::tellChanged()
{
    const Range changed = m_changed;
    m_changed = Range();
    if (!changed.isEmpty() && changed.from < m_count)
        emit dataChanged(index(changed.from), index(qMin(changed.to, m_count - 1)));
}

void OrvoRowsModel::want(int row) const
{
    const int most = 2 * m_radius + 1;
    Range& asked = m_asked;
    if (asked.isEmpty() || row <= asked.from - most || row >= asked.to + most)
        asked = {row, row};
    else if (row < asked.from)
        asked = {row, qMin(asked.to, row + most - 1)};
    else if (row > asked.to)
        asked = {qMax(asked.from, row - most + 1), row};
    if (!m_turnTimer->isActive())
        m_turnTimer->start();
}

void OrvoRowsModel::moveWindow()
{
    const Range asked = m_asked;
    m_asked = Range();
    if (asked.isEmpty() || asked.from >= m_count || m_browser->isLoading())
        return;
    const int to = qMin(asked.to, m_count - 1);
    const int current = m_browser->currentRow();
    const int near = m_radius / 2;
    if (asked.from >= current - near && to <= current + near)
        return;
    const QPointer<OrvoRowsModel> self(this);
    m_moving = true;
    m_browser->setCurrentRow((asked.from + to) / 2);
    if (!self)
        return;
    m_moving = false;
    // An open list grows with its current row.
    settleCount();
}
