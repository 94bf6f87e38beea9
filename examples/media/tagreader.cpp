#include "tagreader.h"

#include "folderwatcher.h"
#include "medialog.h"
#include "soundfile.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>

TagReader::TagReader(const QString& folder)
    : m_folder(folder), m_watcher(new FolderWatcher(folder, this)), m_nextTimer(this)
{
    m_nextTimer.setInterval(0);
    connect(&m_nextTimer, &QTimer::timeout, this, &TagReader::readNext);
    connect(m_watcher, &FolderWatcher::fileChanged, this, &TagReader::on_watcher_fileChanged);
    connect(m_watcher, &FolderWatcher::fileGone, this, &TagReader::on_watcher_fileGone);
}

void TagReader::rescan(int number)
{
    m_rescan = number;
    m_watcher->rescan();
    // Also without any file: somebody waits for the end.
    m_nextTimer.start();
}

void TagReader::on_watcher_fileChanged(const QString& file)
{
    if (m_waiting.contains(file))
        return;
    if (m_queue.isEmpty())
        emit busy();
    m_waiting.insert(file);
    m_queue.append(file);
    m_nextTimer.start();
}

void TagReader::on_watcher_fileGone(const QString& file)
{
    m_waiting.remove(file);
    emit trackGone(idOf(file));
}

void TagReader::readNext()
{
    if (!m_queue.isEmpty()) {
        const QString file = m_queue.takeFirst();
        if (m_waiting.remove(file))
            read(file);
    }
    if (m_queue.isEmpty()) {
        m_nextTimer.stop();
        emit caughtUp(m_rescan);
    }
}

void TagReader::read(const QString& file)
{
    QString why;
    const std::optional<OrvoMediaData> data = SoundFile::read(file, why);
    if (!data) {
        LOG4CPLUS_WARN(mediaLog(), "skipped " << file.toStdString() << ": " << why.toStdString());
        emit trackGone(idOf(file));
        return;
    }
    emit trackRead({idOf(file), *data, QFileInfo(file).lastModified().toMSecsSinceEpoch()});
}

QString TagReader::idOf(const QString& file) const
{
    return QDir(m_folder).relativeFilePath(file);
}
