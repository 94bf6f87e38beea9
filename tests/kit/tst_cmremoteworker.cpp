#include "cmremoteworker.h"

#include "core/model/cmmetatypes.h"
#include "core/model/cmroot.h"
#include "core/model/cmrpcclient.h"
#include "core/model/cmsubscribe.h"
#include "core/model/cmvalueitem.h"
#include "records/orvoconstants.h"
#include "support/linkfixture.h"

#include <thread>

class Subscriber : public QObject
{
    Q_OBJECT
public:
    QStringList said;
public slots:
    void onValue(CMPath path, QVariant value) { said.append("value " + path.toEncoded() + ' ' + value.toString()); }
    void onData(CMPath path) { said.append("data " + path.toEncoded()); }
    void onRows(CMPath path, QStringList changes, int version, int oldVersion)
    {
        said.append(
            QStringLiteral("rows %1 [%2] %3 %4").arg(path.toEncoded(), changes.join(',')).arg(version).arg(oldVersion));
    }
};

class tst_CMRemoteWorker : public QObject
{
    Q_OBJECT

private:
    QString m_service;
    std::unique_ptr<RawServer> m_server;
    std::unique_ptr<CMRemoteWorker> m_worker;

    RawPeer* peer() const { return m_server->peer(); }
    CMPath path(const QString& base) const { return CMPath::fromPrefix(m_service) + base; }
    QString text(const QString& base) const { return path(base).toEncoded(); }
    void sendRows(const QStringList& changes, int version, int oldVersion)
    {
        peer()->send(framed(rows(changes, version, oldVersion)));
    }
    QJsonObject rows(const QStringList& changes, int version, int oldVersion) const
    {
        return {{"change", QJsonObject{{"rowsChanged", QJsonObject{{"path", text("r")},
                                                                   {"changes", QJsonArray::fromStringList(changes)},
                                                                   {"version", version},
                                                                   {"oldVersion", oldVersion}}}}}};
    }

private slots:
    void initTestCase()
    {
        orvoRegisterMetaTypes();
        m_service = serviceName("remote");
    }

    void init()
    {
        m_server.reset(new RawServer(m_service));
        m_worker.reset(new CMRemoteWorker("me", m_service, {{OrvoWorkerArguments::MergeEvents(), true}}));
        QTRY_VERIFY(peer() && m_worker->client()->isConnected());
    }

    void cleanup()
    {
        m_worker.reset();
        m_server.reset();
        deleteWaiting();
    }

    void thePrefixIsTheNameOfTheService()
    {
        QCOMPARE(m_worker->prefixPath(), CMPath::fromPrefix(m_service));
        const CMRemoteWorker other("me", m_service, {{OrvoWorkerArguments::Prefix(), "other:"}});
        QCOMPARE(other.prefixPath(), CMPath::fromPrefix("other"));
    }

    void theFourRequestsAreForwarded()
    {
        const auto data = m_worker->getData(path("a"), {"value"});
        const auto rows = m_worker->getRows(path("b"), 0, 9, -1, {"id"});
        const auto match = m_worker->matchRow(path("c"), 0, "id", "x", 0, -1);
        const auto set = m_worker->setData(path("d"), "value", 5);
        QTRY_COMPARE(peer()->packets.size(), 4);
        const QList<QJsonObject> requests = peer()->of("request");
        const QStringList kinds{"getDataRequest", "getRowsRequest", "matchRowsRequest", "setDataRequest"};
        const QJsonArray values{QJsonArray{1}, QJsonObject{{"rowsCount", 4}}, 7, "done"};
        for (int i = 0; i < 4; ++i) {
            QCOMPARE(requests.at(i).value(kinds.at(i)).toObject().value("path").toString(),
                     text(QString(QChar('a' + i))));
            peer()->send(
                QJsonObject{{"reply", QJsonObject{{"id", requests.at(i).value("id")}, {"value", values.at(i)}}}});
        }
        QTRY_VERIFY(set.isFinished());
        QCOMPARE(data.value(), QVariantList{1});
        QCOMPARE(rows.value().rowsCount(), 4);
        QCOMPARE(match.value(), 7);
        QCOMPARE(set.value(), QVariant("done"));
    }

    void firstAndLastSubscribersCrossTheLink()
    {
        Subscriber one;
        Subscriber two;
        for (Subscriber* subscriber : {&one, &two}) {
            m_worker->connectValueChange(path("v"), subscriber, SLOT(onValue(CMPath,QVariant)));
            m_worker->connectDataChange(path("d"), subscriber, SLOT(onData(CMPath)));
            m_worker->connectRowsChange(path("r"), subscriber, SLOT(onRows(CMPath,QStringList,int,int)));
        }
        QTRY_COMPARE(peer()->packets, (QList<QJsonObject>{wireSubscribe(text("v"), 0), wireSubscribe(text("d"), 1),
                                                          wireSubscribe(text("r"), 2)}));
        m_worker->disconnectDataChange(path("d"), &one, SLOT(onData(CMPath)));
        m_worker->disconnectDataChange(path("d"), &two, SLOT(onData(CMPath)));
        QTRY_COMPARE(peer()->packets.size(), 4);
        QCOMPARE(peer()->packets.last(), wireSubscribe(text("d"), 1, false));
    }

    void theDeathOfTheLastSubscriberCrossesTheLink()
    {
        {
            Subscriber subscriber;
            m_worker->connectDataChange(path("d"), &subscriber, SLOT(onData(CMPath)));
        }
        QTRY_COMPARE(peer()->packets.size(), 2);
        QCOMPARE(peer()->packets.last(), wireSubscribe(text("d"), 1, false));
    }

