#include "core/model/nodes/cmuinode.h"

#include "core/model/cmroles.h"
#include "logcapture.h"
#include "nodetest.h"
#include "records/orvoconstants.h"
#include "records/orvomediadata.h"

#include <QtTest>

#include <functional>

namespace {

TrString translatableText(const char* text)
{
    return TrString(TrCharData{"tst_CMUINode", text});
}

struct Setter
{
    const char* name;
    std::function<void(CMUINode*)> set;
    std::function<void(CMUINode*)> setBack;
    std::function<bool(CMUINode*)> isSet;
    /// What a reader gets afterwards, under this role.
    QString role;
    QVariant value;
    QVariant initial;
};

QList<Setter> setters()
{
    const OrvoMediaData media = OrvoMediaData().setArtist("artist");
    const auto flag = [](const char* name, void (CMUINode::*set)(bool), bool (CMUINode::*get)() const,
                         const QString& role) {
        return Setter{name,
                      [set](CMUINode* n) { (n->*set)(true); },
                      [set](CMUINode* n) { (n->*set)(false); },
                      [get](CMUINode* n) { return (n->*get)(); },
                      role,
                      true,
                      QVariant()};
    };
    return {
        {"id", [](CMUINode* n) { n->setId("i"); }, [](CMUINode* n) { n->setId(""); },
         [](CMUINode* n) { return n->id() == "i"; }, OrvoRoles::Id(), "i", QVariant()},
        {"title", [](CMUINode* n) { n->setTitle(QString("t")); }, [](CMUINode* n) { n->setTitle(QString()); },
         [](CMUINode* n) { return n->title() == TrString("t"); }, OrvoRoles::Title(), "t", QString()},
        {"icon", [](CMUINode* n) { n->setIcon("i"); }, [](CMUINode* n) { n->setIcon(""); },
         [](CMUINode* n) { return n->icon() == "i"; }, OrvoRoles::Icon(), "i", QVariant()},
        {"description", [](CMUINode* n) { n->setDescription(QString("d")); },
         [](CMUINode* n) { n->setDescription(QString()); },
         [](CMUINode* n) { return n->description() == TrString("d"); }, OrvoRoles::Description(), "d", QString()},
        {"longDescription", [](CMUINode* n) { n->setLongDescription(QString("l")); },
         [](CMUINode* n) { n->setLongDescription(QString()); },
         [](CMUINode* n) { return n->longDescription() == TrString("l"); }, OrvoRoles::LongDescription(), "l",
         QString()},
        {"contextPath", [](CMUINode* n) { n->setContextPath(P("x:none")); },
         [](CMUINode* n) { n->setContextPath(CMPath()); }, [](CMUINode* n) { return n->contextPath() == P("x:none"); },
         OrvoRoles::Context(), OrvoRoles().setTitle("Node at path 'x:none' does not exist").__variant(),
         OrvoRoles().__variant()},
        flag("disabled", &CMUINode::setDisabled, &CMUINode::disabled, OrvoRoles::Disabled()),
        flag("risky", &CMUINode::setRisky, &CMUINode::risky, OrvoRoles::Risky()),
        flag("preferred", &CMUINode::setPreferred, &CMUINode::preferred, OrvoRoles::Preferred()),
        flag("renderAsButton", &CMUINode::setRenderAsButton, &CMUINode::renderAsButton, OrvoRoles::RenderAsButton()),
        {"mediaData", [media](CMUINode* n) { n->setMediaData(media); },
         [](CMUINode* n) { n->setMediaData(OrvoMediaData()); },
         [media](CMUINode* n) { return n->mediaData() == media; }, OrvoRoles::MediaData(), media.__variant(),
         OrvoMediaData().__variant()},
    };
}

Setter setter(const QByteArray& name)
{
    for (const Setter& candidate : setters())
        if (candidate.name == name)
            return candidate;
    return {};
}

} // namespace

class tst_CMUINode : public QObject
{
    Q_OBJECT

    void addSetters()
    {
        QTest::addColumn<QByteArray>("name");
        for (const Setter& s : setters())
            QTest::newRow(s.name) << QByteArray(s.name);
    }

private slots:
    // Setters

    void aSetterReportsAChangeOnce_data() { addSetters(); }

