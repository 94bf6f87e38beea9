#include <malloc.h>

#include "core/model/cmrowsbrowser.h"

#include "core/model/cmmetatypes.h"
#include "core/model/cmnodes.h"
#include "core/model/cmnodesworker.h"
#include "support/allocationcount.h"
#include "support/scriptedrows.h"

namespace {

class CountingWorker : public CMNodesWorker
{
public:
    CountingWorker() : CMNodesWorker({}, "cost") {}
    void getRowsRequest(const CMGetRowsRequest& request) override
    {
        ++requests;
        CMNodesWorker::getRowsRequest(request);
    }
    int requests = 0;
};

/// Answers for a list of any length without keeping it.
class EndlessWorker : public CMWorker
{
public:
    explicit EndlessWorker(int rows) : CMWorker({}, "endless"), m_rows(rows) {}
    void getDataRequest(const CMGetDataRequest&) override {}
    void matchRowRequest(const CMMatchRowRequest&) override {}
    void setDataRequest(const CMSetDataRequest&) override {}
    void getRowsRequest(const CMGetRowsRequest& request) override
    {
        QVariantList rows;
        for (int row = request.fromRow(); row <= qMin(request.toRow(), m_rows - 1); ++row)
            rows.append(QVariant(rowValues(QString("row%1").arg(row % 100, 10))));
        request.reply().setValue(OrvoRowsRoles().setRows(rows).setRowsCount(m_rows).setRowsVersion(1));
    }

private:
    const int m_rows;
};

void load(CMRowsBrowser* browser)
{
    do {
        QMetaObject::invokeMethod(browser, "triggerTimeout");
        deleteWaiting();
    } while (browser->calculateFromToRow().first >= 0);
    browser->findChild<QTimer*>()->stop();
}

/// Bytes that a browser holds after a walk through a list of so many rows.
qint64 memoryOver(int rows)
{
    EndlessWorker worker(rows);
    const auto before = mallinfo2().uordblks;
    CMRowsBrowser browser;
    browser.setWorker(&worker);
    browser.setRoles(CMAllRoles());
    browser.setRadius(10);
    browser.setPath(CMPath::fromEncoded("endless:list"));
    browser.setActive(true);
    load(&browser);
    for (int part = 0; part <= 50; ++part) {
        browser.setCurrentRow(qint64(part) * (rows - 1) / 50);
        load(&browser);
    }
    for (int step = 0; step < 40; ++step) {
        browser.setCurrentRow(browser.currentRow() - 1);
        load(&browser);
    }
    return qint64(mallinfo2().uordblks) - qint64(before);
}

} // namespace

/// What a view of a long list may cost.
class tst_CMRowsBrowserCost : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { orvoRegisterMetaTypes(); }

    void theFirstScreenOfALongListIsOneRequest()
    {
        CountingWorker worker;
        const CMPath path = CMPath::fromEncoded("cost:list");
        CMListRowsNode* node = CMListRowsNode::create(worker.nodes(), path);
        for (int row = 0; row < 100000; ++row)
            node->rowsAppend(OrvoRoles().setId(QString::number(row)));
        CMRowsBrowser browser;
        browser.setWorker(&worker);
        browser.setRoles(CMAllRoles());
        browser.setRadius(10);
        browser.setPath(path);
        browser.setActive(true);
        QSignalSpy shown(&browser, SIGNAL(itemsChanged()));
        QTRY_COMPARE(shown.count(), 1);
        QCOMPARE(browser.item(10).id(), QString("10"));
        QCOMPARE(browser.size().count(), 100000);
        // No further one is due either.
        QVERIFY(!browser.findChild<QTimer*>()->isActive());
        QCoreApplication::processEvents();
        QCOMPARE(worker.requests, 1);
    }

    void aStepAmongLoadedRowsAllocatesNothing()
    {
        ScriptedRows list(10, 1000);
        list.load();
        for (int row = 1; row < 40; ++row) {
            list.browser.setCurrentRow(row);
            list.load();
        }
        int heard = 0;
        connect(&list.browser, &CMRowsBrowser::currentRowChanged, this, [&heard] { ++heard; });
        connect(&list.browser, &CMRowsBrowser::currentItemChanged, this, [&heard] { ++heard; });
        connect(&list.browser, &CMRowsBrowser::updated, this, [&heard] { ++heard; });
        const int requests = list.requests();
        for (int row = 38; row > 10; --row)
            QCOMPARE(allocationsOf([&] { list.browser.setCurrentRow(row); }), 0);
        QCOMPARE(heard, 28 * 4);
        QCOMPARE(list.due(), -1);
        QCOMPARE(list.look(), QString("nothing"));
        QCOMPARE(list.requests(), requests);
        // The counter counts.
        QVERIFY(allocationsOf([&] { list.browser.setCurrentRow(500); }) > 0);
    }

    void aViewOfALongListHoldsNoMoreThanThatOfAShortOne()
    {
        memoryOver(100);
        const qint64 small = memoryOver(100);
        const qint64 large = memoryOver(100000);
        qInfo("%lld bytes over 100 rows, %lld over 100,000", small, large);
        QVERIFY(qAbs(large - small) <= 64 * 1024);
    }
};

QTEST_GUILESS_MAIN(tst_CMRowsBrowserCost)
#include "tst_cmrowsbrowser_cost.moc"
