#include "core/model/cmasyncworker.h"

#include "core/model/cmmetatypes.h"
#include "core/model/cmsubscribe.h"
#include "core/model/cmworker.h"
#include "logcapture.h"

#include <QtTest>

#include <sys/prctl.h>

namespace {

CMPath path(const char* encoded)
{
    return CMPath::fromEncoded(encoded);
}

/// Notes each request in order, in whatever thread it comes; can hold up the threads.
class NotingWorker : public CMWorker
{
public:
    explicit NotingWorker(const QHash<QString, QVariant>& arguments = QHash<QString, QVariant>())
        : CMWorker(arguments, "wrapped")
    {}

    void request(CMRequest request) override
    {
        char name[16] = {};
        prctl(PR_GET_NAME, name);
        {
            const QMutexLocker lock(&m_mutex);
            m_calls.append(request.path().toEncoded());
            m_threads.insert(QThread::currentThread());
            m_names.insert(QByteArray(name));
        }
        started.release();
        if (holds)
            gate.acquire();
        CMWorker::request(request);
    }
    void getDataRequest(const CMGetDataRequest& request) override { request.reply().setValue({"data"}); }
    void getRowsRequest(const CMGetRowsRequest& request) override
    {
        request.reply().setValue(OrvoRowsRoles().setRowsCount(7));
    }
    void matchRowRequest(const CMMatchRowRequest& request) override { request.reply().setValue(8); }
    void setDataRequest(const CMSetDataRequest& request) override { request.reply().setValue("set"); }

    QStringList calls() const
    {
        const QMutexLocker lock(&m_mutex);
        return m_calls;
    }
    QSet<QThread*> threads() const
    {
        const QMutexLocker lock(&m_mutex);
        return m_threads;
    }
    QSet<QByteArray> names() const
    {
        const QMutexLocker lock(&m_mutex);
        return m_names;
    }

    std::atomic<bool> holds{false};
    QSemaphore started;
    QSemaphore gate;

private:
    mutable QMutex m_mutex;
    QStringList m_calls;
    QSet<QThread*> m_threads;
    QSet<QByteArray> m_names;
};

/// A pair that lives as long as the process, since the threads never end.
struct Pair
{
    explicit Pair(int threads, const QHash<QString, QVariant>& arguments = QHash<QString, QVariant>())
        : wrapped(*new NotingWorker(arguments)), worker(*new CMAsyncWorker(&wrapped, threads))
    {
        s_pairs.append(&worker);
        s_pairs.append(&wrapped);
    }

    NotingWorker& wrapped;
    CMAsyncWorker& worker;

private:
    /// Never destroyed, so that a leak check finds the pairs.
    static QList<QObject*>& s_pairs;
};

QList<QObject*>& Pair::s_pairs = *new QList<QObject*>;

} // namespace

class Receiver : public QObject
{
    Q_OBJECT
public:
    QStringList heard;
public slots:
    void value(const CMPath& path, const QVariant& value) { heard.append(path.toEncoded() + "=" + value.toString()); }
};

