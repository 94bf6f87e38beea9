#include "core/model/nodes/cmradiobuttonnode.h"

#include "core/model/cmroles.h"
#include "logcapture.h"
#include "nodetest.h"

#include <QtTest>

namespace {

OrvoValue text(const char* value)
{
    return OrvoValue().setString_(value);
}

/// Two buttons over one value.
class Buttons : public NodesFixture
{
public:
    Buttons()
        : linked(CMValueNode::create(nodes(), P("x:v"))), button(CMRadioButtonNode::create(nodes(), P("x:b"), P("x:v")))
    {
        linked->setValue(text("off"));
        button->setValue(text("on").__variant());
        root()->requests.clear();
    }
    QStringList deliveredFully()
    {
        QStringList events;
        // The linked node's delivery makes the button's report.
        for (int i = 0; i < 3; ++i)
            events += delivered();
        return events;
    }

    CMValueNode* const linked;
    CMRadioButtonNode* const button;
};

} // namespace

class tst_CMRadioButtonNode : public QObject
{
    Q_OBJECT

private slots:
    void itIsAnActionWithTheRadioButtonFlag()
    {
        Buttons f;
        QCOMPARE(f.datum(P("x:b"), OrvoRoles::Type()), QVariant("action"));
        QCOMPARE(f.datum(P("x:b"), OrvoRoles::Flags()), QVariant(QVariantHash{{CMFlags::RadioButton(), true}}));
        QCOMPARE(f.button->linkPath(), P("x:v"));
        QCOMPARE(f.button->value(), text("on").__variant());
        QVERIFY(!CMRadioButtonNode::create(f.nodes(), P("x:c"), P("x:v"))->value().isValid());
    }

    void itsValueTellsWhetherTheLinkedNodeHoldsIts()
    {
        Buttons f;
        QCOMPARE(f.datum(P("x:b?k=v"), OrvoRoles::Value()), QVariant(false));
        QCOMPARE(f.root()->requests, QStringList("getData x:v?k=v"));
        f.linked->setValue(text("on"));
        QCOMPARE(f.datum(P("x:b"), OrvoRoles::Value()), QVariant(true));
        QCOMPARE(f.datum(P("x:b"), OrvoRoles::Value()).type(), QVariant::Bool);
    }

    void aLinkedNodeThatIsNotThereIsOff()
    {
        NodesFixture f;
        CMRadioButtonNode* button = CMRadioButtonNode::create(f.nodes(), P("x:b"), P("x:none"));
        button->setValue("on");
        QCOMPARE(f.datum(P("x:b"), OrvoRoles::Value()), QVariant(false));
    }

    void activatingWritesItsValue()
    {
        Buttons f;
        const auto reply = f.worker->invoke(P("x:b?k=v"), QVariant("ignored"));
        QVERIFY(reply.isFinished());
        QVERIFY(!reply.error().isError());
        QVERIFY(!reply.value().isValid());
        QCOMPARE(f.linked->value(), text("on"));
        QCOMPARE(f.root()->requests, QStringList("setData x:v?k=v value"));
    }

    void aDisabledButtonWritesNothing()
    {
        Buttons f;
        f.button->setDisabled(true);
        QCOMPARE(f.worker->invoke(P("x:b"), QVariant()).error().message(), QString("Activating disabled item failed."));
        QCOMPARE(f.linked->value(), text("off"));
    }

    void theLinkedValueIsWatchedForEachWatchedPath()
    {
        Buttons f;
        QVERIFY(!f.hub()->valuePath(P("x:v")));
        f.spy.watchValue(f.worker.get(), P("x:b"));
        QVERIFY(f.hub()->valuePath(P("x:v")));
        QVERIFY(!f.hub()->dataPath(P("x:v")));
        f.spy.watchValue(f.worker.get(), P("x:b?k=v"));
        QVERIFY(f.hub()->valuePath(P("x:v?k=v")));
        f.spy.watchData(f.worker.get(), P("x:b?l=w"));
        QVERIFY(f.hub()->dataPath(P("x:v?l=w")));
        QVERIFY(!f.hub()->valuePath(P("x:v?l=w")));
        f.spy.watchRows(f.worker.get(), P("x:b"));
        QVERIFY(!f.hub()->rowsPath(P("x:v")));

        f.spy.unwatchValue(f.worker.get(), P("x:b"));
        QVERIFY(!f.hub()->valuePath(P("x:v")));
        QVERIFY(f.hub()->valuePath(P("x:v?k=v")));
        f.spy.unwatchValue(f.worker.get(), P("x:b?k=v"));
        f.spy.unwatchData(f.worker.get(), P("x:b?l=w"));
        QVERIFY(!f.hub()->valuePath(P("x:v?k=v")));
        QVERIFY(!f.hub()->dataPath(P("x:v?l=w")));
    }

