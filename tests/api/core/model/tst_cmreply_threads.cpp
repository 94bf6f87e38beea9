#include "core/model/cmreply.h"

#include "core/model/cmmetatypes.h"
#include "core/model/cmreplywatcher.h"

#include <QSemaphore>
#include <QtTest>

#include <atomic>
#include <thread>
#include <vector>

namespace {

constexpr int threadCount = 8;

/// Runs the function in so many threads, which all start together.
template <typename Function>
void inThreads(int count, Function function)
{
    QSemaphore waiting;
    QSemaphore start;
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back([&, i] {
            waiting.release();
            start.acquire();
            function(i);
        });
    waiting.acquire(count);
    start.release(count);
    for (std::thread& thread : threads)
        thread.join();
}

class CountingWatcher : public CMReplyWatcher
{
public:
    void finished(const CMVoidReply& reply) override
    {
        if (reply.isFinished())
            ++ends;
    }

    std::atomic<int> ends{0};
};

} // namespace

class tst_CMReplyThreads : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { orvoRegisterMetaTypes(); }

    void ofManyFinishersExactlyOneWins()
    {
        for (int round = 0; round < 100; ++round) {
            const CMReply<int> reply;
            CountingWatcher watcher;
            reply.addWatcher(&watcher);
            std::atomic<int> seenValues[threadCount] = {};
            inThreads(threadCount, [&](int i) {
                if (i % 3 == 0)
                    reply.setError(CMError(QString("error%1").arg(i), "message", "title"));
                else if (i % 3 == 1)
                    reply.setValue(i);
                else
                    reply.cancel();
                // Whoever won, all see the same.
                seenValues[i] = reply.error().isError() ? -1 : reply.value();
            });
            QCOMPARE(watcher.ends.load(), 1);
            for (const std::atomic<int>& seen : seenValues)
                QCOMPARE(seen.load(), seenValues[0].load());
            QVERIFY(reply.error().isError() ? reply.value() == 0 : reply.value() % 3 == 1);
        }
    }

    void allWaitersWake()
    {
        for (int round = 0; round < 50; ++round) {
            const CMReply<QVariant> reply;
            std::atomic<int> woken{0};
            inThreads(threadCount, [&](int i) {
                if (i == 0)
                    reply.setValue("value");
                else if (reply.waitForFinished() && reply.value() == QVariant("value"))
                    ++woken;
            });
            QCOMPARE(woken.load(), threadCount - 1);
        }
    }

    void watchersAddedDuringTheFinishAreToldOnce()
    {
        for (int round = 0; round < 100; ++round) {
            const CMReply<int> reply;
            constexpr int each = 20;
            CountingWatcher watchers[threadCount][each];
            inThreads(threadCount, [&](int i) {
                for (CountingWatcher& watcher : watchers[i]) {
                    reply.addWatcher(&watcher);
                    if (i == 0 && &watcher == &watchers[i][each / 2])
                        reply.setValue(round);
                }
            });
            for (const auto& row : watchers)
                for (const CountingWatcher& watcher : row)
                    QCOMPARE(watcher.ends.load(), 1);
        }
    }

    void watchersRemovedAheadOfTheFinishAreNotTold()
    {
        const CMReply<int> reply;
        constexpr int each = 50;
        CountingWatcher removed[threadCount][each];
        CountingWatcher kept[threadCount][each];
        inThreads(threadCount, [&](int i) {
            for (int j = 0; j < each; ++j) {
                reply.addWatcher(&removed[i][j]);
                reply.addWatcher(&kept[i][j]);
                reply.removeWatcher(&removed[i][j]);
            }
        });
        reply.setValue(1);
        for (int i = 0; i < threadCount; ++i)
            for (int j = 0; j < each; ++j) {
                QCOMPARE(removed[i][j].ends.load(), 0);
                QCOMPARE(kept[i][j].ends.load(), 1);
            }
    }

    void theLastHandleMayGoInAnyThread()
    {
        for (int round = 0; round < 100; ++round) {
            std::vector<CMReply<QVariantList>> handles(threadCount);
            for (CMReply<QVariantList>& handle : handles)
                handle = handles.front();
            CountingWatcher watcher;
            handles.front().addWatcher(&watcher);
            inThreads(threadCount, [&](int i) {
                if (i == 0)
                    handles[0].setValue({1, 2, 3});
                else
                    handles[i].waitForFinished();
                handles[i] = CMReply<QVariantList>();
            });
            QCOMPARE(watcher.ends.load(), 1);
        }
    }

    void functionsRunInTheThreadsThatRegisteredThem()
    {
        constexpr int replyCount = 200;
        std::vector<CMReply<int>> replies(replyCount);
        std::atomic<int> elsewhere{0};
        std::atomic<int> sum{0};
        QSemaphore registered;
        std::vector<std::unique_ptr<QThread>> registrars;
        for (int i = 0; i < 4; ++i) {
            registrars.emplace_back(QThread::create([&] {
                QEventLoop loop;
                QThread* const here = QThread::currentThread();
                int left = replyCount;
                for (const CMReply<int>& reply : replies)
                    reply.onSuccess(
                        [&, here](int value) {
                            if (QThread::currentThread() != here)
                                ++elsewhere;
                            sum += value;
                            if (--left == 0)
                                loop.quit();
                        },
                        Qt::QueuedConnection);
                registered.release();
                loop.exec();
            }));
            registrars.back()->start();
        }
        inThreads(4, [&](int i) {
            for (int j = i; j < replyCount; j += 4)
                replies[size_t(j)].setValue(1);
        });
        for (const auto& thread : registrars)
            QVERIFY(thread->wait());
        QCOMPARE(sum.load(), 4 * replyCount);
        QCOMPARE(elsewhere.load(), 0);
    }

    void anOrderedFinishIsSeenWholeByTheWaiter()
    {
        // What the producer wrote ahead of the finish is there for whoever waited.
        for (int round = 0; round < 200; ++round) {
            const CMReply<void> reply;
            int payload = 0;
            std::thread producer([&] {
                payload = round + 1;
                reply.setValue();
            });
            reply.waitForFinished();
            QCOMPARE(payload, round + 1);
            producer.join();
        }
    }
};

QTEST_GUILESS_MAIN(tst_CMReplyThreads)

#include "tst_cmreply_threads.moc"
