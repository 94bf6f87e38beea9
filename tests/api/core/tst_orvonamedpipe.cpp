#include "core/orvoNamedPipe.h"

#include "childprocess.h"
#include "logcapture.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QSocketNotifier>
#include <QTemporaryDir>
#include <QtTest>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <memory>
#include <pthread.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

enum { Read = 1, Write = 2, Both = 3 };

std::atomic<int> s_signals{0};

/// A signal that interrupts what blocks, without a restart by the kernel.
void interruptBySignal()
{
    struct sigaction action = {};
    action.sa_handler = [](int) { ++s_signals; };
    sigaction(SIGUSR2, &action, nullptr);
}

QByteArray readAll(OrvoNamedPipe& pipe, int length)
{
    QByteArray bytes(length, '\0');
    const int count = pipe.read(bytes.constData(), length);
    return count < 0 ? QByteArray("failed") : bytes.left(count);
}

} // namespace

class tst_OrvoNamedPipe : public QObject
{
    Q_OBJECT

public slots:
    void on_readNotifier_activated(int)
    {
        ++m_activated;
        if (m_closeWhenActivated)
            m_pipe->close();
        else if (m_deleteWhenActivated)
            m_pipe.reset();
        else
            m_bytes += readAll(*m_pipe, 1024);
    }
    void on_writeNotifier_activated(int)
    {
        ++m_activated;
        m_pipe->writeNotifier()->setEnabled(false);
    }

private slots:
    void init()
    {
        m_dir.reset(new QTemporaryDir);
        m_name = m_dir->filePath("pipe");
        m_bytes.clear();
        m_activated = 0;
        m_closeWhenActivated = m_deleteWhenActivated = false;
    }

    void cleanup()
    {
        m_pipe.reset();
        m_dir.reset();
    }

    // Making and removing

    void createMakesAFifo()
    {
        OrvoNamedPipe pipe(m_name, Read);
        QVERIFY(pipe.create());
        QVERIFY(isFifo());
        QVERIFY(!pipe.isOpen());
    }

    void aPipeThatIsReadIsOpenToEverybodyWhateverTheMask_data()
    {
        QTest::addColumn<int>("flags");
        QTest::addColumn<uint>("mode");
        QTest::newRow("read") << int(Read) << 0666u;
        QTest::newRow("both") << int(Both) << 0666u;
        QTest::newRow("write") << int(Write) << 0640u;
    }

    void aPipeThatIsReadIsOpenToEverybodyWhateverTheMask()
    {
        QFETCH(int, flags);
        QFETCH(uint, mode);
        const mode_t mask = umask(027);
        OrvoNamedPipe pipe(m_name, flags);
        const bool created = pipe.create();
        umask(mask);
        QVERIFY(created);
        QCOMPARE(uint(status().st_mode & 0777), mode);
    }

    void anExistingFifoIsASuccess()
    {
        QCOMPARE(mkfifo(QFile::encodeName(m_name), 0600), 0);
        const ino_t inode = status().st_ino;
        const LogCapture log("OrvoNamedPipe");
        OrvoNamedPipe pipe(m_name, Read);
        QVERIFY(pipe.create());
        QCOMPARE(status().st_ino, inode);
        QCOMPARE(uint(status().st_mode & 0777), 0666u);
        QCOMPARE(log.lines(), QStringList());
    }

    void createMakesANewFifoWhenTheOldOneIsItsOwn()
    {
        // A second name keeps the old inode from being given out again.
        QCOMPARE(mkfifo(QFile::encodeName(m_name), 0600), 0);
        QCOMPARE(link(QFile::encodeName(m_name), QFile::encodeName(m_name + "2")), 0);
        const ino_t inode = status().st_ino;
        OrvoNamedPipe pipe(m_name, Both, nullptr, true);
        QVERIFY(pipe.create());
        QVERIFY(isFifo());
        QVERIFY(status().st_ino != inode);
    }

    void createClosesWhatWasOpen()
    {
        OrvoNamedPipe pipe(m_name, Both);
        QVERIFY(pipe.create() && pipe.open());
        QVERIFY(pipe.create());
        QVERIFY(!pipe.isOpen());
    }

    void aFifoThatCannotBeMadeIsAWarning()
    {
        const QString name = m_dir->filePath("none/pipe");
        const LogCapture log("OrvoNamedPipe");
        OrvoNamedPipe pipe(name, Both);
        errno = 0;
        QVERIFY(!pipe.create());
        QCOMPARE(errno, ENOENT);
        QCOMPARE(log.lines(), QStringList("WARN Unable to create pipe " + name + ", error: No such file or directory"));
    }

