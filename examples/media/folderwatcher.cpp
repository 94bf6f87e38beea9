#include "folderwatcher.h"

#include "medialog.h"
#include "soundfile.h"

#include <QDateTime>
#include <QDir>

#include <utility>

namespace {

/// A file rests for so long before it is read, and events gather for as long.
constexpr int settleMs = 150;

bool isSettling(const QFileInfo& file)
{
    // A time in the future, as on another machine's disk, says nothing.
    const qint64 age = QDateTime::currentMSecsSinceEpoch() - file.lastModified().toMSecsSinceEpoch();
    return age >= 0 && age < settleMs;
}

} // namespace

FolderWatcher::FolderWatcher(const QString& folder, QObject* parent)
    : QObject(parent), m_folder(folder), m_watcher(new QFileSystemWatcher(this)), m_timer(this)
{
    m_timer.setSingleShot(true);
    m_timer.setInterval(settleMs);
    connect(&m_timer, &QTimer::timeout, this, &FolderWatcher::scanTouched);
    connect(m_watcher, &QFileSystemWatcher::directoryChanged, this, [this](const QString& changed) {
        // The folder around ours tells when ours goes or comes back, and of much else.
        if (m_folders.contains(changed))
            scanLater(changed);
        else if (QFileInfo::exists(m_folder) != m_folders.contains(m_folder))
            scanLater(m_folder);
    });
    connect(m_watcher, &QFileSystemWatcher::fileChanged, this, [this](const QString& file) {
        m_eventful.insert(file);
        scanLater(QFileInfo(file).path());
    });
}

void FolderWatcher::rescan()
{
    for (Files& files : m_folders)
        for (State& state : files)
            state = State();
    const QList<QString> known = m_folders.keys();
    watch(QFileInfo(m_folder).path());
    scan(m_folder, DoNotWait);
    for (const QString& folder : known)
        if (folder != m_folder && m_folders.contains(folder))
            scan(folder, DoNotWait);
}

void FolderWatcher::scanLater(const QString& folder)
{
    m_touched.insert(folder);
    // Not started anew by each event: one file that is written for long must not hide all others.
    if (!m_timer.isActive())
        m_timer.start();
}

void FolderWatcher::scanTouched()
{
    const QSet<QString> touched = std::exchange(m_touched, {});
    for (const QString& folder : touched)
        if (folder == m_folder || m_folders.contains(folder))
            scan(folder);
}

void FolderWatcher::scan(const QString& folder, Settling settling)
{
    const QDir dir(folder);
    if (!dir.exists()) {
        if (folder == m_folder)
            LOG4CPLUS_WARN(mediaLog(), "the folder is gone: " << folder.toStdString());
        forget(folder);
        return;
    }
    // Ahead of the listing: what happens meanwhile is an event.
    watch(folder);
    Files now;
    QStringList subfolders;
    const Files before = m_folders.value(folder);
    for (const QFileInfo& entry :
         dir.entryInfoList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden, QDir::Name)) {
        const QString path = entry.filePath();
        if (entry.isDir()) {
            if (!entry.isSymLink())
                subfolders.append(path);
        } else if (SoundFile::isName(path)) {
            watchFile(path, before);
            now.insert(path, {entry.lastModified().toMSecsSinceEpoch(), entry.size()});
        }
    }
    m_folders.insert(folder, now);

    // What goes is told first: the other end of a renaming is a new file.
    for (auto it = before.cbegin(); it != before.cend(); ++it)
        if (!now.contains(it.key())) {
            m_watcher->removePath(it.key());
            emit fileGone(it.key());
        }
    const QList<QString> known = m_folders.keys();
    for (const QString& path : known)
        if (QFileInfo(path).path() == folder && path != folder && !subfolders.contains(path))
            forget(path);

    for (auto it = now.cbegin(); it != now.cend(); ++it) {
        const State old = before.value(it.key());
        if (old.changed == it->changed && old.size == it->size)
            continue;
        if (settling == Wait && isSettling(QFileInfo(it.key()))) {
            // Still unlike what was told, so that the next look finds it.
            m_folders[folder][it.key()] = old;
            scanLater(folder);
        } else {
            emit fileChanged(it.key());
        }
    }
    for (const QString& subfolder : qAsConst(subfolders))
        if (!m_folders.contains(subfolder))
            scan(subfolder, settling);
}

void FolderWatcher::forget(const QString& folder)
{
    const Files files = m_folders.take(folder);
    m_watcher->removePath(folder);
    for (auto it = files.cbegin(); it != files.cend(); ++it) {
        m_watcher->removePath(it.key());
        emit fileGone(it.key());
    }
    const QList<QString> known = m_folders.keys();
    for (const QString& path : known)
        if (QFileInfo(path).path() == folder)
            forget(path);
}

void FolderWatcher::watch(const QString& path)
{
    // Also refused when it is watched already.
    if (m_watcher->addPath(path) || m_refusalTold || m_watcher->files().contains(path)
        || m_watcher->directories().contains(path) || !QFileInfo::exists(path))
        return;
    m_refusalTold = true;
    LOG4CPLUS_WARN(mediaLog(), "cannot watch " << path.toStdString() << " and perhaps more; rescan finds what changes");
}

void FolderWatcher::watchFile(const QString& file, const Files& before)
{
    if (m_eventful.remove(file) || !before.contains(file))
        watch(file);
}
