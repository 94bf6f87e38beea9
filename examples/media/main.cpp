// media: serves the sound files of a folder as a list.

#include "mediaservice.h"
#include "unixsignals.h"

#include "core/model/cmmetatypes.h"
#include "core/model/cmrpccommon.h"
#include "core/orvoLogger.h"
#include "core/orvoStacktrace.h"
#include "medialog.h"
#include "orvoserviceprocess.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

#include <log4cplus/initializer.h>

#include <iostream>

namespace {

enum Status { Failed = 1, Usage = 2 };

int fail(Status status, const QString& text)
{
    std::cerr << "media: " << text.toStdString() << std::endl;
    return status;
}

/// Why the file can be no configuration; empty when it can be one, or be made.
QString configProblem(bool isWanted, const QString& file)
{
    const QFileInfo info(file);
    const QFileInfo folder(info.absolutePath());
    if (!isWanted)
        return {};
    if (info.exists() ? !info.isFile() || !info.isReadable() : file.isEmpty() || file.endsWith(QLatin1Char('/')))
        return QStringLiteral("cannot read the configuration: ") + file;
    if (!folder.isDir() || !folder.isWritable())
        return QStringLiteral("cannot write to the folder of the configuration: ") + folder.filePath();
    return {};
}

} // namespace

int main(int argc, char** argv)
{
    // Qt's own event loop is the faster one here.
    if (!qEnvironmentVariableIsSet("QT_NO_GLIB"))
        qputenv("QT_NO_GLIB", "1");
    QCoreApplication application(argc, argv);
    const UnixSignals unixSignals;
    orvoStacktrace::install();
    QCoreApplication::setApplicationName(QStringLiteral("media"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Serves the sound files of a folder and its subfolders."));
    parser.addHelpOption();
    const QCommandLineOption nameOption(QStringLiteral("name"), QStringLiteral("Name of the service and its paths."),
                                        QStringLiteral("NAME"), QStringLiteral("media"));
    const QCommandLineOption logOption(QStringLiteral("log-config"), QStringLiteral("log4cplus properties file."),
                                       QStringLiteral("FILE"));
    const QCommandLineOption configOption(
        QStringLiteral("config"), QStringLiteral("Where the configuration is kept; it is lost at the end without."),
        QStringLiteral("FILE"));
    parser.addOptions({nameOption, logOption, configOption});
    parser.addPositionalArgument(QStringLiteral("FOLDER"), QStringLiteral("The folder to serve."));
    if (!parser.parse(application.arguments()))
        return fail(Usage, parser.errorText());
    if (parser.isSet(QStringLiteral("help")))
        parser.showHelp();
    if (parser.positionalArguments().size() != 1)
        return fail(Usage, QStringLiteral("name one folder; see media --help"));

    const QString name = parser.value(nameOption);
    const QFileInfo folder(parser.positionalArguments().first());
    const QString logConfig = parser.value(logOption);
    if (!orvoIsServiceName(name))
        return fail(Usage, QStringLiteral("a name has letters, digits, '-' and '_' only: '%1'").arg(name));
    if (!folder.exists())
        return fail(Failed, QStringLiteral("no such folder: ") + folder.filePath());
    if (!folder.isDir() || !folder.isReadable() || !folder.isExecutable())
        return fail(Failed, QStringLiteral("not a folder that can be read: ") + folder.filePath());
    if (parser.isSet(logOption) && !QFileInfo(logConfig).isReadable())
        return fail(Failed, QStringLiteral("cannot read the log configuration: ") + logConfig);
    const QString config = parser.value(configOption);
    if (const QString problem = configProblem(parser.isSet(configOption), config); !problem.isEmpty())
        return fail(Failed, problem);
    if (orvoIsServed(name))
        return fail(Failed, QStringLiteral("another process serves the name '%1' already, at %2")
                                .arg(name, CMRPCSocket::socketPathFromPrefix(name)));

    const log4cplus::Initializer initializer;
    if (logConfig.isEmpty())
        orvoLogToStderr(QStringLiteral("media"));
    else
        OrvoLogger::instance()->loadConfiguration(logConfig);
    orvoRegisterMetaTypes();
    const MediaService service(name, folder.canonicalFilePath(), config);
    LOG4CPLUS_INFO(mediaLog(), "serving " << folder.canonicalFilePath().toStdString() << " as " << name.toStdString());
    return application.exec();
}