    void onlyAPipeThatIsAskedToRemovesItsFifo()
    {
        {
            OrvoNamedPipe pipe(m_name, Both);
            QVERIFY(pipe.create() && pipe.open());
        }
        QVERIFY(isFifo());
        {
            OrvoNamedPipe pipe(m_name, Both, nullptr, true);
            QVERIFY(pipe.create() && pipe.open());
        }
        QVERIFY(!QFileInfo::exists(m_name));
    }

    void theParentOwnsThePipe()
    {
        QObject parent;
        const QPointer<OrvoNamedPipe> pipe(new OrvoNamedPipe(m_name, Both, &parent, true));
        QVERIFY(pipe->create());
        delete pipe->parent()->children().first();
        QVERIFY(!pipe);
        QVERIFY(!QFileInfo::exists(m_name));
    }

    void aPipeWithoutANameStopsTheProcess()
    {
        const ChildEnd end = runThisProgram({"--no-name"});
        QVERIFY(end.stopped);
        QVERIFY2(end.errors.contains("!m_name.isEmpty()"), end.errors.constData());
    }

    // Opening

    void otherFlagsAreRefusedAlsoQuietly_data()
    {
        QTest::addColumn<int>("flags");
        QTest::newRow("0") << 0;
        QTest::newRow("4") << 4;
        QTest::newRow("7") << 7;
        QTest::newRow("-1") << -1;
    }

    void otherFlagsAreRefusedAlsoQuietly()
    {
        QFETCH(int, flags);
        const LogCapture log("OrvoNamedPipe");
        OrvoNamedPipe pipe(m_name, flags);
        QVERIFY(pipe.create());
        QVERIFY(!pipe.open(true));
        QVERIFY(!pipe.isOpen());
        QCOMPARE(log.lines(), QStringList(QString("ERROR Unsupported flags: %1").arg(flags)));
    }

    void openTellsOfAFailureUnlessQuiet()
    {
        const LogCapture log("OrvoNamedPipe");
        OrvoNamedPipe pipe(m_name, Both);
        QVERIFY(!pipe.open(true));
        QCOMPARE(log.lines(), QStringList());
        errno = 0;
        QVERIFY(!pipe.open());
        QCOMPARE(errno, ENOENT);
        QVERIFY(!pipe.isOpen());
        QCOMPARE(pipe.capacity(), -1);
        QCOMPARE(log.lines(), QStringList("ERROR Unable to open pipe" + m_name + " error: No such file or directory"));
    }

    void aWriterWithoutAReaderFailsSilentlyInNonBlockingMode()
    {
        const LogCapture log("OrvoNamedPipe");
        OrvoNamedPipe pipe(m_name, Write);
        QVERIFY(pipe.create());
        pipe.setNonBlock(true);
        QVERIFY(!pipe.open(true));
        QCOMPARE(errno, ENXIO);
        QVERIFY(!pipe.isOpen());
        QCOMPARE(log.lines(), QStringList());
    }

    void aWriterBlocksUntilItsReaderIsThere()
    {
        OrvoNamedPipe writer(m_name, Write);
        QVERIFY(writer.create());
        std::atomic<bool> opened{false};
        bool result = false;
        std::thread thread([&] {
            result = writer.open();
            opened = true;
        });
        QTest::qWait(50);
        const bool early = opened;
        OrvoNamedPipe reader(m_name, Read);
        const bool readerOpened = reader.open();
        thread.join();
        QVERIFY(!early);
        QVERIFY(readerOpened);
        QVERIFY(result);
    }

    void theDescriptorZeroIsAFailure()
    {
        const LogCapture log("OrvoNamedPipe");
        OrvoNamedPipe pipe(m_name, Both);
        QVERIFY(pipe.create());
        const int input = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
        QVERIFY(input >= 3);
        ::close(STDIN_FILENO);
        const bool opened = pipe.open();
        const bool isOpen = pipe.isOpen();
        pipe.close();
        const int gone = fcntl(STDIN_FILENO, F_GETFD);
        dup2(input, STDIN_FILENO);
        ::close(input);
        QVERIFY(!opened);
        QVERIFY(isOpen);
        QCOMPARE(gone, -1);
        QCOMPARE(log.lines().size(), 1);
        QVERIFY2(log.lines().first().startsWith("ERROR Unable to open pipe" + m_name + " error: "),
                 qPrintable(log.lines().first()));
    }

