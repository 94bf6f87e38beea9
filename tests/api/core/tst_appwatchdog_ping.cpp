#include "childprocess.h"
#include "core/appWatchdog.h"
#include "core/orvo.h"
#include "support/watchdogfixture.h"

#include <QDBusAbstractInterface>
#include <QDBusConnectionInterface>
#include <QDBusPendingCallWatcher>
#include <QElapsedTimer>
#include <QSignalSpy>

#include <csignal>
#include <memory>

namespace {

const char* const service = "org.example.watched";
/// No ping is due in these tests, and none is late, unless they say so.
const int longTime = 1000000;

} // namespace

/// Supervision by the bus: children on a bus of this test's own.
class tst_AppWatchdog_Ping : public QObject
{
    Q_OBJECT

private:
    QProcess m_bus;
    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<Journal> m_journal;

    QString file(const QString& name) const { return m_folder->filePath(name); }
    std::unique_ptr<AppWatchdog> watchdog(const QStringList& steps) const
    {
        auto made = std::make_unique<AppWatchdog>("svc", watchedChild(), steps);
        made->setServiceWatcherName(service);
        m_journal->follow(made.get());
        return made;
    }
    /// A child that answers the ping as the mode tells.
    QStringList pinged(const QString& mode) const
    {
        return {"count:" + file("pings"), "mode:" + mode, "ping:/", QString("take:") + service};
    }
    int pings() const { return contentOf(file("pings")).size(); }
    static void expire(QTimer* timer)
    {
        QTimerEvent event(timer->timerId());
        QCoreApplication::sendEvent(timer, &event);
    }
    /// The next ping is due.
    static void tick(AppWatchdog* watchdog)
    {
        for (QTimer* timer : watchdog->findChildren<QTimer*>())
            if (!timer->isSingleShot() && timer->isActive())
                expire(timer);
    }
    /// The ping in flight is late.
    static void timeOut(AppWatchdog* watchdog)
    {
        for (QTimer* timer : watchdog->findChildren<QTimer*>())
            if (timer->isSingleShot() && timer->interval() == longTime / 2 && timer->isActive())
                expire(timer);
    }
    /// So many pings, each answered before the next.
    static bool ping(AppWatchdog* watchdog, int count)
    {
        for (int i = 0; i < count; ++i) {
            tick(watchdog);
            if (!watchdog->findChild<QDBusPendingCallWatcher*>()
                || !QTest::qWaitFor([&] { return !watchdog->findChild<QDBusPendingCallWatcher*>(); }, 20000))
                return false;
        }
        return true;
    }
    /// The SIGKILL that is due 10 s after the SIGABRT comes at once.
    static void hurryTheKill(AppWatchdog* watchdog)
    {
        for (QTimer* timer : watchdog->findChildren<QTimer*>())
            if (timer->isSingleShot() && timer->interval() == 10000 && timer->isActive())
                timer->start(0);
    }
    static bool killIsDue(AppWatchdog* watchdog)
    {
        for (const QTimer* timer : watchdog->findChildren<QTimer*>())
            if (timer->isSingleShot() && timer->interval() == 10000 && timer->isActive())
                return true;
        return false;
    }
    static QStringList killed(int code)
    {
        return {QString("DEBUG processFinished(exitCode=%1, exitStatus=1").arg(code),
                QString("WARN Process svc crashed due the signal: %1").arg(code),
                "FATAL ==Report file:==Module crashed:svc"};
    }
    QStringList linesWithoutOwners() const
    {
        QStringList lines = m_journal->lines();
        lines.erase(std::remove_if(lines.begin(), lines.end(),
                                   [](const QString& line) { return line.startsWith("DEBUG serviceOwnerChanged("); }),
                    lines.end());
        return lines;
    }

private slots:
    void initTestCase()
    {
        leaveNoCore();
        m_bus.start("dbus-daemon", {"--session", "--nofork", "--nopidfile", "--print-address=1",
                                    "--address=unix:tmpdir=" + QDir::tempPath()});
        QTRY_VERIFY(m_bus.canReadLine());
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", m_bus.readLine().trimmed());
        QVERIFY(orvoDBusConnection().isConnected());
    }
    void cleanupTestCase()
    {
        m_bus.terminate();
        QVERIFY(m_bus.waitForFinished());
    }
    void init()
    {
        m_folder = std::make_unique<QTemporaryDir>();
        m_journal = std::make_unique<Journal>();
    }
    void cleanup()
    {
        m_journal.reset();
        QCOMPARE(childPids(), QList<int>{int(m_bus.processId())});
        // The name is free for the next child.
        QTRY_VERIFY(!orvoDBusConnection().interface()->isServiceRegistered(service));
        m_folder.reset();
    }

