#include "core/model/cmrpccommon.h"

#include "core/orvo.h"
#include "core/orvoJson_p.h"
#include "core/orvoLanguage.h"
#include "core/orvoLog_p.h"
#include "records/orvoconstants.h"

#include <QPointer>

#include <algorithm>
#include <cstring>
#include <sys/socket.h>

namespace {

ORVO_LOGGER("CMRPCSocket")

constexpr unsigned char magic[4] = {0xC0, 0xFF, 0xEE, 0x00};
constexpr int headerSize = 8;
constexpr int firstCapacity = 4 * 1024;
/// A packet has no limit of its own, but a buffer cannot grow past what its type can tell.
constexpr qint64 mostReceived = qint64(1) << 30;
/// Beyond this the memory of a consumed buffer is given back.
constexpr int keptCapacity = 64 * 1024;

quint32 bodySize(const char* header)
{
    quint32 size;
    std::memcpy(&size, header + sizeof magic, sizeof size);
    return size;
}

} // namespace

CMRPCSocket::CMRPCSocket(QObject* parent, const QString& name, const QString& remoteName, QLocalSocket* socket)
    : QObject(parent),
      m_name(name),
      m_remoteName(remoteName),
      m_logName(remoteName.isEmpty() ? name : name + QStringLiteral(" -> ") + remoteName),
      m_socket(socket ? socket : new QLocalSocket(this))
{
    m_socket->setParent(this);
    m_buffer.reserve(firstCapacity);
    orvoConnect(m_socket, SIGNAL(error(QLocalSocket::LocalSocketError)), this,
                                 SLOT(on_socket_error(QLocalSocket::LocalSocketError)));
    orvoConnect(m_socket, SIGNAL(connected()), this, SLOT(on_socket_connected()));
    orvoConnect(m_socket, SIGNAL(disconnected()), this, SLOT(on_socket_disconnected()));
    orvoConnect(m_socket, SIGNAL(readyRead()), this, SLOT(on_socket_readyRead()));
}

CMRPCSocket::~CMRPCSocket()
{
    // This may run inside one of the socket's signals, which Qt does not let it survive; it goes a turn later.
    m_socket->disconnect(this);
    m_socket->setParent(nullptr);
    m_socket->flush();
    m_socket->abort();
    m_socket->deleteLater();
}

void CMRPCSocket::sendRequest(const OrvoRequest& request)
{
    sendPacket(OrvoRPCPacket().setRequest(request));
}

void CMRPCSocket::sendReply(const OrvoReply& reply)
{
    sendPacket(OrvoRPCPacket().setReply(reply));
}

void CMRPCSocket::sendSubscribe(const OrvoSubscribe& subscribe)
{
    sendPacket(OrvoRPCPacket().setSubscribe(subscribe));
}

void CMRPCSocket::sendChange(const OrvoChangeNotification& change)
{
    sendPacket(OrvoRPCPacket().setChange(change));
}

QString CMRPCSocket::socketPathFromPrefix(const QString& prefix)
{
    return OrvoRPCSocketPrefix() + prefix + OrvoRPCSocketSuffix();
}

QString CMRPCSocket::stateToString(QLocalSocket::LocalSocketState state)
{
    switch (state) {
    case QLocalSocket::UnconnectedState:
        return QStringLiteral("Unconnected");
    case QLocalSocket::ConnectingState:
        return QStringLiteral("Connecting");
    case QLocalSocket::ConnectedState:
        return QStringLiteral("Connected");
    case QLocalSocket::ClosingState:
        return QStringLiteral("Closing");
    }
    return QStringLiteral("Unknown");
}

QString CMRPCSocket::errorToString(QLocalSocket::LocalSocketError error)
{
    switch (int(error)) {
    case QLocalSocket::ConnectionRefusedError:
        return QStringLiteral("Connection refused");
    case QLocalSocket::PeerClosedError:
        return QStringLiteral("Connection closed by peer");
    case QLocalSocket::ServerNotFoundError:
        return QStringLiteral("Server not found");
    case QLocalSocket::SocketAccessError:
        return QStringLiteral("Lacking socket privileges");
    case QLocalSocket::SocketResourceError:
        return QStringLiteral("Too many sockets");
    case QLocalSocket::SocketTimeoutError:
        return QStringLiteral("Socket timeout");
    case QLocalSocket::DatagramTooLargeError:
        return QStringLiteral("Datagram too large");
    case QLocalSocket::ConnectionError:
        return QStringLiteral("Connection error");
    case QLocalSocket::UnsupportedSocketOperationError:
        return QStringLiteral("Unsupported socket operation");
    default:
        return QStringLiteral("Unknown error");
    }
}

