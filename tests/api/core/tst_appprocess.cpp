#include "childprocess.h"
#include "core/appWatchdog.h"
#include "support/watchdogfixture.h"

#include <csignal>
#include <memory>
#include <unistd.h>

namespace {

const int nobody = 65534;

} // namespace

/// What a child is born with.
class tst_AppProcess : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<Journal> m_journal;

    QString file(const QString& name) const { return m_folder->filePath(name); }
    std::unique_ptr<AppWatchdog> shell(const QString& script) const
    {
        auto made = std::make_unique<AppWatchdog>("svc", "/bin/sh", QStringList{"-c", script});
        m_journal->follow(made.get());
        return made;
    }

private slots:
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

    void theChildRunsAsTheUser()
    {
        if (geteuid() != 0)
            QSKIP("Only root changes the user");
        QVERIFY(QFile(m_folder->path()).setPermissions(QFile::Permissions(0x7777)));
        const QString out = file("ids");
        const auto watchdog =
            shell("(id -ru; id -u; id -rg; id -g; id -G) > " + out + ".part; mv " + out + ".part " + out);
        watchdog->setUser("nobody");
        QVERIFY(watchdog->start());
        QTRY_VERIFY(m_journal->ended());
        const QByteArray id = QByteArray::number(nobody) + '\n';
        QCOMPARE(contentOf(out), id + id + id + id + id);
    }

    void anUnknownUserIsLoggedAndChangesNothing()
    {
        const LogCapture log("AppProcess");
        const auto watchdog = shell("id -u > " + file("id"));
        watchdog->setUser("nobody");
        watchdog->setUser("no-such-user");
        QCOMPARE(log.lines(), QStringList("ERROR Failed to get info about user: no-such-user"));
        QVERIFY(watchdog->start());
        QTRY_VERIFY(m_journal->ended());
        QCOMPARE(contentOf(file("id")), QByteArray::number(geteuid()) + '\n');
    }

    void aUserThatMayNotBeTakenIsToldByTheChild()
    {
        if (geteuid() != 0)
            QSKIP("Only root changes the user");
        const ChildEnd end = runThisProgram({"--without-rights"});
        QCOMPARE(end.exitCode, 0);
        QCOMPARE(end.errors, QByteArray("Cannot initialize supplementary groups\nCannot change user/group\n65534\n"));
    }

    void theChildEndsWithItsParent()
    {
        QProcess supervisor;
        supervisor.start(QCoreApplication::applicationFilePath(), {"--supervise", file("pid")});
        QTRY_VERIFY(contentOf(file("pid")).endsWith('\n'));
        const int pid = contentOf(file("pid")).trimmed().toInt();
        QVERIFY(pid > 1);
        QVERIFY(stateOf(pid) != 0);
        supervisor.kill();
        QVERIFY(supervisor.waitForFinished());
        QVERIFY(endsSoon(pid));
    }

    void aNicerChildIsRunByNice()
    {
        const auto watchdog = shell("nice > " + file("nice"));
        watchdog->renice(7);
        QCOMPARE(watchdog->name(), QString("nice"));
        QCOMPARE(watchdog->args(), (QStringList{"-n", "7", "/bin/sh", "-c", "nice > " + file("nice")}));
        QVERIFY(watchdog->start());
        QVERIFY2(m_journal->monitorLines().value(0).endsWith(", name=nice"), qPrintable(m_journal->monitorLines()[0]));
        QTRY_VERIFY(m_journal->ended());
        QCOMPARE(contentOf(file("nice")), QByteArray("7\n"));
    }

    void theChildHasOurEnvironmentAndMore()
    {
        qputenv("ORVO_TEST_OURS", "ours");
        const auto watchdog = shell("echo $ORVO_TEST_OURS $ORVO_TEST_MORE > " + file("out"));
        watchdog->addEnvironments({{"ORVO_TEST_MORE", "more"}});
        watchdog->addEnvironments({{"ORVO_TEST_OTHER", "other"}});
        QVERIFY(watchdog->start());
        QTRY_VERIFY(m_journal->ended());
        QCOMPARE(contentOf(file("out")), QByteArray("ours more\n"));
    }
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.value(1) == QLatin1String("--without-rights")) {
        AppWatchdog watchdog("svc", "/bin/sh", {"-c", "id -u >&2"});
        watchdog.setUser("root");
        if (setgid(nobody) != 0 || setuid(nobody) != 0)
            return 2;
        QObject::connect(&watchdog, &AppWatchdog::terminated, &application, &QCoreApplication::quit);
        const LogCapture log("AppWatchdog");
        const LogCapture monitorLog("AppWatchdogMonitor");
        return watchdog.start() ? QCoreApplication::exec() : 3;
    }
    if (arguments.value(1) == QLatin1String("--supervise")) {
        const LogCapture log("AppWatchdog");
        const LogCapture monitorLog("AppWatchdogMonitor");
        AppWatchdog watchdog("svc", watchedChild(), {"pid:" + arguments.value(2)});
        watchdog.setParentDeathSignal(SIGKILL);
        return watchdog.start() ? QCoreApplication::exec() : 3;
    }
    tst_AppProcess test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_appprocess.moc"
