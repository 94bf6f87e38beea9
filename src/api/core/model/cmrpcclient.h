#pragma once

#include "core/model/cmpath.h"
#include "core/model/cmrpccommon.h"
#include "core/model/cmversion.h"

#include <QHash>
#include <QList>
#include <QSet>
#include <QTimer>

class CMGetDataRequest;
class CMGetRowsRequest;
class CMMatchRowRequest;
class CMSetDataRequest;

/**
 * The client end of the link to one named service: the four requests and subscriptions by kind over one socket.
 *
 * Tries to connect from its construction on, at a fixed interval and without an end, and holds back what cannot be
 * sent yet. When the link breaks, open requests end with the cancel error, subscriptions are made anew, data and rows
 * paths are reported at once (rows as a reset) and value paths are read again. It is no worker: its owner connects
 * valueChanged, dataChanged and rowsChanged to a change hub.
 *
 * The public functions may be called in any thread; all state is touched in the client's own thread, which calls of
 * others reach through queued private signals. Its owner may destroy it inside any of its signals.
 */
class CMRPCClient : public CMRPCSocket
{
    Q_OBJECT

public:
    /// `name` is this client's, and goes into the ids of its requests; `remoteName` is the service's.
    CMRPCClient(QObject* parent, const QString& name, const QString& remoteName);
    ~CMRPCClient() override;

    void getDataRequest(const CMGetDataRequest& request);
    void setDataRequest(const CMSetDataRequest& request);
    void getRowsRequest(const CMGetRowsRequest& request);
    void matchRowRequest(const CMMatchRowRequest& request);

    // A path stands for one subscription: a second one is refused with a log line.
    void subscribeValuePath(const CMPath& path);
    void subscribeDataPath(const CMPath& path);
    void subscribeRowsPath(const CMPath& path);
    void unsubscribeValuePath(const CMPath& path);
    void unsubscribeDataPath(const CMPath& path);
    void unsubscribeRowsPath(const CMPath& path);

    /// Ends all open requests with the cancel error; the service is not told. In the client's thread.
    void cancelAllRequests();
    bool isConnected() const { return socket()->state() == QLocalSocket::ConnectedState; }

    /// Holds the packet back while the link is down, without a limit.
    void sendPacket(const OrvoRPCPacket& packet) override;
    void processReply(const OrvoReply& reply) override;
    void processChange(const OrvoChangeNotification& change) override;

signals:
    void sendRequestPrivate(OrvoRequest request, const CMVoidReply& reply);
    void subscribePathPrivate(const OrvoSubscribe& subscribe);
    void valueChanged(const CMPath& path, const QVariant& value);
    void dataChanged(const CMPath& path);
    void rowsChanged(const CMPath& path, const QStringList& changes, int version, int oldVersion);
    /// The link stands, or broke. In the client's thread.
    void connectedChanged(bool connected);

protected:
    void requestEnded(const QString& requestId, const CMVoidReply& reply) override;

protected slots:
    void on_socket_error(QLocalSocket::LocalSocketError error) override;
    void on_socket_connected() override;
    void on_socket_disconnected() override;

private slots:
    void on_sendRequest_private(OrvoRequest request, const CMVoidReply& reply);
    void on_subscribePath_private(const OrvoSubscribe& subscribe);
    void on_reconnectTimer_timeout();

private:
    void startRequest(OrvoRequest& request, const CMVoidReply& reply);
    QString nextRequestId();
    void subscribePath(OrvoSubscribeType::Enum type, const CMPath& path, bool subscribe);
    QSet<CMPath>* pathsOf(OrvoSubscribeType::Enum type);
    void readValueAgain(const CMPath& path);

    /// Open requests by their ids. Each watcher belongs to itself.
    QHash<QString, CMRPCReplyWatcher*> m_requests;
    CMVersion m_version;
    QTimer m_reconnectTimer;
    QList<OrvoRPCPacket> m_pendingPackets;
    QSet<CMPath> m_valuePaths;
    QSet<CMPath> m_dataPaths;
    QSet<CMPath> m_rowsPaths;
    /// What a broken link still has to subscribe anew: whoever is told of the break may change the sets meanwhile.
    QSet<CMPath> m_dataPathsToRenew;
    QSet<CMPath> m_rowsPathsToRenew;
};
