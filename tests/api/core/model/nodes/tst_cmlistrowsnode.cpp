#include "core/model/nodes/cmlistrowsnode.h"

#include "childprocess.h"
#include "logcapture.h"
#include "nodetest.h"

#include <QRandomGenerator>
#include <QtTest>

#include <functional>

namespace {

OrvoRoles item(const QString& id, int timestamp = 0, const QString& title = QString())
{
    OrvoRoles roles = OrvoRoles().setId(id);
    if (timestamp)
        roles.setTimestamp(timestamp);
    if (!title.isEmpty())
        roles.setTitle(title);
    return roles;
}

OrvoRoles keyed(const QString& id, const QString& sortKey, const QString& title = QString())
{
    return item(id, 0, title).setSortKey(sortKey);
}

/// A list with rows that is watched at its own path.
class List : public NodesFixture
{
public:
    explicit List(const QStringList& ids = QStringList()) : list(CMListRowsNode::create(nodes(), P("x:l")))
    {
        for (const QString& id : ids)
            list->rowsAppend(item(id));
        spy.watchRows(worker.get(), P("x:l"));
    }
    /// The change strings since the last call.
    QStringList changes()
    {
        QStringList strings;
        for (const QString& event : delivered()) {
            const int begin = event.indexOf('[') + 1;
            strings += event.mid(begin, event.indexOf(']') - begin).split(',');
        }
        return strings;
    }
    /// Ids of roles rows, texts of path rows.
    QString ids() const
    {
        QStringList texts;
        for (const QVariant& row : list->rows())
            texts.append(row.type() == QVariant::String ? row.toString() : OrvoRoles(row.toHash()).id());
        return texts.join(' ');
    }
    int version() const { return hub()->rowsVersion(P("x:l")); }

    CMListRowsNode* const list;
};

/// A copy of the rows that follows the change strings, and reads anew only what they tell to be new.
class Replay : public QObject
{
    Q_OBJECT

public:
    explicit Replay(const CMListRowsNode* list) : rows(list->rows()), m_list(list) {}

    QList<QVariant> rows;
    QStringList last;
    int version = 0;
    int deliveries = 0;
    QString failure;

public slots:
    void onRows(CMPath, QStringList changes, int newVersion, int oldVersion)
    {
        ++deliveries;
        last = changes;
        check(oldVersion == version, "old version");
        // What is read anew after a reset holds the changes behind it, too.
        const int reset = changes.lastIndexOf(QString());
        for (int i = 0; i < changes.size(); ++i) {
            if (reset < 0)
                apply(changes.at(i));
            version = i == reset ? 0 : version + 1;
        }
        if (reset >= 0)
            rows = m_list->rows();
        check(newVersion == version, "new version");
        const QList<QVariant>& now = m_list->rows();
        check(rows.size() == now.size(), "size");
        for (int i = 0; failure.isEmpty() && i < rows.size(); ++i)
            check(!rows.at(i).isValid() || rows.at(i) == now.at(i), QString("row %1").arg(i));
        rows = now;
    }

private:
    void check(bool holds, const QString& what)
    {
        if (!holds && failure.isEmpty())
            failure = QString("delivery %1: %2 after [%3]").arg(deliveries).arg(what, last.join(','));
    }
    void apply(const QString& change)
    {
        if (!failure.isEmpty())
            return;
        static const QRegularExpression form("^(?:(\\+|-|)(\\d+)|=(\\d+)\\.\\.(\\d+))$");
        const QRegularExpressionMatch match = form.match(change);
        check(match.hasMatch(), "form " + change);
        const int at = match.captured(2).toInt();
        if (change.startsWith('=')) {
            const int from = match.captured(3).toInt();
            const int to = match.captured(4).toInt();
            check(from < rows.size() && to < rows.size(), change);
            if (failure.isEmpty())
                rows.move(from, to);
        } else if (change.startsWith('+')) {
            check(at <= rows.size(), change);
            rows.insert(qMin(at, rows.size()), QVariant());
        } else {
            check(at < rows.size(), change);
            if (!failure.isEmpty())
                return;
            if (change.startsWith('-'))
                rows.removeAt(at);
            else
                rows[at] = QVariant();
        }
    }

    const CMListRowsNode* const m_list;
};

CMReply<OrvoRowsRoles> read(const NodesFixture& f, const CMPath& path, const QStringList& roles, int version = -1)
{
    return f.worker->getRows(path, 0, 99, version, roles);
}

const FatalCalls& fatalCalls()
{
    static const FatalCalls calls{
        {"setBehindTheEnd", [] { List({"a"}).list->rowsSet(1, item("b")); }},
        {"setAtANegativePosition", [] { List({"a"}).list->rowsSet(-1, item("b")); }},
        // The second row would go to 3 + 2.
        {"moveDownOutOfTheList",
         [] {
             List({"a", "b", "c", "d"}).list->rowsMove(0, 2, 3);
         }},
        // The block ends at the size, one behind the last row: not cut.
        {"moveUpOutOfTheList",
         [] {
             List({"a", "b", "c", "d"}).list->rowsMove(2, 3, 0);
         }},
        {"moveCutAtTheSizeOutOfTheList",
         [] {
             List({"a", "b", "c", "d"}).list->rowsMove(2, 99, 0);
         }},
        {"neitherOldNorNew", [] { List({"a"}).list->itemChangeIndex(OrvoRoles(), OrvoRoles(), 0); }},
    };
    return calls;
}

const QMap<QString, QByteArray> fatalTexts{
    {"setBehindTheEnd", "pos < m_rows.size()"},
    {"setAtANegativePosition", "pos >= 0"},
    {"moveDownOutOfTheList", "index out of range"},
    {"moveUpOutOfTheList", "index out of range"},
    {"moveCutAtTheSizeOutOfTheList", "index out of range"},
    {"neitherOldNorNew", "!newRoles.isEmpty()"},
};

} // namespace

