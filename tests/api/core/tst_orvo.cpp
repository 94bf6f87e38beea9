#include "core/orvo.h"

#include "childprocess.h"
#include "records/orvovalue.h"

#include <QDateTime>
#include <QSet>
#include <QtTest>

#include <sys/prctl.h>
#include <thread>

namespace {

QtMessageHandler s_previousHandler = nullptr;
QStringList s_messages;

/// Collects what Qt says meanwhile.
struct MessageCapture
{
    MessageCapture()
    {
        s_messages.clear();
        s_previousHandler = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext&, const QString& text) { s_messages.append(text); });
    }
    ~MessageCapture() { qInstallMessageHandler(s_previousHandler); }
};

/// The kernel's name of a thread that named itself.
QByteArray nameOfThread(const QString& name)
{
    char buffer[16] = {};
    std::thread([&] {
        orvoSetThreadName(name);
        prctl(PR_GET_NAME, buffer);
    }).join();
    return QByteArray(buffer);
}

} // namespace

class Sender : public QObject
{
    Q_OBJECT
signals:
    void told(int number);
};

class Receiver : public QObject
{
    Q_OBJECT
public:
    QList<int> numbers;
public slots:
    void hear(int number) { numbers.append(number); }
};

class tst_Orvo : public QObject
{
    Q_OBJECT

private slots:
    // Signals

    void connectsAndDisconnects()
    {
        Sender sender;
        Receiver receiver;
        QVERIFY(orvoConnect(&sender, SIGNAL(told(int)), &receiver, SLOT(hear(int))));
        emit sender.told(1);
        QCOMPARE(receiver.numbers, QList<int>{1});
        QVERIFY(orvoDisconnect(&sender, SIGNAL(told(int)), &receiver, SLOT(hear(int))));
        emit sender.told(2);
        QCOMPARE(receiver.numbers, QList<int>{1});
        QVERIFY(!orvoDisconnect(&sender, SIGNAL(told(int)), &receiver, SLOT(hear(int))));
    }

    void theConnectionTypeIsThatOfTheCall()
    {
        Sender sender;
        Receiver receiver;
        orvoConnect(&sender, SIGNAL(told(int)), &receiver, SLOT(hear(int)), Qt::QueuedConnection);
        emit sender.told(1);
        QCOMPARE(receiver.numbers, QList<int>());
        QTRY_COMPARE(receiver.numbers, QList<int>{1});
    }

    void aConnectionThatCannotBeMadeStopsTheProcess_data()
    {
        QTest::addColumn<bool>("stops");
        QTest::newRow("unknownSignal") << true;
        QTest::newRow("unknownSlot") << true;
        QTest::newRow("otherArguments") << true;
        QTest::newRow("noSender") << true;
        QTest::newRow("good") << false;
    }

    void aConnectionThatCannotBeMadeStopsTheProcess()
    {
        QFETCH(bool, stops);
        const ChildEnd end = runThisProgram({"--connect", QTest::currentDataTag()});
        QCOMPARE(end.stopped, stops);
        QVERIFY2(end.errors.contains("connectSucceeded") == stops, end.errors.constData());
    }

    // Time

    void timesAreMillisecondsSinceTheEpoch()
    {
        const QDateTime time(QDate(2001, 2, 3), QTime(4, 5, 6, 7), Qt::UTC);
        QCOMPARE(QDateTime_toMSecsSinceEpoch(time), 981173106007LL);
        QVERIFY(QDateTime_fromMSecsSinceEpoch(981173106007LL) == time);
        const long long before = QDateTime::currentMSecsSinceEpoch();
        const long long now = QDateTime_currentMSecsSinceEpoch();
        QVERIFY(before <= now && now <= QDateTime::currentMSecsSinceEpoch());
    }

    void aTimevalIsCutToMilliseconds()
    {
        const timeval time{5, 999999};
        QCOMPARE(timeval_toMsec(&time), 5999LL);
        const timeval late{10000000, 1000};
        QCOMPARE(timeval_toMsec(&late), 10000000001LL);
    }

    void theMonotonicClockIsTheKernels()
    {
        timespec before;
        clock_gettime(CLOCK_MONOTONIC, &before);
        const long long now = QElapsedTimer_getMonotonicMsecs();
        timespec after;
        clock_gettime(CLOCK_MONOTONIC, &after);
        QVERIFY(before.tv_sec * 1000LL + before.tv_nsec / 1000000 <= now);
        QVERIFY(now <= after.tv_sec * 1000LL + after.tv_nsec / 1000000);
    }

