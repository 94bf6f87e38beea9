#include "core/model/nodes/cmtempnodefactory.h"

#include "core/model/cmdatatransfer_p.h"
#include "core/model/cmrequest.h"
#include "core/model/nodes/cmunusednodetimer.h"
#include "core/orvo.h"
#include "records/orvorowsroles.h"

namespace {

constexpr int unusedMs = 10000;

} // namespace

CMTempNodeFactory::CMTempNodeFactory(const CMPath& path, bool synchronized, CreateNode createNode)
    : CMContainerNode(path),
      m_createNode(std::move(createNode)),
      m_synchronizer(synchronized
                         ? QSharedPointer<ThreadSynchronizer>(new ThreadSynchronizer, &ThreadSynchronizer::release)
                         : QSharedPointer<ThreadSynchronizer>())
{}

CMTempNodeFactory* CMTempNodeFactory::create(CMNodes* nodes, const CMPath& path, bool synchronized,
                                             CreateNode createNode)
{
    auto* node = new CMTempNodeFactory(path, synchronized, std::move(createNode));
    node->setNodes(nodes);
    return node;
}

bool CMTempNodeFactory::getRowsRequest(const CMGetRowsRequest& request)
{
    // A path below is that of a node which is not made yet or has left.
    if (!request.path().equals(path(), CMPath::WithoutParams))
        return false;
    CMNodeLocker lock(mutex());
    const int id = ++m_lastId;
    lock.unlock();
    if (!m_synchronizer) {
        createAndRedirect(id, request);
        return true;
    }
    const QExplicitlySharedDataPointer<CMTempNodeFactory> kept(this);
    const auto synchronizer = m_synchronizer;
    const bool isRunning =
        m_synchronizer->deliver([kept, synchronizer, id, request] { kept->createAndRedirect(id, request); });
    if (!isRunning)
        request.reply().setError(
            CMAbstractWorker::createErrorInternal(QStringLiteral("The thread that makes the nodes has ended")));
    return true;
}

void CMTempNodeFactory::createAndRedirect(int id, const CMGetRowsRequest& request)
{
    const CMPath newPath = path().appendSubpath(QString::number(id));
    CMNode* node = m_createNode(nodes(), newPath, request.path().params());
    auto* timer = new CMUnusedNodeTimer(node, unusedMs);
    // Without a node nobody would end it.
    if (!node)
        orvoConnect(timer, SIGNAL(timeout()), timer, SLOT(deleteLater()));
    request.reply().setValue(OrvoRowsRoles().setRowsRedirect(newPath));
}
