#include "allocations.h"

#include "core/model/cmmetatypes.h"
#include "core/model/cmnodes.h"
#include "core/model/cmroot.h"
#include "core/model/cmsubscribe.h"
#include "records/orvovalue.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QMap>

#include <log4cplus/logger.h>

#include <malloc.h>
#include <memory>
#include <vector>

// What the model costs inside one process: paths, the registry, the hub, and the memory of what there are many of.

/// The simplest thing that tells receivers of a change.
class Sender : public QObject
{
    Q_OBJECT

signals:
    void changed(const CMPath& path, const QVariant& value);
};

class Receiver : public QObject
{
    Q_OBJECT

public slots:
    void changed(const CMPath& path, const QVariant& value)
    {
        benchmark::DoNotOptimize(&path);
        benchmark::DoNotOptimize(&value);
        ++calls;
    }

public:
    qlonglong calls = 0;
};

namespace {

constexpr int Nodes = 100000;
constexpr int Watched = 10000;

CMPath path(int number)
{
    return CMPath::fromEncoded(QStringLiteral("bench:library/artist%1/album%2/title%3")
                                   .arg(number / 100)
                                   .arg(number / 10 % 10)
                                   .arg(number % 10));
}

size_t heapInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

template <typename Work>
void measure(benchmark::State& state, Work work)
{
    // What is made once is not the work's.
    work();
    const AllocationCounter allocations;
    for (auto _ : state)
        work();
    state.counters["allocations"] = benchmark::Counter(double(allocations.count()), benchmark::Counter::kAvgIterations);
}

/// Steps through numbers 0 to count-1 in an order that no cache foresees.
class Shuffled
{
public:
    explicit Shuffled(int count) : m_count(count) {}
    int next() { return m_at = int((qlonglong(m_at) + 7919) % m_count); }

private:
    const int m_count;
    int m_at = 0;
};

void comparePaths(benchmark::State& state)
{
    const CMPath a = path(12345);
    const CMPath b = path(12346);
    measure(state, [&] { benchmark::DoNotOptimize(a < b); });
}

void compareTexts(benchmark::State& state)
{
    const QString a = path(12345).toEncoded();
    const QString b = path(12346).toEncoded();
    measure(state, [&] { benchmark::DoNotOptimize(a < b); });
}

void hashPath(benchmark::State& state)
{
    const CMPath a = path(12345);
    measure(state, [&] { benchmark::DoNotOptimize(qHash(a)); });
}

void hashText(benchmark::State& state)
{
    const QString a = path(12345).toEncoded();
    measure(state, [&] { benchmark::DoNotOptimize(qHash(a)); });
}

void lookUpNode(benchmark::State& state)
{
    CMNodesWorker worker({}, QStringLiteral("bench"));
    std::vector<CMPath> paths;
    for (int i = 0; i < Nodes; ++i) {
        paths.push_back(path(i));
        CMValueNode::create(worker.nodes(), paths.back());
    }
    Shuffled order(Nodes);
    measure(state, [&] { benchmark::DoNotOptimize(worker.nodes()->nodesAtPath(paths[size_t(order.next())])); });
}

void findInMap(benchmark::State& state, int count)
{
    QMap<QString, QVariant> map;
    std::vector<QString> texts;
    for (int i = 0; i < count; ++i) {
        texts.push_back(path(i).toEncoded());
        map.insert(texts.back(), i);
    }
    Shuffled order(count);
    measure(state, [&] { benchmark::DoNotOptimize(map.constFind(texts[size_t(order.next())])); });
}

void reportUnwatched(benchmark::State& state)
{
    CMSubscribe hub(QStringLiteral("bench"), nullptr, false);
    Receiver receiver;
    std::vector<CMPath> unwatched;
    for (int i = 0; i < Watched; ++i) {
        hub.connectValueChange(path(i), &receiver, SLOT(changed(CMPath, QVariant)), Qt::DirectConnection);
        unwatched.push_back(path(i) + QStringLiteral("/unwatched"));
    }
    const QVariant value(1);
    Shuffled order(Watched);
    measure(state, [&] { hub.valueChanged(unwatched[size_t(order.next())], value); });
}

void reportTo(benchmark::State& state)
{
    CMSubscribe hub(QStringLiteral("bench"), nullptr, false);
    std::vector<Receiver> receivers(size_t(state.range(0)));
    for (Receiver& receiver : receivers)
        hub.connectValueChange(path(1), &receiver, SLOT(changed(CMPath, QVariant)), Qt::DirectConnection);
    qlonglong value = 0;
    const CMPath watched = path(1);
    measure(state, [&] {
        hub.valueChanged(watched, QVariant(++value));
        hub.deliver();
        // The hub's own wake-up, as its thread would take it.
        QCoreApplication::sendPostedEvents(&hub);
    });
    if (receivers.front().calls != value)
        state.SkipWithError("a report was lost");
}

void signalTo(benchmark::State& state)
{
    Sender sender;
    std::vector<Receiver> receivers(size_t(state.range(0)));
    for (Receiver& receiver : receivers)
        QObject::connect(&sender, SIGNAL(changed(CMPath, QVariant)), &receiver, SLOT(changed(CMPath, QVariant)));
    qlonglong value = 0;
    const CMPath watched = path(1);
    measure(state, [&] { emit sender.changed(watched, QVariant(++value)); });
}

/// The memory that one of `count` equal things takes.
template <typename Make>
void memory(benchmark::State& state, int count, Make make)
{
    for (auto _ : state) {
        const size_t before = heapInUse();
        const AllocationCounter allocations;
        const auto made = make(count);
        state.counters["bytes"] = double(heapInUse() - before) / count;
        state.counters["allocations"] = double(allocations.count()) / count;
    }
}

void memoryOfNode(benchmark::State& state)
{
    memory(state, Nodes, [](int count) {
        auto worker = std::make_unique<CMNodesWorker>(QHash<QString, QVariant>(), QStringLiteral("bench"));
        for (int i = 0; i < count; ++i)
            CMValueNode::create(worker->nodes(), path(i))->setValue(OrvoValue().setI32_(i));
        return worker;
    });
}

void memoryOfObject(benchmark::State& state)
{
    memory(state, Nodes, [](int count) {
        auto parent = std::make_unique<QObject>();
        for (int i = 0; i < count; ++i) {
            auto* object = new QObject(parent.get());
            object->setObjectName(path(i).toEncoded());
            object->setProperty("value", i);
        }
        return parent;
    });
}

QVariant row(int number)
{
    QVariantHash row;
    row.insert(OrvoRoles::Path(), path(number).toEncoded());
    row.insert(OrvoRoles::Title(), QStringLiteral("Track number %1").arg(number));
    row.insert(OrvoRoles::Id(), QString::number(number));
    row.insert(OrvoRoles::Type(), OrvoRolesType::Audio());
    row.insert(OrvoRoles::Timestamp(), qlonglong(number));
    return row;
}

void memoryOfRow(benchmark::State& state)
{
    memory(state, Watched, [](int count) {
        auto worker = std::make_unique<CMNodesWorker>(QHash<QString, QVariant>(), QStringLiteral("bench"));
        auto* list = CMListRowsNode::create(worker->nodes(), CMPath::fromEncoded("bench:list"));
        for (int i = 0; i < count; ++i)
            list->rowsAppend(row(i));
        return worker;
    });
}

void memoryOfRowInList(benchmark::State& state)
{
    memory(state, Watched, [](int count) {
        QVariantList list;
        for (int i = 0; i < count; ++i)
            list.append(row(i));
        return list;
    });
}

/// Each path has a subscriber of its own slot, all in one receiver.
void memoryOfSubscription(benchmark::State& state)
{
    Receiver receiver;
    memory(state, Watched, [&](int count) {
        auto hub = std::make_unique<CMSubscribe>(QStringLiteral("bench"), nullptr, false);
        for (int i = 0; i < count; ++i)
            hub->connectValueChange(path(i), &receiver, SLOT(changed(CMPath, QVariant)), Qt::DirectConnection);
        return hub;
    });
}

void memoryOfSender(benchmark::State& state)
{
    Receiver receiver;
    memory(state, Watched, [&](int count) {
        std::vector<std::unique_ptr<Sender>> senders;
        for (int i = 0; i < count; ++i) {
            senders.push_back(std::make_unique<Sender>());
            senders.back()->setObjectName(path(i).toEncoded());
            QObject::connect(senders.back().get(), SIGNAL(changed(CMPath, QVariant)), &receiver,
                                                          SLOT(changed(CMPath, QVariant)));
        }
        return senders;
    });
}

/// Two nodes, links to them, and a link to the first link; this worker is the root that the links ask.
class Links
{
public:
    Links() : m_worker({}, QStringLiteral("bench"))
    {
        const CMPath target = CMPath::fromEncoded("bench:target");
        CMNodes* nodes = m_worker.nodes();
        CMValueNode* node = CMValueNode::create(nodes, target);
        node->setTitle(TrString("Target"));
        node->setValue(OrvoValue().setI32_(1));
        CMLinkNode::create(nodes, CMPath::fromEncoded("bench:link"), target);
        CMLinkNode::create(nodes, CMPath::fromEncoded("bench:linkToLink"), CMPath::fromEncoded("bench:link"));

        const CMPath list = CMPath::fromEncoded("bench:targetRows");
        CMListRowsNode* rows = CMListRowsNode::create(nodes, list);
        for (int i = 0; i < 100; ++i)
            rows->rowsAppend(OrvoRoles().setPath(path(i)).setTitle(QString::number(i)).setValue(node->value()));
        CMLinkRowsNode::create(nodes, CMPath::fromEncoded("bench:linkRows"), list);
        CMRoot_setInstance(&m_worker);
    }

