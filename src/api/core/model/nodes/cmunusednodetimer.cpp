#include "core/model/nodes/cmunusednodetimer.h"

#include "core/model/nodes/cmnode.h"
#include "core/model/nodes/cmnodelocker.h"
#include "core/orvo.h"
#include "core/orvoLog_p.h"

#include <QPointer>

#include <algorithm>

namespace {

ORVO_LOGGER("CMUnusedNodeTimer")

} // namespace

CMUnusedNodeTimer::CMUnusedNodeTimer(CMNode* node, int interval)
{
    setSingleShot(true);
    // The others may go off by a twentieth of the interval too early.
    setTimerType(Qt::PreciseTimer);
    setInterval(interval);
    orvoConnect(this, SIGNAL(timeout()), this, SLOT(on_timeout()));
    if (node)
        addNode(node);
    on_node_pathRemoved();
}

CMUnusedNodeTimer::~CMUnusedNodeTimer() = default;

void CMUnusedNodeTimer::addNode(CMNode* node)
{
    orvoConnect(node, SIGNAL(pathAdded(CMAbstractWorker::ChangeType,CMPath)), this, SLOT(on_node_pathAdded()));
    orvoConnect(node, SIGNAL(pathRemoved(CMAbstractWorker::ChangeType,CMPath)), this, SLOT(on_node_pathRemoved()));
    orvoConnect(node, SIGNAL(deletedLater()), this, SLOT(on_node_deletedLater()));
    m_nodes.append(QExplicitlySharedDataPointer<CMNode>(node));
}

void CMUnusedNodeTimer::on_node_pathAdded()
{
    // What another thread tells comes late: its subscriber may have left again.
    whenUnlocked(&CMUnusedNodeTimer::stopIfUsed);
}

void CMUnusedNodeTimer::on_node_pathRemoved()
{
    whenUnlocked(&CMUnusedNodeTimer::startIfUnused);
}

bool CMUnusedNodeTimer::isUnused() const
{
    return std::all_of(m_nodes.cbegin(), m_nodes.cend(), [](const auto& node) {
        return node->valuePaths().isEmpty() && node->dataPaths().isEmpty() && node->rowsPaths().isEmpty();
    });
}

void CMUnusedNodeTimer::whenUnlocked(void (CMUnusedNodeTimer::*member)())
{
    // The node that tells is locked here, and the others must not be locked under it.
    CMNodeLocker::whenUnlocked([timer = QPointer<CMUnusedNodeTimer>(this), member] {
        if (timer)
            (timer->*member)();
    });
}

void CMUnusedNodeTimer::startIfUnused()
{
    if (isUnused())
        start();
}

void CMUnusedNodeTimer::stopIfUsed()
{
    if (!isUnused())
        stop();
}

void CMUnusedNodeTimer::on_node_deletedLater()
{
    stop();
    QObject::deleteLater();
}

void CMUnusedNodeTimer::on_timeout()
{
    // A subscriber in another thread may have come while the time ran out; with its end the time begins anew.
    if (!isUnused())
        return;
    const auto nodes = m_nodes;
    for (const auto& node : nodes) {
        LOG4CPLUS_INFO(logger(), "CMUnusedNodeTimer::on_timeout() deleting node at path " << node->path());
        node->deleteLater();
    }
}
