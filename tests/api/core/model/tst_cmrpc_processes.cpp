#include "cmremoteworker.h"

#include "core/model/cmitem.h"
#include "core/model/cmmetatypes.h"
#include "core/model/cmroot.h"
#include "core/model/cmrpcclient.h"
#include "core/model/cmvalueitem.h"
#include "support/linkfixture.h"

#include <log4cplus/logger.h>

class Rows : public QObject
{
    Q_OBJECT
public:
    QStringList changes;
    QList<QPair<int, int>> versions;
public slots:
    void onRows(CMPath, QStringList strings, int version, int oldVersion)
    {
        changes += strings;
        versions.append({oldVersion, version});
    }
};

/// A client and a service in two processes.
class tst_CMRPCProcesses : public QObject
{
    Q_OBJECT

private:
    QString m_service;
    std::unique_ptr<ServerProcess> m_server;
    CMRemoteWorker* m_worker = nullptr;

    CMPath path(const QString& base) const { return CMPath::fromPrefix(m_service) + base; }
    static bool waitForReply(const CMVoidReply& reply)
    {
        return QTest::qWaitFor([&] { return reply.isFinished(); }, 10000);
    }

private slots:
    void initTestCase()
    {
        log4cplus::Logger::getRoot().setLogLevel(log4cplus::OFF_LOG_LEVEL);
        orvoRegisterMetaTypes();
        m_service = serviceName("processes");
        m_server.reset(new ServerProcess(m_service));
        QVERIFY(m_server->start());
        m_worker = new CMRemoteWorker("me", m_service);
        CMRoot_setInstance(m_worker);
    }

    void cleanup()
    {
        QVERIFY(m_server->isRunning());
        deleteWaiting();
    }

    void cleanupTestCase()
    {
        delete m_worker;
        deleteWaiting();
    }

    void aValueIsReadAndWritten()
    {
        const auto set = m_worker->setValue(path("value"), OrvoValue().setI32_(42));
        QVERIFY(waitForReply(set));
        QCOMPARE(set.error().name(), QString());
        const auto get = m_worker->getData(path("value"), {OrvoRoles::Value(), OrvoRoles::Type(), "nothing"});
        QVERIFY(waitForReply(get));
        QCOMPARE(get.value().size(), 3);
        QCOMPARE(OrvoValue(get.value().at(0)).i32_(), 42);
        QCOMPARE(get.value().at(1).toString(), OrvoRolesType::Value());
        QVERIFY(!get.value().at(2).isValid());
    }

    void anyTextCrossesTheLinkUnchanged()
    {
        const QString text = QString::fromUtf8("é😀\n\"\\\t/") + QChar(1) + QChar(0) + "end";
        QVERIFY(waitForReply(m_worker->setValue(path("text"), OrvoValue().setString_(text))));
        const auto get = m_worker->getData(path("text"), {OrvoRoles::Value()});
        QVERIFY(waitForReply(get));
        QCOMPARE(OrvoValue(get.value().value(0)).string_(), text);
    }

    void aLargeTextCrossesTheLink()
    {
        const QString text(2 * 1024 * 1024, QChar(0x20AC));
        QVERIFY(waitForReply(m_worker->setValue(path("text"), OrvoValue().setString_(text))));
        const auto get = m_worker->getData(path("text"), {OrvoRoles::Value()});
        QVERIFY(waitForReply(get));
        QVERIFY(OrvoValue(get.value().value(0)).string_() == text);
    }

    void anInvalidPathFails()
    {
        const auto get = m_worker->getData(path("nothing/here"), {OrvoRoles::Value()});
        QVERIFY(waitForReply(get));
        QCOMPARE(get.error().name(), CMAbstractWorker::ErrorInvalidPath());
    }

    void rowsAreReadMatchedAndFollowed()
    {
        Rows rows;
        m_worker->connectRowsChange(path("list"), &rows, SLOT(onRows(CMPath,QStringList,int,int)));
        const auto get = m_worker->getRows(path("list"), 2, 4, -1, {OrvoRoles::Id()});
        QVERIFY(waitForReply(get));
        QCOMPARE(get.value().rowsCount(), 10);
        QCOMPARE(get.value().rows().toList().size(), 3);
        QCOMPARE(get.value().rows().toList().first().toList(), QVariantList{"2"});
        const auto match = m_worker->matchRow(path("list"), 0, OrvoRoles::Id(), "7", 0, -1);
        QVERIFY(waitForReply(match));
        QCOMPARE(match.value(), 7);

        for (int i = 0; i < 3; ++i)
            m_worker->invoke(path("append"), true);
        QTRY_COMPARE(rows.changes, (QStringList{"+10", "+11", "+12"}));
        // The versions of the deliveries join without a gap.
        for (int i = 1; i < rows.versions.size(); ++i)
            QCOMPARE(rows.versions.at(i).first, rows.versions.at(i - 1).second);
        QCOMPARE(rows.versions.last().second - rows.versions.first().first, 3);
    }

