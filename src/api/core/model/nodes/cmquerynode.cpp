#include "core/model/nodes/cmquerynode.h"

#include "core/model/cmrequest.h"

CMQueryNode::CMQueryNode(const CMPath& path) : CMValueNode(path), m_queryPath(path), m_query(Query()) {}

CMQueryNode* CMQueryNode::create(CMNodes* nodes, const CMPath& path)
{
    auto* node = new CMQueryNode(path);
    node->setNodes(nodes);
    return node;
}

bool CMQueryNode::setDataRequest(const CMSetDataRequest& request)
{
    if (request.path().equals(path(), CMPath::WithoutParams) && request.role() == OrvoRoles::Query())
        return queryRequest(request);
    return CMValueNode::setDataRequest(request);
}

QVariant CMQueryNode::getRoleData(const QString& role, const Params& params)
{
    if (role == OrvoRoles::Type())
        return OrvoRolesType::Query();
    if (role == OrvoRoles::AutoCompletePath())
        return m_autoCompletePath.__variant();
    return CMValueNode::getRoleData(role, params);
}

bool CMQueryNode::queryRequest(const CMSetDataRequest& request)
{
    const OrvoValue value(request.value().toHash());
    setValue(value);
    CMPath answer;
    {
        const CMNodeLocker lock(mutex());
        answer = m_queryPath;
        answer.addParam(m_query, value.string_());
    }
    request.reply().setValue(answer.__variant());
    return true;
}

QString CMQueryNode::query() const
{
    return locked(m_query);
}

void CMQueryNode::setQuery(const QString& query)
{
    const CMNodeLocker lock(mutex());
    m_query = query;
}

CMPath CMQueryNode::queryPath() const
{
    return locked(m_queryPath);
}

void CMQueryNode::setQueryPath(const CMPath& queryPath)
{
    const CMNodeLocker lock(mutex());
    m_queryPath = queryPath;
}

CMPath CMQueryNode::autoCompletePath() const
{
    return locked(m_autoCompletePath);
}

void CMQueryNode::setAutoCompletePath(const CMPath& autoCompletePath)
{
    assign(m_autoCompletePath, autoCompletePath);
}
