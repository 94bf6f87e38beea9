#pragma once

#include "core/model/cmpath.h"
#include "core/model/cmrequest.h"
#include "core/model/cmrowswindow.h"
#include "records/orvoroles.h"
#include "records/orvorowsroles.h"

#include <QObject>
#include <QStringList>

#include <limits>
#include <utility>
#include <vector>

class CMAbstractWorker;
class QTimer;

/**
 * The view of one list for a screen that shows a few of its rows: follows the list's path and keeps a window of rows
 * around a current row, however long the list is.
 *
 * The rows within the radius of the current row, the active range, are fetched, one gap after the other, with at most
 * one request under way; the window keeps four radii of rows to each side, so that rows passed before stay readable.
 * Changes of the list are applied to the window. The window reflects one version of the list: a change or an answer of
 * another one is waited out for 5 s and fetched again, and the second such error in a row loads the list anew.
 *
 * Set up roles (of the length and order of CMAllRoles()) and radius, then the path, then activate it. Lives in one
 * thread, whose event loop brings its replies and changes. May be destroyed at any time, also inside its own signals.
 * After closed() it goes on working until its owner deletes it.
 */
class CMRowsBrowser : public QObject
{
    Q_OBJECT

public:
    using Item = CMRowsWindow::Item;
    using RowIterator = CMRowsWindow::iterator;
    using RowConstIterator = CMRowsWindow::const_iterator;

    /// How many rows the list has: at least so many when that is unknown.
    class RowsCount
    {
    public:
        RowsCount(int count, bool unknown) : m_count(count), m_unknown(unknown) {}

        int count() const { return m_count; }
        bool isUnknown() const { return m_unknown; }
        operator int() const { return m_count; }

    private:
        int m_count;
        bool m_unknown;
    };

    /// Speaks to CMRoot() until it is given another worker.
    explicit CMRowsBrowser(QObject* parent = nullptr);
    ~CMRowsBrowser() override;

    /// The worker outlives this.
    void setWorker(CMAbstractWorker* worker);
    /// An empty path follows nothing.
    void setPath(const CMPath& path);
    /// The names under which the values of a row are stored. Empties the window; the rows come with the next trigger.
    void setRoles(const QStringList& roles);
    /// Rows to each side of the current one that are to be loaded. Once, before anything is loaded.
    void setRadius(int radius);
    /// Nothing is fetched while it is not active; changes are followed all the same.
    void setActive(bool active);
    /// Whether rows beyond the end read as the roles that the list has for accepting it.
    void setExpandAccept(bool expandAccept);
    /// Whether a failed fetch is repeated by itself.
    void setRetryOnError(bool retryOnError);
    /// Carried for the stack of screens.
    void setEnumPath(const CMPath& path);
    /// For a path that is still worked out: it is taken from the reply, and an error closes.
    void addPathWatcher(const CMVariantReply& reply);
    /// Forgets all rows and loads the list anew.
    void reset();
    /// Starts the list's close time anew, if it runs.
    void resetCloseTimer();

    /// Refused with a log line beyond the end of a list of known size.
    void setCurrentRow(int row);

    RowsCount size() const;
    /// Empty when the row is not loaded, or lies outside the window.
    OrvoRoles item(int row) const;

    CMPath path() const { return m_path; }
    int currentRow() const { return m_currentRow; }
    bool isLoading() const { return m_version < 0; }
    /// What the list tells of itself, without its rows.
    OrvoRowsRoles rowsRoles() const { return m_rowsRoles; }
    /// The last error told by errorChanged(); emptied, without a signal, by the next good answer.
    CMError error() const { return m_error; }
    CMPath enumPath() const { return m_enumPath; }
    QString title() const { return m_title; }
    OrvoList<OrvoRowsRolesType::Enum> type() const { return m_type; }
    /// Of the list as the window reflects it; negative while loading.
    int version() const { return m_version; }

    // The window. These are the steps by which replies and changes move it; views do not call them.

