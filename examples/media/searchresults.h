#pragma once

#include "core/model/nodes/cmlistrowsnode.h"

#include <QStringList>

class MediaLibrary;

/**
 * What one reader has searched for: the rows of the library in whose title, artist or album each word of the text
 * occurs, in whatever case and with whatever accents. Follows the library for as long as it lives. An empty text finds
 * nothing.
 *
 * Owned by the registry. Lives in the thread of the library, which may end ahead of it.
 */
class SearchResults : public CMListRowsNode
{
    Q_OBJECT

public:
    SearchResults(const CMPath& path, const MediaLibrary* library, const QString& text);
    static SearchResults* create(CMNodes* nodes, const CMPath& path, const MediaLibrary* library, const QString& text);

private:
    void fill();
    void on_rowShown(const OrvoRoles& row);
    void on_rowHidden(const QString& id);
    bool matches(const OrvoRoles& row) const;

    const MediaLibrary* const m_library;
    const QStringList m_words;
};
