#include "core/model/cmrpcclient.h"

#include "core/model/cmrequest.h"
#include "core/model/cmsubscribe.h"
#include "core/orvo.h"
#include "core/orvoLog_p.h"
#include "records/orvoconstants.h"

#include <QPointer>
#include <QStringBuilder>
#include <QThread>

#include <array>
#include <charconv>
#include <limits>

namespace {

ORVO_LOGGER("CMRPCClient")

OrvoSubscribe makeSubscribe(OrvoSubscribeType::Enum type, const CMPath& path, bool subscribe)
{
    return OrvoSubscribe().setPath(path).setType(type).setSubscribe(subscribe);
}

} // namespace

CMRPCClient::CMRPCClient(QObject* parent, const QString& name, const QString& remoteName)
    : CMRPCSocket(parent, name, remoteName, nullptr)
{
    m_reconnectTimer.setSingleShot(true);
    m_reconnectTimer.setInterval(OrvoRPCSocketReconnectIntervalMs());
    orvoConnect(this, SIGNAL(sendRequestPrivate(OrvoRequest,const CMVoidReply &)), this,
                             SLOT(on_sendRequest_private(OrvoRequest,const CMVoidReply &)));
    orvoConnect(this, SIGNAL(subscribePathPrivate(const OrvoSubscribe &)), this,
                             SLOT(on_subscribePath_private(const OrvoSubscribe &)));
    orvoConnect(&m_reconnectTimer, SIGNAL(timeout()), this, SLOT(on_reconnectTimer_timeout()));
    on_reconnectTimer_timeout();
}

CMRPCClient::~CMRPCClient()
{
    cancelAllRequests();
}

void CMRPCClient::getDataRequest(const CMGetDataRequest& request)
{
    OrvoGetDataRequest wire;
    wire.setPath(request.path()).setRoles(request.roles());
    LOG4CPLUS_TRACE(logger(), logName() << ": getDataRequest: " << wire);
    startRequest(OrvoRequest().setGetDataRequest(wire), request.reply());
}

void CMRPCClient::setDataRequest(const CMSetDataRequest& request)
{
    OrvoSetDataRequest wire;
    wire.setPath(request.path()).setRole(request.role()).setValue(request.value());
    LOG4CPLUS_TRACE(logger(), logName() << ": setDataRequest: " << wire);
    startRequest(OrvoRequest().setSetDataRequest(wire), request.reply());
}

void CMRPCClient::getRowsRequest(const CMGetRowsRequest& request)
{
    OrvoGetRowsRequest wire;
    wire.setPath(request.path()).setFromRow(request.fromRow()).setToRow(request.toRow());
    wire.setRowsVersion(request.rowsVersion()).setRoles(request.roles());
    LOG4CPLUS_TRACE(logger(), logName() << ": getRowsRequest: " << wire);
    startRequest(OrvoRequest().setGetRowsRequest(wire), request.reply());
}

void CMRPCClient::matchRowRequest(const CMMatchRowRequest& request)
{
    OrvoMatchRowsRequest wire;
    wire.setPath(request.path()).setFromRow(request.fromRow()).setRole(request.role()).setValue(request.value());
    wire.setMatchFlags(request.matchFlags()).setRowsVersion(request.rowsVersion());
    LOG4CPLUS_TRACE(logger(), logName() << ": matchRowRequest: " << wire);
    startRequest(OrvoRequest().setMatchRowsRequest(wire), request.reply());
}

void CMRPCClient::subscribeValuePath(const CMPath& path)
{
    subscribePath(OrvoSubscribeType::Value, path, true);
}

void CMRPCClient::subscribeDataPath(const CMPath& path)
{
    subscribePath(OrvoSubscribeType::Data, path, true);
}

void CMRPCClient::subscribeRowsPath(const CMPath& path)
{
    subscribePath(OrvoSubscribeType::Rows, path, true);
}

void CMRPCClient::unsubscribeValuePath(const CMPath& path)
{
    subscribePath(OrvoSubscribeType::Value, path, false);
}

void CMRPCClient::unsubscribeDataPath(const CMPath& path)
{
    subscribePath(OrvoSubscribeType::Data, path, false);
}

void CMRPCClient::unsubscribeRowsPath(const CMPath& path)
{
    subscribePath(OrvoSubscribeType::Rows, path, false);
}

void CMRPCClient::cancelAllRequests()
{
    LOG4CPLUS_INFO(logger(), logName() << ": Cancelling all requests");
    // The set as it stands: a caller may make its next request, which belongs to the next link, or destroy this.
    QHash<QString, CMRPCReplyWatcher*> open;
    open.swap(m_requests);
    QList<CMVoidReply> replies;
    for (const CMRPCReplyWatcher* watcher : qAsConst(open))
        replies.append(watcher->reply());
    for (const CMVoidReply& reply : qAsConst(replies))
        reply.cancel();
}

