#include "support/clonetest.h"

#include "logcapture.h"

#include <QPointer>

class tst_CMRowsClone : public CloneTest
{
    Q_OBJECT

private slots:
    // Loading

    void anEmptyListIsLoadedWithTheFirstReply()
    {
        CMRowsClone clone(nullptr, P("t:list"));
        Ear ear(&clone);
        QVERIFY(clone.isLoading());
        QTRY_VERIFY(!clone.isLoading());
        QCOMPARE(ear.said, QStringList("loaded"));
        QVERIFY(clone.list().isEmpty());
        QCOMPARE(m_worker->asked, QStringList("0-100@-1"));
    }

    void theRowsComeInOneGoAheadOfTheEndOfTheLoading()
    {
        fill("a b c");
        CMRowsClone clone(nullptr, P("t:list"));
        Ear ear(&clone);
        QTRY_VERIFY(!clone.isLoading());
        QCOMPARE(ear.said, (QStringList{"+0 a", "+1 b", "+2 c", "loaded"}));
        QCOMPARE(clone.idIndex().size(), 3);
        QCOMPARE(clone.idIndex().value("b"), row("b"));
        QTRY_COMPARE(ear.items, 1);
        QCOMPARE(m_worker->asked, QStringList("0-100@-1"));
    }

    void aLongListComesInChunks()
    {
        fill(250);
        CMRowsClone clone(nullptr, P("t:list"));
        QVERIFY(isLive(clone));
        QCOMPARE(m_worker->asked, (QStringList{"0-100@-1", "101-201@0", "202-249@0"}));
        turn();
        QCOMPARE(m_worker->asked.size(), 3);
    }

    void nothingIsPublishedWhileTheListLoads()
    {
        fill(150);
        CMRowsClone clone(nullptr, P("t:list"));
        Ear ear(&clone);
        m_worker->holds = true;
        QTRY_COMPARE(m_worker->held.size(), 1);
        m_worker->answer();
        QTRY_COMPARE(m_worker->held.size(), 1);
        QCOMPARE(ear.said, QStringList());
        QVERIFY(clone.list().isEmpty() && clone.isLoading());
        m_worker->answer();
        QTRY_COMPARE(ear.said.size(), 151);
    }

    void theReceiverIsConnectedByItsType()
    {
        fill("a");
        CMRowsClone other(nullptr, P("t:list"));
        Ear ear(&other);
        other.setPath(CMPath());
        CMRowsClone clone(nullptr, P("t:list"), &ear, SLOT(onItem(OrvoRoles,OrvoRoles,int)), Qt::QueuedConnection);
        QTRY_VERIFY(!clone.isLoading());
        QTRY_COMPARE(ear.said, QStringList("+0 a"));
    }

    // A maximum

    void aMaximumLimitsTheRequestsAndTheCopy()
    {
        fill(1000);
        CMRowsClone clone(nullptr, P("t:list"), nullptr, nullptr, Qt::AutoConnection, 10);
        QTRY_VERIFY(!clone.isLoading());
        QCOMPARE(m_worker->asked, QStringList("0-9@-1"));
        QCOMPARE(idsOf(clone.list()), QString("0 1 2 3 4 5 6 7 8 9"));
        Ear ear(&clone);
        LogCapture log("CMRowsClone");
        m_list->rowsSet(500, row("500", "new"));
        QTRY_COMPARE(clone.fetcher()->version(), 1);
        m_list->rowsInsert(500, row("x"));
        m_list->rowsRemoveAt(11);
        QTRY_COMPARE(clone.fetcher()->version(), 3);
        turn();
        QCOMPARE(log.lines(), (QStringList{"TRACE t:list Seted row index > max count, ignore: maxCount: 10",
                                           "TRACE t:list Inserted row index > max count, ignore: maxCount: 10",
                                           "TRACE t:list Removed row index > max count, ignore: maxCount: 10"}));
        QCOMPARE(ear.said, QStringList());
        QCOMPARE(m_worker->asked.size(), 1);
        m_list->rowsSet(9, row("9", "new"));
        QTRY_COMPARE(ear.said, QStringList("9 9>9new"));
        QCOMPARE(m_worker->asked.last(), QString("9-9@4"));
    }

