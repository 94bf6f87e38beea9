#include "core/model/cmreply.h"

#include "childprocess.h"
#include "core/model/cmmetatypes.h"
#include "core/model/cmreplywatcher.h"

#include <QPointer>
#include <QSet>
#include <QtTest>

#include <memory>
#include <thread>

namespace {

const char* const orphanWarning = "Reply is being destroyed, but it's not finished and it has at least one watcher";

CMError failure(const QString& name)
{
    return CMError(name, "message of " + name, "title of " + name);
}

/// Notes its own name for each end that it is told of.
class NamedWatcher : public CMReplyWatcher
{
public:
    NamedWatcher(const QString& name, QStringList* calls) : m_name(name), m_calls(calls) {}
    void finished(const CMVoidReply& reply) override
    {
        m_calls->append(m_name);
        thread = QThread::currentThread();
        last = reply.data();
    }

    QThread* thread = nullptr;
    CMReplyAbstractData* last = nullptr;

private:
    const QString m_name;
    QStringList* const m_calls;
};

/// Runs a function at the end.
class CallingWatcher : public CMReplyWatcher
{
public:
    explicit CallingWatcher(std::function<void(const CMVoidReply&)> function) : m_function(std::move(function)) {}
    void finished(const CMVoidReply& reply) override { m_function(reply); }

private:
    const std::function<void(const CMVoidReply&)> m_function;
};

/// A thread with an event loop, in which functions run.
class LoopThread
{
public:
    LoopThread()
    {
        m_object.moveToThread(&m_thread);
        m_thread.start();
    }
    ~LoopThread()
    {
        m_thread.quit();
        m_thread.wait();
    }
    QThread* thread() { return &m_thread; }
    QObject* object() { return &m_object; }
    template <typename Function>
    void run(Function function)
    {
        QMetaObject::invokeMethod(&m_object, function, Qt::BlockingQueuedConnection);
    }

private:
    QThread m_thread;
    QObject m_object;
};

/// Lets the objects that wait for their deletion go.
void deleteWaiting()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

} // namespace

class Receiver : public QObject
{
    Q_OBJECT
public:
    QList<CMReplyAbstractData*> ends;
    QThread* ranIn = nullptr;
public slots:
    void on_finished(CMVoidReply reply)
    {
        ranIn = QThread::currentThread();
        ends.append(reply.data());
    }
};

/// A watcher that belongs to its parent.
class OwnedWatcher : public CMReplyWatcherObject2
{
    Q_OBJECT
public:
    OwnedWatcher(QObject* parent, Qt::ConnectionType type, QStringList* calls)
        : CMReplyWatcherObject2(parent, type), m_calls(calls)
    {}

protected slots:
    void on_finished(CMVoidReply) override { m_calls->append("owned"); }

private:
    QStringList* const m_calls;
};

class tst_CMReply : public QObject
{
    Q_OBJECT

private slots:
    void itHasFailedOnlyWithAnErrorThatHasAName()
    {
        const CMReply<int> open;
        QVERIFY(!open.hasFailed());
        const CMReply<int> done;
        done.setValue(1);
        QVERIFY(!done.hasFailed());
        const CMVoidReply failed;
        failed.setError(CMError("name", "message", "title"));
        QVERIFY(failed.hasFailed());
        const CMVoidReply nameless;
        nameless.setError(CMError(QString(), "message", "title"));
        QVERIFY(!nameless.hasFailed());
    }

    void initTestCase() { orvoRegisterMetaTypes(); }
    void cleanup() { deleteWaiting(); }

    // Handles

    void aNewHandleHasNewUnfinishedData()
    {
        const CMVoidReply plain;
        const CMReply<int> number;
        QVERIFY(plain.isValid());
        QVERIFY(bool(number));
        QVERIFY(!!number);
        QVERIFY(!plain.isFinished());
        QVERIFY(!number.isFinished());
        QVERIFY(plain.error().isEmpty());
        QVERIFY(dynamic_cast<CMReplyData<void>*>(plain.data()));
        QVERIFY(CMReply<int>() != number);
    }

    void aNullPointerGivesAnInvalidHandle()
    {
        const CMVoidReply plain(nullptr);
        const CMReply<int> number(nullptr);
        const CMVariantReply variant(static_cast<CMReplyAbstractData*>(nullptr));
        QVERIFY(!plain.isValid());
        QVERIFY(!number);
        QVERIFY(!bool(variant));
        QCOMPARE(qHash(plain), 0u);
    }

