#include "core/model/cminitwatcher.h"

#include "cmremoteworker.h"
#include "core/model/cmitem.h"
#include "core/model/cmsubscribe.h"
#include "core/model/cmvalueitem.h"
#include "logcapture.h"
#include "nodetest.h"
#include "support/linkfixture.h"

#include <QPointer>
#include <QSignalSpy>

namespace {

OrvoValue number(int value)
{
    return OrvoValue().setI32_(value);
}

CMPath path(const QString& text)
{
    return CMPath::fromEncoded(text);
}

} // namespace

/// The owner of a watcher: what its slots are told, in order.
class Owner : public QObject
{
    Q_OBJECT
public:
    QStringList said;
public slots:
    void onRoles(OrvoRoles roles, OrvoRoles oldRoles) { said.append(roles.id() + " <- " + oldRoles.id()); }
    void onValue(OrvoValue value, OrvoValue oldValue)
    {
        said.append(QStringLiteral("%1 <- %2").arg(value.i32_()).arg(oldValue.i32_()));
    }
    void onDone() { said.append("done"); }
};

class tst_CMInitWatcher : public QObject
{
    Q_OBJECT

private:
    ScriptedWorker* m_worker = nullptr;
    Owner* m_owner = nullptr;
    CMInitWatcher* m_watcher = nullptr;

    /// The newest request at the path; waits until it is there and open.
    CMReply<QVariantList> open(const QString& text)
    {
        CMGetDataRequest found;
        const bool came = QTest::qWaitFor([&] {
            for (const CMRequest& request : qAsConst(m_worker->requests))
                if (request.path() == path(text) && !request.reply().isFinished())
                    found = request_cast<CMGetDataRequest>(request);
            return !found.isNull();
        });
        return came ? found.reply() : CMReply<QVariantList>();
    }
    void answerRoles(const QString& text, const QString& id) { open(text).setValue(rowValues(id)); }
    void answerValue(const QString& text, int value) { open(text).setValue({number(value).__variant()}); }
    void push(const QString& text, int value)
    {
        m_worker->subscribe()->valueChanged(path(text), number(value).__variant());
    }
    CMItem* newItem(const QString& text)
    {
        return m_watcher->newCMItem(path(text), m_owner, SLOT(onRoles(OrvoRoles,OrvoRoles)));
    }
    CMValueItem* newValueItem(const QString& text)
    {
        return m_watcher->newCMValueItem(path(text), m_owner, SLOT(onValue(OrvoValue,OrvoValue)));
    }
    /// Several turns of the event loop, in which nothing more may come.
    static void turn()
    {
        for (int i = 0; i < 5; ++i)
            QCoreApplication::processEvents();
        QTest::qWait(2);
    }

private slots:
    void initTestCase()
    {
        m_worker = new ScriptedWorker;
        ForwardingRoot::instance()->reset(m_worker);
    }
    void cleanupTestCase() { delete m_worker; }
    void init()
    {
        m_owner = new Owner;
        m_watcher = new CMInitWatcher(m_owner, "player");
        connect(m_watcher, SIGNAL(done()), m_owner, SLOT(onDone()));
    }
    void cleanup()
    {
        delete m_owner;
        m_worker->clear();
        deleteWaiting();
    }

    void itIsDoneWhenAllItemsHoldTheirFirstData()
    {
        LogCapture log("CMInitWatcher");
        const CMItem* item = newItem("p:item");
        const CMValueItem* value = newValueItem("p:value");
        QCOMPARE(item->path(), path("p:item"));
        QCOMPARE(item->parent(), m_watcher);
        QCOMPARE(value->path(), path("p:value"));
        QCOMPARE(value->parent(), m_watcher);
        answerValue("p:value", 1);
        QTRY_VERIFY(!value->isLoading());
        QCOMPARE(m_owner->said, QStringList());
        answerRoles("p:item", "x");
        QTRY_COMPARE(m_owner->said, QStringList("done"));
        QCOMPARE(item->roles().id(), QString("x"));
        QCOMPARE(value->value().i32_(), 1);
        QCOMPARE(log.lines().size(), 3);
        QVERIFY(log.lines().at(0).startsWith("DEBUG [player] path=p:item -> 0x"));
        QVERIFY(log.lines().at(1).startsWith("DEBUG [player] path=p:value -> 0x"));
        QCOMPARE(log.lines().at(2), QString("DEBUG [player] All watched items loaded -> continue"));
    }

    void theOwnersSlotsHearOfEachChangeAfterItIsDone()
    {
        newItem("p:item");
        newValueItem("p:value");
        answerRoles("p:item", "x");
        answerValue("p:value", 1);
        QTRY_COMPARE(m_owner->said, QStringList("done"));
        push("p:value", 2);
        QTRY_COMPARE(m_owner->said.mid(1), QStringList("2 <- 1"));
        m_worker->subscribe()->dataChanged(path("p:item"));
        answerRoles("p:item", "y");
        QTRY_COMPARE(m_owner->said.mid(2), QStringList("y <- x"));
        push("p:value", 3);
        QTRY_COMPARE(m_owner->said.mid(3), QStringList("3 <- 2"));
    }

