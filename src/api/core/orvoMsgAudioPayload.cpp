#include "core/orvoMsgAudioPayload.h"

#include "core/orvoLog_p.h"

#include <cstring>
#include <limits>

namespace {

ORVO_LOGGER("OrvoMsgAudioPayload")

struct Header
{
    uint8_t kind = 1;
    uint8_t flushFlag = 0;
    uint8_t reserved2[2] = {};
    uint32_t sampleRate = 44100;
    uint8_t channels = 2;
    uint8_t sampleBits = 16;
    uint8_t reserved10[6] = {};
    uint64_t timestamp = 0;
    uint32_t size = 0;
    uint8_t reserved28[4] = {};
};
static_assert(sizeof(Header) == OrvoMsgAudioPayload::HeaderSize, "no padding");
static_assert(offsetof(Header, timestamp) == 16 && offsetof(Header, size) == 24, "the layout on the wire");

} // namespace

void OrvoMsgAudioPayload::setSamples(const unsigned char* samples, unsigned long sampleCount,
                                     unsigned char bytesPerSample, unsigned int sampleRate, unsigned char channels)
{
    m_samples = samples;
    m_sampleCount = sampleCount;
    m_bytesPerSample = bytesPerSample;
    m_sampleRate = sampleRate;
    m_channels = channels;
}

size_t OrvoMsgAudioPayload::sizeInBytes() const
{
    if (!m_samples || m_sampleCount == 0)
        return 0;
    // A count beyond all memory must not come out as a small message.
    constexpr size_t max = std::numeric_limits<size_t>::max();
    if (m_bytesPerSample > 0 && m_sampleCount > (max - HeaderSize) / m_bytesPerSample)
        return max;
    return m_bytesPerSample * m_sampleCount + HeaderSize;
}

size_t OrvoMsgAudioPayload::serialize(uint8_t* buffer, size_t capacity) const
{
    const size_t total = sizeInBytes();
    if (total == 0 || total > capacity)
        return 0;
    Header header;
    header.flushFlag = m_flushFlag;
    header.sampleRate = m_sampleRate;
    header.channels = m_channels;
    header.timestamp = m_timestamp;
    header.size = static_cast<uint32_t>(total - HeaderSize);
    std::memcpy(buffer, &header, HeaderSize);
    std::memcpy(buffer + HeaderSize, m_samples, total - HeaderSize);
    LOG4CPLUS_DEBUG(logger(), "Audio Msg bytes: " << total);
    return total;
}
