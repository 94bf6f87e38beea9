#include "cmremoteworker.h"

#include "core/model/cmmetatypes.h"
#include "core/model/cmrpcclient.h"
#include "support/linkfixture.h"

#include <log4cplus/logger.h>

/// A subscriber of all three kinds.
class Subscriber : public QObject
{
    Q_OBJECT
public:
    int values = 0;
    int datas = 0;
    int rows = 0;
    QVariant value;
    QStringList changes;
    void clear()
    {
        values = datas = rows = 0;
        changes.clear();
    }
    int count(int type) const { return type == 0 ? values : type == 1 ? datas : rows; }
    static const char* slot(int type)
    {
        return type == 0
            ? SLOT(onValue(CMPath,QVariant)) : type == 1 ? SLOT(onData(CMPath)) : SLOT(onRows(CMPath,QStringList));
    }
public slots:
    void onValue(CMPath, QVariant newValue)
    {
        ++values;
        value = newValue;
    }
    void onData(CMPath) { ++datas; }
    void onRows(CMPath, QStringList strings)
    {
        ++rows;
        changes += strings;
    }
};

/// The service dies before, during and after each thing that a client asks of it, and comes back.
class tst_CMRPCReconnect : public QObject
{
    Q_OBJECT

private:
    QString m_service;
    std::unique_ptr<ServerProcess> m_server;
    std::unique_ptr<CMRemoteWorker> m_worker;

    CMPath path(const QString& base) const { return CMPath::fromPrefix(m_service) + base; }
    bool waitForLink(bool connected)
    {
        return QTest::qWaitFor([&] { return m_worker->client()->isConnected() == connected; }, 10000);
    }
    /// Another service takes the place of the present one, and the client is at it.
    bool replaceService(const QStringList& arguments)
    {
        m_server->kill();
        return waitForLink(false) && m_server->start(arguments) && waitForLink(true);
    }
    CMVoidReply ask(const QString& what, const CMPath& path)
    {
        if (what == "getData")
            return m_worker->getData(path, {OrvoRoles::Title(), OrvoRoles::Type()});
        if (what == "getRows")
            return m_worker->getRows(path, 0, 10, -1, {OrvoRoles::Id()});
        if (what == "matchRow")
            return m_worker->matchRow(path, 0, OrvoRoles::Id(), "nobody", 0, -1);
        return m_worker->setData(path, OrvoRoles::Value(), OrvoValue().setI32_(5).__variant());
    }
    bool waitForReply(const CMVoidReply& reply) const
    {
        return QTest::qWaitFor([&] { return reply.isFinished(); }, 10000);
    }

private slots:
    void initTestCase()
    {
        log4cplus::Logger::getRoot().setLogLevel(log4cplus::OFF_LOG_LEVEL);
        orvoRegisterMetaTypes();
        m_service = serviceName("reconnect");
        m_server.reset(new ServerProcess(m_service));
    }

    void init()
    {
        QVERIFY(m_server->start());
        m_worker.reset(new CMRemoteWorker("me", m_service));
        QVERIFY(waitForLink(true));
    }

    void cleanup()
    {
        m_worker.reset();
        deleteWaiting();
        m_server->kill();
    }

private:
    static void addRequests()
    {
        QTest::addColumn<QString>("what");
        for (const char* what : {"getData", "getRows", "matchRow", "setData"})
            QTest::newRow(what) << what;
    }

private slots:
    void aRequestMadeWhileTheServiceIsDeadIsServedByTheNextOne_data() { addRequests(); }
    void aRequestMadeWhileTheServiceIsDeadIsServedByTheNextOne()
    {
        QFETCH(QString, what);
        m_server->kill();
        QVERIFY(waitForLink(false));
        const CMVoidReply reply = ask(what, path("die"));
        QVERIFY(m_server->start({"--safe"}));
        QVERIFY(waitForReply(reply));
        QCOMPARE(reply.error().name(), QString());
    }

    void aRequestThatTheServiceDiesOfIsCancelled_data() { addRequests(); }
    void aRequestThatTheServiceDiesOfIsCancelled()
    {
        QFETCH(QString, what);
        const CMVoidReply reply = ask(what, path("die"));
        QVERIFY(waitForReply(reply));
        QCOMPARE(reply.error().name(), CMVoidReply::ErrorCancel());
        QVERIFY(m_server->start({"--safe"}));
        const CMVoidReply again = ask(what, path("die"));
        QVERIFY(waitForReply(again));
        QCOMPARE(again.error().name(), QString());
    }

    void aRequestThatWasServedStaysServed_data() { addRequests(); }
    void aRequestThatWasServedStaysServed()
    {
        QFETCH(QString, what);
        QVERIFY(replaceService({"--safe"}));
        const CMVoidReply reply = ask(what, path("die"));
        QVERIFY(waitForReply(reply));
        m_server->kill();
        QVERIFY(waitForLink(false));
        QCOMPARE(reply.error().name(), QString());
        QVERIFY(m_server->start({"--safe"}));
        const CMVoidReply again = ask(what, path("die"));
        QVERIFY(waitForReply(again));
        QCOMPARE(again.error().name(), QString());
    }