    void get(benchmark::State& state, const CMPath& path)
    {
        measure(state, [&] { benchmark::DoNotOptimize(m_worker.getData(path, m_roles).value()); });
    }
    void rows(benchmark::State& state, const CMPath& path)
    {
        measure(state, [&] { benchmark::DoNotOptimize(m_worker.getRows(path, 0, 99, -1, m_roles).value()); });
    }

private:
    const QStringList m_roles{OrvoRoles::Path(), OrvoRoles::Title(), OrvoRoles::Value()};
    CMNodesWorker m_worker;
};

void link(benchmark::State& state, void (Links::*work)(benchmark::State&, const CMPath&), const char* path)
{
    // The root is set once in a process.
    static Links links;
    (links.*work)(state, CMPath::fromEncoded(path));
}

void registerLinks()
{
    using benchmark::RegisterBenchmark;
    RegisterBenchmark("model/get through a link", link, &Links::get, "bench:link");
    RegisterBenchmark("model/get through a link/peer:the target's own", link, &Links::get, "bench:target");
    RegisterBenchmark("model/get through a link to a link", link, &Links::get, "bench:linkToLink");
    RegisterBenchmark("model/get through a link to a link/peer:the target's own", link, &Links::get, "bench:target");
    RegisterBenchmark("model/100 rows through a link", link, &Links::rows, "bench:linkRows");
    RegisterBenchmark("model/100 rows through a link/peer:the target's own", link, &Links::rows, "bench:targetRows");
}

/// A document of 10,000 leaves in so many groups, and the same tree made of nodes.
class Documents
{
public:
    explicit Documents(int groups) : m_groups(groups), m_worker({}, QStringLiteral("bench"))
    {
        QVariantHash document;
        for (int g = 0; g < groups; ++g) {
            QVariantHash group;
            auto* list = CMListRowsNode::create(m_worker.nodes(), CMPath::fromEncoded("bench:nodes/" + text('g', g)));
            for (int i = 0; i < Leaves / groups; ++i) {
                group.insert(text('k', i), i);
                const CMPath leaf = at("bench:nodes", g, i);
                const OrvoValue value = OrvoValue().setI32_(i);
                CMValueNode::create(m_worker.nodes(), leaf)->setValue(value);
                list->rowsAppend(OrvoRoles().setPath(leaf).setTitle(text('k', i)).setValue(value));
            }
            document.insert(text('g', g), group);
        }
        CMVariantNode::create(m_worker.nodes(), CMPath::fromEncoded("bench:doc"))->setValue(document);
    }

