#pragma once

#include "core/model/cmrpccommon.h"

#include <QHash>

class CMPath;
class QLocalServer;

/**
 * Makes the process's root worker reachable under a service name. Listens from its construction on, on a socket that
 * everybody may connect to, and owns one connection per client. Lives in the thread that made it; CMRoot() must be set.
 *
 * A socket file that a dead process left behind is taken over; a name that cannot be bound stops the process.
 */
class CMRPCServer : public QObject
{
    Q_OBJECT

public:
    CMRPCServer(QObject* parent, const QString& name);
    ~CMRPCServer() override;

private slots:
    void on_server_newConnection();

private:
    QLocalServer* const m_server;
    const QString m_name;
};

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

protected:
    /// Drops what comes between the end of the link and the end of this object.
    void sendPacket(const OrvoRPCPacket& packet) override;
    void processRequest(const OrvoRequest& request) override;
    void processSubscribe(const OrvoSubscribe& subscribe) override;
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
