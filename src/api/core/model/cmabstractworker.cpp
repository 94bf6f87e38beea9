#include "core/model/cmabstractworker.h"

#include "core/model/cmrequest.h"
#include "core/orvoLanguage.h"
#include "records/orvoroles.h"

#include <ostream>

namespace {

CMError createError(const QString& name, const TrString& message)
{
    return CMError(name, message.toString(), TrString(CMError::DefaultTitle()).toString());
}

constexpr TrCharData translatable(const char* sourceText)
{
    return TrCharData{"CMAbstractWorker", sourceText, nullptr, -1};
}

} // namespace

CMAbstractWorker::CMAbstractWorker(const QHash<QString, QVariant>& arguments, QObject* parent)
    : QObject(parent), m_arguments(arguments)
{
    static const int changeTypeId = qRegisterMetaType<CMAbstractWorker::ChangeType>("CMAbstractWorker::ChangeType");
    Q_UNUSED(changeTypeId)
}

CMAbstractWorker::~CMAbstractWorker() = default;

void CMAbstractWorker::request(CMRequest request)
{
    if (const auto getData = request_cast<CMGetDataRequest>(request); !getData.isNull())
        getDataRequest(getData);
    else if (const auto getRows = request_cast<CMGetRowsRequest>(request); !getRows.isNull())
        getRowsRequest(getRows);
    else if (const auto matchRow = request_cast<CMMatchRowRequest>(request); !matchRow.isNull())
        matchRowRequest(matchRow);
    else if (const auto setData = request_cast<CMSetDataRequest>(request); !setData.isNull())
        setDataRequest(setData);
    else
        request.reply().setError(createErrorInternal(QStringLiteral("Unknown request subclass")));
}

void CMAbstractWorker::ping(const CMSetDataRequest& request)
{
    request.reply().setValue(QVariant());
}

void CMAbstractWorker::trace() {}

void CMAbstractWorker::connectValueChange(const CMPath& path, QObject* receiver, const char* method,
                                          Qt::ConnectionType type)
{
    connectChange(ValueChange, path, receiver, method, type);
}

void CMAbstractWorker::disconnectValueChange(const CMPath& path, QObject* receiver, const char* method)
{
    disconnectChange(ValueChange, path, receiver, method);
}

void CMAbstractWorker::connectDataChange(const CMPath& path, QObject* receiver, const char* method,
                                         Qt::ConnectionType type)
{
    connectChange(DataChange, path, receiver, method, type);
}

void CMAbstractWorker::disconnectDataChange(const CMPath& path, QObject* receiver, const char* method)
{
    disconnectChange(DataChange, path, receiver, method);
}

void CMAbstractWorker::connectRowsChange(const CMPath& path, QObject* receiver, const char* method,
                                         Qt::ConnectionType type)
{
    connectChange(RowsChange, path, receiver, method, type);
}

void CMAbstractWorker::disconnectRowsChange(const CMPath& path, QObject* receiver, const char* method)
{
    disconnectChange(RowsChange, path, receiver, method);
}

CMReply<QVariantList> CMAbstractWorker::getData(const CMPath& path, const QStringList& roles,
                                                const CMReply<QVariantList>& reply)
{
    auto* data = new CMGetDataRequest::Data;
    data->path = path;
    data->m_reply = reply;
    data->roles = roles;
    getDataRequest(CMGetDataRequest(data));
    return reply;
}

QVariant CMAbstractWorker::getValue(const CMPath& path)
{
    const CMReply<QVariantList> reply = getData(path, {OrvoRoles::Value()});
    const QVariantList values = reply.value();
    return values.size() == 1 && !reply.error().isError() ? values.first() : QVariant();
}

CMReply<OrvoRowsRoles> CMAbstractWorker::getRows(const CMPath& path, int fromRow, int toRow, int rowsVersion,
                                                 const QStringList& roles, const CMReply<OrvoRowsRoles>& reply)
{
    auto* data = new CMGetRowsRequest::Data;
    data->path = path;
    data->m_reply = reply;
    data->fromRow = fromRow;
    data->toRow = toRow;
    data->rowsVersion = rowsVersion;
    data->roles = roles;
    getRowsRequest(CMGetRowsRequest(data));
    return reply;
}

