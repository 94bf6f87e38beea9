#include "core/model/cmdatatransfer.h"

#include "core/model/cmdatatransfer_p.h"
#include "core/model/cmmetatypes.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QSemaphore>
#include <QSet>
#include <QThread>
#include <QTranslator>
#include <QtTest>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace {

const CMError someError(QStringLiteral("broken"), QStringLiteral("It broke"), QStringLiteral("Broken"));
const CMError otherError(QStringLiteral("other"), QStringLiteral("Other"), QStringLiteral("Other"));

/// Notes the chunks and ends that it is called with, and in which thread; used by one consumer thread.
struct Log
{
    QList<QByteArray> chunks;
    QList<CMError> ends;
    QSet<QThread*> threads;

    std::function<void(const QByteArray&)> data()
    {
        return [this](const QByteArray& chunk) {
            chunks.append(chunk);
            threads.insert(QThread::currentThread());
        };
    }
    std::function<void(const CMError&)> end()
    {
        return [this](const CMError& error) {
            ends.append(error);
            threads.insert(QThread::currentThread());
        };
    }
};

void inAnotherThread(const std::function<void()>& function)
{
    std::thread(function).join();
}

/// Opened by one thread and passed by another; made of what race checkers know.
class Gate
{
public:
    void open()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_open = true;
        m_condition.notify_all();
    }
    void pass()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_condition.wait(lock, [this] { return m_open; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_condition;
    bool m_open = false;
};

/// Another thread with an event loop.
class LoopThread
{
public:
    LoopThread()
    {
        Gate ready;
        m_running = std::thread([this, &ready] {
            QObject context;
            QEventLoop loop;
            m_context = &context;
            m_loop = &loop;
            m_thread = QThread::currentThread();
            ready.open();
            loop.exec();
        });
        ready.pass();
    }
    ~LoopThread()
    {
        run([this] { m_loop->quit(); });
        m_running.join();
    }
    QThread* thread() const { return m_thread; }
    /// Runs the function there, after all that was queued there before, and waits for it.
    void run(const std::function<void()>& function)
    {
        Gate start;
        Gate done;
        start.open();
        QMetaObject::invokeMethod(
            m_context,
            [&] {
                start.pass();
                function();
                done.open();
            },
            Qt::QueuedConnection);
        done.pass();
    }

private:
    std::thread m_running;
    QObject* m_context = nullptr;
    QEventLoop* m_loop = nullptr;
    QThread* m_thread = nullptr;
};

class ReversingTranslator : public QTranslator
{
public:
    ReversingTranslator() { QCoreApplication::installTranslator(this); }
    ~ReversingTranslator() override { QCoreApplication::removeTranslator(this); }
    bool isEmpty() const override { return false; }
    QString translate(const char* context, const char* sourceText, const char*, int) const override
    {
        return QLatin1String(context) + QLatin1Char('/') + QLatin1String(sourceText);
    }
};

} // namespace

class tst_CMDataTransfer : public QObject
{
    Q_OBJECT

private slots:
    void metaTypesAreRegisteredInOrder();
    void copiesAreOneStreamAndHashAlike();
    void theHandleServesAStreamOfItsOwnKind();

    void bufferedChunksBeforeTheConsumerArriveAsOne();
    void bufferedChunksSurviveTheEnd();
    void bufferedConsumerWithoutOldChunksIsNotCalled();
    void bufferedChunksAfterTheBufferArriveOneByOne();
    void secondConsumerOfABufferedTransferIsIgnored();
    void unbufferedChunksWithoutAConsumerVanish();
    void unbufferedChunksGoToAllInOrderOfRegistration();
    void unbufferedConsumerAfterTheEndIsDropped();
    void consumerAddedDuringAChunkGetsOnlyTheNext();
    void chunksAfterTheEndAreDropped_data();
    void chunksAfterTheEndAreDropped();