    // The connection

    void eachThreadHasAConnectionOfItsOwn()
    {
        const QString here = orvoDBusConnection().name();
        QCOMPARE(here, QString("orvoConn-%1").arg(quintptr(QThread::currentThread())));
        QString there;
        QString expected;
        const std::unique_ptr<QThread> thread(QThread::create([&] {
            there = orvoDBusConnection().name();
            expected = QString("orvoConn-%1").arg(quintptr(QThread::currentThread()));
        }));
        thread->start();
        QVERIFY(thread->wait());
        QCOMPARE(there, expected);
        QVERIFY(there != here);
    }

    // The bus name

    void aChildIsUpWhenItsNameHasAnOwner()
    {
        const auto watchdog =
            this->watchdog({"block:10", "file:" + file("ready"), "await:10", QString("take:") + service,
                            "file:" + file("taken"), "block:12", "await:12", QString("release:") + service,
                            QString("take:") + service, "file:" + file("again")});
        QVERIFY(watchdog->start());
        QVERIFY(watchdog->isRunning());
        QTRY_VERIFY(QFile::exists(file("ready")));
        QCoreApplication::processEvents();
        QCOMPARE(m_journal->signalsSeen, QStringList());
        QCOMPARE(m_journal->lines(), QStringList());
        watchdog->sendSignal(AppWatchdog::SigUsr1);
        QTRY_COMPARE(m_journal->signalsSeen.size(), 1);
        const QString owner = orvoDBusConnection().interface()->serviceOwner(service);
        QVERIFY(owner.startsWith(':'));
        QCOMPARE(m_journal->signalsSeen, QStringList("started svc " + owner));
        const QString line = QString("DEBUG serviceOwnerChanged(name=") + service;
        QCOMPARE(m_journal->lines(), QStringList(line + " -> " + owner));

        // A name that goes and comes back changes nothing.
        QTRY_VERIFY(QFile::exists(file("taken")));
        watchdog->sendSignal(AppWatchdog::SigUsr2);
        QTRY_VERIFY(QFile::exists(file("again")));
        QTRY_COMPARE(m_journal->lines().size(), 3);
        QCOMPARE(m_journal->lines().mid(1), (QStringList{line + owner + " -> ", line + " -> " + owner}));
        QCOMPARE(m_journal->signalsSeen.size(), 1);
        watchdog->stop(false, true);
        QTRY_VERIFY(m_journal->ended());
    }

    void aChildThatNeverTakesItsNameEndsLikeAnyOther()
    {
        const auto watchdog = this->watchdog({"file:" + file("ready"), "take:org.example.other"});
        watchdog->setDBusPingInterval(10, 0);
        QVERIFY(watchdog->start());
        QTRY_VERIFY(QFile::exists(file("ready")));
        QTRY_VERIFY(orvoDBusConnection().interface()->isServiceRegistered("org.example.other"));
        QCoreApplication::processEvents();
        QVERIFY(watchdog->isRunning());
        QCOMPARE(runningTimers(watchdog.get()), 0);
        watchdog->stop(false, false);
        QTRY_COMPARE(m_journal->signalsSeen, QStringList("terminated svc 15"));
    }

    void theNextChildIsUpByItsOwnName()
    {
        const auto watchdog = this->watchdog(pinged("answer"));
        watchdog->setDBusPingInterval(longTime, 0);
        QVERIFY(watchdog->start());
        QTRY_COMPARE(m_journal->signalsSeen.size(), 1);
        QVERIFY(ping(watchdog.get(), 2));
        QCOMPARE(pings(), 2);
        m_journal->onTerminated = [&] { QVERIFY(watchdog->start()); };
        watchdog->stop(false, true);
        QTRY_COMPARE(m_journal->signalsSeen.size(), 3);
        QVERIFY(m_journal->signalsSeen[0] != m_journal->signalsSeen[2]);
        QVERIFY(ping(watchdog.get(), 1));
        QCOMPARE(pings(), 3);
        QVERIFY(watchdog->isRunning());
        m_journal->onTerminated = nullptr;
    }

