#include "ctlrun.h"
#include "records/orvoconstants.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalServer>
#include <QLocalSocket>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>

#include <csignal>
#include <memory>
#include <unistd.h>

class tst_orvoctl : public QObject
{
    Q_OBJECT

private:
    void startService();
    void killService();
    /// The path or command with the service's name in the place of "@".
    QString named(const QString& text) const { return QString(text).replace(QLatin1Char('@'), m_name); }
    QStringList named(QStringList words) const { return words.replaceInStrings(QStringLiteral("@"), m_name); }
    Run ctl(const QString& words) const { return orvoctl(named(words.split(QLatin1Char(' ')))); }
    QByteArray bytes(const QString& text) const { return named(text).toUtf8(); }
    QStringList completions(const QString& line) const { return ::completions(named(line)); }

    /// Not the beginning of the name of another run.
    const QString m_name = QStringLiteral("ctltest%1x").arg(getpid());
    std::unique_ptr<QProcess> m_service;
    QByteArray m_errors;

private slots:
    void init();
    void cleanup();

    void getShowsOneRoleAsItsBareText();
    void getShowsSeveralRolesInAlignedColumns();
    void getWithoutRolesShowsAllThatTheNodeKnows();
    void jsonIsShortInAPipeAndPrettyWhereAsked();
    void aTerminalGetsColoursAndPrettyJson();
    void rowsOfALongListComeInOneTable();
    void rowsShowTheRangeAndTheRolesAskedFor();
    void matchPrintsTheRowOrMinusOne();
    void matchComparesValuesOfTheGivenType();
    void setConvertsToTheTypeOfThePresentValue_data();
    void setConvertsToTheTypeOfThePresentValue();
    void aTextThatDoesNotConvertIsAUsageError_data();
    void aTextThatDoesNotConvertIsAUsageError();
    void setShowsTheClampedValueThatIsStored();
    void setOfAReadOnlyValueFails();
    void setOfANodeWithoutAValueAsksForTheType();
    void invokeHandsOverJsonAndShowsTheReply();
    void aFailingActionIsToldWithNameTitleAndMessage();
    void malformedJsonIsAUsageErrorAndIsNotSent();
    void badCommandLinesAreToldInOneLine_data();
    void badCommandLinesAreToldInOneLine();
    void aPathThatNobodyServesIsAnErrorReply();
    void aServiceThatIsNotThereCannotBeReached();
    void aStaleSocketFileCannotBeReached();
    void aServiceThatDiesBeforeItsAnswerCannotBeReached();
    void aSilentNodeTimesOut();
    void aServiceThatIsJustStartingIsMet();
    void pingTellsTheServiceAndTheTime();
    void waitEndsWhenTheServiceIsUp();
    void waitTimesOutAtItsLimit();
    void treeFollowsContainersAndEndsAtACircle();
    void treeOpensNoMoreLevelsThanAskedFor();
    void watchShowsTheStateAndThenEachChange();
    void watchOfAContainerShowsTheChangeStringsOfItsRows();
    void watchOfDataShowsTheRolesThatChanged();
    void watchOfSeveralPathsTellsThePath();
    void watchWritesOneDocumentALine();
    void watchEndsWithSuccessWhenInterrupted_data();
    void watchEndsWithSuccessWhenInterrupted();
    void watchEndsAfterTheGivenNumberOfChanges();
    void aChangeBehindTheFirstReadingIsNotMissed();
    void aChangeThatTheFirstReadingHasInItIsNotToldAgain();
    void watchGoesOnWhenTheServiceWasKilledAndStartedAgain();
    void aClosedPipeEndsTheToolQuietly();
    void aClosedPipeEndsAWatchWithoutAChange();
    void aFullDiskIsAnError();
    void controlCharactersAreShownAsEscapes();
    void theLibrarysLogLinesStayAwayUnlessAskedFor();
    void everyVerbHasHelp();
    void completionKnowsVerbsOptionsPathsAndRoles();
    void completionSaysNothingWithoutAService();
};

void tst_orvoctl::init()
{
    startService();
}

void tst_orvoctl::cleanup()
{
    killService();
    QFile::remove(OrvoRPCSocketPrefix() + m_name + OrvoRPCSocketSuffix());
}

void tst_orvoctl::startService()
{
    m_service = startCtlService(m_name);
    QVERIFY(m_service);
}

