#include "core/orvoMsgAudioPayload.h"
#include "core/orvoMsgPipeline.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <sndfile.hh>
#include <vector>

namespace {

/// A sound file as an independent hand writes it: a header of 44 bytes and the samples.
QByteArray wav(int rate, int channels, const QByteArray& samples)
{
    QByteArray bytes;
    const auto number = [&bytes](quint32 value, int size) {
        for (int i = 0; i < size; ++i)
            bytes.append(char(value >> (8 * i)));
    };
    bytes.append("RIFF");
    number(quint32(36 + samples.size()), 4);
    bytes.append("WAVEfmt ");
    number(16, 4);
    number(1, 2);
    number(quint32(channels), 2);
    number(quint32(rate), 4);
    number(quint32(rate * channels * 2), 4);
    number(quint32(channels * 2), 2);
    number(16, 2);
    bytes.append("data");
    number(quint32(samples.size()), 4);
    return bytes + samples;
}

/// The samples of a file that libsndfile wrote, found by its chunks.
QByteArray samplesOf(const QByteArray& wav)
{
    const int data = wav.indexOf("data");
    if (!wav.startsWith("RIFF") || data < 0)
        return "no sound file";
    quint32 size = 0;
    std::memcpy(&size, wav.constData() + data + 4, 4);
    return wav.mid(data + 8, int(size));
}

QByteArray noise(int bytes)
{
    QByteArray samples(bytes, 0);
    quint32 state = 1;
    for (char& byte : samples) {
        state = state * 1664525 + 1013904223;
        byte = char(state >> 24);
    }
    return samples;
}

} // namespace

