#include "core/model/cmmetatypes.h"
#include "core/model/cmroot.h"
#include "core/model/cmrpcclient.h"
#include "core/model/cmrpcserver.h"
#include "core/model/cmsubscribe.h"
#include "logcapture.h"
#include "records/orvoconstants.h"
#include "support/linkfixture.h"

#include <QTest>

#include <algorithm>
#include <random>
#include <thread>

namespace {

CMPath path(const QString& text)
{
    return CMPath::fromEncoded(text);
}

CMGetDataRequest getData(const QString& text)
{
    auto* data = new CMGetDataRequest::Data;
    data->path = path(text);
    data->roles = QStringList{"value"};
    return CMGetDataRequest(data);
}

/// A client whose packets a test holds, reorders and drops, without a socket.
class HeldClient : public CMRPCClient
{
public:
    HeldClient() : CMRPCClient(nullptr, "held", serviceName("held")) {}

    QList<OrvoRPCPacket> sent;

    QString idOfSent(int index) const { return sent.at(index).request().id(); }
    void answer(int index, const QVariant& value) { processReply(OrvoReply().setId(idOfSent(index)).setValue(value)); }

    void sendPacket(const OrvoRPCPacket& packet) override { sent.append(packet); }
};

/// The service's end likewise.
class HeldConnection : public CMRPCConnection
{
public:
    explicit HeldConnection(CMRPCServer* server) : CMRPCConnection(server, "held", new QLocalSocket) {}

    QList<OrvoRPCPacket> sent;

    void sendPacket(const OrvoRPCPacket& packet) override { sent.append(packet); }
    void ask(const QString& id, const QString& path)
    {
        OrvoGetDataRequest get;
        get.setPath(CMPath::fromEncoded(path)).setRoles(QStringList{"value"});
        processRequest(OrvoRequest().setId(id).setGetDataRequest(get));
    }
    void cancel(const QString& id) { processRequest(OrvoRequest().setId(id).setCancel(true)); }
    QStringList idsOfReplies() const
    {
        QStringList ids;
        for (const OrvoRPCPacket& packet : sent)
            ids.append(packet.reply().id());
        return ids;
    }
};

} // namespace

/// Packets of the link held, reordered and dropped, without a socket between the two ends.
class tst_CMRPCPackets : public QObject
{
    Q_OBJECT

private:
    ScriptedWorker m_worker{{{OrvoWorkerArguments::MergeEvents(), true}}};
    std::unique_ptr<CMRPCServer> m_server;

private slots:
    void initTestCase()
    {
        orvoRegisterMetaTypes();
        CMRoot_setInstance(&m_worker);
        m_server = std::make_unique<CMRPCServer>(nullptr, serviceName("packets"));
    }

    void cleanup()
    {
        m_worker.clear();
        deleteWaiting();
    }

    // The client's end

    void repliesInAnyOrderFindTheirRequests()
    {
        HeldClient client;
        QList<CMGetDataRequest> requests;
        for (int i = 0; i < 5; ++i) {
            requests.append(getData(QStringLiteral("p:%1").arg(i)));
            client.getDataRequest(requests.last());
        }
        QCOMPARE(client.sent.size(), 5);
        for (const int i : {3, 0, 4, 1, 2})
            client.answer(i, QVariantList{i});
        for (int i = 0; i < 5; ++i)
            QCOMPARE(requests.at(i).reply().value(), QVariantList{i});
        QCOMPARE(client.sent.size(), 5);
    }

    void aReplyThatComesTwiceCountsOnce()
    {
        LogCapture log("CMRPCClient", log4cplus::WARN_LOG_LEVEL);
        HeldClient client;
        const CMGetDataRequest request = getData("p:a");
        client.getDataRequest(request);
        client.answer(0, QVariantList{1});
        client.answer(0, QVariantList{2});
        QCOMPARE(request.reply().value(), QVariantList{1});
        QCOMPARE(log.lines().size(), 1);
    }

