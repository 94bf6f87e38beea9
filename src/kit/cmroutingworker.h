#pragma once

#include "core/model/cmabstractworker.h"

#include <QHash>
#include <QMutex>

/**
 * A worker for a process that speaks to several trees: hands each request and each subscription to the worker that is
 * registered for the path's prefix. An empty or unknown prefix gives the invalid-path error.
 *
 * Any thread may call it, and it may be the root. Registered workers stay with their owners. With connectUnknown() it
 * makes a CMRemoteWorker, which it owns, for a prefix that it does not know yet; these live in the router's thread,
 * which then needs an event loop, and calls from other threads wait there for their making.
 */
class CMRoutingWorker : public CMAbstractWorker
{
    Q_OBJECT

public:
    explicit CMRoutingWorker(const QHash<QString, QVariant>& arguments = QHash<QString, QVariant>(),
                             QObject* parent = nullptr);
    ~CMRoutingWorker() override;

    /// The prefix without its colon. Replaces what was registered for it, save what others still use it for.
    void registerWorker(const QString& prefix, CMAbstractWorker* worker);
    void unregisterWorker(const QString& prefix);
    /// The worker for the prefix; null when it is unknown.
    CMAbstractWorker* worker(const QString& prefix) const;
    /// From now on unknown prefixes are taken for names of services. `name` is this process's end of their links.
    void connectUnknown(const QString& name);

    void request(CMRequest request) override;
    /// Goes to the worker of the request's path.
    void ping(const CMSetDataRequest& request) override;
    /// As a CMWorker does: blocks for 100 ms for each thread of the process.
    void trace() override;
    void getDataRequest(const CMGetDataRequest& request) override;
    void getRowsRequest(const CMGetRowsRequest& request) override;
    void matchRowRequest(const CMMatchRowRequest& request) override;
    void setDataRequest(const CMSetDataRequest& request) override;
    /// A subscription at an unknown prefix is dropped, with a log line.
    void connectChange(CMAbstractWorker::ChangeType changeType, const CMPath& path, QObject* receiver,
                       const char* method, Qt::ConnectionType type = Qt::AutoConnection) override;
    void disconnectChange(CMAbstractWorker::ChangeType changeType, const CMPath& path, QObject* receiver,
                          const char* method) override;

private:
    template <typename Call, typename Unknown>
    void route(const CMPath& path, Call call, Unknown unknown);
    CMAbstractWorker* makeRemote(const QString& prefix);

    mutable QMutex m_mutex;
    QHash<QString, CMAbstractWorker*> m_workers;
    /// Empty while unknown prefixes stay unknown.
    QString m_name;
};
