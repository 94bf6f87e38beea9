#include "core/orvoNamedPipe.h"

#include "core/orvoLog_p.h"

#include <QDebug>
#include <QFile>
#include <QSocketNotifier>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

ORVO_LOGGER("OrvoNamedPipe")

enum Flag { Read = 1, Write = 2 };

/// Writing a line must not hide from the caller what went wrong.
class KeptErrno
{
public:
    ~KeptErrno() { errno = m_errno; }
    const char* text() const { return strerror(m_errno); }

private:
    const int m_errno = errno;
};

} // namespace

OrvoNamedPipe::OrvoNamedPipe(const QString& name, int flags, QObject* parent, bool unlinkWhenDestroying)
    : QObject(parent), m_name(name), flags(flags), unlinkWhenDestroying(unlinkWhenDestroying)
{
    Q_ASSERT(!m_name.isEmpty());
}

OrvoNamedPipe::~OrvoNamedPipe()
{
    destroy();
}

bool OrvoNamedPipe::create()
{
    destroy();
    const QByteArray path = QFile::encodeName(m_name);
    if (mkfifo(path, 0666) != 0 && errno != EEXIST) {
        const KeptErrno error;
        LOG4CPLUS_WARN(logger(), "Unable to create pipe " << m_name << ", error: " << error.text());
        return false;
    }
    // Whatever mask the process has: the writers are other programs, of other users.
    if (flags & Read)
        chmod(path, S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH);
    return true;
}

void OrvoNamedPipe::destroy()
{
    close();
    if (unlinkWhenDestroying)
        unlink(QFile::encodeName(m_name));
}

bool OrvoNamedPipe::open(bool quiet)
{
    close();
    int mode = 0;
    switch (flags) {
    case Read:
        mode = O_RDONLY;
        break;
    case Write:
        mode = O_WRONLY;
        break;
    case Read | Write:
        mode = O_RDWR;
        break;
    default:
        LOG4CPLUS_ERROR(logger(), "Unsupported flags: " << flags);
        return false;
    }
    if (nonBlock)
        mode |= O_NONBLOCK;

    fd = ::open(QFile::encodeName(m_name), mode | O_CLOEXEC);
    // The descriptor 0 was standard input: who lost that finds it here no more. It is kept, so that close() returns it.
    if (fd < 1) {
        const KeptErrno error;
        if (!quiet)
            LOG4CPLUS_ERROR(logger(), "Unable to open pipe" << m_name << " error: " << error.text());
        return false;
    }
    if (m_capacity > 0 && fcntl(fd, F_SETPIPE_SZ, m_capacity) < 0 && !quiet)
        LOG4CPLUS_WARN(logger(), "Unable to set pipe capacity: " << m_capacity);
    m_capacity = fcntl(fd, F_GETPIPE_SZ);
    if (m_capacity < 0 && !quiet)
        LOG4CPLUS_WARN(logger(), "Unable to get pipe capacity");
    return true;
}

void OrvoNamedPipe::close()
{
    if (!isOpen())
        return;
    delete readNotifierObject;
    readNotifierObject = nullptr;
    delete writeNotifierObject;
    writeNotifierObject = nullptr;
    ::close(fd);
    fd = -1;
}

int OrvoNamedPipe::read(const char* buffer, int length)
{
    if (!isOpen()) {
        qDebug("Cannot read from unopened pipe");
        return -1;
    }
    if (!(flags & Read)) {
        qDebug("Cannot read from pipe which is not readable");
        return -1;
    }
    if (length < 0) {
        errno = EINVAL;
        return -1;
    }
    ssize_t count = 0;
    do {
        count = ::read(fd, const_cast<char*>(buffer), size_t(length));
    } while (count < 0 && errno == EINTR);
    return int(count);
}

int OrvoNamedPipe::write(const char* buffer, int length)
{
    if (!isOpen()) {
        qDebug("Cannot write to unopened pipe");
        return -1;
    }
    if (!(flags & Write)) {
        qDebug("Cannot write to pipe which is not writable");
        return -1;
    }
    if (length < 0) {
        errno = EINVAL;
        return -1;
    }
    return int(::write(fd, buffer, size_t(length)));
}

int OrvoNamedPipe::bytesAvailable()
{
    if (!isOpen()) {
        qDebug("Pipe is not opened");
        return -1;
    }
    int count = 0;
    return ioctl(fd, FIONREAD, &count) < 0 ? -1 : count;
}

bool OrvoNamedPipe::setCapacity(int capacity)
{
    if (capacity > maxSystemCapacity()) {
        LOG4CPLUS_WARN(logger(), "Cannot set capacity, over the system limit");
        return false;
    }
    m_capacity = capacity;
    return true;
}

int OrvoNamedPipe::maxSystemCapacity() const
{
    QFile file(QStringLiteral("/proc/sys/fs/pipe-max-size"));
    return file.open(QIODevice::ReadOnly) ? file.readLine().trimmed().toInt() : 0;
}

QSocketNotifier* OrvoNamedPipe::readNotifier()
{
    if (!isOpen()) {
        qDebug("Get read notifier on non-opened pipe");
        return nullptr;
    }
    if (!readNotifierObject)
        readNotifierObject = new QSocketNotifier(fd, QSocketNotifier::Read, this);
    return readNotifierObject;
}

QSocketNotifier* OrvoNamedPipe::writeNotifier()
{
    if (!isOpen()) {
        qDebug("Get write notifier on non-opened pipe");
        return nullptr;
    }
    if (!writeNotifierObject)
        writeNotifierObject = new QSocketNotifier(fd, QSocketNotifier::Write, this);
    return writeNotifierObject;
}
