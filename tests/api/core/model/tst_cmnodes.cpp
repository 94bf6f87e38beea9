#include "core/model/cmnodes.h"

#include "childprocess.h"
#include "logcapture.h"
#include "nodetest.h"
#include "records/orvoconstants.h"

#include <QtTest>

#include <atomic>
#include <functional>

namespace {

thread_local bool s_counting = false;
std::atomic<int> s_allocations{0};

void countAllocation()
{
    if (s_counting)
        ++s_allocations;
}

} // namespace

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
// Sanitizers have an allocator of their own, which offers a hook.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void*, size_t),
                                                         void (*)(const volatile void*));

static const int s_hooked = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, size_t) { countAllocation(); }, [](const volatile void*) {});
#else
extern "C" {

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);

void* malloc(size_t size)
{
    countAllocation();
    return __libc_malloc(size);
}

void* calloc(size_t count, size_t size)
{
    countAllocation();
    return __libc_calloc(count, size);
}

void* realloc(void* memory, size_t size)
{
    countAllocation();
    return __libc_realloc(memory, size);
}

} // extern "C"
#endif

namespace {

/// What must stop the process, by the argument that the child is given.
const FatalCalls& fatalCalls()
{
    static const FatalCalls calls{
        {"pathWithParameters", [] { CMNode node(P("x:a?k=v")); }},
        {"twoNodesAtOnePath",
         [] {
             NodesFixture f;
             CMNode::create(f.nodes(), P("x:a"));
             CMNode::create(f.nodes(), P("x:a"));
         }},
        {"outsideOfThePrefix",
         [] {
             CMNodesWorker worker({{OrvoWorkerArguments::Prefix(), "ui:"}}, "test");
             CMNode::create(worker.nodes(), P("settings:a"));
         }},
        {"destroyedWhileRegistered",
         [] {
             NodesFixture f;
             delete CMNode::create(f.nodes(), P("x:a"));
         }},
        {"removedWithoutDeleteLater",
         [] {
             NodesFixture f;
             f.nodes()->nodeRemove(CMNode::create(f.nodes(), P("x:a")));
         }},
        {"translatingAForeignPath",
         [] {
             CMNode node(P("x:a"));
             node.translatePath(P("x:t"), P("x:b/c"));
         }},
    };
    return calls;
}

const QMap<QString, QByteArray> fatalTexts{
    {"pathWithParameters", "!path.hasParams()"},
    {"twoNodesAtOnePath", "Cannot insert already existing node"},
    {"outsideOfThePrefix", "settings:a doesn't start with ui:"},
    {"destroyedWhileRegistered", "!m_nodes->nodeContains(this)"},
    {"removedWithoutDeleteLater", "deleted()"},
    {"translatingAForeignPath", "requestPath.startsWith(path())"},
};

/// A node that takes what it is told to take and notes what it is asked.
class ScriptedNode : public CMNode
{
public:
    using CMNode::CMNode;
    static ScriptedNode* create(CMNodes* nodes, const CMPath& path)
    {
        auto* node = new ScriptedNode(path);
        node->setNodes(nodes);
        return node;
    }
    ~ScriptedNode() override
    {
        if (onDestroyed)
            onDestroyed();
    }

    bool getDataRequest(const CMGetDataRequest& request) override
    {
        asked.append("getData");
        if (duringRequest)
            duringRequest();
        if (takes)
            request.reply().setValue({QString("mine")});
        return takes;
    }
    bool getRowsRequest(const CMGetRowsRequest&) override
    {
        asked.append("getRows");
        return takes;
    }
    bool matchRowRequest(const CMMatchRowRequest&) override
    {
        asked.append("matchRow");
        return takes;
    }
    bool setDataRequest(const CMSetDataRequest&) override
    {
        asked.append("setData");
        return takes;
    }
    void rowsPathRemove(const CMPath& path) override
    {
        CMNode::rowsPathRemove(path);
        if (duringRemove)
            duringRemove();
    }