class tst_CMListRowsNode : public QObject
{
    Q_OBJECT

private slots:
    // Reading

    void rowsAreFoundByPathIdAndIndex()
    {
        List f;
        f.list->rowsAppend(item("a", 0, "first"));
        f.list->rowsAppend(P("y:t?k=v"));
        f.list->rowsAppend(item("a", 0, "second"));
        f.list->rowsAppend(P("y:t"));
        f.list->rowsAppend(P("y:t"));
        QCOMPARE(f.list->rowsSize(), 5);
        QCOMPARE(f.list->rows().size(), 5);
        QCOMPARE(f.list->rowsIndexOf(P("y:t")), 3);
        QCOMPARE(f.list->rowsIndexOf(P("y:t?k=v")), 1);
        QCOMPARE(f.list->rowsIndexOf(P("y:none")), -1);
        QCOMPARE(f.list->rowsIndexById("a"), 0);
        QCOMPARE(f.list->rowsIndexById("y:t"), -1);
        QCOMPARE(f.list->rowsIndexById(""), -1);
        QCOMPARE(f.list->rowsGetById("a").title(), QString("first"));
        QVERIFY(f.list->rowsGetById("none").isEmpty());
        QCOMPARE(f.list->getRow(1), QVariant("y:t?k=v"));
        QCOMPARE(f.list->getRow(2), item("a", 0, "second").__variant());
        QVERIFY(!f.list->getRow(-1).isValid());
        QVERIFY(!f.list->getRow(5).isValid());
        QCOMPARE(f.list->getRowRoles(2), item("a", 0, "second"));
        QVERIFY(f.list->getRowRoles(1).isEmpty());
        QVERIFY(f.list->getRowRoles(5).isEmpty());
    }

    void settingsReportNothing()
    {
        List f({"b", "a"});
        QCOMPARE(f.list->sortOrder(), QStringList({OrvoRoles::Id(), OrvoRoles::Timestamp()}));
        QVERIFY(f.list->rowsRoles().isEmpty());
        f.spy.watchData(f.worker.get(), P("x:l"));
        f.list->setRowsRoles(OrvoRowsRoles().setCloseTimeout(5));
        f.list->setSortOrder({OrvoRoles::Title()});
        f.list->setCopyPathParams(true);
        QCOMPARE(f.delivered(), QStringList());
        QCOMPARE(f.list->rowsRoles().closeTimeout(), 5);
        QCOMPARE(f.list->sortOrder(), QStringList(OrvoRoles::Title()));
        QCOMPARE(f.ids(), QString("b a"));
    }

    // Inserting

    void anInsertTellsThePlace_data()
    {
        QTest::addColumn<QStringList>("before");
        QTest::addColumn<int>("pos");
        QTest::addColumn<QString>("rows");
        QTest::addColumn<QString>("change");
        const QStringList abc{"a", "b", "c"};
        QTest::newRow("head") << abc << 0 << "n a b c"
                              << "+0";
        QTest::newRow("middle") << abc << 2 << "a b n c"
                                << "+2";
        QTest::newRow("end") << abc << 3 << "a b c n"
                             << "+3";
        QTest::newRow("beyond the end") << abc << 9 << "a b c n"
                                        << "+3";
        QTest::newRow("beyond the end of none") << QStringList() << 5 << "n"
                                                << "+0";
        QTest::newRow("a negative position is told as it stands") << abc << -2 << "n a b c"
                                                                  << "+-2";
    }

    void anInsertTellsThePlace()
    {
        QFETCH(QStringList, before);
        QFETCH(int, pos);
        List f(before);
        f.list->rowsInsert(pos, item("n"));
        QTEST(f.ids(), "rows");
        QTEST(f.changes().join(' '), "change");
    }

    void appendingTellsTheOldSize()
    {
        List f({"a", "b", "c"});
        f.list->rowsAppend(item("n"));
        QCOMPARE(f.delivered(), QStringList("rows x:l [+3] 0>1"));
    }

    void rowsOfAllFormsMayBeInserted()
    {
        List f;
        f.list->rowsInsert(0, QVariant("y:variant"));
        f.list->rowsInsert(0, P("y:path?k=v"));
        f.list->rowsInsert(0, item("roles"));
        f.list->rowsAppend(QVariant(item("variant").__variant()));
        QCOMPARE(f.ids(), QString("roles y:path?k=v y:variant variant"));
        QCOMPARE(f.list->getRow(1).type(), QVariant::String);
        QCOMPARE(f.list->getRow(0).type(), QVariant::Hash);
    }

    void anEmptyPathIsNotInserted()
    {
        const LogCapture log("CMListRowsNode");
        List f({"a"});
        f.list->rowsInsert(7, CMPath());
        QCOMPARE(f.list->rowsSize(), 1);
        QCOMPARE(f.changes(), QStringList());
        QCOMPARE(log.lines(), QStringList("WARN Failed to insert empty path to position: 7"));
    }

    void anEmptyPathIsAppended()
    {
        List f({"a"});
        f.list->rowsAppend(CMPath());
        QCOMPARE(f.list->getRow(1), QVariant(QString()));
        QCOMPARE(f.changes(), QStringList("+1"));
    }

    // Setting

    void settingTellsTheNumberAlone()
    {
        List f({"a", "b", "c"});
        QVERIFY(f.list->rowsSet(1, item("n")));
        QCOMPARE(f.changes(), QStringList("1"));
        QVERIFY(!f.list->rowsSet(1, item("n")));
        QVERIFY(!f.list->rowsSet(1, item("n").__variant()));
        QCOMPARE(f.changes(), QStringList());
        QVERIFY(f.list->rowsSet(2, P("y:t")));
        QVERIFY(!f.list->rowsSet(2, QVariant("y:t")));
        QCOMPARE(f.changes(), QStringList("2"));
        QCOMPARE(f.ids(), QString("a n y:t"));
    }

