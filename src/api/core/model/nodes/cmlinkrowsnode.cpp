#include "core/model/nodes/cmlinkrowsnode.h"

#include "core/model/cmrequest.h"
#include "core/model/cmroot.h"
#include "core/model/cmsubscribe.h"
#include "core/orvoLog_p.h"
#include "records/orvorowsroles.h"

namespace {

ORVO_LOGGER("CMLinkRowsNode")

const char* const rowsSlot = SLOT(on_watchedRowsChanged(CMPath,QStringList,int,int));

} // namespace

CMLinkRowsNode::CMLinkRowsNode(const CMPath& path, const CMPath& linkPath)
    : CMContainerNode(path), m_linkPath(linkPath), m_watchedPath(linkPath)
{}

CMLinkRowsNode* CMLinkRowsNode::create(CMNodes* nodes, const CMPath& path, const CMPath& linkPath)
{
    auto* node = new CMLinkRowsNode(path, linkPath);
    node->setNodes(nodes);
    return node;
}

bool CMLinkRowsNode::getRowsRequest(const CMGetRowsRequest& request)
{
    const CMNodeLocker lock(mutex());
    if (!request.path().equals(path(), CMPath::WithParams))
        return false;
    if (m_linkPath.isEmpty()) {
        request.reply().setValue(OrvoRowsRoles().setRoles(getDataRoles(Params())));
        return true;
    }
    CMRoot()->getRows(m_linkPath, request.fromRow(), request.toRow(), request.rowsVersion(), request.roles(),
                      request.reply());
    return true;
}

void CMLinkRowsNode::rowsPathAdd(const CMPath& path)
{
    const CMNodeLocker lock(mutex());
    if (!path.equals(this->path(), CMPath::WithParams)) {
        LOG4CPLUS_ERROR(logger(), "Unexpected CMLinkRowsNode::rowsPathAdd " << path);
        return;
    }
    // The hub may tell of a path that is known already.
    const bool isNew = rowsPaths().isEmpty();
    CMNode::rowsPathAdd(path);
    if (isNew && !m_watchedPath.isEmpty())
        watch(CMAbstractWorker::RowsChange, m_watchedPath, rowsSlot);
}

void CMLinkRowsNode::rowsPathRemove(const CMPath& path)
{
    const CMNodeLocker lock(mutex());
    if (!path.equals(this->path(), CMPath::WithParams)) {
        LOG4CPLUS_ERROR(logger(), "Unexpected CMLinkRowsNode::rowsPathRemove " << path);
        return;
    }
    const bool wasKnown = !rowsPaths().isEmpty();
    CMNode::rowsPathRemove(path);
    if (wasKnown && !m_watchedPath.isEmpty())
        unwatch(CMAbstractWorker::RowsChange, m_watchedPath, rowsSlot);
}

CMPath CMLinkRowsNode::linkPath() const
{
    return locked(m_linkPath);
}

void CMLinkRowsNode::setLinkPath(const CMPath& linkPath)
{
    {
        const CMNodeLocker lock(mutex());
        if (m_watchedPath.equals(linkPath, CMPath::WithParams))
            return;
        if (!rowsPaths().isEmpty()) {
            if (!m_watchedPath.isEmpty())
                unwatch(CMAbstractWorker::RowsChange, m_watchedPath, rowsSlot);
            if (!linkPath.isEmpty())
                watch(CMAbstractWorker::RowsChange, linkPath, rowsSlot);
        }
        m_watchedPath = linkPath;
    }
    // The new target is followed from here on, so a reader that is told to read anew misses no change of it. What it
    // has told so far is dropped, since it is not yet the link.
    const CMNodeLocker lock(mutex());
    m_linkPath = m_watchedPath;
    subscribe()->rowsChanged(path(), CMSubscribe::RowsChangeReset(), -1, -1);
}

void CMLinkRowsNode::on_watchedRowsChanged(CMPath changePath, QStringList changes, int version, int oldVersion)
{
    const CMNodeLocker lock(mutex());
    if (changePath.equals(m_linkPath, CMPath::WithParams))
        subscribe()->rowsChanged(path(), changes, version, oldVersion);
    else
        LOG4CPLUS_WARN(logger(), "Unexpected CMLinkRowsNode::on_watchedRowsChanged " << changePath);
}
