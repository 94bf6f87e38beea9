#include "device.h"

#include "core/model/cmmetatypes.h"
#include "core/model/cmnodes.h"
#include "core/model/cmroot.h"
#include "core/model/cmrpcserver.h"
#include "records/orvoconstants.h"
#include "support/watchdogfixture.h"
#include "tools/orvoctl/ctlrun.h"

#include <csignal>
#include <sys/resource.h>
#include <unistd.h>

namespace {

/// Runs until it is ended.
QJsonObject sleeper(const QString& id)
{
    return {{"id", id}, {"program", "sleep"}, {"arguments", QJsonArray{"1000"}}};
}

QJsonObject child(const QString& id, const QStringList& steps)
{
    return {{"id", id}, {"program", watchedChild()}, {"arguments", QJsonArray::fromStringList(steps)}};
}

QJsonObject shell(const QString& id, const QString& script)
{
    return {{"id", id}, {"program", "sh"}, {"arguments", QJsonArray{"-c", script}}};
}

QJsonObject with(QJsonObject object, const QString& key, const QJsonValue& value)
{
    object.insert(key, value);
    return object;
}

/// The values of other services that these here follow; served by this process under the name of the network service.
class Values
{
public:
    Values() : m_worker({{OrvoWorkerArguments::Prefix(), prefix() + ":"}}, prefix())
    {
        CMRoot_setInstance(&m_worker);
        m_server = std::make_unique<CMRPCServer>(nullptr, prefix());
    }
    ~Values() { m_server.reset(); }

    /// The name of the network service, which is the same on every device.
    static QString prefix() { return OrvoNetworkStateConnected().prefix(); }
    CMValueNode* add(const CMPath& path) { return CMValueNode::create(m_worker.nodes(), path); }

private:
    CMNodesWorker m_worker;
    std::unique_ptr<CMRPCServer> m_server;
};

} // namespace

/// orvo-supervisor with real services, on a bus of this test's own where they have bus names.
class tst_OrvoSupervisor : public QObject
{
    Q_OBJECT

private:
    QProcess m_bus;
    std::unique_ptr<Values> m_values;
    std::unique_ptr<Device> m_device;

    Device& device() { return *m_device; }
    /// A name on the bus that no other test takes.
    QString busName(const QString& id) const { return "org.example." + id; }

private slots:
    void initTestCase()
    {
        orvoRegisterMetaTypes();
        m_bus.start("dbus-daemon", {"--session", "--nofork", "--nopidfile", "--print-address=1",
                                    "--address=unix:tmpdir=" + QDir::tempPath()});
        QTRY_VERIFY(m_bus.canReadLine());
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", m_bus.readLine().trimmed());
        m_values = std::make_unique<Values>();
    }
    void cleanupTestCase()
    {
        m_values.reset();
        m_bus.terminate();
        QVERIFY(m_bus.waitForFinished());
    }
    void init() { m_device = std::make_unique<Device>(); }
    void cleanup()
    {
        m_device.reset();
        QCOMPARE(childPids(), QList<int>{int(m_bus.processId())});
    }

    // Start and stop

    void servicesStartBehindThoseTheyDependOn()
    {
        QVERIFY(device().start({with(sleeper("c"), "after", QJsonArray{"a", "b"}),
                                with(sleeper("b"), "after", QJsonArray{"a"}), sleeper("a")}));
        QTRY_COMPARE(device().lines(), QStringList({"a: running", "b: running", "c: running"}));
        QCOMPARE(device().state("c"), QString("running"));
        QVERIFY(device().pid("c") > 0);
        QCOMPARE(device().restarts("c"), 0);
        QCOMPARE(device().read("c/lastExit"), QString(""));
    }

    void sigtermStopsAllInReverseOrder()
    {
        // The last one takes its time, and the others wait for it.
        const QString journal = device().file("journal");
        const QString script = "trap 'sleep 0.%2; echo %1 >> " + journal + "; exit 0' TERM; touch " + journal
                               + "-%1; while :; do sleep 0.05; done";
        QVERIFY(device().start({with(shell("c", script.arg("c").arg(3)), "after", QJsonArray{"b"}),
                                with(shell("b", script.arg("b").arg(2)), "after", QJsonArray{"a"}),
                                shell("a", script.arg("a").arg(1))}));
        for (const char* id : {"a", "b", "c"})
            QTRY_VERIFY(QFile::exists(journal + "-" + id));
        QVERIFY(device().stop());
        QCOMPARE(contentOf(journal), QByteArray("c\nb\na\n"));
        QCOMPARE(device().lines().mid(device().lines().indexOf("stopping all services")),
                 QStringList({"stopping all services", "c: stopping", "c: exit 0", "c: stopped", "b: stopping",
                              "b: exit 0", "b: stopped", "a: stopping", "a: exit 0", "a: stopped"}));
    }