void CMRPCClient::sendPacket(const OrvoRPCPacket& packet)
{
    if (isConnected())
        CMRPCSocket::sendPacket(packet);
    else
        m_pendingPackets.append(packet);
}

void CMRPCClient::processReply(const OrvoReply& reply)
{
    LOG4CPLUS_TRACE(logger(), logName() << ": Reply received: " << reply);
    if (!reply.__contains(OrvoReply::Id())) {
        LOG4CPLUS_ERROR(logger(), logName() << ": Malformed reply received - no ID: " << reply);
        return;
    }
    CMRPCReplyWatcher* watcher = m_requests.take(reply.id());
    if (!watcher) {
        LOG4CPLUS_WARN(logger(), logName() << ": Reply for cancelled or non-existent request received: " << reply.id());
        return;
    }
    const CMVoidReply waiting = watcher->reply();
    if (reply.__contains(OrvoReply::Value()))
        waiting.toVariantReply().setValue(reply.value());
    else if (reply.__contains(OrvoReply::Error()))
        waiting.setError(cmErrorFromOrvoError(reply.error()));
    else
        LOG4CPLUS_ERROR(logger(), logName() << ": Unknown reply format: " << reply);
}

void CMRPCClient::processChange(const OrvoChangeNotification& change)
{
    LOG4CPLUS_TRACE(logger(), logName() << ": Change received: " << change);
    if (change.__contains(OrvoChangeNotification::ValueChanged())) {
        const OrvoValueChangeNotification notification = change.valueChanged();
        emit valueChanged(notification.path(), notification.value());
    } else if (change.__contains(OrvoChangeNotification::DataChanged())) {
        emit dataChanged(change.dataChanged().path());
    } else if (change.__contains(OrvoChangeNotification::RowsChanged())) {
        const OrvoRowsChangeNotification notification = change.rowsChanged();
        emit rowsChanged(notification.path(), notification.changes().toTyped(), notification.version(),
                         notification.oldVersion());
    } else {
        LOG4CPLUS_ERROR(logger(), logName() << ": Discarding unknown change notification: " << change);
    }
}

void CMRPCClient::startRequest(OrvoRequest& request, const CMVoidReply& reply)
{
    // Not the signal in the own thread: its copy of the record would be written apart for the id.
    if (thread() != QThread::currentThread()) {
        emit sendRequestPrivate(request, reply);
        return;
    }
    request.setId(nextRequestId());
    sendRequest(request);
    auto* watcher = new CMRPCReplyWatcher(request, reply, this);
    m_requests.insert(request.id(), watcher);
    reply.addWatcher(watcher);
}

/// The name and a counter, in one allocation.
QString CMRPCClient::nextRequestId()
{
    std::array<char, std::numeric_limits<int>::digits10 + 2> digits;
    const char* const end = std::to_chars(digits.begin(), digits.end(), m_version.next()).ptr;
    return name() % QLatin1Char(':') % QLatin1String(digits.data(), int(end - digits.data()));
}

void CMRPCClient::on_sendRequest_private(OrvoRequest request, const CMVoidReply& reply)
{
    startRequest(request, reply);
}

void CMRPCClient::requestEnded(const QString& requestId, const CMVoidReply&)
{
    if (!m_requests.take(requestId))
        return;
    LOG4CPLUS_DEBUG(logger(), logName() << ": Request finished locally, cancelling: " << requestId);
    sendRequest(OrvoRequest().setId(requestId).setCancel(true));
}

void CMRPCClient::subscribePath(OrvoSubscribeType::Enum type, const CMPath& path, bool subscribe)
{
    const OrvoSubscribe wire = makeSubscribe(type, path, subscribe);
    LOG4CPLUS_DEBUG(logger(), logName() << ": subscribe: " << wire);
    emit subscribePathPrivate(wire);
}

QSet<CMPath>* CMRPCClient::pathsOf(OrvoSubscribeType::Enum type)
{
    switch (type) {
    case OrvoSubscribeType::Value:
        return &m_valuePaths;
    case OrvoSubscribeType::Data:
        return &m_dataPaths;
    case OrvoSubscribeType::Rows:
        return &m_rowsPaths;
    }
    return nullptr;
}

