#pragma once

#include "core/model/cmpath.h"

#include <QByteArray>
#include <QExplicitlySharedDataPointer>
#include <QHash>
#include <QMutex>
#include <QObject>
#include <QSharedData>
#include <QStringList>
#include <QVariant>

class CMSubscribe;

/**
 * What waits for the subscribers of one path and kind.
 *
 * Made by the hub for the path's first subscriber; the hub's maps and lists hold the references. Belongs to no thread,
 * since any thread may report. `m_mutex` guards the payload; the connections and `m_queued` lie under the hub's mutex.
 */
class CMSubscribeChange : public QObject, public QSharedData
{
    Q_OBJECT

public:
    CMSubscribeChange(CMSubscribe* subscribe, const CMPath& path, const char* signal);
    ~CMSubscribeChange() override;

    /// Takes the payload and tells the subscribers. In the hub's thread, with no lock held.
    virtual void emitChange() = 0;
    /// Lets the hub drop the path when its last receiver has died.
    virtual void disconnected() = 0;

protected:
    friend class CMSubscribe;

    /// A receiver's method with the connection to it and the one that tells of the receiver's death.
    struct Subscriber
    {
        QByteArray method;
        QMetaObject::Connection changed;
        QMetaObject::Connection destroyed;
    };

    /// By the list kept here, not by Qt's: a receiver that dies in another thread leaves that one at a time of its own.
    bool hasReceivers() const { return !m_subscribers.isEmpty(); }
    bool connectReceiver(QObject* receiver, const char* method, Qt::ConnectionType type);
    bool disconnectReceiver(QObject* receiver, const char* method);

    mutable QMutex m_mutex;
    const char* const m_signal;
    /// Null when the hub has died inside the delivery that still holds this change.
    CMSubscribe* m_subscribe;
    const CMPath m_path;
    bool m_queued = false;
    QMultiHash<QObject*, Subscriber> m_subscribers;

private slots:
    void receiverDestroyed(QObject* receiver);
};

using CMSubscribeChangePointer = QExplicitlySharedDataPointer<CMSubscribeChange>;

class CMSubscribeValueChange : public CMSubscribeChange
{
    Q_OBJECT

public:
    CMSubscribeValueChange(CMSubscribe* subscribe, const CMPath& path);

    /// False when the value equals the last one, delivered or not.
    bool addChange(const QVariant& value);
    void emitChange() override;
    void disconnected() override;
    void pathAdded();
    void pathRemoved();

signals:
    void changed(const CMPath& path = CMPath(), const QVariant& value = QVariant());

private:
    QVariant m_value;
};

class CMSubscribeDataChange : public CMSubscribeChange
{
    Q_OBJECT

public:
    CMSubscribeDataChange(CMSubscribe* subscribe, const CMPath& path);

    void emitChange() override;
    void disconnected() override;
    void pathAdded();
    void pathRemoved();

signals:
    void changed(const CMPath& path = CMPath());
};

class CMSubscribeRowsChange : public CMSubscribeChange
{
    Q_OBJECT

public:
    CMSubscribeRowsChange(CMSubscribe* subscribe, const CMPath& path);

    /// Strings are never folded together; a delivery carries all of them in order.
    void addChange(const QString& change, int version, int oldVersion);
    int version() const;
    bool isPending() const;
    void emitChange() override;
    void disconnected() override;
    void pathAdded();
    void pathRemoved();

signals:
    void changed(const CMPath& path = CMPath(), const QStringList& changes = QStringList(), int version = -1,
                 int oldVersion = -1);

private:
    QStringList m_changes;
    int m_version = 0;
    /// Where the next delivery begins.
    int m_oldVersion = 0;
};
