#include "core/orvoMemoryAccess.h"

#include "childprocess.h"

#include <QTemporaryDir>
#include <QtTest>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

// A child of this program sees a plain file, or something worse, where the device is: it has a mount namespace of its
// own, in which /dev is empty save for that. The rest of the machine sees nothing of it.

namespace {

bool writeText(const char* path, const QByteArray& text)
{
    const int file = open(path, O_WRONLY | O_CLOEXEC);
    const bool written = file >= 0 && write(file, text.constData(), size_t(text.size())) == text.size();
    if (file >= 0)
        close(file);
    return written;
}

/// Without the rights of root it takes a user namespace, too, in which this user counts as root.
bool leaveTheMachine()
{
    if (geteuid() == 0)
        return unshare(CLONE_NEWNS) == 0;
    const QByteArray user = "0 " + QByteArray::number(geteuid()) + " 1";
    const QByteArray group = "0 " + QByteArray::number(getegid()) + " 1";
    return unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && writeText("/proc/self/setgroups", "deny")
           && writeText("/proc/self/uid_map", user) && writeText("/proc/self/gid_map", group);
}

/// The device is the file of that path, or a "fifo", or there is "none".
bool setDevice(const char* device)
{
    if (!leaveTheMachine() || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0
        || mount("none", "/dev", "tmpfs", 0, nullptr) != 0)
        return false;
    if (std::strcmp(device, "none") == 0)
        return true;
    if (std::strcmp(device, "fifo") == 0)
        return mkfifo("/dev/mem", 0600) == 0;
    const int target = open("/dev/mem", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    return target >= 0 && close(target) == 0 && mount(device, "/dev/mem", nullptr, MS_BIND, nullptr) == 0;
}

int openFiles()
{
    return QDir("/proc/self/fd").entryList(QDir::AllEntries | QDir::System).size();
}

bool isMapped()
{
    QFile maps("/proc/self/maps");
    return maps.open(QIODevice::ReadOnly) && maps.readAll().contains("/dev/mem");
}

/// --memory DEVICE read|write ADDRESS LENGTH [VALUE]: what came of it on standard output.
int child(const QStringList& arguments)
{
    if (!setDevice(arguments.at(2).toUtf8().constData())) {
        std::cout << "no namespace: " << std::strerror(errno) << std::endl;
        return 0;
    }
    const int address = int(arguments.at(4).toUInt(nullptr, 0));
    const int length = arguments.at(5).toInt();
    const int before = openFiles();
    if (arguments.at(3) == "write") {
        const bool ok = OrvoMemoryAccess::writeMem(address, length, arguments.at(6).toUInt(nullptr, 0));
        std::cout << (ok ? "true" : "false");
    } else {
        std::vector<unsigned long> value(600, 0xEEEEEEEEEEEEEEEE);
        const bool ok = OrvoMemoryAccess::readMem(address, length, value.data());
        const int size = std::max<int>(sizeof(unsigned long), length);
        std::cout << (ok ? "true " : "false ")
                  << QByteArray(reinterpret_cast<const char*>(value.data()), std::min(size, 4100)).toHex().constData();
    }
    std::cout << (openFiles() == before && !isMapped() ? "" : " left open") << std::endl;
    return 0;
}

} // namespace

class tst_OrvoMemoryAccess : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(m_folder.isValid());
        m_file.setFileName(m_folder.filePath("memory"));
        setContent();
        run({"read", "0", "1"});
        if (m_output.startsWith("no namespace: "))
            QSKIP(("A mount namespace is not allowed here: " + m_output).constData());
    }

    void init() { setContent(); }

    void unitsAreLoadedInTheirSize_data()
    {
        QTest::addColumn<QString>("address");
        QTest::addColumn<int>("length");
        QTest::addColumn<QByteArray>("output");
        // The byte at address a of page p is a + p; the value is wider than the unit.
        QTest::newRow("byte") << "0x10" << 1 << QByteArray("true 1000000000000000");
        QTest::newRow("odd byte") << "0x13" << 1 << QByteArray("true 1300000000000000");
        QTest::newRow("last byte") << "0xfff" << 1 << QByteArray("true ff00000000000000");
        QTest::newRow("two bytes") << "0x10" << 2 << QByteArray("true 1011000000000000");
        QTest::newRow("four bytes") << "0x10" << 4 << QByteArray("true 1011121300000000");
        QTest::newRow("in the second page") << "0x1010" << 4 << QByteArray("true 1112131400000000");
        QTest::newRow("in the third page") << "0x2ffc" << 4 << QByteArray("true feff000100000000");
    }

    void unitsAreLoadedInTheirSize()
    {
        QFETCH(QString, address);
        QFETCH(int, length);
        run({"read", address, QString::number(length)});
        QTEST(m_output, "output");
        QCOMPARE(m_errors, QByteArray());
    }

    void otherLengthsAreCopied_data()
    {
        QTest::addColumn<int>("length");
        for (const int length : {3, 5, 8, 9, 100, 4095, 4096})
            QTest::addRow("%d", length) << length;
    }

    void otherLengthsAreCopied()
    {
        QFETCH(int, length);
        run({"read", "0x1000", QString::number(length)});
        QByteArray expected = m_content.mid(0x1000, length);
        // What lies behind stays.
        while (expected.size() < 8)
            expected.append(char(0xEE));
        QCOMPARE(m_output, "true " + expected.toHex());
        QCOMPARE(m_errors, QByteArray());
    }

    void aLengthOfNothingCopiesNothing()
    {
        run({"read", "0x10", "0"});
        QCOMPARE(m_output, QByteArray("true eeeeeeeeeeeeeeee"));
    }

    void lengthsBeyondAPageAreInvalid_data()
    {
        QTest::addColumn<int>("length");
        QTest::newRow("4097") << 4097;
        QTest::newRow("negative") << -1;
    }

    void lengthsBeyondAPageAreInvalid()
    {
        QFETCH(int, length);
        run({"read", "0x10", QString::number(length)});
        QVERIFY2(m_output.startsWith("false eeeeeeeeeeeeeeee"), m_output.constData());
        QVERIFY2(!m_output.contains("left open"), m_output.constData());
        QCOMPARE(m_errors, "readMem: Invalid length: " + QByteArray::number(length) + "\n");
    }

    void unitsAreStoredInTheirSize_data()
    {
        QTest::addColumn<int>("length");
        QTest::addColumn<QString>("value");
        QTest::addColumn<QByteArray>("stored");
        QTest::addColumn<bool>("fits");
        QTest::newRow("byte") << 1 << "0x80" << QByteArray("80") << true;
        QTest::newRow("largest byte") << 1 << "0xff" << QByteArray("ff") << true;
        QTest::newRow("more than a byte") << 1 << "0x1ff" << QByteArray("ff") << false;
        QTest::newRow("two bytes") << 2 << "0xfffe" << QByteArray("feff") << true;
        QTest::newRow("more than two bytes") << 2 << "0x12345" << QByteArray("4523") << false;
        QTest::newRow("four bytes") << 4 << "0xfffefdfc" << QByteArray("fcfdfeff") << true;
        QTest::newRow("zero") << 4 << "0" << QByteArray("00000000") << true;
    }

    void unitsAreStoredInTheirSize()
    {
        QFETCH(int, length);
        QFETCH(QString, value);
        QFETCH(QByteArray, stored);
        QFETCH(bool, fits);
        run({"write", "0x1ffc", QString::number(length), value});
        QCOMPARE(m_output, QByteArray(fits ? "true" : "false"));
        QCOMPARE(m_errors, QByteArray());
        QCOMPARE(content(), QByteArray(m_content).replace(0x1ffc, length, QByteArray::fromHex(stored)));
    }

    void otherLengthsAreNotStored_data()
    {
        QTest::addColumn<int>("length");
        for (const int length : {-1, 0, 3, 8})
            QTest::addRow("%d", length) << length;
    }

    void otherLengthsAreNotStored()
    {
        QFETCH(int, length);
        run({"write", "0x10", QString::number(length), "1"});
        QCOMPARE(m_output, QByteArray("false"));
        QCOMPARE(m_errors, QByteArray("writeMem:Unknow type length\n"));
        run({"write", "0x10", QString::number(length), "0"});
        QCOMPARE(m_output, QByteArray("true"));
        QCOMPARE(m_errors, QByteArray("writeMem:Unknow type length\n"));
        QCOMPARE(content(), m_content);
    }

    void theUpperHalfOfThirtyTwoBitsIsReached()
    {
        // A file with a hole as large as that.
        QVERIFY(m_file.open(QIODevice::ReadWrite));
        QVERIFY(m_file.resize(0xF0001000));
        QVERIFY(m_file.seek(0xF0000010));
        QCOMPARE(m_file.write("abcd"), 4);
        m_file.close();
        run({"read", "0xF0000010", "4"});
        QCOMPARE(m_output, QByteArray("true 6162636400000000"));
    }

    void withoutTheDeviceNothingIsReached_data()
    {
        QTest::addColumn<QString>("device");
        QTest::addColumn<QByteArray>("errors");
        QTest::newRow("no device") << "none" << QByteArray("Cannot open /dev/mem");
        QTest::newRow("one that cannot be mapped") << "fifo" << QByteArray("mmap failed");
    }

    void withoutTheDeviceNothingIsReached()
    {
        QFETCH(QString, device);
        for (const QStringList& call : {QStringList{"read", "0", "4"}, QStringList{"read", "0", "4097"},
                                        QStringList{"write", "0", "4", "0"}, QStringList{"write", "0", "3", "0"}}) {
            run(call, device);
            QVERIFY2(m_output.startsWith("false"), m_output.constData());
            QVERIFY2(!m_output.contains("left open"), m_output.constData());
            QTEST(m_errors, "errors");
        }
    }

