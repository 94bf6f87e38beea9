#include "core/model/orvoform.h"

#include "nodetest.h"

#include <QPointer>
#include <QThread>
#include <QtTest>

#include <functional>

namespace {

/// A form of one row that counts its calls.
class Form : public OrvoForm
{
public:
    Form(const NodesFixture& f, std::function<void()> onLoad = nullptr)
        : OrvoForm(f.nodes(), P("x:form")), m_onLoad(std::move(onLoad))
    {}

    void on_load() override
    {
        ++loads;
        thread = QThread::currentThread();
        hadNode = listNode();
        if (listNode() && listNode()->rowsSize() == 0)
            listNode()->rowsAppend(OrvoRoles().setTitle("first"));
        if (m_onLoad)
            m_onLoad();
    }
    using OrvoForm::listNode;
    using OrvoForm::nodes;

    int loads = 0;
    bool hadNode = false;
    QThread* thread = nullptr;

private:
    const std::function<void()> m_onLoad;
};

QVariantList titles(const NodesFixture& f)
{
    return f.worker->getRows(P("x:form"), 0, 9, -1, {"title"}).value().rows().toList();
}

} // namespace

class tst_OrvoForm : public QObject
{
    Q_OBJECT

private slots:
    void theFormIsAListOfTheFormType()
    {
        NodesFixture f;
        const Form form(f);
        QCOMPARE(form.path(), P("x:form"));
        QCOMPARE(form.nodes(), f.nodes());
        QVERIFY(!form.parent());
        QCOMPARE(form.listNode()->path(), P("x:form"));
        QCOMPARE(int(form.listNode()->containerType()), 104);
        QCOMPARE(f.data(P("x:form"), {"type", "containerType"}), (QVariantList{"container", "form"}));
        QCOMPARE(form.loads, 0);
    }

    void itLoadsWhenAReaderComesAndWhenItLeaves()
    {
        NodesFixture f;
        const Form form(f);
        f.spy.watchRows(f.worker.get(), P("x:form"));
        QCOMPARE(form.loads, 1);
        QCOMPARE(form.listNode()->rowsPaths(), QSet<CMPath>{P("x:form")});
        QCOMPARE(titles(f), QVariantList{QVariant(QVariantList{"first"})});
        ChangeSpy other;
        other.watchRows(f.worker.get(), P("x:form"));
        other.unwatchRows(f.worker.get(), P("x:form"));
        QCOMPARE(form.loads, 1);
        f.spy.unwatchRows(f.worker.get(), P("x:form"));
        QCOMPARE(form.loads, 2);
        QVERIFY(form.listNode()->rowsPaths().isEmpty());
    }

    void onlyRowsSubscriptionsCount()
    {
        NodesFixture f;
        const Form form(f);
        f.spy.watchData(f.worker.get(), P("x:form"));
        f.spy.watchValue(f.worker.get(), P("x:form"));
        f.spy.unwatchData(f.worker.get(), P("x:form"));
        QCOMPARE(form.loads, 0);
        // Another text of the path is another reader.
        f.spy.watchRows(f.worker.get(), P("x:form?a=1"));
        f.spy.watchRows(f.worker.get(), P("x:form?a=2"));
        QCOMPARE(form.loads, 2);
    }

    void aReaderWhoWaitedBeforeStandsInTheNode()
    {
        NodesFixture f;
        f.spy.watchRows(f.worker.get(), P("x:form"));
        const Form form(f);
        QCOMPARE(form.loads, 0);
        QCOMPARE(form.listNode()->rowsPaths(), QSet<CMPath>{P("x:form")});
    }

    void hidingClosesItForReadersAndKeepsItsRows()
    {
        NodesFixture f;
        Form form(f);
        f.spy.watchRows(f.worker.get(), P("x:form"));
        f.delivered();
        QMetaObject::invokeMethod(&form, "hide");
        QCOMPARE(f.delivered(), QStringList("rows x:form [close] 1>0"));
        QVERIFY(f.nodes()->isNodeAtPath(P("x:form")));
        QCOMPARE(titles(f), QVariantList{QVariant(QVariantList{"first"})});
        QCOMPARE(form.loads, 1);
    }

