#include "core/model/cmrowsfetcher.h"

#include "childprocess.h"
#include "core/model/cmmetatypes.h"
#include "core/model/cmroles.h"
#include "core/model/cmroot.h"
#include "core/model/cmsubscribe.h"
#include "logcapture.h"
#include "support/linkfixture.h"

#include <QPointer>

namespace {

CMPath path(const QString& text)
{
    return CMPath::fromEncoded(text);
}

QVariantList rowValues(const QString& id)
{
    QVariantList values;
    for (const QString& role : CMAllRoles())
        values.append(role == OrvoRoles::Id() ? QVariant(id) : QVariant());
    return values;
}

/// Rows of a list of `count` rows whose ids are their numbers.
OrvoRowsRoles rows(int from, int to, int count, int version)
{
    QVariantList list;
    for (int row = from; row <= to; ++row)
        list.append(QVariant(rowValues(QString::number(row))));
    return OrvoRowsRoles().setRows(list).setRowsCount(count).setRowsVersion(version);
}

} // namespace

/// Writes down what it is told, and wants what it is told to want.
class Storage : public CMRowsFetcherRows
{
    Q_OBJECT
public:
    explicit Storage(const CMPath& path) : CMRowsFetcherRows(nullptr, path)
    {
        connect(fetcher(), SIGNAL(versionChanged(int)), SLOT(onVersion(int)));
        connect(fetcher(), SIGNAL(loadingChanged(bool)), SLOT(onLoading(bool)));
        connect(fetcher(), SIGNAL(closed()), SLOT(onClosed()));
        connect(fetcher(), SIGNAL(errorChanged(CMError)), SLOT(onError(CMError)));
        connect(fetcher(), SIGNAL(rowsRolesChanged(OrvoRowsRoles)), SLOT(onRowsRoles(OrvoRowsRoles)));
    }

    RequestReply getRequest() override
    {
        ++asked;
        return wanted.isEmpty() ? RequestReply() : wanted.takeFirst();
    }
    void setItem(int row, const OrvoRoles& roles) override
    {
        say(QStringLiteral("set %1 %2").arg(row).arg(roles.id()));
    }
    void insertItem(int row, const OrvoRoles& roles) override
    {
        say(QStringLiteral("insert %1 %2").arg(row).arg(roles.id()));
    }
    void removeItem(int row) override { say(QStringLiteral("remove %1").arg(row)); }
    void moveItem(int from, int to) override { say(QStringLiteral("move %1 %2").arg(from).arg(to)); }

    QStringList take()
    {
        QStringList taken;
        taken.swap(said);
        return taken;
    }

    QList<RequestReply> wanted;
    int asked = 0;
    QStringList said;
    /// Called with each line; may destroy this.
    std::function<void(const QString&)> onSay;

public slots:
    void onVersion(int version) { say(QStringLiteral("version %1").arg(version)); }
    void onLoading(bool loading) { say(loading ? "loading" : "loaded"); }
    void onClosed() { say("closed"); }
    void onError(CMError error) { say("error " + error.name()); }
    void onRowsRoles(OrvoRowsRoles rowsRoles) { say(QStringLiteral("roles %1").arg(rowsRoles.initialRow())); }

private:
    void say(const QString& line)
    {
        said.append(line.trimmed());
        const auto function = onSay;
        if (function)
            function(line.trimmed());
    }
};

class tst_CMRowsFetcher : public QObject
{
    Q_OBJECT

private:
    ScriptedWorker* m_worker = nullptr;
    using Range = CMRowsFetcherRows::RequestReply;

    CMGetRowsRequest request(int index) const { return request_cast<CMGetRowsRequest>(m_worker->requests.at(index)); }
    /// As "from-to@version"; empty when it did not come.
    QString awaitRequest(int index)
    {
        if (!QTest::qWaitFor([&] { return m_worker->requests.size() > index; }))
            return QString();
        return QStringLiteral("%1-%2@%3")
            .arg(request(index).fromRow())
            .arg(request(index).toRow())
            .arg(request(index).rowsVersion());
    }
    void change(const QString& where, const QStringList& changes, int version, int oldVersion)
    {
        m_worker->subscribe()->rowsChanged(path(where), changes, version, oldVersion);
        m_worker->subscribe()->deliver();
        QCoreApplication::processEvents();
    }
    /// Loads rows 0 to 4 of a list of `count` rows at version 1. The first request has number 0.
    void load(Storage& storage, int count = 5)
    {
        storage.wanted.append(Range(0, 4));
        QCOMPARE(awaitRequest(0), QString("0-4@-1"));
        request(0).reply().setValue(rows(0, 4, count, 1));
        QTRY_COMPARE(storage.fetcher()->version(), 1);
        storage.take();
    }
    /// Longer than the delay of a trigger.
    static void turn() { QTest::qWait(60); }

private slots:
    void initTestCase()
    {
        orvoRegisterMetaTypes();
        m_worker = new ScriptedWorker;
        CMRoot_setInstance(m_worker);
    }
    void cleanupTestCase() { delete m_worker; }
    void cleanup()
    {
        m_worker->clear();
        deleteWaiting();
    }

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
