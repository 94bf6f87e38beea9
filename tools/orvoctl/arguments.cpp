#include "arguments.h"

#include "failure.h"
#include "verbs.h"

namespace {

[[noreturn]] void refuse(const QString& text)
{
    throw Failure{ExitStatus::Usage, text};
}

/// The option of "--name" or "-n"; null when the verb has none such.
const Option* findOption(const Verb& verb, const QString& word)
{
    const bool isLong = word.startsWith(QLatin1String("--"));
    const QString name = word.mid(isLong ? 2 : 1);
    for (const QVector<Option>* options : {&verb.options, &commonOptions()})
        for (const Option& option : *options)
            if (!name.isEmpty() && name == (isLong ? option.name : option.letter))
                return &option;
    return nullptr;
}

bool isOption(const QString& word)
{
    return word.size() > 1 && word.at(0) == QLatin1Char('-') && !word.at(1).isDigit() && word.at(1) != QLatin1Char('.');
}

} // namespace

const QVector<Option>& commonOptions()
{
    static const QVector<Option> options{
        {QStringLiteral("json"), QString(), Option::OptionalValue, QStringLiteral("short|pretty"),
         QStringLiteral("print JSON; without a value as -j")},
        {QString(), QStringLiteral("j"), Option::Switch, QString(),
         QStringLiteral("print JSON, pretty on a terminal and short elsewhere")},
        {QStringLiteral("timeout"), QString(), Option::Value, QStringLiteral("MS"),
         QStringLiteral("give up after so many milliseconds (5000)")},
        {QStringLiteral("verbose"), QString(), Option::Switch, QString(),
         QStringLiteral("write the library's warnings to stderr")},
        {QStringLiteral("help"), QStringLiteral("h"), Option::Switch, QString(), QStringLiteral("show this help")},
    };
    return options;
}

Arguments Arguments::parse(const Verb& verb, const QStringList& words)
{
    Arguments arguments;
    bool optionsEnded = false;
    for (int i = 0; i < words.size(); ++i) {
        const QString& word = words.at(i);
        if (optionsEnded || !isOption(word)) {
            arguments.m_positional.append(word);
            continue;
        }
        if (word == QLatin1String("--")) {
            optionsEnded = true;
            continue;
        }
        const int equals = word.indexOf(QLatin1Char('='));
        const QString name = word.left(equals);
        const Option* option = findOption(verb, name);
        if (!option)
            refuse(QStringLiteral("%1: no such option: %2").arg(verb.name, name));
        QString value = equals < 0 ? QString() : word.mid(equals + 1);
        if (option->kind == Option::Switch && equals >= 0)
            refuse(QStringLiteral("%1: option %2 takes no value").arg(verb.name, name));
        if (option->kind == Option::Value && equals < 0) {
            if (++i == words.size())
                refuse(QStringLiteral("%1: option %2 needs a value").arg(verb.name, name));
            value = words.at(i);
        }
        arguments.m_options[option->name.isEmpty() ? option->letter : option->name].append(value);
    }
    if (arguments.has(QStringLiteral("help")))
        return arguments;
    const int count = arguments.m_positional.size();
    if (count < verb.leastArguments || (verb.mostArguments >= 0 && count > verb.mostArguments))
        refuse(QStringLiteral("usage: orvoctl %1 %2").arg(verb.name, verb.arguments));
    return arguments;
}

int Arguments::number(const QString& option, int fallback, int least) const
{
    return has(option) ? parseNumber(QStringLiteral("--") + option, values(option).last(), least) : fallback;
}

int parseNumber(const QString& what, const QString& text, int least)
{
    bool ok = false;
    const int number = text.toInt(&ok);
    if (!ok || number < least)
        refuse(QStringLiteral("%1 needs a whole number of at least %2, not '%3'").arg(what).arg(least).arg(text));
    return number;
}
