#include "core/model/nodes/cmvaluenode.h"

#include "logcapture.h"
#include "nodetest.h"
#include "records/orvoedit.h"
#include "records/orvooperation.h"

#include <QtTest>

#include <functional>

namespace {

OrvoValue number(int value)
{
    return OrvoValue().setI32_(value);
}

} // namespace

/// A validator of a service.
class Validator : public QObject
{
    Q_OBJECT

public:
    QList<OrvoValue> values;
    CMSetDataRequest request;
    std::function<void()> during;
    bool answers = true;

public slots:
    void check(CMSetDataRequest asked, OrvoValue value)
    {
        request = asked;
        values.append(value);
        if (during)
            during();
        if (answers)
            asked.reply().setValue("checked");
    }
};

class tst_CMValueNode : public QObject
{
    Q_OBJECT

private slots:
    // Data

    void aNewNodeAnswers()
    {
        NodesFixture f;
        CMValueNode::create(f.nodes(), P("x:v"));
        QCOMPARE(f.datum(P("x:v"), OrvoRoles::Value()), QVariant(QVariantHash()));
        QCOMPARE(f.datum(P("x:v"), OrvoRoles::Modifiable()), QVariant(true));
        QCOMPARE(f.datum(P("x:v"), OrvoRoles::Internal()), QVariant(false));
        QCOMPARE(f.datum(P("x:v"), OrvoRoles::Type()), QVariant("value"));
        QCOMPARE(f.datum(P("x:v"), OrvoRoles::Edit()), QVariant(QVariantHash()));
        QCOMPARE(f.datum(P("x:v"), OrvoRoles::Title()), QVariant(QString()));
        QVERIFY(!f.datum(P("x:v"), "unknown").isValid());
    }

    void whatIsSetIsAnswered()
    {
        NodesFixture f;
        CMValueNode* node = CMValueNode::create(f.nodes(), P("x:v"));
        node->setValue(number(5));
        node->setReadOnly(true);
        node->setInternal(true);
        node->setEdit(OrvoEdit().setMax("10"));
        QCOMPARE(f.data(P("x:v?k=v"),
                        {OrvoRoles::Value(), OrvoRoles::Modifiable(), OrvoRoles::Internal(), OrvoRoles::Edit()}),
                 QVariantList({number(5).__variant(), false, true, OrvoEdit().setMax("10").__variant()}));
        QCOMPARE(node->value(), number(5));
        QVERIFY(node->readOnly());
        QCOMPARE(node->edit(), OrvoEdit().setMax("10"));
        QCOMPARE(f.worker->getValue(P("x:v")), number(5).__variant());
    }

    void setWithoutAChangeReportsNothing()
    {
        NodesFixture f;
        CMValueNode* node = CMValueNode::create(f.nodes(), P("x:v"));
        f.spy.watchData(f.worker.get(), P("x:v"));
        f.spy.watchValue(f.worker.get(), P("x:v"));
        node->setReadOnly(false);
        node->setInternal(false);
        node->setEdit(OrvoEdit());
        node->setValue(OrvoValue());
        QCOMPARE(f.delivered(), QStringList());
        for (const auto& set :
             QList<std::function<void()>>{[&] { node->setReadOnly(true); }, [&] { node->setInternal(true); },
                                          [&] { node->setEdit(OrvoEdit().setMin("1")); }}) {
            set();
            QCOMPARE(f.delivered(), QStringList("data x:v"));
            set();
            QCOMPARE(f.delivered(), QStringList());
        }
    }

    // The value

    void aNewValueIsReportedAsValueAndOnceAsData()
    {
        NodesFixture f;
        CMValueNode* node = CMValueNode::create(f.nodes(), P("x:v"));
        QSignalSpy signalSpy(node, SIGNAL(valueChanged(OrvoValue)));
        QSignalSpy bareSpy(node, SIGNAL(valueChanged()));
        f.spy.watchData(f.worker.get(), P("x:v"));
        f.spy.watchValue(f.worker.get(), P("x:v"));
        node->setValue(number(5));
        QCOMPARE(f.delivered(), QStringList({"value x:v 5", "data x:v"}));
        QVERIFY(node->timestamp() > 0);
        QCOMPARE(signalSpy.size(), 1);
        QCOMPARE(signalSpy.first().first().value<OrvoValue>(), number(5));
        QCOMPARE(bareSpy.size(), 1);
        node->setValue(number(5));
        QCOMPARE(f.delivered(), QStringList());
        QCOMPARE(signalSpy.size(), 1);
    }

