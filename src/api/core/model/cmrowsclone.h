#pragma once

#include "core/model/cmrowsfetcher.h"

#include <QHash>
#include <QList>
#include <QMultiHash>

#include <limits>

/**
 * A copy in memory of the list at a path, or of its first rows: filled in chunks, kept current by the changes of the
 * rows. itemChanged() tells each step, so that whoever replays them on an empty list always has list().
 *
 * While the list is loaded, and loaded anew after a reset, list() stays as it was and the rows are collected beside it;
 * then the difference is told as few changes, all ahead of loadingChanged(false). A row that is fetched again keeps its
 * old roles until the new ones come; a row that moves is removed and inserted.
 *
 * Lives in one thread, whose event loop brings rows and changes, and speaks to CMRoot(). May be destroyed inside its
 * own signals.
 */
class CMRowsClone : public CMRowsFetcherRows
{
    Q_OBJECT

public:
    /**
     * The slot takes any head of (OrvoRoles newRoles, OrvoRoles oldRoles, int row). A maximum of 1 or more follows only
     * so many rows: a row that leaves them is not made up for by the one behind them.
     */
    explicit CMRowsClone(QObject* parent = nullptr, const CMPath& path = CMPath(), QObject* receiver = nullptr,
                         const char* slot = nullptr, Qt::ConnectionType type = Qt::AutoConnection, int maxCount = 0);
    ~CMRowsClone() override;

    const QList<OrvoRoles>& list() const { return m_list; }
    /// The rows of list() that have an id. Of several with the same id it holds one.
    const QHash<QString, OrvoRoles>& idIndex() const { return m_idIndex; }
    bool isLoading() const { return m_loading; }

    // For the fetcher.
    RequestReply getRequest() override;
    void setItem(int row, const OrvoRoles& roles) override;
    void insertItem(int row, const OrvoRoles& roles) override;
    void removeItem(int row) override;
    void moveItem(int from, int to) override;

signals:
    /// Once for all itemChanged() of a turn of the event loop.
    void itemsChanged();
    /// Row `row` of list() was inserted (no old roles), removed (no new roles) or replaced.
    void itemChanged(OrvoRoles newRoles = OrvoRoles(), OrvoRoles oldRoles = OrvoRoles(), int row = -1);
    void loadingChanged(bool loading);

private slots:
    void updateLoading();
    void on_fetcher_loadingChanged(bool loading);
    void on_fetcher_closed();

private:
    /// No load has told yet how many rows it waits for.
    static constexpr int unknownCount = std::numeric_limits<int>::max();

    void listChange(const OrvoRoles& newRoles, const OrvoRoles& oldRoles, int index);
    void indexChange(const OrvoRoles& newRoles, const OrvoRoles& oldRoles);
    bool updateListToLoadingList();
    void loadingListInsert(int row);
    void loadingListSet(int row);
    OrvoRoles loadingListRemove(int row, int position);
    void publish(const OrvoRoles& newRoles, const OrvoRoles& oldRoles, int position);
    bool isBehindMaximum(int row, const char* what) const;
    void consistencyError(const char* operation, int row);

    /// One entry for each row of the list; empty while it is not fetched.
    QList<OrvoRoles> m_rows;
    /// The place of each row in m_loadingList; -1 while it is not there.
    QList<int> m_rows2loadingList;
    /// The fetched rows in the list's order, without gaps. Equal to m_list when no load runs.
    QList<OrvoRoles> m_loadingList;
    QList<OrvoRoles> m_list;
    QHash<QString, OrvoRoles> m_idIndex;
    /// Rows of m_list whose id belongs to another one in m_idIndex.
    QMultiHash<QString, OrvoRoles> m_sameIds;
    CMChangesMerger* const m_itemsMerger;
    /// So many rows end the load; -1 when none runs.
    int m_initialRowsCount = unknownCount;
    bool m_loading = true;
    const int m_maxCount;
    /// How many loads have begun: tells whether one began inside a signal.
    int m_loads = 0;
};
