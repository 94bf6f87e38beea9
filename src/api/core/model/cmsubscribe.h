#pragma once

#include "core/model/cmabstractworker.h"
#include "core/model/cmpath.h"
#include "core/model/cmsubscribechange.h"

#include <QExplicitlySharedDataPointer>
#include <QHash>
#include <QList>
#include <QMap>
#include <QMutex>
#include <QObject>
#include <QStringList>
#include <QVariant>

class QTimer;

/**
 * The change hub of one worker: merges reports per path and kind and delivers them to the subscribers of that path.
 *
 * Owned by its worker. Reports, subscriptions and queries may come from any thread; delivery runs in the hub's thread,
 * with no lock held, and each subscriber is called by the connection type it asked for. A merging hub delivers 20 ms
 * after the first report into an empty queue and tells of each value as data, too; a hub without merging delivers as
 * soon as its thread's event loop comes to it.
 *
 * There is one change object per subscribed path and kind, never one per report. Lock order: a node's mutex, the hub's
 * mutex, a change object's mutex.
 */
class CMSubscribe : public QObject
{
    Q_OBJECT

public:
    CMSubscribe(const QString& id, QObject* parent, bool mergeEvents);
    ~CMSubscribe() override;

    QString id() const { return m_id; }

    /// An unknown type is ignored. A method that does not fit the signal stops the process.
    void connectChange(CMAbstractWorker::ChangeType type, const CMPath& path, QObject* receiver, const char* method,
                       Qt::ConnectionType connectionType = Qt::AutoConnection);
    /// Takes away one connection of the receiver's method; a path without any left is told as removed.
    void disconnectChange(CMAbstractWorker::ChangeType type, const CMPath& path, QObject* receiver, const char* method);
    void connectValueChange(const CMPath& path, QObject* receiver, const char* method,
                            Qt::ConnectionType connectionType = Qt::AutoConnection);
    void disconnectValueChange(const CMPath& path, QObject* receiver, const char* method);
    void connectDataChange(const CMPath& path, QObject* receiver, const char* method,
                           Qt::ConnectionType connectionType = Qt::AutoConnection);
    void disconnectDataChange(const CMPath& path, QObject* receiver, const char* method);
    void connectRowsChange(const CMPath& path, QObject* receiver, const char* method,
                           Qt::ConnectionType connectionType = Qt::AutoConnection);
    void disconnectRowsChange(const CMPath& path, QObject* receiver, const char* method);

    /// Whether the path, parameters included, is subscribed.
    bool valuePath(const CMPath& path) const;
    bool dataPath(const CMPath& path) const;
    bool rowsPath(const CMPath& path) const;
    /// The subscribed paths that begin with the path's text, in order.
    QList<CMPath> valuePathsStartingWith(const CMPath& path) const;
    QList<CMPath> dataPathsStartingWith(const CMPath& path) const;
    QList<CMPath> rowsPathsStartingWith(const CMPath& path) const;
    /// Whether change strings of the path wait for their delivery.
    bool rowsPending(const CMPath& path) const;

    /// Delivers at once what is queued. In the hub's thread, with no lock held.
    void deliver() { timerTimeout(); }

    /// All rows may have changed: read them anew.
    static const QString& RowsChangeReset();
    /// The view on the rows is over.
    static const QString& RowsChangeClose();

public slots:
    /// 0 for a path without rows subscribers, which keeps no version.
    int rowsVersion(const CMPath& path) const; // clazy:exclude=const-signal-or-slot

    /// A value equal to the last one reported is dropped.
    void valueChanged(const CMPath& path, const QVariant& value);
    void dataChanged(const CMPath& path);
    /// A negative version counts up (and is 0 after a reset or close); a negative oldVersion lets the present one
    /// stand.
    void rowsChanged(const CMPath& path, const QString& change, int version = -1, int oldVersion = -1);
    void rowsChanged(const CMPath& path, const QStringList& changes, int version = -1, int oldVersion = -1);
    /// Value (as invalid), data and rows of one path.
    void changed(const CMPath& path, const QString& rowsChange, int version = -1, int oldVersion = -1);
    void changed(const CMPath& path) { changed(path, RowsChangeReset()); }
    /// Data and rows of all subscribed paths that begin with the path's text.
    void changedStartingWith(const CMPath& path, const QString& rowsChange, int version = -1, int oldVersion = -1);
    void changedStartingWith(const CMPath& path) { changedStartingWith(path, RowsChangeReset()); }

signals:
    // The first subscriber of a path came, or its last one left. Emitted with no lock held, in the thread that
    // subscribes; "added" may be repeated.
    void valuePathAdded(const CMPath& path);
    void valuePathRemoved(const CMPath& path);
    void dataPathAdded(const CMPath& path);
    void dataPathRemoved(const CMPath& path);
    void rowsPathAdded(const CMPath& path);
    void rowsPathRemoved(const CMPath& path);
    /// Internal: wakes the hub's thread.
    void startTimerSignal();

private slots:
    void startTimerSlot();
    void timerTimeout();

private:
    /// The change objects in the order of their paths, and by path for the reports, most of which find none.
    template <typename T>
    struct ChangeMap
    {
        QMap<CMPath, QExplicitlySharedDataPointer<T>> inOrder;
        QHash<CMPath, T*> byPath;
    };

    friend class CMSubscribeChange;
    friend class CMSubscribeValueChange;
    friend class CMSubscribeDataChange;
    friend class CMSubscribeRowsChange;

    template <typename T>
    void connectChange(ChangeMap<T>& map, const CMPath& path, QObject* receiver, const char* method,
                       Qt::ConnectionType connectionType);
    template <typename T>
    void disconnectChange(ChangeMap<T>& map, const CMPath& path, QObject* receiver, const char* method);
    template <typename T>
    void disconnectedChange(ChangeMap<T>& map, const CMPath& path);
    template <typename T>
    QList<CMPath> pathsStartingWith(const ChangeMap<T>& map, const CMPath& path) const;
    template <typename T>
    bool contains(const ChangeMap<T>& map, const CMPath& path) const;

    template <typename Iterator>
    void reportRows(const CMPath& path, Iterator first, Iterator last, int version, int oldVersion);
    void enqueue(CMSubscribeChange* change);
    void receiverDestroyed(CMSubscribeChange* change, QObject* receiver);

    const QString m_id;
    mutable QMutex m_mutex{QMutex::Recursive};
    QTimer* const m_timer;
    const bool m_mergeEvents;
    ChangeMap<CMSubscribeValueChange> m_valueChanges;
    ChangeMap<CMSubscribeDataChange> m_dataChanges;
    ChangeMap<CMSubscribeRowsChange> m_rowsChanges;
    /// What has something to deliver, in the order of the first report since the last delivery.
    QList<CMSubscribeChangePointer> m_queue;
    /// What saw a receiver die since the last delivery pass, and what is to be looked at in the next one: while
    /// `destroyed` runs, the receiver still counts as connected.
    QList<CMSubscribeChangePointer> m_destroyedChanges;
    QList<CMSubscribeChangePointer> m_disconnectedChanges;
};
