#include "core/orvoLogger.h"

#include "childprocess.h"
#include "logcapture.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <cstdio>
#include <fcntl.h>
#include <log4cplus/loggingmacros.h>
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

log4cplus::Logger loggerNamed(const char* name)
{
    return log4cplus::Logger::getInstance(name);
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

class tst_OrvoLogger : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(m_pipeDir.isValid()); }

    void init()
    {
        m_dir.reset(new QTemporaryDir);
        QVERIFY(m_dir->isValid());
        m_config = m_dir->filePath("log.properties");
        m_out = m_dir->filePath("out");
    }

    void cleanup()
    {
        // No appender may hold a file of the folder that goes.
        QVERIFY(write(m_config, "log4cplus.rootLogger=OFF\n"));
        OrvoLogger::instance()->loadConfiguration(m_config);
        log4cplus::Logger::getRoot().removeAllAppenders();
        for (log4cplus::Logger& each : log4cplus::Logger::getCurrentLoggers()) {
            each.removeAllAppenders();
            each.setAdditivity(true);
            each.setLogLevel(log4cplus::NOT_SET_LOG_LEVEL);
        }
        m_dir.reset();
    }

    // Loading

    void thereIsOneObject()
    {
        QVERIFY(OrvoLogger::instance());
        QCOMPARE(OrvoLogger::instance(), OrvoLogger::instance());
    }

    void aLoadedFileSetsLevelsAndAppenders()
    {
        load("log4cplus.logger.a=WARN, console\n");
        QCOMPARE(OrvoLogger::instance()->configFilePath(), m_config);
        QCOMPARE(OrvoLogger::instance()->logLevel("a"), 30000);
        LOG4CPLUS_INFO(loggerNamed("a"), "below its level");
        LOG4CPLUS_WARN(loggerNamed("a"), "at its level");
        QCOMPARE(read(m_out), QByteArray("WARN a: at its level\n"));
    }

    void withoutAdditivityALoggerWritesToItsOwnAppendersOnly_data()
    {
        QTest::addColumn<bool>("noAdditivity");
        QTest::addColumn<QByteArray>("out");
        QTest::newRow("additive") << false
                                  << QByteArray("WARN withLine: one\nWARN withLine: one\nWARN withoutLine: two\n");
        QTest::newRow("not additive") << true << QByteArray("WARN withLine: one\n");
    }

    void withoutAdditivityALoggerWritesToItsOwnAppendersOnly()
    {
        QFETCH(bool, noAdditivity);
        loggerNamed("withoutLine");
        load("log4cplus.logger.withLine=WARN, console\n", noAdditivity);
        LOG4CPLUS_WARN(loggerNamed("withLine"), "one");
        LOG4CPLUS_WARN(loggerNamed("withoutLine"), "two");
        QTEST(read(m_out), "out");
    }

    void additivityIsTakenAwayUnlessAskedFor()
    {
        load("log4cplus.logger.a=WARN, console\n");
        QVERIFY(!loggerNamed("a").getAdditivity());
    }

    void aFileThatIsNotThereChangesNothing()
    {
        load("log4cplus.logger.a=WARN, console\n");
        OrvoLogger::instance()->loadConfiguration(m_dir->filePath("none"));
        QCOMPARE(OrvoLogger::instance()->configFilePath(), m_dir->filePath("none"));
        QCOMPARE(OrvoLogger::instance()->logLevel("a"), 30000);
        LOG4CPLUS_WARN(loggerNamed("a"), "still");
        QCOMPARE(read(m_out), QByteArray("WARN a: still\n"));
    }

    void aFileThatCannotBeUsedEndsNothing_data()
    {
        QTest::addColumn<QByteArray>("lines");
        QTest::newRow("no pattern") << QByteArray("log4cplus.rootLogger=WARN, bad\n"
                                                  "log4cplus.appender.bad=log4cplus::ConsoleAppender\n"
                                                  "log4cplus.appender.bad.layout=log4cplus::PatternLayout\n");
        QTest::newRow("unknown classes") << QByteArray("log4cplus.rootLogger=WARN, bad\nlog4cplus.appender.bad=none\n");
        QTest::newRow("unknown filter") << QByteArray("log4cplus.rootLogger=WARN, bad\n"
                                                      "log4cplus.appender.bad=log4cplus::ConsoleAppender\n"
                                                      "log4cplus.appender.bad.filters.1=none\n");
        QTest::newRow("open variable") << QByteArray("log4cplus.rootLogger=${WARN, bad\n");
        QTest::newRow("no text") << QByteArray("\0\xff=\n\r=\xfe==\n", 10);
    }

    void aFileThatCannotBeUsedEndsNothing()
    {
        QFETCH(QByteArray, lines);
        QVERIFY(write(m_config, lines));
        OrvoLogger::instance()->loadConfiguration(m_config);
        load("log4cplus.logger.a=WARN, console\n");
        LOG4CPLUS_WARN(loggerNamed("a"), "here");
        QCOMPARE(read(m_out), QByteArray("WARN a: here\n"));
    }

    // Reloading

    void aFileRewrittenInPlaceIsReloaded()
    {
        load("log4cplus.logger.a=WARN, console\n");
        const QSignalSpy changed(OrvoLogger::instance(), SIGNAL(configurationChanged()));
        for (const char* level : {"ERROR", "DEBUG", "FATAL"}) {
            QVERIFY(write(m_config, config(QByteArray("log4cplus.logger.a=") + level + ", console\n")));
            QTRY_COMPARE(OrvoLogger::instance()->logLevel("a"), log4cplus::getLogLevelManager().fromString(level));
        }
        QVERIFY(changed.size() >= 3);
    }

    void aFileReplacedByRenamingIsReloadedAgainAndAgain()
    {
        load("log4cplus.logger.a=WARN, console\n");
        for (const char* level : {"ERROR", "DEBUG"}) {
            QVERIFY(write(m_config + ".new", config(QByteArray("log4cplus.logger.a=") + level + ", console\n")));
            QCOMPARE(std::rename(QFile::encodeName(m_config + ".new"), QFile::encodeName(m_config)), 0);
            QTRY_COMPARE(OrvoLogger::instance()->logLevel("a"), log4cplus::getLogLevelManager().fromString(level));
        }
    }

    void aFileThatGoesIsReloadedWhenItComesBack()
    {
        load("log4cplus.logger.a=WARN, console\n");
        const QSignalSpy changed(OrvoLogger::instance(), SIGNAL(configurationChanged()));
        QVERIFY(QFile::remove(m_config));
        // Longer than one look for the file.
        QTest::qWait(1200);
        QCOMPARE(changed.size(), 0);
        QCOMPARE(OrvoLogger::instance()->logLevel("a"), 30000);
        QVERIFY(write(m_config, config("log4cplus.logger.a=ERROR, console\n")));
        QTRY_COMPARE(OrvoLogger::instance()->logLevel("a"), 40000);
        QVERIFY(write(m_config, config("log4cplus.logger.a=INFO, console\n")));
        QTRY_COMPARE(OrvoLogger::instance()->logLevel("a"), 20000);
    }

    void aReloadTakesAdditivityAway()
    {
        load("log4cplus.logger.a=WARN, console\n", false);
        QVERIFY(loggerNamed("a").getAdditivity());
        QVERIFY(write(m_config, config("log4cplus.logger.a=ERROR, console\n")));
        QTRY_COMPARE(OrvoLogger::instance()->logLevel("a"), 40000);
        QVERIFY(!loggerNamed("a").getAdditivity());
    }

    void onlyTheLastFileIsFollowed()
    {
        load("log4cplus.logger.a=WARN, console\n");
        const QString first = m_config;
        m_config = m_dir->filePath("second.properties");
        load("log4cplus.logger.a=INFO, console\n");
        const QSignalSpy changed(OrvoLogger::instance(), SIGNAL(configurationChanged()));
        QVERIFY(write(first, config("log4cplus.logger.a=FATAL, console\n")));
        QVERIFY(write(m_config, config("log4cplus.logger.a=ERROR, console\n")));
        QTRY_COMPARE(OrvoLogger::instance()->logLevel("a"), 40000);
        QVERIFY(QFile::remove(first));
        QTest::qWait(50);
        QCOMPARE(OrvoLogger::instance()->logLevel("a"), 40000);
    }

    void aFileThatIsGoneIsNoMoreLookedForOnceAnotherIsLoaded()
    {
        load("log4cplus.logger.a=WARN, console\n");
        const QString first = m_config;
        const QSignalSpy changed(OrvoLogger::instance(), SIGNAL(configurationChanged()));
        QVERIFY(QFile::remove(first));
        QTest::qWait(50);
        m_config = m_dir->filePath("second.properties");
        load("log4cplus.logger.a=INFO, console\n");
        QVERIFY(write(first, config("log4cplus.logger.a=FATAL, console\n")));
        QTest::qWait(1200);
        QCOMPARE(changed.size(), 0);
        QCOMPARE(OrvoLogger::instance()->logLevel("a"), 20000);
    }

    void aHalfWrittenFileEndsNothingAndTheWholeOneCounts()
    {
        load("log4cplus.logger.a=WARN, console\n");
        const QByteArray whole = config("log4cplus.logger.a=ERROR, console\n");
        QFile file(m_config);
        QVERIFY(file.open(QIODevice::WriteOnly));
        for (int at = 0; at < whole.size(); at += 10) {
            QVERIFY(file.write(whole.mid(at, 10)) > 0 && file.flush());
            QTest::qWait(2);
        }
        file.close();
        QTRY_COMPARE(OrvoLogger::instance()->logLevel("a"), 40000);
        QTRY_VERIFY([&] {
            LOG4CPLUS_ERROR(loggerNamed("a"), "here");
            return read(m_out).endsWith("ERROR a: here\n");
        }());
    }

    // Levels

    void loggersAreSorted()
    {
        for (const char* name : {"sorted.b", "sorted.c", "sorted", "sorted.a"})
            loggerNamed(name);
        const QStringList names = OrvoLogger::instance()->loggers().filter(QRegularExpression("^sorted"));
        QCOMPARE(names, QStringList({"sorted", "sorted.a", "sorted.b", "sorted.c"}));
        QStringList sorted = OrvoLogger::instance()->loggers();
        sorted.sort();
        QCOMPARE(OrvoLogger::instance()->loggers(), sorted);
    }

    void aLoggerWithoutALevelOfItsOwnHasMinusOne() { QCOMPARE(OrvoLogger::instance()->logLevel("unheardOf"), -1); }

    void aLevelIsSetThroughTheFile()
    {
        const QByteArray before = "# levels\n"
                                  "log4cplus.logger.a.b=ERROR, console\n"
                                  "  log4cplus.logger.a=WARN, console, other\n"
                                  "log4cplus.logger.a=FATAL, console\n"
                                  "log4cplus.logger.ab=ERROR, console";
        load(before);
        QVERIFY(OrvoLogger::instance()->setLogLevel("a", OrvoLogLevel::Debug));
        QByteArray after = before;
        after.replace("  log4cplus.logger.a=WARN, console, other", "log4cplus.logger.a=DEBUG, console");
        QCOMPARE(read(m_config), config(after));
        QVERIFY(!QFileInfo::exists(m_config + "_tmp"));
    }

    void eachLevelIsWrittenInCapitals_data()
    {
        QTest::addColumn<int>("level");
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<int>("loaded");
        QTest::newRow("trace") << 0 << QByteArray("TRACE") << 0;
        QTest::newRow("debug") << 10000 << QByteArray("DEBUG") << 10000;
        QTest::newRow("info") << 20000 << QByteArray("INFO") << 20000;
        QTest::newRow("error") << 40000 << QByteArray("ERROR") << 40000;
        QTest::newRow("fatal") << 50000 << QByteArray("FATAL") << 50000;
        QTest::newRow("off") << 60000 << QByteArray("OFF") << 60000;
        QTest::newRow("default") << -1 << QByteArray("INFO") << 20000;
    }

    void eachLevelIsWrittenInCapitals()
    {
        QFETCH(int, level);
        QFETCH(QByteArray, name);
        QFETCH(int, loaded);
        load("log4cplus.logger.a=WARN, console\n");
        QVERIFY(OrvoLogger::instance()->setLogLevel("a", OrvoLogLevel::Enum(level)));
        QCOMPARE(read(m_config), config("log4cplus.logger.a=" + name + ", console\n"));
        OrvoLogger::instance()->loadConfiguration(m_config);
        QCOMPARE(OrvoLogger::instance()->logLevel("a"), loaded);
    }

    void aLevelThatWasSetIsReloadedAgainAndAgain()
    {
        load("log4cplus.logger.a=WARN, console\n");
        QVERIFY(OrvoLogger::instance()->setLogLevel("a", OrvoLogLevel::Debug));
        // The running logger is not touched directly.
        QCOMPARE(OrvoLogger::instance()->logLevel("a"), 30000);
        QTRY_COMPARE(OrvoLogger::instance()->logLevel("a"), 10000);
        QVERIFY(OrvoLogger::instance()->setLogLevel("a", OrvoLogLevel::Error));
        QTRY_COMPARE(OrvoLogger::instance()->logLevel("a"), 40000);
    }

    void aLastLineWithoutItsEndGetsOne()
    {
        load("log4cplus.logger.a=WARN, console");
        QVERIFY(OrvoLogger::instance()->setLogLevel("a", OrvoLogLevel::Info));
        QCOMPARE(read(m_config), config("log4cplus.logger.a=INFO, console\n"));
    }

    void aLoggerWithoutALineIsNotAdded()
    {
        const QByteArray lines = "log4cplus.logger.a=WARN, console\nlog4cplus.logger.x.y=INFO, console";
        loggerNamed("x");
        load(lines);
        QVERIFY(!OrvoLogger::instance()->setLogLevel("x", OrvoLogLevel::Debug));
        QCOMPARE(read(m_config), config(lines));
        QVERIFY(!QFileInfo::exists(m_config + "_tmp"));
    }

    void anUnknownLoggerLeavesTheFileAlone()
    {
        load("log4cplus.logger.a=WARN, console\n#log4cplus.logger.never.seen=WARN, console\n");
        const ino_t before = inode();
        QVERIFY(!OrvoLogger::instance()->setLogLevel("never.seen", OrvoLogLevel::Debug));
        QCOMPARE(inode(), before);
    }

    void aNumberThatIsNoLevelIsRefused()
    {
        load("log4cplus.logger.a=WARN, console\n");
        QVERIFY(!OrvoLogger::instance()->setLogLevel("a", OrvoLogLevel::Enum(12345)));
        QCOMPARE(read(m_config), config("log4cplus.logger.a=WARN, console\n"));
    }

    void aFileThatCannotBeReadOrWrittenFails()
    {
        load("log4cplus.logger.a=WARN, console\n");
        QVERIFY(QDir().mkdir(m_config + "_tmp"));
        QVERIFY(!OrvoLogger::instance()->setLogLevel("a", OrvoLogLevel::Debug));
        QCOMPARE(read(m_config), config("log4cplus.logger.a=WARN, console\n"));
        QVERIFY(QDir().rmdir(m_config + "_tmp"));
        QVERIFY(QFile::remove(m_config));
        QVERIFY(!OrvoLogger::instance()->setLogLevel("a", OrvoLogLevel::Debug));
        QVERIFY(!QFileInfo::exists(m_config));
    }

    void aFullDiskLeavesTheFileAsItWas()
    {
        load("log4cplus.logger.a=WARN, console\n");
        QVERIFY(QFile::link("/dev/full", m_config + "_tmp"));
        QVERIFY(!OrvoLogger::instance()->setLogLevel("a", OrvoLogLevel::Debug));
        QCOMPARE(read(m_config), config("log4cplus.logger.a=WARN, console\n"));
    }

    void theRewrittenFileKeepsItsPermissions()
    {
        load("log4cplus.logger.a=WARN, console\n");
        QCOMPARE(chmod(QFile::encodeName(m_config), 0640), 0);
        QVERIFY(OrvoLogger::instance()->setLogLevel("a", OrvoLogLevel::Debug));
        struct stat status = {};
        QCOMPARE(stat(QFile::encodeName(m_config), &status), 0);
        QCOMPARE(uint(status.st_mode & 0777), 0640u);
    }

    void disablingSilencesTheRootAndWhatInheritsFromIt()
    {
        loggerNamed("inherits");
        load("log4cplus.logger.a=WARN, console\n", false);
        OrvoLogger::instance()->disable();
        QCOMPARE(log4cplus::Logger::getRoot().getLogLevel(), 60000);
        LOG4CPLUS_FATAL(loggerNamed("inherits"), "unheard");
        LOG4CPLUS_WARN(loggerNamed("a"), "its own level counts");
        QVERIFY(!read(m_out).contains("unheard"));
        QVERIFY(read(m_out).contains("its own level counts"));
    }

    // The pipe. There is one for the process: the tests share it.

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
        QVERIFY(write(m_config, "log4cplus.rootLogger=OFF\n"
                                "log4cplus.logger.x=INFO, console\n"
                                "log4cplus.appender.console=log4cplus::FileAppender\n"
                                "log4cplus.appender.console.File="
                                    + m_out.toUtf8()
                                    + "\n"
                                      "log4cplus.appender.console.layout=log4cplus::PatternLayout\n"
                                      "log4cplus.appender.console.layout.ConversionPattern=%b %M %m%n\n"));
        OrvoLogger::instance()->loadConfiguration(m_config);
        QVERIFY(send("x INFO here\n"));
        QTRY_VERIFY(read(m_out).endsWith("here\n"));
        QVERIFY2(read(m_out).startsWith("orvoLogger.cpp ")
                     && read(m_out).contains("on_externalListenerPipeNotifier_activated"),
                 read(m_out));
    }

    void aReadWithoutBytesEndsTheListening()
    {
        const ChildEnd end = runThisProgram({"--listen", m_dir->filePath("pipe")});
        QVERIFY2(!end.stopped && end.exitCode == 0, end.errors);
    }

private:
    QByteArray config(const QByteArray& lines) const
    {
        return "log4cplus.rootLogger=WARN, console\n"
               "log4cplus.appender.console=log4cplus::FileAppender\n"
               "log4cplus.appender.console.Append=true\n"
               "log4cplus.appender.console.File="
               + m_out.toUtf8()
               + "\n"
                 "log4cplus.appender.console.layout=log4cplus::PatternLayout\n"
                 "log4cplus.appender.console.layout.ConversionPattern=%p %c: %m%n\n"
               + lines;
    }

    void load(const QByteArray& lines, bool noAdditivity = true)
    {
        QVERIFY(write(m_config, config(lines)));
        if (noAdditivity)
            OrvoLogger::instance()->loadConfiguration(m_config);
        else
            OrvoLogger::instance()->loadConfiguration(m_config, false);
    }

    ino_t inode() const
    {
        struct stat status = {};
        stat(QFile::encodeName(m_config), &status);
        return status.st_ino;
    }

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
    QString m_config;
    QString m_out;
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
    tst_OrvoLogger test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_orvologger.moc"
