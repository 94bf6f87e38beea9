#include "core/model/nodes/cmredirectrowsnode.h"

#include "core/model/cmrequest.h"
#include "records/orvorowsroles.h"

CMRedirectRowsNode::CMRedirectRowsNode(const CMPath& path, const CMPath& linkPath)
    : CMContainerNode(path), m_linkPath(linkPath)
{}

CMRedirectRowsNode* CMRedirectRowsNode::create(CMNodes* nodes, const CMPath& path, const CMPath& linkPath)
{
    auto* node = new CMRedirectRowsNode(path, linkPath);
    node->setNodes(nodes);
    return node;
}

bool CMRedirectRowsNode::getRowsRequest(const CMGetRowsRequest& request)
{
    if (!request.path().equals(path(), CMPath::WithoutParams))
        return false;
    const CMPath rowsPath = CMPath(m_linkPath).addParams(request.path().params());
    request.reply().setValue(OrvoRowsRoles().setRowsRedirect(rowsPath));
    return true;
}
