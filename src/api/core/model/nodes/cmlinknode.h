#pragma once

#include "core/model/nodes/cmuinode.h"

/**
 * Shows a node or a subtree that lies elsewhere, also in another process, at a path of its own: requests and
 * subscriptions for this path, and for all paths below it, go to the target on CMRoot().
 *
 * A title and an icon that are set on the link stand in for the target's; no other role of its own is seen. While the
 * target's service is away, requests fail with the error of the target's worker and subscriptions wait in silence.
 *
 * Requests run in the thread of the asker and changes in that of the target's hub; neither takes this node's mutex. A
 * chain of links may be of any length but must not lead back to its start.
 */
class CMLinkNode : public CMUINode
{
    Q_OBJECT

public:
    /// A link to its own path stops the process.
    CMLinkNode(const CMPath& path, const CMPath& linkPath);
    static CMLinkNode* create(CMNodes* nodes, const CMPath& path, const CMPath& linkPath);

    bool getDataRequest(const CMGetDataRequest& request) override;
    bool getRowsRequest(const CMGetRowsRequest& request) override;
    bool setDataRequest(const CMSetDataRequest& request) override;
    void valuePathAdd(const CMPath& path) override;
    void valuePathRemove(const CMPath& path) override;
    void dataPathAdd(const CMPath& path) override;
    void dataPathRemove(const CMPath& path) override;
    void rowsPathAdd(const CMPath& path) override;
    void rowsPathRemove(const CMPath& path) override;

    CMPath linkPath() const { return m_linkPath; }

private slots:
    void watchedValueChanged(CMPath path, QVariant value);
    void watchedDataChanged(CMPath path);
    void watchedRowsChanged(CMPath path, QStringList changes, int version, int oldVersion);

private:
    class GetDataWatcher;

    CMPath target(const CMPath& path) const { return translatePath(m_linkPath, path); }

    const CMPath m_linkPath;
};