    QStringList asked;
    bool takes = true;
    std::function<void()> duringRequest;
    std::function<void()> duringRemove;
    std::function<void()> onDestroyed;
};

class UnknownData : public CMRequest::Data
{
public:
    CMVoidReply reply() const override { return m_reply; }
    CMReply<void> m_reply;
};

template <typename Request>
Request made(const CMPath& path)
{
    auto* data = new typename Request::Data;
    data->path = path;
    return Request(data);
}

QStringList encoded(const QList<CMNodes::NodePointer>& nodes)
{
    QStringList paths;
    for (const auto& node : nodes)
        paths.append(node->path().toEncoded());
    return paths;
}

QStringList encoded(const QSet<CMPath>& set)
{
    QStringList paths;
    for (const CMPath& path : set)
        paths.append(path.toEncoded());
    paths.sort();
    return paths;
}

/// Notes the signals of a node.
class SignalSpy : public QObject
{
    Q_OBJECT

public:
    explicit SignalSpy(CMNode* node)
    {
        connect(node, &CMNode::pathAdded, this, [this](CMAbstractWorker::ChangeType type, const CMPath& path) {
            seen.append(QString("pathAdded %1 %2").arg(type).arg(path.toEncoded()));
        });
        connect(node, &CMNode::pathRemoved, this, [this](CMAbstractWorker::ChangeType type, const CMPath& path) {
            seen.append(QString("pathRemoved %1 %2").arg(type).arg(path.toEncoded()));
        });
        const auto note = [this, node](auto signal, const QString& name) {
            connect(node, signal, this,
                    [this, name](const CMPath& path) { seen.append(name + ' ' + path.toEncoded()); });
        };
        note(&CMNode::dataPathAdded, "dataPathAdded");
        note(&CMNode::dataPathRemoved, "dataPathRemoved");
        note(&CMNode::rowsPathAdded, "rowsPathAdded");
        note(&CMNode::rowsPathRemoved, "rowsPathRemoved");
        connect(node, &CMNode::deletedLater, this, [this, node](QObject* object) {
            seen.append(QString("deletedLater %1").arg(object == node && node->deleted()));
        });
    }
    QStringList take()
    {
        QStringList taken;
        taken.swap(seen);
        return taken;
    }

    QStringList seen;
};

/// Deletes the worker when it is told of a change.
class DeathOnData : public QObject
{
    Q_OBJECT

public:
    explicit DeathOnData(std::unique_ptr<CMNodesWorker>* worker) : m_worker(worker) {}

public slots:
    void strike() { m_worker->reset(); }

private:
    std::unique_ptr<CMNodesWorker>* const m_worker;
};

class NoParameters : public QObject
{
    Q_OBJECT
public slots:
    void called() { ++calls; }

public:
    int calls = 0;
};

} // namespace

class tst_CMNodes : public QObject
{
    Q_OBJECT

private slots:
    // Look-up

    void anEmptyRegistryAnswersEveryRequestWithFalse()
    {
        NodesFixture f;
        QVERIFY(f.nodes()->nodesAtPath(P("x:a")).isEmpty());
        QVERIFY(f.nodes()->allNodes().isEmpty());
        QVERIFY(!f.nodes()->isNodeAtPath(P("x:a")));
        QVERIFY(!f.nodes()->request(made<CMGetDataRequest>(P("x:a"))));
        QVERIFY(!f.nodes()->getDataRequest(made<CMGetDataRequest>(P("x:a"))));
        QVERIFY(!f.nodes()->getRowsRequest(made<CMGetRowsRequest>(P("x:a"))));
        QVERIFY(!f.nodes()->matchRowRequest(made<CMMatchRowRequest>(P("x:a"))));
        QVERIFY(!f.nodes()->setDataRequest(made<CMSetDataRequest>(P("x:a"))));
    }

    void aPathIsServedByItsNodeOrItsNeighbour_data()
    {
        QTest::addColumn<QStringList>("nodes");
        QTest::addColumn<QByteArray>("asked");
        QTest::addColumn<QStringList>("found");
        const QStringList ac{"x/a", "x/c"};
        QTest::newRow("its own") << ac << QByteArray("x/a") << QStringList("x/a");
        QTest::newRow("between two") << ac << QByteArray("x/b") << QStringList();
        QTest::newRow("below") << ac << QByteArray("x/a/q") << QStringList("x/a");
        QTest::newRow("parameters do not count") << ac << QByteArray("x/a?k=v") << QStringList("x/a");
        QTest::newRow("below, with parameters") << ac << QByteArray("x/a/q?k=v") << QStringList("x/a");
        QTest::newRow("ahead of all") << ac << QByteArray("x") << QStringList();
        QTest::newRow("behind all") << ac << QByteArray("x/d") << QStringList();
        QTest::newRow("behind all, below the last") << ac << QByteArray("x/c/1/2") << QStringList("x/c");
        QTest::newRow("by plain text") << QStringList{"a/b"} << QByteArray("a/bc") << QStringList("a/b");
        QTest::newRow("a neighbour hides an ancestor")
            << QStringList{"a/b", "a/b/c"} << QByteArray("a/b/d") << QStringList();
        QTest::newRow("ahead of the neighbour")
            << QStringList{"a/b", "a/b/c"} << QByteArray("a/b/a") << QStringList("a/b");
        QTest::newRow("the deeper one wins")
            << QStringList{"a/b", "a/b/c"} << QByteArray("a/b/c/d") << QStringList("a/b/c");
        QTest::newRow("the empty path") << ac << QByteArray("") << QStringList();
    }