    void onlyTheFirstEndCounts();
    void endWithoutErrorIsNoFailure();
    void allConsumersHearTheEndOnce();
    void lateConsumerHearsTheEndAtOnceInItsThread();
    void emptyFunctionThrowsWhenItIsCalled();
    void cancelReachesTheConsumersWithItsName();
    void cancelAfterTheEndChangesNothing();
    void cancelIsTranslated();
    void callsCanBeChained();

    void callbackInTheProducersThreadIsCalledDirectly();
    void callbacksRunInTheThreadThatRegisteredThem();
    void directCallOvertakesQueuedOnes();
    void oneSignalDrainsManyCalls();
    void queuedCallsOutliveTheLastHandle();
    void callbackMayDropTheLastHandle();
    void callbackMayRunAnEventLoop();
    void endCallbackMayHoldItsOwnStream();
    void callbacksGoWithTheLastHandle();
    void callbackOfAForeignThreadGoesInItsOwnThread();
    void callsForAThreadThatIsGoneAreDropped();
    void bufferStaysAheadOfChunksThatComeMeanwhile();
    void manyProducersReachAllConsumersInOrder();
    void endsRacingEachOtherReachEachConsumerOnce();
    void handlesDroppedWhileCallsAreOnTheirWay();
};

void tst_CMDataTransfer::metaTypesAreRegisteredInOrder()
{
    orvoRegisterMetaTypes();
    const char* const names[] = {"CMRequest",        "CMGetDataRequest",
                                 "CMGetRowsRequest", "CMMatchRowRequest",
                                 "CMSetDataRequest", "CMBufferedDataTransfer",
                                 "CMVoidReply",      "CMUnbufferedDataTransfer",
                                 "CMError",          "QVariant",
                                 "OrvoUrl",          "CMPath",
                                 "CMPath::Params"};
    for (const char* name : names)
        QVERIFY2(QMetaType::type(name) != QMetaType::UnknownType, name);
    QCOMPARE(QMetaType::type("CMBufferedDataTransfer"), qMetaTypeId<CMBufferedDataTransfer>());
    QCOMPARE(QMetaType::type("CMUnbufferedDataTransfer"), qMetaTypeId<CMUnbufferedDataTransfer>());
    QVERIFY(QMetaType::type("CMSetDataRequest") < QMetaType::type("CMBufferedDataTransfer"));
    QVERIFY(QMetaType::type("CMBufferedDataTransfer") < QMetaType::type("CMUnbufferedDataTransfer"));
    QVERIFY(QMetaType::type("CMUnbufferedDataTransfer") < QMetaType::type("CMVoidReply"));
    QVERIFY(QMetaType::type("CMError") < QMetaType::type("OrvoUrl"));
    QVERIFY(QMetaType::type("OrvoUrl") < QMetaType::type("CMPath::Params"));

    const CMBufferedDataTransfer transfer;
    QVERIFY(QVariant::fromValue(transfer).value<CMBufferedDataTransfer>() == transfer);
}

void tst_CMDataTransfer::copiesAreOneStreamAndHashAlike()
{
    const CMBufferedDataTransfer a;
    const CMBufferedDataTransfer copy = a;
    const CMDataTransfer handle = a;
    const CMUnbufferedDataTransfer other;
    QVERIFY(a == copy);
    QVERIFY(!(a != copy));
    QVERIFY(a == handle);
    QVERIFY(!(a < handle) && !(handle < a));
    QCOMPARE(qHash(a), qHash(copy));
    QCOMPARE(qHash(a), qHash(handle));
    QVERIFY(a != other);
    QVERIFY(a != CMBufferedDataTransfer());
    QVERIFY((a < other) != (other < a));
    QVERIFY(qHash(a) != qHash(other));
    const QSet<CMDataTransfer> set{a, copy, handle, other};
    QCOMPARE(set.size(), 2);

    copy.finish(someError);
    QVERIFY(a.isFinished());
    QVERIFY(!other.isFinished());

    CMDataTransfer assigned = other;
    assigned = a;
    QVERIFY(assigned == a);
}

