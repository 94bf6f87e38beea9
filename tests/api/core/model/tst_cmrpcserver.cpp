#include "core/model/cmrpcserver.h"

#include "childprocess.h"
#include "core/model/cmmetatypes.h"
#include "core/model/cmroot.h"
#include "core/model/cmsubscribe.h"
#include "logcapture.h"
#include "records/orvoconstants.h"
#include "support/linkfixture.h"

#include <QPointer>

#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace {

int stopOnBind()
{
    leaveNoCore();
    new CMRPCServer(nullptr, "no-such-folder/service");
    return 0;
}

CMPath path(const QString& text)
{
    return CMPath::fromEncoded(text);
}

} // namespace

class tst_CMRPCServer : public QObject
{
    Q_OBJECT

private:
    ScriptedWorker* m_worker = nullptr;
    QPointer<CMRPCServer> m_server;
    std::unique_ptr<RawPeer> m_peer;
    QString m_service;

    int connections() const { return m_server->findChildren<CMRPCConnection*>().size(); }

private slots:
    void initTestCase()
    {
        orvoRegisterMetaTypes();
        // Merging, as a hub without it lets a path of a dead subscriber stand until something else happens.
        m_worker = new ScriptedWorker({{OrvoWorkerArguments::MergeEvents(), true}});
        CMRoot_setInstance(m_worker);
        m_service = serviceName("server");
    }

    void cleanupTestCase() { delete m_worker; }

    void init()
    {
        m_server = new CMRPCServer(nullptr, m_service);
        m_peer.reset(new RawPeer);
        QVERIFY(m_peer->connectTo(m_service));
        QTRY_COMPARE(connections(), 1);
    }

    void cleanup()
    {
        m_peer.reset();
        delete m_server.data();
        m_worker->clear();
        deleteWaiting();
    }

    // Binding

    void everybodyMayConnect()
    {
        const QFile::Permissions all = QFile::ReadOther | QFile::WriteOther | QFile::ReadGroup | QFile::WriteGroup
                                       | QFile::ReadOwner | QFile::WriteOwner;
        QCOMPARE(QFile::permissions(CMRPCSocket::socketPathFromPrefix(m_service)) & all, all);
    }

    void bindingIsLogged()
    {
        const QString service = serviceName("logged");
        const QString path = CMRPCSocket::socketPathFromPrefix(service);
        LogCapture log("CMRPCServer");
        CMRPCServer server(nullptr, service);
        QCOMPARE(log.lines(), (QStringList{"INFO Trying to bind to " + path, "INFO RPCServer listening on " + path}));
    }

