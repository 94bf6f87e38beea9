#include "support/fetchertest.h"

#include "childprocess.h"
#include "logcapture.h"

#include <QPointer>

class tst_CMRowsFetcher : public FetcherTest
{
    Q_OBJECT

private slots:
    void withoutAPathItAsksNobody()
    {
        Storage storage{CMPath()};
        QVERIFY(storage.fetcher()->isLoading());
        QCOMPARE(storage.fetcher()->version(), -1);
        QCOMPARE(storage.fetcher()->parent(), &storage);
        storage.fetcher()->trigger();
        turn();
        QCOMPARE(storage.asked, 0);
        QVERIFY(m_worker->requests.isEmpty());
    }

    void aStorageThatWantsNothingIsAskedAndNothingIsSent()
    {
        Storage storage(path("p:list"));
        QVERIFY(m_worker->subscribe()->rowsPath(path("p:list")));
        QTRY_COMPARE(storage.asked, 1);
        turn();
        QCOMPARE(storage.asked, 1);
        QVERIFY(m_worker->requests.isEmpty());
    }

    void itLoadsChunkByChunkUntilNothingIsWanted()
    {
        Storage storage(path("p:list?k=v"));
        storage.wanted = {Range(0, 1), Range(2, 2)};
        QVERIFY(m_worker->requests.isEmpty());
        QCOMPARE(awaitRequest(0), QString("0-1@-1"));
        QCOMPARE(request(0).path(), path("p:list?k=v"));
        QCOMPARE(request(0).roles(), CMAllRoles());
        request(0).reply().setValue(rows(0, 1, 3, 7).setInitialRow(2));
        QCOMPARE(awaitRequest(1), QString("2-2@7"));
        request(1).reply().setValue(rows(2, 2, 3, 7).setInitialRow(2));
        // The version and the end of the loading stand ahead of the first row.
        QTRY_COMPARE(storage.said, (QStringList{"version 7", "loaded", "set 0 0", "set 1 1", "roles 2", "set 2 2"}));
        QTRY_COMPARE(storage.asked, 3);
        QCOMPARE(storage.fetcher()->rowsCount(), 3);
        QVERIFY(!storage.fetcher()->isLoading());
        const OrvoRowsRoles kept = storage.fetcher()->rowsRoles();
        QVERIFY(!kept.rows().isValid());
        QCOMPARE(kept.rowsCount(), 0);
        QCOMPARE(kept.rowsVersion(), 0);
        turn();
        QCOMPARE(m_worker->requests.size(), 2);
    }

    void onlyTheRolesAskedForAreFetched()
    {
        Storage storage{CMPath()};
        QCOMPARE(storage.fetcher()->setRoles({OrvoRoles::Title(), OrvoRoles::Id()}), storage.fetcher());
        storage.wanted.append(Range(0, 0));
        storage.setPath(path("p:list"));
        QCOMPARE(storage.path(), path("p:list"));
        awaitRequest(0);
        QCOMPARE(request(0).roles(), (QStringList{OrvoRoles::Title(), OrvoRoles::Id()}));
        request(0).reply().setValue(
            OrvoRowsRoles().setRows(QVariantList{QVariantList{"T", "7"}}).setRowsCount(1).setRowsVersion(0));
        QTRY_COMPARE(storage.said.value(2), QString("set 0 7"));
        storage.fetcher()->setRoles({OrvoRoles::Title(), OrvoRoles::Id()});
    }

    void whileARequestIsInFlightNothingElseIsAsked()
    {
        Storage storage(path("p:list"));
        storage.wanted = {Range(0, 0), Range(1, 1)};
        awaitRequest(0);
        storage.fetcher()->trigger();
        turn();
        QCOMPARE(storage.asked, 1);
        request(0).reply().setValue(rows(0, 0, 2, 0));
        QCOMPARE(awaitRequest(1), QString("1-1@0"));
    }

    void aTriggerThatComesUntimelyIsIgnoredWithAWarning()
    {
        LogCapture log("CMRowsFetcher", log4cplus::WARN_LOG_LEVEL);
        Storage storage(path("p:list"));
        storage.wanted.append(Range(0, 0));
        awaitRequest(0);
        QVERIFY(QMetaObject::invokeMethod(storage.fetcher(), "on_triggerModerator_changed"));
        QCOMPARE(log.lines(), QStringList("WARN p:list Ignoring trigger request"));
        QCOMPARE(m_worker->requests.size(), 1);
    }

    // Changes

    void changesAreHandedToTheStorageInTheirOrder()
    {
        Storage storage(path("p:list"));
        load(storage);
        change("p:list", {"+2", "-0", "=3..1", "4"}, 5, 1);
        QCOMPARE(storage.take(), (QStringList{"version 5", "insert 2", "remove 0", "move 3 1", "set 4"}));
        QCOMPARE(storage.fetcher()->rowsCount(), 5);
        storage.wanted.append(Range(2, 4));
        QCOMPARE(awaitRequest(1), QString("2-4@5"));
    }

