#include "core/model/cmrpcclient.h"

#include "childprocess.h"
#include "core/model/cmmetatypes.h"
#include "core/model/cmroot.h"
#include "core/model/cmrpcserver.h"
#include "core/model/cmsubscribe.h"
#include "logcapture.h"
#include "support/linkfixture.h"

#include <QPointer>
#include <QSet>
#include <QThread>

#include <thread>

namespace {

CMPath path(const QString& text)
{
    return CMPath::fromEncoded(text);
}

CMGetDataRequest getData(const QString& text, const QStringList& roles = {"value"})
{
    auto* data = new CMGetDataRequest::Data;
    data->path = path(text);
    data->roles = roles;
    return CMGetDataRequest(data);
}

QJsonObject wireReply(const QString& id, const QJsonValue& value)
{
    return {{"reply", QJsonObject{{"id", id}, {"value", value}}}};
}

QString idOf(const QJsonObject& packet)
{
    return packet.value("request").toObject().value("id").toString();
}

/// What a client tells, as texts in order.
class Ear : public QObject
{
public:
    explicit Ear(CMRPCClient* client)
    {
        connect(client, &CMRPCClient::valueChanged, this, [this](const CMPath& path, const QVariant& value) {
            tell("value " + path.toEncoded() + ' '
                 + QString::fromUtf8(QJsonDocument::fromVariant(QVariantList{value}).toJson(QJsonDocument::Compact)));
        });
        connect(client, &CMRPCClient::dataChanged, this,
                [this](const CMPath& path) { tell("data " + path.toEncoded()); });
        connect(client, &CMRPCClient::rowsChanged, this,
                [this](const CMPath& path, const QStringList& changes, int version, int oldVersion) {
                    tell(QStringLiteral("rows %1 [%2] %3 %4")
                             .arg(path.toEncoded(), changes.join(','))
                             .arg(version)
                             .arg(oldVersion));
                    changesCount = changes.size();
                });
        connect(client, &CMRPCClient::connectedChanged, this,
                [this](bool connected) { tell(connected ? "connected" : "broken"); });
    }
    int count(const QString& text) const { return said.count(text); }

    QStringList said;
    int changesCount = -1;
    std::function<void(const QString&)> onSaid;

private:
    void tell(const QString& text)
    {
        said.append(text);
        if (onSaid) {
            const auto function = onSaid;
            function(text);
        }
    }
};

/// A process that ends right after its ends of a link, without another turn of the event loop.
int endAtOnce()
{
    orvoRegisterMetaTypes();
    ScriptedWorker worker;
    CMRoot_setInstance(&worker);
    const QString service = serviceName("end");
    CMRPCServer server(nullptr, service);
    CMRPCClient client(nullptr, "me", service);
    client.getDataRequest(getData("p:a"));
    client.subscribeDataPath(path("p:a"));
    return QTest::qWaitFor([&] { return worker.requests.size() == 1; }) ? 0 : 1;
}

} // namespace

class tst_CMRPCClient : public QObject
{
    Q_OBJECT

private:
    QString m_service;
    std::unique_ptr<RawServer> m_server;
    QPointer<CMRPCClient> m_client;
    std::unique_ptr<Ear> m_ear;

    RawPeer* peer() const { return m_server->peer(); }
    QStringList subscriptions() const
    {
        QStringList texts;
        for (const QJsonObject& wire : peer()->of("subscribe"))
            texts.append(QStringLiteral("%1%2 %3")
                             .arg(wire.value("subscribe").toBool() ? '+' : '-')
                             .arg(wire.value("type").toInt())
                             .arg(wire.value("path").toString()));
        return texts;
    }
    /// Breaks the link; true when the client is back.
    bool breakLink()
    {
        const int before = m_ear->count("connected");
        m_server->breakLinks();
        return QTest::qWaitFor([&] { return m_ear->count("connected") > before && peer(); });
    }

private slots:
    void initTestCase()
    {
        orvoRegisterMetaTypes();
        m_service = serviceName("client");
    }

    void init()
    {
        m_server.reset(new RawServer(m_service));
        QVERIFY(m_server->listens);
        m_client = new CMRPCClient(nullptr, "me", m_service);
        m_ear.reset(new Ear(m_client));
        QTRY_VERIFY(peer() && m_client->isConnected());
    }

    void cleanup()
    {
        m_ear.reset();
        delete m_client.data();
        m_server.reset();
        deleteWaiting();
    }

    // Requests

