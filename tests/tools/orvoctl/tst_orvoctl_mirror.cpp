#include "ctlservicetest.h"
#include "records/orvoconstants.h"

#include <QFile>

class tst_orvoctl_mirror : public CtlServiceTest
{
    Q_OBJECT

public:
    tst_orvoctl_mirror() : CtlServiceTest("mirrortest") {}

private:
    QStringList words(const QStringList& options = {}) const
    {
        return QStringList{"mirror", named("numbers")} + options;
    }
    /// Behind the 250 rows that are there.
    static QByteArray behindRows(Running& mirror)
    {
        return QList<QByteArray>(mirror.out().split('\n').mid(250)).join('\n');
    }

private slots:
    void init() { startService(); }
    void cleanup()
    {
        killService();
        QFile::remove(OrvoRPCSocketPrefix() + m_name + OrvoRPCSocketSuffix());
    }

    void allRowsAndThenEachChangeAreShown()
    {
        Running mirror(words());
        QTRY_COMPARE(mirror.out().count('\n'), 250);
        QVERIFY2(mirror.out().startsWith("+0  title=Number 0 id=0\n+1  title=Number 1 id=1\n"), mirror.out());
        edit(R"({"insert":1,"title":"New"})");
        QTRY_COMPARE(behindRows(mirror), QByteArray("+1  title=New id=New\n"));
        edit(R"({"set":1,"title":"Newer"})");
        QTRY_COMPARE(behindRows(mirror).split('\n').value(1), QByteArray("1  title=Newer"));
        edit(R"({"move":[1,0]})");
        QTRY_COMPARE(behindRows(mirror).split('\n').mid(2), (QList<QByteArray>{"-1", "+0  title=Newer id=New", ""}));
        edit(R"({"remove":0})");
        QTRY_COMPARE(behindRows(mirror).split('\n').mid(4), (QList<QByteArray>{"-0", ""}));
        edit(R"({"close":true})");
        QTRY_COMPARE(behindRows(mirror).split('\n').mid(5), (QList<QByteArray>{"close", ""}));
        QCOMPARE(mirror.stop(SIGTERM), 0);
        QCOMPARE(mirror.err(), QByteArray());
    }

    void jsonIsOneDocumentALine()
    {
        Running mirror(words({"--json=pretty"}));
        QTRY_COMPARE(mirror.out().count('\n'), 250);
        edit(R"({"set":3,"title":"Three"})");
        QTRY_COMPARE(mirror.out().count('\n'), 251);
        edit(R"({"remove":3})");
        QTRY_COMPARE(mirror.out().count('\n'), 252);
        const auto document = [&](int line) {
            return QJsonDocument::fromJson(mirror.out().split('\n').at(line)).object();
        };
        QCOMPARE(document(7), (QJsonObject{{"path", named("numbers")},
                                           {"change", "+7"},
                                           {"row", 7},
                                           {"state", true},
                                           {"roles", QJsonObject{{"id", "7"}, {"title", "Number 7"}}}}));
        QCOMPARE(document(250), (QJsonObject{{"path", named("numbers")},
                                             {"change", "3"},
                                             {"row", 3},
                                             {"roles", QJsonObject{{"id", "3"}, {"title", "Three"}}}}));
        QCOMPARE(document(251), (QJsonObject{{"path", named("numbers")}, {"change", "-3"}, {"row", 3}}));
        QCOMPARE(mirror.stop(SIGINT), 0);
    }

    void itEndsAfterTheGivenNumberOfChanges()
    {
        const Run none = orvoctl(words({"-n", "0"}));
        QCOMPARE(none.status, 0);
        QCOMPARE(none.out.count('\n'), 250);
        Running mirror(words({"-n", "2"}));
        QTRY_COMPARE(mirror.out().count('\n'), 250);
        edit(R"({"remove":0})");
        edit(R"({"remove":0})");
        edit(R"({"remove":0})");
        const Run run = end(mirror.process());
        QCOMPARE(run.status, 0);
        QCOMPARE((mirror.out() + run.out).count('\n'), 252);
        QVERIFY((mirror.out() + run.out).endsWith("-0\n-0\n"));
    }

