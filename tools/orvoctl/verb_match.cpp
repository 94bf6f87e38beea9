#include "verbs.h"

#include "cmremoteworker.h"
#include "link.h"
#include "output.h"
#include "records/orvoroles.h"
#include "values.h"

namespace {

void run(Session& session)
{
    const Arguments& arguments = session.arguments;
    const CMPath path = pathArgument(arguments.at(0));
    const QString role = arguments.at(1);
    const int from = arguments.number(QStringLiteral("from"), 0, 0);
    const QString type =
        arguments.has(QStringLiteral("type")) ? arguments.value(QStringLiteral("type")) : QStringLiteral("string");
    const OrvoValue value = parseValue(type, arguments.at(2));
    // Only the role of that name carries a record; in all others the scalar stands by itself.
    const QVariant wanted =
        role == OrvoRoles::Value() ? value.__variant() : value.__value(value.__value(OrvoValue::Type()).toString());

    const int row = session.link.answer(path, session.link.reach(path)->matchRow(path, from, role, wanted, 0, -1));
    if (session.output.isJson())
        session.output.document(QVariantHash{{QStringLiteral("row"), row}});
    else
        session.output.line(QString::number(row));
}

} // namespace

Verb matchVerb()
{
    return {QStringLiteral("match"),
            QStringLiteral("PATH ROLE VALUE"),
            QStringLiteral("Find the first row whose ROLE has the VALUE"),
            QStringLiteral("Prints the number of the row, -1 when there is none."),
            3,
            3,
            {{QStringLiteral("type"), QString(), Option::Value, QStringLiteral("TYPE"),
              QStringLiteral("the type of VALUE: ") + valueTypeNames().join(QLatin1String(", "))},
             {QStringLiteral("from"), QString(), Option::Value, QStringLiteral("ROW"),
              QStringLiteral("begin with this row (0)")}},
            run};
}
