// player: plays tracks of other services, as loud as its volume says.

#include "../media/unixsignals.h"
#include "player.h"
#include "serviceprocess.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <iostream>

int main(int argc, char** argv)
{
    prepareServiceProcess();
    QCoreApplication application(argc, argv);
    const UnixSignals unixSignals;

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Plays tracks of other services."));
    parser.addHelpOption();
    const QCommandLineOption sink(QStringLiteral("sink"), QStringLiteral("Where samples go, as ipc:///tmp/audio."),
                                  QStringLiteral("URI"));
    const QCommandLineOption state(QStringLiteral("state"), QStringLiteral("Keeps volume and mute."),
                                   QStringLiteral("FILE"));
    parser.addOptions({sink, state});
    parser.process(application);

    ServiceProcess process(QStringLiteral("player"));
    process.reach(QStringLiteral("media"));
    const Player player(process.addTree(QStringLiteral("player")), parser.value(sink), parser.value(state));
    return process.exec();
}
