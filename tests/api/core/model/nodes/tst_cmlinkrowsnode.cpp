#include "core/model/nodes/cmlinkrowsnode.h"

#include "core/model/nodes/cmredirectrowsnode.h"
#include "logcapture.h"
#include "nodetest.h"
#include "runtogether.h"

#include <QtTest>

namespace {

/// Two lists, and a node that shows the rows of the first.
class Lists : public NodesFixture
{
public:
    Lists()
        : one(CMListRowsNode::create(nodes(), P("x:1"))),
          two(CMListRowsNode::create(nodes(), P("x:2"))),
          link(CMLinkRowsNode::create(nodes(), P("x:k"), P("x:1")))
    {
        one->setTitle("one");
        one->rowsAppend(OrvoRoles().setId("a"));
        one->rowsAppend(OrvoRoles().setId("b"));
        two->rowsAppend(OrvoRoles().setId("c"));
        link->setTitle("link");
    }
    QStringList deliveredFully()
    {
        QStringList events;
        for (int i = 0; i < 3; ++i)
            events += delivered();
        return events;
    }
    CMReply<OrvoRowsRoles> rows(const char* path, int version = -1) const
    {
        return worker->getRows(P(path), 0, 9, version, {OrvoRoles::Id(), OrvoRoles::Title()});
    }
    /// What the hub was asked at the two lists since the capture began.
    static QStringList subscriptions(const LogCapture& log)
    {
        return log.lines().filter(QRegularExpression("^TRACE test: (dis)?connectChange: x:[12] "));
    }

    CMListRowsNode* const one;
    CMListRowsNode* const two;
    CMLinkRowsNode* const link;
};

const QString connected = "TRACE test: connectChange: x:%1 1on_watchedRowsChanged(CMPath,QStringList,int,int)";
const QString disconnected = "TRACE test: disconnectChange: x:%1 1on_watchedRowsChanged(CMPath,QStringList,int,int)";

} // namespace

class tst_CMLinkRowsNode : public QObject
{
    Q_OBJECT

private slots:
    void displayDataIsItsOwnAndRowsAreTheTargets()
    {
        Lists f;
        QCOMPARE(f.link->linkPath(), P("x:1"));
        QCOMPARE(f.datum(P("x:k"), OrvoRoles::Title()), QVariant("link"));
        const auto rows = f.rows("x:k");
        QCOMPARE(rows.value().rowsCount(), 2);
        QCOMPARE(rows.value().rows().toList().first().toList().first(), QVariant("a"));
        // The roles of the container in the answer are the target's, too.
        QCOMPARE(OrvoRoles(rows.value().roles()).title(), QString("one"));
    }

    void theWholeRequestIsHandedOn()
    {
        Lists f;
        QCOMPARE(f.worker->getRows(P("x:k"), 1, 1, -1, {OrvoRoles::Id()}).value().rows().toList(),
                 (QVariantList{QVariantList{"b"}}));
        QCOMPARE(f.rows("x:k", 5).error().name(), CMAbstractWorker::ErrorInvalidRowsVersion());
        QCOMPARE(f.worker->getRows(P("x:k"), 9, 9, -1, {}).error().name(), CMAbstractWorker::ErrorInvalidArgument());
        f.one->deleteLater();
        QCOMPARE(f.rows("x:k").error().message(), QString("Node at path 'x:1' does not exist"));
    }

    void aRequestWithParametersIsDeclined()
    {
        Lists f;
        QCOMPARE(f.rows("x:k?a=1").error().message(), QString("Node at path 'x:k?a=1' does not exist"));
        QCOMPARE(f.rows("x:k/below").error().name(), CMAbstractWorker::ErrorInvalidPath());
    }

    void withoutALinkThereAreNoRows()
    {
        Lists f;
        f.link->setLinkPath(CMPath());
        const auto rows = f.rows("x:k");
        QVERIFY(rows.isFinished());
        QVERIFY(!rows.error().isError());
        QCOMPARE(OrvoRoles(rows.value().roles()).title(), QString("link"));
        QCOMPARE(OrvoRoles(rows.value().roles()).path(), P("x:k"));
        QVERIFY(rows.value().rows().toList().isEmpty());
        QCOMPARE(rows.value().__hash().keys(), QStringList(OrvoRowsRoles::Roles()));
    }

    void aRequestIsHandedOnUnderTheMutex()
    {
        Lists f;
        bool wasFree = true;
        // The target's row is a node that is read inside of the request.
        f.one->rowsInsert(0, P("x:probe"));
        class Probe : public CMUINode
        {
        public:
            Probe(const CMPath& path, std::function<void()> function) : CMUINode(path), m_function(std::move(function))
            {}
            bool getDataRequest(const CMGetDataRequest& request) override
            {
                m_function();
                return CMUINode::getDataRequest(request);
            }

        private:
            const std::function<void()> m_function;
        };
        (new Probe(P("x:probe"), [&] {
            runTogether({[&] {
                wasFree = f.link->mutex()->tryLock();
                if (wasFree)
                    f.link->mutex()->unlock();
            }});
        }))->setNodes(f.nodes());
        QCOMPARE(f.rows("x:k").value().rowsCount(), 3);
        QVERIFY(!wasFree);
    }

