#include "core/model/cmeventqueue.h"

#include "childprocess.h"
#include "logcapture.h"
#include "nodetest.h"
#include "support/longpoll.h"

#include <QSignalSpy>
#include <QThread>
#include <QtTest>

#include <climits>
#include <vector>

namespace {

constexpr int DataType = OrvoEventSubscribeType::DataChanged;
constexpr int RowsType = OrvoEventSubscribeType::RowsChanged;
constexpr int ValueType = OrvoEventSubscribeType::ValueChanged;

QVariant number(int n)
{
    return OrvoValue().setI32_(n).__variant();
}

} // namespace

class tst_CMEventQueue : public QObject
{
    Q_OBJECT

private slots:
    void aNewQueueHasAnIdOfItsOwnAndAMinuteToLive()
    {
        const CMEventQueue queue;
        const CMEventQueue other;
        QVERIFY(!queue.id().isNull());
        QVERIFY(queue.id() != other.id());
        QVERIFY(timerOf(&queue)->isActive());
        QVERIFY(timerOf(&queue)->isSingleShot());
        QCOMPARE(timerOf(&queue)->interval(), 60000);
    }

    void aPollWaitsForTheTimeThatItAsksFor_data()
    {
        QTest::addColumn<int>("seconds");
        QTest::addColumn<int>("intervalMs");
        QTest::newRow("none given") << 0 << 15000;
        QTest::newRow("negative") << -7 << 15000;
        QTest::newRow("one second") << 1 << 1000;
        QTest::newRow("the longest") << 300 << 300000;
        QTest::newRow("longer than allowed") << 301 << 300000;
        QTest::newRow("a thousand") << 1000 << 300000;
        QTest::newRow("more than milliseconds can tell") << INT_MAX << 300000;
    }

    void aPollWaitsForTheTimeThatItAsksFor()
    {
        QFETCH(int, seconds);
        QFETCH(int, intervalMs);
        PollAnswers answers;
        CMEventQueue queue;
        const LogCapture log("CMEventQueue");
        queue.poll(new LongPoll(&answers), seconds);
        QCOMPARE(answers.count(), 0);
        QVERIFY(timerOf(&queue)->isActive());
        QCOMPARE(timerOf(&queue)->interval(), intervalMs);
        QCOMPARE(log.lines(), QStringList("TRACE starting poll timer"));
    }

    void aPollThatTimesOutIsAnsweredWithNothing()
    {
        PollAnswers answers;
        CMEventQueue queue;
        queue.poll(new LongPoll(&answers), 1);
        const LogCapture log("CMEventQueue");
        QTRY_COMPARE(answers.count(), 1);
        QVERIFY(answers.events.first().isEmpty());
        QCOMPARE(answers.queueIds, QStringList(queue.id().toString()));
        QCOMPARE(answers.alive, 0);
        QCOMPARE(log.lines(), QStringList("TRACE Response sent, size:0"));
        QVERIFY(timerOf(&queue)->isActive());
        QCOMPARE(timerOf(&queue)->interval(), 60000);
    }

    void aPollTakesTheEventsThatWaitAtOnceAndItsTimerDoesNotRun()
    {
        NodesFixture f;
        PollAnswers answers;
        CMEventQueue queue;
        QVERIFY(queue.subscribe(eventSubscribe("x:a", DataType)));
        f.hub()->dataChanged(P("x:a"));
        f.hub()->deliver();
        const LogCapture log("CMEventQueue");
        queue.poll(new LongPoll(&answers), 1);
        QCOMPARE(answers.count(), 1);
        QCOMPARE(eventTexts(answers.events.first()), QStringList("data x:a"));
        QCOMPARE(answers.queueIds, QStringList(queue.id().toString()));
        QCOMPARE(log.lines(), QStringList("TRACE Response sent, size:1"));
        QCOMPARE(timerOf(&queue)->interval(), 60000);
        queue.poll(new LongPoll(&answers), 1);
        QCOMPARE(answers.count(), 1);
    }