    void allCopiesSeeOneResult()
    {
        const CMReply<int> first;
        const CMReply<int> second = first;
        const CMVoidReply third = first;
        const CMVariantReply fourth = third.toVariantReply();
        second.setValue(7);
        QCOMPARE(first.value(), 7);
        QVERIFY(third.isFinished());
        QCOMPARE(fourth.value(), QVariant(7));
        QCOMPARE(QVariant(fourth), QVariant(7));
    }

    void handlesCompareOrderAndHashByTheData()
    {
        const CMVoidReply a;
        const CMVoidReply copy = a;
        const CMVoidReply b;
        QVERIFY(a == copy);
        QVERIFY(a != b);
        QVERIFY(!(a < copy));
        QVERIFY((a < b) != (b < a));
        const auto address = reinterpret_cast<quintptr>(a.data());
        QCOMPARE(qHash(a), uint((address >> 31) ^ address));
        QCOMPARE(QSet<CMVoidReply>({a, copy, b}).size(), 2);
    }

    void aHandleAdoptsDataThatIsThere()
    {
        auto* data = new CMReplyData<QVariant>;
        const CMReply<QVariant> first(data);
        const CMReply<QVariant> second(data);
        QVERIFY(first == second);
        QCOMPARE(first.d(), data);
        second.setValue("value");
        QCOMPARE(first.value(), QVariant("value"));
    }

    // Finishing

    void theFirstFinishWins()
    {
        const CMReply<int> value;
        value.setValue(1);
        value.setValue(2);
        value.setError(failure("late"));
        value.cancel();
        value.toVariantReply().setValue(3);
        QCOMPARE(value.value(), 1);
        QVERIFY(value.error().isEmpty());

        const CMReply<int> failed;
        failed.setError(failure("first"));
        failed.setValue(2);
        failed.setError(failure("second"));
        failed.cancel();
        QCOMPARE(failed.value(), 0);
        QCOMPARE(failed.error(), failure("first"));
    }

    void aCancelledReplyCarriesTheCancelError()
    {
        const CMReply<int> reply;
        QStringList calls;
        NamedWatcher watcher("watcher", &calls);
        reply.addWatcher(&watcher);
        reply.cancel();
        QCOMPARE(calls, QStringList("watcher"));
        QCOMPARE(CMVoidReply::ErrorCancel(), QString("cancel"));
        QCOMPARE(reply.error(), CMError("cancel", "Request was canceled", "Error"));
        reply.setValue(4);
        QCOMPARE(reply.value(), 0);
        QCOMPARE(calls, QStringList("watcher"));
    }

    void anErrorWithoutANameIsNoFailure()
    {
        const CMReply<int> reply;
        QStringList calls;
        reply.onSuccess([&](int) { calls.append("success"); }).onError([&](const CMError&) { calls.append("error"); });
        CMError nameless;
        nameless.insert(CMError::Message(), "text");
        reply.setError(nameless);
        QCOMPARE(calls, QStringList("success"));
        QVERIFY(reply.isFinished());
        QCOMPARE(reply.error().message(), QString("text"));
        QVERIFY(!reply.error().isError());
    }

    void theKeysOfAnErrorAreFixed()
    {
        QCOMPARE(CMError::Name(), QString("name"));
        QCOMPARE(CMError::Message(), QString("message"));
        QCOMPARE(CMError::Title(), QString("title"));
        QCOMPARE(CMError::ActionReply(), QString("actionReply"));
        QCOMPARE(CMError::DefaultName(), QString("error"));
        QCOMPARE(CMError::DefaultTitle(), QString("Error"));
        QVERIFY(!CMError().isError());
    }

    // Variants

    void setVariantOfAVoidReplyLeavesItUnfinished()
    {
        const CMReply<void> reply;
        reply.toVariantReply().setValue(5);
        QVERIFY(!reply.isFinished());
        QVERIFY(!reply.toVariantReply().value().isValid());
        reply.setValue();
        QVERIFY(reply.isFinished());
        reply.value();
        QVERIFY(!reply.toVariantReply().value().isValid());
    }

    void aVariantInAVariantIsUnwrappedOneLevel()
    {
        const QVariant inner("inner");
        const QVariant middle(QMetaType::QVariant, &inner);
        const QVariant outer(QMetaType::QVariant, &middle);
        const CMReply<QVariant> once;
        once.toVariantReply().setValue(middle);
        QCOMPARE(once.value(), inner);
        const CMReply<QVariant> twice;
        twice.toVariantReply().setValue(outer);
        QCOMPARE(twice.value().userType(), int(QMetaType::QVariant));
        const CMReply<QVariant> plain;
        plain.toVariantReply().setValue(inner);
        QCOMPARE(plain.value(), inner);
        QCOMPARE(plain.toVariantReply().value(), inner);
    }

