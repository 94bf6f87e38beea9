// streamer: a simulated streaming service with a volume scale of its own.

#include "../media/unixsignals.h"
#include "serviceprocess.h"
#include "streamer.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <iostream>

int main(int argc, char** argv)
{
    prepareServiceProcess();
    QCoreApplication application(argc, argv);
    const UnixSignals unixSignals;

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("A simulated streaming service at NAME:."));
    parser.addHelpOption();
    const QCommandLineOption name(QStringLiteral("name"), QStringLiteral("Name of the service (stream)."),
                                  QStringLiteral("NAME"), QStringLiteral("stream"));
    const QCommandLineOption scale(QStringLiteral("scale"), QStringLiteral("Top of its volumes (100)."),
                                   QStringLiteral("MAX"), QStringLiteral("100"));
    const QCommandLineOption attenuation(QStringLiteral("attenuation"),
                                         QStringLiteral("Speak in attenuations, without a scale."));
    parser.addOptions({name, scale, attenuation});
    parser.process(application);
    bool isNumber = false;
    const int maxVolume = parser.value(scale).toInt(&isNumber);
    if (!isNumber || maxVolume < -1) {
        std::cerr << "streamer: no scale: " << parser.value(scale).toStdString() << std::endl;
        return 2;
    }

    ServiceProcess process(parser.value(name));
    process.reach(QStringLiteral("player"));
    const Streamer streamer(process.addTree(parser.value(name)), parser.value(name),
                            parser.isSet(attenuation) ? Streamer::Kind::Attenuation : Streamer::Kind::Volume,
                            maxVolume);
    return process.exec();
}
