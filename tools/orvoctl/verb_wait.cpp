#include "verbs.h"

#include "cmremoteworker.h"
#include "failure.h"
#include "link.h"
#include "output.h"
#include "records/orvoroles.h"

#include <QDeadlineTimer>

#include <algorithm>

namespace {

constexpr int retryMs = 100;

/// Whether the path answers. A service by itself does so with an error, too.
bool answers(Link& link, const CMPath& path)
{
    try {
        link.answer(path, link.reach(path)->getData(path, {OrvoRoles::Type()}));
    } catch (const Failure& failure) {
        return failure.status == ExitStatus::ErrorReply && path.base().isEmpty();
    }
    return true;
}

void run(Session& session)
{
    const CMPath path = pathArgument(session.arguments.at(0));
    const bool limited = session.arguments.has(QStringLiteral("timeout"));
    const int limitMs = session.link.timeoutMs();
    const QDeadlineTimer deadline = limited ? QDeadlineTimer(limitMs) : QDeadlineTimer(QDeadlineTimer::Forever);
    for (;;) {
        if (limited)
            session.link.setTimeoutMs(std::max(1, int(deadline.remainingTime())));
        if (answers(session.link, path))
            break;
        if (deadline.hasExpired())
            throw Failure{ExitStatus::TimedOut,
                          QStringLiteral("%1 did not answer within %2 ms").arg(path.toEncoded()).arg(limitMs)};
        Link::pause(limited ? std::min(retryMs, int(deadline.remainingTime())) : retryMs);
    }
    if (session.output.isJson())
        session.output.document(QVariantHash{{QStringLiteral("path"), path.toEncoded()}});
}

} // namespace

Verb waitVerb()
{
    return {QStringLiteral("wait"),
            QStringLiteral("PATH"),
            QStringLiteral("Wait until a path answers"),
            QStringLiteral("For start-up scripts: waits for the service and for its node, without a limit unless\n"
                           "--timeout sets one. 'SERVICE:' alone waits for the service."),
            1,
            1,
            {},
            run};
}
