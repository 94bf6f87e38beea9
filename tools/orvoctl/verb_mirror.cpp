#include "verbs.h"

#include "cmremoteworker.h"
#include "core/model/cmroot.h"
#include "failure.h"
#include "link.h"
#include "mirror.h"
#include "output.h"
#include "process.h"
#include "records/orvoroles.h"

#include <QPointer>

#include <unistd.h>

namespace {

void run(Session& session)
{
    const Arguments& arguments = session.arguments;
    const CMPath path = pathArgument(arguments.at(0));
    const int count = arguments.number(QStringLiteral("count"), -1, 0);
    QPointer<Mirror> mirror;
    QObject stopper;
    callOnStop(&stopper, [&mirror] {
        // While the first answer is waited for, nothing is buffered here, and the service notices.
        if (!mirror)
            _exit(int(ExitStatus::Success));
        mirror->stop();
    });
    CMRemoteWorker* worker = session.link.reach(path);
    // A mirror itself tries without end; what is no list is told at once.
    session.link.answer(path, worker->getRows(path, 0, 0, -1, {OrvoRoles::Title()}));
    CMRoot_setInstance(worker);
    Mirror started(worker, session.output, path, count);
    mirror = &started;
    started.exec();
}

} // namespace

Verb mirrorVerb()
{
    return {
        QStringLiteral("mirror"),
        QStringLiteral("PATH"),
        QStringLiteral("Keep a copy of a list and show each change of its rows"),
        QStringLiteral("Shows all rows that are there, then each change with its roles: +7 inserted, -7 removed,\n"
                       "7 changed, with the roles that are other than before; close for the end of the list. A row\n"
                       "that moves is removed and inserted. Goes on until it is interrupted, also when the service\n"
                       "ends and comes back; a lost link is told on stderr. JSON is one document a line, with all\n"
                       "roles of the row."),
        1,
        1,
        {{QStringLiteral("count"), QStringLiteral("n"), Option::Value, QStringLiteral("COUNT"),
          QStringLiteral("end after so many changes")}},
        run};
}