CMReply<int> CMAbstractWorker::matchRow(const CMPath& path, int fromRow, const QString& role, const QVariant& value,
                                        int matchFlags, int rowsVersion, const CMReply<int>& reply)
{
    auto* data = new CMMatchRowRequest::Data;
    data->path = path;
    data->m_reply = reply;
    data->fromRow = fromRow;
    data->role = role;
    data->value = value;
    data->matchFlags = matchFlags;
    data->rowsVersion = rowsVersion;
    matchRowRequest(CMMatchRowRequest(data));
    return reply;
}

CMReply<QVariant> CMAbstractWorker::setData(const CMPath& path, const QString& role, const QVariant& value,
                                            const CMReply<QVariant>& reply)
{
    auto* data = new CMSetDataRequest::Data;
    data->path = path;
    data->m_reply = reply;
    data->role = role;
    data->value = value;
    setDataRequest(CMSetDataRequest(data));
    return reply;
}

CMReply<QVariant> CMAbstractWorker::setValue(const CMPath& path, const QVariant& value, const CMReply<QVariant>& reply)
{
    return setData(path, OrvoRoles::Value(), value, reply);
}

CMReply<QVariant> CMAbstractWorker::setValue(const CMPath& path, const OrvoValue& value, const CMReply<QVariant>& reply)
{
    return setData(path, OrvoRoles::Value(), value.__variant(), reply);
}

CMReply<QVariant> CMAbstractWorker::setRoles(const CMPath& path, const OrvoRoles& roles, const CMReply<QVariant>& reply)
{
    return setData(path, OrvoRoles::SetRoles(), roles.__variant(), reply);
}

CMReply<QVariant> CMAbstractWorker::invoke(const CMPath& path, const QVariant& value, const CMReply<QVariant>& reply)
{
    return setData(path, OrvoRoles::Activate(), value, reply);
}

CMReply<QVariant> CMAbstractWorker::invoke(const CMPath& path, const OrvoHash& hash, const CMReply<QVariant>& reply)
{
    return setData(path, OrvoRoles::Activate(), hash.__variant(), reply);
}

CMReply<QVariant> CMAbstractWorker::valueToggle(const CMPath& path, const CMReply<QVariant>& reply)
{
    return setData(path, OrvoRoles::ValueOperation(), OrvoOperation().setNot_(OrvoOperationNot_()).__variant(), reply);
}

CMReply<QVariant> CMAbstractWorker::valueAddSteps(const CMPath& path, int steps, const CMReply<QVariant>& reply)
{
    return setData(path, OrvoRoles::ValueOperation(),
                   OrvoOperation().setAddSteps(OrvoOperationAddSteps().setSteps(steps)).__variant(), reply);
}

CMError CMAbstractWorker::createErrorInternal(const QString& message)
{
    return createError(ErrorInternal(), TrString(message));
}

CMError CMAbstractWorker::createErrorInvalidPath(const CMPath& path)
{
    return createError(ErrorInvalidPath(),
                       TrString(translatable("Node at path '%1' does not exist"), TrArg(path.toEncoded())));
}

CMError CMAbstractWorker::createErrorInvalidRowsVersion(const CMPath& path, int asked, int present)
{
    // All in one step, so that a path with a percent sign in it is not searched for the next place.
    return createError(ErrorInvalidRowsVersion(),
                       TrString(translatable("Rows version at path '%1' does not match: %2!=%3"),
                                TrArg(path.toEncoded(), QString::number(asked), QString::number(present))));
}

CMError CMAbstractWorker::createErrorInvalidArgument(const QString& name, const QString& value)
{
    return createError(ErrorInvalidArgument(),
                       TrString(translatable("Argument '%1' has invalid value '%2'"), TrArg(name, value)));
}

std::ostream& operator<<(std::ostream& stream, CMAbstractWorker::ChangeType type)
{
    switch (type) {
    case CMAbstractWorker::ValueChange:
        return stream << "ValueChange";
    case CMAbstractWorker::DataChange:
        return stream << "DataChange";
    case CMAbstractWorker::RowsChange:
        return stream << "RowsChange";
    }
    return stream << "UnknownChange";
}
