#include "wholefile.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace WholeFile {

namespace {

/// An open file or folder; closed with its end.
class Descriptor
{
public:
    Descriptor(const QByteArray& path, int flags) : m_number(::open(path, flags | O_CLOEXEC, 0666)) {}
    ~Descriptor()
    {
        if (m_number >= 0)
            ::close(m_number);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    bool isOpen() const { return m_number >= 0; }
    int number() const { return m_number; }

private:
    const int m_number;
};

QString failure(const char* what, const QByteArray& path)
{
    return QStringLiteral("cannot %1 %2: %3")
        .arg(QLatin1String(what), QFile::decodeName(path), QString::fromLocal8Bit(std::strerror(errno)));
}

bool writeAll(int descriptor, const QByteArray& bytes)
{
    for (int at = 0; at < bytes.size();) {
        const ssize_t count = ::write(descriptor, bytes.constData() + at, size_t(bytes.size() - at));
        if (count < 0 && errno != EINTR)
            return false;
        at += int(std::max<ssize_t>(0, count));
    }
    return true;
}

} // namespace

QString write(const QString& file, const QByteArray& bytes)
{
    const QByteArray path = QFile::encodeName(file);
    const QByteArray newPath = path + ".new";
    {
        const Descriptor out(newPath, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW);
        struct stat present = {};
        if (!out.isOpen() || (::stat(path, &present) == 0 && ::fchmod(out.number(), present.st_mode & 07777) != 0)
            || !writeAll(out.number(), bytes) || ::fsync(out.number()) != 0)
            return failure("write", newPath);
    }
    if (::rename(newPath, path) != 0)
        return failure("replace", path);
    const QByteArray folder = QFile::encodeName(QFileInfo(file).absolutePath());
    const Descriptor directory(folder, O_RDONLY | O_DIRECTORY);
    if (!directory.isOpen() || ::fsync(directory.number()) != 0)
        return failure("sync", folder);
    return {};
}

} // namespace WholeFile
