#include "core/model/nodes/cmcontainernode.h"

#include "core/model/cmnodes.h"
#include "core/model/cmrequest.h"
#include "core/model/cmsubscribe.h"
#include "core/model/nodes/cmreference_p.h"
#include "core/orvoLog_p.h"
#include "records/orvorowsroles.h"

#include <QElapsedTimer>

#include <algorithm>
#include <numeric>

namespace {

ORVO_LOGGER("CMContainerNode")

constexpr qint64 answerBudgetMs = 200;

int totalRows(const CMContainerNode::DynamicContentList& content)
{
    return std::accumulate(content.cbegin(), content.cend(), 0,
                           [](int sum, const CMContainerNode::DynamicContent& part) { return sum + part.rowsCount; });
}

/// Turns rows of either form into one list of values per row.
class RowReader
{
public:
    RowReader(const QStringList& roles, const CMPath::Params& params, bool copyPathParams)
        : m_roles(roles), m_params(params), m_copyPathParams(copyPathParams)
    {}

    QVariantList read(const QVariant& row) const
    {
        return row.type() == QVariant::String ? readReferenced(CMPath::fromQVariant(row)) : readRoles(row.toHash());
    }

private:
    CMPath withParams(const CMPath& path) const
    {
        return m_copyPathParams ? CMContainerNode::mergeParams(path, m_params) : path;
    }

    QVariantList readRoles(const QVariantHash& hash) const
    {
        QVariantList values;
        values.reserve(m_roles.size());
        for (const QString& role : m_roles) {
            if (role == OrvoRoles::Path())
                values.append(withParams(CMPath::fromQVariant(hash.value(role))).__variant());
            else
                values.append(hash.value(role));
        }
        return values;
    }

    QVariantList readReferenced(const CMPath& stored) const
    {
        const CMPath path = withParams(stored);
        const CMReply<QVariantList> reply =
            readReference(path, m_roles, logger(), "CMContainerNode::respondGetRowsRequest: ");
        const CMError error = reply.error();
        if (!error.isError())
            return reply.value();

        QVariantList values;
        values.reserve(m_roles.size());
        for (const QString& role : m_roles) {
            if (role == OrvoRoles::Title())
                values.append(error.message());
            else if (role == OrvoRoles::Path())
                values.append(path.__variant());
            else
                values.append(QVariant());
        }
        return values;
    }

    const QStringList& m_roles;
    const CMPath::Params m_params;
    const bool m_copyPathParams;
};

} // namespace

CMContainerNode::CMContainerNode(const CMPath& path) : CMUINode(path) {}

CMContainerNode* CMContainerNode::create(CMNodes* nodes, const CMPath& path)
{
    auto* node = new CMContainerNode(path);
    node->setNodes(nodes);
    return node;
}

QVariant CMContainerNode::getRoleData(const QString& role, const Params& params)
{
    if (role == OrvoRoles::Type())
        return OrvoRolesType::Container();
    if (role == OrvoRoles::ContainerType())
        return OrvoRolesContainerType::toString(m_containerType);
    if (role == OrvoRoles::Search())
        return browseItem(m_search, params).__variant();
    if (role == OrvoRoles::Activity())
        return m_activity;
    if (role == OrvoRoles::Cancel())
        return browseItem(m_cancel, params).__variant();
    if (role == OrvoRoles::Accept())
        return browseItem(m_accept, params).__variant();
    if (role == OrvoRoles::FillParent())
        return m_fillParent;
    if (role == OrvoRoles::ContainerPlayable())
        return m_playable ? QVariant(true) : QVariant();
    return CMUINode::getRoleData(role, params);
}

OrvoRolesContainerType::Enum CMContainerNode::containerType() const
{
    return locked(m_containerType);
}

bool CMContainerNode::activity() const
{
    return locked(m_activity);
}

bool CMContainerNode::fillParent() const
{
    return locked(m_fillParent);
}

bool CMContainerNode::playable() const
{
    return locked(m_playable);
}

void CMContainerNode::setContainerType(OrvoRolesContainerType::Enum containerType)
{
    assign(m_containerType, containerType);
}

void CMContainerNode::setActivity(bool activity)
{
    assign(m_activity, activity);
}

void CMContainerNode::setFillParent(bool fillParent)
{
    assign(m_fillParent, fillParent);
}

void CMContainerNode::setPlayable(bool playable)
{
    assign(m_playable, playable);
}

void CMContainerNode::setSearchPath(const CMPath& path)
{
    assign(m_search, path.__variant());
}

void CMContainerNode::setSearch(const OrvoRoles& search)
{
    assign(m_search, search.__variant());
}

void CMContainerNode::setCancelPath(const CMPath& path)
{
    assign(m_cancel, path.__variant());
}