    void aServiceThatHeedsNoSigtermIsKilledInTheEnd()
    {
        QVERIFY(device().start({with(child("a", {"ignore:15", "file:" + device().file("up")}), "stopTimeoutMs", 100)}));
        QTRY_VERIFY(QFile::exists(device().file("up")));
        QVERIFY(device().stop());
        QVERIFY(device().lines().contains("a: signal 9"));
    }

    void aSecondSigtermKillsWhatIsLeft()
    {
        QVERIFY(device().start({sleeper("first"), with(child("a", {"ignore:15", "file:" + device().file("up")}),
                                                       "stopTimeoutMs", 1000000)}));
        QTRY_VERIFY(QFile::exists(device().file("up")));
        QVERIFY(device().signal(SIGTERM));
        QTRY_VERIFY(device().lines().contains("a: stopping"));
        QVERIFY(device().stop());
        QVERIFY(device().lines().contains("a: signal 9"));
        QVERIFY(device().lines().contains("first: signal 9"));
    }

    void noServiceOutlivesAKilledSupervisor()
    {
        QVERIFY(device().start({sleeper("a"), sleeper("b")}));
        QTRY_COMPARE(device().state("b"), QString("running"));
        const QList<int> pids{device().pid("a"), device().pid("b")};
        QVERIFY(device().signal(SIGKILL));
        QVERIFY(device().process().waitForFinished());
        for (const int pid : pids)
            QVERIFY(endsSoon(pid));
        QFile::remove(device().socket());
    }

    void aSupervisorOfNoServicesStopsToo()
    {
        QVERIFY(device().start({}));
        QTRY_VERIFY(QFile::exists(device().socket()));
        QVERIFY(device().stop());
    }

    // Restarts

    void aKilledServiceComesBack()
    {
        QVERIFY(device().start({sleeper("a"), with(sleeper("b"), "after", QJsonArray{"a"})}));
        QTRY_COMPARE(device().state("b"), QString("running"));
        const int pid = device().pid("a");
        const int other = device().pid("b");
        QCOMPARE(kill(pid, SIGKILL), 0);
        QTRY_COMPARE(device().restarts("a"), 1);
        QTRY_COMPARE(device().state("a"), QString("running"));
        QVERIFY(device().pid("a") > 0 && device().pid("a") != pid);
        QCOMPARE(device().read("a/lastExit"), QString("signal 9"));
        // A service that runs is left alone when one that it depends on goes and comes.
        QCOMPARE(device().pid("b"), other);
    }

    void theRestartPolicyDecidesWhatAnEndIs_data()
    {
        QTest::addColumn<QString>("policy");
        QTest::addColumn<QString>("end");
        QTest::addColumn<QString>("state");
        QTest::addColumn<int>("restarts");
        // With one restart at most, and an end each time.
        QTest::newRow("always, clean") << "always"
                                       << "exit 0"
                                       << "failed" << 1;
        QTest::newRow("always, failure") << "always"
                                         << "exit 3"
                                         << "failed" << 1;
        QTest::newRow("onFailure, clean") << "onFailure"
                                          << "exit 0"
                                          << "stopped" << 0;
        QTest::newRow("onFailure, failure") << "onFailure"
                                            << "exit 3"
                                            << "failed" << 1;
        QTest::newRow("onFailure, crash") << "onFailure"
                                          << "signal 9"
                                          << "failed" << 1;
        QTest::newRow("never, clean") << "never"
                                      << "exit 0"
                                      << "stopped" << 0;
        QTest::newRow("never, failure") << "never"
                                        << "exit 3"
                                        << "failed" << 0;
    }
    void theRestartPolicyDecidesWhatAnEndIs()
    {
        QFETCH(QString, policy);
        QFETCH(QString, end);
        QFETCH(QString, state);
        QFETCH(int, restarts);
        const QString script = end.startsWith("exit") ? end : QString("kill -KILL $$");
        QVERIFY(device().start(
            {with(shell("a", script), "restart", QJsonObject{{"policy", policy}, {"limit", 1}, {"backOffMs", 1}})}));
        QTRY_COMPARE(device().state("a"), state);
        QCOMPARE(device().restarts("a"), restarts);
        QCOMPARE(device().read("a/lastExit"), end);
        QCOMPARE(device().pid("a"), 0);
    }