    void aReplyThatCrossesACancelIsDropped()
    {
        LogCapture log("CMRPCClient", log4cplus::WARN_LOG_LEVEL);
        HeldClient client;
        const CMGetDataRequest request = getData("p:a");
        client.getDataRequest(request);
        request.reply().cancel();
        QCOMPARE(client.sent.size(), 2);
        QVERIFY(client.sent.at(1).request().cancel());
        client.answer(0, QVariantList{1});
        QCOMPARE(request.reply().error().name(), CMVoidReply::ErrorCancel());
        QCOMPARE(log.lines().size(), 1);
    }

    void aDroppedRequestEndsWithItsClient()
    {
        const CMGetDataRequest request = getData("p:a");
        {
            HeldClient client;
            client.getDataRequest(request);
            client.sent.clear();
            QVERIFY(!request.reply().isFinished());
        }
        QVERIFY(request.reply().isFinished());
    }

    void aRequestThatWasFinishedElsewhereInAnotherThreadIsCancelledLater()
    {
        HeldClient client;
        const CMGetDataRequest request = getData("p:a");
        client.getDataRequest(request);
        std::thread([&] { request.reply().cancel(); }).join();
        QCOMPARE(client.sent.size(), 1);
        // The reply comes while the news of the end is still on its way to the client's thread.
        client.answer(0, QVariantList{1});
        deleteWaiting();
        QCOMPARE(client.sent.size(), 1);
        QCOMPARE(request.reply().error().name(), CMVoidReply::ErrorCancel());
    }

    // The service's end

    void answersGoOutAsTheyComeUnderTheirOwnIds()
    {
        HeldConnection connection(m_server.get());
        for (int i = 0; i < 4; ++i)
            connection.ask(QString::number(i), QStringLiteral("p:%1").arg(i));
        const QList<CMRequest> requests = m_worker.requests;
        QCOMPARE(requests.size(), 4);
        for (const int i : {2, 0, 3, 1})
            requests.at(i).reply().toVariantReply().setValue(QVariantList{i});
        QCOMPARE(connection.idsOfReplies(), (QStringList{"2", "0", "3", "1"}));
        for (const OrvoRPCPacket& packet : qAsConst(connection.sent))
            QCOMPARE(packet.reply().value().toList(), QVariantList{packet.reply().id().toInt()});
    }

    void aCancelThatOvertakesItsRequestCancelsNothing()
    {
        LogCapture log("CMRPCConnection", log4cplus::WARN_LOG_LEVEL);
        HeldConnection connection(m_server.get());
        connection.cancel("1");
        QCOMPARE(log.lines().size(), 1);
        QVERIFY2(log.lines().first().endsWith("Cancel for already finished or non-existent request received: 1"),
                 qPrintable(log.lines().first()));
        connection.ask("1", "p:a");
        m_worker.requests.last().reply().toVariantReply().setValue(QVariantList{7});
        QCOMPARE(connection.idsOfReplies(), QStringList("1"));
    }

    void aCancelThatComesTwiceIsALogLine()
    {
        LogCapture log("CMRPCConnection", log4cplus::WARN_LOG_LEVEL);
        HeldConnection connection(m_server.get());
        connection.ask("1", "p:a");
        connection.cancel("1");
        QVERIFY(m_worker.requests.last().reply().isFinished());
        QCOMPARE(log.lines(), QStringList());
        connection.cancel("1");
        QCOMPARE(log.lines().size(), 1);
        QVERIFY(connection.sent.isEmpty());
    }

    void aRequestThatComesTwiceIsAnsweredOnce()
    {
        HeldConnection connection(m_server.get());
        connection.ask("1", "p:a");
        connection.ask("1", "p:a");
        const QList<CMRequest> requests = m_worker.requests;
        QCOMPARE(requests.size(), 2);
        requests.at(0).reply().toVariantReply().setValue(QVariantList{1});
        requests.at(1).reply().toVariantReply().setValue(QVariantList{2});
        QCOMPARE(connection.sent.size(), 1);
        QCOMPARE(connection.sent.first().reply().value().toList(), QVariantList{1});
    }