    void deleteLaterTakesTheNodeOutAtOnceAndTheFormByTheEventLoop()
    {
        NodesFixture f;
        const QPointer<Form> form(new Form(f));
        f.spy.watchRows(f.worker.get(), P("x:form"));
        f.delivered();
        const QPointer<CMListRowsNode> node(form->listNode());
        form->deleteLater();
        QVERIFY(!f.nodes()->isNodeAtPath(P("x:form")));
        QVERIFY(!node);
        QVERIFY(form);
        QVERIFY(!form->listNode());
        QCOMPARE(form->loads, 2);
        QVERIFY(form->hadNode);
        QCOMPARE(f.delivered(), QStringList("rows x:form [close] 1>0"));
        form->hide();
        form->deleteLater();
        QCOMPARE(f.delivered(), QStringList());
        QTRY_VERIFY(!form);
    }

    void aFormDestroyedWithAReaderPresentClosesCleanly()
    {
        NodesFixture f;
        int loads = 0;
        auto form = std::make_unique<Form>(f, [&] { ++loads; });
        f.spy.watchRows(f.worker.get(), P("x:form"));
        f.delivered();
        const QPointer<CMListRowsNode> node(form->listNode());
        form.reset();
        QVERIFY(!node);
        QVERIFY(!f.nodes()->isNodeAtPath(P("x:form")));
        QCOMPARE(f.delivered(), QStringList("rows x:form [close] 1>0"));
        QCOMPARE(loads, 1);
        // The path is free again.
        const Form next(f);
        QVERIFY(f.nodes()->isNodeAtPath(P("x:form")));
    }

    void aReaderMayStillLeaveAfterTheForm()
    {
        NodesFixture f;
        f.spy.watchRows(f.worker.get(), P("x:form"));
        std::make_unique<Form>(f).reset();
        f.spy.unwatchRows(f.worker.get(), P("x:form"));
    }

    void aFormMayOutliveTheNodesOfItsRegistry()
    {
        auto f = std::make_unique<NodesFixture>();
        auto form = std::make_unique<Form>(*f);
        const QPointer<CMListRowsNode> node(form->listNode());
        f.reset();
        QVERIFY(node);
        QVERIFY(node->deleted());
        form.reset();
        QVERIFY(!node);
    }

    void onLoadMayDestroyTheForm()
    {
        NodesFixture f;
        Form* form = nullptr;
        form = new Form(f, [&] { delete form; });
        f.spy.watchRows(f.worker.get(), P("x:form"));
        QVERIFY(!f.nodes()->isNodeAtPath(P("x:form")));
        f.spy.unwatchRows(f.worker.get(), P("x:form"));

        // Also when the reader leaves because the form is on its way out.
        bool leaving = false;
        form = new Form(f, [&] {
            if (leaving)
                delete form;
        });
        f.spy.watchRows(f.worker.get(), P("x:form"));
        leaving = true;
        form->deleteLater();
        QVERIFY(!f.nodes()->isNodeAtPath(P("x:form")));
    }

    void onLoadMayAskForTheEndAgain()
    {
        NodesFixture f;
        QPointer<Form> form;
        form = new Form(f, [&] { form->deleteLater(); });
        f.spy.watchRows(f.worker.get(), P("x:form"));
        QVERIFY(!f.nodes()->isNodeAtPath(P("x:form")));
        QTRY_VERIFY(!form);
    }

    void itLoadsInItsOwnThread()
    {
        NodesFixture f;
        Form form(f);
        const std::unique_ptr<QThread> reader(QThread::create([&] {
            ChangeSpy spy;
            spy.watchRows(f.worker.get(), P("x:form"));
            spy.unwatchRows(f.worker.get(), P("x:form"));
        }));
        reader->start();
        QVERIFY(reader->wait(20000));
        QCOMPARE(form.loads, 0);
        QTRY_COMPARE(form.loads, 2);
        QCOMPARE(form.thread, form.QObject::thread());
    }

    void aCallThatIsOnItsWayIsDroppedWithTheForm()
    {
        NodesFixture f;
        int loads = 0;
        auto form = std::make_unique<Form>(f, [&] { ++loads; });
        const std::unique_ptr<QThread> reader(QThread::create([&] { f.spy.watchRows(f.worker.get(), P("x:form")); }));
        reader->start();
        QVERIFY(reader->wait(20000));
        form.reset();
        QCoreApplication::processEvents();
        QCOMPARE(loads, 0);
    }
};

QTEST_GUILESS_MAIN(tst_OrvoForm)
#include "tst_orvoform.moc"
