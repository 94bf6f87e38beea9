#include "core/model/cmrowsbrowser.h"

#include "core/model/cmsubscribe.h"
#include "logcapture.h"
#include "support/scriptedrows.h"

#include <QPointer>

#include <functional>
#include <limits>

/// How changes of the list move a browser's window.
class tst_CMRowsBrowserChanges : public QObject
{
    Q_OBJECT

private:
    /// A list of which a browser shows rows 49 to 51.
    struct Middle : ScriptedRows
    {
        Middle() : ScriptedRows(1, 100)
        {
            load();
            browser.setCurrentRow(50);
            load();
        }
    };

    /// Twenty rows, the whole window of nine loaded around the current row, by the steps that changes take.
    static void fill(CMRowsBrowser* browser, int current)
    {
        browser->setRadius(1);
        browser->setRowsCount(20);
        browser->setCurrentRow(current);
        for (int row = 0; row < 20; ++row)
            browser->rowSet(row, OrvoRoles().setId(QString::number(row)));
    }
    /// The numbers of the rows whose slots hold something else than the list's row; an empty slot is none.
    static QList<int> wrongRows(const CMRowsBrowser& browser, const QStringList& list)
    {
        QList<int> wrong;
        for (int row = -10; row < 40; ++row) {
            const QString id = browser.item(row).id();
            if (!id.isEmpty() && id != list.value(row))
                wrong.append(row);
        }
        return wrong;
    }
    static QStringList numbers()
    {
        QStringList list;
        for (int row = 0; row < 20; ++row)
            list.append(QString::number(row));
        return list;
    }

private slots:
    void initTestCase() { orvoRegisterMetaTypes(); }
    void cleanup() { deleteWaiting(); }

    void noInsertionLeavesASlotWithAnotherRow()
    {
        for (int current = 0; current < 20; ++current) {
            for (int row = 0; row <= 20; ++row) {
                CMRowsBrowser browser;
                fill(&browser, current);
                QStringList list = numbers();
                browser.rowInsert(row, OrvoRoles().setId("new"));
                list.insert(row, "new");
                QCOMPARE(wrongRows(browser, list), QList<int>());
                QCOMPARE(list.at(browser.currentRow()), QString::number(current));
                QCOMPARE(browser.size().count(), 21);
            }
        }
    }

    void noRemovalLeavesASlotWithAnotherRow()
    {
        for (int current = 0; current < 20; ++current) {
            for (int row = 0; row < 20; ++row) {
                CMRowsBrowser browser;
                fill(&browser, current);
                QStringList list = numbers();
                browser.rowRemoveAt(row);
                list.removeAt(row);
                QCOMPARE(wrongRows(browser, list), QList<int>());
                if (row != current)
                    QCOMPARE(list.at(browser.currentRow()), QString::number(current));
                else
                    QCOMPARE(browser.currentRow(), qMax(0, row - 1));
            }
        }
    }

    void noMoveLeavesASlotWithAnotherRow()
    {
        for (int current = 0; current < 20; ++current) {
            for (int from = 0; from < 20; ++from) {
                for (int to = 0; to < 20; ++to) {
                    CMRowsBrowser browser;
                    fill(&browser, current);
                    QStringList list = numbers();
                    browser.rowMoved(from, to);
                    list.move(from, to);
                    QVERIFY2(wrongRows(browser, list).isEmpty(),
                             qPrintable(QString("%1: %2 to %3").arg(current).arg(from).arg(to)));
                    if (from != current)
                        QCOMPARE(list.at(browser.currentRow()), QString::number(current));
                    else
                        QCOMPARE(browser.currentRow(), from);
                }
            }
        }
    }