void tst_orvoctl::killService()
{
    if (!m_service)
        return;
    m_service->kill();
    m_service->waitForFinished(longEnoughMs);
    m_service.reset();
}

void tst_orvoctl::getShowsOneRoleAsItsBareText()
{
    const Run run = ctl("get @:volume value");
    QCOMPARE(run.out, QByteArray("20\n"));
    QCOMPARE(run.err, QByteArray());
    QCOMPARE(run.status, 0);
}

void tst_orvoctl::getShowsSeveralRolesInAlignedColumns()
{
    QCOMPARE(ctl("get @:volume title value modifiable").out, QByteArray("title       Volume\n"
                                                                        "value       20\n"
                                                                        "modifiable  true\n"));
}

void tst_orvoctl::getWithoutRolesShowsAllThatTheNodeKnows()
{
    const Run run = ctl("get @:name");
    QCOMPARE(run.status, 0);
    QVERIFY2(run.out.contains(bytes("path        @:name\n")), run.out);
    QVERIFY2(run.out.contains("title       Name\n"), run.out);
    QVERIFY2(run.out.contains("value       Kitchen\n"), run.out);
    QVERIFY2(!run.out.contains("description"), run.out);
}

void tst_orvoctl::jsonIsShortInAPipeAndPrettyWhereAsked()
{
    const QByteArray value = "{\"i32_\":20,\"type\":\"i32_\"}";
    const Run shortRun = ctl("get -j @:volume value");
    QCOMPARE(shortRun.out.count('\n'), 1);
    QCOMPARE(shortRun.json().value("value").toObject(), QJsonDocument::fromJson(value).object());
    QCOMPARE(ctl("get --json=short @:volume value").out, shortRun.out);
    QCOMPARE(ctl("get --json=pretty @:volume title").out, QByteArray("{\n  \"title\": \"Volume\"\n}\n"));
    QCOMPARE(ctl("get --json=wide @:volume title").status, 2);
}

void tst_orvoctl::aTerminalGetsColoursAndPrettyJson()
{
    const auto onTerminal = [this](const QString& words) {
        return bash(named("TERM=xterm script -qec \"" ORVO_TEST_ORVOCTL " " + words + "\" /dev/null")).out;
    };
    QCOMPARE(onTerminal("rows @:numbers 0 0"), QByteArray("\033[1mROW  TITLE\033[0m\r\n0    Number 0\r\n"));
    QCOMPARE(onTerminal("get -j @:volume title"), QByteArray("{\r\n  \"title\": \"Volume\"\r\n}\r\n"));
    QVERIFY(!ctl("rows @:numbers 0 0").out.contains('\033'));
}

void tst_orvoctl::rowsOfALongListComeInOneTable()
{
    const Run run = ctl("rows @:numbers");
    const QList<QByteArray> lines = run.lines();
    QCOMPARE(lines.size(), 251);
    QCOMPARE(lines.at(0), QByteArray("ROW  TITLE"));
    QCOMPARE(lines.at(1), QByteArray("0    Number 0"));
    QCOMPARE(lines.at(101), QByteArray("100  Number 100"));
    QCOMPARE(lines.at(250), QByteArray("249  Number 249"));
}

void tst_orvoctl::rowsShowTheRangeAndTheRolesAskedFor()
{
    QCOMPARE(ctl("rows @:numbers 7 8 --role id --role title").out, QByteArray("ROW  ID  TITLE\n"
                                                                              "7    7   Number 7\n"
                                                                              "8    8   Number 8\n"));
    const QJsonObject json = ctl("rows @:numbers 249 --role id -j").json();
    QCOMPARE(json.value("path").toString(), named("@:numbers"));
    QCOMPARE(json.value("from").toInt(), 249);
    QCOMPARE(json.value("rowsCount").toInt(), 250);
    QCOMPARE(json.value("rows").toArray(), QJsonArray{(QJsonObject{{"id", "249"}})});
    QCOMPARE(ctl("rows @:numbers 251").status, 1);
    QCOMPARE(ctl("rows @:numbers 5 4").status, 2);
}

void tst_orvoctl::matchPrintsTheRowOrMinusOne()
{
    QCOMPARE(orvoctl(named({"match", "@:numbers", "title", "Number 207"})).out, QByteArray("207\n"));
    QCOMPARE(ctl("match @:numbers id 3 --from 4").out, QByteArray("-1\n"));
    QCOMPARE(ctl("match @:numbers id none").status, 0);
}

