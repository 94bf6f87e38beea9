#include "core/model/nodes/cmlinknode.h"

#include "cmremoteworker.h"
#include "cmroutingworker.h"
#include "core/model/cmmetatypes.h"
#include "core/model/cmnodes.h"
#include "core/model/cmroot.h"
#include "core/model/cmrpcclient.h"
#include "core/model/cmsubscribe.h"
#include "core/model/cmvalueitem.h"
#include "records/orvoconstants.h"
#include "support/linkfixture.h"

#include <log4cplus/logger.h>

/// Writes down what it is told.
class Subscriber : public QObject
{
    Q_OBJECT

public:
    QList<int> values;
    int datas = 0;
    QStringList changes;
    QList<QPair<int, int>> versions;

public slots:
    void onValue(CMPath, QVariant value) { values.append(OrvoValue(value).i32_()); }
    void onData(CMPath) { ++datas; }
    void onRows(CMPath, QStringList strings, int version, int oldVersion)
    {
        changes += strings;
        versions.append({oldVersion, version});
    }
};

/// Links in this process whose targets another process serves, while that one dies and comes back.
class tst_CMLinkNodeProcesses : public QObject
{
    Q_OBJECT

private:
    QString m_service;
    std::unique_ptr<ServerProcess> m_server;
    std::unique_ptr<CMRoutingWorker> m_root;
    std::unique_ptr<CMRemoteWorker> m_remote;
    std::unique_ptr<CMNodesWorker> m_local;
    CMLinkRowsNode* m_linkRows = nullptr;

    static CMPath own(const char* base) { return CMPath::fromEncoded(QByteArray("here:") + base); }
    CMPath theirs(const QString& base) const { return CMPath::fromPrefix(m_service) + base; }
    static bool waitForReply(const CMVoidReply& reply)
    {
        return QTest::qWaitFor([&] { return reply.isFinished(); }, 10000);
    }
    bool waitForLink(bool connected)
    {
        return QTest::qWaitFor([&] { return m_remote->client()->isConnected() == connected; }, 10000);
    }
    bool restart(const QStringList& arguments)
    {
        m_server->kill();
        return waitForLink(false) && m_server->start(arguments) && waitForLink(true);
    }
    void subscribe(Subscriber* subscriber, const CMPath& value, const CMPath& rows)
    {
        CMRoot()->connectValueChange(value, subscriber, SLOT(onValue(CMPath,QVariant)));
        CMRoot()->connectDataChange(value, subscriber, SLOT(onData(CMPath)));
        CMRoot()->connectRowsChange(rows, subscriber, SLOT(onRows(CMPath,QStringList,int,int)));
    }

private slots:
    void initTestCase()
    {
        log4cplus::Logger::getRoot().setLogLevel(log4cplus::OFF_LOG_LEVEL);
        orvoRegisterMetaTypes();
        m_service = serviceName("linknode");
        m_server.reset(new ServerProcess(m_service));
        m_root.reset(new CMRoutingWorker);
        CMRoot_setInstance(m_root.get());
    }

    void init()
    {
        QVERIFY(m_server->start({"--value", "1"}));
        m_remote.reset(new CMRemoteWorker("me", m_service, {{OrvoWorkerArguments::MergeEvents(), true}}));
        m_local.reset(new CMNodesWorker(
            {{OrvoWorkerArguments::Prefix(), "here:"}, {OrvoWorkerArguments::MergeEvents(), true}}, "here"));
        m_root->registerWorker(m_service, m_remote.get());
        m_root->registerWorker("here", m_local.get());
        CMLinkNode::create(m_local->nodes(), own("all"), theirs(""));
        m_linkRows = CMLinkRowsNode::create(m_local->nodes(), own("rows"), theirs("list"));
        QVERIFY(waitForLink(true));
    }

    void cleanup()
    {
        m_local.reset();
        m_remote.reset();
        deleteWaiting();
        m_server->kill();
    }