    void aPathIsServedByItsNodeOrItsNeighbour()
    {
        QFETCH(QStringList, nodes);
        QFETCH(QByteArray, asked);
        QFETCH(QStringList, found);
        NodesFixture f;
        for (const QString& path : nodes)
            CMNode::create(f.nodes(), CMPath::fromEncoded(path));
        QCOMPARE(encoded(f.nodes()->nodesAtPath(CMPath::fromEncoded(asked))), found);
    }

    void aListServesItsExactPathOnly()
    {
        NodesFixture f;
        CMListRowsNode::create(f.nodes(), P("x/l"));
        CMNode::create(f.nodes(), P("x/p"));
        QCOMPARE(encoded(f.nodes()->nodesAtPath(P("x/l"))), QStringList("x/l"));
        QCOMPARE(encoded(f.nodes()->nodesAtPath(P("x/l?a=1"))), QStringList("x/l"));
        QVERIFY(f.nodes()->nodesAtPath(P("x/l/1")).isEmpty());
        QCOMPARE(encoded(f.nodes()->nodesAtPath(P("x/p/1"))), QStringList("x/p"));
    }

    void onlyTheExactPathIsANodesOwn()
    {
        NodesFixture f;
        CMNode::create(f.nodes(), P("x/a"));
        QVERIFY(f.nodes()->isNodeAtPath(P("x/a")));
        QVERIFY(!f.nodes()->isNodeAtPath(P("x/a?k=v")));
        QVERIFY(!f.nodes()->isNodeAtPath(P("x/a/b")));
        QCOMPARE(f.nodes()->nodesAtPath(P("x/a?k=v")).size(), 1);
    }

    void allNodesStandInTheOrderOfTheirPaths()
    {
        NodesFixture f;
        for (const char* path : {"x:c", "x:a/b", "x:a", "x:a.b"})
            CMNode::create(f.nodes(), P(path));
        QCOMPARE(encoded(f.nodes()->allNodes()), QStringList({"x:a", "x:a.b", "x:a/b", "x:c"}));
    }

    void theRegistryKnowsWhatItContains()
    {
        NodesFixture f;
        CMNode* node = CMNode::create(f.nodes(), P("x:a"));
        CMNode other(P("x:a"));
        CMNode elsewhere(P("x:b"));
        QVERIFY(f.nodes()->nodeContains(node));
        QVERIFY(!f.nodes()->nodeContains(&other));
        QVERIFY(!f.nodes()->nodeContains(&elsewhere));
        QCOMPARE(f.nodes()->worker(), f.worker.get());
        QCOMPARE(f.nodes()->subscribe(), f.hub());
        QCOMPARE(f.nodes()->parent(), f.worker.get());
    }

    void removingAnUnknownNodeDoesNothing()
    {
        NodesFixture f;
        CMNode* node = CMNode::create(f.nodes(), P("x:a"));
        QExplicitlySharedDataPointer<CMNode> other(new CMNode(P("x:a")));
        f.nodes()->nodeRemove(other.data());
        QVERIFY(f.nodes()->nodeContains(node));
    }

    void aPathIsFreeAgainWhenItsNodeHasLeft()
    {
        NodesFixture f;
        CMNode::create(f.nodes(), P("x/a"))->deleteLater();
        QVERIFY(f.nodes()->nodesAtPath(P("x/a")).isEmpty());
        // The key is gone, too: it no longer hides the neighbour ahead of it.
        CMNode::create(f.nodes(), P("x/"));
        QCOMPARE(encoded(f.nodes()->nodesAtPath(P("x/a/b"))), QStringList("x/"));
        CMNode::create(f.nodes(), P("x/a"));
        QCOMPARE(encoded(f.nodes()->nodesAtPath(P("x/a/b"))), QStringList("x/a"));
    }

    void nodesStandWithinTheWorkersPrefix()
    {
        CMNodesWorker worker({{OrvoWorkerArguments::Prefix(), "ui:"}}, "test");
        CMNode::create(worker.nodes(), P("ui:a"));
        CMNode::create(worker.nodes(), P("ui:"));
        QCOMPARE(worker.nodes()->allNodes().size(), 2);
    }

    void aRegistryWithoutAWorkerTakesAnyPath()
    {
        CMSubscribe hub("test", nullptr, false);
        CMNodes nodes("test", &hub, nullptr);
        CMNode::create(&nodes, P("anything:at/all"));
        QVERIFY(nodes.isNodeAtPath(P("anything:at/all")));
        QVERIFY(!nodes.worker());
    }

    void lookingUpAmongManyNodesAllocatesNothing()
    {
        NodesFixture f;
        for (int i = 0; i < 100000; ++i)
            CMNode::create(f.nodes(), CMPath::fromEncoded(QString("x:menu/%1/item").arg(i, 6, 10, QChar('0'))));
        const CMPath own = P("x:menu/077777/item");
        const CMPath below = P("x:menu/077777/item/deep/below");
        const CMPath none = P("x:menu/077777/other");
        int found = 0;
        s_allocations = 0;
        s_counting = true;
        for (int i = 0; i < 100; ++i) {
            found += f.nodes()->nodesAtPath(own).size();
            found += f.nodes()->nodesAtPath(below).size();
            found += f.nodes()->nodesAtPath(none).size();
            found += f.nodes()->isNodeAtPath(own);
        }
        s_counting = false;
        QCOMPARE(found, 300);
        QCOMPARE(s_allocations.load(), 0);
    }

