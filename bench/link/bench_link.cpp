#include "../allocations.h"
#include "link.h"

#include "cmremoteworker.h"
#include "core/model/cmmetatypes.h"
#include "core/model/cmpath.h"
#include "core/model/cmrpcclient.h"
#include "records/orvoroles.h"
#include "records/orvorpc.h"
#include "records/orvovalue.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QEventLoop>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalSocket>
#include <QProcess>
#include <QTimer>

#include <log4cplus/logger.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <malloc.h>
#include <memory>
#include <sched.h>
#include <vector>

#ifdef ORVO_BENCH_REMOTE_OBJECTS
#include "rep_peer_replica.h"

#include <QAbstractItemModelReplica>
#endif

// The link between two processes beside what else would carry the same: a bare local socket, Qt's D-Bus with and
// without a daemon, Qt's remote objects. All processes of a run share one core, and each run takes one event loop, Qt's
// own or the one on GLib. A run is a pair of processes of its own; the median of several runs counts.
//
//     bench_link [--benchmark_out=FILE]     all of it, written as Google Benchmark writes its results
//     bench_link --run MODE                 one run in this process, one line of JSON for each figure
//     bench_link --gets MODE COUNT          nothing but reads, one after the other, to look at with a profiler
//     bench_link --changes MODE COUNT       nothing but changes, likewise

namespace {

using Done = std::function<void()>;

class Client : public QObject
{
    Q_OBJECT

public:
    virtual bool isReady() const { return true; }
    virtual void get(Done done) = 0;
    virtual void watch() = 0;
    virtual bool hasRows() const { return false; }
    /// Reads all rows and keeps them until the next call.
    virtual void readRows(const Done& done) { done(); }
    virtual void forgetRows() {}

    std::function<void(qlonglong)> onChange;
};

class OrvoClient : public Client
{
    Q_OBJECT

public:
    explicit OrvoClient(const QString& address) : m_worker(QStringLiteral("bench"), address) {}

    bool isReady() const override { return m_worker.client()->isConnected(); }
    void get(Done done) override
    {
        m_worker.getData(m_value, m_roles).onSuccess([done = std::move(done)](const QVariantList& values) {
            Q_ASSERT(values.size() == 1);
            done();
        });
    }
    void watch() override { m_worker.connectValueChange(m_value, this, SLOT(changed(CMPath, QVariant))); }
    bool hasRows() const override { return true; }
    void readRows(const Done& done) override
    {
        m_done = done;
        readChunk();
    }
    void forgetRows() override { m_rows = QVariantList(); }

private slots:
    void changed(const CMPath&, const QVariant& value) { onChange(OrvoValue(value.toHash()).i64_()); }

private:
    void readChunk()
    {
        const int from = m_rows.size();
        m_worker.getRows(m_list, from, from + Link::Chunk - 1, -1, m_rowRoles)
            .onSuccess([this](const OrvoRowsRoles& answer) {
                m_rows += answer.rows().toList();
                if (m_rows.size() < answer.rowsCount())
                    readChunk();
                else
                    m_done();
            });
    }

    CMRemoteWorker m_worker;
    const CMPath m_value = CMPath::fromEncoded(Link::valuePath());
    const CMPath m_list = CMPath::fromEncoded(Link::rowsPath());
    const QStringList m_roles{OrvoRoles::Value()};
    const QStringList m_rowRoles = Link::roles();
    QVariantList m_rows;
    Done m_done;
};

/// The bytes that a read takes on our own link.
int requestSize()
{
    OrvoGetDataRequest get;
    get.setPath(CMPath::fromEncoded(Link::valuePath())).setRoles(QStringList{OrvoRoles::Value()});
    const OrvoRPCPacket packet =
        OrvoRPCPacket().setRequest(OrvoRequest().setId(QStringLiteral("bench:12345")).setGetDataRequest(get));
    return packet.toJson(false).size() + 9;
}

class EchoClient : public Client
{
    Q_OBJECT

public:
    explicit EchoClient(const QString& address) : m_message(requestSize(), 'x')
    {
        connect(&m_socket, &QLocalSocket::readyRead, this, &EchoClient::received);
        m_socket.connectToServer(address);
    }

