#include "verbs.h"

#include "cmremoteworker.h"
#include "link.h"
#include "output.h"
#include "values.h"

namespace {

void run(Session& session)
{
    const CMPath path = pathArgument(session.arguments.at(0));
    const bool hasValue = session.arguments.positional().size() > 1;
    const QVariant value = hasValue ? parseJson(session.arguments.at(1)) : QVariant();
    const QVariant reply = session.link.answer(path, session.link.reach(path)->invoke(path, value));
    if (session.output.isJson())
        session.output.document(reply);
    else if (reply.isValid())
        session.output.line(roleText(reply));
}

} // namespace

Verb invokeVerb()
{
    return {QStringLiteral("invoke"),
            QStringLiteral("PATH [JSON]"),
            QStringLiteral("Run an action and show its reply"),
            QStringLiteral("JSON is handed to the action."),
            1,
            2,
            {},
            run};
}