void tst_orvoctl::matchComparesValuesOfTheGivenType()
{
    QCOMPARE(ctl("match @:tree value 20 --type i32").out, QByteArray("0\n"));
    QCOMPARE(ctl("match @:tree value 20 --type i64").out, QByteArray("-1\n"));
}

void tst_orvoctl::setConvertsToTheTypeOfThePresentValue_data()
{
    QTest::addColumn<QString>("node");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QByteArray>("shown");
    QTest::addColumn<QString>("type");
    QTest::newRow("i32") << "volume"
                         << "42" << QByteArray("42\n") << "i32_";
    QTest::newRow("true") << "mute"
                          << "true" << QByteArray("true\n") << "bool_";
    QTest::newRow("on") << "mute"
                        << "on" << QByteArray("true\n") << "bool_";
    QTest::newRow("1") << "mute"
                       << "1" << QByteArray("true\n") << "bool_";
    QTest::newRow("off") << "mute"
                         << "off" << QByteArray("false\n") << "bool_";
    QTest::newRow("byte") << "byte"
                          << "-128" << QByteArray("-128\n") << "byte_";
    QTest::newRow("i16") << "short"
                         << "32767" << QByteArray("32767\n") << "i16_";
    QTest::newRow("i64") << "long"
                         << "9223372036854775807" << QByteArray("9223372036854775807\n") << "i64_";
    QTest::newRow("double") << "gain"
                            << "-.25" << QByteArray("-0.25\n") << "double_";
    QTest::newRow("string") << "name"
                            << "42" << QByteArray("42\n") << "string_";
    QTest::newRow("empty") << "name"
                           << "" << QByteArray("\n") << "string_";
}

void tst_orvoctl::setConvertsToTheTypeOfThePresentValue()
{
    QFETCH(QString, node);
    QFETCH(QString, text);
    QFETCH(QByteArray, shown);
    QFETCH(QString, type);
    const Run run = orvoctl(named({"set", "@:" + node, text}));
    QCOMPARE(run.err, QByteArray());
    QCOMPARE(run.out, shown);
    QCOMPARE(run.status, 0);
    QCOMPARE(ctl("get -j @:" + node + " value").json().value("value").toObject().value("type").toString(), type);
}

void tst_orvoctl::aTextThatDoesNotConvertIsAUsageError_data()
{
    QTest::addColumn<QString>("words");
    QTest::addColumn<QByteArray>("error");
    QTest::newRow("text") << "set @:volume loud" << QByteArray("orvoctl: 'loud' does not convert to i32\n");
    QTest::newRow("fraction") << "set @:volume 1.5" << QByteArray("orvoctl: '1.5' does not convert to i32\n");
    QTest::newRow("i32") << "set @:volume 2147483648" << QByteArray("orvoctl: '2147483648' does not convert to i32\n");
    QTest::newRow("byte") << "set @:byte 128" << QByteArray("orvoctl: '128' does not convert to byte\n");
    QTest::newRow("i16") << "set @:short -32769" << QByteArray("orvoctl: '-32769' does not convert to i16\n");
    QTest::newRow("i64") << "set @:long 9223372036854775808"
                         << QByteArray("orvoctl: '9223372036854775808' does not convert to i64\n");
    QTest::newRow("bool") << "set @:mute maybe" << QByteArray("orvoctl: 'maybe' does not convert to bool\n");
    QTest::newRow("double") << "set @:gain inf" << QByteArray("orvoctl: 'inf' does not convert to double\n");
    QTest::newRow("type") << "set @:gain 1 --type float"
                          << QByteArray("orvoctl: no such type: 'float'; there are bool, byte, i16, i32, i64, double, "
                                        "string\n");
}

void tst_orvoctl::aTextThatDoesNotConvertIsAUsageError()
{
    QFETCH(QString, words);
    const Run run = ctl(words);
    QTEST(run.err, "error");
    QCOMPARE(run.out, QByteArray());
    QCOMPARE(run.status, 2);
}

void tst_orvoctl::setShowsTheClampedValueThatIsStored()
{
    QCOMPARE(ctl("set @:volume 1000").out, QByteArray("100\n"));
    QCOMPARE(ctl("set @:volume -5").out, QByteArray("0\n"));
    QCOMPARE(ctl("get @:volume value").out, QByteArray("0\n"));
}

