// A service that is supervised: serves a value under a name, or answers pings under a bus name.

#include "core/model/cmmetatypes.h"
#include "core/model/cmnodes.h"
#include "core/model/cmroot.h"
#include "core/model/cmrpcserver.h"
#include "records/orvoconstants.h"

#include <QCoreApplication>
#include <QDBusConnection>

#include <log4cplus/initializer.h>

class Ping : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.orvo.ping")

public slots:
    void ping() {}
};

int main(int argc, char** argv)
{
    const log4cplus::Initializer logging;
    QCoreApplication application(argc, argv);
    const QString what = application.arguments().value(1);
    const QString name = application.arguments().value(2);
    if (what == QLatin1String("ping")) {
        Ping ping;
        QDBusConnection bus = QDBusConnection::systemBus();
        if (!bus.registerObject(QStringLiteral("/"), &ping, QDBusConnection::ExportAllSlots)
            || !bus.registerService(name))
            return 1;
        return application.exec();
    }
    if (what != QLatin1String("serve"))
        return 2;
    orvoRegisterMetaTypes();
    CMNodesWorker worker({{OrvoWorkerArguments::Prefix(), CMPath::fromPrefix(name).toEncoded()}}, name);
    CMRoot_setInstance(&worker);
    CMValueNode::create(worker.nodes(), worker.addPrefix(QStringLiteral("value")))->setValue(OrvoValue().setI32_(1));
    const CMRPCServer server(nullptr, name);
    return application.exec();
}

#include "bench_supervisor_peer.moc"
