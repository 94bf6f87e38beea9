#include "core/model/nodes/cmquerynode.h"

#include "nodetest.h"
#include "records/orvoedit.h"

#include <QtTest>

namespace {

CMReply<QVariant> ask(const NodesFixture& f, const CMPath& path, const QString& text)
{
    return f.worker->setData(path, OrvoRoles::Query(), OrvoValue().setString_(text).__variant());
}

} // namespace

class tst_CMQueryNode : public QObject
{
    Q_OBJECT

private slots:
    void aNewNodeAnswers()
    {
        NodesFixture f;
        CMQueryNode* node = CMQueryNode::create(f.nodes(), P("x:q"));
        QCOMPARE(CMQueryNode::Query(), QString("query"));
        QCOMPARE(node->query(), QString("query"));
        QCOMPARE(node->queryPath(), P("x:q"));
        QVERIFY(node->autoCompletePath().isEmpty());
        QCOMPARE(f.datum(P("x:q"), OrvoRoles::Type()), QVariant("query"));
        QCOMPARE(f.datum(P("x:q"), OrvoRoles::AutoCompletePath()), QVariant(QString()));
        QCOMPARE(f.datum(P("x:q"), OrvoRoles::Modifiable()), QVariant(true));
    }

    void theWrittenTextBecomesAParameterOfThePath()
    {
        NodesFixture f;
        CMQueryNode* node = CMQueryNode::create(f.nodes(), P("x:q"));
        f.spy.watchData(f.worker.get(), P("x:q"));
        QCOMPARE(ask(f, P("x:q?k=v"), "abc").value(), QVariant("x:q?query=abc"));
        QCOMPARE(node->value(), OrvoValue().setString_("abc"));
        QCOMPARE(f.delivered(), QStringList("data x:q"));
        QCOMPARE(node->queryPath(), P("x:q"));
        QCOMPARE(ask(f, P("x:q"), "a=b?c").value(), QVariant("x:q?query=a\\=b\\?c"));
        QCOMPARE(ask(f, P("x:q"), "").value().type(), QVariant::String);
    }

    void thePathAndTheNameOfTheParameterCanBeSet()
    {
        NodesFixture f;
        CMQueryNode* node = CMQueryNode::create(f.nodes(), P("x:q"));
        f.spy.watchData(f.worker.get(), P("x:q"));
        node->setQuery("text");
        node->setQueryPath(P("y:search?text=old?l=w"));
        QCOMPARE(f.delivered(), QStringList());
        QCOMPARE(node->timestamp(), qint64(0));
        QCOMPARE(node->query(), QString("text"));
        QCOMPARE(ask(f, P("x:q"), "abc").value(), QVariant("y:search?l=w?text=abc"));
    }

    void theAutoCompletePathIsReported()
    {
        NodesFixture f;
        CMQueryNode* node = CMQueryNode::create(f.nodes(), P("x:q"));
        f.spy.watchData(f.worker.get(), P("x:q"));
        node->setAutoCompletePath(P("y:c?k=v"));
        QCOMPARE(f.delivered(), QStringList("data x:q"));
        node->setAutoCompletePath(P("y:c?k=v"));
        QCOMPARE(f.delivered(), QStringList());
        QCOMPARE(f.datum(P("x:q"), OrvoRoles::AutoCompletePath()), QVariant("y:c?k=v"));
        QCOMPARE(node->autoCompletePath(), P("y:c?k=v"));
    }

    void limitsDoNotApplyToAQuery()
    {
        NodesFixture f;
        CMQueryNode* node = CMQueryNode::create(f.nodes(), P("x:q"));
        node->setEdit(OrvoEdit().setMaxLength(2));
        node->setReadOnly(true);
        QSignalSpy validates(node, SIGNAL(privateValidate(CMSetDataRequest,OrvoValue)));
        QCOMPARE(ask(f, P("x:q"), "abc").value(), QVariant("x:q?query=abc"));
        QCOMPARE(node->value().string_(), QString("abc"));
        QCOMPARE(validates.size(), 0);
    }

    void itIsAValueNodeBesides()
    {
        NodesFixture f;
        CMQueryNode* node = CMQueryNode::create(f.nodes(), P("x:q"));
        node->setEdit(OrvoEdit().setMaxLength(2));
        QCOMPARE(f.worker->setValue(P("x:q"), OrvoValue().setString_("abc")).value(), QVariant(true));
        QCOMPARE(node->value().string_(), QString("ab"));
        QCOMPARE(ask(f, P("x:q/below"), "abc").error().name(), CMAbstractWorker::ErrorInvalidPath());
        QCOMPARE(f.worker->setData(P("x:q"), OrvoRoles::Title(), "t").error().name(),
                 CMAbstractWorker::ErrorInvalidPath());
    }

    void aDerivedNodeMayAnswerTheQuery()
    {
        class Own : public CMQueryNode
        {
        public:
            using CMQueryNode::CMQueryNode;
            bool queryRequest(const CMSetDataRequest& request) override
            {
                request.reply().setValue("own");
                return true;
            }
        };
        NodesFixture f;
        auto* node = new Own(P("x:q"));
        node->setNodes(f.nodes());
        QCOMPARE(ask(f, P("x:q"), "abc").value(), QVariant("own"));
        QVERIFY(node->value().isEmpty());
    }

    void aNodeMayDeleteItselfWhenItIsQueried()
    {
        NodesFixture f;
        CMQueryNode* node = CMQueryNode::create(f.nodes(), P("x:q"));
        connect(node, &CMValueNode::valueChanged, this, [node] { node->deleteLater(); });
        QCOMPARE(ask(f, P("x:q"), "abc").value(), QVariant("x:q?query=abc"));
        QVERIFY(!f.nodes()->isNodeAtPath(P("x:q")));
    }
};

QTEST_GUILESS_MAIN(tst_CMQueryNode)
#include "tst_cmquerynode.moc"
