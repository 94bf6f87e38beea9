#pragma once

#include <QObject>
#include <QString>
#include <QTimer>
#include <QVariant>

/**
 * Stands between the system's and a service's opinion on one value, such as a volume: passes each side's changes to the
 * other, and for a while after each pass keeps back what comes from there, so that the two do not echo each other. When
 * the last ignore time is over it applies the value that was kept back, if the two still differ.
 *
 * Disabled at first; its owner enables it when both sides are known. Lives in its owner's thread and needs the event
 * loop. May be destroyed inside its own signals.
 */
class ServiceValueSynchronizer : public QObject
{
    Q_OBJECT

public:
    /**
     * `name` stands in the log lines. The times are milliseconds for which the other side is not listened to after a
     * change of the system and of the service; none at all follows a change of the system when the first is 0.
     */
    ServiceValueSynchronizer(const QString& name, int systemChangeIgnoreMs, int serviceChangeIgnoreMs);

    /// The service side reports a value. Forgotten while disabled.
    void setServiceValue(const QVariant& value);
    /// The system side reports a value. Remembered also while disabled.
    void setSystemValue(const QVariant& value);

    void enable();
    /// Ends the ignore times; what they kept back is not applied.
    void disable();
    /// Whether a value that the service reported lately is applied after a change of the system; true at first.
    void requireValueConfirmation(bool require);

signals:
    /// Tell the service.
    void updateServiceValue(QVariant value);
    /// Tell the system.
    void updateSystemValue(QVariant value);

private slots:
    void on_ignoreTimer_timeout();

private:
    void emitSystemValueChanged(const QVariant& value);

    const QString m_name;
    bool m_enabled = false;
    bool m_requireConfirmation = true;
    QVariant m_systemValue;
    /// What the service reported last and is not settled; null for none.
    QVariant m_serviceValue;
    /// Runs after a value went from the service to the system.
    QTimer m_serviceChangeTimer;
    /// Runs after a value went from the system to the service.
    QTimer m_systemChangeTimer;
};
