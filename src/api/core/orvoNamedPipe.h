#pragma once

#include <QObject>
#include <QString>

class QSocketNotifier;

/**
 * A FIFO of the file system: makes it, opens it in a chosen direction, moves bytes and tells an event loop of them.
 *
 * Owned by its parent or by whoever made it; the destructor closes the FIFO and, when asked to, removes it. Belongs to
 * one thread, whose event loop the notifiers need. A failure is false or -1, with errno as the system call left it.
 */
class OrvoNamedPipe : public QObject
{
    Q_OBJECT

public:
    /// The flags are 1 for reading, 2 for writing or 3 for both. The name is a path and not empty.
    OrvoNamedPipe(const QString& name, int flags, QObject* parent = nullptr, bool unlinkWhenDestroying = false);
    ~OrvoNamedPipe() override;

    /// Makes the FIFO; one that is there already is as good. A pipe that is read can be written to by everybody.
    bool create();
    /// Closes, and removes the FIFO when asked to at construction.
    void destroy();
    /**
     * Blocks until the other end is there, except in non-blocking mode or with both directions. A pipe that is open is
     * closed first. A capacity that cannot be had is a log line, not a failure; quiet keeps all lines back but the one
     * of wrong flags.
     */
    bool open(bool quiet = false);
    /// Deletes the notifiers, too.
    void close();
    bool isOpen() const { return fd >= 0; }

    /// How many bytes came, 0 at the end of the stream. Goes on when a signal interrupts it. The buffer is written to.
    int read(const char* buffer, int length);
    /// How many bytes the kernel took. A signal may interrupt it: the caller knows whether to send the rest.
    int write(const char* buffer, int length);
    /// How many bytes can be read at once.
    int bytesAvailable();
    /// Nothing is held back here, so there is nothing to do.
    void flush() {}

    /// Takes effect at the next open().
    void setNonBlock(bool nonBlock) { this->nonBlock = nonBlock; }

    /// Bytes that the kernel keeps between writer and reader; -1 before the first open().
    int capacity() const { return m_capacity; }
    /// Takes effect at the next open(); false above the limit of the system.
    bool setCapacity(int capacity);
    int maxSystemCapacity() const;

    // Made at the first call and owned by the pipe until it is closed; null when it is not open.
    QSocketNotifier* readNotifier();
    QSocketNotifier* writeNotifier();

private:
    const QString m_name;
    const int flags;
    bool nonBlock = false;
    int fd = -1;
    int m_capacity = -1;
    QSocketNotifier* readNotifierObject = nullptr;
    QSocketNotifier* writeNotifierObject = nullptr;
    const bool unlinkWhenDestroying;
};
