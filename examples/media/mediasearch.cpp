#include "mediasearch.h"

#include "medialibrary.h"
#include "searchresults.h"

#include "core/model/cmnodes.h"

MediaSearch::MediaSearch(CMNodesWorker* worker, const MediaLibrary* library)
    : m_query(CMQueryNode::create(worker->nodes(), worker->addPrefix(QStringLiteral("search"))))
{
    m_query->setTitle(TrString("Search"));
    m_query->setDescription(TrString("Finds tracks by words of their title, artist and album"));
    const CMPath results = worker->addPrefix(QStringLiteral("results"));
    m_query->setQueryPath(results);
    CMTempNodeFactory* factory = CMTempNodeFactory::create(
        worker->nodes(), results, true, [library](CMNodes* nodes, const CMPath& path, const CMPath::Params& params) {
            return SearchResults::create(nodes, path, library, params.value(CMQueryNode::Query()));
        });
    factory->setTitle(TrString("Results"));
}

CMPath MediaSearch::path() const
{
    return m_query->path();
}