    // Watching

    void theTargetIsFollowedWhileThereAreSubscribers()
    {
        Lists f;
        const LogCapture log("CMChange");
        f.spy.watchRows(f.worker.get(), P("x:k"));
        QCOMPARE(f.one->rowsPaths(), QSet<CMPath>{P("x:1")});
        f.spy.unwatchRows(f.worker.get(), P("x:k"));
        QVERIFY(f.one->rowsPaths().isEmpty());
        QCOMPARE(f.subscriptions(log), QStringList({connected.arg(1), disconnected.arg(1)}));
    }

    void aPathThatIsToldTwiceIsWatchedOnce()
    {
        Lists f;
        f.spy.watchRows(f.worker.get(), P("x:k"));
        f.link->rowsPathAdd(P("x:k"));
        f.spy.unwatchRows(f.worker.get(), P("x:k"));
        QVERIFY(!f.hub()->rowsPath(P("x:1")));
        f.link->rowsPathRemove(P("x:k"));
    }

    void changesKeepTheirVersions()
    {
        Lists f;
        f.spy.watchRows(f.worker.get(), P("x:1"));
        f.one->rowsAppend(OrvoRoles().setId("d"));
        f.deliveredFully();
        f.spy.watchRows(f.worker.get(), P("x:k"));
        f.one->rowsAppend(OrvoRoles().setId("e"));
        f.one->rowsRemoveAt(0);
        QCOMPARE(f.deliveredFully(), QStringList({"rows x:1 [+3,-0] 1>3", "rows x:k [+3,-0] 1>3"}));
        QCOMPARE(f.rows("x:k", 3).error().name(), QString());
    }

    void aSubscriptionForAnotherPathIsRefusedWithALine()
    {
        Lists f;
        const LogCapture log("CMLinkRowsNode");
        f.spy.watchRows(f.worker.get(), P("x:k?a=1"));
        f.spy.watchRows(f.worker.get(), P("x:k/below"));
        QVERIFY(f.link->rowsPaths().isEmpty());
        QVERIFY(!f.hub()->rowsPath(P("x:1")));
        f.spy.unwatchRows(f.worker.get(), P("x:k?a=1"));
        QCOMPARE(log.lines(), QStringList({"ERROR Unexpected CMLinkRowsNode::rowsPathAdd x:k?a=1",
                                           "ERROR Unexpected CMLinkRowsNode::rowsPathAdd x:k/below",
                                           "ERROR Unexpected CMLinkRowsNode::rowsPathRemove x:k?a=1"}));
    }

    void aChangeOfAnotherPathIsDroppedWithALine()
    {
        Lists f;
        f.spy.watchRows(f.worker.get(), P("x:k"));
        const LogCapture log("CMLinkRowsNode");
        QMetaObject::invokeMethod(f.link, "on_watchedRowsChanged", Q_ARG(CMPath, P("x:1?a=1")),
                                  Q_ARG(QStringList, {"+0"}), Q_ARG(int, 1), Q_ARG(int, 0));
        QCOMPARE(f.deliveredFully(), QStringList());
        QCOMPARE(log.lines(), QStringList("WARN Unexpected CMLinkRowsNode::on_watchedRowsChanged x:1?a=1"));
    }

    // Another link

    void theSameLinkDoesNothing()
    {
        Lists f;
        f.spy.watchRows(f.worker.get(), P("x:k"));
        const LogCapture log("CMChange");
        f.link->setLinkPath(P("x:1"));
        QCOMPARE(f.deliveredFully(), QStringList());
        QCOMPARE(f.subscriptions(log), QStringList());
    }

    void anotherLinkIsFollowedAndReadersReadAnew()
    {
        Lists f;
        f.spy.watchRows(f.worker.get(), P("x:k"));
        f.one->rowsAppend(OrvoRoles().setId("d"));
        f.deliveredFully();
        {
            const LogCapture log("CMChange");
            f.link->setLinkPath(P("x:2"));
            QCOMPARE(f.subscriptions(log), QStringList({disconnected.arg(1), connected.arg(2)}));
        }
        QCOMPARE(f.link->linkPath(), P("x:2"));
        QCOMPARE(f.deliveredFully(), QStringList("rows x:k [] 1>0"));
        QCOMPARE(f.hub()->rowsVersion(P("x:k")), 0);
        QCOMPARE(f.rows("x:k").value().rowsCount(), 1);
        f.one->rowsClear();
        f.two->rowsAppend(OrvoRoles().setId("f"));
        QCOMPARE(f.deliveredFully(), QStringList("rows x:k [+1] 0>1"));
        f.spy.unwatchRows(f.worker.get(), P("x:k"));
        QVERIFY(!f.hub()->rowsPath(P("x:2")));
    }

