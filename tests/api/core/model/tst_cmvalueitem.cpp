#include "core/model/cmvalueitem.h"

#include "core/model/cmsubscribe.h"
#include "logcapture.h"
#include "support/scriptedtest.h"

#include <QPointer>
#include <QSignalSpy>

#include <thread>

namespace {

OrvoValue number(int value)
{
    return OrvoValue().setI32_(value);
}

} // namespace

/// What an item tells, in order.
class ItemEar : public QObject
{
    Q_OBJECT
public:
    explicit ItemEar(CMValueItem* item) : m_item(item)
    {
        connect(item, SIGNAL(changed(OrvoValue,OrvoValue)), SLOT(onChanged(OrvoValue,OrvoValue)));
        connect(item, &CMValueItem::loadingChanged, this,
                [this](bool loading) { said.append(loading ? "loading" : "loaded"); });
    }
    QStringList said;
public slots:
    void onChanged(OrvoValue value, OrvoValue oldValue)
    {
        said.append(QStringLiteral("%1 <- %2 %3").arg(value.i32_()).arg(oldValue.i32_()).arg(m_item->isLoading()));
    }

private:
    CMValueItem* const m_item;
};

class Receiver : public QObject
{
    Q_OBJECT
public:
    QList<int> values;
public slots:
    void hear(OrvoValue value) { values.append(value.i32_()); }
};

class tst_CMValueItem : public ScriptedTest
{
    Q_OBJECT

private:
    CMReply<QVariantList> reply(int index) const
    {
        return request_cast<CMGetDataRequest>(m_worker->requests.at(index)).reply();
    }
    CMReply<QVariantList> lastReply() const { return reply(m_worker->requests.size() - 1); }
    void push(const CMPath& path, const OrvoValue& value)
    {
        m_worker->subscribe()->valueChanged(path, value.__variant());
    }

private slots:
    void withoutAPathItFollowsNothing()
    {
        CMValueItem item;
        QVERIFY(!item.isLoading());
        QVERIFY(item.path().isEmpty());
        QVERIFY(item.waitForLoaded(0));
        QVERIFY(m_worker->requests.isEmpty());
    }

    void itAsksForTheValueOnceItIsSubscribed()
    {
        bool subscribed = false;
        m_worker->onRequest = [&](const CMRequest& request) {
            subscribed = m_worker->subscribe()->valuePath(request.path());
        };
        CMValueItem item(nullptr, path("p:once?k=v"));
        QVERIFY(subscribed);
        QCOMPARE(m_worker->requests.size(), 1);
        QCOMPARE(m_worker->last<CMGetDataRequest>().roles(), QStringList(OrvoRoles::Value()));
        QCOMPARE(m_worker->requests.first().path(), path("p:once?k=v"));
        QVERIFY(item.isLoading());
    }

    void theFirstValueEndsTheLoading()
    {
        CMValueItem item(nullptr, path("p:a"));
        ItemEar ear(&item);
        reply(0).setValue({number(5).__variant()});
        QCOMPARE(item.value().i32_(), 0);
        QTRY_COMPARE(ear.said, (QStringList{"5 <- 0 1", "loaded"}));
        QVERIFY(!item.isLoading());
    }

    void theReceiverDoesNotHearOfTheFirstPath()
    {
        Receiver receiver;
        CMValueItem item(nullptr, path("p:a"), &receiver, SLOT(hear(OrvoValue)));
        QCOMPARE(receiver.values, QList<int>());
        reply(0).setValue({number(5).__variant()});
        QTRY_COMPARE(receiver.values, QList<int>{5});
    }

    void theReceiversConnectionTypeIsUsed()
    {
        Receiver receiver;
        CMValueItem item(nullptr, path("p:a"), &receiver, SLOT(hear(OrvoValue)), Qt::QueuedConnection);
        item.setValue(number(1), false);
        QCOMPARE(receiver.values, QList<int>());
        QTRY_COMPARE(receiver.values, QList<int>{1});
    }

    void anEmptyFirstValueEndsTheLoadingWithAChange()
    {
        CMValueItem item(nullptr, path("p:a"));
        ItemEar ear(&item);
        reply(0).setValue({QVariant()});
        QTRY_COMPARE(ear.said, (QStringList{"0 <- 0 1", "loaded"}));
    }