void CMRPCSocket::sendPacket(const OrvoRPCPacket& packet)
{
    QByteArray frame = orvoJson::serializeBehind(headerSize, packet.__variant());
    // A QByteArray ends with a NUL of its own.
    const qint64 frameSize = frame.size() + 1;
    const quint32 size = quint32(frameSize - headerSize);
    std::memcpy(frame.data(), magic, sizeof magic);
    std::memcpy(frame.data() + sizeof magic, &size, sizeof size);
    const qint64 written = write(frame.constData(), frameSize);
    if (written < qint64(sizeof magic))
        LOG4CPLUS_ERROR(logger(), m_logName << ": Error writing MAGIC to socket!");
    else if (written < headerSize)
        LOG4CPLUS_ERROR(logger(), m_logName << ": Error writing size to socket!");
    else if (written < frameSize)
        LOG4CPLUS_ERROR(logger(), m_logName << ": Error writing data to socket!");
}

/**
 * The answer to a packet behind which no other waits goes straight to the kernel, which saves a single request the way
 * through Qt's buffer and notifier. Packets that come in numbers are gathered in that buffer and leave in one piece.
 */
qint64 CMRPCSocket::write(const char* bytes, qint64 size)
{
    qint64 sent = 0;
    if (mayWriteAtOnce()) {
        // What is wrong with the connection Qt finds out and tells when it gets the rest.
        sent = std::max<qint64>(
            0, send(int(m_socket->socketDescriptor()), bytes, size_t(size), MSG_DONTWAIT | MSG_NOSIGNAL));
        if (sent == size)
            return sent;
    }
    const qint64 buffered = m_socket->write(bytes + sent, size - sent);
    return buffered < 0 ? (sent ? sent : -1) : sent + buffered;
}

bool CMRPCSocket::mayWriteAtOnce()
{
    if (!m_isAnswering || m_consumed < m_buffer.size() || m_socket->bytesToWrite() > 0)
        return false;
    m_isAnswering = false;
    return m_socket->state() == QLocalSocket::ConnectedState;
}

void CMRPCSocket::processRequest(const OrvoRequest& request)
{
    LOG4CPLUS_ERROR(logger(), m_logName << ": Request not handled, discarding: " << request);
}

void CMRPCSocket::processReply(const OrvoReply& reply)
{
    LOG4CPLUS_ERROR(logger(), m_logName << ": Reply not handled, discarding: " << reply);
}

void CMRPCSocket::processSubscribe(const OrvoSubscribe& subscribe)
{
    LOG4CPLUS_ERROR(logger(), m_logName << ": Subscribe not handled, discarding: " << subscribe);
}

void CMRPCSocket::processChange(const OrvoChangeNotification& change)
{
    LOG4CPLUS_ERROR(logger(), m_logName << ": Change notification not handled, discarding: " << change);
}

void CMRPCSocket::on_socket_error(QLocalSocket::LocalSocketError error)
{
    if (error == QLocalSocket::PeerClosedError)
        LOG4CPLUS_INFO(logger(), m_logName << ": Socket error occured: " << errorToString(error));
    else
        LOG4CPLUS_ERROR(logger(), m_logName << ": Socket error occured: " << errorToString(error));
}

void CMRPCSocket::on_socket_connected()
{
    LOG4CPLUS_INFO(logger(), m_logName << ": Socket connected");
}

void CMRPCSocket::on_socket_disconnected()
{
    LOG4CPLUS_INFO(logger(), m_logName << ": Socket disconnected");
}

void CMRPCSocket::on_socket_readyRead()
{
    const QPointer<CMRPCSocket> alive(this);
    m_isAnswering = true;
    // Again for what arrived while a handler ran an event loop: the socket does not tell of it a second time.
    do {
        receive();
        if (!alive)
            return;
        while (takePacket() == Next::GoOn) {
            if (!alive)
                return;
        }
        dropConsumed();
    } while (m_socket->bytesAvailable() > 0);
    m_isAnswering = false;
    // What the handlers wrote leaves now, in one piece, without another turn of the event loop.
    if (m_socket->bytesToWrite() > 0)
        m_socket->flush();
}

void CMRPCSocket::receive()
{
    const qint64 waiting = m_socket->bytesAvailable();
    if (m_buffer.size() + waiting > mostReceived) {
        LOG4CPLUS_ERROR(logger(), m_logName << ": More received than can be held, closing the link");
        forgetReceived();
        m_socket->abort();
        return;
    }
    const int available = int(waiting);
    const int filled = m_buffer.size();
    m_buffer.resize(filled + available);
    const qint64 read = m_socket->read(m_buffer.data() + filled, available);
    m_buffer.resize(filled + int(qMax<qint64>(read, 0)));
}