void tst_CMDataTransfer::theHandleServesAStreamOfItsOwnKind()
{
    /// Counts the bytes and hands nothing on.
    class Counting : public CMDataTransferPrivateBase
    {
    public:
        explicit Counting(int& count) : m_count(count) {}
        void dataAvailable(const QByteArray& chunk) override { m_count += chunk.size(); }
        void onDataAvailable(DataFunction) override {}

    private:
        int& m_count;
    };
    int count = 0;
    Log log;
    const CMDataTransfer transfer(new Counting(count));
    transfer.onDataAvailable(log.data()).onFinished(log.end());
    transfer.dataAvailable("four");
    transfer.finish(someError);
    QCOMPARE(count, 4);
    QVERIFY(log.chunks.isEmpty());
    QCOMPARE(log.ends, QList<CMError>{someError});
}

void tst_CMDataTransfer::bufferedChunksBeforeTheConsumerArriveAsOne()
{
    const CMBufferedDataTransfer transfer;
    Log log;
    transfer.dataAvailable("one ");
    inAnotherThread([&] { transfer.dataAvailable("two "); });
    transfer.dataAvailable("three");
    transfer.onDataAvailable(log.data());
    QCOMPARE(log.chunks, QList<QByteArray>{"one two three"});
    QVERIFY(!transfer.isFinished());
}

void tst_CMDataTransfer::bufferedChunksSurviveTheEnd()
{
    const CMBufferedDataTransfer transfer;
    Log log;
    transfer.dataAvailable("one ");
    transfer.dataAvailable("two");
    transfer.finish(CMError());
    transfer.dataAvailable("too late");
    transfer.onDataAvailable(log.data());
    QCOMPARE(log.chunks, QList<QByteArray>{"one two"});
}

void tst_CMDataTransfer::bufferedConsumerWithoutOldChunksIsNotCalled()
{
    const CMBufferedDataTransfer transfer;
    Log log;
    transfer.dataAvailable(QByteArray());
    transfer.onDataAvailable(log.data());
    QVERIFY(log.chunks.isEmpty());
}

void tst_CMDataTransfer::bufferedChunksAfterTheBufferArriveOneByOne()
{
    const CMBufferedDataTransfer transfer;
    Log log;
    transfer.dataAvailable("one");
    transfer.onDataAvailable(log.data());
    transfer.dataAvailable("two");
    transfer.dataAvailable(QByteArray());
    transfer.dataAvailable("three");
    QCOMPARE(log.chunks, (QList<QByteArray>{"one", "two", QByteArray(), "three"}));
}

void tst_CMDataTransfer::secondConsumerOfABufferedTransferIsIgnored()
{
    const CMBufferedDataTransfer transfer;
    Log first;
    Log second;
    transfer.dataAvailable("one");
    transfer.onDataAvailable(first.data());
    transfer.onDataAvailable(second.data());
    transfer.dataAvailable("two");
    transfer.finish(CMError());
    transfer.onDataAvailable(second.data());
    QCOMPARE(first.chunks, (QList<QByteArray>{"one", "two"}));
    QVERIFY(second.chunks.isEmpty());
}

void tst_CMDataTransfer::unbufferedChunksWithoutAConsumerVanish()
{
    const CMUnbufferedDataTransfer transfer;
    Log log;
    transfer.dataAvailable("one");
    transfer.onDataAvailable(log.data());
    QVERIFY(log.chunks.isEmpty());
    transfer.dataAvailable("two");
    QCOMPARE(log.chunks, QList<QByteArray>{"two"});
}