    void aPathWatchedForOneKindHearsOnlyThatKind()
    {
        NodesFixture f;
        CMValueNode* node = CMValueNode::create(f.nodes(), P("x:v"));
        f.spy.watchData(f.worker.get(), P("x:v?d=1"));
        f.spy.watchValue(f.worker.get(), P("x:v?v=1"));
        node->setValue(number(5));
        QCOMPARE(f.delivered(), QStringList({"value x:v?v=1 5", "data x:v?d=1"}));
    }

    void theSignalComesAfterTheReports()
    {
        NodesFixture f;
        CMValueNode* node = CMValueNode::create(f.nodes(), P("x:v"));
        f.spy.watchData(f.worker.get(), P("x:v"));
        QStringList atSignal;
        OrvoValue stored;
        connect(node, &CMValueNode::valueChanged, this, [&] {
            atSignal = f.delivered();
            stored = node->value();
        });
        node->setValue(number(5));
        QCOMPARE(atSignal, QStringList("data x:v"));
        QCOMPARE(stored, number(5));
    }

    void settingTheValueIsTraced()
    {
        const LogCapture log("CMValueNode");
        NodesFixture f;
        CMValueNode::create(f.nodes(), P("x:v"))->setValue(number(5));
        QCOMPARE(log.lines().size(), 1);
        const QString line = log.lines().first();
        QVERIFY2(line.startsWith("TRACE CMValueNode::setValue: ") && line.contains("i32_"), qPrintable(line));
    }

    void variantsGiveTypedValues_data()
    {
        QTest::addColumn<QVariant>("variant");
        QTest::addColumn<QVariant>("record");
        const auto row = [](const char* name, const QVariant& variant, const OrvoValue& record) {
            QTest::newRow(name) << variant << record.__variant();
        };
        row("bool", true, OrvoValue().setBool_(true));
        row("int", -5, OrvoValue().setI32_(-5));
        row("uint", 5u, OrvoValue().setI32_(5));
        row("long long", 1LL << 40, OrvoValue().setI64_(1LL << 40));
        row("unsigned long long", 1ULL << 40, OrvoValue().setI64_(1LL << 40));
        row("double", 0.5, OrvoValue().setDouble_(0.5));
        row("text", "t", OrvoValue().setString_("t"));
        row("invalid", QVariant(), OrvoValue());
        row("list", QVariantList{1}, OrvoValue());
        row("bytes", QByteArray("b"), OrvoValue());
        row("record", number(5).__variant(), OrvoValue());
    }

    void variantsGiveTypedValues()
    {
        QFETCH(QVariant, variant);
        NodesFixture f;
        CMValueNode* node = CMValueNode::create(f.nodes(), P("x:v"));
        node->setValue(OrvoValue().setString_("before"));
        node->setVariantValue(variant);
        QTEST(node->value().__variant(), "record");
    }

    // Writing

    void aWrittenValueIsStoredAndAnsweredWithTrue()
    {
        NodesFixture f;
        CMValueNode* node = CMValueNode::create(f.nodes(), P("x:v"));
        QCOMPARE(f.worker->setValue(P("x:v?k=v"), number(5)).value(), QVariant(true));
        QCOMPARE(node->value(), number(5));
    }

    void writesAreTraced()
    {
        const LogCapture log("CMValueNode");
        NodesFixture f;
        CMValueNode::create(f.nodes(), P("x:v"));
        f.worker->setValue(P("x:v?k=v"), number(57));
        const QString line = log.lines().value(0);
        QVERIFY2(line.startsWith("TRACE CMValueNode::setDataRequest: path:x:v?k=v role:value value:"),
                 qPrintable(line));
        QVERIFY2(line.contains("57"), qPrintable(line));
    }

