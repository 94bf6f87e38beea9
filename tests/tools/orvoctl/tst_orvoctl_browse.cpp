#include "ctlservicetest.h"
#include "records/orvoconstants.h"
#include "support/pseudoterminal.h"

#include <QFile>

namespace {

const QByteArray up = "\033OA";
const QByteArray down = "\033OB";
const QByteArray pageUp = "\033[5~";
const QByteArray pageDown = "\033[6~";
const QByteArray home = "\033OH";
const QByteArray end_ = "\033OF";
const QByteArray enter = "\r";
const QByteArray backspace = "\177";

} // namespace

class tst_orvoctl_browse : public CtlServiceTest
{
    Q_OBJECT

public:
    tst_orvoctl_browse() : CtlServiceTest("browsetest") {}

private:
    void browse(PseudoTerminal& terminal, const QString& place, const QStringList& options = {}) const
    {
        terminal.start(ORVO_TEST_ORVOCTL, QStringList{"browse", named(place)} + options);
    }
    static QStringList numbers(int first, int count)
    {
        QStringList lines;
        for (int number = first; number < first + count; ++number)
            lines.append(QStringLiteral("  Number %1").arg(number));
        return lines;
    }

private slots:
    void init() { startService(); }
    void cleanup()
    {
        killService();
        for (const QString& name : {m_name, QString(m_name + "2")})
            QFile::remove(OrvoRPCSocketPrefix() + name + OrvoRPCSocketSuffix());
    }

    void theListIsShownWithItsTitleAndPosition()
    {
        PseudoTerminal terminal;
        browse(terminal, "numbers");
        QTRY_COMPARE(terminal.marked(), QString("  Number 0"));
        QCOMPARE(terminal.line(0), QString("Numbers") + QString(28, ' ') + "1/250");
        QCOMPARE(terminal.lines().mid(1, 10), numbers(0, 10));
        QVERIFY(terminal.last().contains("q: quit"));
        QVERIFY(terminal.isFullScreen());
    }

    void keysMoveTheCurrentRow()
    {
        PseudoTerminal terminal;
        browse(terminal, "numbers");
        QTRY_COMPARE(terminal.marked(), QString("  Number 0"));
        const auto step = [&](const QByteArray& keys, int row, int first) {
            terminal.press(keys);
            QTRY_COMPARE(terminal.marked(), QString("  Number %1").arg(row));
            QVERIFY(terminal.line(0).endsWith(QString(" %1/250").arg(row + 1)));
            QCOMPARE(terminal.lines().mid(1, 10), numbers(first, 10));
        };
        step(down, 1, 0);
        step(up, 0, 0);
        step(up + down, 1, 0);
        step(pageDown, 11, 2);
        step(pageDown, 21, 12);
        step(pageUp, 11, 11);
        step(end_, 249, 240);
        step(down + up, 248, 240);
        step(pageDown, 249, 240);
        step(home, 0, 0);
        step(pageUp + down, 1, 0);
        step(QByteArray("x?\033[Z") + down, 2, 0);
    }

    void enterOpensAListAndBackspaceLeavesIt()
    {
        PseudoTerminal terminal;
        browse(terminal, "tree");
        QTRY_COMPARE(terminal.marked(), QString("  Volume: 20"));
        QCOMPARE(terminal.line(2), QString("> Branch"));
        terminal.press(enter);
        QTRY_COMPARE(terminal.last(), QString("neither a list nor an action"));
        terminal.press(down + enter);
        QTRY_COMPARE(terminal.marked(), QString("  Name: Kitchen"));
        QVERIFY(terminal.line(0).startsWith("Branch "));
        // The lists are a circle: the first one is left again only by going back.
        terminal.press(down + enter);
        QTRY_COMPARE(terminal.marked(), QString("> Branch"));
        QVERIFY(terminal.line(0).startsWith("Tree "));
        QCOMPARE(terminal.line(0).right(4), QString(" 2/2"));
        terminal.press(enter);
        QTRY_VERIFY(terminal.line(0).startsWith("Branch "));
        terminal.press(backspace);
        QTRY_COMPARE(terminal.marked(), QString("> Branch"));
        terminal.press(backspace);
        QVERIFY(terminal.waitForFinished(longEnoughMs));
        QCOMPARE(terminal.exitCode(), 0);
        QVERIFY(terminal.isRestored());
    }