void tst_CMDataTransfer::unbufferedChunksGoToAllInOrderOfRegistration()
{
    const CMUnbufferedDataTransfer transfer;
    QByteArrayList calls;
    transfer.onDataAvailable([&](const QByteArray& chunk) { calls.append("a:" + chunk); });
    transfer.onDataAvailable([&](const QByteArray& chunk) { calls.append("b:" + chunk); });
    transfer.dataAvailable("1");
    transfer.onDataAvailable([&](const QByteArray& chunk) { calls.append("c:" + chunk); });
    transfer.dataAvailable("2");
    QCOMPARE(calls, (QByteArrayList{"a:1", "b:1", "a:2", "b:2", "c:2"}));
}

void tst_CMDataTransfer::unbufferedConsumerAfterTheEndIsDropped()
{
    const CMUnbufferedDataTransfer transfer;
    transfer.finish(CMError());
    auto token = std::make_shared<int>();
    transfer.onDataAvailable([token](const QByteArray&) {});
    QCOMPARE(token.use_count(), 1L);
}

void tst_CMDataTransfer::consumerAddedDuringAChunkGetsOnlyTheNext()
{
    const CMUnbufferedDataTransfer transfer;
    Log late;
    bool added = false;
    const CMDataTransfer* const stream = &transfer;
    transfer.onDataAvailable([&, stream](const QByteArray&) {
        if (!added)
            stream->onDataAvailable(late.data());
        added = true;
    });
    transfer.dataAvailable("one");
    transfer.dataAvailable("two");
    QCOMPARE(late.chunks, QList<QByteArray>{"two"});
}

void tst_CMDataTransfer::chunksAfterTheEndAreDropped_data()
{
    QTest::addColumn<bool>("buffered");
    QTest::newRow("buffered") << true;
    QTest::newRow("unbuffered") << false;
}

void tst_CMDataTransfer::chunksAfterTheEndAreDropped()
{
    QFETCH(bool, buffered);
    const CMDataTransfer transfer = buffered ? CMDataTransfer(CMBufferedDataTransfer()) : CMUnbufferedDataTransfer();
    Log log;
    transfer.onDataAvailable(log.data());
    transfer.dataAvailable("one");
    transfer.finish(CMError());
    transfer.dataAvailable("two");
    QCOMPARE(log.chunks, QList<QByteArray>{"one"});
}

void tst_CMDataTransfer::onlyTheFirstEndCounts()
{
    const CMBufferedDataTransfer transfer;
    Log log;
    transfer.onFinished(log.end());
    QVERIFY(!transfer.isFinished());
    transfer.finish(someError);
    QVERIFY(transfer.isFinished());
    transfer.finish(otherError);
    QVERIFY(transfer.isFinished());
    QCOMPARE(log.ends, QList<CMError>{someError});
    transfer.onFinished(log.end());
    QCOMPARE(log.ends, (QList<CMError>{someError, someError}));
}

void tst_CMDataTransfer::endWithoutErrorIsNoFailure()
{
    const CMUnbufferedDataTransfer transfer;
    Log log;
    transfer.onFinished(log.end());
    transfer.finish(CMError());
    QCOMPARE(log.ends.size(), 1);
    QVERIFY(!log.ends.first().isError());
}

void tst_CMDataTransfer::allConsumersHearTheEndOnce()
{
    const CMUnbufferedDataTransfer transfer;
    QByteArrayList calls;
    transfer.onFinished([&](const CMError& error) { calls.append("a:" + error.name().toUtf8()); });
    transfer.onFinished([&](const CMError& error) { calls.append("b:" + error.name().toUtf8()); });
    transfer.finish(someError);
    QCOMPARE(calls, (QByteArrayList{"a:broken", "b:broken"}));
}

void tst_CMDataTransfer::lateConsumerHearsTheEndAtOnceInItsThread()
{
    const CMBufferedDataTransfer transfer;
    inAnotherThread([&] { transfer.finish(someError); });
    Log log;
    transfer.onFinished(log.end());
    QCOMPARE(log.ends, QList<CMError>{someError});
    QCOMPARE(log.threads, QSet<QThread*>{QThread::currentThread()});

    // No event loop is needed for that.
    std::atomic<bool> called{false};
    bool sameThread = false;
    inAnotherThread([&] {
        QThread* const caller = QThread::currentThread();
        transfer.onFinished([&](const CMError&) {
            sameThread = QThread::currentThread() == caller;
            called = true;
        });
        QVERIFY(called);
    });
    QVERIFY(sameThread);
}