    void stringsThatDoNotParseAreSkipped()
    {
        Storage storage(path("p:list"));
        load(storage);
        change("p:list",
               {"+",    "-",        "=",     "x",     "+x",  "-x",          "--1",         "+-1", "=1",   "=1..",
                "=..1", "=1..2..3", "=a..1", "=1..b", "1.5", "99999999999", "-2147483648", "+1x", "=1.2", "+1"},
               9, 1);
        QCOMPARE(storage.take(), (QStringList{"version 9", "insert 1"}));
        QCOMPARE(storage.fetcher()->rowsCount(), 6);
    }

    void aChangeThatDoesNotBeginAtTheVersionHeldStartsAnew()
    {
        Storage storage(path("p:list"));
        load(storage);
        storage.wanted.append(Range(0, 0));
        change("p:list", {"+0"}, 4, 3);
        QCOMPARE(storage.take(), (QStringList{"version -1", "loading"}));
        QCOMPARE(storage.fetcher()->rowsCount(), 0);
        // At once, and not reported as an error.
        QCOMPARE(awaitRequest(1), QString("0-0@-1"));
        QVERIFY(!storage.fetcher()->error().isError());
    }

    void aResetStartsAnewWhenLoaded()
    {
        Storage storage(path("p:list"));
        load(storage);
        storage.wanted.append(Range(0, 0));
        change("p:list", {"+0", "", "+0"}, 1, 1);
        QCOMPARE(storage.take(), (QStringList{"version -1", "loading"}));
        QCOMPARE(awaitRequest(1), QString("0-0@-1"));
    }

    void whileLoadingACloseIsToldAndAResetIsNot()
    {
        Storage storage(path("p:list"));
        storage.wanted = {Range(0, 0)};
        awaitRequest(0);
        change("p:list", {""}, 0, 0);
        change("p:list", {"+0"}, 1, 0);
        QCOMPARE(storage.said, QStringList());
        change("p:list", {"+0", "close"}, 0, 1);
        QCOMPARE(storage.take(), QStringList("closed"));
        request(0).reply().setValue(rows(0, 0, 1, 1));
        QTRY_COMPARE(storage.said.value(0), QString("version 1"));
        QCOMPARE(m_worker->requests.size(), 1);
    }

    void aCloseWinsOverAResetAndKeepsWhatIsHeld()
    {
        Storage storage(path("p:list"));
        load(storage);
        change("p:list", {"", "close"}, 0, 1);
        QCOMPARE(storage.take(), QStringList("closed"));
        QCOMPARE(storage.fetcher()->version(), 1);
        QCOMPARE(storage.fetcher()->rowsCount(), 5);
    }

    void aResetInsideAChangeEndsTheRestOfTheChanges()
    {
        LogCapture log("CMRowsFetcher", log4cplus::DEBUG_LOG_LEVEL);
        Storage storage(path("p:list"));
        load(storage);
        storage.onSay = [&](const QString& line) {
            if (line == "version 2" || line == "insert 1")
                storage.fetcher()->reset();
        };
        change("p:list", {"+0", "+1"}, 2, 1);
        QCOMPARE(storage.take(), (QStringList{"version 2", "version -1", "loading"}));
        QCOMPARE(log.lines().last(),
                 QString("DEBUG p:list Skipping change processing because we are in loading state"));
        QVERIFY(storage.fetcher()->isLoading());
    }

    void aStorageThatResetsInsideAChangeIsToldNoMoreOfThem()
    {
        Storage storage(path("p:list"));
        load(storage);
        storage.onSay = [&](const QString& line) {
            if (line == "insert 1")
                storage.fetcher()->reset();
        };
        change("p:list", {"+0", "+1", "+2"}, 2, 1);
        QCOMPARE(storage.take(), (QStringList{"version 2", "insert 0", "insert 1", "version -1", "loading"}));
    }

    void aStrangePathIsWarnedOf()
    {
        LogCapture log("CMRowsFetcher", log4cplus::WARN_LOG_LEVEL);
        Storage storage(path("p:list"));
        load(storage);
        QVERIFY(QMetaObject::invokeMethod(storage.fetcher(), "rowsChanged", Q_ARG(CMPath, path("p:other")),
                                          Q_ARG(QStringList, QStringList("+0")), Q_ARG(int, 2), Q_ARG(int, 1)));
        QCOMPARE(log.lines(), QStringList("WARN p:list event for wrong path:p:other"));
        QCOMPARE(storage.said, QStringList());
    }

    // Paths

