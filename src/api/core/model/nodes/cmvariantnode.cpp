#include "core/model/nodes/cmvariantnode.h"

#include "core/model/cmglobal.h"
#include "core/model/cmsubscribe.h"
#include "core/model/nodes/cmnodelocker.h"
#include "records/orvoroles.h"
#include "records/orvorowsroles.h"

#include <algorithm>

namespace {

/// A walk takes stack for each level, and so does the end of a document that a deep write has made.
constexpr int deepestLevel = 1000;

bool isNumber(const QVariant& value)
{
    switch (value.type()) {
    case QVariant::Int:
    case QVariant::UInt:
    case QVariant::LongLong:
    case QVariant::ULongLong:
    case QVariant::Double:
        return true;
    default:
        return false;
    }
}

/// Numbers by value, whatever their type; else by type, too: a variant by itself takes the text "1" for the number 1.
bool isSame(const QVariant& a, const QVariant& b)
{
    if (a.userType() != b.userType())
        return isNumber(a) && isNumber(b) && a == b;
    if (a.type() == QVariant::Hash) {
        const QVariantHash hashA = a.toHash();
        const QVariantHash hashB = b.toHash();
        if (hashA.isSharedWith(hashB))
            return true;
        if (hashA.size() != hashB.size())
            return false;
        for (auto it = hashA.cbegin(); it != hashA.cend(); ++it) {
            const auto other = hashB.constFind(it.key());
            if (other == hashB.cend() || !isSame(*it, *other))
                return false;
        }
        return true;
    }
    if (a.type() == QVariant::List) {
        const QVariantList listA = a.toList();
        const QVariantList listB = b.toList();
        return listA.isSharedWith(listB)
               || std::equal(listA.cbegin(), listA.cend(), listB.cbegin(), listB.cend(), isSame);
    }
    return a == b;
}

QStringList keysOf(const QVariant& value)
{
    if (value.type() == QVariant::Hash)
        return value.toHash().keys();
    QStringList keys;
    if (value.type() == QVariant::List) {
        const int size = value.toList().size();
        keys.reserve(size);
        for (int i = 0; i < size; ++i)
            keys.append(QString::number(i));
    }
    return keys;
}

QVariant newContainerFor(const QString& key)
{
    bool isIndex = false;
    key.toInt(&isIndex);
    return isIndex ? QVariant(QVariantList()) : QVariant(QVariantHash());
}

} // namespace

CMVariantNode::CMVariantNode(const CMPath& path) : CMNode(path), m_separator('/') {}

CMVariantNode* CMVariantNode::create(CMNodes* nodes, const CMPath& path)
{
    auto* node = new CMVariantNode(path);
    node->setNodes(nodes);
    return node;
}

bool CMVariantNode::request(CMRequest request)
{
    Q_ASSERT(request.path().startsWith(path()));
    const CMPath requestPath = request.path().withoutParams();
    const CMNodeLocker lock(mutex());
    if (!request_cast<CMMatchRowRequest>(request).isNull())
        return false;

    const auto setData = request_cast<CMSetDataRequest>(request);
    if (!setData.isNull() && (setData.role() != OrvoRoles::Value() || m_readOnly)) {
        setData.reply().setValue(false);
        return true;
    }
    if (requestPath.baseWithPrefix().count(m_separator) - path().baseWithPrefix().count(m_separator) > deepestLevel) {
        request.reply().setError(CMAbstractWorker::createErrorInvalidPath(requestPath));
        return true;
    }
    const QVariant result = processRequest(requestPath, path(), m_title, m_value, request);
    if (!setData.isNull() && !setData.reply().error().isError()) {
        m_value = result;
        setData.reply().setValue(true);
    }
    return true;
}

QString CMVariantNode::title() const
{
    const CMNodeLocker lock(mutex());
    return m_title;
}

QVariant CMVariantNode::value() const
{
    const CMNodeLocker lock(mutex());
    return m_value;
}

bool CMVariantNode::readOnly() const
{
    const CMNodeLocker lock(mutex());
    return m_readOnly;
}

void CMVariantNode::setTitle(const QString& title)
{
    const CMNodeLocker lock(mutex());
    if (title == m_title)
        return;
    m_title = title;
    subscribe()->dataChanged(path());
}

void CMVariantNode::setReadOnly(bool readOnly)
{
    const CMNodeLocker lock(mutex());
    if (readOnly == m_readOnly)
        return;
    m_readOnly = readOnly;
    nextVersion(CMPath());
}

void CMVariantNode::setValue(const QVariant& value)
{
    const CMNodeLocker lock(mutex());
    if (isSame(value, m_value))
        return;
    m_value = value;
    nextVersion(CMPath());
    subscribe()->valueChanged(path(), value);
}

void CMVariantNode::setValueAt(const QString& subPath, const QVariant& value)
{
    auto* data = new CMSetDataRequest::Data;
    data->path = path() + m_separator + subPath;
    data->role = OrvoRoles::Value();
    data->value = value;
    request(CMSetDataRequest(data));
}

void CMVariantNode::nextVersion(const CMPath& path)
{
    subscribe()->changedStartingWith(path.isEmpty() ? this->path() : path, CMSubscribe::RowsChangeReset(), -1, -1);
}