void tst_CMDataTransfer::emptyFunctionThrowsWhenItIsCalled()
{
    const CMBufferedDataTransfer ended;
    ended.finish(CMError());
    QVERIFY_EXCEPTION_THROWN(ended.onFinished(nullptr), std::bad_function_call);

    const CMBufferedDataTransfer running;
    running.onFinished(nullptr);
    QVERIFY_EXCEPTION_THROWN(running.finish(CMError()), std::bad_function_call);
    QVERIFY(running.isFinished());
}

void tst_CMDataTransfer::cancelReachesTheConsumersWithItsName()
{
    QCOMPARE(CMDataTransfer::ErrorCancel(), QStringLiteral("cancel"));
    const CMBufferedDataTransfer transfer;
    Log log;
    transfer.onFinished(log.end());
    transfer.cancel();
    QVERIFY(transfer.isFinished());
    QCOMPARE(log.ends.size(), 1);
    QVERIFY(log.ends.first().isError());
    QCOMPARE(log.ends.first().name(), QStringLiteral("cancel"));
    QCOMPARE(log.ends.first().message(), QStringLiteral("Request was canceled"));
    QCOMPARE(log.ends.first().title(), QStringLiteral("Error"));
}

void tst_CMDataTransfer::cancelAfterTheEndChangesNothing()
{
    const CMUnbufferedDataTransfer transfer;
    Log log;
    transfer.finish(someError);
    transfer.cancel();
    transfer.onFinished(log.end());
    QCOMPARE(log.ends, QList<CMError>{someError});
}

void tst_CMDataTransfer::cancelIsTranslated()
{
    const ReversingTranslator translator;
    const CMBufferedDataTransfer transfer;
    Log log;
    transfer.onFinished(log.end());
    transfer.cancel();
    QCOMPARE(log.ends.size(), 1);
    QCOMPARE(log.ends.first().name(), QStringLiteral("cancel"));
    QCOMPARE(log.ends.first().message(), QStringLiteral("CMDataTransfer/Request was canceled"));
    QCOMPARE(log.ends.first().title(), QStringLiteral("CMDataTransfer/Error"));
}

void tst_CMDataTransfer::callsCanBeChained()
{
    Log log;
    const CMDataTransfer transfer = CMUnbufferedDataTransfer().onDataAvailable(log.data()).onFinished(log.end());
    transfer.dataAvailable("one");
    transfer.finish(someError);
    QCOMPARE(log.chunks.size(), 1);
    QCOMPARE(log.ends.size(), 1);
}

void tst_CMDataTransfer::callbackInTheProducersThreadIsCalledDirectly()
{
    inAnotherThread([] {
        const CMBufferedDataTransfer transfer;
        Log log;
        transfer.onDataAvailable(log.data()).onFinished(log.end());
        transfer.dataAvailable("one");
        QCOMPARE(log.chunks, QList<QByteArray>{"one"});
        transfer.finish(someError);
        QCOMPARE(log.ends, QList<CMError>{someError});
        QCOMPARE(log.threads, QSet<QThread*>{QThread::currentThread()});
    });
}