    void aListIsConvertedFromTheVariant()
    {
        const CMReply<QVariantList> reply;
        reply.toVariantReply().setValue(QStringList{"a", "b"});
        QCOMPARE(reply.value(), (QVariantList{"a", "b"}));
        QCOMPARE(reply.toVariantReply().value().userType(), int(QMetaType::QVariantList));
        QCOMPARE(reply.toVariantReply().value().toList(), (QVariantList{"a", "b"}));
    }

    void anIntIsConvertedFromTheVariantOr0()
    {
        const CMReply<int> text;
        text.toVariantReply().setValue("12");
        QCOMPARE(text.value(), 12);
        QCOMPARE(text.toVariantReply().value(), QVariant(12));
        const CMReply<int> none;
        none.toVariantReply().setValue(QVariantList{1});
        QVERIFY(none.isFinished());
        QCOMPARE(none.value(), 0);
    }

    void rowsAreMadeFromTheHashAndReadWithoutWaiting()
    {
        const CMReply<OrvoRowsRoles> reply;
        QCOMPARE(reply.toVariantReply().value(), OrvoRowsRoles().__variant());
        QVERIFY(!reply.isFinished());
        const OrvoRowsRoles rows = OrvoRowsRoles().setRowsCount(3).setRowsVersion(9);
        reply.toVariantReply().setValue(rows.__variant());
        QCOMPARE(reply.value().rowsCount(), 3);
        QCOMPARE(reply.toVariantReply().value(), rows.__variant());
    }

    void variantsOfOtherTypesWaitForTheFinish()
    {
        const CMReply<QVariant> any;
        const CMReply<QVariantList> list;
        const CMReply<int> number;
        const CMReply<OrvoRowsRoles> rows;
        std::thread finisher([=] {
            any.setValue("late");
            list.setValue({1, 2});
            number.setValue(3);
            rows.setValue(OrvoRowsRoles().setRowsCount(4));
        });
        QCOMPARE(any.toVariantReply().value(), QVariant("late"));
        QCOMPARE(list.toVariantReply().value().toList(), (QVariantList{1, 2}));
        QCOMPARE(number.toVariantReply().value(), QVariant(3));
        QCOMPARE(rows.value().rowsCount(), 4);
        finisher.join();
    }

    // Waiting

    void waitingNoTimeForAnUnfinishedReplyReturnsFalse()
    {
        const CMReply<int> reply;
        QVERIFY(!reply.waitForFinished(0));
        QVERIFY(!reply.waitForFinished(1));
        reply.setValue(1);
        QVERIFY(reply.waitForFinished(0));
        QVERIFY(reply.waitForFinished());
    }

    void aWaiterIsWokenByAnyEnd_data()
    {
        QTest::addColumn<int>("end");
        QTest::newRow("value") << 0;
        QTest::newRow("error") << 1;
        QTest::newRow("cancel") << 2;
        QTest::newRow("variant") << 3;
    }

    void aWaiterIsWokenByAnyEnd()
    {
        QFETCH(int, end);
        const CMReply<int> reply;
        QSemaphore waits;
        bool finished = false;
        std::thread waiter([&] {
            waits.release();
            finished = reply.waitForFinished();
        });
        waits.acquire();
        switch (end) {
        case 0:
            reply.setValue(1);
            break;
        case 1:
            reply.setError(failure("error"));
            break;
        case 2:
            reply.cancel();
            break;
        case 3:
            reply.toVariantReply().setValue(1);
            break;
        }
        waiter.join();
        QVERIFY(finished);
    }

    // Watchers

    void watchersRunInTheOrderOfRegistrationInTheFinishingThread()
    {
        QStringList calls;
        const CMReply<int> reply;
        NamedWatcher a("a", &calls);
        NamedWatcher b("b", &calls);
        NamedWatcher c("c", &calls);
        for (NamedWatcher* watcher : {&a, &b, &c})
            reply.addWatcher(watcher);
        LoopThread other;
        other.run([&] { reply.setValue(1); });
        QCOMPARE(calls, (QStringList{"a", "b", "c"}));
        QCOMPARE(a.thread, other.thread());
        QCOMPARE(a.last, reply.data());
    }