    void aMaximumOfOneChunkAsksForOneRowMoreAndDropsIt()
    {
        fill(1000);
        LogCapture log("CMRowsClone", log4cplus::ERROR_LOG_LEVEL);
        CMRowsClone clone(nullptr, P("t:list"), nullptr, nullptr, Qt::AutoConnection, 100);
        QTRY_VERIFY(!clone.isLoading());
        turn();
        QCOMPARE(m_worker->asked, QStringList("0-100@-1"));
        QCOMPARE(clone.list().size(), 100);
        QCOMPARE(log.lines(), QStringList());
    }

    void aMaximumBehindTheFirstChunkIsReached()
    {
        fill(1000);
        CMRowsClone clone(nullptr, P("t:list"), nullptr, nullptr, Qt::AutoConnection, 150);
        QTRY_VERIFY(!clone.isLoading());
        QCOMPARE(m_worker->asked, (QStringList{"0-100@-1", "101-149@0"}));
        QCOMPARE(clone.list().size(), 150);
    }

    void aMaximumAboveTheListIsTheList()
    {
        fill(5);
        CMRowsClone clone(nullptr, P("t:list"), nullptr, nullptr, Qt::AutoConnection, 10);
        QTRY_COMPARE(clone.list().size(), 5);
        QVERIFY(!clone.isLoading());
    }

    void aRowThatIsInsertedWhileAMaximumLoadsDoesNotHoldItUp()
    {
        fill(1000);
        CMRowsClone clone(nullptr, P("t:list"), nullptr, nullptr, Qt::AutoConnection, 150);
        changeBehindFirstReply(clone, [&] { m_list->rowsInsert(0, row("new")); });
        QTRY_VERIFY(!clone.isLoading());
        QCOMPARE(clone.list().size(), 150);
        QCOMPARE(clone.list().first(), row("new"));
    }

    // Live changes

    void changesOfTheListAreFollowed()
    {
        fill("a b c d");
        CMRowsClone clone(nullptr, P("t:list"));
        QVERIFY(isLive(clone));
        Ear ear(&clone);
        m_list->rowsInsert(1, row("x"));
        QVERIFY(isLive(clone));
        QCOMPARE(ear.take(), QStringList("+1 x"));
        m_list->rowsRemoveAt(0);
        QVERIFY(isLive(clone));
        QCOMPARE(ear.take(), QStringList("-0 a"));
        QVERIFY(!clone.idIndex().contains("a"));
        m_list->rowsMove(0, 2);
        QVERIFY(isLive(clone));
        QCOMPARE(ear.take(), (QStringList{"-0 x", "+2 x"}));
        m_list->rowsSet(2, row("x", "1"));
        QVERIFY(isLive(clone));
        QCOMPARE(ear.take(), QStringList("2 x>x1"));
        QCOMPARE(clone.idIndex().value("x"), row("x", "1"));
    }

    void aRowThatIsFetchedAgainStaysPublished()
    {
        fill("a b c");
        CMRowsClone clone(nullptr, P("t:list"));
        QVERIFY(isLive(clone));
        Ear ear(&clone);
        m_worker->holds = true;
        m_list->rowsSet(1, row("b", "1"));
        QTRY_COMPARE(m_worker->held.size(), 1);
        QCOMPARE(idsOf(clone.list()), QString("a b c"));
        QVERIFY(!clone.isLoading());
        m_worker->answer();
        QTRY_COMPARE(ear.said, QStringList("1 b>b1"));
    }

    void identicalNewRolesAreNotTold()
    {
        fill("a b c");
        CMRowsClone clone(nullptr, P("t:list"));
        QVERIFY(isLive(clone));
        turn();
        Ear ear(&clone);
        m_list->rowsSet(1, row("b", "1"));
        m_list->rowsSet(1, row("b"));
        QTRY_COMPARE(m_worker->asked, (QStringList{"0-100@-1", "1-1@2"}));
        turn();
        QCOMPARE(ear.said, QStringList());
        QCOMPARE(ear.items, 0);
    }

    void manyChangesAreOneItemsChanged()
    {
        fill(600);
        CMRowsClone clone(nullptr, P("t:list"));
        QVERIFY(isLive(clone));
        turn();
        Ear ear(&clone);
        for (int i = 0; i < 500; ++i)
            m_list->rowsRemoveAt(0);
        QVERIFY(isLive(clone));
        QCOMPARE(ear.said.size(), 500);
        QTRY_COMPARE(ear.items, 1);
        turn();
        QCOMPARE(ear.items, 1);
    }