    void anEventAnswersTheWaitingPollAndStartsTheCountdownAnew()
    {
        NodesFixture f;
        PollAnswers answers;
        CMEventQueue queue;
        queue.subscribe(eventSubscribe("x:a", DataType));
        queue.poll(new LongPoll(&answers), 20);
        f.hub()->dataChanged(P("x:a"));
        QTRY_COMPARE(answers.count(), 1);
        QCOMPARE(eventTexts(answers.events.first()), QStringList("data x:a"));
        QVERIFY(timerOf(&queue)->isActive());
        QCOMPARE(timerOf(&queue)->interval(), 60000);
    }

    void eventsWithoutAPollWaitInTheOrderOfTheirArrival()
    {
        NodesFixture f;
        CMEventQueue queue;
        queue.subscribe(eventSubscribe("x:a", DataType));
        queue.subscribe(eventSubscribe("x:a", ValueType));
        queue.subscribe(eventSubscribe("x:list", RowsType));
        const LogCapture log("CMEventQueue");
        f.hub()->rowsChanged(P("x:list"), "+0");
        f.hub()->valueChanged(P("x:a"), number(5));
        f.hub()->dataChanged(P("x:a"));
        f.hub()->deliver();
        f.hub()->dataChanged(P("x:a"));
        f.hub()->deliver();
        const QString noPoll = "TRACE No active request.";
        QCOMPARE(log.lines(), (QStringList{noPoll, noPoll, noPoll, noPoll}));
        QCOMPARE(taken(queue), (QStringList{"rows x:list [+0] 0>1", "value x:a 5", "data x:a", "data x:a"}));
        QCOMPARE(taken(queue), QStringList());
    }

    void aSecondPollAnswersTheFirstAndWaitsInItsPlace()
    {
        NodesFixture f;
        PollAnswers first;
        PollAnswers second;
        CMEventQueue queue;
        queue.subscribe(eventSubscribe("x:a", DataType));
        queue.poll(new LongPoll(&first), 10);
        queue.poll(new LongPoll(&second), 20);
        QCOMPARE(first.count(), 1);
        QVERIFY(first.events.first().isEmpty());
        QCOMPARE(second.count(), 0);
        QCOMPARE(timerOf(&queue)->interval(), 20000);
        f.hub()->dataChanged(P("x:a"));
        f.hub()->deliver();
        QCOMPARE(first.count(), 1);
        QCOMPARE(eventTexts(second.events.value(0)), QStringList("data x:a"));
    }

    void theCountdownStartsAnewOnlyWhileNoPollWaits()
    {
        PollAnswers answers;
        CMEventQueue queue;
        timerOf(&queue)->start(30000);
        queue.startDeleteCountdown();
        QCOMPARE(timerOf(&queue)->interval(), 60000);
        queue.poll(new LongPoll(&answers), 20);
        queue.startDeleteCountdown();
        QCOMPARE(timerOf(&queue)->interval(), 20000);
        QCOMPARE(answers.count(), 0);
    }

    void eventsCarryExactlyTheFieldsOfTheirKind()
    {
        NodesFixture f;
        PollAnswers answers;
        CMEventQueue queue;
        const CMPath path = P("x:a?k=v");
        for (const int type : {DataType, ValueType, RowsType})
            QVERIFY(queue.subscribe(eventSubscribe("x:a?k=v", type)));
        f.hub()->dataChanged(path);
        f.hub()->valueChanged(path, number(7));
        f.hub()->rowsChanged(path, QStringList{"=3..9", "4"}, 8, 6);
        f.hub()->deliver();
        f.hub()->rowsChanged(path, QStringList{CMSubscribe::RowsChangeReset(), CMSubscribe::RowsChangeClose()});
        f.hub()->deliver();
        queue.poll(new LongPoll(&answers), 1);

        OrvoList<OrvoRowEvent> rows;
        rows << OrvoRowEvent().setType(OrvoRowEventType::Moved).setIndex(3).setToIndex(9)
             << OrvoRowEvent().setType(OrvoRowEventType::Updated).setIndex(4);
        const QList<OrvoEvent> expected{
            OrvoEvent().setItemType(OrvoEventItemType::Updated).setPath(path),
            OrvoEvent().setItemType(OrvoEventItemType::Updated).setPath(path).setItemValue(OrvoValue().setI32_(7)),
            OrvoEvent()
                .setPath(path)
                .setRowsType(OrvoEventRowsType::Changed)
                .setRowsOldVersion(6)
                .setRowsVersion(8)
                .setRowsEvents(rows),
            OrvoEvent().setPath(path).setRowsType(OrvoEventRowsType::Reset),
            OrvoEvent().setPath(path).setRowsType(OrvoEventRowsType::Closed),
        };
        QCOMPARE(answers.events.value(0).toTyped(), expected);
    }

