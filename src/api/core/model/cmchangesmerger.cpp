#include "core/model/cmchangesmerger.h"

#include "core/orvo.h"

#include <QTimer>

CMChangesMerger::CMChangesMerger(QObject* parent) : QObject(parent), m_timer(new QTimer(this))
{
    m_timer->setSingleShot(true);
    orvoConnect(m_timer, SIGNAL(timeout()), this, SIGNAL(changed()));
}

void CMChangesMerger::setTimeout(int timeout)
{
    m_timeout = timeout;
}

void CMChangesMerger::stop()
{
    m_timer->stop();
}

void CMChangesMerger::fire()
{
    if (!m_timer->isActive())
        return;
    m_timer->stop();
    emit changed();
}

bool CMChangesMerger::isActive() const
{
    return m_timer->isActive();
}

void CMChangesMerger::change()
{
    change(m_timeout);
}

void CMChangesMerger::change(int timeout)
{
    if (m_timer->isActive() && m_pendingTimeout - m_time.elapsed() <= timeout)
        return;
    m_timer->start(timeout);
    m_time.start();
    m_pendingTimeout = timeout;
}