    void settingByIdKeepsTheOrder_data()
    {
        QTest::addColumn<QStringList>("before");
        QTest::addColumn<OrvoRoles>("set");
        QTest::addColumn<QString>("rows");
        QTest::addColumn<QString>("changes");
        QTest::addColumn<bool>("result");
        const auto row = [](const char* name, const QStringList& before, const OrvoRoles& set, const QString& rows,
                            const QString& changes,
                            bool result = true) { QTest::newRow(name) << before << set << rows << changes << result; };
        row("into none", {}, keyed("5x", "5"), "5x", "+0");
        row("ahead of all", {"3a", "7b"}, keyed("1x", "1"), "1x 3a 7b", "+0");
        row("between", {"3a", "7b"}, keyed("5x", "5"), "3a 5x 7b", "+1");
        row("behind all", {"3a", "7b"}, keyed("9x", "9"), "3a 7b 9x", "+2");
        row("behind its equals", {"3a", "5b", "5c", "7d"}, keyed("5x", "5"), "3a 5b 5c 5x 7d", "+3");
        row("unchanged", {"3a", "5b", "7c"}, keyed("5b", "5"), "3a 5b 7c", "", false);
        row("changed in place", {"3a", "5b", "7c"}, keyed("5b", "5", "new"), "3a 5b 7c", "1");
        row("first of equals, changed in place", {"5a", "5b", "5c"}, keyed("5a", "5", "new"), "5a 5b 5c", "0");
        row("other keys, same place", {"3a", "5b", "7c"}, keyed("5b", "6"), "3a 5b 7c", "1");
        row("other keys, same place, down", {"3a", "5b", "7c"}, keyed("5b", "4"), "3a 5b 7c", "1");
        row("moved up", {"3a", "5b", "7c"}, keyed("7c", "1"), "7c 3a 5b", "-2 +0");
        row("moved down", {"3a", "5b", "7c"}, keyed("3a", "9"), "5b 7c 3a", "-0 +2");
        row("moved down by one", {"3a", "5b", "7c"}, keyed("3a", "6"), "5b 3a 7c", "-0 +1");
        row("moved up by one", {"3a", "5b", "7c"}, keyed("7c", "4"), "3a 7c 5b", "-2 +1");
        row("path rows are skipped", {"y:p", "3a", "y:q", "7b"}, keyed("5x", "5"), "y:p 3a 5x y:q 7b", "+2");
        row("only path rows", {"y:p", "y:q"}, keyed("5x", "5"), "5x y:p y:q", "+0");
        row("unsorted rows: behind the last that sorts before", {"7a", "3b", "9c"}, keyed("5x", "5"), "7a 3b 5x 9c",
            "+2");
    }

    void settingByIdKeepsTheOrder()
    {
        QFETCH(QStringList, before);
        QFETCH(OrvoRoles, set);
        QFETCH(QString, changes);
        List f;
        f.list->setSortOrder({OrvoRoles::SortKey()});
        for (const QString& text : before) {
            if (text.startsWith("y:"))
                f.list->rowsAppend(CMPath::fromEncoded(text));
            else
                f.list->rowsAppend(keyed(text, text.left(1)));
        }
        f.delivered();
        QTEST(f.list->rowsSetById(set), "result");
        QTEST(f.ids(), "rows");
        QCOMPARE(f.changes().join(' '), changes);
        if (!set.isEmpty())
            QCOMPARE(f.list->rowsGetById(set.id()), set);
    }

    void numbersStandGreatestFirst()
    {
        // As timestamps should: the newest first.
        List f;
        f.list->setSortOrder({OrvoRoles::Timestamp()});
        for (int timestamp : {5, 9, 1, 7})
            f.list->rowsSetById(item(QString::number(timestamp), timestamp));
        QCOMPARE(f.ids(), QString("9 7 5 1"));
    }

    void theLaterSortKeysDecideAmongEquals()
    {
        List f;
        f.list->setSortOrder({OrvoRoles::Title(), OrvoRoles::Timestamp()});
        f.list->rowsSetById(item("1", 5, "b"));
        f.list->rowsSetById(item("2", 3, "b"));
        f.list->rowsSetById(item("3", 9, "a"));
        f.list->rowsSetById(item("4", 4, "b"));
        QCOMPARE(f.ids(), QString("3 1 4 2"));
    }

    void withoutSortKeysNewRowsStandAtTheEnd()
    {
        List f;
        f.list->setSortOrder({});
        for (const char* id : {"b", "a", "c"})
            f.list->rowsSetById(item(id));
        QCOMPARE(f.ids(), QString("b a c"));
        f.changes();
        QVERIFY(f.list->rowsSetById(item("b", 0, "new")));
        QCOMPARE(f.changes(), QStringList("0"));
    }

    void theDefaultOrderIsByIdAndTimestamp()
    {
        List f;
        for (const char* id : {"b", "c", "a"})
            f.list->rowsSetById(item(id, 1));
        QCOMPARE(f.ids(), QString("a b c"));
        f.changes();
        QVERIFY(f.list->rowsSetById(item("b", 9)));
        QCOMPARE(f.changes(), QStringList("1"));
    }