QVariant CMVariantNode::processRequest(const CMPath& requestPath, const CMPath& currentPath, const QString& title,
                                       QVariant value, CMRequest& request)
{
    const auto invalidPath = [&] {
        request.reply().setError(CMAbstractWorker::createErrorInvalidPath(requestPath));
        return QVariant();
    };
    if (!requestPath.startsWith(currentPath))
        return invalidPath();
    if (requestPath == currentPath)
        return arrive(currentPath, title, value, request);

    const QString target = requestPath.baseWithPrefix();
    const int at = currentPath.baseWithPrefix().size();
    if (target.size() <= at || target.at(at) != m_separator)
        return invalidPath();
    const int next = target.indexOf(m_separator, at + 1);
    const int end = next < 0 ? target.size() : next;
    const QString key = target.mid(at + 1, end - at - 1);
    const CMPath nextPath = CMPath::fromPrefixWithBase(target.left(end));

    if (value.isNull())
        value = newContainerFor(key);
    const bool writes = !request_cast<CMSetDataRequest>(request).isNull();
    // Tells of a changed child, under the container's own path, and the container's rows.
    const auto report = [&](const QVariant& child) {
        subscribe()->valueChanged(currentPath, child);
        subscribe()->rowsChanged(currentPath, CMSubscribe::RowsChangeReset(), -1, -1);
    };

    if (value.type() == QVariant::List) {
        QVariantList list = value.toList();
        bool isNumber = false;
        const int index = key.toInt(&isNumber);
        if (!isNumber || index < 0)
            return invalidPath();
        while (writes && list.size() <= index)
            list.append(QVariant());
        const QVariant child = list.value(index);
        const QVariant returned = processRequest(requestPath, nextPath, key, child, request);
        if (writes && !request.reply().error().isError() && !isSame(child, returned)) {
            list[index] = returned;
            report(returned);
        }
        return list;
    }
    if (value.type() == QVariant::Hash) {
        QVariantHash hash = value.toHash();
        const QVariant child = hash.value(key);
        const QVariant returned = processRequest(requestPath, nextPath, key, child, request);
        if (writes && !request.reply().error().isError() && !isSame(child, returned)) {
            hash.insert(key, returned);
            report(returned);
        }
        return hash;
    }
    return invalidPath();
}

QVariant CMVariantNode::arrive(const CMPath& path, const QString& title, const QVariant& value,
                               const CMRequest& request)
{
    if (const auto getData = request_cast<CMGetDataRequest>(request); !getData.isNull()) {
        handleGetDataRequest(path, title, value, getData);
    } else if (const auto getRows = request_cast<CMGetRowsRequest>(request); !getRows.isNull()) {
        handleGetRowsRequest(path, title, value, getRows);
    } else if (const auto setData = request_cast<CMSetDataRequest>(request); !setData.isNull()) {
        if (!isSame(value, setData.value()))
            subscribe()->valueChanged(path, setData.value());
        return setData.value();
    } else {
        request.reply().setError(CMAbstractWorker::createErrorInternal(QStringLiteral("Unknown request subclass")));
    }
    return {};
}

void CMVariantNode::handleGetDataRequest(const CMPath& path, const QString& title, const QVariant& value,
                                         CMGetDataRequest request)
{
    OrvoRoles item;
    item.setPath(path).setTitle(title).setModifiable(!readOnly());
    const auto leaf = [&](const OrvoValue& record) { item.setType(OrvoRolesType::Value_).setValue(record); };
    switch (value.type()) {
    case QVariant::Bool:
        leaf(OrvoValue().setBool_(value.toBool()));
        break;
    case QVariant::Int:
    case QVariant::UInt:
        leaf(OrvoValue().setI32_(value.toInt()));
        break;
    case QVariant::LongLong:
    case QVariant::ULongLong:
        leaf(OrvoValue().setI64_(value.toLongLong()));
        break;
    case QVariant::Double:
        leaf(OrvoValue().setDouble_(value.toDouble()));
        break;
    case QVariant::String:
        leaf(OrvoValue().setString_(value.toString()));
        break;
    case QVariant::List:
    case QVariant::Hash:
        item.setType(OrvoRolesType::Container_);
        break;
    default:
        break;
    }
    request.reply().setValue(CMGlobal::itemRolesToList(request.roles(), item));
}

void CMVariantNode::handleGetRowsRequest(const CMPath& path, const QString& title, const QVariant& value,
                                         CMGetRowsRequest request)
{
    const QStringList keys = keysOf(value);
    const int toRow = std::min(request.toRow(), keys.size() - 1);
    QVariantList rows;
    for (int row = request.fromRow(); row <= toRow; ++row) {
        auto* data = new CMGetDataRequest::Data;
        data->path = path + m_separator + keys.at(row);
        data->roles = request.roles();
        CMGetDataRequest rowRequest(data);
        processRequest(data->path, path, title, value, rowRequest);
        const QVariantList values = rowRequest.reply().value();
        if (const CMError error = rowRequest.reply().error(); error.isError()) {
            if (rows.isEmpty())
                return request.reply().setError(error);
            break;
        }
        rows.append(QVariant(values));
    }
    request.reply().setValue(OrvoRowsRoles().setRowsCount(keys.size()).setRows(rows));
}
