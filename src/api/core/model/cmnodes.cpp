#include "core/model/cmnodes.h"

#include "core/model/cmrequest.h"
#include "core/model/cmsubscribe.h"
#include "core/model/nodes/cmnodelocker.h"
#include "core/orvo.h"
#include "core/orvoLog_p.h"
#include "records/orvoconstants.h"

#include <QMutexLocker>

#include <algorithm>

namespace {

ORVO_LOGGER("CMNodes")

bool serves(const CMNodes::NodePointer& node, const CMPath& path)
{
    return !node->exactPathOnly() || node->path() == path;
}

} // namespace

CMNodes::CMNodes(const QString&, CMSubscribe* subscribe, CMAbstractWorker* worker)
    : QObject(worker), m_subscribe(subscribe), m_worker(worker)
{
    orvoConnect(subscribe, SIGNAL(valuePathAdded(const CMPath &)), this,
                                  SLOT(valuePathAdded(const CMPath &)), Qt::DirectConnection);
    orvoConnect(subscribe, SIGNAL(valuePathRemoved(const CMPath &)), this,
                                  SLOT(valuePathRemoved(const CMPath &)), Qt::DirectConnection);
    orvoConnect(subscribe, SIGNAL(dataPathAdded(const CMPath &)), this,
                                  SLOT(dataPathAdded(const CMPath &)), Qt::DirectConnection);
    orvoConnect(subscribe, SIGNAL(dataPathRemoved(const CMPath &)), this,
                                  SLOT(dataPathRemoved(const CMPath &)), Qt::DirectConnection);
    orvoConnect(subscribe, SIGNAL(rowsPathAdded(const CMPath &)), this,
                                  SLOT(rowsPathAdded(const CMPath &)), Qt::DirectConnection);
    orvoConnect(subscribe, SIGNAL(rowsPathRemoved(const CMPath &)), this,
                                  SLOT(rowsPathRemoved(const CMPath &)), Qt::DirectConnection);
}

CMNodes::~CMNodes()
{
    const QList<NodePointer> nodes = allNodes();
    for (const NodePointer& node : nodes)
        node->deleteLater();
}

void CMNodes::nodeInsert(CMNode* node)
{
    const QMutexLocker lock(&m_mutex);
    Q_ASSERT(!node->path().hasParams());
    if (m_worker) {
        const QString prefix = m_worker->arguments().value(OrvoWorker::Prefix()).toString();
        const QString path = node->path().toEncoded();
        if (!prefix.isEmpty() && !path.startsWith(prefix))
            qt_assert_x("CMNodes::nodeInsert",
                        QStringLiteral("%1 doesn't start with %2").arg(path, prefix).toUtf8().constData(), __FILE__,
                        __LINE__);
    }
    QList<NodePointer>& nodes = m_nodes[node->path()];
    if (!nodes.isEmpty())
        qt_assert_x("CMNodes::nodeInsert", "Cannot insert already existing node", __FILE__, __LINE__);
    nodes.append(NodePointer(node));
    m_nodesByText.insert(node->path().baseWithPrefix(), nodes);
}

void CMNodes::nodeRemove(CMNode* node)
{
    const QMutexLocker lock(&m_mutex);
    const auto it = m_nodes.find(node->path());
    if (it == m_nodes.end())
        return;
    it->removeOne(NodePointer(node));
    if (it->isEmpty()) {
        m_nodes.erase(it);
        m_nodesByText.remove(node->path().baseWithPrefix());
    } else {
        m_nodesByText.insert(node->path().baseWithPrefix(), *it);
    }
}

bool CMNodes::nodeContains(CMNode* node) const
{
    const QMutexLocker lock(&m_mutex);
    const auto it = m_nodes.constFind(node->path());
    // Compared by address: a reference taken in a node's destructor would destroy it again.
    return it != m_nodes.cend()
           && std::any_of(it->cbegin(), it->cend(), [node](const NodePointer& other) { return other.data() == node; });
}