    void aValueThatIsNoRecordIsAnEmptyValue()
    {
        NodesFixture f;
        PollAnswers answers;
        CMEventQueue queue;
        queue.subscribe(eventSubscribe("x:a", ValueType));
        f.hub()->valueChanged(P("x:a"), 5);
        f.hub()->deliver();
        queue.poll(new LongPoll(&answers), 1);
        const OrvoEvent event = answers.events.value(0).value(0);
        QVERIFY(event.__contains(OrvoEvent::ItemValue()));
        QVERIFY(event.itemValue().isEmpty());
    }

    void rowChangesBecomeRowEvents_data()
    {
        QTest::addColumn<QStringList>("changes");
        QTest::addColumn<QStringList>("events");
        const auto row = [](const char* name, const QStringList& changes, const QStringList& events) {
            QTest::newRow(name) << changes << events;
        };
        row("all kinds", {"+1", "-22", "7", "=3..9", "=9..3"}, {"rows x:l [+1,-22,7,=3..9,=9..3] 4>6"});
        row("reset", {""}, {"reset x:l"});
        row("close", {"close"}, {"close x:l"});
        row("a reset wipes what stands before it", {"+1", "", "+2"}, {"reset x:l", "rows x:l [+2] 4>6"});
        row("a close wipes what stands before it", {"+1", "close", "5"}, {"close x:l", "rows x:l [5] 4>6"});
        row("nothing behind the reset", {"+1", "-1", ""}, {"reset x:l"});
        row("close, then reset", {"close", "", "close"}, {"close x:l", "reset x:l", "close x:l"});
        row("nothing", {}, {});
    }

    void rowChangesBecomeRowEvents()
    {
        QFETCH(QStringList, changes);
        QFETCH(QStringList, events);
        CMEventQueue queue;
        QMetaObject::invokeMethod(&queue, "rowsChanged", Q_ARG(CMPath, P("x:l")), Q_ARG(QStringList, changes),
                                  Q_ARG(int, 6), Q_ARG(int, 4));
        QCOMPARE(taken(queue), events);
    }

    void anExpiringQueueEndsAllSubscriptionsAndSaysSo()
    {
        NodesFixture f;
        CMEventQueue queue;
        for (int i = 0; i < 2; ++i) {
            queue.subscribe(eventSubscribe("x:a", DataType));
            queue.subscribe(eventSubscribe("x:b", RowsType));
        }
        QSignalSpy expired(&queue, &CMEventQueue::expired);
        bool subscribed = true;
        connect(&queue, &CMEventQueue::expired, this,
                [&] { subscribed = f.hub()->dataPath(P("x:a")) || f.hub()->rowsPath(P("x:b")); });
        const LogCapture log("CMEventQueue", log4cplus::DEBUG_LOG_LEVEL);
        timerOf(&queue)->start(0);
        QTRY_COMPARE(expired.size(), 1);
        QCOMPARE(expired.first().first().toUuid(), queue.id());
        QVERIFY(!subscribed);
        // Of four, the two that were not the last of their record say so.
        QCOMPARE(log.lines().filter(" not last").size(), 2);
        QCOMPARE(log.lines().size(), 3);
        QCOMPARE(log.lines().last(), "DEBUG expired " + queue.id().toString());
        QVERIFY(!queue.unsubscribe(eventSubscribe("x:a", DataType)));
        QVERIFY(!queue.unsubscribe(eventSubscribe("x:b", RowsType)));
    }