    void enterRunsAnActionAndTellsItsReply()
    {
        PseudoTerminal terminal(12, 80);
        browse(terminal, "desk");
        QTRY_COMPARE(terminal.marked(), QString("> Tree"));
        terminal.press(down + enter);
        QTRY_COMPARE(terminal.last(), QString("Echo: done"));
        QCOMPARE(terminal.marked(), QString("* Echo"));
        terminal.press(down + enter);
        QTRY_COMPARE(terminal.last(), QString("Fail: noMotor: Cannot move: The motor is missing"));
        terminal.press(down);
        QTRY_VERIFY(terminal.last().contains("q: quit"));
    }

    void rowsThatAreNotThereYetAreAnnounced()
    {
        PseudoTerminal terminal;
        browse(terminal, "desk");
        QTRY_COMPARE(terminal.marked(), QString("> Tree"));
        QVERIFY(!terminal.line(0).contains("loading"));
        terminal.press(down + down + down + enter);
        QTRY_VERIFY(terminal.line(0).endsWith(" loading 0/0"));
        QVERIFY(terminal.line(0).startsWith(named("silent").left(20)));
        terminal.press(backspace);
        QTRY_COMPARE(terminal.marked(), QString("> Silent"));
        QVERIFY(!terminal.line(0).contains("loading"));
    }

    void errorsAreInTheStatusLine()
    {
        PseudoTerminal terminal(12, 200);
        browse(terminal, "desk");
        QTRY_COMPARE(terminal.marked(), QString("> Tree"));
        terminal.press(down + down + down + down + enter);
        QTRY_VERIFY2(terminal.last().contains("nowhere"), qPrintable(terminal.last()));
        QVERIFY(terminal.last().contains("does not exist"));
        terminal.press(backspace);
        QTRY_COMPARE(terminal.marked(), QString("> Nowhere"));
        QVERIFY(terminal.last().contains("q: quit"));
    }

    void listsOfOtherServicesAreReached()
    {
        PseudoTerminal terminal(12, 60);
        browse(terminal, "desk");
        QTRY_COMPARE(terminal.marked(), QString("> Tree"));
        terminal.press(end_ + up + enter);
        QTRY_COMPARE(terminal.last(), QString("no link to service '" + m_name + "2'"));
        const auto other = startCtlService(m_name + '2');
        QVERIFY(other);
        QTRY_COMPARE_WITH_TIMEOUT(terminal.marked(), QString("  Number 0"), longEnoughMs);
        QVERIFY(terminal.last().contains("q: quit"));
        other->kill();
        other->waitForFinished();
    }

    void changesAreFollowed()
    {
        PseudoTerminal terminal;
        browse(terminal, "numbers");
        QTRY_COMPARE(terminal.marked(), QString("  Number 0"));
        terminal.press(down + down);
        QTRY_COMPARE(terminal.marked(), QString("  Number 2"));
        edit(R"({"insert":1,"title":"New"})");
        QTRY_COMPARE(terminal.lines().mid(1, 4), QStringList({"  Number 0", "  New", "  Number 1", "  Number 2"}));
        QCOMPARE(terminal.marked(), QString("  Number 2"));
        QCOMPARE(terminal.line(0).right(6), QString(" 4/251"));
        edit(R"({"set":1,"title":"Newer"})");
        QTRY_COMPARE(terminal.line(2), QString("  Newer"));
        edit(R"({"move":[1,4]})");
        QTRY_COMPARE(terminal.line(5), QString("  Newer"));
        edit(R"({"remove":0})");
        QTRY_COMPARE(terminal.line(1), QString("  Number 1"));
        QCOMPARE(terminal.marked(), QString("  Number 2"));
        edit(R"({"close":true})");
        QVERIFY(terminal.waitForFinished(longEnoughMs));
        QCOMPARE(terminal.exitCode(), 0);
        QCOMPARE(terminal.exitStatus(), QProcess::NormalExit);
        QVERIFY(terminal.isRestored());
    }