    bool isReady() const override { return m_socket.state() == QLocalSocket::ConnectedState; }
    void get(Done done) override
    {
        m_waiting.push_back(std::move(done));
        m_socket.write(m_message);
    }
    void watch() override {}

private:
    void received()
    {
        while (m_socket.bytesAvailable() >= m_message.size()) {
            const QByteArray message = m_socket.read(m_message.size());
            if (m_waiting.isEmpty()) {
                qlonglong value;
                memcpy(&value, message.constData(), sizeof value);
                onChange(value);
            } else {
                m_waiting.takeFirst()();
            }
        }
        m_socket.flush();
    }

    QLocalSocket m_socket;
    const QByteArray m_message;
    QList<Done> m_waiting;
};

class BusClient : public Client
{
    Q_OBJECT

public:
    BusClient(const QString& address, const QString& daemon)
        : m_bus(daemon.isEmpty() ? QDBusConnection::connectToPeer(address, QStringLiteral("bench"))
                                 : QDBusConnection::connectToBus(daemon, QStringLiteral("bench"))),
          m_service(daemon.isEmpty() ? QString() : address)
    {}

    bool isReady() const override { return m_bus.isConnected(); }
    void get(Done done) override
    {
        QDBusMessage call = QDBusMessage::createMethodCall(m_service, m_path, m_interface, QStringLiteral("get"));
        call << Link::valuePath() << m_roles;
        auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
        connect(watcher, &QDBusPendingCallWatcher::finished, this, [done = std::move(done), watcher] {
            const QDBusPendingReply<QVariantList> reply = *watcher;
            Q_ASSERT(reply.isValid() && reply.value().size() == 1);
            watcher->deleteLater();
            done();
        });
    }
    void watch() override
    {
        m_bus.connect(m_service, m_path, m_interface, QStringLiteral("valueChanged"), this, SLOT(changed(qlonglong)));
    }

private slots:
    void changed(qlonglong value) { onChange(value); }

private:
    QDBusConnection m_bus;
    const QString m_service;
    const QString m_path = QStringLiteral("/peer");
    const QString m_interface = QStringLiteral("bench.Peer");
    const QStringList m_roles{OrvoRoles::Value()};
};

#ifdef ORVO_BENCH_REMOTE_OBJECTS
class RemoteObjectClient : public Client
{
    Q_OBJECT

public:
    explicit RemoteObjectClient(const QString& address)
    {
        m_node.connectToNode(QUrl(address));
        m_peer.reset(m_node.acquire<PeerReplica>());
    }

    bool isReady() const override { return m_peer->isReplicaValid(); }
    void get(Done done) override
    {
        auto* watcher = new QRemoteObjectPendingCallWatcher(m_peer->get(Link::valuePath(), m_roles), this);
        connect(watcher, &QRemoteObjectPendingCallWatcher::finished, this, [done = std::move(done), watcher] {
            Q_ASSERT(watcher->returnValue().toList().size() == 1);
            watcher->deleteLater();
            done();
        });
    }
    void watch() override
    {
        connect(m_peer.get(), &PeerReplica::valueChanged, this, [this](qlonglong value) { onChange(value); });
    }
    bool hasRows() const override { return true; }
    void readRows(const Done& done) override
    {
        m_done = done;
        m_loaded = 0;
        QVector<int> roles;
        for (int i = 0; i < Link::roles().size(); ++i)
            roles.append(Qt::UserRole + i);
        m_rows.reset(m_node.acquireModel(QStringLiteral("rows"), QtRemoteObjects::PrefetchData, roles));
        m_rows->setRootCacheSize(Link::Rows);
        connect(m_rows.get(), &QAbstractItemModelReplica::initialized, this, &RemoteObjectClient::checkRows);
        connect(m_rows.get(), &QAbstractItemModel::dataChanged, this, &RemoteObjectClient::checkRows);
    }
    void forgetRows() override { m_rows.reset(); }

private:
    void checkRows()
    {
        if (m_rows->rowCount() != Link::Rows)
            return;
        const int roles = Link::roles().size();
        for (; m_loaded < Link::Rows; ++m_loaded)
            for (int role = 0; role < roles; ++role)
                if (!m_rows->hasData(m_rows->index(m_loaded, 0), Qt::UserRole + role)) {
                    // Asks for it.
                    m_rows->data(m_rows->index(m_loaded, 0), Qt::UserRole + role);
                    return;
                }
        if (m_done)
            std::exchange(m_done, Done())();
    }

