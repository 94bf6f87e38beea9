#include "orvohttpinput_p.h"

#include "core/orvoJson.h"
#include "orvohttpgateway.h"
#include "orvohttpserver_p.h"
#include "records/orvoerror.h"

#include <climits>

namespace {

bool isDeeper(const QVariant& value, int levels)
{
    if (value.type() == QVariant::List) {
        const QVariantList list = value.toList();
        for (const QVariant& item : list)
            if (levels == 0 || isDeeper(item, levels - 1))
                return true;
    } else if (value.type() == QVariant::Hash) {
        const QVariantHash hash = value.toHash();
        for (const QVariant& item : hash)
            if (levels == 0 || isDeeper(item, levels - 1))
                return true;
    }
    return false;
}

bool isText(const QVariant& value)
{
    return value.type() == QVariant::String;
}

} // namespace

OrvoHttpInput OrvoHttpInput::fromQuery(const OrvoHttpExchange& exchange)
{
    OrvoHttpInput input;
    input.m_isText = true;
    for (auto it = exchange.arguments.cbegin(); it != exchange.arguments.cend(); ++it)
        input.m_values.insert(it.key(), it.value());
    return input;
}

OrvoHttpInput OrvoHttpInput::fromBody(const OrvoHttpExchange& exchange)
{
    OrvoHttpInput input;
    OrvoError error;
    const QVariant json = OrvoJson::parse(exchange.body, error);
    if (!error.isEmpty())
        input.fail(QStringLiteral("The body is no JSON: ") + error.message());
    else if (json.type() != QVariant::Hash)
        input.fail(QStringLiteral("The body is no JSON object"));
    else if (isDeeper(json, OrvoHttpGateway::DepthLimit))
        input.fail(QStringLiteral("The body nests more than %1 deep").arg(OrvoHttpGateway::DepthLimit));
    else
        input.m_values = json.toHash();
    return input;
}

CMPath OrvoHttpInput::path()
{
    return toPath(QStringLiteral("path"), m_values.value(QStringLiteral("path")));
}

QStringList OrvoHttpInput::roles()
{
    QStringList roles = text(QStringLiteral("roles")).split(QLatin1Char(','), Qt::SkipEmptyParts);
    if (roles.isEmpty())
        fail(QStringLiteral("No roles: names between commas"));
    return roles;
}

QString OrvoHttpInput::text(const QString& key)
{
    const QVariant value = m_values.value(key);
    if (value.isValid() && !isText(value))
        fail(key + QStringLiteral(" is no text"));
    return value.toString();
}

int OrvoHttpInput::number(const QString& key, int defaultNumber, int least, int most)
{
    return m_values.contains(key) ? number(key, least, most) : defaultNumber;
}

int OrvoHttpInput::number(const QString& key, int least, int most)
{
    const QVariant value = m_values.value(key);
    bool ok = m_isText || value.type() == QVariant::LongLong;
    const qlonglong number = ok ? value.toLongLong(&ok) : 0;
    if (ok && number >= least && number <= most)
        return int(number);
    fail(QStringLiteral("%1 is no number from %2 to %3").arg(key).arg(least).arg(most));
    return least;
}

QVariant OrvoHttpInput::value(const QString& key)
{
    if (!m_values.contains(key))
        fail(QStringLiteral("No ") + key);
    return m_values.value(key);
}

OrvoList<OrvoEventSubscribe> OrvoHttpInput::subscriptions(const QString& key)
{
    OrvoList<OrvoEventSubscribe> records;
    const QVariant value = m_values.value(key);
    if (value.isValid() && value.type() != QVariant::List)
        fail(key + QStringLiteral(" is no list"));
    const QVariantList list = value.toList();
    for (const QVariant& item : list) {
        const QVariantHash hash = item.toHash();
        const QVariant type = hash.value(OrvoEventSubscribe::Type());
        const OrvoEventSubscribe record =
            OrvoEventSubscribe()
                .setPath(toPath(key + QStringLiteral(": path"), hash.value(OrvoEventSubscribe::Path())))
                .setType(OrvoEventSubscribeType::Enum(type.toInt()));
        const bool known = record.type() == OrvoEventSubscribeType::DataChanged
                           || record.type() == OrvoEventSubscribeType::RowsChanged
                           || record.type() == OrvoEventSubscribeType::ValueChanged;
        if (type.type() != QVariant::LongLong || !known)
            fail(key + QStringLiteral(": type is none of 1 (data), 2 (rows), 13 (value)"));
        if (m_error.isError())
            return OrvoList<OrvoEventSubscribe>();
        records.append(record);
    }
    return records;
}

void OrvoHttpInput::fail(const QString& message)
{
    if (!m_error.isError())
        m_error = CMError(OrvoHttpGateway::ErrorMalformed(), message, CMError::DefaultTitle());
}

CMPath OrvoHttpInput::toPath(const QString& key, const QVariant& value)
{
    const QString text = value.toString();
    CMPath path = CMPath::fromEncoded(text);
    if (!isText(value) || path.isEmpty())
        fail(key + QStringLiteral(" is no path"));
    else if (text.size() > OrvoHttpGateway::PathLimit)
        fail(QStringLiteral("%1 is longer than %2 characters").arg(key).arg(OrvoHttpGateway::PathLimit));
    return path;
}
