#include "core/model/cmchangesmerger.h"

#include <QSignalSpy>
#include <QtTest>

class tst_CMChangesMerger : public QObject
{
    Q_OBJECT

private slots:
    void manyChangesOfOneTurnAreOne()
    {
        CMChangesMerger merger;
        QSignalSpy spy(&merger, &CMChangesMerger::changed);
        for (int i = 0; i < 10; ++i)
            merger.change();
        QVERIFY(merger.isActive());
        QCOMPARE(spy.size(), 0);
        QTRY_COMPARE(spy.size(), 1);
        QVERIFY(!merger.isActive());
        QCoreApplication::processEvents();
        QCOMPARE(spy.size(), 1);
    }

    void theEarlierDeadlineWins()
    {
        CMChangesMerger merger;
        QSignalSpy spy(&merger, &CMChangesMerger::changed);
        merger.change(1000000);
        merger.change(0);
        QTRY_COMPARE(spy.size(), 1);
        QVERIFY(!merger.isActive());
    }

    void aLaterDeadlineLeavesTheEarlierAlone()
    {
        CMChangesMerger merger;
        QSignalSpy spy(&merger, &CMChangesMerger::changed);
        merger.change(0);
        merger.change(1000000);
        QTRY_COMPARE(spy.size(), 1);
        QVERIFY(!merger.isActive());
    }

    void anEqualDeadlineDoesNotPutItOff()
    {
        CMChangesMerger merger;
        QSignalSpy spy(&merger, &CMChangesMerger::changed);
        merger.setTimeout(50);
        // Restarting the delay each time would never let it end.
        QTRY_VERIFY((merger.change(), spy.size() > 0));
    }

    void theDefaultDelayLeavesARunningTimerAlone()
    {
        CMChangesMerger merger;
        QSignalSpy spy(&merger, &CMChangesMerger::changed);
        merger.change();
        merger.setTimeout(1000000);
        QTRY_COMPARE(spy.size(), 1);
        merger.change();
        QCoreApplication::processEvents();
        QCOMPARE(spy.size(), 1);
        QVERIFY(merger.isActive());
    }

    void firingEmitsAtOnceOnlyWhatWaits()
    {
        CMChangesMerger merger;
        QSignalSpy spy(&merger, &CMChangesMerger::changed);
        merger.fire();
        QCOMPARE(spy.size(), 0);
        merger.change(1000000);
        merger.fire();
        QCOMPARE(spy.size(), 1);
        QVERIFY(!merger.isActive());
        merger.fire();
        QCOMPARE(spy.size(), 1);
    }

    void stoppingEmitsNothing()
    {
        CMChangesMerger merger;
        QSignalSpy spy(&merger, &CMChangesMerger::changed);
        merger.change();
        merger.stop();
        QVERIFY(!merger.isActive());
        QCoreApplication::processEvents();
        QTest::qWait(5);
        QCOMPARE(spy.size(), 0);
    }

    void aChangeAfterAStopStartsAnew()
    {
        CMChangesMerger merger;
        QSignalSpy spy(&merger, &CMChangesMerger::changed);
        merger.change(0);
        merger.stop();
        merger.change(1);
        QTRY_COMPARE(spy.size(), 1);
    }

    void aChangeInsideTheSignalIsAnother()
    {
        CMChangesMerger merger;
        QSignalSpy spy(&merger, &CMChangesMerger::changed);
        connect(&merger, &CMChangesMerger::changed, this, [&] {
            if (spy.size() < 3)
                merger.change();
        });
        merger.change();
        QTRY_COMPARE(spy.size(), 3);
        QVERIFY(!merger.isActive());
    }

    void itMayBeDestroyedInsideItsSignal()
    {
        auto* merger = new CMChangesMerger;
        QPointer<CMChangesMerger> alive(merger);
        connect(merger, &CMChangesMerger::changed, this, [&] { delete alive.data(); });
        merger->change(1000000);
        merger->fire();
        QVERIFY(!alive);
    }
};

QTEST_GUILESS_MAIN(tst_CMChangesMerger)
#include "tst_cmchangesmerger.moc"
