#include "tracknode.h"

#include "core/model/cmglobal.h"
#include "core/model/cmnodes.h"
#include "core/model/cmrequest.h"
#include "core/model/cmsubscribe.h"

TrackNode::TrackNode(const CMPath& path, Find find) : CMNode(path), m_find(std::move(find)) {}

TrackNode* TrackNode::create(CMNodes* nodes, const CMPath& path, Find find)
{
    auto* node = new TrackNode(path, std::move(find));
    node->setNodes(nodes);
    return node;
}

bool TrackNode::getDataRequest(const CMGetDataRequest& request)
{
    QString id;
    if (!request.path().startsWith(trackPath(QString()), &id))
        return false;
    const OrvoRoles track = m_find(id);
    if (track.isEmpty())
        return false;
    request.reply().setValue(CMGlobal::itemRolesToList(request.roles(), track));
    return true;
}

CMPath TrackNode::trackPath(const QString& id) const
{
    return path() + QStringLiteral("/") + id;
}

void TrackNode::trackChanged(const QString& id)
{
    const CMPath changed = trackPath(id);
    for (const CMPath& watched : dataPaths())
        if (watched.equals(changed, CMPath::WithoutParams))
            subscribe()->dataChanged(watched);
}
