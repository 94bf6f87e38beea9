#include "core/model/cmeventqueue.h"

#include "logcapture.h"
#include "nodetest.h"
#include "support/longpoll.h"

#include <QtTest>

namespace {

constexpr int DataType = OrvoEventSubscribeType::DataChanged;
constexpr int RowsType = OrvoEventSubscribeType::RowsChanged;
constexpr int ValueType = OrvoEventSubscribeType::ValueChanged;

QVariant number(int n)
{
    return OrvoValue().setI32_(n).__variant();
}

void internalNode(const NodesFixture& f, const CMPath& path)
{
    CMValueNode::create(f.nodes(), path)->setInternal(true);
}

} // namespace

/// What a queue is subscribed to, how often, and which of it is internal.
class tst_CMEventQueue_subscriptions : public QObject
{
    Q_OBJECT

private slots:
    void aTypeDeliversItsKindOfChangeOnly_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<QStringList>("events");
        QTest::newRow("data") << 1 << QStringList("data x:a");
        QTest::newRow("rows") << 2 << QStringList("rows x:a [+0] 0>1");
        QTest::newRow("value") << 13 << QStringList("value x:a 5");
    }

    void aTypeDeliversItsKindOfChangeOnly()
    {
        QFETCH(int, type);
        QFETCH(QStringList, events);
        NodesFixture f;
        CMEventQueue queue;
        QVERIFY(queue.subscribe(eventSubscribe("x:a", type)));
        QCOMPARE(f.hub()->dataPath(P("x:a")), type == DataType);
        QCOMPARE(f.hub()->rowsPath(P("x:a")), type == RowsType);
        QCOMPARE(f.hub()->valuePath(P("x:a")), type == ValueType);
        f.hub()->dataChanged(P("x:a"));
        f.hub()->valueChanged(P("x:a"), number(5));
        f.hub()->rowsChanged(P("x:a"), "+0");
        f.hub()->deliver();
        QCOMPARE(taken(queue), events);
        QVERIFY(queue.unsubscribe(eventSubscribe("x:a", type)));
        QVERIFY(!f.hub()->dataPath(P("x:a")) && !f.hub()->rowsPath(P("x:a")) && !f.hub()->valuePath(P("x:a")));
    }

    void anotherTypeIsRefusedAndLeavesNothing_data()
    {
        QTest::addColumn<int>("type");
        for (const int type : {0, 3, 12, 14, -1})
            QTest::newRow(QByteArray::number(type)) << type;
    }

    void anotherTypeIsRefusedAndLeavesNothing()
    {
        QFETCH(int, type);
        NodesFixture f;
        internalNode(f, P("x:a"));
        CMEventQueue queue;
        const LogCapture log("CMEventQueue", log4cplus::INFO_LOG_LEVEL);
        // Refused again, so nothing was counted.
        QVERIFY(!queue.subscribe(eventSubscribe("x:a", type)));
        QVERIFY(!queue.subscribe(eventSubscribe("x:a", type)));
        const QString line = QString("ERROR Subscribe type '%1' not supported").arg(type);
        QCOMPARE(log.lines(), (QStringList{line, line}));
        QVERIFY(!queue.unsubscribe(eventSubscribe("x:a", type)));
        QVERIFY(!queue.isInternal(P("x:a")));
    }

    void subscriptionsAreCounted()
    {
        NodesFixture f;
        CMEventQueue queue;
        const OrvoEventSubscribe record = eventSubscribe("x:a", DataType);
        const LogCapture log("CMEventQueue", log4cplus::DEBUG_LOG_LEVEL);
        QVERIFY(queue.subscribe(record));
        QVERIFY(queue.subscribe(record));
        f.hub()->dataChanged(P("x:a"));
        f.hub()->deliver();
        QCOMPARE(taken(queue), QStringList("data x:a"));
        QVERIFY(queue.unsubscribe(record));
        QVERIFY(f.hub()->dataPath(P("x:a")));
        QVERIFY(queue.unsubscribe(record));
        QVERIFY(!f.hub()->dataPath(P("x:a")));
        QVERIFY(!queue.unsubscribe(record));
        const QString who = queue.id().toString() + ' ' + record.toJsonString();
        QCOMPARE(log.lines(),
                 (QStringList{"DEBUG subscribe " + who + " not first", "DEBUG unsubscribe " + who + " not last",
                              "DEBUG unsubscribe " + who + " not subscribed"}));
    }

    void aRecordIsKnownByItsPathAndTypeHoweverTheyAreWritten()
    {
        NodesFixture f;
        CMEventQueue queue;
        OrvoEventSubscribe parsed;
        parsed.__insert(OrvoEventSubscribe::Path(), "x:a?p=1?o=2");
        parsed.__insert(OrvoEventSubscribe::Type(), qlonglong(DataType));
        // No value that could be hashed or written to a log.
        parsed.__insert("more", QVariant::fromValue(static_cast<QObject*>(this)));
        QVERIFY(queue.subscribe(parsed));
        QVERIFY(queue.subscribe(eventSubscribe("x:a?o=2?p=1", DataType)));
        QVERIFY(queue.unsubscribe(parsed));
        QVERIFY(queue.unsubscribe(parsed));
        QVERIFY(!f.hub()->dataPath(P("x:a?o=2?p=1")));
        QVERIFY(!queue.unsubscribe(parsed));
    }

    void modifyAddsInOrderThenTakesAway()
    {
        NodesFixture f;
        CMEventQueue queue;
        OrvoList<OrvoEventSubscribe> adds;
        adds << eventSubscribe("x:a", DataType) << eventSubscribe("x:b", RowsType) << eventSubscribe("x:a", DataType);
        OrvoList<OrvoEventSubscribe> removes;
        removes << eventSubscribe("x:b", RowsType) << eventSubscribe("x:a", DataType);
        QVERIFY(queue.modify(adds, removes));
        QVERIFY(f.hub()->dataPath(P("x:a")));
        QVERIFY(!f.hub()->rowsPath(P("x:b")));
        QCOMPARE(f.root()->requests, (QStringList{"getData x:a", "getData x:b"}));
        QVERIFY(queue.modify({}, {}));
    }

    void modifyStopsAtTheFirstFailureAndKeepsWhatWasDone()
    {
        NodesFixture f;
        CMEventQueue queue;
        OrvoList<OrvoEventSubscribe> adds;
        adds << eventSubscribe("x:a", DataType) << eventSubscribe("x:b", 3) << eventSubscribe("x:c", DataType);
        OrvoList<OrvoEventSubscribe> removes;
        removes << eventSubscribe("x:a", DataType);
        QVERIFY(!queue.modify(adds, removes));
        QVERIFY(f.hub()->dataPath(P("x:a")));
        QVERIFY(!f.hub()->dataPath(P("x:c")));

        adds.clear();
        adds << eventSubscribe("x:c", DataType);
        removes.clear();
        removes << eventSubscribe("x:a", DataType) << eventSubscribe("x:a", DataType)
                << eventSubscribe("x:c", DataType);
        QVERIFY(!queue.modify(adds, removes));
        QVERIFY(!f.hub()->dataPath(P("x:a")));
        QVERIFY(f.hub()->dataPath(P("x:c")));
    }

    void anInternalPathGivesRowsEventsOnly()
    {
        NodesFixture f;
        internalNode(f, P("x:a"));
        CMEventQueue queue;
        queue.subscribe(eventSubscribe("x:a?k=v", DataType));
        queue.subscribe(eventSubscribe("x:a?k=v", ValueType));
        queue.subscribe(eventSubscribe("x:a?k=v", RowsType));
        QTRY_VERIFY(queue.isInternal(P("x:a")));
        QVERIFY(queue.isInternal(P("x:a?other=1")));
        QVERIFY(!queue.isInternal(P("x:ab")));
        f.hub()->dataChanged(P("x:a?k=v"));
        f.hub()->valueChanged(P("x:a?k=v"), number(1));
        f.hub()->deliver();
        QCOMPARE(taken(queue), QStringList());
        f.hub()->rowsChanged(P("x:a?k=v"), "3");
        f.hub()->deliver();
        QCOMPARE(taken(queue), QStringList("rows x:a?k=v [3] 0>1"));
    }

    void eventsGoOutUntilThePathIsKnownToBeInternal()
    {
        NodesFixture f;
        CMEventQueue queue;
        f.root()->hold(P("x:a"));
        queue.subscribe(eventSubscribe("x:a", DataType));
        QCOMPARE(f.root()->heldData.size(), 1);
        QCOMPARE(f.root()->heldData.first().roles(), QStringList(OrvoRoles::Internal()));
        f.hub()->dataChanged(P("x:a"));
        f.hub()->deliver();
        QCOMPARE(taken(queue), QStringList("data x:a"));
        f.root()->heldData.takeFirst().reply().setValue({true});
        QTRY_VERIFY(queue.isInternal(P("x:a")));
        f.hub()->dataChanged(P("x:a"));
        f.hub()->deliver();
        QCOMPARE(taken(queue), QStringList());
    }

    void onlyAnAnswerThatSaysSoMarksThePath_data()
    {
        QTest::addColumn<QVariantList>("values");
        QTest::addColumn<bool>("fails");
        QTest::newRow("false") << QVariantList{false} << false;
        QTest::newRow("invalid") << QVariantList{QVariant()} << false;
        QTest::newRow("nothing") << QVariantList() << false;
        QTest::newRow("an error") << QVariantList() << true;
    }

    void onlyAnAnswerThatSaysSoMarksThePath()
    {
        QFETCH(QVariantList, values);
        QFETCH(bool, fails);
        NodesFixture f;
        CMEventQueue queue;
        f.root()->hold(P("x:a"));
        queue.subscribe(eventSubscribe("x:a", DataType));
        const auto reply = f.root()->heldData.takeFirst().reply();
        if (fails)
            reply.setError(CMAbstractWorker::createErrorInvalidPath(P("x:a")));
        else
            reply.setValue(values);
        QCoreApplication::processEvents();
        QVERIFY(!queue.isInternal(P("x:a")));
    }

    void theMarkStaysWhileAnotherKindOfThePathIsSubscribed()
    {
        NodesFixture f;
        internalNode(f, P("x:a"));
        CMEventQueue queue;
        queue.subscribe(eventSubscribe("x:a", DataType));
        queue.subscribe(eventSubscribe("x:a", ValueType));
        queue.subscribe(eventSubscribe("x:a?k=v", RowsType));
        QTRY_VERIFY(queue.isInternal(P("x:a")));
        queue.unsubscribe(eventSubscribe("x:a", DataType));
        QVERIFY(queue.isInternal(P("x:a")));
        f.hub()->valueChanged(P("x:a"), number(1));
        f.hub()->deliver();
        QCOMPARE(taken(queue), QStringList());
        queue.unsubscribe(eventSubscribe("x:a", ValueType));
        QVERIFY(queue.isInternal(P("x:a")));
        queue.unsubscribe(eventSubscribe("x:a?k=v", RowsType));
        QVERIFY(!queue.isInternal(P("x:a")));
    }

    void anAnswerAfterTheEndOfTheSubscriptionMarksNothing()
    {
        NodesFixture f;
        CMEventQueue queue;
        f.root()->hold(P("x:a"));
        queue.subscribe(eventSubscribe("x:a", DataType));
        queue.unsubscribe(eventSubscribe("x:a", DataType));
        f.root()->heldData.takeFirst().reply().setValue({true});
        QCoreApplication::processEvents();
        QVERIFY(!queue.isInternal(P("x:a")));
    }

    void anAnswerMayComeAfterTheEndOfTheQueue()
    {
        NodesFixture f;
        auto queue = std::make_unique<CMEventQueue>();
        f.root()->hold(P("x:a"));
        queue->subscribe(eventSubscribe("x:a", DataType));
        queue.reset();
        f.root()->heldData.takeFirst().reply().setValue({true});
        QCoreApplication::processEvents();
    }
};

QTEST_GUILESS_MAIN(tst_CMEventQueue_subscriptions)
#include "tst_cmeventqueue_subscriptions.moc"