    void itemChangesGoById()
    {
        List f({"a", "b", "c"});
        f.list->itemChange(item("aa"), OrvoRoles());
        QCOMPARE(f.ids(), QString("a aa b c"));
        QCOMPARE(f.changes(), QStringList("+1"));
        f.list->itemChange(OrvoRoles(), item("b"));
        QCOMPARE(f.ids(), QString("a aa c"));
        QCOMPARE(f.changes(), QStringList("-2"));
        f.list->itemChange(item("d"), item("a"));
        QCOMPARE(f.ids(), QString("aa c d"));
        QCOMPARE(f.changes(), QStringList({"-0", "+2"}));
        f.list->itemChange(OrvoRoles(), OrvoRoles());
        QCOMPARE(f.changes(), QStringList());
        QVERIFY(CMListRowsNode::staticMetaObject.indexOfSlot("itemChange(OrvoRoles,OrvoRoles)") >= 0);
    }

    void itemChangesGoByIndex()
    {
        List f({"a", "b", "c"});
        f.list->itemChangeIndex(item("n"), OrvoRoles(), 1);
        QCOMPARE(f.ids(), QString("a n b c"));
        f.list->itemChangeIndex(OrvoRoles(), item("whatever"), 0);
        QCOMPARE(f.ids(), QString("n b c"));
        f.list->itemChangeIndex(item("m"), item("whatever"), 2);
        QCOMPARE(f.ids(), QString("n b m"));
        QCOMPARE(f.changes(), QStringList({"+1", "-0", "2"}));
        QVERIFY(CMListRowsNode::staticMetaObject.indexOfSlot("itemChangeIndex(OrvoRoles,OrvoRoles,int)") >= 0);
    }

    // Moving

    void movesTellTheirSteps_data()
    {
        QTest::addColumn<int>("from");
        QTest::addColumn<int>("count");
        QTest::addColumn<int>("to");
        QTest::addColumn<QString>("rows");
        QTest::addColumn<QString>("changes");
        QTest::newRow("down") << 1 << 1 << 3 << "a c d b e"
                              << "=1..3";
        QTest::newRow("to the end") << 0 << 1 << 4 << "b c d e a"
                                    << "=0..4";
        QTest::newRow("up") << 3 << 1 << 0 << "d a b c e"
                            << "=3..0";
        QTest::newRow("a block up") << 3 << 2 << 0 << "d e a b c"
                                    << "=3..0 =4..1";
        // The target grows by two: the rows do not arrive side by side.
        // The target grows by two: the rows do not arrive side by side.
        QTest::newRow("a block down") << 0 << 2 << 2 << "c a d e b"
                                      << "=0..2 =0..4";
        QTest::newRow("onto itself") << 2 << 1 << 2 << "a b c d e"
                                     << "";
        QTest::newRow("into itself") << 1 << 3 << 3 << "a b c d e"
                                     << "";
        QTest::newRow("into itself, beyond the end") << 1 << 9 << 3 << "a b c d e"
                                                     << "";
    }

    void movesTellTheirSteps()
    {
        QFETCH(int, from);
        QFETCH(int, count);
        QFETCH(int, to);
        List f({"a", "b", "c", "d", "e"});
        QVERIFY(f.list->rowsMove(from, count, to));
        QTEST(f.ids(), "rows");
        QTEST(f.changes().join(' '), "changes");
    }

    void aMoveOfOneHasTwoArguments()
    {
        List f({"a", "b", "c", "d", "e"});
        QVERIFY(f.list->rowsMove(2, 2));
        QVERIFY(f.list->rowsMove(2, 1, 2));
        QCOMPARE(f.changes(), QStringList());
        QVERIFY(f.list->rowsMove(1, 3));
        QCOMPARE(f.delivered(), QStringList("rows x:l [=1..3] 0>1"));
        QVERIFY(f.list->rowsMove(3, 2, 0));
        QCOMPARE(f.delivered(), QStringList("rows x:l [=3..0,=4..1] 1>3"));
    }

    void badMovesAreRefused_data()
    {
        QTest::addColumn<int>("from");
        QTest::addColumn<int>("count");
        QTest::addColumn<int>("to");
        QTest::newRow("no count") << 0 << 0 << 1;
        QTest::newRow("negative from") << -1 << 1 << 1;
        QTest::newRow("negative to") << 1 << 1 << -1;
        QTest::newRow("from the end") << 3 << 1 << 0;
        QTest::newRow("to the end") << 0 << 1 << 3;
    }

    void badMovesAreRefused()
    {
        QFETCH(int, from);
        QFETCH(int, count);
        QFETCH(int, to);
        const LogCapture log("CMListRowsNode");
        List f({"a", "b", "c"});
        QVERIFY(!f.list->rowsMove(from, count, to));
        QCOMPARE(f.ids(), QString("a b c"));
        QCOMPARE(f.changes(), QStringList());
        QCOMPARE(log.lines(), QStringList(QString("ERROR Invalid from, to or count. From: %1 count: %2 to: %3 rows: 3")
                                              .arg(from)
                                              .arg(count)
                                              .arg(to)));
    }

    // Removing

    void removingTwoEqualRowsReportsShiftedNumbers()
    {
        List f({"a", "b", "c", "b", "d"});
        QCOMPARE(f.list->rowsRemove(item("b")), 2);
        QCOMPARE(f.ids(), QString("a c d"));
        QCOMPARE(f.delivered(), QStringList("rows x:l [-1,-2] 0>2"));
        QCOMPARE(f.list->rowsRemove(item("b")), 0);
        QCOMPARE(f.delivered(), QStringList());
    }

