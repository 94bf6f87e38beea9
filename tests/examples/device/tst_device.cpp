#include "cmroutingworker.h"
#include "core/model/cmmetatypes.h"
#include "core/model/cmrequest.h"
#include "core/model/cmrpccommon.h"
#include "core/orvo.h"
#include "records/orvoroles.h"
#include "records/orvorowsroles.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtEndian>
#include <QtTest>

#include <csignal>
#include <map>
#include <memory>

namespace {

constexpr int sampleRate = 8000;

/// Samples that are all different from their neighbours.
QByteArray tone(int milliseconds)
{
    QByteArray samples;
    for (int i = 0; i < sampleRate * milliseconds / 1000; ++i) {
        const qint16 sample = qToLittleEndian(qint16(i * 37 % 20000 - 10000));
        samples.append(reinterpret_cast<const char*>(&sample), sizeof sample);
    }
    return samples;
}

/// A sound file: mono, 16 bits.
QByteArray wave(const QByteArray& samples)
{
    const auto number = [](auto value) {
        value = qToLittleEndian(value);
        return QByteArray(reinterpret_cast<const char*>(&value), sizeof value);
    };
    return "RIFF" + number(quint32(samples.size() + 36)) + "WAVEfmt " + number(quint32(16)) + number(quint16(1))
           + number(quint16(1)) + number(quint32(sampleRate)) + number(quint32(sampleRate * 2)) + number(quint16(2))
           + number(quint16(16)) + "data" + number(quint32(samples.size())) + samples;
}

} // namespace

/// The services of the example device, without their supervisor.
class tst_Device : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<CMRoutingWorker> m_worker;
    std::map<QString, QProcess> m_processes;

    QString file(const QString& name) const { return m_folder->filePath(name); }
    bool start(const QString& program, const QStringList& arguments = {})
    {
        QProcess& process = m_processes[program];
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.start(QCoreApplication::applicationDirPath() + "/" + program, arguments);
        return process.waitForStarted();
    }
    bool startPlayer() { return start("player", {"--state", file("state"), "--sink", "ipc://" + file("audio")}); }

    template <typename Reply>
    static bool finish(const Reply& reply)
    {
        return QTest::qWaitFor([&] { return reply.isFinished(); }, 20000);
    }
    /// As a text; null when it failed.
    QString read(const QString& path)
    {
        const auto reply = m_worker->getData(CMPath::fromEncoded(path), {OrvoRoles::Value()});
        if (!finish(reply) || reply.error().isError())
            return QString();
        return orvoValueToQString(OrvoValue(reply.value().value(0).toHash()));
    }
    void write(const QString& path, const OrvoValue& value)
    {
        QVERIFY(finish(m_worker->setValue(CMPath::fromEncoded(path), value)));
    }
    /// The answer, or the message of the error with "!" ahead of it.
    QString invoke(const QString& path, const QVariant& value = true)
    {
        const auto reply = m_worker->invoke(CMPath::fromEncoded(path), value);
        if (!finish(reply))
            return "no answer";
        return reply.error().isError() ? "!" + reply.error().message() : reply.value().toString();
    }
    QStringList titles(const QString& path)
    {
        const auto reply = m_worker->getRows(CMPath::fromEncoded(path), 0, 99, -1, {OrvoRoles::Title()});
        QStringList titles;
        if (finish(reply))
            for (const QVariant& row : reply.value().rows().toList())
                titles.append(row.toList().value(0).toString());
        return titles;
    }

