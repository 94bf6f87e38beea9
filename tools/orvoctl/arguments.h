#pragma once

#include <QHash>
#include <QString>
#include <QStringList>
#include <QVector>

struct Verb;

/// An option of the command line, without its leading "--".
struct Option
{
    enum Kind {
        Switch,
        /// "--name VALUE" or "--name=VALUE"; may be repeated.
        Value,
        /// "--name" or "--name=VALUE", so that what follows stays an argument.
        OptionalValue,
    };

    QString name;
    /// One letter, or empty.
    QString letter;
    Kind kind;
    QString valueName;
    QString help;
};

/// What every verb understands.
const QVector<Option>& commonOptions();

/**
 * The arguments behind a verb. A word that begins with "-" and a digit is an argument, so that negative values need no
 * quoting; behind "--" everything is. A value class.
 */
class Arguments
{
public:
    /// Throws a Failure of ExitStatus::Usage.
    static Arguments parse(const Verb& verb, const QStringList& words);

    const QStringList& positional() const { return m_positional; }
    QString at(int index) const { return m_positional.value(index); }
    bool has(const QString& option) const { return m_options.contains(option); }
    QString value(const QString& option) const { return m_options.value(option).value(0); }
    QStringList values(const QString& option) const { return m_options.value(option); }
    /// The last value of the option as a number of at least `least`; the fallback without the option.
    int number(const QString& option, int fallback, int least) const;

private:
    QStringList m_positional;
    /// A switch has one empty value.
    QHash<QString, QStringList> m_options;
};

/// Text as a whole number of at least `least`; `what` names it in the failure.
int parseNumber(const QString& what, const QString& text, int least);
