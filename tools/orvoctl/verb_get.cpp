#include "verbs.h"

#include "cmremoteworker.h"
#include "core/model/cmroles.h"
#include "link.h"
#include "output.h"
#include "values.h"

namespace {

void run(Session& session)
{
    const CMPath path = pathArgument(session.arguments.at(0));
    const QStringList asked = session.arguments.positional().mid(1);
    const QStringList roles = asked.isEmpty() ? CMAllRoles() : asked;
    const QVariantList values = session.link.answer(path, session.link.reach(path)->getData(path, roles));

    QVariantHash document;
    QVector<QStringList> lines;
    for (int i = 0; i < roles.size(); ++i) {
        const QVariant value = values.value(i);
        if (asked.isEmpty() && !value.isValid())
            continue;
        document.insert(roles.at(i), value);
        if (!asked.isEmpty() || isFilled(value))
            lines.append(QStringList{roles.at(i), roleText(value)});
    }
    if (session.output.isJson())
        session.output.document(document);
    else if (asked.size() == 1)
        session.output.line(lines.first().last());
    else
        session.output.table({}, lines);
}

} // namespace

Verb getVerb()
{
    return {QStringLiteral("get"),
            QStringLiteral("PATH [ROLE...]"),
            QStringLiteral("Show what a node says of itself"),
            QStringLiteral("Without a ROLE all that the node knows; with one its bare text; with several a table."),
            1,
            -1,
            {},
            run};
}
