#include "orvohttpgateway.h"

#include "core/model/cmeventqueue.h"
#include "core/model/cmnodesworker.h"
#include "core/model/nodes/cmvaluenode.h"
#include "nodetest.h"
#include "records/orvoconstants.h"
#include "records/orvoroles.h"
#include "support/curl.h"
#include "support/longpoll.h"

#include <QHostAddress>
#include <QPointer>
#include <QTest>

#include <functional>
#include <thread>

/// Does what the test wants before it answers a request.
class MeddlingNode : public CMValueNode
{
public:
    using CMValueNode::CMValueNode;

    bool getDataRequest(const CMGetDataRequest& request) override
    {
        if (meddle)
            meddle();
        return CMValueNode::getDataRequest(request);
    }
    bool setDataRequest(const CMSetDataRequest& request) override
    {
        if (meddle)
            meddle();
        return CMValueNode::setDataRequest(request);
    }

    std::function<void()> meddle;
};

/// The gateway in one process with the nodes it serves, and with its life time at stake.
class tst_OrvoHttpGateway : public QObject
{
    Q_OBJECT

private:
    static CMPath path(const char* place) { return CMPath::fromEncoded(QByteArray("web:") + place); }
    QString at(const QString& target) const
    {
        return QStringLiteral("http://127.0.0.1:%1%2").arg(m_gateway->port()).arg(target);
    }
    /// Asks, and lets the gateway work meanwhile.
    static HttpAnswer finish(Curl& curl)
    {
        return QTest::qWaitFor([&] { return curl.isFinished(); }, gatewayPatienceMs) ? curl.answer() : HttpAnswer();
    }
    HttpAnswer get(const QString& target)
    {
        Curl curl({"-g", at(target)});
        return finish(curl);
    }
    HttpAnswer post(const QString& target, const QByteArray& body)
    {
        Curl curl({"--data-binary", "@-", at(target)}, body);
        return finish(curl);
    }
    QString newQueue() { return post("/api/event/modifyQueue", "{}").text("queueId"); }

    std::unique_ptr<CMNodesWorker> m_worker;
    MeddlingNode* m_node = nullptr;
    QPointer<OrvoHttpGateway> m_gateway;

private slots:
    void init()
    {
        ForwardingRoot::instance();
        m_worker =
            std::make_unique<CMNodesWorker>(QHash<QString, QVariant>{{OrvoWorkerArguments::Prefix(), "web:"}}, "web");
        ForwardingRoot::instance()->reset(m_worker.get());
        m_node = new MeddlingNode(path("value"));
        m_node->setValue(OrvoValue().setI32_(7));
        m_node->setNodes(m_worker->nodes());
        m_gateway = new OrvoHttpGateway;
        m_gateway->setWritesAllowed(true);
        QCOMPARE(m_gateway->listen(QHostAddress(QHostAddress::LocalHost), 0), QString());
        QVERIFY(m_gateway->port() != 0);
    }
    void cleanup()
    {
        delete m_gateway;
        ForwardingRoot::instance()->reset(nullptr);
        m_worker.reset();
    }

    void nodesOfTheSameProcessAreServed()
    {
        const HttpAnswer answer = get("/api/getData?path=web:value&roles=value");
        QCOMPARE(answer.status, 200);
        QCOMPARE(answer.list("values").at(0).toObject().value("i32_").toInt(), 7);
    }

    void theGatewayMayBeDestroyedByTheNodeItReads()
    {
        Curl curl({"-g", at("/api/getData?path=web:value&roles=value")});
        m_node->meddle = [this] { delete m_gateway; };
        QCOMPARE(finish(curl).status, 503);
        QVERIFY(!m_gateway);
    }

    void theGatewayMayBeDestroyedByTheNodeItWrites()
    {
        Curl curl({"-d", "{\"path\":\"web:value\",\"role\":\"value\",\"value\":{\"type\":\"i32_\",\"i32_\":1}}",
                   at("/api/setData")});
        m_node->meddle = [this] { delete m_gateway; };
        QCOMPARE(finish(curl).status, 503);
        QVERIFY(!m_gateway);
    }

    void theGatewayMayBeDestroyedByTheNodeItSubscribes()
    {
        Curl curl({"-d", "{\"subscribes\":[{\"path\":\"web:value\",\"type\":13}]}", at("/api/event/modifyQueue")});
        // Read for the role that tells whether it is internal.
        m_node->meddle = [this] { delete m_gateway; };
        QCOMPARE(finish(curl).status, 503);
        QVERIFY(!m_gateway);
    }

    void anAnswerBehindTheEndOfTheGatewayIsDropped()
    {
        ForwardingRoot::instance()->hold(path("value"));
        Curl curl({"-g", at("/api/getData?path=web:value&roles=value")});
        QTRY_COMPARE(ForwardingRoot::instance()->heldData.size(), 1);
        delete m_gateway;
        QCOMPARE(finish(curl).status, 503);
        ForwardingRoot::instance()->heldData.first().reply().setValue({1});
    }

