#include "childprocess.h"
#include "core/model/cmeventqueue.h"
#include "nodetest.h"
#include "support/longpoll.h"

#include <QPointer>
#include <QSignalSpy>
#include <QtTest>

namespace {

constexpr int DataType = OrvoEventSubscribeType::DataChanged;

OrvoList<OrvoEventSubscribe> listOf(const OrvoEventSubscribe& record)
{
    OrvoList<OrvoEventSubscribe> list;
    return list << record;
}

} // namespace

class tst_CMEventQueueManager : public QObject
{
    Q_OBJECT

private slots:
    void aQueueIsFoundByItsId()
    {
        CMEventQueueManager manager;
        CMEventQueue* queue = manager.createQueue();
        CMEventQueue* other = manager.createQueue();
        QCOMPARE(manager.queuesCount(), 2);
        QCOMPARE(queue->parent(), &manager);
        QCOMPARE(manager.getQueue(queue->id().toString()), queue);
        QCOMPARE(manager.getQueue(other->id().toString()), other);
        QCOMPARE(manager.getQueue(queue->id().toString(QUuid::WithoutBraces)), queue);
    }

    void anUnknownIdGivesNoQueue_data()
    {
        QTest::addColumn<QString>("id");
        QTest::newRow("none") << QString();
        QTest::newRow("no uuid") << QString("queue 1");
        QTest::newRow("null") << QUuid().toString();
        QTest::newRow("unknown") << QUuid::createUuid().toString();
    }

    void anUnknownIdGivesNoQueue()
    {
        QFETCH(QString, id);
        CMEventQueueManager manager;
        manager.createQueue();
        QVERIFY(!manager.getQueue(id));
    }

    void anUnknownIdMakesAQueueWithAnotherId_data() { anUnknownIdGivesNoQueue_data(); }

    void anUnknownIdMakesAQueueWithAnotherId()
    {
        QFETCH(QString, id);
        CMEventQueueManager manager;
        CMEventQueue* queue = manager.getOrCreateQueue(id);
        QVERIFY(queue);
        QVERIFY(queue->id() != QUuid(id));
        QVERIFY(!manager.getQueue(id));
        QCOMPARE(manager.getOrCreateQueue(queue->id().toString()), queue);
        QCOMPARE(manager.queuesCount(), 1);
    }

    void modifyQueueChangesTheQueueOfTheIdOrANewOne()
    {
        NodesFixture f;
        CMEventQueueManager manager;
        CMEventQueue* queue = manager.modifyQueue("", listOf(eventSubscribe("x:a", DataType)), {});
        QVERIFY(f.hub()->dataPath(P("x:a")));
        const QString id = queue->id().toString();
        QCOMPARE(manager.modifyQueue(id, {}, listOf(eventSubscribe("x:a", DataType))), queue);
        QVERIFY(!f.hub()->dataPath(P("x:a")));
        QCOMPARE(manager.queuesCount(), 1);
    }

    void modifyQueueStartsTheCountdownAnewAlsoWhenItFails()
    {
        NodesFixture f;
        CMEventQueueManager manager;
        CMEventQueue* queue = manager.createQueue();
        timerOf(queue)->start(30000);
        QCOMPARE(manager.modifyQueue(queue->id().toString(), listOf(eventSubscribe("x:a", 3)), {}), queue);
        QVERIFY(timerOf(queue)->isActive());
        QCOMPARE(timerOf(queue)->interval(), 60000);
    }

    void modifyQueueDuringAPollLeavesItsTimeAsItIs()
    {
        NodesFixture f;
        PollAnswers answers;
        CMEventQueueManager manager;
        CMEventQueue* queue = manager.createQueue();
        queue->poll(new LongPoll(&answers), 1);
        manager.modifyQueue(queue->id().toString(), listOf(eventSubscribe("x:a", DataType)), {});
        QCOMPARE(timerOf(queue)->interval(), 1000);
        QCOMPARE(answers.count(), 0);
        QTRY_COMPARE(answers.count(), 1);
        QVERIFY(answers.events.first().isEmpty());
        QCOMPARE(timerOf(queue)->interval(), 60000);
    }

    void anExpiredQueueIsGone()
    {
        NodesFixture f;
        CMEventQueueManager manager;
        const QPointer<CMEventQueue> queue(manager.modifyQueue("", listOf(eventSubscribe("x:a", DataType)), {}));
        const CMEventQueue* other = manager.createQueue();
        const QString id = queue->id().toString();
        bool there = true;
        connect(&manager, &CMEventQueueManager::expired, this, [&] { there = queue || manager.getQueue(id); });
        QSignalSpy expired(&manager, &CMEventQueueManager::expired);
        timerOf(queue)->start(0);
        QTRY_COMPARE(expired.size(), 1);
        QCOMPARE(expired.first().first().toString(), id);
        QVERIFY(!there);
        QVERIFY(!f.hub()->dataPath(P("x:a")));
        QCOMPARE(manager.queuesCount(), 1);
        QCOMPARE(manager.getQueue(other->id().toString()), other);
        QVERIFY(manager.getOrCreateQueue(id)->id() != QUuid(id));
    }

    void aPollKeepsTheQueueFromExpiring()
    {
        NodesFixture f;
        PollAnswers answers;
        CMEventQueueManager manager;
        CMEventQueue* queue = manager.createQueue();
        QSignalSpy expired(&manager, &CMEventQueueManager::expired);
        queue->poll(new LongPoll(&answers), 10);
        timerOf(queue)->start(0);
        QTRY_COMPARE(answers.count(), 1);
        QCOMPARE(expired.size(), 0);
        timerOf(queue)->start(0);
        QTRY_COMPARE(expired.size(), 1);
    }

    void theEndOfTheManagerAnswersAllPolls()
    {
        PollAnswers answers;
        QList<CMEventQueue*> found;
        auto manager = std::make_unique<CMEventQueueManager>();
        const auto ask = [&] { found.append(manager->getQueue(answers.queueIds.last())); };
        manager->createQueue()->poll(new LongPoll(&answers, ask), 20);
        manager->createQueue()->poll(new LongPoll(&answers, ask), 20);
        // A unique_ptr forgets its object first.
        delete manager.get();
        manager.release();
        QCOMPARE(answers.count(), 2);
        QCOMPARE(answers.alive, 0);
        QCOMPARE(found, (QList<CMEventQueue*>{nullptr, nullptr}));
    }

    void theExpiryOfAnUnknownQueueStopsTheProcess()
    {
        const ChildEnd end = runThisProgram({"--expire"});
        QVERIFY(end.stopped);
        QVERIFY2(end.errors.contains("ASSERT: \"it != m_eventQueues.end()\""), end.errors.constData());
    }
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    if (application.arguments().value(1) == QLatin1String("--expire")) {
        leaveNoCore();
        CMEventQueueManager manager;
        QMetaObject::invokeMethod(&manager, "queueExpired", Q_ARG(QUuid, QUuid::createUuid()));
        return 0;
    }
    tst_CMEventQueueManager test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_cmeventqueuemanager.moc"