    void theBackOffDoublesUpToItsMaximum()
    {
        QVERIFY(device().start(
            {with(shell("a", "exit 1"), "restart", QJsonObject{{"backOffMs", 2}, {"maxBackOffMs", 9}, {"limit", 5}})}));
        QTRY_COMPARE(device().state("a"), QString("failed"));
        QCOMPARE(device().lines().filter("starts again"),
                 QStringList({"a: starts again in 2 ms", "a: starts again in 4 ms", "a: starts again in 8 ms",
                              "a: starts again in 9 ms", "a: starts again in 9 ms"}));
        QCOMPARE(device().lines().mid(device().lines().size() - 2),
                 QStringList({"a: given up after 5 restarts in a row", "a: failed"}));
    }

    void aHealthyServiceBeginsANewRow()
    {
        QVERIFY(device().start({with(shell("a", "[ -e " + device().file("enough") + " ] && exec sleep 1000; exit 1"),
                                     "restart", QJsonObject{{"backOffMs", 1}, {"limit", 1}, {"healthyMs", 0}})}));
        QTRY_VERIFY(device().restarts("a") > 5);
        QFile enough(device().file("enough"));
        QVERIFY(enough.open(QIODevice::WriteOnly));
        QTRY_COMPARE(device().state("a"), QString("running"));
    }

    void aProgramThatIsNotThereIsTold()
    {
        QVERIFY(device().start({with(QJsonObject{{"id", "a"}, {"program", "/no/such/program"}}, "restart",
                                     QJsonObject{{"policy", "never"}})}));
        QTRY_COMPARE(device().state("a"), QString("failed"));
        QCOMPARE(device().read("a/lastExit"), QString("cannot start: execve: No such file or directory"));
    }

    void aServiceIsNotStartedWhileOneItDependsOnHasFailed()
    {
        QVERIFY(device().start({with(shell("a", "[ -e " + device().file("well") + " ] && exec sleep 1000; exit 1"),
                                     "restart", QJsonObject{{"policy", "never"}}),
                                with(sleeper("b"), "after", QJsonArray{"a"})}));
        QTRY_COMPARE(device().state("a"), QString("failed"));
        // It may have been up together with the one that failed at once.
        QCOMPARE(device().invoke("b/stop").error, QString());
        const CMReply<QVariant> started = device().ask("b/start");
        QTRY_COMPARE(device().state("b"), QString("waiting"));
        QVERIFY(!started.isFinished());
        QFile well(device().file("well"));
        QVERIFY(well.open(QIODevice::WriteOnly));
        QCOMPARE(device().invoke("a/start").error, QString());
        QTRY_VERIFY(started.isFinished());
        QCOMPARE(device().state("b"), QString("running"));
    }

    // Actions

    void anActionIsAnsweredWhenItIsDone()
    {
        QVERIFY(device().start({sleeper("a")}));
        QTRY_COMPARE(device().state("a"), QString("running"));
        const int pid = device().pid("a");

        Answer answer = device().invoke("a/stop");
        QVERIFY(answer.isFinished);
        QCOMPARE(answer.error, QString());
        QCOMPARE(device().state("a"), QString("stopped"));
        QCOMPARE(stateOf(pid), char(0));
        QCOMPARE(device().read("a/uptime"), QString("0"));

        answer = device().invoke("a/start");
        QVERIFY(answer.isFinished);
        QCOMPARE(answer.error, QString());
        QCOMPARE(device().state("a"), QString("running"));
        const int second = device().pid("a");
        QVERIFY(second != pid);

        answer = device().invoke("a/restart");
        QVERIFY(answer.isFinished);
        QCOMPARE(answer.error, QString());
        QCOMPARE(device().state("a"), QString("running"));
        QVERIFY(device().pid("a") != second);
        QCOMPARE(device().restarts("a"), 2);
    }

    void aStartThatFailsIsAnsweredWithTheReason()
    {
        QVERIFY(device().start({with(child("a", {"exit:5"}), "restart", QJsonObject{{"limit", 2}, {"backOffMs", 1}})}));
        QTRY_COMPARE(device().state("a"), QString("failed"));
        QVERIFY(device().invoke("a/stop").isFinished);
        QCOMPARE(device().state("a"), QString("stopped"));
        // Without a bus name it counts as up while it runs, be it for ever so short.
        QVERIFY(device().invoke("a/start").isFinished);
        QTRY_COMPARE(device().restarts("a"), 5);
        QTRY_COMPARE(device().state("a"), QString("failed"));
    }

