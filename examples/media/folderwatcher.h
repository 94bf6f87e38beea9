#pragma once

#include <QFileSystemWatcher>
#include <QHash>
#include <QObject>
#include <QSet>
#include <QTimer>

/**
 * Tells which sound files a folder and its subfolders hold, and each file that appears, changes or goes.
 *
 * Compares what it sees with what it saw before, folder by folder, so that any number of events of one file is one
 * report. A file that was written to a moment ago is left for later: it is told once it settles. A renamed file is one
 * that goes and one that appears. Folders behind symbolic links are not entered.
 *
 * Lives in one thread, which needs an event loop, and blocks it while it lists folders.
 */
class FolderWatcher : public QObject
{
    Q_OBJECT

public:
    explicit FolderWatcher(const QString& folder, QObject* parent = nullptr);

    QString folder() const { return m_folder; }

    /// Looks at everything again, and tells of all files at once as if they had changed and settled.
    void rescan();

signals:
    /// The file is new or has changed. Paths are absolute.
    void fileChanged(const QString& file);
    void fileGone(const QString& file);

private:
    /// What tells one state of a file from another.
    struct State
    {
        qint64 changed = 0;
        qint64 size = -1;
    };
    using Files = QHash<QString, State>;

    void scanLater(const QString& folder);
    void scanTouched();
    enum Settling { Wait, DoNotWait };
    void scan(const QString& folder, Settling settling = Wait);
    void forget(const QString& folder);
    void watch(const QString& path);
    void watchFile(const QString& file, const Files& before);

    const QString m_folder;
    QFileSystemWatcher* const m_watcher;
    QTimer m_timer;
    /// Folders to look at when the timer ends.
    QSet<QString> m_touched;
    /// The files of each known folder.
    QHash<QString, Files> m_folders;
    /// Files with events: one that was replaced is a new one for the system, which no longer watches it.
    QSet<QString> m_eventful;
    bool m_refusalTold = false;
};