    void openingAnewLeaksNoDescriptor()
    {
        OrvoNamedPipe pipe(m_name, Both);
        QVERIFY(pipe.create());
        QVERIFY(pipe.open());
        const int before = descriptors();
        for (int i = 0; i < 5; ++i)
            QVERIFY(pipe.open());
        QCOMPARE(descriptors(), before);
        pipe.close();
        QCOMPARE(descriptors(), before - 1);
        pipe.close();
        QCOMPARE(descriptors(), before - 1);
    }

    // Capacity

    void theCapacityIsTheKernelsOnceThePipeWasOpen()
    {
        OrvoNamedPipe pipe(m_name, Both);
        QVERIFY(pipe.create());
        QCOMPARE(pipe.capacity(), -1);
        QVERIFY(pipe.open());
        QCOMPARE(pipe.capacity(), kernelsCapacity());
        QVERIFY(pipe.capacity() > 0);
    }

    void aCapacityTakesEffectAtTheNextOpen()
    {
        OrvoNamedPipe pipe(m_name, Both);
        QVERIFY(pipe.create() && pipe.open());
        QVERIFY(pipe.setCapacity(100000));
        QCOMPARE(pipe.capacity(), 100000);
        QVERIFY(kernelsCapacity() != 131072);
        QVERIFY(pipe.open());
        // Rounded up by the kernel.
        QCOMPARE(pipe.capacity(), 131072);
        QCOMPARE(kernelsCapacity(), 131072);
    }

    void theLimitIsTheSystems()
    {
        QFile file("/proc/sys/fs/pipe-max-size");
        QVERIFY(file.open(QIODevice::ReadOnly));
        const int limit = file.readAll().trimmed().toInt();
        OrvoNamedPipe pipe(m_name, Both);
        QVERIFY(limit > 0);
        QCOMPARE(pipe.maxSystemCapacity(), limit);
        QVERIFY(pipe.setCapacity(limit));
        const LogCapture log("OrvoNamedPipe");
        QVERIFY(!pipe.setCapacity(limit + 1));
        QCOMPARE(pipe.capacity(), limit);
        QCOMPARE(log.lines(), QStringList("WARN Cannot set capacity, over the system limit"));
    }

    void aCapacityThatCannotBeHadLeavesThePipeOpen_data()
    {
        QTest::addColumn<bool>("quiet");
        QTest::newRow("told") << false;
        QTest::newRow("quiet") << true;
    }

    void aCapacityThatCannotBeHadLeavesThePipeOpen()
    {
        QFETCH(bool, quiet);
        OrvoNamedPipe full(m_name, Both);
        QVERIFY(full.create() && full.open());
        const QByteArray bytes(full.capacity(), 'x');
        QCOMPARE(full.write(bytes.constData(), bytes.size()), bytes.size());

        const LogCapture log("OrvoNamedPipe");
        OrvoNamedPipe pipe(m_name, Both);
        QVERIFY(pipe.setCapacity(4096));
        QVERIFY(pipe.open(quiet));
        QVERIFY(pipe.isOpen());
        QCOMPARE(pipe.capacity(), full.capacity());
        QCOMPARE(log.lines(), quiet ? QStringList() : QStringList("WARN Unable to set pipe capacity: 4096"));
    }

    void aFileWithoutACapacityIsOpenedAndTold_data()
    {
        QTest::addColumn<bool>("quiet");
        QTest::newRow("told") << false;
        QTest::newRow("quiet") << true;
    }

    void aFileWithoutACapacityIsOpenedAndTold()
    {
        QFETCH(bool, quiet);
        QFile file(m_name);
        QVERIFY(file.open(QIODevice::WriteOnly));
        const LogCapture log("OrvoNamedPipe");
        OrvoNamedPipe pipe(m_name, Both);
        QVERIFY(pipe.open(quiet));
        QCOMPARE(pipe.capacity(), -1);
        QCOMPARE(log.lines(), quiet ? QStringList() : QStringList("WARN Unable to get pipe capacity"));
    }

    // Bytes

    void bytesGoThroughInOrder()
    {
        OrvoNamedPipe pipe(m_name, Both);
        QVERIFY(pipe.create() && pipe.open());
        QCOMPARE(pipe.bytesAvailable(), 0);
        QCOMPARE(pipe.write("one ", 4), 4);
        QCOMPARE(pipe.write("two", 3), 3);
        QCOMPARE(pipe.bytesAvailable(), 7);
        pipe.flush();
        QCOMPARE(readAll(pipe, 5), QByteArray("one t"));
        QCOMPARE(pipe.bytesAvailable(), 2);
        QCOMPARE(readAll(pipe, 100), QByteArray("wo"));
    }