    void theSocketFileOfADeadProcessIsTakenOver()
    {
        const QString service = serviceName("stale");
        const QByteArray path = CMRPCSocket::socketPathFromPrefix(service).toLocal8Bit();
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, path.constData());
        const int stale = ::socket(AF_UNIX, SOCK_STREAM, 0);
        QCOMPARE(::bind(stale, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        ::close(stale);
        QVERIFY(QFile::exists(path));

        CMRPCServer server(nullptr, service);
        RawPeer peer;
        QVERIFY(peer.connectTo(service));
        peer.send(wireGetData("1", "p:a"));
        QTRY_COMPARE(m_worker->requests.size(), 1);
    }

    void theSocketFileGoesWithTheServer()
    {
        delete m_server.data();
        QVERIFY(!QFile::exists(CMRPCSocket::socketPathFromPrefix(m_service)));
    }

    void aNameThatCannotBeBoundStopsTheProcess()
    {
        const ChildEnd end = runThisProgram({"--stopOnBind"});
        QVERIFY(end.stopped);
        QVERIFY2(end.errors.contains("Unable to bind RPC Server"), end.errors);
        QVERIFY2(end.errors.contains(CMRPCSocket::socketPathFromPrefix("no-such-folder/service").toUtf8()), end.errors);
    }

    // Requests

    void getDataIsRebuilt()
    {
        m_peer->send(wireGetData("c:1", "p:a/b?k=v", {"value", "title"}));
        QTRY_COMPARE(m_worker->requests.size(), 1);
        const auto request = m_worker->last<CMGetDataRequest>();
        QVERIFY(!request.isNull());
        QCOMPARE(request.path(), path("p:a/b?k=v"));
        QCOMPARE(request.roles(), (QStringList{"value", "title"}));
        request.reply().setValue({QVariantHash{{"type", "i32_"}, {"i32_", 5}}, QVariant()});
        QTRY_COMPARE(
            m_peer->replyTo("c:1"),
            (QJsonObject{{"id", "c:1"},
                         {"value", QJsonArray{QJsonObject{{"type", "i32_"}, {"i32_", 5}}, QJsonValue::Null}}}));
    }

    void setDataIsRebuilt()
    {
        m_peer->send(wireRequest("c:1", "setDataRequest",
                                 {{"path", "p:a"}, {"role", "activate"}, {"value", QJsonArray{1, "x"}}}));
        QTRY_COMPARE(m_worker->requests.size(), 1);
        const auto request = m_worker->last<CMSetDataRequest>();
        QVERIFY(!request.isNull());
        QCOMPARE(request.path(), path("p:a"));
        QCOMPARE(request.role(), QString("activate"));
        QCOMPARE(request.value().toList(), (QVariantList{1, "x"}));
        request.reply().setValue(true);
        QTRY_COMPARE(m_peer->replyTo("c:1"), (QJsonObject{{"id", "c:1"}, {"value", true}}));
    }

    void getRowsIsRebuilt()
    {
        m_peer->send(wireRequest(
            "c:1", "getRowsRequest",
            {{"path", "p:a"}, {"fromRow", 3}, {"toRow", 9}, {"rowsVersion", 7}, {"roles", QJsonArray{"id"}}}));
        QTRY_COMPARE(m_worker->requests.size(), 1);
        const auto request = m_worker->last<CMGetRowsRequest>();
        QVERIFY(!request.isNull());
        QCOMPARE(request.path(), path("p:a"));
        QCOMPARE(request.fromRow(), 3);
        QCOMPARE(request.toRow(), 9);
        QCOMPARE(request.rowsVersion(), 7);
        QCOMPARE(request.roles(), QStringList("id"));
        request.reply().setValue(OrvoRowsRoles().setRowsCount(40).setRowsVersion(7));
        QTRY_COMPARE(m_peer->replyTo("c:1").value("value").toObject(),
                     (QJsonObject{{"rowsCount", 40}, {"rowsVersion", 7}}));
    }

    void matchRowIsRebuilt()
    {
        m_peer->send(wireRequest(
            "c:1", "matchRowsRequest",
            {{"path", "p:a"}, {"fromRow", 3}, {"role", "id"}, {"value", "x"}, {"matchFlags", 2}, {"rowsVersion", 7}}));
        QTRY_COMPARE(m_worker->requests.size(), 1);
        const auto request = m_worker->last<CMMatchRowRequest>();
        QVERIFY(!request.isNull());
        QCOMPARE(request.path(), path("p:a"));
        QCOMPARE(request.fromRow(), 3);
        QCOMPARE(request.role(), QString("id"));
        QCOMPARE(request.value(), QVariant("x"));
        QCOMPARE(request.matchFlags(), 2);
        QCOMPARE(request.rowsVersion(), 7);
        request.reply().setValue(-1);
        QTRY_COMPARE(m_peer->replyTo("c:1"), (QJsonObject{{"id", "c:1"}, {"value", -1}}));
    }

    void theFirstKindOfTheFourDecides()
    {
        m_peer->send(QJsonObject{{"request", QJsonObject{{"id", "1"},
                                                         {"matchRowsRequest", QJsonObject{{"path", "p:m"}}},
                                                         {"setDataRequest", QJsonObject{{"path", "p:s"}}},
                                                         {"cancel", true}}}});
        QTRY_COMPARE(m_worker->requests.size(), 1);
        QVERIFY(!m_worker->last<CMSetDataRequest>().isNull());
    }

    void aReplyWithoutAValueCarriesNull()
    {
        m_peer->send(wireRequest("1", "setDataRequest", {{"path", "p:a"}}));
        QTRY_COMPARE(m_worker->requests.size(), 1);
        m_worker->last<CMSetDataRequest>().reply().setValue(QVariant());
        QTRY_COMPARE(m_peer->replyTo("1"), (QJsonObject{{"id", "1"}, {"value", QJsonValue::Null}}));
    }

    void aFailureCarriesTheErrorAlone()
    {
        m_peer->send(wireGetData("1", "p:a"));
        QTRY_COMPARE(m_worker->requests.size(), 1);
        CMError error("n", "m", "t");
        error.insert(CMError::ActionReply(), QVariantHash{{"xclass", "c"}});
        m_worker->requests.first().reply().setError(error);
        QTRY_COMPARE(m_peer->replyTo("1"),
                     (QJsonObject{{"id", "1"},
                                  {"error", QJsonObject{{"name", "n"},
                                                        {"message", "m"},
                                                        {"title", "t"},
                                                        {"actionReply", QJsonObject{{"xclass", "c"}}}}}}));
    }

    void repliesComeInTheOrderOfTheirEnds()
    {
        m_peer->send(wireGetData("1", "p:a"));
        m_peer->send(wireGetData("2", "p:b"));
        QTRY_COMPARE(m_worker->requests.size(), 2);
        m_worker->requests.at(1).reply().setError(CMError("n", "", ""));
        m_worker->requests.at(0).reply().setError(CMError("n", "", ""));
        QTRY_COMPARE(m_peer->packets.size(), 2);
        QCOMPARE(m_peer->of("reply").first().value("id").toString(), QString("2"));
    }

    void anyThreadMayFinishARequest()
    {
        m_peer->send(wireGetData("1", "p:a"));
        QTRY_COMPARE(m_worker->requests.size(), 1);
        std::thread([&] { m_worker->last<CMGetDataRequest>().reply().setValue({1}); }).join();
        QTRY_COMPARE(m_peer->replyTo("1").value("value").toArray(), QJsonArray{1});
    }

    void aRequestWithoutIdIsDropped()
    {
        LogCapture log("CMRPCConnection");
        m_peer->send(QJsonObject{{"request", QJsonObject{{"getDataRequest", QJsonObject{{"path", "p:a"}}}}}});
        QTRY_COMPARE(log.lines().size(), 1);
        QCOMPARE(log.lines().first(), "ERROR " + m_service
                                          + ": Malformed request received - no ID: "
                                            "{\"getDataRequest\":{\"path\":\"p:a\"}}");
        QVERIFY(m_worker->requests.isEmpty());
        QVERIFY(m_peer->packets.isEmpty());
    }

    void anUnknownRequestIsDropped()
    {
        LogCapture log("CMRPCConnection", log4cplus::DEBUG_LOG_LEVEL);
        m_peer->send(QJsonObject{{"request", QJsonObject{{"id", "1"}}}});
        QTRY_COMPARE(log.lines(), QStringList("ERROR " + m_service + ": Discarding unknown request: {\"id\":\"1\"}"));
        QVERIFY(m_peer->packets.isEmpty());
    }

    // Cancelling

    void aCancelledRequestGetsNoReply()
    {
        m_peer->send(wireGetData("1", "p:a"));
        QTRY_COMPARE(m_worker->requests.size(), 1);
        m_peer->send(QJsonObject{{"request", QJsonObject{{"id", "1"}, {"cancel", true}}}});
        const CMVoidReply reply = m_worker->requests.first().reply();
        QTRY_VERIFY(reply.isFinished());
        QCOMPARE(reply.error().name(), CMVoidReply::ErrorCancel());
        m_peer->send(wireGetData("2", "p:b"));
        QTRY_COMPARE(m_worker->requests.size(), 2);
        m_worker->last<CMGetDataRequest>().reply().setValue({});
        QTRY_COMPARE(m_peer->packets.size(), 1);
        QCOMPARE(m_peer->of("reply").first().value("id").toString(), QString("2"));
    }

    void aLateCancelWarnsAndChangesNothing()
    {
        LogCapture log("CMRPCConnection", log4cplus::WARN_LOG_LEVEL);
        m_peer->send(wireGetData("1", "p:a"));
        QTRY_COMPARE(m_worker->requests.size(), 1);
        m_worker->last<CMGetDataRequest>().reply().setValue({});
        QTRY_COMPARE(m_peer->packets.size(), 1);
        m_peer->send(QJsonObject{{"request", QJsonObject{{"id", "1"}, {"cancel", true}}}});
        QTRY_COMPARE(log.lines(), QStringList("WARN " + m_service
                                              + ": Cancel for already finished or non-existent request received: 1"));
        QVERIFY(!m_worker->requests.first().reply().error().isError());
        QCOMPARE(m_peer->packets.size(), 1);
    }

    void aSecondRequestOfAnOpenIdLosesItsReply()
    {
        m_peer->send(wireGetData("1", "p:a"));
        m_peer->send(wireGetData("1", "p:b"));
        QTRY_COMPARE(m_worker->requests.size(), 2);
        request_cast<CMGetDataRequest>(m_worker->requests.at(0)).reply().setValue({"first"});
        request_cast<CMGetDataRequest>(m_worker->requests.at(1)).reply().setValue({"second"});
        m_peer->send(wireGetData("2", "p:c"));
        QTRY_COMPARE(m_worker->requests.size(), 3);
        m_worker->last<CMGetDataRequest>().reply().setValue({"third"});
        QTRY_COMPARE(m_peer->packets.size(), 2);
        QCOMPARE(m_peer->packets.at(0).value("reply").toObject().value("value").toArray(), QJsonArray{"first"});
        QCOMPARE(m_peer->packets.at(1).value("reply").toObject().value("value").toArray(), QJsonArray{"third"});
    }

    // Subscriptions

    void valuesAreForwarded()
    {
        m_peer->send(wireSubscribe("p:a?x=1", 0));
        QTRY_VERIFY(m_worker->subscribe()->valuePath(path("p:a?x=1")));
        m_worker->subscribe()->valueChanged(path("p:a?x=1"), QVariantHash{{"type", "i32_"}, {"i32_", 3}});
        QTRY_COMPARE(m_peer->of("change"),
                     QList<QJsonObject>{(QJsonObject{
                         {"valueChanged",
                          QJsonObject{{"path", "p:a?x=1"}, {"value", QJsonObject{{"type", "i32_"}, {"i32_", 3}}}}}})});
        m_peer->send(wireSubscribe("p:a?x=1", 0, false));
        QTRY_VERIFY(!m_worker->subscribe()->valuePath(path("p:a?x=1")));
    }

    void dataChangesAreForwarded()
    {
        m_peer->send(wireSubscribe("p:a", 1));
        QTRY_VERIFY(m_worker->subscribe()->dataPath(path("p:a")));
        m_worker->subscribe()->dataChanged(path("p:a"));
        QTRY_COMPARE(m_peer->of("change"),
                     QList<QJsonObject>{(QJsonObject{{"dataChanged", QJsonObject{{"path", "p:a"}}}})});
        m_peer->send(wireSubscribe("p:a", 1, false));
        QTRY_VERIFY(!m_worker->subscribe()->dataPath(path("p:a")));
    }

    void rowsChangesAreForwarded()
    {
        m_peer->send(wireSubscribe("p:a", 2));
        QTRY_VERIFY(m_worker->subscribe()->rowsPath(path("p:a")));
        m_worker->subscribe()->rowsChanged(path("p:a"), QStringList{"+1", "=2..0"});
        QTRY_COMPARE(m_peer->of("change"),
                     QList<QJsonObject>{(QJsonObject{{"rowsChanged", QJsonObject{{"path", "p:a"},
                                                                                 {"changes", QJsonArray{"+1", "=2..0"}},
                                                                                 {"version", 2},
                                                                                 {"oldVersion", 0}}}})});
        m_peer->send(wireSubscribe("p:a", 2, false));
        QTRY_VERIFY(!m_worker->subscribe()->rowsPath(path("p:a")));
    }

    void aRepeatedSubscribeDoublesTheNotifications()
    {
        m_peer->send(wireSubscribe("p:a", 1));
        m_peer->send(wireSubscribe("p:a", 1));
        m_peer->send(wireSubscribe("p:b", 1));
        QTRY_VERIFY(m_worker->subscribe()->dataPath(path("p:b")));
        m_worker->subscribe()->dataChanged(path("p:a"));
        m_worker->subscribe()->dataChanged(path("p:b"));
        QTRY_COMPARE(m_peer->of("change").size(), 3);
    }

    void anUnknownTypeIsIgnored()
    {
        m_peer->send(wireSubscribe("p:never", 7));
        m_peer->send(wireSubscribe("p:never", -1));
        m_peer->send(wireSubscribe("p:known", 0));
        QTRY_VERIFY(m_worker->subscribe()->valuePath(path("p:known")));
        QVERIFY(!m_worker->subscribe()->valuePath(path("p:never")));
        QVERIFY(!m_worker->subscribe()->dataPath(path("p:never")));
        QVERIFY(!m_worker->subscribe()->rowsPath(path("p:never")));
    }

    // The end

    void aClientThatGoesLeavesNothing()
    {
        LogCapture log("CMRPCConnection");
        m_peer->send(wireSubscribe("p:a", 0));
        m_peer->send(wireGetData("1", "p:a"));
        m_peer->send(wireGetData("2", "p:a"));
        QTRY_COMPARE(m_worker->requests.size(), 2);
        LogCapture errors("CMRPCSocket", log4cplus::WARN_LOG_LEVEL);
        m_peer.reset();
        QTRY_COMPARE(connections(), 0);
        for (const CMRequest& request : qAsConst(m_worker->requests))
            QCOMPARE(request.reply().error().name(), CMVoidReply::ErrorCancel());
        QTRY_VERIFY(!m_worker->subscribe()->valuePath(path("p:a")));
        QCOMPARE(log.lines().mid(log.lines().size() - 2),
                 (QStringList{"INFO " + m_service + ": Client disconnected",
                              "INFO " + m_service + ": Cancelling all requests"}));
        QCOMPARE(errors.lines(), QStringList());
    }

    void eachClientHasItsOwnConnection()
    {
        RawPeer second;
        QVERIFY(second.connectTo(m_service));
        second.send(wireSubscribe("p:a", 1));
        m_peer->send(wireSubscribe("p:a", 1));
        m_peer->send(wireGetData("1", "p:a"));
        QTRY_COMPARE(m_worker->requests.size(), 1);
        QTRY_COMPARE(connections(), 2);
        second.abort();
        QTRY_COMPARE(connections(), 1);
        QVERIFY(!m_worker->requests.first().reply().isFinished());
        m_worker->subscribe()->dataChanged(path("p:a"));
        QTRY_COMPARE(m_peer->of("change").size(), 1);
    }

    void theServerMayBeDestroyedInsideARequest()
    {
        m_worker->onRequest = [this](const CMRequest&) { delete m_server.data(); };
        m_peer->send(framed(wireGetData("1", "p:a")) + framed(wireGetData("2", "p:b")));
        QTRY_VERIFY(!m_server);
        QTRY_VERIFY(m_peer->closed);
        QCOMPARE(m_worker->requests.size(), 1);
        QCOMPARE(m_worker->requests.first().reply().error().name(), CMVoidReply::ErrorCancel());
    }

    void theServerMayBeDestroyedInsideTheEndOfARequest()
    {
        m_peer->send(wireGetData("1", "p:a"));
        QTRY_COMPARE(m_worker->requests.size(), 1);
        m_worker->requests.first().reply().addWatcher([this](const CMVoidReply&) { delete m_server.data(); });
        m_peer->send(QJsonObject{{"request", QJsonObject{{"id", "1"}, {"cancel", true}}}});
        QTRY_VERIFY(!m_server);
        QTRY_VERIFY(m_peer->closed);
    }

    void theServerMayBeDestroyedInsideASubscription()
    {
        connect(m_worker->subscribe(), &CMSubscribe::valuePathAdded, m_peer.get(), [this] { delete m_server.data(); });
        m_peer->send(framed(wireSubscribe("p:a", 0)) + framed(wireSubscribe("p:b", 0)));
        QTRY_VERIFY(!m_server);
        QTRY_VERIFY(!m_worker->subscribe()->valuePath(path("p:a")));
        QVERIFY(!m_worker->subscribe()->valuePath(path("p:b")));
    }

    void requestsInSingleBytesAreServed()
    {
        m_worker->onRequest = [](const CMRequest& request) {
            request.reply().toVariantReply().setValue(QVariantList{1});
        };
        const QByteArray bytes = framed(wireGetData("1", "p:a"));
        for (int i = 0; i < bytes.size(); ++i) {
            m_peer->send(bytes.mid(i, 1));
            QCoreApplication::processEvents();
        }
        QTRY_COMPARE(m_peer->replyTo("1").value("value").toArray(), QJsonArray{1});
    }
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    if (application.arguments().contains("--stopOnBind"))
        return stopOnBind();
    tst_CMRPCServer test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_cmrpcserver.moc"