CMRPCSocket::Next CMRPCSocket::takePacket()
{
    const char* packet = m_buffer.constData() + m_consumed;
    const int left = m_buffer.size() - m_consumed;
    if (left < headerSize)
        return Next::Stop;
    if (std::memcmp(packet, magic, sizeof magic) != 0) {
        LOG4CPLUS_ERROR(logger(), m_logName << ": Invalid magic field in the received packet: "
                                            << QByteArray(packet, sizeof magic).toHex());
        m_consumed = m_buffer.size();
        return Next::Stop;
    }
    const quint32 size = bodySize(packet);
    if (size > quint32(left - headerSize))
        return Next::Stop;

    // The text ends at its NUL, whatever the size says, but within what was received.
    const char* text = packet + headerSize;
    const int length = int(strnlen(text, size_t(left - headerSize)));
    m_consumed += headerSize + int(size);
    if (dispatchPlain(text, length))
        return Next::GoOn;
    OrvoError error;
    const QVariant parsed = orvoJson::parse(text, length, error);
    if (!error.isEmpty()) {
        LOG4CPLUS_ERROR(logger(), m_logName << ": Error parsing JSON: " << error.message());
        // The packets behind it wait for the next bytes.
        return Next::Stop;
    }
    dispatch(OrvoRPCPacket(parsed));
    return Next::GoOn;
}

/// A packet as we print it: its one member is parsed alone, without a hash around it. False for any other text.
bool CMRPCSocket::dispatchPlain(const char* text, int length)
{
    struct Kind
    {
        QByteArray head;
        void (*process)(CMRPCSocket* self, const QVariant& record);
    };
    const auto headOf = [](const QString& key) { return QByteArray("{\"" + key.toLatin1() + "\":"); };
    static const Kind kinds[] = {
        {headOf(OrvoRPCPacket::Request()),
         [](CMRPCSocket* self, const QVariant& record) { self->processRequest(OrvoRequest(record)); }},
        {headOf(OrvoRPCPacket::Reply()),
         [](CMRPCSocket* self, const QVariant& record) { self->processReply(OrvoReply(record)); }},
        {headOf(OrvoRPCPacket::Subscribe()),
         [](CMRPCSocket* self, const QVariant& record) { self->processSubscribe(OrvoSubscribe(record)); }},
        {headOf(OrvoRPCPacket::Change()),
         [](CMRPCSocket* self, const QVariant& record) { self->processChange(OrvoChangeNotification(record)); }},
    };
    for (const Kind& kind : kinds) {
        const int size = kind.head.size();
        if (length <= size + 1 || std::memcmp(text, kind.head.constData(), size_t(size)) != 0)
            continue;
        const char* const record = text + size;
        if (record[0] != '{' || text[length - 1] != '}')
            return false;
        // Anything behind the member, or twice it, is an error here and is read in full by the caller.
        OrvoError error;
        const QVariant parsed = orvoJson::parse(record, length - size - 1, error);
        if (!error.isEmpty())
            return false;
        kind.process(this, parsed);
        return true;
    }
    return false;
}

void CMRPCSocket::dispatch(const OrvoRPCPacket& packet)
{
    if (packet.__contains(OrvoRPCPacket::Request()))
        processRequest(packet.request());
    else if (packet.__contains(OrvoRPCPacket::Reply()))
        processReply(packet.reply());
    else if (packet.__contains(OrvoRPCPacket::Subscribe()))
        processSubscribe(packet.subscribe());
    else if (packet.__contains(OrvoRPCPacket::Change()))
        processChange(packet.change());
    else
        LOG4CPLUS_ERROR(logger(), m_logName << ": Invalid packet received: " << packet);
}

void CMRPCSocket::dropConsumed()
{
    m_buffer.remove(0, m_consumed);
    m_consumed = 0;
    if (m_buffer.isEmpty() && m_buffer.capacity() > keptCapacity) {
        m_buffer = QByteArray();
        m_buffer.reserve(firstCapacity);
    }
}

void CMRPCSocket::requestEnded(const QString&, const CMVoidReply&) {}

void CMRPCSocket::forgetReceived()
{
    m_consumed = m_buffer.size();
    dropConsumed();
}

OrvoError orvoErrorFromCMError(const CMError& error)
{
    OrvoError wire;
    wire.setName(error.name());
    wire.setMessage(error.message());
    wire.setTitle(error.title());
    if (error.contains(CMError::ActionReply()))
        wire.__insert(OrvoError::ActionReply(), error.value(CMError::ActionReply()));
    return wire;
}

CMError cmErrorFromOrvoError(const OrvoError& wire)
{
    CMError error(wire.name(), TrString(wire.message()).toString(), TrString(wire.title()).toString());
    error.insert(CMError::ActionReply(), wire.actionReply().__variant());
    return error;
}
