#pragma once

#include "core/model/cmerror.h"
#include "core/model/cmpath.h"
#include "records/orvoevents.h"

#include <QStringList>
#include <QVariant>

class OrvoHttpExchange;

/**
 * The arguments of one HTTP request: its query, or the JSON object in its body.
 *
 * Reads on after a fault, which then gives defaults; the first fault is the error that counts.
 */
class OrvoHttpInput
{
public:
    static OrvoHttpInput fromQuery(const OrvoHttpExchange& exchange);
    static OrvoHttpInput fromBody(const OrvoHttpExchange& exchange);

    const CMError& error() const { return m_error; }

    CMPath path();
    /// Names between commas; at least one.
    QStringList roles();
    /// An empty text when it is missing.
    QString text(const QString& key);
    /// The default when it is missing; limits included.
    int number(const QString& key, int defaultNumber, int least, int most);
    int number(const QString& key, int least, int most);
    /// Anything, null included, but there.
    QVariant value(const QString& key);
    /// Records of the three known types; none when it is missing.
    OrvoList<OrvoEventSubscribe> subscriptions(const QString& key);

    void fail(const QString& message);

private:
    CMPath toPath(const QString& key, const QVariant& value);

    QVariantHash m_values;
    /// Query arguments are all text, numbers too.
    bool m_isText = false;
    CMError m_error;
};