    void itFillsATerminalOfAnotherSize()
    {
        PseudoTerminal terminal;
        browse(terminal, "numbers");
        QTRY_COMPARE(terminal.marked(), QString("  Number 0"));
        terminal.press(end_);
        QTRY_COMPARE(terminal.lines().mid(1, 10), numbers(240, 10));
        terminal.resize(6, 30);
        QTRY_COMPARE(terminal.lines().mid(1, 4), numbers(246, 4));
        QCOMPARE(terminal.marked(), QString("  Number 249"));
        QTRY_COMPARE(terminal.line(0), QString("Numbers") + QString(16, ' ') + "250/250");
        terminal.press(home);
        QTRY_COMPARE(terminal.lines().mid(1, 4), numbers(0, 4));
        terminal.resize(30, 100);
        QTRY_COMPARE(terminal.lines().mid(1, 28), numbers(0, 28));
        QTRY_COMPARE(terminal.line(0), QString("Numbers") + QString(88, ' ') + "1/250");
        terminal.resize(1, 5);
        terminal.resize(12, 40);
        QTRY_COMPARE(terminal.lines().mid(1, 10), numbers(0, 10));
        QCOMPARE(terminal.marked(), QString("  Number 0"));
    }

    void aServiceThatEndsAndComesBackIsFollowed()
    {
        PseudoTerminal terminal(12, 60);
        browse(terminal, "numbers");
        QTRY_COMPARE(terminal.marked(), QString("  Number 0"));
        killService();
        QTRY_COMPARE(terminal.last(), QString("no link to service '%1'").arg(m_name));
        startService();
        QTRY_VERIFY_WITH_TIMEOUT(terminal.last().contains("q: quit"), longEnoughMs);
        QTRY_COMPARE_WITH_TIMEOUT(terminal.marked(), QString("  Number 0"), longEnoughMs);
        edit(R"({"set":0,"title":"Zero"})");
        QTRY_COMPARE(terminal.marked(), QString("  Zero"));
    }

    void theTerminalIsRestored_data()
    {
        QTest::addColumn<QByteArray>("keys");
        QTest::addColumn<int>("signal");
        QTest::addColumn<bool>("serviceGone");
        QTest::newRow("q") << QByteArray("q") << 0 << false;
        QTest::newRow("q, without a service") << QByteArray("q") << 0 << true;
        QTest::newRow("back, without a service") << backspace << 0 << true;
        QTest::newRow("the interrupt key") << QByteArray("\003") << 0 << false;
        QTest::newRow("SIGTERM") << QByteArray() << SIGTERM << false;
        QTest::newRow("SIGTERM, without a service") << QByteArray() << SIGTERM << true;
        QTest::newRow("SIGHUP") << QByteArray() << SIGHUP << false;
    }
    void theTerminalIsRestored()
    {
        QFETCH(QByteArray, keys);
        QFETCH(int, signal);
        QFETCH(bool, serviceGone);
        PseudoTerminal terminal;
        browse(terminal, "numbers");
        QTRY_COMPARE(terminal.marked(), QString("  Number 0"));
        QVERIFY(terminal.isFullScreen());
        QVERIFY(!terminal.isRestored());
        if (serviceGone) {
            killService();
            QTRY_VERIFY(terminal.last().startsWith("no link"));
        }
        if (signal)
            ::kill(pid_t(terminal.processId()), signal);
        else
            terminal.press(keys);
        QVERIFY(terminal.waitForFinished(longEnoughMs));
        QCOMPARE(terminal.exitStatus(), QProcess::NormalExit);
        QCOMPARE(terminal.exitCode(), 0);
        QVERIFY(terminal.isRestored());
        QVERIFY(!terminal.lines().join('\n').contains("Number"));
    }

