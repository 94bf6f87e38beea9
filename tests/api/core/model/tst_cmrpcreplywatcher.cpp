#include "core/model/cmrpccommon.h"

#include "core/model/cmmetatypes.h"
#include "logcapture.h"
#include "support/linkfixture.h"

#include <QPointer>
#include <QThread>

#include <thread>

class Receiver : public QObject
{
    Q_OBJECT
public:
    QStringList ids;
    QList<CMVoidReply> replies;
    QThread* ranIn = nullptr;
public slots:
    void hear(QString id, CMVoidReply reply)
    {
        ids.append(id);
        replies.append(reply);
        ranIn = QThread::currentThread();
    }
};

class tst_CMRPCReplyWatcher : public QObject
{
    Q_OBJECT

private:
    static CMRPCReplyWatcher* watch(const CMVoidReply& reply, Receiver* receiver,
                                    Qt::ConnectionType type = Qt::AutoConnection)
    {
        auto* watcher =
            new CMRPCReplyWatcher(OrvoRequest().setId("a:1"), reply, receiver, SLOT(hear(QString,CMVoidReply)), type);
        reply.addWatcher(watcher);
        return watcher;
    }

private slots:
    void initTestCase() { orvoRegisterMetaTypes(); }

    void theEndOfTheReplyIsToldWithTheId()
    {
        LogCapture log("CMRPCReplyWatcher");
        Receiver receiver;
        const CMReply<int> reply;
        const QPointer<CMRPCReplyWatcher> watcher(watch(reply, &receiver));
        reply.setValue(1);
        QCOMPARE(receiver.ids, QStringList("a:1"));
        QVERIFY(receiver.replies.first() == reply);
        QCOMPARE(log.lines(), QStringList("TRACE Request finished: {\"id\":\"a:1\"}"));
        QVERIFY(watcher);
        deleteWaiting();
        QVERIFY(!watcher);
    }

    void theRequestIsACopy()
    {
        Receiver receiver;
        const CMReply<int> reply;
        OrvoRequest request = OrvoRequest().setId("a:1");
        reply.addWatcher(new CMRPCReplyWatcher(request, reply, &receiver, SLOT(hear(QString,CMVoidReply))));
        request.setId("a:2");
        reply.cancel();
        QCOMPARE(receiver.ids, QStringList("a:1"));
        deleteWaiting();
    }

    void expiryEndsTheReplyWithAnError()
    {
        LogCapture log("CMRPCReplyWatcher", log4cplus::WARN_LOG_LEVEL);
        Receiver receiver;
        const CMReply<int> reply;
        CMRPCReplyWatcher* watcher = watch(reply, &receiver);
        QVERIFY(QMetaObject::invokeMethod(watcher, "on_request_expired"));
        QVERIFY(reply.isFinished());
        QCOMPARE(reply.error().name(), QString("Error"));
        QCOMPARE(reply.error().message(), QString("Request has expired"));
        QCOMPARE(reply.error().title(), CMError::DefaultTitle());
        QCOMPARE(log.lines(), QStringList("WARN Request expired: {\"id\":\"a:1\"}"));
        QCOMPARE(receiver.ids, QStringList("a:1"));
        deleteWaiting();
    }

    void expiryOfAFinishedReplyHasNoFurtherEffect()
    {
        LogCapture log("CMRPCReplyWatcher", log4cplus::WARN_LOG_LEVEL);
        Receiver receiver;
        const CMReply<int> reply;
        CMRPCReplyWatcher* watcher = watch(reply, &receiver);
        reply.setValue(7);
        QVERIFY(QMetaObject::invokeMethod(watcher, "on_request_expired"));
        QCOMPARE(receiver.ids.size(), 1);
        QVERIFY(!reply.error().isError());
        QCOMPARE(reply.value(), 7);
        deleteWaiting();
    }

    void aValueAfterTheExpiryIsDropped()
    {
        LogCapture log("CMRPCReplyWatcher", log4cplus::WARN_LOG_LEVEL);
        Receiver receiver;
        const CMReply<int> reply;
        QVERIFY(QMetaObject::invokeMethod(watch(reply, &receiver), "on_request_expired"));
        reply.setValue(7);
        QCOMPARE(receiver.ids.size(), 1);
        QVERIFY(reply.error().isError());
        deleteWaiting();
    }

    void aFinishInAnotherThreadIsToldInTheReceivers()
    {
        Receiver receiver;
        const CMReply<int> reply;
        const QPointer<CMRPCReplyWatcher> watcher(watch(reply, &receiver));
        std::thread([&] { reply.setValue(1); }).join();
        QCOMPARE(receiver.ids, QStringList());
        QTRY_COMPARE(receiver.ids, QStringList("a:1"));
        QCOMPARE(receiver.ranIn, QThread::currentThread());
        deleteWaiting();
        QVERIFY(!watcher);
    }

    void theConnectionTypeIsTheGivenOne()
    {
        Receiver receiver;
        const CMReply<int> reply;
        watch(reply, &receiver, Qt::QueuedConnection);
        reply.setValue(1);
        QCOMPARE(receiver.ids, QStringList());
        QTRY_COMPARE(receiver.ids, QStringList("a:1"));
        deleteWaiting();
    }

    void itOutlivesItsReceiver()
    {
        const CMReply<int> reply;
        QPointer<CMRPCReplyWatcher> watcher;
        {
            Receiver receiver;
            watcher = watch(reply, &receiver);
        }
        reply.setValue(1);
        deleteWaiting();
        QVERIFY(!watcher);
    }
};

QTEST_GUILESS_MAIN(tst_CMRPCReplyWatcher)
#include "tst_cmrpcreplywatcher.moc"