    void aWatcherOfAFinishedReplyRunsAtOnce()
    {
        QStringList calls;
        NamedWatcher watcher("late", &calls);
        const CMReply<int> reply;
        LoopThread other;
        other.run([&] { reply.setValue(1); });
        reply.addWatcher(&watcher);
        QCOMPARE(calls, QStringList("late"));
        QCOMPARE(watcher.thread, QThread::currentThread());
        reply.removeWatcher(&watcher);
        QCOMPARE(calls, QStringList("late"));
    }

    void removingTakesBackOneRegistration()
    {
        QStringList calls;
        NamedWatcher a("a", &calls);
        NamedWatcher b("b", &calls);
        NamedWatcher never("never", &calls);
        const CMReply<int> reply;
        reply.addWatcher(&a);
        reply.addWatcher(&b);
        reply.addWatcher(&a);
        reply.removeWatcher(&a);
        reply.removeWatcher(&never);
        reply.setValue(1);
        QCOMPARE(calls, (QStringList{"b", "a"}));
    }

    void afterTheFinishAWatcherCannotBeTakenBack()
    {
        QStringList calls;
        NamedWatcher second("second", &calls);
        const CMReply<int> reply;
        CallingWatcher first([&](const CMVoidReply& ended) { ended.removeWatcher(&second); });
        reply.addWatcher(&first);
        reply.addWatcher(&second);
        reply.setValue(1);
        QCOMPARE(calls, QStringList("second"));
    }

    void aCallbackMayUseTheReply()
    {
        const CMReply<int> reply;
        QStringList calls;
        NamedWatcher late("late", &calls);
        CallingWatcher watcher([&](const CMVoidReply& ended) {
            calls.append(ended.isFinished() && ended.waitForFinished() ? "finished" : "unfinished");
            ended.cancel();
            ended.addWatcher(&late);
            calls.append(ended.error().name());
        });
        reply.addWatcher(&watcher);
        reply.setValue(1);
        QCOMPARE(calls, (QStringList{"finished", "late", ""}));
    }

    void aWatcherMayDropTheLastHandle()
    {
        auto reply = std::make_unique<CMReply<QVariant>>();
        int ends = 0;
        reply->onFinished([&](const CMReply<QVariant>& ended) {
            reply.reset();
            ++ends;
            QCOMPARE(ended.value(), QVariant("value"));
        });
        CMReplyData<QVariant>* data = reply->d();
        data->setValue("value");
        QCOMPARE(ends, 1);
        QVERIFY(!reply);

        reply = std::make_unique<CMReply<QVariant>>();
        reply->onError([&](const CMError& error) {
            reply.reset();
            ++ends;
            QCOMPARE(error.name(), QString("cancel"));
        });
        reply->cancel();
        QCOMPARE(ends, 2);
        QVERIFY(!reply);

        reply = std::make_unique<CMReply<QVariant>>();
        reply->setValue("there");
        CallingWatcher dropping([&](const CMVoidReply& ended) {
            reply.reset();
            ++ends;
            QCOMPARE(CMVariantReply(ended).value(), QVariant("there"));
        });
        reply->addWatcher(&dropping);
        QCOMPARE(ends, 3);
    }

    void dataThatDiesUnfinishedWarnsOfItsWatchers()
    {
        QStringList calls;
        NamedWatcher watcher("never", &calls);
        QTest::ignoreMessage(QtWarningMsg, orphanWarning);
        {
            const CMReply<int> reply;
            reply.addWatcher(&watcher);
        }
        QCOMPARE(calls, QStringList());
    }

