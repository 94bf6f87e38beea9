// settings: the language and the network of the device.

#include "../media/unixsignals.h"
#include "serviceprocess.h"
#include "settings.h"

#include <QCoreApplication>

int main(int argc, char** argv)
{
    prepareServiceProcess();
    QCoreApplication application(argc, argv);
    const UnixSignals unixSignals;
    ServiceProcess process(QStringLiteral("settings"));
    CMNodesWorker* settings = process.addTree(QStringLiteral("settings"));
    CMNodesWorker* network = process.addTree(QStringLiteral("network"));
    const Settings both(settings, network);
    return process.exec();
}
