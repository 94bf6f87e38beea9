#pragma once

#include <cstdint>
#include <sndfile.hh>
#include <string>
#include <vector>

/// Decodes a sound file of any kind that libsndfile knows to 16 bits a sample. Lives in one thread.
class SoundReader
{
public:
    explicit SoundReader(const std::string& file);

    /// Empty when the file is open.
    std::string error() const;
    unsigned rate() const { return unsigned(m_file.samplerate()); }
    unsigned channels() const { return unsigned(m_file.channels()); }

    /// The next frames, interleaved; fewer than asked for at the end of the file.
    const std::vector<int16_t>& read(size_t frames);

private:
    mutable SndfileHandle m_file;
    bool m_hasFloats = false;
    std::vector<float> m_floats;
    std::vector<int16_t> m_samples;
};
