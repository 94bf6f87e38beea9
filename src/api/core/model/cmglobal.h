#pragma once

#include "records/orvovocabulary.h"

#include <QList>
#include <QStringList>
#include <QVariant>

class OrvoRoles;

/// Conversions around role records. Without state, any thread.
class CMGlobal
{
public:
    /// One value per role, in order; invalid where the item has none.
    static QList<QVariant> itemRolesToList(const QStringList& roles, const OrvoRoles& item);
    /**
     * The values under their roles, save those that carry nothing: null, false, 0, empty texts, lists and hashes. The
     * two lists are of one size.
     */
    static OrvoRoles rolesValuesToHash(const QStringList& roles, const QList<QVariant>& values);
    /**
     * The node type for a media type; None_ outside the families. Audio is asked before playlists and takes all three
     * of them: whoever tells a playlist from a track asks MimeTypes::isPlaylist() first.
     */
    static OrvoRolesType::Enum mimeTypeToRolesType(const QString& mimeType);
};
