#include "arguments.h"
#include "complete.h"
#include "core/model/cmmetatypes.h"
#include "failure.h"
#include "link.h"
#include "output.h"
#include "process.h"
#include "verbs.h"

#include <QCoreApplication>

namespace {

constexpr int defaultTimeoutMs = 5000;

Output::Json jsonForm(const Arguments& arguments)
{
    const bool wanted = arguments.has(QStringLiteral("json")) || arguments.has(QStringLiteral("j"));
    const QString form = arguments.values(QStringLiteral("json")).value(0);
    if (!wanted)
        return Output::Json::None;
    if (form == QLatin1String("short"))
        return Output::Json::Short;
    if (form == QLatin1String("pretty"))
        return Output::Json::Pretty;
    if (!form.isEmpty())
        throw Failure{ExitStatus::Usage, QStringLiteral("--json is short or pretty, not '%1'").arg(form)};
    return Output::isTerminal() ? Output::Json::Pretty : Output::Json::Short;
}

void runVerb(const Verb& verb, const QStringList& words)
{
    const Arguments arguments = Arguments::parse(verb, words);
    if (arguments.has(QStringLiteral("help"))) {
        Output(Output::Json::None).text(verbHelp(verb));
        return;
    }
    configureLogging(arguments.has(QStringLiteral("verbose")));
    Output output(jsonForm(arguments));
    Link link(arguments.number(QStringLiteral("timeout"), defaultTimeoutMs, 1));
    Session session{arguments, output, link};
    verb.run(session);
}

void run(const QStringList& words)
{
    const QString name = words.value(0);
    if (name == QLatin1String("--help") || name == QLatin1String("-h") || name == QLatin1String("help")) {
        Output(Output::Json::None).text(generalHelp());
    } else if (name == completeVerbName()) {
        complete(words.mid(1));
    } else if (const Verb* verb = findVerb(name)) {
        runVerb(*verb, words.mid(1));
    } else {
        const QString text = name.isEmpty() ? QStringLiteral("no verb given") : QStringLiteral("no such verb: ") + name;
        throw Failure{ExitStatus::Usage, text + QStringLiteral("; see orvoctl --help")};
    }
}

} // namespace

int main(int argc, char* argv[])
{
    prepareProcess();
    QCoreApplication application(argc, argv);
    configureLogging(false);
    orvoRegisterMetaTypes();
    try {
        run(application.arguments().mid(1));
    } catch (const Failure& failure) {
        Output::error(failure.text);
        return int(failure.status);
    }
    return int(ExitStatus::Success);
}