void tst_orvoctl::setOfAReadOnlyValueFails()
{
    const Run run = ctl("set @:serial B2");
    QCOMPARE(run.err, bytes("orvoctl: @:serial did not take the value\n"));
    QCOMPARE(run.status, 1);
    QCOMPARE(ctl("get @:serial value").out, QByteArray("A1\n"));
}

void tst_orvoctl::setOfANodeWithoutAValueAsksForTheType()
{
    const Run run = ctl("set @:plain 1");
    QCOMPARE(run.err, bytes("orvoctl: @:plain tells no type of its value; say --type\n"));
    QCOMPARE(run.status, 2);
}

void tst_orvoctl::invokeHandsOverJsonAndShowsTheReply()
{
    const Run run = orvoctl(named({"invoke", "@:echo", "{\"a\":[1,\"\\u00e4\"]}"}));
    QCOMPARE(run.json().value("a").toArray(), (QJsonArray{1, QString::fromUtf8("ä")}));
    QCOMPARE(run.status, 0);
    QCOMPARE(ctl("invoke @:echo").out, QByteArray());
    QCOMPARE(ctl("invoke @:echo -j").out, QByteArray("null\n"));
}

void tst_orvoctl::aFailingActionIsToldWithNameTitleAndMessage()
{
    const Run run = ctl("invoke @:fail");
    QCOMPARE(run.err, QByteArray("orvoctl: noMotor: Cannot move: The motor is missing\n"));
    QCOMPARE(run.out, QByteArray());
    QCOMPARE(run.status, 1);
}

void tst_orvoctl::malformedJsonIsAUsageErrorAndIsNotSent()
{
    for (const char* json : {"{\"a\":", "[1,]", "{} x", ""}) {
        const Run run = orvoctl(named({"invoke", "@:crash", json}));
        QVERIFY2(run.err.startsWith("orvoctl: malformed JSON '"), run.err);
        QCOMPARE(run.err.count('\n'), 1);
        QCOMPARE(run.status, 2);
    }
    QCOMPARE(ctl("get @:volume value").status, 0);
}

void tst_orvoctl::badCommandLinesAreToldInOneLine_data()
{
    QTest::addColumn<QStringList>("words");
    QTest::addColumn<QByteArray>("error");
    QTest::newRow("no verb") << QStringList() << QByteArray("orvoctl: no verb given; see orvoctl --help\n");
    QTest::newRow("verb") << QStringList{"fetch"} << QByteArray("orvoctl: no such verb: fetch; see orvoctl --help\n");
    QTest::newRow("arguments") << QStringList{"get"} << QByteArray("orvoctl: usage: orvoctl get PATH [ROLE...]\n");
    QTest::newRow("too many") << QStringList{"wait", "@:volume", "@:mute"}
                              << QByteArray("orvoctl: usage: orvoctl wait PATH\n");
    QTest::newRow("option") << QStringList{"get", "@:volume", "--colour"}
                            << QByteArray("orvoctl: get: no such option: --colour\n");
    QTest::newRow("no value") << QStringList{"get", "@:volume", "--timeout"}
                              << QByteArray("orvoctl: get: option --timeout needs a value\n");
    QTest::newRow("number") << QStringList{"get", "@:volume", "--timeout", "soon"}
                            << QByteArray("orvoctl: --timeout needs a whole number of at least 1, not 'soon'\n");
    QTest::newRow("prefix") << QStringList{"get", "volume"}
                            << QByteArray("orvoctl: 'volume' names no service; a path reads SERVICE:PLACE\n");
    QTest::newRow("kinds") << QStringList{"watch", "@:volume", "--value", "--data"}
                           << QByteArray("orvoctl: watch: only one of --value, --data and --rows\n");
}

void tst_orvoctl::badCommandLinesAreToldInOneLine()
{
    QFETCH(QStringList, words);
    const Run run = orvoctl(named(words));
    QTEST(run.err, "error");
    QCOMPARE(run.out, QByteArray());
    QCOMPARE(run.status, 2);
}

void tst_orvoctl::aPathThatNobodyServesIsAnErrorReply()
{
    const Run run = ctl("get @:nothing");
    QCOMPARE(run.err,
             bytes("orvoctl: CMAbstractWorker::invalidPath: Error: Node at path '@:nothing' does not exist\n"));
    QCOMPARE(run.status, 1);
    for (const char* words : {"rows @:nothing", "set @:nothing 1 --type i32", "invoke @:nothing", "watch @:nothing",
                              "tree @:nothing", "match @:nothing id 1"})
        QCOMPARE(ctl(words).status, 1);
}