    void aLinkThatDiffersInParametersIsAnotherLink()
    {
        Lists f;
        f.spy.watchRows(f.worker.get(), P("x:k"));
        f.link->setLinkPath(P("x:1?a=1"));
        QVERIFY(f.hub()->rowsPath(P("x:1?a=1")) && !f.hub()->rowsPath(P("x:1")));
        QCOMPARE(f.deliveredFully(), QStringList("rows x:k [] 0>0"));
        f.one->rowsAppend(OrvoRoles().setId("d"));
        QCOMPARE(f.deliveredFully(), QStringList("rows x:k [+2] 0>1"));
    }

    void theLinkMayBeTakenAwayAndGivenBack()
    {
        Lists f;
        f.spy.watchRows(f.worker.get(), P("x:k"));
        f.link->setLinkPath(CMPath());
        QVERIFY(!f.hub()->rowsPath(P("x:1")));
        QCOMPARE(f.deliveredFully(), QStringList("rows x:k [] 0>0"));
        f.link->setLinkPath(P("x:2"));
        QVERIFY(f.hub()->rowsPath(P("x:2")));
        QCOMPARE(f.deliveredFully(), QStringList("rows x:k [] 0>0"));
    }

    void withoutSubscribersANewLinkIsOnlyStored()
    {
        Lists f;
        const LogCapture log("CMChange");
        f.link->setLinkPath(P("x:2"));
        QCOMPARE(f.link->linkPath(), P("x:2"));
        QCOMPARE(f.subscriptions(log), QStringList());
        f.spy.watchRows(f.worker.get(), P("x:k"));
        QVERIFY(f.hub()->rowsPath(P("x:2")));
    }

    void linksSetByTwoThreadsEndWithOneWatch()
    {
        Lists f;
        f.spy.watchRows(f.worker.get(), P("x:k"));
        const auto setter = [&](const char* path) {
            return [&f, path] {
                for (int i = 0; i < 2000; ++i) {
                    f.link->setLinkPath(P(path));
                    f.link->setLinkPath(CMPath());
                }
            };
        };
        QVERIFY(runTogether({setter("x:1"), setter("x:2")}));
        QVERIFY(f.link->linkPath().isEmpty());
        QVERIFY(!f.hub()->rowsPath(P("x:1")) && !f.hub()->rowsPath(P("x:2")));
    }

    void aNodeThatLeavesWatchesNothing()
    {
        Lists f;
        f.spy.watchRows(f.worker.get(), P("x:k"));
        f.link->deleteLater();
        QVERIFY(!f.hub()->rowsPath(P("x:1")));
        QCOMPARE(f.deliveredFully(), QStringList("rows x:k [close] 0>0"));
    }

    // The node that sends the asker elsewhere

    void aRedirectCarriesTheParametersOfTheRequest()
    {
        Lists f;
        CMRedirectRowsNode::create(f.nodes(), P("x:a"), P("x:b"));
        const auto reply = f.rows("x:a?x=1");
        QVERIFY(reply.isFinished());
        QCOMPARE(reply.value().rowsRedirect(), P("x:b?x=1"));
        QCOMPARE(reply.value().__hash().keys(), QStringList(OrvoRowsRoles::RowsRedirect()));
        QCOMPARE(f.rows("x:a").value().rowsRedirect(), P("x:b"));
    }

    void aRedirectAddsToTheParametersOfItsOwn()
    {
        Lists f;
        CMRedirectRowsNode::create(f.nodes(), P("x:a"), P("x:b?x=0?y=2"));
        QCOMPARE(f.rows("x:a?x=1").value().rowsRedirect(), P("x:b?x=1?y=2"));
        QCOMPARE(f.rows("x:a").value().rowsRedirect(), P("x:b?x=0?y=2"));
    }

    void aRedirectServesItsOwnPathOnlyAndForwardsNothing()
    {
        Lists f;
        CMRedirectRowsNode* node = CMRedirectRowsNode::create(f.nodes(), P("x:a"), P("x:1"));
        QCOMPARE(f.rows("x:a/below").error().message(), QString("Node at path 'x:a/below' does not exist"));
        node->setTitle("own");
        QCOMPARE(f.datum(P("x:a"), OrvoRoles::Title()), QVariant("own"));
        f.spy.watchRows(f.worker.get(), P("x:a"));
        QVERIFY(!f.hub()->rowsPath(P("x:1")));
    }
};

QTEST_GUILESS_MAIN(tst_CMLinkRowsNode)
#include "tst_cmlinkrowsnode.moc"
