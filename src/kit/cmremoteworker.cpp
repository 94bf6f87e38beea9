#include "cmremoteworker.h"

#include "core/model/cmrequest.h"
#include "core/model/cmrpcclient.h"
#include "core/model/cmsubscribe.h"
#include "records/orvoconstants.h"

#include <utility>

namespace {

/// Paths of the service begin with its name, unless the application says otherwise.
QHash<QString, QVariant> withPrefix(QHash<QString, QVariant> arguments, const QString& remoteName)
{
    if (!arguments.contains(OrvoWorkerArguments::Prefix()))
        arguments.insert(OrvoWorkerArguments::Prefix(), CMPath::fromPrefix(remoteName).toEncoded());
    return arguments;
}

} // namespace

CMRemoteWorker::CMRemoteWorker(const QString& name, const QString& remoteName,
                               const QHash<QString, QVariant>& arguments)
    : CMWorker(withPrefix(arguments, remoteName), remoteName), m_client(new CMRPCClient(this, name, remoteName))
{
    CMSubscribe* hub = subscribe();
    // Directly, as the client's functions may be called in any thread.
    connect(hub, &CMSubscribe::valuePathAdded, m_client, &CMRPCClient::subscribeValuePath, Qt::DirectConnection);
    connect(hub, &CMSubscribe::valuePathRemoved, m_client, &CMRPCClient::unsubscribeValuePath, Qt::DirectConnection);
    connect(hub, &CMSubscribe::dataPathAdded, m_client, &CMRPCClient::subscribeDataPath, Qt::DirectConnection);
    connect(hub, &CMSubscribe::dataPathRemoved, m_client, &CMRPCClient::unsubscribeDataPath, Qt::DirectConnection);
    connect(hub, &CMSubscribe::rowsPathAdded, m_client, &CMRPCClient::subscribeRowsPath, Qt::DirectConnection);
    connect(hub, &CMSubscribe::rowsPathRemoved, m_client, &CMRPCClient::unsubscribeRowsPath, Qt::DirectConnection);
    connect(m_client, &CMRPCClient::valueChanged, hub, &CMSubscribe::valueChanged);
    connect(m_client, &CMRPCClient::dataChanged, hub, &CMSubscribe::dataChanged);
    connect(m_client, &CMRPCClient::rowsChanged, this, &CMRemoteWorker::on_client_rowsChanged);
}

CMRemoteWorker::~CMRemoteWorker()
{
    // Ends open requests while this still is a worker; whoever is told may ask again.
    delete std::exchange(m_client, nullptr);
}

void CMRemoteWorker::getDataRequest(const CMGetDataRequest& request)
{
    if (m_client)
        m_client->getDataRequest(request);
    else
        CMWorker::getDataRequest(request);
}

void CMRemoteWorker::getRowsRequest(const CMGetRowsRequest& request)
{
    if (m_client)
        m_client->getRowsRequest(request);
    else
        CMWorker::getRowsRequest(request);
}

void CMRemoteWorker::matchRowRequest(const CMMatchRowRequest& request)
{
    if (m_client)
        m_client->matchRowRequest(request);
    else
        request.reply().setError(createErrorInvalidPath(request.path()));
}

void CMRemoteWorker::setDataRequest(const CMSetDataRequest& request)
{
    if (m_client)
        m_client->setDataRequest(request);
    else
        CMWorker::setDataRequest(request);
}

void CMRemoteWorker::on_client_rowsChanged(const CMPath& path, const QStringList& changes, int version, int oldVersion)
{
    // Strings that wait in the hub go out in one delivery with these: it must begin where the first of them began.
    const int begin = subscribe()->rowsPending(path) ? -1 : oldVersion;
    subscribe()->rowsChanged(path, changes, version, begin);
}