    void changes_data()
    {
        QTest::addColumn<QString>("change");
        QTest::addColumn<QStringList>("said");
        QTest::addColumn<QString>("shown");
        QTest::addColumn<int>("current");
        const auto add = [](const char* name, const char* change, const QStringList& said, const char* shown,
                            int current) {
            QTest::newRow(name) << QString(change) << (said + QStringList("items")) << QString(shown) << current;
        };
        // Loaded are rows 49 to 51, the window reaches from 46 to 54, shown are 48 to 52.
        add("a row before the window comes", "+10", {"size 101", "added 10 -"}, "- - r49 r50 r51", 51);
        add("a row in the window comes", "+48", {"size 101", "row 51", "current r50", "added 48 -"}, "- - r49 r50 r51",
            51);
        add("a row comes in the current one's place", "+50", {"size 101", "row 51", "current r50", "added 50 -"},
            "- r49 - r50 r51", 51);
        add("a row behind the current one comes", "+51", {"size 101", "added 51 -"}, "- r49 r50 - r51", 50);
        add("a row behind the window comes", "+90", {"size 101", "added 90 -"}, "- r49 r50 r51 -", 50);
        add("a row comes at the end", "+100", {"size 101", "added 100 -"}, "- r49 r50 r51 -", 50);
        add("a row comes beyond the end", "+101", {}, "- r49 r50 r51 -", 50);
        add("a row before the window goes", "-10", {"size 99", "removed 10"}, "r49 r50 r51 - -", 49);
        add("a row before the current one goes", "-49", {"size 99", "row 49", "current r50", "removed 49"},
            "- r50 r51 - -", 49);
        add("the current row goes", "-50", {"size 99", "row 49", "current r49", "removed 50", "current r49"},
            "- r49 r51 - -", 49);
        add("a row behind the current one goes", "-51", {"size 99", "removed 51"}, "- r49 r50 - -", 50);
        add("a row behind the window goes", "-90", {"size 99", "removed 90"}, "- r49 r50 r51 -", 50);
        add("the row at the count goes", "-100", {"size 99", "removed 100"}, "- r49 r50 r51 -", 50);
        add("a row beyond that goes", "-101", {}, "- r49 r50 r51 -", 50);
        add("a row passes over the current one, down", "=49..51", {"row 49", "current r50", "moved 49 51"},
            "- r50 r51 r49 -", 49);
        add("a row passes over the current one, up", "=51..49", {"row 51", "current r50", "moved 51 49"},
            "- r51 r49 r50 -", 51);
        add("the current row moves away", "=50..51", {"current r51", "moved 50 51", "current r51"}, "- r49 r51 r50 -",
            50);
        add("a row passes the whole window, down", "=10..90", {"moved 10 90"}, "r49 r50 r51 - -", 49);
        add("a row passes the whole window, up", "=90..10", {"moved 90 10"}, "- - r49 r50 r51", 51);
        add("rows move before the window", "=1..10", {"moved 1 10"}, "- r49 r50 r51 -", 50);
        add("rows move behind the window", "=90..80", {"moved 90 80"}, "- r49 r50 r51 -", 50);
        add("a row comes from behind the window", "=90..49", {"row 51", "current r50", "moved 90 49"},
            "- - r49 r50 r51", 51);
        add("a row leaves towards the end", "=49..90", {"row 49", "current r50", "moved 49 90"}, "- r50 r51 - -", 49);
        add("a row leaves towards the head", "=51..10", {"moved 51 10"}, "- - r49 r50 -", 51);
        add("a row comes from the head", "=10..51", {"moved 10 51", "51: - <- r51"}, "r49 r50 - - -", 49);
        add("a row comes from the head to before the current one", "=10..49",
            {"moved 10 49", "50: - <- r49", "51: - <- r50", "52: - <- r51", "current -"}, "- - - - -", 50);
        add("a row behind the current one's leaves to the head", "=49..10",
            {"moved 49 10", "49: - <- r50", "50: - <- r51", "current -"}, "- - - - -", 50);
        add("a row moves beyond the end", "=50..100", {}, "- r49 r50 r51 -", 50);
        add("a row moves from beyond the end", "=100..50", {}, "- r49 r50 r51 -", 50);
        add("a row moves where it is", "=50..50", {"current r50", "moved 50 50"}, "- r49 r50 r51 -", 50);
        add("a row's content changes", "50", {}, "- r49 r50 r51 -", 50);
    }
    void changes()
    {
        QFETCH(QString, change);
        QFETCH(int, current);
        QFETCH(QString, shown);
        Middle list;
        BrowserEar ear(&list.browser);
        list.deliver({change});
        QTEST(ear.said, "said");
        QCOMPARE(list.browser.currentRow(), current);
        QCOMPARE(list.browser.version(), 4);
        QCOMPARE(list.shown(48, 52), shown);
    }

