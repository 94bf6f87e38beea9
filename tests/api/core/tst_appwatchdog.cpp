#include "core/appWatchdog.h"

#include "core/model/cmpath.h"
#include "core/model/cmvalueitem.h"
#include "core/model/nodes/cmvaluenode.h"
#include "nodetest.h"
#include "records/orvoconstants.h"
#include "support/watchdogfixture.h"

#include <csignal>
#include <memory>

namespace {

OrvoValue number(int value)
{
    return OrvoValue().setI32_(value);
}

} // namespace

class tst_AppWatchdog : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<NodesFixture> m_fixture;
    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<Journal> m_journal;

    QString file(const QString& name) const { return m_folder->filePath(name); }
    void write(const QString& name, const QByteArray& content) const
    {
        QFile written(file(name));
        QVERIFY(written.open(QIODevice::WriteOnly));
        written.write(content);
    }
    std::unique_ptr<AppWatchdog> watchdog(const QStringList& steps) const
    {
        auto made = std::make_unique<AppWatchdog>("svc", watchedChild(), steps);
        m_journal->follow(made.get());
        return made;
    }
    /// The value of a node of the tree that this process serves.
    void setNode(const CMPath& path, const OrvoValue& value) const
    {
        auto node = qobject_cast<CMValueNode*>(m_fixture->nodes()->nodesAtPath(path).value(0).data());
        QVERIFY(node);
        node->setValue(value);
    }

