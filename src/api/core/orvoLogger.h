#pragma once

#include "records/orvovocabulary.h"

#include <QObject>
#include <QString>
#include <QStringList>

class OrvoNamedPipe;
class QFileSystemWatcher;
class QTimer;

/**
 * The log4cplus configuration of this process: loads its properties file, reloads it when it changes on disk, edits the
 * level of a logger in it, and takes log lines of other programs from a named pipe.
 *
 * One object for the process, never destroyed. It lives in the thread that calls instance() first, where reloading and
 * the pipe need an event loop; logging itself needs none and works in every thread.
 */
class OrvoLogger : public QObject
{
    Q_OBJECT

public:
    static OrvoLogger* instance();

    QString configFilePath() const { return m_configFilePath; }
    /**
     * Follows the file from now on, if it is there; a file that was loaded before is followed no more. Without
     * additivity, a logger that exists by now writes to the appenders of its own line only. What cannot be read changes
     * nothing.
     */
    void loadConfiguration(const QString& file, bool noAdditivity = true);

    /// The names of the loggers that exist, sorted; the root has none.
    QStringList loggers() const;
    /// The logger's own level; -1 when it has none and its parent's counts.
    int logLevel(const QString& logger) const;
    /**
     * Replaces the line of the logger in the configuration file by one with the level and the appender "console"; the
     * running logger follows when the file is reloaded. Default is written as Info. False when there is no such logger
     * or no such line, or when the file cannot be rewritten, which then stays as it was.
     */
    bool setLogLevel(const QString& logger, OrvoLogLevel::Enum level);
    /// Silences the root, and all loggers without a level of their own.
    void disable();

    /**
     * Makes a FIFO that anybody may write lines to: logger, level in capitals and message, separated by one blank each,
     * in UTF-8. Lines that are not of this form are dropped. True when the listener is there, also from an earlier call
     * with another name.
     */
    bool startExternalListener(const QString& pipeName);

signals:
    /// The file was reloaded because it changed.
    void configurationChanged();

private slots:
    void on_loggerConfigTimer_timeout();
    void on_loggerWatcher_changed(QString file);
    void on_externalListenerPipeNotifier_activated(int fd);

private:
    OrvoLogger();

    void reload();

    QString m_configFilePath;
    QTimer* const m_loggerConfigTimer;
    QFileSystemWatcher* const m_loggerWatcher;
    OrvoNamedPipe* m_externalListenerPipe = nullptr;
};