    void removingTheOnlyOtherRowLeavesTheCurrentRowAtTheHead()
    {
        ScriptedRows list(1, 3);
        list.load();
        BrowserEar ear(&list.browser);
        list.deliver({"-0"});
        QCOMPARE(ear.said, (QStringList{"size 2", "current r1", "removed 0", "current r1", "items"}));
        QCOMPARE(list.browser.currentRow(), 0);
        list.deliver({"-0", "-0"});
        QCOMPARE(list.browser.size().count(), 0);
        QCOMPARE(list.look(), QString("nothing"));
    }

    void theFirstRowOfAnEmptyListBecomesTheCurrentOne()
    {
        LogCapture log("CMRowsBrowser", log4cplus::ERROR_LOG_LEVEL);
        ScriptedRows list(1, 0);
        list.load();
        list.ids = QStringList("first");
        list.deliver({"+0"});
        QCOMPARE(list.look(), QString("0 0 4"));
        list.answer();
        QCOMPARE(list.browser.currentRow(), 0);
        QCOMPARE(list.id(0), QString("first"));
        QCOMPARE(log.lines(), QStringList());
    }

    void aMovedStaleRowIsFetchedAnew()
    {
        Middle list;
        BrowserEar ear(&list.browser);
        list.deliver({"49", "=49..51"});
        QCOMPARE(list.shown(48, 51), QString("- r50 r51 -"));
        QVERIFY(ear.said.contains("51: - <- r49"));
    }

    void theCurrentRowDoesNotLeaveTheRowNumbers_data()
    {
        QTest::addColumn<QString>("change");
        QTest::newRow("inserted ahead of the window") << "+0";
        QTest::newRow("inserted in the window") << "+%1";
        QTest::newRow("moved ahead") << "=2147483647..0";
    }
    void theCurrentRowDoesNotLeaveTheRowNumbers()
    {
        QFETCH(QString, change);
        ScriptedRows list(2, 12);
        list.listRoles.setUnknownSize(true);
        list.load();
        const int last = std::numeric_limits<int>::max() - 2 * 17 - 1;
        list.browser.setCurrentRow(last);
        list.load();
        for (int i = 0; i < 100; ++i)
            list.deliver({change.contains('%') ? change.arg(last) : change});
        QCOMPARE(list.browser.currentRow(), last);
        list.load();
        QVERIFY(!list.browser.isLoading());
    }
    void moreRowsThanNumbersAreNotCounted()
    {
        ScriptedRows list(2, 12);
        list.count = std::numeric_limits<int>::max();
        list.load();
        list.deliver({"+0"});
        QCOMPARE(list.browser.size().count(), list.count);
        list.browser.setCurrentRow(list.count - 1);
        QCOMPARE(list.browser.currentRow(), 1);
    }
    void inAnOpenEndedListWithoutACountRowsAreMovedAndNotCounted()
    {
        ScriptedRows list(2, 0);
        list.listRoles.setUnknownSize(true);
        list.look();
        list.answer();
        list.browser.rowSet(0, OrvoRoles().setId("a"));
        list.browser.rowSet(1, OrvoRoles().setId("b"));
        BrowserEar ear(&list.browser);
        list.deliver({"+1"});
        QCOMPARE(ear.take(), (QStringList{"added 1 -", "items"}));
        QCOMPARE(list.shown(0, 2), QString("a - b"));
        list.deliver({"-1"});
        QCOMPARE(ear.take(), (QStringList{"removed 1", "items"}));
        QCOMPARE(list.shown(0, 2), QString("a b -"));
        QCOMPARE(list.browser.size().count(), 2);
    }

    void stringsApplyInOrder()
    {
        Middle list;
        list.deliver({"+49", "-51", "=50..49"});
        // 49 new: new r49 r50 r51; current 51. -51 takes r50, the current row becomes 50, r49. Then r49 moves up.
        QCOMPARE(list.browser.currentRow(), 50);
        QCOMPARE(list.shown(48, 52), QString("- r49 - r51 -"));
        QCOMPARE(list.browser.version(), 6);
    }