    void aRestartedServiceCostsOnlyTheRowsThatAreOther()
    {
        Running mirror(words());
        QTRY_COMPARE(mirror.out().count('\n'), 250);
        edit(R"({"set":3,"title":"Three"})");
        QTRY_COMPARE(behindRows(mirror), QByteArray("3  title=Three\n"));
        killService();
        const QByteArray lost = "orvoctl: link to service '" + m_name.toUtf8() + "' lost\n";
        QTRY_COMPARE(mirror.err(), lost);
        startService();
        QTRY_COMPARE_WITH_TIMEOUT(behindRows(mirror), QByteArray("3  title=Three\n3  title=Number 3\n"), 20000);
        QTRY_COMPARE(mirror.err(), QByteArray(lost + "orvoctl: link to service '" + m_name.toUtf8() + "' regained\n"));
        QCOMPARE(mirror.stop(SIGHUP), 0);
    }

    void failuresAreToldAtOnce_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("status");
        QTest::newRow("no such list") << QStringList{"mirror", "@:nothing"} << 1;
        QTest::newRow("no path") << QStringList{"mirror"} << 2;
        QTest::newRow("two paths") << QStringList{"mirror", "@:numbers", "@:numbers"} << 2;
        QTest::newRow("no service in the path") << QStringList{"mirror", "numbers"} << 2;
        QTest::newRow("a bad count") << QStringList{"mirror", "@:numbers", "-n", "x"} << 2;
        QTest::newRow("no such service") << QStringList{"mirror", "@y:numbers"} << 3;
        QTest::newRow("silent") << QStringList{"mirror", "@:silent", "--timeout", "200"} << 4;
    }
    void failuresAreToldAtOnce()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, status);
        const Run run = orvoctl(arguments.replaceInStrings("@", m_name));
        QCOMPARE(run.status, status);
        QCOMPARE(run.out, QByteArray());
        QCOMPARE(run.err.count('\n'), 1);
        QVERIFY2(run.err.startsWith("orvoctl: "), run.err);
    }

    void aClosedPipeEndsIt()
    {
        const Run run = bash(QStringLiteral("'%1' mirror %2 | head -n 1").arg(ORVO_TEST_ORVOCTL, named("numbers")));
        QCOMPARE(run.out, QByteArray("+0  title=Number 0 id=0\n"));
        QCOMPARE(run.err, QByteArray());
        QCOMPARE(run.status, 0);
    }

    void anInterruptionAheadOfTheFirstAnswerEndsIt()
    {
        Running mirror({"mirror", named("silent")});
        QVERIFY(mirror.process().waitForStarted());
        QTRY_VERIFY(catches(mirror.process().processId(), SIGINT));
        QCOMPARE(mirror.stop(SIGINT), 0);
        QCOMPARE(mirror.out(), QByteArray());
    }

    void helpAndCompletionKnowIt()
    {
        QVERIFY(orvoctl({"--help"}).out.contains("\n  mirror PATH "));
        const Run help = orvoctl({"mirror", "--help"});
        QVERIFY(help.out.startsWith("Usage: orvoctl mirror PATH\n"));
        QVERIFY(help.out.contains("-n, --count COUNT"));
        QCOMPARE(orvoctl({"__complete", "mi"}).out, QByteArray("mirror\n"));
        QCOMPARE(orvoctl({"__complete", "mirror", "--c"}).out, QByteArray("--count\n"));
        QCOMPARE(orvoctl({"__complete", "mirror", named("tree")}).out, (named("tree/branch") + "\n").toUtf8());
        QCOMPARE(orvoctl({"__complete", "mirror", named("numbers"), "x"}).out, QByteArray());
    }
};

QTEST_GUILESS_MAIN(tst_orvoctl_mirror)
#include "tst_orvoctl_mirror.moc"
