#pragma once

#include "core/model/cmpath.h"
#include "records/orvoroles.h"

#include <QMap>
#include <QObject>
#include <QPointer>
#include <QTimer>

class CMItem;
class CMValueItem;

/**
 * A barrier for the start of a service: makes its items, and emits done() once all of them hold their first data. Only
 * then is each item connected to its slot, so the owner reads the first values in the slot of done() and hears of
 * changes from there on.
 *
 * Owns its items, also after done(); an item made later begins a new wait, which ends with a further done(). Without a
 * time limit: every 15 seconds a warning names what is still waited for. An item that the owner deletes is waited for
 * no longer. Lives in one thread; may be destroyed inside done().
 */
class CMInitWatcher : public QObject
{
    Q_OBJECT

public:
    /// `name` stands in the log lines.
    CMInitWatcher(QObject* parent, const QString& name);
    ~CMInitWatcher() override;

    /// The slot takes any head of (OrvoRoles roles, OrvoRoles oldRoles). Loaded with its first roles that are not
    /// empty. The slot's text lives until done().
    CMItem* newCMItem(const CMPath& path, QObject* receiver = nullptr, const char* slot = nullptr,
                      Qt::ConnectionType type = Qt::AutoConnection);
    /// The slot takes any head of (OrvoValue value, OrvoValue oldValue). Never loaded with an empty path.
    CMValueItem* newCMValueItem(const CMPath& path, QObject* receiver = nullptr, const char* slot = nullptr,
                                Qt::ConnectionType type = Qt::AutoConnection);

signals:
    void done();

private slots:
    void on_cmitem_changed(OrvoRoles newRoles, OrvoRoles oldRoles);
    void on_cmvalueitem_loadingChanged(bool isLoading);
    void on_warningTimer_timeout();
    void on_item_destroyed(QObject* object);

private:
    template <typename Item>
    struct Info
    {
        CMPath path;
        /// It has told of its first data.
        bool loaded = false;
        Item* item = nullptr;
        QPointer<QObject> receiver;
        const char* slot = nullptr;
        Qt::ConnectionType type = Qt::AutoConnection;
    };
    using ItemInfo = Info<CMItem>;
    using ValueItemInfo = Info<CMValueItem>;

    template <typename Item>
    void watch(QMap<Item*, Info<Item>>& map, const Info<Item>& info);
    template <typename Item>
    void setLoaded(Info<Item>& info);
    template <typename Item>
    bool forget(QMap<Item*, Info<Item>>& map, const QObject* object);
    void reconnectAndEmitDone();

    const QString m_name;
    QMap<CMItem*, ItemInfo> m_items;
    QMap<CMValueItem*, ValueItemInfo> m_valueItems;
    /// Items that have not told yet.
    int m_pendingCount = 0;
    QTimer m_warningTimer;
};
