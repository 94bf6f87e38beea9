#include "core/orvoLogger.h"

#include "childprocess.h"
#include "logcapture.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QtTest>

#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool write(const QString& name, const QByteArray& bytes)
{
    QFile file(name);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

QByteArray read(const QString& name)
{
    QFile file(name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("cannot be read");
}

/// The other end of the pipe, as any program of the device has it.
int shell(const QString& script)
{
    return QProcess::execute("sh", {"-c", script});
}

bool ended(QProcess& process)
{
    return process.state() == QProcess::NotRunning || process.waitForFinished();
}

} // namespace

/// The pipe for the lines of other programs. There is one for the process: the tests share it.
class tst_OrvoLogger_pipe : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(m_pipeDir.isValid()); }

    void init()
    {
        m_dir.reset(new QTemporaryDir);
        QVERIFY(m_dir->isValid());
    }

    void aPipeThatCannotBeMadeFailsAndMayBeTriedAgain()
    {
        const LogCapture log("OrvoNamedPipe");
        QVERIFY(!OrvoLogger::instance()->startExternalListener(m_dir->filePath("none/pipe")));
        QVERIFY(listen());
        struct stat status = {};
        QCOMPARE(stat(QFile::encodeName(pipe()), &status), 0);
        QVERIFY(S_ISFIFO(status.st_mode));
        QCOMPARE(uint(status.st_mode & 0777), 0666u);
    }

    void aSecondListenerIsTheFirst()
    {
        QVERIFY(listen());
        QVERIFY(OrvoLogger::instance()->startExternalListener(m_dir->filePath("other")));
        QVERIFY(!QFileInfo::exists(m_dir->filePath("other")));
    }

    void linesOfAShellAreLogged_data()
    {
        QTest::addColumn<QString>("written");
        QTest::addColumn<QStringList>("lines");
        QTest::newRow("one") << "x INFO a text\\n" << QStringList("INFO a text");
        QTest::newRow("all levels") << "x FATAL 1\\nx ERROR 2\\nx WARN 3\\nx INFO 4\\nx DEBUG 5\\nx TRACE 6\\n"
                                    << QStringList({"FATAL 1", "ERROR 2", "WARN 3", "INFO 4", "DEBUG 5", "TRACE 6"});
        QTest::newRow("without a message") << "x INFO\\n" << QStringList("INFO ");
        QTest::newRow("with an empty message") << "x INFO \\n" << QStringList("INFO ");
        QTest::newRow("further blanks") << "x INFO   a  b \\n" << QStringList("INFO   a  b ");
        QTest::newRow("UTF-8") << QString::fromUtf8("x WARN Gr\u00fc\u00dfe \u20ac \U0001F600\\n")
                               << QStringList(QString::fromUtf8("WARN Gr\u00fc\u00dfe \u20ac \U0001F600"));
        QTest::newRow("unknown level") << "x LOUD a\\nx INFO b\\n" << QStringList("INFO b");
        QTest::newRow("lower case") << "x info a\\nx Info b\\nx INFO c\\n" << QStringList("INFO c");
        QTest::newRow("no level") << "x\\nx \\nx  INFO two blanks\\nx INFO c\\n" << QStringList("INFO c");
        QTest::newRow("no name") << " INFO a\\n\\nx INFO c\\n" << QStringList("INFO c");
        QTest::newRow("tab is no blank") << "x\\tINFO\\ta\\nx INFO\\ta\\nx INFO c\\n" << QStringList("INFO c");
        QTest::newRow("other logger") << "y INFO a\\nx INFO c\\n" << QStringList("INFO c");
        QTest::newRow("carriage return") << "x INFO a\\r\\n" << QStringList("INFO a\r");
        QTest::newRow("percent") << "x INFO %%s %%n\\n" << QStringList("INFO %s %n");
    }

    void linesOfAShellAreLogged()
    {
        QFETCH(QString, written);
        QFETCH(QStringList, lines);
        QVERIFY(listen());
        const LogCapture log("x");
        QCOMPARE(shell(QString("printf '%1' > %2").arg(written, pipe())), 0);
        QTRY_COMPARE(log.lines().size(), lines.size());
        QCOMPARE(log.lines(), lines);
    }

    void aLineBelowTheLevelOfItsLoggerIsDropped()
    {
        QVERIFY(listen());
        const LogCapture log("x", log4cplus::WARN_LOG_LEVEL);
        QCOMPARE(shell("printf 'x INFO a\\nx WARN b\\nx TRACE c\\nx ERROR d\\n' > " + pipe()), 0);
        QTRY_COMPARE(log.lines(), QStringList({"WARN b", "ERROR d"}));
    }

    void aTornLineIsLoggedOnceItsEndIsThere()
    {
        QVERIFY(listen());
        const LogCapture log("x");
        const QByteArray line = QString::fromUtf8("x INFO zwei Hälften €\n").toUtf8();
        for (int cut = 1; cut < line.size(); ++cut) {
            const int before = log.lines().size();
            QVERIFY(send(line.left(cut)));
            QTest::qWait(5);
            QCOMPARE(log.lines().size(), before);
            QVERIFY(send(line.mid(cut)));
            QTRY_COMPARE(log.lines().size(), before + 1);
            QCOMPARE(log.lines().last(), QString::fromUtf8("INFO zwei Hälften €"));
        }
    }

    void aShellMayTearItsLines()
    {
        QVERIFY(listen());
        const LogCapture log("x");
        QProcess process;
        process.start("sh", {"-c", QString("exec > %1; printf 'x IN'; sleep 0.05; printf 'FO a\\nx WARN'; sleep 0.05; "
                                           "printf ' b\\n'")
                                       .arg(pipe())});
        QTRY_COMPARE(log.lines(), QStringList({"INFO a", "WARN b"}));
        QVERIFY(ended(process));
    }

    void aLineLongerThanTheReadBufferIsOneLine()
    {
        QVERIFY(listen());
        const LogCapture log("x");
        for (const int length : {1014, 1015, 1016, 1017, 1022, 1023, 1024, 1025, 2046, 20000}) {
            const QByteArray text(length, 'm');
            QVERIFY(send("x INFO " + text + "\nx INFO next\n"));
            QTRY_COMPARE(log.lines().value(log.lines().size() - 1), QString("INFO next"));
            QCOMPARE(log.lines().value(log.lines().size() - 2), "INFO " + QString(text));
            QVERIFY(send("x WARN mark\n"));
            QTRY_COMPARE(log.lines().last(), QString("WARN mark"));
        }
    }

    void twoWritersLoseNoLine()
    {
        QVERIFY(listen());
        const LogCapture log("x");
        const QString script = "exec > %1; i=0; while [ $i -lt 300 ]; do echo x INFO %2 $i; i=$((i+1)); done";
        QProcess one;
        QProcess two;
        one.start("sh", {"-c", script.arg(pipe(), "one")});
        two.start("sh", {"-c", script.arg(pipe(), "two")});
        QTRY_COMPARE_WITH_TIMEOUT(log.lines().size(), 600, 20000);
        QVERIFY(ended(one) && ended(two));
        for (const char* name : {"one", "two"}) {
            const QStringList lines = log.lines().filter(QString("INFO %1 ").arg(name));
            QCOMPARE(lines.size(), 300);
            for (int i = 0; i < lines.size(); ++i)
                QCOMPARE(lines.at(i), QString("INFO %1 %2").arg(name).arg(i));
        }
    }

    void aWriterMayCloseAndComeBack()
    {
        QVERIFY(listen());
        const LogCapture log("x");
        for (int i = 1; i <= 5; ++i) {
            QCOMPARE(shell(QString("echo x INFO %1 > %2").arg(i).arg(pipe())), 0);
            QTRY_COMPARE(log.lines().size(), i);
        }
        // What a writer left unfinished stands ahead of what the next one writes.
        QCOMPARE(shell("printf 'x INFO torn ' > " + pipe()), 0);
        QCOMPARE(shell("echo x INFO next > " + pipe()), 0);
        QTRY_COMPARE(log.lines().last(), QString("INFO torn x INFO next"));
    }

    void theLocationIsThatOfTheListener()
    {
        QVERIFY(listen());
        const QString config = m_dir->filePath("log.properties");
        const QString out = m_dir->filePath("out");
        QVERIFY(write(config, "log4cplus.rootLogger=OFF\n"
                              "log4cplus.logger.x=INFO, console\n"
                              "log4cplus.appender.console=log4cplus::FileAppender\n"
                              "log4cplus.appender.console.File="
                                  + out.toUtf8()
                                  + "\n"
                                    "log4cplus.appender.console.layout=log4cplus::PatternLayout\n"
                                    "log4cplus.appender.console.layout.ConversionPattern=%b %M %m%n\n"));
        OrvoLogger::instance()->loadConfiguration(config);
        QVERIFY(send("x INFO here\n"));
        QTRY_VERIFY(read(out).endsWith("here\n"));
        QVERIFY2(read(out).startsWith("orvoLogger.cpp ")
                     && read(out).contains("on_externalListenerPipeNotifier_activated"),
                 read(out));
    }

    void aReadWithoutBytesEndsTheListening()
    {
        const ChildEnd end = runThisProgram({"--listen", m_dir->filePath("pipe")});
        QVERIFY2(!end.stopped && end.exitCode == 0, end.errors);
    }