void tst_CMDataTransfer::callbacksRunInTheThreadThatRegisteredThem()
{
    const CMUnbufferedDataTransfer transfer;
    Log here;
    Log there;
    LoopThread thread;
    transfer.onDataAvailable(here.data()).onFinished(here.end());
    thread.run([&] { transfer.onDataAvailable(there.data()).onFinished(there.end()); });

    inAnotherThread([&] {
        transfer.dataAvailable("one");
        transfer.dataAvailable("two");
        transfer.finish(someError);
    });
    QVERIFY(here.chunks.isEmpty());
    QTRY_COMPARE(here.ends, QList<CMError>{someError});
    QTRY_COMPARE(here.chunks, (QList<QByteArray>{"one", "two"}));
    QCOMPARE(here.threads, QSet<QThread*>{QThread::currentThread()});

    // What was queued there before this call has run by then.
    thread.run([] {});
    QCOMPARE(there.chunks, (QList<QByteArray>{"one", "two"}));
    QCOMPARE(there.ends, QList<CMError>{someError});
    QCOMPARE(there.threads, QSet<QThread*>{thread.thread()});
}

void tst_CMDataTransfer::directCallOvertakesQueuedOnes()
{
    const CMUnbufferedDataTransfer transfer;
    Log log;
    transfer.onDataAvailable(log.data());
    inAnotherThread([&] { transfer.dataAvailable("queued"); });
    transfer.dataAvailable("direct");
    QCOMPARE(log.chunks, QList<QByteArray>{"direct"});
    QTRY_COMPARE(log.chunks, (QList<QByteArray>{"direct", "queued"}));
}

void tst_CMDataTransfer::oneSignalDrainsManyCalls()
{
    struct Counter : SynchronizationObserver
    {
        void synchronized() override { ++count; }
        int count = 0;
    };
    auto* const counter = new Counter;
    const std::unique_ptr<QtSynchronizer> synchronizer(new QtSynchronizer(counter));
    inAnotherThread([&] { emit synchronizer->synchronizeSignal(); });
    QCOMPARE(counter->count, 0);
    QTRY_COMPARE(counter->count, 1);

    const CMUnbufferedDataTransfer transfer;
    int inOneTurn = 0;
    transfer.onDataAvailable([&](const QByteArray&) { ++inOneTurn; });
    inAnotherThread([&] {
        for (int i = 0; i < 1000; ++i)
            transfer.dataAvailable("x");
    });
    QCOMPARE(inOneTurn, 0);
    QCoreApplication::sendPostedEvents();
    QCOMPARE(inOneTurn, 1000);
}

void tst_CMDataTransfer::queuedCallsOutliveTheLastHandle()
{
    Log log;
    auto token = std::make_shared<int>();
    {
        const CMUnbufferedDataTransfer transfer;
        transfer.onDataAvailable([&log, token](const QByteArray& chunk) { log.chunks.append(chunk); });
        transfer.onFinished([&log, token](const CMError& error) { log.ends.append(error); });
        inAnotherThread([&] {
            transfer.dataAvailable("one");
            transfer.dataAvailable("two");
            transfer.finish(someError);
        });
    }
    QVERIFY(log.chunks.isEmpty());
    QTRY_COMPARE(log.chunks, (QList<QByteArray>{"one", "two"}));
    QTRY_COMPARE(log.ends, QList<CMError>{someError});
    QTRY_COMPARE(token.use_count(), 1L);
}

void tst_CMDataTransfer::callbackMayDropTheLastHandle()
{
    for (const bool buffered : {true, false}) {
        Log log;
        auto transfer = std::make_unique<CMDataTransfer>(buffered ? CMDataTransfer(CMBufferedDataTransfer())
                                                                  : CMUnbufferedDataTransfer());
        const CMDataTransfer* const stream = transfer.get();
        stream->onDataAvailable([&](const QByteArray& chunk) {
            transfer.reset();
            log.chunks.append(chunk);
        });
        stream->dataAvailable("one");
        QCOMPARE(log.chunks, QList<QByteArray>{"one"});
        QVERIFY(!transfer);

        transfer = std::make_unique<CMDataTransfer>(CMUnbufferedDataTransfer());
        transfer->onFinished([&](const CMError& error) {
            transfer.reset();
            log.ends.append(error);
        });
        transfer->finish(someError);
        QCOMPARE(log.ends, QList<CMError>{someError});
        QVERIFY(!transfer);
    }

    // The same by the event loop, where the synchronizer goes in the midst of its own slot.
    auto transfer = std::make_unique<CMDataTransfer>(CMUnbufferedDataTransfer());
    Log log;
    transfer->onDataAvailable([&](const QByteArray& chunk) {
        transfer.reset();
        log.chunks.append(chunk);
    });
    inAnotherThread([&] { transfer->dataAvailable("one"); });
    QTRY_COMPARE(log.chunks, QList<QByteArray>{"one"});
    QVERIFY(!transfer);
}