    void limitsApplyAndTheReplyIsTrue()
    {
        NodesFixture f;
        CMValueNode* node = CMValueNode::create(f.nodes(), P("x:v"));
        node->setEdit(OrvoEdit().setMax("10"));
        f.spy.watchData(f.worker.get(), P("x:v"));
        QCOMPARE(f.worker->setValue(P("x:v"), number(20)).value(), QVariant(true));
        QCOMPARE(node->value(), number(10));
        QCOMPARE(f.delivered(), QStringList("data x:v"));
        QCOMPARE(f.worker->setValue(P("x:v"), number(20)).value(), QVariant(true));
        QCOMPARE(f.delivered(), QStringList());
    }

    void aBlockedWriteIsAnsweredWithTrueAndChangesNothing()
    {
        const LogCapture log("CMEdit");
        NodesFixture f;
        CMValueNode* node = CMValueNode::create(f.nodes(), P("x:v"));
        node->setValue(number(5));
        f.spy.watchData(f.worker.get(), P("x:v"));
        QCOMPARE(f.worker->setValue(P("x:v?k=v"), OrvoValue().setString_("t")).value(), QVariant(true));
        QCOMPARE(f.worker->setValue(P("x:v"), QVariant(7)).value(), QVariant(true));
        QCOMPARE(node->value(), number(5));
        QCOMPARE(f.delivered(), QStringList());
        QCOMPARE(log.lines().size(), 2);
        QVERIFY(log.lines().first().endsWith("path: x:v?k=v"));
    }

    void operationsChangeTheValueWithinItsLimits()
    {
        NodesFixture f;
        CMValueNode* node = CMValueNode::create(f.nodes(), P("x:v"));
        node->setEdit(OrvoEdit().setStep("3").setMin("0").setMax("10"));
        node->setValue(number(6));
        QCOMPARE(f.worker->valueAddSteps(P("x:v"), 1).value(), QVariant(true));
        QCOMPARE(node->value(), number(9));
        f.worker->valueAddSteps(P("x:v"), 1);
        QCOMPARE(node->value(), number(10));
        f.worker->valueAddSteps(P("x:v"), -100);
        QCOMPARE(node->value(), number(0));
        f.worker->valueToggle(P("x:v"));
        QCOMPARE(node->value(), number(0));
        CMValueNode* flag = CMValueNode::create(f.nodes(), P("x:w"));
        flag->setValue(OrvoValue().setBool_(true));
        QCOMPARE(f.worker->valueToggle(P("x:w")).value(), QVariant(true));
        QCOMPARE(flag->value(), OrvoValue().setBool_(false));
    }

    void sixteenBitStepsAreBlocked()
    {
        const LogCapture log("CMEdit");
        NodesFixture f;
        CMValueNode* node = CMValueNode::create(f.nodes(), P("x:v"));
        node->setEdit(OrvoEdit().setStep("3").setMin("0").setMax("10"));
        node->setValue(OrvoValue().setI16_(6));
        QCOMPARE(f.worker->valueAddSteps(P("x:v"), 1).value(), QVariant(true));
        QCOMPARE(node->value(), OrvoValue().setI16_(6));
        QCOMPARE(log.lines(), QStringList("ERROR Blocking new value because it hasn't got defined type, path: x:v"));
    }

    void aReadOnlyNodeAnswersFalse()
    {
        NodesFixture f;
        CMValueNode* node = CMValueNode::create(f.nodes(), P("x:v"));
        node->setValue(number(5));
        node->setReadOnly(true);
        f.spy.watchData(f.worker.get(), P("x:v"));
        for (const auto& reply : {f.worker->setValue(P("x:v"), number(6)), f.worker->valueAddSteps(P("x:v"), 1)}) {
            QVERIFY(!reply.error().isError());
            QCOMPARE(reply.value(), QVariant(false));
        }
        QCOMPARE(node->value(), number(5));
        QCOMPARE(f.delivered(), QStringList());
        // The service itself may still change it.
        node->setValue(number(6));
        QCOMPARE(node->value(), number(6));
    }