    void aPathThatIsToldTwiceIsWatchedOnce()
    {
        Buttons f;
        f.spy.watchValue(f.worker.get(), P("x:b"));
        f.button->valuePathAdd(P("x:b"));
        f.spy.unwatchValue(f.worker.get(), P("x:b"));
        QVERIFY(!f.hub()->valuePath(P("x:v")));
    }

    void theWatchedValueIsReportedAsOnOrOff()
    {
        Buttons f;
        f.spy.watchValue(f.worker.get(), P("x:b?k=v"));
        f.linked->setValue(text("on"));
        QCOMPARE(f.deliveredFully(), QStringList("value x:b?k=v true"));
        f.linked->setValue(text("other"));
        QCOMPARE(f.deliveredFully(), QStringList("value x:b?k=v false"));
        // Off as before.
        f.linked->setValue(text("third"));
        QCOMPARE(f.deliveredFully(), QStringList());
    }

    void theWatchedDataIsReported()
    {
        Buttons f;
        f.spy.watchData(f.worker.get(), P("x:b?k=v"));
        f.linked->setReadOnly(true);
        QCOMPARE(f.deliveredFully(), QStringList("data x:b?k=v"));
    }

    void pathsBelowAreLinkedBelow()
    {
        Buttons f;
        f.spy.watchData(f.worker.get(), P("x:b/deep?k=v"));
        QVERIFY(f.hub()->dataPath(P("x:v/deep?k=v")));
        f.hub()->dataChanged(P("x:v/deep?k=v"));
        QCOMPARE(f.deliveredFully(), QStringList("data x:b/deep?k=v"));
    }

    void parametersOfTheLinkStayWithTheLink()
    {
        NodesFixture f;
        CMValueNode* linked = CMValueNode::create(f.nodes(), P("x:v"));
        CMRadioButtonNode* button = CMRadioButtonNode::create(f.nodes(), P("x:b"), P("x:v?zone=1"));
        button->setValue(text("on").__variant());
        f.spy.watchValue(f.worker.get(), P("x:b?k=v"));
        QVERIFY(f.hub()->valuePath(P("x:v?k=v?zone=1")));
        linked->setValue(text("on"));
        f.hub()->deliver();
        f.hub()->deliver();
        QCOMPARE(f.spy.take(), QStringList("value x:b?k=v true"));
        f.worker->invoke(P("x:b?k=v"), QVariant());
        QCOMPARE(f.root()->requests, QStringList("setData x:v?k=v?zone=1 value"));
    }

    void watchedChangesAreTraced()
    {
        Buttons f;
        const LogCapture log("CMRadioButtonNode");
        f.spy.watchValue(f.worker.get(), P("x:b"));
        f.linked->setValue(text("on"));
        f.deliveredFully();
        QCOMPARE(log.lines().size(), 1);
        QVERIFY(log.lines().first().startsWith("TRACE ") && log.lines().first().contains("x:v"));
    }

    // A new value for the button

    void withoutValuePathsANewValueAsksNobody()
    {
        Buttons f;
        f.spy.watchData(f.worker.get(), P("x:b"));
        f.button->setValue(text("off").__variant());
        QCOMPARE(f.root()->requests, QStringList());
        QCOMPARE(f.deliveredFully(), QStringList("data x:b"));
        f.button->setValue(text("off").__variant());
        QCOMPARE(f.deliveredFully(), QStringList());
    }

