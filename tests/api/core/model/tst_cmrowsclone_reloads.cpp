#include "support/clonetest.h"

#include "logcapture.h"

/// A clone whose list is loaded anew, or changes while it is loaded.
class tst_CMRowsCloneReloads : public CloneTest
{
    Q_OBJECT

private slots:
    // Loading anew

    void aResetWithTheSameContentTellsNoRow()
    {
        fill("a b c");
        CMRowsClone clone(nullptr, P("t:list"));
        QVERIFY(isLive(clone));
        turn();
        Ear ear(&clone);
        become({row("a"), row("b"), row("c")});
        QTRY_COMPARE(ear.said, (QStringList{"loading", "loaded"}));
        turn();
        QCOMPARE(ear.items, 0);
    }

    void aResetWithOneChangedRowTellsThatRow()
    {
        fill(300);
        CMRowsClone clone(nullptr, P("t:list"));
        QVERIFY(isLive(clone));
        Ear ear(&clone);
        QList<OrvoRoles> rows = clone.list();
        rows[123] = row("123", "new");
        become(rows);
        QTRY_COMPARE(ear.said.size(), 3);
        QCOMPARE(ear.said, (QStringList{"loading", "123 123>123new", "loaded"}));
        QVERIFY(isLive(clone));
    }

    void theDifferenceOfAResetIsToldInFewSteps_data()
    {
        QTest::addColumn<QString>("before");
        QTest::addColumn<QString>("after");
        QTest::addColumn<QStringList>("told");
        QTest::newRow("appended") << "a b"
                                  << "a b c d" << QStringList{"+2 c", "+3 d"};
        QTest::newRow("inserted ahead") << "b"
                                        << "a b" << QStringList{"+0 a"};
        QTest::newRow("removed") << "a b c d"
                                 << "a d" << QStringList{"-1 b", "-1 c"};
        QTest::newRow("removed at the end") << "a b c"
                                            << "a" << QStringList{"-1 b", "-1 c"};
        QTest::newRow("all gone") << "a b"
                                  << "" << QStringList{"-0 a", "-0 b"};
        QTest::newRow("replaced") << "a b c"
                                  << "a x c" << QStringList{"1 b>x"};
        QTest::newRow("swapped") << "a b c"
                                 << "b a c" << QStringList{"0 a>b", "1 b>a"};
    }
    void theDifferenceOfAResetIsToldInFewSteps()
    {
        QFETCH(QString, before);
        QFETCH(QString, after);
        QFETCH(QStringList, told);
        fill(before);
        CMRowsClone clone(nullptr, P("t:list"));
        QVERIFY(isLive(clone));
        Ear ear(&clone);
        Mirror mirror(&clone);
        mirror.fault.clear();
        QList<OrvoRoles> rows;
        for (const QString& id : after.split(' ', Qt::SkipEmptyParts))
            rows.append(row(id));
        become(rows);
        QTRY_COMPARE(ear.said.size(), told.size() + 2);
        QCOMPARE(ear.said, QStringList("loading") + told + QStringList("loaded"));
        QCOMPARE(clone.idIndex().size(), rows.size());
        for (const OrvoRoles& roles : qAsConst(rows))
            QCOMPARE(clone.idIndex().value(roles.id()), roles);
    }

    void theOldListStaysWhileANewOneLoads()
    {
        fill("a b");
        CMRowsClone clone(nullptr, P("t:list"));
        QVERIFY(isLive(clone));
        m_worker->holds = true;
        become({row("c")});
        QTRY_VERIFY(clone.isLoading());
        QTRY_COMPARE(m_worker->held.size(), 1);
        QCOMPARE(idsOf(clone.list()), QString("a b"));
        QCOMPARE(clone.idIndex().size(), 2);
        m_worker->answer();
        QVERIFY(isLive(clone));
    }

    // Changes while the rows are collected

    void aRowThatIsInsertedWhileCollectingIsWaitedFor()
    {
        fill(150);
        CMRowsClone clone(nullptr, P("t:list"));
        Ear ear(&clone);
        changeBehindFirstReply(clone, [&] {
            m_list->rowsInsert(3, row("x"));
            m_list->rowsInsert(151, row("y"));
        });
        QTRY_VERIFY(!clone.isLoading());
        QCOMPARE(ear.said.size(), 153);
        QCOMPARE(ear.said.count("loaded"), 1);
        QVERIFY(isLive(clone));
        QCOMPARE(m_worker->asked, (QStringList{"0-100@-1", "3-103@2", "104-151@2"}));
    }

    void aRowThatIsRemovedWhileCollectingIsNotWaitedFor()
    {
        fill(103);
        CMRowsClone clone(nullptr, P("t:list"));
        Ear ear(&clone);
        // All that is missing goes, and with it the load ends, without a further request.
        changeBehindFirstReply(clone, [&] {
            m_list->rowsRemoveAt(50);
            m_list->rowsRemoveAt(101);
            m_list->rowsRemoveAt(100);
        });
        QTRY_VERIFY(!clone.isLoading());
        QCOMPARE(ear.said.size(), 101);
        QVERIFY(isLive(clone));
        QCOMPARE(m_worker->asked, QStringList("0-100@-1"));
    }