private slots:
    void initTestCase() { orvoRegisterMetaTypes(); }
    void init()
    {
        m_folder = std::make_unique<QTemporaryDir>();
        m_worker = std::make_unique<CMRoutingWorker>();
        m_worker->connectUnknown("devicetest");
    }
    void cleanup()
    {
        m_worker.reset();
        for (auto& [name, process] : m_processes) {
            process.terminate();
            QVERIFY2(process.waitForFinished(), qPrintable(name));
            QCOMPARE(process.exitCode(), 0);
        }
        m_processes.clear();
        m_folder.reset();
        for (const char* name : {"player", "stream", "settings", "network"})
            QVERIFY2(!QFile::exists(CMRPCSocket::socketPathFromPrefix(name)), name);
    }

    void volumeAndAttenuationMoveTogether()
    {
        QVERIFY(startPlayer());
        QCOMPARE(read("player:volume"), QString("20"));
        QCOMPARE(read("player:attenuation"), QString("-27.9"));
        write("player:volume", OrvoValue().setI32_(500));
        QCOMPARE(read("player:volume"), QString("50"));
        QCOMPARE(read("player:attenuation"), QString("0"));
        // The nearest step.
        write("player:attenuation", OrvoValue().setDouble_(-40));
        QCOMPARE(read("player:volume"), QString("12"));
        QCOMPARE(read("player:attenuation"), QString("-39.8"));
        write("player:attenuation", OrvoValue().setDouble_(-40.1));
        QCOMPARE(read("player:attenuation"), QString("-39.8"));
        write("player:attenuation", OrvoValue().setDouble_(-99));
        QCOMPARE(read("player:volume"), QString("0"));
    }

    void aKilledPlayerComesBackAsLoudAsItWas()
    {
        QVERIFY(startPlayer());
        write("player:volume", OrvoValue().setI32_(7));
        write("player:mute", OrvoValue().setBool_(true));
        m_processes["player"].kill();
        QVERIFY(m_processes["player"].waitForFinished());
        QVERIFY(startPlayer());
        // What is asked before the break is noticed is answered as cancelled.
        QTRY_COMPARE(read("player:volume"), QString("7"));
        QCOMPARE(read("player:mute"), QString("true"));
        QCOMPARE(read("player:attenuation"), QString("-47.9"));
    }

    void aDamagedStateFileIsPassedOver()
    {
        QFile state(file("state"));
        QVERIFY(state.open(QIODevice::WriteOnly));
        state.write("{\"volume\": 7");
        state.close();
        QVERIFY(startPlayer());
        QCOMPARE(read("player:volume"), QString("20"));
    }

    void theQueueIsPlayedInOrderAndReachesTheSink()
    {
        const QByteArray samples = tone(2000);
        QVERIFY(QDir().mkpath(file("music")));
        for (const char* name : {"music/one.wav", "music/two.wav"}) {
            QFile sound(file(name));
            QVERIFY(sound.open(QIODevice::WriteOnly) && sound.write(wave(samples)) > 0);
        }
        QVERIFY(start("orvo-sink", {"--keep", "ipc://" + file("audio"), file("heard.wav")}));
        QVERIFY(m_processes["orvo-sink"].waitForReadyRead());
        QVERIFY(start("media", {file("music")}));
        QVERIFY(startPlayer());
        QTRY_COMPARE(titles("media:library"), QStringList({"one", "two"}));
        write("player:volume", OrvoValue().setI32_(50));

        QCOMPARE(invoke("player:play"), QString("!There is nothing to play"));
        QCOMPARE(invoke("player:add", "media:track/two.wav"), QString("1"));
        QCOMPARE(invoke("player:add", "media:track/one.wav"), QString("2"));
        QCOMPARE(titles("player:queue"), QStringList({"two", "one"}));
        QCOMPARE(invoke("player:play"), QString("1"));
        QCOMPARE(read("player:state"), QString("playing"));
        QTRY_COMPARE(read("player:current"), QString("2"));
        QTRY_COMPARE(read("player:state"), QString("stopped"));
        QCOMPARE(read("player:current"), QString(""));
        QCOMPARE(read("player:position"), QString("0"));

        QFile heard(file("heard.wav"));
        QVERIFY(heard.open(QIODevice::ReadOnly));
        const QByteArray bytes = heard.readAll();
        // A reader that is kept waiting by a busy machine may lose blocks further on.
        QCOMPARE(bytes.mid(bytes.indexOf("data") + 8, 4000), samples.left(4000));
    }

    void pauseHoldsThePosition()
    {
        QVERIFY(QDir().mkpath(file("music")));
        QFile sound(file("music/one.wav"));
        QVERIFY(sound.open(QIODevice::WriteOnly) && sound.write(wave(tone(60000))) > 0);
        sound.close();
        QVERIFY(start("media", {file("music")}));
        QVERIFY(startPlayer());
        QTRY_COMPARE(titles("media:library"), QStringList("one"));
        QCOMPARE(invoke("player:add", "media:track/one.wav"), QString("1"));
        QCOMPARE(invoke("player:play"), QString("1"));
        QTRY_VERIFY(read("player:position").toInt() > 0);
        QCOMPARE(invoke("player:pause"), QString());
        QCOMPARE(read("player:state"), QString("paused"));
        const int position = read("player:position").toInt();
        QVERIFY(position > 0 && position < 60000);
        QTest::qWait(700);
        QCOMPARE(read("player:position").toInt(), position);
        QCOMPARE(invoke("player:play"), QString("1"));
        QTRY_VERIFY(read("player:position").toInt() > position);
        QCOMPARE(invoke("player:clear"), QString());
        QCOMPARE(read("player:state"), QString("stopped"));
        QCOMPARE(titles("player:queue"), QStringList());
    }

    void whatIsNoTrackIsNotQueued()
    {
        QVERIFY(startPlayer());
        QVERIFY(start("settings"));
        QVERIFY(QDir().mkpath(file("music")));
        QVERIFY(start("media", {file("music")}));
        QCOMPARE(invoke("player:add"), QString("!The path of a track is needed"));
        QCOMPARE(invoke("player:add", "media:library"), QString("!No sound file is behind media:library"));
        QVERIFY(invoke("player:add", "media:track/none.wav").startsWith("!"));
        QVERIFY(invoke("player:add", "settings:ui/language").startsWith("!"));
        QCOMPARE(titles("player:queue"), QStringList());
    }

    void theNetworkFormChecksItsInput()
    {
        QVERIFY(start("settings"));
        QCOMPARE(titles("settings:network"), QStringList({"Name", "Key", "Connect", "Disconnect"}));
        QCOMPARE(read("network:state/connected"), QString("true"));
        invoke("settings:network/disconnect");
        QCOMPARE(read("network:state/connected"), QString("false"));
        QCOMPARE(invoke("settings:network/connect"), QString("!The network needs a name"));
        write("settings:network/name", OrvoValue().setString_("Kitchen"));
        write("settings:network/key", OrvoValue().setString_("short"));
        QVERIFY(invoke("settings:network/connect").startsWith("!"));
        QCOMPARE(read("network:state/connected"), QString("false"));
        write("settings:network/key", OrvoValue().setString_("long enough"));
        QCOMPARE(invoke("settings:network/connect"), QString());
        QCOMPARE(read("network:state/connected"), QString("true"));
    }

    void aServiceOnAnotherScaleFollowsAndLeadsThePlayer()
    {
        QVERIFY(startPlayer());
        QVERIFY(start("streamer", {"--name", "stream", "--scale", "100"}));
        QTRY_COMPARE(read("stream:volume"), QString("40"));
        write("player:volume", OrvoValue().setI32_(11));
        QTRY_COMPARE(read("stream:volume"), QString("22"));
        write("player:mute", OrvoValue().setBool_(true));
        QTRY_COMPARE(read("stream:mute"), QString("true"));
        // Kept back for a while, as the device has just moved it; then the device takes it.
        write("stream:volume", OrvoValue().setI32_(34));
        QTRY_COMPARE(read("player:volume"), QString("17"));
        QCOMPARE(read("stream:volume"), QString("34"));
    }
};

QTEST_GUILESS_MAIN(tst_Device)
#include "tst_device.moc"
