// The link: a serving process takes any bytes of a client, in pieces, and what they ask for.

#include "fuzz.h"

#include "core/model/cmmetatypes.h"
#include "core/model/cmnodesworker.h"
#include "core/model/cmroot.h"
#include "core/model/cmrpcconnection.h"
#include "core/model/cmrpcserver.h"
#include "core/model/nodes/cmcontainernode.h"
#include "core/model/nodes/cmvaluenode.h"
#include "records/orvoconstants.h"
#include "records/orvovalue.h"

#include <QCoreApplication>
#include <QFile>
#include <QLocalSocket>
#include <QPointer>

#include <algorithm>
#include <log4cplus/logger.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

/// A process with a small tree.
class Service
{
public:
    Service() : m_application(m_argc, m_argv), m_worker(arguments(), QStringLiteral("fuzz"))
    {
        log4cplus::Logger::getRoot().setLogLevel(log4cplus::OFF_LOG_LEVEL);
        orvoRegisterMetaTypes();
        CMRoot_setInstance(&m_worker);
        CMValueNode* const value = CMValueNode::create(m_worker.nodes(), m_worker.addPrefix(QStringLiteral("a")));
        value->setValue(OrvoValue().setI32_(5));
        CMContainerNode::create(m_worker.nodes(), m_worker.addPrefix(QStringLiteral("b")));
        const QString name = QStringLiteral("fuzz-%1").arg(getpid());
        m_server.reset(new CMRPCServer(nullptr, name));
        // Clients come by a pair of sockets; nothing stays behind on the disk.
        QFile::remove(CMRPCSocket::socketPathFromPrefix(name));
    }

    /// The bytes arrive in pieces, then the client is gone.
    void take(const char* bytes, size_t size, size_t piece)
    {
        int ends[2];
        FUZZ_CHECK(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0);
        auto* const socket = new QLocalSocket;
        FUZZ_CHECK(socket->setSocketDescriptor(ends[0]));
        const QPointer<CMRPCConnection> connection(new CMRPCConnection(m_server.get(), QStringLiteral("fuzz"), socket));
        while (size > 0) {
            const size_t part = std::min(size, piece);
            // A reader that has closed leaves the rest.
            if (send(ends[1], bytes, part, MSG_NOSIGNAL) != ssize_t(part))
                break;
            bytes += part;
            size -= part;
            turn();
        }
        close(ends[1]);
        turn();
        delete connection;
        turn();
    }

private:
    static QHash<QString, QVariant> arguments() { return {{OrvoWorkerArguments::Prefix(), QStringLiteral("fuzz:")}}; }

    static void turn()
    {
        QCoreApplication::processEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    int m_argc = 1;
    char m_name[5] = "fuzz";
    char* m_argv[2] = {m_name, nullptr};
    QCoreApplication m_application;
    CMNodesWorker m_worker;
    std::unique_ptr<CMRPCServer> m_server;
};

} // namespace

/// The first byte is the size of the pieces in which the others arrive; 0 is all at once.
int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    // Taken down by nobody: the process ends at any input.
    static Service* const service = new Service;
    const size_t piece = data[0] ? std::max<size_t>(data[0], size / 64) : size;
    service->take(reinterpret_cast<const char*>(data + 1), size - 1, piece);
    return 0;
}
