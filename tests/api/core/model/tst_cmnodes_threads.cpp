#include "core/model/cmnodes.h"

#include "nodetest.h"
#include "runtogether.h"

#include <QtTest>

#include <atomic>
#include <functional>
#include <vector>

namespace {

/// Counts what it is told; lives in the hub's thread for the whole test.
class Counter : public QObject
{
    Q_OBJECT

public:
    std::atomic<int> calls{0};

public slots:
    void told() { ++calls; }
};

CMPath numbered(int number)
{
    return CMPath::fromEncoded(QString("x:n/%1").arg(number, 3, 10, QChar('0')));
}

} // namespace

class tst_CMNodesThreads : public QObject
{
    Q_OBJECT

private slots:
    void nodesComeAndGoWhileOthersAskAndSubscribe()
    {
        constexpr int rounds = 1000;
        constexpr int paths = 20;
        NodesFixture f;
        CMNodes* nodes = f.nodes();
        std::atomic<int> answered{0};
        std::atomic<int> failed{0};
        Counter counter;
        // Each owner has paths of its own, since a path takes one node.
        const auto owner = [&](int first) {
            return [&, first] {
                for (int i = 0; i < rounds; ++i) {
                    auto* node = CMValueNode::create(nodes, numbered(first + i % paths));
                    const QExplicitlySharedDataPointer<CMNode> kept(node);
                    node->setVariantValue(i);
                    node->setTitle(QString("t%1").arg(i));
                    node->dataChanged();
                    node->rowsChanged(QString("0"));
                    node->deleteLater();
                }
            };
        };
        const auto asker = [&](int seed) {
            return [&, seed] {
                QRandomGenerator random(seed);
                for (int i = 0; i < 2 * rounds; ++i) {
                    const CMPath path = numbered(random.bounded(2 * paths));
                    const auto reply = f.worker->getData(path, {OrvoRoles::Title(), OrvoRoles::Value()});
                    if (!reply.isFinished())
                        qFatal("A request hangs");
                    ++(reply.error().isError() ? failed : answered);
                    if (i % 10 == 0)
                        f.worker->setValue(path, OrvoValue().setI32_(i));
                    if (i % 50 == 0)
                        nodes->allNodes();
                    nodes->isNodeAtPath(path);
                }
            };
        };
        const auto subscriber = [&](int seed) {
            return [&, seed] {
                QRandomGenerator random(seed);
                for (int i = 0; i < rounds; ++i) {
                    const CMPath path = numbered(random.bounded(2 * paths));
                    for (auto type :
                         {CMAbstractWorker::ValueChange, CMAbstractWorker::DataChange, CMAbstractWorker::RowsChange})
                        f.worker->connectChange(type, path, &counter, SLOT(told()), Qt::DirectConnection);
                    f.worker->getData(path, {OrvoRoles::Title()});
                    for (auto type :
                         {CMAbstractWorker::ValueChange, CMAbstractWorker::DataChange, CMAbstractWorker::RowsChange})
                        f.worker->disconnectChange(type, path, &counter, SLOT(told()));
                }
            };
        };
        QVERIFY(runTogether({owner(0), owner(paths), asker(1), asker(2), subscriber(3), subscriber(4)}));
        QVERIFY(nodes->allNodes().isEmpty());
        QCOMPARE(answered + failed, 4 * rounds);
        for (int i = 0; i < 2 * paths; ++i) {
            QVERIFY(!f.hub()->valuePath(numbered(i)));
            QVERIFY(!f.hub()->dataPath(numbered(i)));
            QVERIFY(!f.hub()->rowsPath(numbered(i)));
        }
    }

    void theSetsOfANodeFollowTheSubscribers()
    {
        NodesFixture f;
        CMNode* node = CMNode::create(f.nodes(), P("x:a"));
        Counter counter;
        const auto subscriber = [&](const char* path) {
            return [&, path] {
                for (int i = 0; i < 2000; ++i) {
                    f.worker->connectDataChange(P(path), &counter, SLOT(told()), Qt::DirectConnection);
                    node->dataChanged();
                    f.worker->disconnectDataChange(P(path), &counter, SLOT(told()));
                }
                f.worker->connectDataChange(P(path), &counter, SLOT(told()), Qt::DirectConnection);
            };
        };
        QVERIFY(runTogether({subscriber("x:a?k=1"), subscriber("x:a?k=2"), subscriber("x:a?k=3")}));
        QCOMPARE(node->dataPaths(), QSet<CMPath>({P("x:a?k=1"), P("x:a?k=2"), P("x:a?k=3")}));
        counter.calls = 0;
        node->dataChanged();
        f.hub()->deliver();
        QCOMPARE(counter.calls.load(), 3);
    }