    void aDisabledNodeCanBeWritten()
    {
        NodesFixture f;
        CMValueNode* node = CMValueNode::create(f.nodes(), P("x:v"));
        node->setDisabled(true);
        QCOMPARE(f.worker->setValue(P("x:v"), number(6)).value(), QVariant(true));
        QCOMPARE(node->value(), number(6));
    }

    void otherRolesAndPathsAreNotServed()
    {
        NodesFixture f;
        CMValueNode* node = CMValueNode::create(f.nodes(), P("x:v"));
        node->setReadOnly(true);
        QCOMPARE(f.worker->setData(P("x:v"), OrvoRoles::Title(), "t").error().name(),
                 CMAbstractWorker::ErrorInvalidPath());
        QCOMPARE(f.worker->setData(P("x:v"), OrvoRoles::Activate(), "t").error().name(),
                 CMAbstractWorker::ErrorInvalidPath());
        QCOMPARE(f.worker->setValue(P("x:v/below"), number(1)).error().name(), CMAbstractWorker::ErrorInvalidPath());
    }

    // Validators

    void theValidatorOwnsTheReply()
    {
        NodesFixture f;
        CMValueNode* node = CMValueNode::create(f.nodes(), P("x:v"));
        node->setEdit(OrvoEdit().setMax("10"));
        Validator validator;
        validator.answers = false;
        node->setValidate(&validator, SLOT(check(CMSetDataRequest,OrvoValue)), Qt::DirectConnection);
        const auto reply = f.worker->setValue(P("x:v?k=v"), number(20));
        QCOMPARE(validator.values, QList<OrvoValue>{number(10)});
        QCOMPARE(validator.request.path(), P("x:v?k=v"));
        QVERIFY(!reply.isFinished());
        QVERIFY(node->value().isEmpty());
        validator.request.reply().setValue("late");
        QCOMPARE(reply.value(), QVariant("late"));
    }

    void aBlockedWriteReachesTheValidatorAsTheOldValue()
    {
        const LogCapture quiet("CMEdit");
        NodesFixture f;
        CMValueNode* node = CMValueNode::create(f.nodes(), P("x:v"));
        node->setValue(number(5));
        Validator validator;
        node->setValidate(&validator, SLOT(check(CMSetDataRequest,OrvoValue)));
        f.worker->setValue(P("x:v"), OrvoValue().setBool_(true));
        QCOMPARE(validator.values, QList<OrvoValue>{number(5)});
    }

    void onlyTheLastValidatorIsAsked()
    {
        NodesFixture f;
        CMValueNode* node = CMValueNode::create(f.nodes(), P("x:v"));
        Validator first;
        Validator second;
        node->setValidate(&first, SLOT(check(CMSetDataRequest,OrvoValue)));
        node->setValidate(&second, SLOT(check(CMSetDataRequest,OrvoValue)));
        f.worker->setValue(P("x:v"), number(1));
        QVERIFY(first.values.isEmpty());
        QCOMPARE(second.values.size(), 1);
        QVERIFY(node->value().isEmpty());
        node->setValidate(node, SLOT(validate(CMSetDataRequest,OrvoValue)));
        f.worker->setValue(P("x:v"), number(2));
        QCOMPARE(second.values.size(), 1);
        QCOMPARE(node->value(), number(2));
    }

    void aReadOnlyNodeAsksNoValidator()
    {
        NodesFixture f;
        CMValueNode* node = CMValueNode::create(f.nodes(), P("x:v"));
        Validator validator;
        node->setValidate(&validator, SLOT(check(CMSetDataRequest,OrvoValue)));
        node->setReadOnly(true);
        QCOMPARE(f.worker->setValue(P("x:v"), number(1)).value(), QVariant(false));
        QVERIFY(validator.values.isEmpty());
    }

