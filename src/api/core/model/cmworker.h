#pragma once

#include "core/model/cmabstractworker.h"

class CMSubscribe;

/**
 * A worker with a prefix and a change hub: the end of the road for requests that nobody took.
 *
 * Owns its hub. Lives in the thread that made it, where the hub delivers; any thread may call it. A match request is
 * served by walking the rows with this worker's own getRowsRequest() in batches of 100.
 */
class CMWorker : public CMAbstractWorker
{
    Q_OBJECT

public:
    /// The id names the worker in log lines. Arguments: see OrvoWorkerArguments.
    CMWorker(const QHash<QString, QVariant>& arguments, const QString& id);
    ~CMWorker() override;

    CMSubscribe* subscribe() const { return m_subscribe; }
    /// The namespace of this worker; an empty path without the prefix argument.
    CMPath prefixPath() const;
    /// The prefix path with the text appended, without a separator.
    CMPath addPrefix(const QString& text) const;

    /// Answers from the worker's event loop, which so proves to run.
    void ping(const CMSetDataRequest& request) override;
    /// Blocks for 100 ms for each thread of the process.
    void trace() override;
    void getDataRequest(const CMGetDataRequest& request) override;
    void getRowsRequest(const CMGetRowsRequest& request) override;
    void matchRowRequest(const CMMatchRowRequest& request) override;
    void setDataRequest(const CMSetDataRequest& request) override;
    void connectChange(CMAbstractWorker::ChangeType changeType, const CMPath& path, QObject* receiver,
                       const char* method, Qt::ConnectionType type = Qt::AutoConnection) override;
    void disconnectChange(CMAbstractWorker::ChangeType changeType, const CMPath& path, QObject* receiver,
                          const char* method) override;

protected slots:
    void on_ping_request(CMVoidReply voidReply);

private:
    class MatchRow;

    const int m_threadId;
    const QString m_id;
    CMSubscribe* const m_subscribe;
    const QString m_prefix;
};