    void aServiceThatIsStoppedStaysSo()
    {
        QVERIFY(device().start({sleeper("a"), shell("b", "exit 1")}));
        QTRY_COMPARE(device().state("a"), QString("running"));
        QVERIFY(device().invoke("a/stop").isFinished);
        QVERIFY(device().invoke("b/stop").isFinished);
        const int restarts = device().restarts("b");
        QTest::qWait(300);
        QCOMPARE(device().state("a"), QString("stopped"));
        QCOMPARE(device().state("b"), QString("stopped"));
        QCOMPARE(device().restarts("b"), restarts);
    }

    void theStateCannotBeWritten()
    {
        QVERIFY(device().start({sleeper("a")}));
        QTRY_COMPARE(device().state("a"), QString("running"));
        QVERIFY(orvoctl({"set", device().name() + ":services/a/state", "stopped"}).status != 0);
        QCOMPARE(device().state("a"), QString("running"));
    }

    void orvoctlShowsAndDrivesTheServices()
    {
        QVERIFY(device().start({sleeper("a"), sleeper("b")}));
        QTRY_COMPARE(device().state("b"), QString("running"));
        const QString services = device().name() + ":services";
        const Run rows = orvoctl({"rows", services, "--role", "title"});
        QCOMPARE(rows.status, 0);
        QCOMPARE(rows.lines(), QList<QByteArray>({"ROW  TITLE", "0    a", "1    b"}));
        const Run tree = orvoctl({"tree", device().name() + ":"});
        QCOMPARE(tree.status, 0);
        for (const char* id : {"state", "pid", "restarts", "lastExit", "uptime", "start", "stop", "restart"})
            QVERIFY2(tree.out.contains((services + "/b/" + id).toUtf8()), id);
        const Run restart = orvoctl({"invoke", services + "/a/restart"});
        QCOMPARE(restart.status, 0);
        QCOMPARE(orvoctl({"get", services + "/a/restarts", "value"}).out, QByteArray("1\n"));
    }

    void aWatchedUptimeCountsOn()
    {
        QVERIFY(device().start({sleeper("a")}));
        QTRY_COMPARE(device().state("a"), QString("running"));
        Running watch({"watch", device().name() + ":services/a/uptime", "-n", "1"});
        QTRY_COMPARE(watch.process().state(), QProcess::NotRunning);
        QCOMPARE(watch.process().exitCode(), 0);
    }

    // What the process is given

    void environmentNiceAndArgumentsReachTheService()
    {
        QJsonObject service = shell("a", "echo \"$COLOUR $1\" > " + device().file("said") + "; exec sleep 1000");
        service.insert("arguments", QJsonArray{service.value("arguments").toArray().at(0),
                                               service.value("arguments").toArray().at(1), "sh", "an argument"});
        service.insert("environment", QJsonObject{{"COLOUR", "red"}});
        service.insert("nice", 7);
        QVERIFY(device().start({service}));
        QTRY_COMPARE(contentOf(device().file("said")), QByteArray("red an argument\n"));
        const QByteArray stat = contentOf(QString("/proc/%1/stat").arg(device().pid("a")));
        QCOMPARE(stat.mid(stat.lastIndexOf(')') + 2).split(' ').at(16).toInt(), 7 + getpriority(PRIO_PROCESS, 0));
    }

    void theServiceRunsAsItsUser()
    {
        if (geteuid() != 0)
            QSKIP("Only root changes the user");
        QVERIFY(device().start({with(sleeper("a"), "user", "nobody")}));
        QTRY_COMPARE(device().state("a"), QString("running"));
        QVERIFY(contentOf(QString("/proc/%1/status").arg(device().pid("a"))).contains("Uid:\t65534\t65534\t65534\t"));
    }

    void theLogOfACrashIsKept()
    {
        const QString log = device().file("a.log");
        QVERIFY(device().start({with(with(child("a", {"file:" + log, "raise:11"}), "logFile", log), "restart",
                                     QJsonObject{{"policy", "never"}})}));
        QTRY_COMPARE(device().state("a"), QString("failed"));
        QCOMPARE(device().read("a/lastExit"), QString("signal 11"));
        QVERIFY(QFile::exists(log + ".crash"));
        QVERIFY(!QFile::exists(log));
    }

    // The bus

