#include "core/model/nodes/cmlinknode.h"

#include "childprocess.h"
#include "core/model/cmroles.h"
#include "logcapture.h"
#include "nodetest.h"
#include "runtogether.h"

#include <QtTest>

namespace {

/// A subtree "x:t" and a link "x:k" to it.
class Linked : public NodesFixture
{
public:
    Linked()
        : target(CMListRowsNode::create(nodes(), P("x:t"))),
          leaf(CMValueNode::create(nodes(), P("x:t/a"))),
          link(CMLinkNode::create(nodes(), P("x:k"), P("x:t")))
    {
        target->setTitle("target");
        target->setIcon("target.png");
        target->setId("t");
        leaf->setVariantValue(1);
        leaf->setTitle("leaf");
    }
    QStringList deliveredFully()
    {
        QStringList events;
        // The target's delivery makes the link's report.
        for (int i = 0; i < 3; ++i)
            events += delivered();
        return events;
    }

    CMListRowsNode* const target;
    CMValueNode* const leaf;
    CMLinkNode* const link;
};

/// Answers with fewer values than there are roles.
class ShortNode : public CMUINode
{
public:
    using CMUINode::CMUINode;
    bool getDataRequest(const CMGetDataRequest& request) override
    {
        request.reply().setValue({});
        return true;
    }
};

QString invalidPathText(const char* path)
{
    return CMAbstractWorker::createErrorInvalidPath(P(path)).message();
}

int runChild(const QString& what)
{
    leaveNoCore();
    NodesFixture f;
    if (what == "self")
        CMLinkNode::create(f.nodes(), P("x:k"), P("x:k"));
    if (what == "other-params")
        return CMLinkNode::create(f.nodes(), P("x:k"), P("x:k?a=1")) ? 7 : 0;
    if (what == "short") {
        (new ShortNode(P("x:t")))->setNodes(f.nodes());
        CMLinkNode::create(f.nodes(), P("x:k"), P("x:t"));
        f.worker->getData(P("x:k"), {OrvoRoles::Title()});
    }
    return 0;
}

} // namespace

class tst_CMLinkNode : public QObject
{
    Q_OBJECT

private slots:
    // Get data

    void dataIsTheTargets()
    {
        Linked f;
        QCOMPARE(f.link->linkPath(), P("x:t"));
        QCOMPARE(f.data(P("x:k"), {OrvoRoles::Title(), OrvoRoles::Icon(), OrvoRoles::Id(), OrvoRoles::Type(), "none"}),
                 (QVariantList{"target", "target.png", "t", "container", QVariant()}));
        QCOMPARE(f.root()->requests, QStringList("getData x:t"));
    }

    void thePathIsTheAskers()
    {
        Linked f;
        QCOMPARE(f.datum(P("x:k?a=1"), OrvoRoles::Path()), QVariant("x:k?a=1"));
        QCOMPARE(f.datum(P("x:k/a?b=2"), OrvoRoles::Path()), QVariant("x:k/a?b=2"));
        QCOMPARE(f.root()->requests, QStringList({"getData x:t?a=1", "getData x:t/a?b=2"}));
    }

    void titleAndIconOfTheLinkReplaceTheTargets()
    {
        Linked f;
        f.link->setTitle("link");
        f.link->setIcon("link.png");
        const QStringList roles{OrvoRoles::Icon(), OrvoRoles::Path(), OrvoRoles::Title(), OrvoRoles::Title()};
        QCOMPARE(f.data(P("x:k"), roles), (QVariantList{"link.png", "x:k", "link", "link"}));
        // Below the link, too.
        QCOMPARE(f.datum(P("x:k/a"), OrvoRoles::Title()), QVariant("link"));
        // Set, though without a letter; only a null text is none.
        f.link->setTitle(QString(""));
        f.link->setIcon(QString(""));
        QCOMPARE(f.data(P("x:k"), roles), (QVariantList{"", "x:k", "", ""}));
        f.link->setTitle(QString());
        f.link->setIcon(QString());
    }

