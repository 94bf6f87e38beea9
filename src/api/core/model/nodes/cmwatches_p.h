#pragma once

#include "core/model/cmabstractworker.h"
#include "core/model/cmpath.h"

#include <QHash>

class CMNode;

/**
 * The subscriptions of one node at others, on CMRoot(). Part of its node and guarded by the node's mutex.
 *
 * What is wanted is noted here under the mutex; it is made and dropped without it, by the thread that asked and before
 * that thread's outermost call into a node returns. Threads may overtake each other on the way, so each of them looks
 * at what is wanted once it has subscribed, and takes back what is too much: nothing is missing when an add returns,
 * and nothing is left over when all have returned.
 */
class CMWatches
{
public:
    explicit CMWatches(CMNode* node) : m_node(node) {}

    /// One subscription more. The method is a slot of the node, always given by the same pointer.
    void add(CMAbstractWorker::ChangeType type, const CMPath& path, const char* method);
    /// One less; without one, nothing.
    void remove(CMAbstractWorker::ChangeType type, const CMPath& path, const char* method);

private:
    struct Watch
    {
        CMAbstractWorker::ChangeType type;
        CMPath path;
        const char* method;

        friend bool operator==(const Watch& a, const Watch& b)
        {
            return a.type == b.type && a.method == b.method && a.path == b.path;
        }
        friend uint qHash(const Watch& watch) { return qHash(watch.path) ^ uint(watch.type); }
    };
    struct Count
    {
        int wanted = 0;
        int made = 0;
    };

    void settleLater(const Watch& watch);
    void make(const Watch& watch);
    void dropSurplus(const Watch& watch);

    CMNode* const m_node;
    QHash<Watch, Count> m_counts;
};
