#include "cmroutingworker.h"

#include "cmremoteworker.h"
#include "core/model/cmmetatypes.h"
#include "core/model/cmroot.h"
#include "core/model/cmsubscribe.h"
#include "core/model/cmvalueitem.h"
#include "logcapture.h"
#include "records/orvoconstants.h"
#include "support/linkfixture.h"

#include <QThread>

#include <thread>

class Subscriber : public QObject
{
    Q_OBJECT
public:
    int datas = 0;
public slots:
    void onData(CMPath) { ++datas; }
    void onValue(CMPath, QVariant) {}
    void onRows(CMPath) {}
};

class tst_CMRoutingWorker : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<CMRoutingWorker> m_router;
    std::unique_ptr<ScriptedWorker> m_a;
    std::unique_ptr<ScriptedWorker> m_b;

    static CMPath path(const QString& text) { return CMPath::fromEncoded(text); }
    static QList<CMVoidReply> askAll(CMAbstractWorker* worker, const CMPath& path)
    {
        return {worker->getData(path, {"value"}), worker->getRows(path, 0, 1, -1, {"id"}),
                worker->matchRow(path, 0, "id", 1, 0, -1), worker->setData(path, "value", 1)};
    }

private slots:
    void initTestCase() { orvoRegisterMetaTypes(); }

    void init()
    {
        m_router.reset(new CMRoutingWorker);
        m_a.reset(new ScriptedWorker({{OrvoWorkerArguments::MergeEvents(), true}}, "a"));
        m_b.reset(new ScriptedWorker({{OrvoWorkerArguments::MergeEvents(), true}}, "b"));
        m_router->registerWorker("a", m_a.get());
        m_router->registerWorker("b", m_b.get());
    }

    void cleanup()
    {
        m_router.reset();
        m_a->clear();
        m_b->clear();
        m_a.reset();
        m_b.reset();
        deleteWaiting();
    }

    void eachRequestGoesToTheWorkerOfItsPrefix()
    {
        askAll(m_router.get(), path("a:x/y?k=v"));
        QCOMPARE(m_a->requests.size(), 4);
        QVERIFY(m_b->requests.isEmpty());
        QCOMPARE(m_a->requests.first().path(), path("a:x/y?k=v"));
        m_router->request(m_a->requests.first());
        QCOMPARE(m_a->requests.size(), 5);
        m_router->getData(path("b:"), {"value"});
        QCOMPARE(m_b->requests.size(), 1);
    }

    void emptyAndUnknownPrefixesFail()
    {
        for (const char* text : {"c:x", "x", "", ":x", "A:x", "a b:x"})
            for (const CMVoidReply& reply : askAll(m_router.get(), path(text))) {
                QVERIFY(reply.isFinished());
                QCOMPARE(reply.error().name(), CMAbstractWorker::ErrorInvalidPath());
            }
        QVERIFY(m_a->requests.isEmpty());
        QVERIFY(!m_router->worker("c"));
    }

    void subscriptionsGoToTheWorkerOfTheirPrefix()
    {
        Subscriber subscriber;
        m_router->connectDataChange(path("a:d"), &subscriber, SLOT(onData(CMPath)));
        m_router->connectValueChange(path("a:v"), &subscriber, SLOT(onValue(CMPath,QVariant)));
        m_router->connectRowsChange(path("b:r"), &subscriber, SLOT(onRows(CMPath)));
        QVERIFY(m_a->subscribe()->dataPath(path("a:d")));
        QVERIFY(m_a->subscribe()->valuePath(path("a:v")));
        QVERIFY(m_b->subscribe()->rowsPath(path("b:r")));
        m_a->subscribe()->dataChanged(path("a:d"));
        QTRY_COMPARE(subscriber.datas, 1);
        m_router->disconnectDataChange(path("a:d"), &subscriber, SLOT(onData(CMPath)));
        m_router->disconnectRowsChange(path("b:r"), &subscriber, SLOT(onRows(CMPath)));
        QVERIFY(!m_a->subscribe()->dataPath(path("a:d")));
        QVERIFY(!m_b->subscribe()->rowsPath(path("b:r")));
    }

    void aSubscriptionAtAnUnknownPrefixIsLogged()
    {
        LogCapture log("CMRoutingWorker");
        Subscriber subscriber;
        m_router->connectDataChange(path("c:d"), &subscriber, SLOT(onData(CMPath)));
        m_router->disconnectDataChange(path("c:d"), &subscriber, SLOT(onData(CMPath)));
        QCOMPARE(log.lines(), (QStringList{"WARN No worker for the subscription to path: c:d",
                                           "WARN No worker for the end of a subscription to path: c:d"}));
    }

    void workersComeAndGo()
    {
        QCOMPARE(m_router->worker("a"), static_cast<CMAbstractWorker*>(m_a.get()));
        m_router->registerWorker("a", m_b.get());
        m_router->getData(path("a:x"), {"value"});
        QCOMPARE(m_b->requests.size(), 1);
        m_router->unregisterWorker("a");
        QCOMPARE(m_router->getData(path("a:x"), {"value"}).error().name(), CMAbstractWorker::ErrorInvalidPath());
    }

    void pingsGoToTheWorkerOfTheirPrefix()
    {
        auto* data = new CMSetDataRequest::Data;
        data->path = path("a:");
        const CMSetDataRequest ping(data);
        m_router->ping(ping);
        QVERIFY(!ping.reply().isFinished());
        QTRY_VERIFY(ping.reply().isFinished());
        QVERIFY(!ping.reply().error().isError());

        auto* lost = new CMSetDataRequest::Data;
        lost->path = path("c:");
        const CMSetDataRequest lostPing(lost);
        m_router->ping(lostPing);
        QCOMPARE(lostPing.reply().error().name(), CMAbstractWorker::ErrorInvalidPath());
    }

    void anUnknownPrefixIsTakenForAServiceOnceTold()
    {
        const QString service = serviceName("routed");
        RawServer server(service);
        QVERIFY(server.listens);
        m_router->connectUnknown("me");
        const CMPath remote = CMPath::fromPrefix(service) + "v";
        const CMReply<QVariantList> reply = m_router->getData(remote, {"value"});
        QVERIFY(qobject_cast<CMRemoteWorker*>(m_router->worker(service)));
        QTRY_VERIFY(server.peer() && server.peer()->packets.size() == 1);
        const QJsonObject request = server.peer()->of("request").first();
        QVERIFY(request.value("id").toString().startsWith("me:"));
        server.peer()->send(QJsonObject{{"reply", QJsonObject{{"id", request.value("id")}, {"value", QJsonArray{7}}}}});
        QTRY_VERIFY(reply.isFinished());
        QCOMPARE(reply.value(), QVariantList{7});
        // One link for all that follows.
        CMAbstractWorker* const worker = m_router->worker(service);
        askAll(m_router.get(), remote);
        QTRY_COMPARE(server.peer()->packets.size(), 5);
        QCOMPARE(m_router->worker(service), worker);
        QCOMPARE(int(server.peers.size()), 1);
        // The empty prefix still is nobody's.
        QCOMPARE(m_router->getData(path("x"), {"value"}).error().name(), CMAbstractWorker::ErrorInvalidPath());
    }

    void anotherThreadMayNameAServiceFirst()
    {
        const QString service = serviceName("routed-thread");
        RawServer server(service);
        m_router->connectUnknown("me");
        const CMPath remote = CMPath::fromPrefix(service) + "v";
        Subscriber subscriber;
        CMReply<QVariantList> reply;
        std::thread([&] {
            m_router->connectDataChange(remote, &subscriber, SLOT(onData(CMPath)));
            m_router->getData(remote, {"value"}, reply);
        }).join();
        QTRY_VERIFY(server.peer() && server.peer()->packets.size() == 2);
        QCOMPARE(server.peer()->packets.first(), wireSubscribe(remote.toEncoded(), 1));
        QCOMPARE(m_router->worker(service)->thread(), QThread::currentThread());
        server.peer()->send(QJsonObject{{"reply", QJsonObject{{"id", server.peer()->of("request").first().value("id")},
                                                              {"value", QJsonArray{7}}}}});
        QTRY_VERIFY(reply.isFinished());
    }

    void manyThreadsMakeOneWorkerPerService()
    {
        const QString service = serviceName("routed-many");
        RawServer server(service);
        m_router->connectUnknown("me");
        const CMPath remote = CMPath::fromPrefix(service) + "v";
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; ++i)
            threads.emplace_back([&] {
                for (int n = 0; n < 50; ++n)
                    m_router->getData(remote, {"value"});
            });
        for (std::thread& thread : threads)
            thread.join();
        QTRY_VERIFY(server.peer() && server.peer()->packets.size() == 400);
        QCOMPARE(m_router->findChildren<CMRemoteWorker*>().size(), 1);
        QCOMPARE(int(server.peers.size()), 1);
    }

    void aRequestThatNeverGetsItsTurnFails()
    {
        m_router->connectUnknown("me");
        CMReply<QVariantList> reply;
        const CMPath remote = CMPath::fromPrefix(serviceName("nobody")) + "v";
        std::thread([&] { m_router->getData(remote, {"value"}, reply); }).join();
        m_router->connectUnknown(QString());
        QTRY_VERIFY(reply.isFinished());
        QCOMPARE(reply.error().name(), CMAbstractWorker::ErrorInvalidPath());
    }

    void destroyingTheRouterEndsWhatItsRemoteWorkersHold()
    {
        m_router->connectUnknown("me");
        const CMPath remote = CMPath::fromPrefix(serviceName("nobody")) + "v";
        const CMReply<QVariantList> reply = m_router->getData(remote, {"value"});
        QString again;
        reply.onError([&](const CMError&) { again = m_router->getData(remote, {"value"}).error().name(); });

        delete m_router.get();
        m_router.release();
        QCOMPARE(reply.error().name(), CMVoidReply::ErrorCancel());
        QCOMPARE(again, CMAbstractWorker::ErrorInvalidPath());
    }

    void viewsWorkThroughARouterAsTheRoot()
    {
        auto* root = new CMRoutingWorker;
        root->registerWorker("a", m_a.get());
        CMRoot_setInstance(root);
        CMValueItem item(nullptr, path("a:v"));
        QCOMPARE(m_a->requests.size(), 1);
        m_a->last<CMGetDataRequest>().reply().setValue({OrvoValue().setI32_(5).__variant()});
        QTRY_COMPARE(item.value().i32_(), 5);
        m_a->subscribe()->valueChanged(path("a:v"), OrvoValue().setI32_(6).__variant());
        QTRY_COMPARE(item.value().i32_(), 6);
        item.setPath(CMPath());
        delete root;
    }
};

QTEST_GUILESS_MAIN(tst_CMRoutingWorker)
#include "tst_cmroutingworker.moc"