    void aChangeWhileOthersArePendingIsNeitherToldNorCountedAgain()
    {
        newItem("p:item");
        CMValueItem* value = newValueItem("p:value");
        newValueItem("p:late");
        answerRoles("p:item", "x");
        push("p:value", 1);
        QTRY_COMPARE(value->value().i32_(), 1);
        for (int i = 2; i < 5; ++i) {
            push("p:value", i);
            QTRY_COMPARE(value->value().i32_(), i);
        }
        value->setValue(number(4), true);
        value->setValue(number(4), false);
        m_worker->subscribe()->dataChanged(path("p:item"));
        answerRoles("p:item", "y");
        turn();
        QCOMPARE(m_owner->said, QStringList());
        answerValue("p:late", 9);
        QTRY_COMPARE(m_owner->said, QStringList("done"));
    }

    void aPushedValueEndsTheWaitForItsItem()
    {
        newValueItem("p:value");
        push("p:value", 7);
        QTRY_COMPARE(m_owner->said, QStringList("done"));
    }

    void anEmptyValueCounts()
    {
        newValueItem("p:value");
        open("p:value").setValue({QVariant()});
        QTRY_COMPARE(m_owner->said, QStringList("done"));
    }

    void aValueItemWithoutAPathIsNeverLoaded()
    {
        newValueItem("");
        newValueItem("p:value");
        answerValue("p:value", 1);
        turn();
        QCOMPARE(m_owner->said, QStringList());
    }

    void anItemWithoutRolesIsNotLoadedYet()
    {
        newItem("p:item");
        answerRoles("p:item", "");
        turn();
        QCOMPARE(m_owner->said, QStringList());
        m_worker->subscribe()->dataChanged(path("p:item"));
        answerRoles("p:item", "x");
        QTRY_COMPARE(m_owner->said, QStringList("done"));
    }

    void aFailureIsWaitedOut()
    {
        newValueItem("p:value");
        open("p:value").setError(CMError("gone", "", ""));
        turn();
        QCOMPARE(m_owner->said, QStringList());
        answerValue("p:value", 1);
        QTRY_COMPARE(m_owner->said, QStringList("done"));
    }

    void aLaterItemMakesAFurtherDone()
    {
        newValueItem("p:value");
        answerValue("p:value", 1);
        QTRY_COMPARE(m_owner->said, QStringList("done"));
        newItem("p:item");
        push("p:value", 2);
        QTRY_COMPARE(m_owner->said, (QStringList{"done", "2 <- 1"}));
        answerRoles("p:item", "x");
        QTRY_COMPARE(m_owner->said, (QStringList{"done", "2 <- 1", "done"}));
    }

    void anItemMadeInsideDoneIsWaitedFor()
    {
        CMValueItem* second = nullptr;
        connect(m_watcher, &CMInitWatcher::done, m_owner, [&] {
            if (!second)
                second = newValueItem("p:second");
        });
        newValueItem("p:first");
        answerValue("p:first", 1);
        QTRY_VERIFY(second);
        turn();
        QCOMPARE(m_owner->said, QStringList("done"));
        answerValue("p:second", 2);
        QTRY_COMPARE(m_owner->said, (QStringList{"done", "done"}));
    }

    void withoutAReceiverOnlyDoneIsTold()
    {
        CMItem* item = m_watcher->newCMItem(path("p:item"));
        m_watcher->newCMValueItem(path("p:value"));
        answerRoles("p:item", "x");
        answerValue("p:value", 1);
        QTRY_COMPARE(m_owner->said, QStringList("done"));
        push("p:value", 2);
        item->setRoles(OrvoRoles().setId("y"));
        turn();
        QCOMPARE(m_owner->said, QStringList("done"));
    }

    void theReceiversConnectionTypeIsUsed()
    {
        CMValueItem* value = m_watcher->newCMValueItem(path("p:value"), m_owner,
                                                       SLOT(onValue(OrvoValue,OrvoValue)), Qt::QueuedConnection);
        CMItem* item =
            m_watcher->newCMItem(path("p:item"), m_owner, SLOT(onRoles(OrvoRoles,OrvoRoles)), Qt::QueuedConnection);
        answerValue("p:value", 1);
        answerRoles("p:item", "x");
        QTRY_COMPARE(m_owner->said, QStringList("done"));
        value->setValue(number(2), false);
        item->setRoles(OrvoRoles().setId("y"));
        QCOMPARE(m_owner->said, QStringList("done"));
        QTRY_COMPARE(m_owner->said, (QStringList{"done", "2 <- 1", "y <- x"}));
    }