    void aWatchdogMayBeDestroyedWhenTheNameIsTaken()
    {
        auto watchdog = this->watchdog(pinged("answer"));
        watchdog->setDBusPingInterval(20, 0);
        m_journal->onStarted = [&] { watchdog.reset(); };
        QVERIFY(watchdog->start());
        QTRY_VERIFY(!watchdog);
    }

    // The settings

    void aTimeoutOutsideOfTheIntervalIsTheInterval_data()
    {
        QTest::addColumn<int>("timeout");
        QTest::addColumn<QList<int>>("intervals");
        QTest::newRow("longer") << 500000 << QList<int>{100000};
        QTest::newRow("equal") << 100000 << QList<int>{100000};
        QTest::newRow("none") << 0 << QList<int>{100000};
        QTest::newRow("negative") << -1 << QList<int>{100000};
        QTest::newRow("shorter") << 99999 << QList<int>{99999, 100000};
        QTest::newRow("shortest") << 1 << QList<int>{1, 100000};
    }

    void aTimeoutOutsideOfTheIntervalIsTheInterval()
    {
        QFETCH(int, timeout);
        QFETCH(QList<int>, intervals);
        const auto watchdog = this->watchdog(pinged("answer"));
        const QTimer* stopTimer = watchdog->findChild<QTimer*>();
        QVERIFY(watchdog->start());
        QTRY_COMPARE(m_journal->signalsSeen.size(), 1);
        // Set first with a timer for the timeout, which must not stay when it is no longer wanted.
        for (const int set : {5000, timeout}) {
            watchdog->setDBusPingInterval(100000, set);
            QList<int> found;
            for (const QTimer* timer : watchdog->findChildren<QTimer*>()) {
                if (timer == stopTimer)
                    continue;
                found.append(timer->interval());
                QCOMPARE(timer->isSingleShot(), timer->interval() != 100000);
                QCOMPARE(timer->isActive(), timer->interval() == 100000);
            }
            std::sort(found.begin(), found.end());
            QCOMPARE(found, set == 5000 ? (QList<int>{5000, 100000}) : intervals);
        }
        QCOMPARE(m_journal->lines().count("DEBUG starting ping timer"), 2);
        watchdog->setDBusPingInterval(0, 0);
        QCOMPARE(runningTimers(watchdog.get()), 0);
        QVERIFY(!watchdog->findChild<QDBusAbstractInterface*>());
    }

    void thePingNeedsABusNameAndAnAnswerAPing_data()
    {
        QTest::addColumn<QString>("what");
        QTest::addColumn<QByteArray>("assertion");
        QTest::newRow("the interval") << "interval" << QByteArray("m_dbusServiceWatcher");
        QTest::newRow("the method") << "method" << QByteArray("m_dbusServiceWatcher");
        QTest::newRow("an answer without a question") << "answer" << QByteArray("call = m_dbusPingCallWatcher");
    }

    void thePingNeedsABusNameAndAnAnswerAPing()
    {
        QFETCH(QString, what);
        const ChildEnd end = runThisProgram({"--without-name", what});
        QVERIFY(end.stopped);
        QFETCH(QByteArray, assertion);
        QVERIFY2(end.errors.contains('"' + assertion + '"'), end.errors.constData());
    }

    // The ping

    void aChildThatAnswersLives()
    {
        const auto watchdog = this->watchdog(pinged("answer"));
        watchdog->setDBusPingInterval(longTime, longTime / 2);
        QVERIFY(watchdog->start());
        QTRY_COMPARE(m_journal->signalsSeen.size(), 1);
        QVERIFY(ping(watchdog.get(), 5));
        QCOMPARE(pings(), 5);
        QVERIFY(watchdog->isRunning());
        QCOMPARE(m_journal->signalsSeen.size(), 1);
        QCOMPARE(m_journal->fatalLines(), QStringList());
        const QString call = QString("TRACE calling ping on ") + service;
        QCOMPARE(
            linesWithoutOwners().mid(0, 4),
            (QStringList{"DEBUG starting ping timer", call, "TRACE ping call finished, stopping timeoutTimer", call}));
        watchdog->stop(false, true);
        QTRY_VERIFY(m_journal->ended());
        QCOMPARE(runningTimers(watchdog.get()), 0);
        QVERIFY(!watchdog->findChild<QDBusAbstractInterface*>());
    }