    // Requests

    void aRequestGoesToTheOperationOfItsKind()
    {
        NodesFixture f;
        auto* node = ScriptedNode::create(f.nodes(), P("x:a"));
        QVERIFY(f.nodes()->getDataRequest(made<CMGetDataRequest>(P("x:a"))));
        QVERIFY(f.nodes()->getRowsRequest(made<CMGetRowsRequest>(P("x:a"))));
        QVERIFY(f.nodes()->matchRowRequest(made<CMMatchRowRequest>(P("x:a"))));
        QVERIFY(f.nodes()->setDataRequest(made<CMSetDataRequest>(P("x:a"))));
        QCOMPARE(node->asked, QStringList({"getData", "getRows", "matchRow", "setData"}));
        auto* data = new UnknownData;
        data->path = P("x:a");
        QVERIFY(!f.nodes()->request(CMRequest(data)));
        QCOMPARE(node->asked.size(), 4);
    }

    void aNodeThatTakesNothingLeavesTheReplyUntouched()
    {
        NodesFixture f;
        CMNode::create(f.nodes(), P("x:a"));
        const auto getData = made<CMGetDataRequest>(P("x:a"));
        const auto getRows = made<CMGetRowsRequest>(P("x:a"));
        const auto matchRow = made<CMMatchRowRequest>(P("x:a"));
        const auto setData = made<CMSetDataRequest>(P("x:a"));
        for (const CMRequest& request :
             {CMRequest(getData), CMRequest(getRows), CMRequest(matchRow), CMRequest(setData)}) {
            QVERIFY(!f.nodes()->request(request));
            QVERIFY(!request.reply().isFinished());
        }
    }

    void whatNoNodeTakesEndsWithTheInvalidPathError()
    {
        NodesFixture f;
        CMNode::create(f.nodes(), P("x:a"));
        for (const char* path : {"x:a", "x:b", "x:a/b?k=v"}) {
            const QString message = QString("Node at path '%1' does not exist").arg(path);
            const CMPath p = P(path);
            const QList<CMError> errors{
                f.worker->getData(p, {"title"}).error(), f.worker->getRows(p, 0, 1, -1, {"title"}).error(),
                f.worker->matchRow(p, 0, "title", "a", 0, -1).error(), f.worker->setValue(p, QVariant(1)).error()};
            for (const CMError& error : errors) {
                QCOMPARE(error.name(), CMAbstractWorker::ErrorInvalidPath());
                QCOMPARE(error.message(), message);
            }
        }
    }

    void aNodeLivesAsLongAsItServesARequest()
    {
        NodesFixture f;
        auto* node = ScriptedNode::create(f.nodes(), P("x:a"));
        bool destroyed = false;
        bool during = true;
        node->onDestroyed = [&] { destroyed = true; };
        node->duringRequest = [&] {
            node->deleteLater();
            during = destroyed;
        };
        QCOMPARE(f.worker->getData(P("x:a"), {"title"}).value(), QVariantList{"mine"});
        QVERIFY(!during);
        QVERIFY(destroyed);
        QVERIFY(!f.nodes()->isNodeAtPath(P("x:a")));
    }

    void theRegistryIsNotLockedWhileANodeRuns()
    {
        NodesFixture f;
        auto* node = ScriptedNode::create(f.nodes(), P("x:a"));
        bool free = false;
        node->duringRequest = [&] {
            std::unique_ptr<QThread> other(QThread::create([&] {
                free = f.nodes()->mutex()->tryLock();
                if (free)
                    f.nodes()->mutex()->unlock();
            }));
            other->start();
            other->wait();
        };
        f.worker->getData(P("x:a"), {"title"});
        QVERIFY(free);
    }

    // Subscribed paths

