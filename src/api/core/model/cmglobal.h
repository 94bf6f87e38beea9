#pragma once

#include <QList>
#include <QStringList>
#include <QVariant>

class OrvoRoles;

/// Conversions between role records and lists of values. Without state, any thread.
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
};