void CMRPCClient::on_subscribePath_private(const OrvoSubscribe& subscribe)
{
    const CMPath path = subscribe.path();
    QSet<CMPath>* paths = pathsOf(subscribe.type());
    if (!paths) {
        LOG4CPLUS_ERROR(logger(), logName() << ": Invalid subscribe type: " << path);
    } else if (subscribe.subscribe()) {
        if (paths->contains(path)) {
            LOG4CPLUS_WARN(logger(), logName() << ": Path already subscribed: " << path);
            return;
        }
        paths->insert(path);
        sendSubscribe(subscribe);
    } else {
        if (!paths->remove(path)) {
            LOG4CPLUS_WARN(logger(), logName() << ": Can't unsubscribe path that is not subscribed: " << path);
            return;
        }
        if (subscribe.type() == OrvoSubscribeType::Data)
            m_dataPathsToRenew.remove(path);
        else if (subscribe.type() == OrvoSubscribeType::Rows)
            m_rowsPathsToRenew.remove(path);
        sendSubscribe(subscribe);
    }
}

void CMRPCClient::on_socket_error(QLocalSocket::LocalSocketError error)
{
    // Failed attempts to connect are expected and come ten times a second.
    if (socket()->state() != QLocalSocket::ConnectingState)
        CMRPCSocket::on_socket_error(error);
}

void CMRPCClient::on_reconnectTimer_timeout()
{
    if (isConnected())
        return;
    const QString path = socketPathFromPrefix(remoteName());
    LOG4CPLUS_DEBUG(logger(), logName() << ": [re]connecting to " << path);
    m_reconnectTimer.start();
    // An attempt that still hangs is given up for the new one.
    if (socket()->state() != QLocalSocket::UnconnectedState)
        socket()->abort();
    socket()->connectToServer(path, QIODevice::ReadWrite);
}

void CMRPCClient::on_socket_connected()
{
    LOG4CPLUS_INFO(logger(), logName() << ": Connected");
    m_reconnectTimer.stop();
    const QPointer<CMRPCClient> alive(this);
    while (!m_pendingPackets.isEmpty() && isConnected()) {
        sendPacket(m_pendingPackets.takeFirst());
        if (!alive)
            return;
    }
    emit connectedChanged(true);
}

void CMRPCClient::on_socket_disconnected()
{
    LOG4CPLUS_INFO(logger(), logName() << ": Disconnected");
    const QPointer<CMRPCClient> alive(this);
    forgetReceived();
    cancelAllRequests();
    if (!alive)
        return;

    // What was subscribed is known from the sets; packets of the old link would subscribe a second time.
    for (int i = m_pendingPackets.size() - 1; i >= 0; --i)
        if (m_pendingPackets.at(i).__contains(OrvoRPCPacket::Subscribe()))
            m_pendingPackets.removeAt(i);

    const QSet<CMPath> valuePaths = m_valuePaths;
    for (const CMPath& path : valuePaths) {
        sendSubscribe(makeSubscribe(OrvoSubscribeType::Value, path, true));
        readValueAgain(path);
    }
    m_dataPathsToRenew = m_dataPaths;
    m_rowsPathsToRenew = m_rowsPaths;
    const QSet<CMPath> dataPaths = m_dataPaths;
    for (const CMPath& path : dataPaths) {
        if (!m_dataPathsToRenew.remove(path))
            continue;
        sendSubscribe(makeSubscribe(OrvoSubscribeType::Data, path, true));
        emit dataChanged(path);
        if (!alive)
            return;
    }
    const QSet<CMPath> rowsPaths = m_rowsPathsToRenew;
    for (const CMPath& path : rowsPaths) {
        if (!m_rowsPathsToRenew.remove(path))
            continue;
        sendSubscribe(makeSubscribe(OrvoSubscribeType::Rows, path, true));
        emit rowsChanged(path, QStringList(CMSubscribe::RowsChangeReset()), -1, -1);
        if (!alive)
            return;
    }
    // Not here: what is written to the socket inside its own disconnected() is lost.
    QMetaObject::invokeMethod(this, "on_reconnectTimer_timeout", Qt::QueuedConnection);
    emit connectedChanged(false);
}

void CMRPCClient::readValueAgain(const CMPath& path)
{
    auto* data = new CMGetDataRequest::Data;
    data->path = path;
    data->roles = QStringList{OrvoRoles::Value()};
    const CMGetDataRequest request(data);
    const QPointer<CMRPCClient> client(this);
    request.reply().onSuccess([client, path](const QVariantList& values) {
        if (!client)
            return;
        if (values.size() != 1) {
            LOG4CPLUS_ERROR(logger(), client->logName() << ": Invalid response to GetDataRequest for path: " << path
                                                        << "; expected 1 result, got " << values.size());
            return;
        }
        emit client->valueChanged(path, values.first());
    });
    getDataRequest(request);
}
