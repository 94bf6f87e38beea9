#pragma once

#include "core/model/cmreply.h"
#include "core/model/cmrpcreplywatcher.h"
#include "records/orvorpc.h"

#include <QByteArray>
#include <QLocalSocket>
#include <QObject>

/**
 * One end of the link between processes: frames JSON packets over a local stream socket and hands on what it receives.
 *
 * A packet is the magic bytes C0 FF EE 00, the size of the body as a 32-bit number in native byte order, and the body:
 * JSON in UTF-8 and a NUL. Lives in one thread. Nothing is retried: trouble is a log line, recovery belongs to the
 * socket's error and disconnected signals. Any handler may destroy this object.
 */
class CMRPCSocket : public QObject
{
    Q_OBJECT

public:
    /// A socket that is given is taken over; otherwise one is made. The remote name may be empty.
    CMRPCSocket(QObject* parent, const QString& name, const QString& remoteName, QLocalSocket* socket);
    ~CMRPCSocket() override;

    void sendRequest(const OrvoRequest& request);
    void sendReply(const OrvoReply& reply);
    void sendSubscribe(const OrvoSubscribe& subscribe);
    void sendChange(const OrvoChangeNotification& change);

    /// Where the service of that name listens.
    static QString socketPathFromPrefix(const QString& prefix);
    static QString stateToString(QLocalSocket::LocalSocketState state);
    static QString errorToString(QLocalSocket::LocalSocketError error);

    // The road of every packet: what derived classes take over, and where a test holds, reorders or drops packets.
    virtual void sendPacket(const OrvoRPCPacket& packet);
    virtual void processRequest(const OrvoRequest& request);
    virtual void processReply(const OrvoReply& reply);
    virtual void processSubscribe(const OrvoSubscribe& subscribe);
    virtual void processChange(const OrvoChangeNotification& change);

protected:
    QString name() const { return m_name; }
    QString remoteName() const { return m_remoteName; }
    /// Stands ahead of every log line.
    QString logName() const { return m_logName; }
    QLocalSocket* socket() const { return m_socket; }
    /// Drops what was received and not yet handed on.
    void forgetReceived();
    /// The reply to the request of that id ended, and its watcher goes.
    virtual void requestEnded(const QString& id, const CMVoidReply& reply);

protected slots:
    virtual void on_socket_error(QLocalSocket::LocalSocketError error);
    virtual void on_socket_connected();
    virtual void on_socket_disconnected();
    virtual void on_socket_readyRead();

private:
    friend class CMRPCReplyWatcher;

    enum class Next { GoOn, Stop };

    qint64 write(const char* bytes, qint64 size);
    bool mayWriteAtOnce();
    void receive();
    Next takePacket();
    bool dispatchPlain(const char* text, int length);
    void dispatch(const OrvoRPCPacket& packet);
    void dropConsumed();

    QByteArray m_buffer;
    /// How much of the buffer is handed on. Steps over a packet ahead of its handler, which may run an event loop.
    int m_consumed = 0;
    /// What was received is being handed on, and no handler has written past Qt's buffer.
    bool m_isAnswering = false;
    const QString m_name;
    const QString m_remoteName;
    const QString m_logName;
    QLocalSocket* const m_socket;
    CMRPCExpiryQueue m_expiry;
};

/// The failure as it goes out, and as it came in.
OrvoError orvoErrorFromCMError(const CMError& error);
CMError cmErrorFromOrvoError(const OrvoError& wire);
