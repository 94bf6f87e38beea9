#include "playback.h"

#include "../audio/soundreader.h"

#include <QFile>

#include <algorithm>
#include <cmath>

namespace {

constexpr int tickMs = 20;
/// The reader holds so much ahead of what sounds.
constexpr int leadMs = 100;
constexpr unsigned maxChannels = 255;

} // namespace

Playback::Playback(const QString& uri)
{
    m_pipeline.setNonBlock(true);
    if (!uri.isEmpty())
        m_pipeline.setURI(uri);
    m_timer.setInterval(tickMs);
    connect(&m_timer, &QTimer::timeout, this, &Playback::sendDue);
}

Playback::~Playback() = default;

QString Playback::open(const QString& fileName)
{
    close();
    auto reader = std::make_unique<SoundReader>(QFile::encodeName(fileName).toStdString());
    if (!reader->error().empty())
        return QString::fromStdString(reader->error());
    if (reader->channels() < 1 || reader->channels() > maxChannels)
        return QStringLiteral("it has %1 channels").arg(reader->channels());
    m_reader = std::move(reader);
    m_frame = 0;
    m_clockFrame = 0;
    return QString();
}

void Playback::start()
{
    if (!m_reader || isPlaying())
        return;
    m_flush = true;
    m_clockFrame = m_frame;
    m_clock.start();
    m_timer.start();
}

void Playback::pause()
{
    m_timer.stop();
    m_clockFrame = m_frame;
}

void Playback::close()
{
    if (!m_reader)
        return;
    m_timer.stop();
    // The end of a stream is a header alone.
    static const unsigned char none = 0;
    m_message.setSamples(&none, 1, 0, m_reader->rate(), uchar(m_reader->channels()));
    m_message.setTimestamp(ulong(m_frame));
    m_message.setFlushFlag(true);
    m_pipeline.sendMsg(m_message);
    m_samples.clear();
    m_reader.reset();
}

qint64 Playback::position() const
{
    if (!m_reader)
        return 0;
    const qint64 heard = isPlaying() ? m_clockFrame + m_clock.elapsed() * m_reader->rate() / 1000 : m_frame;
    return std::min(heard, m_frame) * 1000 / m_reader->rate();
}

void Playback::sendDue()
{
    const size_t frameSize = m_reader->channels() * sizeof(int16_t);
    const size_t blockFrames = (OrvoMsgPipeline::MaxMessageSize - OrvoMsgAudioPayload::HeaderSize) / frameSize;
    const qint64 due = m_clockFrame + (m_clock.elapsed() + leadMs) * m_reader->rate() / 1000;
    const qint64 heard = due - leadMs * qint64(m_reader->rate()) / 1000;
    while (m_frame < due) {
        if (m_samples.empty()) {
            m_samples = m_reader->read(blockFrames);
            if (m_samples.empty()) {
                close();
                emit finished();
                return;
            }
            for (int16_t& sample : m_samples)
                sample = int16_t(std::lrint(sample * m_gain));
        }
        m_message.setSamples(reinterpret_cast<const unsigned char*>(m_samples.data()), m_samples.size(),
                             sizeof(int16_t), m_reader->rate(), uchar(m_reader->channels()));
        m_message.setTimestamp(ulong(m_frame));
        m_message.setFlushFlag(m_flush);
        const bool sent = m_pipeline.sendMsg(m_message) == OrvoMsgStatus::Sent;
        // There is time left for the reader to take it.
        if (!sent && m_frame > heard)
            return;
        m_flush = m_flush && !sent;
        m_frame += qint64(m_samples.size() / m_reader->channels());
        m_samples.clear();
    }
}