    void requestsReachTheOtherProcess()
    {
        const auto get = CMRoot()->getData(own("allvalue?a=1"), {OrvoRoles::Path(), OrvoRoles::Value()});
        QVERIFY(waitForReply(get));
        QCOMPARE(get.value().value(0), QVariant("here:allvalue?a=1"));
        QCOMPARE(OrvoValue(get.value().value(1)).i32_(), 1);
        QVERIFY(waitForReply(CMRoot()->setValue(own("allvalue"), OrvoValue().setI32_(5))));
        const auto there = CMRoot()->getData(theirs("value"), {OrvoRoles::Value()});
        QVERIFY(waitForReply(there));
        QCOMPARE(OrvoValue(there.value().value(0)).i32_(), 5);
        for (const char* path : {"alllist", "rows"}) {
            const auto rows = CMRoot()->getRows(own(path), 2, 3, -1, {OrvoRoles::Id()});
            QVERIFY(waitForReply(rows));
            QCOMPARE(rows.value().rows().toList(), (QVariantList{QVariantList{"2"}, QVariantList{"3"}}));
            QCOMPARE(rows.value().rowsCount(), 10);
        }
        const auto missing = CMRoot()->getData(own("allnothing"), {OrvoRoles::Value()});
        QVERIFY(waitForReply(missing));
        QCOMPARE(missing.error().message(), QString("Node at path '%1:nothing' does not exist").arg(m_service));
    }

    void changesReachTheSubscribersOfTheLink()
    {
        Subscriber link;
        subscribe(&link, own("allvalue"), own("alllist"));
        Subscriber rows;
        CMRoot()->connectRowsChange(own("rows"), &rows, SLOT(onRows(CMPath,QStringList,int,int)));
        // Answered behind the subscriptions.
        QVERIFY(waitForReply(CMRoot()->getData(theirs("value"), {OrvoRoles::Value()})));
        for (int i = 10; i < 13; ++i) {
            QVERIFY(waitForReply(CMRoot()->setValue(own("allvalue"), OrvoValue().setI32_(i))));
            QTRY_COMPARE(link.values.isEmpty() ? 0 : link.values.last(), i);
        }
        QTRY_VERIFY(link.datas > 0);
        for (int i = 0; i < 3; ++i)
            QVERIFY(waitForReply(CMRoot()->invoke(own("allappend"), true)));
        QTRY_COMPARE(link.changes, (QStringList{"+10", "+11", "+12"}));
        QTRY_COMPARE(rows.changes, link.changes);
        // A rows request through the link can be checked against the version of the change.
        QCOMPARE(link.versions.last().second, 3);
        const auto read = CMRoot()->getRows(own("alllist"), 0, 0, 3, {OrvoRoles::Id()});
        QVERIFY(waitForReply(read));
        QCOMPARE(read.error().name(), QString());
    }

    void subscriptionsSurviveARestartOfTheService()
    {
        Subscriber link;
        subscribe(&link, own("allvalue"), own("alllist"));
        Subscriber rows;
        CMRoot()->connectRowsChange(own("rows"), &rows, SLOT(onRows(CMPath,QStringList,int,int)));
        CMValueItem item(nullptr, own("allvalue"));
        QTRY_COMPARE(item.value().i32_(), 1);
        for (int round = 2; round < 5; ++round) {
            link.changes.clear();
            rows.changes.clear();
            link.datas = 0;
            QVERIFY(restart({"--value", QString::number(round), "--rows", QString::number(round)}));
            // The value of the new service comes unasked, and readers of data and rows are told to read anew.
            QTRY_COMPARE(link.values.isEmpty() ? 0 : link.values.last(), round);
            QTRY_COMPARE(item.value().i32_(), round);
            QTRY_VERIFY(link.datas > 0);
            QTRY_VERIFY(link.changes.contains(CMSubscribe::RowsChangeReset()));
            QTRY_VERIFY(rows.changes.contains(CMSubscribe::RowsChangeReset()));
            const auto read = CMRoot()->getRows(own("rows"), 0, 9, -1, {OrvoRoles::Id()});
            QVERIFY(waitForReply(read));
            QCOMPARE(read.value().rowsCount(), round);

            // Later changes come, too.
            QVERIFY(waitForReply(CMRoot()->setValue(own("allvalue"), OrvoValue().setI32_(100 + round))));
            QTRY_COMPARE(item.value().i32_(), 100 + round);
            QVERIFY(waitForReply(CMRoot()->invoke(own("allappend"), true)));
            QTRY_COMPARE(link.changes.last(), QString("+%1").arg(round));
            QTRY_COMPARE(rows.changes.last(), QString("+%1").arg(round));
        }
    }

