#include "core/model/cmrowsbrowser.h"

#include "cmremoteworker.h"
#include "core/model/cmbrowser.h"
#include "core/model/cmmetatypes.h"
#include "core/model/cmroles.h"
#include "core/model/cmrpcclient.h"
#include "support/linkfixture.h"

namespace {

class CountingWorker : public CMRemoteWorker
{
public:
    using CMRemoteWorker::CMRemoteWorker;
    void getRowsRequest(const CMGetRowsRequest& request) override
    {
        ++requests;
        CMRemoteWorker::getRowsRequest(request);
    }
    int requests = 0;
};

} // namespace

/// Browsers on the list of another process.
class tst_CMRowsBrowserLink : public QObject
{
    Q_OBJECT

private:
    const QString m_service = serviceName("browse");
    const CMPath m_prefix = CMPath::fromPrefix(m_service);

    void setUp(CMRowsBrowser* browser, CMAbstractWorker* worker) const
    {
        browser->setWorker(worker);
        browser->setRoles(CMAllRoles());
        browser->setRadius(2);
        browser->setPath(m_prefix + "list");
        browser->setActive(true);
    }

private slots:
    void initTestCase() { orvoRegisterMetaTypes(); }
    void cleanup() { deleteWaiting(); }

    void theFirstScreenIsOneRequest_data()
    {
        QTest::addColumn<bool>("serviceFirst");
        QTest::newRow("the service is there") << true;
        QTest::newRow("the service comes later") << false;
    }
    void theFirstScreenIsOneRequest()
    {
        QFETCH(bool, serviceFirst);
        ServerProcess server(m_service);
        if (serviceFirst)
            QVERIFY(server.start({"--rows", "1000"}));
        CountingWorker worker("viewer", m_service);
        CMRowsBrowser browser;
        setUp(&browser, &worker);
        QTRY_COMPARE(worker.requests, 1);
        if (!serviceFirst)
            QVERIFY(server.start({"--rows", "1000"}));
        QTRY_COMPARE(browser.size().count(), 1000);
        QCOMPARE(browser.item(2).id(), QString("2"));
        QVERIFY(!browser.findChild<QTimer*>()->isActive());
        QCOMPARE(worker.requests, 1);
        QVERIFY(!browser.error().isError());
    }

    void changesOfTheServiceReachTheWindow()
    {
        ServerProcess server(m_service);
        QVERIFY(server.start({"--rows", "1000"}));
        CMRemoteWorker worker("viewer", m_service);
        CMRowsBrowser browser;
        setUp(&browser, &worker);
        QTRY_VERIFY(!browser.isLoading());
        browser.setCurrentRow(500);
        QTRY_COMPARE(browser.item(502).id(), QString("502"));
        worker.invoke(m_prefix + "edit", QVariant("insert 3 new"));
        QTRY_COMPARE(browser.currentRow(), 501);
        QCOMPARE(browser.item(501).id(), QString("500"));
        worker.invoke(m_prefix + "edit", QVariant("set 502 other"));
        QTRY_COMPARE(browser.item(502).id(), QString("other"));
        worker.invoke(m_prefix + "edit", QVariant("clear"));
        QTRY_COMPARE(browser.size().count(), 0);
        QTRY_VERIFY(!browser.isLoading());
    }

    void aServiceThatRestartsIsReadAnew()
    {
        ServerProcess server(m_service);
        QVERIFY(server.start({"--rows", "1000"}));
        CMRemoteWorker worker("viewer", m_service);
        CMRowsBrowser browser;
        setUp(&browser, &worker);
        QTRY_VERIFY(!browser.isLoading());
        browser.setCurrentRow(500);
        server.kill();
        QTRY_VERIFY(browser.isLoading());
        QCOMPARE(browser.currentRow(), 0);
        QVERIFY(server.start({"--rows", "7"}));
        QTRY_COMPARE(browser.size().count(), 7);
        QTRY_COMPARE(browser.item(2).id(), QString("2"));
        worker.invoke(m_prefix + "append", QVariant());
        QTRY_COMPARE(browser.size().count(), 8);
    }

    void aStackOfScreensSurvivesTheRestart()
    {
        ServerProcess server(m_service);
        QVERIFY(server.start({"--rows", "10"}));
        CMRemoteWorker worker("viewer", m_service);
        CMBrowser stack(&worker);
        stack.setRoles(CMAllRoles());
        stack.setRadius(2);
        stack.setActive(true);
        stack.open(m_prefix + "list");
        const CMReply<QVariant> path;
        stack.open(CMVariantReply(path));
        path.setValue((m_prefix + "list").addParam("a", "1").__variant());
        QTRY_COMPARE(stack.topRows()->item(2).id(), QString("2"));
        QTRY_COMPARE(stack.rows().first()->item(2).id(), QString("2"));
        server.kill();
        QTRY_VERIFY(stack.topRows()->isLoading());
        QVERIFY(server.start({"--rows", "3"}));
        QTRY_COMPARE(stack.topRows()->size().count(), 3);
        QTRY_COMPARE(stack.rows().first()->size().count(), 3);
        QVERIFY(stack.closeTop());
        QCOMPARE(stack.topRows()->path(), m_prefix + "list");
    }

    void aListThatIsNotThereIsAnError()
    {
        ServerProcess server(m_service);
        QVERIFY(server.start());
        CMRemoteWorker worker("viewer", m_service);
        CMRowsBrowser browser;
        setUp(&browser, &worker);
        QSignalSpy errors(&browser, SIGNAL(errorChanged(CMError)));
        browser.setPath(m_prefix + "nothing");
        QTRY_COMPARE(errors.count(), 1);
        QCOMPARE(browser.error().name(), CMAbstractWorker::ErrorInvalidPath());
        browser.setPath(m_prefix + "list");
        QTRY_COMPARE(browser.size().count(), 10);
        QVERIFY(!browser.error().isError());
    }
};

QTEST_GUILESS_MAIN(tst_CMRowsBrowserLink)
#include "tst_cmrowsbrowser_link.moc"
