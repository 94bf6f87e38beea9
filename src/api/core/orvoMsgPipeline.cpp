#include "core/orvoMsgPipeline.h"

#include "core/orvoLog_p.h"
#include "core/orvoMsg.h"

#include <cerrno>
#include <nanomsg/nn.h>
#include <nanomsg/pipeline.h>

namespace {

ORVO_LOGGER("OrvoMsgPipeline")

/// What the last call of nanomsg failed with.
void logFailure(const char* what)
{
    const int error = nn_errno();
    LOG4CPLUS_DEBUG(logger(), what << ", errno: " << error);
}

} // namespace

OrvoMsgPipeline::~OrvoMsgPipeline()
{
    close();
}

void OrvoMsgPipeline::setURI(const QString& uri)
{
    m_uri = uri;
    reset();
}

void OrvoMsgPipeline::reset()
{
    close();
    m_sock = nn_socket(AF_SP, NN_PUSH);
    if (m_sock < 0) {
        logFailure("Error create socket");
        return;
    }
    LOG4CPLUS_DEBUG(logger(), "Using URI " << m_uri);
    m_eid = nn_connect(m_sock, m_uri.toUtf8().constData());
    if (m_eid < 0)
        logFailure("Error connect endpoint");
}

void OrvoMsgPipeline::close()
{
    if (m_sock < 0)
        return;
    if (m_eid >= 0 && nn_shutdown(m_sock, m_eid) < 0)
        logFailure("Error shutdown endpoint");
    if (nn_close(m_sock) < 0)
        logFailure("Error close socket");
    m_sock = -1;
    m_eid = -1;
}

OrvoMsgStatus::Type OrvoMsgPipeline::sendMsg(const OrvoMsg& msg)
{
    if (m_sock < 0 && m_eid < 0) {
        LOG4CPLUS_DEBUG(logger(), "Error socket invalid: sock " << m_sock << ", eid " << m_eid);
        return OrvoMsgStatus::NoSocket;
    }
    const size_t size = msg.sizeInBytes();
    if (size == 0) {
        LOG4CPLUS_DEBUG(logger(), "Error packet empty");
        return OrvoMsgStatus::Empty;
    }
    if (size > MaxMessageSize) {
        LOG4CPLUS_DEBUG(logger(), "Error packet to big!");
        return OrvoMsgStatus::TooBig;
    }
    const size_t serialized = msg.serialize(m_buffer, size);
    if (serialized != size) {
        LOG4CPLUS_DEBUG(logger(),
                        "Error serialization length inconsistent! expect: " << size << " got: " << serialized);
        return OrvoMsgStatus::SerializationFailed;
    }
    const int sent = nn_send(m_sock, m_buffer, size, m_nonBlock ? NN_DONTWAIT : 0);
    if (sent < 0) {
        const int error = nn_errno();
        if (error == EAGAIN) {
            LOG4CPLUS_DEBUG(logger(), "Error sending packet, try again.");
            return OrvoMsgStatus::TryAgain;
        }
        LOG4CPLUS_DEBUG(logger(), "Error sending packet, errno: " << error);
        return OrvoMsgStatus::SendFailed;
    }
    if (static_cast<size_t>(sent) < size) {
        LOG4CPLUS_DEBUG(logger(), "Error to few bytes sent! serialized: " << size << ", sent: " << sent);
        reset();
        return OrvoMsgStatus::SendFailed;
    }
    return OrvoMsgStatus::Sent;
}
