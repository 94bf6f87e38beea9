#pragma once

// The serving side: the registry, its worker and all node classes.

#include "core/model/cmabstractworker.h"
#include "core/model/cmnodesworker.h"
#include "core/model/cmpath.h"
#include "core/model/nodes/cmactivatenode.h"
#include "core/model/nodes/cmcontainernode.h"
#include "core/model/nodes/cmlinknode.h"
#include "core/model/nodes/cmlinkrowsnode.h"
#include "core/model/nodes/cmlistrowsnode.h"
#include "core/model/nodes/cmnode.h"
#include "core/model/nodes/cmnodelocker.h"
#include "core/model/nodes/cmquerynode.h"
#include "core/model/nodes/cmradiobuttonnode.h"
#include "core/model/nodes/cmredirectrowsnode.h"
#include "core/model/nodes/cmtempnodefactory.h"
#include "core/model/nodes/cmuinode.h"
#include "core/model/nodes/cmunusednodetimer.h"
#include "core/model/nodes/cmvaluenode.h"
#include "core/model/nodes/cmvariantnode.h"

#include <QExplicitlySharedDataPointer>
#include <QHash>
#include <QList>
#include <QMap>
#include <QMutex>
#include <QObject>

class CMSubscribe;

/**
 * The registry of the nodes that one worker serves: finds the node for a request and hands subscriptions to nodes.
 *
 * Child of its worker; its references own the nodes. The hub must outlive it: its destructor takes all nodes out and
 * so tells all subscribers. Any thread may call it. The registry's lock is never held while a node runs.
 */
class CMNodes : public QObject
{
    Q_OBJECT

public:
    using NodePointer = QExplicitlySharedDataPointer<CMNode>;

    /// Neither the hub nor the worker is owned; the worker may be null, its prefix then binds no node.
    CMNodes(const QString& id, CMSubscribe* subscribe, CMAbstractWorker* worker);
    ~CMNodes() override;

    QMutex* mutex() const { return &m_mutex; }
    CMSubscribe* subscribe() const { return m_subscribe; }
    CMAbstractWorker* worker() const { return m_worker; }

    /// One node per path, within the worker's prefix; anything else stops the process.
    void nodeInsert(CMNode* node);
    void nodeRemove(CMNode* node);
    bool nodeContains(CMNode* node) const;
    /**
     * The nodes that serve the path: the one at it or, by plain text, at the head of it, if that is its neighbour in
     * the order of paths. With nodes at "a/b" and "a/b/c" nobody serves "a/b/d", and "a/b" serves "a/bc".
     */
    QList<NodePointer> nodesAtPath(const CMPath& path) const;
    /// Whether a node stands at exactly this path; never for a path with parameters.
    bool isNodeAtPath(const CMPath& path) const;
    /// In the order of paths.
    QList<NodePointer> allNodes() const;

    /// Offers the request to the nodes at its path; false when none took it.
    bool request(CMRequest request);
    bool getDataRequest(const CMGetDataRequest& request);
    bool getRowsRequest(const CMGetRowsRequest& request);
    bool matchRowRequest(const CMMatchRowRequest& request);
    bool setDataRequest(const CMSetDataRequest& request);

    virtual void connectChange(CMAbstractWorker::ChangeType type, const CMPath& path, QObject* receiver,
                               const char* method, Qt::ConnectionType connectionType = Qt::AutoConnection);
    virtual void disconnectChange(CMAbstractWorker::ChangeType type, const CMPath& path, QObject* receiver,
                                  const char* method);

    /// Calls the member on each node that serves the path, under the node's lock.
    void pathAddRemove(const CMPath& path, void (CMNode::*member)(const CMPath&));

private slots:
    void valuePathAdded(const CMPath& path);
    void valuePathRemoved(const CMPath& path);
    void dataPathAdded(const CMPath& path);
    void dataPathRemoved(const CMPath& path);
    void rowsPathAdded(const CMPath& path);
    void rowsPathRemoved(const CMPath& path);

private:
    mutable QMutex m_mutex{QMutex::Recursive};
    QMap<CMPath, QList<NodePointer>> m_nodes;
    /// The same lists by the path's text: most paths that are asked for are a node's own.
    QHash<QString, QList<NodePointer>> m_nodesByText;
    CMSubscribe* const m_subscribe;
    CMAbstractWorker* const m_worker;
};