    void subscribedPathsEnterAndLeaveTheSets()
    {
        NodesFixture f;
        CMNode* node = CMNode::create(f.nodes(), P("x:a"));
        SignalSpy signalSpy(node);
        f.spy.watchValue(f.worker.get(), P("x:a?k=v"));
        QCOMPARE(signalSpy.take(), QStringList("pathAdded 0 x:a?k=v"));
        f.spy.watchData(f.worker.get(), P("x:a"));
        QCOMPARE(signalSpy.take(), QStringList({"pathAdded 1 x:a", "dataPathAdded x:a"}));
        f.spy.watchRows(f.worker.get(), P("x:a/below"));
        QCOMPARE(signalSpy.take(), QStringList({"pathAdded 2 x:a/below", "rowsPathAdded x:a/below"}));
        f.spy.watchData(f.worker.get(), P("x:a?k=v"));
        signalSpy.take();

        QCOMPARE(encoded(node->valuePaths()), QStringList("x:a?k=v"));
        QCOMPARE(encoded(node->dataPaths()), QStringList({"x:a", "x:a?k=v"}));
        QCOMPARE(encoded(node->rowsPaths()), QStringList("x:a/below"));

        f.spy.unwatchValue(f.worker.get(), P("x:a?k=v"));
        QCOMPARE(signalSpy.take(), QStringList("pathRemoved 0 x:a?k=v"));
        f.spy.unwatchData(f.worker.get(), P("x:a"));
        QCOMPARE(signalSpy.take(), QStringList({"pathRemoved 1 x:a", "dataPathRemoved x:a"}));
        f.spy.unwatchRows(f.worker.get(), P("x:a/below"));
        QCOMPARE(signalSpy.take(), QStringList({"pathRemoved 2 x:a/below", "rowsPathRemoved x:a/below"}));
        QVERIFY(node->valuePaths().isEmpty());
        QCOMPARE(encoded(node->dataPaths()), QStringList("x:a?k=v"));
        QVERIFY(node->rowsPaths().isEmpty());
    }

    void entriesAreNotCounted()
    {
        NodesFixture f;
        CMNode* node = CMNode::create(f.nodes(), P("x:a"));
        node->dataPathAdd(P("x:a"));
        node->dataPathAdd(P("x:a"));
        QCOMPARE(node->dataPaths().size(), 1);
        node->dataPathRemove(P("x:a"));
        QVERIFY(node->dataPaths().isEmpty());
    }

    void aSecondSubscriberOfAPathIsNotTold()
    {
        NodesFixture f;
        CMNode* node = CMNode::create(f.nodes(), P("x:a"));
        f.spy.watchData(f.worker.get(), P("x:a"));
        SignalSpy signalSpy(node);
        ChangeSpy second;
        second.watchData(f.worker.get(), P("x:a"));
        second.unwatchData(f.worker.get(), P("x:a"));
        QVERIFY(signalSpy.take().isEmpty());
        QCOMPARE(node->dataPaths().size(), 1);
    }

    void aNewNodeCatchesUpWithWaitingSubscribers()
    {
        const LogCapture log("CMNode");
        NodesFixture f;
        f.spy.watchValue(f.worker.get(), P("x:a"));
        f.spy.watchValue(f.worker.get(), P("x:a?k=v"));
        f.spy.watchData(f.worker.get(), P("x:a?k=v"));
        f.spy.watchRows(f.worker.get(), P("x:a?k=v?l=w"));
        for (const char* path : {"x:a/below", "x:ab", "x:b", "x:"}) {
            f.spy.watchValue(f.worker.get(), P(path));
            f.spy.watchData(f.worker.get(), P(path));
            f.spy.watchRows(f.worker.get(), P(path));
        }
        CMNode* node = CMNode::create(f.nodes(), P("x:a"));
        QCOMPARE(encoded(node->valuePaths()), QStringList({"x:a", "x:a?k=v"}));
        QCOMPARE(encoded(node->dataPaths()), QStringList("x:a?k=v"));
        QCOMPARE(encoded(node->rowsPaths()), QStringList("x:a?k=v?l=w"));
        QCOMPARE(log.lines(), QStringList({"TRACE adding already subscribed value path x:a",
                                           "TRACE adding already subscribed value path x:a?k=v",
                                           "TRACE adding already subscribed data path x:a?k=v",
                                           "TRACE adding already subscribed rows path x:a?k=v?l=w"}));
    }

    void subscriptionsAreTracedByTheRegistry()
    {
        const LogCapture log("CMNodes");
        NodesFixture f;
        f.spy.watchValue(f.worker.get(), P("x:a"));
        f.spy.watchData(f.worker.get(), P("x:a"));
        f.spy.watchRows(f.worker.get(), P("x:a"));
        f.spy.unwatchValue(f.worker.get(), P("x:a"));
        f.spy.unwatchData(f.worker.get(), P("x:a"));
        f.spy.unwatchRows(f.worker.get(), P("x:a"));
        QCOMPARE(log.lines().size(), 6);
        for (const QString& line : log.lines())
            QVERIFY2(line.startsWith("TRACE ") && line.contains("x:a"), qPrintable(line));
    }

    // Reports

