#include "audioblock.h"

#include "core/orvoMsgAudioPayload.h"

#include <cstring>

namespace {

template <typename Number>
Number numberAt(const uint8_t* bytes)
{
    Number number;
    std::memcpy(&number, bytes, sizeof number);
    return number;
}

} // namespace

std::string readAudioBlock(const uint8_t* bytes, size_t size, AudioBlock& block)
{
    constexpr size_t header = OrvoMsgAudioPayload::HeaderSize;
    if (size < header)
        return "shorter than a header";
    if (bytes[0] != 1)
        return "no audio";
    if (bytes[9] != 16)
        return "samples of another size";
    block.flush = bytes[1];
    block.rate = numberAt<uint32_t>(bytes + 4);
    block.channels = bytes[8];
    block.timestamp = numberAt<uint64_t>(bytes + 16);
    if (numberAt<uint32_t>(bytes + 24) != size - header)
        return "not as long as it says";
    if (block.rate == 0 || block.channels == 0)
        return "neither rate nor channels may be 0";
    const size_t frameSize = block.channels * sizeof(int16_t);
    if ((size - header) % frameSize != 0)
        return "ends inside of a frame";
    block.frames = (size - header) / frameSize;
    block.samples = bytes + header;
    return std::string();
}