    QRemoteObjectNode m_node;
    std::unique_ptr<PeerReplica> m_peer;
    std::unique_ptr<QAbstractItemModelReplica> m_rows;
    const QStringList m_roles{OrvoRoles::Value()};
    int m_loaded = 0;
    Done m_done;
};
#endif

std::unique_ptr<Client> makeClient(const QString& mode, const QString& address, const QString& daemon)
{
    if (mode == QLatin1String("orvo"))
        return std::make_unique<OrvoClient>(address);
    if (mode == QLatin1String("echo"))
        return std::make_unique<EchoClient>(address);
    if (mode == QLatin1String("dbus") || mode == QLatin1String("dbus-p2p"))
        return std::make_unique<BusClient>(address, daemon);
#ifdef ORVO_BENCH_REMOTE_OBJECTS
    if (mode == QLatin1String("qtro"))
        return std::make_unique<RemoteObjectClient>(address);
#endif
    qFatal("unknown mode %s", qPrintable(mode));
}

QStringList peerModes()
{
    return {
        QStringLiteral("echo"),
        QStringLiteral("dbus"),
        QStringLiteral("dbus-p2p"),
#ifdef ORVO_BENCH_REMOTE_OBJECTS
        QStringLiteral("qtro"),
#endif
    };
}

/// A child process that ends with this object.
class Child
{
public:
    Child(const QString& program, const QStringList& arguments)
    {
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(program, arguments);
        if (!m_process.waitForStarted())
            qFatal("cannot start %s", qPrintable(program));
    }
    ~Child()
    {
        m_process.closeWriteChannel();
        if (!m_process.waitForFinished(200)) {
            m_process.terminate();
            m_process.waitForFinished();
        }
    }
    QString readLine()
    {
        while (!m_process.canReadLine())
            if (!m_process.waitForReadyRead(20000))
                qFatal("a process of the benchmark is silent");
        return QString::fromLocal8Bit(m_process.readLine()).trimmed();
    }
    void send(const QByteArray& line)
    {
        m_process.write(line + '\n');
        m_process.waitForBytesWritten();
    }

private:
    QProcess m_process;
};

size_t heapInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

double quantile(std::vector<double> values, double part)
{
    const size_t place = size_t(double(values.size() - 1) * part);
    std::nth_element(values.begin(), values.begin() + long(place), values.end());
    return values[place];
}

class Run
{
public:
    explicit Run(const QString& mode)
    {
        QString daemonAddress;
        if (mode == QLatin1String("dbus")) {
            m_daemon = std::make_unique<Child>(QStringLiteral("dbus-daemon"),
                                               QStringList{QStringLiteral("--session"), QStringLiteral("--nofork"),
                                                           QStringLiteral("--print-address")});
            daemonAddress = m_daemon->readLine();
        }
        m_peer = std::make_unique<Child>(
            QCoreApplication::applicationDirPath() + QStringLiteral("/peers/bench_link_peer"),
            QStringList{mode, mode == QLatin1String("echo") ? QString::number(requestSize()) : daemonAddress});
        m_client = makeClient(mode, m_peer->readLine().section(QLatin1Char(' '), 1), daemonAddress);
        while (!m_client->isReady())
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }

