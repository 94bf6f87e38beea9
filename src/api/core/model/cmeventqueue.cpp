#include "core/model/cmeventqueue.h"

#include "core/model/cmabstractworker.h"
#include "core/model/cmroot.h"
#include "core/model/cmsubscribe.h"
#include "core/orvo.h"
#include "core/orvoLog_p.h"
#include "records/orvoroles.h"

#include <QPointer>
#include <QThread>

#include <algorithm>
#include <memory>
#include <utility>

namespace {

ORVO_LOGGER("CMEventQueue")

constexpr int deleteCountdownMs = 60000;
constexpr int defaultPollMs = 15000;
constexpr int longestPollSeconds = 300;

/// Path and type in their one form. What else a client wrote into the record, and how, makes no other subscription.
OrvoEventSubscribe keyOf(const OrvoEventSubscribe& record)
{
    return OrvoEventSubscribe().setPath(record.path()).setType(record.type());
}

OrvoRowEvent movedRow(const QString& rows)
{
    const QStringList elements = rows.split(QStringLiteral(".."));
    Q_ASSERT(elements.size() == 2);
    bool fromOk = false;
    bool toOk = false;
    OrvoRowEvent event = OrvoRowEvent()
                             .setType(OrvoRowEventType::Moved)
                             .setIndex(elements.at(0).toInt(&fromOk))
                             .setToIndex(elements.at(1).toInt(&toOk));
    Q_ASSERT(fromOk && toOk);
    return event;
}

OrvoRowEvent rowEvent(const QString& change)
{
    if (change.startsWith('='))
        return movedRow(change.mid(1));
    OrvoRowEventType::Enum type = OrvoRowEventType::Updated;
    if (change.startsWith('+'))
        type = OrvoRowEventType::Inserted;
    else if (change.startsWith('-'))
        type = OrvoRowEventType::Removed;
    bool ok = false;
    const int index = change.midRef(type == OrvoRowEventType::Updated ? 0 : 1).toInt(&ok);
    Q_ASSERT(ok);
    return OrvoRowEvent().setType(type).setIndex(index);
}

} // namespace

CMEventQueueRequest::~CMEventQueueRequest() = default;

CMEventQueue::CMEventQueue(QObject* parent) : QObject(parent)
{
    m_timer.setSingleShot(true);
    orvoConnect(&m_timer, SIGNAL(timeout()), this, SLOT(on_timer_timeout()));
    startDeleteCountdown();
}

CMEventQueue::~CMEventQueue()
{
    sendResponse();
}

bool CMEventQueue::subscribe(const OrvoEventSubscribe& record)
{
    Q_ASSERT(thread() == QThread::currentThread());
    const OrvoEventSubscribe key = keyOf(record);
    if (m_subscriptions[key]++ != 0) {
        LOG4CPLUS_DEBUG(logger(), "subscribe " << m_id.toString() << ' ' << key << " not first");
        return true;
    }

    const CMPath path = key.path();
    const QPointer<CMEventQueue> alive(this);
    askInternal(path);
    if (!alive)
        return false;
    switch (key.type()) {
    case OrvoEventSubscribeType::DataChanged:
        CMRoot()->connectDataChange(path, this, SLOT(dataChanged(CMPath)));
        return true;
    case OrvoEventSubscribeType::RowsChanged:
        CMRoot()->connectRowsChange(path, this, SLOT(rowsChanged(CMPath,QStringList,int,int)));
        return true;
    case OrvoEventSubscribeType::ValueChanged:
        CMRoot()->connectValueChange(path, this, SLOT(valueChanged(CMPath,QVariant)));
        return true;
    }
    LOG4CPLUS_ERROR(logger(), "Subscribe type '" << int(key.type()) << "' not supported");
    m_subscriptions.remove(key);
    forgetInternal(path);
    return false;
}

