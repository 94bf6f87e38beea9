#include "logfile.h"

#include "failure.h"
#include "records/orvovocabulary.h"

#include <QFile>
#include <QSaveFile>

#include <log4cplus/helpers/property.h>

#include <algorithm>

namespace {

const QString loggerKey = QStringLiteral("log4cplus.logger.");
const QString rootKey = QStringLiteral("log4cplus.rootLogger");

[[noreturn]] void fail(const QFileDevice& file, const QString& what)
{
    throw Failure{ExitStatus::ErrorReply,
                  QStringLiteral("cannot %1 %2: %3").arg(what, file.fileName(), file.errorString())};
}

QString keyOf(const QString& logger)
{
    return logger == LogFile::rootName() ? rootKey : loggerKey + logger;
}

/// A level that is inherited, or that log4cplus does not know, is none.
LogFile::Logger parsed(const QString& name, const QString& value)
{
    QStringList words = value.split(QLatin1Char(','));
    for (QString& word : words)
        word = word.trimmed();
    const QString level = words.takeFirst().toUpper();
    words.removeAll(QString());
    const bool isKnown = OrvoLogLevel::fromString(level) != OrvoLogLevel::Default;
    return {name, isKnown ? level : QString(), words};
}

/// Whether the line, as it stands in the file, sets the key.
bool sets(const QByteArray& line, const QByteArray& key)
{
    const int equals = line.indexOf('=');
    return equals > 0 && line.left(equals).trimmed() == key;
}

QByteArray lineEndOf(const QByteArray& line)
{
    return line.endsWith("\r\n") ? "\r\n" : "\n";
}

} // namespace

LogFile::LogFile(const QString& name) : m_name(name)
{
    read();
}

void LogFile::read()
{
    QFile file(m_name);
    if (!file.open(QIODevice::ReadOnly))
        fail(file, QStringLiteral("read"));
    const log4cplus::helpers::Properties properties(QFile::encodeName(m_name).toStdString());
    m_loggers.clear();
    for (const log4cplus::tstring& each : properties.propertyNames()) {
        const QString key = QString::fromStdString(each);
        const QString value = QString::fromStdString(properties.getProperty(each));
        if (key.startsWith(loggerKey))
            m_loggers.append(parsed(key.mid(loggerKey.size()), value));
        else if (key == rootKey)
            m_loggers.append(parsed(rootName(), value));
    }
    std::sort(m_loggers.begin(), m_loggers.end(), [](const Logger& a, const Logger& b) {
        return std::make_pair(a.name != rootName(), a.name) < std::make_pair(b.name != rootName(), b.name);
    });
}

const LogFile::Logger* LogFile::find(const QString& name) const
{
    for (const Logger& logger : m_loggers)
        if (logger.name == name)
            return &logger;
    return nullptr;
}

QString LogFile::effectiveLevel(const QString& logger) const
{
    for (QString name = logger; !name.isEmpty(); name.truncate(std::max(name.lastIndexOf(QLatin1Char('.')), 0))) {
        const Logger* own = find(name);
        if (own && !own->level.isEmpty())
            return own->level;
    }
    const Logger* root = find(rootName());
    return root ? root->level : QString();
}

void LogFile::setLevel(const QString& logger, const QString& level)
{
    const Logger* own = find(logger);
    const Logger* root = find(rootName());
    const QStringList appenders = own ? own->appenders : root ? root->appenders : QStringList();
    const QByteArray key = keyOf(logger).toUtf8();
    const QByteArray line = key + '=' + (QStringList(level) + appenders).join(QLatin1String(", ")).toUtf8();

    QFile file(m_name);
    if (!file.open(QIODevice::ReadOnly))
        fail(file, QStringLiteral("read"));
    QList<QByteArray> lines;
    // The last line for a key is the one that counts.
    int counting = -1;
    while (!file.atEnd()) {
        lines.append(file.readLine());
        if (sets(lines.last(), key))
            counting = lines.size() - 1;
    }
    if (counting >= 0) {
        lines[counting] = line + lineEndOf(lines.at(counting));
    } else {
        if (!lines.isEmpty() && !lines.last().endsWith('\n'))
            lines.last() += '\n';
        lines.append(line + (lines.isEmpty() ? QByteArray("\n") : lineEndOf(lines.last())));
    }

    QSaveFile replacement(m_name);
    if (!replacement.open(QIODevice::WriteOnly) || replacement.write(lines.join()) < 0 || !replacement.commit())
        fail(replacement, QStringLiteral("write"));
    read();
}