    void aDroppedReplyIsForgotten()
    {
        LogCapture log("CMRPCConnection", log4cplus::WARN_LOG_LEVEL);
        HeldConnection connection(m_server.get());
        connection.ask("1", "p:a");
        m_worker.requests.last().reply().toVariantReply().setValue(QVariantList{1});
        connection.sent.clear();
        connection.cancel("1");
        QCOMPARE(log.lines().size(), 1);
        QVERIFY(connection.sent.isEmpty());
    }

    void anUnsubscribeThatOvertakesItsSubscribeLeavesThePathWatched()
    {
        HeldConnection connection(m_server.get());
        const OrvoSubscribe off =
            OrvoSubscribe().setPath(path("p:a")).setType(OrvoSubscribeType::Data).setSubscribe(false);
        connection.processSubscribe(off);
        connection.processSubscribe(OrvoSubscribe(off).setSubscribe(true));
        m_worker.subscribe()->dataChanged(path("p:a"));
        QTRY_COMPARE(connection.sent.size(), 1);
        QCOMPARE(connection.sent.first().change().dataChanged().path(), path("p:a"));
    }

    void aReplyInAnotherThreadIsSentByTheConnectionsOwn()
    {
        HeldConnection connection(m_server.get());
        connection.ask("1", "p:a");
        const CMVoidReply reply = m_worker.requests.last().reply();
        std::thread([&] { reply.toVariantReply().setValue(QVariantList{1}); }).join();
        QVERIFY(connection.sent.isEmpty());
        QTRY_COMPARE(connection.idsOfReplies(), QStringList("1"));
    }

    void theEndOfAConnectionEndsItsRequestsWithoutAWord()
    {
        auto connection = std::make_unique<HeldConnection>(m_server.get());
        connection->ask("1", "p:a");
        connection->ask("2", "p:b");
        const QList<CMRequest> requests = m_worker.requests;
        connection.reset();
        for (const CMRequest& request : requests)
            QCOMPARE(request.reply().error().name(), CMVoidReply::ErrorCancel());
    }

    // Both ends

    void whateverArrivesInWhateverOrderEachRequestEndsOnceWithItsOwnAnswer()
    {
        const unsigned seed = 20261121;
        qInfo("seed %u", seed);
        std::mt19937 random(seed);
        m_worker.onRequest = [](const CMRequest& request) {
            request.reply().toVariantReply().setValue(QVariantList{request.path().toEncoded()});
        };
        QHash<QString, int> ends;
        QHash<QString, QVariantList> answers;
        {
            HeldClient client;
            HeldConnection connection(m_server.get());
            int dropped = 0;
            for (int i = 0; i < 1000; ++i) {
                const QString text = QStringLiteral("p:%1").arg(i);
                const CMGetDataRequest request = getData(text);
                request.reply().addWatcher([&, text](const CMVoidReply&) { ++ends[text]; });
                request.reply().onSuccess([&, text](const QVariantList& values) { answers[text] = values; });
                client.getDataRequest(request);
                if (random() % 10 == 0)
                    request.reply().cancel();
                if (random() % 5 != 0)
                    continue;
                std::shuffle(client.sent.begin(), client.sent.end(), random);
                while (!client.sent.isEmpty())
                    connection.processRequest(client.sent.takeFirst().request());
                std::shuffle(connection.sent.begin(), connection.sent.end(), random);
                while (connection.sent.size() > 2) {
                    const OrvoReply reply = connection.sent.takeFirst().reply();
                    if (random() % 20 == 0)
                        ++dropped;
                    else
                        client.processReply(reply);
                }
            }
            QVERIFY(dropped > 0);
            QVERIFY(answers.size() > 700);
            for (auto it = answers.cbegin(); it != answers.cend(); ++it)
                QCOMPARE(it.value(), QVariantList{it.key()});
        }
        // What was dropped ended with its client.
        QCOMPARE(ends.size(), 1000);
        for (auto it = ends.cbegin(); it != ends.cend(); ++it)
            QCOMPARE(it.value(), 1);
    }
};

QTEST_GUILESS_MAIN(tst_CMRPCPackets)
#include "tst_cmrpc_packets.moc"