class tst_Audio : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_folder.reset(new QTemporaryDir);
        m_uri = "ipc://" + m_folder->filePath("audio");
        m_out = m_folder->filePath("out.wav");
    }

    void cleanup()
    {
        for (QProcess* const process : {&m_sink, &m_play}) {
            process->kill();
            process->waitForFinished();
        }
    }

    void whatArrivesIsWhatWasSent_data()
    {
        QTest::addColumn<int>("rate");
        QTest::addColumn<int>("channels");
        QTest::addColumn<int>("frames");
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<int>("blocks");
        QTest::newRow("stereo") << 44100 << 2 << 44100 << QStringList{"--fast"} << 22;
        QTest::newRow("mono") << 8000 << 1 << 10000 << QStringList{"--fast"} << 3;
        QTest::newRow("six channels") << 48000 << 6 << 5000 << QStringList{"--fast"} << 8;
        QTest::newRow("one frame") << 44100 << 2 << 1 << QStringList{"--fast"} << 1;
        QTest::newRow("whole blocks") << 44100 << 2 << 4080 << QStringList{"--fast"} << 2;
        QTest::newRow("small blocks") << 44100 << 2 << 1001 << QStringList{"--fast", "--frames", "100"} << 11;
        // More than all sockets hold.
        QTest::newRow("a minute") << 44100 << 2 << 2646000 << QStringList{"--fast"} << 1298;
        QTest::newRow("at the sample rate") << 44100 << 2 << 8820 << QStringList() << 5;
    }

    void whatArrivesIsWhatWasSent()
    {
        QFETCH(int, rate);
        QFETCH(int, channels);
        QFETCH(int, frames);
        QFETCH(QStringList, options);
        QFETCH(int, blocks);
        const QByteArray samples = noise(frames * channels * 2);
        startSink();
        startPlay(wav(rate, channels, samples), options);
        QVERIFY(m_sink.waitForFinished());
        endPlay();
        QCOMPARE(m_sink.exitCode(), 0);
        const QByteArray out = content(m_out);
        QVERIFY(samplesOf(out) == samples);
        // The kind of samples, channels, rate, bytes a second and a frame, bits.
        QCOMPARE(out.mid(20, 16), wav(rate, channels, samples).mid(20, 16));
        QCOMPARE(m_sink.readAllStandardOutput(), QString("%1 Hz, %2 channels\n"
                                                         "flush at 0\n"
                                                         "flush and end at %3: %3 frames in %4 blocks\n")
                                                     .arg(rate)
                                                     .arg(channels)
                                                     .arg(frames)
                                                     .arg(blocks)
                                                     .toUtf8());
        QCOMPARE(m_sink.readAllStandardError(), QByteArray());
        QCOMPARE(m_play.readAllStandardOutput(), QString("sent %1 frames, dropped 0\n").arg(frames).toUtf8());
    }

    void thePlayerMayComeFirst()
    {
        const QByteArray samples = noise(100000);
        startPlay(wav(44100, 2, samples), {"--fast"});
        QVERIFY(m_play.waitForStarted());
        startSink();
        QVERIFY(m_sink.waitForFinished());
        endPlay();
        QVERIFY(samplesOf(content(m_out)) == samples);
    }

    void anOggFileIsDecodedAsItsLibraryDoes()
    {
        const QString file = "/usr/share/sounds/freedesktop/stereo/bell.oga";
        SndfileHandle handle(file.toStdString());
        QVERIFY2(!handle.error(), handle.strError());
        std::vector<float> floats(size_t(handle.frames() * handle.channels()));
        QCOMPARE(handle.readf(floats.data(), handle.frames()), handle.frames());
        QByteArray samples;
        for (const float value : floats) {
            const auto sample = int16_t(std::lrint(std::min(std::max(value, -1.0F), 1.0F) * 32767));
            samples.append(reinterpret_cast<const char*>(&sample), 2);
        }
        QVERIFY(samples.count('\0') < samples.size() / 2);
        startSink();
        m_play.start(ORVO_TEST_PLAY, {file, m_uri, "--fast", "--linger", "100000"});
        QVERIFY(m_sink.waitForFinished());
        endPlay();
        QVERIFY(samplesOf(content(m_out)) == samples);
    }

    void blocksThatNobodyTakesInTimeAreDropped()
    {
        const int frames = 4 * 44100;
        const QByteArray samples = noise(frames * 2);
        startPlay(wav(44100, 1, samples), {"--drop", "--verbose"});
        QByteArray log;
        QTRY_VERIFY((m_play.waitForReadyRead(10), (log += m_play.readAllStandardError()).contains("try again")));
        // The reader comes while the stream is under way.
        startSink();
        QVERIFY(m_sink.waitForFinished());
        endPlay();
        const QByteArray told = m_play.readAllStandardOutput();
        const QRegularExpressionMatch match = QRegularExpression("^sent (\\d+) frames, dropped (\\d+)\n$").match(told);
        QVERIFY2(match.hasMatch(), told);
        const int sent = match.captured(1).toInt();
        const int dropped = match.captured(2).toInt();
        QCOMPARE(sent + dropped, frames);
        QVERIFY2(sent > 0 && dropped > 0, told);
        const QByteArray shown = m_sink.readAllStandardOutput();
        QVERIFY2(shown.contains("\nflush at " + QByteArray::number(dropped) + "\n"), shown);
        QVERIFY(samplesOf(content(m_out)) == samples.mid(dropped * 2));
    }

    void gapsFlushesAndStepsBackAreShown()
    {
        startSink();
        OrvoMsgPipeline pipeline;
        pipeline.setURI(m_uri);
        const QByteArray samples = noise(80);
        send(pipeline, samples.mid(0, 40), 0, true);
        send(pipeline, samples.mid(40, 20), 15, false);
        send(pipeline, samples.mid(60, 16), 2, false);
        send(pipeline, samples.mid(76, 4), 1000, true);
        sendEnd(pipeline, 1001);
        QVERIFY(m_sink.waitForFinished());
        QCOMPARE(m_sink.readAllStandardOutput(), QByteArray("44100 Hz, 2 channels\n"
                                                            "flush at 0\n"
                                                            "gap of 5 frames at 10\n"
                                                            "back from 20 to 2\n"
                                                            "flush at 1000\n"
                                                            "flush and end at 1001: 20 frames in 4 blocks\n"));
        QCOMPARE(samplesOf(content(m_out)), samples);
    }

    void aSinkThatKeepsOnAppendsTheNextStream()
    {
        startSink({"--keep"});
        const QByteArray first = noise(10000);
        const QByteArray second = first.mid(5000);
        QByteArray shown;
        int streams = 0;
        for (const QByteArray& samples : {first, second}) {
            startPlay(wav(44100, 2, samples), {"--fast"});
            ++streams;
            QTRY_COMPARE(
                (m_sink.waitForReadyRead(10), (shown += m_sink.readAllStandardOutput()).count("flush and end")),
                streams);
            endPlay();
        }
        m_sink.terminate();
        QVERIFY(m_sink.waitForFinished());
        QCOMPARE(m_sink.exitCode(), 0);
        QVERIFY(samplesOf(content(m_out)) == first + second);
    }

    void aSignalEndsTheRecordingInOrder()
    {
        startSink();
        OrvoMsgPipeline pipeline;
        pipeline.setURI(m_uri);
        send(pipeline, noise(400), 0, true);
        QTRY_VERIFY((m_sink.waitForReadyRead(10), samplesOf(content(m_out)) == noise(400)));
        m_sink.terminate();
        QVERIFY(m_sink.waitForFinished());
        QCOMPARE(m_sink.exitStatus(), QProcess::NormalExit);
        QCOMPARE(m_sink.exitCode(), 0);
        QVERIFY(samplesOf(content(m_out)) == noise(400));
    }

    void messagesThatAreNoAudioAreDropped_data()
    {
        QTest::addColumn<int>("offset");
        QTest::addColumn<char>("byte");
        QTest::addColumn<QByteArray>("fault");
        QTest::newRow("kind") << 0 << '\2' << QByteArray("no audio");
        QTest::newRow("sample size") << 9 << '\x18' << QByteArray("samples of another size");
        QTest::newRow("length") << 24 << '\7' << QByteArray("not as long as it says");
        QTest::newRow("no channels") << 8 << '\0' << QByteArray("neither rate nor channels may be 0");
        QTest::newRow("broken frame") << 8 << '\3' << QByteArray("ends inside of a frame");
        QTest::newRow("cut") << -1 << '\0' << QByteArray("shorter than a header");
    }

    void messagesThatAreNoAudioAreDropped()
    {
        QFETCH(int, offset);
        QFETCH(char, byte);
        QFETCH(QByteArray, fault);
        class Broken : public OrvoMsg
        {
        public:
            explicit Broken(const QByteArray& bytes) : m_bytes(bytes) {}
            size_t sizeInBytes() const override { return size_t(m_bytes.size()); }
            size_t serialize(uint8_t* buffer, size_t) const override
            {
                std::memcpy(buffer, m_bytes.constData(), sizeInBytes());
                return sizeInBytes();
            }

        private:
            QByteArray m_bytes;
        };
        startSink();
        OrvoMsgPipeline pipeline;
        pipeline.setURI(m_uri);
        const QByteArray samples = noise(8);
        OrvoMsgAudioPayload good;
        good.setSamples(reinterpret_cast<const unsigned char*>(samples.constData()), 4, 2, 44100, 2);
        QByteArray bytes(40, 0);
        good.serialize(reinterpret_cast<uint8_t*>(bytes.data()), 40);
        if (offset < 0)
            bytes.truncate(31);
        else
            bytes[offset] = byte;
        QCOMPARE(pipeline.sendMsg(Broken(bytes)), OrvoMsgStatus::Sent);
        QCOMPARE(pipeline.sendMsg(good), OrvoMsgStatus::Sent);
        sendEnd(pipeline, 2);
        QVERIFY(m_sink.waitForFinished());
        QCOMPARE(m_sink.readAllStandardError(),
                 "orvo-sink: dropped a message of " + QByteArray::number(bytes.size()) + " bytes: " + fault + "\n");
        QCOMPARE(samplesOf(content(m_out)), samples);
    }

    void anotherFormatEndsTheRecording()
    {
        startSink({"--keep"});
        startPlay(wav(44100, 2, noise(400)), {"--fast"});
        QByteArray shown;
        QTRY_VERIFY((m_sink.waitForReadyRead(10), (shown += m_sink.readAllStandardOutput()).contains("flush and end")));
        endPlay();
        startPlay(wav(48000, 2, noise(400)), {"--fast"});
        QVERIFY(m_sink.waitForFinished());
        endPlay();
        QCOMPARE(m_sink.exitCode(), 1);
        QCOMPARE(m_sink.readAllStandardError(),
                 QByteArray("orvo-sink: the format has changed to 48000 Hz, 2 channels\n"));
        QVERIFY(samplesOf(content(m_out)) == noise(400));
    }

    void faultsAreTold_data()
    {
        QTest::addColumn<QString>("program");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("status");
        QTest::newRow("play nothing") << ORVO_TEST_PLAY << QStringList() << 2;
        QTest::newRow("play to no address") << ORVO_TEST_PLAY << QStringList{"in.wav", "nowhere"} << 2;
        QTest::newRow("play no file") << ORVO_TEST_PLAY << QStringList{"/no/file.wav", "ipc:///tmp/x"} << 1;
        QTest::newRow("play no sound") << ORVO_TEST_PLAY << QStringList{"/etc/passwd", "ipc:///tmp/x"} << 1;
        QTest::newRow("sink nothing") << ORVO_TEST_SINK << QStringList() << 2;
        QTest::newRow("sink at no address") << ORVO_TEST_SINK << QStringList{"nowhere", "out.wav"} << 1;
    }

    void faultsAreTold()
    {
        QFETCH(QString, program);
        QFETCH(QStringList, arguments);
        QProcess process;
        process.start(program, arguments);
        QVERIFY(process.waitForFinished());
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        QTEST(process.exitCode(), "status");
        QVERIFY(process.readAllStandardError().startsWith("orvo-"));
    }

    void aFileThatCannotBeWrittenEndsTheSink()
    {
        m_out = m_folder->filePath("missing/out.wav");
        startSink();
        startPlay(wav(44100, 2, noise(400)), {"--fast"});
        QVERIFY(m_sink.waitForFinished());
        QCOMPARE(m_sink.exitCode(), 1);
        QVERIFY(m_sink.readAllStandardError().startsWith("orvo-sink: "));
    }

