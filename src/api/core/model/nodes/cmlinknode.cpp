#include "core/model/nodes/cmlinknode.h"

#include "core/model/cmreplywatcher.h"
#include "core/model/cmrequest.h"
#include "core/model/cmroot.h"
#include "core/model/cmsubscribe.h"
#include "core/orvoLog_p.h"

#include <QExplicitlySharedDataPointer>

#include <atomic>

namespace {

ORVO_LOGGER("CMLinkNode")

const char* const valueSlot = SLOT(watchedValueChanged(CMPath,QVariant));
const char* const dataSlot = SLOT(watchedDataChanged(CMPath));
const char* const rowsSlot = SLOT(watchedRowsChanged(CMPath,QStringList,int,int));

} // namespace

/**
 * Joins an asker's request with the forwarded one: whichever reply ends first ends the other. Both tell it of their
 * end, perhaps at the same time in two threads; the first one does the work, and it goes with the second.
 */
class CMLinkNode::GetDataWatcher : public CMReplyWatcher
{
public:
    GetDataWatcher(CMLinkNode* node, const CMGetDataRequest& request, const CMGetDataRequest& forwardedRequest)
        : m_node(node), m_request(request), m_forwardedRequest(forwardedRequest)
    {}

    void finished(const CMVoidReply& reply) override
    {
        if (!m_joined.exchange(true))
            join(reply.error());
        if (--m_open == 0)
            delete this;
    }

private:
    /// Leaves both replies finished.
    void join(CMError error)
    {
        // The asker's reply may have been given a value by someone else, and then the target is still to answer.
        QVariantList values;
        if (!error.isError()) {
            values = m_forwardedRequest.reply().value();
            error = m_forwardedRequest.reply().error();
        }
        if (error.isError()) {
            m_request.reply().setError(error);
            m_forwardedRequest.reply().setError(error);
            return;
        }
        const QStringList& roles = m_request.roles();
        Q_ASSERT(roles.size() == values.size());
        for (int i = 0; i < roles.size(); ++i) {
            if (roles.at(i) == OrvoRoles::Path()) {
                values[i] = m_request.path().__variant();
            } else if (roles.at(i) == OrvoRoles::Title()) {
                const QString title = m_node->title().toString();
                if (!title.isNull())
                    values[i] = title;
            } else if (roles.at(i) == OrvoRoles::Icon()) {
                const QString icon = m_node->icon();
                if (!icon.isNull())
                    values[i] = icon;
            }
        }
        m_request.reply().setValue(values);
    }

    const QExplicitlySharedDataPointer<CMLinkNode> m_node;
    const CMGetDataRequest m_request;
    const CMGetDataRequest m_forwardedRequest;
    std::atomic<bool> m_joined{false};
    std::atomic<int> m_open{2};
};

CMLinkNode::CMLinkNode(const CMPath& path, const CMPath& linkPath) : CMUINode(path), m_linkPath(linkPath)
{
    Q_ASSERT(!path.equals(linkPath, CMPath::WithParams));
}

CMLinkNode* CMLinkNode::create(CMNodes* nodes, const CMPath& path, const CMPath& linkPath)
{
    auto* node = new CMLinkNode(path, linkPath);
    node->setNodes(nodes);
    return node;
}

bool CMLinkNode::getDataRequest(const CMGetDataRequest& request)
{
    auto* data = new CMGetDataRequest::Data;
    data->path = target(request.path());
    data->roles = request.roles();
    const CMGetDataRequest forwarded(data);
    auto* watcher = new GetDataWatcher(this, request, forwarded);
    request.reply().addWatcher(watcher);
    forwarded.reply().addWatcher(watcher);
    CMRoot()->getDataRequest(forwarded);
    return true;
}

bool CMLinkNode::getRowsRequest(const CMGetRowsRequest& request)
{
    CMRoot()->getRows(target(request.path()), request.fromRow(), request.toRow(), request.rowsVersion(),
                      request.roles(), request.reply());
    return true;
}

bool CMLinkNode::setDataRequest(const CMSetDataRequest& request)
{
    CMRoot()->setData(target(request.path()), request.role(), request.value(), request.reply());
    return true;
}

void CMLinkNode::valuePathAdd(const CMPath& path)
{
    const CMNodeLocker lock(mutex());
    // The hub may tell of a path that is known already.
    const bool isNew = !valuePaths().contains(path);
    CMNode::valuePathAdd(path);
    if (isNew)
        watch(CMAbstractWorker::ValueChange, target(path), valueSlot);
}

void CMLinkNode::valuePathRemove(const CMPath& path)
{
    const CMNodeLocker lock(mutex());
    const bool wasKnown = valuePaths().contains(path);
    CMNode::valuePathRemove(path);
    if (wasKnown)
        unwatch(CMAbstractWorker::ValueChange, target(path), valueSlot);
}

void CMLinkNode::dataPathAdd(const CMPath& path)
{
    const CMNodeLocker lock(mutex());
    const bool isNew = !dataPaths().contains(path);
    CMNode::dataPathAdd(path);
    if (isNew)
        watch(CMAbstractWorker::DataChange, target(path), dataSlot);
}

void CMLinkNode::dataPathRemove(const CMPath& path)
{
    const CMNodeLocker lock(mutex());
    const bool wasKnown = dataPaths().contains(path);
    CMNode::dataPathRemove(path);
    if (wasKnown)
        unwatch(CMAbstractWorker::DataChange, target(path), dataSlot);
}

void CMLinkNode::rowsPathAdd(const CMPath& path)
{
    const CMNodeLocker lock(mutex());
    const bool isNew = !rowsPaths().contains(path);
    CMNode::rowsPathAdd(path);
    if (isNew)
        watch(CMAbstractWorker::RowsChange, target(path), rowsSlot);
}

void CMLinkNode::rowsPathRemove(const CMPath& path)
{
    const CMNodeLocker lock(mutex());
    const bool wasKnown = rowsPaths().contains(path);
    CMNode::rowsPathRemove(path);
    if (wasKnown)
        unwatch(CMAbstractWorker::RowsChange, target(path), rowsSlot);
}

void CMLinkNode::watchedValueChanged(CMPath path, QVariant value)
{
    LOG4CPLUS_TRACE(logger(), "watched value changed: " << path);
    CMPath own;
    if (untranslatePath(m_linkPath, path, own))
        subscribe()->valueChanged(own, value);
}

void CMLinkNode::watchedDataChanged(CMPath path)
{
    LOG4CPLUS_TRACE(logger(), "watched data changed: " << path);
    CMPath own;
    if (untranslatePath(m_linkPath, path, own))
        subscribe()->dataChanged(own);
}

void CMLinkNode::watchedRowsChanged(CMPath path, QStringList changes, int version, int oldVersion)
{
    LOG4CPLUS_TRACE(logger(), "watched rows changed: " << path);
    CMPath own;
    if (untranslatePath(m_linkPath, path, own))
        subscribe()->rowsChanged(own, changes, version, oldVersion);
}
