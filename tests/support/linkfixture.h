#pragma once

#include "core/model/cmrequest.h"
#include "core/model/cmroles.h"
#include "core/model/cmrpccommon.h"
#include "core/model/cmworker.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalServer>
#include <QLocalSocket>
#include <QProcess>
#include <QtTest>

#include <cstring>
#include <functional>
#include <memory>

/// A service name of this test program alone, so that programs run side by side.
inline QString serviceName(const QString& what)
{
    return QStringLiteral("test-%1-%2").arg(what).arg(QCoreApplication::applicationPid());
}

/// A packet as it stands on the stream, written without the code under test.
inline QByteArray framed(const QByteArray& text)
{
    const quint32 size = quint32(text.size()) + 1;
    QByteArray bytes("\xC0\xFF\xEE\x00", 4);
    bytes.append(reinterpret_cast<const char*>(&size), 4);
    return bytes.append(text).append('\0');
}

inline QByteArray framed(const QJsonObject& packet)
{
    return framed(QJsonDocument(packet).toJson(QJsonDocument::Compact));
}

inline QJsonObject wireRequest(const QString& id, const QString& kind, const QJsonObject& fields)
{
    return {{"request", QJsonObject{{"id", id}, {kind, fields}}}};
}

inline QJsonObject wireGetData(const QString& id, const QString& path, const QJsonArray& roles = {"value"})
{
    return wireRequest(id, "getDataRequest", {{"path", path}, {"roles", roles}});
}

inline QJsonObject wireSubscribe(const QString& path, int type, bool on = true)
{
    return {{"subscribe", QJsonObject{{"path", path}, {"type", type}, {"subscribe", on}}}};
}

/// A hand-written end of the link: bytes out as they are given, packets in by its own reading of the stream.
class RawPeer : public QObject
{
public:
    explicit RawPeer(QLocalSocket* socket = new QLocalSocket) : m_socket(socket)
    {
        m_socket->setParent(this);
        connect(m_socket, &QLocalSocket::readyRead, this, &RawPeer::read);
        connect(m_socket, &QLocalSocket::disconnected, this, [this] { closed = true; });
        if (m_socket->isOpen())
            read();
    }

    bool connectTo(const QString& service)
    {
        m_socket->connectToServer(CMRPCSocket::socketPathFromPrefix(service));
        return m_socket->waitForConnected(5000);
    }
    void send(const QByteArray& bytes)
    {
        m_socket->write(bytes);
        m_socket->flush();
    }
    void send(const QJsonObject& packet) { send(framed(packet)); }
    void abort() { m_socket->abort(); }
    QLocalSocket* socket() const { return m_socket; }

    /// The packets under the key ("reply", "request", ...), in order.
    QList<QJsonObject> of(const QString& key) const
    {
        QList<QJsonObject> found;
        for (const QJsonObject& packet : packets)
            if (packet.contains(key))
                found.append(packet.value(key).toObject());
        return found;
    }
    QJsonObject replyTo(const QString& id) const
    {
        for (const QJsonObject& reply : of("reply"))
            if (reply.value("id").toString() == id)
                return reply;
        return {};
    }

    QList<QJsonObject> packets;
    /// The stream was not made of packets.
    bool broken = false;
    bool closed = false;

private:
    void read()
    {
        m_bytes += m_socket->readAll();
        while (m_bytes.size() >= 8 && !broken) {
            quint32 size;
            std::memcpy(&size, m_bytes.constData() + 4, 4);
            if (m_bytes.left(4) != QByteArray("\xC0\xFF\xEE\x00", 4)) {
                broken = true;
            } else {
                if (quint32(m_bytes.size()) - 8 < size)
                    return;
                const QByteArray body = m_bytes.mid(8, int(size));
                const QJsonDocument document = QJsonDocument::fromJson(body.chopped(1));
                broken = size == 0 || body.at(int(size) - 1) != '\0' || !document.isObject();
                packets.append(document.object());
                m_bytes.remove(0, 8 + int(size));
            }
        }
    }

    QLocalSocket* const m_socket;
    QByteArray m_bytes;
};