private slots:
    void initTestCase() { m_fixture = std::make_unique<NodesFixture>(); }
    void cleanupTestCase() { m_fixture.reset(); }
    void init()
    {
        m_folder = std::make_unique<QTemporaryDir>();
        m_journal = std::make_unique<Journal>();
    }
    void cleanup()
    {
        m_journal.reset();
        QVERIFY2(childPids().isEmpty(), "a child was left behind");
        m_folder.reset();
    }

    // Start

    void aChildWithoutABusNameIsUpAtOnce()
    {
        const auto watchdog = this->watchdog({});
        QVERIFY(!watchdog->isRunning());
        QVERIFY(watchdog->start());
        QVERIFY(watchdog->isRunning());
        QCOMPARE(m_journal->signalsSeen, QStringList("started svc "));
        QCOMPARE(m_journal->runningInSignal, QList<bool>{true});
        QCOMPARE(childPids().size(), 1);
        QCOMPARE(
            m_journal->monitorLines(),
            QStringList(QString("INFO Monitor: addProcess: id=%1, name=%2").arg(childPids()[0]).arg(watchedChild())));
        QCOMPARE(m_journal->lines(), QStringList());
        QCOMPARE(watchdog->name(), watchedChild());
        QCOMPARE(watchdog->args(), QStringList());
    }

    void aProgramThatDoesNotExistIsNotStarted()
    {
        AppWatchdog watchdog("svc", file("missing"), {});
        m_journal->follow(&watchdog);
        QVERIFY(!watchdog.start());
        QVERIFY(!watchdog.isRunning());
        QCoreApplication::processEvents();
        QCOMPARE(m_journal->signalsSeen, QStringList());
        QCOMPARE(m_journal->monitorLines(), QStringList());
        QVERIFY(childPids().isEmpty());
    }

    void aShorterFormOfStartedExists()
    {
        QVERIFY(AppWatchdog::staticMetaObject.indexOfSignal("started(QString)") >= 0);
        QVERIFY(AppWatchdog::staticMetaObject.indexOfSignal("started(QString,QString)") >= 0);
    }

    // Stop

    void anAnnouncedStopLeavesNoCrashReport()
    {
        write("log", "last words");
        const auto watchdog = this->watchdog({});
        watchdog->setLogFileName(file("log"));
        QVERIFY(watchdog->start());
        const int pid = childPids().value(0);
        watchdog->stop(false, false);
        QVERIFY(!watchdog->isRunning());
        QCOMPARE(m_journal->monitorLines().last(), QString("INFO Monitor: removeProcess: id=%1").arg(pid));
        QTRY_COMPARE(m_journal->signalsSeen, (QStringList{"started svc ", "terminated svc 15"}));
        QCOMPARE(m_journal->lines(), (QStringList{"DEBUG processFinished(exitCode=15, exitStatus=1",
                                                  "WARN Process svc crashed due the signal: 15"}));
        QCOMPARE(m_journal->monitorLines().size(), 2);
        QCOMPARE(contentOf(file("log")), QByteArray("last words"));
        QVERIFY(!QFile::exists(file("log.crash")));
    }

    void aKillIsReportedUnlessItIsAnnounced()
    {
        const auto watchdog = this->watchdog({});
        QVERIFY(watchdog->start());
        watchdog->stop(true, true);
        QTRY_COMPARE(m_journal->signalsSeen.last(), QString("terminated svc 9"));
        QCOMPARE(m_journal->lines(), (QStringList{"DEBUG processFinished(exitCode=9, exitStatus=1",
                                                  "WARN Process svc crashed due the signal: 9",
                                                  "FATAL ==Report file:==Module crashed:svc"}));
    }

    void stoppingWhatDoesNotRunDoesNothing()
    {
        const auto watchdog = this->watchdog({});
        watchdog->stop(true, true);
        watchdog->stop(true, false);
        watchdog->stopSignal(true, SIGKILL);
        watchdog->sendSignal(AppWatchdog::SigKill);
        QVERIFY(watchdog->start());
        watchdog->stop(false, true);
        // The child is not reaped yet, and its number is given away already.
        watchdog->stopSignal(false, SIGTERM);
        watchdog->sendSignal(AppWatchdog::SigKill);
        QTRY_VERIFY(m_journal->ended());
        QCOMPARE(runningTimers(watchdog.get()), 0);
        watchdog->sendSignal(AppWatchdog::SigKill);
        QCOMPARE(m_journal->monitorLines().size(), 2);
    }

    void aChildThatIgnoresToBeAskedIsNotPressedByStop()
    {
        const auto watchdog = this->watchdog({"ignore:15", "file:" + file("ready")});
        QVERIFY(watchdog->start());
        QTRY_VERIFY(QFile::exists(file("ready")));
        watchdog->stop(false, false);
        QCOMPARE(runningTimers(watchdog.get()), 0);
        QCoreApplication::processEvents();
        QVERIFY(!m_journal->ended());
        watchdog->stop(false, true);
        QTRY_COMPARE(m_journal->signalsSeen.last(), QString("terminated svc 9"));
    }

    void aChildThatIgnoresASignalIsKilledWhenItsTimeIsOver()
    {
        const auto watchdog = this->watchdog({"ignore:15", "file:" + file("ready")});
        QVERIFY(watchdog->start());
        QTRY_VERIFY(QFile::exists(file("ready")));
        watchdog->stopSignal(false, SIGTERM, 50);
        QVERIFY(!watchdog->isRunning());
        QTRY_COMPARE(m_journal->signalsSeen.last(), QString("terminated svc 9"));
        QCOMPARE(m_journal->fatalLines(), QStringList());
        QCOMPARE(runningTimers(watchdog.get()), 0);
    }

    void theTimeOfASignalledChildIs10SecondsUnlessTold_data()
    {
        QTest::addColumn<int>("timeout");
        QTest::addColumn<int>("interval");
        QTest::newRow("negative") << -1 << 10000;
        QTest::newRow("very negative") << -100000 << 10000;
        QTest::newRow("told") << 12345 << 12345;
        QTest::newRow("zero") << 0 << 0;
    }

    void theTimeOfASignalledChildIs10SecondsUnlessTold()
    {
        QFETCH(int, timeout);
        const auto watchdog = this->watchdog({});
        QVERIFY(watchdog->start());
        watchdog->stopSignal(false, SIGUSR1, timeout);
        const QList<QTimer*> timers = watchdog->findChildren<QTimer*>();
        QCOMPARE(timers.size(), 1);
        QVERIFY(timers[0]->isActive() && timers[0]->isSingleShot());
        QTEST(timers[0]->interval(), "interval");
        QTRY_VERIFY(m_journal->ended());
        QCOMPARE(runningTimers(watchdog.get()), 0);
    }

    void aKillBySignalNeedsNoSecondOne()
    {
        const auto watchdog = this->watchdog({});
        QVERIFY(watchdog->start());
        watchdog->stopSignal(false, SIGKILL, 5000);
        QCOMPARE(runningTimers(watchdog.get()), 0);
        QTRY_COMPARE(m_journal->signalsSeen.last(), QString("terminated svc 9"));
        QCOMPARE(m_journal->lines().size(), 2);
    }

    void whatAStopSaysOfAChildThatDoesNotRunHoldsForTheNextEnd()
    {
        const auto watchdog = this->watchdog({"exit:0"});
        watchdog->stopSignal(false, SIGTERM);
        for (int i = 0; i < 2; ++i) {
            QVERIFY(watchdog->start());
            QTRY_VERIFY(m_journal->ended());
        }
        QCOMPARE(m_journal->fatalLines(), QStringList("FATAL ==Report file:==Module crashed:svc"));
        QCOMPARE(m_journal->lines().size(), 3);
    }

    void aSignalIsSent()
    {
        const auto watchdog = this->watchdog({"endOn:10", "file:" + file("ready")});
        QVERIFY(watchdog->start());
        QTRY_VERIFY(QFile::exists(file("ready")));
        watchdog->sendSignal(AppWatchdog::SigUsr1);
        QVERIFY(watchdog->isRunning());
        QTRY_COMPARE(m_journal->signalsSeen.last(), QString("terminated svc 7"));
    }

    // The end of a child

    void anEndThatNobodyAnnouncedIsACrash_data()
    {
        QTest::addColumn<QString>("step");
        QTest::addColumn<int>("code");
        QTest::addColumn<QStringList>("lines");
        QTest::newRow("good exit") << "exit:0" << 0 << QStringList("DEBUG processFinished(exitCode=0, exitStatus=0");
        QTest::newRow("bad exit") << "exit:3" << 3 << QStringList("DEBUG processFinished(exitCode=3, exitStatus=0");
        // Has the shape of a signal, but is none.
        QTest::newRow("exit like a signal")
            << "exit:11" << 11 << QStringList("DEBUG processFinished(exitCode=11, exitStatus=0");
        QTest::newRow("crash") << "raise:9" << 9
                               << QStringList{"DEBUG processFinished(exitCode=9, exitStatus=1",
                                              "WARN Process svc crashed due the signal: 9"};
    }

    void anEndThatNobodyAnnouncedIsACrash()
    {
        QFETCH(QString, step);
        QFETCH(int, code);
        QFETCH(QStringList, lines);
        write("log", "last words");
        const auto watchdog = this->watchdog({step});
        watchdog->setLogFileName(file("log"));
        QVERIFY(watchdog->start());
        const int pid = childPids().value(0);
        QTRY_COMPARE(m_journal->signalsSeen, (QStringList{"started svc ", QString("terminated svc %1").arg(code)}));
        lines.append(QString("FATAL ==Report file:%1==Module crashed:svc").arg(file("log.crash")));
        QCOMPARE(m_journal->lines(), lines);
        QCOMPARE(m_journal->linesAtEnd, lines);
        QCOMPARE(contentOf(file("log.crash")), QByteArray("last words"));
        QVERIFY(!QFile::exists(file("log")));
        // The monitor forgets the child when everybody was told.
        QCOMPARE(m_journal->runningInSignal.last(), true);
        QCOMPARE(m_journal->monitorLinesAtEnd.size(), 1);
        QVERIFY(!watchdog->isRunning());
        QCOMPARE(m_journal->monitorLines().value(1), QString("INFO Monitor: removeProcess: id=%1").arg(pid));
    }

    void aSecondCrashOverwritesTheFirst()
    {
        const auto watchdog = this->watchdog({"exit:1"});
        watchdog->setLogFileName(file("log"));
        for (const QByteArray words : {"first", "second"}) {
            write("log", words);
            QVERIFY(watchdog->start());
            QTRY_VERIFY(m_journal->ended());
            QCOMPARE(contentOf(file("log.crash")), words);
        }
        // The third leaves nothing behind, and what was there is of no crash that is told.
        QVERIFY(watchdog->start());
        QTRY_VERIFY(m_journal->ended());
        QVERIFY(!QFile::exists(file("log.crash")));
        QCOMPARE(m_journal->fatalLines().last(), QString("FATAL ==Report file:==Module crashed:svc"));
    }

    void aLogThatCannotBeKeptIsNamed()
    {
        write("log", "last words");
        QVERIFY(QDir(m_folder->path()).mkpath("log.crash/full"));
        const auto watchdog = this->watchdog({"exit:0"});
        watchdog->setLogFileName(file("log"));
        QVERIFY(watchdog->start());
        QTRY_VERIFY(m_journal->ended());
        QCOMPARE(m_journal->lines(),
                 (QStringList{"DEBUG processFinished(exitCode=0, exitStatus=0", "WARN Can't rename file:" + file("log"),
                              "FATAL ==Report file:==Module crashed:svc"}));
        QCOMPARE(contentOf(file("log")), QByteArray("last words"));
    }

    void aChildThatLeavesAChildBehindHasEnded()
    {
        const auto watchdog = this->watchdog({"fork:" + file("grandchild"), "exit:0"});
        QVERIFY(watchdog->start());
        QTRY_VERIFY(m_journal->ended());
        const int grandchild = contentOf(file("grandchild")).toInt();
        QVERIFY(grandchild > 1);
        QVERIFY(stateOf(grandchild) != 0 && stateOf(grandchild) != 'Z');
        QCOMPARE(::kill(grandchild, SIGKILL), 0);
        QVERIFY(endsSoon(grandchild));
    }

    // Restart

    void theNextChildMayBeStartedWhenTheLastOneIsTold()
    {
        const auto watchdog = this->watchdog({});
        QVERIFY(watchdog->start());
        const int first = childPids().value(0);
        bool restarted = false;
        m_journal->onTerminated = [&] { restarted = watchdog->start(); };
        watchdog->sendSignal(AppWatchdog::SigKill);
        QTRY_VERIFY(restarted);
        m_journal->onTerminated = nullptr;
        QVERIFY(watchdog->isRunning());
        const int second = childPids().value(0);
        QVERIFY(second != first);
        const QString added = "INFO Monitor: addProcess: id=%1, name=" + watchedChild();
        const QString removed = "INFO Monitor: removeProcess: id=%1";
        QCOMPARE(m_journal->monitorLines(), (QStringList{added.arg(first), added.arg(second), removed.arg(first)}));
        QCOMPARE(m_journal->signalsSeen, (QStringList{"started svc ", "terminated svc 9", "started svc "}));
        // The monitor knows the new one.
        AppWatchdogMonitor::instance()->stopAllProcesses();
        QTRY_COMPARE(m_journal->signalsSeen.size(), 4);
        QCOMPARE(m_journal->monitorLines().last(), removed.arg(second));
    }

    void theNextChildMayBeStartedAndStoppedWhenTheLastOneIsTold()
    {
        const auto watchdog = this->watchdog({});
        QVERIFY(watchdog->start());
        m_journal->onTerminated = [&] {
            m_journal->onTerminated = nullptr;
            QVERIFY(watchdog->start());
            watchdog->stop(false, true);
        };
        watchdog->stop(false, true);
        QTRY_COMPARE(m_journal->signalsSeen.size(), 4);
        QCOMPARE(m_journal->monitorLines().filter("removeProcess").size(), 2);
        QCOMPARE(m_journal->fatalLines(), QStringList());
    }

    void aChangeOfAWatchedValueKillsTheChild()
    {
        const CMPath path = CMPath::fromEncoded("settings:restart");
        const auto node = CMValueNode::create(m_fixture->nodes(), path);
        node->setValue(number(1));
        write("log", "");
        const auto watchdog = this->watchdog({});
        watchdog->setLogFileName(file("log"));
        watchdog->addRestartOnChangedItem(path);
        m_journal->onTerminated = [&] { QVERIFY(watchdog->start()); };
        QVERIFY(watchdog->start());
        auto* item = watchdog->findChild<CMValueItem*>();
        QVERIFY(item);
        QTRY_COMPARE(item->value().i32_(), 1);
        QCOMPARE(m_journal->signalsSeen.size(), 1);
        setNode(path, number(2));
        QTRY_COMPARE(m_journal->signalsSeen.mid(1), (QStringList{"terminated svc 9", "started svc "}));
        QVERIFY(watchdog->isRunning());
        // From a value to none is a change, from none to a value is not.
        setNode(path, OrvoValue());
        QTRY_COMPARE(m_journal->signalsSeen.size(), 5);
        setNode(path, number(3));
        QTRY_COMPARE(item->value().i32_(), 3);
        QVERIFY(watchdog->isRunning());
        QCOMPARE(m_journal->signalsSeen.size(), 5);
        QCOMPARE(m_journal->fatalLines(), QStringList());
        QVERIFY(QFile::exists(file("log")));
        node->deleteLater();
        m_journal->onTerminated = nullptr;
    }

    // All children

    void allAreStoppedAndReported()
    {
        const auto first = this->watchdog({});
        AppWatchdog second("other", "/bin/sleep", {"60"});
        m_journal->follow(&second);
        QVERIFY(first->start());
        QVERIFY(second.start());
        const QList<int> pids = childPids();
        QCOMPARE(pids.size(), 2);
        const int before = m_journal->monitorLines().size();
        AppWatchdogMonitor::instance()->stopAllProcesses();
        const QStringList lines = m_journal->monitorLines().mid(before);
        QCOMPARE(lines.size(), 5);
        QCOMPARE(lines.first(), QString("INFO Monitor: stopAllProcesses: "));
        for (const int pid : pids) {
            const QString name = pid == pids[0] ? watchedChild() : "/bin/sleep";
            const int at = lines.indexOf(QString("INFO   process: id=%1, name=%2").arg(pid).arg(name));
            QVERIFY2(at > 0, qPrintable(lines.join('\n')));
            QCOMPARE(lines.value(at + 1), QString("INFO Monitor: removeProcess: id=%1").arg(pid));
        }
        QTRY_COMPARE(m_journal->signalsSeen.filter("terminated").size(), 2);
        QCOMPARE(m_journal->fatalLines().size(), 2);
        AppWatchdogMonitor::instance()->stopAllProcesses();
        QCOMPARE(m_journal->monitorLines().size(), before + 6);
    }

    void theNetworkGoingDownStopsThoseMarkedForIt()
    {
        const CMPath path = OrvoNetworkStateConnected();
        const auto node = CMValueNode::create(m_fixture->nodes(), path);
        node->setValue(OrvoValue().setBool_(false));
        const auto marked = this->watchdog({});
        marked->setStopOnNetworkDown(true);
        AppWatchdog unmarked("other", "/bin/sleep", {"60"});
        m_journal->follow(&unmarked);
        QVERIFY(unmarked.start());
        QVERIFY(marked->start());
        QTRY_VERIFY(m_fixture->hub()->valuePath(path));
        const int pid = childPids().value(1);
        const int before = m_journal->monitorLines().size();

        // Never up, so it does not go down.
        QCoreApplication::processEvents();
        QCOMPARE(m_journal->monitorLines().size(), before);
        setNode(path, OrvoValue().setBool_(true));
        m_fixture->hub()->deliver();
        setNode(path, OrvoValue().setBool_(false));
        m_fixture->hub()->deliver();
        QTRY_COMPARE(m_journal->signalsSeen.last(), QString("terminated svc 9"));
        QCOMPARE(m_journal->monitorLines().mid(before),
                 (QStringList{"INFO Monitor: Network down stopping processes:",
                              QString("INFO   process: id=%1, name=%2").arg(pid).arg(watchedChild()),
                              QString("INFO Monitor: removeProcess: id=%1").arg(pid)}));
        QVERIFY(unmarked.isRunning());
        QCOMPARE(m_journal->fatalLines(), QStringList());
        // Coming back starts nothing.
        setNode(path, OrvoValue().setBool_(true));
        m_fixture->hub()->deliver();
        QVERIFY(!marked->isRunning());
        node->deleteLater();
    }

    // Life time

    void destroyingAWatchdogEndsItsChild()
    {
        auto watchdog = this->watchdog({});
        QVERIFY(watchdog->start());
        const int pid = childPids().value(0);
        watchdog.reset();
        QCOMPARE(stateOf(pid), char(0));
        QCOMPARE(m_journal->monitorLines().last(), QString("INFO Monitor: removeProcess: id=%1").arg(pid));
        AppWatchdogMonitor::instance()->stopAllProcesses();
        QCOMPARE(m_journal->monitorLines().size(), 3);
    }

    void aWatchdogMayBeDestroyedWhenItTells()
    {
        auto watchdog = this->watchdog({"exit:0"});
        m_journal->onTerminated = [&] { watchdog.reset(); };
        QVERIFY(watchdog->start());
        QTRY_VERIFY(!watchdog);
        auto other = this->watchdog({});
        m_journal->onStarted = [&] { other.reset(); };
        other->start();
        QVERIFY(!other);
        AppWatchdogMonitor::instance()->stopAllProcesses();
        QCOMPARE(m_journal->monitorLines().last(), QString("INFO Monitor: stopAllProcesses: "));
    }

    void nothingIsLeftOfAThousandChildren()
    {
        AppWatchdog watchdog("svc", "/bin/sleep", {"60"});
        QSignalSpy ended(&watchdog, SIGNAL(terminated(QString,int)));
        QVERIFY(watchdog.start());
        watchdog.stop(false, true);
        QVERIFY(ended.wait());
        const int files = openFiles();
        const int objects = watchdog.findChildren<QObject*>().size();
        for (int i = 1; i <= 1000; ++i) {
            QVERIFY(watchdog.start());
            if (i % 2 == 0)
                watchdog.stop(false, i % 4 == 0);
            else
                watchdog.stopSignal(false, i % 4 == 1 ? SIGTERM : SIGKILL, 5000);
            QVERIFY(ended.wait());
        }
        QCOMPARE(ended.size(), 1001);
        QVERIFY(childPids().isEmpty());
        QCOMPARE(openFiles(), files);
        QCOMPARE(runningTimers(&watchdog), 0);
        QCOMPARE(watchdog.findChildren<QObject*>().size(), objects);
    }
};

QTEST_GUILESS_MAIN(tst_AppWatchdog)
#include "tst_appwatchdog.moc"