    void otherRolesOfTheLinkAreNotSeen()
    {
        Linked f;
        f.link->setId("own");
        f.link->setDescription("own");
        f.link->setDisabled(true);
        QCOMPARE(f.data(P("x:k"), {OrvoRoles::Id(), OrvoRoles::Description(), OrvoRoles::Disabled()}),
                 f.data(P("x:t"), {OrvoRoles::Id(), OrvoRoles::Description(), OrvoRoles::Disabled()}));
        // The node itself knows them.
        QCOMPARE(f.link->getDataRoles({OrvoRoles::Id()}, {}).id(), QString("own"));
    }

    void aMissingTargetFailsWithTheTargetsPath()
    {
        NodesFixture f;
        CMLinkNode::create(f.nodes(), P("x:k"), P("x:none"));
        const auto data = f.worker->getData(P("x:k/a"), {OrvoRoles::Title()});
        QVERIFY(data.isFinished());
        QCOMPARE(data.error().name(), CMAbstractWorker::ErrorInvalidPath());
        QCOMPARE(data.error().message(), QString("Node at path 'x:none/a' does not exist"));
        QCOMPARE(f.worker->getRows(P("x:k"), 0, 1, -1, {}).error().message(), invalidPathText("x:none"));
        QCOMPARE(f.worker->setValue(P("x:k"), 1).error().message(), invalidPathText("x:none"));
    }

    void theAnswerComesWhenTheTargetAnswers()
    {
        Linked f;
        f.root()->hold(P("x:t"));
        const auto reply = f.worker->getData(P("x:k"), {OrvoRoles::Path(), OrvoRoles::Id()});
        QVERIFY(!reply.isFinished());
        f.root()->heldData.first().reply().setValue({"x:t", "late"});
        QVERIFY(reply.isFinished());
        QCOMPARE(reply.value(), (QVariantList{"x:k", "late"}));
    }

    void anAskerWhoCancelsCancelsTheForwardedRequest()
    {
        Linked f;
        f.root()->hold(P("x:t"));
        const auto reply = f.worker->getData(P("x:k"), {OrvoRoles::Id()});
        reply.cancel();
        QVERIFY(f.root()->heldData.first().reply().isFinished());
        QCOMPARE(f.root()->heldData.first().reply().error(), reply.error());
        QCOMPARE(reply.error().name(), CMVoidReply::ErrorCancel());
        // What the target brings later is dropped.
        f.root()->heldData.first().reply().setValue({"late"});
        QCOMPARE(reply.error().name(), CMVoidReply::ErrorCancel());
    }

    void aRequestThatWasCancelledAheadIsForwardedAsCancelled()
    {
        Linked f;
        CMReply<QVariantList> reply;
        reply.cancel();
        f.root()->hold(P("x:t"));
        f.worker->getData(P("x:k"), {OrvoRoles::Id()}, reply);
        QCOMPARE(f.root()->heldData.first().reply().error().name(), CMVoidReply::ErrorCancel());
    }

    void theLinkMayLeaveBeforeTheTargetAnswers()
    {
        Linked f;
        f.link->setTitle("link");
        f.root()->hold(P("x:t"));
        const auto reply = f.worker->getData(P("x:k"), {OrvoRoles::Title()});
        const QPointer<CMLinkNode> link(f.link);
        f.link->deleteLater();
        f.root()->heldData.first().reply().setValue({"target"});
        QCOMPARE(reply.value(), QVariantList{"link"});
        // The last reference went with the request.
        QVERIFY(!link);
    }

    void bothRepliesMayEndAtTheSameTime()
    {
        Linked f;
        f.root()->hold(P("x:t"));
        for (int i = 0; i < 500; ++i) {
            const auto reply = f.worker->getData(P("x:k"), {OrvoRoles::Id()});
            const auto forwarded = f.root()->heldData.takeFirst();
            QVERIFY(runTogether({[&] { reply.cancel(); }, [&] { forwarded.reply().setValue({"t"}); }}));
            QVERIFY(reply.isFinished() && forwarded.reply().isFinished());
            QVERIFY(reply.error().isError() || reply.value() == QVariantList{"t"});
        }
    }

    // Rows and writing