private:
    void setContent()
    {
        m_content.resize(3 * 4096);
        for (int i = 0; i < m_content.size(); ++i)
            m_content[i] = char(i + i / 4096);
        QVERIFY(m_file.open(QIODevice::WriteOnly));
        QCOMPARE(m_file.write(m_content), qint64(m_content.size()));
        m_file.close();
    }

    QByteArray content()
    {
        QFile file(m_file.fileName());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    void run(const QStringList& call, const QString& device = QString())
    {
        QProcess process;
        process.start(QCoreApplication::applicationFilePath(),
                      QStringList{"--memory", device.isEmpty() ? m_file.fileName() : device} + call);
        QVERIFY(process.waitForFinished());
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        m_output = process.readAllStandardOutput().trimmed();
        m_errors = process.readAllStandardError();
    }

    QTemporaryDir m_folder;
    QFile m_file;
    QByteArray m_content;
    QByteArray m_output;
    QByteArray m_errors;
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    if (application.arguments().value(1) == "--memory") {
        // Only a process with one thread may have a user namespace of its own, and logging has started some.
        const pid_t alone = fork();
        if (alone == 0)
            _exit(child(application.arguments()));
        int status = 0;
        return waitpid(alone, &status, 0) == alone && WIFEXITED(status) ? WEXITSTATUS(status) : 1;
    }
    tst_OrvoMemoryAccess test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_orvomemoryaccess.moc"
