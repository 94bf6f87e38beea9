#include "core/model/cmrowsbrowser.h"

#include "childprocess.h"
#include "core/model/cmroot.h"
#include "core/model/cmsubscribe.h"
#include "logcapture.h"
#include "support/scriptedrows.h"

#include <QPointer>
#include <QSignalSpy>

/// How a browser loads, follows its path, triggers and closes.
class tst_CMRowsBrowser : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { orvoRegisterMetaTypes(); }
    void cleanup() { deleteWaiting(); }

    void aFreshBrowserAsksForItsFirstRowsOfAnyVersion()
    {
        ScriptedRows list(5, 100);
        QCOMPARE(list.browser.calculateFromToRow(), (std::pair<int, int>(0, 5)));
        QTRY_COMPARE(list.requests(), 1);
        QCOMPARE(list.asked(), QString("0 5 -1"));
        QCOMPARE(list.request().roles(), CMAllRoles());
        QCOMPARE(list.request().path(), CMPath::fromEncoded("p:list"));
    }

    void theFirstRequestReachesAroundACurrentRowThatWasMovedBefore()
    {
        ScriptedRows list(5, 0);
        list.listRoles.setUnknownSize(true);
        list.look();
        list.answer();
        list.browser.setPath(CMPath::fromEncoded("p:other"));
        list.browser.setCurrentRow(2);
        QCOMPARE(list.look(), QString("0 7 -1"));
    }

    void withRadiusZeroOnlyTheCurrentRowIsFetched()
    {
        ScriptedRows list(0, 10);
        QCOMPARE(list.browser.calculateFromToRow(), (std::pair<int, int>(0, 0)));
        QCOMPARE(list.look(), QString("0 0 -1"));
        list.answer();
        QCOMPARE(list.look(), QString("nothing"));
        list.browser.setCurrentRow(7);
        QCOMPARE(list.look(), QString("7 7 3"));
        list.answer();
        QCOMPARE(list.shown(6, 8), QString("- r7 -"));
    }

    void theFirstAnswerEndsTheLoading()
    {
        ScriptedRows list(1, 10);
        list.listRoles.setTitle("a list");
        list.rowsRoles.setType(
            OrvoList<OrvoRowsRolesType::Enum>(QList<OrvoRowsRolesType::Enum>{OrvoRowsRolesType::Music_}));
        list.look();
        QVERIFY(list.browser.isLoading());
        BrowserEar ear(&list.browser);
        list.answer();
        QCOMPARE(ear.take(), (QStringList{"size 10", "0: r0 <- -", "1: r1 <- -", "rowsRoles", "title a list", "type",
                                          "loaded", "current r0", "items"}));
        QCOMPARE(list.browser.version(), 3);
        QVERIFY(!list.browser.isLoading());
        QCOMPARE(list.browser.size().count(), 10);
        QVERIFY(!list.browser.size().isUnknown());
        QCOMPARE(list.browser.title(), QString("a list"));
        QCOMPARE(list.browser.rowsRoles().rows(), QVariant());
        QCOMPARE(list.browser.rowsRoles().rowsVersion(), 0);
        QCOMPARE(list.browser.rowsRoles().rowsCount(), 0);
    }

    void updatedSumsUpTheOtherSignals()
    {
        ScriptedRows list(1, 10);
        list.look();
        BrowserEar ear(&list.browser);
        list.answer();
        // size, loading, current item, items; not the rows roles and the two rows.
        QCOMPARE(ear.updates, 4);
    }

    void theInitialRowIsTakenFromTheFirstAnswerOnly()
    {
        ScriptedRows list(1, 100);
        list.rowsRoles.setInitialRow(50);
        list.look();
        list.answer();
        QCOMPARE(list.browser.currentRow(), 50);
        QCOMPARE(list.look(), QString("49 51 3"));
        list.rowsRoles.setInitialRow(7);
        list.answer();
        QCOMPARE(list.browser.currentRow(), 50);
        QCOMPARE(list.shown(49, 51), QString("r49 r50 r51"));
    }

    void anInitialRowBeyondTheEndIsRefused()
    {
        LogCapture log("CMRowsBrowser", log4cplus::ERROR_LOG_LEVEL);
        ScriptedRows list(1, 5);
        list.rowsRoles.setInitialRow(5);
        list.look();
        list.answer();
        QCOMPARE(list.browser.currentRow(), 0);
        QCOMPARE(log.lines(), QStringList("ERROR invalid parameter: currentRow:5, size: 5 activeCurrentRow: 0"));
    }

    void aKnownEmptyListAsksNothingMore()
    {
        ScriptedRows list(2, 0);
        list.look();
        list.answer();
        QCOMPARE(list.browser.calculateFromToRow(), (std::pair<int, int>(-1, -1)));
        QVERIFY(list.browser.getIteratorBeginActiveRange() == list.browser.getIteratorEndActiveRange());
        QCOMPARE(list.look(), QString("nothing"));
        QCOMPARE(list.due(), -1);
    }

    void otherRolesEmptyTheWindowAndComeWithTheNextTrigger()
    {
        ScriptedRows list(1, 10);
        list.load();
        BrowserEar ear(&list.browser);
        QStringList roles = CMAllRoles();
        list.browser.setRoles(roles);
        QCOMPARE(ear.said, QStringList());
        std::swap(roles[1], roles[18]);
        list.browser.setRoles(roles);
        QCOMPARE(ear.said, (QStringList{"0: - <- r0", "1: - <- r1"}));
        QCOMPARE(list.due(), -1);
        QCOMPARE(list.look(), QString("0 1 3"));
        list.answer();
        QCOMPARE(list.browser.item(0).title(), QString("r0"));
    }

    void whileInactiveNothingIsAsked()
    {
        ScriptedRows list(1, 10);
        list.browser.setActive(false);
        QCOMPARE(list.look(), QString("nothing"));
        list.browser.setActive(true);
        QTRY_COMPARE(list.requests(), 1);
    }

    void withoutAPathNothingIsAsked()
    {
        ScriptedRows list(1, 10);
        list.browser.setPath(CMPath());
        QCOMPARE(list.look(), QString("nothing"));
        QVERIFY(!list.worker.subscribe()->rowsPath(CMPath::fromEncoded("p:list")));
    }

    void oneRequestIsUnderWayAtATime()
    {
        ScriptedRows list(1, 100);
        list.load();
        list.browser.setCurrentRow(10);
        QCOMPARE(list.look(), QString("9 11 3"));
        list.browser.setCurrentRow(20);
        QCOMPARE(list.due(), -1);
        QCOMPARE(list.look(), QString("nothing"));
        list.answer();
        QCOMPARE(list.look(), QString("19 21 3"));
    }

    void aBurstOfMovesIsOneRequest()
    {
        ScriptedRows list(1, 100);
        list.load();
        const int before = list.requests();
        for (int row = 1; row < 20; ++row)
            list.browser.setCurrentRow(row);
        QTRY_COMPARE(list.requests(), before + 1);
        QCOMPARE(list.asked(), QString("18 20 3"));
    }

    void aTriggerNeverPutsOffAnEarlierOne()
    {
        ScriptedRows list(1, 100);
        list.browser.trigger(5000);
        QCOMPARE(list.due(), 30);
        list.triggerTimer()->stop();
        list.browser.trigger(5000);
        QCOMPARE(list.due(), 5000);
        list.browser.trigger(30);
        QCOMPARE(list.due(), 30);
        list.browser.trigger(10);
        QCOMPARE(list.due(), 10);
    }

    void aStepAmongLoadedRowsStartsNoTimer()
    {
        ScriptedRows list(4, 100);
        list.load();
        list.browser.setCurrentRow(4);
        list.load();
        list.browser.setCurrentRow(3);
        QCOMPARE(list.due(), -1);
        QCOMPARE(list.look(), QString("nothing"));
    }

    void theLookThatFindsNothingSaysSo()
    {
        ScriptedRows list(1, 10);
        list.load();
        LogCapture log("CMRowsBrowser");
        list.look();
        QCOMPARE(log.lines(), (QStringList{"TRACE No empty rows in active range, all done",
                                           "TRACE getRows not required, from: -1 to: -1"}));
    }

    void aRequestIsLogged()
    {
        ScriptedRows list(1, 10);
        LogCapture log("CMRowsBrowser", log4cplus::INFO_LOG_LEVEL);
        list.look();
        QCOMPARE(log.lines(), QStringList("INFO p:list getRowsRequest path:'p:list' from:0 to:1 version:-1"));
    }

    void aRedirectChangesThePath()
    {
        ScriptedRows list(1, 10);
        list.look();
        BrowserEar ear(&list.browser);
        list.answer(OrvoRowsRoles().setRowsRedirect(CMPath::fromEncoded("p:elsewhere")));
        QCOMPARE(ear.said, QStringList("path p:elsewhere"));
        QVERIFY(list.worker.subscribe()->rowsPath(CMPath::fromEncoded("p:elsewhere")));
        QVERIFY(!list.worker.subscribe()->rowsPath(CMPath::fromEncoded("p:list")));
        QCOMPARE(list.look(), QString("0 1 -1"));
        QCOMPARE(list.request().path(), CMPath::fromEncoded("p:elsewhere"));
    }

    void aRedirectOfALoadedListResetsIt()
    {
        ScriptedRows list(1, 100);
        list.load();
        list.browser.setCurrentRow(50);
        list.look();
        BrowserEar ear(&list.browser);
        list.answer(OrvoRowsRoles().setRowsRedirect(CMPath::fromEncoded("p:elsewhere")));
        QCOMPARE(ear.said,
                 (QStringList{"path p:elsewhere", "size 0", "rowsRoles", "items", "current -", "row 0", "loading"}));
    }

    void anotherPathDropsTheAnswerOfTheOldOne()
    {
        ScriptedRows list(1, 10);
        list.look();
        const CMReply<OrvoRowsRoles> old = list.request().reply();
        const OrvoRowsRoles answer = list.answerFor(list.request());
        list.browser.setPath(CMPath::fromEncoded("p:other"));
        QCOMPARE(old.error().name(), CMVoidReply::ErrorCancel());
        old.setValue(answer);
        list.turn();
        QVERIFY(list.browser.isLoading());
        QCOMPARE(list.look(), QString("0 1 -1"));
    }

    void theSamePathAgainDoesNothing()
    {
        ScriptedRows list(1, 10);
        list.load();
        BrowserEar ear(&list.browser);
        list.browser.setPath(CMPath::fromEncoded("p:list"));
        QCOMPARE(ear.said, QStringList());
        QVERIFY(!list.browser.isLoading());
    }

    void anotherWorkerIsAskedForTheSamePath()
    {
        ScriptedRows list(1, 10);
        list.load();
        ScriptedWorker other;
        list.browser.setWorker(&other);
        QVERIFY(!list.worker.subscribe()->rowsPath(CMPath::fromEncoded("p:list")));
        QVERIFY(other.subscribe()->rowsPath(CMPath::fromEncoded("p:list")));
        QTRY_COMPARE(other.requests.size(), 1);
        QVERIFY(list.browser.isLoading());
        list.browser.setWorker(&list.worker);
    }

    void aResetForgetsEverythingAndLoadsAnew()
    {
        ScriptedRows list(1, 10);
        list.rowsRoles.setInitialRow(1).setCloseTimeout(100000);
        list.load();
        list.browser.setCurrentRow(8);
        list.look();
        const CMReply<OrvoRowsRoles> open = list.request().reply();
        LogCapture log("CMRowsBrowser", log4cplus::INFO_LOG_LEVEL);
        BrowserEar ear(&list.browser);
        list.browser.reset();
        QCOMPARE(ear.take(), (QStringList{"size 0", "rowsRoles", "items", "current -", "row 0", "loading"}));
        QCOMPARE(log.lines(), QStringList("INFO p:list reset()"));
        QCOMPARE(open.error().name(), CMVoidReply::ErrorCancel());
        QVERIFY(!list.closeTimer()->isActive());
        QCOMPARE(list.closeTimer()->interval(), 0);
        QCOMPARE(list.due(), 30);
        // The late delivery of the cancelled request.
        list.turn();
        QCOMPARE(ear.take(), QStringList());
        list.load();
        QCOMPARE(list.browser.currentRow(), 1);
        QCOMPARE(list.active(), QString("r0 r1 r2"));
    }

    void aResetTellsOfEachLoadedRow()
    {
        ScriptedRows list(1, 10);
        list.load();
        BrowserEar ear(&list.browser);
        list.browser.reset();
        QCOMPARE(ear.said, (QStringList{"size 0", "rowsRoles", "0: - <- r0", "1: - <- r1", "items", "current -",
                                        "row 0", "loading"}));
    }

    void aResetWhileLoadingOnlyTriggers()
    {
        ScriptedRows list(1, 10);
        list.look();
        BrowserEar ear(&list.browser);
        list.browser.reset();
        QCOMPARE(ear.said, QStringList());
        QVERIFY(!list.request().reply().isFinished());
        list.answer();
        QCOMPARE(list.active(), QString("r0 r1"));
    }

    void theListClosesItselfAfterItsTime()
    {
        ScriptedRows list(1, 10);
        list.rowsRoles.setCloseTimeout(20);
        list.look();
        BrowserEar ear(&list.browser);
        list.answer();
        QTRY_VERIFY(ear.said.contains("closed null"));
    }

    void aRunningCloseTimeIsOnlyShortened()
    {
        ScriptedRows list(1, 100);
        LogCapture log("CMRowsBrowser", log4cplus::DEBUG_LOG_LEVEL);
        list.rowsRoles.setCloseTimeout(50000);
        list.load();
        QCOMPARE(list.closeTimer()->interval(), 50000);
        const auto next = [&](int timeout) {
            list.rowsRoles.setCloseTimeout(timeout);
            list.browser.setCurrentRow((list.browser.currentRow() + 50) % 100);
            list.load();
        };
        next(60000);
        QCOMPARE(list.closeTimer()->interval(), 50000);
        next(40000);
        QCOMPARE(list.closeTimer()->interval(), 40000);
        next(-1);
        QVERIFY(list.closeTimer()->isActive());
        next(0);
        QVERIFY(!list.closeTimer()->isActive());
        QStringList lines = log.lines().filter("close timer");
        QCOMPARE(lines, (QStringList{"DEBUG Starting close timer [ms]:50000", "DEBUG Starting close timer [ms]:40000",
                                     "DEBUG Stopping close timer"}));
    }

    void theCloseTimeStartsAnewOnlyWhenItRuns()
    {
        ScriptedRows list(1, 100);
        list.browser.resetCloseTimer();
        QVERIFY(!list.closeTimer()->isActive());
        list.closeTimer()->setTimerType(Qt::PreciseTimer);
        list.rowsRoles.setCloseTimeout(100000);
        list.load();
        QTRY_VERIFY(list.closeTimer()->remainingTime() < 99900);
        list.browser.resetCloseTimer();
        QVERIFY(list.closeTimer()->remainingTime() > 99900);
        QCOMPARE(list.closeTimer()->interval(), 100000);
    }

    void aPathMayComeLater()
    {
        ScriptedRows list(1, 10);
        list.browser.setPath(CMPath());
        const CMReply<QVariant> reply;
        list.browser.addPathWatcher(reply);
        BrowserEar ear(&list.browser);
        reply.setValue(QVariant("p:late"));
        QCOMPARE(ear.said, QStringList());
        QTRY_COMPARE(ear.said, QStringList("path p:late"));
    }

    void anEmptyPathThatComesLaterIsLeftAlone()
    {
        LogCapture log("CMRowsBrowser");
        ScriptedRows list(1, 10);
        const CMReply<QVariant> reply;
        list.browser.addPathWatcher(reply);
        reply.setValue(QVariant());
        QTRY_VERIFY(log.lines().contains("TRACE pathWatcherFinished: Empty path"));
        QCOMPARE(list.browser.path(), CMPath::fromEncoded("p:list"));
    }

    void aPathThatFailsCloses()
    {
        LogCapture log("CMRowsBrowser", log4cplus::WARN_LOG_LEVEL);
        ScriptedRows list(1, 10);
        const CMReply<QVariant> reply;
        list.browser.addPathWatcher(reply);
        BrowserEar ear(&list.browser);
        reply.setError(CMError("nowhere", "no such place", ""));
        QTRY_COMPARE(ear.said, QStringList("closed this nowhere"));
        QCOMPARE(log.lines(), QStringList("WARN p:list pathWatcherFinished with error: nowhere no such place"));
    }

    void destructionEndsTheSubscriptionAndTheRequest()
    {
        ScriptedWorker worker;
        auto* browser = new CMRowsBrowser;
        browser->setWorker(&worker);
        browser->setRoles(CMAllRoles());
        browser->setPath(CMPath::fromEncoded("p:list"));
        browser->setActive(true);
        QTRY_COMPARE(worker.requests.size(), 1);
        delete browser;
        QCOMPARE(worker.requests.first().reply().error().name(), CMVoidReply::ErrorCancel());
        QVERIFY(!worker.subscribe()->rowsPath(CMPath::fromEncoded("p:list")));
    }

    void aSecondRadiusStopsTheProcess()
    {
        const ChildEnd end = runThisProgram({"--second-radius"});
        QVERIFY(end.stopped);
        QVERIFY2(end.errors.contains("m_radius == 0"), end.errors.constData());
    }
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    if (application.arguments().contains("--second-radius")) {
        leaveNoCore();
        CMRowsBrowser browser;
        browser.setRadius(1);
        browser.setRadius(2);
        return 0;
    }
    tst_CMRowsBrowser test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_cmrowsbrowser.moc"