    void requestsCrossTheLinkFieldByField()
    {
        m_client->getDataRequest(getData("p:a?k=v", {"value", "title"}));

        auto* set = new CMSetDataRequest::Data;
        set->path = path("p:b");
        set->role = "activate";
        set->value = QVariantList{1, "x"};
        m_client->setDataRequest(CMSetDataRequest(set));

        auto* rows = new CMGetRowsRequest::Data;
        rows->path = path("p:c");
        rows->fromRow = 1;
        rows->toRow = 2;
        rows->rowsVersion = 3;
        rows->roles = QStringList{"id"};
        m_client->getRowsRequest(CMGetRowsRequest(rows));

        auto* match = new CMMatchRowRequest::Data;
        match->path = path("p:d");
        match->fromRow = 4;
        match->role = "id";
        match->value = "v";
        match->matchFlags = 5;
        match->rowsVersion = 6;
        m_client->matchRowRequest(CMMatchRowRequest(match));

        QTRY_COMPARE(peer()->packets.size(), 4);
        QList<QJsonObject> requests = peer()->of("request");
        QSet<QString> ids;
        for (QJsonObject& request : requests) {
            ids.insert(request.value("id").toString());
            QVERIFY(request.value("id").toString().startsWith("me:"));
            request.remove("id");
        }
        QCOMPARE(ids.size(), 4);
        QCOMPARE(requests.at(0),
                 (QJsonObject{
                     {"getDataRequest", QJsonObject{{"path", "p:a?k=v"}, {"roles", QJsonArray{"value", "title"}}}}}));
        QCOMPARE(requests.at(1),
                 (QJsonObject{{"setDataRequest",
                               QJsonObject{{"path", "p:b"}, {"role", "activate"}, {"value", QJsonArray{1, "x"}}}}}));
        QCOMPARE(requests.at(2), (QJsonObject{{"getRowsRequest", QJsonObject{{"path", "p:c"},
                                                                             {"fromRow", 1},
                                                                             {"toRow", 2},
                                                                             {"rowsVersion", 3},
                                                                             {"roles", QJsonArray{"id"}}}}}));
        QCOMPARE(requests.at(3), (QJsonObject{{"matchRowsRequest", QJsonObject{{"path", "p:d"},
                                                                               {"fromRow", 4},
                                                                               {"role", "id"},
                                                                               {"value", "v"},
                                                                               {"matchFlags", 5},
                                                                               {"rowsVersion", 6}}}}));
    }

    void idsCountUp()
    {
        m_client->getDataRequest(getData("p:a"));
        m_client->getDataRequest(getData("p:b"));
        QTRY_COMPARE(peer()->packets.size(), 2);
        const int first = idOf(peer()->packets.at(0)).mid(3).toInt();
        QVERIFY(first > 0);
        QCOMPARE(idOf(peer()->packets.at(1)), QStringLiteral("me:%1").arg(first + 1));
    }

    void aValueFinishesTheRequest()
    {
        const CMGetDataRequest request = getData("p:a");
        m_client->getDataRequest(request);
        QTRY_COMPARE(peer()->packets.size(), 1);
        peer()->send(wireReply(idOf(peer()->packets.first()), QJsonArray{1, "x"}));
        QTRY_VERIFY(request.reply().isFinished());
        QCOMPARE(request.reply().value(), (QVariantList{1, "x"}));
        // An end that the service caused is not told to it.
        m_client->getDataRequest(getData("p:b"));
        QTRY_COMPARE(peer()->packets.size(), 2);
        QVERIFY(!peer()->packets.at(1).value("request").toObject().contains("cancel"));
    }

    void aReplyInSingleBytesFinishesTheRequest()
    {
        const CMGetDataRequest request = getData("p:a");
        m_client->getDataRequest(request);
        QTRY_COMPARE(peer()->packets.size(), 1);
        const QByteArray bytes = framed(wireReply(idOf(peer()->packets.first()), QJsonArray{1}));
        for (int i = 0; i < bytes.size(); ++i) {
            QVERIFY(!request.reply().isFinished());
            peer()->send(bytes.mid(i, 1));
            QCoreApplication::processEvents();
        }
        QTRY_VERIFY(request.reply().isFinished());
    }

