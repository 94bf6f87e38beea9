#pragma once

#include "core/serviceValueSynchronizer.h"

#include <QCoreApplication>
#include <QTimer>
#include <QTimerEvent>

/// The ignore times of a synchronizer, which a test ends when it likes.
class SynchronizerTimers
{
public:
    explicit SynchronizerTimers(const ServiceValueSynchronizer* synchronizer)
        : service(synchronizer->findChildren<QTimer*>().value(0)),
          system(synchronizer->findChildren<QTimer*>().value(1))
    {}

    static void expire(QTimer* timer)
    {
        QTimerEvent event(timer->timerId());
        QCoreApplication::sendEvent(timer, &event);
    }
    bool running() const { return service->isActive() || system->isActive(); }

    /// Follows a change by the service.
    QTimer* const service;
    /// Follows a change by the system.
    QTimer* const system;
};
