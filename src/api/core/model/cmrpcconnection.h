#pragma once

#include "core/model/cmpath.h"
#include "core/model/cmrpccommon.h"

#include <QHash>

class CMRPCServer;

/**
 * One client of the server: turns its requests into requests on CMRoot(), returns their replies and forwards changes.
 *
 * Child of the server, in its thread; lives until its socket disconnects. Nothing of a client survives its link here:
 * open requests are cancelled, and the hub drops the subscriptions with the object.
 */
class CMRPCConnection : public CMRPCSocket
{
    Q_OBJECT

public:
    CMRPCConnection(CMRPCServer* server, const QString& name, QLocalSocket* socket);
    ~CMRPCConnection() override;

    /// Drops what comes between the end of the link and the end of this object.
    void sendPacket(const OrvoRPCPacket& packet) override;
    void processRequest(const OrvoRequest& request) override;
    void processSubscribe(const OrvoSubscribe& subscribe) override;

protected:
    void requestEnded(const QString& replyId, const CMVoidReply& reply) override;

protected slots:
    void on_socket_disconnected() override;

private slots:
    void on_subscribe_valueChanged(const CMPath& path, const QVariant& value);
    void on_subscribe_dataChanged(const CMPath& path);
    void on_subscribe_rowsChanged(const CMPath& path, const QStringList& changes, int version, int oldVersion);

private:
    void cancelRequest(const QString& id);

    /// Open requests by their ids. Each watcher belongs to itself.
    QHash<QString, CMRPCReplyWatcher*> m_watchers;
};
