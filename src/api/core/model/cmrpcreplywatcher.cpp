#include "core/model/cmrpcreplywatcher.h"

#include "core/model/cmrpccommon.h"
#include "core/orvo.h"
#include "core/orvoLanguage.h"
#include "core/orvoLog_p.h"
#include "records/orvoconstants.h"

#include <QThread>
#include <QTimerEvent>

namespace {

ORVO_LOGGER("CMRPCReplyWatcher")

constexpr TrCharData expiredText{"CMRPCReplyWatcher", "Request has expired", nullptr, -1};

} // namespace

CMRPCReplyWatcher::CMRPCReplyWatcher(const OrvoRequest& request, const CMVoidReply& reply, CMRPCSocket* owner)
    : m_request(request), m_reply(reply), m_owner(owner)
{
    m_timer.start(OrvoRPCRequestExpiryTimeoutMs(), this);
}

CMRPCReplyWatcher::CMRPCReplyWatcher(const OrvoRequest& request, const CMVoidReply& reply, QObject* receiver,
                                     const char* method, Qt::ConnectionType connectionType)
    : CMRPCReplyWatcher(request, reply, nullptr)
{
    orvoConnect(this, SIGNAL(replyFinished(QString,CMVoidReply)), receiver, method, connectionType);
}

void CMRPCReplyWatcher::finished(const CMVoidReply& reply)
{
    Q_ASSERT(reply == m_reply);
    LOG4CPLUS_TRACE(logger(), "Request finished: " << m_request);
    emit replyFinished(m_request.id(), reply);
    if (thread() != QThread::currentThread()) {
        QMetaObject::invokeMethod(
            this, [this, reply] { tell(reply); }, Qt::QueuedConnection);
        deleteLater();
        return;
    }
    const bool goesAtOnce = m_owner && m_timer.isActive();
    tell(reply);
    if (goesAtOnce)
        delete this;
    else
        deleteLater();
}

void CMRPCReplyWatcher::tell(const CMVoidReply& reply)
{
    if (m_owner)
        m_owner->requestEnded(m_request.id(), reply);
}

void CMRPCReplyWatcher::timerEvent(QTimerEvent* event)
{
    if (event->timerId() != m_timer.timerId())
        return QObject::timerEvent(event);
    m_timer.stop();
    on_request_expired();
}

void CMRPCReplyWatcher::on_request_expired()
{
    LOG4CPLUS_WARN(logger(), "Request expired: " << m_request);
    m_reply.setError(CMError(QStringLiteral("Error"), TrString(expiredText, QList<TrArg>()).toString(),
                             TrString(CMError::DefaultTitle()).toString()));
}