    void removingGoesByRowIdOrPath()
    {
        List f({"a", "b", "a"});
        for (const char* path : {"y:t", "y:t/1", "y:u", "y:t?k=v"})
            f.list->rowsAppend(P(path));
        f.list->rowsAppend(item("p").setPath(P("y:t/2")));
        f.list->rowsAppend(item("y:t"));
        f.changes();
        f.list->rowsRemoveAll(item("b"));
        QCOMPARE(f.changes(), QStringList("-1"));
        QCOMPARE(f.list->rowsRemove(P("y:t")), 1);
        QCOMPARE(f.changes(), QStringList("-2"));
        QCOMPARE(f.list->rowsRemoveById("a"), 2);
        QCOMPARE(f.changes(), QStringList({"-0", "-0"}));
        QCOMPARE(f.ids(), QString("y:t/1 y:u y:t?k=v p y:t"));
        QCOMPARE(f.list->rowsRemoveById("y:u"), 0);
        f.list->rowsRemoveStartingWithPath(P("y:t"));
        QCOMPARE(f.changes(), QStringList({"-0", "-1", "-1"}));
        QCOMPARE(f.ids(), QString("y:u y:t"));
        f.list->rowsRemoveAll(P("y:u"));
        f.list->rowsRemoveAll(item("y:t").__variant());
        QCOMPARE(f.list->rowsSize(), 0);
    }

    void aRowOfTheListMayBeTheArgument()
    {
        List f({"a", "b", "a", "a"});
        QCOMPARE(f.list->rowsRemove(f.list->rows().at(0)), 3);
        QCOMPARE(f.ids(), QString("b"));
        f.list->rowsAppend(f.list->rows().at(0));
        QCOMPARE(f.ids(), QString("b b"));
    }

    void removingAtABadIndexIsIgnored()
    {
        List f({"a", "b", "c"});
        f.list->rowsRemoveAt(-1);
        f.list->rowsRemoveAt(3);
        QCOMPARE(f.changes(), QStringList());
        f.list->rowsRemoveAt(1);
        QCOMPARE(f.changes(), QStringList("-1"));
        QCOMPARE(f.ids(), QString("a c"));
    }

    void clearingIsOneReset()
    {
        List f({"a", "b", "c"});
        f.list->rowsSet(0, item("n"));
        f.list->rowsClear();
        QCOMPARE(f.list->rowsSize(), 0);
        QCOMPARE(f.version(), 0);
        QCOMPARE(f.delivered(), QStringList("rows x:l [0,] 0>0"));
        f.list->rowsAppend(item("a"));
        f.delivered();
        f.list->rowsRemoveAt(0);
        QCOMPARE(f.version(), 2);
        // Also when there is nothing to clear.
        f.list->rowsClear();
        QCOMPARE(f.version(), 0);
        QCOMPARE(f.delivered(), QStringList("rows x:l [-0,] 1>0"));
    }

    // Versions

    void eachStringIsOneVersion()
    {
        List f({"a", "b", "c"});
        QCOMPARE(f.version(), 0);
        for (int i = 0; i < 3; ++i)
            f.list->rowsSet(i, item("n"));
        QCOMPARE(f.version(), 3);
        f.list->rowsInsert(0, item("m"));
        QCOMPARE(f.version(), 4);
        f.list->rowsRemove(item("n"));
        QCOMPARE(f.version(), 7);
        f.list->nextRowsVersion(QStringList());
        QCOMPARE(f.version(), 7);
        f.list->nextRowsVersion("0");
        f.list->nextRowsVersion(QStringList{"0", "0"});
        QCOMPARE(f.version(), 10);
        f.list->hide();
        QCOMPARE(f.version(), 0);
    }

    void withoutSubscribersNothingIsCounted()
    {
        List f;
        f.spy.unwatchRows(f.worker.get(), P("x:l"));
        f.list->rowsAppend(item("a"));
        f.list->rowsAppend(item("b"));
        QCOMPARE(f.version(), 0);
        QCOMPARE(read(f, P("x:l"), {OrvoRoles::Id()}).value().rowsVersion(), 0);
        QVERIFY(!read(f, P("x:l"), {OrvoRoles::Id()}, 0).error().isError());
    }

    void aVersionBelongsToOneSubscribedPath()
    {
        List f({"a"});
        f.list->rowsSet(0, item("b"));
        f.spy.watchRows(f.worker.get(), P("x:l?k=v"));
        f.list->rowsSet(0, item("c"));
        QCOMPARE(read(f, P("x:l"), {}).value().rowsVersion(), 2);
        QCOMPARE(read(f, P("x:l?k=v"), {}).value().rowsVersion(), 1);
        QCOMPARE(read(f, P("x:l?other=v"), {}).value().rowsVersion(), 0);
        QCOMPARE(read(f, P("x:l"), {}, 1).error().message(),
                 QString("Rows version at path 'x:l' does not match: 1!=2"));
        QVERIFY(!read(f, P("x:l"), {}, 2).error().isError());
        f.spy.unwatchRows(f.worker.get(), P("x:l"));
        f.spy.watchRows(f.worker.get(), P("x:l"));
        QCOMPARE(f.version(), 0);
    }

    // Requests

    void rowsAreAnswered()
    {
        List f({"a", "b", "c"});
        f.list->setRowsRoles(OrvoRowsRoles().setCloseTimeout(5));
        const auto reply = f.worker->getRows(P("x:l"), 1, 9, -1, {OrvoRoles::Id(), OrvoRoles::Path()});
        QCOMPARE(reply.value().rows().toList(), QVariantList({QVariantList{"b", ""}, QVariantList{"c", ""}}));
        QCOMPARE(reply.value().rowsCount(), 3);
        QCOMPARE(reply.value().closeTimeout(), 5);
        QCOMPARE(f.worker->getRows(P("x:l/1"), 0, 9, -1, {}).error().name(), CMAbstractWorker::ErrorInvalidPath());
        auto* data = new CMGetRowsRequest::Data;
        data->path = P("x:l/1");
        QVERIFY(!f.list->getRowsRequest(CMGetRowsRequest(data)));
    }

