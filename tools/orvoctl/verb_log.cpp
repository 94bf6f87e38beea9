#include "verbs.h"

#include "failure.h"
#include "logfile.h"
#include "output.h"
#include "records/orvovocabulary.h"

#include <algorithm>

namespace {

QVariantHash document(const LogFile::Logger& logger, const QString& level)
{
    return {{QStringLiteral("logger"), logger.name},
            {QStringLiteral("level"), level},
            {QStringLiteral("appenders"), QVariant(logger.appenders)}};
}

void showAll(const LogFile& file, Output& output)
{
    if (output.isJson()) {
        QVariantList documents;
        for (const LogFile::Logger& logger : file.loggers())
            documents.append(document(logger, logger.level));
        output.document(documents);
        return;
    }
    QVector<QStringList> rows;
    for (const LogFile::Logger& logger : file.loggers())
        rows.append({logger.name, logger.level, logger.appenders.join(QLatin1String(", "))});
    output.table({QStringLiteral("LOGGER"), QStringLiteral("LEVEL"), QStringLiteral("APPENDERS")}, rows);
}

void showLevel(const LogFile& file, const QString& logger, Output& output)
{
    const QString level = file.effectiveLevel(logger);
    if (level.isEmpty())
        throw Failure{ExitStatus::ErrorReply, QStringLiteral("the file has no level for '%1'").arg(logger)};
    if (output.isJson())
        output.document(QVariantHash{{QStringLiteral("logger"), logger}, {QStringLiteral("level"), level}});
    else
        output.line(level);
}

/// What could not stand ahead of a "=" in the file.
bool isLoggerName(const QString& name)
{
    return !name.isEmpty() && std::none_of(name.cbegin(), name.cend(), [](const QChar& c) {
        return c.isSpace() || c == QLatin1Char('=') || c.category() == QChar::Other_Control;
    });
}

void run(Session& session)
{
    const QStringList& words = session.arguments.positional();
    const QString logger = words.value(1);
    const QString level = words.value(2);
    if (words.size() > 1 && !isLoggerName(logger))
        throw Failure{ExitStatus::Usage, QStringLiteral("'%1' is no name of a logger").arg(logger)};
    if (words.size() > 2 && OrvoLogLevel::fromString(level) == OrvoLogLevel::Default)
        throw Failure{ExitStatus::Usage,
                      QStringLiteral("'%1' is no level: %2").arg(level, logLevelNames().join(QLatin1String(", ")))};

    LogFile file(words.first());
    if (words.size() == 1)
        return showAll(file, session.output);
    if (words.size() == 3)
        file.setLevel(logger, level.toUpper());
    showLevel(file, logger, session.output);
}

} // namespace

QStringList logLevelNames()
{
    QStringList names;
    for (const auto level : {OrvoLogLevel::Trace, OrvoLogLevel::Debug, OrvoLogLevel::Info, OrvoLogLevel::Warn,
                             OrvoLogLevel::Error, OrvoLogLevel::Fatal, OrvoLogLevel::Off})
        names.append(OrvoLogLevel::toString(level));
    return names;
}

Verb logVerb()
{
    return {
        QStringLiteral("log"),
        QStringLiteral("FILE [LOGGER [LEVEL]]"),
        QStringLiteral("Show or set the level of a logger in a log configuration file"),
        QStringLiteral("A running service follows its file within a second or so. LEVEL is trace, debug, info, warn, "
                       "error,\nfatal or off; the root logger is called root. A logger without a line gets one, with "
                       "the root's\nappenders."),
        1,
        3,
        {},
        run};
}