    void aSetterReportsAChangeOnce()
    {
        QFETCH(QByteArray, name);
        const Setter s = setter(name);
        NodesFixture f;
        CMUINode* node = CMUINode::create(f.nodes(), P("x:a"));
        f.spy.watchData(f.worker.get(), P("x:a"));
        f.spy.watchValue(f.worker.get(), P("x:a"));
        s.setBack(node);
        QCOMPARE(f.delivered(), QStringList());
        QCOMPARE(node->timestamp(), qint64(0));
        s.set(node);
        QCOMPARE(f.delivered(), QStringList("data x:a"));
        QVERIFY(s.isSet(node));
        s.set(node);
        QCOMPARE(f.delivered(), QStringList());
        s.setBack(node);
        QCOMPARE(f.delivered(), QStringList("data x:a"));
        QVERIFY(!s.isSet(node));
    }

    void whatIsSetIsAnsweredUnderItsRole_data() { addSetters(); }

    void whatIsSetIsAnsweredUnderItsRole()
    {
        QFETCH(QByteArray, name);
        const LogCapture quiet("CMUINode");
        const Setter s = setter(name);
        NodesFixture f;
        CMUINode* node = CMUINode::create(f.nodes(), P("x:a"));
        QCOMPARE(f.datum(P("x:a"), s.role), s.initial);
        QCOMPARE(f.datum(P("x:a"), s.role).isValid(), s.initial.isValid());
        s.set(node);
        QCOMPARE(f.datum(P("x:a"), s.role), s.value);
        s.setBack(node);
        QCOMPARE(f.datum(P("x:a"), s.role), s.initial);
        QCOMPARE(f.datum(P("x:a"), s.role).isValid(), s.initial.isValid());
    }

    void theContextPathIsComparedWithItsParameters()
    {
        NodesFixture f;
        CMUINode* node = CMUINode::create(f.nodes(), P("x:a"));
        node->setContextPath(P("x:c"));
        f.spy.watchData(f.worker.get(), P("x:a"));
        node->setContextPath(P("x:c?k=v"));
        QCOMPARE(f.delivered(), QStringList("data x:a"));
    }

    // Reading

    void valuesStandInTheOrderOfTheRoles()
    {
        NodesFixture f;
        CMUINode* node = CMUINode::create(f.nodes(), P("x:a"));
        node->setTitle(QString("t"));
        node->setId("i");
        const QVariantList values =
            f.data(P("x:a"), {OrvoRoles::Id(), "unknown", OrvoRoles::Title(), OrvoRoles::Type(), OrvoRoles::Id()});
        QCOMPARE(values, QVariantList({"i", QVariant(), "t", QVariant(), "i"}));
        QVERIFY(!values.at(1).isValid());
        QVERIFY(!values.at(3).isValid());
        QVERIFY(f.data(P("x:a"), {}).isEmpty());
    }

    void theParametersOfTheRequestStandInThePath()
    {
        NodesFixture f;
        CMUINode::create(f.nodes(), P("x:a"));
        QCOMPARE(f.datum(P("x:a"), OrvoRoles::Path()), QVariant("x:a"));
        QCOMPARE(f.datum(P("x:a?k=v?l=w"), OrvoRoles::Path()), QVariant("x:a?k=v?l=w"));
    }

    void theTimestampIsAnUnsignedNumber()
    {
        NodesFixture f;
        CMUINode* node = CMUINode::create(f.nodes(), P("x:a"));
        QCOMPARE(f.datum(P("x:a"), OrvoRoles::Timestamp()).type(), QVariant::ULongLong);
        QCOMPARE(f.datum(P("x:a"), OrvoRoles::Timestamp()).toULongLong(), 0ULL);
        node->dataChanged();
        QCOMPARE(f.datum(P("x:a"), OrvoRoles::Timestamp()).toLongLong(), node->timestamp());
        QVERIFY(node->timestamp() > 0);
    }

    void aRequestForAPathBelowIsNotServed()
    {
        NodesFixture f;
        CMUINode* node = CMUINode::create(f.nodes(), P("x:a"));
        auto* data = new CMGetDataRequest::Data;
        data->path = P("x:a/b");
        const CMGetDataRequest request(data);
        QVERIFY(!node->getDataRequest(request));
        QVERIFY(!request.reply().isFinished());
        QCOMPARE(f.worker->getData(P("x:a/b"), {"title"}).error().name(), CMAbstractWorker::ErrorInvalidPath());
    }

