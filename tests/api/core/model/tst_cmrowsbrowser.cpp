#include "core/model/cmrowsbrowser.h"

#include "childprocess.h"
#include "core/model/cmroot.h"
#include "core/model/cmsubscribe.h"
#include "logcapture.h"
#include "support/scriptedrows.h"

#include <QPointer>
#include <QSignalSpy>

/// How a browser loads, moves its window and reads: without changes of the list.
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

    void rowsWithinTheRadiusOfBothEndsAreTheActiveRange_data()
    {
        QTest::addColumn<int>("rows");
        QTest::addColumn<int>("current");
        QTest::addColumn<int>("begin");
        QTest::addColumn<int>("end");
        // Radius 2: the window has 17 slots, the current row is at 8.
        QTest::newRow("in the middle") << 100 << 50 << 6 << 11;
        QTest::newRow("at the head") << 100 << 0 << 8 << 11;
        QTest::newRow("near the head") << 100 << 1 << 7 << 11;
        QTest::newRow("at the last row") << 100 << 99 << 6 << 9;
        QTest::newRow("near the last row") << 100 << 98 << 6 << 10;
        QTest::newRow("as far from the end as the radius") << 100 << 97 << 6 << 11;
        QTest::newRow("a list of one row") << 1 << 0 << 8 << 9;
    }
    void rowsWithinTheRadiusOfBothEndsAreTheActiveRange()
    {
        QFETCH(int, rows);
        QFETCH(int, current);
        ScriptedRows list(2, rows);
        list.load();
        list.browser.setCurrentRow(current);
        QTEST(list.browser.getIteratorBeginActiveRange().index(), "begin");
        QTEST(list.browser.getIteratorEndActiveRange().index(), "end");
    }

    void aRowHasASlotOnlyInTheWindow()
    {
        ScriptedRows list(1, 100);
        list.load();
        list.browser.setCurrentRow(50);
        const CMRowsBrowser& browser = list.browser;
        QCOMPARE(browser.getIteratorForRow(45).index(), 9);
        QCOMPARE(browser.getIteratorForRow(46).index(), 0);
        QCOMPARE(browser.getIteratorForRow(50).index(), 4);
        QCOMPARE(browser.getIteratorForRow(54).index(), 8);
        QCOMPARE(browser.getIteratorForRow(55).index(), 9);
        QCOMPARE(browser.getIteratorForRow(INT_MAX).index(), 9);
        QCOMPARE(browser.getIteratorForRow(INT_MIN).index(), 9);
    }

    void aStepFetchesWhatCameIntoTheActiveRange()
    {
        ScriptedRows list(2, 100);
        list.load();
        list.browser.setCurrentRow(1);
        QCOMPARE(list.look(), QString("3 3 3"));
        list.answer();
        list.browser.setCurrentRow(3);
        QCOMPARE(list.look(), QString("4 5 3"));
        list.answer();
        QCOMPARE(list.look(), QString("nothing"));
        QCOMPARE(list.shown(0, 6), QString("r0 r1 r2 r3 r4 r5 -"));
    }

    void rowsPassedBeforeStayReadableUntilTheyLeaveTheWindow()
    {
        ScriptedRows list(1, 100);
        list.load();
        for (int row = 1; row <= 4; ++row) {
            list.browser.setCurrentRow(row);
            list.load();
        }
        QCOMPARE(list.shown(0, 5), QString("r0 r1 r2 r3 r4 r5"));
        list.browser.setCurrentRow(5);
        QCOMPARE(list.shown(0, 5), QString("- r1 r2 r3 r4 r5"));
        list.browser.setCurrentRow(4);
        QCOMPARE(list.shown(0, 5), QString("- r1 r2 r3 r4 r5"));
        list.browser.setCurrentRow(3);
        QCOMPARE(list.look(), QString("nothing"));
    }

    void aHoleBetweenLoadedRowsIsAskedForAlone()
    {
        ScriptedRows list(4, 100);
        list.load();
        list.browser.setCurrentRow(12);
        list.load();
        QCOMPARE(list.shown(4, 8), QString("r4 - - - r8"));
        list.browser.setCurrentRow(6);
        QCOMPARE(list.look(), QString("5 7 3"));
        list.answer();
        QCOMPARE(list.look(), QString("nothing"));
    }

    void gapsAreFilledOneAfterTheOtherFromTheHead()
    {
        ScriptedRows list(3, 100);
        list.load();
        list.deliver({"0", "2"});
        QCOMPARE(list.look(), QString("0 0 5"));
        list.ids[0] = "a";
        list.answer();
        QCOMPARE(list.due(), 30);
        QCOMPARE(list.look(), QString("2 2 5"));
        list.ids[2] = "b";
        list.answer();
        QCOMPARE(list.look(), QString("nothing"));
        QCOMPARE(list.active(), QString("a r1 b r3"));
    }

    void theLastGapEndsWithTheList()
    {
        ScriptedRows list(5, 8);
        list.load();
        list.browser.setCurrentRow(7);
        QCOMPARE(list.look(), QString("6 7 3"));
    }

    void anAnswerOfPartOfTheRowsIsFollowedByARequestForTheRest()
    {
        ScriptedRows list(5, 100);
        list.look();
        OrvoRowsRoles answer = list.answerFor(list.request());
        answer.setRows(answer.rows().toList().mid(0, 2));
        list.answer(answer);
        QCOMPARE(list.due(), 30);
        QCOMPARE(list.look(), QString("2 5 3"));
    }

    void anAnswerWithoutRowsIsRepeatedAtLeisure()
    {
        ScriptedRows list(1, 100);
        list.load();
        list.browser.setCurrentRow(10);
        list.look();
        list.answer(list.answerFor(list.request()).setRows(QVariantList()));
        QCOMPARE(list.due(), 5000);
    }

    /// The four states of a slot, told by whether the row is asked for.
    void onlyALoadedRowIsNotFetched_data()
    {
        QTest::addColumn<bool>("loaded");
        QTest::addColumn<bool>("stale");
        QTest::newRow("empty") << false << false;
        QTest::newRow("loaded") << true << false;
        QTest::newRow("stale") << true << true;
        QTest::newRow("stale and empty") << false << true;
    }
    void onlyALoadedRowIsNotFetched()
    {
        QFETCH(bool, loaded);
        QFETCH(bool, stale);
        ScriptedRows list(1, 10);
        list.load();
        if (!loaded)
            list.browser.rowSet(1, OrvoRoles());
        if (stale)
            list.browser.rowReload(1);
        QCOMPARE(list.look(), loaded && !stale ? QString("nothing") : QString("1 1 3"));
        QCOMPARE(list.id(1), loaded ? QString("r1") : QString());
    }

    void aStaleRowStaysReadableAndIsAskedForUntilItDiffers()
    {
        ScriptedRows list(1, 10);
        list.load();
        list.deliver({"1"});
        BrowserEar ear(&list.browser);
        QCOMPARE(list.look(), QString("1 1 4"));
        QCOMPARE(list.id(1), QString("r1"));
        list.answer();
        QCOMPARE(ear.take(), QStringList("items"));
        QCOMPARE(list.look(), QString("1 1 4"));
        list.ids[1] = "new";
        list.answer();
        QCOMPARE(ear.take(), (QStringList{"1: new <- r1", "items"}));
        QCOMPARE(list.look(), QString("nothing"));
    }

    void reloadingARowOutsideTheWindowDoesNothing()
    {
        ScriptedRows list(1, 100);
        list.load();
        list.browser.rowReload(50);
        list.browser.rowReload(-1);
        list.browser.rowSet(50, OrvoRoles().setId("x"));
        QCOMPARE(list.look(), QString("nothing"));
        QCOMPARE(list.id(50), QString());
    }

    void moves_data()
    {
        QTest::addColumn<int>("row");
        QTest::addColumn<QStringList>("said");
        QTest::newRow("one step on") << 1 << QStringList{"row 1", "current r1"};
        QTest::newRow("further") << 3 << QStringList{"row 3", "current -"};
        QTest::newRow("as far as the window reaches") << 8 << QStringList{"row 8", "current -"};
        QTest::newRow("a jump") << 9 << QStringList{"0: - <- r0", "1: - <- r1", "row 9", "current -"};
        QTest::newRow("a long jump") << 90 << QStringList{"0: - <- r0", "1: - <- r1", "row 90", "current -"};
        QTest::newRow("no move") << 0 << QStringList{};
    }
    void moves()
    {
        QFETCH(int, row);
        ScriptedRows list(1, 100);
        list.load();
        BrowserEar ear(&list.browser);
        list.browser.setCurrentRow(row);
        QTEST(ear.said, "said");
        QCOMPARE(list.browser.currentRow(), row);
    }

    void aJumpBackDropsAllRowsToo()
    {
        ScriptedRows list(1, 100);
        list.load();
        list.browser.setCurrentRow(50);
        list.load();
        BrowserEar ear(&list.browser);
        list.browser.setCurrentRow(41);
        QCOMPARE(ear.said, (QStringList{"49: - <- r49", "50: - <- r50", "51: - <- r51", "row 41", "current -"}));
        QCOMPARE(list.look(), QString("40 42 3"));
    }

    void aRowOutsideTheListIsRefused_data()
    {
        QTest::addColumn<int>("row");
        QTest::newRow("negative") << -1;
        QTest::newRow("just past the end") << 10;
        QTest::newRow("far past the end") << INT_MAX;
    }
    void aRowOutsideTheListIsRefused()
    {
        QFETCH(int, row);
        ScriptedRows list(1, 10);
        list.load();
        LogCapture log("CMRowsBrowser", log4cplus::ERROR_LOG_LEVEL);
        BrowserEar ear(&list.browser);
        list.browser.setCurrentRow(row);
        QCOMPARE(log.lines(),
                 QStringList(QString("ERROR invalid parameter: currentRow:%1, size: 10 activeCurrentRow: 0").arg(row)));
        QCOMPARE(ear.said, QStringList());
        QCOMPARE(list.browser.currentRow(), 0);
    }

    void anOpenEndedListGrowsWithTheCurrentRow()
    {
        ScriptedRows list(2, 0);
        list.listRoles.setUnknownSize(true);
        list.look();
        list.answer();
        QVERIFY(list.browser.size().isUnknown());
        QCOMPARE(list.browser.size().count(), 2);
        list.browser.setCurrentRow(7);
        QCOMPARE(list.browser.size().count(), 9);
        QCOMPARE(list.look(), QString("5 9 3"));
    }

    void anOpenEndedListKeepsItsLastCount()
    {
        ScriptedRows list(2, 20);
        list.listRoles.setUnknownSize(true);
        list.load();
        QCOMPARE(list.browser.size().count(), 20);
        list.browser.setCurrentRow(19);
        list.look();
        list.answer(list.answerFor(list.request()).setRowsCount(0));
        QCOMPARE(list.browser.size().count(), 20);
        QCOMPARE(list.active(), QString("r17 r18 r19"));
    }

    void farBehindTheKnownRowsOfAnOpenEndedListNothingIsActive()
    {
        ScriptedRows list(2, 20);
        list.listRoles.setUnknownSize(true);
        list.load();
        list.browser.setCurrentRow(40);
        QVERIFY(list.browser.getIteratorBeginActiveRange() == list.browser.getIteratorEndActiveRange());
        QCOMPARE(list.look(), QString("nothing"));
    }

    void anOpenEndedListThatTurnsOutToEndBeforeTheCurrentRowTakesItBack()
    {
        ScriptedRows list(2, 20);
        list.listRoles.setUnknownSize(true);
        list.load();
        list.browser.setCurrentRow(21);
        list.look();
        list.listRoles.setUnknownSize(false);
        list.answer();
        QCOMPARE(list.browser.currentRow(), 19);
        list.load();
        QCOMPARE(list.active(), QString("r17 r18 r19"));
    }

    void theAcceptRolesAreOneMoreRow()
    {
        ScriptedRows list(2, 5);
        list.listRoles.setAccept(OrvoRoles().setTitle("take it"));
        list.load();
        QCOMPARE(list.browser.size().count(), 6);
        QCOMPARE(list.browser.item(5).title(), QString());
        list.browser.setExpandAccept(true);
        QCOMPARE(list.browser.item(5).title(), QString("take it"));
        QCOMPARE(list.browser.item(500).title(), QString("take it"));
        QCOMPARE(list.browser.item(4).title(), QString());
        list.browser.setCurrentRow(5);
        list.load();
        QCOMPARE(list.shown(3, 4), QString("r3 r4"));
    }

    void inAnOpenEndedListOfNoKnownRowsTheAcceptRolesStandBehindTheRadius()
    {
        ScriptedRows list(2, 0);
        list.listRoles.setUnknownSize(true).setAccept(OrvoRoles().setTitle("take it"));
        list.browser.setExpandAccept(true);
        list.look();
        list.answer();
        QCOMPARE(list.browser.item(2).title(), QString());
        QCOMPARE(list.browser.item(3).title(), QString("take it"));
        QCOMPARE(list.browser.size().count(), 3);
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
        list.rowsRoles.setCloseTimeout(100000);
        list.load();
        QTRY_VERIFY(list.closeTimer()->remainingTime() < 100000);
        list.browser.resetCloseTimer();
        QVERIFY(list.closeTimer()->isActive());
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
