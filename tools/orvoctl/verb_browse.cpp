#include "verbs.h"

#include "browsing.h"
#include "cmremoteworker.h"
#include "failure.h"
#include "link.h"
#include "process.h"
#include "records/orvoroles.h"

#include <QPointer>

#include <unistd.h>

namespace {

void run(Session& session)
{
    const CMPath path = pathArgument(session.arguments.at(0));
    if (!Screen::isPossible())
        throw Failure{ExitStatus::Usage, QStringLiteral("browse: needs a terminal")};
    QPointer<Browsing> browsing;
    QObject parent;
    callOnStop(&parent, [&browsing] {
        // While the first answer is waited for, the terminal is as it was.
        if (!browsing)
            _exit(int(ExitStatus::Success));
        browsing->stop();
    });
    callOnResize(&parent, [&browsing] {
        if (browsing)
            browsing->resize();
    });
    CMRemoteWorker* worker = session.link.reach(path);
    // On the screen it would be tried without end; what is no list is told at once.
    session.link.answer(path, worker->getRows(path, 0, 0, -1, {OrvoRoles::Title()}));
    if (isatty(STDERR_FILENO))
        configureLogging(false);
    Screen screen;
    Browsing started(worker, screen, path);
    browsing = &started;
    started.exec();
}

} // namespace

Verb browseVerb()
{
    return {QStringLiteral("browse"),
            QStringLiteral("PATH"),
            QStringLiteral("Walk through lists on the whole terminal"),
            QStringLiteral("Arrow and page keys, Home and End move, Enter opens a list (>) or runs an action (*),\n"
                           "Backspace goes back and at last out, q ends. The rows follow their changes, also when the\n"
                           "service ends and comes back. Needs a terminal."),
            1,
            1,
            {},
            run};
}