    void aRedirectLeadsToTheOtherPath()
    {
        Storage storage(path("p:list"));
        storage.wanted = {Range(0, 0), Range(0, 1)};
        awaitRequest(0);
        request(0).reply().setValue(rows(0, 0, 1, 3).setRowsRedirect(path("p:there")));
        QCOMPARE(awaitRequest(1), QString("0-1@-1"));
        QCOMPARE(request(1).path(), path("p:there"));
        QCOMPARE(storage.path(), path("p:there"));
        QVERIFY(!m_worker->subscribe()->rowsPath(path("p:list")));
        QVERIFY(m_worker->subscribe()->rowsPath(path("p:there")));
        QCOMPARE(storage.said, QStringList());
    }

    void aReplyForAPathThatIsLeftIsDropped_data()
    {
        QTest::addColumn<bool>("andBack");
        QTest::newRow("another path") << false;
        QTest::newRow("and back") << true;
    }
    void aReplyForAPathThatIsLeftIsDropped()
    {
        QFETCH(bool, andBack);
        Storage storage(path("p:list"));
        storage.wanted = {Range(0, 0), Range(0, 1)};
        awaitRequest(0);
        storage.setPath(path("p:other"));
        if (andBack)
            storage.setPath(path("p:list"));
        request(0).reply().setValue(rows(0, 0, 1, 3));
        QCOMPARE(awaitRequest(1), QString("0-1@-1"));
        QCOMPARE(request(1).path(), andBack ? path("p:list") : path("p:other"));
        QCOMPARE(storage.said, QStringList());
    }

    void aPathThatIsTakenAwayEndsTheFollowing()
    {
        Storage storage(path("p:list"));
        load(storage);
        storage.setPath(CMPath());
        QCOMPARE(storage.take(), (QStringList{"version -1", "loading"}));
        QVERIFY(!m_worker->subscribe()->rowsPath(path("p:list")));
        storage.wanted.append(Range(0, 0));
        turn();
        QCOMPARE(m_worker->requests.size(), 1);
    }

    void theSamePathAgainDoesNothing()
    {
        Storage storage(path("p:list"));
        load(storage);
        storage.setPath(path("p:list"));
        turn();
        QCOMPARE(storage.said, QStringList());
        QCOMPARE(storage.fetcher()->version(), 1);
    }

    // Life and death

    void itsDestructionCancelsAndUnsubscribes()
    {
        {
            Storage storage(path("p:list"));
            storage.wanted.append(Range(0, 0));
            awaitRequest(0);
        }
        QCOMPARE(request(0).reply().error().name(), CMVoidReply::ErrorCancel());
        QVERIFY(!m_worker->subscribe()->rowsPath(path("p:list")));
        deleteWaiting();
    }

    void itMayBeDestroyedInsideAnySignalOrOperation_data()
    {
        QTest::addColumn<QString>("line");
        for (const char* line : {"version 1", "loaded", "set 0 0", "roles 9", "error gone", "error", "version 2",
                                 "insert 0", "remove 0", "move 1 2", "set 1", "closed", "version -1", "loading"})
            QTest::newRow(line) << line;
    }
    void itMayBeDestroyedInsideAnySignalOrOperation()
    {
        QFETCH(QString, line);
        QPointer<Storage> storage(new Storage(path("p:list")));
        storage->wanted = {Range(0, 1)};
        storage->onSay = [&, line](const QString& said) {
            if (said == line)
                delete storage.data();
        };
        storage->fetcher()->setError(CMError("gone", "", ""));
        if (storage) {
            awaitRequest(0);
            request(0).reply().setValue(rows(0, 1, 2, 1).setInitialRow(9));
            QTRY_VERIFY(!storage || (storage->said.contains("roles 9")));
        }
        if (storage)
            change("p:list", {"+0", "-0", "=1..2", "1"}, 2, 1);
        if (storage)
            change("p:list", {"close"}, 0, 2);
        if (storage)
            change("p:list", {""}, 0, 2);
        QVERIFY(!storage);
        deleteWaiting();
    }

    void rolesMayOnlyChangeWithoutAPath()
    {
        const ChildEnd end = runThisProgram({"--roles-with-path"});
        QVERIFY(end.stopped);
        QVERIFY2(end.errors.contains("m_path.isEmpty()"), end.errors);
    }

    void aRequestThatEndsAheadOfItsBeginStops()
    {
        const ChildEnd end = runThisProgram({"--backward-range"});
        QVERIFY(end.stopped);
        QVERIFY2(end.errors.contains("reply.from() <= reply.to()"), end.errors);
    }
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QString what = application.arguments().value(1);
    if (what.startsWith("--")) {
        leaveNoCore();
        orvoRegisterMetaTypes();
        ScriptedWorker worker;
        CMRoot_setInstance(&worker);
        Storage storage(path("p:list"));
        if (what == "--roles-with-path") {
            storage.fetcher()->setRoles({OrvoRoles::Id()});
        } else if (what == "--backward-range") {
            storage.wanted.append(CMRowsFetcherRows::RequestReply(3, 2));
            QTest::qWait(200);
        }
        return 0;
    }
    tst_CMRowsFetcher test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_cmrowsfetcher.moc"
