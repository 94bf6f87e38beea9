#include "orvorowsmodel.h"

#include "core/model/cmmetatypes.h"
#include "core/model/cmnodes.h"
#include "core/model/cmnodesworker.h"
#include "core/model/cmrequest.h"
#include "core/model/cmroles.h"
#include "core/model/cmsubscribe.h"

#include <QListView>
#include <QScrollBar>
#include <QtTest>

namespace {

class CountingWorker : public CMNodesWorker
{
public:
    CountingWorker() : CMNodesWorker({}, "view") {}
    void getRowsRequest(const CMGetRowsRequest& request) override
    {
        ++requests;
        CMNodesWorker::getRowsRequest(request);
    }

    int requests = 0;
};

} // namespace

/// A list view of Qt on a long list, on a screen that nobody sees.
class tst_OrvoRowsModelView : public QObject
{
    Q_OBJECT

private:
    static constexpr int rows = 100000;
    CountingWorker* m_worker = nullptr;
    CMListRowsNode* m_list = nullptr;
    OrvoRowsModel* m_model = nullptr;
    QListView* m_view = nullptr;

    int firstShown() const { return m_view->indexAt(QPoint(2, 2)).row(); }
    int lastShown() const { return m_view->indexAt(QPoint(2, m_view->viewport()->height() - 2)).row(); }
    /// The rows on screen, without asking for any that are not there.
    QStringList shown() const
    {
        QStringList titles;
        for (int row = firstShown(); row <= lastShown(); ++row)
            titles.append(m_model->index(row).data().toString());
        return titles;
    }
    QStringList titles(int first, int count) const
    {
        QStringList titles;
        for (int row = first; row < first + count; ++row)
            titles.append(m_list->getRowRoles(row).title());
        return titles;
    }
    void deliver()
    {
        m_worker->subscribe()->deliver();
        QCoreApplication::processEvents();
    }

private slots:
    void initTestCase() { orvoRegisterMetaTypes(); }
    void init()
    {
        m_worker = new CountingWorker;
        const CMPath path = CMPath::fromEncoded("view:list");
        m_list = CMListRowsNode::create(m_worker->nodes(), path);
        for (int row = 0; row < rows; ++row)
            m_list->rowsAppend(OrvoRoles().setTitle(QString::number(row)));
        m_model = new OrvoRowsModel;
        m_model->setWorker(m_worker);
        m_model->setPath(path);
        m_view = new QListView;
        m_view->setUniformItemSizes(true);
        m_view->setModel(m_model);
        m_view->resize(200, 300);
        m_view->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_view));
        QTRY_COMPARE(m_model->count(), rows);
        QTRY_COMPARE(shown().value(0), QString("0"));
        QVERIFY(lastShown() > 5);
        QVERIFY(lastShown() < 40);
    }
    void cleanup()
    {
        delete m_view;
        delete m_model;
        delete m_worker;
    }

    void theFirstScreenIsOneRequest() { QCOMPARE(m_worker->requests, 1); }

    void whatIsScrolledToComes()
    {
        m_view->scrollTo(m_model->index(70000), QAbstractItemView::PositionAtTop);
        // Nothing but the view's own painting reads the rows.
        QSignalSpy changed(m_model, &OrvoRowsModel::dataChanged);
        QTRY_VERIFY(changed.count() > 0);
        QCOMPARE(m_worker->requests, 2);
        const int first = firstShown();
        QVERIFY(first > 69900);
        QCOMPARE(shown(), titles(first, lastShown() - first + 1));
    }

    void scrollingLineByLineFindsTheRowsLoaded()
    {
        const int shownRows = lastShown() + 1;
        for (int row = 0; row < 200; ++row) {
            m_view->scrollTo(m_model->index(row + shownRows), QAbstractItemView::PositionAtBottom);
            QCoreApplication::processEvents();
            QTRY_COMPARE(m_model->index(row + shownRows).data().toString(), QString::number(row + shownRows));
        }
        QVERIFY2(m_worker->requests < 15, qPrintable(QString::number(m_worker->requests)));
    }

    void selectionAndScrollPositionFollowTheList()
    {
        m_view->scrollTo(m_model->index(500), QAbstractItemView::PositionAtTop);
        QTRY_COMPARE(m_model->index(500).data().toString(), QString("500"));
        m_view->setCurrentIndex(m_model->index(502));
        m_list->rowsInsert(501, OrvoRoles().setTitle("new"));
        m_list->rowsRemoveAt(0);
        m_list->rowsMove(505, 3);
        deliver();
        QCOMPARE(m_view->currentIndex().row(), 503);
        QTRY_COMPARE(m_view->currentIndex().data().toString(), QString("502"));
        QCOMPARE(m_view->selectionModel()->selectedIndexes().value(0).row(), 503);
        const int first = firstShown();
        QVERIFY(qAbs(first - 500) < 3);
        QTRY_COMPARE(shown(), titles(first, lastShown() - first + 1));
        m_view->setCurrentIndex(m_model->index(0));
        m_list->rowsRemoveAt(0);
        deliver();
        QCOMPARE(m_view->currentIndex().row(), 0);
        QTRY_COMPARE(m_view->currentIndex().data().toString(), QString("2"));
    }

    void twoViewsAtDifferentPlacesComeToRest()
    {
        QListView other;
        other.setUniformItemSizes(true);
        other.setModel(m_model);
        other.resize(200, 300);
        other.show();
        QVERIFY(QTest::qWaitForWindowExposed(&other));
        other.scrollTo(m_model->index(50000), QAbstractItemView::PositionAtTop);
        QTRY_COMPARE(m_model->index(50000).data().toString(), QString("50000"));
        const int requests = m_worker->requests;
        QSignalSpy changed(m_model, &OrvoRowsModel::dataChanged);
        m_list->rowsSet(50001, OrvoRoles().setTitle("new"));
        deliver();
        QTRY_VERIFY(changed.count() > 0);
        QCoreApplication::processEvents();
        QTRY_COMPARE(m_model->index(50001).data().toString(), QString("new"));
        QVERIFY2(m_worker->requests <= requests + 2, qPrintable(QString::number(m_worker->requests - requests)));
    }
};

QTEST_MAIN(tst_OrvoRowsModelView)
#include "tst_orvorowsmodel_view.moc"
