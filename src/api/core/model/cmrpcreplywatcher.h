#pragma once

#include "core/model/cmreply.h"
#include "core/model/cmreplywatcher.h"
#include "records/orvorpc.h"

#include <QBasicTimer>
#include <QObject>
#include <QPointer>

class CMRPCSocket;

/**
 * Ties one request to its reply and limits how long the reply may take, at either end of the link.
 *
 * The clock starts with the object. When the reply ends, whatever ended it and in whichever thread, the watcher tells
 * in its own thread, by its signal or, without a connection and so quicker, its owner. Then it deletes itself: with an
 * owner at once, save inside its own timer event, since a posted event would wake the event loop for each request.
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

    const CMVoidReply& reply() const { return m_reply; }
    void finished(const CMVoidReply& reply) override;

signals:
    void replyFinished(QString replyId, CMVoidReply reply);

protected:
    void timerEvent(QTimerEvent* event) override;

private slots:
    void on_request_expired();

private:
    void tell(const CMVoidReply& reply);

    QBasicTimer m_timer;
    const OrvoRequest m_request;
    const CMVoidReply m_reply;
    const QPointer<CMRPCSocket> m_owner;
};
