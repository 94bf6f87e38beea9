#include "core/model/nodes/cmactivatenode.h"

#include "nodetest.h"
#include "records/orvoerror.h"

#include <QtTest>

#include <functional>

/// A service behind an action.
class Service : public QObject
{
    Q_OBJECT

public:
    QList<CMSetDataRequest> requests;
    std::function<void()> during;

public slots:
    void invoked(CMSetDataRequest request)
    {
        requests.append(request);
        if (during)
            during();
    }
};

class tst_CMActivateNode : public QObject
{
    Q_OBJECT

private slots:
    void aNewNodeAnswers()
    {
        NodesFixture f;
        CMActivateNode::create(f.nodes(), P("x:a"));
        QCOMPARE(f.datum(P("x:a"), OrvoRoles::Type()), QVariant("action"));
        QCOMPARE(f.datum(P("x:a"), OrvoRoles::BusyText()), QVariant(QString()));
        QVERIFY(f.datum(P("x:a"), OrvoRoles::BusyText()).isValid());
        QVERIFY(!f.datum(P("x:a"), OrvoRoles::Flags()).isValid());
        QVERIFY(!f.worker->invoke(P("x:a"), QVariant(1)).value().isValid());
    }

    void theBusyTextIsReportedOnce()
    {
        NodesFixture f;
        CMActivateNode* node = CMActivateNode::create(f.nodes(), P("x:a"));
        f.spy.watchData(f.worker.get(), P("x:a"));
        node->setBusyText("working");
        QCOMPARE(f.delivered(), QStringList("data x:a"));
        node->setBusyText("working");
        QCOMPARE(f.delivered(), QStringList());
        QCOMPARE(node->busyText(), QString("working"));
        QCOMPARE(f.datum(P("x:a"), OrvoRoles::BusyText()), QVariant("working"));
    }

    void aPathIsAnsweredWithTheParametersOfTheRequest()
    {
        NodesFixture f;
        CMActivateNode* node = CMActivateNode::create(f.nodes(), P("x:a"));
        node->setReplyValue(P("y:t?a=0?b=2"));
        const auto reply = f.worker->invoke(P("x:a?a=1"), QVariant(5));
        QVERIFY(reply.isFinished());
        QCOMPARE(reply.value(), QVariant("y:t?a=1?b=2"));
        QCOMPARE(f.worker->invoke(P("x:a"), QVariant(5)).value(), QVariant("y:t?a=0?b=2"));
    }

    void recordsAreAnsweredAsTheyStand()
    {
        NodesFixture f;
        CMActivateNode* node = CMActivateNode::create(f.nodes(), P("x:a"));
        const OrvoActionReply action = OrvoActionReply().setXclass("Other").setResult(OrvoRoles().setTitle("t"));
        node->setReplyValue(action);
        QCOMPARE(f.worker->invoke(P("x:a?a=1"), QVariant()).value(), action.__variant());
        node->setReplyValue(OrvoRoles().setTitle("u"));
        const OrvoActionReply wrapped(f.worker->invoke(P("x:a?a=1"), QVariant()).value());
        QCOMPARE(wrapped.xclass(), QString("OrvoActionReply"));
        QCOMPARE(wrapped.result(), OrvoRoles().setTitle("u"));
        node->setReplyValueInternal(QVariantList{1, 2});
        QCOMPARE(f.worker->invoke(P("x:a?a=1"), QVariant()).value(), QVariant(QVariantList{1, 2}));
    }

    void aPlainTextIsAnsweredAsItStandsWithoutParameters()
    {
        NodesFixture f;
        CMActivateNode* node = CMActivateNode::create(f.nodes(), P("x:a"));
        node->setReplyValueInternal("a ? text = odd");
        QCOMPARE(f.worker->invoke(P("x:a"), QVariant()).value(), QVariant("a ? text = odd"));
    }

    void onlyTheActivateRoleActivates()
    {
        NodesFixture f;
        CMActivateNode* node = CMActivateNode::create(f.nodes(), P("x:a"));
        node->setReplyValueInternal("done");
        QCOMPARE(f.worker->setValue(P("x:a"), QVariant(1)).error().name(), CMAbstractWorker::ErrorInvalidPath());
        QCOMPARE(f.worker->invoke(P("x:a/below"), QVariant()).error().name(), CMAbstractWorker::ErrorInvalidPath());
        f.spy.watchData(f.worker.get(), P("x:a"));
        node->setActivateRole(OrvoRoles::Value());
        QCOMPARE(f.delivered(), QStringList());
        QCOMPARE(f.worker->setValue(P("x:a"), QVariant(1)).value(), QVariant("done"));
        QCOMPARE(f.worker->invoke(P("x:a"), QVariant()).error().name(), CMAbstractWorker::ErrorInvalidPath());
    }