QList<CMNodes::NodePointer> CMNodes::nodesAtPath(const CMPath& path) const
{
    const QMutexLocker lock(&m_mutex);
    // A node at the path itself serves it, whether or not it serves paths below.
    const auto exact = m_nodesByText.constFind(path.baseWithPrefix());
    if (exact != m_nodesByText.cend())
        return *exact;
    const CMPath plain = path.withoutParams();
    auto it = m_nodes.lowerBound(plain);
    if (it == m_nodes.cend() || it.key() != plain) {
        if (it == m_nodes.cbegin())
            return {};
        --it;
        if (!plain.startsWith(it.key()))
            return {};
    }
    // The registry's own list, shared, unless a node declines.
    if (std::all_of(it->cbegin(), it->cend(), [&](const NodePointer& node) { return serves(node, plain); }))
        return *it;
    QList<NodePointer> nodes;
    std::copy_if(it->cbegin(), it->cend(), std::back_inserter(nodes),
                 [&](const NodePointer& node) { return serves(node, plain); });
    return nodes;
}

bool CMNodes::isNodeAtPath(const CMPath& path) const
{
    const QList<NodePointer> nodes = nodesAtPath(path);
    return std::any_of(nodes.cbegin(), nodes.cend(), [&](const NodePointer& node) { return node->path() == path; });
}

QList<CMNodes::NodePointer> CMNodes::allNodes() const
{
    const QMutexLocker lock(&m_mutex);
    QList<NodePointer> nodes;
    for (const QList<NodePointer>& atPath : m_nodes)
        nodes += atPath;
    return nodes;
}

bool CMNodes::request(CMRequest request)
{
    const QList<NodePointer> nodes = nodesAtPath(request.path());
    return std::any_of(nodes.cbegin(), nodes.cend(), [&](const NodePointer& node) { return node->request(request); });
}

bool CMNodes::getDataRequest(const CMGetDataRequest& request)
{
    return this->request(request);
}

bool CMNodes::getRowsRequest(const CMGetRowsRequest& request)
{
    return this->request(request);
}

bool CMNodes::matchRowRequest(const CMMatchRowRequest& request)
{
    return this->request(request);
}

bool CMNodes::setDataRequest(const CMSetDataRequest& request)
{
    return this->request(request);
}

void CMNodes::connectChange(CMAbstractWorker::ChangeType type, const CMPath& path, QObject* receiver,
                            const char* method, Qt::ConnectionType connectionType)
{
    m_subscribe->connectChange(type, path, receiver, method, connectionType);
}

void CMNodes::disconnectChange(CMAbstractWorker::ChangeType type, const CMPath& path, QObject* receiver,
                               const char* method)
{
    m_subscribe->disconnectChange(type, path, receiver, method);
}

void CMNodes::pathAddRemove(const CMPath& path, void (CMNode::*member)(const CMPath&))
{
    const QList<NodePointer> nodes = nodesAtPath(path);
    for (const NodePointer& node : nodes) {
        const CMNodeLocker lock(node->mutex());
        if (!node->deleted())
            (node.data()->*member)(path);
    }
}

void CMNodes::valuePathAdded(const CMPath& path)
{
    LOG4CPLUS_TRACE(logger(), "value path added: " << path);
    pathAddRemove(path, &CMNode::valuePathAdd);
}

void CMNodes::valuePathRemoved(const CMPath& path)
{
    LOG4CPLUS_TRACE(logger(), "value path removed: " << path);
    pathAddRemove(path, &CMNode::valuePathRemove);
}

void CMNodes::dataPathAdded(const CMPath& path)
{
    LOG4CPLUS_TRACE(logger(), "data path added: " << path);
    pathAddRemove(path, &CMNode::dataPathAdd);
}

void CMNodes::dataPathRemoved(const CMPath& path)
{
    LOG4CPLUS_TRACE(logger(), "data path removed: " << path);
    pathAddRemove(path, &CMNode::dataPathRemove);
}

void CMNodes::rowsPathAdded(const CMPath& path)
{
    LOG4CPLUS_TRACE(logger(), "rows path added: " << path);
    pathAddRemove(path, &CMNode::rowsPathAdd);
}

void CMNodes::rowsPathRemoved(const CMPath& path)
{
    LOG4CPLUS_TRACE(logger(), "rows path removed: " << path);
    pathAddRemove(path, &CMNode::rowsPathRemove);
}
