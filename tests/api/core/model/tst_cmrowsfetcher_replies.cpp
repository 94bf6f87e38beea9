#include "support/fetchertest.h"

#include "logcapture.h"

/// What a fetcher makes of replies that come late, are wrong, or are errors.
class tst_CMRowsFetcherReplies : public FetcherTest
{
    Q_OBJECT

private slots:
    // Races of versions

    void aChangeThatOvertakesAReplyStartsAnew()
    {
        Storage storage(path("p:list"));
        storage.wanted = {Range(0, 4), Range(5, 9), Range(0, 4)};
        awaitRequest(0);
        request(0).reply().setValue(rows(0, 4, 10, 1));
        QCOMPARE(awaitRequest(1), QString("5-9@1"));
        storage.take();
        change("p:list", {"+0"}, 2, 1);
        QCOMPARE(storage.take(), (QStringList{"version 2", "insert 0"}));
        request(1).reply().setValue(rows(5, 9, 10, 1));
        QTRY_COMPARE(storage.said, (QStringList{"version -1", "loading"}));
        QCOMPARE(awaitRequest(2), QString("0-4@-1"));
    }

    void aServiceThatRefusesAnOldVersionStartsAnew()
    {
        Storage storage(path("p:list"));
        load(storage);
        storage.wanted = {Range(2, 2), Range(0, 4)};
        storage.fetcher()->trigger();
        awaitRequest(1);
        request(1).reply().setError(CMAbstractWorker::createErrorInvalidRowsVersion(path("p:list"), 1, 2));
        QTRY_COMPARE(storage.said, (QStringList{"version -1", "loading"}));
        QCOMPARE(awaitRequest(2), QString("0-4@-1"));
    }

    void aFirstReplyThatIsOlderThanAChangeToldIsNotTaken()
    {
        Storage storage(path("p:list"));
        storage.wanted = {Range(0, 0), Range(0, 1), Range(0, 2)};
        awaitRequest(0);
        change("p:list", {"+0"}, 6, 5);
        request(0).reply().setValue(rows(0, 0, 1, 5));
        QCOMPARE(awaitRequest(1), QString("0-1@-1"));
        QCOMPARE(storage.said, QStringList());
        change("p:list", {"+0"}, 7, 6);
        request(1).reply().setValue(rows(0, 1, 3, 7));
        QTRY_COMPARE(storage.fetcher()->version(), 7);
        QCOMPARE(storage.fetcher()->rowsCount(), 3);
    }

    void aChangeThatTheReplyHasInItStartsAnew()
    {
        Storage storage(path("p:list"));
        storage.wanted = {Range(0, 0), Range(0, 0)};
        awaitRequest(0);
        request(0).reply().setValue(rows(0, 0, 1, 6));
        QTRY_COMPARE(storage.fetcher()->version(), 6);
        storage.take();
        change("p:list", {"+0"}, 6, 5);
        QCOMPARE(storage.take(), (QStringList{"version -1", "loading"}));
    }

    void aListThatShrankWithoutAWordIsLoadedAnew()
    {
        LogCapture log("CMRowsFetcher", log4cplus::ERROR_LOG_LEVEL);
        Storage storage(path("p:list"));
        load(storage, 9);
        storage.wanted = {Range(5, 8), Range(0, 4)};
        storage.fetcher()->trigger();
        awaitRequest(1);
        request(1).reply().setValue(rows(5, 6, 7, 1));
        QTRY_COMPARE(storage.said, (QStringList{"version -1", "loading"}));
        QCOMPARE(log.lines(), QStringList("ERROR p:list Size changed without event notification; m_rowsCount:9 "
                                          "rowsCount:7"));
        QCOMPARE(awaitRequest(2), QString("0-4@-1"));
    }

    void aGoodReplyThatWaitedBehindAResetIsDropped()
    {
        Storage storage(path("p:list"));
        load(storage, 1);
        storage.wanted = {Range(0, 0), Range(0, 0)};
        storage.fetcher()->trigger();
        awaitRequest(1);
        request(1).reply().setValue(rows(0, 0, 1, 1));
        storage.fetcher()->reset();
        storage.take();
        QCOMPARE(awaitRequest(2), QString("0-0@-1"));
        QCOMPARE(storage.said, QStringList());
        QVERIFY(!storage.fetcher()->error().isError());
    }

    void aResetCancelsTheRequestAndTriesAgainAfterTheErrorsDelay()
    {
        Storage storage(path("p:list"));
        load(storage);
        storage.wanted = {Range(2, 2), Range(0, 4)};
        storage.fetcher()->trigger();
        awaitRequest(1);
        change("p:list", {""}, 0, 1);
        QCOMPARE(request(1).reply().error().name(), CMVoidReply::ErrorCancel());
        QTRY_COMPARE(storage.said, (QStringList{"version -1", "loading", "error cancel"}));
        turn();
        QCOMPARE(m_worker->requests.size(), 2);
        // A trigger shortens the delay.
        storage.fetcher()->trigger();
        QCOMPARE(awaitRequest(2), QString("0-4@-1"));
    }

    // Bad replies

