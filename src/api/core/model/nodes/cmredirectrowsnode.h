#pragma once

#include "core/model/nodes/cmcontainernode.h"

/**
 * A container that has its rows elsewhere and says so: a rows request is answered with the path to ask instead, which
 * carries the parameters of the request. Nothing is forwarded.
 */
class CMRedirectRowsNode : public CMContainerNode
{
    Q_OBJECT

public:
    CMRedirectRowsNode(const CMPath& path, const CMPath& linkPath);
    static CMRedirectRowsNode* create(CMNodes* nodes, const CMPath& path, const CMPath& linkPath);

    bool getRowsRequest(const CMGetRowsRequest& request) override;

private:
    const CMPath m_linkPath;
};