void tst_CMDataTransfer::callbackMayRunAnEventLoop()
{
    const CMUnbufferedDataTransfer transfer;
    QByteArrayList calls;
    transfer.onDataAvailable([&](const QByteArray& chunk) {
        calls.append(chunk);
        if (chunk == "one") {
            inAnotherThread([&] { transfer.dataAvailable("nested"); });
            QCoreApplication::processEvents();
            calls.append("end of one");
        }
    });
    inAnotherThread([&] { transfer.dataAvailable("one"); });
    QTRY_COMPARE(calls, (QByteArrayList{"one", "nested", "end of one"}));
}

void tst_CMDataTransfer::endCallbackMayHoldItsOwnStream()
{
    auto token = std::make_shared<int>();
    {
        const CMBufferedDataTransfer transfer;
        transfer.onFinished([transfer, token](const CMError&) { QVERIFY(transfer.isFinished()); });
        transfer.finish(CMError());
    }
    QCOMPARE(token.use_count(), 1L);
}

void tst_CMDataTransfer::callbacksGoWithTheLastHandle()
{
    for (const bool buffered : {true, false}) {
        auto token = std::make_shared<int>();
        auto transfer = std::make_unique<CMDataTransfer>(buffered ? CMDataTransfer(CMBufferedDataTransfer())
                                                                  : CMUnbufferedDataTransfer());
        transfer->onDataAvailable([token](const QByteArray&) {});
        transfer->onFinished([token](const CMError&) {});
        auto copy = std::make_unique<CMDataTransfer>(*transfer);
        transfer.reset();
        QCOMPARE(token.use_count(), 3L);
        copy.reset();
        QCOMPARE(token.use_count(), 1L);
    }
}

void tst_CMDataTransfer::callbackOfAForeignThreadGoesInItsOwnThread()
{
    struct Token
    {
        explicit Token(std::atomic<QThread*>& thread) : thread(thread) {}
        ~Token() { thread = QThread::currentThread(); }
        std::atomic<QThread*>& thread;
    };
    std::atomic<QThread*> goneIn{nullptr};
    LoopThread thread;
    {
        const CMUnbufferedDataTransfer transfer;
        thread.run([&] {
            auto token = std::make_shared<Token>(goneIn);
            transfer.onDataAvailable([token](const QByteArray&) {});
        });
        QVERIFY(!goneIn);
    }
    QTRY_COMPARE(goneIn.load(), thread.thread());
}

void tst_CMDataTransfer::callsForAThreadThatIsGoneAreDropped()
{
    auto token = std::make_shared<int>();
    int calls = 0;
    {
        const CMUnbufferedDataTransfer transfer;
        inAnotherThread([&] {
            transfer.onDataAvailable([token, &calls](const QByteArray&) { ++calls; });
            transfer.onFinished([token, &calls](const CMError&) { ++calls; });
        });
        transfer.dataAvailable("one");
        transfer.finish(CMError());
    }
    QCOMPARE(token.use_count(), 1L);
    QCOMPARE(calls, 0);
}