    void rowsWithTooFewOrTooManyValuesGiveTheRolesThatAreThere()
    {
        LogCapture log("CMRowsFetcher", log4cplus::ERROR_LOG_LEVEL);
        Storage storage{CMPath()};
        storage.fetcher()->setRoles({OrvoRoles::Id(), OrvoRoles::Title()});
        storage.wanted.append(Range(0, 3));
        storage.setPath(path("p:list"));
        awaitRequest(0);
        request(0).reply().setValue(OrvoRowsRoles()
                                        .setRows(QVariantList{QVariantList{"a"}, QVariantList{"b", "B", "C"},
                                                              QVariant(), QVariantList{"d", "D"}})
                                        .setRowsCount(4)
                                        .setRowsVersion(0));
        QTRY_COMPARE(storage.said.mid(2, 4), (QStringList{"set 0 a", "set 1 b", "set 2", "set 3 d"}));
        QCOMPARE(log.lines(), (QStringList{"ERROR p:list row 0: expected 2 values, got 1",
                                           "ERROR p:list row 1: expected 2 values, got 3",
                                           "ERROR p:list row 2: expected 2 values, got 0"}));
    }

    void rowsThatWereNotAskedForOrAreNotThereAreDropped()
    {
        Storage storage(path("p:list"));
        storage.wanted = {Range(0, 1), Range(2, 9)};
        awaitRequest(0);
        request(0).reply().setValue(rows(0, 5, 4, 0));
        awaitRequest(1);
        QCOMPARE(storage.take(), (QStringList{"version 0", "loaded", "set 0 0", "set 1 1", "roles 0"}));
        request(1).reply().setValue(rows(2, 9, 4, 0));
        QTRY_COMPARE(storage.said, (QStringList{"set 2 2", "set 3 3"}));
    }

    void negativeCountsAndVersionsAreErrors_data()
    {
        QTest::addColumn<int>("count");
        QTest::addColumn<int>("version");
        QTest::addColumn<QString>("message");
        QTest::newRow("count") << -3 << 0 << "Reply with rowsCount -3";
        QTest::newRow("version") << 3 << -2 << "Reply with rowsVersion -2";
    }
    void negativeCountsAndVersionsAreErrors()
    {
        QFETCH(int, count);
        QFETCH(int, version);
        QFETCH(QString, message);
        Storage storage(path("p:list"));
        storage.wanted.append(Range(0, 0));
        awaitRequest(0);
        request(0).reply().setValue(rows(0, 0, count, version));
        QTRY_COMPARE(storage.said, QStringList("error " + CMAbstractWorker::ErrorInternal()));
        QCOMPARE(storage.fetcher()->error().message(), message);
        QVERIFY(storage.fetcher()->isLoading());
        QCOMPARE(storage.fetcher()->rowsCount(), 0);
    }

    void anAnswerInVainIsNotAskedForAgainAtOnce()
    {
        Storage storage(path("p:list"));
        storage.wanted = {Range(0, 4), Range(0, 4), Range(0, 4), Range(0, 4)};
        awaitRequest(0);
        request(0).reply().setValue(rows(0, -1, 5, 0));
        QTRY_COMPARE(storage.asked, 2);
        turn();
        QCOMPARE(m_worker->requests.size(), 1);
        QCOMPARE(storage.asked, 2);
        QCOMPARE(awaitRequest(1), QString("0-4@0"));
    }

    // Errors

    void anErrorIsToldAndTheRequestRepeated()
    {
        LogCapture log("CMRowsFetcher", log4cplus::WARN_LOG_LEVEL);
        Storage storage(path("p:list"));
        storage.wanted = {Range(0, 0), Range(0, 0)};
        awaitRequest(0);
        request(0).reply().setError(CMError("gone", "It went", ""));
        QTRY_COMPARE(storage.said, QStringList("error gone"));
        QCOMPARE(log.lines(), QStringList("WARN p:list m_errorsCount:0 handleError error:gone errorMessage:It went"));
        turn();
        QCOMPARE(m_worker->requests.size(), 1);
        QCOMPARE(awaitRequest(1), QString("0-0@-1"));
        request(1).reply().setValue(rows(0, 0, 1, 0));
        // The error ends ahead of all else.
        QTRY_COMPARE(storage.said.value(1), QString("error"));
        QVERIFY(!storage.fetcher()->error().isError());
    }

    void everyThirdFurtherErrorStartsAnew()
    {
        LogCapture log("CMRowsFetcher", log4cplus::ERROR_LOG_LEVEL);
        Storage storage(path("p:list"));
        load(storage);
        const auto failOnce = [&] { storage.fetcher()->handleError(CMError("gone", "", "")); };
        for (int i = 0; i < 3; ++i)
            failOnce();
        QCOMPARE(storage.take(), QStringList("error gone"));
        QCOMPARE(log.lines(), QStringList());
        failOnce();
        QCOMPARE(storage.take(), (QStringList{"version -1", "loading"}));
        const QString line = "ERROR  handleError - too many errors. path:'p:list' errorsCount:'4'";
        QCOMPARE(log.lines(), QStringList(line));
        failOnce();
        failOnce();
        QCOMPARE(log.lines().size(), 1);
        failOnce();
        QCOMPARE(log.lines().size(), 2);
    }

    void aGoodReplyForgetsTheErrors()
    {
        LogCapture log("CMRowsFetcher", log4cplus::ERROR_LOG_LEVEL);
        Storage storage(path("p:list"));
        load(storage);
        for (int i = 0; i < 3; ++i)
            storage.fetcher()->handleError(CMError("gone", "", ""));
        storage.wanted.append(Range(0, 0));
        storage.fetcher()->trigger();
        awaitRequest(1);
        request(1).reply().setValue(rows(0, 0, 5, 1));
        QTRY_VERIFY(!storage.fetcher()->error().isError());
        for (int i = 0; i < 3; ++i)
            storage.fetcher()->handleError(CMError("gone", "", ""));
        QCOMPARE(log.lines(), QStringList());
    }
};

QTEST_GUILESS_MAIN(tst_CMRowsFetcherReplies)
#include "tst_cmrowsfetcher_replies.moc"
