#include "core/model/cmitem.h"

#include "core/model/cmsubscribe.h"
#include "logcapture.h"
#include "support/scriptedtest.h"

#include <QPointer>
#include <QSignalSpy>

/// What an item tells, in order.
class ItemEar : public QObject
{
    Q_OBJECT
public:
    explicit ItemEar(CMItem* item)
    {
        connect(item, SIGNAL(changed(OrvoRoles,OrvoRoles)), SLOT(onChanged(OrvoRoles,OrvoRoles)));
        connect(item, &CMItem::loadingChanged, this,
                [this](bool loading) { said.append(loading ? "loading" : "loaded"); });
    }
    QStringList said;
public slots:
    void onChanged(OrvoRoles roles, OrvoRoles oldRoles) { said.append(roles.id() + " <- " + oldRoles.id()); }
};

class Receiver : public QObject
{
    Q_OBJECT
public:
    QStringList ids;
public slots:
    void hear(OrvoRoles roles) { ids.append(roles.id()); }
};

class tst_CMItem : public ScriptedTest
{
    Q_OBJECT

private:
    CMReply<QVariantList> reply(int index) const
    {
        return request_cast<CMGetDataRequest>(m_worker->requests.at(index)).reply();
    }
    /// Several turns of the event loop, in which nothing more may come.
    static void turn()
    {
        for (int i = 0; i < 5; ++i)
            QCoreApplication::processEvents();
        QTest::qWait(2);
    }

private slots:
    void withoutAPathItIsLoadingAndAsksNothing()
    {
        CMItem item;
        QVERIFY(item.isLoading());
        turn();
        QVERIFY(m_worker->requests.isEmpty());
    }

    void itAsksForAllRolesOnceItIsSubscribed()
    {
        CMItem item(nullptr, path("p:all?k=v"));
        QVERIFY(m_worker->subscribe()->dataPath(path("p:all?k=v")));
        QVERIFY(m_worker->requests.isEmpty());
        QTRY_COMPARE(m_worker->requests.size(), 1);
        QCOMPARE(m_worker->last<CMGetDataRequest>().roles(), CMAllRoles());
        QCOMPARE(m_worker->requests.first().path(), path("p:all?k=v"));
    }

    void theRolesEndTheLoading()
    {
        Receiver receiver;
        CMItem item(nullptr, path("p:a"), &receiver, SLOT(hear(OrvoRoles)));
        ItemEar ear(&item);
        QTRY_COMPARE(m_worker->requests.size(), 1);
        reply(0).setValue(rowValues("x"));
        QCOMPARE(item.roles().id(), QString());
        QTRY_COMPARE(ear.said, (QStringList{"x <- ", "loaded"}));
        QCOMPARE(receiver.ids, QStringList("x"));
        QVERIFY(!item.isLoading());
        QCOMPARE(item.roles().__hash().size(), 1);
    }

    void aNodeWithoutRolesStaysLoading()
    {
        CMItem item(nullptr, path("p:a"));
        ItemEar ear(&item);
        QTRY_COMPARE(m_worker->requests.size(), 1);
        reply(0).setValue(rowValues(""));
        turn();
        QVERIFY(item.isLoading());
        QCOMPARE(ear.said, QStringList());
    }

    void tenChangesOfOneTurnAreOneFetch()
    {
        CMItem item(nullptr, path("p:ten"));
        QTRY_COMPARE(m_worker->requests.size(), 1);
        reply(0).setValue(rowValues("x"));
        QTRY_VERIFY(!item.isLoading());
        for (int i = 0; i < 10; ++i)
            QVERIFY(QMetaObject::invokeMethod(&item, "on_dataChanged", Q_ARG(CMPath, path("p:ten"))));
        QTRY_COMPARE(m_worker->requests.size(), 2);
        reply(1).setValue(rowValues("y"));
        QTRY_COMPARE(item.roles().id(), QString("y"));
        turn();
        QCOMPARE(m_worker->requests.size(), 2);
    }

    void changesDuringAFetchAreOneFurtherFetch()
    {
        LogCapture log("CMItem");
        CMItem item(nullptr, path("p:during"));
        QTRY_COMPARE(m_worker->requests.size(), 1);
        for (int i = 0; i < 3; ++i) {
            m_worker->subscribe()->dataChanged(path("p:during"));
            turn();
        }
        QVERIFY(log.lines().contains("TRACE [p:during] m_request active"));
        QCOMPARE(m_worker->requests.size(), 1);
        reply(0).setValue(rowValues("x"));
        QTRY_COMPARE(m_worker->requests.size(), 2);
        reply(1).setValue(rowValues("y"));
        QTRY_COMPARE(item.roles().id(), QString("y"));
        turn();
        QCOMPARE(m_worker->requests.size(), 2);
    }

    void aFailedFetchWaitsForTheNextChange()
    {
        LogCapture log("CMItem", log4cplus::DEBUG_LOG_LEVEL);
        CMItem item(nullptr, path("p:fail"));
        QTRY_COMPARE(m_worker->requests.size(), 1);
        reply(0).setValue(rowValues("x"));
        QTRY_VERIFY(!item.isLoading());
        ItemEar ear(&item);
        m_worker->subscribe()->dataChanged(path("p:fail"));
        QTRY_COMPARE(m_worker->requests.size(), 2);
        reply(1).setError(CMError("gone", "", ""));
        turn();
        QCOMPARE(log.lines(), QStringList("DEBUG [p:fail] gone"));
        QCOMPARE(item.roles().id(), QString("x"));
        QCOMPARE(m_worker->requests.size(), 2);
        QCOMPARE(ear.said, QStringList());
        m_worker->subscribe()->dataChanged(path("p:fail"));
        QTRY_COMPARE(m_worker->requests.size(), 3);
    }