    void thePingMayBeAnyCall()
    {
        const auto watchdog = this->watchdog({"count:" + file("pings"), "alive:/x/y", QString("take:") + service});
        watchdog->setDBusPingMethod("/x/y", "org.example.alive", "areYou", false);
        watchdog->setDBusPingInterval(longTime, 0);
        QVERIFY(watchdog->start());
        QTRY_COMPARE(m_journal->signalsSeen.size(), 1);
        QVERIFY(ping(watchdog.get(), 3));
        QCOMPARE(pings(), 3);
        QVERIFY(watchdog->isRunning());
        // Another one from now on.
        watchdog->setDBusPingMethod("/x/y", "org.example.alive", "nothing", true);
        QVERIFY(ping(watchdog.get(), 3));
        QCOMPARE(m_journal->lines().count(QString("TRACE calling nothing on ") + service), 3);
        QVERIFY(watchdog->isRunning());
        QCOMPARE(pings(), 3);
        watchdog->stop(false, true);
        QTRY_VERIFY(m_journal->ended());
    }

    void anErrorIsASignOfLifeUnlessItIsNotToBe_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<QString>("method");
        QTest::newRow("unknown method") << "answer"
                                        << "nothing";
        QTest::newRow("an error of its own") << "error"
                                             << "ping";
    }

    void anErrorIsASignOfLifeUnlessItIsNotToBe()
    {
        QFETCH(QString, mode);
        QFETCH(QString, method);
        const auto watchdog = this->watchdog(pinged(mode));
        watchdog->setDBusPingMethod("/", "org.orvo.ping", method, true);
        watchdog->setDBusPingInterval(longTime, 0);
        QVERIFY(watchdog->start());
        QTRY_COMPARE(m_journal->signalsSeen.size(), 1);
        QVERIFY(ping(watchdog.get(), 3));
        QVERIFY(watchdog->isRunning());
        QCOMPARE(m_journal->fatalLines(), QStringList());

        watchdog->setDBusPingMethod("/", "org.orvo.ping", method, false);
        tick(watchdog.get());
        QTRY_COMPARE(m_journal->signalsSeen.last(), QString("terminated svc 6"));
        QCOMPARE(m_journal->fatalLines().first(), QString("FATAL ==Report== svc stopped responding to DBUS calls"));
        QCOMPARE(linesWithoutOwners().mid(linesWithoutOwners().size() - 3), killed(6));
    }

    void aHungChildIsSignalledAndThenKilled_data()
    {
        QTest::addColumn<int>("timeout");
        // The timeout finds it before the next ping, or the next tick does.
        QTest::newRow("timeout") << longTime / 2;
        QTest::newRow("next tick") << longTime;
    }

    void aHungChildIsSignalledAndThenKilled()
    {
        QFETCH(int, timeout);
        const auto watchdog = this->watchdog(pinged("hang"));
        watchdog->setDBusPingInterval(longTime, timeout);
        QVERIFY(watchdog->start());
        const int pid = childPids().last();
        QTRY_COMPARE(m_journal->signalsSeen.size(), 1);
        tick(watchdog.get());
        QTRY_COMPARE(stateOf(pid), 'T');
        QCOMPARE(pings(), 1);
        QCOMPARE(m_journal->fatalLines(), QStringList());
        timeOut(watchdog.get());
        QCOMPARE(m_journal->fatalLines().size(), timeout == longTime ? 0 : 1);
        if (timeout == longTime)
            tick(watchdog.get());
        QCOMPARE(m_journal->fatalLines(), QStringList("FATAL ==Report== svc stopped responding to DBUS calls"));
        QVERIFY(!watchdog->isRunning());
        QVERIFY(killIsDue(watchdog.get()));
        hurryTheKill(watchdog.get());
        QTRY_COMPARE(m_journal->signalsSeen.last(), QString("terminated svc 9"));
        QCOMPARE(linesWithoutOwners().mid(linesWithoutOwners().size() - 3), killed(9));
        QCOMPARE(runningTimers(watchdog.get()), 0);
    }

    void aChildThatDoesNotEndIsReportedAgain()
    {
        const auto watchdog = this->watchdog(pinged("hang"));
        watchdog->setDBusPingInterval(longTime, 0);
        QVERIFY(watchdog->start());
        const int pid = childPids().last();
        QTRY_COMPARE(m_journal->signalsSeen.size(), 1);
        tick(watchdog.get());
        QTRY_COMPARE(stateOf(pid), 'T');
        for (int i = 0; i < 3; ++i)
            tick(watchdog.get());
        const QString report = "FATAL ==Report== svc stopped responding to DBUS calls";
        QCOMPARE(m_journal->fatalLines(), (QStringList{report, report, report}));
        QCOMPARE(m_journal->monitorLines().filter("removeProcess").size(), 1);
        QVERIFY(killIsDue(watchdog.get()));
        hurryTheKill(watchdog.get());
        QTRY_VERIFY(m_journal->ended());
    }

    void theTimersTickByThemselves()
    {
        const auto watchdog = this->watchdog({"ping:/", QString("take:") + service, "raise:19"});
        watchdog->setDBusPingInterval(200, 20);
        QVERIFY(watchdog->start());
        QTRY_VERIFY(m_journal->fatalLines().size() >= 2);
        QVERIFY(!watchdog->isRunning());
        hurryTheKill(watchdog.get());
        QTRY_VERIFY(m_journal->ended());
    }

    /// The bound is 2 s, a tenth of what one blocking call would wait, and far above what a busy machine adds.
    void aChildThatHangsWithItsNameTakenStallsNothing()
    {
        const auto watchdog = this->watchdog({"ping:/", QString("take:") + service, "raise:19"});
        // One that nobody asked for yet, so that nothing is known of it already.
        watchdog->setDBusPingMethod("/", "org.example.unheard", "ping", true);
        watchdog->setDBusPingInterval(longTime, 0);
        QTimer beat;
        QElapsedTimer sinceBeat;
        qint64 longest = 0;
        connect(&beat, &QTimer::timeout, this, [&] { longest = qMax(longest, sinceBeat.restart()); });
        QVERIFY(watchdog->start());
        sinceBeat.start();
        beat.start(5);
        const int pid = childPids().last();
        QTRY_COMPARE_WITH_TIMEOUT(m_journal->signalsSeen.size(), 1, 60000);
        QTRY_COMPARE(stateOf(pid), 'T');
        tick(watchdog.get());
        QTest::qWait(20);
        tick(watchdog.get());
        QCOMPARE(m_journal->fatalLines().size(), 1);
        QVERIFY2(longest < 2000, qPrintable(QString("stalled for %1 ms").arg(longest)));
        hurryTheKill(watchdog.get());
        QTRY_COMPARE(m_journal->signalsSeen.last(), QString("terminated svc 9"));
    }

    void nothingIsLeftOfChildrenOnTheBus()
    {
        const auto watchdog = this->watchdog(pinged("answer"));
        watchdog->setDBusPingInterval(longTime, longTime / 2);
        QSignalSpy started(watchdog.get(), SIGNAL(started(QString,QString)));
        QSignalSpy ended(watchdog.get(), SIGNAL(terminated(QString,int)));
        int files = 0;
        int objects = 0;
        for (int i = 0; i <= 50; ++i) {
            QVERIFY(watchdog->start());
            QTRY_COMPARE(started.size(), i + 1);
            // Every second child ends with a ping in flight.
            if (i % 2 == 0)
                QVERIFY(ping(watchdog.get(), 1));
            else
                tick(watchdog.get());
            watchdog->stop(false, i % 2 == 0);
            QTRY_COMPARE(ended.size(), i + 1);
            if (i == 0) {
                files = openFiles();
                objects = watchdog->findChildren<QObject*>().size();
            }
        }
        QCOMPARE(openFiles(), files);
        QCOMPARE(watchdog->findChildren<QObject*>().size(), objects);
        QCOMPARE(runningTimers(watchdog.get()), 0);
    }
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.value(1) == QLatin1String("--without-name")) {
        leaveNoCore();
        AppWatchdog watchdog("svc", "/bin/true", {});
        if (arguments.value(2) == QLatin1String("interval"))
            watchdog.setDBusPingInterval(1000, 1000);
        else if (arguments.value(2) == QLatin1String("answer"))
            QMetaObject::invokeMethod(&watchdog, "dbusPingCallFinished",
                                      Q_ARG(QDBusPendingCallWatcher*, static_cast<QDBusPendingCallWatcher*>(nullptr)));
        else
            watchdog.setDBusPingMethod("/", "org.orvo.ping", "ping", true);
        return 0;
    }
    tst_AppWatchdog_Ping test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_appwatchdog_ping.moc"
