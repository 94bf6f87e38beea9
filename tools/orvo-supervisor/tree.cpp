#include "tree.h"

#include "core/model/cmnodes.h"
#include "service.h"
#include "supervisor.h"

#include <algorithm>

/**
 * The seconds for which a service has been up. They are read off when somebody asks, and told each second while
 * somebody watches; a device at rest does nothing for them.
 */
class UptimeNode : public CMValueNode
{
public:
    UptimeNode(const CMPath& path, const Service* service) : CMValueNode(path), m_service(service), m_timer(this)
    {
        m_timer.setInterval(1000);
        connect(&m_timer, &QTimer::timeout, this, &UptimeNode::update);
    }

    void update()
    {
        setValue(OrvoValue().setI64_(m_service->uptime() / 1000));
        const bool watched = !valuePaths().isEmpty() || !dataPaths().isEmpty();
        if (!watched || m_service->state() != Service::State::Running)
            m_timer.stop();
        else if (!m_timer.isActive())
            m_timer.start();
    }

    QVariant getRoleData(const QString& role, const Params& params) override
    {
        if (role == OrvoRoles::Value())
            return OrvoValue().setI64_(m_service->uptime() / 1000).__variant();
        return CMValueNode::getRoleData(role, params);
    }
    void valuePathAdd(const CMPath& path) override
    {
        CMValueNode::valuePathAdd(path);
        updateLater();
    }
    void dataPathAdd(const CMPath& path) override
    {
        CMValueNode::dataPathAdd(path);
        updateLater();
    }

private:
    /// Paths are added under locks, in any thread.
    void updateLater()
    {
        QMetaObject::invokeMethod(
            this, [this] { update(); }, Qt::QueuedConnection);
    }

    const Service* const m_service;
    QTimer m_timer;
};

namespace {

CMError failure(const QString& text)
{
    return CMError(CMError::DefaultName(), text, CMError::DefaultTitle());
}

} // namespace

ServiceNodes::ServiceNodes(CMNodesWorker* worker, Supervisor* supervisor, Service* service)
    : m_supervisor(supervisor),
      m_service(service),
      m_list(CMListRowsNode::create(worker->nodes(),
                                    worker->addPrefix(QStringLiteral("services/") + service->config().id)))
{
    m_list->setTitle(TrString(service->config().id));
    m_state = addValue(worker, QStringLiteral("state"), "State");
    m_pid = addValue(worker, QStringLiteral("pid"), "Process id");
    m_restarts = addValue(worker, QStringLiteral("restarts"), "Restarts");
    m_lastExit = addValue(worker, QStringLiteral("lastExit"), "Last exit");

    m_uptime = new UptimeNode(CMPath(m_list->path()).appendSubpath(QStringLiteral("uptime")), service);
    m_uptime->setTitle(TrString("Seconds up"));
    m_uptime->setReadOnly(true);
    m_uptime->setNodes(worker->nodes());
    m_list->rowsAppend(m_uptime->path());

    addAction(worker, QStringLiteral("start"), "Start", SLOT(on_start_invoked(CMSetDataRequest)));
    addAction(worker, QStringLiteral("stop"), "Stop", SLOT(on_stop_invoked(CMSetDataRequest)));
    addAction(worker, QStringLiteral("restart"), "Restart", SLOT(on_restart_invoked(CMSetDataRequest)));

    connect(service, &Service::changed, this, &ServiceNodes::update);
    update();
}

CMValueNode* ServiceNodes::addValue(CMNodesWorker* worker, const QString& id, const char* title)
{
    CMValueNode* node = CMValueNode::create(worker->nodes(), CMPath(m_list->path()).appendSubpath(id));
    node->setTitle(TrString(title));
    node->setReadOnly(true);
    m_list->rowsAppend(node->path());
    return node;
}

CMActivateNode* ServiceNodes::addAction(CMNodesWorker* worker, const QString& id, const char* title, const char* slot)
{
    CMActivateNode* node =
        CMActivateNode::create(worker->nodes(), CMPath(m_list->path()).appendSubpath(id), this, slot);
    node->setTitle(TrString(title));
    m_list->rowsAppend(node->path());
    return node;
}

void ServiceNodes::update()
{
    m_state->setValue(OrvoValue().setString_(m_service->stateText()));
    m_pid->setValue(OrvoValue().setI32_(m_service->pid()));
    m_restarts->setValue(OrvoValue().setI32_(m_service->restarts()));
    m_lastExit->setValue(OrvoValue().setString_(m_service->lastExit()));
    m_uptime->update();

    // Some senders no longer wait.
    const auto isOver = [](const CMSetDataRequest& request) { return request.reply().isFinished(); };
    m_untilUp.erase(std::remove_if(m_untilUp.begin(), m_untilUp.end(), isOver), m_untilUp.end());
    m_untilDown.erase(std::remove_if(m_untilDown.begin(), m_untilDown.end(), isOver), m_untilDown.end());

    const Service::State state = m_service->state();
    const bool ended = state == Service::State::Stopped || state == Service::State::Failed;
    // Lists of their own, as whoever gets an answer may ask for the next thing.
    QList<CMSetDataRequest> up;
    QList<CMSetDataRequest> down;
    if (ended || state == Service::State::Running)
        up.swap(m_untilUp);
    if (ended || !m_service->hasProcess())
        down.swap(m_untilDown);
    for (const CMSetDataRequest& request : qAsConst(up)) {
        if (state == Service::State::Running)
            request.reply().setValue(QVariant());
        else
            request.reply().setError(
                failure(QStringLiteral("The service is %1: %2").arg(m_service->stateText(), m_service->lastExit())));
    }
    for (const CMSetDataRequest& request : qAsConst(down))
        request.reply().setValue(QVariant());
}

bool ServiceNodes::refuse(const CMSetDataRequest& request)
{
    if (m_supervisor->isStopping())
        request.reply().setError(failure(QStringLiteral("All services are being stopped")));
    return m_supervisor->isStopping();
}

void ServiceNodes::on_start_invoked(CMSetDataRequest request)
{
    if (refuse(request))
        return;
    m_service->start();
    m_untilUp.append(request);
    update();
}

void ServiceNodes::on_stop_invoked(CMSetDataRequest request)
{
    if (refuse(request))
        return;
    m_service->stop();
    m_untilDown.append(request);
    update();
}

void ServiceNodes::on_restart_invoked(CMSetDataRequest request)
{
    if (refuse(request))
        return;
    m_service->restart();
    m_untilUp.append(request);
    update();
}

Tree::Tree(CMNodesWorker* worker, Supervisor* supervisor)
{
    CMListRowsNode* list = CMListRowsNode::create(worker->nodes(), worker->addPrefix(QStringLiteral("services")));
    list->setTitle(TrString("Services"));
    CMListRowsNode* root = CMListRowsNode::create(worker->nodes(), worker->prefixPath());
    root->setTitle(TrString("Supervisor"));
    root->rowsAppend(list->path());
    for (const auto& service : supervisor->services()) {
        m_services.push_back(std::make_unique<ServiceNodes>(worker, supervisor, service.get()));
        list->rowsAppend(m_services.back()->list()->path());
    }
}

Tree::~Tree() = default;
