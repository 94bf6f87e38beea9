#pragma once

#include <cstdint>
#include <memory>
#include <string>

struct AudioBlock;
class SndfileHandle;

/**
 * Writes the blocks of a stream into a WAV file and tells on standard output how the stream went: its format, flushes,
 * gaps and its end. Lives in one thread. The file is made with the first samples and is whole after each block.
 */
class Recording
{
public:
    explicit Recording(const std::string& file);
    ~Recording();

    /// Returns what went wrong, an empty text otherwise.
    std::string take(const AudioBlock& block);
    /// Whether the end of a stream was the last that came.
    bool isAtEnd() const { return m_isAtEnd; }
    void close();

private:
    std::string write(const AudioBlock& block);

    const std::string m_file;
    std::unique_ptr<SndfileHandle> m_wav;
    uint64_t m_next = 0;
    uint64_t m_frames = 0;
    uint64_t m_blocks = 0;
    bool m_isInStream = false;
    bool m_isAtEnd = false;
};
