#include "core/model/cmglobal.h"

#include "core/orvoMimeTypes.h"
#include "records/orvoroles.h"

namespace {

bool carriesSomething(const QVariant& value)
{
    if (value.isNull())
        return false;
    switch (value.type()) {
    case QVariant::Bool:
        return value.toBool();
    case QVariant::Int:
    case QVariant::UInt:
        return value.toInt() != 0;
    case QVariant::LongLong:
    case QVariant::ULongLong:
        return value.toLongLong() != 0;
    case QVariant::Double:
        return value.toDouble() != 0.0;
    case QVariant::String:
        return !value.toString().isEmpty();
    case QVariant::List:
        return !value.toList().isEmpty();
    case QVariant::Hash:
        return !value.toHash().isEmpty();
    default:
        return false;
    }
}

} // namespace

QList<QVariant> CMGlobal::itemRolesToList(const QStringList& roles, const OrvoRoles& item)
{
    QList<QVariant> values;
    values.reserve(roles.size());
    for (const QString& role : roles)
        values.append(item.__hashAttribute(role));
    return values;
}

OrvoRoles CMGlobal::rolesValuesToHash(const QStringList& roles, const QList<QVariant>& values)
{
    Q_ASSERT(roles.size()==values.size());
    QHash<QString, QVariant> hash;
    for (int i = 0; i < roles.size(); ++i)
        if (carriesSomething(values.at(i)))
            hash.insert(roles.at(i), values.at(i));
    return OrvoRoles(std::move(hash));
}

OrvoRolesType::Enum CMGlobal::mimeTypeToRolesType(const QString& mimeType)
{
    if (MimeTypes::isAudio(mimeType))
        return OrvoRolesType::Audio_;
    if (MimeTypes::isImage(mimeType))
        return OrvoRolesType::Image_;
    if (MimeTypes::isVideo(mimeType))
        return OrvoRolesType::Video_;
    if (MimeTypes::isPlaylist(mimeType))
        return OrvoRolesType::Playlist_;
    return OrvoRolesType::None_;
}
