#pragma once

#include <QObject>

#include <cstddef>
#include <cstdint>

/**
 * A message that goes to another process as bytes, through an OrvoMsgPipeline.
 *
 * The sender owns it and keeps it unchanged while it is sent. Both operations are called in the sending thread, must
 * not block and should not allocate: they stand on the road of audio.
 */
class OrvoMsg : public QObject
{
    Q_OBJECT

public:
    OrvoMsg() = default;
    ~OrvoMsg() override;

    /// The size on the wire; 0 for a message that has nothing to send.
    virtual size_t sizeInBytes() const = 0;
    /// Writes the message, never beyond the capacity, and returns the bytes written: sizeInBytes() when all went well.
    virtual size_t serialize(uint8_t* buffer, size_t capacity) const = 0;
};
