#include "verbs.h"

#include "cmremoteworker.h"
#include "failure.h"
#include "link.h"
#include "output.h"
#include "records/orvoroles.h"

#include <QElapsedTimer>

namespace {

void run(Session& session)
{
    const QString name = session.arguments.at(0);
    const CMPath path = pathArgument(CMPath::fromPrefix(name).toEncoded());
    CMRemoteWorker* worker = session.link.reach(path);
    QElapsedTimer time;
    time.start();
    try {
        session.link.answer(path, worker->getData(path, {OrvoRoles::Type()}));
    } catch (const Failure& failure) {
        // An error is an answer: it comes from the service's tree.
        if (failure.status != ExitStatus::ErrorReply)
            throw;
    }
    const double ms = double(time.nsecsElapsed()) / 1e6;
    if (session.output.isJson())
        session.output.document(QVariantHash{{QStringLiteral("service"), path.prefix()}, {QStringLiteral("ms"), ms}});
    else
        session.output.line(QStringLiteral("%1: %2 ms").arg(path.prefix(), QString::number(ms, 'f', 3)));
}

} // namespace

Verb pingVerb()
{
    return {QStringLiteral("ping"),
            QStringLiteral("SERVICE"),
            QStringLiteral("Measure one request and its answer"),
            QString(),
            1,
            1,
            {},
            run};
}