    void measureAll()
    {
        std::vector<double> times;
        gets(500, 1, nullptr);
        const double perGet = allocationsPerGet(1);
        times.clear();
        gets(3000, 1, &times);
        print("get, one outstanding, median", quantile(times, 0.5), perGet);
        print("get, one outstanding, p99", quantile(times, 0.99));

        // In short stretches, most of which the scheduler leaves alone.
        constexpr int stretch = 256;
        constexpr int stretches = 40;
        times.clear();
        const double perGet64 = allocationsPerGet(64);
        for (int i = 0; i < stretches; ++i) {
            const qlonglong start = Link::now();
            gets(stretch, 64, nullptr);
            times.push_back(double(Link::now() - start) / stretch);
        }
        print("get, 64 outstanding, each", quantile(times, 0.5), perGet64);

        print("value change to callback, median", quantile(changes(400), 0.5));

        if (m_client->hasRows())
            rows();
    }

    /// Reads, so many of them on their way at any time.
    void gets(int count, int outstanding, std::vector<double>* times)
    {
        QEventLoop loop;
        int started = 0;
        int done = 0;
        std::function<void()> next = [&] {
            if (started == count)
                return;
            ++started;
            const qlonglong begin = Link::now();
            m_client->get([&, begin] {
                if (times)
                    times->push_back(double(Link::now() - begin));
                if (++done == count)
                    loop.quit();
                else
                    next();
            });
        };
        for (int i = 0; i < outstanding; ++i)
            next();
        loop.exec();
    }

    /// The times from a change there to the call here; fewer where one overtakes another.
    std::vector<double> changes(int count)
    {
        QEventLoop loop;
        std::vector<double> times;
        m_client->onChange = [&](qlonglong sent) {
            times.push_back(double(Link::now() - sent));
            if (int(times.size()) == count)
                loop.quit();
        };
        m_client->watch();
        QTimer::singleShot(50, &loop, [&] { m_peer->send("changes " + QByteArray::number(count)); });
        // A change that overtakes its predecessor replaces it, so there may be fewer.
        QTimer::singleShot(50 + 2 * count, &loop, &QEventLoop::quit);
        loop.exec();
        m_client->onChange = [](qlonglong) {};
        return times;
    }

private:
    static void print(const char* name, double nanoseconds, double allocations = -1, double bytes = -1)
    {
        QJsonObject line{{QStringLiteral("name"), QString::fromLatin1(name)},
                         {QStringLiteral("real_time"), nanoseconds}};
        if (allocations >= 0)
            line.insert(QStringLiteral("allocations"), allocations);
        if (bytes >= 0)
            line.insert(QStringLiteral("bytes"), bytes);
        std::puts(QJsonDocument(line).toJson(QJsonDocument::Compact).constData());
    }

    /// Of both processes.
    double allocationsPerGet(int outstanding)
    {
        constexpr int count = 1024;
        m_peer->send("count");
        m_peer->readLine();
        const AllocationCounter allocations;
        gets(count, outstanding, nullptr);
        const uint64_t here = allocations.count();
        m_peer->send("counted");
        return double(m_peer->readLine().section(QLatin1Char(' '), 1).toULongLong() + here) / count;
    }

    void rows()
    {
        std::vector<double> times;
        std::vector<double> bytes;
        constexpr int repetitions = 5;
        for (int i = 0; i < repetitions; ++i) {
            QEventLoop loop;
            const size_t before = heapInUse();
            const qlonglong begin = Link::now();
            qlonglong end = 0;
            m_client->readRows([&] {
                end = Link::now();
                loop.quit();
            });
            loop.exec();
            times.push_back(double(end - begin));
            QCoreApplication::processEvents();
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
            bytes.push_back(double(heapInUse()) - double(before));
            m_client->forgetRows();
            QCoreApplication::processEvents();
        }
        print("10,000 rows of 10 roles, fastest", quantile(times, 0));
        print("10,000 rows of 10 roles, memory", 0, -1, quantile(bytes, 0.5));
    }

