#include "core/model/cmrowsbrowser.h"

#include "core/model/cmsubscribe.h"
#include "logcapture.h"
#include "support/scriptedrows.h"

#include <QPointer>

#include <functional>

/// Does what it is told when a signal comes.
class Deed : public QObject
{
    Q_OBJECT
public:
    explicit Deed(std::function<void()> function) : m_function(std::move(function)) {}
    void rest() { m_done = true; }
public slots:
    void act()
    {
        if (!m_done)
            m_function();
    }

private:
    const std::function<void()> m_function;
    bool m_done = false;
};

/// How changes of the list move a browser's window, and what it does about versions and errors.
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

    // Versions.

    void aChangeOfAnotherVersionIsWaitedOutWithoutAWord()
    {
        LogCapture log("CMRowsBrowser", log4cplus::WARN_LOG_LEVEL);
        Middle list;
        BrowserEar ear(&list.browser);
        list.deliver({"-50"}, 6, 5);
        QCOMPARE(ear.said, QStringList());
        QCOMPARE(list.browser.version(), 3);
        QCOMPARE(list.active(), QString("r49 r50 r51"));
        QCOMPARE(list.due(), 5000);
        QCOMPARE(log.lines().size(), 1);
        QVERIFY2(log.lines().first().startsWith("WARN p:list m_errorsCount:0, 0 handleError error:"
                                                "CMAbstractWorker::invalidRowsVersion errorMessage:"),
                 qPrintable(log.lines().first()));
    }

    void theSecondVersionErrorInARowResets()
    {
        LogCapture log("CMRowsBrowser", log4cplus::ERROR_LOG_LEVEL);
        Middle list;
        list.deliver({"-50"}, 6, 5);
        QVERIFY(!list.browser.isLoading());
        list.deliver({"-50"}, 7, 6);
        QVERIFY(list.browser.isLoading());
        QCOMPARE(list.browser.currentRow(), 0);
        QCOMPARE(list.due(), 30);
        QCOMPARE(log.lines(), QStringList("ERROR p:list handleError - too many versions errors. path:'p:list' "
                                          "errorsCount:'0, 2"));
        list.load();
        QCOMPARE(list.active(), QString("r0 r1"));
    }

    void theRetryThatFindsNothingToFetchResets()
    {
        Middle list;
        list.deliver({"-50"}, 6, 5);
        QCOMPARE(list.due(), 5000);
        QCOMPARE(list.look(), QString("nothing"));
        QVERIFY(list.browser.isLoading());
        QCOMPARE(list.due(), 30);
    }

    void aStepAfterALostChangeLeavesTheRetryItsTime()
    {
        Middle list;
        list.browser.setCurrentRow(51);
        list.load();
        list.deliver({"-50"}, 6, 5);
        list.browser.setCurrentRow(50);
        QCOMPARE(list.due(), 30);
        QCOMPARE(list.look(), QString("nothing"));
        QVERIFY(!list.browser.isLoading());
        QCOMPARE(list.due(), 5000);
        QCOMPARE(list.look(), QString("nothing"));
        QVERIFY(list.browser.isLoading());
    }

    void theRetryThatShowsTheVersionToBeGoodDoesNotReset()
    {
        Middle list;
        list.browser.setCurrentRow(51);
        list.deliver({"-50"}, 6, 5);
        list.triggerTimer()->stop();
        QCOMPARE(list.look(), QString("52 52 3"));
        list.answer();
        QCOMPARE(list.look(), QString("nothing"));
        QVERIFY(!list.browser.isLoading());
        QCOMPARE(list.active(), QString("r50 r51 r52"));
    }

    void aChangeInFlightMakesTheAnswerOlderThanTheWindow()
    {
        Middle list;
        list.browser.setCurrentRow(52);
        QCOMPARE(list.look(), QString("52 53 3"));
        const OrvoRowsRoles old = list.answerFor(list.request());
        list.ids.insert(0, "new");
        list.deliver({"+0"});
        QCOMPARE(list.browser.version(), 4);
        QCOMPARE(list.browser.currentRow(), 53);
        QCOMPARE(list.due(), -1);
        BrowserEar ear(&list.browser);
        list.answer(old);
        QCOMPARE(ear.said, QStringList());
        QCOMPARE(list.due(), 5000);
        QCOMPARE(list.look(), QString("53 54 4"));
        list.answer();
        QCOMPARE(list.active(), QString("r51 r52 r53"));
        QVERIFY(!list.browser.isLoading());
    }

    void anAnswerOlderThanTheWindowIsNoReasonToReset()
    {
        Middle list;
        list.browser.setCurrentRow(52);
        list.look();
        const OrvoRowsRoles old = list.answerFor(list.request());
        list.ids.insert(0, "new");
        list.deliver({"+0"});
        list.browser.setCurrentRow(51);
        list.answer(old);
        QCOMPARE(list.look(), QString("nothing"));
        QVERIFY(!list.browser.isLoading());
        QCOMPARE(list.active(), QString("r49 r50 r51"));
    }

    void aChangeThatIsOnItsWayHealsTheVersionAtOnce()
    {
        Middle list;
        list.browser.setCurrentRow(52);
        list.look();
        list.fail(CMAbstractWorker::ErrorInvalidRowsVersion());
        QCOMPARE(list.due(), 5000);
        list.ids.removeAt(0);
        list.deliver({"-0"});
        QCOMPARE(list.due(), 30);
        list.load();
        QCOMPARE(list.browser.currentRow(), 51);
        QCOMPARE(list.active(), QString("r51 r52 r53"));
    }

    void aChangeBeforeTheFirstAnswerIsAVersionError()
    {
        ScriptedRows list(1, 10);
        list.look();
        LogCapture log("CMRowsBrowser", log4cplus::WARN_LOG_LEVEL);
        list.deliver({"+0"}, 3, 2);
        QCOMPARE(log.lines().size(), 1);
        // Read after the change.
        list.answer();
        QCOMPARE(list.active(), QString("r0 r1"));
        QCOMPARE(list.look(), QString("nothing"));
        QVERIFY(!list.browser.isLoading());
        // The first accepted answer has cleared the count: this is the first error again.
        list.deliver({"+0"}, 9, 8);
        QVERIFY(!list.browser.isLoading());
    }

    void anAnswerThatWasReadBeforeAMissedChangeIsReadAgain()
    {
        ScriptedRows list(1, 10);
        list.look();
        const OrvoRowsRoles old = list.answerFor(list.request());
        list.ids[0] = "changed";
        list.deliver({"0"});
        list.answer(old);
        QCOMPARE(list.active(), QString("r0 r1"));
        QCOMPARE(list.look(), QString("nothing"));
        QCOMPARE(list.due(), 5000);
        QCOMPARE(list.look(), QString("nothing"));
        QVERIFY(list.browser.isLoading());
        list.load();
        QCOMPARE(list.active(), QString("changed r1"));
    }

    void aChangeThatTheFirstAnswerHoldsAlreadyIsNoReasonToReset()
    {
        ScriptedRows list(1, 10);
        list.load();
        list.deliver({"+0"}, 3, 2);
        QCOMPARE(list.look(), QString("nothing"));
        QVERIFY(!list.browser.isLoading());
    }

    void changesThatWereMergedWithOneBeforeTheAnswerAreReadAgain()
    {
        ScriptedRows list(1, 10);
        list.load();
        // The list was read between the two.
        list.ids[1] = "changed";
        list.version = 4;
        list.deliver({"0", "1"}, 4, 2);
        QCOMPARE(list.look(), QString("nothing"));
        QVERIFY(list.browser.isLoading());
        list.load();
        QCOMPARE(list.active(), QString("r0 changed"));
    }

    void anotherCountOfTheSameVersionIsAVersionError()
    {
        LogCapture log("CMRowsBrowser", log4cplus::WARN_LOG_LEVEL);
        Middle list;
        list.count = 90;
        list.browser.setCurrentRow(52);
        list.look();
        list.answer();
        QVERIFY2(log.lines().value(0).contains("-100") && log.lines().value(0).contains("-90"),
                 qPrintable(log.lines().value(0)));
        QCOMPARE(list.due(), 5000);
        QCOMPARE(list.look(), QString("52 53 3"));
        list.answer();
        QVERIFY(list.browser.isLoading());
        list.count = -1;
        list.load();
        QCOMPARE(list.active(), QString("r0 r1"));
    }

    // Errors of fetches.

    void aFailedFetchIsToldOnceAndRepeatedFourTimes()
    {
        LogCapture log("CMRowsBrowser", log4cplus::ERROR_LOG_LEVEL);
        ScriptedRows list(1, 10);
        BrowserEar ear(&list.browser);
        for (int i = 0; i < 4; ++i) {
            QCOMPARE(list.look(), QString("0 1 -1"));
            list.fail("broken");
            QCOMPARE(list.due(), 5000);
        }
        QCOMPARE(ear.take(), QStringList("error broken"));
        QCOMPARE(list.browser.error().name(), QString("broken"));
        QCOMPARE(list.look(), QString("0 1 -1"));
        list.fail("worse");
        QCOMPARE(list.due(), -1);
        QCOMPARE(ear.take(), QStringList());
        QCOMPARE(log.lines(), QStringList("ERROR p:list handleError - too many fetch errors. path:'p:list' "
                                          "errorsCount:'5, 0"));
        // A quick trigger forgives.
        list.browser.setActive(false);
        list.browser.setActive(true);
        list.look();
        list.fail("worse");
        QCOMPARE(ear.take(), QStringList("error worse"));
        QCOMPARE(list.due(), 5000);
    }

    void aGoodAnswerEmptiesTheErrorWithoutAWord()
    {
        ScriptedRows list(1, 10);
        list.look();
        list.fail("broken");
        BrowserEar ear(&list.browser);
        list.look();
        list.answer();
        QVERIFY(!list.browser.error().isError());
        QCOMPARE(ear.said.filter("error"), QStringList());
    }

    void withoutRetriesAnErrorEndsTheFetching()
    {
        ScriptedRows list(1, 10);
        list.browser.setRetryOnError(false);
        BrowserEar ear(&list.browser);
        list.look();
        list.fail("broken");
        QCOMPARE(ear.said, QStringList("error broken"));
        QCOMPARE(list.due(), -1);
        list.browser.reset();
        QCOMPARE(list.due(), 30);
    }

    void withoutRetriesAFirstVersionErrorIsWaitedOutAllTheSame()
    {
        Middle list;
        list.browser.setRetryOnError(false);
        list.deliver({"-50"}, 6, 5);
        QCOMPARE(list.due(), 5000);
    }

    void anAnswerThatMakesNoSenseIsAFailedFetch_data()
    {
        QTest::addColumn<OrvoRowsRoles>("answer");
        const OrvoRowsRoles good = OrvoRowsRoles().setRowsCount(1).setRowsVersion(3);
        QTest::newRow("too few values") << OrvoRowsRoles(good).setRows(QVariantList{QVariantList{"a", "b"}});
        QTest::newRow("a row that is no list") << OrvoRowsRoles(good).setRows(QVariantList{"a"});
        QTest::newRow("a negative count") << OrvoRowsRoles(good).setRowsCount(-1);
        QTest::newRow("a negative version") << OrvoRowsRoles(good).setRowsVersion(-1);
    }
    void anAnswerThatMakesNoSenseIsAFailedFetch()
    {
        QFETCH(OrvoRowsRoles, answer);
        ScriptedRows list(1, 10);
        BrowserEar ear(&list.browser);
        int asked = 0;
        for (; list.look() != "nothing" && asked < 20; ++asked)
            list.answer(answer);
        // The fifth is the last by itself: a service like that is not asked for ever.
        QCOMPARE(asked, 20);
        QVERIFY(list.browser.isLoading());
        QCOMPARE(list.due(), -1);
        QCOMPARE(ear.said, QStringList("error " + CMAbstractWorker::ErrorInternal()));
    }

    void anAnswerWithMoreRowsThanWereAskedForFillsTheWindow()
    {
        ScriptedRows list(1, 10);
        list.look();
        OrvoRowsRoles answer = list.answerFor(list.request());
        QVariantList rows;
        for (int row = 0; row < 1000; ++row)
            rows.append(QVariant(rowValues(QString("r%1").arg(row))));
        list.answer(answer.setRows(rows));
        QCOMPARE(list.shown(0, 5), QString("r0 r1 r2 r3 r4 -"));
    }

    void anAnswerToNobodyIsIgnored()
    {
        Middle list;
        const CMReply<OrvoRowsRoles> other;
        other.setValue(OrvoRowsRoles().setRowsVersion(9));
        BrowserEar ear(&list.browser);
        QMetaObject::invokeMethod(&list.browser, "getRowsFinished", Q_ARG(CMVoidReply, other));
        QCOMPARE(ear.said, QStringList());
        QCOMPARE(list.browser.version(), 3);
    }

    // What owners do inside signals.

    void ownersMayDoAnythingInsideAnySignal_data()
    {
        QTest::addColumn<QByteArray>("signal");
        QTest::addColumn<QString>("deed");
        const QMetaObject& meta = CMRowsBrowser::staticMetaObject;
        for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
            const QMetaMethod method = meta.method(i);
            if (method.methodType() != QMetaMethod::Signal || method.attributes() & QMetaMethod::Cloned)
                continue;
            for (const char* deed : {"delete", "reset", "other path", "first row", "other roles"})
                QTest::newRow(method.name() + ' ' + deed) << method.methodSignature() << QString(deed);
        }
    }
    void ownersMayDoAnythingInsideAnySignal()
    {
        QFETCH(QByteArray, signal);
        QFETCH(QString, deed);
        using Step = std::function<void(ScriptedRows*)>;
        struct Cause
        {
            Step prepare;
            Step act;
        };
        const Step nothing = [](ScriptedRows*) {};
        const Step loadAtFifty = [](ScriptedRows* list) {
            list->load();
            list->browser.setCurrentRow(50);
            list->load();
        };
        ScriptedWorker other;
        const Cause causes[] = {
            {[](ScriptedRows* list) {
                 list->listRoles.setTitle("title").setAccept(OrvoRoles().setTitle("accept"));
                 list->rowsRoles.setInitialRow(2).setCloseTimeout(100000);
                 list->rowsRoles.setType(
                     OrvoList<OrvoRowsRolesType::Enum>(QList<OrvoRowsRolesType::Enum>{OrvoRowsRolesType::Music_}));
                 list->look();
             },
             [](ScriptedRows* list) { list->answer(); }},
            {[](ScriptedRows* list) { list->look(); }, [](ScriptedRows* list) { list->fail("broken"); }},
            {loadAtFifty, [](ScriptedRows* list) { list->deliver({""}, 0, 0); }},
            {loadAtFifty, [](ScriptedRows* list) { list->deliver({"close"}, 0, 0); }},
            {loadAtFifty, [](ScriptedRows* list) { list->browser.setPath(CMPath::fromEncoded("p:next")); }},
            {loadAtFifty, [&](ScriptedRows* list) { list->browser.setWorker(&other); }},
            {loadAtFifty, [](ScriptedRows* list) { list->browser.setCurrentRow(90); }},
            {loadAtFifty, [](ScriptedRows* list) { list->browser.setRoles(CMAllRoles() + QStringList("x")); }},
            {loadAtFifty,
             [](ScriptedRows* list) {
                 list->ids.insert(48, "new");
                 list->ids.removeAt(49);
                 list->ids.move(49, 51);
                 list->ids.move(10, 51);
                 list->ids.move(50, 51);
                 list->ids.move(10, 49);
                 list->deliver({"+48", "-49", "=49..51", "=10..51", "=50..51", "=10..49"});
             }},
            {[&](ScriptedRows* list) {
                 loadAtFifty(list);
                 list->browser.setCurrentRow(52);
                 list->look();
             },
             [](ScriptedRows* list) { list->answer(); }},
        };
        int heard = 0;
        for (const Cause& cause : causes) {
            ScriptedRows list(1, 100);
            cause.prepare(&list);
            Deed doer([&] {
                // Once, or it would hear itself.
                doer.rest();
                ++heard;
                if (deed == "delete")
                    delete list.alive.data();
                else if (deed == "reset")
                    list.browser.reset();
                else if (deed == "other path")
                    list.browser.setPath(CMPath::fromEncoded("p:chosen"));
                else if (deed == "first row")
                    list.browser.setCurrentRow(0);
                else
                    list.browser.setRoles(CMAllRoles());
            });
            QVERIFY(QObject::connect(&list.browser, '2' + signal, &doer, SLOT(act())));
            cause.act(&list);
            if (!list.alive)
                continue;
            doer.rest();
            list.browser.setWorker(&list.worker);
            list.browser.setRoles(CMAllRoles());
            list.browser.trigger(30);
            list.load();
            const int row = list.browser.currentRow();
            QCOMPARE(list.active(), QStringList(list.ids.mid(qMax(0, row - 1), row > 0 ? 3 : 2)).join(' '));
        }
        QVERIFY(heard > 0);
    }
};

QTEST_GUILESS_MAIN(tst_CMRowsBrowserChanges)
#include "tst_cmrowsbrowser_changes.moc"
