#include "core/model/cmsubscribe.h"

#include "core/orvo.h"
#include "core/orvoLog_p.h"

#include <QPointer>
#include <QThread>
#include <QTimer>

namespace {

ORVO_LOGGER("CMChange")

constexpr int mergeIntervalMs = 20;

} // namespace

CMSubscribe::CMSubscribe(const QString& id, QObject* parent, bool mergeEvents)
    : QObject(parent), m_id(id), m_timer(new QTimer(this)), m_mergeEvents(mergeEvents)
{
    m_timer->setSingleShot(true);
    m_timer->setInterval(mergeIntervalMs);
    if (m_mergeEvents) {
        orvoConnect(this, SIGNAL(startTimerSignal()), this, SLOT(startTimerSlot()), Qt::QueuedConnection);
        orvoConnect(m_timer, SIGNAL(timeout()), this, SLOT(timerTimeout()), Qt::AutoConnection);
    } else {
        orvoConnect(this, SIGNAL(startTimerSignal()), this, SLOT(timerTimeout()), Qt::QueuedConnection);
    }
}

CMSubscribe::~CMSubscribe()
{
    const auto abandon = [](const auto& map) {
        for (const auto& change : map.inOrder)
            change->m_subscribe = nullptr;
    };
    abandon(m_valueChanges);
    abandon(m_dataChanges);
    abandon(m_rowsChanges);
}

const QString& CMSubscribe::RowsChangeReset()
{
    static const QString reset = QLatin1String("");
    return reset;
}

const QString& CMSubscribe::RowsChangeClose()
{
    static const QString close = QStringLiteral("close");
    return close;
}

void CMSubscribe::connectChange(CMAbstractWorker::ChangeType type, const CMPath& path, QObject* receiver,
                                const char* method, Qt::ConnectionType connectionType)
{
    switch (type) {
    case CMAbstractWorker::ValueChange:
        return connectValueChange(path, receiver, method, connectionType);
    case CMAbstractWorker::DataChange:
        return connectDataChange(path, receiver, method, connectionType);
    case CMAbstractWorker::RowsChange:
        return connectRowsChange(path, receiver, method, connectionType);
    }
}

void CMSubscribe::disconnectChange(CMAbstractWorker::ChangeType type, const CMPath& path, QObject* receiver,
                                   const char* method)
{
    switch (type) {
    case CMAbstractWorker::ValueChange:
        return disconnectValueChange(path, receiver, method);
    case CMAbstractWorker::DataChange:
        return disconnectDataChange(path, receiver, method);
    case CMAbstractWorker::RowsChange:
        return disconnectRowsChange(path, receiver, method);
    }
}

void CMSubscribe::connectValueChange(const CMPath& path, QObject* receiver, const char* method,
                                     Qt::ConnectionType connectionType)
{
    connectChange(m_valueChanges, path, receiver, method, connectionType);
}

void CMSubscribe::disconnectValueChange(const CMPath& path, QObject* receiver, const char* method)
{
    disconnectChange(m_valueChanges, path, receiver, method);
}

void CMSubscribe::connectDataChange(const CMPath& path, QObject* receiver, const char* method,
                                    Qt::ConnectionType connectionType)
{
    connectChange(m_dataChanges, path, receiver, method, connectionType);
}

void CMSubscribe::disconnectDataChange(const CMPath& path, QObject* receiver, const char* method)
{
    disconnectChange(m_dataChanges, path, receiver, method);
}

void CMSubscribe::connectRowsChange(const CMPath& path, QObject* receiver, const char* method,
                                    Qt::ConnectionType connectionType)
{
    connectChange(m_rowsChanges, path, receiver, method, connectionType);
}

void CMSubscribe::disconnectRowsChange(const CMPath& path, QObject* receiver, const char* method)
{
    disconnectChange(m_rowsChanges, path, receiver, method);
}

bool CMSubscribe::valuePath(const CMPath& path) const
{
    return contains(m_valueChanges, path);
}

bool CMSubscribe::dataPath(const CMPath& path) const
{
    return contains(m_dataChanges, path);
}

bool CMSubscribe::rowsPath(const CMPath& path) const
{
    return contains(m_rowsChanges, path);
}

QList<CMPath> CMSubscribe::valuePathsStartingWith(const CMPath& path) const
{
    return pathsStartingWith(m_valueChanges, path);
}