    void theLocalTimeIsWrittenWithMilliseconds()
    {
        const QDateTime before = QDateTime::currentDateTime();
        const QString text = orvoLocalTimeDateString();
        const QDateTime after = QDateTime::currentDateTime();
        QVERIFY2(QRegularExpression("^\\d{8} \\d\\d:\\d\\d:\\d\\d\\.\\d{3}$").match(text).hasMatch(), qPrintable(text));
        const QDateTime written = QDateTime::fromString(text, "yyyyMMdd hh:mm:ss.zzz");
        QVERIFY(before <= written && written <= after);
    }

    // Text and bytes

    void sha256()
    {
        QCOMPARE(QCryptographicHash_hash_sha256("abc").toHex(),
                 QByteArray("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"));
    }

    void cuttingUtf8SplitsNoCharacter_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<int>("n");
        QTest::addColumn<QByteArray>("cut");
        const QByteArray euro("a\xe2\x82\xac"
                              "b");
        QTest::newRow("longer limit") << euro << 9 << euro;
        QTest::newRow("limit of its size") << euro << 5 << euro;
        QTest::newRow("behind the character") << euro << 4 << QByteArray("a\xe2\x82\xac");
        QTest::newRow("before its last byte") << euro << 3 << QByteArray("a");
        QTest::newRow("behind its first byte") << euro << 2 << QByteArray("a");
        QTest::newRow("ahead of the character") << euro << 1 << QByteArray("a");
        QTest::newRow("zero") << euro << 0 << QByteArray();
        QTest::newRow("negative") << euro << -3 << QByteArray();
        QTest::newRow("empty with zero") << QByteArray() << 0 << QByteArray();
        QTest::newRow("empty with a negative limit") << QByteArray() << -1 << QByteArray();
        QTest::newRow("character first") << QByteArray("\xe2\x82\xac") << 2 << QByteArray();
        QTest::newRow("continuation bytes only") << QByteArray("\x82\x82\x82") << 2 << QByteArray();
        QTest::newRow("four bytes") << QByteArray("\xf0\x9f\x98\x80\xf0\x9f\x98\x80") << 7
                                    << QByteArray("\xf0\x9f\x98\x80");
    }

    void cuttingUtf8SplitsNoCharacter()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(int, n);
        QTEST(QByteArray_leftUtf8(bytes, n), "cut");
    }

    void aCutOfAnyLengthIsTheLongestThatIsWhole()
    {
        const QString text = QString::fromUtf8("aü€😀zß漢🎵b");
        const QByteArray bytes = text.toUtf8();
        for (int n = -2; n <= bytes.size() + 2; ++n) {
            QByteArray longest;
            for (int i = 0; i <= text.size(); ++i) {
                const bool splits = i > 0 && i < text.size() && text.at(i).isLowSurrogate();
                const QByteArray head = text.left(i).toUtf8();
                if (!splits && head.size() <= n)
                    longest = head;
            }
            QCOMPARE(QByteArray_leftUtf8(bytes, n), longest);
        }
    }

    void aUuidHasNoBraces()
    {
        QSet<QString> uuids;
        for (int i = 0; i < 100; ++i) {
            const QString uuid = orvoGenerateUuid();
            QVERIFY2(QRegularExpression("^[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}$").match(uuid).hasMatch(),
                     qPrintable(uuid));
            uuids.insert(uuid);
        }
        QCOMPARE(uuids.size(), 100);
    }

    void aValueIsWrittenByItsType_data()
    {
        QTest::addColumn<OrvoValue>("value");
        QTest::addColumn<QString>("text");
        QTest::newRow("true") << OrvoValue().setBool_(true) << "true";
        QTest::newRow("false") << OrvoValue().setBool_(false) << "false";
        QTest::newRow("byte") << OrvoValue().setByte_(-128) << "-128";
        QTest::newRow("16 bits") << OrvoValue().setI16_(-32768) << "-32768";
        QTest::newRow("32 bits") << OrvoValue().setI32_(2147483647) << "2147483647";
        QTest::newRow("64 bits") << OrvoValue().setI64_(-9223372036854775807LL) << "-9223372036854775807";
        QTest::newRow("double") << OrvoValue().setDouble_(0.1) << "0.1";
        QTest::newRow("double with six digits") << OrvoValue().setDouble_(1.23456789) << "1.23457";
        QTest::newRow("large double") << OrvoValue().setDouble_(12345678.0) << "1.23457e+07";
        QTest::newRow("string") << OrvoValue().setString_(QString::fromUtf8("\"Grüß\""))
                                << QString::fromUtf8("\"Grüß\"");
        QTest::newRow("empty string") << OrvoValue().setString_("") << "";
    }

    void aValueIsWrittenByItsType()
    {
        QFETCH(OrvoValue, value);
        QTEST(orvoValueToQString(value), "text");
    }

    // Volume

    void volumesChangeTheirScale()
    {
        QCOMPARE(orvoScaleVolume(5.0, 10.0, 100.0), 50.0);
        QCOMPARE(orvoScaleVolume(0.0, 10.0, 100.0), 0.0);
        QCOMPARE(orvoScaleVolume(10.0, 10.0, 100.0), 100.0);
        QCOMPARE(orvoScaleVolume(1.0, 3.0, 1.0), 1.0 / 3.0);
        QCOMPARE(orvoScaleVolume(3.0, 3.0, 0.0), 0.0);
        QCOMPARE(orvoScaleVolume(0.0, 0.0, 100.0), 100.0);
        QCOMPARE(orvoScaleVolume(0.0, 0.0, 0.0), 0.0);
    }

    void wholeVolumesAreRounded()
    {
        QCOMPARE(orvoScaleVolume(5, 10, 100), 50);
        QCOMPARE(orvoScaleVolume(1.0, 3.0, 100), 33);
        QCOMPARE(orvoScaleVolume(2.0, 3.0, 100), 67);
        QCOMPARE(orvoScaleVolume(1.0, 2.0, 1), 1);
        QCOMPARE(orvoScaleVolume(0.0, 0.0, 100), 100);
    }

    void aVolumeOffItsScaleStopsTheProcess_data()
    {
        QTest::addColumn<QByteArray>("invariant");
        QTest::newRow("1 -1 1") << QByteArray("sourceMaxVolume >= 0");
        QTest::newRow("1 1 -1") << QByteArray("destinationMaxVolume >= 0");
        QTest::newRow("-1 1 1") << QByteArray("sourceVolume >= 0 && sourceVolume <= sourceMaxVolume");
        QTest::newRow("2 1 1") << QByteArray("sourceVolume >= 0 && sourceVolume <= sourceMaxVolume");
        QTest::newRow("1 1 1") << QByteArray();
    }

    void aVolumeOffItsScaleStopsTheProcess()
    {
        QFETCH(QByteArray, invariant);
        const ChildEnd end = runThisProgram({"--volume", QTest::currentDataTag()});
        QCOMPARE(end.stopped, !invariant.isEmpty());
        QVERIFY2(end.errors.contains('"' + invariant + '"') == end.stopped, end.errors.constData());
    }

    // Threads

    void aThreadNameIsCutTo15Bytes_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("cut");
        QTest::newRow("short") << "worker" << QByteArray("worker");
        QTest::newRow("15 bytes") << "123456789012345" << QByteArray("123456789012345");
        QTest::newRow("20 bytes") << "12345678901234567890" << QByteArray("123456789012345");
        QTest::newRow("character across the limit")
            << QString::fromUtf8("12345678901234ü") << QByteArray("12345678901234");
        QTest::newRow("character up to the limit")
            << QString::fromUtf8("1234567890123üx") << QByteArray("1234567890123\xc3\xbc");
    }

    void aThreadNameIsCutTo15Bytes()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, cut);
        const MessageCapture messages;
        QCOMPARE(nameOfThread(name), cut);
        if (cut == name.toUtf8()) {
            QCOMPARE(s_messages, QStringList());
        } else {
            QCOMPARE(s_messages.size(), 1);
            const QString message = s_messages.first();
            QVERIFY2(message.startsWith("orvoSetThreadName : truncate thread name "), qPrintable(message));
            QString both;
            QDebug(&both) << name.toUtf8() << cut;
            QVERIFY2(message.endsWith(both.trimmed()), qPrintable(message));
        }
    }
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.value(1) == QLatin1String("--connect")) {
        leaveNoCore();
        const QByteArray which = arguments.value(2).toUtf8();
        Sender sender;
        Receiver receiver;
        orvoConnect(which == "noSender" ? nullptr : &sender,
                    which == "unknownSignal"                                 ? SIGNAL(tolled(int))
                                                                             : SIGNAL(told(int)), &receiver,
                                                      which == "unknownSlot" ? SLOT(here(int))
                                                                             : which == "otherArguments"
                                                      ? SLOT(deleteLater(QString))
                                                      : SLOT(hear(int)));
        return 0;
    }
    if (arguments.value(1) == QLatin1String("--volume")) {
        leaveNoCore();
        const QStringList volumes = arguments.value(2).split(' ');
        orvoScaleVolume(volumes.at(0).toDouble(), volumes.at(1).toDouble(), volumes.at(2).toDouble());
        return 0;
    }
    tst_Orvo test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_orvo.moc"
