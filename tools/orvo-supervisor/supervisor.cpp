#include "supervisor.h"

#include "log.h"

#include <algorithm>

Supervisor::Supervisor(const Config& config)
{
    m_updateTimer.setSingleShot(true);
    m_updateTimer.setInterval(0);
    connect(&m_updateTimer, &QTimer::timeout, this, &Supervisor::update);
    for (const ServiceConfig& serviceConfig : config) {
        m_services.push_back(std::make_unique<Service>(serviceConfig));
        Service* service = m_services.back().get();
        m_byId.insert(serviceConfig.id, service);
        connect(service, &Service::changed, this, [this] { m_updateTimer.start(); });
    }
}

Supervisor::~Supervisor() = default;

void Supervisor::start()
{
    for (const auto& service : m_services) {
        service->setReady(isReady(*service));
        service->start();
    }
}

void Supervisor::stop()
{
    if (m_stopping)
        return;
    LOG4CPLUS_INFO(supervisorLog(), "stopping all services");
    m_stopping = true;
    // Nothing starts any more, also where a service ends by itself meanwhile.
    for (const auto& service : m_services)
        if (!service->hasProcess())
            service->stop();
    m_updateTimer.start();
}

void Supervisor::kill()
{
    m_killing = true;
    stop();
    for (const auto& service : m_services)
        service->kill();
}

void Supervisor::update()
{
    if (m_stopping) {
        stopNext();
        return;
    }
    for (const auto& service : m_services)
        service->setReady(isReady(*service));
}

void Supervisor::stopNext()
{
    for (auto it = m_services.rbegin(); it != m_services.rend(); ++it) {
        Service& service = **it;
        if (service.state() == Service::State::Stopped || service.state() == Service::State::Failed)
            continue;
        if (service.state() != Service::State::Stopping || service.isWanted())
            service.stop();
        if (service.hasProcess()) {
            if (m_killing)
                service.kill();
            return;
        }
    }
    emit stopped();
}

bool Supervisor::isReady(const Service& service) const
{
    const QStringList& after = service.config().after;
    return std::all_of(after.cbegin(), after.cend(),
                       [this](const QString& id) { return m_byId.value(id)->state() == Service::State::Running; });
}