    void aDirectValidatorRunsUnderTheLockAndAQueuedOneDoesNot()
    {
        // Outlives the nodes that it is given to.
        QMutex mutex(QMutex::Recursive);
        NodesFixture f;
        CMValueNode* node = CMValueNode::create(f.nodes(), P("x:v"), &mutex);
        QCOMPARE(node->mutex(), &mutex);
        bool free = false;
        Validator validator;
        validator.during = [&] {
            std::unique_ptr<QThread> other(QThread::create([&] {
                free = mutex.tryLock();
                if (free)
                    mutex.unlock();
            }));
            other->start();
            other->wait();
        };
        node->setValidate(&validator, SLOT(check(CMSetDataRequest,OrvoValue)), Qt::DirectConnection);
        f.worker->setValue(P("x:v"), number(1));
        QVERIFY(!free);
        node->setValidate(&validator, SLOT(check(CMSetDataRequest,OrvoValue)), Qt::QueuedConnection);
        const auto reply = f.worker->setValue(P("x:v"), number(1));
        QVERIFY(!reply.isFinished());
        QCoreApplication::processEvents();
        QCOMPARE(reply.value(), QVariant("checked"));
        QVERIFY(free);
    }

    void theDefaultValidatorRunsUnderASharedLock()
    {
        // Outlives the nodes that it is given to.
        QMutex mutex(QMutex::Recursive);
        NodesFixture f;
        CMValueNode* one = CMValueNode::create(f.nodes(), P("x:1"), &mutex);
        CMValueNode* two = CMValueNode::create(f.nodes(), P("x:2"), &mutex);
        CMValueNode* own = CMValueNode::create(f.nodes(), P("x:3"));
        QVERIFY(own->mutex() && own->mutex() != &mutex);
        connect(one, &CMValueNode::valueChanged, two, [two](const OrvoValue& value) { two->setValue(value); });
        QCOMPARE(f.worker->setValue(P("x:1"), number(4)).value(), QVariant(true));
        QCOMPARE(two->value(), number(4));
    }

    // The end

    void aNodeMayDeleteItselfInItsValidator()
    {
        NodesFixture f;
        CMValueNode* node = CMValueNode::create(f.nodes(), P("x:v"));
        bool destroyed = false;
        connect(node, &QObject::destroyed, this, [&] { destroyed = true; });
        Validator validator;
        bool during = true;
        validator.during = [&] {
            node->deleteLater();
            during = destroyed;
        };
        node->setValidate(&validator, SLOT(check(CMSetDataRequest,OrvoValue)), Qt::DirectConnection);
        QCOMPARE(f.worker->setValue(P("x:v"), number(1)).value(), QVariant("checked"));
        QVERIFY(!during);
        QVERIFY(destroyed);
    }

    void aNodeMayDeleteItselfWhenItsValueIsWritten()
    {
        NodesFixture f;
        CMValueNode* node = CMValueNode::create(f.nodes(), P("x:v"));
        connect(node, &CMValueNode::valueChanged, this, [node] { node->deleteLater(); });
        QCOMPARE(f.worker->setValue(P("x:v"), number(1)).value(), QVariant(true));
        QVERIFY(!f.nodes()->isNodeAtPath(P("x:v")));
    }

    void aNodeMayDeleteItselfWhenTheServiceSetsItsValue()
    {
        // Nobody but the registry refers to the node here.
        NodesFixture f;
        CMValueNode* node = CMValueNode::create(f.nodes(), P("x:v"));
        bool destroyed = false;
        connect(node, &QObject::destroyed, this, [&] { destroyed = true; });
        bool during = true;
        connect(node, &CMValueNode::valueChanged, this, [&] {
            node->deleteLater();
            during = destroyed;
        });
        node->setValue(number(1));
        QVERIFY(!during);
        QVERIFY(destroyed);
    }

    void aNodeThatIsNotRegisteredYetKeepsItsValue()
    {
        NodesFixture f;
        auto* node = new CMValueNode(P("x:v"));
        node->setValue(number(1));
        node->setNodes(f.nodes());
        QCOMPARE(f.worker->getValue(P("x:v")), number(1).__variant());
    }
};

QTEST_GUILESS_MAIN(tst_CMValueNode)
#include "tst_cmvaluenode.moc"