    void emptyRolesAreLeftOutOfTheRecord()
    {
        NodesFixture f;
        CMUINode* node = CMUINode::create(f.nodes(), P("x:a"));
        node->setTitle(QString("t"));
        QCOMPARE(node->getDataRoles({OrvoRoles::Title(), OrvoRoles::Id(), OrvoRoles::Disabled(), OrvoRoles::Path()},
                                    {{"k", "v"}}),
                 OrvoRoles().setTitle("t").setPath(P("x:a?k=v")));
        QVERIFY(node->getDataRoles({OrvoRoles::Id()}, {}).isEmpty());
    }

    void withoutRolesAllOfThemAreRead()
    {
        NodesFixture f;
        CMUINode* node = CMUINode::create(f.nodes(), P("x:a"));
        node->setTitle(QString("t"));
        node->setRisky(true);
        node->dataChanged();
        const OrvoRoles roles = node->getDataRoles(CMUINode::Params());
        QCOMPARE(roles.__hash().size(), 4);
        QCOMPARE(roles.title(), QString("t"));
        QCOMPARE(roles.path(), P("x:a"));
        QVERIFY(roles.risky());
        QCOMPARE(roles.timestamp(), node->timestamp());
    }

    // Items that may be references

    void anItemThatIsNoTextIsARecord()
    {
        NodesFixture f;
        const OrvoRoles roles = OrvoRoles().setTitle("t");
        QCOMPARE(CMUINode::browseItem(roles.__variant(), {{"k", "v"}}), roles);
        QVERIFY(CMUINode::browseItem(QVariant(), {}).isEmpty());
        QVERIFY(CMUINode::browseItem(QVariant(5), {}).isEmpty());
        QVERIFY(f.root()->requests.isEmpty());
    }

    void anEmptyTextIsAnEmptyItem()
    {
        NodesFixture f;
        QVERIFY(CMUINode::browseItem(QVariant(QString()), {}).isEmpty());
        QVERIFY(CMUINode::browseItem(QVariant("?k=v"), {}).isEmpty());
        QVERIFY(f.root()->requests.isEmpty());
    }

    void aPathIsReadThroughTheRoot()
    {
        NodesFixture f;
        CMUINode::create(f.nodes(), P("x:c"))->setTitle(QString("c"));
        const OrvoRoles roles = CMUINode::browseItem("x:c?k=1?l=w", {{"k", "2"}});
        QCOMPARE(roles.title(), QString("c"));
        QCOMPARE(roles.path(), P("x:c?k=2?l=w"));
        QCOMPARE(f.root()->requests, QStringList("getData x:c?k=2?l=w"));
    }

    void theContextItemGetsTheParametersOfTheRequest()
    {
        NodesFixture f;
        CMUINode::create(f.nodes(), P("x:c"));
        CMUINode::create(f.nodes(), P("x:a"))->setContextPath(P("x:c?l=w"));
        const QVariant context = f.datum(P("x:a?k=v"), OrvoRoles::Context());
        QCOMPARE(context.type(), QVariant::Hash);
        QCOMPARE(OrvoRoles(context).path(), P("x:c?k=v?l=w"));
    }

    void aPathThatFailsIsAnItemWithTheMessageAsItsTitle()
    {
        const LogCapture log("CMUINode");
        NodesFixture f;
        QCOMPARE(CMUINode::browseItem("x:none?k=v", {}),
                 OrvoRoles().setTitle("Node at path 'x:none?k=v' does not exist"));
        QCOMPARE(log.lines(), QStringList("ERROR CMUIItem::getItem: x:none?k=v CMAbstractWorker::invalidPath: Node at "
                                          "path 'x:none?k=v' does not exist"));
    }

    void aPathThatDoesNotAnswerIsAnItemThatTimedOut()
    {
        const LogCapture log("CMUINode");
        NodesFixture f;
        f.root()->hold(P("x:c"));
        QCOMPARE(CMUINode::browseItem("x:c", {}), OrvoRoles().setTitle("Timeout"));
        QCOMPARE(log.lines(), QStringList("ERROR CMUIItem::getItem: x:c CMAbstractWorker::internal: Timeout"));
        // The asker has given up: a late answer changes nothing.
        QCOMPARE(f.root()->heldData.size(), 1);
        QCOMPARE(f.root()->heldData.first().reply().error().message(), QString("Timeout"));
    }

