#pragma once

#include "core/model/cmworker.h"

class CMRPCClient;

/**
 * The worker by which a process reaches the tree that another process serves: the four requests and the subscriptions
 * go over a CMRPCClient, and what the client hears goes to this worker's change hub.
 *
 * Owns the client. Lives in the thread that made it, which needs an event loop; any thread may call it, and it may be
 * the root. Views on it survive a restart of the service: see CMRPCClient for what they are told.
 */
class CMRemoteWorker : public CMWorker
{
    Q_OBJECT

public:
    /// `name` is this process's end of the link, `remoteName` the service's, which is also the prefix of its paths.
    CMRemoteWorker(const QString& name, const QString& remoteName,
                   const QHash<QString, QVariant>& arguments = QHash<QString, QVariant>());
    ~CMRemoteWorker() override;

    CMRPCClient* client() const { return m_client; }

    void getDataRequest(const CMGetDataRequest& request) override;
    void getRowsRequest(const CMGetRowsRequest& request) override;
    /// The service searches; the rows do not cross the link.
    void matchRowRequest(const CMMatchRowRequest& request) override;
    void setDataRequest(const CMSetDataRequest& request) override;

private slots:
    void on_client_rowsChanged(const CMPath& path, const QStringList& changes, int version, int oldVersion);

private:
    /// Null while the destructor tells whose requests are open.
    CMRPCClient* m_client;
};
