#include "core/model/cmrowsbrowser.h"

#include "logcapture.h"
#include "support/scriptedrows.h"

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

/// What a browser does about versions and errors, and what its owner may do inside its signals.
class tst_CMRowsBrowserVersions : public QObject
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

private slots:
    void initTestCase() { orvoRegisterMetaTypes(); }
    void cleanup() { deleteWaiting(); }

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

QTEST_GUILESS_MAIN(tst_CMRowsBrowserVersions)
#include "tst_cmrowsbrowser_versions.moc"
