#pragma once

#include "core/orvoMsg.h"

/**
 * A block of audio samples on its way to another process.
 *
 * On the wire stand 32 bytes of header in the byte order of the device, and the samples as they are:
 *
 *     0  1 byte   1, the kind of message         10  6 bytes  0
 *     1  1 byte   the flush flag                 16  8 bytes  the time stamp
 *     2  2 bytes  0                              24  4 bytes  the size of the samples in bytes
 *     4  4 bytes  the sample rate                28  4 bytes  0
 *     8  1 byte   the channels                   32           the samples
 *     9  1 byte   16
 *
 * Belongs to one thread. The samples are not copied: they stay the caller's and have to live until the message is sent.
 */
class OrvoMsgAudioPayload : public OrvoMsg
{
    Q_OBJECT

public:
    static constexpr size_t HeaderSize = 32;

    void setFlushFlag(bool flushFlag) { m_flushFlag = flushFlag; }
    void setTimestamp(unsigned long timestamp) { m_timestamp = timestamp; }
    /// So many units of so many bytes. Without samples, or with a count of 0, the message is empty.
    void setSamples(const unsigned char* samples, unsigned long sampleCount, unsigned char bytesPerSample,
                    unsigned int sampleRate, unsigned char channels);

    size_t sizeInBytes() const override;
    /// Writes nothing and returns 0 for an empty message and for one that does not fit.
    size_t serialize(uint8_t* buffer, size_t capacity) const override;

private:
    bool m_flushFlag = false;
    const unsigned char* m_samples = nullptr;
    unsigned long m_sampleCount = 0;
    unsigned char m_bytesPerSample = 0;
    unsigned int m_sampleRate = 0;
    unsigned char m_channels = 0;
    unsigned long m_timestamp = 0;
};
