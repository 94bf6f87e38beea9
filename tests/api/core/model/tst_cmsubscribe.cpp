#include "core/model/cmsubscribe.h"

#include "childprocess.h"
#include "core/model/cmmetatypes.h"
#include "core/model/cmworker.h"
#include "logcapture.h"
#include "support/allocationcount.h"

#include <QTimer>
#include <QtTest>

#include <atomic>
#include <functional>
#include <limits>
#include <memory>

namespace {

CMPath path(const QString& encoded)
{
    return CMPath::fromEncoded(encoded);
}

QString text(const QVariant& value)
{
    return value.isValid() ? value.toString() : QStringLiteral("invalid");
}

} // namespace

/// Writes down what it hears; can do something while it hears.
class Receiver : public QObject
{
    Q_OBJECT
public:
    explicit Receiver(const QString& name = QString(), QStringList* log = nullptr) : m_name(name), m_log(log) {}

    QStringList heard;
    std::function<void()> onHearing;

public slots:
    void value(const CMPath& path, const QVariant& value) { hear("value " + path.toEncoded() + " " + text(value)); }
    void valuePath(const CMPath& path) { hear("value " + path.toEncoded()); }
    void nothing() { hear("nothing"); }
    void data(const CMPath& path) { hear("data " + path.toEncoded()); }
    void rows(const CMPath& path, const QStringList& changes, int version, int oldVersion)
    {
        hear(QString("rows %1 [%2] %3<-%4").arg(path.toEncoded(), changes.join(",")).arg(version).arg(oldVersion));
    }
    void rowsChanges(const CMPath& path, const QStringList& changes)
    {
        hear("rows " + path.toEncoded() + " [" + changes.join(",") + "]");
    }

private:
    void hear(const QString& line)
    {
        heard.append(line);
        if (m_log)
            m_log->append(m_name + " " + line);
        if (onHearing)
            std::exchange(onHearing, nullptr)();
    }

    const QString m_name;
    QStringList* const m_log;
};

/// Writes down the path signals of a hub.
class PathLog : public QObject
{
    Q_OBJECT
public:
    explicit PathLog(CMSubscribe* hub)
    {
        connect(hub, &CMSubscribe::valuePathAdded, this, [=](const CMPath& path) { note("+value ", path); });
        connect(hub, &CMSubscribe::valuePathRemoved, this, [=](const CMPath& path) { note("-value ", path); });
        connect(hub, &CMSubscribe::dataPathAdded, this, [=](const CMPath& path) { note("+data ", path); });
        connect(hub, &CMSubscribe::dataPathRemoved, this, [=](const CMPath& path) { note("-data ", path); });
        connect(hub, &CMSubscribe::rowsPathAdded, this, [=](const CMPath& path) { note("+rows ", path); });
        connect(hub, &CMSubscribe::rowsPathRemoved, this, [=](const CMPath& path) { note("-rows ", path); });
    }

    QStringList lines;

private:
    void note(const char* what, const CMPath& path) { lines.append(what + path.toEncoded()); }
};

#define VALUE SLOT(value(CMPath,QVariant))
#define DATA SLOT(data(CMPath))
#define ROWS SLOT(rows(CMPath,QStringList,int,int))

