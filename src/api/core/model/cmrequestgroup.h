#pragma once

#include "core/model/cmpath.h"
#include "core/model/cmreply.h"

#include <QHash>
#include <QObject>
#include <QSemaphore>
#include <QString>
#include <QStringList>
#include <QVariant>

class CMReplyWatcherObject;

/**
 * Sends several requests at once, each under a name of the caller's choice, and calls back once when the last one has
 * finished. A failed request counts like a good one: the receiver looks into the replies.
 *
 * May be used again: further requests after finished() lead to a further one, and the replies add up. Lives in one
 * thread, whose event loop brings the replies, and speaks to CMRoot(). May be destroyed inside finished() and with
 * requests open.
 */
class CMRequestGroup : public QObject
{
    Q_OBJECT

public:
    explicit CMRequestGroup(QObject* parent = nullptr);
    ~CMRequestGroup() override;

    // Send at once. Of two requests with one id both count, and the later reply stands in the list.
    void addInvoke(const QString& id, const CMPath& path, const QVariant& param);
    void addGetData(const QString& id, const CMPath& path, const QStringList& roles);
    void addSetData(const QString& id, const CMPath& path, const QString& role, const QVariant& value);
    void addGetRows(const QString& id, const CMPath& path, int from, int to, int version, const QStringList& roles);
    /**
     * Watches a reply that somebody else asked for, in place of a request of the group that is counted already. The
     * end of a reply that nothing counts stops the process.
     */
    void addWatcher(const QString& id, CMVoidReply reply);

    /// The slot takes no argument. Called here, by a direct connection, when nothing is pending.
    void setCallback(const QObject* receiver, const char* slot, Qt::ConnectionType type = Qt::AutoConnection);
    /// The finished replies by id.
    const QHash<QString, CMVoidReply>& getReplyList() const { return m_replies; }

signals:
    void finished();

private slots:
    void on_subRequest_finished(CMVoidReply reply);

private:
    void requestFinished(const QString& id, CMVoidReply reply);
    void checkAndCallCallback();

    QHash<QString, CMVoidReply> m_replies;
    QHash<CMReplyWatcherObject*, QString> m_requestIDs;
    /// Available are as many as there are requests that have not finished. Nothing waits on it.
    QSemaphore m_pending;
    bool m_callbackSet = false;
};
