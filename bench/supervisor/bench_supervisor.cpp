// How fast a service that died answers again, and what it costs to watch over many that do nothing.

#include "cmremoteworker.h"
#include "core/model/cmmetatypes.h"
#include "core/model/cmrpccommon.h"
#include "core/orvo.h"
#include "records/orvoroles.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QScopeGuard>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>
#include <log4cplus/logger.h>

#include <csignal>
#include <memory>
#include <unistd.h>

namespace {

constexpr int pingedChildren = 50;
constexpr int observedMs = 10000;

QString peer()
{
    return QCoreApplication::applicationDirPath() + QStringLiteral("/peers/bench_supervisor_peer");
}

QByteArray contentOf(const QString& fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

class Device
{
public:
    explicit Device(const QJsonArray& services) : m_worker(QStringLiteral("bench"), name())
    {
        QFile file(m_folder.filePath(QStringLiteral("services.json")));
        if (file.open(QIODevice::WriteOnly))
            file.write(QJsonDocument(QJsonObject{{QStringLiteral("services"), services}}).toJson());
        file.close();
        m_process.setStandardErrorFile(QProcess::nullDevice());
        m_process.start(QCoreApplication::applicationDirPath() + QStringLiteral("/orvo-supervisor"),
                        {QStringLiteral("--name"), name(), file.fileName()});
        m_process.waitForStarted();
    }
    ~Device()
    {
        m_process.terminate();
        m_process.waitForFinished();
    }

    int pid() const { return int(m_process.processId()); }
    /// Waits for it.
    bool isRunning(const QString& id)
    {
        for (int tries = 0; tries < 2000; ++tries) {
            if (read(&m_worker, name(), QStringLiteral("services/%1/state").arg(id)).string_()
                == QLatin1String("running"))
                return true;
            usleep(5000);
        }
        return false;
    }
    int pidOf(const QString& id) { return read(&m_worker, name(), QStringLiteral("services/%1/pid").arg(id)).i32_(); }

    /// An empty value when the request failed.
    static OrvoValue read(CMRemoteWorker* worker, const QString& prefix, const QString& base)
    {
        const auto reply = worker->getData(CMPath::fromPrefix(prefix) + base, {OrvoRoles::Value()});
        QEventLoop loop;
        reply.onFinished([&loop](const CMReply<QVariantList>&) { loop.quit(); }, Qt::QueuedConnection);
        loop.exec();
        return reply.error().isError() ? OrvoValue() : OrvoValue(reply.value().value(0).toHash());
    }

private:
    static QString name() { return QStringLiteral("benchsup-%1").arg(QCoreApplication::applicationPid()); }

    QTemporaryDir m_folder;
    QProcess m_process;
    CMRemoteWorker m_worker;
};

/// From SIGKILL to an answer, for a client that follows the service. The argument is the back-off in milliseconds.
void killToAnswer(benchmark::State& state)
{
    const QString id = QStringLiteral("killed");
    const QString service = QStringLiteral("benchkilled-%1").arg(QCoreApplication::applicationPid());
    // The service heeds no signal, so its socket stays behind.
    const auto removeSocket = qScopeGuard([&service] { QFile::remove(CMRPCSocket::socketPathFromPrefix(service)); });
    Device device({QJsonObject{
        {"id", id},
        {"program", peer()},
        {"arguments", QJsonArray{"serve", service}},
        {"restart", QJsonObject{{"backOffMs", int(state.range(0))}, {"healthyMs", 0}}},
    }});
    CMRemoteWorker client(QStringLiteral("bench"), service);
    if (!device.isRunning(id) || Device::read(&client, service, QStringLiteral("value")).isEmpty()) {
        state.SkipWithError("the service did not come up");
        return;
    }
    for (auto _ : state) {
        state.PauseTiming();
        const int pid = device.pidOf(id);
        state.ResumeTiming();
        if (pid <= 0 || kill(pid, SIGKILL) != 0) {
            state.SkipWithError("there is no process");
            return;
        }
        // Requests that are open when the link breaks end as cancelled; the next one waits for the new link.
        while (Device::read(&client, service, QStringLiteral("value")).isEmpty())
            ;
        state.PauseTiming();
        const bool isBack = device.isRunning(id) && device.pidOf(id) != pid;
        state.ResumeTiming();
        if (!isBack) {
            state.SkipWithError("the answer came from the process that was killed");
            return;
        }
    }
}
BENCHMARK(killToAnswer)
    ->Name("supervisor/sigkill_to_answer/backOffMs")
    ->Arg(0)
    ->Arg(100)
    ->Iterations(20)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

/// Idle services that are pinged each second, on a bus of their own.
class PingedDevice
{
public:
    PingedDevice()
    {
        m_bus.start(QStringLiteral("dbus-daemon"),
                    {QStringLiteral("--session"), QStringLiteral("--nofork"), QStringLiteral("--nopidfile"),
                     QStringLiteral("--print-address=1"), QStringLiteral("--address=unix:tmpdir=") + QDir::tempPath()});
        while (!m_bus.canReadLine() && m_bus.waitForReadyRead())
            ;
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", m_bus.readLine().trimmed());
        QJsonArray services;
        for (int i = 0; i < pingedChildren; ++i) {
            const QString busName = QStringLiteral("org.example.pinged%1").arg(i);
            services.append(QJsonObject{
                {"id", QStringLiteral("s%1").arg(i)},
                {"program", peer()},
                {"arguments", QJsonArray{"ping", busName}},
                {"busName", busName},
                {"ping", QJsonObject{{"intervalMs", 1000}, {"timeoutMs", 900}}},
            });
        }
        m_device = std::make_unique<Device>(services);
    }
    ~PingedDevice()
    {
        m_device.reset();
        m_bus.terminate();
        m_bus.waitForFinished();
    }

    bool isUp()
    {
        for (int i = 0; i < pingedChildren; ++i)
            if (!m_device->isRunning(QStringLiteral("s%1").arg(i)))
                return false;
        return true;
    }
    double residentBytes() const
    {
        const QList<QByteArray> pages = contentOf(proc(QStringLiteral("statm"))).split(' ');
        return pages.value(1).toDouble() * sysconf(_SC_PAGESIZE);
    }
    /// Of all its threads, in nanoseconds as the scheduler counts them.
    double processorNs() const
    {
        double sum = 0;
        const QString tasks = proc(QStringLiteral("task/"));
        for (const QString& task : QDir(tasks).entryList(QDir::Dirs | QDir::NoDotAndDotDot))
            sum += contentOf(tasks + task + QStringLiteral("/schedstat")).split(' ').value(0).toDouble();
        return sum;
    }

private:
    QString proc(const QString& file) const { return QStringLiteral("/proc/%1/%2").arg(m_device->pid()).arg(file); }

    QProcess m_bus;
    std::unique_ptr<Device> m_device;
};

void pingedMemory(benchmark::State& state)
{
    PingedDevice device;
    if (!device.isUp()) {
        state.SkipWithError("the services did not come up");
        return;
    }
    usleep(2000000);
    for (auto _ : state)
        state.counters["bytes"] = device.residentBytes();
}
BENCHMARK(pingedMemory)->Name("supervisor/resident_memory/50_pinged_children")->Iterations(1);

/// The time that is told is the processor time of the supervisor for one second on the clock.
void pingedProcessor(benchmark::State& state)
{
    PingedDevice device;
    if (!device.isUp()) {
        state.SkipWithError("the services did not come up");
        return;
    }
    usleep(2000000);
    for (auto _ : state) {
        const double before = device.processorNs();
        QElapsedTimer timer;
        timer.start();
        usleep(observedMs * 1000);
        state.SetIterationTime((device.processorNs() - before) / double(timer.nsecsElapsed()));
    }
}
BENCHMARK(pingedProcessor)
    ->Name("supervisor/processor_time_per_second/50_pinged_children")
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime();

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::OFF_LOG_LEVEL);
    orvoRegisterMetaTypes();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