private:
    QString pipe() const { return m_pipeDir.filePath("pipe"); }
    bool listen() const { return OrvoLogger::instance()->startExternalListener(pipe()); }

    bool send(const QByteArray& bytes) const
    {
        const int fd = open(QFile::encodeName(pipe()), O_WRONLY | O_CLOEXEC);
        const bool sent = ::write(fd, bytes.constData(), size_t(bytes.size())) == bytes.size();
        close(fd);
        return sent;
    }

    QTemporaryDir m_pipeDir;
    std::unique_ptr<QTemporaryDir> m_dir;
};

namespace {

/// A notification without bytes, as a reader in another process leaves it; 0 when no line comes through behind it.
int listenWithoutBytes(const QString& name)
{
    OrvoLogger* const orvoLogger = OrvoLogger::instance();
    if (!orvoLogger->startExternalListener(name))
        return 1;
    const LogCapture log("x");
    shell("echo x INFO before > " + name);
    if (!QTest::qWaitFor([&] { return log.lines().size() == 1; }))
        return 2;
    QMetaObject::invokeMethod(orvoLogger, "on_externalListenerPipeNotifier_activated", Q_ARG(int, 0));
    shell("echo x INFO behind > " + name);
    QTest::qWait(200);
    return log.lines().size() == 1 ? 0 : 3;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    if (application.arguments().value(1) == QLatin1String("--listen"))
        return listenWithoutBytes(application.arguments().value(2));
    tst_OrvoLogger_pipe test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_orvologger_pipe.moc"