    void changesGoToTheWatchedPathsOfTheirKindOnly()
    {
        NodesFixture f;
        CMNode* node = CMNode::create(f.nodes(), P("x:a"));
        f.spy.watchValue(f.worker.get(), P("x:a?v=1"));
        f.spy.watchData(f.worker.get(), P("x:a?d=1"));
        f.spy.watchRows(f.worker.get(), P("x:a?r=1"));
        node->dataChanged();
        QCOMPARE(f.delivered(), QStringList("data x:a?d=1"));
        node->valueChanged(QVariant(5));
        QCOMPARE(f.delivered(), QStringList("value x:a?v=1 5"));
        node->valueChanged(OrvoValue().setI32_(6));
        QCOMPARE(f.delivered(), QStringList("value x:a?v=1 6"));
        node->rowsChanged(QString("+0"));
        QCOMPARE(f.delivered(), QStringList("rows x:a?r=1 [+0] 0>1"));
        node->rowsChanged(QStringList{"-0", "+3"});
        QCOMPARE(f.delivered(), QStringList("rows x:a?r=1 [-0,+3] 1>3"));
    }

    void everyWatchedPathHears()
    {
        NodesFixture f;
        CMNode* node = CMNode::create(f.nodes(), P("x:a"));
        for (const char* path : {"x:a", "x:a?k=v", "x:a/below"}) {
            f.spy.watchValue(f.worker.get(), P(path));
            f.spy.watchData(f.worker.get(), P(path));
            f.spy.watchRows(f.worker.get(), P(path));
        }
        const auto sorted = [&] {
            QStringList events = f.delivered();
            events.sort();
            return events;
        };
        node->dataChanged();
        QCOMPARE(sorted(), QStringList({"data x:a", "data x:a/below", "data x:a?k=v"}));
        node->valueChanged(QVariant("t"));
        QCOMPARE(sorted(), QStringList({"value x:a t", "value x:a/below t", "value x:a?k=v t"}));
        node->rowsChanged(QString("1"));
        QCOMPARE(sorted(), QStringList({"rows x:a [1] 0>1", "rows x:a/below [1] 0>1", "rows x:a?k=v [1] 0>1"}));
    }

    void onlyDataChangedMovesTheTimestamp()
    {
        NodesFixture f;
        CMNode* node = CMNode::create(f.nodes(), P("x:a"));
        f.spy.watchValue(f.worker.get(), P("x:a"));
        QCOMPARE(node->timestamp(), qint64(0));
        node->valueChanged(QVariant(5));
        node->rowsChanged(QString("0"));
        QCOMPARE(node->timestamp(), qint64(0));
        const qint64 before = QDateTime::currentMSecsSinceEpoch();
        node->dataChanged();
        QVERIFY(node->timestamp() >= before);
        QVERIFY(node->timestamp() <= QDateTime::currentMSecsSinceEpoch());
        QCOMPARE(f.delivered(), QStringList("value x:a 5"));
    }

    // The end of a node

    void theEndOfANodeIsToldToItsSubscribers()
    {
        NodesFixture f;
        CMNode* node = CMNode::create(f.nodes(), P("x:a"));
        f.spy.watchValue(f.worker.get(), P("x:a"));
        f.spy.watchData(f.worker.get(), P("x:a"));
        f.spy.watchRows(f.worker.get(), P("x:a"));
        node->valueChanged(QVariant(5));
        node->rowsChanged(QStringList{"+0", "+1"});
        f.delivered();
        QExplicitlySharedDataPointer<CMNode> kept(node);
        SignalSpy signalSpy(node);
        node->deleteLater();
        QCOMPARE(signalSpy.take(), QStringList({"pathRemoved 0 x:a", "pathRemoved 1 x:a", "dataPathRemoved x:a",
                                                "pathRemoved 2 x:a", "rowsPathRemoved x:a", "deletedLater 1"}));
        QVERIFY(node->deleted());
        QVERIFY(node->valuePaths().isEmpty() && node->dataPaths().isEmpty() && node->rowsPaths().isEmpty());
        // Crossed: who follows the value is told of data, who follows data is told of an invalid value.
        QCOMPARE(f.delivered(), QStringList({"data x:a", "value x:a invalid", "rows x:a [close] 2>0"}));
    }

    void theEndOfAPathWatchedForOneKindIsToldToTheOther_data()
    {
        QTest::addColumn<bool>("value");
        QTest::newRow("value") << true;
        QTest::newRow("data") << false;
    }

    void theEndOfAPathWatchedForOneKindIsToldToTheOther()
    {
        // The node hears of "x:a" for one kind only, though both are subscribed: it takes the kinds apart.
        QFETCH(bool, value);
        NodesFixture f;
        CMNode* node = CMNode::create(f.nodes(), P("x:a"));
        f.spy.watchValue(f.worker.get(), P("x:a"));
        f.spy.watchData(f.worker.get(), P("x:a"));
        f.hub()->valueChanged(P("x:a"), 5);
        f.delivered();
        if (value)
            node->dataPathRemove(P("x:a"));
        else
            node->valuePathRemove(P("x:a"));
        node->deleteLater();
        QCOMPARE(f.delivered(), QStringList(value ? "data x:a" : "value x:a invalid"));
    }