void tst_orvoctl::aServiceThatIsNotThereCannotBeReached()
{
    killService();
    QFile::remove(OrvoRPCSocketPrefix() + m_name + OrvoRPCSocketSuffix());
    const Run run = ctl("get @:volume");
    QCOMPARE(run.err, bytes("orvoctl: service '@' is not there (" + OrvoRPCSocketPrefix() + "@" + OrvoRPCSocketSuffix()
                            + ")\n"));
    QCOMPARE(run.status, 3);
    for (const char* words : {"rows @:x", "set @:x 1", "invoke @:x", "watch @:x", "tree @:x", "ping @"})
        QCOMPARE(ctl(words).status, 3);
}

void tst_orvoctl::aStaleSocketFileCannotBeReached()
{
    killService();
    QVERIFY(QFileInfo::exists(OrvoRPCSocketPrefix() + m_name + OrvoRPCSocketSuffix()));
    QCOMPARE(ctl("get @:volume").status, 3);
}

void tst_orvoctl::aServiceThatDiesBeforeItsAnswerCannotBeReached()
{
    const Run run = ctl("invoke @:crash");
    QCOMPARE(run.err, bytes("orvoctl: the link to service '@' broke before its answer\n"));
    QCOMPARE(run.status, 3);
}

void tst_orvoctl::aSilentNodeTimesOut()
{
    const Run run = ctl("get @:silent --timeout 200");
    QCOMPARE(run.err, bytes("orvoctl: @:silent: no answer within 200 ms\n"));
    QCOMPARE(run.status, 4);
    for (const char* words : {"rows @:silent --timeout 200", "set @:silent 1 --timeout 200",
                              "invoke @:silent --timeout 200", "watch @:silent --timeout 200"})
        QCOMPARE(ctl(words).status, 4);
}

void tst_orvoctl::aServiceThatIsJustStartingIsMet()
{
    killService();
    QFile::remove(OrvoRPCSocketPrefix() + m_name + OrvoRPCSocketSuffix());
    Running get(named({"get", "@:volume", "value"}));
    startService();
    const Run run = end(get.process());
    QCOMPARE(run.out, QByteArray("20\n"));
    QCOMPARE(run.status, 0);
}

void tst_orvoctl::pingTellsTheServiceAndTheTime()
{
    for (const char* words : {"ping @", "ping @:"}) {
        const Run run = ctl(words);
        QVERIFY2(QRegularExpression(named("^@: [0-9]+\\.[0-9]{3} ms\n$")).match(run.out).hasMatch(), run.out);
        QCOMPARE(run.status, 0);
    }
    const QJsonObject json = ctl("ping @ --json").json();
    QCOMPARE(json.value("service").toString(), m_name);
    QVERIFY(json.value("ms").toDouble() > 0);
}

void tst_orvoctl::waitEndsWhenTheServiceIsUp()
{
    QCOMPARE(ctl("wait @:volume").status, 0);
    QCOMPARE(ctl("wait @:").status, 0);
    killService();
    Running wait(named({"wait", "@:volume"}));
    // Longer than any other verb waits for a service.
    QVERIFY(!wait.process().waitForFinished(800));
    startService();
    const Run run = end(wait.process());
    QCOMPARE(run.out + run.err, QByteArray());
    QCOMPARE(run.status, 0);
}

void tst_orvoctl::waitTimesOutAtItsLimit()
{
    const Run run = ctl("wait @:silent --timeout 200");
    QCOMPARE(run.err, bytes("orvoctl: @:silent did not answer within 200 ms\n"));
    QCOMPARE(run.status, 4);
    QCOMPARE(ctl("wait @:nothing --timeout 200").status, 4);
    killService();
    QCOMPARE(ctl("wait @:volume --timeout 200").status, 4);
}