    void anErrorFailsTheRequest()
    {
        const CMGetDataRequest request = getData("p:a");
        m_client->getDataRequest(request);
        QTRY_COMPARE(peer()->packets.size(), 1);
        const QJsonObject error{
            {"name", "n"}, {"message", "m"}, {"title", "t"}, {"actionReply", QJsonObject{{"xclass", "c"}}}};
        peer()->send(QJsonObject{{"reply", QJsonObject{{"id", idOf(peer()->packets.first())}, {"error", error}}}});
        QTRY_VERIFY(request.reply().isFinished());
        QCOMPARE(request.reply().error().name(), QString("n"));
        QCOMPARE(request.reply().error().message(), QString("m"));
        QCOMPARE(request.reply().error().title(), QString("t"));
        QCOMPARE(request.reply().error().value(CMError::ActionReply()).toHash(), (QVariantHash{{"xclass", "c"}}));
    }

    void aReplyWithNeitherLeavesTheRequestOpen()
    {
        LogCapture log("CMRPCClient", log4cplus::WARN_LOG_LEVEL);
        const CMGetDataRequest request = getData("p:a");
        m_client->getDataRequest(request);
        QTRY_COMPARE(peer()->packets.size(), 1);
        const QString id = idOf(peer()->packets.first());
        peer()->send(QJsonObject{{"reply", QJsonObject{{"id", id}}}});
        QTRY_COMPARE(log.lines(),
                     QStringList("ERROR me -> " + m_service + ": Unknown reply format: {\"id\":\"" + id + "\"}"));
        QVERIFY(!request.reply().isFinished());
        // Its watcher is all that is left; a good reply comes too late.
        peer()->send(wireReply(id, QJsonArray{1}));
        QTRY_COMPARE(log.lines().last(),
                     "WARN me -> " + m_service + ": Reply for cancelled or non-existent request received: " + id);
        QVERIFY(!request.reply().isFinished());
        request.reply().cancel();
    }

    void aReplyWithoutIdIsDropped()
    {
        LogCapture log("CMRPCClient", log4cplus::WARN_LOG_LEVEL);
        peer()->send(QJsonObject{{"reply", QJsonObject{{"value", 1}}}});
        QTRY_COMPARE(log.lines(),
                     QStringList("ERROR me -> " + m_service + ": Malformed reply received - no ID: {\"value\":1}"));
    }

    void aCancelledRequestIsToldToTheService()
    {
        LogCapture log("CMRPCClient", log4cplus::DEBUG_LOG_LEVEL);
        const CMGetDataRequest request = getData("p:a");
        m_client->getDataRequest(request);
        QTRY_COMPARE(peer()->packets.size(), 1);
        const QString id = idOf(peer()->packets.first());
        request.reply().cancel();
        QTRY_COMPARE(peer()->packets.size(), 2);
        QCOMPARE(peer()->of("request").at(1), (QJsonObject{{"id", id}, {"cancel", true}}));
        QCOMPARE(log.lines(),
                 QStringList("DEBUG me -> " + m_service + ": Request finished locally, cancelling: " + id));
        peer()->send(wireReply(id, QJsonArray{1}));
        QTRY_COMPARE(log.lines().last(),
                     "WARN me -> " + m_service + ": Reply for cancelled or non-existent request received: " + id);
    }

    void aRequestThatWasCancelledBeforehandIsSentAndCancelled()
    {
        const CMGetDataRequest request = getData("p:a");
        request.reply().cancel();
        m_client->getDataRequest(request);
        QTRY_COMPARE(peer()->packets.size(), 2);
        QCOMPARE(peer()->of("request").at(1).value("cancel"), QJsonValue(true));
        QCOMPARE(idOf(peer()->packets.at(0)), idOf(peer()->packets.at(1)));
    }

    void cancellingAllTellsNobody()
    {
        LogCapture log("CMRPCClient", log4cplus::INFO_LOG_LEVEL);
        const CMGetDataRequest one = getData("p:a");
        const CMGetDataRequest two = getData("p:b");
        m_client->getDataRequest(one);
        m_client->getDataRequest(two);
        m_client->cancelAllRequests();
        QCOMPARE(one.reply().error().name(), CMVoidReply::ErrorCancel());
        QCOMPARE(two.reply().error().name(), CMVoidReply::ErrorCancel());
        QCOMPARE(log.lines(), QStringList("INFO me -> " + m_service + ": Cancelling all requests"));
        m_client->getDataRequest(getData("p:c"));
        QTRY_COMPARE(peer()->packets.size(), 3);
        for (const QJsonObject& request : peer()->of("request"))
            QVERIFY(!request.contains("cancel"));
    }

    void destroyingTheClientEndsItsRequests()
    {
        const CMGetDataRequest request = getData("p:a");
        m_client->getDataRequest(request);
        delete m_client.data();
        QCOMPARE(request.reply().error().name(), CMVoidReply::ErrorCancel());
    }

