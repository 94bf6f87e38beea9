#include "searchresults.h"

#include "foldedtext.h"
#include "medialibrary.h"

#include <algorithm>

SearchResults::SearchResults(const CMPath& path, const MediaLibrary* library, const QString& text)
    : CMListRowsNode(path), m_library(library), m_words(foldedText(text.simplified()).split(' ', Qt::SkipEmptyParts))
{
    setSortOrder({OrvoRoles::SortKey(), OrvoRoles::Id()});
    connect(library, &MediaLibrary::rowShown, this, &SearchResults::on_rowShown);
    connect(library, &MediaLibrary::rowHidden, this, &SearchResults::on_rowHidden);
    connect(library, &MediaLibrary::sortedAnew, this, &SearchResults::fill);
}

SearchResults* SearchResults::create(CMNodes* nodes, const CMPath& path, const MediaLibrary* library,
                                     const QString& text)
{
    auto* node = new SearchResults(path, library, text);
    node->setNodes(nodes);
    node->setTitle(TrString("Results"));
    node->setDescription(TrString(text));
    node->fill();
    return node;
}

void SearchResults::fill()
{
    rowsClear();
    const QVector<OrvoRoles> rows = m_library->rows();
    for (const OrvoRoles& row : rows)
        if (matches(row))
            rowsAppend(row);
}

void SearchResults::on_rowShown(const OrvoRoles& row)
{
    if (matches(row))
        rowsSetById(row);
    else
        rowsRemoveById(row.id());
}

void SearchResults::on_rowHidden(const QString& id)
{
    rowsRemoveById(id);
}

bool SearchResults::matches(const OrvoRoles& row) const
{
    const OrvoMediaData data = row.mediaData();
    // A word does not reach over a line.
    const QString text = foldedText(row.title()) + '\n' + foldedText(data.artist()) + '\n' + foldedText(data.album());
    return !m_words.isEmpty()
           && std::all_of(m_words.cbegin(), m_words.cend(), [&](const QString& word) { return text.contains(word); });
}
