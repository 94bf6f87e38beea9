#include "services.h"

#include "cmremoteworker.h"
#include "core/model/cmpath.h"
#include "core/model/cmrpcclient.h"
#include "orvohttpgateway.h"

#include <QCoreApplication>
#include <QRegularExpression>

#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

/// The prefix becomes part of a file name.
bool isName(const QString& prefix)
{
    static const QRegularExpression name(QStringLiteral("\\A[A-Za-z0-9_][A-Za-z0-9_.-]{0,63}\\z"));
    return name.match(prefix).hasMatch();
}

/// Whether somebody listens at the socket of the service. A local socket answers at once.
bool listens(const QString& prefix)
{
    const QByteArray path = CMRPCClient::socketPathFromPrefix(prefix).toLocal8Bit();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (size_t(path.size()) >= sizeof address.sun_path)
        return false;
    std::memcpy(address.sun_path, path.constData(), size_t(path.size()));
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    // One that has no room for another client right now listens, too.
    const bool there = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 || errno == EAGAIN;
    close(fd);
    return there;
}

} // namespace

Services::Services()
{
    m_worker.connectUnknown(QStringLiteral("orvo-gateway-%1").arg(QCoreApplication::applicationPid()));
}

CMError Services::check(const CMPath& path) const
{
    const QString prefix = path.prefix();
    if (!isName(prefix))
        return CMAbstractWorker::createErrorInvalidPath(path);
    const auto* remote = qobject_cast<CMRemoteWorker*>(m_worker.worker(prefix));
    if ((remote && remote->client()->isConnected()) || listens(prefix))
        return CMError();
    return CMError(OrvoHttpGateway::ErrorUnreachable(), QStringLiteral("The service '%1' is not there").arg(prefix),
                   CMError::DefaultTitle());
}
