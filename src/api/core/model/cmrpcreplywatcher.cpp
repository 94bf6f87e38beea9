#include "core/model/cmrpcreplywatcher.h"

#include "core/model/cmrpccommon.h"
#include "core/orvo.h"
#include "core/orvoLanguage.h"
#include "core/orvoLog_p.h"
#include "records/orvoconstants.h"

#include <QThread>

#include <algorithm>

namespace {

ORVO_LOGGER("CMRPCReplyWatcher")

constexpr TrCharData expiredText{"CMRPCReplyWatcher", "Request has expired", nullptr, -1};

int msUntil(std::chrono::steady_clock::time_point deadline)
{
    const auto left = deadline - std::chrono::steady_clock::now();
    return int(std::max<qint64>(0, std::chrono::ceil<std::chrono::milliseconds>(left).count()));
}

} // namespace

CMRPCExpiryQueue::~CMRPCExpiryQueue()
{
    while (CMRPCReplyWatcher* watcher = m_first) {
        remove(watcher);
        watcher->expireAlone();
    }
}

void CMRPCExpiryQueue::append(CMRPCReplyWatcher* watcher)
{
    watcher->m_queue = this;
    watcher->m_previous = m_last;
    (m_last ? m_last->m_next : m_first) = watcher;
    m_last = watcher;
    // A timer that finds nothing to do when its time comes is cheaper than one that is stopped with each reply.
    if (!m_timer.isActive())
        m_timer.start(OrvoRPCRequestExpiryTimeoutMs(), this);
}

void CMRPCExpiryQueue::remove(CMRPCReplyWatcher* watcher)
{
    (watcher->m_previous ? watcher->m_previous->m_next : m_first) = watcher->m_next;
    (watcher->m_next ? watcher->m_next->m_previous : m_last) = watcher->m_previous;
    watcher->m_queue = nullptr;
    watcher->m_next = nullptr;
    watcher->m_previous = nullptr;
}

void CMRPCExpiryQueue::timerEvent(QTimerEvent*)
{
    m_timer.stop();
    const QPointer<CMRPCExpiryQueue> alive(this);
    const auto now = CMRPCReplyWatcher::Clock::now();
    while (m_first && m_first->m_deadline <= now) {
        CMRPCReplyWatcher* const watcher = m_first;
        remove(watcher);
        watcher->on_request_expired();
        if (!alive)
            return;
    }
    // Also when a request that was made meanwhile has started it: the first one's time may come sooner.
    if (m_first)
        m_timer.start(msUntil(m_first->m_deadline), this);
}

CMRPCReplyWatcher::CMRPCReplyWatcher(const OrvoRequest& request, const CMVoidReply& reply, CMRPCSocket* owner)
    : m_request(request),
      m_reply(reply),
      m_owner(owner),
      m_deadline(Clock::now() + std::chrono::milliseconds(OrvoRPCRequestExpiryTimeoutMs()))
{
    if (owner)
        owner->m_expiry.append(this);
    else
        expireAlone();
}

CMRPCReplyWatcher::CMRPCReplyWatcher(const OrvoRequest& request, const CMVoidReply& reply, QObject* receiver,
                                     const char* method, Qt::ConnectionType connectionType)
    : CMRPCReplyWatcher(request, reply, nullptr)
{
    orvoConnect(this, SIGNAL(replyFinished(QString,CMVoidReply)), receiver, method, connectionType);
}

CMRPCReplyWatcher::~CMRPCReplyWatcher()
{
    if (m_queue)
        m_queue->remove(this);
}

void CMRPCReplyWatcher::finished(const CMVoidReply& reply)
{
    Q_ASSERT(reply == m_reply);
    LOG4CPLUS_TRACE(logger(), "Request finished: " << m_request);
    if (thread() != QThread::currentThread()) {
        emit replyFinished(m_request.id(), reply);
        QMetaObject::invokeMethod(
            this, [this, reply] { tell(reply); }, Qt::QueuedConnection);
        deleteLater();
    } else if (m_queue) {
        // Nobody is connected to a watcher with an owner.
        tell(reply);
        delete this;
    } else {
        emit replyFinished(m_request.id(), reply);
        tell(reply);
        deleteLater();
    }
}

void CMRPCReplyWatcher::tell(const CMVoidReply& reply)
{
    if (m_owner)
        m_owner->requestEnded(m_request.id(), reply);
}

void CMRPCReplyWatcher::expireAlone()
{
    m_timer.start(msUntil(m_deadline), this);
}

void CMRPCReplyWatcher::timerEvent(QTimerEvent*)
{
    m_timer.stop();
    on_request_expired();
}

void CMRPCReplyWatcher::on_request_expired()
{
    LOG4CPLUS_WARN(logger(), "Request expired: " << m_request);
    // Ending the reply may end this.
    const CMVoidReply reply = m_reply;
    reply.setError(CMError(QStringLiteral("Error"), TrString(expiredText, QList<TrArg>()).toString(),
                           TrString(CMError::DefaultTitle()).toString()));
}