    void aReaderSeesTheEndWhenTheLastWriterCloses()
    {
        OrvoNamedPipe reader(m_name, Read);
        QVERIFY(reader.create());
        reader.setNonBlock(true);
        QVERIFY(reader.open());
        OrvoNamedPipe writer(m_name, Write);
        writer.setNonBlock(true);
        QVERIFY(writer.open());
        QCOMPARE(reader.read(QByteArray(8, '\0').constData(), 8), -1);
        QCOMPARE(errno, EAGAIN);
        QCOMPARE(writer.write("end", 3), 3);
        writer.close();
        QCOMPARE(readAll(reader, 8), QByteArray("end"));
        QCOMPARE(reader.read(QByteArray(8, '\0').constData(), 8), 0);
    }

    void aShellWritesIntoThePipe()
    {
        OrvoNamedPipe pipe(m_name, Both);
        QVERIFY(pipe.create() && pipe.open());
        QCOMPARE(QProcess::execute("sh", {"-c", "printf 'from a shell' > " + m_name}), 0);
        QCOMPARE(readAll(pipe, 100), QByteArray("from a shell"));
    }

    void whatTheFlagsDoNotAllowIsSaidAndFails_data()
    {
        QTest::addColumn<QString>("call");
        QTest::addColumn<QString>("message");
        QTest::newRow("read closed") << "read closed"
                                     << "Cannot read from unopened pipe";
        QTest::newRow("write closed") << "write closed"
                                      << "Cannot write to unopened pipe";
        QTest::newRow("available closed") << "available closed"
                                          << "Pipe is not opened";
        QTest::newRow("read a writer") << "read writer"
                                       << "Cannot read from pipe which is not readable";
        QTest::newRow("write a reader") << "write reader"
                                        << "Cannot write to pipe which is not writable";
        QTest::newRow("read notifier") << "readNotifier closed"
                                       << "Get read notifier on non-opened pipe";
        QTest::newRow("write notifier") << "writeNotifier closed"
                                        << "Get write notifier on non-opened pipe";
    }

    void whatTheFlagsDoNotAllowIsSaidAndFails()
    {
        QFETCH(QString, call);
        QFETCH(QString, message);
        OrvoNamedPipe both(m_name, Both);
        QVERIFY(both.create() && both.open());
        QCOMPARE(both.write("x", 1), 1);
        OrvoNamedPipe pipe(m_name, call.endsWith("writer") ? Write : call.endsWith("reader") ? Read : Both);
        QVERIFY(call.endsWith("closed") || pipe.open());

        QTest::ignoreMessage(QtDebugMsg, message.toUtf8());
        char byte = 0;
        if (call.startsWith("readNotifier"))
            QVERIFY(!pipe.readNotifier());
        else if (call.startsWith("writeNotifier"))
            QVERIFY(!pipe.writeNotifier());
        else if (call.startsWith("read"))
            QCOMPARE(pipe.read(&byte, 1), -1);
        else if (call.startsWith("write"))
            QCOMPARE(pipe.write(&byte, 1), -1);
        else
            QCOMPARE(pipe.bytesAvailable(), -1);
    }

    void aNegativeLengthIsRefused()
    {
        OrvoNamedPipe pipe(m_name, Both);
        QVERIFY(pipe.create() && pipe.open());
        QCOMPARE(pipe.write("some bytes", 10), 10);
        char byte = 0;
        QCOMPARE(pipe.read(&byte, -1), -1);
        QCOMPARE(errno, EINVAL);
        QCOMPARE(pipe.write(&byte, -1), -1);
        QCOMPARE(errno, EINVAL);
        QCOMPARE(pipe.bytesAvailable(), 10);
    }

    void aReadGoesOnWhenASignalInterruptsIt()
    {
        interruptBySignal();
        OrvoNamedPipe pipe(m_name, Both);
        QVERIFY(pipe.create() && pipe.open());
        const int before = s_signals;
        QByteArray bytes;
        std::thread thread([&] { bytes = readAll(pipe, 10); });
        for (int i = 0; i < 20; ++i) {
            pthread_kill(thread.native_handle(), SIGUSR2);
            QTest::qWait(5);
        }
        pipe.write("late", 4);
        thread.join();
        QVERIFY(s_signals > before);
        QCOMPARE(bytes, QByteArray("late"));
    }