void tst_CMDataTransfer::bufferStaysAheadOfChunksThatComeMeanwhile()
{
    for (int round = 0; round < 200; ++round) {
        const CMBufferedDataTransfer transfer;
        QByteArray received;
        constexpr int total = 50;
        QSemaphore started;
        std::thread producer([&] {
            for (int i = 0; i < total; ++i) {
                transfer.dataAvailable(QByteArray(1, char(i)));
                if (i == round % 10)
                    started.release();
            }
            transfer.finish(CMError());
        });
        started.acquire();
        transfer.onDataAvailable([&](const QByteArray& chunk) { received.append(chunk); });
        producer.join();
        QTRY_COMPARE(received.size(), total);
        for (int i = 0; i < total; ++i)
            QCOMPARE(int(received.at(i)), i);
    }
}

void tst_CMDataTransfer::manyProducersReachAllConsumersInOrder()
{
    constexpr int producers = 3;
    constexpr int chunks = 500;
    const CMUnbufferedDataTransfer transfer;
    Log here;
    std::vector<Log> logs(2);
    LoopThread threads[2];
    transfer.onDataAvailable(here.data());
    for (int i = 0; i < 2; ++i)
        threads[i].run([&, i] { transfer.onDataAvailable(logs[i].data()).onFinished(logs[i].end()); });

    std::vector<std::thread> running;
    for (int p = 0; p < producers; ++p)
        running.emplace_back([&transfer, p] {
            for (int i = 0; i < chunks; ++i)
                transfer.dataAvailable(QByteArray::number(p) + ':' + QByteArray::number(i));
        });
    for (std::thread& thread : running)
        thread.join();
    transfer.finish(someError);
    QTRY_COMPARE(here.chunks.size(), producers * chunks);
    for (LoopThread& thread : threads)
        thread.run([] {});

    for (const Log* log : {&here, &logs[0], &logs[1]}) {
        QCOMPARE(log->chunks.size(), producers * chunks);
        int next[producers] = {};
        for (const QByteArray& chunk : log->chunks) {
            const int producer = chunk.left(1).toInt();
            QCOMPARE(chunk.mid(2).toInt(), next[producer]++);
        }
        QCOMPARE(log->threads.size(), 1);
    }
    QCOMPARE(logs[0].ends, QList<CMError>{someError});
    QCOMPARE(logs[1].ends, QList<CMError>{someError});
}

void tst_CMDataTransfer::endsRacingEachOtherReachEachConsumerOnce()
{
    for (int round = 0; round < 100; ++round) {
        const CMUnbufferedDataTransfer transfer;
        std::atomic<int> ends{0};
        int ownEnds = 0;
        transfer.onFinished([&](const CMError&) { ++ownEnds; });
        std::thread first([&] { transfer.finish(someError); });
        std::thread second([&] { transfer.cancel(); });
        std::thread consumer([&] {
            // Its own end is either told at once, or dropped with this thread, which has no event loop.
            transfer.onFinished([&](const CMError&) { ++ends; });
        });
        first.join();
        second.join();
        consumer.join();
        QVERIFY(ends <= 1);
        QTRY_COMPARE(ownEnds, 1);
        QCoreApplication::sendPostedEvents();
        QCOMPARE(ownEnds, 1);
    }
}

void tst_CMDataTransfer::handlesDroppedWhileCallsAreOnTheirWay()
{
    LoopThread consumer;
    std::atomic<int> arrived{0};
    constexpr int rounds = 300;
    constexpr int chunks = 5;
    for (int round = 0; round < rounds; ++round) {
        auto transfer = std::make_unique<CMDataTransfer>(CMUnbufferedDataTransfer());
        consumer.run([&] { transfer->onDataAvailable([&](const QByteArray&) { ++arrived; }); });
        // The last handle goes here, in the producer's thread, while the consumer's is in the midst of the calls.
        for (int i = 0; i < chunks; ++i)
            transfer->dataAvailable("x");
        transfer.reset();
    }
    QTRY_COMPARE(arrived.load(), rounds * chunks);
}

QTEST_GUILESS_MAIN(tst_CMDataTransfer)

#include "tst_cmdatatransfer.moc"
