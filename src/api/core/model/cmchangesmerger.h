#pragma once

#include <QElapsedTimer>
#include <QObject>

class QTimer;

/// Merges calls of change() into one changed() after a delay; the earliest deadline wins. For one thread.
class CMChangesMerger : public QObject
{
    Q_OBJECT

public:
    explicit CMChangesMerger(QObject* parent = nullptr);

    /// The delay of change() in milliseconds, 0 at first. A running timer goes on as it is.
    void setTimeout(int timeout);
    void stop();
    /// Emits at once, if a call waits.
    void fire();
    bool isActive() const;

public slots:
    void change();
    void change(int timeout);

signals:
    void changed();

private:
    QTimer* const m_timer;
    int m_timeout = 0;
    QElapsedTimer m_time;
    int m_pendingTimeout = 0;
};