    void anyThreadMayAsk()
    {
        const CMGetDataRequest request = getData("p:a");
        std::thread([&] {
            m_client->subscribeDataPath(path("p:b"));
            m_client->getDataRequest(request);
        }).join();
        QTRY_COMPARE(peer()->packets.size(), 2);
        QCOMPARE(subscriptions(), QStringList("+1 p:b"));
        peer()->send(wireReply(idOf(peer()->packets.at(1)), QJsonArray{1}));
        QTRY_VERIFY(request.reply().isFinished());
    }

    void manyThreadsAskAtOnce()
    {
        constexpr int threads = 4;
        constexpr int each = 250;
        std::vector<std::thread> askers;
        QVector<QList<CMGetDataRequest>> requests(threads);
        for (int t = 0; t < threads; ++t)
            askers.emplace_back([this, &requests, t] {
                for (int i = 0; i < each; ++i) {
                    const CMGetDataRequest request = getData(QStringLiteral("p:%1/%2").arg(t).arg(i));
                    requests[t].append(request);
                    m_client->getDataRequest(request);
                }
            });
        for (std::thread& asker : askers)
            asker.join();
        QTRY_COMPARE(peer()->packets.size(), threads * each);
        for (const QJsonObject& request : peer()->of("request"))
            peer()->send(wireReply(request.value("id").toString(),
                                   QJsonArray{request.value("getDataRequest").toObject().value("path")}));
        for (const auto& list : requests)
            for (const CMGetDataRequest& request : list) {
                QTRY_VERIFY(request.reply().isFinished());
                QCOMPARE(request.reply().value().first().toString(), request.path().toEncoded());
            }
    }

    // Before the first connection

    void whatIsAskedBeforeTheConnectionGoesOutInOrder()
    {
        const QString service = serviceName("late");
        CMRPCClient client(nullptr, "early", service);
        client.getDataRequest(getData("p:1"));
        client.subscribeValuePath(path("p:2"));
        client.getDataRequest(getData("p:3"));
        const CMGetDataRequest cancelled = getData("p:4");
        client.getDataRequest(cancelled);
        cancelled.reply().cancel();
        QVERIFY(!client.isConnected());

        RawServer server(service);
        QVERIFY(server.listens);
        QTRY_VERIFY(server.peer() && server.peer()->packets.size() == 5);
        QStringList seen;
        for (const QJsonObject& packet : qAsConst(server.peer()->packets)) {
            const QJsonObject request = packet.value("request").toObject();
            seen.append(packet.contains("subscribe") ? packet.value("subscribe").toObject().value("path").toString()
                        : request.contains("cancel")
                            ? "cancel"
                            : request.value("getDataRequest").toObject().value("path").toString());
        }
        QCOMPARE(seen, (QStringList{"p:1", "p:2", "p:3", "p:4", "cancel"}));
        QCOMPARE(idOf(server.peer()->packets.at(3)), idOf(server.peer()->packets.at(4)));
    }

    void failedAttemptsLeaveNoErrorBehind()
    {
        LogCapture socketLog("CMRPCSocket");
        LogCapture log("CMRPCClient");
        const QString service = serviceName("nobody");
        CMRPCClient client(nullptr, "early", service);
        const QString line =
            "DEBUG early -> " + service + ": [re]connecting to " + CMRPCSocket::socketPathFromPrefix(service);
        QTRY_VERIFY(log.lines().count(line) >= 3);
        for (const QString& other : log.lines())
            QCOMPARE(other, line);
        QCOMPARE(socketLog.lines(), QStringList());
    }

    void theTimerRestsWhileTheLinkStands()
    {
        LogCapture log("CMRPCClient");
        QTest::qWait(250);
        QCOMPARE(log.lines(), QStringList());
    }

    // Subscriptions

    void subscriptionsAreSent()
    {
        m_client->subscribeValuePath(path("p:v?k=1"));
        m_client->subscribeDataPath(path("p:d"));
        m_client->subscribeRowsPath(path("p:r"));
        m_client->unsubscribeValuePath(path("p:v?k=1"));
        m_client->unsubscribeDataPath(path("p:d"));
        m_client->unsubscribeRowsPath(path("p:r"));
        QTRY_COMPARE(peer()->packets.size(), 6);
        QCOMPARE(subscriptions(), (QStringList{"+0 p:v?k=1", "+1 p:d", "+2 p:r", "-0 p:v?k=1", "-1 p:d", "-2 p:r"}));
    }