    void anAnswerWithoutAValueIsAnEmptyValue()
    {
        CMValueItem item(nullptr, path("p:a"));
        reply(0).setValue({});
        QTRY_VERIFY(!item.isLoading());
        QVERIFY(item.value().isEmpty());
    }

    void aPushedValueIsTakenAndCancelsTheFetch()
    {
        LogCapture log("CMValueItem");
        CMValueItem item(nullptr, path("p:pushed"));
        push(path("p:pushed"), number(7));
        QTRY_COMPARE(item.value().i32_(), 7);
        QVERIFY(!item.isLoading());
        QCOMPARE(reply(0).error().name(), CMVoidReply::ErrorCancel());
        QTRY_COMPARE(log.lines(), QStringList("TRACE [p:pushed] getData request already processed"));
        QCOMPARE(item.value().i32_(), 7);
        QCOMPARE(m_worker->requests.size(), 1);
    }

    void aValueInTheGapBetweenSubscriptionAndAnswerWins()
    {
        CMValueItem item(nullptr, path("p:gap"));
        push(path("p:gap"), number(2));
        reply(0).setValue({number(1).__variant()});
        QTRY_COMPARE(item.value().i32_(), 2);
        deleteWaiting();
        QCOMPARE(item.value().i32_(), 2);
    }

    void thePathIsFollowed()
    {
        CMValueItem item(nullptr, path("p:old"));
        reply(0).setValue({number(1).__variant()});
        QTRY_VERIFY(!item.isLoading());
        ItemEar ear(&item);
        QCOMPARE(item.setPath(path("p:new")), &item);
        QCOMPARE(ear.said, (QStringList{"0 <- 1 0", "loading"}));
        QVERIFY(!m_worker->subscribe()->valuePath(path("p:old")));
        QVERIFY(m_worker->subscribe()->valuePath(path("p:new")));
        QCOMPARE(m_worker->requests.size(), 2);
        item.setPath(CMPath());
        QCOMPARE(ear.said.mid(2), (QStringList{"0 <- 0 1", "loaded"}));
        QVERIFY(!m_worker->subscribe()->valuePath(path("p:new")));
        QCOMPARE(reply(1).error().name(), CMVoidReply::ErrorCancel());
    }

    void theSamePathAgainDoesNothing()
    {
        CMValueItem item(nullptr, path("p:a"));
        ItemEar ear(&item);
        item.setPath(path("p:a"));
        QCOMPARE(m_worker->requests.size(), 1);
        QCOMPARE(ear.said, QStringList());
        QVERIFY(!reply(0).isFinished());
    }

    void aChangeOfLoadingAloneIsAChange()
    {
        CMValueItem item;
        item.setValue(number(3), false);
        ItemEar ear(&item);
        item.setValue(number(3), true);
        QCOMPARE(ear.said, (QStringList{"3 <- 3 0", "loading"}));
        item.setValue(number(3), true);
        QCOMPARE(ear.said.size(), 2);
        QVERIFY(m_worker->requests.isEmpty());
    }

    void aFailedFetchIsRepeatedUntilItSucceeds()
    {
        LogCapture log("CMValueItem", log4cplus::DEBUG_LOG_LEVEL);
        CMValueItem item(nullptr, path("p:a"));
        ItemEar ear(&item);
        for (int tries = 1; tries <= 3; ++tries) {
            lastReply().setError(CMError("gone", "", ""));
            QTRY_COMPARE(m_worker->requests.size(), tries + 1);
            QVERIFY(item.isLoading());
        }
        QCOMPARE(ear.said, QStringList());
        QCOMPARE(log.lines().count("DEBUG [p:a] gone"), 3);
        lastReply().setValue({number(4).__variant()});
        QTRY_COMPARE(item.value().i32_(), 4);
    }

