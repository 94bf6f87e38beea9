#include "core/model/nodes/cmnode.h"

#include "core/model/cmnodes.h"
#include "core/model/cmrequest.h"
#include "core/model/cmsubscribe.h"
#include "core/model/nodes/cmnodelocker.h"
#include "core/orvo.h"
#include "core/orvoLog_p.h"
#include "records/orvovalue.h"

#include <QHash>

namespace {

ORVO_LOGGER("CMNode")

} // namespace

CMNode::CMNode(const CMPath& path) : m_path(path)
{
    Q_ASSERT(!path.hasParams());
}

CMNode::~CMNode()
{
    if (!m_nodes)
        return;
    // After deleteLater() the registry may have gone before the last reference.
    Q_ASSERT(m_deleted || !m_nodes->nodeContains(this));
    Q_ASSERT(deleted());
}

CMNode* CMNode::create(CMNodes* nodes, const CMPath& path)
{
    auto* node = new CMNode(path);
    node->setNodes(nodes);
    return node;
}

void CMNode::setNodes(CMNodes* nodes)
{
    m_nodes = nodes;
    nodes->nodeInsert(this);

    const auto catchUp = [this](const QList<CMPath>& subscribed, const char* kind, void (CMNode::*add)(const CMPath&)) {
        for (const CMPath& path : subscribed) {
            if (!path.equals(m_path, CMPath::WithoutParams))
                continue;
            LOG4CPLUS_TRACE(logger(), "adding already subscribed " << kind << " path " << path);
            (this->*add)(path);
        }
    };
    catchUp(subscribe()->valuePathsStartingWith(m_path), "value", &CMNode::valuePathAdd);
    catchUp(subscribe()->dataPathsStartingWith(m_path), "data", &CMNode::dataPathAdd);
    catchUp(subscribe()->rowsPathsStartingWith(m_path), "rows", &CMNode::rowsPathAdd);
}

void CMNode::deleteLater()
{
    // The registry's reference goes in here; the lock below must not outlive the node.
    const QExplicitlySharedDataPointer<CMNode> self(this);
    const CMNodeLocker lock(mutex());
    if (m_deleted)
        return;

    // Subscribers of a value are told of data and those of data of a value: both read again and find the node gone.
    const QSet<CMPath> valuePaths = m_valuePaths;
    for (const CMPath& path : valuePaths) {
        valuePathRemove(path);
        subscribe()->dataChanged(path);
    }
    Q_ASSERT(m_valuePaths.size() == 0); // NOLINT(readability-container-size-empty)
    const QSet<CMPath> dataPaths = m_dataPaths;
    for (const CMPath& path : dataPaths) {
        dataPathRemove(path);
        subscribe()->valueChanged(path, QVariant());
    }
    Q_ASSERT(m_dataPaths.size() == 0); // NOLINT(readability-container-size-empty)
    const QSet<CMPath> rowsPaths = m_rowsPaths;
    for (const CMPath& path : rowsPaths) {
        rowsPathRemove(path);
        subscribe()->rowsChanged(path, CMSubscribe::RowsChangeClose(), -1, -1);
    }
    Q_ASSERT(m_rowsPaths.size() == 0); // NOLINT(readability-container-size-empty)

    m_nodes->nodeRemove(this);
    m_deleted = true;
    emit deletedLater(this);
}

QMutex* CMNode::mutex() const
{
    return &m_mutex;
}

bool CMNode::request(CMRequest request)
{
    if (const auto getData = request_cast<CMGetDataRequest>(request); !getData.isNull())
        return getDataRequest(getData);
    if (const auto getRows = request_cast<CMGetRowsRequest>(request); !getRows.isNull())
        return getRowsRequest(getRows);
    if (const auto matchRow = request_cast<CMMatchRowRequest>(request); !matchRow.isNull())
        return matchRowRequest(matchRow);
    if (const auto setData = request_cast<CMSetDataRequest>(request); !setData.isNull())
        return setDataRequest(setData);
    return false;
}

bool CMNode::getDataRequest(const CMGetDataRequest&)
{
    return false;
}

bool CMNode::getRowsRequest(const CMGetRowsRequest&)
{
    return false;
}

bool CMNode::matchRowRequest(const CMMatchRowRequest&)
{
    return false;
}

bool CMNode::setDataRequest(const CMSetDataRequest&)
{
    return false;
}

void CMNode::valuePathAdd(const CMPath& path)
{
    CMNodeLocker lock(mutex());
    m_valuePaths.insert(path);
    lock.unlock();
    emit pathAdded(CMAbstractWorker::ValueChange, path);
}