    void aSecondSubscriptionOfAPathIsRefused()
    {
        LogCapture log("CMRPCClient", log4cplus::WARN_LOG_LEVEL);
        m_client->subscribeDataPath(path("p:a"));
        m_client->subscribeDataPath(path("p:a"));
        m_client->subscribeRowsPath(path("p:a"));
        QTRY_COMPARE(peer()->packets.size(), 2);
        QCOMPARE(subscriptions(), (QStringList{"+1 p:a", "+2 p:a"}));
        QCOMPARE(log.lines(), QStringList("WARN me -> " + m_service + ": Path already subscribed: p:a"));
    }

    void unsubscribingWhatIsNotSubscribedIsRefused()
    {
        LogCapture log("CMRPCClient", log4cplus::WARN_LOG_LEVEL);
        m_client->unsubscribeRowsPath(path("p:a"));
        m_client->subscribeRowsPath(path("p:b"));
        QTRY_COMPARE(subscriptions(), QStringList("+2 p:b"));
        QCOMPARE(log.lines(),
                 QStringList("WARN me -> " + m_service + ": Can't unsubscribe path that is not subscribed: p:a"));
    }

    void anInvalidTypeIsRefused()
    {
        LogCapture log("CMRPCClient", log4cplus::WARN_LOG_LEVEL);
        emit m_client->subscribePathPrivate(
            OrvoSubscribe(QVariantHash{{"path", "p:a"}, {"type", 3}, {"subscribe", true}}));
        QCOMPARE(log.lines(), QStringList("ERROR me -> " + m_service + ": Invalid subscribe type: p:a"));
    }

    void changesArePassedOnAsTheyAre()
    {
        peer()->send(QJsonObject{
            {"change",
             QJsonObject{{"valueChanged", QJsonObject{{"path", "p:a?k=v"}, {"value", QJsonObject{{"x", 1}}}}}}}});
        peer()->send(QJsonObject{{"change", QJsonObject{{"dataChanged", QJsonObject{{"path", "p:b"}}}}}});
        peer()->send(QJsonObject{{"change", QJsonObject{{"rowsChanged", QJsonObject{{"path", "p:c"},
                                                                                    {"changes", QJsonArray{"+1", ""}},
                                                                                    {"version", 3},
                                                                                    {"oldVersion", 1}}}}}});
        m_ear->said.clear();
        QTRY_COMPARE(m_ear->said, (QStringList{"value p:a?k=v [{\"x\":1}]", "data p:b", "rows p:c [+1,] 3 1"}));
        QCOMPARE(m_ear->changesCount, 2);
    }

    void anUnknownChangeIsLogged()
    {
        LogCapture log("CMRPCClient", log4cplus::WARN_LOG_LEVEL);
        peer()->send(QJsonObject{{"change", QJsonObject{{"moonChanged", 1}}}});
        QTRY_COMPARE(log.lines(), QStringList("ERROR me -> " + m_service
                                              + ": Discarding unknown change notification: {\"moonChanged\":1}"));
    }

    // A broken link

    void openRequestsEndWithTheCancelError()
    {
        const CMGetDataRequest request = getData("p:a");
        m_client->getDataRequest(request);
        QTRY_COMPARE(peer()->packets.size(), 1);
        QVERIFY(breakLink());
        QCOMPARE(request.reply().error().name(), CMVoidReply::ErrorCancel());
        // The new service knows nothing of it and is not told.
        m_client->getDataRequest(getData("p:b"));
        QTRY_COMPARE(peer()->packets.size(), 1);
        QCOMPARE(peer()->of("request").first().value("getDataRequest").toObject().value("path").toString(),
                 QString("p:b"));
    }

    void subscriptionsAreMadeAnewOnce()
    {
        m_client->subscribeValuePath(path("p:v"));
        m_client->subscribeDataPath(path("p:d"));
        m_client->subscribeRowsPath(path("p:r"));
        m_client->subscribeRowsPath(path("p:gone"));
        m_client->unsubscribeRowsPath(path("p:gone"));
        QTRY_COMPARE(peer()->packets.size(), 5);
        for (int round = 0; round < 3; ++round) {
            QVERIFY(breakLink());
            QTRY_COMPARE(peer()->packets.size(), 4);
            QCOMPARE(subscriptions(), (QStringList{"+0 p:v", "+1 p:d", "+2 p:r"}));
        }
    }