    void aChangeOfAnotherPathIsIgnored()
    {
        CMItem item(nullptr, path("p:a"));
        QTRY_COMPARE(m_worker->requests.size(), 1);
        reply(0).setValue(rowValues("x"));
        QTRY_VERIFY(!item.isLoading());
        QVERIFY(QMetaObject::invokeMethod(&item, "on_dataChanged", Q_ARG(CMPath, path("p:b"))));
        turn();
        QCOMPARE(m_worker->requests.size(), 1);
    }

    void theSamePathAgainDoesNothing()
    {
        CMItem item(nullptr, path("p:a"));
        ItemEar ear(&item);
        QTRY_COMPARE(m_worker->requests.size(), 1);
        QCOMPARE(item.setPath(path("p:a")), &item);
        turn();
        QCOMPARE(m_worker->requests.size(), 1);
        QVERIFY(!reply(0).isFinished());
        QCOMPARE(ear.said, QStringList());
    }

    void anotherPathCancelsTheFetchAndClearsTheRoles()
    {
        CMItem item(nullptr, path("p:old"));
        QTRY_COMPARE(m_worker->requests.size(), 1);
        reply(0).setValue(rowValues("x"));
        QTRY_VERIFY(!item.isLoading());
        m_worker->subscribe()->dataChanged(path("p:old"));
        QTRY_COMPARE(m_worker->requests.size(), 2);
        ItemEar ear(&item);
        item.setPath(path("p:new"));
        QCOMPARE(reply(1).error().name(), CMVoidReply::ErrorCancel());
        QCOMPARE(ear.said, (QStringList{" <- x", "loading"}));
        QVERIFY(!m_worker->subscribe()->dataPath(path("p:old")));
        QVERIFY(m_worker->subscribe()->dataPath(path("p:new")));
        QTRY_COMPARE(m_worker->requests.size(), 3);
        QCOMPARE(m_worker->requests.last().path(), path("p:new"));
    }

    void anEmptyPathCountsAsLoading()
    {
        CMItem item(nullptr, path("p:a"));
        QTRY_COMPARE(m_worker->requests.size(), 1);
        reply(0).setValue(rowValues("x"));
        QTRY_VERIFY(!item.isLoading());
        ItemEar ear(&item);
        item.setPath(CMPath());
        QCOMPARE(ear.said, (QStringList{" <- x", "loading"}));
        turn();
        QCOMPARE(m_worker->requests.size(), 1);
    }

    void aReplyThatIsNotTheExpectedOneIsTakenWithAWarning()
    {
        LogCapture log("CMItem", log4cplus::WARN_LOG_LEVEL);
        CMItem item(nullptr, path("p:a"));
        const CMReply<QVariantList> other;
        other.setValue(rowValues("z"));
        QVERIFY(QMetaObject::invokeMethod(&item, "on_getData_finished", Q_ARG(CMVoidReply, other)));
        QCOMPARE(item.roles().id(), QString("z"));
        QCOMPARE(log.lines(), QStringList("WARN [p:a] Non matching reply"));
    }

    void anAnswerOfTheWrongSizeDoesNotStopTheProcess()
    {
        LogCapture log("CMItem", log4cplus::ERROR_LOG_LEVEL);
        CMItem item(nullptr, path("p:a"));
        QTRY_COMPARE(m_worker->requests.size(), 1);
        reply(0).setValue({1, 2});
        QTRY_COMPARE(log.lines().size(), 1);
        QVERIFY(item.isLoading());
    }

    void storedRolesAreToldWhenTheyDiffer()
    {
        CMItem item;
        ItemEar ear(&item);
        item.setRoles(OrvoRoles().setId("x"));
        item.setRoles(OrvoRoles().setId("x"));
        item.setRoles(OrvoRoles().setId("y"));
        item.setRoles(OrvoRoles());
        QCOMPARE(ear.said, (QStringList{"x <- ", "loaded", "y <- x", " <- y", "loading"}));
        QVERIFY(m_worker->requests.isEmpty());
    }

    void itMayBeDestroyedInsideItsSignals_data()
    {
        QTest::addColumn<bool>("inLoading");
        QTest::newRow("changed") << false;
        QTest::newRow("loadingChanged") << true;
    }
    void itMayBeDestroyedInsideItsSignals()
    {
        QFETCH(bool, inLoading);
        QPointer<CMItem> item(new CMItem(nullptr, path("p:a")));
        if (inLoading)
            connect(item, &CMItem::loadingChanged, this, [&] { delete item.data(); });
        else
            connect(item, &CMItem::changed, this, [&] { delete item.data(); });
        QTRY_COMPARE(m_worker->requests.size(), 1);
        reply(0).setValue(rowValues("x"));
        QTRY_VERIFY(!item);
    }

    void itMayDieWithAFetchInFlight()
    {
        {
            CMItem item(nullptr, path("p:a"));
            QTRY_COMPARE(m_worker->requests.size(), 1);
        }
        reply(0).setValue(rowValues("x"));
        deleteWaiting();
    }
};

QTEST_GUILESS_MAIN(tst_CMItem)
#include "tst_cmitem.moc"
