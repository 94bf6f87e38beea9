#include "core/model/nodes/cmunusednodetimer.h"

#include "logcapture.h"
#include "nodetest.h"
#include "runtogether.h"

#include <QPointer>
#include <QtTest>

namespace {

/// Longer than any test takes; a test lets it run out by hand.
constexpr int never = 3600 * 1000;

void runOut(CMUnusedNodeTimer* timer)
{
    QVERIFY(timer->isActive());
    QMetaObject::invokeMethod(timer, "on_timeout");
}

void deleteWaiting()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

class Timed : public NodesFixture
{
public:
    explicit Timed(int interval = never)
        : node(CMListRowsNode::create(nodes(), P("x:n"))), timer(new CMUnusedNodeTimer(node, interval))
    {}
    ~Timed()
    {
        worker.reset();
        deleteWaiting();
        delete timer;
    }

    QPointer<CMListRowsNode> node;
    QPointer<CMUnusedNodeTimer> timer;
};

} // namespace

class tst_CMUnusedNodeTimer : public QObject
{
    Q_OBJECT

private slots:
    void itRunsFromItsMaking()
    {
        Timed f;
        QVERIFY(f.timer->isActive());
        QVERIFY(f.timer->isSingleShot());
        QCOMPARE(f.timer->interval(), never);
        QVERIFY(!f.timer->parent());
    }

    void aNodeThatIsWatchedAlreadyIsWaitedFor()
    {
        NodesFixture f;
        f.spy.watchData(f.worker.get(), P("x:n"));
        CMUINode* node = CMUINode::create(f.nodes(), P("x:n"));
        const QPointer<CMUnusedNodeTimer> timer(new CMUnusedNodeTimer(node, never));
        QVERIFY(!timer->isActive());
        f.spy.unwatchData(f.worker.get(), P("x:n"));
        QVERIFY(timer->isActive());
        node->deleteLater();
        deleteWaiting();
        QVERIFY(!timer);
    }

    void aNodeThatNobodyWatchesLeavesWhenTheTimeIsOut()
    {
        const LogCapture log("CMUnusedNodeTimer");
        Timed f(1);
        QTRY_VERIFY(!f.timer);
        QVERIFY(!f.node);
        QVERIFY(f.nodes()->allNodes().isEmpty());
        QCOMPARE(log.lines(), QStringList("INFO CMUnusedNodeTimer::on_timeout() deleting node at path x:n"));
    }

    void eachKindOfSubscriberKeepsTheNode()
    {
        Timed f;
        f.spy.watchValue(f.worker.get(), P("x:n"));
        QVERIFY(!f.timer->isActive());
        f.spy.unwatchValue(f.worker.get(), P("x:n"));
        QVERIFY(f.timer->isActive());
        f.spy.watchData(f.worker.get(), P("x:n?a=1"));
        QVERIFY(!f.timer->isActive());
        f.spy.unwatchData(f.worker.get(), P("x:n?a=1"));
        QVERIFY(f.timer->isActive());
        f.spy.watchRows(f.worker.get(), P("x:n"));
        QVERIFY(!f.timer->isActive());
        f.spy.unwatchRows(f.worker.get(), P("x:n"));
        QVERIFY(f.timer->isActive());
        // The whole interval again.
        QVERIFY(f.timer->remainingTime() > never - 60 * 1000);
    }

    void ofTwoSubscriptionsTheFirstThatGoesRestartsNothing()
    {
        Timed f;
        f.spy.watchData(f.worker.get(), P("x:n"));
        f.spy.watchRows(f.worker.get(), P("x:n"));
        f.spy.unwatchData(f.worker.get(), P("x:n"));
        QVERIFY(!f.timer->isActive());
        f.spy.unwatchRows(f.worker.get(), P("x:n"));
        QVERIFY(f.timer->isActive());
    }

    void allNodesOfATimerLeaveTogether()
    {
        Timed f;
        CMUINode* other = CMUINode::create(f.nodes(), P("x:o"));
        f.timer->addNode(other);
        f.spy.watchData(f.worker.get(), P("x:o"));
        f.spy.watchData(f.worker.get(), P("x:n"));
        f.spy.unwatchData(f.worker.get(), P("x:n"));
        QVERIFY(!f.timer->isActive());
        f.spy.unwatchData(f.worker.get(), P("x:o"));
        const LogCapture log("CMUnusedNodeTimer");
        runOut(f.timer);
        QCOMPARE(log.lines(), QStringList({"INFO CMUnusedNodeTimer::on_timeout() deleting node at path x:n",
                                           "INFO CMUnusedNodeTimer::on_timeout() deleting node at path x:o"}));
        QVERIFY(f.nodes()->allNodes().isEmpty());
        deleteWaiting();
        QVERIFY(!f.timer);
    }

