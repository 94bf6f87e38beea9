#include "verbs.h"

#include "cmremoteworker.h"
#include "failure.h"
#include "link.h"
#include "output.h"
#include "records/orvoroles.h"
#include "values.h"

namespace {

OrvoValue storedValue(Link& link, const CMPath& path)
{
    return OrvoValue(link.answer(path, link.reach(path)->getData(path, {OrvoRoles::Value()})).value(0));
}

void run(Session& session)
{
    const CMPath path = pathArgument(session.arguments.at(0));
    QString type = session.arguments.value(QStringLiteral("type"));
    if (!session.arguments.has(QStringLiteral("type"))) {
        type = valueTypeName(storedValue(session.link, path));
        if (type.isEmpty())
            throw Failure{ExitStatus::Usage,
                          QStringLiteral("%1 tells no type of its value; say --type").arg(path.toEncoded())};
    }
    const OrvoValue value = parseValue(type, session.arguments.at(1));
    const QVariant taken = session.link.answer(path, session.link.reach(path)->setValue(path, value));
    if (taken.type() == QVariant::Bool && !taken.toBool())
        throw Failure{ExitStatus::ErrorReply, QStringLiteral("%1 did not take the value").arg(path.toEncoded())};

    const OrvoValue stored = storedValue(session.link, path);
    if (session.output.isJson())
        session.output.document(QVariantHash{{OrvoRoles::Value(), stored.__variant()}});
    else
        session.output.line(roleText(stored.__variant()));
}

} // namespace

Verb setVerb()
{
    return {
        QStringLiteral("set"),
        QStringLiteral("PATH VALUE"),
        QStringLiteral("Write a value and show what is stored then"),
        QStringLiteral("VALUE is converted to the type of the present value. A bool is true, on, 1, false, off or 0."),
        2,
        2,
        {{QStringLiteral("type"), QString(), Option::Value, QStringLiteral("TYPE"),
          QStringLiteral("write this type: ") + valueTypeNames().join(QLatin1String(", "))}},
        run};
}
