#include "core/model/nodes/cmradiobuttonnode.h"

#include "core/model/cmroles.h"
#include "core/model/cmroot.h"
#include "core/model/cmsubscribe.h"
#include "core/orvoLog_p.h"

#include <QPointer>

namespace {

ORVO_LOGGER("CMRadioButtonNode")

const char* const valueSlot = SLOT(watchedValueChanged(CMPath,QVariant));
const char* const dataSlot = SLOT(watchedDataChanged(CMPath));

} // namespace

CMRadioButtonNode::CMRadioButtonNode(const CMPath& path, const CMPath& linkPath)
    : CMActivateNode(path), m_linkPath(linkPath)
{}

CMRadioButtonNode* CMRadioButtonNode::create(CMNodes* nodes, const CMPath& path, const CMPath& linkPath)
{
    auto* node = new CMRadioButtonNode(path, linkPath);
    node->setNodes(nodes);
    return node;
}

QVariant CMRadioButtonNode::getRoleData(const QString& role, const Params& params)
{
    if (role == OrvoRoles::Flags()) {
        QVariantHash flags = CMActivateNode::getRoleData(role, params).toHash();
        flags.insert(CMFlags::RadioButton(), true);
        return flags;
    }
    if (role == OrvoRoles::Value())
        return CMRoot()->getValue(CMPath(m_linkPath).addParams(params)) == m_value;
    return CMActivateNode::getRoleData(role, params);
}

QVariant CMRadioButtonNode::activate(const QVariant&, const Params& params)
{
    CMRoot()->setData(CMPath(m_linkPath).addParams(params), OrvoRoles::Value(), value());
    return QVariant();
}

void CMRadioButtonNode::valuePathAdd(const CMPath& path)
{
    const CMNodeLocker lock(mutex());
    // The hub may tell of a path that is known already.
    const bool isNew = !valuePaths().contains(path);
    CMNode::valuePathAdd(path);
    if (isNew)
        watch(CMAbstractWorker::ValueChange, translatePath(m_linkPath, path), valueSlot);
}

void CMRadioButtonNode::valuePathRemove(const CMPath& path)
{
    const CMNodeLocker lock(mutex());
    const bool wasKnown = valuePaths().contains(path);
    CMNode::valuePathRemove(path);
    if (wasKnown)
        unwatch(CMAbstractWorker::ValueChange, translatePath(m_linkPath, path), valueSlot);
}

void CMRadioButtonNode::dataPathAdd(const CMPath& path)
{
    const CMNodeLocker lock(mutex());
    // The hub may tell of a path that is known already.
    const bool isNew = !dataPaths().contains(path);
    CMNode::dataPathAdd(path);
    if (isNew)
        watch(CMAbstractWorker::DataChange, translatePath(m_linkPath, path), dataSlot);
}

void CMRadioButtonNode::dataPathRemove(const CMPath& path)
{
    const CMNodeLocker lock(mutex());
    const bool wasKnown = dataPaths().contains(path);
    CMNode::dataPathRemove(path);
    if (wasKnown)
        unwatch(CMAbstractWorker::DataChange, translatePath(m_linkPath, path), dataSlot);
}

QVariant CMRadioButtonNode::value() const
{
    return locked(m_value);
}

void CMRadioButtonNode::setValue(const QVariant& value)
{
    const CMNodeLocker lock(mutex());
    if (m_value == value)
        return;
    m_value = value;
    const QSet<CMPath> paths = valuePaths();
    // The answer may come when this node, and even the hub, is gone.
    const QPointer<CMSubscribe> hub(subscribe());
    for (const CMPath& path : paths) {
        const CMReply<QVariantList> reply = CMRoot()->getData(translatePath(m_linkPath, path), {OrvoRoles::Value()});
        reply.onFinished(
            [hub, path, value](const CMReply<QVariantList>& answer) {
                if (!hub)
                    return;
                const QVariantList values = answer.value();
                if (answer.error().isError())
                    hub->valueChanged(path, false);
                else if (values.size() == 1)
                    hub->valueChanged(path, values.first() == value);
            },
            Qt::DirectConnection);
    }
    dataChanged();
}

void CMRadioButtonNode::watchedValueChanged(CMPath path, QVariant linkValue)
{
    LOG4CPLUS_TRACE(logger(), "watched value changed: " << path);
    const bool isOn = linkValue == value();
    CMPath own;
    if (untranslatePath(m_linkPath, path, own))
        subscribe()->valueChanged(own, isOn);
}

void CMRadioButtonNode::watchedDataChanged(CMPath path)
{
    CMPath own;
    if (untranslatePath(m_linkPath, path, own))
        subscribe()->dataChanged(own);
}