    void rowsAndTheirVersionAreTheTargets()
    {
        Linked f;
        for (const char* id : {"0", "1", "2"})
            f.target->rowsAppend(OrvoRoles().setId(id));
        f.spy.watchRows(f.worker.get(), P("x:k"));
        f.target->rowsAppend(OrvoRoles().setId("3"));
        const auto rows = f.worker->getRows(P("x:k"), 1, 2, 1, {OrvoRoles::Id()});
        QCOMPARE(rows.error().name(), QString());
        QCOMPARE(rows.value().rows().toList(), (QVariantList{QVariantList{"1"}, QVariantList{"2"}}));
        QCOMPARE(rows.value().rowsCount(), 4);
        QCOMPARE(rows.value().rowsVersion(), 1);
        QCOMPARE(f.worker->getRows(P("x:k"), 1, 2, 5, {}).error().name(), CMAbstractWorker::ErrorInvalidRowsVersion());
        QCOMPARE(f.worker->matchRow(P("x:k"), 0, OrvoRoles::Id(), "2", 0, -1).value(), 2);
    }

    void aWriteReachesTheTarget()
    {
        Linked f;
        const auto reply = f.worker->setValue(P("x:k/a?p=1"), OrvoValue().setI32_(5));
        QCOMPARE(reply.value(), QVariant(true));
        QCOMPARE(f.leaf->value().i32_(), 5);
        QCOMPARE(f.root()->requests, QStringList("setData x:t/a?p=1 value"));
        f.leaf->setReadOnly(true);
        QCOMPARE(f.worker->setValue(P("x:k/a"), OrvoValue().setI32_(6)).value(), QVariant(false));
    }

    void parametersOfTheLinkPathAreAdded()
    {
        NodesFixture f;
        CMUINode::create(f.nodes(), P("x:t"));
        CMLinkNode::create(f.nodes(), P("x:k"), P("x:t?zone=1"));
        f.spy.watchData(f.worker.get(), P("x:k?a=2"));
        QVERIFY(f.hub()->dataPath(P("x:t?a=2?zone=1")));
        QCOMPARE(f.datum(P("x:k?a=2"), OrvoRoles::Path()), QVariant("x:k?a=2"));
        QCOMPARE(f.root()->requests, QStringList("getData x:t?a=2?zone=1"));
        f.hub()->dataChanged(P("x:t?a=2?zone=1"));
        f.hub()->deliver();
        QCOMPARE(f.delivered(), QStringList("data x:k?a=2"));
    }

    // Watching

    void subscriptionsAreMirroredOnTheTarget()
    {
        Linked f;
        f.spy.watchValue(f.worker.get(), P("x:k/a?p=1"));
        QVERIFY(f.hub()->valuePath(P("x:t/a?p=1")));
        QCOMPARE(f.leaf->valuePaths(), QSet<CMPath>{P("x:t/a?p=1")});
        QVERIFY(!f.hub()->dataPath(P("x:t/a?p=1")) && !f.hub()->rowsPath(P("x:t/a?p=1")));
        f.spy.watchData(f.worker.get(), P("x:k/a"));
        QVERIFY(f.hub()->dataPath(P("x:t/a")));
        f.spy.watchRows(f.worker.get(), P("x:k"));
        QVERIFY(f.hub()->rowsPath(P("x:t")));

        f.spy.unwatchValue(f.worker.get(), P("x:k/a?p=1"));
        QVERIFY(!f.hub()->valuePath(P("x:t/a?p=1")));
        f.spy.unwatchData(f.worker.get(), P("x:k/a"));
        QVERIFY(!f.hub()->dataPath(P("x:t/a")));
        f.spy.unwatchRows(f.worker.get(), P("x:k"));
        QVERIFY(!f.hub()->rowsPath(P("x:t")));
    }

    void eachKindGoesToItsSlotDirectly()
    {
        Linked f;
        const LogCapture log("CMChange");
        f.spy.watchValue(f.worker.get(), P("x:k"));
        f.spy.watchData(f.worker.get(), P("x:k"));
        f.spy.watchRows(f.worker.get(), P("x:k"));
        const QStringList atTarget = log.lines().filter("TRACE test: connectChange: x:t ");
        QCOMPARE(atTarget,
                 QStringList({"TRACE test: connectChange: x:t 1watchedValueChanged(CMPath,QVariant)",
                              "TRACE test: connectChange: x:t 1watchedDataChanged(CMPath)",
                              "TRACE test: connectChange: x:t 1watchedRowsChanged(CMPath,QStringList,int,int)"}));
    }

