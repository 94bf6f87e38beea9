#include "core/model/cmworker.h"

#include "childprocess.h"
#include "core/model/cmmetatypes.h"
#include "core/model/cmreplywatcher.h"
#include "core/model/cmrequest.h"
#include "core/model/cmsubscribe.h"
#include "logcapture.h"
#include "records/orvoconstants.h"
#include "records/orvoroles.h"
#include "records/orvovalue.h"

#include <QtTest>

#include <climits>
#include <csignal>
#include <memory>
#include <sstream>
#include <thread>
#include <unistd.h>

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace {

CMPath path(const char* encoded)
{
    return CMPath::fromEncoded(encoded);
}

/// Notes the operation that a request came to, and keeps the request.
class NotingWorker : public CMAbstractWorker
{
public:
    explicit NotingWorker(const QHash<QString, QVariant>& arguments = QHash<QString, QVariant>())
        : CMAbstractWorker(arguments)
    {}

    void getDataRequest(const CMGetDataRequest& request) override
    {
        note("getData", request);
        getData_ = request;
        if (answer)
            request.reply().setValue(*answer);
    }
    void getRowsRequest(const CMGetRowsRequest& request) override
    {
        note("getRows", request);
        getRows_ = request;
    }
    void matchRowRequest(const CMMatchRowRequest& request) override
    {
        note("matchRow", request);
        matchRow_ = request;
    }
    void setDataRequest(const CMSetDataRequest& request) override
    {
        note("setData", request);
        setData_ = request;
    }
    void connectChange(CMAbstractWorker::ChangeType changeType, const CMPath& path, QObject* receiver,
                       const char* method, Qt::ConnectionType type) override
    {
        calls.append(QString("connect %1 %2 %3 %4 %5")
                         .arg(changeType)
                         .arg(path.toEncoded(), receiver->objectName(), method)
                         .arg(type));
    }
    void disconnectChange(CMAbstractWorker::ChangeType changeType, const CMPath& path, QObject* receiver,
                          const char* method) override
    {
        calls.append(
            QString("disconnect %1 %2 %3 %4").arg(changeType).arg(path.toEncoded(), receiver->objectName(), method));
    }

    QStringList calls;
    CMGetDataRequest getData_;
    CMGetRowsRequest getRows_;
    CMMatchRowRequest matchRow_;
    CMSetDataRequest setData_;
    std::unique_ptr<QVariantList> answer;

private:
    void note(const QString& operation, const CMRequest& request)
    {
        calls.append(operation + " " + request.path().toEncoded());
    }
};

/// A kind of request that no worker knows.
class OtherData : public CMRequest::Data
{
public:
    CMVoidReply reply() const override { return m_reply; }

    CMReply<QVariant> m_reply;
};

/// Serves a list of the given values, at once or from another thread.
class RowsWorker : public CMWorker
{
public:
    explicit RowsWorker(int count = 0) : CMWorker({}, "rows"), count(count) {}
    ~RowsWorker() override
    {
        for (std::thread& thread : m_threads)
            thread.join();
    }

    void getRowsRequest(const CMGetRowsRequest& request) override
    {
        asked.append(qMakePair(request.fromRow(), request.toRow()));
        last = request;
        const char here = 0;
        if (!m_deepest || &here < m_deepest)
            m_deepest = &here;
        if (!m_highest || &here > m_highest)
            m_highest = &here;
        if (asynchronous)
            m_threads.emplace_back([this, request] { answer(request); });
        else
            answer(request);
    }

    /// Bytes of stack between the shallowest and the deepest question.
    qptrdiff depth() const { return m_highest - m_deepest; }

    int count;
    int claimedCount = -1;
    bool emptyRows = false;
    bool asynchronous = false;
    std::function<void(const CMGetRowsRequest&)> otherAnswer;
    QVector<QPair<int, int>> asked;
    CMGetRowsRequest last;

private:
    void answer(const CMGetRowsRequest& request)
    {
        if (otherAnswer)
            return otherAnswer(request);
        QVariantList rows;
        for (int row = request.fromRow(); row <= request.toRow() && row < count; ++row)
            rows.append(QVariant(emptyRows ? QVariantList() : QVariantList{row}));
        request.reply().setValue(
            OrvoRowsRoles().setRows(QVariant(rows)).setRowsCount(claimedCount < 0 ? count : claimedCount));
    }

    std::vector<std::thread> m_threads;
    const char* m_deepest = nullptr;
    const char* m_highest = nullptr;
};

volatile sig_atomic_t s_signals = 0;

} // namespace