    void parametersArePassedOnOnDemand()
    {
        List f;
        f.list->rowsAppend(item("a").setPath(P("y:t")));
        const auto path = [&] {
            return read(f, P("x:l?k=v"), {OrvoRoles::Path()}).value().rows().toList().at(0).toList().at(0);
        };
        QCOMPARE(path(), QVariant("y:t"));
        f.list->setCopyPathParams(true);
        QCOMPARE(path(), QVariant("y:t?k=v"));
    }

    void aMatchIsFoundByWalkingTheRows()
    {
        List f({"a", "b", "c"});
        QCOMPARE(f.worker->matchRow(P("x:l"), 0, OrvoRoles::Id(), "c", 0, -1).value(), 2);
        QCOMPARE(f.worker->matchRow(P("x:l"), 0, OrvoRoles::Id(), "x", 0, -1).value(), -1);
    }

    void rowsAreReadWithoutTheLock()
    {
        List f;
        class Target : public CMUINode
        {
        public:
            using CMUINode::CMUINode;
            QVariant getRoleData(const QString& role, const Params& params) override
            {
                std::unique_ptr<QThread> other(QThread::create([this] {
                    free = list->mutex()->tryLock();
                    if (free)
                        list->mutex()->unlock();
                }));
                other->start();
                other->wait();
                list->rowsClear();
                return CMUINode::getRoleData(role, params);
            }
            CMListRowsNode* list = nullptr;
            bool free = false;
        };
        auto* target = new Target(P("x:t"));
        target->list = f.list;
        target->setNodes(f.nodes());
        f.list->rowsAppend(P("x:t"));
        f.list->rowsAppend(item("b"));
        const auto reply = read(f, P("x:l"), {OrvoRoles::Id()});
        QVERIFY(target->free);
        // The copy is answered, though the list is empty by now.
        QCOMPARE(reply.value().rows().toList().size(), 2);
        QCOMPARE(reply.value().rowsVersion(), 2);
        QCOMPARE(f.list->rowsSize(), 0);
    }

    // Targets of path rows

    void targetsAreWatchedWhileThereAreRowsSubscribers()
    {
        NodesFixture f;
        CMListRowsNode* list = CMListRowsNode::create(f.nodes(), P("x:l"));
        list->rowsAppend(P("y:t?k=v"));
        list->rowsAppend(item("a").setPath(P("y:roles")));
        QVERIFY(!f.hub()->dataPath(P("y:t?k=v")));
        f.spy.watchRows(f.worker.get(), P("x:l"));
        QVERIFY(f.hub()->dataPath(P("y:t?k=v")));
        QVERIFY(!f.hub()->dataPath(P("y:roles")));
        f.spy.watchRows(f.worker.get(), P("x:l?a=1"));
        QVERIFY(f.hub()->dataPath(P("y:t?a=1?k=v")));
        list->rowsInsert(0, P("y:u"));
        QVERIFY(f.hub()->dataPath(P("y:u")) && f.hub()->dataPath(P("y:u?a=1")));
        list->rowsRemoveAt(0);
        QVERIFY(!f.hub()->dataPath(P("y:u")) && !f.hub()->dataPath(P("y:u?a=1")));
        f.spy.unwatchRows(f.worker.get(), P("x:l"));
        QVERIFY(!f.hub()->dataPath(P("y:t?k=v")));
        QVERIFY(f.hub()->dataPath(P("y:t?a=1?k=v")));
        list->rowsClear();
        QVERIFY(!f.hub()->dataPath(P("y:t?a=1?k=v")));
    }

    void everyWayOutEndsTheWatch_data()
    {
        QTest::addColumn<int>("way");
        QTest::newRow("remove") << 0;
        QTest::newRow("remove all") << 1;
        QTest::newRow("remove by prefix") << 2;
        QTest::newRow("remove at") << 3;
        QTest::newRow("clear") << 4;
        QTest::newRow("end of the node") << 5;
        QTest::newRow("end of the subscription") << 6;
    }

    void everyWayOutEndsTheWatch()
    {
        QFETCH(int, way);
        List f;
        f.list->rowsAppend(P("y:t"));
        f.list->rowsAppend(P("y:t"));
        QVERIFY(f.hub()->dataPath(P("y:t")));
        switch (way) {
        case 0:
            f.list->rowsRemove(P("y:t"));
            break;
        case 1:
            f.list->rowsRemoveAll(P("y:t"));
            break;
        case 2:
            f.list->rowsRemoveStartingWithPath(P("y:"));
            break;
        case 3:
            f.list->rowsRemoveAt(1);
            // The other row still refers to it.
            QVERIFY(f.hub()->dataPath(P("y:t")));
            f.list->rowsRemoveAt(0);
            break;
        case 4:
            f.list->rowsClear();
            break;
        case 5:
            f.list->deleteLater();
            break;
        default:
            f.spy.unwatchRows(f.worker.get(), P("x:l"));
        }
        QVERIFY(!f.hub()->dataPath(P("y:t")));
    }

    void movingKeepsTheWatchAndTheNumbersFollow()
    {
        List f;
        CMUINode* target = CMUINode::create(f.nodes(), P("y:t"));
        f.list->rowsAppend(P("y:t"));
        f.list->rowsAppend(item("a"));
        f.list->rowsAppend(item("b"));
        f.delivered();
        const auto told = [&] {
            target->dataChanged();
            f.hub()->deliver();
            return f.changes();
        };
        QCOMPARE(told(), QStringList("0"));
        f.list->rowsMove(0, 2);
        f.changes();
        QCOMPARE(told(), QStringList("2"));
        f.list->rowsInsert(0, item("c"));
        f.changes();
        QCOMPARE(told(), QStringList("3"));
        f.list->rowsRemoveById("b");
        f.changes();
        QCOMPARE(told(), QStringList("2"));
        f.list->rowsClear();
        f.changes();
        QCOMPARE(told(), QStringList());
    }

