#include "core/orvoLogger.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <cstdio>
#include <log4cplus/loggingmacros.h>
#include <memory>
#include <sys/stat.h>

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

} // namespace

class tst_OrvoLogger : public QObject
{
    Q_OBJECT

private slots:
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

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_config;
    QString m_out;
};

QTEST_GUILESS_MAIN(tst_OrvoLogger)

#include "tst_orvologger.moc"
