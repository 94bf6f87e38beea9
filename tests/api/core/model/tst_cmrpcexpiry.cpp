#include "core/model/cmmetatypes.h"
#include "core/model/cmroot.h"
#include "core/model/cmrpcclient.h"
#include "core/model/cmrpcserver.h"
#include "records/orvoconstants.h"
#include "support/linkfixture.h"

#include <QElapsedTimer>
#include <QTimer>

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
        // Asking again at the end of one does not hold up the others.
        CMVoidReply again;
        unsent.onError([&](const CMError&) { again = ask(lateClient); });
        const CMVoidReply cancelled = ask(lateClient);
        cancelled.cancel();

        // A later request has its own time.
        const int time = OrvoRPCRequestExpiryTimeoutMs();
        CMVoidReply later;
        QElapsedTimer laterSince;
        QTimer::singleShot(time / 2, [&] {
            later = ask(lateClient);
            laterSince.start();
        });
        QTRY_VERIFY_WITH_TIMEOUT(hasExpired(unanswered) && hasExpired(unsent) && !peer.packets.isEmpty(), time + 10000);

        QVERIFY(laterSince.isValid());
        QVERIFY(!later.isFinished());

        // The service told its client of a tree that does not answer.
        QCOMPARE(peer.replyTo("1").value("error").toObject(),
                 (QJsonObject{{"name", "Error"}, {"message", "Request has expired"}, {"title", "Error"}}));
        // The client told the service to stop.
        QTRY_COMPARE(deafServer.peer()->packets.size(), 2);
        QCOMPARE(deafServer.peer()->of("request").at(1).value("cancel"), QJsonValue(true));
        QTRY_VERIFY_WITH_TIMEOUT(hasExpired(later), time * 3 / 4);
        QVERIFY(!again.isFinished());
        // Not with the first ones. Timers of this length keep to five per cent.
        QVERIFY(laterSince.elapsed() >= time * 0.9);

        // A service that comes up too late sees the requests, and a cancel for each.
        RawServer lateServer(late);
        QTRY_VERIFY(lateServer.peer() && lateServer.peer()->packets.size() == 7);
        const QList<QJsonObject> requests = lateServer.peer()->of("request");
        const auto cancelOf = [&](int index) {
            return QJsonObject{{"id", requests.at(index).value("id")}, {"cancel", true}};
        };
        QVERIFY(requests.at(0).contains("getDataRequest"));
        QVERIFY(requests.at(1).contains("getDataRequest"));
        QCOMPARE(requests.at(2), cancelOf(1));
        QVERIFY(requests.at(3).contains("getDataRequest"));
        QCOMPARE(requests.at(4), cancelOf(0));
        QVERIFY(requests.at(5).contains("getDataRequest"));
        QCOMPARE(requests.at(6), cancelOf(3));
        worker.clear();
    }

    void cleanup() { deleteWaiting(); }
};

QTEST_GUILESS_MAIN(tst_CMRPCExpiry)
#include "tst_cmrpcexpiry.moc"
