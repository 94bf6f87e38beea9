#pragma once

#include "service.h"

#include <QObject>
#include <QTimer>

#include <memory>
#include <vector>

/**
 * All services of a device: starts each when those that it depends on are up, and stops them one by one in reverse.
 *
 * Lives in the main thread. CMRoot() must be set, as services may follow values of the model.
 */
class Supervisor : public QObject
{
    Q_OBJECT

public:
    explicit Supervisor(const Config& config);
    ~Supervisor() override;

    /// In the order in which they start.
    const std::vector<std::unique_ptr<Service>>& services() const { return m_services; }

    void start();
    /// Each service is stopped when the one that started behind it has ended; stopped() follows. Cannot be undone.
    void stop();
    /// No longer waits for those that take their time to end.
    void kill();
    bool isStopping() const { return m_stopping; }

signals:
    void stopped();

private:
    void update();
    void stopNext();
    bool isReady(const Service& service) const;

    std::vector<std::unique_ptr<Service>> m_services;
    QHash<QString, Service*> m_byId;
    bool m_stopping = false;
    bool m_killing = false;
    /// Services change inside calls of each other; what follows from it waits until all of these have returned.
    QTimer m_updateTimer;
};