    void changesReachTheHub()
    {
        Subscriber subscriber;
        m_worker->connectValueChange(path("v"), &subscriber, SLOT(onValue(CMPath,QVariant)));
        m_worker->connectDataChange(path("d"), &subscriber, SLOT(onData(CMPath)));
        m_worker->connectRowsChange(path("r"), &subscriber, SLOT(onRows(CMPath,QStringList,int,int)));
        peer()->send(
            QJsonObject{{"change", QJsonObject{{"valueChanged", QJsonObject{{"path", text("v")}, {"value", "x"}}}}}});
        peer()->send(QJsonObject{{"change", QJsonObject{{"dataChanged", QJsonObject{{"path", text("d")}}}}}});
        sendRows({"+1", "-2"}, 9, 7);
        QTRY_COMPARE(subscriber.said, (QStringList{"value " + text("v") + " x", "data " + text("d"),
                                                   "rows " + text("r") + " [+1,-2] 9 7"}));
        QCOMPARE(m_worker->subscribe()->rowsVersion(path("r")), 9);
    }

    void rowsOfOneDeliverySpanFromTheFirstToTheLastVersion()
    {
        Subscriber subscriber;
        m_worker->connectRowsChange(path("r"), &subscriber, SLOT(onRows(CMPath,QStringList,int,int)));
        peer()->send(framed(rows({"+1"}, 8, 7)) + framed(rows({"+2", "+3"}, 10, 8)) + framed(rows({"-1"}, 11, 10)));
        QTRY_COMPARE(subscriber.said, QStringList("rows " + text("r") + " [+1,+2,+3,-1] 11 7"));
        sendRows({"+5"}, 12, 11);
        QTRY_COMPARE(subscriber.said.size(), 2);
        QCOMPARE(subscriber.said.last(), "rows " + text("r") + " [+5] 12 11");
    }

    void aGapBetweenDeliveriesIsVisible()
    {
        Subscriber subscriber;
        m_worker->connectRowsChange(path("r"), &subscriber, SLOT(onRows(CMPath,QStringList,int,int)));
        sendRows({"+1"}, 8, 7);
        QTRY_COMPARE(subscriber.said.size(), 1);
        sendRows({"+1"}, 15, 14);
        QTRY_COMPARE(subscriber.said.size(), 2);
        QCOMPARE(subscriber.said.last(), "rows " + text("r") + " [+1] 15 14");
    }

    void aBreakGivesTheVersionOfAReset()
    {
        Subscriber subscriber;
        m_worker->connectRowsChange(path("r"), &subscriber, SLOT(onRows(CMPath,QStringList,int,int)));
        sendRows({"+1"}, 8, 7);
        QTRY_COMPARE(subscriber.said.size(), 1);
        m_server->breakLinks();
        QTRY_COMPARE(subscriber.said.size(), 2);
        QCOMPARE(subscriber.said.last(), "rows " + text("r") + " [] 0 8");
    }

    void anyThreadMayAskAndSubscribe()
    {
        Subscriber subscriber;
        CMReply<QVariantList> reply;
        std::thread([&] {
            m_worker->connectDataChange(path("d"), &subscriber, SLOT(onData(CMPath)));
            m_worker->getData(path("d"), {"value"}, reply);
        }).join();
        QTRY_COMPARE(peer()->packets.size(), 2);
        QCOMPARE(peer()->packets.first(), wireSubscribe(text("d"), 1));
        peer()->send(QJsonObject{
            {"reply", QJsonObject{{"id", peer()->of("request").first().value("id")}, {"value", QJsonArray{1}}}}});
        QTRY_VERIFY(reply.isFinished());
    }

    void anotherThreadMayWaitForAReply()
    {
        QVariant value;
        std::atomic<bool> done{false};
        std::thread waiting([&] {
            value = m_worker->getValue(path("v"));
            done = true;
        });
        QTRY_COMPARE(peer()->packets.size(), 1);
        peer()->send(QJsonObject{
            {"reply", QJsonObject{{"id", peer()->of("request").first().value("id")}, {"value", QJsonArray{"x"}}}}});
        QTRY_VERIFY(done);
        waiting.join();
        QCOMPARE(value, QVariant("x"));
    }

    void destroyingItEndsItsRequestsAndRefusesNewOnes()
    {
        CMRemoteWorker* worker = m_worker.release();
        const auto reply = worker->getData(path("a"), {"value"});
        QStringList errors;
        reply.onError([&](const CMError& error) {
            errors.append(error.name());
            for (const CMVoidReply& again : QList<CMVoidReply>{
                     worker->getData(path("a"), {"value"}), worker->getRows(path("a"), 0, 1, -1, {}),
                     worker->matchRow(path("a"), 0, "id", 1, 0, -1), worker->setData(path("a"), "value", 1)})
                errors.append(again.error().name());
        });
        delete worker;
        const QString invalid = CMAbstractWorker::ErrorInvalidPath();
        QCOMPARE(errors, (QStringList{CMVoidReply::ErrorCancel(), invalid, invalid, invalid, invalid}));
    }

    void itMayBeDestroyedWithSubscribersAndThenTheSubscribers()
    {
        Subscriber subscriber;
        m_worker->connectDataChange(path("d"), &subscriber, SLOT(onData(CMPath)));
        m_worker.reset();
        deleteWaiting();
        QCOMPARE(subscriber.said, QStringList());
    }
};

QTEST_GUILESS_MAIN(tst_CMRemoteWorker)
#include "tst_cmremoteworker.moc"
