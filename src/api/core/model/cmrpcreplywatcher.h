#pragma once

#include "core/model/cmreply.h"
#include "core/model/cmreplywatcher.h"
#include "records/orvorpc.h"

#include <QBasicTimer>
#include <QObject>
#include <QPointer>

#include <chrono>

class CMRPCReplyWatcher;
class CMRPCSocket;

/**
 * The open requests of one socket in the order of their start. All may take the same time, so that one timer, which
 * stands on the first, serves for all: a timer for each request would cost more than the request's packet.
 *
 * Belongs to its socket, in the socket's thread. What is still open when it goes looks after its own time.
 */
class CMRPCExpiryQueue : public QObject
{
    Q_OBJECT

public:
    ~CMRPCExpiryQueue() override;

    void append(CMRPCReplyWatcher* watcher);
    void remove(CMRPCReplyWatcher* watcher);

protected:
    void timerEvent(QTimerEvent* event) override;

private:
    QBasicTimer m_timer;
    CMRPCReplyWatcher* m_first = nullptr;
    CMRPCReplyWatcher* m_last = nullptr;
};

/**
 * Ties one request to its reply and limits how long the reply may take, at either end of the link.
 *
 * The clock starts with the object. When the reply ends, whatever ended it and in whichever thread, the watcher tells
 * in its own thread, by its signal or, without a connection and so quicker, its owner. Then it deletes itself: in the
 * owner's queue at once, since a posted event would wake the event loop for each request.
 */
class CMRPCReplyWatcher : public QObject, public CMReplyWatcher
{
    Q_OBJECT

public:
    /// Tells the owner's requestEnded(), while there is an owner.
    CMRPCReplyWatcher(const OrvoRequest& request, const CMVoidReply& reply, CMRPCSocket* owner);
    /// The method takes (QString replyId, CMVoidReply reply).
    CMRPCReplyWatcher(const OrvoRequest& request, const CMVoidReply& reply, QObject* receiver, const char* method,
                      Qt::ConnectionType connectionType = Qt::AutoConnection);
    ~CMRPCReplyWatcher() override;

    const CMVoidReply& reply() const { return m_reply; }
    void finished(const CMVoidReply& reply) override;

signals:
    void replyFinished(QString replyId, CMVoidReply reply);

protected:
    void timerEvent(QTimerEvent* event) override;

private slots:
    void on_request_expired();

private:
    friend class CMRPCExpiryQueue;
    using Clock = std::chrono::steady_clock;

    void expireAlone();
    void tell(const CMVoidReply& reply);

    const OrvoRequest m_request;
    const CMVoidReply m_reply;
    const QPointer<CMRPCSocket> m_owner;
    /// Null once the owner is gone, and for a watcher without one; then the timer runs.
    CMRPCExpiryQueue* m_queue = nullptr;
    CMRPCReplyWatcher* m_next = nullptr;
    CMRPCReplyWatcher* m_previous = nullptr;
    const Clock::time_point m_deadline;
    QBasicTimer m_timer;
};