    void get(benchmark::State& state, const QString& root)
    {
        Shuffled order(Leaves);
        measure(state, [&] { benchmark::DoNotOptimize(m_worker.getData(leaf(root, order.next()), m_roles).value()); });
    }
    void set(benchmark::State& state, const QString& root)
    {
        Shuffled order(Leaves);
        int value = 0;
        const bool plain = root == QLatin1String("bench:doc");
        measure(state, [&] {
            const OrvoValue record = OrvoValue().setI32_(++value);
            m_worker.setData(leaf(root, order.next()), OrvoRoles::Value(), plain ? value : record.__variant()).value();
        });
    }
    /// The first hundred of a group.
    void rows(benchmark::State& state, const QString& root)
    {
        const CMPath group = CMPath::fromEncoded(root + "/g0");
        measure(state, [&] { benchmark::DoNotOptimize(m_worker.getRows(group, 0, 99, -1, m_roles).value()); });
    }

private:
    static constexpr int Leaves = 10000;

    static QString text(char kind, int number) { return QLatin1Char(kind) + QString::number(number); }
    static CMPath at(const QString& root, int group, int leaf)
    {
        return CMPath::fromEncoded(root + '/' + text('g', group) + '/' + text('k', leaf));
    }
    CMPath leaf(const QString& root, int number) const { return at(root, number % m_groups, number / m_groups); }