    void theWarningComesOnceAtTheLongestDelay()
    {
        LogCapture log("CMValueItem", log4cplus::WARN_LOG_LEVEL);
        CMValueItem item(nullptr, path("p:warn"));
        // 20 ms doubled ten times is cut to 20 s; each failure is brought on without waiting the delay out.
        const auto failOnce = [&] {
            lastReply().setError(CMError("gone", "", ""));
            QCoreApplication::sendPostedEvents();
            QVERIFY(QMetaObject::invokeMethod(&item, "on_getData"));
        };
        for (int i = 0; i < 10; ++i)
            failOnce();
        QCOMPARE(log.lines(), QStringList());
        failOnce();
        QCOMPARE(log.lines(), QStringList("WARN p:warn: at max repeat time, retrying..."));
        failOnce();
        failOnce();
        QCOMPARE(log.lines().size(), 1);
        // A success starts anew.
        lastReply().setValue({number(1).__variant()});
        QTRY_VERIFY(!item.isLoading());
        item.setPath(path("p:warn2"));
        for (int i = 0; i < 10; ++i)
            failOnce();
        QCOMPARE(log.lines().size(), 1);
        failOnce();
        QCOMPARE(log.lines().size(), 2);
        item.setPath(CMPath());
    }

    void aReplyThatIsNotTheExpectedOneIsTakenWithAWarning()
    {
        LogCapture log("CMValueItem", log4cplus::WARN_LOG_LEVEL);
        CMValueItem item(nullptr, path("p:a"));
        const CMReply<QVariantList> other;
        other.setValue({number(9).__variant()});
        QVERIFY(QMetaObject::invokeMethod(&item, "on_getData_finished", Q_ARG(CMVoidReply, other)));
        QCOMPARE(item.value().i32_(), 9);
        QCOMPARE(log.lines(), QStringList("WARN [p:a] Non matching reply"));
    }

    // Waiting

    void waitingTakesTheReplyItself()
    {
        LogCapture log("CMValueItem");
        CMValueItem item(nullptr, path("p:wait"));
        std::thread answer([this] { reply(0).setValue({number(5).__variant()}); });
        QVERIFY(item.waitForLoaded(10000));
        answer.join();
        QCOMPARE(item.value().i32_(), 5);
        QCOMPARE(log.lines(),
                 QStringList("DEBUG Waiting for the initial request to path p:wait to finish, timeout: 10000"));
        QTRY_COMPARE(log.lines().size(), 2);
        QCOMPARE(log.lines().last(), QString("TRACE [p:wait] getData request already processed"));
        QVERIFY(item.waitForLoaded(0));
    }

    void waitingGivesUp()
    {
        LogCapture log("CMValueItem", log4cplus::ERROR_LOG_LEVEL);
        CMValueItem item(nullptr, path("p:wait"));
        QVERIFY(!item.waitForLoaded(1));
        QCOMPARE(log.lines(),
                 QStringList("ERROR Waiting for the initial request to path p:wait to finish exceeded timeout"));
        QVERIFY(item.isLoading());
        reply(0).setValue({number(5).__variant()});
        QTRY_COMPARE(item.value().i32_(), 5);
    }

    void aFailedFetchEndsTheWaitingAndGoesOn()
    {
        CMValueItem item(nullptr, path("p:wait"));
        reply(0).setError(CMError("gone", "", ""));
        QVERIFY(item.waitForLoaded(10000));
        QVERIFY(item.isLoading());
        // Nothing is in flight between two tries.
        QVERIFY(item.waitForLoaded(10000));
        QTRY_COMPARE(m_worker->requests.size(), 2);
    }

    void stoppingGivesUpTheNextTry()
    {
        CMValueItem item(nullptr, path("p:a"));
        reply(0).setError(CMError("gone", "", ""));
        QVERIFY(item.waitForLoaded(10000));
        item.stopGetData();
        QTest::qWait(50);
        QCOMPARE(m_worker->requests.size(), 1);
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
        QPointer<CMValueItem> item(new CMValueItem(nullptr, path("p:a")));
        Receiver receiver;
        if (inLoading)
            connect(item, &CMValueItem::loadingChanged, this, [&] { delete item.data(); });
        else
            connect(item, &CMValueItem::changed, this, [&] { delete item.data(); });
        reply(0).setValue({number(5).__variant()});
        QTRY_VERIFY(!item);
    }

    void itMayDieWithAFetchInFlight()
    {
        {
            CMValueItem item(nullptr, path("p:a"));
        }
        reply(0).setValue({number(5).__variant()});
        deleteWaiting();
    }
};

QTEST_GUILESS_MAIN(tst_CMValueItem)
#include "tst_cmvalueitem.moc"