    void aWriteEndsWhenASignalInterruptsIt()
    {
        interruptBySignal();
        OrvoNamedPipe pipe(m_name, Both);
        QVERIFY(pipe.create() && pipe.open());
        const QByteArray bytes(pipe.capacity(), 'x');
        QCOMPARE(pipe.write(bytes.constData(), bytes.size()), bytes.size());
        std::atomic<bool> done{false};
        int result = 0;
        int error = 0;
        std::thread thread([&] {
            result = pipe.write("y", 1);
            error = errno;
            done = true;
        });
        for (int i = 0; i < 1000 && !done; ++i) {
            pthread_kill(thread.native_handle(), SIGUSR2);
            QTest::qWait(5);
        }
        const bool ended = done;
        if (!ended)
            readAll(pipe, bytes.size());
        thread.join();
        QVERIFY(ended);
        QCOMPARE(result, -1);
        QCOMPARE(error, EINTR);
    }

    // Notifiers

    void theReadNotifierTellsOfBytes()
    {
        openPipe();
        QCOMPARE(m_pipe->readNotifier(), m_pipe->readNotifier());
        QCOMPARE(m_pipe->readNotifier()->type(), QSocketNotifier::Read);
        QCOMPARE(m_pipe->readNotifier()->parent(), m_pipe.get());
        watchReading();
        m_pipe->write("first", 5);
        QTRY_COMPARE(m_bytes, QByteArray("first"));
        m_pipe->write("second", 6);
        QTRY_COMPARE(m_bytes, QByteArray("firstsecond"));
    }

    void theWriteNotifierTellsOfRoom()
    {
        openPipe();
        const QByteArray bytes(m_pipe->capacity(), 'x');
        QCOMPARE(m_pipe->write(bytes.constData(), bytes.size()), bytes.size());
        QCOMPARE(m_pipe->writeNotifier(), m_pipe->writeNotifier());
        QCOMPARE(m_pipe->writeNotifier()->type(), QSocketNotifier::Write);
        connect(m_pipe->writeNotifier(), SIGNAL(activated(int)), this, SLOT(on_writeNotifier_activated(int)));
        QTest::qWait(20);
        QCOMPARE(m_activated, 0);
        QCOMPARE(readAll(*m_pipe, bytes.size()), bytes);
        QTRY_COMPARE(m_activated, 1);
    }

    void closingDeletesTheNotifiers()
    {
        openPipe();
        const QPointer<QSocketNotifier> reading = m_pipe->readNotifier();
        const QPointer<QSocketNotifier> writing = m_pipe->writeNotifier();
        m_pipe->close();
        QVERIFY(!reading);
        QVERIFY(!writing);
        QVERIFY(m_pipe->open());
        watchReading();
        m_pipe->write("again", 5);
        QTRY_COMPARE(m_bytes, QByteArray("again"));
    }

    void thePipeMayBeClosedInsideItsNotification()
    {
        openPipe();
        watchReading();
        m_closeWhenActivated = true;
        m_pipe->write("x", 1);
        QTRY_COMPARE(m_activated, 1);
        QVERIFY(!m_pipe->isOpen());
    }

    void thePipeMayBeDeletedInsideItsNotification()
    {
        openPipe();
        watchReading();
        m_deleteWhenActivated = true;
        m_pipe->write("x", 1);
        QTRY_COMPARE(m_activated, 1);
        QVERIFY(!m_pipe);
    }

private:
    void openPipe()
    {
        m_pipe.reset(new OrvoNamedPipe(m_name, Both));
        m_pipe->setNonBlock(true);
        QVERIFY(m_pipe->create() && m_pipe->open());
    }

    void watchReading()
    {
        connect(m_pipe->readNotifier(), SIGNAL(activated(int)), this, SLOT(on_readNotifier_activated(int)));
    }

    struct stat status() const
    {
        struct stat status = {};
        stat(QFile::encodeName(m_name), &status);
        return status;
    }

    bool isFifo() const { return S_ISFIFO(status().st_mode); }

    int kernelsCapacity() const
    {
        const int fd = ::open(QFile::encodeName(m_name), O_RDWR | O_CLOEXEC);
        const int capacity = fcntl(fd, F_GETPIPE_SZ);
        ::close(fd);
        return capacity;
    }

    static int descriptors()
    {
        return QDir("/proc/self/fd").entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::System).size();
    }

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_name;
    std::unique_ptr<OrvoNamedPipe> m_pipe;
    QByteArray m_bytes;
    int m_activated = 0;
    bool m_closeWhenActivated = false;
    bool m_deleteWhenActivated = false;
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    if (application.arguments().value(1) == QLatin1String("--no-name")) {
        leaveNoCore();
        OrvoNamedPipe pipe(QString(), Both);
        return 0;
    }
    tst_OrvoNamedPipe test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_orvonamedpipe.moc"
