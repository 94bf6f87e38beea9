#include "serviceprocess.h"

#include "cmremoteworker.h"
#include "core/model/cmmetatypes.h"
#include "core/model/cmnodes.h"
#include "core/model/cmroot.h"
#include "core/model/cmrpcserver.h"
#include "core/orvo.h"
#include "core/orvoStacktrace.h"
#include "orvoserviceprocess.h"
#include "records/orvoconstants.h"

#include <QCoreApplication>

#include <iostream>

void prepareServiceProcess()
{
    orvoStacktrace::install();
    // Qt's own event loop is the faster one here.
    if (!qEnvironmentVariableIsSet("QT_NO_GLIB"))
        qputenv("QT_NO_GLIB", "1");
    orvoLogToStderr();
    orvoRegisterMetaTypes();
}

ServiceProcess::ServiceProcess(const QString& name) : m_name(name)
{
    CMRoot_setInstance(&m_router);
    m_thread.start();
}

ServiceProcess::~ServiceProcess()
{
    // Each in the thread that it lives in.
    QObject context;
    context.moveToThread(&m_thread);
    QMetaObject::invokeMethod(
        &context,
        [this, &context] {
            qDeleteAll(m_remotes);
            context.moveToThread(QCoreApplication::instance()->thread());
        },
        Qt::BlockingQueuedConnection);
    m_thread.quit();
    m_thread.wait();
}

CMNodesWorker* ServiceProcess::addTree(const QString& prefix)
{
    m_trees.push_back(std::make_unique<CMNodesWorker>(
        QHash<QString, QVariant>{{OrvoWorkerArguments::Prefix(), CMPath::fromPrefix(prefix).toEncoded()},
                                 {OrvoWorkerArguments::MergeEvents(), true}},
        prefix));
    m_router.registerWorker(prefix, m_trees.back().get());
    return m_trees.back().get();
}

void ServiceProcess::reach(const QString& prefix)
{
    QObject context;
    context.moveToThread(&m_thread);
    QMetaObject::invokeMethod(
        &context,
        [&] {
            m_remotes.push_back(new CMRemoteWorker(m_name, prefix));
            context.moveToThread(QCoreApplication::instance()->thread());
        },
        Qt::BlockingQueuedConnection);
    m_router.registerWorker(prefix, m_remotes.back());
}

int ServiceProcess::exec()
{
    std::vector<std::unique_ptr<CMRPCServer>> servers;
    for (const auto& tree : m_trees) {
        const QString prefix = tree->prefixPath().prefix();
        if (orvoIsServed(prefix)) {
            std::cerr << m_name.toStdString() << ": another process serves the name '" << prefix.toStdString()
                      << "' already" << std::endl;
            return 1;
        }
        servers.push_back(std::make_unique<CMRPCServer>(nullptr, prefix));
    }
    return QCoreApplication::exec();
}

CMValueNode* addValue(CMNodesWorker* tree, const QString& base, const char* title, const OrvoValue& value)
{
    CMValueNode* node = CMValueNode::create(tree->nodes(), tree->addPrefix(base));
    node->setTitle(TrString(title));
    node->setValue(value);
    return node;
}
