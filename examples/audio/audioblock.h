#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// A received audio message, read in place: it lives no longer than its bytes.
struct AudioBlock
{
    bool flush = false;
    uint32_t rate = 0;
    unsigned channels = 0;
    /// The number of the first frame.
    uint64_t timestamp = 0;
    size_t frames = 0;
    /// Interleaved samples of 16 bits; perhaps not aligned.
    const uint8_t* samples = nullptr;
};

/// Reads a message. Returns what is wrong with it, an empty text for a good one.
std::string readAudioBlock(const uint8_t* bytes, size_t size, AudioBlock& block);