QList<CMPath> CMSubscribe::dataPathsStartingWith(const CMPath& path) const
{
    return pathsStartingWith(m_dataChanges, path);
}

QList<CMPath> CMSubscribe::rowsPathsStartingWith(const CMPath& path) const
{
    return pathsStartingWith(m_rowsChanges, path);
}

bool CMSubscribe::rowsPending(const CMPath& path) const
{
    const QMutexLocker lock(&m_mutex);
    const CMSubscribeRowsChange* found = m_rowsChanges.byPath.value(path);
    return found && found->isPending();
}

int CMSubscribe::rowsVersion(const CMPath& path) const
{
    const QMutexLocker lock(&m_mutex);
    const CMSubscribeRowsChange* found = m_rowsChanges.byPath.value(path);
    return found ? found->version() : 0;
}

void CMSubscribe::valueChanged(const CMPath& path, const QVariant& value)
{
    if (m_mergeEvents)
        dataChanged(path);
    const QMutexLocker lock(&m_mutex);
    CMSubscribeValueChange* found = m_valueChanges.byPath.value(path);
    if (found && found->addChange(value))
        enqueue(found);
}

void CMSubscribe::dataChanged(const CMPath& path)
{
    const QMutexLocker lock(&m_mutex);
    if (CMSubscribeDataChange* found = m_dataChanges.byPath.value(path))
        enqueue(found);
}

void CMSubscribe::rowsChanged(const CMPath& path, const QString& change, int version, int oldVersion)
{
    // Not by way of a list, which costs an allocation on every unwatched path.
    reportRows(path, &change, &change + 1, version, oldVersion);
}

void CMSubscribe::rowsChanged(const CMPath& path, const QStringList& changes, int version, int oldVersion)
{
    reportRows(path, changes.cbegin(), changes.cend(), version, oldVersion);
}

template <typename Iterator>
void CMSubscribe::reportRows(const CMPath& path, Iterator first, Iterator last, int version, int oldVersion)
{
    const QMutexLocker lock(&m_mutex);
    CMSubscribeRowsChange* found = m_rowsChanges.byPath.value(path);
    if (!found) {
        LOG4CPLUS_TRACE(logger(), "no one subscribed for rowsChange at path " << path);
        return;
    }
    if (first == last)
        return;
    for (; first != last; ++first)
        found->addChange(*first, version, oldVersion);
    enqueue(found);
}

void CMSubscribe::changed(const CMPath& path, const QString& rowsChange, int version, int oldVersion)
{
    valueChanged(path, QVariant());
    dataChanged(path);
    rowsChanged(path, rowsChange, version, oldVersion);
}

void CMSubscribe::changedStartingWith(const CMPath& path, const QString& rowsChange, int version, int oldVersion)
{
    const QList<CMPath> dataPaths = dataPathsStartingWith(path);
    for (const CMPath& subscribed : dataPaths)
        dataChanged(subscribed);
    const QList<CMPath> rowsPaths = rowsPathsStartingWith(path);
    for (const CMPath& subscribed : rowsPaths)
        rowsChanged(subscribed, rowsChange, version, oldVersion);
}

void CMSubscribe::enqueue(CMSubscribeChange* change)
{
    if (change->m_queued)
        return;
    change->m_queued = true;
    const bool wasEmpty = m_queue.isEmpty();
    m_queue.append(CMSubscribeChangePointer(change));
    if (wasEmpty)
        emit startTimerSignal();
}

void CMSubscribe::startTimerSlot()
{
    Q_ASSERT(this->thread() == QThread::currentThread());
    if (!m_timer->isActive())
        m_timer->start();
}

void CMSubscribe::timerTimeout()
{
    // A receiver may destroy the hub.
    const QPointer<CMSubscribe> alive(this);
    QList<CMSubscribeChangePointer> queue;
    {
        const QMutexLocker lock(&m_mutex);
        queue.swap(m_queue);
        for (const CMSubscribeChangePointer& change : qAsConst(queue))
            change->m_queued = false;
    }
    for (const CMSubscribeChangePointer& change : qAsConst(queue)) {
        change->emitChange();
        if (!alive)
            return;
    }

    const QList<CMSubscribeChangePointer> disconnectedChanges = m_disconnectedChanges;
    for (const CMSubscribeChangePointer& change : disconnectedChanges) {
        change->disconnected();
        if (!alive)
            return;
    }

    QMutexLocker lock(&m_mutex);
    m_disconnectedChanges = m_destroyedChanges;
    m_destroyedChanges.clear();
    lock.unlock();
    // Without merging this timer has no listener: the changes then wait for the next pass that a report brings.
    if (!m_disconnectedChanges.isEmpty())
        startTimerSlot();
}

