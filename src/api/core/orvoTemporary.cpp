#include "core/orvoTemporary.h"

#include "core/orvoLog_p.h"
#include "records/orvoconstants.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QMutexLocker>

#include <utility>

namespace {

ORVO_LOGGER("TemporaryDataStorage")

} // namespace

TemporaryDataStorage::FileInfo::~FileInfo()
{
    delete device;
}

TemporaryDataStorage::FileInfo::FileInfo(FileInfo&& other) noexcept
    : m_url(std::exchange(other.m_url, QString())), device(std::exchange(other.device, nullptr))
{}

TemporaryDataStorage::FileInfo& TemporaryDataStorage::FileInfo::operator=(FileInfo&& other) noexcept
{
    std::swap(m_url, other.m_url);
    std::swap(device, other.device);
    return *this;
}

QString TemporaryDataStorage::FileInfo::url() const
{
    return qobject_cast<QFile*>(device) ? m_url : QString();
}

TemporaryDataStorage* TemporaryDataStorage::instance()
{
    static TemporaryDataStorage storage;
    return &storage;
}

QString TemporaryDataStorage::fileNamePrefix()
{
    return OrvoWebserverReadPathPrefix();
}

QString TemporaryDataStorage::store(const QString& name, const char* data, int size, const QString& extension)
{
    const QByteArray bytes = QByteArray::fromRawData(data, size);
    const QString hash = QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Md5).toHex());
    {
        const QMutexLocker locker(&m_mutex);
        const auto it = m_names.constFind(name);
        if (it != m_names.constEnd() && it->hash == hash) {
            LOG4CPLUS_DEBUG(logger(), "Data for " << name << " is the same - not saving");
            return it->url;
        }
    }
    FileInfo info = create(name, extension, hash);
    QString url = info.url();
    if (url.isEmpty())
        return QString();
    if (!append(info, data, size)) {
        const QString fileName = static_cast<QFile*>(info.device)->fileName();
        close(info);
        discard(name, fileName);
        return QString();
    }
    close(info);
    return url;
}

TemporaryDataStorage::FileInfo TemporaryDataStorage::create(const QString& name, const QString& extension,
                                                            const QString& hash)
{
    remove(name);
    const NameInfo entry = createName(name, extension, hash);
    auto* const file = new QFile(entry.fileName);
    FileInfo info;
    info.device = file;
    if (!file->open(QIODevice::WriteOnly)) {
        close(info);
        discard(name, entry.fileName);
        return info;
    }
    info.m_url = entry.url;
    // Another thread may have taken the name away meanwhile; whose file was opened last has it.
    const QMutexLocker locker(&m_mutex);
    m_names.insert(name, entry);
    return info;
}

bool TemporaryDataStorage::append(FileInfo& info, const char* data, int size)
{
    auto* const file = qobject_cast<QFile*>(info.device);
    // What stays in the buffer would fail unseen when the file is closed.
    return file && file->write(data, size) == size && file->flush();
}

void TemporaryDataStorage::close(FileInfo& info)
{
    if (!qobject_cast<QFile*>(info.device))
        return;
    info.device->close();
    delete info.device;
    info.device = nullptr;
    info.m_url.clear();
}

void TemporaryDataStorage::remove(const QString& name)
{
    const QString fileName = getName(name);
    if (fileName.isEmpty())
        return;
    removeName(name);
    QFile(fileName).remove();
}

void TemporaryDataStorage::cleanup(const QString& name)
{
    const QString prefix = fileNamePrefix();
    const int behindFolder = prefix.lastIndexOf(QLatin1Char('/')) + 1;
    const QDir folder(behindFolder > 0 ? prefix.left(behindFolder) : QDir::currentPath());
    // Compared as text: a name filter would read wildcards in the name and take letters of either case.
    const QString head = prefix.mid(behindFolder) + name + QLatin1Char('_');
    const auto all = QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System;
    const QStringList entries = folder.entryList(all);
    for (const QString& entry : entries) {
        if (!entry.startsWith(head))
            continue;
        const QString path = folder.filePath(entry);
        if (!QFile::remove(path))
            LOG4CPLUS_ERROR(logger(), "Error removing temporary file " << path);
    }
}

QString TemporaryDataStorage::getName(const QString& name)
{
    const QMutexLocker locker(&m_mutex);
    return m_names.value(name).fileName;
}

void TemporaryDataStorage::removeName(const QString& name)
{
    const QMutexLocker locker(&m_mutex);
    m_names.remove(name);
}

TemporaryDataStorage::NameInfo TemporaryDataStorage::createName(const QString& name, const QString& extension,
                                                                const QString& hash)
{
    const QMutexLocker locker(&m_mutex);
    ++m_counter;
    NameInfo info;
    // One call for all, so that a "%1" inside of a name is left alone.
    info.fileName = QStringLiteral("%1%2_%3%4")
                        .arg(fileNamePrefix(), name, hash.isEmpty() ? QString::number(m_counter) : hash, extension);
    info.hash = hash;
    info.url = QLatin1String("file://") + info.fileName;
    m_names.insert(name, info);
    return info;
}

/// Takes back one file that could not be written, and its name unless that stands for another file by now.
void TemporaryDataStorage::discard(const QString& name, const QString& fileName)
{
    {
        const QMutexLocker locker(&m_mutex);
        const auto it = m_names.find(name);
        if (it != m_names.end() && it->fileName == fileName)
            m_names.erase(it);
    }
    QFile::remove(fileName);
}
