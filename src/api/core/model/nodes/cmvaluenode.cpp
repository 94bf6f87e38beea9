#include "core/model/nodes/cmvaluenode.h"

#include "core/model/cmedit.h"
#include "core/model/cmoperation.h"
#include "core/model/cmrequest.h"
#include "core/orvo.h"
#include "core/orvoLog_p.h"

#include <QDebug>

namespace {

ORVO_LOGGER("CMValueNode")

/// Any variant that a client sends; a record has no text of its own.
QString logText(const QVariant& value)
{
    QString text;
    QDebug(&text).nospace() << value;
    return text;
}

} // namespace

CMValueNode::CMValueNode(const CMPath& path, QMutex* mutex)
    : CMUINode(path), m_valueMutex(mutex ? mutex : CMNode::mutex())
{
    orvoConnect(this, SIGNAL(privateValidate(CMSetDataRequest,OrvoValue)), this,
                             SLOT(validate(CMSetDataRequest,OrvoValue)), Qt::DirectConnection);
}

CMValueNode* CMValueNode::create(CMNodes* nodes, const CMPath& path, QMutex* mutex)
{
    auto* node = new CMValueNode(path, mutex);
    node->setNodes(nodes);
    return node;
}

QMutex* CMValueNode::mutex() const
{
    return m_valueMutex;
}

bool CMValueNode::setDataRequest(const CMSetDataRequest& request)
{
    LOG4CPLUS_TRACE(logger(), "CMValueNode::setDataRequest: path:" << request.path() << " role:" << request.role()
                                                                   << " value:" << logText(request.value()));
    const CMNodeLocker lock(mutex());
    const bool isOperation = request.role() == OrvoRoles::ValueOperation();
    if (!request.path().equals(path(), CMPath::WithoutParams) || (!isOperation && request.role() != OrvoRoles::Value()))
        return CMNode::setDataRequest(request);
    if (m_readOnly) {
        request.reply().setValue(false);
        return true;
    }
    const OrvoHash written(request.value().toHash());
    const OrvoValue wanted =
        isOperation ? CMOperation::apply(m_value, m_edit, OrvoOperation(written)) : OrvoValue(written);
    emit privateValidate(request, CMEdit::validate(m_value, wanted, m_edit, request.path()));
    return true;
}

QVariant CMValueNode::getRoleData(const QString& role, const Params& params)
{
    if (role == OrvoRoles::Value())
        return m_value.__variant();
    if (role == OrvoRoles::Modifiable())
        return !m_readOnly;
    if (role == OrvoRoles::Internal())
        return m_internal;
    if (role == OrvoRoles::Type())
        return OrvoRolesType::Value();
    if (role == OrvoRoles::Edit())
        return m_edit.__variant();
    return CMUINode::getRoleData(role, params);
}

OrvoValue CMValueNode::value() const
{
    return locked(m_value);
}

bool CMValueNode::readOnly() const
{
    return locked(m_readOnly);
}

bool CMValueNode::internal() const
{
    return locked(m_internal);
}

OrvoEdit CMValueNode::edit() const
{
    return locked(m_edit);
}

void CMValueNode::setValue(const OrvoValue& value)
{
    // A receiver of valueChanged() may take the node out; the lock below must not outlive it. Before it is registered
    // nothing refers to the node.
    const QExplicitlySharedDataPointer<CMNode> self(ref.loadRelaxed() > 0 ? this : nullptr);
    const CMNodeLocker lock(mutex());
    LOG4CPLUS_TRACE(logger(), "CMValueNode::setValue: " << value);
    if (m_value == value)
        return;
    m_value = value;
    CMNode::valueChanged(m_value.__variant());
    dataChanged();
    // A copy, as a receiver may set the next value.
    emit valueChanged(OrvoValue(m_value));
}

void CMValueNode::setVariantValue(const QVariant& variant)
{
    OrvoValue value;
    switch (variant.type()) {
    case QVariant::Bool:
        value.setBool_(variant.toBool());
        break;
    case QVariant::Int:
    case QVariant::UInt:
        value.setI32_(variant.toInt());
        break;
    case QVariant::LongLong:
    case QVariant::ULongLong:
        value.setI64_(variant.toLongLong());
        break;
    case QVariant::Double:
        value.setDouble_(variant.toDouble());
        break;
    case QVariant::String:
        value.setString_(variant.toString());
        break;
    default:
        break;
    }
    setValue(value);
}

void CMValueNode::setReadOnly(bool readOnly)
{
    assign(m_readOnly, readOnly);
}

void CMValueNode::setInternal(bool internal)
{
    assign(m_internal, internal);
}

void CMValueNode::setEdit(const OrvoEdit& edit)
{
    assign(m_edit, edit);
}

void CMValueNode::setValidate(QObject* receiver, const char* slot, Qt::ConnectionType type)
{
    const CMNodeLocker lock(mutex());
    disconnect(this, SIGNAL(privateValidate(CMSetDataRequest,OrvoValue)), nullptr, nullptr);
    orvoConnect(this, SIGNAL(privateValidate(CMSetDataRequest,OrvoValue)), receiver, slot, type);
}

void CMValueNode::validate(CMSetDataRequest request, OrvoValue value)
{
    setValue(value);
    request.reply().setValue(true);
}
