#include "core/model/nodes/cmactivatenode.h"

#include "core/model/cmrequest.h"
#include "core/orvo.h"
#include "records/orvoerror.h"

namespace {

constexpr TrCharData disabledText{"CMActivateNode", "Activating disabled item failed.", nullptr, -1};

} // namespace

CMActivateNode::CMActivateNode(const CMPath& path) : CMUINode(path) {}

CMActivateNode* CMActivateNode::create(CMNodes* nodes, const CMPath& path, QObject* receiver, const char* slot,
                                       Qt::ConnectionType type)
{
    auto* node = new CMActivateNode(path);
    node->setNodes(nodes);
    if (receiver)
        node->setInvoke(receiver, slot, type);
    return node;
}

bool CMActivateNode::setDataRequest(const CMSetDataRequest& request)
{
    if (!request.path().equals(path(), CMPath::WithoutParams) || request.role() != locked(m_activateRole))
        return CMNode::setDataRequest(request);

    const Params params = request.path().params();
    if (getRoleData(OrvoRoles::Disabled(), params).toBool()) {
        request.reply().setError(CMError(QStringLiteral("Error"), TrString(disabledText, QList<TrArg>()).toString(),
                                         CMError::DefaultTitle()));
        return true;
    }
    CMNodeLocker lock(mutex());
    if (receivers(SIGNAL(privateInvoke(CMSetDataRequest))) > 0) {
        emit privateInvoke(request);
        return true;
    }
    lock.unlock();
    request.reply().setValue(activate(request.value(), params));
    return true;
}

QVariant CMActivateNode::getRoleData(const QString& role, const Params& params)
{
    if (role == OrvoRoles::Type())
        return OrvoRolesType::Action();
    if (role == OrvoRoles::BusyText())
        return m_busyText;
    return CMUINode::getRoleData(role, params);
}

QVariant CMActivateNode::activate(const QVariant&, const Params& params)
{
    QVariant replyValue = locked(m_replyValue);
    if (replyValue.type() != QVariant::String || params.isEmpty())
        return replyValue;
    return CMPath::fromQVariant(replyValue).addParams(params).__variant();
}

QString CMActivateNode::busyText() const
{
    return locked(m_busyText);
}

void CMActivateNode::setBusyText(const QString& busyText)
{
    assign(m_busyText, busyText);
}

void CMActivateNode::setActivateRole(const QString& role)
{
    const CMNodeLocker lock(mutex());
    m_activateRole = role;
}

void CMActivateNode::setReplyValue(const OrvoActionReply& reply)
{
    setReplyValueInternal(reply.__variant());
}

void CMActivateNode::setReplyValue(const CMPath& path)
{
    setReplyValueInternal(path.__variant());
}

void CMActivateNode::setReplyValue(const OrvoRoles& roles)
{
    setReplyValue(OrvoActionReply().setXclass(QStringLiteral("OrvoActionReply")).setResult(roles));
}

void CMActivateNode::setReplyValueInternal(const QVariant& replyValue)
{
    const CMNodeLocker lock(mutex());
    m_replyValue = replyValue;
}

void CMActivateNode::setInvoke(QObject* receiver, const char* slot, Qt::ConnectionType type)
{
    const CMNodeLocker lock(mutex());
    disconnect(this, SIGNAL(privateInvoke(CMSetDataRequest)), nullptr, nullptr);
    orvoConnect(this, SIGNAL(privateInvoke(CMSetDataRequest)), receiver, slot, type);
}
