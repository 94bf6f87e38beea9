#include "complete.h"

#include "cmremoteworker.h"
#include "core/model/cmroles.h"
#include "core/model/cmrpcclient.h"
#include "failure.h"
#include "link.h"
#include "logfile.h"
#include "output.h"
#include "records/orvoconstants.h"
#include "records/orvoroles.h"
#include "rowsreader.h"
#include "values.h"
#include "verbs.h"

#include <QDir>
#include <QFileInfo>
#include <QLocalSocket>

#include <algorithm>

namespace {

constexpr int timeoutMs = 300;
constexpr int connectMs = 20;
/// As many as a person reads.
constexpr int mostRows = 100;

QStringList verbNames()
{
    QStringList names;
    for (const Verb& verb : verbs())
        names.append(verb.name);
    return names;
}

/// A socket file outlives a service that was killed.
bool isListening(const QString& service)
{
    QLocalSocket socket;
    socket.connectToServer(CMRPCClient::socketPathFromPrefix(service));
    return socket.waitForConnected(connectMs);
}

/// Those that listen at their sockets.
QStringList serviceNames()
{
    const QFileInfo prefix(OrvoRPCSocketPrefix());
    const QString suffix = OrvoRPCSocketSuffix();
    const QDir dir(prefix.path(), prefix.fileName() + QLatin1Char('*') + suffix, QDir::Name,
                   QDir::System | QDir::Files);
    QStringList names;
    const QStringList files = dir.entryList();
    for (const QString& file : files) {
        const int length = file.size() - prefix.fileName().size() - suffix.size();
        const QString name = file.mid(prefix.fileName().size(), length);
        if (isListening(name))
            names.append(name);
    }
    return names;
}

/// The paths of the container's rows; none when there is no such container.
QStringList rowPaths(Link& link, const QString& container)
{
    QStringList paths;
    try {
        const QStringList roles{OrvoRoles::Path()};
        const RowsRead read = readRows(link, CMPath::fromEncoded(container), roles, 0, mostRows - 1);
        for (const QVariantList& row : read.rows)
            paths.append(row.value(0).toString());
    } catch (const Failure&) {}
    paths.removeAll(QString());
    return paths;
}

/// The rows of the word itself, and those of its nearest parent that has some.
QStringList pathCandidates(Link& link, const QString& word)
{
    const int colon = word.indexOf(QLatin1Char(':'));
    if (colon < 0) {
        QStringList services = serviceNames();
        for (QString& service : services)
            service += QLatin1Char(':');
        return services;
    }
    try {
        link.reach(CMPath::fromEncoded(word));
    } catch (const Failure&) {
        return {};
    }
    QStringList candidates = rowPaths(link, word);
    for (int end = word.size(); end > colon;) {
        end = std::max(word.lastIndexOf(QLatin1Char('/'), end - 1), colon);
        const QStringList siblings = rowPaths(link, end == colon ? word.left(colon + 1) : word.left(end));
        candidates += siblings;
        if (!siblings.isEmpty())
            break;
    }
    return candidates;
}

/// The roles that the node at the path, or the first row of its list, answers.
QStringList roleCandidates(Link& link, const QString& place, bool ofRows)
{
    const QStringList all = CMAllRoles();
    QVariantList values;
    try {
        const CMPath path = pathArgument(place);
        if (ofRows)
            values = readRows(link, path, all, 0, 0).rows.value(0);
        else
            values = link.answer(path, link.reach(path)->getData(path, all));
    } catch (const Failure&) {}
    QStringList present;
    for (int i = 0; i < values.size() && i < all.size(); ++i)
        if (values.at(i).isValid())
            present.append(all.at(i));
    return present.isEmpty() ? all : present;
}

/// The files and folders that the word may become.
QStringList fileCandidates(const QString& word)
{
    const QString folder = word.left(word.lastIndexOf(QLatin1Char('/')) + 1);
    const QDir dir(folder.isEmpty() ? QStringLiteral(".") : folder);
    QStringList candidates;
    const QFileInfoList entries = dir.entryInfoList(QDir::AllEntries | QDir::NoDotAndDotDot);
    for (const QFileInfo& entry : entries)
        candidates.append(folder + entry.fileName() + (entry.isDir() ? QStringLiteral("/") : QString()));
    return candidates;
}

QStringList loggerCandidates(const QString& file)
{
    QStringList candidates;
    try {
        const LogFile logFile(file);
        for (const LogFile::Logger& logger : logFile.loggers())
            candidates.append(logger.name);
    } catch (const Failure&) {}
    return candidates;
}

QStringList optionCandidates(const Verb& verb)
{
    QStringList candidates;
    for (const QVector<Option>* options : {&verb.options, &commonOptions()})
        for (const Option& option : *options)
            candidates.append(option.name.isEmpty() ? QStringLiteral("-") + option.letter
                                                    : QStringLiteral("--") + option.name);
    return candidates;
}

QStringList candidatesFor(const QStringList& words)
{
    const QString& word = words.last();
    if (words.size() < 2)
        return verbNames();
    const Verb* verb = findVerb(words.first());
    if (!verb)
        return {};
    if (word.startsWith(QLatin1String("--json=")))
        return {QStringLiteral("--json=short"), QStringLiteral("--json=pretty")};
    if (word.startsWith(QLatin1Char('-')))
        return optionCandidates(*verb);

    const QString name = verb->name;
    if (name == QLatin1String("log"))
        return words.size() == 2   ? fileCandidates(word)
               : words.size() == 3 ? loggerCandidates(words.at(1))
               : words.size() == 4 ? logLevelNames()
                                   : QStringList();
    Link link(timeoutMs);
    const QString place = words.value(1);
    const QString before = words.at(words.size() - 2);
    if (before == QLatin1String("--type"))
        return valueTypeNames();
    if (before == QLatin1String("--role"))
        return roleCandidates(link, place, true);
    const bool first = words.size() == 2;
    if (name == QLatin1String("ping"))
        return first ? serviceNames() : QStringList();
    if (first || name == QLatin1String("watch"))
        return pathCandidates(link, word);
    if (name == QLatin1String("get"))
        return roleCandidates(link, place, false);
    if (name == QLatin1String("match") && words.size() == 3)
        return roleCandidates(link, place, true);
    return {};
}

} // namespace

QString completeVerbName()
{
    return QStringLiteral("__complete");
}

void complete(const QStringList& words)
{
    if (words.isEmpty())
        return;
    QStringList candidates = candidatesFor(words);
    candidates.sort();
    candidates.removeDuplicates();
    Output output(Output::Json::None);
    for (const QString& candidate : qAsConst(candidates))
        if (candidate.startsWith(words.last()))
            output.line(candidate);
}
