#pragma once

#include "core/model/nodes/cmcontainernode.h"

/**
 * A container with display data of its own and the rows of another one, which may change. Without a link it has no
 * rows. It serves its rows at its plain path only: a request with parameters is not taken.
 *
 * Works on CMRoot(). Any thread; a rows request is handed on under the node's mutex, so setLinkPath() waits for a root
 * that answers at once.
 */
class CMLinkRowsNode : public CMContainerNode
{
    Q_OBJECT

public:
    CMLinkRowsNode(const CMPath& path, const CMPath& linkPath);
    static CMLinkRowsNode* create(CMNodes* nodes, const CMPath& path, const CMPath& linkPath);

    bool getRowsRequest(const CMGetRowsRequest& request) override;
    void rowsPathAdd(const CMPath& path) override;
    void rowsPathRemove(const CMPath& path) override;

    CMPath linkPath() const;
    /// Readers are told to read anew. The empty path is no link.
    void setLinkPath(const CMPath& linkPath);

private slots:
    void on_watchedRowsChanged(CMPath changePath, QStringList changes, int version, int oldVersion);

private:
    CMPath m_linkPath;
    /// What is followed while there are subscribers: ahead of m_linkPath while that changes.
    CMPath m_watchedPath;
};