    void aPathThatIsToldTwiceIsWatchedOnce()
    {
        Linked f;
        f.spy.watchValue(f.worker.get(), P("x:k"));
        f.spy.watchData(f.worker.get(), P("x:k"));
        f.spy.watchRows(f.worker.get(), P("x:k"));
        f.link->valuePathAdd(P("x:k"));
        f.link->dataPathAdd(P("x:k"));
        f.link->rowsPathAdd(P("x:k"));
        f.spy.unwatchValue(f.worker.get(), P("x:k"));
        f.spy.unwatchData(f.worker.get(), P("x:k"));
        f.spy.unwatchRows(f.worker.get(), P("x:k"));
        QVERIFY(!f.hub()->valuePath(P("x:t")) && !f.hub()->dataPath(P("x:t")) && !f.hub()->rowsPath(P("x:t")));
    }

    void pathsThatMeetAtOneTargetPathAreWatchedEach()
    {
        Linked f;
        CMLinkNode* zone = CMLinkNode::create(f.nodes(), P("x:z"), P("x:t?zone=1"));
        f.spy.watchData(f.worker.get(), P("x:z"));
        f.spy.watchData(f.worker.get(), P("x:z?zone=1"));
        QCOMPARE(zone->dataPaths().size(), 2);
        f.spy.unwatchData(f.worker.get(), P("x:z"));
        QVERIFY(f.hub()->dataPath(P("x:t?zone=1")));
        f.spy.unwatchData(f.worker.get(), P("x:z?zone=1"));
        QVERIFY(!f.hub()->dataPath(P("x:t?zone=1")));
    }

    void changesComeAtThePathOfTheLink()
    {
        Linked f;
        f.spy.watchValue(f.worker.get(), P("x:k/a?p=1"));
        f.leaf->setVariantValue(7);
        QCOMPARE(f.deliveredFully(), QStringList("value x:k/a?p=1 7"));
        f.spy.watchData(f.worker.get(), P("x:k/a"));
        f.leaf->setTitle("new");
        QCOMPARE(f.deliveredFully(), QStringList("data x:k/a"));
    }

    void rowsVersionsAreThoseOfTheTarget()
    {
        Linked f;
        // The target has a history of its own.
        f.spy.watchRows(f.worker.get(), P("x:t"));
        f.target->rowsAppend(OrvoRoles().setId("0"));
        f.target->rowsAppend(OrvoRoles().setId("1"));
        f.deliveredFully();
        f.spy.watchRows(f.worker.get(), P("x:k"));
        f.target->rowsAppend(OrvoRoles().setId("2"));
        f.target->rowsRemoveAt(0);
        QCOMPARE(f.deliveredFully(), QStringList({"rows x:t [+2,-0] 2>4", "rows x:k [+2,-0] 2>4"}));
        QCOMPARE(f.hub()->rowsVersion(P("x:k")), 4);
        QCOMPARE(f.worker->getRows(P("x:k"), 0, 5, 4, {}).error().name(), QString());
        f.target->rowsClear();
        f.target->hide();
        QCOMPARE(f.deliveredFully(), QStringList({"rows x:t [,close] 4>0", "rows x:k [,close] 4>0"}));
    }

    void theLinksOwnTitleIsReportedToItsReaders()
    {
        Linked f;
        f.spy.watchData(f.worker.get(), P("x:k"));
        f.link->setTitle("own");
        QCOMPARE(f.deliveredFully(), QStringList("data x:k"));
    }

    void changesAreTraced()
    {
        Linked f;
        const LogCapture log("CMLinkNode");
        f.spy.watchValue(f.worker.get(), P("x:k/a"));
        f.spy.watchData(f.worker.get(), P("x:k/a"));
        f.spy.watchRows(f.worker.get(), P("x:k"));
        f.leaf->setVariantValue(7);
        f.target->rowsAppend(OrvoRoles().setId("0"));
        f.deliveredFully();
        QStringList lines = log.lines();
        lines.sort();
        QCOMPARE(lines, QStringList({"TRACE watched data changed: x:t/a", "TRACE watched rows changed: x:t",
                                     "TRACE watched value changed: x:t/a"}));
    }