    void whatDoesNotParseIsSkipped_data()
    {
        QTest::addColumn<QString>("change");
        for (const char* text : {"+", "-", "=", "x", "+x", "--3", "+-3", "=1", "=1..", "=..1", "=1..2..3", "=a..b",
                                 "3.5", "99999999999", "-2147483648", "+2147483647", "=-1..3", "=3..-1", "-2147483647"})
            QTest::newRow(text) << QString(text);
    }
    void whatDoesNotParseIsSkipped()
    {
        QFETCH(QString, change);
        Middle list;
        BrowserEar ear(&list.browser);
        list.deliver({change});
        QCOMPARE(ear.said, QStringList("items"));
        QCOMPARE(list.active(), QString("r49 r50 r51"));
        QCOMPARE(list.browser.version(), 4);
        QCOMPARE(list.look(), QString("nothing"));
    }

    void removalsOfRowsThatAreNotThereNeverTakeTheCountBelowZero()
    {
        ScriptedRows list(1, 2);
        list.load();
        list.browser.setCurrentRow(1);
        for (int i = 0; i < 10; ++i)
            list.deliver({"-0", QString("-%1").arg(list.browser.size().count())});
        QCOMPARE(list.browser.size().count(), 0);
        QCOMPARE(list.browser.currentRow(), 0);
        QCOMPARE(list.look(), QString("nothing"));
    }

    void theEmptyStringResetsAndTheOthersAreIgnored()
    {
        Middle list;
        BrowserEar ear(&list.browser);
        list.deliver({"+3", "", "close"}, 1, 3);
        QVERIFY(list.browser.isLoading());
        QCOMPARE(ear.said.filter("closed"), QStringList());
        QCOMPARE(ear.said.filter("added"), QStringList());
        QCOMPARE(list.look(), QString("0 1 -1"));
    }

    void aResetThatFallsIntoTheLoadAsksAnew()
    {
        ScriptedRows list(1, 10);
        list.look();
        const CMReply<OrvoRowsRoles> old = list.request().reply();
        list.deliver({""}, 0, 0);
        QVERIFY(old.error().isError());
        QCOMPARE(list.due(), 30);
        list.load();
        QCOMPARE(list.active(), QString("r0 r1"));
    }

    void closeIsToldAndNothingElseChanges()
    {
        Middle list;
        BrowserEar ear(&list.browser);
        list.deliver({"close"}, 0, 99);
        QCOMPARE(ear.said, QStringList("closed this"));
        QCOMPARE(list.active(), QString("r49 r50 r51"));
    }

    void aChangeOfAnotherPathIsIgnored()
    {
        LogCapture log("CMRowsBrowser", log4cplus::WARN_LOG_LEVEL);
        Middle list;
        QMetaObject::invokeMethod(&list.browser, "rowsChanged", Q_ARG(CMPath, CMPath::fromEncoded("p:other")),
                                  Q_ARG(QStringList, {"-50"}), Q_ARG(int, 4), Q_ARG(int, 3));
        QCOMPARE(log.lines(), QStringList("WARN p:list event for wrong path:p:other"));
        QCOMPARE(list.active(), QString("r49 r50 r51"));
    }

    void changesAreLogged()
    {
        Middle list;
        LogCapture log("CMRowsBrowser", log4cplus::INFO_LOG_LEVEL);
        list.deliver({"+3", "7"});
        QCOMPARE(log.lines(), QStringList("INFO p:list rowsChanged version:5 oldVersion:3 rowsChanged:+3 7"));
    }

    void changesComeThroughTheHub()
    {
        Middle list;
        list.ids.removeAt(49);
        list.worker.subscribe()->rowsChanged(list.browser.path(), "-49", 4, 3);
        list.version = 4;
        QTRY_COMPARE(list.browser.currentRow(), 49);
        QTRY_COMPARE(list.asked(), QString("48 48 4"));
        list.answer();
        QCOMPARE(list.active(), QString("r48 r50 r51"));
    }
};

QTEST_GUILESS_MAIN(tst_CMRowsBrowserChanges)
#include "tst_cmrowsbrowser_changes.moc"
