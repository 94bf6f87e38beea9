#pragma once

#include "track.h"

#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QTimer>

class FolderWatcher;

/**
 * Reads the tags of a folder's files in a thread of its own: what the watcher tells becomes tracks.
 *
 * Lives in the reading thread together with its watcher; everything else speaks to it by queued signals. Reads one file
 * for each turn of the event loop, so that changes are heard and the thread's quit() acts after one file at most.
 */
class TagReader : public QObject
{
    Q_OBJECT

public:
    explicit TagReader(const QString& folder);

public slots:
    /// Reads all files again. The number comes back in caughtUp() when the tracks of all of them have been told.
    void rescan(int number);

signals:
    void trackRead(const Track& track);
    /// Also for a file that cannot be read, and for one that never was told.
    void trackGone(const QString& id);
    /// Nothing waits to be read; all rescans up to the number are done.
    void caughtUp(int number);
    /// Files wait to be read.
    void busy();

private:
    void on_watcher_fileChanged(const QString& file);
    void on_watcher_fileGone(const QString& file);
    void readNext();
    void read(const QString& file);
    QString idOf(const QString& file) const;

    const QString m_folder;
    FolderWatcher* const m_watcher;
    QTimer m_nextTimer;
    /// In the order of their events; a file that went meanwhile is in the list alone.
    QStringList m_queue;
    QSet<QString> m_waiting;
    int m_rescan = 0;
};