    void aWaitingPollIsAnsweredWhenTheQueueGoes()
    {
        NodesFixture f;
        PollAnswers answers;
        auto queue = std::make_unique<CMEventQueue>();
        const QString id = queue->id().toString();
        queue->poll(new LongPoll(&answers), 20);
        queue.reset();
        QCOMPARE(answers.count(), 1);
        QVERIFY(answers.events.first().isEmpty());
        QCOMPARE(answers.queueIds, QStringList(id));
        QCOMPARE(answers.alive, 0);
    }

    void aQueueThatGoesLeavesNoSubscription()
    {
        NodesFixture f;
        auto queue = std::make_unique<CMEventQueue>();
        queue->subscribe(eventSubscribe("x:a", DataType));
        queue.reset();
        f.hub()->deliver();
        f.hub()->deliver();
        QVERIFY(!f.hub()->dataPath(P("x:a")));
    }

    void theAnswerMayDestroyTheQueue()
    {
        PollAnswers answers;
        auto* queue = new CMEventQueue;
        queue->poll(new LongPoll(&answers, [queue] { delete queue; }), 20);
        queue->sendResponse();
        QCOMPARE(answers.count(), 1);

        // Also the answer to an older poll, which then is the end of the newer one.
        auto* other = new CMEventQueue;
        const QString id = other->id().toString();
        other->poll(new LongPoll(&answers, [other] { delete other; }), 20);
        other->poll(new LongPoll(&answers), 20);
        QCOMPARE(answers.count(), 3);
        QCOMPARE(answers.queueIds.last(), id);
        QCOMPARE(answers.alive, 0);
    }

    void theAnswerMayPollAgain()
    {
        PollAnswers answers;
        CMEventQueue queue;
        queue.poll(new LongPoll(&answers, [&] { queue.poll(new LongPoll(&answers), 30); }), 20);
        queue.sendResponse();
        QCOMPARE(answers.count(), 1);
        QCOMPARE(answers.alive, 1);
        QCOMPARE(timerOf(&queue)->interval(), 30000);
    }

    void anEventWithinAnAnswerIsKeptForTheNextPoll()
    {
        NodesFixture f;
        PollAnswers answers;
        CMEventQueue queue;
        queue.subscribe(eventSubscribe("x:a", DataType));
        queue.poll(new LongPoll(&answers,
                                [&] {
                                    f.hub()->dataChanged(P("x:a"));
                                    f.hub()->deliver();
                                }),
                   20);
        queue.sendResponse();
        QVERIFY(answers.events.first().isEmpty());
        QCOMPARE(taken(queue), QStringList("data x:a"));
    }

    void changesOfOtherThreadsArriveInTheQueuesThread()
    {
        NodesFixture f;
        PollAnswers answers;
        CMEventQueue queue;
        constexpr int threads = 4;
        constexpr int reports = 250;
        const QByteArrayList paths{"x:0", "x:1", "x:2", "x:3"};
        for (const QByteArray& path : paths)
            queue.subscribe(eventSubscribe(path, RowsType));
        std::vector<std::unique_ptr<QThread>> running;
        for (int t = 0; t < threads; ++t) {
            running.emplace_back(QThread::create([&, t] {
                for (int i = 0; i < reports; ++i)
                    f.hub()->rowsChanged(P(paths.at(t)), QString::number(i));
            }));
            running.back()->start();
        }
        // Each poll takes what came meanwhile; per path nothing is lost and nothing changes its place.
        QHash<QString, QStringList> seen;
        const auto takeAll = [&] {
            for (const OrvoList<OrvoEvent>& events : std::exchange(answers.events, {}))
                for (const OrvoEvent& event : events.toTyped())
                    for (const OrvoRowEvent& row : event.rowsEvents().toTyped())
                        seen[event.path().toEncoded()].append(QString::number(row.index()));
            if (answers.alive == 0)
                queue.poll(new LongPoll(&answers), 20);
            return std::accumulate(seen.cbegin(), seen.cend(), 0,
                                   [](int sum, const QStringList& rows) { return sum + rows.size(); });
        };
        QTRY_COMPARE(takeAll(), threads * reports);
        QStringList expected;
        for (int i = 0; i < reports; ++i)
            expected.append(QString::number(i));
        for (const QByteArray& path : paths)
            QCOMPARE(seen.value(path), expected);
        for (const auto& thread : running)
            thread->wait();
        queue.sendResponse();
    }