    void aChangeAtAForeignPathIsDroppedWithALine()
    {
        Linked f;
        f.spy.watchData(f.worker.get(), P("x:k"));
        CMLinkNode* zone = CMLinkNode::create(f.nodes(), P("x:z"), P("x:t?zone=1"));
        f.spy.watchData(f.worker.get(), P("x:z"));
        const LogCapture log("CMNode", log4cplus::WARN_LOG_LEVEL);
        QMetaObject::invokeMethod(f.link, "watchedDataChanged", Q_ARG(CMPath, P("x:other")));
        QMetaObject::invokeMethod(zone, "watchedValueChanged", Q_ARG(CMPath, P("x:t")), Q_ARG(QVariant, 1));
        QMetaObject::invokeMethod(zone, "watchedRowsChanged", Q_ARG(CMPath, P("x:t")), Q_ARG(QStringList, {"+1"}),
                                  Q_ARG(int, 1), Q_ARG(int, 0));
        QCOMPARE(f.deliveredFully(), QStringList());
        QCOMPARE(log.lines(), QStringList({"WARN CMLinkNode::untranslatePath(x:other): watched path does not start "
                                           "with linkPath:x:t",
                                           "WARN CMLinkNode::untranslatePath(x:t): cannot remove queries",
                                           "WARN CMLinkNode::untranslatePath(x:t): cannot remove queries"}));
    }

    void subscriptionsOutliveTheTarget()
    {
        Linked f;
        f.spy.watchValue(f.worker.get(), P("x:k/a"));
        f.leaf->deleteLater();
        f.deliveredFully();
        QVERIFY(f.hub()->valuePath(P("x:t/a")));
        CMValueNode* later = CMValueNode::create(f.nodes(), P("x:t/a"));
        later->setVariantValue(9);
        QCOMPARE(f.deliveredFully(), QStringList("value x:k/a 9"));
    }

    void aLinkThatLeavesWatchesNothing()
    {
        Linked f;
        f.spy.watchValue(f.worker.get(), P("x:k/a"));
        f.spy.watchData(f.worker.get(), P("x:k?p=1"));
        f.spy.watchRows(f.worker.get(), P("x:k"));
        f.link->deleteLater();
        QVERIFY(!f.hub()->valuePath(P("x:t/a")) && !f.hub()->dataPath(P("x:t?p=1")) && !f.hub()->rowsPath(P("x:t")));
        QCOMPARE(f.deliveredFully(), QStringList({"rows x:k [close] 0>0"}));
    }

    void aNewLinkWatchesForWaitingSubscribers()
    {
        Linked f;
        f.spy.watchRows(f.worker.get(), P("x:late"));
        CMLinkNode::create(f.nodes(), P("x:late"), P("x:t"));
        f.target->rowsAppend(OrvoRoles().setId("0"));
        QCOMPARE(f.deliveredFully(), QStringList("rows x:late [+0] 0>1"));
    }

    void aChainOfLinksIsFollowed()
    {
        Linked f;
        CMLinkNode::create(f.nodes(), P("x:kk"), P("x:k"));
        f.spy.watchValue(f.worker.get(), P("x:kk/a"));
        f.leaf->setVariantValue(3);
        QCOMPARE(f.deliveredFully(), QStringList("value x:kk/a 3"));
        QCOMPARE(f.datum(P("x:kk/a"), OrvoRoles::Path()), QVariant("x:kk/a"));
        f.spy.unwatchValue(f.worker.get(), P("x:kk/a"));
        QVERIFY(f.leaf->valuePaths().isEmpty());
    }

    // Invariants

    void aLinkToItselfStopsTheProcess()
    {
        const ChildEnd end = runThisProgram({"self"});
        QVERIFY(end.stopped);
        QVERIFY2(end.errors.contains("!path.equals(linkPath, CMPath::WithParams)"), end.errors);
        // With parameters it is another path.
        QCOMPARE(runThisProgram({"other-params"}).exitCode, 7);
    }

    void anAnswerOfAnotherSizeStopsTheProcess()
    {
        const ChildEnd end = runThisProgram({"short"});
        QVERIFY(end.stopped);
        QVERIFY2(end.errors.contains("roles.size() == values.size()"), end.errors);
    }
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    if (argc == 2 && QStringList{"self", "other-params", "short"}.contains(argv[1]))
        return runChild(argv[1]);
    tst_CMLinkNode test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_cmlinknode.moc"
