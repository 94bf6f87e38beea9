#pragma once

#include <QSocketNotifier>

/**
 * SIGTERM, SIGINT and SIGHUP as an event of the loop. They are caught and not blocked: a blocked signal would stay so
 * in every process that is started from here.
 *
 * One for the process, made in the main thread.
 */
class StopSignals : public QObject
{
    Q_OBJECT

public:
    StopSignals();

signals:
    void received();

private:
    QSocketNotifier m_notifier;
};