bool CMEventQueue::unsubscribe(const OrvoEventSubscribe& record)
{
    Q_ASSERT(thread() == QThread::currentThread());
    const OrvoEventSubscribe key = keyOf(record);
    const auto it = m_subscriptions.find(key);
    if (it == m_subscriptions.end()) {
        LOG4CPLUS_DEBUG(logger(), "unsubscribe " << m_id.toString() << ' ' << key << " not subscribed");
        return false;
    }
    if (--*it > 0) {
        LOG4CPLUS_DEBUG(logger(), "unsubscribe " << m_id.toString() << ' ' << key << " not last");
        return true;
    }

    m_subscriptions.erase(it);
    const CMPath path = key.path();
    forgetInternal(path);
    switch (key.type()) {
    case OrvoEventSubscribeType::DataChanged:
        CMRoot()->disconnectDataChange(path, this, SLOT(dataChanged(CMPath)));
        break;
    case OrvoEventSubscribeType::RowsChanged:
        CMRoot()->disconnectRowsChange(path, this, SLOT(rowsChanged(CMPath,QStringList,int,int)));
        break;
    case OrvoEventSubscribeType::ValueChanged:
        CMRoot()->disconnectValueChange(path, this, SLOT(valueChanged(CMPath,QVariant)));
        break;
    }
    return true;
}

bool CMEventQueue::modify(const OrvoList<OrvoEventSubscribe>& subscribes,
                          const OrvoList<OrvoEventSubscribe>& unsubscribes)
{
    const QPointer<CMEventQueue> alive(this);
    const QList<OrvoEventSubscribe> added = subscribes.toTyped();
    for (const OrvoEventSubscribe& record : added)
        if (!subscribe(record) || !alive)
            return false;
    const QList<OrvoEventSubscribe> removed = unsubscribes.toTyped();
    for (const OrvoEventSubscribe& record : removed)
        if (!unsubscribe(record) || !alive)
            return false;
    return true;
}

void CMEventQueue::poll(CMEventQueueRequest* request, int timeoutSeconds)
{
    Q_ASSERT(thread() == QThread::currentThread());
    if (m_request) {
        const QPointer<CMEventQueue> alive(this);
        const QString id = m_id.toString();
        sendResponse();
        if (!alive) {
            request->respond(OrvoList<OrvoEvent>(), id);
            delete request;
            return;
        }
    }
    Q_ASSERT(!m_request);
    m_request = request;
    if (!m_events.isEmpty())
        return sendResponse();
    m_timer.start(timeoutSeconds <= 0 ? defaultPollMs : std::min(timeoutSeconds, longestPollSeconds) * 1000);
    LOG4CPLUS_TRACE(logger(), "starting poll timer");
}

void CMEventQueue::sendResponse()
{
    if (!m_request) {
        LOG4CPLUS_TRACE(logger(), "No active request.");
        return;
    }
    m_timer.stop();
    // Taken out ahead of the call, in which the next events, the next poll or the end of this queue may come.
    std::unique_ptr<CMEventQueueRequest> request(std::exchange(m_request, nullptr));
    const OrvoList<OrvoEvent> events = std::exchange(m_events, OrvoList<OrvoEvent>());
    const QPointer<CMEventQueue> alive(this);
    request->respond(events, m_id.toString());
    request.reset();
    LOG4CPLUS_TRACE(logger(), "Response sent, size:" << events.size());
    if (alive)
        startDeleteCountdown();
}

bool CMEventQueue::isInternal(const CMPath& path) const
{
    return m_internalPaths.contains(path.withoutParams());
}

void CMEventQueue::startDeleteCountdown()
{
    if (!m_request)
        m_timer.start(deleteCountdownMs);
}

void CMEventQueue::dataChanged(CMPath path)
{
    if (isInternal(path))
        return;
    m_events.append(OrvoEvent().setItemType(OrvoEventItemType::Updated).setPath(path));
    sendResponse();
}

void CMEventQueue::rowsChanged(CMPath path, QStringList rowsChanged, int version, int oldVersion)
{
    OrvoList<OrvoRowEvent> rowsEvents;
    for (const QString& change : qAsConst(rowsChanged)) {
        if (change == CMSubscribe::RowsChangeReset()) {
            rowsEvents.clear();
            m_events.append(OrvoEvent().setPath(path).setRowsType(OrvoEventRowsType::Reset));
        } else if (change == CMSubscribe::RowsChangeClose()) {
            rowsEvents.clear();
            m_events.append(OrvoEvent().setPath(path).setRowsType(OrvoEventRowsType::Closed));
        } else {
            rowsEvents.append(rowEvent(change));
        }
    }
    if (!rowsEvents.isEmpty())
        m_events.append(OrvoEvent()
                            .setPath(path)
                            .setRowsType(OrvoEventRowsType::Changed)
                            .setRowsOldVersion(oldVersion)
                            .setRowsVersion(version)
                            .setRowsEvents(rowsEvents));
    sendResponse();
}