    void anActionAnswers()
    {
        const auto reply = m_worker->invoke(path("append"), true);
        QVERIFY(waitForReply(reply));
        QCOMPARE(reply.value().toInt(), 14);
    }

    void itemsFollowTheService()
    {
        CMValueItem value(nullptr, path("value"));
        CMItem item(nullptr, path("value"));
        QTRY_VERIFY(!value.isLoading() && !item.isLoading());
        for (int i = 100; i < 110; ++i) {
            QVERIFY(waitForReply(m_worker->setValue(path("value"), OrvoValue().setI32_(i))));
            QTRY_COMPARE(value.value().i32_(), i);
            QTRY_COMPARE(item.roles().value().i32_(), i);
        }
    }

    void aSlowNodeHoldsUpNobody()
    {
        const auto slow = m_worker->getData(CMPath::fromEncoded(m_service + ":slow?ms=300"), {OrvoRoles::Value()});
        const auto quick = m_worker->getData(path("value"), {OrvoRoles::Value()});
        QVERIFY(waitForReply(quick));
        QVERIFY(!slow.isFinished());
        QVERIFY(waitForReply(slow));
        QCOMPARE(OrvoValue(slow.value().value(0)).i32_(), 1);
    }

    void rawBytesAreServed()
    {
        RawPeer peer;
        QVERIFY(peer.connectTo(m_service));
        // The reply to the second packet tells that the first one was taken.
        const QByteArray bytes = framed(wireSubscribe(m_service + ":value", 0))
                                 + framed(wireGetData("raw:1", m_service + ":value", {"type"}));
        for (const char byte : bytes)
            peer.send(QByteArray(1, byte));
        QTRY_COMPARE(peer.replyTo("raw:1"), (QJsonObject{{"id", "raw:1"}, {"value", QJsonArray{"value"}}}));
        QVERIFY(waitForReply(m_worker->setValue(path("value"), OrvoValue().setI32_(-7))));
        QTRY_COMPARE(peer.of("change").size(), 1);
        QCOMPARE(peer.of("change").first().value("valueChanged").toObject(),
                 (QJsonObject{{"path", m_service + ":value"}, {"value", QJsonObject{{"type", "i32_"}, {"i32_", -7}}}}));
    }

    void aClientThatIsKilledWithRequestsOpenLeavesNothing()
    {
        const int descriptors = openDescriptors(m_server->pid());
        for (int i = 0; i < 20; ++i) {
            RawPeer peer;
            QVERIFY(peer.connectTo(m_service));
            peer.send(framed(wireGetData("1", m_service + ":never"))
                      + framed(wireGetData("2", m_service + ":slow?ms=20"))
                      + framed(wireSubscribe(m_service + ":list", 2)));
            peer.abort();
        }
        QVERIFY(waitForReply(m_worker->getData(CMPath::fromEncoded(m_service + ":slow?ms=50"), {OrvoRoles::Value()})));
        // Fewer, when a client of the test before was still on its way out.
        QTRY_VERIFY(openDescriptors(m_server->pid()) <= descriptors);
    }

    void aSubscriberThatNeverReadsHoldsUpNobody()
    {
        QLocalSocket deaf;
        deaf.setReadBufferSize(1);
        deaf.connectToServer(CMRPCSocket::socketPathFromPrefix(m_service));
        QVERIFY(deaf.waitForConnected(5000));
        deaf.write(framed(wireSubscribe(m_service + ":text", 0)));
        deaf.flush();
        CMValueItem item(nullptr, path("text"));
        QTRY_VERIFY(!item.isLoading());
        // Far more than the kernel keeps for a peer that does not read.
        for (int i = 0; i < 60; ++i) {
            const QString text(50000, QChar('a' + i % 26));
            QVERIFY(waitForReply(m_worker->setValue(path("text"), OrvoValue().setString_(text))));
            QTRY_VERIFY(item.value().string_() == text);
        }
        QCOMPARE(deaf.state(), QLocalSocket::ConnectedState);
    }

    void aThousandRequestsAtOnceAreAllAnswered()
    {
        QVERIFY(waitForReply(m_worker->setValue(path("value"), OrvoValue().setI32_(3))));
        QList<CMReply<QVariantList>> replies;
        for (int i = 0; i < 1000; ++i)
            replies.append(m_worker->getData(path("value"), {OrvoRoles::Value()}));
        for (const auto& reply : qAsConst(replies)) {
            QVERIFY(waitForReply(reply));
            QCOMPARE(OrvoValue(reply.value().value(0)).i32_(), 3);
        }
    }
};

QTEST_GUILESS_MAIN(tst_CMRPCProcesses)
#include "tst_cmrpc_processes.moc"