    void aServiceIsUpWhenItHasItsBusName()
    {
        QVERIFY(device().start(
            {with(child("a", {"pid:" + device().file("pid"), "block:10", "file:" + device().file("blocked"), "await:10",
                              "take:" + busName("late")}),
                  "busName", busName("late")),
             with(sleeper("b"), "after", QJsonArray{"a"})}));
        QTRY_VERIFY(QFile::exists(device().file("blocked")));
        QTRY_COMPARE(device().state("a"), QString("starting"));
        QCOMPARE(device().pid("a"), contentOf(device().file("pid")).trimmed().toInt());
        QCOMPARE(device().state("b"), QString("waiting"));
        QCOMPARE(device().pid("b"), 0);
        QCOMPARE(kill(device().pid("a"), SIGUSR1), 0);
        QTRY_COMPARE(device().state("a"), QString("running"));
        QTRY_COMPARE(device().state("b"), QString("running"));
    }

    void aServiceThatNeverTakesItsNameIsGivenUp()
    {
        QJsonObject service = with(sleeper("a"), "busName", busName("never"));
        service.insert("startTimeoutMs", 20);
        service.insert("restart", QJsonObject{{"policy", "onFailure"}, {"limit", 2}, {"backOffMs", 1}});
        QVERIFY(device().start({service}));
        QTRY_COMPARE(device().state("a"), QString("failed"));
        QCOMPARE(device().restarts("a"), 2);
        const Answer answer = device().invoke("a/start");
        QVERIFY(answer.isFinished);
        QCOMPARE(answer.error, QString("The service is failed: signal 15"));
    }

    void aServiceThatAnswersNoPingIsStartedAgain()
    {
        // The first one no longer serves its events, the second one does.
        const QString script = "if mkdir " + device().file("first") + "; then exec " + watchedChild()
                               + " take:" + busName("pinged") + " block:10 await:10; else exec " + watchedChild()
                               + " ping:/ take:" + busName("pinged") + "; fi";
        QJsonObject service = with(shell("a", script), "busName", busName("pinged"));
        service.insert("ping", QJsonObject{{"intervalMs", 300}});
        QVERIFY(device().start({service}));
        QTRY_COMPARE_WITH_TIMEOUT(device().restarts("a"), 1, 20000);
        QTRY_COMPARE(device().state("a"), QString("running"));
        QCOMPARE(device().read("a/lastExit"), QString("signal 6"));
    }

    // Values of other services

    void aChangedValueRestartsWithoutCountingAsFailure()
    {
        CMValueNode* language = m_values->add(CMPath::fromPrefix(Values::prefix()) + "language");
        language->setValue(OrvoValue().setString_("de"));
        QJsonObject service = with(sleeper("a"), "restartOnChanged", QJsonArray{Values::prefix() + ":language"});
        service.insert("restart", QJsonObject{{"limit", 1}, {"backOffMs", 1000000}, {"maxBackOffMs", 1000000}});
        QVERIFY(device().start({service}));
        QTRY_VERIFY(!language->valuePaths().isEmpty());
        QTRY_COMPARE(device().state("a"), QString("running"));
        // A change that is there ahead of its first reading is none for it.
        int changes = 0;
        QTRY_VERIFY_WITH_TIMEOUT(
            (language->setValue(OrvoValue().setString_(QString::number(++changes))), device().restarts("a") >= 3),
            20000);
        QTRY_COMPARE(device().state("a"), QString("running"));
        QCOMPARE(device().read("a/lastExit"), QString("signal 9"));
    }

    void theNetworkGoingDownRestartsThoseThatAreMarked()
    {
        CMValueNode* connected = m_values->add(OrvoNetworkStateConnected());
        connected->setValue(OrvoValue().setBool_(true));
        QVERIFY(device().start(
            {with(with(sleeper("a"), "stopOnNetworkDown", true), "restart",
                  QJsonObject{{"limit", 1}, {"backOffMs", 1000000}, {"maxBackOffMs", 1000000}}),
             sleeper("b"),
             with(with(sleeper("c"), "stopOnNetworkDown", true), "restart", QJsonObject{{"policy", "never"}})}));
        QTRY_VERIFY(!connected->valuePaths().isEmpty());
        QTRY_COMPARE(device().state("b"), QString("running"));
        bool isConnected = true;
        QTRY_VERIFY_WITH_TIMEOUT(
            (connected->setValue(OrvoValue().setBool_(isConnected = !isConnected)), device().restarts("a") >= 2),
            20000);
        QTRY_COMPARE(device().state("a"), QString("running"));
        QCOMPARE(device().restarts("b"), 0);
        QTRY_COMPARE(device().state("c"), QString("stopped"));
    }
};

QTEST_GUILESS_MAIN(tst_OrvoSupervisor)

#include "tst_orvosupervisor.moc"