    void theWarningNamesWhatIsWaitedFor()
    {
        LogCapture log("CMInitWatcher", log4cplus::WARN_LOG_LEVEL);
        newItem("p:a");
        CMItem* loaded = newItem("p:b");
        newValueItem("p:c?k=v");
        newValueItem("p:d");
        answerRoles("p:b", "x");
        QTRY_VERIFY(!loaded->isLoading());
        QVERIFY(QMetaObject::invokeMethod(m_watcher, "on_warningTimer_timeout"));
        QCOMPARE(log.lines().size(), 1);
        // In the order of the items' addresses.
        QVERIFY2(log.lines().first() == "WARN [player] Waiting CMValueItems: p:c?k=v, p:d, CMItems: p:a"
                     || log.lines().first() == "WARN [player] Waiting CMValueItems: p:d, p:c?k=v, CMItems: p:a",
                 qPrintable(log.lines().first()));
    }

    void aSignalOfAStrangerIsWarnedOf()
    {
        LogCapture log("CMInitWatcher", log4cplus::WARN_LOG_LEVEL);
        CMItem item;
        connect(&item, SIGNAL(changed(OrvoRoles,OrvoRoles)), m_watcher, SLOT(on_cmitem_changed(OrvoRoles,OrvoRoles)));
        item.setRoles(OrvoRoles().setId("x"));
        CMValueItem value;
        connect(&value, SIGNAL(loadingChanged(bool)), m_watcher, SLOT(on_cmvalueitem_loadingChanged(bool)));
        value.setValue(number(1), true);
        const auto address = [](const void* pointer) {
            return QStringLiteral("0x") + QString::number(quintptr(pointer), 16);
        };
        QCOMPARE(log.lines(), (QStringList{"WARN Changed() event for non-existing CMItem: " + address(&item),
                                           "WARN Changed() event for non-existing CMValueItem: " + address(&value)}));
        QCOMPARE(m_owner->said, QStringList());
    }

    void anItemThatTheOwnerDeletesIsWaitedForNoLonger()
    {
        delete newItem("p:item");
        QCOMPARE(m_owner->said, QStringList("done"));
        const CMValueItem* gone = newValueItem("p:gone");
        CMItem* loaded = newItem("p:loaded");
        newValueItem("p:value");
        delete gone;
        answerRoles("p:loaded", "x");
        QTRY_VERIFY(!loaded->isLoading());
        delete loaded;
        turn();
        QCOMPARE(m_owner->said, QStringList("done"));
        answerValue("p:value", 1);
        QTRY_COMPARE(m_owner->said, (QStringList{"done", "done"}));
    }

    void aReceiverThatDiesWhileItWaitsIsLeftOut()
    {
        auto* receiver = new Owner;
        CMValueItem* value = m_watcher->newCMValueItem(path("p:value"), receiver, SLOT(onValue(OrvoValue,OrvoValue)));
        delete receiver;
        answerValue("p:value", 1);
        QTRY_COMPARE(m_owner->said, QStringList("done"));
        value->setValue(number(2), false);
    }

    void itMayBeDestroyedInsideDone_data()
    {
        QTest::addColumn<bool>("byValue");
        QTest::newRow("item") << false;
        QTest::newRow("value item") << true;
    }
    void itMayBeDestroyedInsideDone()
    {
        QFETCH(bool, byValue);
        const QPointer<CMInitWatcher> watcher(m_watcher);
        connect(m_watcher, &CMInitWatcher::done, m_owner, [&] { delete m_watcher; });
        if (byValue) {
            newValueItem("p:value");
            answerValue("p:value", 1);
        } else {
            newItem("p:item");
            answerRoles("p:item", "x");
        }
        QTRY_VERIFY(!watcher);
        turn();
        QCOMPARE(m_owner->said, QStringList("done"));
    }

    void itemsOfAnotherProcessAreWaitedFor()
    {
        const QString name = serviceName("init");
        ServerProcess server(name);
        CMRemoteWorker remote("me", name);
        ForwardingRoot::instance()->reset(&remote);
        const CMPath prefix = CMPath::fromPrefix(name);
        const CMValueItem* value =
            m_watcher->newCMValueItem(prefix + "value", m_owner, SLOT(onValue(OrvoValue,OrvoValue)));
        const CMItem* item = m_watcher->newCMItem(prefix + "list", m_owner, SLOT(onRoles(OrvoRoles,OrvoRoles)));
        // The service comes up later than the one that waits for it.
        turn();
        QVERIFY(server.start({"--value", "5"}));
        QTRY_COMPARE_WITH_TIMEOUT(m_owner->said, QStringList("done"), 10000);
        QCOMPARE(value->value().i32_(), 5);
        QCOMPARE(item->roles().path(), prefix + "list");
        remote.setValue(prefix + "value", OrvoValue().setI32_(6));
        QTRY_COMPARE(m_owner->said.mid(1), QStringList("6 <- 5"));
        delete m_watcher;
        deleteWaiting();
        ForwardingRoot::instance()->reset(m_worker);
    }

    void itMayDieWhileItWaits()
    {
        newItem("p:item");
        newValueItem("p:value");
        const CMReply<QVariantList> reply = open("p:value");
        delete m_watcher;
        reply.setValue({number(1).__variant()});
        turn();
        QCOMPARE(m_owner->said, QStringList());
    }
};

QTEST_GUILESS_MAIN(tst_CMInitWatcher)
#include "tst_cminitwatcher.moc"
