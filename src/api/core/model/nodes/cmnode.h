#pragma once

#include "core/model/cmabstractworker.h"
#include "core/model/cmpath.h"

#include <QExplicitlySharedDataPointer>
#include <QMutex>
#include <QObject>
#include <QSet>
#include <QSharedData>

class CMNodes;
class CMSubscribe;

/**
 * The base of all nodes: an object at one path that answers requests and reports changes.
 *
 * Life: made through a static create() of its class, which registers it; from then on the registry's reference keeps
 * it, never a QObject parent and never the caller. deleteLater() takes it out and tells its subscribers; the object
 * goes with the last reference, so a request that is being served keeps its node.
 *
 * Any thread may call a node; everything goes through mutex(), which an override may replace by a lock of the service
 * and which may be null. It is held ahead of the registry's and the hub's locks. Take it by a CMNodeLocker; nodes
 * that refer to others follow the rule told at CMUINode.
 *
 * A node never knows its subscribers, only the sets of paths that they watch, with the parameters that they used, and
 * works for watched paths only.
 */
class CMNode : public QObject, public QSharedData
{
    Q_OBJECT

public:
    /// The path has no parameters.
    explicit CMNode(const CMPath& path);
    ~CMNode() override;
    static CMNode* create(CMNodes* nodes, const CMPath& path);

    /// Takes the node out of the registry and tells its subscribers of the end. Does not destroy it here.
    virtual void deleteLater();
    /// Recursive, as a node may re-enter from its own change handling.
    virtual QMutex* mutex() const;

    // Requests. True: the node has taken it and owes the reply a finish. False: not served, the reply is untouched.
    virtual bool request(CMRequest request);
    virtual bool getDataRequest(const CMGetDataRequest& request);
    virtual bool getRowsRequest(const CMGetRowsRequest& request);
    virtual bool matchRowRequest(const CMMatchRowRequest& request);
    virtual bool setDataRequest(const CMSetDataRequest& request);

    // The first subscriber of a path came, the last one left. Called with mutex() held; an override calls the base.
    virtual void valuePathAdd(const CMPath& path);
    virtual void valuePathRemove(const CMPath& path);
    virtual void dataPathAdd(const CMPath& path);
    virtual void dataPathRemove(const CMPath& path);
    virtual void rowsPathAdd(const CMPath& path);
    virtual void rowsPathRemove(const CMPath& path);

    /// Registers the node: it exists for clients from here on, and hears of the subscriptions that wait for it.
    void setNodes(CMNodes* nodes);
    CMNodes* nodes() const { return m_nodes; }
    CMSubscribe* subscribe() const;
    CMPath path() const { return m_path; }
    /// Whether the registry hands the node requests for its own path only, not for paths below it.
    bool exactPathOnly() const { return m_exactPathOnly; }
    bool deleted() const;
    /// Milliseconds since the epoch of the last dataChanged(); 0 before the first.
    qint64 timestamp() const;
    QSet<CMPath> valuePaths() const;
    QSet<CMPath> dataPaths() const;
    QSet<CMPath> rowsPaths() const;

    // Reports to the subscribers of the watched paths.
    void dataChanged();
    void valueChanged(const QVariant& value);
    void valueChanged(const OrvoValue& value);
    void rowsChanged(const QString& change);
    void rowsChanged(const QStringList& changes);

    /// Maps a request path at or below this node to the target, with the request's parameters over the target's.
    CMPath translatePath(const CMPath& target, const CMPath& requestPath) const;
    /// The reverse, for a path that was watched at linkPath; false, with a log line, when it does not belong there.
    bool untranslatePath(const CMPath& linkPath, const CMPath& watchedPath, CMPath& out) const;

signals:
    void pathAdded(CMAbstractWorker::ChangeType changeType, const CMPath& path = CMPath());
    void pathRemoved(CMAbstractWorker::ChangeType changeType, const CMPath& path = CMPath());
    void dataPathAdded(const CMPath& path = CMPath());
    void dataPathRemoved(const CMPath& path = CMPath());
    void rowsPathAdded(const CMPath& path = CMPath());
    void rowsPathRemoved(const CMPath& path = CMPath());
    void deletedLater(QObject* obj = nullptr);

protected:
    bool m_exactPathOnly = false;

private:
    mutable QMutex m_mutex{QMutex::Recursive};
    CMNodes* m_nodes = nullptr;
    const CMPath m_path;
    bool m_deleted = false;
    QSet<CMPath> m_valuePaths;
    QSet<CMPath> m_dataPaths;
    QSet<CMPath> m_rowsPaths;
    qint64 m_timestamp = 0;
};
