#include "core/model/cmsubscribe.h"

#include "core/model/cmmetatypes.h"

#include <QtTest>

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <log4cplus/logger.h>

namespace {

CMPath path(const QString& encoded)
{
    return CMPath::fromEncoded(encoded);
}

/// A hub in a thread of its own.
class HubThread
{
public:
    explicit HubThread(bool mergeEvents) : m_hub(new CMSubscribe("hub", nullptr, mergeEvents))
    {
        m_hub->moveToThread(&m_thread);
        m_thread.start();
    }
    ~HubThread()
    {
        m_hub->deleteLater();
        m_thread.quit();
        m_thread.wait();
    }
    CMSubscribe* operator->() const { return m_hub; }
    CMSubscribe* hub() const { return m_hub; }
    /// Returns when the hub's thread has run what was posted before.
    void pass()
    {
        QMetaObject::invokeMethod(
            m_hub,
            [this] {
                m_hub->deliver();
                const std::lock_guard<std::mutex> seen(m_seen);
            },
            Qt::BlockingQueuedConnection);
        const std::lock_guard<std::mutex> seen(m_seen);
    }

private:
    QThread m_thread;
    CMSubscribe* const m_hub;
    /// An order of the threads that a race checker sees; it does not see that of Qt.
    std::mutex m_seen;
};

} // namespace

/// Keeps what comes. Read it when nothing can come any more.
class Receiver : public QObject
{
    Q_OBJECT
public:
    QStringList changes;
    QList<QPair<int, int>> versions;
    QVariant lastValue;
    std::atomic<int> heard{0};

public slots:
    void rows(const CMPath&, const QStringList& strings, int version, int oldVersion)
    {
        changes += strings;
        versions.append(qMakePair(oldVersion, version));
        ++heard;
    }
    void value(const CMPath&, const QVariant& value)
    {
        lastValue = value;
        ++heard;
    }
    void data(const CMPath&) { ++heard; }
};

#define VALUE SLOT(value(CMPath,QVariant))
#define DATA SLOT(data(CMPath))
#define ROWS SLOT(rows(CMPath,QStringList,int,int))