    void dataThatDiesWithoutAWatcherIsSilent()
    {
        static QStringList messages;
        messages.clear();
        const auto previous = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext&, const QString& text) { messages.append(text); });
        QStringList calls;
        NamedWatcher watcher("watcher", &calls);
        {
            const CMReply<int> unfinished;
            const CMReply<int> removed;
            removed.addWatcher(&watcher);
            removed.removeWatcher(&watcher);
            const CMReply<int> finished;
            finished.addWatcher(&watcher);
            finished.setValue(1);
        }
        qInstallMessageHandler(previous);
        QCOMPARE(messages, QStringList());
    }

    // Functions

    void aFunctionOnAFinishedReplyRunsBeforeTheCallReturns()
    {
        const CMReply<int> reply;
        reply.setValue(6);
        QStringList calls;
        reply.addWatcher([&](const CMVoidReply&) { calls.append("watcher"); });
        reply.onFinished(
            [&](const CMReply<int>& ended) { calls.append("finished " + QString::number(ended.value())); });
        reply.onSuccess([&](int value) { calls.append("success " + QString::number(value)); });
        reply.onError([&](const CMError&) { calls.append("error"); });
        QCOMPARE(calls, (QStringList{"watcher", "finished 6", "success 6"}));
    }

    void functionsAreChosenByTheEnd_data()
    {
        QTest::addColumn<int>("end");
        QTest::addColumn<QStringList>("calls");
        QTest::newRow("value") << 0 << QStringList{"finished", "success 8", "void finished"};
        QTest::newRow("error") << 1 << QStringList{"finished", "error bad", "void finished", "void error bad"};
        QTest::newRow("cancel") << 2 << QStringList{"finished", "error cancel", "void finished", "void error cancel"};
    }

    void functionsAreChosenByTheEnd()
    {
        QFETCH(int, end);
        QStringList calls;
        const CMReply<int> reply;
        reply
            .onFinished([&](const CMReply<int>& ended) {
                QVERIFY(ended == reply);
                calls.append("finished");
            })
            .onSuccess([&](int value) { calls.append("success " + QString::number(value)); })
            .onError([&](const CMError& error) { calls.append("error " + error.name()); });
        CMVoidReply(reply)
            .onFinished([&](const CMVoidReply&) { calls.append("void finished"); })
            .onError([&](const CMError& error) { calls.append("void error " + error.name()); });
        if (end == 0)
            reply.setValue(8);
        else if (end == 1)
            reply.setError(failure("bad"));
        else
            reply.cancel();
        QTEST(calls, "calls");
    }

    void aVoidReplyTellsSuccessWithoutAValue()
    {
        QStringList calls;
        const CMReply<void> good;
        good.onSuccess([&] { calls.append("success"); }).onFinished([&](const CMReply<void>&) {
            calls.append("finished");
        });
        good.setValue();
        const CMReply<void> bad;
        bad.onSuccess([&] { calls.append("never"); }).onError([&](const CMError& error) {
            calls.append(error.name());
        });
        bad.setError(failure("bad"));
        QCOMPARE(calls, (QStringList{"success", "finished", "bad"}));
    }

    void aVariantReplyTellsTheValueOfAnyType()
    {
        QStringList calls;
        const CMReply<int> good;
        good.toVariantReply()
            .onFinished([&](const CMVariantReply& ended) { calls.append("finished " + ended.value().toString()); })
            .onSuccess([&](const QVariant& value) { calls.append("success " + value.toString()); })
            .onError([&](const CMError&) { calls.append("never"); });
        good.setValue(5);
        const CMReply<QVariantList> bad;
        bad.toVariantReply()
            .onSuccess([&](const QVariant&) { calls.append("never"); })
            .onError([&](const CMError& error) { calls.append(error.name()); });
        bad.setError(failure("bad"));
        QCOMPARE(calls, (QStringList{"finished 5", "success 5", "bad"}));
    }

    void aQueuedFunctionRunsLater()
    {
        const CMReply<int> reply;
        int before = 0;
        int after = 0;
        reply.onSuccess([&](int value) { before = value; }, Qt::QueuedConnection);
        reply.setValue(3);
        reply.onSuccess([&](int value) { after = value; }, Qt::QueuedConnection);
        QCOMPARE(before, 0);
        QCOMPARE(after, 0);
        QTRY_COMPARE(before, 3);
        QTRY_COMPARE(after, 3);
    }

    void aFunctionRunsInTheThreadThatRegisteredIt()
    {
        LoopThread other;
        const CMReply<int> reply;
        QThread* ranIn = nullptr;
        reply.onSuccess([&](int) { ranIn = QThread::currentThread(); });
        other.run([&] { reply.setValue(3); });
        QCOMPARE(ranIn, static_cast<QThread*>(nullptr));
        QTRY_COMPARE(ranIn, QThread::currentThread());
    }

    void aDirectFunctionRunsInTheFinishingThread()
    {
        LoopThread other;
        const CMReply<int> reply;
        QThread* ranIn = nullptr;
        reply.onSuccess([&](int) { ranIn = QThread::currentThread(); }, Qt::DirectConnection);
        other.run([&] { reply.setValue(3); });
        QCOMPARE(ranIn, other.thread());
    }

    void aHandleOnDataOfAnotherTypeStopsTheProcess_data()
    {
        QTest::addColumn<QString>("call");
        QTest::newRow("onFinished") << "onFinished";
        QTest::newRow("onSuccess") << "onSuccess";
    }

    void aHandleOnDataOfAnotherTypeStopsTheProcess()
    {
        QFETCH(QString, call);
        const ChildEnd end = runThisProgram({"--wrong-type", call});
        QVERIFY(end.stopped);
        const QByteArray text = "Wrong type passed to CMReply::" + call.toUtf8() + "()!";
        QVERIFY2(end.errors.contains(text), end.errors.constData());
    }

    // Watcher objects

    void aMemberRunsInTheReceiversThreadOnce()
    {
        LoopThread other;
        auto* receiver = new Receiver;
        receiver->moveToThread(other.thread());
        const CMReply<int> reply;
        reply.addWatcher(receiver, SLOT(on_finished(CMVoidReply)));
        reply.setValue(3);
        other.run([] {});
        QCOMPARE(receiver->ends, QList<CMReplyAbstractData*>{reply.data()});
        QCOMPARE(receiver->ranIn, other.thread());
        other.run([=] { delete receiver; });
    }

    void aMemberInTheFinishingThreadRunsAtOnce()
    {
        Receiver receiver;
        const CMReply<int> reply;
        reply.addWatcher(&receiver, SLOT(on_finished(CMVoidReply)));
        reply.addWatcher(&receiver, SLOT(on_finished(CMVoidReply)), Qt::QueuedConnection);
        reply.setValue(3);
        QCOMPARE(receiver.ends.size(), 1);
        QTRY_COMPARE(receiver.ends.size(), 2);
    }

    void aReceiverThatDiedIsNotTold()
    {
        const CMReply<int> reply;
        auto receiver = std::make_unique<Receiver>();
        reply.addWatcher(receiver.get(), SLOT(on_finished(CMVoidReply)));
        receiver.reset();
        reply.setValue(3);
        QVERIFY(reply.isFinished());
    }

    void aWatcherObjectDeletesItselfAfterItFired()
    {
        Receiver receiver;
        const QPointer<CMReplyWatcherObject> watcher =
            new CMReplyWatcherObject(&receiver, SLOT(on_finished(CMVoidReply)), Qt::AutoConnection);
        QVERIFY(!watcher->parent());
        const CMReply<int> reply;
        reply.addWatcher(watcher.data());
        deleteWaiting();
        QVERIFY(watcher);
        reply.setValue(1);
        QCOMPARE(receiver.ends.size(), 1);
        QVERIFY(watcher);
        deleteWaiting();
        QVERIFY(!watcher);
    }

    void aWatcherObjectWithAParentConnectsNothing()
    {
        QObject parent;
        auto* watcher = new CMReplyWatcherObject(&parent);
        QCOMPARE(watcher->parent(), &parent);
        Receiver receiver;
        connect(watcher, &CMReplyWatcherObject::finishedSignal, &receiver, &Receiver::on_finished);
        CMReply<int> reply;
        reply.addWatcher(watcher);
        reply.setValue(1);
        QCOMPARE(receiver.ends.size(), 1);
    }

    void aDerivedWatcherRunsItsSlotByTheConnectionType()
    {
        QObject parent;
        QStringList calls;
        const CMReply<int> direct;
        direct.addWatcher(new OwnedWatcher(&parent, Qt::AutoConnection, &calls));
        direct.setValue(1);
        QCOMPARE(calls, QStringList("owned"));
        const CMReply<int> queued;
        queued.addWatcher(new OwnedWatcher(&parent, Qt::QueuedConnection, &calls));
        queued.setValue(1);
        QCOMPARE(calls.size(), 1);
        QTRY_COMPARE(calls.size(), 2);
        QTRY_VERIFY(parent.children().isEmpty());
    }

    void aFunctionIsReleasedAfterItRan()
    {
        const auto token = std::make_shared<int>(1);
        const CMReply<int> reply;
        reply.onFinished([token](const CMReply<int>&) {});
        QCOMPARE(token.use_count(), 2L);
        reply.setValue(1);
        QTRY_COMPARE(token.use_count(), 1L);
    }
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.value(1) == QLatin1String("--wrong-type")) {
        leaveNoCore();
        const CMVoidReply other;
        const CMReply<int> reply(reinterpret_cast<CMReplyData<int>*>(other.data()));
        if (arguments.value(2) == QLatin1String("onFinished"))
            reply.onFinished([](const CMReply<int>&) {});
        else
            reply.onSuccess([](int) {});
        other.cancel();
        return 0;
    }
    tst_CMReply test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_cmreply.moc"