    const int m_groups;
    const QStringList m_roles{OrvoRoles::Path(), OrvoRoles::Title(), OrvoRoles::Value()};
    CMNodesWorker m_worker;
};

void document(benchmark::State& state, int groups, void (Documents::*work)(benchmark::State&, const QString&),
              const QString& root)
{
    Documents documents(groups);
    (documents.*work)(state, root);
}

void registerDocuments()
{
    const std::pair<const char*, void (Documents::*)(benchmark::State&, const QString&)> works[] = {
        {"get a leaf", &Documents::get}, {"set a leaf", &Documents::set}, {"100 rows", &Documents::rows}};
    for (const int groups : {1, 100}) {
        for (const auto& [work, member] : works) {
            const std::string name = "model/document of 10,000 leaves in " + std::to_string(groups) + ", " + work;
            benchmark::RegisterBenchmark(name.c_str(), document, groups, member, QStringLiteral("bench:doc"));
            benchmark::RegisterBenchmark((name + "/peer:nodes").c_str(), document, groups, member,
                                         QStringLiteral("bench:nodes"));
        }
    }
}

void registerAll()
{
    using benchmark::RegisterBenchmark;
    RegisterBenchmark("model/compare paths", comparePaths);
    RegisterBenchmark("model/compare paths/peer:QString", compareTexts);
    RegisterBenchmark("model/hash a path", hashPath);
    RegisterBenchmark("model/hash a path/peer:QString", hashText);
    RegisterBenchmark("model/node look-up among 100,000", lookUpNode);
    RegisterBenchmark("model/node look-up among 100,000/peer:QMap find", findInMap, Nodes);
    RegisterBenchmark("model/report on an unwatched path among 10,000", reportUnwatched);
    RegisterBenchmark("model/report on an unwatched path among 10,000/peer:QMap find", findInMap, Watched);
    for (const int receivers : {1, 100, 10000}) {
        const std::string name = "model/report to " + std::to_string(receivers);
        RegisterBenchmark(name.c_str(), reportTo)->Arg(receivers);
        RegisterBenchmark((name + "/peer:Qt signal").c_str(), signalTo)->Arg(receivers);
    }
    registerDocuments();
    registerLinks();
    RegisterBenchmark("memory/value node", memoryOfNode)->Iterations(1);
    RegisterBenchmark("memory/value node/peer:QObject", memoryOfObject)->Iterations(1);
    RegisterBenchmark("memory/row of 5 roles", memoryOfRow)->Iterations(1);
    RegisterBenchmark("memory/row of 5 roles/peer:QVariantList", memoryOfRowInList)->Iterations(1);
    RegisterBenchmark("memory/subscription", memoryOfSubscription)->Iterations(1);
    RegisterBenchmark("memory/subscription/peer:Qt signal", memoryOfSender)->Iterations(1);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::WARN_LOG_LEVEL);
    orvoRegisterMetaTypes();
    registerAll();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

#include "bench_model.moc"