    void aDeletedNodeHearsOfNoSubscription()
    {
        NodesFixture f;
        CMNode* node = CMNode::create(f.nodes(), P("x:a"));
        const QExplicitlySharedDataPointer<CMNode> kept(node);
        node->deleteLater();
        f.spy.watchData(f.worker.get(), P("x:a"));
        f.nodes()->pathAddRemove(P("x:a"), &CMNode::dataPathAdd);
        QVERIFY(node->dataPaths().isEmpty());
        QVERIFY(!f.nodes()->nodeContains(node));
    }

    void aNodeDeletedTwiceLeavesOnce()
    {
        NodesFixture f;
        CMNode* node = CMNode::create(f.nodes(), P("x:a"));
        const QExplicitlySharedDataPointer<CMNode> kept(node);
        node->deleteLater();
        CMNode* next = CMNode::create(f.nodes(), P("x:a"));
        SignalSpy signalSpy(node);
        node->deleteLater();
        QVERIFY(signalSpy.take().isEmpty());
        QVERIFY(f.nodes()->nodeContains(next));
    }

    void aNodeLivesUntilItsOwnDeleteLaterHasEnded()
    {
        NodesFixture f;
        auto* node = ScriptedNode::create(f.nodes(), P("x:a"));
        bool destroyed = false;
        bool inSignal = true;
        node->onDestroyed = [&] { destroyed = true; };
        connect(node, &CMNode::deletedLater, this, [&] { inSignal = destroyed; });
        node->deleteLater();
        QVERIFY(!inSignal);
        QVERIFY(destroyed);
    }

    void aNodeMayDeleteItselfWhenItsLastSubscriberLeaves()
    {
        NodesFixture f;
        auto* node = ScriptedNode::create(f.nodes(), P("x:a"));
        bool destroyed = false;
        node->onDestroyed = [&] { destroyed = true; };
        node->duringRemove = [node] { node->deleteLater(); };
        f.spy.watchRows(f.worker.get(), P("x:a"));
        f.spy.unwatchRows(f.worker.get(), P("x:a"));
        QVERIFY(destroyed);
    }

    void aNodeMayDeleteItselfInASignalOfItsOwn()
    {
        NodesFixture f;
        auto* node = ScriptedNode::create(f.nodes(), P("x:a"));
        bool destroyed = false;
        node->onDestroyed = [&] { destroyed = true; };
        connect(node, &CMNode::dataPathAdded, node, [node] { node->deleteLater(); });
        f.spy.watchData(f.worker.get(), P("x:a"));
        QVERIFY(destroyed);
        QCOMPARE(f.delivered(), QStringList());
    }

    void theEndOfTheWorkerIsToldToAllSubscribers()
    {
        NodesFixture f;
        CMNode::create(f.nodes(), P("x:a"))->valueChanged(QVariant());
        CMNode::create(f.nodes(), P("x:b"));
        f.spy.watchRows(f.worker.get(), P("x:a"));
        f.spy.watchRows(f.worker.get(), P("x:b?k=v"));
        f.worker.reset();
        QCOMPARE(f.spy.take(), QStringList({"rows x:a [close] 0>0", "rows x:b?k=v [close] 0>0"}));
    }

    void theWorkerMayBeDeletedInsideADelivery()
    {
        NodesFixture f;
        CMNode* node = CMNode::create(f.nodes(), P("x:a"));
        CMNode::create(f.nodes(), P("x:b"));
        f.spy.watchData(f.worker.get(), P("x:a"));
        f.spy.watchRows(f.worker.get(), P("x:b"));
        DeathOnData death(&f.worker);
        f.worker->connectDataChange(P("x:a"), &death, SLOT(strike()), Qt::DirectConnection);
        node->dataChanged();
        node->rowsChanged(QString("0"));
        f.hub()->deliver();
        QVERIFY(!f.worker);
        QCOMPARE(f.spy.take(), QStringList({"data x:a", "rows x:b [close] 0>0"}));
    }

    // Translation of paths for links

    void pathsBelowANodeAreTranslatedToTheTarget_data()
    {
        QTest::addColumn<QByteArray>("target");
        QTest::addColumn<QByteArray>("asked");
        QTest::addColumn<QString>("translated");
        const auto row = [](const char* name, const char* target, const char* asked, const char* translated) {
            QTest::newRow(name) << QByteArray(target) << QByteArray(asked) << QString(translated);
        };
        row("its own path", "y:t", "x:a", "y:t");
        row("below", "y:t", "x:a/b/c", "y:t/b/c");
        row("parameters of the request", "y:t", "x:a?k=v", "y:t?k=v");
        row("parameters of the target", "y:t?k=v", "x:a/b", "y:t/b?k=v");
        row("the request's win", "y:t?k=v?l=w", "x:a?k=1", "y:t?k=1?l=w");
    }

