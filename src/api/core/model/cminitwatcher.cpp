#include "core/model/cminitwatcher.h"

#include "core/model/cmitem.h"
#include "core/model/cmvalueitem.h"
#include "core/orvo.h"
#include "core/orvoLog_p.h"

namespace {

ORVO_LOGGER("CMInitWatcher")

constexpr int warningMs = 15000;

template <typename Map>
QString waitingPaths(const Map& map)
{
    QStringList paths;
    for (const auto& info : map)
        if (!info.loaded)
            paths.append(info.path.toEncoded());
    return paths.join(QStringLiteral(", "));
}

} // namespace

CMInitWatcher::CMInitWatcher(QObject* parent, const QString& name) : QObject(parent), m_name(name)
{
    m_warningTimer.setInterval(warningMs);
    orvoConnect(&m_warningTimer, SIGNAL(timeout()), this, SLOT(on_warningTimer_timeout()));
}

CMInitWatcher::~CMInitWatcher() = default;

CMItem* CMInitWatcher::newCMItem(const CMPath& path, QObject* receiver, const char* slot, Qt::ConnectionType type)
{
    auto* item = new CMItem(this, path, this, SLOT(on_cmitem_changed(OrvoRoles,OrvoRoles)));
    watch(m_items, ItemInfo{path, false, item, receiver, slot, type});
    return item;
}

CMValueItem* CMInitWatcher::newCMValueItem(const CMPath& path, QObject* receiver, const char* slot,
                                           Qt::ConnectionType type)
{
    auto* item = new CMValueItem(this, path);
    orvoConnect(item, SIGNAL(loadingChanged(bool)), this, SLOT(on_cmvalueitem_loadingChanged(bool)));
    watch(m_valueItems, ValueItemInfo{path, false, item, receiver, slot, type});
    return item;
}

template <typename Item>
void CMInitWatcher::watch(QMap<Item*, Info<Item>>& map, const Info<Item>& info)
{
    LOG4CPLUS_DEBUG(logger(), '[' << m_name << "] path=" << info.path << " -> " << static_cast<const void*>(info.item));
    orvoConnect(info.item, SIGNAL(destroyed(QObject*)), this, SLOT(on_item_destroyed(QObject*)));
    map.insert(info.item, info);
    ++m_pendingCount;
    m_warningTimer.start();
}

template <typename Item>
void CMInitWatcher::setLoaded(Info<Item>& info)
{
    if (!info.loaded)
        --m_pendingCount;
    info.loaded = true;
}

void CMInitWatcher::on_cmitem_changed(OrvoRoles, OrvoRoles)
{
    auto* item = qobject_cast<CMItem*>(sender());
    const auto found = m_items.find(item);
    if (found == m_items.end()) {
        LOG4CPLUS_WARN(logger(), "Changed() event for non-existing CMItem: " << static_cast<const void*>(item));
        return;
    }
    setLoaded(*found);
    if (m_pendingCount < 1)
        reconnectAndEmitDone();
}

void CMInitWatcher::on_cmvalueitem_loadingChanged(bool isLoading)
{
    auto* item = qobject_cast<CMValueItem*>(sender());
    const auto found = m_valueItems.find(item);
    if (found == m_valueItems.end()) {
        LOG4CPLUS_WARN(logger(), "Changed() event for non-existing CMValueItem: " << static_cast<const void*>(item));
        return;
    }
    if (!isLoading)
        setLoaded(*found);
    if (m_pendingCount < 1)
        reconnectAndEmitDone();
}

void CMInitWatcher::on_warningTimer_timeout()
{
    LOG4CPLUS_WARN(logger(), '[' << m_name << "] Waiting CMValueItems: " << waitingPaths(m_valueItems)
                                 << ", CMItems: " << waitingPaths(m_items));
}

void CMInitWatcher::on_item_destroyed(QObject* object)
{
    if (!forget(m_items, object) && !forget(m_valueItems, object))
        return;
    if (m_pendingCount < 1)
        reconnectAndEmitDone();
}

template <typename Item>
bool CMInitWatcher::forget(QMap<Item*, Info<Item>>& map, const QObject* object)
{
    for (auto it = map.begin(); it != map.end(); ++it) {
        if (static_cast<const QObject*>(it.key()) != object)
            continue;
        setLoaded(*it);
        map.erase(it);
        return true;
    }
    return false;
}

void CMInitWatcher::reconnectAndEmitDone()
{
    LOG4CPLUS_DEBUG(logger(), '[' << m_name << "] All watched items loaded -> continue");
    for (const ItemInfo& info : qAsConst(m_items)) {
        orvoDisconnect(info.item, SIGNAL(changed(OrvoRoles,OrvoRoles)), this,
                                         SLOT(on_cmitem_changed(OrvoRoles,OrvoRoles)));
        if (info.receiver)
            orvoConnect(info.item, SIGNAL(changed(OrvoRoles,OrvoRoles)), info.receiver, info.slot, info.type);
    }
    for (const ValueItemInfo& info : qAsConst(m_valueItems)) {
        orvoDisconnect(info.item, SIGNAL(loadingChanged(bool)), this, SLOT(on_cmvalueitem_loadingChanged(bool)));
        if (info.receiver)
            orvoConnect(info.item, SIGNAL(changed(OrvoValue,OrvoValue)), info.receiver, info.slot, info.type);
    }
    m_items.clear();
    m_valueItems.clear();
    m_warningTimer.stop();
    emit done();
}
