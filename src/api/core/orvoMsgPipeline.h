#pragma once

#include <QObject>
#include <QString>

#include <cstdint>

class OrvoMsg;

/// How sending a message ended.
struct OrvoMsgStatus
{
    enum Type {
        Sent = 1,
        /// No URI was set, or the socket could not be made.
        NoSocket = 11,
        /// The reader takes nothing now; only where sending does not block.
        TryAgain = 12,
        TooBig = 13,
        /// The message wrote another number of bytes than it had told.
        SerializationFailed = 14,
        Empty = 15,
        SendFailed = 16,
    };
};

/**
 * The sending end of a nanomsg pipeline ("push") to one other process, for audio above all.
 *
 * Belongs to one thread at a time. Sending blocks the caller until the reader takes the message, without limit when
 * there is no reader, unless setNonBlock() says otherwise; nothing is queued here, and nothing of this object is
 * allocated while a message is sent. A reader may come, go and come back. What lies between the two ends when one of
 * them closes is lost, and no answer tells how far the reader is: the sender of a last message stays for a while.
 */
class OrvoMsgPipeline : public QObject
{
    Q_OBJECT

public:
    /// Bytes of one message at most.
    static constexpr size_t MaxMessageSize = 8192;

    OrvoMsgPipeline() = default;
    ~OrvoMsgPipeline() override;

    /// Connects to where the reader listens, for instance "ipc:///tmp/audio" or "tcp://127.0.0.1:5000".
    void setURI(const QString& uri);
    /// With true, a message that the reader cannot take now is given back as TryAgain.
    void setNonBlock(bool nonBlock) { m_nonBlock = nonBlock; }
    OrvoMsgStatus::Type sendMsg(const OrvoMsg& msg);
    /// Closes and connects anew.
    void reset();
    void close();

private:
    QString m_uri;
    int m_sock = -1;
    int m_eid = -1;
    bool m_nonBlock = false;
    uint8_t m_buffer[MaxMessageSize];
};
