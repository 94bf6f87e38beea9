#include "core/orvoMsgAudioPayload.h"

#include "logcapture.h"

#include <QtTest>

#include <limits>

namespace {

constexpr uint8_t Untouched = 0xEE;

QByteArray serialized(const OrvoMsg& msg, int capacity = 8192)
{
    QByteArray bytes(capacity + 1, char(Untouched));
    const size_t size = msg.serialize(reinterpret_cast<uint8_t*>(bytes.data()), size_t(capacity));
    if (bytes.mid(int(size)) != QByteArray(bytes.size() - int(size), char(Untouched)))
        return "written beyond the result";
    return bytes.left(int(size));
}

/// Of bytes that outlive the message, and so not of a QByteArray made on the way.
const unsigned char* bytesOf(const char* samples)
{
    return reinterpret_cast<const unsigned char*>(samples);
}

} // namespace

class tst_OrvoMsgAudioPayload : public QObject
{
    Q_OBJECT

private slots:
    void eachFieldStandsInItsPlace()
    {
        const QByteArray samples = QByteArray::fromHex("0102030405060708");
        OrvoMsgAudioPayload msg;
        msg.setSamples(bytesOf(samples), 4, 2, 0x00017700, 6);
        msg.setTimestamp(0x1122334455667788);
        QCOMPARE(msg.sizeInBytes(), size_t(40));
        // Kind, flush flag, 0; rate; channels, 16, 0; time stamp; size, 0; samples.
        QCOMPARE(serialized(msg).toHex(), QByteArray("01000000"
                                                     "00770100"
                                                     "06100000"
                                                     "00000000"
                                                     "8877665544332211"
                                                     "08000000"
                                                     "00000000"
                                                     "0102030405060708"));
    }

    void aMessageWithoutRateAndChannelsSaysSo()
    {
        OrvoMsgAudioPayload msg;
        msg.setSamples(bytesOf("ab"), 1, 2, 0, 0);
        QCOMPARE(serialized(msg).toHex(), QByteArray("01000000"
                                                     "00000000"
                                                     "00100000"
                                                     "00000000"
                                                     "0000000000000000"
                                                     "02000000"
                                                     "00000000"
                                                     "6162"));
    }

    void theFlushFlagIsByteOneAndLeavesTheSixteen_data()
    {
        QTest::addColumn<int>("bytesPerSample");
        for (const int bytes : {1, 2, 3, 4, 255})
            QTest::addRow("%d bytes", bytes) << bytes;
    }

    void theFlushFlagIsByteOneAndLeavesTheSixteen()
    {
        QFETCH(int, bytesPerSample);
        const QByteArray samples(255, 's');
        OrvoMsgAudioPayload msg;
        msg.setSamples(bytesOf(samples), 1, static_cast<unsigned char>(bytesPerSample), 48000, 2);
        QCOMPARE(serialized(msg).at(1), char(0));
        msg.setFlushFlag(true);
        QByteArray bytes = serialized(msg);
        QCOMPARE(bytes.size(), 32 + bytesPerSample);
        QCOMPARE(bytes.at(0), char(1));
        QCOMPARE(bytes.at(1), char(1));
        QCOMPARE(bytes.at(9), char(16));
        msg.setFlushFlag(false);
        QCOMPARE(serialized(msg).at(1), char(0));
    }

    void withoutSamplesItIsEmpty_data()
    {
        QTest::addColumn<bool>("samples");
        QTest::addColumn<int>("count");
        QTest::newRow("no samples") << false << 4;
        QTest::newRow("count of 0") << true << 0;
        QTest::newRow("neither") << false << 0;
    }

    void withoutSamplesItIsEmpty()
    {
        QFETCH(bool, samples);
        QFETCH(int, count);
        OrvoMsgAudioPayload msg;
        msg.setFlushFlag(true);
        msg.setSamples(samples ? bytesOf("samples") : nullptr, static_cast<unsigned long>(count), 2, 44100, 2);
        QCOMPARE(msg.sizeInBytes(), size_t(0));
        QCOMPARE(serialized(msg), QByteArray());
    }

    void aNewMessageIsEmpty()
    {
        QCOMPARE(OrvoMsgAudioPayload().sizeInBytes(), size_t(0));
        QCOMPARE(serialized(OrvoMsgAudioPayload()), QByteArray());
    }

    void unitsOfNoBytesGiveTheHeaderAlone()
    {
        OrvoMsgAudioPayload msg;
        msg.setSamples(bytesOf(""), 3, 0, 44100, 2);
        QCOMPARE(msg.sizeInBytes(), size_t(32));
        QCOMPARE(serialized(msg).size(), 32);
    }

    void whatDoesNotFitIsNotWritten()
    {
        OrvoMsgAudioPayload msg;
        msg.setSamples(bytesOf("abcd"), 2, 2, 44100, 2);
        QCOMPARE(serialized(msg, 36).size(), 36);
        QCOMPARE(serialized(msg, 35), QByteArray());
        QCOMPARE(serialized(msg, 0), QByteArray());
    }

    void aCountBeyondAllMemoryIsNoSmallMessage()
    {
        OrvoMsgAudioPayload msg;
        msg.setSamples(bytesOf("abcd"), std::numeric_limits<unsigned long>::max() / 2 + 1, 2, 44100, 2);
        QVERIFY(msg.sizeInBytes() > 8192);
        QCOMPARE(serialized(msg), QByteArray());
        msg.setSamples(bytesOf("abcd"), std::numeric_limits<unsigned long>::max(), 1, 44100, 2);
        QVERIFY(msg.sizeInBytes() > 8192);
    }

    void theSamplesAreReadWhenItIsSerialized()
    {
        QByteArray samples = "ab";
        OrvoMsgAudioPayload msg;
        msg.setSamples(bytesOf(samples), 1, 2, 44100, 2);
        samples[0] = 'x';
        QCOMPARE(serialized(msg).mid(32), QByteArray("xb"));
    }

    void itsTotalIsLogged()
    {
        const LogCapture log("OrvoMsgAudioPayload");
        OrvoMsgAudioPayload msg;
        serialized(msg);
        QCOMPARE(log.lines(), QStringList());
        msg.setSamples(bytesOf("abcd"), 2, 2, 44100, 2);
        serialized(msg);
        QCOMPARE(log.lines(), QStringList{"DEBUG Audio Msg bytes: 36"});
    }
};

QTEST_APPLESS_MAIN(tst_OrvoMsgAudioPayload)
#include "tst_orvomsgaudiopayload.moc"