    void dataAndRowsAreReportedAtTheBreak()
    {
        m_client->subscribeDataPath(path("p:d"));
        m_client->subscribeRowsPath(path("p:r1"));
        m_client->subscribeRowsPath(path("p:r2"));
        QTRY_COMPARE(peer()->packets.size(), 3);
        m_ear->said.clear();
        bool wasConnected = true;
        m_ear->onSaid = [&](const QString& text) {
            if (text.startsWith("rows"))
                wasConnected = m_client->isConnected();
        };
        QVERIFY(breakLink());
        QCOMPARE(m_ear->said.size(), 5);
        QCOMPARE(m_ear->said.at(0), QString("data p:d"));
        QCOMPARE(QSet<QString>({m_ear->said.at(1), m_ear->said.at(2)}),
                 (QSet<QString>{"rows p:r1 [] -1 -1", "rows p:r2 [] -1 -1"}));
        QCOMPARE(m_ear->changesCount, 1);
        QCOMPARE(m_ear->said.at(3), QString("broken"));
        QCOMPARE(m_ear->said.at(4), QString("connected"));
        QVERIFY(!wasConnected);
    }

    void valuesAreReadAgain()
    {
        m_client->subscribeValuePath(path("p:v"));
        QTRY_COMPARE(peer()->packets.size(), 1);
        QVERIFY(breakLink());
        QTRY_COMPARE(peer()->packets.size(), 2);
        // Subscribed first, so that nothing slips between.
        QCOMPARE(subscriptions(), QStringList("+0 p:v"));
        QVERIFY(peer()->packets.at(0).contains("subscribe"));
        const QJsonObject request = peer()->of("request").first();
        QCOMPARE(request.value("getDataRequest").toObject(),
                 (QJsonObject{{"path", "p:v"}, {"roles", QJsonArray{"value"}}}));
        QVERIFY(m_ear->said.filter("value").isEmpty());
        peer()->send(wireReply(request.value("id").toString(), QJsonArray{QJsonObject{{"i32_", 4}}}));
        QTRY_COMPARE(m_ear->said.filter("value"), QStringList("value p:v [{\"i32_\":4}]"));
    }

    void aValueReadWithTheWrongNumberOfResultsIsLogged()
    {
        LogCapture log("CMRPCClient", log4cplus::WARN_LOG_LEVEL);
        m_client->subscribeValuePath(path("p:v"));
        QTRY_COMPARE(peer()->packets.size(), 1);
        QVERIFY(breakLink());
        QTRY_COMPARE(peer()->packets.size(), 2);
        peer()->send(wireReply(peer()->of("request").first().value("id").toString(), QJsonArray{1, 2}));
        QTRY_COMPARE(log.lines(),
                     QStringList("ERROR me -> " + m_service
                                 + ": Invalid response to GetDataRequest for path: p:v; expected 1 result, got 2"));
        QVERIFY(m_ear->said.filter("value").isEmpty());
    }

    void aFailedValueReadIsNotReported()
    {
        LogCapture log("CMRPCClient", log4cplus::WARN_LOG_LEVEL);
        m_client->subscribeValuePath(path("p:v"));
        QTRY_COMPARE(peer()->packets.size(), 1);
        QVERIFY(breakLink());
        QTRY_COMPARE(peer()->packets.size(), 2);
        const QString id = peer()->of("request").first().value("id").toString();
        peer()->send(QJsonObject{{"reply", QJsonObject{{"id", id}, {"error", QJsonObject{{"name", "n"}}}}}});
        peer()->send(QJsonObject{{"change", QJsonObject{{"dataChanged", QJsonObject{{"path", "p:end"}}}}}});
        QTRY_VERIFY(m_ear->said.contains("data p:end"));
        QVERIFY(m_ear->said.filter("value").isEmpty());
        QCOMPARE(log.lines(), QStringList());
    }

    void theHalfPacketOfTheOldLinkIsForgotten()
    {
        peer()->send(framed("{\"change\":{\"dataChanged\":{\"path\":\"p:old\"}}}").left(20));
        QCoreApplication::processEvents();
        QVERIFY(breakLink());
        peer()->send(QJsonObject{{"change", QJsonObject{{"dataChanged", QJsonObject{{"path", "p:new"}}}}}});
        QTRY_COMPARE(m_ear->said.filter("data"), QStringList("data p:new"));
    }

    void packetsThatArrivedBeforeTheBreakAreHandedOn()
    {
        const CMGetDataRequest request = getData("p:a");
        m_client->getDataRequest(request);
        QTRY_COMPARE(peer()->packets.size(), 1);
        peer()->send(wireReply(idOf(peer()->packets.first()), QJsonArray{1}));
        m_server->breakLinks();
        QTRY_VERIFY(request.reply().isFinished());
        QCOMPARE(request.reply().value(), QVariantList{1});
    }

