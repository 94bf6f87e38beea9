#include "core/orvoProfiler.h"

#include "logcapture.h"

#include <QtTest>

#include <atomic>
#include <thread>
#include <vector>

// The library's clock: what is set here, so that every offset is known.
static std::atomic<long long> s_microseconds{0};

extern "C" int gettimeofday(timeval* time, void*) noexcept
{
    time->tv_sec = s_microseconds / 1000000;
    time->tv_usec = s_microseconds % 1000000;
    return 0;
}

class tst_OrvoProfiler : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_log.reset(new LogCapture("Profiler"));
        s_microseconds = 1000000000;
    }

    void cleanup() { m_log.reset(); }

    void thereIsOneProfiler()
    {
        QVERIFY(Profiler::instance());
        QCOMPARE(Profiler::instance(), Profiler::instance());
    }

    void theFinalEventWritesAllEventsWithTheirOffsets()
    {
        Profiler* const profiler = Profiler::instance();
        QVERIFY(profiler->createWatcher("key", "drawn"));
        s_microseconds += 7000;
        profiler->event("key", "data", {});
        s_microseconds += 5000;
        profiler->event("key", "painted", {{"rows", 3}});
        QCOMPARE(lines(), QStringList{"INFO Watcher key started"});
        s_microseconds += 1230000;
        profiler->event("key", "drawn", {});
        QCOMPARE(lines(), (QStringList{"INFO Watcher key started", "TRACE Watcher key finished in 1242ms, 3 event(s)",
                                       "INFO key: data: 7; painted: 12; drawn: 1242;"}));
    }

    void eachTimeIsCutToMillisecondsByItself()
    {
        s_microseconds = 1000000999;
        Profiler::instance()->createWatcher("cut", "end");
        s_microseconds = 1000001000;
        Profiler::instance()->event("cut", "one", {});
        s_microseconds = 1000001999;
        Profiler::instance()->event("cut", "end", {});
        QCOMPARE(lines().last(), QString("INFO cut: one: 1; end: 1;"));
    }

    void aFinalEventAtOnceIsTheOnlyOne()
    {
        Profiler::instance()->createWatcher("quick", "end");
        Profiler::instance()->event("quick", "end", {});
        QCOMPARE(lines().mid(1),
                 (QStringList{"TRACE Watcher quick finished in 0ms, 1 event(s)", "INFO quick: end: 0;"}));
    }

    void aSecondWatcherOfANameLeavesTheFirstAlone()
    {
        QVERIFY(Profiler::instance()->createWatcher("twice", "end"));
        s_microseconds += 20000;
        QVERIFY(!Profiler::instance()->createWatcher("twice", "otherEnd"));
        QCOMPARE(lines(), (QStringList{"INFO Watcher twice started", "INFO Watcher twice already created"}));
        s_microseconds += 1000;
        Profiler::instance()->event("twice", "otherEnd", {});
        Profiler::instance()->event("twice", "end", {});
        QCOMPARE(lines().last(), QString("INFO twice: otherEnd: 21; end: 21;"));
    }

    void anEventWithoutItsWatcherIsDropped()
    {
        Profiler::instance()->event("late", "early", {});
        QCOMPARE(lines(), QStringList{"TRACE Watcher late does not exist"});
        Profiler::instance()->createWatcher("late", "end");
        Profiler::instance()->event("late", "end", {});
        QCOMPARE(lines().last(), QString("INFO late: end: 0;"));
    }

    void eventsOfOneNameAreAllKept()
    {
        Profiler::instance()->createWatcher("many", "end");
        for (int i = 0; i < 3; ++i) {
            s_microseconds += 1000;
            Profiler::instance()->event("many", "tick", {});
        }
        Profiler::instance()->event("many", "end", {});
        QCOMPARE(lines().last(), QString("INFO many: tick: 1; tick: 2; tick: 3; end: 3;"));
    }

    void theFirstFinalEventEndsTheWatcherAndFreesItsName()
    {
        Profiler::instance()->createWatcher("again", "end");
        Profiler::instance()->event("again", "end", {});
        Profiler::instance()->event("again", "end", {});
        QCOMPARE(lines().last(), QString("TRACE Watcher again does not exist"));
        QVERIFY(Profiler::instance()->createWatcher("again", "other"));
        Profiler::instance()->event("again", "other", {});
        QCOMPARE(lines().last(), QString("INFO again: other: 0;"));
    }

    void watchersDoNotSeeEachOthersEvents()
    {
        Profiler::instance()->createWatcher("one", "end");
        Profiler::instance()->createWatcher("two", "end");
        Profiler::instance()->event("one", "mine", {});
        Profiler::instance()->event("two", "end", {});
        QCOMPARE(lines().last(), QString("INFO two: end: 0;"));
        Profiler::instance()->event("one", "end", {});
        QCOMPARE(lines().last(), QString("INFO one: mine: 0; end: 0;"));
    }

    void aClockThatWasSetBackGivesNegativeOffsets()
    {
        Profiler::instance()->createWatcher("back", "end");
        s_microseconds -= 5000;
        Profiler::instance()->event("back", "end", {});
        QCOMPARE(lines().last(), QString("INFO back: end: -5;"));
    }

    void eventsOfSeveralThreadsAreAllCounted()
    {
        constexpr int Threads = 4;
        constexpr int Events = 500;
        Profiler::instance()->createWatcher("threads", "end");
        std::vector<std::thread> threads;
        for (int i = 0; i < Threads; ++i)
            threads.emplace_back([] {
                for (int event = 0; event < Events; ++event)
                    Profiler::instance()->event("threads", "e", {});
            });
        for (std::thread& thread : threads)
            thread.join();
        Profiler::instance()->event("threads", "end", {});
        const QStringList written = lines();
        QCOMPARE(written.at(1),
                 QString("TRACE Watcher threads finished in 0ms, %1 event(s)").arg(Threads * Events + 1));
        QCOMPARE(written.last().count(" e: 0;"), Threads * Events);
    }

    void theNamesOfTheUserInterface()
    {
        QCOMPARE(Profiler::UIResponseWatcher(), QString("UIResponseWatcher"));
        QCOMPARE(Profiler::UIConsoleDataEvent(), QString("conData"));
        QCOMPARE(Profiler::UISGEDataEvent(), QString("sgeData"));
        QCOMPARE(Profiler::UIDrawStartEvent(), QString("drawStart"));
        QCOMPARE(Profiler::UIDrawEvent(), QString("draw"));
    }

private:
    QStringList lines() const { return m_log->lines(); }

    std::unique_ptr<LogCapture> m_log;
};

QTEST_GUILESS_MAIN(tst_OrvoProfiler)
#include "tst_orvoprofiler.moc"
