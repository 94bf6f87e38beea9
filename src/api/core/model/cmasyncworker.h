#pragma once

#include "core/model/cmabstractworker.h"
#include "core/model/cmrequest.h"

#include <QList>
#include <QMutex>
#include <QWaitCondition>

/**
 * Moves requests from the caller's thread to threads of its own, so that a slow node does not hold up the caller's
 * event loop. Wraps any other worker, which it does not own and which must cope with requests that run at the same
 * time when there is more than one thread.
 *
 * Its threads never end: such a worker lives as long as the process. Requests start in the order of arrival; one that
 * was cancelled while it waited never reaches the wrapped worker. Pings and subscriptions do not wait in the queue.
 */
class CMAsyncWorker : public CMAbstractWorker
{
    Q_OBJECT

public:
    /// A count below 1 makes no thread, and requests then wait for ever.
    CMAsyncWorker(CMAbstractWorker* worker, int threads);

    void append(CMRequest request);
    /// The loop of one worker thread; never returns.
    void run();

    void request(CMRequest request) override;
    void ping(const CMSetDataRequest& request) override;
    void getDataRequest(const CMGetDataRequest& request) override;
    void getRowsRequest(const CMGetRowsRequest& request) override;
    void matchRowRequest(const CMMatchRowRequest& request) override;
    void setDataRequest(const CMSetDataRequest& request) override;
    void connectChange(CMAbstractWorker::ChangeType changeType, const CMPath& path, QObject* receiver,
                       const char* method, Qt::ConnectionType type = Qt::AutoConnection) override;
    void disconnectChange(CMAbstractWorker::ChangeType changeType, const CMPath& path, QObject* receiver,
                          const char* method) override;

private:
    class Thread;

    QMutex m_mutex;
    QList<CMRequest> m_queue;
    QWaitCondition m_condition;
    CMAbstractWorker* const m_worker;
};
