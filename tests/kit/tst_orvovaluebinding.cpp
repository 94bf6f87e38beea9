#include "orvovaluebinding.h"

#include "cmremoteworker.h"
#include "core/model/cmnodesworker.h"
#include "nodetest.h"
#include "records/orvoconstants.h"
#include "support/linkfixture.h"

#include <QPointer>
#include <QQmlComponent>
#include <QQmlEngine>

#include <limits>

namespace {

OrvoValue number(int value)
{
    return OrvoValue().setI32_(value);
}

OrvoValue numbers(const QList<double>& list)
{
    return OrvoValue().setDoubleList(list);
}

/// Writes down what a binding tells: "path", "value 7", "loading", "loaded", "refused ...".
class Ear
{
public:
    explicit Ear(OrvoValueBinding* binding)
    {
        const auto say = [this](const QString& text) { said.append(text); };
        QObject::connect(binding, &OrvoValueBinding::pathChanged, [=] { say("path " + binding->path()); });
        QObject::connect(binding, &OrvoValueBinding::valueChanged,
                         [=] { say("value " + binding->value().toString()); });
        QObject::connect(binding, &OrvoValueBinding::loadingChanged,
                         [=] { say(binding->isLoading() ? "loading" : "loaded"); });
        QObject::connect(binding, &OrvoValueBinding::refused, [=](const QString& reason) { say("refused " + reason); });
    }
    QStringList take() { return std::exchange(said, QStringList()); }
    QStringList said;
};

} // namespace

class tst_OrvoValueBinding : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<CMNodesWorker> m_worker;
    CMValueNode* m_node = nullptr;

    std::unique_ptr<QObject> load(QQmlEngine* engine, const QByteArray& body)
    {
        QQmlComponent component(engine);
        component.setData("import QtQml 2.15\nimport Orvo 1.0\n" + body, QUrl());
        std::unique_ptr<QObject> object(component.create());
        if (!object)
            qWarning() << component.errors();
        return object;
    }