    void aNewValueIsComparedForEachValuePath()
    {
        Buttons f;
        f.spy.watchValue(f.worker.get(), P("x:b"));
        f.spy.watchValue(f.worker.get(), P("x:b?k=v"));
        f.button->setValue(text("off").__variant());
        QStringList requests = f.root()->requests;
        requests.sort();
        QCOMPARE(requests, QStringList({"getData x:v", "getData x:v?k=v"}));
        QStringList events = f.deliveredFully();
        events.sort();
        QCOMPARE(events, QStringList({"value x:b true", "value x:b?k=v true"}));
        f.button->setValue(text("third").__variant());
        events = f.deliveredFully();
        events.sort();
        QCOMPARE(events, QStringList({"value x:b false", "value x:b?k=v false"}));
    }

    void theComparisonComesWhenTheLinkedNodeAnswers_data()
    {
        QTest::addColumn<QVariantList>("values");
        QTest::addColumn<bool>("fails");
        QTest::addColumn<QStringList>("events");
        QTest::newRow("equal") << QVariantList{"new"} << false << QStringList("value x:b true");
        QTest::newRow("other") << QVariantList{"old"} << false << QStringList("value x:b false");
        QTest::newRow("failure") << QVariantList() << true << QStringList("value x:b false");
        QTest::newRow("no value") << QVariantList() << false << QStringList();
        QTest::newRow("two values") << QVariantList{"new", "new"} << false << QStringList();
    }

    void theComparisonComesWhenTheLinkedNodeAnswers()
    {
        QFETCH(QVariantList, values);
        QFETCH(bool, fails);
        QFETCH(QStringList, events);
        Buttons f;
        f.root()->hold(P("x:v"));
        f.spy.watchValue(f.worker.get(), P("x:b"));
        f.button->setValue("new");
        QCOMPARE(f.deliveredFully(), QStringList());
        QCOMPARE(f.root()->heldData.size(), 1);
        QCOMPARE(f.root()->heldData.first().roles(), QStringList(OrvoRoles::Value()));
        const auto reply = f.root()->heldData.first().reply();
        if (fails)
            reply.setError(CMAbstractWorker::createErrorInternal("broken"));
        else
            reply.setValue(values);
        QCOMPARE(f.deliveredFully(), events);
    }

    void anAnswerAfterTheEndOfTheNodeIsStillReported()
    {
        Buttons f;
        f.root()->hold(P("x:v"));
        f.spy.watchValue(f.worker.get(), P("x:b"));
        f.button->setValue("new");
        f.button->deleteLater();
        f.deliveredFully();
        f.root()->heldData.first().reply().setValue({"new"});
        QCOMPARE(f.deliveredFully(), QStringList("value x:b true"));
    }

    void anAnswerAfterTheEndOfTheWorkerIsDropped()
    {
        Buttons f;
        f.root()->hold(P("x:v"));
        f.spy.watchValue(f.worker.get(), P("x:b"));
        f.button->setValue("new");
        f.worker.reset();
        f.spy.take();
        f.root()->heldData.first().reply().setValue({"new"});
        QCOMPARE(f.spy.take(), QStringList());
    }

    void aButtonThatLeavesWatchesNothing()
    {
        Buttons f;
        f.spy.watchValue(f.worker.get(), P("x:b"));
        f.spy.watchData(f.worker.get(), P("x:b?k=v"));
        f.button->deleteLater();
        QVERIFY(!f.hub()->valuePath(P("x:v")));
        QVERIFY(!f.hub()->dataPath(P("x:v?k=v")));
        f.linked->setValue(text("on"));
        QCOMPARE(f.deliveredFully(), QStringList());
    }

    void aNewButtonWatchesForWaitingSubscribers()
    {
        Buttons f;
        f.spy.watchValue(f.worker.get(), P("x:late"));
        CMRadioButtonNode* late = CMRadioButtonNode::create(f.nodes(), P("x:late"), P("x:v"));
        late->setValue(text("on").__variant());
        f.deliveredFully();
        f.linked->setValue(text("on"));
        QCOMPARE(f.deliveredFully(), QStringList("value x:late true"));
    }
};

QTEST_GUILESS_MAIN(tst_CMRadioButtonNode)
#include "tst_cmradiobuttonnode.moc"