    void aReceiverOwnsTheReply()
    {
        NodesFixture f;
        Service service;
        CMActivateNode* node = CMActivateNode::create(f.nodes(), P("x:a"), &service,
                                                      SLOT(invoked(CMSetDataRequest)), Qt::DirectConnection);
        node->setReplyValueInternal("never");
        const auto reply = f.worker->invoke(P("x:a?k=v"), QVariant(5));
        QVERIFY(!reply.isFinished());
        QCOMPARE(service.requests.size(), 1);
        QCOMPARE(service.requests.first().path(), P("x:a?k=v"));
        QCOMPARE(service.requests.first().value(), QVariant(5));
        service.requests.first().reply().setValue("served");
        QCOMPARE(reply.value(), QVariant("served"));
    }

    void onlyTheLastReceiverIsInvoked()
    {
        NodesFixture f;
        Service first;
        Service second;
        CMActivateNode* node = CMActivateNode::create(f.nodes(), P("x:a"), &first, SLOT(invoked(CMSetDataRequest)));
        node->setInvoke(&second, SLOT(invoked(CMSetDataRequest)));
        f.worker->invoke(P("x:a"), QVariant()).cancel();
        QVERIFY(first.requests.isEmpty());
        QCOMPARE(second.requests.size(), 1);
    }

    void anActionWhoseReceiverHasDiedAnswersAgain()
    {
        NodesFixture f;
        auto service = std::make_unique<Service>();
        CMActivateNode* node =
            CMActivateNode::create(f.nodes(), P("x:a"), service.get(), SLOT(invoked(CMSetDataRequest)));
        node->setReplyValueInternal("done");
        service.reset();
        QCOMPARE(f.worker->invoke(P("x:a"), QVariant()).value(), QVariant("done"));
    }

    void aDisabledActionRefuses()
    {
        NodesFixture f;
        Service service;
        CMActivateNode* node = CMActivateNode::create(f.nodes(), P("x:a"), &service, SLOT(invoked(CMSetDataRequest)));
        node->setDisabled(true);
        const CMError error = f.worker->invoke(P("x:a"), QVariant()).error();
        QCOMPARE(error.name(), QString("Error"));
        QCOMPARE(error.message(), QString("Activating disabled item failed."));
        QCOMPARE(error.title(), CMError::DefaultTitle());
        QVERIFY(service.requests.isEmpty());
        node->setDisabled(false);
        f.worker->invoke(P("x:a"), QVariant()).cancel();
        QCOMPARE(service.requests.size(), 1);
    }

    void aDerivedNodeDecidesWhetherItIsDisabledAndWhatItAnswers()
    {
        class Own : public CMActivateNode
        {
        public:
            using CMActivateNode::CMActivateNode;
            QVariant getRoleData(const QString& role, const Params& params) override
            {
                if (role == OrvoRoles::Disabled())
                    return params.contains("off");
                return CMActivateNode::getRoleData(role, params);
            }
            QVariant activate(const QVariant& value, const Params& params) override
            {
                bool free = false;
                std::unique_ptr<QThread> other(QThread::create([&] {
                    free = mutex()->tryLock();
                    if (free)
                        mutex()->unlock();
                }));
                other->start();
                other->wait();
                return QVariantList{value, params.value("k"), free};
            }
        };
        NodesFixture f;
        auto* node = new Own(P("x:a"));
        node->setNodes(f.nodes());
        QCOMPARE(f.worker->invoke(P("x:a?k=v"), QVariant(5)).value(), QVariant(QVariantList{5, "v", true}));
        QCOMPARE(f.worker->invoke(P("x:a?off=1"), QVariant(5)).error().name(), QString("Error"));
    }

    void aNodeMayDeleteItselfInItsInvokeSlot()
    {
        NodesFixture f;
        Service service;
        CMActivateNode* node = CMActivateNode::create(f.nodes(), P("x:a"), &service,
                                                      SLOT(invoked(CMSetDataRequest)), Qt::DirectConnection);
        bool destroyed = false;
        bool during = true;
        connect(node, &QObject::destroyed, this, [&] { destroyed = true; });
        service.during = [&] {
            node->deleteLater();
            during = destroyed;
        };
        const auto reply = f.worker->invoke(P("x:a"), QVariant());
        QVERIFY(!during);
        QVERIFY(destroyed);
        service.requests.first().reply().setValue("late");
        QCOMPARE(reply.value(), QVariant("late"));
    }
};

QTEST_GUILESS_MAIN(tst_CMActivateNode)
#include "tst_cmactivatenode.moc"