    void whatACallerAsksWhenItsRequestIsCancelledBelongsToTheNextLink()
    {
        const CMGetDataRequest again = getData("p:again");
        const CMGetDataRequest request = getData("p:a");
        request.reply().onError([&](const CMError&) { m_client->getDataRequest(again); });
        m_client->getDataRequest(request);
        QTRY_COMPARE(peer()->packets.size(), 1);
        QVERIFY(breakLink());
        QTRY_COMPARE(peer()->packets.size(), 1);
        peer()->send(wireReply(idOf(peer()->packets.first()), QJsonArray{2}));
        QTRY_VERIFY(again.reply().isFinished());
        QVERIFY(!again.reply().error().isError());
    }

    void subscriptionsMadeWhileTheBreakIsToldAreSentOnce()
    {
        m_client->subscribeDataPath(path("p:d"));
        QTRY_COMPARE(peer()->packets.size(), 1);
        m_ear->onSaid = [this](const QString& text) {
            if (text != "data p:d")
                return;
            m_ear->onSaid = nullptr;
            m_client->subscribeRowsPath(path("p:r"));
            m_client->subscribeDataPath(path("p:d2"));
        };
        QVERIFY(breakLink());
        m_client->getDataRequest(getData("p:end"));
        QTRY_COMPARE(peer()->of("request").size(), 1);
        QStringList sorted = subscriptions();
        sorted.sort();
        QCOMPARE(sorted, (QStringList{"+1 p:d", "+1 p:d2", "+2 p:r"}));
    }

    void subscriptionsEndedWhileTheBreakIsToldStayEnded()
    {
        m_client->subscribeDataPath(path("p:d"));
        m_client->subscribeRowsPath(path("p:r"));
        QTRY_COMPARE(peer()->packets.size(), 2);
        m_ear->onSaid = [this](const QString& text) {
            if (text == "data p:d")
                m_client->unsubscribeRowsPath(path("p:r"));
        };
        QVERIFY(breakLink());
        m_client->getDataRequest(getData("p:end"));
        QTRY_COMPARE(peer()->of("request").size(), 1);
        QVERIFY2(!subscriptions().contains("+2 p:r"), qPrintable(subscriptions().join(' ')));
        QVERIFY(m_ear->said.filter("rows p:r").isEmpty());
    }

    void subscriptionsOfTheSameKindEndedWhileTheBreakIsToldStayEnded()
    {
        m_client->subscribeDataPath(path("p:1"));
        m_client->subscribeDataPath(path("p:2"));
        QTRY_COMPARE(peer()->packets.size(), 2);
        m_ear->onSaid = [this](const QString& text) {
            m_ear->onSaid = nullptr;
            m_client->unsubscribeDataPath(path(text == "data p:1" ? "p:2" : "p:1"));
        };
        QVERIFY(breakLink());
        m_client->getDataRequest(getData("p:end"));
        QTRY_COMPARE(peer()->of("request").size(), 1);
        QCOMPARE(subscriptions().filter("+1").size(), 1);
        QCOMPARE(m_ear->said.filter("data").size(), 1);
    }

    void subscriptionsEndedAndMadeAnewWhileTheBreakIsToldAreSentOnce()
    {
        m_client->subscribeDataPath(path("p:d"));
        m_client->subscribeRowsPath(path("p:r"));
        QTRY_COMPARE(peer()->packets.size(), 2);
        m_ear->onSaid = [this](const QString& text) {
            if (text != "data p:d")
                return;
            m_client->unsubscribeRowsPath(path("p:r"));
            m_client->subscribeRowsPath(path("p:r"));
        };
        QVERIFY(breakLink());
        m_client->getDataRequest(getData("p:end"));
        QTRY_COMPARE(peer()->of("request").size(), 1);
        QCOMPARE(subscriptions().count("+2 p:r"), 1);
    }

    void theNextAttemptIsMadeOutsideTheEndOfTheOldLink()
    {
        LogCapture log("CMRPCClient", log4cplus::DEBUG_LOG_LEVEL);
        QStringList whenTold;
        m_ear->onSaid = [&](const QString& text) {
            if (text == "broken")
                whenTold = log.lines();
        };
        QVERIFY(breakLink());
        const QString me = "me -> " + m_service;
        QCOMPARE(whenTold, (QStringList{"INFO " + me + ": Disconnected", "INFO " + me + ": Cancelling all requests"}));
        QCOMPARE(log.lines().at(2),
                 "DEBUG " + me + ": [re]connecting to " + CMRPCSocket::socketPathFromPrefix(m_service));
        QCOMPARE(log.lines().last(), "INFO " + me + ": Connected");
    }

