#include "soundreader.h"

#include <algorithm>
#include <cmath>

namespace {

/// Whether the samples come as numbers around 1.0, which may also be a little louder than that.
bool hasFloats(int format)
{
    switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
    case SF_FORMAT_PCM_16:
    case SF_FORMAT_PCM_24:
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_ULAW:
    case SF_FORMAT_ALAW:
        return false;
    default:
        return true;
    }
}

} // namespace

SoundReader::SoundReader(const std::string& file) : m_file(file), m_hasFloats(hasFloats(m_file.format())) {}

std::string SoundReader::error() const
{
    return m_file.error() == SF_ERR_NO_ERROR ? std::string() : m_file.strError();
}

const std::vector<int16_t>& SoundReader::read(size_t frames)
{
    m_samples.resize(frames * channels());
    sf_count_t got = 0;
    if (m_hasFloats) {
        m_floats.resize(m_samples.size());
        got = m_file.readf(m_floats.data(), sf_count_t(frames));
        std::transform(m_floats.cbegin(), m_floats.cend(), m_samples.begin(),
                       [](float sample) { return int16_t(std::lrint(std::clamp(sample, -1.0F, 1.0F) * 32767)); });
    } else {
        got = m_file.readf(m_samples.data(), sf_count_t(frames));
    }
    m_samples.resize(size_t(got) * channels());
    return m_samples;
}