    void equalTargetsAreToldInOneDelivery()
    {
        List f({"0", "1"});
        CMUINode* target = CMUINode::create(f.nodes(), P("y:t"));
        f.list->rowsAppend(P("y:t"));
        f.list->rowsAppend(P("y:u"));
        f.list->rowsAppend(item("4"));
        f.list->rowsAppend(P("y:t"));
        f.delivered();
        target->dataChanged();
        f.hub()->deliver();
        QCOMPARE(f.delivered(), QStringList("rows x:l [2,5] 4>6"));
    }

    void manyEqualTargetsAreToldInTheirOrder()
    {
        List f;
        CMUINode* target = CMUINode::create(f.nodes(), P("y:t"));
        QStringList numbers;
        for (int i = 0; i < 300; ++i) {
            f.list->rowsAppend(CMPath::fromEncoded(i % 3 ? QString("y:other/%1").arg(i) : QString("y:t")));
            if (i % 3 == 0)
                numbers.append(QString::number(i));
        }
        f.delivered();
        target->dataChanged();
        f.hub()->deliver();
        QCOMPARE(f.changes(), numbers);
    }

    void aSubscriptionWithParametersHearsOfTheTargetWithThem()
    {
        NodesFixture f;
        CMListRowsNode* list = CMListRowsNode::create(f.nodes(), P("x:l"));
        list->rowsAppend(item("a"));
        list->rowsAppend(P("y:t"));
        f.spy.watchRows(f.worker.get(), P("x:l?a=1"));
        QVERIFY(f.hub()->dataPath(P("y:t?a=1")));
        QVERIFY(!f.hub()->dataPath(P("y:t")));
        f.hub()->dataChanged(P("y:t?a=1"));
        f.hub()->deliver();
        QCOMPARE(f.delivered(), QStringList("rows x:l?a=1 [1] 0>1"));
        f.hub()->dataChanged(P("y:t"));
        f.hub()->deliver();
        QCOMPARE(f.delivered(), QStringList());
    }

    void theNumbersGrowOverTheSubscribedPaths()
    {
        NodesFixture f;
        CMListRowsNode* list = CMListRowsNode::create(f.nodes(), P("x:l"));
        list->rowsAppend(P("y:t"));
        list->rowsAppend(P("y:t?a=1"));
        f.spy.watchRows(f.worker.get(), P("x:l"));
        f.spy.watchRows(f.worker.get(), P("x:l?a=1"));
        // "y:t?a=1" is row 1 for the first path, and row 0 with its parameter for the second.
        const QMetaObject* meta = list->metaObject();
        QVERIFY(meta->indexOfSlot("watchedDataChanged(CMPath)") >= 0);
        QVERIFY(QMetaObject::invokeMethod(list, "watchedDataChanged", Q_ARG(CMPath, P("y:t?a=1"))));
        QStringList events = f.delivered();
        events.sort();
        const bool plainFirst = events.first() == "rows x:l [1] 0>1";
        QCOMPARE(events, plainFirst ? QStringList({"rows x:l [1] 0>1", "rows x:l?a=1 [1,0] 0>2"})
                                    : QStringList({"rows x:l [0,1] 0>2", "rows x:l?a=1 [0] 0>1"}));
    }

    void aChangedTargetReachesTheReaderThroughItsNode()
    {
        List f;
        CMUINode* target = CMUINode::create(f.nodes(), P("y:t"));
        f.list->rowsAppend(P("y:t"));
        f.delivered();
        target->setTitle(QString("new"));
        f.hub()->deliver();
        QCOMPARE(f.delivered(), QStringList("rows x:l [0] 1>2"));
        // A target that leaves tells of an invalid value and no data change: the row stays silent.
        target->deleteLater();
        f.hub()->deliver();
        QCOMPARE(f.delivered(), QStringList());
    }

    void settingARowTouchesNoWatch()
    {
        List f;
        f.list->rowsAppend(P("y:t"));
        f.list->rowsSet(0, P("y:u"));
        QVERIFY(f.hub()->dataPath(P("y:t")));
        QVERIFY(!f.hub()->dataPath(P("y:u")));
        f.list->rowsRemoveAt(0);
        QVERIFY(!f.hub()->dataPath(P("y:u")));
        f.spy.unwatchRows(f.worker.get(), P("x:l"));
        QVERIFY(!f.hub()->dataPath(P("y:t")));
    }

    void aNewListCatchesUpWithWaitingSubscribers()
    {
        NodesFixture f;
        f.spy.watchRows(f.worker.get(), P("x:l?a=1"));
        CMListRowsNode* list = CMListRowsNode::create(f.nodes(), P("x:l"));
        list->rowsAppend(P("y:t"));
        QCOMPARE(f.delivered(), QStringList("rows x:l?a=1 [+0] 0>1"));
        QVERIFY(f.hub()->dataPath(P("y:t?a=1")));
        f.spy.unwatchRows(f.worker.get(), P("x:l?a=1"));
        QVERIFY(!f.hub()->dataPath(P("y:t?a=1")));
    }

    void aPathThatIsToldTwiceIsWatchedOnce()
    {
        List f;
        f.list->rowsAppend(P("y:t"));
        f.list->rowsPathAdd(P("x:l"));
        f.spy.unwatchRows(f.worker.get(), P("x:l"));
        QVERIFY(!f.hub()->dataPath(P("y:t")));
    }

    // At random

    void readersThatFollowTheStringsHoldTheRows_data()
    {
        QTest::addColumn<quint32>("seed");
        for (quint32 seed : {1u, 20u, 300u, 4711u, 31415u})
            QTest::newRow(qPrintable(QString("seed %1").arg(seed))) << seed;
    }

