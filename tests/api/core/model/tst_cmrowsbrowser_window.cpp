#include "core/model/cmrowsbrowser.h"

#include "logcapture.h"
#include "support/scriptedrows.h"

/// How a browser's window moves, what of it is fetched and how it is read: without changes of the list.
class tst_CMRowsBrowserWindow : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { orvoRegisterMetaTypes(); }
    void cleanup() { deleteWaiting(); }

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

    void anOpenEndedListEndsWithTheNumbers()
    {
        ScriptedRows list(2, 0);
        list.listRoles.setUnknownSize(true);
        list.look();
        list.answer();
        list.browser.setCurrentRow(INT_MAX);
        QCOMPARE(list.browser.currentRow(), 0);
        list.browser.setCurrentRow(INT_MAX - 100);
        QCOMPARE(list.look(), QString("%1 %2 3").arg(INT_MAX - 102).arg(INT_MAX - 98));
        QVERIFY(list.browser.size().count() > 0);
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
};

QTEST_GUILESS_MAIN(tst_CMRowsBrowserWindow)
#include "tst_cmrowsbrowser_window.moc"