    void aQueueMayLiveInAThreadOfItsOwn()
    {
        NodesFixture f;
        PollAnswers answers;
        QThread thread;
        auto* queue = new CMEventQueue;
        queue->moveToThread(&thread);
        QCOMPARE(timerOf(queue)->thread(), &thread);
        connect(&thread, &QThread::finished, queue, &QObject::deleteLater);
        thread.start();
        QMetaObject::invokeMethod(
            queue,
            [&] {
                queue->subscribe(eventSubscribe("x:a", DataType));
                queue->poll(new LongPoll(&answers, [&] { thread.quit(); }), 20);
            },
            Qt::BlockingQueuedConnection);
        f.hub()->dataChanged(P("x:a"));
        f.hub()->deliver();
        QVERIFY(thread.wait(20000));
        QCOMPARE(answers.count(), 1);
        QCOMPARE(eventTexts(answers.events.first()), QStringList("data x:a"));
    }

    void aBreachOfTheRulesStopsTheProcess_data()
    {
        QTest::addColumn<QString>("what");
        QTest::addColumn<QByteArray>("assertion");
        const QByteArray ok = "ASSERT: \"ok\"";
        for (const char* change : {"+", "+x", "-", "-1x", "x", "7x", "closed"})
            QTest::newRow(change) << QString("rows") + change << ok;
        for (const char* change : {"=3", "=", "=1..2..3"})
            QTest::newRow(change) << QString("rows") + change << QByteArray("ASSERT: \"elements.size() == 2\"");
        for (const char* change : {"=3..", "=x..3", "=..3"})
            QTest::newRow(change) << QString("rows") + change << QByteArray("ASSERT: \"fromOk && toOk\"");
        for (const char* call : {"subscribe", "unsubscribe", "poll"})
            QTest::newRow(call) << QString(call) << QByteArray("ASSERT: \"thread() == QThread::currentThread()\"");
        QTest::newRow("poll within the answer to a poll that is replaced")
            << QString("pollTwice") << QByteArray("ASSERT: \"!m_request\"");
    }

    void aBreachOfTheRulesStopsTheProcess()
    {
        QFETCH(QString, what);
        QFETCH(QByteArray, assertion);
        const ChildEnd end = runThisProgram({"--breach", what});
        QVERIFY(end.stopped);
        QVERIFY2(end.errors.contains(assertion), end.errors.constData());
    }
};

namespace {

void breach(const QString& what)
{
    leaveNoCore();
    const NodesFixture f;
    CMEventQueue queue;
    PollAnswers answers;
    if (what.startsWith("rows")) {
        QMetaObject::invokeMethod(&queue, "rowsChanged", Q_ARG(CMPath, P("x:l")),
                                  Q_ARG(QStringList, QStringList(what.mid(4))), Q_ARG(int, 1), Q_ARG(int, 0));
        return;
    }
    if (what == "pollTwice") {
        queue.poll(new LongPoll(&answers, [&] { queue.poll(new LongPoll(&answers), 1); }), 1);
        queue.poll(new LongPoll(&answers), 1);
        return;
    }
    QThread* thread = QThread::create([&] {
        if (what == "subscribe")
            queue.subscribe(eventSubscribe("x:a", DataType));
        else if (what == "unsubscribe")
            queue.unsubscribe(eventSubscribe("x:a", DataType));
        else
            queue.poll(new LongPoll(&answers), 1);
    });
    thread->start();
    thread->wait();
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.value(1) == QLatin1String("--breach")) {
        breach(arguments.value(2));
        return 0;
    }
    tst_CMEventQueue test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_cmeventqueue.moc"