class Receiver : public QObject
{
    Q_OBJECT
public:
    QStringList heard;
public slots:
    void value(const CMPath& path, const QVariant& value) { heard.append(path.toEncoded() + "=" + value.toString()); }
};

class tst_CMWorker : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { orvoRegisterMetaTypes(); }

    // The interface

    void aRequestGoesToTheOperationOfItsKind()
    {
        NotingWorker worker;
        auto* getData = new CMGetDataRequest::Data;
        getData->path = path("ui:a");
        auto* getRows = new CMGetRowsRequest::Data;
        getRows->path = path("ui:b");
        auto* matchRow = new CMMatchRowRequest::Data;
        matchRow->path = path("ui:c");
        auto* setData = new CMSetDataRequest::Data;
        setData->path = path("ui:d");
        for (CMRequest::Data* data : QList<CMRequest::Data*>{getData, getRows, matchRow, setData})
            worker.request(CMRequest(data));
        QCOMPARE(worker.calls, (QStringList{"getData ui:a", "getRows ui:b", "matchRow ui:c", "setData ui:d"}));
        QVERIFY(worker.getData_.d() == getData);
        QVERIFY(worker.setData_.d() == setData);
    }

    void aRequestOfAnUnknownKindFails()
    {
        NotingWorker worker;
        const CMRequest request(new OtherData);
        worker.request(request);
        QCOMPARE(worker.calls, QStringList());
        QCOMPARE(request.reply().error(), CMError("CMAbstractWorker::internal", "Unknown request subclass", "Error"));
    }

    void aCallMakesItsRequestAndReturnsItsReply()
    {
        NotingWorker worker;
        const auto data = worker.getData(path("ui:a?x=1"), {"title", "value"});
        QVERIFY(data == worker.getData_.reply());
        QVERIFY(!data.isFinished());
        QCOMPARE(worker.getData_.path(), path("ui:a?x=1"));
        QCOMPARE(worker.getData_.roles(), (QStringList{"title", "value"}));

        const auto rows = worker.getRows(path("ui:b"), 1, 2, 3, {"title"});
        QVERIFY(rows == worker.getRows_.reply());
        QCOMPARE(worker.getRows_.path(), path("ui:b"));
        QCOMPARE(worker.getRows_.fromRow(), 1);
        QCOMPARE(worker.getRows_.toRow(), 2);
        QCOMPARE(worker.getRows_.rowsVersion(), 3);
        QCOMPARE(worker.getRows_.roles(), QStringList("title"));

        const auto match = worker.matchRow(path("ui:c"), 4, "title", 5, 6, 7);
        QVERIFY(match == worker.matchRow_.reply());
        QCOMPARE(worker.matchRow_.path(), path("ui:c"));
        QCOMPARE(worker.matchRow_.fromRow(), 4);
        QCOMPARE(worker.matchRow_.role(), QString("title"));
        QCOMPARE(worker.matchRow_.value(), QVariant(5));
        QCOMPARE(worker.matchRow_.matchFlags(), 6);
        QCOMPARE(worker.matchRow_.rowsVersion(), 7);

        const auto set = worker.setData(path("ui:d"), "title", "text");
        QVERIFY(set == worker.setData_.reply());
        QCOMPARE(worker.setData_.path(), path("ui:d"));
        QCOMPARE(worker.setData_.role(), QString("title"));
        QCOMPARE(worker.setData_.value(), QVariant("text"));
    }

    void writingCallsAreSetDataRequests()
    {
        NotingWorker worker;
        const auto check = [&](const CMReply<QVariant>& reply, const QString& role, const QVariant& value) {
            QVERIFY(reply == worker.setData_.reply());
            QCOMPARE(worker.setData_.role(), role);
            QCOMPARE(worker.setData_.value(), value);
        };
        const OrvoValue value = OrvoValue().setI32_(5);
        const OrvoRoles roles = OrvoRoles().setTitle("title");
        const OrvoRoles& hash = roles;
        check(worker.setValue(path("ui:a"), QVariant(5)), OrvoRoles::Value(), 5);
        check(worker.setValue(path("ui:a"), value), OrvoRoles::Value(), value.__variant());
        check(worker.setRoles(path("ui:a"), roles), OrvoRoles::SetRoles(), roles.__variant());
        check(worker.invoke(path("ui:a"), QVariant("go")), OrvoRoles::Activate(), "go");
        check(worker.invoke(path("ui:a"), hash), OrvoRoles::Activate(), hash.__variant());
        QCOMPARE(worker.calls.size(), 5);
    }

    void severalCallsMayShareAReply()
    {
        NotingWorker worker;
        const CMReply<QVariant> shared;
        QVERIFY(worker.setValue(path("ui:a"), QVariant(1), shared) == shared);
        QVERIFY(worker.setData(path("ui:a"), "title", 2, shared) == shared);
        QVERIFY(worker.invoke(path("ui:a"), QVariant(3), shared) == shared);
        QVERIFY(worker.setData_.reply() == shared);
        const CMReply<QVariantList> list;
        QVERIFY(worker.getData(path("ui:a"), {}, list) == list);
        const CMReply<OrvoRowsRoles> rows;
        QVERIFY(worker.getRows(path("ui:a"), 0, 1, -1, {}, rows) == rows);
        const CMReply<int> match;
        QVERIFY(worker.matchRow(path("ui:a"), 0, "title", 1, 0, -1, match) == match);
    }

    void getValueIsTheOneElementOfTheAnswer_data()
    {
        QTest::addColumn<QVariantList>("answer");
        QTest::addColumn<QVariant>("value");
        QTest::newRow("one") << QVariantList{"text"} << QVariant("text");
        QTest::newRow("none") << QVariantList() << QVariant();
        QTest::newRow("two") << QVariantList{1, 2} << QVariant();
    }

    void getValueIsTheOneElementOfTheAnswer()
    {
        QFETCH(QVariantList, answer);
        NotingWorker worker;
        worker.answer = std::make_unique<QVariantList>(answer);
        QTEST(worker.getValue(path("ui:a")), "value");
        QCOMPARE(worker.getData_.roles(), QStringList(OrvoRoles::Value()));
    }

    void getValueOfAFailureIsInvalid()
    {
        CMWorker worker({}, "worker");
        QVERIFY(!worker.getValue(path("ui:a")).isValid());
    }

    void getValueWaitsForAnotherThread()
    {
        class LateWorker : public NotingWorker
        {
        public:
            void getDataRequest(const CMGetDataRequest& request) override
            {
                thread = std::thread([request] { request.reply().setValue({"late"}); });
            }
            std::thread thread;
        };
        LateWorker worker;
        QCOMPARE(worker.getValue(path("ui:a")), QVariant("late"));
        worker.thread.join();
    }

    void thePlainPingAnswersAtOnce()
    {
        NotingWorker worker;
        const CMSetDataRequest request(new CMSetDataRequest::Data);
        worker.ping(request);
        QVERIFY(request.reply().isFinished());
        QVERIFY(!request.reply().error().isError());
        QVERIFY(!request.reply().value().isValid());
        worker.trace();
    }

    void theThreeSubscriptionsForwardToTheGeneralOne()
    {
        NotingWorker worker;
        QObject receiver;
        receiver.setObjectName("receiver");
        worker.connectValueChange(path("ui:a"), &receiver, "1slot()");
        worker.connectDataChange(path("ui:b"), &receiver, "1slot()", Qt::QueuedConnection);
        worker.connectRowsChange(path("ui:c"), &receiver, "1slot()", Qt::DirectConnection);
        worker.disconnectValueChange(path("ui:a"), &receiver, "1slot()");
        worker.disconnectDataChange(path("ui:b"), &receiver, "1slot()");
        worker.disconnectRowsChange(path("ui:c"), &receiver, "1slot()");
        QCOMPARE(worker.calls,
                 (QStringList{"connect 0 ui:a receiver 1slot() 0", "connect 1 ui:b receiver 1slot() 2",
                              "connect 2 ui:c receiver 1slot() 1", "disconnect 0 ui:a receiver 1slot()",
                              "disconnect 1 ui:b receiver 1slot()", "disconnect 2 ui:c receiver 1slot()"}));
    }

    void argumentsAreKept()
    {
        const QHash<QString, QVariant> arguments{{"a", 1}, {"b", "text"}};
        QCOMPARE(NotingWorker(arguments).arguments(), arguments);
        QCOMPARE(CMWorker(arguments, "worker").arguments(), arguments);
        QCOMPARE(CMAbstractWorker::Prefix(), QString("workerPrefix"));
    }

    void changeTypesPrintTheirNames()
    {
        std::ostringstream stream;
        stream << CMAbstractWorker::ValueChange << ' ' << CMAbstractWorker::DataChange << ' '
               << CMAbstractWorker::RowsChange << ' ' << static_cast<CMAbstractWorker::ChangeType>(3);
        QCOMPARE(stream.str(), std::string("ValueChange DataChange RowsChange UnknownChange"));
        QCOMPARE(int(CMAbstractWorker::ValueChange), 0);
        QCOMPARE(int(CMAbstractWorker::DataChange), 1);
        QCOMPARE(int(CMAbstractWorker::RowsChange), 2);
    }

    // Errors

    void errorsCarryTheirTexts()
    {
        QCOMPARE(CMAbstractWorker::createErrorInternal("it broke"),
                 CMError("CMAbstractWorker::internal", "it broke", "Error"));
        QCOMPARE(CMAbstractWorker::createErrorInvalidPath(path("ui:a?x=1")),
                 CMError("CMAbstractWorker::invalidPath", "Node at path 'ui:a?x=1' does not exist", "Error"));
        QCOMPARE(CMAbstractWorker::createErrorInvalidRowsVersion(path("ui:a"), 3, 4),
                 CMError("CMAbstractWorker::invalidRowsVersion", "Rows version at path 'ui:a' does not match: 3!=4",
                         "Error"));
        QCOMPARE(CMAbstractWorker::createErrorInvalidArgument("row", "-2"),
                 CMError("CMAbstractWorker::invalidArgument", "Argument 'row' has invalid value '-2'", "Error"));
        QCOMPARE(CMAbstractWorker::ErrorInternal(), QString("CMAbstractWorker::internal"));
        QCOMPARE(CMAbstractWorker::ErrorInvalidPath(), QString("CMAbstractWorker::invalidPath"));
        QCOMPARE(CMAbstractWorker::ErrorInvalidRowsVersion(), QString("CMAbstractWorker::invalidRowsVersion"));
        QCOMPARE(CMAbstractWorker::ErrorInvalidArgument(), QString("CMAbstractWorker::invalidArgument"));
    }

    void aPercentSignInAnArgumentIsLeftAlone()
    {
        QCOMPARE(CMAbstractWorker::createErrorInvalidPath(path("ui:a%1b")).message(),
                 QString("Node at path 'ui:a%1b' does not exist"));
        QCOMPARE(CMAbstractWorker::createErrorInvalidRowsVersion(path("ui:%2%3"), 3, 4).message(),
                 QString("Rows version at path 'ui:%2%3' does not match: 3!=4"));
        QCOMPARE(CMAbstractWorker::createErrorInvalidArgument("%2", "%1").message(),
                 QString("Argument '%2' has invalid value '%1'"));
        QCOMPARE(CMAbstractWorker::createErrorInternal("100%1 broken").message(), QString("100%1 broken"));
    }

    // The worker with a prefix and a hub

    void thePrefixComesFromTheArguments()
    {
        const CMWorker worker({{OrvoWorkerArguments::Prefix(), "ui:"}}, "worker");
        QCOMPARE(worker.prefixPath(), path("ui:"));
        QCOMPARE(worker.addPrefix("x"), path("ui:x"));
        QCOMPARE(worker.addPrefix("a/b").base(), QString("a/b"));
        const CMWorker bare({}, "bare");
        QVERIFY(bare.prefixPath().isEmpty());
        QCOMPARE(bare.addPrefix("x"), path("x"));
    }

    void theHubIsAChildWithTheNameOfTheWorker()
    {
        CMWorker worker({}, "worker");
        QCOMPARE(worker.subscribe()->id(), QString("worker"));
        QCOMPARE(worker.subscribe()->parent(), &worker);
    }

    void theHubMergesWhenTheArgumentsSaySo_data()
    {
        QTest::addColumn<QVariant>("argument");
        QTest::addColumn<bool>("merges");
        QTest::newRow("absent") << QVariant() << false;
        QTest::newRow("false") << QVariant(false) << false;
        QTest::newRow("true") << QVariant(true) << true;
        QTest::newRow("text") << QVariant("true") << true;
    }

    void theHubMergesWhenTheArgumentsSaySo()
    {
        QFETCH(QVariant, argument);
        QFETCH(bool, merges);
        QHash<QString, QVariant> arguments;
        if (argument.isValid())
            arguments.insert(OrvoWorkerArguments::MergeEvents(), argument);
        CMWorker worker(arguments, "worker");
        // A merging hub tells of a value as data, too.
        QSignalSpy spy(this, &tst_CMWorker::data);
        worker.connectDataChange(path("ui:a"), this, SIGNAL(data()));
        worker.subscribe()->valueChanged(path("ui:a"), 1);
        worker.subscribe()->deliver();
        QCOMPARE(spy.size(), merges ? 1 : 0);
    }

    void requestsThatNobodyTookFail()
    {
        CMWorker worker({}, "worker");
        const CMError error = CMAbstractWorker::createErrorInvalidPath(path("ui:a"));
        QCOMPARE(worker.getData(path("ui:a"), {"title"}).error(), error);
        QCOMPARE(worker.getRows(path("ui:a"), 0, 1, -1, {"title"}).error(), error);
        QCOMPARE(worker.setValue(path("ui:a"), QVariant(1)).error(), error);
        QCOMPARE(worker.matchRow(path("ui:a"), 0, "title", 1, 0, -1).error(), error);
    }

    void aPingIsAnsweredByTheEventLoopOfTheWorker()
    {
        CMWorker worker({}, "worker");
        const CMSetDataRequest request(new CMSetDataRequest::Data);
        worker.ping(request);
        QVERIFY(!request.reply().isFinished());
        QTRY_VERIFY(request.reply().isFinished());
        QVERIFY(!request.reply().error().isError());
        QVERIFY(!request.reply().value().isValid());
    }

    void aPingFromElsewhereIsAnsweredInTheThreadOfTheWorker()
    {
        class ThreadWatcher : public CMReplyWatcher
        {
        public:
            void finished(const CMVoidReply&) override { thread = QThread::currentThread(); }
            QThread* thread = nullptr;
        };
        QThread thread;
        thread.start();
        CMWorker worker({}, "worker");
        worker.moveToThread(&thread);
        const CMSetDataRequest request(new CMSetDataRequest::Data);
        ThreadWatcher watcher;
        request.reply().addWatcher(&watcher);
        worker.ping(request);
        QVERIFY(request.reply().waitForFinished());
        thread.quit();
        thread.wait();
        QCOMPARE(watcher.thread, &thread);
    }

    void subscriptionsGoToTheHub()
    {
        CMWorker worker({}, "worker");
        Receiver receiver;
        worker.connectValueChange(path("ui:a"), &receiver, SLOT(value(CMPath,QVariant)));
        QVERIFY(worker.subscribe()->valuePath(path("ui:a")));
        worker.subscribe()->valueChanged(path("ui:a"), 1);
        QTRY_COMPARE(receiver.heard, QStringList("ui:a=1"));
        worker.disconnectValueChange(path("ui:a"), &receiver, SLOT(value(CMPath,QVariant)));
        QVERIFY(!worker.subscribe()->valuePath(path("ui:a")));
    }

    void subscriptionsAreTraced()
    {
        const LogCapture log("CMChange");
        CMWorker worker({}, "worker");
        Receiver receiver;
        worker.connectValueChange(path("ui:a"), &receiver, SLOT(value(CMPath,QVariant)));
        QCOMPARE(log.lines().value(0),
                 QString("TRACE CMWorker::connectChange: ValueChange ui:a (Receiver 1value(CMPath,QVariant))"));
        const int connected = log.lines().size();
        worker.disconnectValueChange(path("ui:a"), &receiver, SLOT(value(CMPath,QVariant)));
        QCOMPARE(log.lines().value(connected),
                 QString("TRACE CMWorker::disconnectChange: ValueChange ui:a (Receiver 1value(CMPath,QVariant))"));
    }

    // Matching a row

    void aMatchIsTheFirstRowWithTheValue_data()
    {
        QTest::addColumn<int>("count");
        QTest::addColumn<int>("fromRow");
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<int>("row");
        QTest::newRow("first") << 10 << 0 << QVariant(0) << 0;
        QTest::newRow("last") << 10 << 0 << QVariant(9) << 9;
        QTest::newRow("from the row itself") << 10 << 4 << QVariant(4) << 4;
        QTest::newRow("ahead of the first row asked") << 10 << 5 << QVariant(4) << -1;
        QTest::newRow("none") << 10 << 0 << QVariant(10) << -1;
        QTest::newRow("empty list") << 0 << 0 << QVariant(0) << -1;
        QTest::newRow("beyond the list") << 10 << 10 << QVariant(9) << -1;
        QTest::newRow("far beyond the list") << 10 << 5000 << QVariant(9) << -1;
        QTest::newRow("in the second batch") << 300 << 0 << QVariant(150) << 150;
        QTest::newRow("at the end of a batch") << 300 << 0 << QVariant(100) << 100;
        QTest::newRow("behind a batch") << 300 << 0 << QVariant(101) << 101;
        QTest::newRow("equal by variant") << 10 << 0 << QVariant("7") << 7;
        QTest::newRow("near the largest number") << 10 << INT_MAX - 5 << QVariant(9) << -1;
    }

    void aMatchIsTheFirstRowWithTheValue()
    {
        QFETCH(int, count);
        QFETCH(int, fromRow);
        QFETCH(QVariant, value);
        for (const bool asynchronous : {false, true}) {
            RowsWorker worker(count);
            worker.asynchronous = asynchronous;
            const CMReply<int> reply = worker.matchRow(path("ui:rows"), fromRow, "title", value, 0, -1);
            QTEST(reply.value(), "row");
            QVERIFY(!reply.error().isError());
        }
    }

    void aMatchAsksForRowToRowPlus100()
    {
        RowsWorker worker(250);
        QCOMPARE(worker.matchRow(path("ui:rows"), 3, "title", -5, 0, 17).value(), -1);
        QCOMPARE(worker.asked, (QVector<QPair<int, int>>{{3, 103}, {104, 204}, {205, 305}}));
        QCOMPARE(worker.last.path(), path("ui:rows"));
        QCOMPARE(worker.last.rowsVersion(), 17);
        QCOMPARE(worker.last.roles(), QStringList("title"));
    }

    void aRowWithoutTheRoleMatchesAnInvalidValue()
    {
        RowsWorker worker(3);
        worker.emptyRows = true;
        QCOMPARE(worker.matchRow(path("ui:rows"), 1, "title", QVariant(), 0, -1).value(), 1);
        QCOMPARE(worker.matchRow(path("ui:rows"), 1, "title", 1, 0, -1).value(), -1);
    }

    void aBatchWithoutARowEndsTheMatchWhateverTheCount()
    {
        RowsWorker worker(10);
        worker.claimedCount = 1000;
        QCOMPARE(worker.matchRow(path("ui:rows"), 0, "title", -5, 0, -1).value(), -1);
        QCOMPARE(worker.asked.size(), 2);
    }

    void aCountThatIsReachedEndsTheMatch()
    {
        RowsWorker worker(1000);
        worker.claimedCount = 50;
        QCOMPARE(worker.matchRow(path("ui:rows"), 0, "title", -5, 0, -1).value(), -1);
        QCOMPARE(worker.asked.size(), 1);
    }

    void anErrorOfTheRowsIsPassedOn()
    {
        RowsWorker worker;
        const CMError error("rows", "message", "title");
        worker.otherAnswer = [&](const CMGetRowsRequest& request) { request.reply().setError(error); };
        QCOMPARE(worker.matchRow(path("ui:rows"), 0, "title", 1, 0, -1).error(), error);
        QCOMPARE(worker.asked.size(), 1);
    }

    void aMillionRowsAnsweredAtOnceTakeNoDeepStack()
    {
        RowsWorker worker(1000000);
        QCOMPARE(worker.matchRow(path("ui:rows"), 0, "title", 999999, 0, -1).value(), 999999);
        QCOMPARE(worker.asked.size(), 9901);
        QCOMPARE(worker.depth(), qptrdiff(0));
    }

    void aMatchEndsAtOnceOrLater()
    {
        RowsWorker worker(1);
        CMGetRowsRequest kept;
        worker.otherAnswer = [&](const CMGetRowsRequest& request) { kept = request; };
        const CMReply<int> reply = worker.matchRow(path("ui:rows"), 0, "title", "x", 0, -1);
        QVERIFY(!reply.isFinished());
        kept.reply().setValue(OrvoRowsRoles().setRows(QVariantList{QVariant(QVariantList{"y"})}).setRowsCount(2));
        QVERIFY(!reply.isFinished());
        QCOMPARE(kept.fromRow(), 1);
        kept.reply().setValue(OrvoRowsRoles().setRows(QVariantList{QVariant(QVariantList{"x"})}).setRowsCount(2));
        QCOMPARE(reply.value(), 1);
    }

    void aRowsRequestThatIsDroppedIsWarnedOf()
    {
        QTest::ignoreMessage(QtWarningMsg,
                             "Reply is being destroyed, but it's not finished and it has at least one watcher");
        RowsWorker worker(1);
        worker.otherAnswer = [](const CMGetRowsRequest&) {};
#ifdef __SANITIZE_ADDRESS__
        // The walker then waits for ever.
        const __lsan::ScopedDisabler leaks;
#endif
        const CMReply<int> reply = worker.matchRow(path("ui:rows"), 0, "title", "x", 0, -1);
        worker.last = CMGetRowsRequest();
        QVERIFY(!reply.isFinished());
    }

    void theWorkerMayDieWhileItAnswers()
    {
        auto worker = std::make_unique<RowsWorker>(1);
        worker->otherAnswer = [&](const CMGetRowsRequest& kept) {
            const CMGetRowsRequest request = kept;
            worker.reset();
            request.reply().setValue(
                OrvoRowsRoles().setRows(QVariantList{QVariant(QVariantList{"y"})}).setRowsCount(1000));
        };
        const CMReply<int> reply = worker->matchRow(path("ui:rows"), 0, "title", "x", 0, -1);
        QVERIFY(!worker);
        QCOMPARE(reply.error(), CMAbstractWorker::createErrorInvalidPath(path("ui:rows")));
    }

    void theWorkerMayDieInsideTheMatch()
    {
        auto worker = std::make_unique<RowsWorker>(200);
        const CMReply<int> reply;
        reply.onSuccess([&](int) { worker.reset(); });
        worker->matchRow(path("ui:rows"), 0, "title", 150, 0, -1, reply);
        QVERIFY(!worker);
        QCOMPARE(reply.value(), 150);
    }

    // Traces

    void aTraceSignalsAllThreads()
    {
        const ChildEnd end = runThisProgram({"--trace"});
        QVERIFY(!end.stopped);
        QCOMPARE(end.exitCode, 0);
    }

signals:
    void data();
};

/// Traces with three more threads and ends with 0 when there was a signal for each thread.
static int traceThreads()
{
    struct sigaction action = {};
    action.sa_handler = [](int) { s_signals = s_signals + 1; };
    action.sa_flags = SA_RESTART;
    sigaction(SIGUSR1, &action, nullptr);
    QSemaphore started;
    QSemaphore end;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
        threads.emplace_back([&] {
            started.release();
            end.acquire();
        });
    started.acquire(3);
    const int before = QDir("/proc/self/task").entryList(QDir::Dirs | QDir::NoDotAndDotDot).size();
    CMWorker worker({}, "worker");
    worker.trace();
    end.release(3);
    for (std::thread& thread : threads)
        thread.join();
    fprintf(stderr, "%d threads, %d signals\n", before, int(s_signals));
    return before >= 4 && s_signals == before ? 0 : 1;
}

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    if (application.arguments().value(1) == QLatin1String("--trace"))
        return traceThreads();
    tst_CMWorker test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_cmworker.moc"