void CMEventQueue::valueChanged(CMPath path, QVariant variant)
{
    if (isInternal(path))
        return;
    m_events.append(
        OrvoEvent().setItemType(OrvoEventItemType::Updated).setPath(path).setItemValue(OrvoValue(variant.toHash())));
    sendResponse();
}

void CMEventQueue::on_timer_timeout()
{
    if (m_request)
        return sendResponse();
    const QPointer<CMEventQueue> alive(this);
    const QHash<OrvoEventSubscribe, int> subscriptions = m_subscriptions;
    for (auto it = subscriptions.cbegin(); it != subscriptions.cend(); ++it) {
        for (int i = 0; i < it.value(); ++i) {
            unsubscribe(it.key());
            if (!alive)
                return;
        }
    }
    LOG4CPLUS_DEBUG(logger(), "expired " << m_id.toString());
    emit expired(m_id);
}

void CMEventQueue::askInternal(const CMPath& path)
{
    // The node that is asked may destroy this queue.
    const QPointer<CMEventQueue> queue(this);
    const CMReply<QVariantList> reply = CMRoot()->getData(path, {OrvoRoles::Internal()});
    reply.addWatcher([queue, plainPath = path.withoutParams()](const CMVoidReply& r) {
        if (!queue || !r.error().name().isEmpty()
            || !static_cast<CMReplyData<QVariantList>*>(r.data())->value().value(0).toBool())
            return;
        // An answer that comes after the subscription ended must not mark the path for the next one.
        if (queue->isSubscribed(plainPath))
            queue->m_internalPaths.insert(plainPath);
    });
}

void CMEventQueue::forgetInternal(const CMPath& path)
{
    const CMPath plainPath = path.withoutParams();
    if (m_internalPaths.contains(plainPath) && !isSubscribed(plainPath))
        m_internalPaths.remove(plainPath);
}

bool CMEventQueue::isSubscribed(const CMPath& plainPath) const
{
    for (auto it = m_subscriptions.cbegin(); it != m_subscriptions.cend(); ++it)
        if (it.key().path().equals(plainPath, CMPath::WithoutParams))
            return true;
    return false;
}

CMEventQueueManager::CMEventQueueManager(QObject* parent) : QObject(parent) {}

CMEventQueueManager::~CMEventQueueManager()
{
    // Not left to QObject: the polls that are answered now may still ask this manager.
    qDeleteAll(std::exchange(m_eventQueues, {}));
}

CMEventQueue* CMEventQueueManager::createQueue()
{
    auto* queue = new CMEventQueue(this);
    m_eventQueues.insert(queue->id(), queue);
    orvoConnect(queue, SIGNAL(expired(QUuid)), this, SLOT(queueExpired(QUuid)));
    return queue;
}

CMEventQueue* CMEventQueueManager::getQueue(const QString& id) const
{
    return m_eventQueues.value(QUuid(id));
}

CMEventQueue* CMEventQueueManager::getOrCreateQueue(const QString& id)
{
    CMEventQueue* queue = getQueue(id);
    return queue ? queue : createQueue();
}

CMEventQueue* CMEventQueueManager::modifyQueue(const QString& id, const OrvoList<OrvoEventSubscribe>& subscribes,
                                               const OrvoList<OrvoEventSubscribe>& unsubscribes)
{
    const QPointer<CMEventQueue> queue(getOrCreateQueue(id));
    queue->modify(subscribes, unsubscribes);
    if (queue)
        queue->startDeleteCountdown();
    return queue;
}

void CMEventQueueManager::queueExpired(QUuid uuid)
{
    const auto it = m_eventQueues.find(uuid);
    Q_ASSERT(it != m_eventQueues.end());
    // Out of the table first: no look-up gets a queue that is being destroyed.
    CMEventQueue* queue = *it;
    m_eventQueues.erase(it);
    delete queue;
    emit expired(uuid.toString());
}