class tst_CMSubscribeThreads : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        orvoRegisterMetaTypes();
        log4cplus::Logger::getInstance("CMChange").setLogLevel(log4cplus::ERROR_LOG_LEVEL);
    }

    void rowChangesOfManyThreadsAreNeitherLostNorDoubled_data()
    {
        QTest::addColumn<bool>("merging");
        QTest::newRow("merging") << true;
        QTest::newRow("not merging") << false;
    }

    void rowChangesOfManyThreadsAreNeitherLostNorDoubled()
    {
        QFETCH(bool, merging);
        constexpr int threads = 6;
        constexpr int reports = 500;
        HubThread hub(merging);
        Receiver receiver;
        const CMPath list = path("ui:list");
        hub->connectRowsChange(list, &receiver, ROWS, Qt::DirectConnection);
        std::vector<std::thread> reporters;
        for (int i = 0; i < threads; ++i)
            reporters.emplace_back([&, i] {
                for (int j = 0; j < reports; ++j)
                    hub->rowsChanged(list, QString("%1 %2").arg(i).arg(j));
            });
        for (std::thread& reporter : reporters)
            reporter.join();
        QCOMPARE(hub->rowsVersion(list), threads * reports);
        hub.pass();

        QCOMPARE(receiver.changes.size(), threads * reports);
        QVector<int> next(threads, 0);
        for (const QString& change : qAsConst(receiver.changes)) {
            const int thread = change.section(' ', 0, 0).toInt();
            QCOMPARE(change.section(' ', 1).toInt(), next[thread]++);
        }
        // The deliveries join without a gap.
        int version = 0;
        for (const auto& step : qAsConst(receiver.versions)) {
            QCOMPARE(step.first, version);
            QVERIFY(step.second > step.first);
            version = step.second;
        }
        QCOMPARE(version, threads * reports);
    }

    void theLastValueOfEachPathArrives()
    {
        constexpr int paths = 20;
        constexpr int last = 300;
        HubThread hub(true);
        std::vector<Receiver> receivers(paths);
        for (int i = 0; i < paths; ++i)
            hub->connectValueChange(path(QString("ui:%1").arg(i)), &receivers[size_t(i)], VALUE, Qt::DirectConnection);
        std::vector<std::thread> reporters;
        for (int t = 0; t < 4; ++t)
            reporters.emplace_back([&, t] {
                for (int value = 1; value <= last; ++value)
                    for (int i = t; i < paths; i += 4)
                        hub->valueChanged(path(QString("ui:%1").arg(i)), value);
            });
        for (std::thread& reporter : reporters)
            reporter.join();
        hub.pass();
        for (const Receiver& receiver : receivers) {
            QCOMPARE(receiver.lastValue, QVariant(last));
            QVERIFY(receiver.heard <= last);
        }
    }

    void aDataReportIsAlwaysFollowedByADelivery()
    {
        HubThread hub(false);
        Receiver receiver;
        hub->connectDataChange(path("ui:a"), &receiver, DATA, Qt::DirectConnection);
        for (int i = 0; i < 300; ++i) {
            const int before = receiver.heard;
            hub->dataChanged(path("ui:a"));
            while (receiver.heard == before)
                std::this_thread::yield();
        }
        hub.pass();
        QVERIFY(receiver.heard >= 300);
    }

    void subscribersComeAndGoWhileOthersReport()
    {
        constexpr int rounds = 100;
        HubThread hub(true);
        std::atomic<int> added{0};
        std::atomic<int> removed{0};
        connect(
            hub.hub(), &CMSubscribe::valuePathAdded, hub.hub(), [&] { ++added; }, Qt::DirectConnection);
        connect(
            hub.hub(), &CMSubscribe::valuePathRemoved, hub.hub(), [&] { ++removed; }, Qt::DirectConnection);
        std::atomic<bool> stop{false};
        std::thread reporter([&] {
            for (int i = 0; !stop; ++i) {
                hub->valueChanged(path(QString("ui:%1").arg(i % 4)), i);
                hub->changedStartingWith(path("ui:"));
                hub->valuePathsStartingWith(path("ui:"));
            }
        });
        std::vector<std::unique_ptr<QThread>> subscribers;
        for (int t = 0; t < 4; ++t) {
            subscribers.emplace_back(QThread::create([&, t] {
                // A path of its own for each thread, so that each subscriber is first and last.
                const CMPath own = path(QString("ui:%1").arg(t));
                for (int i = 0; i < rounds; ++i) {
                    Receiver receiver;
                    hub->connectValueChange(own, &receiver, VALUE);
                    hub->connectRowsChange(own, &receiver, ROWS);
                    QCoreApplication::processEvents();
                    hub->disconnectRowsChange(own, &receiver, ROWS);
                    hub->disconnectValueChange(own, &receiver, VALUE);
                }
            }));
            subscribers.back()->start();
        }
        for (const auto& subscriber : subscribers)
            QVERIFY(subscriber->wait());
        stop = true;
        reporter.join();
        hub.pass();
        QCOMPARE(added.load(), 4 * rounds);
        QCOMPARE(removed.load(), 4 * rounds);
        QCOMPARE(hub->valuePathsStartingWith(path("ui:")), QList<CMPath>());
        QCOMPARE(hub->rowsPathsStartingWith(path("ui:")), QList<CMPath>());
    }

    void receiversDieInTheirThreadsWhileOthersReport()
    {
        constexpr int rounds = 100;
        HubThread hub(false);
        std::atomic<bool> stop{false};
        std::thread reporter([&] {
            for (int i = 0; !stop; ++i) {
                hub->valueChanged(path("ui:a"), i);
                hub->dataChanged(path("ui:a"));
            }
        });
        std::vector<std::unique_ptr<QThread>> subscribers;
        for (int t = 0; t < 4; ++t) {
            subscribers.emplace_back(QThread::create([&] {
                for (int i = 0; i < rounds; ++i) {
                    Receiver receiver;
                    hub->connectValueChange(path("ui:a"), &receiver, VALUE);
                    hub->connectDataChange(path("ui:a"), &receiver, DATA);
                    QCoreApplication::processEvents();
                }
            }));
            subscribers.back()->start();
        }
        for (const auto& subscriber : subscribers)
            QVERIFY(subscriber->wait());
        stop = true;
        reporter.join();
        hub.pass();
        hub.pass();
        QVERIFY(!hub->valuePath(path("ui:a")));
        QVERIFY(!hub->dataPath(path("ui:a")));
    }

    void aSharedPathIsKeptForWhoeverIsLeft()
    {
        constexpr int rounds = 200;
        HubThread hub(false);
        Receiver stays;
        hub->connectRowsChange(path("ui:a"), &stays, ROWS, Qt::DirectConnection);
        std::vector<std::unique_ptr<QThread>> subscribers;
        for (int t = 0; t < 4; ++t) {
            subscribers.emplace_back(QThread::create([&] {
                for (int i = 0; i < rounds; ++i) {
                    Receiver receiver;
                    hub->connectRowsChange(path("ui:a"), &receiver, ROWS);
                    hub->rowsChanged(path("ui:a"), "1");
                    hub->disconnectRowsChange(path("ui:a"), &receiver, ROWS);
                }
            }));
            subscribers.back()->start();
        }
        for (const auto& subscriber : subscribers)
            QVERIFY(subscriber->wait());
        hub.pass();
        QVERIFY(hub->rowsPath(path("ui:a")));
        QCOMPARE(hub->rowsVersion(path("ui:a")), 4 * rounds);
        QCOMPARE(stays.changes.size(), 4 * rounds);
    }
};

QTEST_GUILESS_MAIN(tst_CMSubscribeThreads)

#include "tst_cmsubscribe_threads.moc"
