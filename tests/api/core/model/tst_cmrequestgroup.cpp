#include "core/model/cmrequestgroup.h"

#include "childprocess.h"
#include "cmremoteworker.h"
#include "logcapture.h"
#include "nodetest.h"
#include "records/orvovalue.h"
#include "support/linkfixture.h"

#include <QPointer>

class Receiver : public QObject
{
    Q_OBJECT
public:
    int calls = 0;
public slots:
    void onFinished() { ++calls; }
};

class tst_CMRequestGroup : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<ScriptedWorker> m_worker;

    CMVariantReply reply(int index) const { return m_worker->requests.at(index).reply().toVariantReply(); }
    /// Some turns of the event loop, in which nothing more may come.
    static void turn()
    {
        for (int i = 0; i < 5; ++i)
            QCoreApplication::processEvents();
    }

private slots:
    void initTestCase() { ForwardingRoot::instance(); }
    void init()
    {
        m_worker.reset(new ScriptedWorker);
        ForwardingRoot::instance()->reset(m_worker.get());
    }
    void cleanup()
    {
        m_worker->clear();
        deleteWaiting();
        ForwardingRoot::instance()->reset(nullptr);
        m_worker.reset();
    }

    void anEmptyGroupCallsBackAtOnce()
    {
        LogCapture log("CMRequestGroup", log4cplus::DEBUG_LOG_LEVEL);
        CMRequestGroup group;
        Receiver receiver;
        group.setCallback(&receiver, SLOT(onFinished()));
        QCOMPARE(receiver.calls, 1);
        QVERIFY(group.getReplyList().isEmpty());
        QCOMPARE(log.lines(), QStringList("DEBUG Last sub-request done, calling callback function"));
    }

    void aQueuedCallbackComesWithTheEventLoop()
    {
        CMRequestGroup group;
        Receiver receiver;
        group.setCallback(&receiver, SLOT(onFinished()), Qt::QueuedConnection);
        QCOMPARE(receiver.calls, 0);
        QTRY_COMPARE(receiver.calls, 1);
    }

    void eachKindOfRequestIsSentAsItIsGiven()
    {
        LogCapture log("CMRequestGroup");
        CMRequestGroup group;
        group.addInvoke("do", P("p:action"), 5);
        group.addGetData("data", P("p:node"), {"title", "icon"});
        group.addSetData("set", P("p:value"), "value", "text");
        group.addGetRows("rows", P("p:list"), 2, 9, 4, {"id"});
        QCOMPARE(log.lines(), (QStringList{"TRACE do path=p:action param=QVariant(int, 5)", "TRACE data path=p:node",
                                           "TRACE set path=p:value", "TRACE rows path=p:list"}));
        QCOMPARE(m_worker->requests.size(), 4);
        const auto invoke = request_cast<CMSetDataRequest>(m_worker->requests.at(0));
        QCOMPARE(invoke.path(), P("p:action"));
        QCOMPARE(invoke.role(), OrvoRoles::Activate());
        QCOMPARE(invoke.value().toInt(), 5);
        const auto get = request_cast<CMGetDataRequest>(m_worker->requests.at(1));
        QCOMPARE(get.path(), P("p:node"));
        QCOMPARE(get.roles(), (QStringList{"title", "icon"}));
        const auto set = request_cast<CMSetDataRequest>(m_worker->requests.at(2));
        QCOMPARE(set.path(), P("p:value"));
        QCOMPARE(set.role(), QString("value"));
        QCOMPARE(set.value(), QVariant("text"));
        const auto rows = request_cast<CMGetRowsRequest>(m_worker->requests.at(3));
        QCOMPARE(rows.path(), P("p:list"));
        QCOMPARE(rows.fromRow(), 2);
        QCOMPARE(rows.toRow(), 9);
        QCOMPARE(rows.rowsVersion(), 4);
        QCOMPARE(rows.roles(), QStringList("id"));
    }

    void itCallsBackOnceWhenTheLastHasFinished()
    {
        CMRequestGroup group;
        Receiver receiver;
        group.addGetData("a", P("p:a"), {"title"});
        group.setCallback(&receiver, SLOT(onFinished()));
        group.addSetData("b", P("p:b"), "value", 1);
        reply(1).setValue(7);
        turn();
        QCOMPARE(receiver.calls, 0);
        QCOMPARE(group.getReplyList().keys(), QStringList("b"));
        reply(0).setValue(QVariantList{"A"});
        QCOMPARE(receiver.calls, 0);
        QTRY_COMPARE(receiver.calls, 1);
        QCOMPARE(group.getReplyList().size(), 2);
        QCOMPARE(group.getReplyList().value("a").toVariantReply().value().toList(), QVariantList{"A"});
        QCOMPARE(group.getReplyList().value("b").toVariantReply().value().toInt(), 7);
        turn();
        QCOMPARE(receiver.calls, 1);
    }

    void aCallbackThatIsSetAfterTheLastReplyComesAtOnce()
    {
        CMRequestGroup group;
        group.addGetData("a", P("p:a"), {"title"});
        reply(0).setValue(QVariantList{"A"});
        QTRY_COMPARE(group.getReplyList().size(), 1);
        Receiver receiver;
        group.setCallback(&receiver, SLOT(onFinished()));
        QCOMPARE(receiver.calls, 1);
    }

    void aFailedRequestCountsAsFinished()
    {
        CMRequestGroup group;
        Receiver receiver;
        group.setCallback(&receiver, SLOT(onFinished()));
        QCOMPARE(receiver.calls, 1);
        group.addGetData("bad", P("p:bad"), {"title"});
        group.addGetData("good", P("p:good"), {"title"});
        reply(0).setError(CMError("gone", "", ""));
        reply(1).setValue(QVariantList{"A"});
        QTRY_COMPARE(receiver.calls, 2);
        QCOMPARE(group.getReplyList().value("bad").error().name(), QString("gone"));
        QVERIFY(!group.getReplyList().value("good").error().isError());
    }

    void ofTwoRequestsWithOneIdTheLaterReplyStays()
    {
        CMRequestGroup group;
        Receiver receiver;
        group.addSetData("a", P("p:a"), "value", 1);
        group.addSetData("a", P("p:b"), "value", 2);
        group.setCallback(&receiver, SLOT(onFinished()));
        reply(1).setValue("first to end");
        turn();
        QCOMPARE(receiver.calls, 0);
        reply(0).setValue("last to end");
        QTRY_COMPARE(receiver.calls, 1);
        QCOMPARE(group.getReplyList().size(), 1);
        QCOMPARE(group.getReplyList().value("a").toVariantReply().value().toString(), QString("last to end"));
    }

    void aGroupIsUsedAgainAndKeepsWhatItHas()
    {
        CMRequestGroup group;
        Receiver receiver;
        group.addSetData("a", P("p:a"), "value", 1);
        group.setCallback(&receiver, SLOT(onFinished()));
        reply(0).setValue(1);
        QTRY_COMPARE(receiver.calls, 1);
        group.addSetData("b", P("p:b"), "value", 1);
        reply(1).setValue(2);
        QTRY_COMPARE(receiver.calls, 2);
        QCOMPARE(group.getReplyList().size(), 2);
    }

    void aReplyFromElsewhereTakesThePlaceOfACountedOne()
    {
        CMRequestGroup group;
        Receiver receiver;
        group.addSetData("a", P("p:a"), "value", 1);
        const CMReply<QVariant> other;
        group.addWatcher("other", other);
        other.setValue(5);
        QTRY_COMPARE(group.getReplyList().size(), 1);
        group.setCallback(&receiver, SLOT(onFinished()));
        QCOMPARE(receiver.calls, 1);
        QCOMPARE(group.getReplyList().value("other").toVariantReply().value().toInt(), 5);
    }

    void aReplyThatHasFinishedAlreadyIsTold()
    {
        m_worker->onRequest = [](const CMRequest& request) { request.reply().toVariantReply().setValue(3); };
        CMRequestGroup group;
        Receiver receiver;
        group.addSetData("a", P("p:a"), "value", 1);
        group.setCallback(&receiver, SLOT(onFinished()));
        QCOMPARE(receiver.calls, 0);
        QTRY_COMPARE(receiver.calls, 1);
    }

    void itMayBeDestroyedInsideTheCallback()
    {
        QPointer<CMRequestGroup> group(new CMRequestGroup);
        Receiver receiver;
        group->addSetData("a", P("p:a"), "value", 1);
        group->setCallback(&receiver, SLOT(onFinished()));
        connect(group, &CMRequestGroup::finished, this, [&] { delete group.data(); });
        reply(0).setValue(1);
        QTRY_VERIFY(!group);
        QCOMPARE(receiver.calls, 1);
        // And inside setCallback().
        group = new CMRequestGroup;
        connect(group, &CMRequestGroup::finished, this, [&] { delete group.data(); });
        group->setCallback(&receiver, SLOT(onFinished()));
        QVERIFY(!group);
    }

    void itMayDieWithRequestsOpen()
    {
        Receiver receiver;
        {
            CMRequestGroup group;
            group.addSetData("a", P("p:a"), "value", 1);
            group.addSetData("b", P("p:b"), "value", 1);
            group.setCallback(&receiver, SLOT(onFinished()));
            reply(0).setValue(1);
        }
        reply(1).setValue(1);
        deleteWaiting();
        QCOMPARE(receiver.calls, 0);
    }

    void requestsToAnotherProcessAreJoined()
    {
        const QString name = serviceName("group");
        const CMPath prefix = CMPath::fromPrefix(name);
        ServerProcess server(name);
        QVERIFY(server.start());
        {
            CMRemoteWorker worker("me", name);
            ForwardingRoot::instance()->reset(&worker);
            CMRequestGroup group;
            Receiver receiver;
            group.addSetData("set", prefix + "value", OrvoRoles::Value(), OrvoValue().setI32_(8).__variant());
            group.addGetData("get", prefix + "value", {OrvoRoles::Value()});
            group.addGetRows("rows", prefix + "list", 0, 3, -1, {OrvoRoles::Id()});
            group.addInvoke("append", prefix + "append", true);
            group.addGetData("bad", prefix + "nothing", {OrvoRoles::Value()});
            group.setCallback(&receiver, SLOT(onFinished()));
            QTRY_COMPARE_WITH_TIMEOUT(receiver.calls, 1, 10000);
            const auto replies = group.getReplyList();
            QCOMPARE(replies.size(), 5);
            QCOMPARE(OrvoValue(replies.value("get").toVariantReply().value().toList().value(0)).i32_(), 8);
            QCOMPARE(OrvoRowsRoles(replies.value("rows").toVariantReply().value()).rowsCount(), 10);
            QCOMPARE(replies.value("append").toVariantReply().value().toInt(), 11);
            QCOMPARE(replies.value("bad").error().name(), CMAbstractWorker::ErrorInvalidPath());
            // A service that dies ends what is open.
            group.addGetData("never", prefix + "never", {OrvoRoles::Value()});
            // The answer tells that the request ahead of it has arrived.
            const CMVoidReply behind = worker.getData(prefix + "value", {OrvoRoles::Value()});
            QTRY_VERIFY(behind.isFinished());
            QCOMPARE(receiver.calls, 1);
            server.kill();
            QTRY_COMPARE_WITH_TIMEOUT(receiver.calls, 2, 10000);
            QVERIFY(group.getReplyList().value("never").error().isError());
            ForwardingRoot::instance()->reset(m_worker.get());
        }
        deleteWaiting();
    }

    void programmingErrorsStopTheProcess_data()
    {
        QTest::addColumn<QString>("argument");
        QTest::addColumn<QByteArray>("line");
        QTest::newRow("not counted") << "--uncounted"
                                     << QByteArray("Request id \"x\" finished without any pending requests");
        QTest::newRow("called by a stranger")
            << "--stranger" << QByteArray("CMRequestGroup subRequest sender is no CMReplyWatcherObject");
        QTest::newRow("called by another watcher")
            << "--watcher" << QByteArray("CMReplyWatcherObject is not in m_requestIDs");
    }
    void programmingErrorsStopTheProcess()
    {
        QFETCH(QString, argument);
        QFETCH(QByteArray, line);
        const ChildEnd end = runThisProgram({argument});
        QVERIFY(end.stopped);
        QVERIFY2(end.errors.contains("FATAL " + line), end.errors);
    }
};

namespace {

/// Ends in an assertion; the log is on stderr by then.
int misuse(const QString& how)
{
    leaveNoCore();
    orvoRegisterMetaTypes();
    // Written out when the assertion is told, which is the last that this process does.
    static LogCapture log("CMRequestGroup", log4cplus::FATAL_LOG_LEVEL);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString& message) {
        fprintf(stderr, "%s\n%s\n", qPrintable(log.lines().join('\n')), qPrintable(message));
    });
    CMRequestGroup group;
    const CMReply<QVariant> reply;
    if (how == "--uncounted")
        group.addWatcher("x", reply);
    else if (how == "--watcher")
        reply.addWatcher(&group, SLOT(on_subRequest_finished(CMVoidReply)));
    else
        QMetaObject::invokeMethod(&group, "on_subRequest_finished", Q_ARG(CMVoidReply, reply));
    reply.setValue(1);
    QTest::qWait(100);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QString argument = application.arguments().value(1);
    if (argument.startsWith("--"))
        return misuse(argument);
    tst_CMRequestGroup test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_cmrequestgroup.moc"
