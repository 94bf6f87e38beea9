#include "verbs.h"

#include "core/model/cmpath.h"
#include "failure.h"

namespace {

QString optionLine(const Option& option)
{
    QString names = option.letter.isEmpty() ? QString() : QStringLiteral("-") + option.letter;
    if (!option.name.isEmpty()) {
        if (!names.isEmpty())
            names += QLatin1String(", ");
        names += QStringLiteral("--") + option.name;
    }
    if (option.kind == Option::Value)
        names += QLatin1Char(' ') + option.valueName;
    else if (option.kind == Option::OptionalValue)
        names += QStringLiteral("[=%1]").arg(option.valueName);
    return QStringLiteral("  %1 %2\n").arg(names, -22).arg(option.help);
}

} // namespace

const QVector<Verb>& verbs()
{
    static const QVector<Verb> all{getVerb(),    rowsVerb(), matchVerb(), setVerb(),    invokeVerb(), watchVerb(),
                                   mirrorVerb(), waitVerb(), treeVerb(),  browseVerb(), pingVerb(),   logVerb()};
    return all;
}

const Verb* findVerb(const QString& name)
{
    for (const Verb& verb : verbs())
        if (verb.name == name)
            return &verb;
    return nullptr;
}

QString generalHelp()
{
    QString text = QStringLiteral("Usage: orvoctl VERB [ARGUMENT...] [OPTION...]\n\n"
                                  "Reads, writes and watches the content tree of the services of this device.\n"
                                  "A PATH begins with the name of its service: media:library/albums.\n\n");
    for (const Verb& verb : verbs())
        text += QStringLiteral("  %1 %2\n").arg(verb.name + QLatin1Char(' ') + verb.arguments, -44).arg(verb.summary);
    text += QStringLiteral("\nOptions of every verb:\n");
    for (const Option& option : commonOptions())
        text += optionLine(option);
    text += QStringLiteral("\nExit status: 0 success, 1 error reply, 2 usage, 3 service not reached, 4 time-out.\n"
                           "'orvoctl VERB --help' tells more about a verb.\n");
    return text;
}

QString verbHelp(const Verb& verb)
{
    QString text = QStringLiteral("Usage: orvoctl %1 %2\n\n%3.\n").arg(verb.name, verb.arguments, verb.summary);
    if (!verb.details.isEmpty())
        text += QLatin1Char('\n') + verb.details + QLatin1Char('\n');
    text += QStringLiteral("\nOptions:\n");
    for (const QVector<Option>* options : {&verb.options, &commonOptions()})
        for (const Option& option : *options)
            text += optionLine(option);
    return text;
}

CMPath pathArgument(const QString& text)
{
    const CMPath path = CMPath::fromEncoded(text);
    if (path.prefix().isEmpty())
        throw Failure{ExitStatus::Usage, QStringLiteral("'%1' names no service; a path reads SERVICE:PLACE").arg(text)};
    return path;
}
