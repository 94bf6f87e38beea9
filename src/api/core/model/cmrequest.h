#pragma once

#include "core/model/cmpath.h"
#include "core/model/cmreply.h"

#include <QExplicitlySharedDataPointer>
#include <QMetaType>
#include <QSharedData>
#include <QStringList>
#include <QVariant>

#include <typeinfo>

/**
 * A request on its way through workers and nodes: a shared handle on a Data object with the path, the arguments and
 * the reply that is to be finished.
 *
 * One pointer, copied freely, compared by the identity of the data. The data is filled before the handle is passed on
 * and only read from then on, so a request may go to another thread. Using a null handle stops the process.
 */
class CMRequest
{
public:
    class Data : public QSharedData
    {
    public:
        Data() = default;
        Data(const Data&) = delete;
        Data& operator=(const Data&) = delete;
        virtual ~Data();
        virtual CMVoidReply reply() const = 0;

        CMPath path;
    };

    CMRequest() = default;
    explicit CMRequest(Data* data) : m_d(data) {}

    bool isNull() const { return !m_d; }
    Data* d() const
    {
        Q_ASSERT(m_d);
        return m_d.data();
    }
    const CMPath& path() const { return d()->path; }
    CMVoidReply reply() const { return d()->reply(); }

    friend bool operator==(const CMRequest& a, const CMRequest& b) { return a.m_d == b.m_d; }
    friend bool operator!=(const CMRequest& a, const CMRequest& b) { return a.m_d != b.m_d; }
    friend uint qHash(const CMRequest& request)
    {
        const auto address = reinterpret_cast<quintptr>(request.m_d.data());
        return uint((address >> 31) ^ address);
    }

protected:
    QExplicitlySharedDataPointer<Data> m_d;
};

/// Reads roles of the node at the path; the reply's values stand in the order of the roles.
class CMGetDataRequest : public CMRequest
{
public:
    class Data final : public CMRequest::Data
    {
    public:
        CMVoidReply reply() const override { return m_reply; }

        CMReply<QVariantList> m_reply;
        QStringList roles;
    };

    CMGetDataRequest() = default;
    explicit CMGetDataRequest(Data* data) : CMRequest(data) {}

    Data* d() const { return static_cast<Data*>(CMRequest::d()); }
    const CMReply<QVariantList>& reply() const { return d()->m_reply; }
    const QStringList& roles() const { return d()->roles; }
};

/**
 * Reads rows fromRow to toRow, both included, of the list at the path. A rowsVersion of 0 or more must be the list's;
 * a negative one takes any.
 */
class CMGetRowsRequest : public CMRequest
{
public:
    class Data final : public CMRequest::Data
    {
    public:
        CMVoidReply reply() const override { return m_reply; }

        CMReply<OrvoRowsRoles> m_reply;
        int fromRow = 0;
        int toRow = 0;
        int rowsVersion = -1;
        QStringList roles;
    };

    CMGetRowsRequest() = default;
    explicit CMGetRowsRequest(Data* data) : CMRequest(data) {}

    Data* d() const { return static_cast<Data*>(CMRequest::d()); }
    const CMReply<OrvoRowsRoles>& reply() const { return d()->m_reply; }
    int fromRow() const { return d()->fromRow; }
    int toRow() const { return d()->toRow; }
    int rowsVersion() const { return d()->rowsVersion; }
    const QStringList& roles() const { return d()->roles; }
};

/// Searches the first row from fromRow on whose role has the value; -1 in the reply means none.
class CMMatchRowRequest : public CMRequest
{
public:
    class Data final : public CMRequest::Data
    {
    public:
        CMVoidReply reply() const override { return m_reply; }

        CMReply<int> m_reply;
        int fromRow = 0;
        QString role;
        QVariant value;
        int matchFlags = 0;
        int rowsVersion = -1;
    };

    CMMatchRowRequest() = default;
    explicit CMMatchRowRequest(Data* data) : CMRequest(data) {}

    Data* d() const { return static_cast<Data*>(CMRequest::d()); }
    const CMReply<int>& reply() const { return d()->m_reply; }
    int fromRow() const { return d()->fromRow; }
    const QString& role() const { return d()->role; }
    const QVariant& value() const { return d()->value; }
    int matchFlags() const { return d()->matchFlags; }
    int rowsVersion() const { return d()->rowsVersion; }
};

/// Writes a role of the node at the path: a value, an operation, an activation or a query.
class CMSetDataRequest : public CMRequest
{
public:
    class Data final : public CMRequest::Data
    {
    public:
        CMVoidReply reply() const override { return m_reply; }

        CMReply<QVariant> m_reply;
        QString role;
        QVariant value;
    };

    CMSetDataRequest() = default;
    explicit CMSetDataRequest(Data* data) : CMRequest(data) {}

    Data* d() const { return static_cast<Data*>(CMRequest::d()); }
    const CMReply<QVariant>& reply() const { return d()->m_reply; }
    const QString& role() const { return d()->role; }
    const QVariant& value() const { return d()->value; }
};

/// The request as one of its four kinds; null when it is of another kind.
template <typename Request>
Request request_cast(const CMRequest& request)
{
    // No class derives from these: the very type decides, without a walk over bases.
    using Data = typename Request::Data;
    CMRequest::Data* const data = request.d();
    return data && typeid(*data) == typeid(Data) ? Request(static_cast<Data*>(data)) : Request();
}

Q_DECLARE_METATYPE(CMRequest)
Q_DECLARE_METATYPE(CMGetDataRequest)
Q_DECLARE_METATYPE(CMGetRowsRequest)
Q_DECLARE_METATYPE(CMMatchRowRequest)
Q_DECLARE_METATYPE(CMSetDataRequest)
