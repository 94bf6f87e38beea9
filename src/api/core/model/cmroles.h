#pragma once

#include <QString>
#include <QStringList>

/// The roles that a full read of an item asks for.
QStringList CMAllRoles();

/// Keys of the hash under the role `flags`.
struct CMFlags
{
    static QString File() { return QStringLiteral("file"); }
    static QString RadioButton() { return QStringLiteral("radioButton"); }
};