void CMSubscribe::receiverDestroyed(CMSubscribeChange* change, QObject* receiver)
{
    const QMutexLocker lock(&m_mutex);
    change->m_subscribers.remove(receiver);
    m_destroyedChanges.append(CMSubscribeChangePointer(change));
    emit startTimerSignal();
}

template <typename T>
void CMSubscribe::connectChange(ChangeMap<T>& map, const CMPath& path, QObject* receiver, const char* method,
                                Qt::ConnectionType connectionType)
{
    LOG4CPLUS_TRACE(logger(), m_id << ": connectChange: " << path << ' ' << method);
    QMutexLocker lock(&m_mutex);
    QExplicitlySharedDataPointer<T>& entry = map.inOrder[path];
    if (!entry) {
        entry = new T(this, path);
        map.byPath.insert(path, entry.data());
    }
    // Copied, since the map may move on once the lock is gone.
    const QExplicitlySharedDataPointer<T> change = entry;
    const bool isFirst = !change->hasReceivers();
    if (!change->connectReceiver(receiver, method, connectionType))
        qt_assert_x(path.toEncoded().toUtf8().constData(), "connectChange failed", __FILE__, __LINE__);
    LOG4CPLUS_TRACE(logger(), "connectChange: " << path << " size:" << map.inOrder.size()
                                                << " receivers: " << change->m_subscribers.size());
    lock.unlock();
    if (isFirst)
        change->pathAdded();
}

template <typename T>
void CMSubscribe::disconnectChange(ChangeMap<T>& map, const CMPath& path, QObject* receiver, const char* method)
{
    LOG4CPLUS_TRACE(logger(), m_id << ": disconnectChange: " << path << ' ' << method);
    QMutexLocker lock(&m_mutex);
    const auto it = map.inOrder.constFind(path);
    if (it == map.inOrder.cend())
        return;
    if (!(*it)->disconnectReceiver(receiver, method))
        LOG4CPLUS_ERROR(logger(), "disconnectChange failed; path:" << path);
    lock.unlock();
    disconnectedChange(map, path);
}

template <typename T>
void CMSubscribe::disconnectedChange(ChangeMap<T>& map, const CMPath& path)
{
    const QPointer<CMSubscribe> alive(this);
    QMutexLocker lock(&m_mutex);
    const auto it = map.inOrder.find(path);
    if (it == map.inOrder.end())
        return;
    const QExplicitlySharedDataPointer<T> change = *it;
    LOG4CPLUS_TRACE(logger(), "disconnectedChange: " << path << " size:" << map.inOrder.size()
                                                     << " receivers: " << change->m_subscribers.size());
    if (change->hasReceivers())
        return;
    map.inOrder.erase(it);
    map.byPath.remove(path);
    LOG4CPLUS_DEBUG(logger(), "removing from map, no more receivers for path: " << path);
    lock.unlock();
    // Another thread may subscribe the path anew, and tell so, ahead of what is told here: the last word must be true.
    for (;;) {
        change->pathRemoved();
        if (!alive || !contains(map, path))
            return;
        change->pathAdded();
        if (!alive || contains(map, path))
            return;
    }
}

template <typename T>
QList<CMPath> CMSubscribe::pathsStartingWith(const ChangeMap<T>& map, const CMPath& path) const
{
    const CMPath prefix = path.withoutParams();
    QList<CMPath> paths;
    const QMutexLocker lock(&m_mutex);
    for (auto it = map.inOrder.lowerBound(prefix); it != map.inOrder.cend() && it.key().startsWith(prefix); ++it)
        paths.append(it.key());
    return paths;
}

template <typename T>
bool CMSubscribe::contains(const ChangeMap<T>& map, const CMPath& path) const
{
    const QMutexLocker lock(&m_mutex);
    return map.byPath.contains(path);
}
