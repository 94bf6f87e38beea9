#include "configdocument.h"

#include "core/orvoJson.h"
#include "records/orvoerror.h"

#include <algorithm>
#include <cmath>

namespace ConfigDocument {

namespace {

constexpr Setting settings[] = {sortBy, showHidden, recentSize};

const Setting* settingAt(const QString& place)
{
    const auto* found = std::find_if(std::begin(settings), std::end(settings),
                                     [&](const Setting& setting) { return setting.path() == place; });
    return found == std::end(settings) ? nullptr : found;
}

QString below(const QString& group, const QString& name)
{
    return group.isEmpty() ? name : group + QLatin1Char('/') + name;
}

/// The names of what lies right below the place; none for a setting and for what does not exist.
QStringList namesIn(const QString& group)
{
    const QString head = below(group, QString());
    QStringList names;
    for (const Setting& setting : settings)
        if (setting.path().startsWith(head))
            names.append(setting.path().mid(head.size()).section(QLatin1Char('/'), 0, 0));
    names.removeDuplicates();
    return names;
}

QString fitNumber(const Setting& setting, QVariant& value)
{
    switch (value.type()) {
    case QVariant::Int:
    case QVariant::UInt:
    case QVariant::LongLong:
    case QVariant::ULongLong:
    case QVariant::Double:
        break;
    default:
        return QStringLiteral("%1 is not a number").arg(setting.path());
    }
    const double number = value.toDouble();
    if (number != std::floor(number))
        return QStringLiteral("%1 is not a whole number").arg(setting.path());
    value = int(std::clamp<double>(number, setting.min, setting.max));
    return {};
}

QString fitGroup(const QString& group, const QStringList& names, QVariant& value)
{
    if (value.type() != QVariant::Hash)
        return QStringLiteral("%1 is not an object").arg(group.isEmpty() ? QStringLiteral("the document") : group);
    const QVariantHash given = value.toHash();
    for (auto it = given.cbegin(); it != given.cend(); ++it)
        if (!names.contains(it.key()))
            return QStringLiteral("there is no setting %1").arg(below(group, it.key()));
    QVariantHash whole;
    for (const QString& name : names) {
        const QString place = below(group, name);
        const Setting* setting = settingAt(place);
        const QVariant initial = setting ? QVariant(setting->initial) : QVariant(QVariantHash());
        QVariant child = given.value(name, initial);
        if (const QString problem = fit(place, child); !problem.isEmpty())
            return problem;
        whole.insert(name, child);
    }
    value = whole;
    return {};
}

} // namespace

QVariantHash defaults()
{
    QVariant document = QVariantHash();
    fit(QString(), document);
    return document.toHash();
}

int number(const QVariantHash& document, const Setting& setting)
{
    QVariant value = document;
    for (const QString& name : setting.path().split(QLatin1Char('/')))
        value = value.toHash().value(name);
    return value.toInt();
}

QString fit(const QString& place, QVariant& value)
{
    if (const Setting* setting = settingAt(place))
        return fitNumber(*setting, value);
    const QStringList names = namesIn(place);
    return names.isEmpty() ? QStringLiteral("there is no setting %1").arg(place) : fitGroup(place, names, value);
}

QMap<QString, int> numbers(const QString& place, const QVariant& value)
{
    if (settingAt(place))
        return {{place, value.toInt()}};
    QMap<QString, int> result;
    const QVariantHash group = value.toHash();
    for (auto it = group.cbegin(); it != group.cend(); ++it)
        result.insert(numbers(below(place, it.key()), *it));
    return result;
}

QString parse(const QByteArray& json, QVariantHash& document)
{
    OrvoError error;
    QVariant value = OrvoJson::parse(json, error);
    if (!error.isEmpty())
        return error.message();
    const QString problem = fit(QString(), value);
    if (problem.isEmpty())
        document = value.toHash();
    return problem;
}

QByteArray print(const QVariantHash& document)
{
    return OrvoJson::serializePretty(document) + '\n';
}

} // namespace ConfigDocument