    void anAnswerFromAnotherThreadIsTaken()
    {
        ForwardingRoot::instance()->hold(path("value"));
        Curl curl({"-g", at("/api/getData?path=web:value&roles=value")});
        QTRY_COMPARE(ForwardingRoot::instance()->heldData.size(), 1);
        const CMReply<QVariantList> reply = ForwardingRoot::instance()->heldData.first().reply();
        std::thread([reply] { reply.setValue({"from afar"}); }).join();
        QCOMPARE(finish(curl).list("values"), QJsonArray{"from afar"});
    }

    void whatExpiresIsTakenBackFromTheModel()
    {
        m_gateway->setRequestTimeout(50);
        ForwardingRoot::instance()->hold(path("value"));
        const HttpAnswer answer = get("/api/getData?path=web:value&roles=value");
        QCOMPARE(answer.status, 504);
        QCOMPARE(ForwardingRoot::instance()->heldData.first().reply().error().name(), CMVoidReply::ErrorCancel());
    }

    void eachRequestHasItsOwnTime()
    {
        m_gateway->setRequestTimeout(50);
        ForwardingRoot::instance()->hold(path("value"));
        Curl first({"-g", at("/api/getData?path=web:value&roles=value")});
        QTRY_COMPARE(ForwardingRoot::instance()->heldData.size(), 1);
        Curl second({"-g", at("/api/getData?path=web:value&roles=value")});
        QCOMPARE(finish(first).status, 504);
        QCOMPARE(finish(second).status, 504);
    }

    void anExpiredQueueIsUnknown()
    {
        const QString id = newQueue();
        QCOMPARE(m_gateway->queues()->queuesCount(), 1);
        QTimer* timer = timerOf(m_gateway->queues()->getQueue(id));
        QCOMPARE(timer->interval(), 60000);
        timer->start(0);
        QTRY_COMPARE(m_gateway->queues()->queuesCount(), 0);
        const HttpAnswer answer = get("/api/event/pollQueue?queueId=" + id);
        QCOMPARE(answer.status, 404);
        QCOMPARE(answer.error(), OrvoHttpGateway::ErrorUnknownQueue());
    }

    void pollsAskForTheirTime_data()
    {
        QTest::addColumn<QString>("argument");
        QTest::addColumn<int>("ms");
        QTest::newRow("none") << "" << 15000;
        QTest::newRow("zero") << "&timeout=0" << 15000;
        QTest::newRow("negative") << "&timeout=-7" << 15000;
        QTest::newRow("some") << "&timeout=60" << 60000;
        QTest::newRow("too much") << "&timeout=2147483647" << 300000;
    }
    void pollsAskForTheirTime()
    {
        QFETCH(QString, argument);
        QFETCH(int, ms);
        const QString id = newQueue();
        QTimer* timer = timerOf(m_gateway->queues()->getQueue(id));
        // No interval that a poll would give.
        timer->start(59999);
        Curl curl({"-g", at("/api/event/pollQueue?queueId=" + id + argument)});
        QTRY_COMPARE(timer->interval(), ms);
        timer->start(0);
        const HttpAnswer answer = finish(curl);
        QCOMPARE(answer.status, 200);
        QCOMPARE(answer.text("queueId"), id);
    }

    void pathsMayBeRefused()
    {
        m_gateway->setPathCheck([](const CMPath& path) {
            return path.base() == "secret" ? CMAbstractWorker::createErrorInvalidPath(path) : CMError();
        });
        QCOMPARE(get("/api/getData?path=web:secret&roles=value").status, 404);
        QCOMPARE(get("/api/getData?path=web:value&roles=value").status, 200);
        QCOMPARE(post("/api/event/modifyQueue", "{\"subscribes\":[{\"path\":\"web:secret\",\"type\":13}]}").status,
                 404);
        QCOMPARE(m_gateway->queues()->queuesCount(), 0);
    }

    void filesAreServed()
    {
        m_gateway->setFile("/hello", "text/plain", QByteArray("a\0b", 3));
        const HttpAnswer answer = get("/hello");
        QCOMPARE(answer.status, 200);
        QCOMPARE(answer.body, QByteArray("a\0b", 3));
        QCOMPARE(get("/").status, 404);
    }

    void aPortThatIsTakenIsTold()
    {
        OrvoHttpGateway second;
        QVERIFY(!second.listen(QHostAddress(QHostAddress::LocalHost), m_gateway->port()).isEmpty());
        QCOMPARE(second.port(), quint16(0));
    }
};

QTEST_GUILESS_MAIN(tst_OrvoHttpGateway)

#include "tst_orvohttpgateway.moc"
