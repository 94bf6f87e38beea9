#include "support/clonetest.h"

#include "cmremoteworker.h"

/// A clone of a list in another process.
class tst_CMRowsCloneLink : public CloneTest
{
    Q_OBJECT

private slots:
    void aListOfAnotherProcessIsMirroredThroughARestart()
    {
        const QString name = serviceName("clone");
        ServerProcess server(name);
        QVERIFY(server.start({"--rows", "250"}));
        {
            CMRemoteWorker worker("mirror", name);
            ForwardingRoot::instance()->reset(&worker);
            CMRowsClone clone(nullptr, CMPath::fromPrefix(name) + "list");
            Mirror mirror(&clone);
            QTRY_COMPARE_WITH_TIMEOUT(clone.list().size(), 250, 10000);
            for (int i = 0; i < 3; ++i)
                worker.invoke(CMPath::fromPrefix(name) + "append", true);
            QTRY_COMPARE(clone.list().size(), 253);
            QCOMPARE(clone.list().last(), row("252"));
            const int changes = mirror.changes;
            server.kill();
            QVERIFY(server.start({"--rows", "251"}));
            QTRY_COMPARE_WITH_TIMEOUT(clone.list().size(), 251, 10000);
            QTRY_VERIFY(!clone.isLoading());
            // Only the two rows that are gone.
            QCOMPARE(mirror.changes, changes + 2);
            QCOMPARE(mirror.loads, 1);
            QCOMPARE(mirror.fault, QString());
            ForwardingRoot::instance()->reset(m_worker.get());
            clone.setPath(CMPath());
        }
        deleteWaiting();
    }

    void aServiceThatDiesWhileTheListLoadsIsMetAgain()
    {
        const QString name = serviceName("dying");
        ServerProcess server(name);
        QVERIFY(server.start({"--rows", "5000"}));
        {
            CMRemoteWorker worker("mirror", name);
            ForwardingRoot::instance()->reset(&worker);
            CMRowsClone clone(nullptr, CMPath::fromPrefix(name) + "list");
            Mirror mirror(&clone);
            QTRY_VERIFY(!clone.fetcher()->isLoading());
            server.kill();
            QVERIFY(clone.isLoading());
            QVERIFY(server.start({"--rows", "300"}));
            QTRY_COMPARE_WITH_TIMEOUT(clone.list().size(), 300, 20000);
            QVERIFY(!clone.isLoading());
            QCOMPARE(mirror.fault, QString());
            ForwardingRoot::instance()->reset(m_worker.get());
        }
        deleteWaiting();
    }
};

QTEST_GUILESS_MAIN(tst_CMRowsCloneLink)
#include "tst_cmrowsclone_link.moc"