class tst_CMSubscribe : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        orvoRegisterMetaTypes();
        log4cplus::Logger::getInstance("CMChange").setLogLevel(log4cplus::ERROR_LOG_LEVEL);
    }

    // Subscribing

    void theFirstSubscriberAddsAPathAndTheLastRemovesIt_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<QByteArray>("method");
        QTest::addColumn<QString>("name");
        QTest::newRow("value") << 0 << QByteArray(VALUE) << "value";
        QTest::newRow("data") << 1 << QByteArray(DATA) << "data";
        QTest::newRow("rows") << 2 << QByteArray(ROWS) << "rows";
    }

    void theFirstSubscriberAddsAPathAndTheLastRemovesIt()
    {
        QFETCH(int, type);
        QFETCH(QByteArray, method);
        QFETCH(QString, name);
        const auto changeType = CMAbstractWorker::ChangeType(type);
        CMSubscribe hub("hub", nullptr, false);
        PathLog log(&hub);
        Receiver a;
        Receiver b;
        hub.connectChange(changeType, path("ui:a?x=1"), &a, method);
        QCOMPARE(log.lines, QStringList("+" + name + " ui:a?x=1"));
        QCOMPARE(hub.valuePath(path("ui:a?x=1")), type == 0);
        QCOMPARE(hub.dataPath(path("ui:a?x=1")), type == 1);
        QCOMPARE(hub.rowsPath(path("ui:a?x=1")), type == 2);
        QVERIFY(!hub.valuePath(path("ui:a")) && !hub.dataPath(path("ui:a")) && !hub.rowsPath(path("ui:a")));
        hub.connectChange(changeType, path("ui:a?x=1"), &b, method);
        hub.disconnectChange(changeType, path("ui:a?x=1"), &a, method);
        QCOMPARE(log.lines.size(), 1);
        hub.disconnectChange(changeType, path("ui:a?x=1"), &b, method);
        QCOMPARE(log.lines, (QStringList{"+" + name + " ui:a?x=1", "-" + name + " ui:a?x=1"}));
        QVERIFY(!hub.valuePath(path("ui:a?x=1")) && !hub.dataPath(path("ui:a?x=1")) && !hub.rowsPath(path("ui:a?x=1")));
    }

    void anUnknownKindOfChangeIsIgnored()
    {
        CMSubscribe hub("hub", nullptr, false);
        PathLog log(&hub);
        Receiver receiver;
        hub.connectChange(CMAbstractWorker::ChangeType(3), path("ui:a"), &receiver, VALUE);
        hub.disconnectChange(CMAbstractWorker::ChangeType(3), path("ui:a"), &receiver, VALUE);
        QCOMPARE(log.lines, QStringList());
        QVERIFY(!hub.valuePath(path("ui:a")));
    }

    void pathSignalsGoOutWithoutALock()
    {
        CMSubscribe hub("hub", nullptr, false);
        Receiver receiver;
        QStringList seen;
        const auto ask = [&](const CMPath& changed) {
            // Would never return with the lock held.
            bool subscribed = false;
            std::unique_ptr<QThread> thread(QThread::create([&] { subscribed = hub.dataPath(changed); }));
            thread->start();
            thread->wait();
            seen.append(subscribed ? "subscribed" : "gone");
        };
        connect(&hub, &CMSubscribe::dataPathAdded, this, ask);
        connect(&hub, &CMSubscribe::dataPathRemoved, this, ask);
        hub.connectDataChange(path("ui:a"), &receiver, DATA);
        hub.disconnectDataChange(path("ui:a"), &receiver, DATA);
        QCOMPARE(seen, (QStringList{"subscribed", "gone"}));
    }

    void aReceiverTakesAnyHeadOfTheArguments()
    {
        CMSubscribe hub("hub", nullptr, false);
        Receiver receiver;
        hub.connectValueChange(path("ui:a"), &receiver, VALUE);
        hub.connectValueChange(path("ui:a"), &receiver, SLOT(valuePath(CMPath)));
        hub.connectValueChange(path("ui:a"), &receiver, SLOT(nothing()));
        hub.connectDataChange(path("ui:a"), &receiver, DATA);
        hub.connectDataChange(path("ui:a"), &receiver, SLOT(nothing()));
        hub.connectRowsChange(path("ui:a"), &receiver, ROWS);
        hub.connectRowsChange(path("ui:a"), &receiver, SLOT(rowsChanges(CMPath,QStringList)));
        hub.connectRowsChange(path("ui:a"), &receiver, DATA);
        hub.connectRowsChange(path("ui:a"), &receiver, SLOT(nothing()));
        hub.valueChanged(path("ui:a"), 1);
        hub.dataChanged(path("ui:a"));
        hub.rowsChanged(path("ui:a"), "+1");
        hub.deliver();
        QCOMPARE(receiver.heard, (QStringList{"value ui:a 1", "value ui:a", "nothing", "data ui:a", "nothing",
                                              "rows ui:a [+1] 1<-0", "rows ui:a [+1]", "data ui:a", "nothing"}));
    }

    void aReceiverConnectedTwiceHearsTwiceAndNeedsTwoDisconnects()
    {
        CMSubscribe hub("hub", nullptr, false);
        PathLog log(&hub);
        Receiver receiver;
        hub.connectDataChange(path("ui:a"), &receiver, DATA);
        hub.connectDataChange(path("ui:a"), &receiver, DATA);
        hub.dataChanged(path("ui:a"));
        hub.deliver();
        QCOMPARE(receiver.heard, (QStringList{"data ui:a", "data ui:a"}));
        hub.disconnectDataChange(path("ui:a"), &receiver, DATA);
        QCOMPARE(log.lines, QStringList("+data ui:a"));
        hub.dataChanged(path("ui:a"));
        hub.deliver();
        QCOMPARE(receiver.heard.size(), 3);
        hub.disconnectDataChange(path("ui:a"), &receiver, DATA);
        QCOMPARE(log.lines, (QStringList{"+data ui:a", "-data ui:a"}));
    }

    void aMethodWithOtherSpacesIsTheSameMethod()
    {
        CMSubscribe hub("hub", nullptr, false);
        Receiver receiver;
        hub.connectValueChange(path("ui:a"), &receiver, "1value(const CMPath &, QVariant const &)");
        hub.disconnectValueChange(path("ui:a"), &receiver, VALUE);
        QVERIFY(!hub.valuePath(path("ui:a")));
    }

    void aReceiverWithOneMethodLeftIsNoticedWhenItDies()
    {
        CMSubscribe hub("hub", nullptr, false);
        PathLog log(&hub);
        auto receiver = std::make_unique<Receiver>();
        hub.connectValueChange(path("ui:a"), receiver.get(), VALUE);
        hub.connectValueChange(path("ui:a"), receiver.get(), SLOT(nothing()));
        hub.disconnectValueChange(path("ui:a"), receiver.get(), VALUE);
        receiver.reset();
        hub.deliver();
        hub.deliver();
        QCOMPARE(log.lines, (QStringList{"+value ui:a", "-value ui:a"}));
    }

    void disconnectingWhatIsNotConnectedIsAnErrorLine()
    {
        CMSubscribe hub("hub", nullptr, false);
        PathLog paths(&hub);
        Receiver receiver;
        Receiver stranger;
        hub.connectValueChange(path("ui:a"), &receiver, VALUE);
        const LogCapture log("CMChange", log4cplus::ERROR_LOG_LEVEL);
        hub.disconnectValueChange(path("ui:a"), &stranger, VALUE);
        QCOMPARE(log.lines().size(), 1);
        QVERIFY2(log.lines().first().startsWith("ERROR disconnectChange failed; path:"),
                 qPrintable(log.lines().first()));
        QVERIFY(log.lines().first().endsWith("ui:a"));
        QVERIFY(hub.valuePath(path("ui:a")));
        // A path that nobody watches is passed over in silence.
        hub.disconnectValueChange(path("ui:b"), &receiver, VALUE);
        hub.disconnectRowsChange(path("ui:a"), &receiver, ROWS);
        QCOMPARE(log.lines().size(), 1);
        QCOMPARE(paths.lines, QStringList("+value ui:a"));
    }

    void aConnectionThatCannotBeMadeStopsTheProcess_data()
    {
        QTest::addColumn<QString>("how");
        QTest::newRow("unknown method") << "unknown";
        QTest::newRow("other arguments") << "arguments";
        QTest::newRow("no receiver") << "null";
    }

    void aConnectionThatCannotBeMadeStopsTheProcess()
    {
        QFETCH(QString, how);
        const ChildEnd end = runThisProgram({"--connect", how});
        QVERIFY(end.stopped);
        QVERIFY2(end.errors.contains("ASSERT failure in ui:a?x=1: \"connectChange failed\""), end.errors.constData());
    }

    // Values

    void aValueIsDeliveredWithItsPath()
    {
        CMSubscribe hub("hub", nullptr, false);
        Receiver receiver;
        hub.connectValueChange(path("ui:a?x=1"), &receiver, VALUE);
        hub.valueChanged(path("ui:a?x=1"), "one");
        QCOMPARE(receiver.heard, QStringList());
        QTRY_COMPARE(receiver.heard, QStringList("value ui:a?x=1 one"));
        hub.valueChanged(path("ui:a"), "other");
        hub.deliver();
        QCOMPARE(receiver.heard.size(), 1);
    }

    void aValueEqualToTheStoredOneIsDropped()
    {
        CMSubscribe hub("hub", nullptr, false);
        Receiver receiver;
        hub.connectValueChange(path("ui:a"), &receiver, VALUE);
        hub.valueChanged(path("ui:a"), QVariant());
        hub.deliver();
        QCOMPARE(receiver.heard, QStringList());
        hub.valueChanged(path("ui:a"), 1);
        hub.deliver();
        hub.valueChanged(path("ui:a"), 1);
        hub.deliver();
        QCOMPARE(receiver.heard, QStringList("value ui:a 1"));
    }

    void aValueThatWentAndCameBackIsDeliveredOnce()
    {
        CMSubscribe hub("hub", nullptr, false);
        Receiver receiver;
        hub.connectValueChange(path("ui:a"), &receiver, VALUE);
        hub.valueChanged(path("ui:a"), "A");
        hub.deliver();
        hub.valueChanged(path("ui:a"), "B");
        hub.valueChanged(path("ui:a"), "A");
        hub.deliver();
        QCOMPARE(receiver.heard, (QStringList{"value ui:a A", "value ui:a A"}));
    }

    void theStoredValueGoesWithTheLastSubscriber()
    {
        CMSubscribe hub("hub", nullptr, false);
        Receiver receiver;
        hub.connectValueChange(path("ui:a"), &receiver, VALUE);
        hub.valueChanged(path("ui:a"), 1);
        hub.deliver();
        hub.disconnectValueChange(path("ui:a"), &receiver, VALUE);
        hub.connectValueChange(path("ui:a"), &receiver, VALUE);
        hub.valueChanged(path("ui:a"), 1);
        hub.deliver();
        QCOMPARE(receiver.heard.size(), 2);
    }

    void onlyAMergingHubTellsOfAValueAsData_data()
    {
        QTest::addColumn<bool>("merging");
        QTest::addColumn<QStringList>("heard");
        QTest::newRow("merging") << true << QStringList{"data ui:a", "value ui:a 1", "data ui:a"};
        QTest::newRow("not merging") << false << QStringList{"value ui:a 1"};
    }

    void onlyAMergingHubTellsOfAValueAsData()
    {
        QFETCH(bool, merging);
        CMSubscribe hub("hub", nullptr, merging);
        Receiver receiver;
        hub.connectValueChange(path("ui:a"), &receiver, VALUE);
        hub.connectDataChange(path("ui:a"), &receiver, DATA);
        hub.valueChanged(path("ui:a"), 1);
        hub.deliver();
        // Data also for a value that is the same.
        hub.valueChanged(path("ui:a"), 1);
        hub.deliver();
        QTEST(receiver.heard, "heard");
    }

    // Data

    void dataReportsAreMerged()
    {
        CMSubscribe hub("hub", nullptr, false);
        Receiver receiver;
        hub.connectDataChange(path("ui:a"), &receiver, DATA);
        for (int i = 0; i < 5; ++i)
            hub.dataChanged(path("ui:a"));
        hub.deliver();
        hub.deliver();
        QCOMPARE(receiver.heard, QStringList("data ui:a"));
    }

    // Rows

    void theReservedStringsAreFixed()
    {
        QCOMPARE(CMSubscribe::RowsChangeReset(), QString(""));
        QVERIFY(!CMSubscribe::RowsChangeReset().isNull());
        QCOMPARE(CMSubscribe::RowsChangeClose(), QString("close"));
        QCOMPARE(&CMSubscribe::RowsChangeReset(), &CMSubscribe::RowsChangeReset());
        QCOMPARE(&CMSubscribe::RowsChangeClose(), &CMSubscribe::RowsChangeClose());
    }

    void rowChangesCountTheVersionAndAreDeliveredInOrder()
    {
        CMSubscribe hub("hub", nullptr, false);
        Receiver receiver;
        hub.connectRowsChange(path("ui:a"), &receiver, ROWS);
        hub.rowsChanged(path("ui:a"), "7", 5);
        hub.deliver();
        QCOMPARE(receiver.heard, QStringList("rows ui:a [7] 5<-0"));
        hub.rowsChanged(path("ui:a"), "7");
        hub.rowsChanged(path("ui:a"), "+7");
        hub.rowsChanged(path("ui:a"), "7");
        QCOMPARE(hub.rowsVersion(path("ui:a")), 8);
        QVERIFY(hub.rowsPending(path("ui:a")));
        hub.deliver();
        QVERIFY(!hub.rowsPending(path("ui:a")));
        QCOMPARE(receiver.heard.last(), QString("rows ui:a [7,+7,7] 8<-5"));
        hub.rowsChanged(path("ui:a"), "-1");
        hub.deliver();
        QCOMPARE(receiver.heard.last(), QString("rows ui:a [-1] 9<-8"));
    }

    void aListOfStringsCountsEachOne()
    {
        CMSubscribe hub("hub", nullptr, false);
        Receiver receiver;
        hub.connectRowsChange(path("ui:a"), &receiver, ROWS);
        hub.rowsChanged(path("ui:a"), QStringList{"1", "2", "3"});
        QCOMPARE(hub.rowsVersion(path("ui:a")), 3);
        hub.rowsChanged(path("ui:a"), QStringList{"4", "5", "6"}, 7);
        QCOMPARE(hub.rowsVersion(path("ui:a")), 7);
        hub.deliver();
        QCOMPARE(receiver.heard, QStringList("rows ui:a [1,2,3,4,5,6] 7<-0"));
    }

    void anOldVersionThatIsNamedCounts()
    {
        CMSubscribe hub("hub", nullptr, false);
        Receiver receiver;
        hub.connectRowsChange(path("ui:a"), &receiver, ROWS);
        hub.rowsChanged(path("ui:a"), "1", 10, 8);
        hub.rowsChanged(path("ui:a"), "2");
        hub.deliver();
        QCOMPARE(receiver.heard.last(), QString("rows ui:a [1,2] 11<-8"));
        hub.rowsChanged(path("ui:a"), "3", 0, 0);
        hub.deliver();
        QCOMPARE(receiver.heard.last(), QString("rows ui:a [3] 0<-0"));
    }

    void behindTheHighestVersionTheyStartAnew()
    {
        CMSubscribe hub("hub", nullptr, false);
        Receiver receiver;
        hub.connectRowsChange(path("ui:a"), &receiver, ROWS);
        hub.rowsChanged(path("ui:a"), "1", std::numeric_limits<int>::max());
        hub.deliver();
        hub.rowsChanged(path("ui:a"), "2");
        QCOMPARE(hub.rowsVersion(path("ui:a")), 0);
        hub.deliver();
        QCOMPARE(receiver.heard.last(), QString("rows ui:a [2] 0<-%1").arg(std::numeric_limits<int>::max()));
    }

    void resetAndCloseStartTheVersionAnewBehindWhatIsPending_data()
    {
        QTest::addColumn<QString>("change");
        QTest::newRow("reset") << CMSubscribe::RowsChangeReset();
        QTest::newRow("null string") << QString();
        QTest::newRow("close") << CMSubscribe::RowsChangeClose();
    }

    void resetAndCloseStartTheVersionAnewBehindWhatIsPending()
    {
        QFETCH(QString, change);
        CMSubscribe hub("hub", nullptr, false);
        Receiver receiver;
        hub.connectRowsChange(path("ui:a"), &receiver, ROWS);
        hub.rowsChanged(path("ui:a"), "1", 5);
        hub.rowsChanged(path("ui:a"), change);
        QCOMPARE(hub.rowsVersion(path("ui:a")), 0);
        hub.deliver();
        QCOMPARE(receiver.heard.last(), "rows ui:a [1," + change + "] 0<-0");
        hub.rowsChanged(path("ui:a"), "2");
        QCOMPARE(hub.rowsVersion(path("ui:a")), 1);
        hub.rowsChanged(path("ui:a"), change, 12);
        QCOMPARE(hub.rowsVersion(path("ui:a")), 12);
        hub.deliver();
        QCOMPARE(receiver.heard.last(), "rows ui:a [2," + change + "] 12<-0");
    }

    void anUnwatchedPathHasNoVersion()
    {
        CMSubscribe hub("hub", nullptr, false);
        Receiver receiver;
        QCOMPARE(hub.rowsVersion(path("ui:a")), 0);
        hub.rowsChanged(path("ui:a"), "1", 5);
        QCOMPARE(hub.rowsVersion(path("ui:a")), 0);
        hub.connectRowsChange(path("ui:a"), &receiver, ROWS);
        QCOMPARE(hub.rowsVersion(path("ui:a")), 0);
        hub.rowsChanged(path("ui:a"), "1", 5);
        QCOMPARE(hub.rowsVersion(path("ui:a")), 5);
        hub.disconnectRowsChange(path("ui:a"), &receiver, ROWS);
        QCOMPARE(hub.rowsVersion(path("ui:a")), 0);
        hub.connectRowsChange(path("ui:a"), &receiver, ROWS);
        QCOMPARE(hub.rowsVersion(path("ui:a")), 0);
    }

    void aRowsDeliveryIsNeverEmpty()
    {
        CMSubscribe hub("hub", nullptr, false);
        Receiver receiver;
        hub.connectRowsChange(path("ui:a"), &receiver, ROWS);
        hub.rowsChanged(path("ui:a"), QStringList(), 7);
        hub.deliver();
        QCOMPARE(receiver.heard, QStringList());
    }

    void theVersionIsASlot()
    {
        CMSubscribe hub("hub", nullptr, false);
        Receiver receiver;
        hub.connectRowsChange(path("ui:a"), &receiver, ROWS);
        hub.rowsChanged(path("ui:a"), "1", 5);
        int version = -1;
        QVERIFY(
            QMetaObject::invokeMethod(&hub, "rowsVersion", Q_RETURN_ARG(int, version), Q_ARG(CMPath, path("ui:a"))));
        QCOMPARE(version, 5);
    }

    void reportsCanBeMadeByName_data()
    {
        QTest::addColumn<QByteArray>("slot");
        for (const char* slot :
             {"valueChanged(CMPath,QVariant)", "dataChanged(CMPath)", "rowsChanged(CMPath,QString,int,int)",
              "rowsChanged(CMPath,QString,int)", "rowsChanged(CMPath,QString)",
              "rowsChanged(CMPath,QStringList,int,int)", "rowsChanged(CMPath,QStringList,int)",
              "rowsChanged(CMPath,QStringList)", "changed(CMPath)", "changed(CMPath,QString)",
              "changed(CMPath,QString,int)", "changed(CMPath,QString,int,int)", "changedStartingWith(CMPath)",
              "changedStartingWith(CMPath,QString)", "changedStartingWith(CMPath,QString,int)",
              "changedStartingWith(CMPath,QString,int,int)"})
            QTest::newRow(slot) << QByteArray(slot);
    }

    void reportsCanBeMadeByName()
    {
        QFETCH(QByteArray, slot);
        const int index = CMSubscribe::staticMetaObject.indexOfSlot(slot);
        QVERIFY(index >= 0);
        QCOMPARE(CMSubscribe::staticMetaObject.method(index).access(), QMetaMethod::Public);
    }

    // Combined reports

    void changedTellsOfValueDataAndRows()
    {
        CMSubscribe hub("hub", nullptr, false);
        Receiver receiver;
        hub.connectRowsChange(path("ui:a"), &receiver, ROWS);
        hub.connectDataChange(path("ui:a"), &receiver, DATA);
        hub.connectValueChange(path("ui:a"), &receiver, VALUE);
        hub.valueChanged(path("ui:a"), 1);
        hub.rowsChanged(path("ui:a"), "1", 5);
        hub.deliver();
        receiver.heard.clear();
        hub.changed(path("ui:a"));
        hub.deliver();
        QCOMPARE(receiver.heard, (QStringList{"value ui:a invalid", "data ui:a", "rows ui:a [] 0<-5"}));
        receiver.heard.clear();
        hub.changed(path("ui:a"), "+3", 9, 8);
        hub.deliver();
        QCOMPARE(receiver.heard, (QStringList{"data ui:a", "rows ui:a [+3] 9<-8"}));
    }

    void changedStartingWithTellsOfDataAndRowsInOrder()
    {
        CMSubscribe hub("hub", nullptr, false);
        Receiver receiver;
        for (const char* text : {"ui:b", "ui:ab", "ui:a/b", "ui:a?x=1", "ui:a", "ui:A", "up:a"}) {
            hub.connectValueChange(path(text), &receiver, VALUE);
            hub.connectDataChange(path(text), &receiver, DATA);
            hub.connectRowsChange(path(text), &receiver, ROWS);
        }
        hub.changedStartingWith(path("ui:a?y=2"));
        hub.deliver();
        QCOMPARE(receiver.heard,
                 (QStringList{"data ui:a", "data ui:a/b", "data ui:a?x=1", "data ui:ab", "rows ui:a [] 0<-0",
                              "rows ui:a/b [] 0<-0", "rows ui:a?x=1 [] 0<-0", "rows ui:ab [] 0<-0"}));
        receiver.heard.clear();
        hub.changedStartingWith(path("ui:a/"), "close", 4, 3);
        hub.deliver();
        QCOMPARE(receiver.heard, (QStringList{"data ui:a/b", "rows ui:a/b [close] 4<-3"}));
    }

    void pathsAreFoundByTheirHead()
    {
        CMSubscribe hub("hub", nullptr, false);
        Receiver receiver;
        for (const char* text : {"ui:b", "ui:a?x=2", "ui:a?x=1", "ui:a/b/c", "ui:a", "ui:", "u:a"}) {
            hub.connectValueChange(path(text), &receiver, VALUE);
            hub.connectDataChange(path(text), &receiver, DATA);
            hub.connectRowsChange(path(text), &receiver, ROWS);
        }
        const QList<CMPath> below{path("ui:a"), path("ui:a/b/c"), path("ui:a?x=1"), path("ui:a?x=2")};
        QCOMPARE(hub.valuePathsStartingWith(path("ui:a")), below);
        QCOMPARE(hub.dataPathsStartingWith(path("ui:a")), below);
        QCOMPARE(hub.rowsPathsStartingWith(path("ui:a?other=1")), below);
        QCOMPARE(hub.valuePathsStartingWith(path("ui:c")), QList<CMPath>());
        QCOMPARE(hub.dataPathsStartingWith(path("ui:")).size(), 6);
        QCOMPARE(hub.rowsPathsStartingWith(CMPath()).size(), 7);
    }

    // The order of deliveries

    void deliveriesFollowTheFirstReports()
    {
        CMSubscribe hub("hub", nullptr, false);
        Receiver receiver;
        for (const char* text : {"ui:a", "ui:b"}) {
            hub.connectValueChange(path(text), &receiver, VALUE);
            hub.connectDataChange(path(text), &receiver, DATA);
            hub.connectRowsChange(path(text), &receiver, ROWS);
        }
        hub.rowsChanged(path("ui:b"), "1");
        hub.valueChanged(path("ui:a"), 1);
        hub.dataChanged(path("ui:b"));
        hub.valueChanged(path("ui:b"), 2);
        hub.dataChanged(path("ui:a"));
        hub.valueChanged(path("ui:a"), 3);
        hub.rowsChanged(path("ui:b"), "2");
        hub.deliver();
        QCOMPARE(receiver.heard,
                 (QStringList{"rows ui:b [1,2] 2<-0", "value ui:a 3", "data ui:b", "value ui:b 2", "data ui:a"}));
    }

    void receiversAreServedInTheOrderOfTheirConnections()
    {
        CMSubscribe hub("hub", nullptr, false);
        QStringList log;
        Receiver a("a", &log);
        Receiver b("b", &log);
        Receiver queued("queued", &log);
        hub.connectDataChange(path("ui:a"), &queued, DATA, Qt::QueuedConnection);
        hub.connectDataChange(path("ui:a"), &b, DATA);
        hub.connectDataChange(path("ui:a"), &a, DATA, Qt::DirectConnection);
        hub.dataChanged(path("ui:a"));
        hub.deliver();
        QCOMPARE(log, (QStringList{"b data ui:a", "a data ui:a"}));
        QTRY_COMPARE(log, (QStringList{"b data ui:a", "a data ui:a", "queued data ui:a"}));
    }

    void aReceiverInAnotherThreadIsCalledThere()
    {
        QThread thread;
        thread.start();
        auto* receiver = new Receiver;
        std::atomic<QThread*> ranIn{nullptr};
        receiver->onHearing = [&] { ranIn = QThread::currentThread(); };
        receiver->moveToThread(&thread);
        CMSubscribe hub("hub", nullptr, false);
        hub.connectDataChange(path("ui:a"), receiver, DATA);
        hub.dataChanged(path("ui:a"));
        hub.deliver();
        QTRY_COMPARE(ranIn.load(), &thread);
        receiver->deleteLater();
        thread.quit();
        thread.wait();
    }

    void aReportDuringTheDeliveryIsDeliveredLater()
    {
        CMSubscribe hub("hub", nullptr, false);
        Receiver receiver;
        hub.connectDataChange(path("ui:a"), &receiver, DATA, Qt::DirectConnection);
        hub.connectRowsChange(path("ui:a"), &receiver, ROWS, Qt::DirectConnection);
        receiver.onHearing = [&] {
            hub.dataChanged(path("ui:a"));
            hub.rowsChanged(path("ui:a"), "2");
        };
        hub.dataChanged(path("ui:a"));
        hub.deliver();
        QCOMPARE(receiver.heard, QStringList("data ui:a"));
        QTRY_COMPARE(receiver.heard, (QStringList{"data ui:a", "data ui:a", "rows ui:a [2] 1<-0"}));
    }

    void aValueReportedBetweenTheStepsOfADeliveryIsNotLost()
    {
        CMSubscribe hub("hub", nullptr, false);
        Receiver receiver;
        hub.connectDataChange(path("ui:a"), &receiver, DATA, Qt::DirectConnection);
        hub.connectValueChange(path("ui:a"), &receiver, VALUE, Qt::DirectConnection);
        hub.connectRowsChange(path("ui:a"), &receiver, ROWS, Qt::DirectConnection);
        receiver.onHearing = [&] {
            hub.valueChanged(path("ui:a"), "new");
            hub.rowsChanged(path("ui:a"), "2");
        };
        hub.dataChanged(path("ui:a"));
        hub.valueChanged(path("ui:a"), "old");
        hub.rowsChanged(path("ui:a"), "1");
        hub.deliver();
        hub.deliver();
        // The value may come twice; the strings come once.
        QCOMPARE(receiver.heard,
                 (QStringList{"data ui:a", "value ui:a new", "rows ui:a [1,2] 2<-0", "value ui:a new"}));
    }

    // Timing

    void aMergingHubStartsOneTimerForManyReports()
    {
        CMSubscribe hub("hub", nullptr, true);
        const auto* timer = hub.findChild<QTimer*>();
        QVERIFY(timer->isSingleShot());
        QCOMPARE(timer->interval(), 20);
        Receiver receiver;
        hub.connectDataChange(path("ui:a"), &receiver, DATA);
        QSignalSpy starts(&hub, &CMSubscribe::startTimerSignal);
        for (int i = 0; i < 10000; ++i)
            hub.dataChanged(path("ui:a"));
        QCOMPARE(starts.size(), 1);
        QVERIFY(!timer->isActive());
        QCoreApplication::sendPostedEvents(&hub);
        QVERIFY(timer->isActive());
        const int id = timer->timerId();
        hub.dataChanged(path("ui:a"));
        QCoreApplication::sendPostedEvents(&hub);
        QCOMPARE(timer->timerId(), id);
        QCOMPARE(receiver.heard, QStringList());
        QTRY_COMPARE(receiver.heard, QStringList("data ui:a"));
        QVERIFY(!timer->isActive());
    }

    void laterReportsDoNotPutOffTheDelivery()
    {
        CMSubscribe hub("hub", nullptr, true);
        Receiver receiver;
        hub.connectRowsChange(path("ui:a"), &receiver, ROWS);
        QTimer reports;
        connect(&reports, &QTimer::timeout, &hub, [&] { hub.rowsChanged(path("ui:a"), "1"); });
        reports.start(0);
        QTRY_VERIFY(receiver.heard.size() >= 2);
    }

    void aHubWithoutMergingDeliversWithTheNextEvents()
    {
        CMSubscribe hub("hub", nullptr, false);
        Receiver receiver;
        hub.connectRowsChange(path("ui:a"), &receiver, ROWS);
        hub.rowsChanged(path("ui:a"), "1");
        hub.rowsChanged(path("ui:a"), "2");
        QCOMPARE(receiver.heard, QStringList());
        QCoreApplication::sendPostedEvents(&hub);
        QCOMPARE(receiver.heard, QStringList("rows ui:a [1,2] 2<-0"));
        QVERIFY(!hub.findChild<QTimer*>()->isActive());
    }

    void startingTheTimerInAnotherThreadStopsTheProcess()
    {
        const ChildEnd end = runThisProgram({"--timer"});
        QVERIFY(end.stopped);
        QVERIFY2(end.errors.contains("ASSERT: \"this->thread() == QThread::currentThread()\""), end.errors.constData());
    }

    // Receivers that die

    void aMergingHubRemovesThePathOfADeadReceiverInTheSecondPass()
    {
        CMSubscribe hub("hub", nullptr, true);
        PathLog log(&hub);
        auto receiver = std::make_unique<Receiver>();
        hub.connectDataChange(path("ui:a"), receiver.get(), DATA);
        receiver.reset();
        QVERIFY(hub.dataPath(path("ui:a")));
        hub.deliver();
        QVERIFY(hub.dataPath(path("ui:a")));
        QVERIFY(hub.findChild<QTimer*>()->isActive());
        QTRY_COMPARE(log.lines, (QStringList{"+data ui:a", "-data ui:a"}));
        QVERIFY(!hub.dataPath(path("ui:a")));
    }

    void aMergingHubRemovesItWithoutAnyReport()
    {
        CMSubscribe hub("hub", nullptr, true);
        PathLog log(&hub);
        auto receiver = std::make_unique<Receiver>();
        hub.connectRowsChange(path("ui:a"), receiver.get(), ROWS);
        hub.connectRowsChange(path("ui:a"), receiver.get(), SLOT(nothing()));
        receiver.reset();
        QTRY_COMPARE(log.lines, (QStringList{"+rows ui:a", "-rows ui:a"}));
    }

    void withoutMergingTheRemovalWaitsForTheNextPass()
    {
        CMSubscribe hub("hub", nullptr, false);
        PathLog log(&hub);
        Receiver other;
        hub.connectDataChange(path("ui:other"), &other, DATA);
        auto receiver = std::make_unique<Receiver>();
        hub.connectValueChange(path("ui:a"), receiver.get(), VALUE);
        receiver.reset();
        log.lines.clear();
        QTest::qWait(60);
        QVERIFY(hub.valuePath(path("ui:a")));
        QCOMPARE(log.lines, QStringList());
        hub.dataChanged(path("ui:other"));
        QTRY_COMPARE(other.heard, QStringList("data ui:other"));
        QCOMPARE(log.lines, QStringList("-value ui:a"));
        QVERIFY(!hub.valuePath(path("ui:a")));
    }

    void withoutMergingAnotherDeathBringsTheNextPass()
    {
        CMSubscribe hub("hub", nullptr, false);
        PathLog log(&hub);
        auto first = std::make_unique<Receiver>();
        auto second = std::make_unique<Receiver>();
        hub.connectDataChange(path("ui:a"), first.get(), DATA);
        hub.connectDataChange(path("ui:b"), second.get(), DATA);
        first.reset();
        QCoreApplication::sendPostedEvents(&hub);
        log.lines.clear();
        second.reset();
        QCoreApplication::sendPostedEvents(&hub);
        QCOMPARE(log.lines, QStringList("-data ui:a"));
        QVERIFY(hub.dataPath(path("ui:b")));
    }

    void oneOfTwoReceiversThatDiesLeavesThePath()
    {
        CMSubscribe hub("hub", nullptr, false);
        PathLog log(&hub);
        Receiver stays;
        auto dies = std::make_unique<Receiver>();
        hub.connectDataChange(path("ui:a"), &stays, DATA);
        hub.connectDataChange(path("ui:a"), dies.get(), DATA);
        dies.reset();
        hub.deliver();
        hub.deliver();
        QCOMPARE(log.lines, QStringList("+data ui:a"));
        hub.dataChanged(path("ui:a"));
        hub.deliver();
        QCOMPARE(stays.heard, QStringList("data ui:a"));
    }

    void twoReceiversThatDieRemoveThePathOnce()
    {
        CMSubscribe hub("hub", nullptr, false);
        PathLog log(&hub);
        auto a = std::make_unique<Receiver>();
        auto b = std::make_unique<Receiver>();
        hub.connectDataChange(path("ui:a"), a.get(), DATA);
        hub.connectDataChange(path("ui:a"), b.get(), DATA);
        a.reset();
        b.reset();
        hub.deliver();
        hub.deliver();
        hub.deliver();
        QCOMPARE(log.lines, (QStringList{"+data ui:a", "-data ui:a"}));
    }

    void aSubscriberAheadOfTheRemovalAddsThePathAgain()
    {
        CMSubscribe hub("hub", nullptr, false);
        PathLog log(&hub);
        auto dies = std::make_unique<Receiver>();
        Receiver comes;
        hub.connectRowsChange(path("ui:a"), dies.get(), ROWS);
        hub.rowsChanged(path("ui:a"), "1", 5);
        dies.reset();
        hub.deliver();
        hub.connectRowsChange(path("ui:a"), &comes, ROWS);
        QCOMPARE(log.lines, (QStringList{"+rows ui:a", "+rows ui:a"}));
        hub.deliver();
        hub.deliver();
        QVERIFY(hub.rowsPath(path("ui:a")));
        QCOMPARE(log.lines.size(), 2);
        // It is the same change object still.
        QCOMPARE(hub.rowsVersion(path("ui:a")), 5);
    }

    void aReceiverWhoseDeathIsSeenFromTheDestroyedSignalStillCounts()
    {
        CMSubscribe hub("hub", nullptr, false);
        PathLog log(&hub);
        Receiver comes;
        auto dies = std::make_unique<Receiver>();
        connect(dies.get(), &QObject::destroyed, this, [&] { hub.connectDataChange(path("ui:a"), &comes, DATA); });
        hub.connectDataChange(path("ui:a"), dies.get(), DATA);
        dies.reset();
        QCOMPARE(log.lines, QStringList("+data ui:a"));
        hub.deliver();
        hub.deliver();
        QCOMPARE(log.lines, QStringList("+data ui:a"));
        QVERIFY(hub.dataPath(path("ui:a")));
    }

    void aReceiverMayDieInsideTheDelivery()
    {
        CMSubscribe hub("hub", nullptr, false);
        PathLog log(&hub);
        auto first = std::make_unique<Receiver>();
        auto second = std::make_unique<Receiver>();
        hub.connectDataChange(path("ui:a"), first.get(), DATA);
        hub.connectDataChange(path("ui:a"), second.get(), DATA);
        first->onHearing = [&] {
            second.reset();
            first.release()->deleteLater();
        };
        hub.dataChanged(path("ui:a"));
        hub.deliver();
        QVERIFY(!first && !second);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        hub.deliver();
        hub.deliver();
        QCOMPARE(log.lines, (QStringList{"+data ui:a", "-data ui:a"}));
    }

    void aReceiverMayDeleteItselfInsideTheDelivery()
    {
        CMSubscribe hub("hub", nullptr, false);
        PathLog log(&hub);
        auto* receiver = new Receiver;
        hub.connectRowsChange(path("ui:a"), receiver, ROWS);
        receiver->onHearing = [=] { delete receiver; };
        hub.rowsChanged(path("ui:a"), "1");
        hub.deliver();
        hub.deliver();
        hub.deliver();
        QCOMPARE(log.lines, (QStringList{"+rows ui:a", "-rows ui:a"}));
    }

    void aReceiverMayUnsubscribeInsideTheDelivery()
    {
        CMSubscribe hub("hub", nullptr, false);
        PathLog log(&hub);
        Receiver receiver;
        Receiver other;
        hub.connectDataChange(path("ui:a"), &receiver, DATA);
        hub.connectDataChange(path("ui:b"), &other, DATA);
        receiver.onHearing = [&] {
            hub.disconnectDataChange(path("ui:a"), &receiver, DATA);
            hub.disconnectDataChange(path("ui:b"), &other, DATA);
        };
        hub.dataChanged(path("ui:a"));
        hub.dataChanged(path("ui:b"));
        hub.deliver();
        QCOMPARE(log.lines, (QStringList{"+data ui:a", "+data ui:b", "-data ui:a", "-data ui:b"}));
        QCOMPARE(other.heard, QStringList());
    }

    void theHubMayDieInsideTheDelivery_data()
    {
        QTest::addColumn<bool>("byEvent");
        QTest::newRow("by event") << true;
        QTest::newRow("at once") << false;
    }

    void theHubMayDieInsideTheDelivery()
    {
        QFETCH(bool, byEvent);
        auto worker = std::make_unique<CMWorker>(QHash<QString, QVariant>(), "worker");
        CMSubscribe* hub = worker->subscribe();
        auto first = std::make_unique<Receiver>();
        auto second = std::make_unique<Receiver>();
        Receiver last;
        hub->connectDataChange(path("ui:a"), first.get(), DATA);
        hub->connectDataChange(path("ui:a"), second.get(), DATA);
        hub->connectDataChange(path("ui:b"), &last, DATA);
        hub->connectRowsChange(path("ui:b"), &last, ROWS);
        first->onHearing = [&] {
            worker.reset();
            // What still hung on the dead hub's change.
            second.reset();
        };
        hub->dataChanged(path("ui:a"));
        hub->rowsChanged(path("ui:b"), "1");
        hub->dataChanged(path("ui:b"));
        if (byEvent)
            QTRY_VERIFY(!worker);
        else
            hub->deliver();
        QVERIFY(!worker);
        QVERIFY(!second);
        QCOMPARE(first->heard, QStringList("data ui:a"));
        QCOMPARE(last.heard, QStringList());
    }

    void theHubMayDieInsideItsPathSignals()
    {
        for (const bool added : {true, false}) {
            auto worker = std::make_unique<CMWorker>(QHash<QString, QVariant>(), "worker");
            Receiver receiver;
            connect(worker->subscribe(), added ? &CMSubscribe::dataPathAdded : &CMSubscribe::dataPathRemoved, this,
                    [&] { worker.reset(); });
            worker->connectDataChange(path("ui:a"), &receiver, DATA);
            QCOMPARE(!worker, added);
            if (worker)
                worker->disconnectDataChange(path("ui:a"), &receiver, DATA);
            QVERIFY(!worker);
        }
    }

    void theHubMayDieInsideTheRemovalOfADeadReceiversPath()
    {
        auto worker = std::make_unique<CMWorker>(QHash<QString, QVariant>(), "worker");
        auto receiver = std::make_unique<Receiver>();
        connect(worker->subscribe(), &CMSubscribe::dataPathRemoved, this, [&] { worker.reset(); });
        worker->connectDataChange(path("ui:a"), receiver.get(), DATA);
        worker->connectDataChange(path("ui:b"), receiver.get(), DATA);
        receiver.reset();
        worker->subscribe()->deliver();
        QVERIFY(worker);
        worker->subscribe()->deliver();
        QVERIFY(!worker);
    }

    void aReceiverOutlivesTheHub()
    {
        Receiver receiver;
        {
            CMSubscribe hub("hub", nullptr, false);
            hub.connectDataChange(path("ui:a"), &receiver, DATA);
            hub.dataChanged(path("ui:a"));
        }
        QCoreApplication::processEvents();
        QCOMPARE(receiver.heard, QStringList());
    }

    // Log lines

    void subscriptionsAreTraced()
    {
        CMSubscribe hub("hub", nullptr, false);
        Receiver receiver;
        const LogCapture log("CMChange");
        hub.connectValueChange(path("ui:b"), &receiver, VALUE);
        hub.connectValueChange(path("ui:a"), &receiver, VALUE);
        QVERIFY(log.lines().contains("TRACE connectChange: ui:b size:1 receivers: 1"));
        QVERIFY(log.lines().contains("TRACE connectChange: ui:a size:2 receivers: 1"));
        hub.connectValueChange(path("ui:a"), &receiver, VALUE);
        QVERIFY(log.lines().contains("TRACE connectChange: ui:a size:2 receivers: 2"));
        hub.disconnectValueChange(path("ui:a"), &receiver, VALUE);
        QVERIFY(log.lines().last().startsWith("TRACE disconnectedChange: ui:a"));
        hub.disconnectValueChange(path("ui:a"), &receiver, VALUE);
        QCOMPARE(log.lines().last(), QString("DEBUG removing from map, no more receivers for path: ui:a"));
        hub.disconnectValueChange(path("ui:a"), &receiver, VALUE);
        hub.rowsChanged(path("ui:a"), "1");
        QCOMPARE(log.lines().last(), QString("TRACE no one subscribed for rowsChange at path ui:a"));
    }

    void aRowsDeliveryIsLogged()
    {
        CMSubscribe hub("hub", nullptr, false);
        Receiver receiver;
        hub.connectRowsChange(path("ui:a"), &receiver, ROWS);
        const LogCapture log("CMChange", log4cplus::DEBUG_LOG_LEVEL);
        hub.rowsChanged(path("ui:a"), "1", 5);
        hub.deliver();
        QCOMPARE(log.lines().size(), 1);
        QVERIFY2(log.lines().first().startsWith("DEBUG ") && log.lines().first().contains("ui:a"),
                 qPrintable(log.lines().first()));
    }

    // Cost

    void aReportOnAnUnwatchedPathAllocatesNothing()
    {
        CMSubscribe hub("hub", nullptr, true);
        Receiver receiver;
        for (int i = 0; i < 10000; ++i) {
            const CMPath watched = path(QString("ui:list/%1").arg(i));
            hub.connectValueChange(watched, &receiver, VALUE);
            hub.connectDataChange(watched, &receiver, DATA);
            hub.connectRowsChange(watched, &receiver, ROWS);
        }
        const CMPath unwatched = path("ui:list/5000x");
        const QVariant value(5);
        const QString change = "+7";
        const QStringList changes{"+7", "-7"};
        QVERIFY(!hub.dataPath(unwatched));
        CMSubscribe::RowsChangeReset();
        QVERIFY(allocationsOf([] { QString(7, QLatin1Char('x')); }) > 0);
        QCOMPARE(allocationsOf([&] { hub.valueChanged(unwatched, value); }), 0);
        QCOMPARE(allocationsOf([&] { hub.dataChanged(unwatched); }), 0);
        QCOMPARE(allocationsOf([&] { hub.rowsChanged(unwatched, changes); }), 0);
        QCOMPARE(allocationsOf([&] { hub.rowsChanged(unwatched, change); }), 0);
        QCOMPARE(allocationsOf([&] { hub.changed(unwatched); }), 0);
        QCOMPARE(allocationsOf([&] { hub.rowsVersion(unwatched); }), 0);
        QCOMPARE(allocationsOf([&] { hub.valuePath(unwatched); }), 0);
    }

    void aReportOnAPathThatIsQueuedAllocatesNothing()
    {
        CMSubscribe hub("hub", nullptr, true);
        Receiver receiver;
        hub.connectValueChange(path("ui:a"), &receiver, VALUE);
        hub.connectDataChange(path("ui:a"), &receiver, DATA);
        const CMPath watched = path("ui:a");
        const QVariant first(1);
        const QVariant second(2);
        hub.valueChanged(watched, first);
        QCOMPARE(allocationsOf([&] { hub.valueChanged(watched, second); }), 0);
        QCOMPARE(allocationsOf([&] { hub.dataChanged(watched); }), 0);
    }
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.value(1) == QLatin1String("--connect")) {
        leaveNoCore();
        CMSubscribe hub("hub", nullptr, false);
        Receiver receiver;
        const QString how = arguments.value(2);
        if (how == QLatin1String("unknown"))
            hub.connectValueChange(path("ui:a?x=1"), &receiver, SLOT(unknown()));
        else if (how == QLatin1String("arguments"))
            hub.connectDataChange(path("ui:a?x=1"), &receiver, VALUE);
        else
            hub.connectDataChange(path("ui:a?x=1"), nullptr, DATA);
        return 0;
    }
    if (arguments.value(1) == QLatin1String("--timer")) {
        leaveNoCore();
        CMSubscribe hub("hub", nullptr, true);
        std::unique_ptr<QThread> thread(
            QThread::create([&] { QMetaObject::invokeMethod(&hub, "startTimerSlot", Qt::DirectConnection); }));
        thread->start();
        thread->wait();
        return 0;
    }
    tst_CMSubscribe test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_cmsubscribe.moc"
