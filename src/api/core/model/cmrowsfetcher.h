#pragma once

#include "core/model/cmerror.h"
#include "core/model/cmpath.h"
#include "core/model/cmrequest.h"
#include "records/orvoroles.h"
#include "records/orvorowsroles.h"

#include <QObject>
#include <QStringList>

class CMChangesMerger;
class CMRowsFetcher;

/**
 * Where a CMRowsFetcher puts the rows: says which ones it wants next, is given them, and is told how the list changes.
 *
 * Owns its fetcher and lives in the fetcher's thread. The virtual operations are called by the fetcher from the event
 * loop, never while this is being made. They may do anything, reset the fetcher and destroy this included.
 */
class CMRowsFetcherRows : public QObject
{
    Q_OBJECT

public:
    /// The rows that are wanted next, both bounds included; a negative `from` wants none.
    class RequestReply
    {
    public:
        explicit RequestReply(int from = -1, int to = -1) : m_from(from), m_to(to) {}

        int from() const { return m_from; }
        int to() const { return m_to; }

    private:
        int m_from;
        int m_to;
    };

    CMRowsFetcherRows(QObject* parent, const CMPath& path);
    ~CMRowsFetcherRows() override;

    CMPath path() const;
    void setPath(const CMPath& path);
    CMRowsFetcher* fetcher() const { return m_fetcher; }

    /// What to fetch next. Asked before each request; `from` is not behind `to`.
    virtual RequestReply getRequest() = 0;
    /// The roles of a row; empty ones when its content changed and is to be fetched anew. The row may be anything that
    /// a service says, also one that is not there.
    virtual void setItem(int row, const OrvoRoles& roles) = 0;
    virtual void insertItem(int row, const OrvoRoles& roles) = 0;
    virtual void removeItem(int row) = 0;
    /// As by QList::move().
    virtual void moveItem(int from, int to) = 0;

signals:
    void fetcherAssigned(CMRowsFetcher* fetcher = nullptr);

private:
    CMRowsFetcher* const m_fetcher;
};

/**
 * Downloads the list at a path in chunks, one request at a time, and then keeps it in step with the changes of its
 * rows. It holds no rows: the storage that owns it says what to fetch and is given what comes.
 *
 * A list is loaded when its version is known, and then changes only by changes that begin at that version; whatever
 * does not fit starts the download anew. Two races end that way: a reply that left before a change and arrives behind
 * it, and a change that the reply has in it already. A failed request is repeated after 2 s, for ever.
 *
 * Lives in one thread, whose event loop brings replies and changes, and speaks to CMRoot(). May be destroyed, with its
 * storage, inside its own signals and inside the storage's operations.
 */
class CMRowsFetcher : public QObject
{
    Q_OBJECT

public:
    /// A child of its storage.
    CMRowsFetcher(CMRowsFetcherRows* rows, const CMPath& path);
    ~CMRowsFetcher() override;

    CMPath path() const { return m_path; }
    /// Negative while loading.
    int version() const { return m_version; }
    /// Of the whole list, as far as known.
    int rowsCount() const { return m_rowsCount; }
    bool isLoading() const { return m_version < 0; }
    /// The last failure; empty again with the next good reply.
    CMError error() const { return m_error; }
    /// The last reply without its rows, count and version.
    OrvoRowsRoles rowsRoles() const { return m_rowsRoles; }

    /// An empty path follows nothing.
    CMRowsFetcher* setPath(const CMPath& path);
    /// What is asked of each row, all roles at first. Only while there is no path.
    CMRowsFetcher* setRoles(const QStringList& roles);
    /// Asks the storage for its next request, 30 ms from now, unless a request is in flight.
    void trigger();
    /// Starts the download anew.
    void reset();
    void setVersion(int version);
    void setError(const CMError& error);
    void setRowsRoles(const OrvoRowsRoles& rowsRoles);
    void handleError(const CMError& error);

signals:
    void pathChanged(CMPath path = CMPath());
    void loadingChanged(bool loading = false);
    void versionChanged(int version = -1);
    /// The service has taken the list away; the storage keeps what it has.
    void closed();
    void errorChanged(CMError error = CMError());
    void rowsRolesChanged(OrvoRowsRoles rowsRoles = OrvoRowsRoles());

private slots:
    void on_triggerModerator_changed();
    void getRowsFinished(CMVoidReply reply);
    void rowsChanged(CMPath path, QStringList rowsChanged, int version, int oldVersion);

private:
    void takeRows(int from, int to, const OrvoRowsRoles& rowsRoles);
    void applyChange(const QString& change);

    CMPath m_path;
    QStringList m_roles;
    int m_rowsCount = 0;
    int m_version = -1;
    CMChangesMerger* const m_triggerModerator;
    /// Since the last good reply.
    int m_errorsCount = 0;
    CMError m_error;
    /// The fetch in flight; null when idle.
    CMGetRowsRequest m_request;
    OrvoRowsRoles m_rowsRoles;
    CMRowsFetcherRows* const m_rows;
    /// The path was set anew since the request left.
    bool m_requestOutdated = false;
    /// The newest version that was told while the first reply was on its way.
    int m_versionTold = -1;
    /// What the last good reply answered, and whether the same was asked for again since.
    int m_answeredFrom = -1;
    int m_answeredTo = -1;
    int m_answeredVersion = -1;
    bool m_answeredInVain = false;
};
