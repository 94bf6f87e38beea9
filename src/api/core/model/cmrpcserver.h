#pragma once

#include "core/model/cmrpcconnection.h"

#include <QObject>

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