void CMNode::valuePathRemove(const CMPath& path)
{
    CMNodeLocker lock(mutex());
    m_valuePaths.remove(path);
    lock.unlock();
    emit pathRemoved(CMAbstractWorker::ValueChange, path);
}

void CMNode::dataPathAdd(const CMPath& path)
{
    CMNodeLocker lock(mutex());
    m_dataPaths.insert(path);
    lock.unlock();
    emit pathAdded(CMAbstractWorker::DataChange, path);
    emit dataPathAdded(path);
}

void CMNode::dataPathRemove(const CMPath& path)
{
    CMNodeLocker lock(mutex());
    m_dataPaths.remove(path);
    lock.unlock();
    emit pathRemoved(CMAbstractWorker::DataChange, path);
    emit dataPathRemoved(path);
}

void CMNode::rowsPathAdd(const CMPath& path)
{
    CMNodeLocker lock(mutex());
    m_rowsPaths.insert(path);
    lock.unlock();
    emit pathAdded(CMAbstractWorker::RowsChange, path);
    emit rowsPathAdded(path);
}

void CMNode::rowsPathRemove(const CMPath& path)
{
    CMNodeLocker lock(mutex());
    m_rowsPaths.remove(path);
    lock.unlock();
    emit pathRemoved(CMAbstractWorker::RowsChange, path);
    emit rowsPathRemoved(path);
}

CMSubscribe* CMNode::subscribe() const
{
    return nodes()->subscribe();
}

bool CMNode::deleted() const
{
    const CMNodeLocker lock(mutex());
    return m_deleted;
}

qint64 CMNode::timestamp() const
{
    const CMNodeLocker lock(mutex());
    return m_timestamp;
}

QSet<CMPath> CMNode::valuePaths() const
{
    const CMNodeLocker lock(mutex());
    return m_valuePaths;
}

QSet<CMPath> CMNode::dataPaths() const
{
    const CMNodeLocker lock(mutex());
    return m_dataPaths;
}

QSet<CMPath> CMNode::rowsPaths() const
{
    const CMNodeLocker lock(mutex());
    return m_rowsPaths;
}

void CMNode::dataChanged()
{
    const CMNodeLocker lock(mutex());
    const QSet<CMPath> paths = m_dataPaths;
    for (const CMPath& path : paths)
        subscribe()->dataChanged(path);
    m_timestamp = QDateTime_currentMSecsSinceEpoch();
}

void CMNode::valueChanged(const QVariant& value)
{
    const CMNodeLocker lock(mutex());
    const QSet<CMPath> paths = m_valuePaths;
    for (const CMPath& path : paths)
        subscribe()->valueChanged(path, value);
}

void CMNode::valueChanged(const OrvoValue& value)
{
    valueChanged(value.__variant());
}

void CMNode::rowsChanged(const QString& change)
{
    rowsChanged(QStringList(change));
}

void CMNode::rowsChanged(const QStringList& changes)
{
    const CMNodeLocker lock(mutex());
    const QSet<CMPath> paths = m_rowsPaths;
    for (const CMPath& path : paths)
        subscribe()->rowsChanged(path, changes, -1, -1);
}

CMPath CMNode::translatePath(const CMPath& target, const CMPath& requestPath) const
{
    Q_ASSERT(requestPath.startsWith(path()));
    const QString rest = requestPath.base().mid(path().base().size());
    CMPath translated = target;
    translated.setBase(target.base() + rest);
    translated.addParams(requestPath.params());
    return translated;
}

bool CMNode::untranslatePath(const CMPath& linkPath, const CMPath& watchedPath, CMPath& out) const
{
    CMPath::Params params = watchedPath.params();
    const CMPath::Params linkParams = linkPath.params();
    for (auto it = linkParams.cbegin(); it != linkParams.cend(); ++it) {
        if (params.remove(it.key()) == 0) {
            LOG4CPLUS_WARN(logger(), "CMLinkNode::untranslatePath(" << watchedPath << "): cannot remove queries");
            return false;
        }
    }
    if (!watchedPath.startsWith(linkPath)) {
        LOG4CPLUS_WARN(logger(), "CMLinkNode::untranslatePath("
                                     << watchedPath << "): watched path does not start with linkPath:" << linkPath);
        return false;
    }
    const QString rest = watchedPath.base().mid(linkPath.base().size());
    out = path();
    out.setBase(path().base() + rest);
    out.addParams(params);
    return true;
}
