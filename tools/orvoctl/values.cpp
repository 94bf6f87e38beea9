#include "values.h"

#include "core/model/cmroles.h"
#include "core/orvo.h"
#include "core/orvoJson.h"
#include "failure.h"
#include "records/orvoerror.h"

#include <cmath>
#include <limits>

namespace {

[[noreturn]] void refuse(const QString& typeName, const QString& text)
{
    throw Failure{ExitStatus::Usage, QStringLiteral("'%1' does not convert to %2").arg(text, typeName)};
}

template <typename T>
T parseInteger(const QString& typeName, const QString& text)
{
    bool ok = false;
    const long long number = text.toLongLong(&ok);
    if (!ok || number < std::numeric_limits<T>::min() || number > std::numeric_limits<T>::max())
        refuse(typeName, text);
    return T(number);
}

bool parseBool(const QString& text)
{
    static const QStringList yes{QStringLiteral("true"), QStringLiteral("on"), QStringLiteral("1")};
    static const QStringList no{QStringLiteral("false"), QStringLiteral("off"), QStringLiteral("0")};
    if (!yes.contains(text) && !no.contains(text))
        refuse(QStringLiteral("bool"), text);
    return yes.contains(text);
}

double parseDouble(const QString& text)
{
    bool ok = false;
    const double number = text.toDouble(&ok);
    if (!ok || !std::isfinite(number))
        refuse(QStringLiteral("double"), text);
    return number;
}

} // namespace

QStringList valueTypeNames()
{
    // In the order of the type tags, which begin at 1.
    return {QStringLiteral("bool"), QStringLiteral("byte"),   QStringLiteral("i16"),   QStringLiteral("i32"),
            QStringLiteral("i64"),  QStringLiteral("double"), QStringLiteral("string")};
}

QString valueTypeName(const OrvoValue& value)
{
    return valueTypeNames().value(value.type() - 1);
}

OrvoValue parseValue(const QString& typeName, const QString& text)
{
    OrvoValue value;
    switch (valueTypeNames().indexOf(typeName)) {
    case 0:
        return value.setBool_(parseBool(text));
    case 1:
        return value.setByte_(parseInteger<signed char>(typeName, text));
    case 2:
        return value.setI16_(parseInteger<short>(typeName, text));
    case 3:
        return value.setI32_(parseInteger<int>(typeName, text));
    case 4:
        return value.setI64_(parseInteger<long long>(typeName, text));
    case 5:
        return value.setDouble_(parseDouble(text));
    case 6:
        return value.setString_(text);
    default:
        throw Failure{ExitStatus::Usage, QStringLiteral("no such type: '%1'; there are %2")
                                             .arg(typeName, valueTypeNames().join(QLatin1String(", ")))};
    }
}

QVariant parseJson(const QString& text)
{
    OrvoError error;
    const QVariant value = OrvoJson::parse(text, error);
    if (!error.isEmpty())
        throw Failure{ExitStatus::Usage, QStringLiteral("malformed JSON '%1': %2").arg(text, error.message())};
    return value;
}

bool isFilled(const QVariant& value)
{
    switch (int(value.type())) {
    case QVariant::Invalid:
        return false;
    case QVariant::String:
        return !value.toString().isEmpty();
    case QVariant::Hash:
        return !value.toHash().isEmpty();
    case QVariant::List:
        return !value.toList().isEmpty();
    default:
        return true;
    }
}

QString roleText(const QVariant& value)
{
    switch (int(value.type())) {
    case QVariant::Hash:
    case QVariant::Map:
        return orvoValueToQString(OrvoValue(value));
    case QVariant::List:
    case QVariant::StringList:
        return QString::fromUtf8(OrvoJson::serialize(value));
    default:
        return value.toString();
    }
}

QVariantHash rolesDifference(const QVariantHash& roles, const QVariantHash& old)
{
    QVariantHash changed;
    for (auto it = roles.cbegin(); it != roles.cend(); ++it)
        if (old.value(it.key()) != it.value())
            changed.insert(it.key(), it.value());
    for (auto it = old.cbegin(); it != old.cend(); ++it)
        if (!roles.contains(it.key()))
            changed.insert(it.key(), QVariant());
    return changed;
}

QString rolesText(const QVariantHash& roles)
{
    QStringList parts;
    const QStringList names = CMAllRoles();
    for (const QString& name : names)
        if (roles.contains(name))
            parts.append(name + QLatin1Char('=') + roleText(roles.value(name)));
    return parts.join(QLatin1Char(' '));
}