    void aListAndItsTargetsChangeTogether()
    {
        // The list's lock is taken ahead of the hub's by its changes, and behind a delivery by a target's change.
        NodesFixture f;
        CMListRowsNode* list = CMListRowsNode::create(f.nodes(), P("x:l"));
        QList<CMValueNode*> targets;
        for (int i = 0; i < 4; ++i)
            targets.append(CMValueNode::create(f.nodes(), numbered(i)));
        Counter counter;
        f.worker->connectRowsChange(P("x:l"), &counter, SLOT(told()), Qt::DirectConnection);
        QVERIFY(runTogether({
            [&] {
                for (int i = 0; i < 3000; ++i) {
                    list->rowsInsert(i % 3, numbered(i % 4));
                    if (list->rowsSize() > 10)
                        list->rowsRemoveAt(i % 5);
                    if (i % 100 == 0)
                        list->rowsClear();
                }
            },
            [&] {
                for (int i = 0; i < 3000; ++i) {
                    targets.at(i % 4)->setVariantValue(i);
                    f.worker->setValue(numbered(i % 4), OrvoValue().setI32_(-i));
                }
            },
            [&] {
                for (int i = 0; i < 1000; ++i) {
                    const auto reply = f.worker->getRows(P("x:l"), 0, 20, -1, {OrvoRoles::Value(), OrvoRoles::Path()});
                    const int rows = reply.value().rows().toList().size();
                    const int count = reply.value().rowsCount();
                    // An answer has 200 ms: on a slow machine it may bring less than all.
                    if (reply.error().isError() || rows > count)
                        qFatal("A rows request failed: %s, %d of %d rows", qPrintable(reply.error().message()), rows,
                               count);
                }
            },
            [&] {
                for (int i = 0; i < 1000; ++i) {
                    f.worker->connectRowsChange(P("x:l?k=v"), &counter, SLOT(told()), Qt::DirectConnection);
                    f.worker->disconnectRowsChange(P("x:l?k=v"), &counter, SLOT(told()));
                }
            },
        }));
        list->rowsClear();
        for (int i = 0; i < 4; ++i) {
            QVERIFY(!f.hub()->dataPath(numbered(i)));
            QVERIFY(targets.at(i)->dataPaths().isEmpty());
        }
        QVERIFY(counter.calls > 0);
    }

    void writesUnderASharedLockExcludeEachOther()
    {
        // Outlives the nodes that it is shared by.
        QMutex shared(QMutex::Recursive);
        NodesFixture f;
        CMValueNode* one = CMValueNode::create(f.nodes(), P("x:1"), &shared);
        CMValueNode* two = CMValueNode::create(f.nodes(), P("x:2"), &shared);
        std::atomic<int> inside{0};
        std::atomic<bool> overlapped{false};
        const auto note = [&] {
            if (++inside != 1)
                overlapped = true;
            QThread::yieldCurrentThread();
            --inside;
        };
        connect(one, &CMValueNode::valueChanged, one, note, Qt::DirectConnection);
        connect(two, &CMValueNode::valueChanged, two, note, Qt::DirectConnection);
        const auto writer = [&](const char* path, int sign) {
            return [&, path, sign] {
                for (int i = 1; i < 3000; ++i)
                    f.worker->setValue(P(path), OrvoValue().setI32_(sign * i));
            };
        };
        QVERIFY(runTogether({writer("x:1", 1), writer("x:1", -1), writer("x:2", 1), writer("x:2", -1)}));
        QVERIFY(!overlapped);
    }
};

QTEST_GUILESS_MAIN(tst_CMNodesThreads)
#include "tst_cmnodes_threads.moc"
