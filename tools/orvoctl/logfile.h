#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

/**
 * The log4cplus properties file of a service, read as log4cplus reads it and edited line by line.
 *
 * The root logger goes by the name "root". Appenders are never made here: the files that they write belong to the
 * service. A value class.
 */
class LogFile
{
public:
    struct Logger
    {
        QString name;
        /// In capitals; empty when the logger has none of its own.
        QString level;
        QStringList appenders;
    };

    /// Throws a Failure when the file cannot be read.
    explicit LogFile(const QString& name);

    static QString rootName() { return QStringLiteral("root"); }
    /// Those with a line, the root first and the others sorted.
    const QVector<Logger>& loggers() const { return m_loggers; }
    /// The level that counts: the logger's own, or that of the nearest logger above it. Empty when the file has none.
    QString effectiveLevel(const QString& logger) const;
    /**
     * Writes the level into the line that counts for the logger, and leaves its appenders. A logger without a line gets
     * one with the root's appenders. The file is replaced as a whole; throws a Failure when it cannot be.
     */
    void setLevel(const QString& logger, const QString& level);

private:
    void read();
    const Logger* find(const QString& name) const;

    QString m_name;
    QVector<Logger> m_loggers;
};