private slots:
    void initTestCase()
    {
        ForwardingRoot::instance();
        qmlRegisterType<OrvoValueBinding>("Orvo", 1, 0, "ValueBinding");
    }
    void init()
    {
        m_worker.reset(new CMNodesWorker({{OrvoWorkerArguments::MergeEvents(), true}}, "test"));
        ForwardingRoot::instance()->reset(m_worker.get());
        m_node = CMValueNode::create(m_worker->nodes(), P("t:value"));
        m_node->setValue(number(5));
    }
    void cleanup()
    {
        deleteWaiting();
        m_worker.reset();
        ForwardingRoot::instance()->reset(nullptr);
    }

    void withoutAPathItHasNoValueAndDoesNotLoad()
    {
        OrvoValueBinding binding;
        QCOMPARE(binding.path(), QString());
        QVERIFY(!binding.isLoading());
        QVERIFY(!binding.value().isValid());
    }

    void theFirstValueEndsTheLoading()
    {
        OrvoValueBinding binding;
        Ear ear(&binding);
        binding.setPath("t:value");
        QVERIFY(binding.isLoading());
        QVERIFY(!binding.value().isValid());
        QTRY_VERIFY(!binding.isLoading());
        QCOMPARE(ear.said, (QStringList{"loading", "path t:value", "value 5", "loaded"}));
        QCOMPARE(binding.value(), QVariant(5));
        binding.setPath("t:value");
        QCOMPARE(ear.said.size(), 4);
    }

    void changesOfTheNodeAreFollowed()
    {
        OrvoValueBinding binding;
        binding.setPath("t:value");
        QTRY_VERIFY(!binding.isLoading());
        Ear ear(&binding);
        m_node->setValue(number(6));
        QTRY_COMPARE(ear.said, QStringList("value 6"));
        m_node->setValue(OrvoValue().setString_("six"));
        QTRY_COMPARE(binding.value(), QVariant("six"));
    }

    void anotherPathShowsAnotherValue()
    {
        CMValueNode::create(m_worker->nodes(), P("t:other"))->setValue(number(5));
        OrvoValueBinding binding;
        binding.setPath("t:value");
        QTRY_VERIFY(!binding.isLoading());
        Ear ear(&binding);
        binding.setPath("t:other");
        QCOMPARE(ear.take(), (QStringList{"value ", "loading", "path t:other"}));
        QTRY_COMPARE(ear.said, (QStringList{"value 5", "loaded"}));
        ear.take();
        binding.setPath(QString());
        QCOMPARE(ear.take(), (QStringList{"value ", "path "}));
        QVERIFY(!binding.isLoading());
    }

    // Writes

    void aWriteChangesTheValueOnceTheNodeHasTakenIt()
    {
        m_node->setEdit(OrvoEdit().setMin("0").setMax("10"));
        OrvoValueBinding binding;
        binding.setPath("t:value");
        QTRY_VERIFY(!binding.isLoading());
        Ear ear(&binding);
        binding.setValue(70);
        QCOMPARE(binding.value(), QVariant(5));
        QTRY_COMPARE(ear.said, QStringList("value 10"));
    }

    void aWriteHasTheTypeOfTheValue_data()
    {
        QTest::addColumn<OrvoValue>("present");
        QTest::addColumn<QVariant>("written");
        QTest::addColumn<OrvoValue>("taken");
        const auto row = [](const char* name, const OrvoValue& present, const QVariant& written,
                            const OrvoValue& taken) { QTest::newRow(name) << present << written << taken; };
        const OrvoValue flag = OrvoValue().setBool_(false);
        row("bool", flag, true, OrvoValue().setBool_(true));
        row("number as bool", flag, 1, OrvoValue().setBool_(true));
        const OrvoValue byte = OrvoValue().setByte_(1);
        row("byte", byte, -128, OrvoValue().setByte_(-128));
        const OrvoValue i16 = OrvoValue().setI16_(1);
        row("i16", i16, 32767, OrvoValue().setI16_(32767));
        row("i32", number(1), 2, number(2));
        row("i32 of a fraction", number(1), -2.6, number(-3));
        row("i32 of a text", number(1), "42", number(42));
        row("i32 of a text with a fraction", number(1), "41.9", number(42));
        const OrvoValue i64 = OrvoValue().setI64_(1);
        row("i64", i64, 9007199254740993LL, OrvoValue().setI64_(9007199254740993LL));
        row("i64 of a double", i64, 1e15, OrvoValue().setI64_(1000000000000000LL));
        const OrvoValue real = OrvoValue().setDouble_(0.5);
        row("double", real, 2.25, OrvoValue().setDouble_(2.25));
        row("double of an int", real, 2, OrvoValue().setDouble_(2));
        const OrvoValue text = OrvoValue().setString_("a");
        row("text", text, "b", OrvoValue().setString_("b"));
        row("text of a number", text, 12, OrvoValue().setString_("12"));
        row("list", numbers({1, 2}), QVariantList({3, 4.5}), numbers({3, 4.5}));
        row("empty list", numbers({1, 2}), QVariantList(), numbers({}));
        row("no value yet: bool", OrvoValue(), true, OrvoValue().setBool_(true));
        row("no value yet: int", OrvoValue(), 3, number(3));
        row("no value yet: long", OrvoValue(), 3LL, OrvoValue().setI64_(3));
        row("no value yet: double", OrvoValue(), 3.5, OrvoValue().setDouble_(3.5));
        row("no value yet: text", OrvoValue(), "x", OrvoValue().setString_("x"));
        row("no value yet: list", OrvoValue(), QVariantList{1.5}, numbers({1.5}));
    }
    void aWriteHasTheTypeOfTheValue()
    {
        QFETCH(OrvoValue, present);
        QFETCH(QVariant, written);
        QFETCH(OrvoValue, taken);
        m_node->setValue(present);
        OrvoValueBinding binding;
        binding.setPath("t:value");
        QTRY_VERIFY(!binding.isLoading());
        Ear ear(&binding);
        binding.setValue(written);
        QTRY_COMPARE(m_node->value(), taken);
        QTRY_COMPARE(ear.said.size(), 1);
        QVERIFY(ear.said.first().startsWith("value"));
    }

    void whatIsNoneOfThatTypeIsRefused_data()
    {
        QTest::addColumn<OrvoValue>("present");
        QTest::addColumn<QVariant>("written");
        const auto row = [](const char* name, const OrvoValue& present, const QVariant& written) {
            QTest::newRow(name) << present << written;
        };
        row("text as number", number(1), "many");
        row("list as number", number(1), QVariantList{1});
        row("nothing as number", number(1), QVariant());
        row("too large for a byte", OrvoValue().setByte_(1), 128);
        row("too small for a byte", OrvoValue().setByte_(1), -129.0);
        row("too large for i32", number(1), 2147483648.0);
        row("too large for i64", OrvoValue().setI64_(1), 9223372036854775808.0);
        row("not a number", number(1), std::numeric_limits<double>::quiet_NaN());
        row("text as double", OrvoValue().setDouble_(1), "x");
        row("list as bool", OrvoValue().setBool_(true), QVariantList{1});
        row("list as text", OrvoValue().setString_("a"), QVariantList{1});
        row("texts as numbers", numbers({1}), QVariantList{"x"});
        row("number as list", numbers({1}), 1);
        row("text as list", numbers({1}), "1");
        row("no value yet", OrvoValue(), QVariant::fromValue(QVariantMap{{"a", 1}}));
    }
    void whatIsNoneOfThatTypeIsRefused()
    {
        QFETCH(OrvoValue, present);
        QFETCH(QVariant, written);
        m_node->setValue(present);
        OrvoValueBinding binding;
        binding.setPath("t:value");
        QTRY_VERIFY(!binding.isLoading());
        ForwardingRoot::instance()->requests.clear();
        Ear ear(&binding);
        binding.setValue(written);
        QCOMPARE(ear.said, QStringList("refused '" + written.toString() + "' is no value of this kind"));
        QCOMPARE(ForwardingRoot::instance()->requests, QStringList());
    }

    void whatTheNodeRefusesIsTold()
    {
        OrvoValueBinding binding;
        Ear ear(&binding);
        binding.setValue(1);
        QCOMPARE(ear.take(), QStringList("refused There is no path to write to"));
        binding.setPath("t:value");
        QTRY_VERIFY(!binding.isLoading());
        ear.take();
        m_node->setReadOnly(true);
        binding.setValue(1);
        QTRY_COMPARE(ear.said, QStringList("refused The value is read-only"));
        ear.take();
        m_node->deleteLater();
        deleteWaiting();
        binding.setValue(1);
        QTRY_COMPARE(ear.said.size(), 1);
        QVERIFY2(ear.said.first().startsWith("refused ") && ear.said.first().contains("t:value"),
                 qPrintable(ear.said.first()));
    }

    void aWriteWhileLoadingWaitsForTheTypeAndTheLastOneGoes()
    {
        ForwardingRoot* root = ForwardingRoot::instance();
        root->hold(P("t:value"));
        OrvoValueBinding binding;
        binding.setPath("t:value");
        binding.setValue("7");
        binding.setValue("8");
        QTRY_COMPARE(root->heldData.size(), 1);
        QCOMPARE(root->requests, QStringList("getData t:value"));
        m_worker->getDataRequest(root->heldData.takeFirst());
        QTRY_COMPARE(m_node->value(), number(8));
        QCOMPARE(root->requests.count("setData t:value value"), 1);
    }

    void aNewPathDropsTheWriteThatWaits()
    {
        CMValueNode* other = CMValueNode::create(m_worker->nodes(), P("t:other"));
        other->setValue(number(1));
        OrvoValueBinding binding;
        binding.setPath("t:value");
        binding.setValue(7);
        binding.setPath("t:other");
        QTRY_VERIFY(!binding.isLoading());
        QTest::qWait(50);
        QCOMPARE(other->value(), number(1));
        QCOMPARE(m_node->value(), number(5));
    }

    // Life and death

    void itMayBeDestroyedInsideItsSignals_data()
    {
        QTest::addColumn<QString>("line");
        for (const char* line : {"loading", "path t:value", "value 5", "loaded", "refused 'x' is no value of this kind",
                                 "refused The value is read-only", "value "})
            QTest::newRow(line) << line;
    }
    void itMayBeDestroyedInsideItsSignals()
    {
        QFETCH(QString, line);
        QPointer<OrvoValueBinding> binding(new OrvoValueBinding);
        Ear ear(binding);
        const auto look = [&] {
            if (!ear.said.isEmpty() && ear.said.last() == line)
                delete binding.data();
        };
        connect(binding, &OrvoValueBinding::pathChanged, this, look);
        connect(binding, &OrvoValueBinding::valueChanged, this, look);
        connect(binding, &OrvoValueBinding::loadingChanged, this, look);
        connect(binding, &OrvoValueBinding::refused, this, look);
        binding->setPath("t:value");
        QTRY_VERIFY(!binding || !binding->isLoading());
        if (binding)
            binding->setValue("x");
        m_node->setReadOnly(true);
        if (binding)
            binding->setValue(6);
        QTRY_VERIFY(!binding || ear.said.last().contains("read-only"));
        if (binding)
            binding->setPath(QString());
        QVERIFY(!binding);
        QCOMPARE(ear.said.last(), line);
    }

    void aReplyThatComesBehindItsEndTellsNobody()
    {
        ScriptedWorker service;
        ForwardingRoot::instance()->reset(&service);
        auto* binding = new OrvoValueBinding;
        Ear ear(binding);
        binding->setPath("t:value");
        service.last<CMGetDataRequest>().reply().setValue(QVariantList{number(1).__variant()});
        QTRY_VERIFY(!binding->isLoading());
        ear.take();
        binding->setValue(2);
        const auto first = service.last<CMSetDataRequest>();
        binding->setValue(3);
        const auto second = service.last<CMSetDataRequest>();
        QVERIFY(!first.isNull() && !second.isNull() && first != second);
        first.reply().setError(CMError("busy", "", ""));
        QTRY_COMPARE(ear.said, QStringList("refused busy"));
        delete binding;
        second.reply().setError(CMError("busy", "", ""));
        deleteWaiting();
        QCOMPARE(ear.said.size(), 1);
        ForwardingRoot::instance()->reset(m_worker.get());
    }

    // In QML

    void aQmlBindingShowsTheValueAndWritesIt()
    {
        QQmlEngine engine;
        const auto object = load(&engine, R"(
            QtObject {
                id: root
                property var volume: ValueBinding {
                    path: "t:value"
                    onRefused: root.reasons.push(reason)
                }
                property var reasons: []
                property string text: volume.loading ? "loading" : "volume " + volume.value
                property bool unknown: volume.value === undefined
                function turn(value) { volume.value = value }
            })");
        QVERIFY(object);
        QCOMPARE(object->property("text"), QVariant("loading"));
        QCOMPARE(object->property("unknown"), QVariant(true));
        QTRY_COMPARE(object->property("text"), QVariant("volume 5"));
        QCOMPARE(object->property("unknown"), QVariant(false));
        const auto turn = [&](const QVariant& value) {
            return QMetaObject::invokeMethod(object.get(), "turn", Q_ARG(QVariant, value));
        };
        QVERIFY(turn(7.4));
        QTRY_COMPARE(object->property("text"), QVariant("volume 7"));
        QCOMPARE(m_node->value(), number(7));
        QVERIFY(turn("loud"));
        QCOMPARE(object->property("reasons").value<QVariantList>(), QVariantList{"'loud' is no value of this kind"});
        m_node->setValue(OrvoValue().setString_("full"));
        QTRY_COMPARE(object->property("text"), QVariant("volume full"));
    }

    void aJavaScriptArrayIsAListOfNumbers()
    {
        m_node->setValue(numbers({1, 2}));
        QQmlEngine engine;
        const auto object = load(&engine, R"(
            ValueBinding {
                path: "t:value"
                property real sum: value ? value[0] + value[1] : 0
                function write() { value = [3, 4.5] }
            })");
        QVERIFY(object);
        QTRY_COMPARE(object->property("sum"), QVariant(3.0));
        QVERIFY(QMetaObject::invokeMethod(object.get(), "write"));
        QTRY_COMPARE(m_node->value(), numbers({3, 4.5}));
        QTRY_COMPARE(object->property("sum"), QVariant(7.5));
    }

    void aPathBoundInQmlIsFollowed()
    {
        CMValueNode::create(m_worker->nodes(), P("t:other"))->setValue(OrvoValue().setBool_(true));
        QQmlEngine engine;
        const auto object = load(&engine, R"(
            ValueBinding {
                property string which: "value"
                path: "t:" + which
            })");
        QVERIFY(object);
        QTRY_COMPARE(object->property("value"), QVariant(5));
        object->setProperty("which", "other");
        QTRY_COMPARE(object->property("value"), QVariant(true));
    }

    // Over the link

    void aValueOfAnotherProcessIsFollowedThroughARestart()
    {
        const QString name = serviceName("binding");
        ServerProcess server(name);
        QVERIFY(server.start());
        CMRemoteWorker worker("view", name);
        ForwardingRoot::instance()->reset(&worker);
        {
            QQmlEngine engine;
            const auto object = load(&engine, "ValueBinding { path: \"" + name.toUtf8() + ":value\" }");
            QVERIFY(object);
            QTRY_COMPARE(object->property("value"), QVariant(1));
            // The type is the node's, though its numbers come back from JSON.
            object->setProperty("value", 2.0);
            QTRY_COMPARE(object->property("value"), QVariant(2));
            const CMReply<QVariantList> reply =
                worker.getData(CMPath::fromPrefix(name) + "value", {OrvoRoles::Value()});
            QTRY_VERIFY(reply.isFinished());
            QCOMPARE(OrvoValue(reply.value().value(0).toHash()), number(2));
            server.kill();
            object->setProperty("value", 3);
            QVERIFY(server.start({"--value", "7"}));
            QTRY_VERIFY_WITH_TIMEOUT(object->property("value").toInt() != 2, 10000);
            // The write waited for the service, or fell with the link.
            QVERIFY(QList<int>({3, 7}).contains(object->property("value").toInt()));
            object->setProperty("value", 8);
            QTRY_COMPARE_WITH_TIMEOUT(object->property("value"), QVariant(8), 10000);
        }
        ForwardingRoot::instance()->reset(m_worker.get());
        deleteWaiting();
    }
};

QTEST_GUILESS_MAIN(tst_OrvoValueBinding)
#include "tst_orvovaluebinding.moc"
