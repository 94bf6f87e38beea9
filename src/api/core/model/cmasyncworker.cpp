#include "core/model/cmasyncworker.h"

#include "core/orvo.h"
#include "core/orvoLog_p.h"

#include <QThread>

namespace {

ORVO_LOGGER("CMChange")

} // namespace

class CMAsyncWorker::Thread : public QThread
{
public:
    explicit Thread(CMAsyncWorker* worker) : QThread(worker), m_worker(worker) {}

protected:
    void run() override
    {
        orvoSetThreadName(QStringLiteral("CMAsyncWorker"));
        m_worker->run();
    }

private:
    CMAsyncWorker* const m_worker;
};

CMAsyncWorker::CMAsyncWorker(CMAbstractWorker* worker, int threads)
    : CMAbstractWorker(worker->arguments()), m_worker(worker)
{
    for (int i = 0; i < threads; ++i)
        (new Thread(this))->start(QThread::InheritPriority);
}

void CMAsyncWorker::append(CMRequest request)
{
    const QMutexLocker lock(&m_mutex);
    m_queue.append(request);
    m_condition.wakeOne();
}

void CMAsyncWorker::run()
{
    for (;;) {
        QMutexLocker lock(&m_mutex);
        while (m_queue.isEmpty())
            m_condition.wait(&m_mutex);
        const CMRequest request = m_queue.takeFirst();
        lock.unlock();
        if (!request.reply().isFinished())
            m_worker->request(request);
    }
}

void CMAsyncWorker::request(CMRequest request)
{
    append(request);
}

void CMAsyncWorker::ping(const CMSetDataRequest& request)
{
    m_worker->ping(request);
}

void CMAsyncWorker::getDataRequest(const CMGetDataRequest& request)
{
    append(request);
}

void CMAsyncWorker::getRowsRequest(const CMGetRowsRequest& request)
{
    append(request);
}

void CMAsyncWorker::matchRowRequest(const CMMatchRowRequest& request)
{
    append(request);
}

void CMAsyncWorker::setDataRequest(const CMSetDataRequest& request)
{
    append(request);
}

void CMAsyncWorker::connectChange(CMAbstractWorker::ChangeType changeType, const CMPath& path, QObject* receiver,
                                  const char* method, Qt::ConnectionType type)
{
    LOG4CPLUS_TRACE(logger(), "CMAsyncWorker::connectChange: " << changeType << ' ' << path << " ("
                                                               << receiver->metaObject()->className() << ' ' << method
                                                               << ')');
    m_worker->connectChange(changeType, path, receiver, method, type);
}

void CMAsyncWorker::disconnectChange(CMAbstractWorker::ChangeType changeType, const CMPath& path, QObject* receiver,
                                     const char* method)
{
    LOG4CPLUS_TRACE(logger(), "CMAsyncWorker::disconnectChange: " << changeType << ' ' << path << " ("
                                                                  << receiver->metaObject()->className() << ' '
                                                                  << method << ')');
    m_worker->disconnectChange(changeType, path, receiver, method);
}
