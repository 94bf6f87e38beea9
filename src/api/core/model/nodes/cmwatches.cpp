#include "core/model/nodes/cmwatches_p.h"

#include "core/model/cmroot.h"
#include "core/model/nodes/cmnode.h"
#include "core/model/nodes/cmnodelocker.h"

namespace {

void connectChange(CMAbstractWorker::ChangeType type, const CMPath& path, QObject* receiver, const char* method)
{
    switch (type) {
    case CMAbstractWorker::ValueChange:
        return CMRoot()->connectValueChange(path, receiver, method, Qt::DirectConnection);
    case CMAbstractWorker::DataChange:
        return CMRoot()->connectDataChange(path, receiver, method, Qt::DirectConnection);
    case CMAbstractWorker::RowsChange:
        return CMRoot()->connectRowsChange(path, receiver, method, Qt::DirectConnection);
    }
}

void disconnectChange(CMAbstractWorker::ChangeType type, const CMPath& path, QObject* receiver, const char* method)
{
    switch (type) {
    case CMAbstractWorker::ValueChange:
        return CMRoot()->disconnectValueChange(path, receiver, method);
    case CMAbstractWorker::DataChange:
        return CMRoot()->disconnectDataChange(path, receiver, method);
    case CMAbstractWorker::RowsChange:
        return CMRoot()->disconnectRowsChange(path, receiver, method);
    }
}

} // namespace

void CMWatches::add(CMAbstractWorker::ChangeType type, const CMPath& path, const char* method)
{
    const CMNodeLocker lock(m_node->mutex());
    const Watch watch{type, path, method};
    ++m_counts[watch].wanted;
    settleLater(watch);
}

void CMWatches::remove(CMAbstractWorker::ChangeType type, const CMPath& path, const char* method)
{
    const CMNodeLocker lock(m_node->mutex());
    const Watch watch{type, path, method};
    const auto it = m_counts.find(watch);
    if (it == m_counts.end() || it->wanted == 0)
        return;
    --it->wanted;
    settleLater(watch);
}

void CMWatches::settleLater(const Watch& watch)
{
    // A registered node may leave meanwhile. One that is not yet registered has no references to count.
    const QExplicitlySharedDataPointer<CMNode> kept(m_node->nodes() ? m_node : nullptr);
    CMNodeLocker::whenUnlocked([this, kept, watch] {
        make(watch);
        dropSurplus(watch);
    });
}

void CMWatches::make(const Watch& watch)
{
    {
        const CMNodeLocker lock(m_node->mutex());
        const Count count = m_counts.value(watch);
        if (count.made >= count.wanted)
            return;
    }
    connectChange(watch.type, watch.path, m_node, watch.method);
    const CMNodeLocker lock(m_node->mutex());
    ++m_counts[watch].made;
}

void CMWatches::dropSurplus(const Watch& watch)
{
    {
        const CMNodeLocker lock(m_node->mutex());
        const auto it = m_counts.find(watch);
        if (it == m_counts.end())
            return;
        if (it->made <= it->wanted) {
            if (it->wanted == 0)
                m_counts.erase(it);
            return;
        }
        if (--it->made == 0 && it->wanted == 0)
            m_counts.erase(it);
    }
    disconnectChange(watch.type, watch.path, m_node, watch.method);
}
