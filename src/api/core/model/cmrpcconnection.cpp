#include "core/model/cmrpcconnection.h"

#include "core/model/cmabstractworker.h"
#include "core/model/cmrequest.h"
#include "core/model/cmroot.h"
#include "core/model/cmrpcserver.h"
#include "core/orvoLog_p.h"

namespace {

ORVO_LOGGER("CMRPCConnection")

const char* const valueSlot = SLOT(on_subscribe_valueChanged(const CMPath &, const QVariant &));
const char* const dataSlot = SLOT(on_subscribe_dataChanged(const CMPath &));
const char* const rowsSlot = SLOT(on_subscribe_rowsChanged(const CMPath &, const QStringList &, int, int));

QStringList toStringList(const QVariantList& list)
{
    QStringList strings;
    strings.reserve(list.size());
    for (const QVariant& item : list)
        strings.append(item.toString());
    return strings;
}

CMRequest fromWire(const OrvoGetDataRequest& wire)
{
    auto* data = new CMGetDataRequest::Data;
    data->path = wire.path();
    data->roles = toStringList(wire.roles());
    return CMGetDataRequest(data);
}

CMRequest fromWire(const OrvoSetDataRequest& wire)
{
    auto* data = new CMSetDataRequest::Data;
    data->path = wire.path();
    data->role = wire.role();
    data->value = wire.value();
    return CMSetDataRequest(data);
}

CMRequest fromWire(const OrvoGetRowsRequest& wire)
{
    auto* data = new CMGetRowsRequest::Data;
    data->path = wire.path();
    data->fromRow = wire.fromRow();
    data->toRow = wire.toRow();
    data->rowsVersion = wire.rowsVersion();
    data->roles = toStringList(wire.roles());
    return CMGetRowsRequest(data);
}

CMRequest fromWire(const OrvoMatchRowsRequest& wire)
{
    auto* data = new CMMatchRowRequest::Data;
    data->path = wire.path();
    data->fromRow = wire.fromRow();
    data->role = wire.role();
    data->value = wire.value();
    data->matchFlags = wire.matchFlags();
    data->rowsVersion = wire.rowsVersion();
    return CMMatchRowRequest(data);
}

/// Null when it is none of the four kinds.
CMRequest requestFromWire(const OrvoRequest& request)
{
    if (request.__contains(OrvoRequest::GetDataRequest()))
        return fromWire(request.getDataRequest());
    if (request.__contains(OrvoRequest::SetDataRequest()))
        return fromWire(request.setDataRequest());
    if (request.__contains(OrvoRequest::GetRowsRequest()))
        return fromWire(request.getRowsRequest());
    if (request.__contains(OrvoRequest::MatchRowsRequest()))
        return fromWire(request.matchRowsRequest());
    return CMRequest();
}

} // namespace

CMRPCConnection::CMRPCConnection(CMRPCServer* server, const QString& name, QLocalSocket* socket)
    : CMRPCSocket(server, name, QString(), socket)
{}

CMRPCConnection::~CMRPCConnection()
{
    LOG4CPLUS_INFO(logger(), logName() << ": Cancelling all requests");
    while (!m_watchers.isEmpty()) {
        const CMVoidReply reply = m_watchers.take(m_watchers.cbegin().key())->reply();
        reply.cancel();
    }
}

void CMRPCConnection::sendPacket(const OrvoRPCPacket& packet)
{
    if (socket()->state() == QLocalSocket::ConnectedState)
        CMRPCSocket::sendPacket(packet);
}

void CMRPCConnection::processRequest(const OrvoRequest& request)
{
    if (!request.__contains(OrvoRequest::Id())) {
        LOG4CPLUS_ERROR(logger(), logName() << ": Malformed request received - no ID: " << request);
        return;
    }
    LOG4CPLUS_TRACE(logger(), logName() << ": Request received: " << request);
    const CMRequest built = requestFromWire(request);
    if (!built.isNull()) {
        const CMVoidReply reply = built.reply();
        auto* watcher = new CMRPCReplyWatcher(request, reply, this);
        m_watchers.insert(request.id(), watcher);
        reply.addWatcher(watcher);
        CMRoot()->request(built);
    } else if (request.cancel()) {
        cancelRequest(request.id());
    } else {
        LOG4CPLUS_ERROR(logger(), logName() << ": Discarding unknown request: " << request);
    }
}

void CMRPCConnection::cancelRequest(const QString& id)
{
    // Taken out first, so that the end of the reply finds nothing and sends nothing.
    CMRPCReplyWatcher* watcher = m_watchers.take(id);
    if (!watcher) {
        LOG4CPLUS_WARN(logger(), logName() << ": Cancel for already finished or non-existent request received: " << id);
        return;
    }
    const CMVoidReply reply = watcher->reply();
    reply.cancel();
}

void CMRPCConnection::requestEnded(const QString& replyId, const CMVoidReply& reply)
{
    if (!m_watchers.take(replyId))
        return;
    LOG4CPLUS_TRACE(logger(), logName() << ": Reply finished: " << replyId);
    OrvoReply wire;
    wire.setId(replyId);
    const CMError error = reply.error();
    if (error.contains(CMError::Name()))
        wire.setError(orvoErrorFromCMError(error));
    else
        wire.setValue(reply.toVariantReply().value());
    sendReply(wire);
}

void CMRPCConnection::processSubscribe(const OrvoSubscribe& subscribe)
{
    LOG4CPLUS_DEBUG(logger(), logName() << ": Subscribe received: " << subscribe);
    const CMPath path = subscribe.path();
    const bool on = subscribe.subscribe();
    switch (subscribe.type()) {
    case OrvoSubscribeType::Value:
        on ? CMRoot()->connectValueChange(path, this, valueSlot)
           : CMRoot()->disconnectValueChange(path, this, valueSlot);
        break;
    case OrvoSubscribeType::Data:
        on ? CMRoot()->connectDataChange(path, this, dataSlot) : CMRoot()->disconnectDataChange(path, this, dataSlot);
        break;
    case OrvoSubscribeType::Rows:
        on ? CMRoot()->connectRowsChange(path, this, rowsSlot) : CMRoot()->disconnectRowsChange(path, this, rowsSlot);
        break;
    }
}

void CMRPCConnection::on_subscribe_valueChanged(const CMPath& path, const QVariant& value)
{
    LOG4CPLUS_TRACE(logger(), logName() << ": Value changed: " << path);
    OrvoValueChangeNotification notification;
    notification.setPath(path).setValue(value);
    sendChange(OrvoChangeNotification().setValueChanged(notification));
}

void CMRPCConnection::on_subscribe_dataChanged(const CMPath& path)
{
    LOG4CPLUS_TRACE(logger(), logName() << ": Data changed: " << path);
    sendChange(OrvoChangeNotification().setDataChanged(OrvoDataChangeNotification().setPath(path)));
}

void CMRPCConnection::on_subscribe_rowsChanged(const CMPath& path, const QStringList& changes, int version,
                                               int oldVersion)
{
    LOG4CPLUS_TRACE(logger(), logName() << ": Rows changed: " << path);
    OrvoRowsChangeNotification notification;
    notification.setPath(path).setChanges(changes).setVersion(version).setOldVersion(oldVersion);
    sendChange(OrvoChangeNotification().setRowsChanged(notification));
}

void CMRPCConnection::on_socket_disconnected()
{
    LOG4CPLUS_INFO(logger(), logName() << ": Client disconnected");
    deleteLater();
}
