#pragma once

#include "core/model/nodes/cmuinode.h"

class CMSetDataRequest;
class OrvoActionReply;

/**
 * An action: writing its activate role runs it and returns a reply value.
 *
 * With a receiver connected by setInvoke() the action never answers by itself: the receiver owns the reply. Without
 * one the virtual activate() answers at once. A disabled action refuses with an error.
 */
class CMActivateNode : public CMUINode
{
    Q_OBJECT

public:
    explicit CMActivateNode(const CMPath& path);
    /// With a receiver, its slot takes a CMSetDataRequest and finishes the reply.
    static CMActivateNode* create(CMNodes* nodes, const CMPath& path, QObject* receiver = nullptr,
                                  const char* slot = nullptr, Qt::ConnectionType type = Qt::AutoConnection);

    bool setDataRequest(const CMSetDataRequest& request) override;
    QVariant getRoleData(const QString& role, const Params& params) override;

    /// The answer to an activation that no receiver takes. Called without a lock; the written value may be ignored.
    virtual QVariant activate(const QVariant& value, const Params& params);

    QString busyText() const;
    void setBusyText(const QString& busyText);
    /// The role whose writing activates the node.
    void setActivateRole(const QString& role);
    void setReplyValue(const OrvoActionReply& reply);
    /// A path is answered with the request's parameters added.
    void setReplyValue(const CMPath& path);
    /// Wrapped in an OrvoActionReply.
    void setReplyValue(const OrvoRoles& roles);
    void setReplyValueInternal(const QVariant& replyValue);
    /// Replaces the receiver.
    void setInvoke(QObject* receiver, const char* slot, Qt::ConnectionType type = Qt::AutoConnection);

signals:
    void privateInvoke(CMSetDataRequest request);

private:
    QVariant m_replyValue;
    QString m_busyText;
    QString m_activateRole = OrvoRoles::Activate();
};
