#include "cmroutingworker.h"

#include "cmremoteworker.h"
#include "core/model/cmpath.h"
#include "core/model/cmrequest.h"
#include "core/orvoLog_p.h"

#include <QPointer>
#include <QThread>

namespace {

ORVO_LOGGER("CMRoutingWorker")

} // namespace

CMRoutingWorker::CMRoutingWorker(const QHash<QString, QVariant>& arguments, QObject* parent)
    : CMAbstractWorker(arguments, parent)
{}

CMRoutingWorker::~CMRoutingWorker()
{
    // The remote workers are children; while they go, whoever they tell finds no prefix here.
    QMutexLocker lock(&m_mutex);
    m_workers.clear();
    m_name.clear();
    lock.unlock();
    qDeleteAll(findChildren<CMRemoteWorker*>(QString(), Qt::FindDirectChildrenOnly));
}

void CMRoutingWorker::registerWorker(const QString& prefix, CMAbstractWorker* worker)
{
    const QMutexLocker lock(&m_mutex);
    m_workers.insert(prefix, worker);
}

void CMRoutingWorker::unregisterWorker(const QString& prefix)
{
    const QMutexLocker lock(&m_mutex);
    m_workers.remove(prefix);
}

CMAbstractWorker* CMRoutingWorker::worker(const QString& prefix) const
{
    const QMutexLocker lock(&m_mutex);
    return m_workers.value(prefix);
}

void CMRoutingWorker::connectUnknown(const QString& name)
{
    const QMutexLocker lock(&m_mutex);
    m_name = name;
}

CMAbstractWorker* CMRoutingWorker::makeRemote(const QString& prefix)
{
    auto* remote = new CMRemoteWorker(m_name, prefix);
    remote->setParent(this);
    m_workers.insert(prefix, remote);
    return remote;
}

/// Calls with the worker of the path or tells that it is unknown: here or, when it is still to be made, in this
/// worker's thread.
template <typename Call, typename Unknown>
void CMRoutingWorker::route(const CMPath& path, Call call, Unknown unknown)
{
    const QString prefix = path.prefix();
    QMutexLocker lock(&m_mutex);
    CMAbstractWorker* worker = m_workers.value(prefix);
    if (!worker) {
        if (prefix.isEmpty() || m_name.isEmpty()) {
            lock.unlock();
            unknown();
            return;
        }
        if (thread() != QThread::currentThread()) {
            QMetaObject::invokeMethod(
                this, [this, path, call, unknown] { route(path, call, unknown); }, Qt::QueuedConnection);
            return;
        }
        worker = makeRemote(prefix);
    }
    lock.unlock();
    call(worker);
}

void CMRoutingWorker::request(CMRequest request)
{
    route(
        request.path(), [request](CMAbstractWorker* worker) { worker->request(request); },
        [request] { request.reply().setError(createErrorInvalidPath(request.path())); });
}

void CMRoutingWorker::ping(const CMSetDataRequest& request)
{
    route(
        request.path(), [request](CMAbstractWorker* worker) { worker->ping(request); },
        [request] { request.reply().setError(createErrorInvalidPath(request.path())); });
}

void CMRoutingWorker::trace()
{
    // One is enough: it speaks for all threads of the process.
    CMWorker({}, QStringLiteral("trace")).trace();
}

void CMRoutingWorker::getDataRequest(const CMGetDataRequest& request)
{
    this->request(request);
}

void CMRoutingWorker::getRowsRequest(const CMGetRowsRequest& request)
{
    this->request(request);
}

void CMRoutingWorker::matchRowRequest(const CMMatchRowRequest& request)
{
    this->request(request);
}

void CMRoutingWorker::setDataRequest(const CMSetDataRequest& request)
{
    this->request(request);
}

void CMRoutingWorker::connectChange(CMAbstractWorker::ChangeType changeType, const CMPath& path, QObject* receiver,
                                    const char* method, Qt::ConnectionType type)
{
    const QPointer<QObject> target(receiver);
    const QByteArray member(method);
    const auto call = [=](CMAbstractWorker* worker) {
        if (target)
            worker->connectChange(changeType, path, target, member.constData(), type);
    };
    route(path, call, [path] { LOG4CPLUS_WARN(logger(), "No worker for the subscription to path: " << path); });
}

void CMRoutingWorker::disconnectChange(CMAbstractWorker::ChangeType changeType, const CMPath& path, QObject* receiver,
                                       const char* method)
{
    const QPointer<QObject> target(receiver);
    const QByteArray member(method);
    const auto call = [=](CMAbstractWorker* worker) {
        if (target)
            worker->disconnectChange(changeType, path, target, member.constData());
    };
    route(path, call,
          [path] { LOG4CPLUS_WARN(logger(), "No worker for the end of a subscription to path: " << path); });
}