    void openRequestsEndWhenTheServiceDies()
    {
        const auto get = CMRoot()->getData(own("allnever"), {OrvoRoles::Value()});
        const auto rows = CMRoot()->getRows(own("allnever"), 0, 1, -1, {});
        const auto set = CMRoot()->setValue(own("allnever"), 1);
        QVERIFY(waitForReply(CMRoot()->getData(own("allvalue"), {OrvoRoles::Value()})));
        QVERIFY(!get.isFinished() && !rows.isFinished() && !set.isFinished());
        m_server->kill();
        for (const CMVoidReply& reply : {CMVoidReply(get), CMVoidReply(rows), CMVoidReply(set)}) {
            QVERIFY(waitForReply(reply));
            QCOMPARE(reply.error().name(), CMVoidReply::ErrorCancel());
        }
        // A request that is made now waits for the next service.
        const auto later = CMRoot()->getData(own("allvalue"), {OrvoRoles::Value()});
        QVERIFY(m_server->start({"--value", "9"}));
        QVERIFY(waitForReply(later));
        QCOMPARE(OrvoValue(later.value().value(0)).i32_(), 9);
    }

    void aTargetThatComesLaterIsShown()
    {
        m_server->kill();
        QVERIFY(waitForLink(false));
        Subscriber link;
        subscribe(&link, own("allvalue"), own("alllist"));
        QVERIFY(m_server->start({"--value", "7"}));
        QVERIFY(waitForReply(CMRoot()->setValue(own("allvalue"), OrvoValue().setI32_(8))));
        QTRY_COMPARE(link.values, QList<int>{8});
        QTRY_VERIFY(link.datas > 0);
        QVERIFY(waitForReply(CMRoot()->invoke(own("allappend"), true)));
        QTRY_VERIFY(link.changes.contains("+10"));
    }

    void anotherLinkReadsTheOtherProcess()
    {
        CMListRowsNode* list = CMListRowsNode::create(m_local->nodes(), own("list"));
        list->rowsAppend(OrvoRoles().setId("mine"));
        Subscriber rows;
        CMRoot()->connectRowsChange(own("rows"), &rows, SLOT(onRows(CMPath,QStringList,int,int)));
        m_linkRows->setLinkPath(own("list"));
        QTRY_COMPARE(rows.changes, QStringList(""));
        QVERIFY(!m_remote->subscribe()->rowsPath(theirs("list")));
        m_linkRows->setLinkPath(theirs("list"));
        QTRY_COMPARE(rows.changes, QStringList({"", ""}));
        QVERIFY(m_remote->subscribe()->rowsPath(theirs("list")));
        QVERIFY(waitForReply(CMRoot()->invoke(own("allappend"), true)));
        QTRY_COMPARE(rows.changes, QStringList({"", "", "+10"}));
    }

    void nothingStaysSubscribedWhenTheReadersAreGone()
    {
        {
            Subscriber link;
            subscribe(&link, own("allvalue"), own("rows"));
            QVERIFY(m_remote->subscribe()->valuePath(theirs("value")));
            QVERIFY(m_remote->subscribe()->dataPath(theirs("value")));
            QVERIFY(m_remote->subscribe()->rowsPath(theirs("list")));
        }
        QTRY_VERIFY(!m_remote->subscribe()->valuePath(theirs("value")));
        QTRY_VERIFY(!m_remote->subscribe()->dataPath(theirs("value")));
        QTRY_VERIFY(!m_remote->subscribe()->rowsPath(theirs("list")));
    }
};

QTEST_GUILESS_MAIN(tst_CMLinkNodeProcesses)
#include "tst_cmlinknode_processes.moc"