void CMContainerNode::setCancel(const OrvoRoles& cancel)
{
    assign(m_cancel, cancel.__variant());
}

void CMContainerNode::setAcceptPath(const CMPath& path)
{
    assign(m_accept, path.__variant());
}

void CMContainerNode::setAccept(const OrvoRoles& accept)
{
    assign(m_accept, accept.__variant());
}

CMPath CMContainerNode::mergeParams(const CMPath& path, const Params& params)
{
    CMPath merged = path;
    for (auto it = params.cbegin(); it != params.cend(); ++it) {
        if (merged.hasParam(it.key()))
            LOG4CPLUS_WARN(logger(), "Overriding param: " << it.key() << " in path " << path);
        merged.addParam(it.key(), it.value());
    }
    return merged;
}

QList<QVariant> CMContainerNode::loadContentData(const DynamicContentList& content, int fromIncluded, int toIncluded)
{
    Q_ASSERT(fromIncluded >= 0);
    Q_ASSERT(fromIncluded <= toIncluded);
    int start = 0;
    for (const DynamicContent& part : content) {
        if (part.rowsCount <= 0)
            continue;
        if (start + part.rowsCount <= fromIncluded) {
            start += part.rowsCount;
            continue;
        }
        const int offset = fromIncluded - start;
        const int count = std::min(toIncluded - fromIncluded + 1, part.rowsCount - offset);
        const QList<QVariant> elements = part.loadRows(offset, count);
        Q_ASSERT(!elements.isEmpty());
        return elements;
    }
    return {};
}

void CMContainerNode::respondGetRowsRequest(const CMGetRowsRequest& request, const DynamicContentList& content,
                                            int rowsVersion, const OrvoRowsRoles& rowsRoles, bool copyPathParams)
{
    const CMReply<OrvoRowsRoles>& reply = request.reply();
    const int fromRow = request.fromRow();
    const int total = totalRows(content);
    const auto refuse = [&](const CMError& error) {
        LOG4CPLUS_ERROR(logger(), request.path() << ' ' << error.name() << ": " << error.message());
        reply.setError(error);
    };
    if (fromRow < 0 || fromRow > total)
        return refuse(
            CMAbstractWorker::createErrorInvalidArgument(QStringLiteral("fromRow"), QString::number(fromRow)));
    if (request.toRow() < fromRow)
        return refuse(CMAbstractWorker::createErrorInvalidArgument(
            QStringLiteral("fromRow > toRow"), QStringLiteral("%1 > %2").arg(fromRow).arg(request.toRow())));
    if (request.rowsVersion() >= 0 && request.rowsVersion() != rowsVersion)
        return reply.setError(
            CMAbstractWorker::createErrorInvalidRowsVersion(request.path(), request.rowsVersion(), rowsVersion));

    const int toRow = std::min(request.toRow(), total - 1);
    const RowReader reader(request.roles(), request.path().params(), copyPathParams);
    QList<QVariant> loaded;
    int nextLoaded = 0;
    QVariantList rows;
    QElapsedTimer time;
    time.start();
    for (int row = fromRow; row <= toRow; ++row) {
        // Cancelled or failed from outside: nobody waits for this answer.
        if (reply.error().isError())
            return;
        if (nextLoaded == loaded.size()) {
            loaded = loadContentData(content, row, toRow);
            nextLoaded = 0;
            if (loaded.isEmpty())
                break;
        }
        rows.append(QVariant(reader.read(loaded.at(nextLoaded++))));
        if (time.elapsed() > answerBudgetMs) {
            LOG4CPLUS_TRACE(logger(), request.path()
                                          << " CMContainerNode::respondGetRowsRequest Timeout " << time.elapsed());
            break;
        }
    }

    OrvoRowsRoles answer = rowsRoles;
    answer.setRowsVersion(rowsVersion);
    answer.setRowsCount(total);
    answer.setRoles(getDataRoles(request.roles(), request.path().params()));
    answer.setRows(rows);
    reply.setValue(answer);
}

void CMContainerNode::respondGetRowsRequest(const CMGetRowsRequest& request, const QVector<OrvoRoles>& rows,
                                            int rowsVersion)
{
    const int version = rowsVersion == -1 ? subscribe()->rowsVersion(request.path()) : rowsVersion;
    const DynamicContent content{rows.size(), [&rows](int offset, int count) {
                                     QList<QVariant> loaded;
                                     loaded.reserve(count);
                                     for (int i = offset; i < offset + count; ++i)
                                         loaded.append(rows.at(i).__variant());
                                     return loaded;
                                 }};
    respondGetRowsRequest(request, {content}, version, OrvoRowsRoles(), false);
}

void CMContainerNode::hide()
{
    subscribe()->rowsChanged(path(), CMSubscribe::RowsChangeClose(), -1, -1);
}
