#include "core/model/cmmetatypes.h"
#include "core/model/cmroot.h"
#include "core/model/cmrpcclient.h"
#include "core/model/cmrpcserver.h"
#include "records/orvoconstants.h"
#include "support/linkfixture.h"

#include <log4cplus/logger.h>

/// Waits out the time that a request may take, once for all cases.
class tst_CMRPCExpiry : public QObject
{
    Q_OBJECT

private slots:
    void everyRequestEndsAfterItsTime()
    {
        log4cplus::Logger::getRoot().setLogLevel(log4cplus::OFF_LOG_LEVEL);
        orvoRegisterMetaTypes();
        const QString own = serviceName("expiry");
        const QString deaf = serviceName("expiry-deaf");
        const QString late = serviceName("expiry-late");
        const auto ask = [](CMRPCClient& client) {
            auto* data = new CMGetDataRequest::Data;
            data->path = CMPath::fromEncoded(QString("p:a"));
            const CMGetDataRequest request(data);
            client.getDataRequest(request);
            return request.reply();
        };
        const auto hasExpired = [](const CMVoidReply& reply) {
            return reply.isFinished() && reply.error().message() == "Request has expired";
        };

        ScriptedWorker worker;
        CMRoot_setInstance(&worker);
        const CMRPCServer server(nullptr, own);
        RawPeer peer;
        QVERIFY(peer.connectTo(own));
        peer.send(wireGetData("1", "p:a"));
        RawServer deafServer(deaf);
        CMRPCClient client(nullptr, "me", deaf);
        const CMVoidReply unanswered = ask(client);
        CMRPCClient lateClient(nullptr, "me", late);
        const CMVoidReply unsent = ask(lateClient);

        const int time = OrvoRPCRequestExpiryTimeoutMs();
        QTRY_VERIFY_WITH_TIMEOUT(hasExpired(unanswered) && hasExpired(unsent) && !peer.packets.isEmpty(), time + 10000);

        // The service told its client of a tree that does not answer.
        QCOMPARE(peer.replyTo("1").value("error").toObject(),
                 (QJsonObject{{"name", "Error"}, {"message", "Request has expired"}, {"title", "Error"}}));
        // The client told the service to stop.
        QTRY_COMPARE(deafServer.peer()->packets.size(), 2);
        QCOMPARE(deafServer.peer()->of("request").at(1).value("cancel"), QJsonValue(true));
        // A service that comes up too late sees the request and its cancel.
        RawServer lateServer(late);
        QTRY_VERIFY(lateServer.peer() && lateServer.peer()->packets.size() == 2);
        const QList<QJsonObject> requests = lateServer.peer()->of("request");
        QVERIFY(requests.at(0).contains("getDataRequest"));
        QCOMPARE(requests.at(1), (QJsonObject{{"id", requests.at(0).value("id")}, {"cancel", true}}));
        worker.clear();
    }

    void cleanup() { deleteWaiting(); }
};

QTEST_GUILESS_MAIN(tst_CMRPCExpiry)
#include "tst_cmrpcexpiry.moc"
