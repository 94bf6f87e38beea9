#pragma once

#include "core/model/cmworker.h"

class CMNodes;

/// The worker that serves a registry of nodes. Owns the registry, and tells its subscribers of the end before the hub
/// goes.
class CMNodesWorker : public CMWorker
{
    Q_OBJECT

public:
    CMNodesWorker(const QHash<QString, QVariant>& arguments, const QString& id);
    ~CMNodesWorker() override;

    CMNodes* nodes() const { return m_nodes; }

    void getDataRequest(const CMGetDataRequest& request) override;
    void getRowsRequest(const CMGetRowsRequest& request) override;
    void matchRowRequest(const CMMatchRowRequest& request) override;
    void setDataRequest(const CMSetDataRequest& request) override;
    void connectChange(CMAbstractWorker::ChangeType changeType, const CMPath& path, QObject* receiver,
                       const char* method, Qt::ConnectionType type = Qt::AutoConnection) override;
    void disconnectChange(CMAbstractWorker::ChangeType changeType, const CMPath& path, QObject* receiver,
                          const char* method) override;

private:
    /// Null while the destructor tells the subscribers.
    CMNodes* m_nodes;
};
