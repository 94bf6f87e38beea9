#pragma once

#include "core/model/nodes/cmcontainernode.h"

#include <QSharedPointer>

#include <functional>

class ThreadSynchronizer;

/**
 * A container that makes a node for each rows request and sends the asker to it: a view that exists only while a
 * reader looks at it, made from the parameters of the request. The nodes stand at the factory's path with a number
 * behind it, from 1 on; no number is used twice.
 *
 * A node is made in the thread of the request, or, when the factory is synchronized, in the thread that made the
 * factory; the request is then answered from there, and fails once that thread has ended. Either thread needs an event
 * loop: a node that nobody watches leaves 10,000 ms after its making or after its last subscriber, by a
 * CMUnusedNodeTimer of that thread.
 */
class CMTempNodeFactory : public CMContainerNode
{
    Q_OBJECT

public:
    /**
     * Makes and registers the node at the path, for the parameters of the request. Called with no lock held, in several
     * threads at once unless the factory is synchronized. Null for no node: the asker then finds the path invalid.
     */
    using CreateNode = std::function<CMNode*(CMNodes*, CMPath, Params)>;

    CMTempNodeFactory(const CMPath& path, bool synchronized, CreateNode createNode);
    static CMTempNodeFactory* create(CMNodes* nodes, const CMPath& path, bool synchronized, CreateNode createNode);

    bool getRowsRequest(const CMGetRowsRequest& request) override;
    /// Makes the node with this number in the present thread and answers with its path.
    void createAndRedirect(int id, const CMGetRowsRequest& request);

private:
    const CreateNode m_createNode;
    /// How many requests there have been.
    int m_lastId = 0;
    /// Null unless the factory is synchronized.
    const QSharedPointer<ThreadSynchronizer> m_synchronizer;
};