    void rowsWithTheSameIdAreAllIndexedByOneOfThem()
    {
        m_list->rowsAppend(row("a", "1"));
        m_list->rowsAppend(row("a", "2"));
        m_list->rowsAppend(OrvoRoles().setTitle("no id"));
        CMRowsClone clone(nullptr, P("t:list"));
        QVERIFY(isLive(clone));
        QCOMPARE(clone.idIndex().keys(), QStringList("a"));
        m_list->rowsRemoveAt(1);
        QVERIFY(isLive(clone));
        QCOMPARE(clone.idIndex().value("a"), row("a", "1"));
        m_list->rowsRemoveAt(0);
        QVERIFY(isLive(clone));
        QVERIFY(clone.idIndex().isEmpty());
    }

    // Life and death

    void itMayBeDestroyedInsideItsSignals_data()
    {
        QTest::addColumn<QString>("line");
        for (const char* line : {"+1 b", "-0 a", "+2 a", "1 c>c1", "loaded", "loading"})
            QTest::newRow(line) << line;
    }
    void itMayBeDestroyedInsideItsSignals()
    {
        QFETCH(QString, line);
        fill("a b c");
        QPointer<CMRowsClone> clone(new CMRowsClone(nullptr, P("t:list")));
        Ear ear(clone);
        const auto look = [&] {
            if (!ear.said.isEmpty() && ear.said.last() == line)
                delete clone.data();
        };
        connect(clone, &CMRowsClone::itemChanged, this, look);
        connect(clone, &CMRowsClone::loadingChanged, this, look);
        QTRY_VERIFY(!clone || !clone->isLoading());
        if (clone) {
            m_list->rowsMove(0, 2);
            m_list->rowsSet(1, row("c", "1"));
        }
        QTRY_VERIFY(!clone || ear.said.last().startsWith("1 c"));
        if (clone)
            m_list->rowsClear();
        QTRY_VERIFY(!clone);
        QCOMPARE(ear.said.last(), line);
        turn();
    }

    void aReloadInsideItsSignalsEndsInTheList_data()
    {
        QTest::addColumn<QString>("line");
        for (const char* line : {"+1 b", "-0 a", "+2 a", "1 c>c1", "loaded"})
            QTest::newRow(line) << line;
    }
    void aReloadInsideItsSignalsEndsInTheList()
    {
        QFETCH(QString, line);
        fill("a b c");
        CMRowsClone clone(nullptr, P("t:list"));
        Ear ear(&clone);
        Mirror mirror(&clone);
        bool done = false;
        const auto look = [&] {
            if (!done && ear.said.last() == line) {
                done = true;
                clone.fetcher()->reset();
            }
        };
        connect(&clone, &CMRowsClone::itemChanged, this, look);
        connect(&clone, &CMRowsClone::loadingChanged, this, look);
        QVERIFY(isLive(clone));
        m_list->rowsMove(0, 2);
        m_list->rowsSet(1, row("c", "1"));
        QVERIFY(isLive(clone));
        QVERIFY(done);
        QCOMPARE(mirror.fault, QString());
    }

    // What it costs

    void aRowInsertedAtTheHeadAsksForThatRowOnly()
    {
        fill(10000);
        CMRowsClone clone(nullptr, P("t:list"));
        QTRY_VERIFY_WITH_TIMEOUT(!clone.isLoading(), 20000);
        m_worker->asked.clear();
        Ear ear(&clone);
        m_list->rowsInsert(0, row("new"));
        QTRY_COMPARE(clone.list().size(), 10001);
        turn();
        QCOMPARE(m_worker->asked, QStringList("0-0@1"));
        QCOMPARE(ear.said, QStringList("+0 new"));
    }

    void aResetOfALongListWithOneChangedRowIsOneChange()
    {
        fill(10000);
        CMRowsClone clone(nullptr, P("t:list"));
        QTRY_VERIFY_WITH_TIMEOUT(!clone.isLoading(), 20000);
        Ear ear(&clone);
        QList<OrvoRoles> rows = clone.list();
        rows[7777] = row("7777", "new");
        become(rows);
        QTRY_COMPARE_WITH_TIMEOUT(ear.said.size(), 3, 20000);
        QCOMPARE(ear.said, (QStringList{"loading", "7777 7777>7777new", "loaded"}));
    }
};

QTEST_GUILESS_MAIN(tst_CMRowsClone)
#include "tst_cmrowsclone.moc"
