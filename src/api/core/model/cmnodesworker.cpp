#include "core/model/cmnodesworker.h"

#include "core/model/cmnodes.h"
#include "core/model/cmrequest.h"
#include "core/model/cmsubscribe.h"

#include <utility>

CMNodesWorker::CMNodesWorker(const QHash<QString, QVariant>& arguments, const QString& id)
    : CMWorker(arguments, id), m_nodes(new CMNodes(id, subscribe(), this))
{}

CMNodesWorker::~CMNodesWorker()
{
    // As children they would go in the order of their making, the hub first. Whoever is told of the end may ask again.
    delete std::exchange(m_nodes, nullptr);
    subscribe()->deliver();
}

void CMNodesWorker::getDataRequest(const CMGetDataRequest& request)
{
    if (!m_nodes || !m_nodes->getDataRequest(request))
        CMWorker::getDataRequest(request);
}

void CMNodesWorker::getRowsRequest(const CMGetRowsRequest& request)
{
    if (!m_nodes || !m_nodes->getRowsRequest(request))
        CMWorker::getRowsRequest(request);
}

void CMNodesWorker::matchRowRequest(const CMMatchRowRequest& request)
{
    if (!m_nodes || !m_nodes->matchRowRequest(request))
        CMWorker::matchRowRequest(request);
}

void CMNodesWorker::setDataRequest(const CMSetDataRequest& request)
{
    if (!m_nodes || !m_nodes->setDataRequest(request))
        CMWorker::setDataRequest(request);
}

void CMNodesWorker::connectChange(CMAbstractWorker::ChangeType changeType, const CMPath& path, QObject* receiver,
                                  const char* method, Qt::ConnectionType type)
{
    if (m_nodes)
        m_nodes->connectChange(changeType, path, receiver, method, type);
}

void CMNodesWorker::disconnectChange(CMAbstractWorker::ChangeType changeType, const CMPath& path, QObject* receiver,
                                     const char* method)
{
    if (m_nodes)
        m_nodes->disconnectChange(changeType, path, receiver, method);
}
