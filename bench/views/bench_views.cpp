#include "../allocations.h"
#include "../link/link.h"

#include "cmremoteworker.h"
#include "core/model/cmmetatypes.h"
#include "core/model/cmnodes.h"
#include "core/model/cmnodesworker.h"
#include "core/model/cmroles.h"
#include "core/model/cmroot.h"
#include "core/model/cmrowsbrowser.h"
#include "core/model/cmrowsclone.h"
#include "core/model/cmrpcclient.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QProcess>
#include <QTimer>

#include <log4cplus/logger.h>

#include <cstdio>
#include <malloc.h>
#include <memory>

#ifdef ORVO_BENCH_REMOTE_OBJECTS
#include <QAbstractItemModelReplica>
#include <QRemoteObjectNode>
#endif

// What the views of long lists cost: a window over 100,000 rows beside a lazy model replica of Qt's remote objects,
// each over the rows of another process, and a mirror of 10,000 rows. Times on the clock include the 30 ms by which a
// view waits for further reasons to fetch.

namespace {

constexpr int LongList = 100000;
constexpr int MirroredList = 10000;
/// To each side of the current row: the first screen has one row more.
constexpr int Radius = 20;

/// The serving process, for as long as this lives.
class Peer
{
public:
    Peer(const QString& mode, int rows)
    {
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(QCoreApplication::applicationDirPath() + QStringLiteral("/peers/bench_link_peer"),
                        {mode, QString::number(rows)});
        while (!m_process.canReadLine())
            if (!m_process.waitForReadyRead(20000))
                qFatal("the peer is silent");
        m_address = QString::fromLocal8Bit(m_process.readLine()).trimmed().section(QLatin1Char(' '), 1);
    }
    ~Peer()
    {
        m_process.closeWriteChannel();
        if (!m_process.waitForFinished(2000)) {
            m_process.kill();
            m_process.waitForFinished();
        }
    }
    QString address() const { return m_address; }

private:
    QProcess m_process;
    QString m_address;
};

/// Runs the event loop until the condition holds, which it looks at after each turn.
template <typename Condition>
void waitUntil(Condition condition)
{
    while (!condition())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

/// Whatever waits to be deleted goes.
void settle()
{
    QCoreApplication::sendPostedEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

double seconds(qlonglong nanoseconds)
{
    return double(nanoseconds) / 1e9;
}

size_t heapInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

void setUp(CMRowsBrowser* browser, CMAbstractWorker* worker)
{
    browser->setWorker(worker);
    browser->setRoles(CMAllRoles());
    browser->setRadius(Radius);
    browser->setPath(CMPath::fromEncoded(Link::rowsPath()));
}

// Over the link

/// Writes down when requests for rows leave and when their replies are there.
class WatchedWorker : public CMRemoteWorker
{
public:
    explicit WatchedWorker(const QString& address) : CMRemoteWorker(QStringLiteral("bench"), address)
    {
        waitUntil([this] { return client()->isConnected(); });
    }
    void getRowsRequest(const CMGetRowsRequest& request) override
    {
        ++requests;
        sent = Link::now();
        request.reply().addWatcher([this](const CMVoidReply&) { replied = Link::now(); }, Qt::DirectConnection);
        CMRemoteWorker::getRowsRequest(request);
    }

    int requests = 0;
    qlonglong sent = 0;
    qlonglong replied = 0;
};

enum class From { Activation, Request, Reply };

/// Until the first screen of a list is told of.
void firstScreen(benchmark::State& state, From from)
{
    const Peer peer(QStringLiteral("orvo"), LongList);
    WatchedWorker worker(peer.address());
    int requests = 0;
    for (auto _ : state) {
        CMRowsBrowser browser;
        setUp(&browser, &worker);
        settle();
        worker.requests = 0;
        qlonglong shown = 0;
        QObject::connect(&browser, &CMRowsBrowser::itemsChanged, [&shown] { shown = Link::now(); });
        const qlonglong begin = Link::now();
        browser.setActive(true);
        waitUntil([&shown] { return shown != 0; });
        if (browser.item(Radius).title().isEmpty())
            state.SkipWithError("the rows are not there");
        const qlonglong start = from == From::Activation ? begin : from == From::Request ? worker.sent : worker.replied;
        state.SetIterationTime(seconds(shown - start));
        // Whatever it would ask for besides.
        QTimer rest;
        rest.setSingleShot(true);
        rest.start(60);
        waitUntil([&rest] { return !rest.isActive(); });
        requests += worker.requests;
    }
    state.counters["requests"] = double(requests) / double(state.iterations());
}
BENCHMARK_CAPTURE(firstScreen, activated, From::Activation)
    ->Name("first screen of 100,000 rows, from activation, with the 30 ms")
    ->Iterations(15)
    ->UseManualTime();
BENCHMARK_CAPTURE(firstScreen, asked, From::Request)
    ->Name("first screen of 100,000 rows, from the request")
    ->Iterations(15)
    ->UseManualTime();
BENCHMARK_CAPTURE(firstScreen, replied, From::Reply)
    ->Name("first screen of 100,000 rows, from the reply")
    ->Iterations(15)
    ->UseManualTime();

#ifdef ORVO_BENCH_REMOTE_OBJECTS
/// From the replica's acquisition, by which it asks, until all roles of the first screen are there.
void firstScreenOfReplica(benchmark::State& state)
{
    const Peer peer(QStringLiteral("qtro"), LongList);
    QRemoteObjectNode node;
    node.connectToNode(QUrl(peer.address()));
    QVector<int> roles;
    for (int role = 0; role < Link::roles().size(); ++role)
        roles.append(Qt::UserRole + role);
    for (auto _ : state) {
        const qlonglong begin = Link::now();
        const std::unique_ptr<QAbstractItemModelReplica> replica(
            node.acquireModel(QStringLiteral("rows"), QtRemoteObjects::FetchRootSize, roles));
        waitUntil([&replica] { return replica->isInitialized() && replica->rowCount() == LongList; });
        bool all;
        const auto look = [&] {
            all = true;
            for (int row = 0; row <= Radius; ++row) {
                for (const int role : roles) {
                    const QModelIndex index = replica->index(row, 0);
                    all &= replica->hasData(index, role);
                    // Asks for it where it is not there.
                    benchmark::DoNotOptimize(replica->data(index, role));
                }
            }
        };
        look();
        QObject::connect(replica.get(), &QAbstractItemModel::dataChanged, look);
        waitUntil([&all] { return all; });
        state.SetIterationTime(seconds(Link::now() - begin));
    }
}
void nameReplica(const char* name)
{
    benchmark::RegisterBenchmark(name, firstScreenOfReplica)->Iterations(15)->UseManualTime();
}
const bool s_replicas = [] {
    nameReplica("first screen of 100,000 rows, from activation, with the 30 ms/peer:qtro");
    nameReplica("first screen of 100,000 rows, from the request/peer:qtro");
    return true;
}();
#endif

/// To rows that were never seen, until they are told of.
void jump(benchmark::State& state)
{
    const Peer peer(QStringLiteral("orvo"), LongList);
    WatchedWorker worker(peer.address());
    CMRowsBrowser browser;
    setUp(&browser, &worker);
    browser.setActive(true);
    waitUntil([&browser] { return !browser.item(0).isEmpty(); });
    worker.requests = 0;
    int row = 0;
    for (auto _ : state) {
        row = (row + 31337) % LongList;
        const qlonglong begin = Link::now();
        browser.setCurrentRow(row);
        waitUntil([&] { return !browser.item(row).isEmpty(); });
        state.SetIterationTime(seconds(Link::now() - begin));
    }
    state.counters["requests"] = double(worker.requests) / double(state.iterations());
}
BENCHMARK(jump)->Name("jump of the current row, with the 30 ms")->Iterations(15)->UseManualTime();

// Inside one process

/// Answers for a list of any length without keeping it.
class MadeRows : public CMWorker
{
public:
    explicit MadeRows(int rows) : CMWorker({}, QStringLiteral("made")), m_rows(rows) {}

    void getRowsRequest(const CMGetRowsRequest& request) override
    {
        ++requests;
        const QStringList names = Link::roles();
        const QStringList wanted = request.roles();
        QVariantList rows;
        for (int row = request.fromRow(); row <= qMin(request.toRow(), m_rows - 1); ++row) {
            const QVariantList values = Link::row(row);
            QVariantList picked;
            for (const QString& role : wanted)
                picked.append(values.value(names.indexOf(role)));
            rows.append(QVariant(picked));
        }
        request.reply().setValue(OrvoRowsRoles().setRows(rows).setRowsCount(m_rows).setRowsVersion(1));
    }

    int requests = 0;

private:
    const int m_rows;
};

/// Fetches what is to be fetched, ahead of the timer.
void load(CMRowsBrowser* browser)
{
    do {
        QMetaObject::invokeMethod(browser, "triggerTimeout");
        settle();
    } while (browser->calculateFromToRow().first >= 0);
}

void stepInTheWindow(benchmark::State& state)
{
    MadeRows worker(LongList);
    CMRowsBrowser browser;
    setUp(&browser, &worker);
    browser.setActive(true);
    load(&browser);
    for (int row = 0; row < 100; ++row) {
        browser.setCurrentRow(row);
        load(&browser);
    }
    int heard = 0;
    QObject::connect(&browser, &CMRowsBrowser::currentItemChanged, [&heard] { ++heard; });
    worker.requests = 0;
    int row = 90;
    int step = 1;
    const AllocationCounter allocations;
    for (auto _ : state) {
        browser.setCurrentRow(row);
        row += step;
        if (row == 60 || row == 99)
            step = -step;
    }
    state.counters["allocations"] = benchmark::Counter(double(allocations.count()), benchmark::Counter::kAvgIterations);
    load(&browser);
    state.counters["requests"] = worker.requests;
    if (heard < int(state.iterations()))
        state.SkipWithError("not every step was told");
}
BENCHMARK(stepInTheWindow)->Name("step of the current row inside the loaded window");

void memoryOfABrowser(benchmark::State& state, int rows)
{
    MadeRows worker(rows);
    double bytes = 0;
    // The first iterations leave behind what is made once.
    for (auto _ : state) {
        const size_t before = heapInUse();
        CMRowsBrowser browser;
        setUp(&browser, &worker);
        browser.setActive(true);
        load(&browser);
        for (int part = 1; part <= 20; ++part) {
            browser.setCurrentRow(int(qint64(rows - 1) * part / 20));
            load(&browser);
        }
        // To where the window holds the last hundred rows of either list.
        for (int row = rows - 1; row >= rows - 80; --row) {
            browser.setCurrentRow(row);
            load(&browser);
        }
        bytes = double(heapInUse()) - double(before);
    }
    state.counters["bytes"] = bytes;
}
BENCHMARK_CAPTURE(memoryOfABrowser, short, 100)->Name("memory of a browser over 100 rows")->Iterations(3);
BENCHMARK_CAPTURE(memoryOfABrowser, long, LongList)->Name("memory of a browser over 100,000 rows")->Iterations(3);

/// A list and its mirror, for the benchmarks that go on from each other.
class MirroredRows : public CMNodesWorker
{
public:
    MirroredRows() : CMNodesWorker({}, QStringLiteral("mirrored"))
    {
        CMRoot_setInstance(this);
        m_node = CMListRowsNode::create(nodes(), CMPath::fromEncoded(Link::rowsPath()));
        fill(-1);
    }
    void getRowsRequest(const CMGetRowsRequest& request) override
    {
        ++requests;
        CMNodesWorker::getRowsRequest(request);
    }
    /// As a service's start does, with one row that is not what it was.
    void startAnew(int changed)
    {
        m_node->rowsClear();
        fill(changed);
    }
    void mirror()
    {
        m_clone = std::make_unique<CMRowsClone>(nullptr, m_node->path());
        QObject::connect(m_clone.get(), &CMRowsClone::itemChanged, [this] { ++signalsHeard; });
    }
    void waitForMirror() const
    {
        waitUntil([this] { return !m_clone->isLoading(); });
    }
    CMRowsClone* clone() const { return m_clone.get(); }
    CMListRowsNode* node() const { return m_node; }
    void forget() { requests = signalsHeard = 0; }

    static MirroredRows& instance()
    {
        static auto* const made = new MirroredRows;
        return *made;
    }

    int requests = 0;
    int signalsHeard = 0;

private:
    void fill(int changed)
    {
        const QStringList names = Link::roles();
        for (int i = 0; i < MirroredList; ++i) {
            QVariantHash row;
            const QVariantList values = Link::row(i);
            for (int role = 0; role < names.size(); ++role)
                row.insert(names.at(role), values.at(role));
            if (i == changed)
                row.insert(OrvoRoles::Title(), QStringLiteral("another"));
            m_node->rowsAppend(QVariant(row));
        }
    }

    CMListRowsNode* m_node;
    std::unique_ptr<CMRowsClone> m_clone;
};

void fullMirror(benchmark::State& state)
{
    MirroredRows& rows = MirroredRows::instance();
    for (auto _ : state) {
        rows.forget();
        rows.mirror();
        rows.waitForMirror();
    }
    state.counters["requests"] = rows.requests;
    state.counters["signals"] = rows.signalsHeard;
    if (rows.clone()->list().size() != MirroredList)
        state.SkipWithError("the mirror is not whole");
}

void mirrorAfterReset(benchmark::State& state)
{
    MirroredRows& rows = MirroredRows::instance();
    for (auto _ : state) {
        state.PauseTiming();
        rows.forget();
        rows.startAnew(MirroredList / 2);
        waitUntil([&rows] { return rows.clone()->isLoading(); });
        state.ResumeTiming();
        rows.waitForMirror();
    }
    state.counters["requests"] = rows.requests;
    state.counters["signals"] = rows.signalsHeard;
    if (rows.clone()->list().at(MirroredList / 2).title() != QStringLiteral("another"))
        state.SkipWithError("the mirror is old");
}
// Once: what they wait for is the 30 ms ahead of each of a hundred requests.
BENCHMARK(fullMirror)->Name("full mirror of 10,000 rows, on the clock")->Iterations(1)->UseRealTime();
BENCHMARK(mirrorAfterReset)
    ->Name("mirror of 10,000 rows after a reset with one changed row, on the clock")
    ->Iterations(1)
    ->UseRealTime();

/// One row at the head of the list, as far as the mirror has to do with it: a gap, and then its roles.
void insertAtTheHead(benchmark::State& state)
{
    CMRowsClone* clone = MirroredRows::instance().clone();
    const OrvoRoles roles = OrvoRoles().setId(QStringLiteral("new"));
    for (auto _ : state) {
        const qlonglong begin = Link::now();
        clone->insertItem(0, OrvoRoles());
        clone->setItem(0, roles);
        state.SetIterationTime(seconds(Link::now() - begin) / MirroredList);
        clone->removeItem(0);
    }
    if (clone->list().size() != MirroredList)
        state.SkipWithError("the mirror is not what it was");
}
BENCHMARK(insertAtTheHead)
    ->Name("row inserted at the head of a mirror of 10,000, for each row")
    ->Iterations(3000)
    ->UseManualTime();

/// The same from the list's change to what the mirror tells.
void followInsertion(benchmark::State& state)
{
    MirroredRows& rows = MirroredRows::instance();
    rows.forget();
    for (auto _ : state) {
        const int size = rows.clone()->list().size();
        rows.node()->rowsInsert(0, OrvoRoles().setId(QStringLiteral("new%1").arg(size)));
        waitUntil([&] { return rows.clone()->list().size() == size + 1; });
    }
    state.counters["requests"] = double(rows.requests) / double(state.iterations());
    state.counters["signals"] = double(rows.signalsHeard) / double(state.iterations());
}
BENCHMARK(followInsertion)
    ->Name("row inserted at the head of a mirrored list until told, with the 30 ms")
    ->Iterations(10)
    ->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::WARN_LOG_LEVEL);
    orvoRegisterMetaTypes();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