    void aNodeThatItsOwnerTakesOutEndsTheTimer()
    {
        Timed f;
        f.timer->addNode(CMUINode::create(f.nodes(), P("x:o")));
        f.node->deleteLater();
        QVERIFY(!f.timer->isActive());
        deleteWaiting();
        QVERIFY(!f.timer);
        QVERIFY(!f.node);
        QCOMPARE(f.nodes()->allNodes().size(), 1);
    }

    void theNodeLivesAsLongAsTheTimerRefersToIt()
    {
        Timed f;
        f.node->deleteLater();
        QVERIFY(f.node && f.node->deleted());
        deleteWaiting();
        QVERIFY(!f.node);
    }

    void subscribersAreToldOfTheEnd()
    {
        Timed f;
        f.spy.watchRows(f.worker.get(), P("x:n"));
        f.spy.unwatchRows(f.worker.get(), P("x:n"));
        runOut(f.timer);
        // One who comes now waits for the next node at this path.
        f.spy.watchRows(f.worker.get(), P("x:n"));
        QCOMPARE(f.delivered(), QStringList());
        QCOMPARE(f.worker->getData(P("x:n"), {}).error().name(), CMAbstractWorker::ErrorInvalidPath());
    }

    void aTimerWithoutNodesRunsOutAndDoesNothing()
    {
        const LogCapture log("CMUnusedNodeTimer");
        CMUnusedNodeTimer timer(nullptr, 1);
        QVERIFY(timer.isActive());
        QTRY_VERIFY(!timer.isActive());
        QCOMPARE(log.lines(), QStringList());
    }

    void subscribersInOtherThreadsAreHeardOf()
    {
        Timed f;
        QVERIFY(runTogether({[&] { f.spy.watchData(f.worker.get(), P("x:n")); }}));
        QTRY_VERIFY(!f.timer->isActive());
        QVERIFY(runTogether({[&] { f.spy.unwatchData(f.worker.get(), P("x:n")); }}));
        QTRY_VERIFY(f.timer->isActive());
    }

    void aSubscriberOfAnotherThreadThatIsGoneWhenItIsHeardOfStopsNothing()
    {
        Timed f;
        QThread* thread = QThread::create([&] { f.spy.watchData(f.worker.get(), P("x:n")); });
        thread->start();
        thread->wait();
        delete thread;
        // Its news still waits in the event loop.
        f.spy.unwatchData(f.worker.get(), P("x:n"));
        QVERIFY(f.timer->isActive());
        QCoreApplication::processEvents();
        QVERIFY(f.timer->isActive());
    }

    void aSubscriberOfAnotherThreadThatComesAsTheTimeRunsOutKeepsTheNode()
    {
        Timed f;
        QThread* thread = QThread::create([&] { f.spy.watchData(f.worker.get(), P("x:n")); });
        thread->start();
        thread->wait();
        delete thread;
        runOut(f.timer);
        QVERIFY(!f.node->deleted());
        QCoreApplication::processEvents();
        QVERIFY(!f.timer->isActive());
        f.spy.unwatchData(f.worker.get(), P("x:n"));
        QVERIFY(f.timer->isActive());
    }

    void nodesUnderOneTimerAreWatchedInBothDirections()
    {
        // The item of each node is read under its lock while the timer looks at both.
        Timed f;
        CMUINode* one = CMUINode::create(f.nodes(), P("x:1"));
        CMUINode* two = CMUINode::create(f.nodes(), P("x:2"));
        two->setContextPath(P("x:1"));
        f.timer->addNode(one);
        f.timer->addNode(two);
        QVERIFY(runTogether({[&] {
                                 for (int i = 0; i < 2000; ++i)
                                     f.worker->getData(P("x:2"), {OrvoRoles::Context()});
                             },
                             [&] {
                                 ChangeSpy spy;
                                 CMUnusedNodeTimer timer(one, never);
                                 timer.addNode(two);
                                 for (int i = 0; i < 2000; ++i) {
                                     spy.watchData(f.worker.get(), P("x:1"));
                                     spy.unwatchData(f.worker.get(), P("x:1"));
                                 }
                             }}));
        QVERIFY(f.timer->isActive());
    }
};

QTEST_GUILESS_MAIN(tst_CMUnusedNodeTimer)
#include "tst_cmunusednodetimer.moc"
