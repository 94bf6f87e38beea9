#pragma once

#include <QExplicitlySharedDataPointer>
#include <QList>
#include <QTimer>

class CMNode;

/**
 * Takes nodes out when nobody has watched any of them for the interval, which begins with the making of the timer and
 * anew with each last subscriber that leaves. All its nodes leave together, and then the timer deletes itself; so it
 * does when one of them is taken out by someone else, and the others then stay until they are, too. Made on the heap,
 * without an owner.
 *
 * It keeps a reference on its nodes. Lives in the thread that makes it, which needs an event loop; the nodes may be
 * watched and taken out in any thread.
 */
class CMUnusedNodeTimer : public QTimer
{
    Q_OBJECT

public:
    /// The interval is in milliseconds; the node may be null.
    CMUnusedNodeTimer(CMNode* node, int interval);
    ~CMUnusedNodeTimer() override;

    void addNode(CMNode* node);

private slots:
    void on_node_pathAdded();
    void on_node_pathRemoved();
    void on_node_deletedLater();
    void on_timeout();

private:
    /// With no lock held: the nodes may belong to different locks.
    bool isUnused() const;
    void whenUnlocked(void (CMUnusedNodeTimer::*member)());
    void startIfUnused();
    void stopIfUsed();

    QList<QExplicitlySharedDataPointer<CMNode>> m_nodes;
};
