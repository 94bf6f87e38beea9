#include "core/model/cmsubscribechange.h"

#include "core/model/cmsubscribe.h"
#include "core/orvoLog_p.h"
#include "records/orvosame_p.h"

#include <limits>

namespace {

ORVO_LOGGER("CMChange")

} // namespace

CMSubscribeChange::CMSubscribeChange(CMSubscribe* subscribe, const CMPath& path, const char* signal)
    : m_signal(signal), m_subscribe(subscribe), m_path(path)
{
    moveToThread(nullptr);
}

CMSubscribeChange::~CMSubscribeChange() = default;

bool CMSubscribeChange::connectReceiver(QObject* receiver, const char* method, Qt::ConnectionType type)
{
    const QMetaObject::Connection changed = connect(this, m_signal, receiver, method, type);
    if (!changed)
        return false;
    const QMetaObject::Connection destroyed =
        connect(receiver, SIGNAL(destroyed(QObject*)), this, SLOT(receiverDestroyed(QObject*)), Qt::DirectConnection);
    m_subscribers.insert(receiver, {QMetaObject::normalizedSignature(method), changed, destroyed});
    return true;
}

bool CMSubscribeChange::disconnectReceiver(QObject* receiver, const char* method)
{
    const QByteArray normalized = QMetaObject::normalizedSignature(method);
    for (auto it = m_subscribers.find(receiver); it != m_subscribers.end() && it.key() == receiver; ++it) {
        if (it->method != normalized)
            continue;
        QObject::disconnect(it->changed);
        QObject::disconnect(it->destroyed);
        m_subscribers.erase(it);
        return true;
    }
    return false;
}

void CMSubscribeChange::receiverDestroyed(QObject* receiver)
{
    if (m_subscribe)
        m_subscribe->receiverDestroyed(this, receiver);
}

CMSubscribeValueChange::CMSubscribeValueChange(CMSubscribe* subscribe, const CMPath& path)
    : CMSubscribeChange(subscribe, path, SIGNAL(changed(CMPath,QVariant)))
{}

bool CMSubscribeValueChange::addChange(const QVariant& value)
{
    const QMutexLocker lock(&m_mutex);
    if (orvoSameValue(value, m_value))
        return false;
    m_value = value;
    return true;
}

void CMSubscribeValueChange::emitChange()
{
    QMutexLocker lock(&m_mutex);
    const QVariant value = m_value;
    lock.unlock();
    emit changed(m_path, value);
}

void CMSubscribeValueChange::disconnected()
{
    m_subscribe->disconnectedChange(m_subscribe->m_valueChanges, m_path);
}

void CMSubscribeValueChange::pathAdded()
{
    emit m_subscribe->valuePathAdded(m_path);
}

void CMSubscribeValueChange::pathRemoved()
{
    emit m_subscribe->valuePathRemoved(m_path);
}

CMSubscribeDataChange::CMSubscribeDataChange(CMSubscribe* subscribe, const CMPath& path)
    : CMSubscribeChange(subscribe, path, SIGNAL(changed(CMPath)))
{}

void CMSubscribeDataChange::emitChange()
{
    emit changed(m_path);
}

void CMSubscribeDataChange::disconnected()
{
    m_subscribe->disconnectedChange(m_subscribe->m_dataChanges, m_path);
}

void CMSubscribeDataChange::pathAdded()
{
    emit m_subscribe->dataPathAdded(m_path);
}

void CMSubscribeDataChange::pathRemoved()
{
    emit m_subscribe->dataPathRemoved(m_path);
}

CMSubscribeRowsChange::CMSubscribeRowsChange(CMSubscribe* subscribe, const CMPath& path)
    : CMSubscribeChange(subscribe, path, SIGNAL(changed(CMPath,QStringList,int,int)))
{}

void CMSubscribeRowsChange::addChange(const QString& change, int version, int oldVersion)
{
    const QMutexLocker lock(&m_mutex);
    m_changes.append(change);
    if (version >= 0)
        m_version = version;
    else if (change == CMSubscribe::RowsChangeClose() || change == CMSubscribe::RowsChangeReset())
        m_version = 0;
    else
        // A service may have told any version; a negative one would never load.
        m_version = m_version == std::numeric_limits<int>::max() ? 0 : m_version + 1;
    if (oldVersion >= 0)
        m_oldVersion = oldVersion;
}

int CMSubscribeRowsChange::version() const
{
    const QMutexLocker lock(&m_mutex);
    return m_version;
}

bool CMSubscribeRowsChange::isPending() const
{
    const QMutexLocker lock(&m_mutex);
    return !m_changes.isEmpty();
}

void CMSubscribeRowsChange::emitChange()
{
    QMutexLocker lock(&m_mutex);
    // A report may have come between the two steps of the delivery before, which then took its strings.
    if (m_changes.isEmpty())
        return;
    const int version = m_version;
    const int oldVersion = m_oldVersion;
    m_oldVersion = m_version;
    QStringList changes;
    changes.swap(m_changes);
    lock.unlock();

    LOG4CPLUS_DEBUG(logger(), "rows changed: " << m_path << " strings: " << changes.size() << " version: " << oldVersion
                                               << " -> " << version);
    emit changed(m_path, changes, version, oldVersion);
}

void CMSubscribeRowsChange::disconnected()
{
    m_subscribe->disconnectedChange(m_subscribe->m_rowsChanges, m_path);
}

void CMSubscribeRowsChange::pathAdded()
{
    emit m_subscribe->rowsPathAdded(m_path);
}

void CMSubscribeRowsChange::pathRemoved()
{
    emit m_subscribe->rowsPathRemoved(m_path);
}
