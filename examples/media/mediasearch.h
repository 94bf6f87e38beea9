#pragma once

#include "core/model/cmpath.h"

class CMNodesWorker;
class CMQueryNode;
class MediaLibrary;

/**
 * The search over the library: "search" takes a text and answers with a path at "results", which makes a list of its
 * own for each reader that asks there for rows, and sends the reader to it. A list leaves 10 s after its last watcher.
 *
 * To be made in the thread of the library. The registry of the worker owns the nodes.
 */
class MediaSearch
{
public:
    MediaSearch(CMNodesWorker* worker, const MediaLibrary* library);

    CMPath path() const;

private:
    CMQueryNode* m_query;
};
