// orvo-supervisor: runs the services of a device, and serves their state as a tree.

#include "config.h"
#include "log.h"
#include "stopsignals.h"
#include "supervisor.h"
#include "tree.h"

#include "cmremoteworker.h"
#include "cmroutingworker.h"
#include "core/model/cmmetatypes.h"
#include "core/model/cmnodesworker.h"
#include "core/model/cmroot.h"
#include "core/model/cmrpcserver.h"
#include "core/orvo.h"
#include "core/orvoLogger.h"
#include "core/orvoStacktrace.h"
#include "orvoserviceprocess.h"
#include "records/orvoconstants.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDBusConnection>
#include <QFile>
#include <QFileInfo>
#include <QMap>

#include <log4cplus/initializer.h>

#include <algorithm>
#include <iostream>
#include <memory>

namespace {

enum Status { Failed = 1, Usage = 2 };

/// Room for the largest of devices; whatever is larger is some other file.
constexpr qint64 maxFileSize = 4 * 1024 * 1024;

int fail(Status status, const QString& text)
{
    std::cerr << "orvo-supervisor: " << text.toStdString() << std::endl;
    return status;
}

/// False, and all problems on stderr as FILE:LINE:COLUMN: TEXT, when the file is no configuration.
bool readFile(const QString& fileName, Config& config)
{
    QFile file(fileName);
    QList<Problem> problems;
    if (QFileInfo(fileName).isDir() || !file.open(QIODevice::ReadOnly)) {
        fail(Failed,
             QStringLiteral("cannot read %1: %2")
                 .arg(fileName, QFileInfo(fileName).isDir() ? QStringLiteral("it is a folder") : file.errorString()));
        return false;
    }
    const QByteArray text = file.read(maxFileSize + 1);
    if (text.size() > maxFileSize)
        problems.append({Place(), QStringLiteral("the file has more than %1 bytes").arg(maxFileSize)});
    else
        problems = readConfig(text, config);
    for (const Problem& problem : qAsConst(problems))
        std::cerr << fileName.toStdString() << ':' << problem.place.line << ':' << problem.place.column << ": "
                  << problem.text.toStdString() << std::endl;
    return problems.isEmpty();
}

/// The services whose values ours follow, by their prefixes; nobody else's requests are passed on.
QStringList followedPrefixes(const Config& config)
{
    QStringList prefixes;
    for (const ServiceConfig& service : config) {
        for (const CMPath& path : service.restartOnChanged)
            prefixes.append(path.prefix());
        if (service.stopOnNetworkDown)
            prefixes.append(OrvoNetworkStateConnected().prefix());
    }
    prefixes.removeDuplicates();
    return prefixes;
}

void warnWithoutBus(const Config& config)
{
    const bool needed = std::any_of(config.cbegin(), config.cend(),
                                    [](const ServiceConfig& service) { return !service.busName.isEmpty(); });
    if (needed && !orvoDBusConnection().isConnected())
        LOG4CPLUS_ERROR(supervisorLog(), "no system bus: services with a bus name will not come up");
}

int run(const QString& name, const Config& config)
{
    CMNodesWorker worker({{OrvoWorkerArguments::Prefix(), CMPath::fromPrefix(name).toEncoded()},
                          {OrvoWorkerArguments::MergeEvents(), true}},
                         name);
    CMRoutingWorker router;
    router.registerWorker(name, &worker);
    std::vector<std::unique_ptr<CMRemoteWorker>> remotes;
    for (const QString& prefix : followedPrefixes(config)) {
        if (prefix == name)
            continue;
        remotes.push_back(std::make_unique<CMRemoteWorker>(name, prefix));
        router.registerWorker(prefix, remotes.back().get());
    }
    CMRoot_setInstance(&router);

    StopSignals stopSignals;
    Supervisor supervisor(config);
    const Tree tree(&worker, &supervisor);
    const CMRPCServer server(nullptr, name);
    QObject::connect(&stopSignals, &StopSignals::received, &supervisor, [&supervisor] {
        if (supervisor.isStopping())
            supervisor.kill();
        else
            supervisor.stop();
    });
    QObject::connect(&supervisor, &Supervisor::stopped, qApp, &QCoreApplication::quit, Qt::QueuedConnection);
    warnWithoutBus(config);
    QTimer::singleShot(0, &supervisor, &Supervisor::start);
    return QCoreApplication::exec();
}

} // namespace

int main(int argc, char** argv)
{
    // Qt's own event loop is the faster one here; which one the services take is their affair.
    const bool chosen = qEnvironmentVariableIsSet("QT_NO_GLIB");
    if (!chosen)
        qputenv("QT_NO_GLIB", "1");
    QCoreApplication application(argc, argv);
    if (!chosen)
        qunsetenv("QT_NO_GLIB");
    QCoreApplication::setApplicationName(QStringLiteral("orvo-supervisor"));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Runs the services that a file names, and serves their state as NAME:services."));
    parser.addHelpOption();
    const QCommandLineOption checkOption(QStringLiteral("check"), QStringLiteral("Only look at the file."));
    const QCommandLineOption nameOption(QStringLiteral("name"), QStringLiteral("Name of the service and its paths."),
                                        QStringLiteral("NAME"), QStringLiteral("supervisor"));
    const QCommandLineOption logOption(QStringLiteral("log-config"), QStringLiteral("log4cplus properties file."),
                                       QStringLiteral("FILE"));
    parser.addOptions({checkOption, nameOption, logOption});
    parser.addPositionalArgument(QStringLiteral("FILE"), QStringLiteral("The services, as JSON."));
    if (!parser.parse(application.arguments()))
        return fail(Usage, parser.errorText());
    if (parser.isSet(QStringLiteral("help")))
        parser.showHelp();
    if (parser.positionalArguments().size() != 1)
        return fail(Usage, QStringLiteral("name one file; see orvo-supervisor --help"));
    const QString name = parser.value(nameOption);
    const QString logConfig = parser.value(logOption);
    if (!orvoIsServiceName(name))
        return fail(Usage, QStringLiteral("a name has letters, digits, '-' and '_' only: '%1'").arg(name));
    if (parser.isSet(logOption) && !QFileInfo(logConfig).isReadable())
        return fail(Failed, QStringLiteral("cannot read the log configuration: ") + logConfig);

    Config config;
    if (!readFile(parser.positionalArguments().first(), config))
        return Failed;
    if (parser.isSet(checkOption))
        return 0;
    if (orvoIsServed(name))
        return fail(Failed, QStringLiteral("another process serves the name '%1' already, at %2")
                                .arg(name, CMRPCSocket::socketPathFromPrefix(name)));

    const log4cplus::Initializer initializer;
    if (logConfig.isEmpty())
        orvoLogToStderr(QStringLiteral("supervisor"));
    else
        OrvoLogger::instance()->loadConfiguration(logConfig);
    orvoStacktrace::install();
    orvoRegisterMetaTypes();
    return run(name, config);
}