class tst_CMAsyncWorker : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { orvoRegisterMetaTypes(); }

    void eachKindOfRequestIsServedInAnotherThread()
    {
        Pair pair(1);
        QCOMPARE(pair.worker.getData(path("ui:a"), {"title"}).value(), QVariantList{"data"});
        QCOMPARE(pair.worker.getRows(path("ui:b"), 0, 1, -1, {"title"}).value().rowsCount(), 7);
        QCOMPARE(pair.worker.matchRow(path("ui:c"), 0, "title", 1, 0, -1).value(), 8);
        QCOMPARE(pair.worker.setValue(path("ui:d"), QVariant(1)).value(), QVariant("set"));
        auto* data = new CMGetDataRequest::Data;
        data->path = path("ui:e");
        const CMGetDataRequest request(data);
        pair.worker.request(request);
        QCOMPARE(request.reply().value(), QVariantList{"data"});
        QCOMPARE(pair.wrapped.calls(), (QStringList{"ui:a", "ui:b", "ui:c", "ui:d", "ui:e"}));
        QCOMPARE(pair.wrapped.threads().size(), 1);
        QVERIFY(!pair.wrapped.threads().contains(QThread::currentThread()));
        QCOMPARE(pair.wrapped.names(), QSet<QByteArray>{"CMAsyncWorker"});
    }

    void requestsStartInTheOrderOfArrival()
    {
        Pair pair(1);
        QStringList expected;
        CMReply<QVariantList> last;
        for (int i = 0; i < 200; ++i) {
            expected.append(QString("ui:%1").arg(i));
            last = pair.worker.getData(CMPath::fromEncoded(expected.last()), {});
        }
        last.value();
        QCOMPARE(pair.wrapped.calls(), expected);
    }

    void severalThreadsServeAtTheSameTime()
    {
        Pair pair(3);
        pair.wrapped.holds = true;
        QList<CMReply<QVariantList>> replies;
        for (int i = 0; i < 4; ++i)
            replies.append(pair.worker.getData(path("ui:a"), {}));
        pair.wrapped.started.acquire(3);
        QCOMPARE(pair.wrapped.threads().size(), 3);
        QCOMPARE(pair.wrapped.calls().size(), 3);
        pair.wrapped.gate.release(4);
        for (const CMReply<QVariantList>& reply : replies)
            QCOMPARE(reply.value(), QVariantList{"data"});
        QCOMPARE(pair.wrapped.threads().size(), 3);
    }

    void aRequestCancelledInTheQueueNeverReachesTheWrappedWorker()
    {
        Pair pair(1);
        pair.wrapped.holds = true;
        const CMReply<QVariantList> first = pair.worker.getData(path("ui:first"), {});
        pair.wrapped.started.acquire();
        const CMReply<QVariantList> cancelled = pair.worker.getData(path("ui:cancelled"), {});
        const CMReply<QVariantList> last = pair.worker.getData(path("ui:last"), {});
        cancelled.cancel();
        pair.wrapped.gate.release(2);
        QCOMPARE(last.value(), QVariantList{"data"});
        QCOMPARE(pair.wrapped.calls(), (QStringList{"ui:first", "ui:last"}));
        QCOMPARE(first.value(), QVariantList{"data"});
    }

    void aPingReachesTheWrappedWorkerWhileAllThreadsAreBusy()
    {
        Pair pair(1);
        pair.wrapped.holds = true;
        const CMReply<QVariantList> busy = pair.worker.getData(path("ui:a"), {});
        pair.wrapped.started.acquire();
        const CMSetDataRequest ping(new CMSetDataRequest::Data);
        pair.worker.ping(ping);
        QTRY_VERIFY(ping.reply().isFinished());
        QVERIFY(!busy.isFinished());
        pair.wrapped.gate.release();
        busy.value();
        QCOMPARE(pair.wrapped.calls(), QStringList("ui:a"));
    }

    void withoutThreadsRequestsWait_data()
    {
        QTest::addColumn<int>("threads");
        QTest::newRow("none") << 0;
        QTest::newRow("less than none") << -3;
    }

    void withoutThreadsRequestsWait()
    {
        QFETCH(int, threads);
        Pair pair(threads);
        QVERIFY(pair.worker.findChildren<QThread*>().isEmpty());
        const CMReply<QVariantList> reply = pair.worker.getData(path("ui:a"), {});
        QVERIFY(!reply.waitForFinished(20));
        QCOMPARE(pair.wrapped.calls(), QStringList());
        const CMSetDataRequest ping(new CMSetDataRequest::Data);
        pair.worker.ping(ping);
        QTRY_VERIFY(ping.reply().isFinished());
    }

    void theArgumentsAreThoseOfTheWrappedWorker()
    {
        const QHash<QString, QVariant> arguments{{"prefix", "ui:"}, {"own", 3}};
        Pair pair(1, arguments);
        QCOMPARE(pair.worker.arguments(), arguments);
        QCOMPARE(pair.worker.findChildren<QThread*>().size(), 1);
    }

    void subscriptionsGoToTheWrappedWorkerAtOnceAndAreTraced()
    {
        Pair pair(0);
        Receiver receiver;
        const LogCapture log("CMChange");
        pair.worker.connectValueChange(path("ui:a"), &receiver, SLOT(value(CMPath,QVariant)));
        QCOMPARE(log.lines().value(0),
                 QString("TRACE CMAsyncWorker::connectChange: ValueChange ui:a (Receiver 1value(CMPath,QVariant))"));
        QCOMPARE(log.lines().value(1),
                 QString("TRACE CMWorker::connectChange: ValueChange ui:a (Receiver 1value(CMPath,QVariant))"));
        QVERIFY(pair.wrapped.subscribe()->valuePath(path("ui:a")));
        pair.wrapped.subscribe()->valueChanged(path("ui:a"), 1);
        QTRY_COMPARE(receiver.heard, QStringList("ui:a=1"));
        const int connected = log.lines().size();
        pair.worker.disconnectValueChange(path("ui:a"), &receiver, SLOT(value(CMPath,QVariant)));
        QCOMPARE(log.lines().value(connected),
                 QString("TRACE CMAsyncWorker::disconnectChange: ValueChange ui:a (Receiver 1value(CMPath,QVariant))"));
        QVERIFY(!pair.wrapped.subscribe()->valuePath(path("ui:a")));
    }
};

QTEST_GUILESS_MAIN(tst_CMAsyncWorker)

#include "tst_cmasyncworker.moc"