    void readersThatFollowTheStringsHoldTheRows()
    {
        QFETCH(quint32, seed);
        QRandomGenerator random(seed);
        List f;
        f.list->setSortOrder({OrvoRoles::Timestamp()});
        Replay replay(f.list);
        f.worker->connectRowsChange(P("x:l"), &replay, SLOT(onRows(CMPath,QStringList,int,int)), Qt::DirectConnection);
        QList<QVariant> model;
        const auto target = [&] { return CMPath::fromEncoded(QString("y:t/%1").arg(random.bounded(4))); };
        const auto row = [&]() -> QVariant {
            if (random.bounded(3) == 0)
                return target().__variant();
            return item(QString::number(random.bounded(12)), 1 + random.bounded(6)).__variant();
        };
        const auto anyRow = [&] { return model.isEmpty() ? row() : model.at(random.bounded(model.size())); };
        const auto hasId = [](const QVariant& row, const QString& id) {
            return row.type() != QVariant::String && OrvoRoles(row.toHash()).id() == id;
        };

        for (int step = 0; step < 3000; ++step) {
            const int size = model.size();
            const int at = random.bounded(size + 1);
            switch (random.bounded(size > 40 ? 14 : 11)) {
            case 0:
            case 1: {
                const QVariant added = row();
                f.list->rowsInsert(at, added);
                model.insert(at, added);
                break;
            }
            case 2: {
                const QVariant added = row();
                f.list->rowsAppend(added);
                model.append(added);
                break;
            }
            case 3: {
                // Path rows are not replaced in place.
                if (at == size || model.at(at).type() == QVariant::String)
                    break;
                const QVariant set = item(QString::number(random.bounded(12)), 1 + random.bounded(6)).__variant();
                QCOMPARE(f.list->rowsSet(at, set), model.at(at) != set);
                model[at] = set;
                break;
            }
            case 4: {
                const int from = random.bounded(size + 1);
                const int count = random.bounded(4);
                const bool refused = from >= size || at >= size || count < 1;
                const bool within = from <= at && at < from + count;
                if (!refused && !within && (from < at ? at + 2 * (count - 1) >= size : from + count > size))
                    break;
                const LogCapture quiet("CMListRowsNode");
                QCOMPARE(f.list->rowsMove(from, count, at), !refused);
                for (int i = 0; !refused && !within && i < count; ++i)
                    from < at ? model.move(from, at + 2 * i) : model.move(from + i, at + i);
                break;
            }
            case 5: {
                const OrvoRoles set = item(QString::number(random.bounded(12)), 1 + random.bounded(6));
                // All others stand as before: without a row of the id they are equal, wherever it went.
                QList<QList<QVariant>> others;
                for (int i = 0; i < size; ++i)
                    if (hasId(model.at(i), set.id())) {
                        others.append(model);
                        others.last().removeAt(i);
                    }
                if (others.isEmpty())
                    others.append(model);
                f.list->rowsSetById(set);
                model = f.list->rows();
                bool fits = false;
                for (int i = 0; !fits && i < model.size(); ++i) {
                    QList<QVariant> rest = model;
                    fits = rest.takeAt(i) == set.__variant() && others.contains(rest);
                }
                QVERIFY(fits);
                break;
            }
            case 6: {
                const QString id = QString::number(random.bounded(12));
                int count = 0;
                for (int i = size - 1; i >= 0; --i)
                    if (hasId(model.at(i), id)) {
                        model.removeAt(i);
                        ++count;
                    }
                QCOMPARE(f.list->rowsRemoveById(id), count);
                break;
            }
            case 7: {
                const QVariant removed = anyRow();
                const int count = model.removeAll(removed);
                QCOMPARE(f.list->rowsRemove(removed), count);
                break;
            }
            case 8:
                f.list->rowsRemoveAt(at);
                if (at < size)
                    model.removeAt(at);
                break;
            case 9: {
                // Nothing else is pending, so that the numbers are those of the rows.
                f.hub()->deliver();
                f.hub()->deliver();
                const CMPath changed = target();
                QStringList numbers;
                for (int i = 0; i < size; ++i)
                    if (model.at(i) == changed.__variant())
                        numbers.append(QString::number(i));
                const int deliveries = replay.deliveries;
                f.hub()->dataChanged(changed);
                f.hub()->deliver();
                f.hub()->deliver();
                QCOMPARE(replay.deliveries, deliveries + !numbers.isEmpty());
                if (!numbers.isEmpty())
                    QCOMPARE(replay.last, numbers);
                QCOMPARE(f.hub()->dataPath(changed), !numbers.isEmpty());
                break;
            }
            case 10:
                if (random.bounded(60) == 0) {
                    f.list->rowsClear();
                    model.clear();
                }
                break;
            default:
                f.list->rowsRemoveAt(0);
                model.removeAt(0);
            }
            QCOMPARE(f.list->rows(), model);
            if (random.bounded(3) == 0)
                f.hub()->deliver();
            QVERIFY2(replay.failure.isEmpty(), qPrintable(QString("step %1, %2").arg(step).arg(replay.failure)));
        }
        f.hub()->deliver();
        QVERIFY2(replay.failure.isEmpty(), qPrintable(replay.failure));
        QCOMPARE(replay.rows, f.list->rows());
        QCOMPARE(f.version(), replay.version);
        QVERIFY(replay.deliveries > 300);
    }

    // Misuse

    void aMisuseStopsTheProcess_data() { addFatalCalls(fatalCalls(), fatalTexts); }
    void aMisuseStopsTheProcess() { verifyFatalCall(); }
};

int main(int argc, char** argv)
{
    return runTestOrFatalCall<tst_CMListRowsNode>(argc, argv, fatalCalls());
}

#include "tst_cmlistrowsnode.moc"
