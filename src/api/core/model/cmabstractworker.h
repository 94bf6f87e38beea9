#pragma once

#include "core/model/cmerror.h"
#include "core/model/cmreply.h"

#include <QHash>
#include <QObject>
#include <QStringList>
#include <QVariant>

#include <iosfwd>

class CMGetDataRequest;
class CMGetRowsRequest;
class CMMatchRowRequest;
class CMPath;
class CMRequest;
class CMSetDataRequest;
class OrvoHash;
class OrvoRoles;
class OrvoValue;

/**
 * The interface to the content model: four kinds of request, and subscriptions to three kinds of change.
 *
 * Callers use the convenience calls, which make the request and return its reply at once; who serves overrides the
 * virtual operations. The application owns its workers. Any thread may call a worker; an override must not block the
 * caller, must finish each request's reply on every path, and must not throw. Failures travel in the reply only.
 */
class CMAbstractWorker : public QObject
{
    Q_OBJECT

public:
    enum ChangeType {
        ValueChange = 0,
        DataChange = 1,
        RowsChange = 2,
    };

    explicit CMAbstractWorker(const QHash<QString, QVariant>& arguments = QHash<QString, QVariant>(),
                              QObject* parent = nullptr);
    ~CMAbstractWorker() override;

    const QHash<QString, QVariant>& arguments() const { return m_arguments; }
    /// A key that applications may use in the arguments; nothing here reads it.
    static QString Prefix() { return QStringLiteral("workerPrefix"); }

    /// Hands the request to the virtual operation of its kind.
    virtual void request(CMRequest request);
    /// Finishes the reply, from the worker's own thread where the worker has one to prove alive.
    virtual void ping(const CMSetDataRequest& request);
    /// Makes all threads of the process write their stacks.
    virtual void trace();
    virtual void getDataRequest(const CMGetDataRequest& request) = 0;
    virtual void getRowsRequest(const CMGetRowsRequest& request) = 0;
    virtual void matchRowRequest(const CMMatchRowRequest& request) = 0;
    virtual void setDataRequest(const CMSetDataRequest& request) = 0;

    // Subscriptions. The method takes any head of the signal's arguments: (CMPath, QVariant) for values, (CMPath) for
    // data, (CMPath, QStringList changes, int version, int oldVersion) for rows. A receiver that dies is dropped.
    virtual void connectValueChange(const CMPath& path, QObject* receiver, const char* method,
                                    Qt::ConnectionType type = Qt::AutoConnection);
    virtual void disconnectValueChange(const CMPath& path, QObject* receiver, const char* method);
    virtual void connectDataChange(const CMPath& path, QObject* receiver, const char* method,
                                   Qt::ConnectionType type = Qt::AutoConnection);
    virtual void disconnectDataChange(const CMPath& path, QObject* receiver, const char* method);
    virtual void connectRowsChange(const CMPath& path, QObject* receiver, const char* method,
                                   Qt::ConnectionType type = Qt::AutoConnection);
    virtual void disconnectRowsChange(const CMPath& path, QObject* receiver, const char* method);
    virtual void connectChange(CMAbstractWorker::ChangeType changeType, const CMPath& path, QObject* receiver,
                               const char* method, Qt::ConnectionType type = Qt::AutoConnection) = 0;
    /// Takes away one connection of the receiver's method.
    virtual void disconnectChange(CMAbstractWorker::ChangeType changeType, const CMPath& path, QObject* receiver,
                                  const char* method) = 0;

    CMReply<QVariantList> getData(const CMPath& path, const QStringList& roles,
                                  const CMReply<QVariantList>& reply = CMReply<QVariantList>());
    /**
     * Blocks, without limit, until the value is there: not for the thread that has to answer. An invalid variant when
     * the request failed.
     */
    QVariant getValue(const CMPath& path);
    CMReply<OrvoRowsRoles> getRows(const CMPath& path, int fromRow, int toRow, int rowsVersion,
                                   const QStringList& roles,
                                   const CMReply<OrvoRowsRoles>& reply = CMReply<OrvoRowsRoles>());
    CMReply<int> matchRow(const CMPath& path, int fromRow, const QString& role, const QVariant& value, int matchFlags,
                          int rowsVersion, const CMReply<int>& reply = CMReply<int>());
    CMReply<QVariant> setData(const CMPath& path, const QString& role, const QVariant& value,
                              const CMReply<QVariant>& reply = CMReply<QVariant>());
    CMReply<QVariant> setValue(const CMPath& path, const QVariant& value,
                               const CMReply<QVariant>& reply = CMReply<QVariant>());
    CMReply<QVariant> setValue(const CMPath& path, const OrvoValue& value,
                               const CMReply<QVariant>& reply = CMReply<QVariant>());
    CMReply<QVariant> setRoles(const CMPath& path, const OrvoRoles& roles,
                               const CMReply<QVariant>& reply = CMReply<QVariant>());
    CMReply<QVariant> invoke(const CMPath& path, const QVariant& value,
                             const CMReply<QVariant>& reply = CMReply<QVariant>());
    CMReply<QVariant> invoke(const CMPath& path, const OrvoHash& hash,
                             const CMReply<QVariant>& reply = CMReply<QVariant>());
    /// Negates a bool value.
    CMReply<QVariant> valueToggle(const CMPath& path, const CMReply<QVariant>& reply = CMReply<QVariant>());
    /// Adds so many steps of the value's edit record; negative ones go down.
    CMReply<QVariant> valueAddSteps(const CMPath& path, int steps,
                                    const CMReply<QVariant>& reply = CMReply<QVariant>());

    static QString ErrorInternal() { return QStringLiteral("CMAbstractWorker::internal"); }
    static QString ErrorInvalidPath() { return QStringLiteral("CMAbstractWorker::invalidPath"); }
    static QString ErrorInvalidRowsVersion() { return QStringLiteral("CMAbstractWorker::invalidRowsVersion"); }
    static QString ErrorInvalidArgument() { return QStringLiteral("CMAbstractWorker::invalidArgument"); }

    static CMError createErrorInternal(const QString& message);
    static CMError createErrorInvalidPath(const CMPath& path);
    static CMError createErrorInvalidRowsVersion(const CMPath& path, int asked, int present);
    static CMError createErrorInvalidArgument(const QString& name, const QString& value);

private:
    const QHash<QString, QVariant> m_arguments;
};

std::ostream& operator<<(std::ostream& stream, CMAbstractWorker::ChangeType type);

Q_DECLARE_METATYPE(CMAbstractWorker::ChangeType)
