#include "recording.h"

#include "audioblock.h"

#include <cstring>
#include <iostream>
#include <sndfile.hh>
#include <vector>

Recording::Recording(const std::string& file) : m_file(file) {}
Recording::~Recording() = default;

std::string Recording::take(const AudioBlock& block)
{
    if (block.flush && block.frames == 0) {
        if (m_isInStream)
            std::cout << "flush and end at " << block.timestamp << ": " << m_frames << " frames in " << m_blocks
                      << " blocks" << std::endl;
        m_isInStream = false;
        m_isAtEnd = true;
        return std::string();
    }
    if (!m_wav)
        std::cout << block.rate << " Hz, " << block.channels << " channels" << std::endl;
    if (block.flush)
        std::cout << "flush at " << block.timestamp << std::endl;
    else if (m_isInStream && block.timestamp > m_next)
        std::cout << "gap of " << block.timestamp - m_next << " frames at " << m_next << std::endl;
    else if (m_isInStream && block.timestamp < m_next)
        std::cout << "back from " << m_next << " to " << block.timestamp << std::endl;
    m_isInStream = true;
    m_isAtEnd = false;
    m_next = block.timestamp + block.frames;
    m_frames += block.frames;
    ++m_blocks;
    return write(block);
}

std::string Recording::write(const AudioBlock& block)
{
    if (!m_wav) {
        m_wav.reset(new SndfileHandle(m_file, SFM_WRITE, SF_FORMAT_WAV | SF_FORMAT_PCM_16, int(block.channels),
                                      int(block.rate)));
        if (m_wav->error())
            return m_wav->strError();
        m_wav->command(SFC_SET_UPDATE_HEADER_AUTO, nullptr, SF_TRUE);
    }
    if (unsigned(m_wav->channels()) != block.channels || uint32_t(m_wav->samplerate()) != block.rate)
        return "the format has changed to " + std::to_string(block.rate) + " Hz, " + std::to_string(block.channels)
               + " channels";
    std::vector<int16_t> samples(block.frames * block.channels);
    std::memcpy(samples.data(), block.samples, samples.size() * sizeof(int16_t));
    if (m_wav->writef(samples.data(), sf_count_t(block.frames)) != sf_count_t(block.frames))
        return m_wav->strError();
    return std::string();
}

void Recording::close()
{
    m_wav.reset();
}