    void manyBreaksInARowLoseNoSubscription()
    {
        m_client->subscribeDataPath(path("p:d"));
        QTRY_COMPARE(peer()->packets.size(), 1);
        // Each new link is broken before anything is read from it.
        int left = 20;
        m_server->onPeer = [&](RawPeer* newPeer) {
            if (left-- > 0)
                newPeer->abort();
        };
        m_server->breakLinks();
        QTRY_VERIFY(left < 0);
        QTRY_COMPARE(subscriptions(), QStringList("+1 p:d"));
    }

    // Destruction inside its own calls

    void itMayBeDestroyedInsideAReply()
    {
        const CMGetDataRequest request = getData("p:a");
        const CMGetDataRequest other = getData("p:b");
        request.reply().onFinished([this](const CMVoidReply&) { delete m_client.data(); });
        m_client->getDataRequest(request);
        m_client->getDataRequest(other);
        QTRY_COMPARE(peer()->packets.size(), 2);
        peer()->send(framed(wireReply(idOf(peer()->packets.at(0)), QJsonArray{1}))
                     + framed(wireReply(idOf(peer()->packets.at(1)), QJsonArray{2})));
        QTRY_VERIFY(!m_client);
        QCOMPARE(other.reply().error().name(), CMVoidReply::ErrorCancel());
        QTRY_VERIFY(peer()->closed);
    }

    void itMayBeDestroyedInsideAnySignal_data()
    {
        QTest::addColumn<QString>("signal");
        QTest::addColumn<bool>("breaks");
        QTest::newRow("value") << "value p:v [1]" << false;
        QTest::newRow("data") << "data p:v" << false;
        QTest::newRow("rows") << "rows p:v [+1] 1 0" << false;
        QTest::newRow("data of a break") << "data p:d1" << true;
        QTest::newRow("rows of a break") << "rows p:r1 [] -1 -1" << true;
        QTest::newRow("broken") << "broken" << true;
        QTest::newRow("connected") << "connected" << true;
    }

    void itMayBeDestroyedInsideAnySignal()
    {
        QFETCH(QString, signal);
        QFETCH(bool, breaks);
        for (const char* text : {"p:d1", "p:d2", "p:r1", "p:r2"}) {
            m_client->subscribeDataPath(path(text));
            m_client->subscribeRowsPath(path(text));
            m_client->subscribeValuePath(path(text));
        }
        QTRY_COMPARE(peer()->packets.size(), 12);
        m_ear->onSaid = [&](const QString& text) {
            if (text == signal)
                delete m_client.data();
        };
        if (breaks) {
            m_server->breakLinks();
        } else {
            peer()->send(
                framed(
                    QJsonObject{{"change", QJsonObject{{"valueChanged", QJsonObject{{"path", "p:v"}, {"value", 1}}}}}})
                + framed(QJsonObject{{"change", QJsonObject{{"dataChanged", QJsonObject{{"path", "p:v"}}}}}})
                + framed(QJsonObject{{"change", QJsonObject{{"rowsChanged", QJsonObject{{"path", "p:v"},
                                                                                        {"changes", QJsonArray{"+1"}},
                                                                                        {"version", 1},
                                                                                        {"oldVersion", 0}}}}}}));
        }
        QTRY_VERIFY(!m_client);
        QCOMPARE(m_ear->said.last(), signal);
        deleteWaiting();
    }

    void itMayBeDestroyedWhileABreakCancelsItsRequests()
    {
        const CMGetDataRequest one = getData("p:a");
        const CMGetDataRequest two = getData("p:b");
        for (const CMGetDataRequest& request : {one, two})
            request.reply().onFinished([this](const CMVoidReply&) { delete m_client.data(); });
        m_client->getDataRequest(one);
        m_client->getDataRequest(two);
        QTRY_COMPARE(peer()->packets.size(), 2);
        m_server->breakLinks();
        QTRY_VERIFY(!m_client);
        QVERIFY(one.reply().isFinished());
        QVERIFY(two.reply().isFinished());
    }

    /// Where leaks are looked for, a leak would be the child's failure.
    void theEndOfTheProcessRightAfterTheLinkLeavesNothing()
    {
        const ChildEnd end = runThisProgram({"--endAtOnce"});
        QVERIFY2(!end.stopped && end.exitCode == 0, end.errors.constData());
    }
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    if (application.arguments().contains("--endAtOnce"))
        return endAtOnce();
    tst_CMRPCClient test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_cmrpcclient.moc"