    /// The row's slot, or the window's end.
    RowIterator getIteratorForRow(int row);
    RowConstIterator getIteratorForRow(int row) const;
    RowConstIterator getIteratorBeginActiveRange() const;
    RowConstIterator getIteratorEndActiveRange() const;
    /// First and last row of the next fetch: the first gap of the active range. -1 and -1 when there is none.
    std::pair<int, int> calculateFromToRow() const;
    /// Looks for a gap after so many milliseconds, or at the earlier time that stands already.
    void trigger(int delay);
    void handleError(const CMError& error);
    void dropItems();
    void setRowsCount(int count);
    void setRowsRoles(const OrvoRowsRoles& rowsRoles);
    void rowSet(int row, const OrvoRoles& roles);
    void rowReload(int row);
    void rowInsert(int row, const OrvoRoles& roles);
    void rowRemoveAt(int row);
    void rowMoved(int from, int to);

signals:
    /// Sums up the signals below, save rowsRolesChanged() and those of single rows.
    void updated();
    void pathChanged(CMPath path = CMPath());
    void loadingChanged(bool loading = false);
    void sizeChanged(int size = 0);
    void currentRowChanged(int currentRow = 0);
    void currentItemChanged(OrvoRoles data = OrvoRoles());
    void rowsRolesChanged(OrvoRowsRoles rowsRoles = OrvoRowsRoles());
    void itemsChanged();
    void itemAdded(int row = 0, OrvoRoles roles = OrvoRoles());
    void itemRemoved(int row = 0);
    void itemMoved(int fromRow, int toRow);
    void itemChanged(OrvoRoles roles = OrvoRoles(), OrvoRoles oldRoles = OrvoRoles(), int row = -1);
    void titleChanged(QString title = QString());
    void typeChanged(OrvoList<OrvoRowsRolesType::Enum> type = OrvoList<OrvoRowsRolesType::Enum>());
    void errorChanged(CMError error = CMError());
    /// The list wants its screen closed. Without a sender when its close time is up.
    void closed(CMRowsBrowser* sender = nullptr, CMError error = CMError());

private slots:
    void triggerTimeout();
    void pathWatcherFinished(CMVoidReply reply);
    void getRowsFinished(CMVoidReply reply);
    void rowsChanged(CMPath path, QStringList rowsChanged, int version, int oldVersion);

private:
    /// Whether this still is what it was: alive, and of the same path and load. A signal may end either.
    class Watch;
    /// Rows that lost their roles, of which is told once the window is in order again.
    using Lost = std::vector<std::pair<int, OrvoRoles>>;

    /// The slot in the middle, which is the current row's.
    int centre() const { return m_radius * m_radiusMultipler; }
    int rowAt(int index) const { return m_currentRow + index - centre(); }
    int indexOf(int row) const;
    /// No row from here on can be the current one: the row numbers around it would end.
    int endOfRows() const { return std::numeric_limits<int>::max() - 2 * m_items.size(); }
    bool isEndKnown() const { return !m_rowsCountUnknown || m_rowsCount != 0; }
    void cancelRequest();
    void moveCurrentRow(int row);
    /// As moveCurrentRow(), without a signal.
    void moveWindow(int row);
    void tellCurrentRow();
    void tellCurrentItem();
    Lost takeItems();
    void tellLost(const Lost& lost);
    /// What is wrong with an answer that came as a good one.
    CMError errorOf(const OrvoRowsRoles& answer) const;
    void applyReply(const OrvoRowsRoles& answer, int from);
    void followCloseTimeout(int closeTimeout);
    void applyChange(const QString& change);

    CMAbstractWorker* m_worker;
    bool m_active = false;
    CMPath m_path;
    QStringList m_roles;
    bool m_expandAccept = false;
    int m_acceptRows = 0;
    const int m_radiusMultipler = 4;
    CMRowsWindow m_items;
    int m_radius = 0;
    int m_rowsCount = 0;
    bool m_rowsCountUnknown = false;
    int m_currentRow = 0;
    bool m_movingForward = true;
    int m_version = -1;
    const int m_retryInterval = 5000;
    int m_errorsCount = 0;
    int m_versionErrorsCount = 0;
    OrvoRowsRoles m_rowsRoles;
    CMError m_error;
    QTimer* const m_triggerTimer;
    QTimer* const m_closeTimer;
    CMGetRowsRequest m_request;
    QString m_title;
    OrvoList<OrvoRowsRolesType::Enum> m_type;
    CMPath m_enumPath;
    bool m_retryOnError = true;
    /// Changes of the list may have been lost: if a fetch does not show whether, the list is loaded anew.
    bool m_versionDoubted = false;
    /// The version of the last change that came while the list was loading; an older answer lacks it.
    int m_missedVersion = -1;
    bool m_subscribed = false;
    /// Counts paths and resets.
    int m_generation = 0;
};