    void pathsBelowANodeAreTranslatedToTheTarget()
    {
        QFETCH(QByteArray, target);
        QFETCH(QByteArray, asked);
        CMNode node(P("x:a"));
        const CMPath translated = node.translatePath(CMPath::fromEncoded(target), CMPath::fromEncoded(asked));
        QTEST(translated.toEncoded(), "translated");
    }

    void watchedPathsAreTranslatedBack_data()
    {
        QTest::addColumn<QByteArray>("link");
        QTest::addColumn<QByteArray>("watched");
        QTest::addColumn<QString>("out");
        QTest::addColumn<QString>("line");
        const auto row = [](const char* name, const char* link, const char* watched, const char* out,
                            const char* line) {
            QTest::newRow(name) << QByteArray(link) << QByteArray(watched) << QString(out) << QString(line);
        };
        row("its own path", "y:t", "y:t", "x:a", "");
        row("below", "y:t", "y:t/b", "x:a/b", "");
        row("parameters of the subscriber", "y:t", "y:t?k=v", "x:a?k=v", "");
        row("parameters of the link", "y:t?k=v", "y:t/b?k=v?l=w", "x:a/b?l=w", "");
        row("overridden parameters of the link", "y:t?k=v", "y:t?k=1", "x:a", "");
        row("a parameter is missing", "y:t?k=v", "y:t?l=w", "",
            "WARN CMLinkNode::untranslatePath(y:t?l=w): cannot remove queries");
        row("elsewhere", "y:t", "y:u?k=v", "",
            "WARN CMLinkNode::untranslatePath(y:u?k=v): watched path does not start with linkPath:y:t");
    }

    void watchedPathsAreTranslatedBack()
    {
        QFETCH(QByteArray, link);
        QFETCH(QByteArray, watched);
        QFETCH(QString, out);
        QFETCH(QString, line);
        const LogCapture log("CMNode");
        CMNode node(P("x:a"));
        CMPath result;
        const bool belongs = node.untranslatePath(CMPath::fromEncoded(link), CMPath::fromEncoded(watched), result);
        QCOMPARE(belongs, !out.isEmpty());
        QCOMPARE(result.toEncoded(), out);
        QCOMPARE(log.lines(), line.isEmpty() ? QStringList() : QStringList(line));
    }

    // Shape

    void theSignalsAreTheWholeMetaObject()
    {
        const QMetaObject& meta = CMNode::staticMetaObject;
        QStringList methods;
        for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
            methods.append(meta.method(i).methodSignature());
        methods.sort();
        QCOMPARE(
            methods,
            QStringList({"dataPathAdded()", "dataPathAdded(CMPath)", "dataPathRemoved()", "dataPathRemoved(CMPath)",
                         "deletedLater()", "deletedLater(QObject*)", "pathAdded(CMAbstractWorker::ChangeType)",
                         "pathAdded(CMAbstractWorker::ChangeType,CMPath)", "pathRemoved(CMAbstractWorker::ChangeType)",
                         "pathRemoved(CMAbstractWorker::ChangeType,CMPath)", "rowsPathAdded()", "rowsPathAdded(CMPath)",
                         "rowsPathRemoved()", "rowsPathRemoved(CMPath)"}));
    }

    void theRegistrysSlotsTakeAPath()
    {
        for (const char* slot : {"valuePathAdded(CMPath)", "valuePathRemoved(CMPath)", "dataPathAdded(CMPath)",
                                 "dataPathRemoved(CMPath)", "rowsPathAdded(CMPath)", "rowsPathRemoved(CMPath)"}) {
            const int index = CMNodes::staticMetaObject.indexOfSlot(slot);
            QVERIFY2(index >= 0, slot);
            QCOMPARE(CMNodes::staticMetaObject.method(index).access(), QMetaMethod::Private);
        }
    }

    void signalsWithoutArgumentsReachSlotsWithoutArguments()
    {
        NodesFixture f;
        CMNode* node = CMNode::create(f.nodes(), P("x:a"));
        NoParameters receiver;
        QVERIFY(connect(node, SIGNAL(dataPathAdded()), &receiver, SLOT(called())));
        QVERIFY(connect(node, SIGNAL(pathAdded(CMAbstractWorker::ChangeType)), &receiver, SLOT(called())));
        QVERIFY(connect(node, SIGNAL(deletedLater()), &receiver, SLOT(called())));
        f.spy.watchData(f.worker.get(), P("x:a"));
        node->deleteLater();
        QCOMPARE(receiver.calls, 3);
    }

    // Misuse

    void aMisuseStopsTheProcess_data() { addFatalCalls(fatalCalls(), fatalTexts); }
    void aMisuseStopsTheProcess() { verifyFatalCall(); }
};

int main(int argc, char** argv)
{
    return runTestOrFatalCall<tst_CMNodes>(argc, argv, fatalCalls());
}

#include "tst_cmnodes.moc"