void tst_orvoctl::treeFollowsContainersAndEndsAtACircle()
{
    const Run run = ctl("tree @:tree");
    const QList<QByteArray> lines = run.lines();
    QCOMPARE(run.status, 0);
    QCOMPARE(lines.size(), 5);
    QList<QByteArray> words;
    for (const QByteArray& line : lines)
        words.append(line.simplified());
    QCOMPARE(words, (QList<QByteArray>{bytes("Tree @:tree container"), bytes("Volume @:volume value 20"),
                                       bytes("Branch @:tree/branch container"), bytes("Name @:name value Kitchen"),
                                       bytes("Tree @:tree container (see above)")}));
    QVERIFY(lines.at(0).startsWith("Tree "));
    QVERIFY(lines.at(1).startsWith("  Volume "));
    QVERIFY(lines.at(3).startsWith("    Name "));

    const QJsonObject json = ctl("tree @:tree -j").json();
    const QJsonObject branch = json.value("rows").toArray().at(1).toObject();
    QCOMPARE(branch.value("title").toString(), QString("Branch"));
    QCOMPARE(branch.value("rows").toArray().at(1).toObject().value("shownAbove").toBool(), true);
}

void tst_orvoctl::treeOpensNoMoreLevelsThanAskedFor()
{
    QCOMPARE(ctl("tree @:tree --depth 0").lines().size(), 1);
    QCOMPARE(ctl("tree @:tree --depth 1").lines().size(), 3);
}

void tst_orvoctl::watchShowsTheStateAndThenEachChange()
{
    Running watch(named({"watch", "@:volume"}));
    QTRY_COMPARE(watch.out(), QByteArray("20\n"));
    QCOMPARE(ctl("set @:volume 21").status, 0);
    QTRY_COMPARE(watch.out(), QByteArray("20\n21\n"));
    QCOMPARE(ctl("set @:volume 21").status, 0);
    QCOMPARE(ctl("set @:volume 22").status, 0);
    QTRY_COMPARE(watch.out(), QByteArray("20\n21\n22\n"));
    QCOMPARE(watch.stop(SIGTERM), 0);
}

void tst_orvoctl::watchOfAContainerShowsTheChangeStringsOfItsRows()
{
    Running watch(named({"watch", "@:numbers"}));
    QTRY_COMPARE(watch.out(), QByteArray("250 rows\n"));
    QCOMPARE(ctl("invoke @:shuffle").status, 0);
    QTRY_COMPARE(watch.out(), QByteArray("250 rows\n+0\n0\n=0..2\n-2\n"));
    QCOMPARE(watch.stop(SIGTERM), 0);
}

void tst_orvoctl::watchOfDataShowsTheRolesThatChanged()
{
    Running watch(named({"watch", "@:volume", "--data", "--json"}));
    QTRY_COMPARE(watch.out().count('\n'), 1);
    QCOMPARE(ctl("set @:volume 21").status, 0);
    QTRY_COMPARE(watch.out().count('\n'), 2);
    const QJsonObject roles = QJsonDocument::fromJson(watch.out().split('\n').at(1)).object().value("roles").toObject();
    QCOMPARE(roles.value("value").toObject().value("i32_").toInt(), 21);
    QVERIFY(!roles.contains("title"));
    QCOMPARE(watch.stop(SIGTERM), 0);
}

void tst_orvoctl::watchOfSeveralPathsTellsThePath()
{
    Running watch(named({"watch", "@:mute", "@:name", "-n", "1"}));
    const QByteArray states = bytes("@:mute  false\n@:name  Kitchen\n");
    QTRY_COMPARE(watch.out(), states);
    QCOMPARE(ctl("set @:name Hall").status, 0);
    QTRY_COMPARE(watch.out(), states + bytes("@:name  Hall\n"));
    QCOMPARE(end(watch.process()).status, 0);
}

void tst_orvoctl::watchWritesOneDocumentALine()
{
    Running watch(named({"watch", "@:numbers", "--json=pretty"}));
    QTRY_COMPARE(watch.out().count('\n'), 1);
    QCOMPARE(ctl("invoke @:shuffle").status, 0);
    QTRY_COMPARE(watch.out().count('\n'), 5);
    QStringList changes;
    const QList<QByteArray> lines = watch.out().trimmed().split('\n');
    for (const QByteArray& line : lines) {
        const QJsonObject json = QJsonDocument::fromJson(line).object();
        QCOMPARE(json.value("path").toString(), named("@:numbers"));
        QCOMPARE(json.value("kind").toString(), QString("rows"));
        changes.append(json.value("change").toString());
    }
    QCOMPARE(changes.mid(1), (QStringList{"+0", "0", "=0..2", "-2"}));
    const QJsonObject state = QJsonDocument::fromJson(lines.first()).object();
    QCOMPARE(state.value("state").toBool(), true);
    QCOMPARE(state.value("rowsCount").toInt(), 250);
    QCOMPARE(watch.stop(SIGTERM), 0);
}

