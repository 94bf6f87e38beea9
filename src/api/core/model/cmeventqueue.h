#pragma once

#include "core/model/cmpath.h"
#include "records/orvoevents.h"
#include "records/orvolist.h"

#include <QHash>
#include <QObject>
#include <QSet>
#include <QStringList>
#include <QTimer>
#include <QUuid>
#include <QVariant>

/**
 * One long poll that waits for events, as the service that received it sees it.
 *
 * CMEventQueue::poll() takes it over and deletes it right after the one call of respond(), which comes in the queue's
 * thread: at once, within another call to the queue, or later. An override must not block; it may call the queue and
 * may destroy it.
 */
class CMEventQueueRequest
{
public:
    /// The events may be none: nothing happened in time, or a newer poll of the queue takes this one's place.
    virtual void respond(const OrvoList<OrvoEvent>& events, const QString& queueId) = 0;
    virtual ~CMEventQueueRequest();
};

/**
 * Watches the content tree for a client without a link: subscribes to paths at CMRoot() and keeps what changed, one
 * record per event, until a poll takes all of it.
 *
 * Owned by its CMEventQueueManager, which destroys it when it has expired: when nobody polled for 60 seconds. Events
 * that wait meanwhile have no limit but that time. Lives in one thread, whose event loop brings the changes; all
 * functions are for that thread. A waiting poll is answered when the queue is destroyed.
 *
 * A path whose node answers the role "internal" gives no data or value events from when that answer has come; rows
 * events it gives.
 */
class CMEventQueue : public QObject
{
    Q_OBJECT

public:
    explicit CMEventQueue(QObject* parent = nullptr);
    ~CMEventQueue() override;

    const QUuid& id() const { return m_id; }

    /// Counted: as many unsubscribe() end it. False for an unknown type.
    bool subscribe(const OrvoEventSubscribe& record);
    /// False when it was not subscribed.
    bool unsubscribe(const OrvoEventSubscribe& record);
    /// Adds first, then takes away, and stops with false at the first that fails; what was done before stays done.
    bool modify(const OrvoList<OrvoEventSubscribe>& subscribes, const OrvoList<OrvoEventSubscribe>& unsubscribes);

    /**
     * Takes the request over. It is answered at once when events wait, else with the next event or at the time-out: 15
     * seconds when none is given, at most 300. One poll waits at a time; an older one is answered with what there is.
     */
    void poll(CMEventQueueRequest* request, int timeoutSeconds);
    /// Answers the waiting poll, if any, with all events, and starts the countdown anew.
    void sendResponse();
    bool isInternal(const CMPath& path) const;
    /// 60 seconds from now on. Nothing while a poll waits: its time-out stands, and its answer starts the countdown.
    void startDeleteCountdown();

signals:
    /// Nobody polled in time. All subscriptions have ended.
    void expired(QUuid uuid);

private slots:
    void dataChanged(CMPath path);
    void rowsChanged(CMPath path, QStringList rowsChanged, int version, int oldVersion);
    void valueChanged(CMPath path, QVariant variant);
    void on_timer_timeout();

private:
    void askInternal(const CMPath& path);
    void forgetInternal(const CMPath& path);
    bool isSubscribed(const CMPath& plainPath) const;

    const QUuid m_id = QUuid::createUuid();
    /// How often each is subscribed; the keys hold path and type only.
    QHash<OrvoEventSubscribe, int> m_subscriptions;
    OrvoList<OrvoEvent> m_events;
    /// The time-out of the waiting poll; without one, the countdown to the end of the queue.
    QTimer m_timer{this};
    /// Owned until it is answered.
    CMEventQueueRequest* m_request = nullptr;
    /// Without parameters.
    QSet<CMPath> m_internalPaths;
};

/**
 * The event queues of a service that offers long polls, by id: makes them, and drops those that expired.
 *
 * Owned by the service and in one thread with its queues, which are its children.
 */
class CMEventQueueManager : public QObject
{
    Q_OBJECT

public:
    explicit CMEventQueueManager(QObject* parent = nullptr);
    ~CMEventQueueManager() override;

    int queuesCount() const { return m_eventQueues.size(); }
    CMEventQueue* createQueue();
    /// Null for an unknown id, and for a text that is none.
    CMEventQueue* getQueue(const QString& id) const;
    /// A queue made here has an id of its own: the client learns it from the response.
    CMEventQueue* getOrCreateQueue(const QString& id);
    /// The queue of the id, or a new one, with its subscriptions changed and its countdown started anew.
    CMEventQueue* modifyQueue(const QString& id, const OrvoList<OrvoEventSubscribe>& subscribes,
                              const OrvoList<OrvoEventSubscribe>& unsubscribes);

signals:
    /// The queue is gone.
    void expired(QString uuid);

private slots:
    void queueExpired(QUuid uuid);

private:
    QHash<QUuid, CMEventQueue*> m_eventQueues;
};
