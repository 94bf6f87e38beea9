#include "core/orvoTemporary.h"

#include "core/orvo.h"
#include "logcapture.h"
#include "records/orvoconstants.h"

#include <QCryptographicHash>
#include <QtTest>

#include <csignal>
#include <sys/resource.h>
#include <thread>
#include <vector>

namespace {

TemporaryDataStorage* storage()
{
    return TemporaryDataStorage::instance();
}

QString store(const QString& name, const QByteArray& bytes, const QString& extension = ".jpg")
{
    return storage()->store(name, bytes.constData(), bytes.size(), extension);
}

QString md5(const QByteArray& bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Md5).toHex();
}

QByteArray content(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(no file)");
}

QString pathOf(const QString& url)
{
    return url.startsWith("file://") ? url.mid(7) : QString();
}

/// No file of this process may grow beyond so many bytes meanwhile, nor may the file that the results are written to.
class FileLimit
{
public:
    explicit FileLimit(rlim_t bytes)
    {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_old);
        const rlimit limit{bytes, m_old.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileLimit() { setrlimit(RLIMIT_FSIZE, &m_old); }

private:
    Q_DISABLE_COPY(FileLimit)
    rlimit m_old;
};

} // namespace

class tst_OrvoTemporary : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_folder = QFileInfo(OrvoWebserverReadPathPrefix()).path();
        QVERIFY(QDir().mkpath(m_folder));
    }

    // Other runs of this test share the folder.
    void init() { m_name = "tst-" + orvoGenerateUuid(); }

    void cleanup()
    {
        for (const QString& file : filesOfThisTest())
            QFile::remove(m_folder + '/' + file);
    }

    void bytesBecomeAFileNamedByTheirHash()
    {
        const QByteArray bytes("\x89PNG\0with a zero", 16);
        const QString url = store(m_name, bytes, ".png");
        const QString path = OrvoWebserverReadPathPrefix() + m_name + '_' + md5(bytes) + ".png";
        QCOMPARE(url, "file://" + path);
        QCOMPARE(storage()->getName(m_name), path);
        QCOMPARE(content(path), bytes);
    }

    void theHashIsMd5InLowerCase()
    {
        const QString url = store(m_name, "abc");
        QVERIFY2(url.endsWith("_900150983cd24fb0d6963f7d28e17f72.jpg"), qPrintable(url));
    }

    void theWholeRangeOfSizesIsWritten()
    {
        for (const int size : {0, 1, 16384, 16385, 1 << 20}) {
            const QByteArray bytes(size, 'x');
            QCOMPARE(content(pathOf(store(m_name, bytes))), bytes);
        }
    }

    void anEmptyExtensionLeavesTheHashLast()
    {
        QVERIFY(store(m_name, "abc", "").endsWith("_900150983cd24fb0d6963f7d28e17f72"));
    }

    void equalBytesAreWrittenOnce()
    {
        const LogCapture log("TemporaryDataStorage");
        const QString url = store(m_name, "cover");
        QCOMPARE(log.lines(), QStringList());
        // A second write would put the old content back.
        QFile file(pathOf(url));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("touched");
        file.close();
        QCOMPARE(store(m_name, "cover"), url);
        QCOMPARE(content(pathOf(url)), QByteArray("touched"));
        QCOMPARE(log.lines(), QStringList{"DEBUG Data for " + m_name + " is the same - not saving"});
        QCOMPARE(filesOfThisTest().size(), 1);
    }

    void equalBytesUnderAnotherNameAreAnotherFile()
    {
        const QString first = store(m_name, "cover");
        const QString second = store(m_name + "b", "cover");
        QVERIFY(first != second);
        QCOMPARE(filesOfThisTest().size(), 2);
    }

    void otherBytesReplaceTheFile()
    {
        const QString first = store(m_name, "old");
        const QString second = store(m_name, "new");
        QVERIFY(first != second);
        QVERIFY(!QFile::exists(pathOf(first)));
        QCOMPARE(content(pathOf(second)), QByteArray("new"));
        QCOMPARE(storage()->getName(m_name), pathOf(second));
    }

    void theSameBytesWithAnotherExtensionKeepTheirFile()
    {
        const QString url = store(m_name, "cover", ".jpg");
        QCOMPARE(store(m_name, "cover", ".png"), url);
    }

    void percentSignsInNamesAreText()
    {
        const QString url = store(m_name + "%3%2%1", "x", ".%4");
        QCOMPARE(url, "file://" + OrvoWebserverReadPathPrefix() + m_name + "%3%2%1_" + md5("x") + ".%4");
        QCOMPARE(content(pathOf(url)), QByteArray("x"));
    }

    void withoutAHashFilesAreNumbered()
    {
        TemporaryDataStorage::FileInfo first = storage()->create(m_name, ".bin", QString());
        const QString firstName = storage()->getName(m_name);
        const int number = numberIn(firstName);
        QCOMPARE(firstName, OrvoWebserverReadPathPrefix() + m_name + '_' + QString::number(number) + ".bin");
        QCOMPARE(first.url(), "file://" + firstName);
        // Each created name counts, with a hash, too.
        TemporaryDataStorage::FileInfo hashed = storage()->create(m_name + "b", ".bin", "0123");
        QVERIFY(hashed.url().endsWith(m_name + "b_0123.bin"));
        TemporaryDataStorage::FileInfo third = storage()->create(m_name, ".bin", QString());
        QCOMPARE(numberIn(storage()->getName(m_name)), number + 2);
        QVERIFY2(!QFile::exists(firstName), "an earlier file of the name goes first");
    }

    void aFileIsWrittenPieceByPiece()
    {
        TemporaryDataStorage::FileInfo info = storage()->create(m_name, ".bin", QString());
        const QString path = pathOf(info.url());
        QVERIFY(storage()->append(info, "abc", 3));
        QVERIFY(storage()->append(info, "", 0));
        QVERIFY(storage()->append(info, "defg", 4));
        storage()->close(info);
        QCOMPARE(content(path), QByteArray("abcdefg"));
        QVERIFY(!info.device);
        QCOMPARE(info.url(), QString());
        QVERIFY(!storage()->append(info, "x", 1));
        storage()->close(info);
        QCOMPARE(content(path), QByteArray("abcdefg"));
        QCOMPARE(storage()->getName(m_name), path);
    }

    void anEmptyHandleIsNoFile()
    {
        TemporaryDataStorage::FileInfo info;
        QVERIFY(!storage()->append(info, "x", 1));
        storage()->close(info);
        QCOMPARE(info.url(), QString());
    }

    void aHandleThatGoesClosesItsFile()
    {
        const auto openFiles = [] { return QDir("/proc/self/fd").entryList(QDir::AllEntries | QDir::System).size(); };
        const int before = openFiles();
        {
            TemporaryDataStorage::FileInfo info = storage()->create(m_name, "", QString());
            QCOMPARE(openFiles(), before + 1);
            const TemporaryDataStorage::FileInfo moved = std::move(info);
            QVERIFY(moved.url().startsWith("file://"));
        }
        QCOMPARE(openFiles(), before);
    }

    // Failures

    void aFileThatCannotBeOpenedLeavesNothing()
    {
        const QString name = m_name + "-no/folder";
        QCOMPARE(store(name, "x"), QString());
        QCOMPARE(storage()->getName(name), QString());
        TemporaryDataStorage::FileInfo info = storage()->create(name, "", QString());
        QVERIFY(!info.device);
        QCOMPARE(info.url(), QString());
        QVERIFY(!storage()->append(info, "x", 1));
        QCOMPARE(storage()->getName(name), QString());
        QCOMPARE(filesOfThisTest(), QStringList());
    }

    void aFileThatCannotBeReplacedTakesTheOldOneAlong()
    {
        const QString old = store(m_name, "old");
        // A folder stands where the new file should.
        const QString path = OrvoWebserverReadPathPrefix() + m_name + '_' + md5("new") + ".jpg";
        QVERIFY(QDir().mkdir(path));
        QCOMPARE(store(m_name, "new"), QString());
        QVERIFY(QDir().rmdir(path));
        QVERIFY(!QFile::exists(pathOf(old)));
        QCOMPARE(storage()->getName(m_name), QString());
    }

    void aFileThatCannotBeWrittenLeavesNothing_data()
    {
        QTest::addColumn<int>("size");
        QTest::newRow("more than a buffer") << 100000;
        QTest::newRow("less than a buffer") << 5000;
    }

    void aFileThatCannotBeWrittenLeavesNothing()
    {
        QFETCH(int, size);
        QString url = "none";
        {
            const FileLimit limit(1000);
            url = store(m_name, QByteArray(size, 'x'));
        }
        QCOMPARE(url, QString());
        QCOMPARE(storage()->getName(m_name), QString());
        QCOMPARE(filesOfThisTest(), QStringList());
        // And nothing takes the bytes for stored ones later.
        QCOMPARE(content(pathOf(store(m_name, QByteArray(size, 'x')))), QByteArray(size, 'x'));
    }

    void appendTellsWhenNotAllBytesWentOut()
    {
        TemporaryDataStorage::FileInfo info = storage()->create(m_name, "", QString());
        bool within = false;
        bool beyond = true;
        {
            const FileLimit limit(1000);
            within = storage()->append(info, QByteArray(1000, 'x').constData(), 1000);
            beyond = storage()->append(info, "y", 1);
        }
        QVERIFY(within);
        QVERIFY(!beyond);
    }

    // Removing

    void removeTakesFileAndName()
    {
        const QString url = store(m_name, "cover");
        storage()->remove(m_name);
        QVERIFY(!QFile::exists(pathOf(url)));
        QCOMPARE(storage()->getName(m_name), QString());
        storage()->remove(m_name);
        // Stored anew, not taken for the same.
        QCOMPARE(store(m_name, "cover"), url);
        QVERIFY(QFile::exists(pathOf(url)));
    }

    void removingAnUnknownNameDoesNothing()
    {
        const QString url = store(m_name, "cover");
        storage()->remove(m_name + "unknown");
        QVERIFY(QFile::exists(pathOf(url)));
    }

    void aRemovedNameKeepsItsFile()
    {
        const QString url = store(m_name, "cover");
        storage()->removeName(m_name);
        QCOMPARE(storage()->getName(m_name), QString());
        QVERIFY(QFile::exists(pathOf(url)));
    }

    void aCreatedNameReplacesTheOldOne()
    {
        const TemporaryDataStorage::NameInfo info = storage()->createName(m_name, ".x", "hash");
        QCOMPARE(info.fileName, OrvoWebserverReadPathPrefix() + m_name + "_hash.x");
        QCOMPARE(info.url, "file://" + info.fileName);
        QCOMPARE(info.hash, QString("hash"));
        QCOMPARE(storage()->getName(m_name), info.fileName);
        storage()->createName(m_name, ".y", "hash");
        QCOMPARE(storage()->getName(m_name), OrvoWebserverReadPathPrefix() + m_name + "_hash.y");
        storage()->removeName(m_name);
    }

    void cleanupTakesTheFilesOfANameThatIsNotKnownAnyMore()
    {
        leaveFile(m_name + "_1.jpg");
        leaveFile(m_name + "_900150983cd24fb0d6963f7d28e17f72");
        leaveFile(m_name + "_");
        leaveFile(m_name + "more_1.jpg");
        leaveFile(m_name);
        leaveFile(m_name.toUpper() + "_1.jpg");
        storage()->cleanup(m_name);
        const QString head = QFileInfo(OrvoWebserverReadPathPrefix() + m_name).fileName();
        const QString upper = QFileInfo(OrvoWebserverReadPathPrefix() + m_name.toUpper() + "_1.jpg").fileName();
        QCOMPARE(filesOfThisTest(), (QStringList{head, head + "more_1.jpg"}));
        QVERIFY(QFile::remove(m_folder + '/' + upper));
    }

    void wildcardsInANameAreTextForCleanup()
    {
        leaveFile(m_name + "x_1");
        leaveFile(m_name + "?_1");
        storage()->cleanup(m_name + "?");
        const QString head = QFileInfo(OrvoWebserverReadPathPrefix() + m_name).fileName();
        QCOMPARE(filesOfThisTest(), QStringList{head + "x_1"});
    }

    void cleanupKeepsTheName()
    {
        const QString url = store(m_name, "cover");
        storage()->cleanup(m_name);
        QVERIFY(!QFile::exists(pathOf(url)));
        QCOMPARE(storage()->getName(m_name), pathOf(url));
    }

    void whatCannotBeRemovedHoldsUpNothingElse()
    {
        const LogCapture log("TemporaryDataStorage");
        const QString folder = OrvoWebserverReadPathPrefix() + m_name + "_b";
        leaveFile(m_name + "_a");
        QVERIFY(QDir().mkdir(folder));
        leaveFile(m_name + "_c");
        storage()->cleanup(m_name);
        QCOMPARE(log.lines(), QStringList{"ERROR Error removing temporary file " + folder});
        QVERIFY(QDir().rmdir(folder));
        QCOMPARE(filesOfThisTest(), QStringList());
    }

    void threadsStoreUnderNamesOfTheirOwn()
    {
        std::vector<std::thread> threads;
        std::vector<QString> urls(8);
        for (size_t i = 0; i < urls.size(); ++i)
            threads.emplace_back([this, i, &urls] {
                const QString name = m_name + QString::number(i);
                for (int round = 0; round < 50; ++round)
                    urls[i] = store(name, QByteArray::number(round));
            });
        for (std::thread& thread : threads)
            thread.join();
        for (const QString& url : urls)
            QCOMPARE(content(pathOf(url)), QByteArray("49"));
        QCOMPARE(filesOfThisTest().size(), int(urls.size()));
    }

private:
    QStringList filesOfThisTest() const
    {
        const QString head = QFileInfo(OrvoWebserverReadPathPrefix() + m_name).fileName();
        return QDir(m_folder).entryList(QDir::Files, QDir::Name).filter(head);
    }

    static void leaveFile(const QString& name)
    {
        QFile file(OrvoWebserverReadPathPrefix() + name);
        QVERIFY(file.open(QIODevice::WriteOnly));
    }

    static int numberIn(const QString& fileName)
    {
        return fileName.mid(fileName.lastIndexOf('_') + 1).section('.', 0, 0).toInt();
    }

    QString m_folder;
    QString m_name;
};

QTEST_GUILESS_MAIN(tst_OrvoTemporary)
#include "tst_orvotemporary.moc"