void tst_orvoctl::watchEndsWithSuccessWhenInterrupted_data()
{
    QTest::addColumn<int>("signal");
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM;
}

void tst_orvoctl::watchEndsWithSuccessWhenInterrupted()
{
    QFETCH(int, signal);
    Running watch(named({"watch", "@:volume"}));
    QTRY_COMPARE(watch.out(), QByteArray("20\n"));
    QCOMPARE(watch.stop(signal), 0);
    QCOMPARE(watch.err(), QByteArray());
}

void tst_orvoctl::watchEndsAfterTheGivenNumberOfChanges()
{
    QCOMPARE(ctl("watch @:volume -n 0").out, QByteArray("20\n"));
    Running watch(named({"watch", "@:numbers", "-n", "3"}));
    QTRY_COMPARE(watch.out(), QByteArray("250 rows\n"));
    QCOMPARE(ctl("invoke @:shuffle").status, 0);
    const Run run = end(watch.process());
    QCOMPARE(watch.out() + run.out, QByteArray("250 rows\n+0\n0\n=0..2\n"));
    QCOMPARE(run.status, 0);
}

void tst_orvoctl::aChangeBehindTheFirstReadingIsNotMissed()
{
    Running watch(named({"watch", "--value", "@:restless", "-n", "1"}));
    QTRY_COMPARE(watch.out(), QByteArray("0\n1\n"));
    QCOMPARE(end(watch.process()).status, 0);
}

void tst_orvoctl::aChangeThatTheFirstReadingHasInItIsNotToldAgain()
{
    Running watch(named({"watch", "@:growing", "-n", "1"}));
    QTRY_COMPARE(watch.out(), QByteArray("1 rows\n"));
    QCOMPARE(ctl("rows @:growing 0 0").status, 0);
    QTRY_COMPARE(watch.out(), QByteArray("1 rows\n+1\n"));
    QCOMPARE(end(watch.process()).status, 0);
}

void tst_orvoctl::watchGoesOnWhenTheServiceWasKilledAndStartedAgain()
{
    QCOMPARE(ctl("set @:volume 30").status, 0);
    Running value(named({"watch", "@:volume"}));
    Running rows(named({"watch", "@:numbers"}));
    Running data(named({"watch", "--data", "@:plain"}));
    QTRY_COMPARE(value.out(), QByteArray("30\n"));
    QTRY_COMPARE(rows.out(), QByteArray("250 rows\n"));
    QTRY_VERIFY(data.out().contains("title=Plain"));
    killService();
    const QByteArray lost = bytes("orvoctl: link to service '@' lost\n");
    QTRY_COMPARE(value.err(), lost);
    QTRY_COMPARE(rows.err(), lost);
    startService();
    const QByteArray both = lost + bytes("orvoctl: link to service '@' regained\n");
    QTRY_COMPARE(value.err(), both);
    QTRY_COMPARE(rows.err(), both);
    QTRY_COMPARE(data.err(), both);
    // The new service begins with its own values.
    QTRY_COMPARE(value.out(), QByteArray("30\n20\n"));
    QTRY_COMPARE(rows.out(), QByteArray("250 rows\nreset\n"));
    QCOMPARE(ctl("set @:volume 31").status, 0);
    QCOMPARE(ctl("invoke @:shuffle").status, 0);
    QTRY_COMPARE(value.out(), QByteArray("30\n20\n31\n"));
    QTRY_COMPARE(rows.out(), QByteArray("250 rows\nreset\n+0\n0\n=0..2\n-2\n"));
    for (Running* watch : {&value, &rows, &data})
        QCOMPARE(watch->stop(SIGTERM), 0);
}

void tst_orvoctl::aClosedPipeEndsTheToolQuietly()
{
    const Run run = bash(named("set -o pipefail; " ORVO_TEST_ORVOCTL " rows @:numbers | head -1"));
    QCOMPARE(run.out, QByteArray("ROW  TITLE\n"));
    QCOMPARE(run.err, QByteArray());
    QCOMPARE(run.status, 0);
}

void tst_orvoctl::aClosedPipeEndsAWatchWithoutAChange()
{
    const Run run = bash(named("set -o pipefail; " ORVO_TEST_ORVOCTL " watch @:volume | head -1"));
    QCOMPARE(run.out, QByteArray("20\n"));
    QCOMPARE(run.err, QByteArray());
    QCOMPARE(run.status, 0);
}

