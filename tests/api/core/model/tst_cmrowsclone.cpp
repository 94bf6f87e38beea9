#include "core/model/cmrowsclone.h"

#include "cmremoteworker.h"
#include "core/model/cmglobal.h"
#include "core/model/cmroles.h"
#include "logcapture.h"
#include "nodetest.h"
#include "records/orvoconstants.h"
#include "support/linkfixture.h"
#include "support/mirror.h"

#include <QElapsedTimer>
#include <QPointer>

namespace {

OrvoRoles row(const QString& id, const QString& title = QString())
{
    const OrvoRoles roles = OrvoRoles().setId(id);
    return title.isEmpty() ? roles : OrvoRoles(roles).setTitle(title);
}

QString idsOf(const QList<OrvoRoles>& list)
{
    QStringList ids;
    for (const OrvoRoles& roles : list)
        ids.append(roles.id() + roles.title());
    return ids.join(' ');
}

/// Serves lists and writes down which rows it is asked for.
class ListWorker : public CMNodesWorker
{
public:
    ListWorker() : CMNodesWorker({{OrvoWorkerArguments::MergeEvents(), true}}, "lists") {}

    void getRowsRequest(const CMGetRowsRequest& request) override
    {
        asked.append(QStringLiteral("%1-%2@%3").arg(request.fromRow()).arg(request.toRow()).arg(request.rowsVersion()));
        if (holds)
            held.append(request);
        else
            CMNodesWorker::getRowsRequest(request);
    }
    /// Answers the oldest of the held requests.
    void answer() { CMNodesWorker::getRowsRequest(held.takeFirst()); }

    QStringList asked;
    bool holds = false;
    QList<CMGetRowsRequest> held;
};

} // namespace

/// Writes down what a clone tells: "+2 a", "-0 a", "1 a>b", "items", "loading", "loaded".
class Ear : public QObject
{
    Q_OBJECT
public:
    explicit Ear(CMRowsClone* clone)
    {
        connect(clone, SIGNAL(itemChanged(OrvoRoles,OrvoRoles,int)), SLOT(onItem(OrvoRoles,OrvoRoles,int)));
        connect(clone, SIGNAL(itemsChanged()), SLOT(onItems()));
        connect(clone, SIGNAL(loadingChanged(bool)), SLOT(onLoading(bool)));
    }
    QStringList take()
    {
        QStringList taken;
        taken.swap(said);
        return taken;
    }
    QStringList said;
    int items = 0;
public slots:
    void onItem(OrvoRoles newRoles, OrvoRoles oldRoles, int index)
    {
        const QString now = newRoles.id() + newRoles.title();
        const QString old = oldRoles.id() + oldRoles.title();
        if (oldRoles.isEmpty())
            said.append(QStringLiteral("+%1 %2").arg(index).arg(now));
        else if (newRoles.isEmpty())
            said.append(QStringLiteral("-%1 %2").arg(index).arg(old));
        else
            said.append(QStringLiteral("%1 %2>%3").arg(index).arg(old, now));
    }
    void onItems() { ++items; }
    void onLoading(bool loading) { said.append(loading ? "loading" : "loaded"); }
};

class tst_CMRowsClone : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<ListWorker> m_worker;
    CMListRowsNode* m_list = nullptr;

    void fill(int count)
    {
        for (int i = 0; i < count; ++i)
            m_list->rowsAppend(row(QString::number(i)));
    }
    void fill(const QString& ids)
    {
        for (const QString& id : ids.split(' ', Qt::SkipEmptyParts))
            m_list->rowsAppend(row(id));
    }
    /// The list as if its service had started anew: all rows at once, and a reset.
    void become(const QList<OrvoRoles>& rows)
    {
        m_list->rowsClear();
        for (const OrvoRoles& roles : rows)
            m_list->rowsAppend(roles);
    }
    QString listIds() const
    {
        QList<OrvoRoles> list;
        for (const QVariant& roles : m_list->rows())
            list.append(OrvoRoles(roles));
        return idsOf(list);
    }
    bool isLive(const CMRowsClone& clone) const
    {
        return QTest::qWaitFor([&] { return !clone.isLoading() && idsOf(clone.list()) == listIds(); });
    }
    /// Changes the list when the first reply is taken, ahead of the next request.
    void changeBehindFirstReply(const CMRowsClone& clone, const std::function<void()>& change)
    {
        bool done = false;
        connect(clone.fetcher(), &CMRowsFetcher::rowsRolesChanged, this, [&, change] {
            if (done)
                return;
            done = true;
            change();
            m_worker->subscribe()->deliver();
        });
        QTRY_VERIFY(done);
        disconnect(clone.fetcher(), &CMRowsFetcher::rowsRolesChanged, this, nullptr);
    }
    /// Longer than the delays of the hub and of the fetcher's trigger.
    static void turn() { QTest::qWait(80); }

private slots:
    void initTestCase() { ForwardingRoot::instance(); }
    void init()
    {
        m_worker.reset(new ListWorker);
        ForwardingRoot::instance()->reset(m_worker.get());
        m_list = CMListRowsNode::create(m_worker->nodes(), P("t:list"));
    }
    void cleanup()
    {
        deleteWaiting();
        m_worker.reset();
        ForwardingRoot::instance()->reset(nullptr);
    }

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

    // Over the link

    void aListOfAnotherProcessIsMirroredThroughARestart()
    {
        const QString name = serviceName("clone");
        ServerProcess server(name);
        QVERIFY(server.start({"--rows", "250"}));
        {
            CMRemoteWorker worker("mirror", name);
            ForwardingRoot::instance()->reset(&worker);
            CMRowsClone clone(nullptr, CMPath::fromPrefix(name) + "list");
            Mirror mirror(&clone);
            QTRY_COMPARE_WITH_TIMEOUT(clone.list().size(), 250, 10000);
            for (int i = 0; i < 3; ++i)
                worker.invoke(CMPath::fromPrefix(name) + "append", true);
            QTRY_COMPARE(clone.list().size(), 253);
            QCOMPARE(clone.list().last(), row("252"));
            const int changes = mirror.changes;
            server.kill();
            QVERIFY(server.start({"--rows", "251"}));
            QTRY_COMPARE_WITH_TIMEOUT(clone.list().size(), 251, 10000);
            QTRY_VERIFY(!clone.isLoading());
            // Only the two rows that are gone.
            QCOMPARE(mirror.changes, changes + 2);
            QCOMPARE(mirror.loads, 1);
            QCOMPARE(mirror.fault, QString());
            ForwardingRoot::instance()->reset(m_worker.get());
            clone.setPath(CMPath());
        }
        deleteWaiting();
    }

    void aServiceThatDiesWhileTheListLoadsIsMetAgain()
    {
        const QString name = serviceName("dying");
        ServerProcess server(name);
        QVERIFY(server.start({"--rows", "5000"}));
        {
            CMRemoteWorker worker("mirror", name);
            ForwardingRoot::instance()->reset(&worker);
            CMRowsClone clone(nullptr, CMPath::fromPrefix(name) + "list");
            Mirror mirror(&clone);
            QTRY_VERIFY(!clone.fetcher()->isLoading());
            server.kill();
            QVERIFY(clone.isLoading());
            QVERIFY(server.start({"--rows", "300"}));
            QTRY_COMPARE_WITH_TIMEOUT(clone.list().size(), 300, 20000);
            QVERIFY(!clone.isLoading());
            QCOMPARE(mirror.fault, QString());
            ForwardingRoot::instance()->reset(m_worker.get());
        }
        deleteWaiting();
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
