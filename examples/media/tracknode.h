#pragma once

#include "core/model/nodes/cmnode.h"
#include "records/orvoroles.h"

#include <functional>

/**
 * Serves all paths below its own: "<path>/<id>" answers with the roles of the track of that id, so that a row of the
 * library can be read and watched by itself. One node for all tracks, however many there are.
 *
 * Owned by the registry. Find() runs in the thread that asks, which is the service's.
 */
class TrackNode : public CMNode
{
    Q_OBJECT

public:
    /// Gives an empty record for an unknown id.
    using Find = std::function<OrvoRoles(const QString& id)>;

    TrackNode(const CMPath& path, Find find);
    static TrackNode* create(CMNodes* nodes, const CMPath& path, Find find);

    bool getDataRequest(const CMGetDataRequest& request) override;

    CMPath trackPath(const QString& id) const;
    /// Tells those who watch the track that it changed or went.
    void trackChanged(const QString& id);

private:
    const Find m_find;
};