    void aSubscriptionSurvivesTheService_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<QString>("when");
        for (const char* when : {"before", "during", "after"}) {
            QTest::addRow("value %s", when) << 0 << when;
            QTest::addRow("data %s", when) << 1 << when;
            QTest::addRow("rows %s", when) << 2 << when;
        }
    }

    void aSubscriptionSurvivesTheService()
    {
        QFETCH(int, type);
        QFETCH(QString, when);
        Subscriber subscriber;
        const auto subscribe = [&] {
            m_worker->connectChange(CMAbstractWorker::ChangeType(type), path("die"), &subscriber,
                                    Subscriber::slot(type));
        };
        if (when == "before") {
            m_server->kill();
            QVERIFY(waitForLink(false));
            subscribe();
        } else if (when == "during") {
            subscribe();
            QVERIFY(waitForLink(false));
        } else {
            QVERIFY(replaceService({"--safe"}));
            subscribe();
            QVERIFY(waitForReply(ask("getData", path("die"))));
            m_server->kill();
            QVERIFY(waitForLink(false));
        }
        QVERIFY(m_server->start({"--safe"}));
        QVERIFY(waitForReply(ask("getData", path("die"))));
        subscriber.clear();
        QVERIFY(waitForReply(ask("setData", path("die"))));
        QTRY_COMPARE(subscriber.count(type), 1);
        // The order on the link: what would come twice is there before this answer.
        QVERIFY(waitForReply(m_worker->getData(CMPath::fromEncoded(m_service + ":slow?ms=60"), {OrvoRoles::Value()})));
        QCOMPARE(subscriber.count(type), 1);
        if (type == 2)
            QCOMPARE(subscriber.changes, QStringList("+0"));
    }

    void aSubscriptionEndedWhileTheServiceIsDeadStaysEnded()
    {
        Subscriber subscriber;
        m_worker->connectDataChange(path("value"), &subscriber, SLOT(onData(CMPath)));
        QVERIFY(waitForReply(ask("getData", path("value"))));
        m_server->kill();
        QVERIFY(waitForLink(false));
        m_worker->disconnectDataChange(path("value"), &subscriber, SLOT(onData(CMPath)));
        QVERIFY(m_server->start());
        QVERIFY(waitForReply(ask("setData", path("value"))));
        subscriber.clear();
        QVERIFY(waitForReply(m_worker->getData(CMPath::fromEncoded(m_service + ":slow?ms=60"), {OrvoRoles::Value()})));
        QCOMPARE(subscriber.datas, 0);
    }

    void theValueOfTheNextServiceIsReported()
    {
        Subscriber subscriber;
        m_worker->connectValueChange(path("value"), &subscriber, SLOT(onValue(CMPath,QVariant)));
        QVERIFY(waitForReply(ask("getData", path("value"))));
        QVERIFY(replaceService({"--value", "77"}));
        QTRY_COMPARE(OrvoValue(subscriber.value).i32_(), 77);
    }

    void rowsAreResetWhenTheServiceDies()
    {
        Subscriber subscriber;
        m_worker->connectRowsChange(path("list"), &subscriber, SLOT(onRows(CMPath,QStringList)));
        QVERIFY(waitForReply(ask("getRows", path("list"))));
        m_server->kill();
        QTRY_COMPARE(subscriber.changes, QStringList(QString()));
    }

    void aServiceThatIsKilledUnderLoadLosesNoRequestForEver()
    {
        QList<CMReply<QVariantList>> replies;
        Subscriber subscriber;
        m_worker->connectRowsChange(path("list"), &subscriber, SLOT(onRows(CMPath,QStringList)));
        for (int round = 0; round < 3; ++round) {
            for (int i = 0; i < 500; ++i) {
                replies.append(m_worker->getData(path("value"), {OrvoRoles::Value()}));
                if (i % 50 == 0)
                    m_worker->invoke(path("append"), true);
                QCoreApplication::processEvents();
                if (i == 250)
                    m_server->kill();
            }
            QVERIFY(m_server->start());
        }
        for (const auto& reply : qAsConst(replies))
            QVERIFY(waitForReply(reply));
        int served = 0;
        for (const auto& reply : qAsConst(replies)) {
            if (reply.error().isError()) {
                QCOMPARE(reply.error().name(), CMVoidReply::ErrorCancel());
                continue;
            }
            ++served;
            QCOMPARE(OrvoValue(reply.value().value(0)).i32_(), 1);
        }
        QVERIFY(served > 0);
        // The subscription still stands, once; what was appended before has been told by then.
        QVERIFY(waitForReply(m_worker->getData(CMPath::fromEncoded(m_service + ":slow?ms=60"), {OrvoRoles::Value()})));
        subscriber.clear();
        QVERIFY(waitForReply(m_worker->invoke(path("append"), true)));
        QTRY_COMPARE(subscriber.changes.size(), 1);
    }
};

QTEST_GUILESS_MAIN(tst_CMRPCReconnect)
#include "tst_cmrpc_reconnect.moc"