    void aMoveWhileCollectingIsFollowed()
    {
        fill(150);
        CMRowsClone clone(nullptr, P("t:list"));
        Mirror mirror(&clone);
        changeBehindFirstReply(clone, [&] {
            m_list->rowsMove(2, 140);
            m_list->rowsMove(145, 3);
        });
        QVERIFY(isLive(clone));
        QCOMPARE(mirror.fault, QString());
        QCOMPARE(mirror.changes, 150);
    }

    void aChangeThatOvertakesAChunkLoadsAnew()
    {
        fill(150);
        CMRowsClone clone(nullptr, P("t:list"));
        Ear ear(&clone);
        m_worker->holds = true;
        QTRY_COMPARE(m_worker->held.size(), 1);
        m_worker->answer();
        QTRY_COMPARE(m_worker->held.size(), 1);
        const CMGetRowsRequest chunk = m_worker->held.takeFirst();
        m_worker->holds = false;
        m_list->rowsRemoveAt(0);
        m_worker->CMNodesWorker::getRowsRequest(chunk);
        QVERIFY(isLive(clone));
        QCOMPARE(m_worker->asked.mid(0, 3), (QStringList{"0-100@-1", "101-149@0", "0-100@-1"}));
        QCOMPARE(ear.said.count("loaded"), 1);
    }

    void aListThatShrinksWhileAChunkIsOnItsWayIsMirrored()
    {
        fill(150);
        CMRowsClone clone(nullptr, P("t:list"));
        m_worker->holds = true;
        QTRY_COMPARE(m_worker->held.size(), 1);
        m_worker->answer();
        QTRY_COMPARE(m_worker->held.size(), 1);
        m_worker->holds = false;
        while (m_list->rowsSize() > 20)
            m_list->rowsRemoveAt(m_list->rowsSize() - 1);
        m_worker->answer();
        QVERIFY(isLive(clone));
    }

    // Disagreement

    void aRowThatIsNotThereLoadsTheListAnew_data()
    {
        QTest::addColumn<QString>("change");
        QTest::addColumn<QString>("line");
        QTest::newRow("set") << "3"
                             << "setItem for row 3";
        QTest::newRow("insert") << "+4"
                                << "insertItem for row 4";
        QTest::newRow("remove") << "-3"
                                << "removeItem for row 3";
        QTest::newRow("move from") << "=3..0"
                                   << "removeItem for row 3";
        QTest::newRow("move to") << "=0..3"
                                 << "insertItem for row 3";
        QTest::newRow("move from below") << "=-1..0"
                                         << "removeItem for row -1";
        QTest::newRow("move to below") << "=0..-1"
                                       << "insertItem for row -1";
    }
    void aRowThatIsNotThereLoadsTheListAnew()
    {
        QFETCH(QString, change);
        QFETCH(QString, line);
        fill("a b c");
        CMRowsClone clone(nullptr, P("t:list"));
        QVERIFY(isLive(clone));
        LogCapture log("CMRowsClone", log4cplus::ERROR_LOG_LEVEL);
        Mirror mirror(&clone);
        m_list->nextRowsVersion(change);
        QTRY_COMPARE(mirror.loads, 1);
        QVERIFY(isLive(clone));
        const int size = change == "=0..3" || change == "=0..-1" ? 2 : 3;
        QCOMPARE(log.lines(),
                 (QStringList{QStringLiteral("ERROR t:list %1 bigger than m_rows.size() %2").arg(line).arg(size),
                              "FATAL ==Report== CMRowsClone: change consistency error"}));
        QCOMPARE(mirror.loaded, 1);
    }

    void stringsThatDoNotParseChangeNothing()
    {
        fill("a b c");
        CMRowsClone clone(nullptr, P("t:list"));
        QVERIFY(isLive(clone));
        Ear ear(&clone);
        m_list->nextRowsVersion({"what", "+", "=1", "=1..x", "--"});
        QTRY_COMPARE(clone.fetcher()->version(), 5);
        turn();
        QCOMPARE(ear.said, QStringList());
        QVERIFY(isLive(clone));
    }

    void aCloseIsLoggedAndTheListKept()
    {
        fill("a b");
        CMRowsClone clone(nullptr, P("t:list"));
        QVERIFY(isLive(clone));
        LogCapture log("CMRowsClone", log4cplus::ERROR_LOG_LEVEL);
        Ear ear(&clone);
        m_list->nextRowsVersion(CMSubscribe::RowsChangeClose());
        QTRY_COMPARE(log.lines(), QStringList("ERROR t:list closed signal from fetcher in CMRowsClone."));
        QCOMPARE(idsOf(clone.list()), QString("a b"));
        QCOMPARE(ear.said, QStringList());
    }

    void anotherPathShowsAnotherList()
    {
        fill("a b c");
        CMListRowsNode* other = CMListRowsNode::create(m_worker->nodes(), P("t:other"));
        other->rowsAppend(row("a"));
        other->rowsAppend(row("c", "1"));
        CMRowsClone clone(nullptr, P("t:list"));
        QVERIFY(isLive(clone));
        Ear ear(&clone);
        clone.setPath(P("t:other"));
        QTRY_COMPARE(ear.said, (QStringList{"loading", "-1 b", "1 c>c1", "loaded"}));
    }
};

QTEST_GUILESS_MAIN(tst_CMRowsCloneReloads)
#include "tst_cmrowsclone_reloads.moc"