void tst_orvoctl::aFullDiskIsAnError()
{
    const Run run = bash(named(ORVO_TEST_ORVOCTL " get @:volume value > /dev/full"));
    QCOMPARE(run.err, QByteArray("orvoctl: cannot write: No space left on device\n"));
    QCOMPARE(run.status, 1);
}

void tst_orvoctl::controlCharactersAreShownAsEscapes()
{
    QCOMPARE(orvoctl(named({"set", "@:name", "a\nb\tc\033[31md"})).out, QByteArray("a\\nb\\tc\\x1b[31md\n"));
}

void tst_orvoctl::theLibrarysLogLinesStayAwayUnlessAskedFor()
{
    killService();
    QLocalServer::removeServer(OrvoRPCSocketPrefix() + m_name + OrvoRPCSocketSuffix());
    QLocalServer server;
    QVERIFY(server.listen(OrvoRPCSocketPrefix() + m_name + OrvoRPCSocketSuffix()));
    connect(&server, &QLocalServer::newConnection, [&] { server.nextPendingConnection()->write("garbage!"); });

    const auto errors = [this](const QStringList& options) {
        QProcess process;
        process.start(ORVO_TEST_ORVOCTL, named(QStringList{"get", "@:volume", "--timeout", "200"}) + options);
        QTRY_COMPARE_WITH_TIMEOUT(process.state(), QProcess::NotRunning, longEnoughMs);
        m_errors = process.readAllStandardError();
    };
    errors({});
    QCOMPARE(m_errors, bytes("orvoctl: @:volume: no answer within 200 ms\n"));
    errors({"--verbose"});
    QVERIFY2(m_errors.startsWith("ERROR CM") && m_errors.contains("Invalid magic field"), m_errors);
    QVERIFY2(m_errors.endsWith(bytes("orvoctl: @:volume: no answer within 200 ms\n")), m_errors);
    QVERIFY2(!m_errors.contains("log4cplus"), m_errors);
}

void tst_orvoctl::everyVerbHasHelp()
{
    const Run general = orvoctl({"--help"});
    QCOMPARE(general.status, 0);
    for (const char* verb : {"get", "rows", "match", "set", "invoke", "watch", "wait", "tree", "ping", "log"}) {
        QVERIFY2(general.out.contains(QByteArray("\n  ") + verb + ' '), verb);
        const Run run = orvoctl({verb, "--help"});
        QVERIFY2(run.out.startsWith(QByteArray("Usage: orvoctl ") + verb + ' '), run.out);
        QVERIFY2(run.out.contains("--timeout MS"), run.out);
        QCOMPARE(run.status, 0);
    }
}

void tst_orvoctl::completionKnowsVerbsOptionsPathsAndRoles()
{
    QCOMPARE(completions("orvoctl w"), (QStringList{"wait", "watch"}));
    QCOMPARE(completions("orvoctl rows @:numbers --r"), QStringList{"--role"});
    QCOMPARE(completions("orvoctl set @:volume --type i"), (QStringList{"i16", "i32", "i64"}));
    QCOMPARE(completions("orvoctl get @"), QStringList{m_name + ":"});
    QCOMPARE(completions("orvoctl ping @"), QStringList{m_name});
    // Behind the ":", where bash has broken the word.
    QCOMPARE(completions("orvoctl get @:tree"), QStringList{"tree/branch"});
    QCOMPARE(completions("orvoctl tree @:tree/b"), QStringList{"tree/branch"});
    QCOMPARE(completions("orvoctl get @:volume ti"), (QStringList{"timestamp", "title"}));
    QCOMPARE(completions("orvoctl get @:volume title mod"), QStringList{"modifiable"});
    QCOMPARE(completions("orvoctl match @:numbers i"), QStringList{"id"});
    QCOMPARE(completions("orvoctl rows @:numbers --role t"), QStringList{"title"});
    QCOMPARE(completions("orvoctl get --json=p"), QStringList{"pretty"});
}

void tst_orvoctl::completionSaysNothingWithoutAService()
{
    killService();
    QCOMPARE(completions("orvoctl get @:tree"), QStringList());
    // The socket's file is left.
    QCOMPARE(completions("orvoctl get @"), QStringList());
}

QTEST_GUILESS_MAIN(tst_orvoctl)

#include "tst_orvoctl.moc"
