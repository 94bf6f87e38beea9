#include "verbs.h"

#include "cmremoteworker.h"
#include "failure.h"
#include "link.h"
#include "output.h"
#include "process.h"
#include "records/orvoroles.h"
#include "watcher.h"

namespace {

CMAbstractWorker::ChangeType kindOf(Session& session, const CMPath& path)
{
    if (session.arguments.has(QStringLiteral("value")))
        return CMAbstractWorker::ValueChange;
    if (session.arguments.has(QStringLiteral("data")))
        return CMAbstractWorker::DataChange;
    if (session.arguments.has(QStringLiteral("rows")))
        return CMAbstractWorker::RowsChange;
    const QVariantList type = session.link.answer(path, session.link.reach(path)->getData(path, {OrvoRoles::Type()}));
    switch (OrvoRolesType::fromString(type.value(0).toString())) {
    case OrvoRolesType::Value_:
        return CMAbstractWorker::ValueChange;
    case OrvoRolesType::Container_:
        return CMAbstractWorker::RowsChange;
    default:
        return CMAbstractWorker::DataChange;
    }
}

void run(Session& session)
{
    const Arguments& arguments = session.arguments;
    int kinds = 0;
    for (const char* kind : {"value", "data", "rows"})
        kinds += arguments.has(QLatin1String(kind));
    if (kinds > 1)
        throw Failure{ExitStatus::Usage, QStringLiteral("watch: only one of --value, --data and --rows")};

    QVector<CMPath> paths;
    for (const QString& text : arguments.positional())
        if (const CMPath path = pathArgument(text); !paths.contains(path))
            paths.append(path);
    Watcher watcher(session.link, session.output, arguments.number(QStringLiteral("count"), -1, 0));
    callOnStop(&watcher, [&watcher] { watcher.stop(); });
    for (const CMPath& path : qAsConst(paths))
        watcher.add(path, kindOf(session, path), paths.size() > 1);
    watcher.exec();
}

} // namespace

Verb watchVerb()
{
    return {QStringLiteral("watch"),
            QStringLiteral("PATH... [--value|--data|--rows]"),
            QStringLiteral("Show the present state and each change"),
            QStringLiteral("Goes on until it is interrupted, also when a service ends and comes back; a lost link is\n"
                           "told on stderr. Rows change by strings: 7 changed, +7 inserted, -7 removed, =3..9 moved,\n"
                           "reset for all, close for the end of the view. JSON is one document a line."),
            1,
            -1,
            {{QStringLiteral("value"), QString(), Option::Switch, QString(),
              QStringLiteral("watch the value (of nodes that have one)")},
             {QStringLiteral("rows"), QString(), Option::Switch, QString(),
              QStringLiteral("watch the rows (of containers)")},
             {QStringLiteral("data"), QString(), Option::Switch, QString(),
              QStringLiteral("watch all roles (of all others)")},
             {QStringLiteral("count"), QStringLiteral("n"), Option::Value, QStringLiteral("COUNT"),
              QStringLiteral("end after so many changes")}},
            run};
}