    std::unique_ptr<Child> m_daemon;
    std::unique_ptr<Child> m_peer;
    std::unique_ptr<Client> m_client;
};

/// This process and all that it starts from now on.
void pinToOneCore()
{
    cpu_set_t allowed;
    sched_getaffinity(0, sizeof allowed, &allowed);
    int last = CPU_SETSIZE - 1;
    while (last > 0 && !CPU_ISSET(last, &allowed))
        --last;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(last, &one);
    sched_setaffinity(0, sizeof one, &one);
}

QJsonArray measureAll()
{
    constexpr int rounds = 5;
    struct Figures
    {
        QString name;
        std::vector<double> times;
        QJsonObject last;
    };
    std::vector<Figures> all;
    for (int round = 0; round < rounds; ++round) {
        for (const bool onGLib : {false, true}) {
            onGLib ? qunsetenv("QT_NO_GLIB") : qputenv("QT_NO_GLIB", "1");
            for (const QString& mode : QStringList(QStringLiteral("orvo")) + peerModes()) {
                QProcess run;
                run.setProcessChannelMode(QProcess::ForwardedErrorChannel);
                run.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--run"), mode});
                if (!run.waitForFinished(60000) || run.exitCode() != 0)
                    qFatal("the run of %s failed", qPrintable(mode));
                for (const QByteArray& line : run.readAllStandardOutput().split('\n')) {
                    const QJsonObject figure = QJsonDocument::fromJson(line).object();
                    if (figure.isEmpty())
                        continue;
                    QString name = QStringLiteral("link (%1)/")
                                       .arg(onGLib ? QStringLiteral("GLib loop") : QStringLiteral("Qt loop"))
                                   + figure.value(QStringLiteral("name")).toString();
                    if (mode != QLatin1String("orvo"))
                        name += QStringLiteral("/peer:") + mode;
                    auto it = std::find_if(all.begin(), all.end(), [&](const Figures& f) { return f.name == name; });
                    if (it == all.end())
                        it = all.insert(all.end(), Figures{name, {}, {}});
                    it->times.push_back(figure.value(QStringLiteral("real_time")).toDouble());
                    it->last = figure;
                }
            }
        }
    }
    QJsonArray benchmarks;
    for (const Figures& figures : all) {
        QJsonObject benchmark = figures.last;
        benchmark.insert(QStringLiteral("name"), figures.name);
        benchmark.insert(QStringLiteral("run_name"), figures.name);
        const double part = figures.name.contains(QLatin1String("fastest")) ? 0 : 0.5;
        benchmark.insert(QStringLiteral("real_time"), quantile(figures.times, part));
        benchmark.insert(QStringLiteral("time_unit"), QStringLiteral("ns"));
        benchmarks.append(benchmark);
    }
    return benchmarks;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::WARN_LOG_LEVEL);
    pinToOneCore();
    const QStringList arguments = application.arguments();
    if (arguments.value(1) == QLatin1String("--run")) {
        orvoRegisterMetaTypes();
        Run(arguments.value(2)).measureAll();
        return 0;
    }
    if (arguments.value(1) == QLatin1String("--gets")) {
        orvoRegisterMetaTypes();
        Run(arguments.value(2)).gets(arguments.value(3).toInt(), 1, nullptr);
        return 0;
    }
    if (arguments.value(1) == QLatin1String("--changes")) {
        orvoRegisterMetaTypes();
        Run(arguments.value(2)).changes(arguments.value(3).toInt());
        return 0;
    }
    const QByteArray json = QJsonDocument(QJsonObject{{QStringLiteral("benchmarks"), measureAll()}}).toJson();
    const QString option = QStringLiteral("--benchmark_out=");
    for (const QString& argument : arguments) {
        if (!argument.startsWith(option))
            continue;
        QFile file(argument.mid(option.size()));
        if (!file.open(QIODevice::WriteOnly) || file.write(json) != json.size())
            qFatal("cannot write %s", qPrintable(file.fileName()));
        return 0;
    }
    std::fputs(json.constData(), stdout);
    return 0;
}

#include "bench_link.moc"
