#pragma once

#include <QSocketNotifier>

/**
 * SIGTERM and SIGINT as an event: the application quits, and everything is taken down in order.
 *
 * Made in the main thread ahead of all others, which then leave the two signals to it.
 */
class UnixSignals : public QObject
{
    Q_OBJECT

public:
    explicit UnixSignals(QObject* parent = nullptr);
    ~UnixSignals() override;

private:
    int m_descriptor;
    QSocketNotifier m_notifier;
};