private:
    void startSink(const QStringList& options = {})
    {
        m_sink.start(ORVO_TEST_SINK, QStringList{m_uri, m_out} + options);
        while (!m_sink.canReadLine())
            QVERIFY(m_sink.waitForReadyRead());
        QCOMPARE(m_sink.readLine(), QByteArray("listening\n"));
    }

    void startPlay(const QByteArray& sound, const QStringList& options)
    {
        QFile file(m_folder->filePath("in.wav"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(sound), qint64(sound.size()));
        file.close();
        m_play.start(ORVO_TEST_PLAY, QStringList{file.fileName(), m_uri, "--linger", "100000"} + options);
    }

    /// The player stays until the reader has taken all.
    void endPlay()
    {
        m_play.terminate();
        QVERIFY(m_play.waitForFinished());
        QCOMPARE(m_play.exitStatus(), QProcess::NormalExit);
        QCOMPARE(m_play.exitCode(), 0);
    }

    static void send(OrvoMsgPipeline& pipeline, const QByteArray& samples, unsigned long timestamp, bool flush)
    {
        OrvoMsgAudioPayload block;
        block.setSamples(reinterpret_cast<const unsigned char*>(samples.constData()),
                         static_cast<unsigned long>(samples.size() / 2), 2, 44100, 2);
        block.setTimestamp(timestamp);
        block.setFlushFlag(flush);
        QCOMPARE(pipeline.sendMsg(block), OrvoMsgStatus::Sent);
    }

    static void sendEnd(OrvoMsgPipeline& pipeline, unsigned long timestamp)
    {
        static const unsigned char none = 0;
        OrvoMsgAudioPayload end;
        end.setSamples(&none, 1, 0, 44100, 2);
        end.setTimestamp(timestamp);
        end.setFlushFlag(true);
        QCOMPARE(pipeline.sendMsg(end), OrvoMsgStatus::Sent);
    }

    static QByteArray content(const QString& name)
    {
        QFile file(name);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    std::unique_ptr<QTemporaryDir> m_folder;
    QString m_uri;
    QString m_out;
    QProcess m_sink;
    QProcess m_play;
};

QTEST_GUILESS_MAIN(tst_Audio)
#include "tst_audio.moc"
