#pragma once

#include "core/orvoMsgAudioPayload.h"
#include "core/orvoMsgPipeline.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <memory>
#include <vector>

class SoundReader;

/**
 * Plays one sound file after the other: sends its samples, at the pace at which they sound, to the process that reads
 * at the URI. What that process does not take in time is lost, as it is when nobody reads.
 *
 * Lives in one thread with an event loop.
 */
class Playback : public QObject
{
    Q_OBJECT

public:
    explicit Playback(const QString& uri);
    ~Playback() override;

    /// Stops, and takes the file to its beginning. What is wrong with it; empty if nothing.
    QString open(const QString& fileName);
    void start();
    void pause();
    /// Ends the stream.
    void close();
    bool isOpen() const { return m_reader != nullptr; }
    bool isPlaying() const { return m_timer.isActive(); }
    /// Milliseconds from the beginning of the file.
    qint64 position() const;
    /// The factor on all samples from the next block on.
    void setGain(double gain) { m_gain = gain; }

signals:
    /// The end of the file was sent.
    void finished();

private:
    void sendDue();

    OrvoMsgPipeline m_pipeline;
    OrvoMsgAudioPayload m_message;
    std::unique_ptr<SoundReader> m_reader;
    /// The block that is to be sent next; empty when it is still to be read.
    std::vector<int16_t> m_samples;
    double m_gain = 1;
    QTimer m_timer;
    QElapsedTimer m_clock;
    /// The frame at which the clock was started, and the next one to send.
    qint64 m_clockFrame = 0;
    qint64 m_frame = 0;
    bool m_flush = true;
};
