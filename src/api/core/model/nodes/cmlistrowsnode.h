#pragma once

#include "core/model/nodes/cmcontainernode.h"
#include "records/orvorowsroles.h"

#include <QMultiHash>
#include <QSet>

/**
 * A container whose rows a service keeps in memory and changes one by one; readers are told of every change.
 *
 * A row is an encoded path (a path row) or a hash of roles (a roles row). A change is told as a string: "7" the content
 * of row 7 changed, "+7" inserted, "-7" removed, "=3..9" moved as by QList::move(3, 9), "" everything may have changed.
 * Strings apply in order, each number refers to the list as it stands after the strings before it. Versions are kept by
 * the hub per subscribed path.
 *
 * While the list has rows subscribers it follows the data of the nodes that its path rows refer to, and tells their
 * changes as changes of the rows. All operations take the node's mutex, save rows(), which is for the owning thread.
 */
class CMListRowsNode : public CMContainerNode
{
    Q_OBJECT

public:
    explicit CMListRowsNode(const CMPath& path);
    static CMListRowsNode* create(CMNodes* nodes, const CMPath& path);

    bool getRowsRequest(const CMGetRowsRequest& request) override;
    void rowsPathAdd(const CMPath& path) override;
    void rowsPathRemove(const CMPath& path) override;

    /// By reference and without a lock: for the thread that owns the list.
    const QList<QVariant>& rows() const { return m_rows; }
    int rowsSize() const;
    /// The first row that is the path; -1 if none.
    int rowsIndexOf(const CMPath& path) const;
    /// The first roles row with the id; -1 if none.
    int rowsIndexById(const QString& id) const;
    OrvoRoles rowsGetById(const QString& id) const;
    /// An invalid variant out of range.
    QVariant getRow(int index) const;
    OrvoRoles getRowRoles(int index) const;
    OrvoRowsRoles rowsRoles() const;
    QStringList sortOrder() const;

    /// A position beyond the end appends. An empty path is refused with a log line.
    void rowsInsert(int pos, const QVariant& row);
    void rowsInsert(int pos, const OrvoRoles& row);
    void rowsInsert(int pos, const CMPath& row);
    void rowsAppend(const QVariant& row);
    void rowsAppend(const OrvoRoles& row);
    void rowsAppend(const CMPath& row);
    /// False when the row is equal. The position is valid. Not for replacing a path row: remove and insert it.
    bool rowsSet(int pos, const QVariant& row);
    bool rowsSet(int pos, const OrvoRoles& row);
    bool rowsSet(int pos, const CMPath& row);
    /// Every equal row goes. The number removed.
    int rowsRemove(const QVariant& row);
    int rowsRemove(const OrvoRoles& row);
    int rowsRemove(const CMPath& row);
    void rowsRemoveAll(const QVariant& row);
    void rowsRemoveAll(const OrvoRoles& row);
    void rowsRemoveAll(const CMPath& row);
    int rowsRemoveById(const QString& id);
    void rowsRemoveStartingWithPath(const CMPath& prefix);
    /// Ignored out of range.
    void rowsRemoveAt(int pos);
    void rowsClear();
    /// Moves as many QList moves; false, with a log line, when a number is out of range.
    bool rowsMove(int from, int count, int to);
    bool rowsMove(int from, int to);
    /**
     * Updates the roles row with the record's id or inserts the record, in either case at its place by sortOrder().
     * False when the row stays as it is.
     */
    bool rowsSetById(const OrvoRoles& roles);

    // Stored without a notification, and without sorting anew.
    void setRowsRoles(const OrvoRowsRoles& rowsRoles);
    void setSortOrder(const QStringList& sortOrder);
    /// Whether the parameters of the asker's path go to the paths of all rows.
    void setCopyPathParams(bool copyPathParams);

    void nextRowsVersion(const QStringList& changes);
    void nextRowsVersion(const QString& change);
    // The watch of a row's target. Made like every watch of a node, so watchInsert() is called ahead of taking the
    // mutex.
    void watchInsert(const QVariant& row);
    void watchRemove(const QVariant& row);
    void connectWatchedDataChange(const CMPath& path);
    void disconnectWatchedDataChange(const CMPath& path);

public slots:
    /// Removes the row of the old record's id, sets the new record by its id; an empty record leaves its step out.
    void itemChange(OrvoRoles newRoles, OrvoRoles oldRoles);
    /// Inserts, removes or sets the row at the index, as the old, the new or neither record is empty.
    void itemChangeIndex(OrvoRoles newRoles, OrvoRoles oldRoles, int index);

private slots:
    void watchedDataChanged(CMPath changePath);

private:
    void insertWatched(int pos, const QVariant& row);
    template <typename Matches>
    int removeMatching(Matches matches);

    QList<QVariant> m_rows;
    /// Index of each path row by its path; stale while m_pathRowsDirty.
    QMultiHash<CMPath, int> m_pathRows;
    bool m_pathRowsDirty = false;
    /// How many rows refer to each path: equal rows share one watch per subscribed path.
    QHash<CMPath, int> m_targets;
    OrvoRowsRoles m_rowsRoles;
    QStringList m_sortOrder{OrvoRoles::Id(), OrvoRoles::Timestamp()};
    bool m_copyPathParams = false;
};
