#include "core/model/cmrowsclone.h"

#include "cmremoteworker.h"
#include "core/model/cmglobal.h"
#include "core/model/cmroles.h"
#include "core/model/cmrpcclient.h"
#include "nodetest.h"
#include "records/orvoconstants.h"
#include "support/linkfixture.h"
#include "support/mirror.h"
#include "support/randomrows.h"

#include <log4cplus/logger.h>

/// A clone beside a list that changes at random: in quiet it has the list's rows, and at every step what it told.
class tst_CMRowsCloneRandom : public QObject
{
    Q_OBJECT

private:
    /// Once is enough: a change that was on its way may begin another load right behind.
    template <typename Condition>
    static bool becomesTrue(Condition condition)
    {
        return QTest::qWaitFor(condition, 20000);
    }

private slots:
    void initTestCase() { log4cplus::Logger::getRoot().setLogLevel(log4cplus::OFF_LOG_LEVEL); }

    void theCloneFollowsARandomList_data()
    {
        QTest::addColumn<quint32>("seed");
        QTest::addColumn<int>("steps");
        QTest::addColumn<bool>("merging");
        QTest::newRow("merged changes") << 1u << 3000 << true;
        QTest::newRow("other numbers") << 20261121u << 3000 << true;
        QTest::newRow("each change by itself") << 77u << 3000 << false;
    }
    void theCloneFollowsARandomList()
    {
        QFETCH(quint32, seed);
        QFETCH(int, steps);
        QFETCH(bool, merging);
        qInfo("seed %u", seed);
        CMNodesWorker worker({{OrvoWorkerArguments::MergeEvents(), merging}}, "random");
        ForwardingRoot::instance()->reset(&worker);
        CMListRowsNode* list = CMListRowsNode::create(worker.nodes(), P("t:list"));
        RandomRows script(list, seed);
        script.steps(20);
        QRandomGenerator pace(seed);
        {
            CMRowsClone clone(nullptr, P("t:list"));
            Mirror mirror(&clone);
            const auto isSame = [&] {
                QList<OrvoRoles> rows;
                for (const QVariant& row : list->rows())
                    rows.append(OrvoRoles(row));
                return !clone.isLoading() && clone.list() == rows;
            };
            int quiets = 0;
            while (steps > 0) {
                const int burst = 1 + int(pace.bounded(12u));
                script.steps(burst);
                steps -= burst;
                // From nothing at all up to a time in which most fetches end.
                if (pace.bounded(4u) == 0)
                    QTest::qWait(int(pace.bounded(80u)));
                else
                    QCoreApplication::processEvents();
                QVERIFY2(mirror.fault.isEmpty(), qPrintable(mirror.fault));
                if (pace.bounded(12u) == 0) {
                    QVERIFY(becomesTrue(isSame));
                    ++quiets;
                }
            }
            QVERIFY(becomesTrue(isSame));
            QTest::qWait(100);
            QVERIFY(becomesTrue(isSame));
            QVERIFY2(mirror.fault.isEmpty(), qPrintable(mirror.fault));
            qInfo("%d changes told, %d loads, %d times quiet", mirror.changes, mirror.loads, quiets);
            QVERIFY(mirror.changes > 1000 && mirror.loads > 0 && quiets > 5);
            QVERIFY(mirror.loaded == mirror.loads + 1);
        }
        ForwardingRoot::instance()->reset(nullptr);
    }

    void theCloneFollowsARandomListOfAnotherProcess()
    {
        quint32 seed = 4711;
        qInfo("seed %u", seed);
        const QString name = serviceName("random");
        ServerProcess server(name);
        QVERIFY(server.start({"--random", QString::number(seed)}));
        auto* worker = new CMRemoteWorker("mirror", name);
        ForwardingRoot::instance()->reset(worker);
        const CMPath list = CMPath::fromPrefix(name) + "random";
        {
            CMRowsClone clone(nullptr, list);
            Mirror mirror(&clone);
            QRandomGenerator pace(seed);
            const auto isSame = [&] {
                const CMReply<OrvoRowsRoles> reply = worker->getRows(list, 0, 9999, -1, CMAllRoles());
                if (!QTest::qWaitFor([&] { return reply.isFinished(); }) || reply.error().isError())
                    return false;
                QList<OrvoRoles> rows;
                for (const QVariant& values : reply.value().rows().toList())
                    rows.append(CMGlobal::rolesValuesToHash(CMAllRoles(), values.toList()));
                return !clone.isLoading() && clone.list() == rows;
            };
            int quiets = 0;
            for (int burst = 1; burst <= 240; ++burst) {
                worker->invoke(list + "/steps", 1 + int(pace.bounded(12u)));
                QTest::qWait(pace.bounded(3u) == 0 ? int(pace.bounded(80u)) : 1);
                QVERIFY2(mirror.fault.isEmpty(), qPrintable(mirror.fault));
                // In the midst of whatever is on its way, four times.
                if (burst % 60 == 30)
                    QVERIFY(server.start({"--random", QString::number(++seed)}));
                if (pace.bounded(16u) == 0) {
                    QVERIFY(becomesTrue(isSame));
                    ++quiets;
                }
            }
            QVERIFY(becomesTrue(isSame));
            QTest::qWait(100);
            QVERIFY(becomesTrue(isSame));
            QVERIFY2(mirror.fault.isEmpty(), qPrintable(mirror.fault));
            qInfo("%d changes told, %d loads, %d times quiet", mirror.changes, mirror.loads, quiets);
            QVERIFY(mirror.changes > 500 && mirror.loads >= 4 && quiets > 5);
        }
        ForwardingRoot::instance()->reset(nullptr);
        delete worker;
        deleteWaiting();
    }
};

QTEST_GUILESS_MAIN(tst_CMRowsCloneRandom)
#include "tst_cmrowsclone_random.moc"