    void itEndsWithItsTerminal()
    {
        PseudoTerminal terminal;
        browse(terminal, "numbers");
        QTRY_COMPARE(terminal.marked(), QString("  Number 0"));
        terminal.hangUp();
        QVERIFY(terminal.waitForFinished(longEnoughMs));
        QCOMPARE(terminal.exitStatus(), QProcess::NormalExit);
    }

    void textsCannotSteerTheTerminal()
    {
        PseudoTerminal terminal;
        edit("{\"set\":1,\"title\":\"\\u001b[2J\\u0007\\nx\"}");
        edit(R"({"set":2,"title":"日本語の長い題名、とても長くて終わりがない題名"})");
        edit(R"({"set":3,"title":"é ü"})");
        browse(terminal, "numbers");
        QTRY_COMPARE(terminal.marked(), QString("  Number 0"));
        QCOMPARE(terminal.line(2), QString("  \\x1b[2J\\x07\\nx"));
        // 19 signs of two columns each.
        QCOMPARE(terminal.line(3), QString::fromUtf8("  日本語の長い題名、とても長くて終わりが"));
        QCOMPARE(terminal.line(4), QString::fromUtf8("  é ü"));
        QCOMPARE(terminal.line(5), QString("  Number 4"));
    }

    void failuresAreToldAtOnceAndLeaveTheTerminalAlone_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("kind");
        QTest::addColumn<int>("status");
        QTest::newRow("no such list") << QStringList{"browse", "@:nothing"} << "xterm" << 1;
        QTest::newRow("no path") << QStringList{"browse"} << "xterm" << 2;
        QTest::newRow("no service in the path") << QStringList{"browse", "numbers"} << "xterm" << 2;
        QTest::newRow("an unknown kind of terminal") << QStringList{"browse", "@:numbers"} << "nonsense" << 2;
        QTest::newRow("no such service") << QStringList{"browse", "@y:numbers"} << "xterm" << 3;
        QTest::newRow("silent") << QStringList{"browse", "@:silent", "--timeout", "200"} << "xterm" << 4;
    }
    void failuresAreToldAtOnceAndLeaveTheTerminalAlone()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, kind);
        QFETCH(int, status);
        PseudoTerminal terminal(12, 120);
        terminal.setKind(kind);
        terminal.start(ORVO_TEST_ORVOCTL, arguments.replaceInStrings("@", m_name));
        QVERIFY(terminal.waitForFinished(longEnoughMs));
        QCOMPARE(terminal.exitCode(), status);
        QVERIFY(terminal.isRestored());
        QVERIFY2(terminal.line(0).startsWith("orvoctl: "), qPrintable(terminal.line(0)));
        QCOMPARE(terminal.line(1), QString());
    }

    void withoutATerminalItIsAUsageError()
    {
        const Run run = orvoctl({"browse", named("numbers")});
        QCOMPARE(run.status, 2);
        QCOMPARE(run.out, QByteArray());
        QCOMPARE(run.err, QByteArray("orvoctl: browse: needs a terminal\n"));
    }

    void anInterruptionAheadOfTheFirstAnswerEndsIt()
    {
        PseudoTerminal terminal;
        browse(terminal, "silent");
        QVERIFY(terminal.waitForStarted());
        QTRY_VERIFY(catches(terminal.processId(), SIGINT));
        terminal.press("\003");
        QVERIFY(terminal.waitForFinished(longEnoughMs));
        QCOMPARE(terminal.exitCode(), 0);
        QVERIFY(terminal.isRestored());
    }

    void helpAndCompletionKnowIt()
    {
        QVERIFY(orvoctl({"--help"}).out.contains("\n  browse PATH "));
        QVERIFY(orvoctl({"browse", "--help"}).out.startsWith("Usage: orvoctl browse PATH\n"));
        QCOMPARE(orvoctl({"__complete", "br"}).out, QByteArray("browse\n"));
        QCOMPARE(orvoctl({"__complete", "browse", named("tree")}).out, (named("tree/branch") + "\n").toUtf8());
        QCOMPARE(orvoctl({"__complete", "browse", named("numbers"), "x"}).out, QByteArray());
    }
};

QTEST_GUILESS_MAIN(tst_orvoctl_browse)
#include "tst_orvoctl_browse.moc"
