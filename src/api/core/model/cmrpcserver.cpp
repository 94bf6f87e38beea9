#include "core/model/cmrpcserver.h"

#include "core/orvo.h"
#include "core/orvoLog_p.h"

#include <QLocalServer>

namespace {

ORVO_LOGGER("CMRPCServer")

} // namespace

CMRPCServer::CMRPCServer(QObject* parent, const QString& name)
    : QObject(parent), m_server(new QLocalServer(this)), m_name(name)
{
    m_server->setSocketOptions(QLocalServer::WorldAccessOption);
    orvoConnect(m_server, SIGNAL(newConnection()), this, SLOT(on_server_newConnection()));
    const QString path = CMRPCSocket::socketPathFromPrefix(m_name);
    LOG4CPLUS_INFO(logger(), "Trying to bind to " << path);
    if (!m_server->listen(path)) {
        if (!QLocalServer::removeServer(path))
            LOG4CPLUS_ERROR(logger(), "Unable to remove RPC Server: " << path);
        if (!m_server->listen(path)) {
            LOG4CPLUS_FATAL(logger(), "Unable to bind RPC Server: " << path);
            qt_assert_x("Unable to bind RPC Server", path.toUtf8().constData(), __FILE__, __LINE__);
        }
    }
    LOG4CPLUS_INFO(logger(), "RPCServer listening on " << path);
}

CMRPCServer::~CMRPCServer() = default;

void CMRPCServer::on_server_newConnection()
{
    while (QLocalSocket* socket = m_server->nextPendingConnection())
        new CMRPCConnection(this, m_name, socket);
}