/// A hand-written service.
class RawServer : public QObject
{
public:
    explicit RawServer(const QString& service)
    {
        connect(&m_server, &QLocalServer::newConnection, this, [this] {
            while (QLocalSocket* socket = m_server.nextPendingConnection()) {
                peers.emplace_back(new RawPeer(socket));
                if (onPeer)
                    onPeer(peers.back().get());
            }
        });
        QLocalServer::removeServer(CMRPCSocket::socketPathFromPrefix(service));
        listens = m_server.listen(CMRPCSocket::socketPathFromPrefix(service));
    }

    /// The newest connection; null while nobody came.
    RawPeer* peer() const { return peers.empty() ? nullptr : peers.back().get(); }
    /// Breaks all connections and goes on listening.
    void breakLinks()
    {
        for (const auto& peer : peers)
            peer->abort();
        peers.clear();
    }

    std::vector<std::unique_ptr<RawPeer>> peers;
    std::function<void(RawPeer*)> onPeer;
    bool listens = false;

private:
    QLocalServer m_server;
};

/// The values of a node or row that has only an id, as all roles of it are read.
inline QVariantList rowValues(const QString& id)
{
    QVariantList values;
    for (const QString& role : CMAllRoles())
        values.append(role == OrvoRoles::Id() ? QVariant(id) : QVariant());
    return values;
}

/// A worker that keeps the requests it gets until the test finishes them. In one thread.
class ScriptedWorker : public CMWorker
{
public:
    explicit ScriptedWorker(const QHash<QString, QVariant>& arguments = {},
                            const QString& id = QStringLiteral("scripted"))
        : CMWorker(arguments, id)
    {}

    void getDataRequest(const CMGetDataRequest& request) override { take(request); }
    void getRowsRequest(const CMGetRowsRequest& request) override { take(request); }
    void matchRowRequest(const CMMatchRowRequest& request) override { take(request); }
    void setDataRequest(const CMSetDataRequest& request) override { take(request); }

    template <typename Request>
    Request last() const
    {
        return requests.isEmpty() ? Request() : request_cast<Request>(requests.last());
    }
    /// Forgets the requests; those still open fail.
    void clear()
    {
        QList<CMRequest> open;
        open.swap(requests);
        for (const CMRequest& request : open)
            request.reply().cancel();
        onRequest = nullptr;
    }

    QList<CMRequest> requests;
    std::function<void(const CMRequest&)> onRequest;

private:
    void take(const CMRequest& request)
    {
        requests.append(request);
        if (onRequest) {
            const auto function = onRequest;
            function(request);
        }
    }
};

/// The link server program as a child process.
class ServerProcess
{
public:
    explicit ServerProcess(const QString& service) : m_service(service) {}
    ~ServerProcess() { kill(); }

    /// True when it listens.
    bool start(const QStringList& arguments = {})
    {
        kill();
        m_process.reset(new QProcess);
        m_process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process->start(QCoreApplication::applicationDirPath() + "/linkserver", QStringList{m_service} + arguments);
        while (!m_process->canReadLine())
            if (!m_process->waitForReadyRead(20000))
                return false;
        return m_process->readLine() == "ready\n";
    }
    void kill()
    {
        if (!m_process)
            return;
        m_process->kill();
        m_process->waitForFinished();
        m_process.reset();
    }
    bool isRunning() const { return m_process && m_process->state() == QProcess::Running; }
    qint64 pid() const { return m_process ? m_process->processId() : 0; }

private:
    const QString m_service;
    std::unique_ptr<QProcess> m_process;
};

inline int openDescriptors(qint64 pid)
{
    return QDir(QStringLiteral("/proc/%1/fd").arg(pid))
        .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot)
        .size();
}

/// Resident memory in kilobytes.
inline int residentMemory(qint64 pid)
{
    QFile file(QStringLiteral("/proc/%1/status").arg(pid));
    file.open(QIODevice::ReadOnly);
    for (const QByteArray& line : file.readAll().split('\n'))
        if (line.startsWith("VmRSS:"))
            return line.mid(6).simplified().split(' ').first().toInt();
    return -1;
}

/// Objects that wait for their deletion go now.
inline void deleteWaiting()
{
    QCoreApplication::sendPostedEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}
