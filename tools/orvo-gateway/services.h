#pragma once

#include "cmroutingworker.h"
#include "core/model/cmerror.h"

class CMPath;

/**
 * The services of the device, by the prefixes of their paths, and whether they are there.
 *
 * A link is made to what listens and to nothing else: whoever sends requests chooses the prefixes, and a link once made
 * stays and looks for its service for ever. For the main thread.
 */
class Services
{
public:
    Services();

    /// The root of this process.
    CMRoutingWorker* worker() { return &m_worker; }
    /// Whether the path's service is linked or listens. Does not block.
    CMError check(const CMPath& path) const;

private:
    CMRoutingWorker m_worker;
};