    void aNodeMayReferToItself()
    {
        // It asks itself under its own lock, for roles that do not ask again.
        NodesFixture f;
        class SelfReader : public CMUINode
        {
        public:
            using CMUINode::CMUINode;
            QVariant getRoleData(const QString& role, const Params& params) override
            {
                if (role != OrvoRoles::Icon())
                    return CMUINode::getRoleData(role, params);
                return CMRoot()->getData(path(), {OrvoRoles::Title()}).value().value(0);
            }
        };
        auto* node = new SelfReader(P("x:a"));
        node->setNodes(f.nodes());
        node->setTitle(QString("t"));
        QCOMPARE(f.datum(P("x:a"), OrvoRoles::Icon()), QVariant("t"));
    }

    // Language

    void aTranslatableTitleFollowsTheLanguagePath()
    {
        NodesFixture f;
        CMUINode* node = CMUINode::create(f.nodes(), P("x:a"));
        f.spy.watchData(f.worker.get(), P("x:a"));
        QVERIFY(!f.hub()->dataPath(OrvoUILanguagePath()));
        node->setTitle(translatableText("Settings"));
        QVERIFY(f.hub()->dataPath(OrvoUILanguagePath()));
        QCOMPARE(f.datum(P("x:a"), OrvoRoles::Title()), QVariant("Settings"));
        QCOMPARE(f.delivered(), QStringList("data x:a"));

        f.hub()->dataChanged(OrvoUILanguagePath());
        f.hub()->deliver();
        QCOMPARE(f.delivered(), QStringList("data x:a"));

        // One translatable title after the other: one subscription.
        node->setTitle(translatableText("Sounds"));
        f.delivered();
        f.hub()->dataChanged(OrvoUILanguagePath());
        f.hub()->deliver();
        QCOMPARE(f.delivered(), QStringList("data x:a"));

        node->setTitle(QString("plain"));
        QVERIFY(!f.hub()->dataPath(OrvoUILanguagePath()));
    }

    void anEqualTitleIsNotStored()
    {
        NodesFixture f;
        CMUINode* node = CMUINode::create(f.nodes(), P("x:a"));
        node->setTitle(QString("Settings"));
        node->setTitle(translatableText("Settings"));
        QVERIFY(!node->title().translatable());
        QVERIFY(!f.hub()->dataPath(OrvoUILanguagePath()));
    }

    void descriptionsDoNotFollowTheLanguagePath()
    {
        NodesFixture f;
        CMUINode* node = CMUINode::create(f.nodes(), P("x:a"));
        node->setDescription(translatableText("Settings"));
        node->setLongDescription(translatableText("All settings"));
        QCOMPARE(f.datum(P("x:a"), OrvoRoles::Description()), QVariant("Settings"));
        QCOMPARE(f.datum(P("x:a"), OrvoRoles::LongDescription()), QVariant("All settings"));
        QVERIFY(!f.hub()->dataPath(OrvoUILanguagePath()));
    }

    void aNodeThatLeavesNoLongerFollowsTheLanguagePath()
    {
        NodesFixture f;
        CMUINode* node = CMUINode::create(f.nodes(), P("x:a"));
        const QExplicitlySharedDataPointer<CMNode> kept(node);
        node->setTitle(translatableText("Settings"));
        node->deleteLater();
        QVERIFY(!f.hub()->dataPath(OrvoUILanguagePath()));
        node->deleteLater();
    }

    void aNodeMayLeaveInADataChange()
    {
        NodesFixture f;
        CMUINode* node = CMUINode::create(f.nodes(), P("x:a"));
        node->setTitle(translatableText("Settings"));
        connect(node, &CMNode::dataPathAdded, node, [node] { node->deleteLater(); });
        f.spy.watchData(f.worker.get(), P("x:a"));
        QVERIFY(!f.nodes()->isNodeAtPath(P("x:a")));
        QVERIFY(!f.hub()->dataPath(OrvoUILanguagePath()));
    }
};

QTEST_GUILESS_MAIN(tst_CMUINode)
#include "tst_cmuinode.moc"
