#pragma once

#include "arguments.h"

#include <QString>
#include <QStringList>
#include <QVector>

class CMPath;
class Link;
class Output;

/// What a verb works with; lives as long as the verb runs.
struct Session
{
    const Arguments& arguments;
    Output& output;
    Link& link;
};

/// One word of orvoctl's language.
struct Verb
{
    QString name;
    /// How its arguments read in the usage line.
    QString arguments;
    QString summary;
    QString details;
    int leastArguments;
    /// -1 for any number.
    int mostArguments;
    QVector<Option> options;
    /// Returns for success, throws a Failure otherwise.
    void (*run)(Session& session);
};

Verb browseVerb();
Verb getVerb();
Verb invokeVerb();
Verb logVerb();
Verb matchVerb();
Verb mirrorVerb();
Verb pingVerb();
Verb rowsVerb();
Verb setVerb();
Verb treeVerb();
Verb waitVerb();
Verb watchVerb();

/// All of them, as the help shows them.
const QVector<Verb>& verbs();
/// Null for an unknown name.
const Verb* findVerb(const QString& name);

QString generalHelp();
QString verbHelp(const Verb& verb);

/// What the log verb takes for a level, the most talkative first.
QStringList logLevelNames();

/// The path of an argument. Throws for one that names no service.
CMPath pathArgument(const QString& text);
