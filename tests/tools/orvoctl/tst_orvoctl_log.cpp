#include "core/orvoLogger.h"

#include "ctlrun.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <sys/stat.h>

namespace {

const QByteArray example = "# of a service\n"
                           "log4cplus.rootLogger=WARN, console, file\n"
                           "log4cplus.logger.a=INFO, console\n"
                           "  log4cplus.logger.a.b = debug , console,file\r\n"
                           "log4cplus.logger.c=INHERITED, file\n"
                           "#log4cplus.logger.d=INFO, console\n"
                           "log4cplus.logger.twice=INFO, console\n"
                           "log4cplus.logger.twice=ERROR, file\n"
                           "log4cplus.appender.console=log4cplus::NullAppender\n"
                           "log4cplus.appender.file=log4cplus::NullAppender";

} // namespace

class tst_orvoctl_log : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_dir.reset(new QTemporaryDir);
        m_file = m_dir->filePath("log.properties");
        write(example);
    }

    void allLoggersOfTheFileAreShownWithTheirAppenders()
    {
        const Run run = orvoctl({"log", m_file});
        QCOMPARE(run.err, QByteArray());
        QCOMPARE(run.out, QByteArray("LOGGER  LEVEL  APPENDERS\n"
                                     "root    WARN   console, file\n"
                                     "a       INFO   console\n"
                                     "a.b     DEBUG  console, file\n"
                                     "c              file\n"
                                     "twice   ERROR  file\n"));
        QCOMPARE(run.status, 0);
    }

    void jsonHasOneDocumentForTheFileAndOneForALogger()
    {
        const Run all = orvoctl({"log", m_file, "-j"});
        const QJsonArray loggers = QJsonDocument::fromJson(all.out).array();
        QCOMPARE(loggers.size(), 5);
        QCOMPARE(loggers.at(2).toObject(),
                 (QJsonObject{{"logger", "a.b"}, {"level", "DEBUG"}, {"appenders", QJsonArray{"console", "file"}}}));
        QCOMPARE(orvoctl({"log", m_file, "a", "-j"}).json(), (QJsonObject{{"logger", "a"}, {"level", "INFO"}}));
    }

    void theLevelThatCountsIsShown_data()
    {
        QTest::addColumn<QString>("logger");
        QTest::addColumn<QByteArray>("level");
        QTest::newRow("own") << "a.b" << QByteArray("DEBUG\n");
        QTest::newRow("of its parent") << "a.x.y" << QByteArray("INFO\n");
        QTest::newRow("of the root") << "d" << QByteArray("WARN\n");
        QTest::newRow("inherited") << "c" << QByteArray("WARN\n");
        QTest::newRow("no parent") << "ab" << QByteArray("WARN\n");
        QTest::newRow("root") << "root" << QByteArray("WARN\n");
        QTest::newRow("last line") << "twice" << QByteArray("ERROR\n");
    }

    void theLevelThatCountsIsShown()
    {
        QFETCH(QString, logger);
        const Run run = orvoctl({"log", m_file, logger});
        QCOMPARE(run.err, QByteArray());
        QTEST(run.out, "level");
        QCOMPARE(read(), example);
    }

    void settingALevelChangesTheLineThatCountsAndNothingElse_data()
    {
        QTest::addColumn<QString>("logger");
        QTest::addColumn<QByteArray>("before");
        QTest::addColumn<QByteArray>("after");
        QTest::newRow("own") << "a" << QByteArray("log4cplus.logger.a=INFO, console\n")
                             << QByteArray("log4cplus.logger.a=TRACE, console\n");
        QTest::newRow("blanks and line end") << "a.b" << QByteArray("  log4cplus.logger.a.b = debug , console,file\r\n")
                                             << QByteArray("log4cplus.logger.a.b=TRACE, console, file\r\n");
        QTest::newRow("root") << "root" << QByteArray("log4cplus.rootLogger=WARN, console, file\n")
                              << QByteArray("log4cplus.rootLogger=TRACE, console, file\n");
        QTest::newRow("last line") << "twice" << QByteArray("log4cplus.logger.twice=ERROR, file\n")
                                   << QByteArray("log4cplus.logger.twice=TRACE, file\n");
        QTest::newRow("without a line") << "d" << QByteArray("log4cplus.appender.file=log4cplus::NullAppender")
                                        << QByteArray("log4cplus.appender.file=log4cplus::NullAppender\n"
                                                      "log4cplus.logger.d=TRACE, console, file\n");
    }

    void settingALevelChangesTheLineThatCountsAndNothingElse()
    {
        QFETCH(QString, logger);
        QFETCH(QByteArray, before);
        QFETCH(QByteArray, after);
        const Run run = orvoctl({"log", m_file, logger, "Trace"});
        QCOMPARE(run.err, QByteArray());
        QCOMPARE(run.out, QByteArray("TRACE\n"));
        QCOMPARE(run.status, 0);
        QCOMPARE(read(), QByteArray(example).replace(before, after));
        QCOMPARE(QDir(m_dir->path()).entryList(QDir::Files), QStringList("log.properties"));
    }

    void aFileThatWasEmptyTakesALevel()
    {
        write("");
        QCOMPARE(orvoctl({"log", m_file}).out, QByteArray("LOGGER  LEVEL  APPENDERS\n"));
        QCOMPARE(orvoctl({"log", m_file, "root", "off"}).out, QByteArray("OFF\n"));
        QCOMPARE(read(), QByteArray("log4cplus.rootLogger=OFF\n"));
    }

    void theFileKeepsItsPermissions()
    {
        QCOMPARE(chmod(QFile::encodeName(m_file), 0640), 0);
        QCOMPARE(orvoctl({"log", m_file, "a", "off"}).status, 0);
        struct stat status = {};
        QCOMPARE(stat(QFile::encodeName(m_file), &status), 0);
        QCOMPARE(uint(status.st_mode & 0777), 0640u);
    }

    void aRunningServiceFollows()
    {
        OrvoLogger::instance()->loadConfiguration(m_file);
        QCOMPARE(OrvoLogger::instance()->logLevel("a"), 20000);
        QCOMPARE(orvoctl({"log", m_file, "a", "error"}).status, 0);
        QTRY_COMPARE(OrvoLogger::instance()->logLevel("a"), 40000);
        QCOMPARE(orvoctl({"log", m_file, "d", "debug"}).status, 0);
        QTRY_COMPARE(OrvoLogger::instance()->logLevel("d"), 10000);
    }

    void badWordsAreUsageErrorsAndChangeNothing_data()
    {
        QTest::addColumn<QStringList>("words");
        QTest::addColumn<QByteArray>("error");
        QTest::newRow("no file") << QStringList() << QByteArray("usage: orvoctl log FILE [LOGGER [LEVEL]]");
        QTest::newRow("level") << QStringList{m_file, "a", "loud"}
                               << QByteArray("'loud' is no level: trace, debug, info, warn, error, fatal, off");
        QTest::newRow("empty level") << QStringList{m_file, "a", ""}
                                     << QByteArray("'' is no level: trace, debug, info, warn, error, fatal, off");
        QTest::newRow("equals sign") << QStringList{m_file, "a=b", "info"}
                                     << QByteArray("'a=b' is no name of a logger");
        QTest::newRow("line break") << QStringList{m_file, "a\nb", "info"}
                                    << QByteArray("'a\\nb' is no name of a logger");
        QTest::newRow("empty name") << QStringList{m_file, "", "info"} << QByteArray("'' is no name of a logger");
    }

    void badWordsAreUsageErrorsAndChangeNothing()
    {
        QFETCH(QStringList, words);
        QFETCH(QByteArray, error);
        words.replaceInStrings(QRegularExpression("^/tmp/.*/log.properties$"), m_file);
        const Run run = orvoctl(QStringList("log") + words);
        QCOMPARE(run.err, "orvoctl: " + error + '\n');
        QCOMPARE(run.status, 2);
        QCOMPARE(read(), example);
    }

    void aFileThatIsNotThereIsAnError()
    {
        const Run run = orvoctl({"log", m_file + "x", "a", "info"});
        QCOMPARE(run.err, QString("orvoctl: cannot read %1x: No such file or directory\n").arg(m_file).toUtf8());
        QCOMPARE(run.status, 1);
        QVERIFY(!QFile::exists(m_file + "x"));
    }

    void aFileWithoutALevelIsAnError()
    {
        write("log4cplus.logger.a=INFO\n");
        const Run run = orvoctl({"log", m_file, "b"});
        QCOMPARE(run.err, QByteArray("orvoctl: the file has no level for 'b'\n"));
        QCOMPARE(run.status, 1);
    }

    void completionKnowsFilesLoggersAndLevels()
    {
        QCOMPARE(completions("orvoctl lo"), QStringList("log"));
        QCOMPARE(completions("orvoctl log " + m_dir->path() + "/lo"), QStringList(m_file));
        QCOMPARE(completions("orvoctl log " + m_dir->path()), QStringList(m_dir->path() + "/"));
        QCOMPARE(completions("orvoctl log " + m_file + " a"), (QStringList{"a", "a.b"}));
        QCOMPARE(completions("orvoctl log " + m_file + " a d"), QStringList("debug"));
        QCOMPARE(completions("orvoctl log " + m_file + " a debug "), QStringList());
        QCOMPARE(completions("orvoctl log " + m_file + "x "), QStringList());
    }

    void theFileOfTheMediaServiceIsUnderstood()
    {
        const Run run = orvoctl({"log", ORVO_TEST_MEDIA_LOG});
        QVERIFY2(run.out.contains("\nmedia            INFO   console, file\n"), run.out);
        QCOMPARE(run.status, 0);
    }

private:
    void write(const QByteArray& bytes)
    {
        QFile file(m_file);
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
    }

    QByteArray read() const
    {
        QFile file(m_file);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("cannot be read");
    }

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_file;
};

QTEST_GUILESS_MAIN(tst_orvoctl_log)

#include "tst_orvoctl_log.moc"
