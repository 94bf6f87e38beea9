#include "core/systemVolumeProxy.h"

#include "childprocess.h"
#include "core/model/cmvalueitem.h"
#include "core/orvo.h"
#include "logcapture.h"
#include "support/playerfixture.h"

#include <QtTest>

#include <memory>
#include <random>

namespace {

QList<double> mapOf(int entries)
{
    QList<double> map;
    for (int i = 0; i < entries; ++i)
        map.append(-entries + 1 + i);
    return map;
}

} // namespace

class tst_SystemVolumeProxy : public ProxyTest<SystemVolumeProxy>
{
    Q_OBJECT

private:
    void makeProxy(int mapEntries, int maxServiceVolume, int ignoreMs = longTime, bool noTimer = false)
    {
        create(mapOf(mapEntries), maxServiceVolume, ignoreMs, noTimer);
        connect(m_proxy.get(), &SystemVolumeProxy::volumeChanged, this,
                [this](int volume) { m_said.append(QString("volume %1").arg(volume)); });
        load();
    }

private slots:
    void cleanup() { clear(); }

    void itTellsItsScaleAndItsTimers_data()
    {
        QTest::addColumn<bool>("noTimer");
        QTest::addColumn<QString>("line");
        QTest::newRow("timer") << false << "DEBUG svc: Service max volume 100 timer";
        QTest::newRow("no timer") << true << "DEBUG svc: Service max volume 100 no timer";
    }

    void itTellsItsScaleAndItsTimers()
    {
        QFETCH(bool, noTimer);
        const LogCapture log("SystemVolumeProxy", log4cplus::DEBUG_LOG_LEVEL);
        makeProxy(51, 100, 1234, noTimer);
        QTEST(log.lines().value(0), "line");
        verifyTimers(noTimer ? 0 : 1234, 1234);
    }

    void theMapTellsTheDevicesScale()
    {
        makeProxy(51, 100);
        QCOMPARE(m_proxy->maxOrvoVolume(), 50);
    }

    void withoutAMapThereIsNoScale()
    {
        makeProxy(0, -1);
        QCOMPARE(m_proxy->maxOrvoVolume(), -1);
    }

    void aServiceVolumeIsScaledAndSent_data()
    {
        QTest::addColumn<int>("entries");
        QTest::addColumn<int>("maximum");
        QTest::addColumn<int>("volume");
        QTest::addColumn<int>("sent");
        QTest::newRow("middle") << 51 << 100 << 50 << 25;
        QTest::newRow("rounded up") << 51 << 100 << 99 << 50;
        QTest::newRow("rounded down") << 51 << 10 << 0 << 0;
        QTest::newRow("top") << 51 << 100 << 100 << 50;
        QTest::newRow("finer device") << 101 << 10 << 3 << 30;
        QTest::newRow("the device's scale") << 51 << -1 << 37 << 37;
        QTest::newRow("no scale") << 51 << 0 << 0 << 50;
    }

    void aServiceVolumeIsScaledAndSent()
    {
        QFETCH(int, entries);
        QFETCH(int, maximum);
        QFETCH(int, volume);
        QFETCH(int, sent);
        makeProxy(entries, maximum);
        m_player->setVolume(1);
        m_player->deliver();
        m_proxy->enable();
        m_proxy->setVolume(volume);
        QCOMPARE(m_player->takeWrites(), QStringList("setData player:volume value"));
        QCOMPARE(m_player->volume->value(), OrvoValue().setI32_(sent));
        QCOMPARE(m_said, QStringList());
    }

    void aDeviceVolumeIsScaledAndTold_data()
    {
        QTest::addColumn<int>("maximum");
        QTest::addColumn<int>("volume");
        QTest::addColumn<int>("told");
        QTest::newRow("middle") << 100 << 25 << 50;
        QTest::newRow("rounded") << 10 << 17 << 3;
        QTest::newRow("rounded up") << 10 << 18 << 4;
        QTest::newRow("the device's scale") << -1 << 37 << 37;
        QTest::newRow("no scale") << 0 << 37 << 0;
    }

    void aDeviceVolumeIsScaledAndTold()
    {
        QFETCH(int, maximum);
        QFETCH(int, volume);
        QFETCH(int, told);
        makeProxy(51, maximum);
        m_proxy->enable();
        m_player->setVolume(volume);
        m_player->deliver();
        QCOMPARE(take(), QStringList(QString("volume %1").arg(told)));
        QCOMPARE(m_proxy->volume(), told);
        QCOMPARE(m_player->takeWrites(), QStringList());
    }

    void muteGoesBothWays()
    {
        makeProxy(51, 100);
        m_proxy->enable();
        QVERIFY(!m_proxy->isMuted());
        m_proxy->setMute(true);
        QCOMPARE(m_player->takeWrites(), QStringList("setData player:mute value"));
        QCOMPARE(m_player->mute->value(), OrvoValue().setBool_(true));
        m_player->deliver();
        QVERIFY(m_proxy->isMuted());
        QCOMPARE(take(), QStringList());
        endIgnoreTimes(m_proxy.get());
        m_player->setMute(false);
        m_player->deliver();
        QCOMPARE(take(), QStringList("unmute"));
        QVERIFY(!m_proxy->isMuted());
    }

    void nothingPassesBeforeItIsEnabledAndAfterItIsDisabled()
    {
        makeProxy(51, 100);
        for (int i = 0; i < 2; ++i) {
            m_proxy->setVolume(40 + i);
            m_proxy->setMute(true);
            m_player->setVolume(10 + i);
            m_player->setMute(i == 0);
            m_player->deliver();
            QCOMPARE(m_player->takeWrites(), QStringList());
            QCOMPARE(take(), QStringList());
            QVERIFY(!inIgnoreTime(m_proxy.get()));
            m_proxy->enable();
            m_proxy->disable();
        }
    }

    void theFirstValuesAreKnownWhenItIsEnabled()
    {
        m_player = std::make_unique<PlayerFixture>(mapOf(51));
        m_player->setVolume(20);
        m_player->setMute(true);
        SystemVolumeProxy proxy("svc", 100, longTime, false);
        QSignalSpy volumes(&proxy, SIGNAL(volumeChanged(int)));
        QTRY_VERIFY(isLoaded(&proxy));
        QCoreApplication::processEvents();
        QCOMPARE(proxy.volume(), 40);
        QVERIFY(proxy.isMuted());
        proxy.enable();
        QCOMPARE(volumes.size(), 0);
        // The same as the device has: when the time is over, nothing is left to settle.
        proxy.setVolume(40);
        proxy.setMute(true);
        endIgnoreTimes(&proxy);
        QCOMPARE(volumes.size(), 0);
    }

    void anEnabledProxyTellsTheFirstValues()
    {
        m_player = std::make_unique<PlayerFixture>(mapOf(51));
        m_player->setVolume(20);
        SystemVolumeProxy proxy("svc", 100, longTime, false);
        QStringList said;
        connect(&proxy, &SystemVolumeProxy::volumeChanged, this,
                [&](int v) { said.append(QString("volume %1").arg(v)); });
        connect(&proxy, &SystemVolumeProxy::muteChanged, this, [&](bool m) { said.append(m ? "mute" : "unmute"); });
        proxy.enable();
        QTRY_COMPARE(said, (QStringList{"volume 40", "unmute"}));
    }

    void anEchoIsNotPassedBack()
    {
        makeProxy(51, 100);
        m_proxy->enable();
        m_player->setVolume(25);
        m_player->deliver();
        QCOMPARE(take(), QStringList("volume 50"));
        m_proxy->setVolume(50);
        endIgnoreTimes(m_proxy.get());
        QCOMPARE(m_player->takeWrites(), QStringList());
        m_proxy->setVolume(30);
        m_player->deliver();
        endIgnoreTimes(m_proxy.get());
        QCOMPARE(take(), QStringList());
        QCOMPARE(m_player->takeWrites().size(), 1);
    }

    void withoutATimerAServiceVolumePassesAtOnce()
    {
        makeProxy(51, 100, longTime, true);
        m_proxy->enable();
        m_player->setVolume(25);
        m_player->deliver();
        QCOMPARE(take(), QStringList("volume 50"));
        QVERIFY(!inIgnoreTime(m_proxy.get()));
        m_proxy->setVolume(60);
        QCOMPARE(m_player->volume->value().i32_(), 30);
        // The device's echo is still kept back.
        QVERIFY(inIgnoreTime(m_proxy.get()));
        m_player->deliver();
        QCOMPARE(take(), QStringList());
    }

    void confirmationIsAskedOfTheVolumeOnly()
    {
        makeProxy(51, 100);
        m_proxy->requireVolumeConfirmation(false);
        m_proxy->enable();
        m_player->setVolume(10);
        m_player->setMute(true);
        m_player->deliver();
        m_proxy->setVolume(60);
        m_proxy->setMute(false);
        m_player->setVolume(11);
        m_player->deliver();
        m_player->takeWrites();
        endIgnoreTimes(m_proxy.get());
        QCOMPARE(m_player->takeWrites(), QStringList("setData player:mute value"));
        QCOMPARE(m_player->volume->value().i32_(), 11);
        QCOMPARE(m_player->mute->value().bool_(), false);
    }

    void aVolumeOutsideItsScaleStopsTheProcess_data()
    {
        QTest::addColumn<QString>("what");
        QTest::addColumn<bool>("stops");
        QTest::newRow("above the service's scale") << "101" << true;
        QTest::newRow("below 0") << "-1" << true;
        QTest::newRow("device volume above the map") << "device" << true;
        QTest::newRow("without a map") << "nomap" << true;
        QTest::newRow("within") << "100" << false;
    }

    void aVolumeOutsideItsScaleStopsTheProcess()
    {
        QFETCH(QString, what);
        const ChildEnd end = runThisProgram({"--volume", what});
        QTEST(end.stopped, "stops");
    }

    void itMayBeDestroyedWhenItTells()
    {
        m_player = std::make_unique<PlayerFixture>(mapOf(51));
        auto* proxy = new SystemVolumeProxy("svc", 100, longTime, false);
        const QPointer<SystemVolumeProxy> alive(proxy);
        connect(proxy, &SystemVolumeProxy::volumeChanged, this, [&] { delete proxy; });
        proxy->enable();
        QTRY_VERIFY(!alive);
        QCoreApplication::processEvents();
    }

    /// The service answers each volume it is told with its own, as a real one does, after a while.
    void aServiceAndTheDeviceComeToOneVolume_data()
    {
        QTest::addColumn<int>("entries");
        QTest::addColumn<int>("maximum");
        QTest::newRow("service coarser") << 101 << 10;
        QTest::newRow("device coarser") << 11 << 100;
        QTest::newRow("equal") << 51 << -1;
    }

    void aServiceAndTheDeviceComeToOneVolume()
    {
        QFETCH(int, entries);
        QFETCH(int, maximum);
        makeProxy(entries, maximum, 60);
        m_proxy->enable();
        const int top = maximum < 0 ? entries - 1 : maximum;
        std::mt19937 random(7);
        int volume = 0;
        int reports = 0;
        const auto report = [&] {
            ++reports;
            QTimer::singleShot(int(random() % 20), m_proxy.get(), [&, volume] { m_proxy->setVolume(volume); });
        };
        connect(m_proxy.get(), &SystemVolumeProxy::volumeChanged, m_proxy.get(), [&](int told) {
            if (told == volume)
                return;
            volume = told;
            report();
        });
        m_player->takeWrites();
        const int changes = 10;
        for (int i = 0; i < changes; ++i) {
            if (random() % 2) {
                volume = int(random() % unsigned(top + 1));
                report();
            } else {
                m_player->setVolume(int(random() % unsigned(entries)));
            }
            QTest::qWait(int(random() % 30));
        }
        const auto agree = [&] {
            const int device = m_player->volume->value().i32_();
            return volume == orvoScaleVolume(device, entries - 1, top)
                   || device == orvoScaleVolume(volume, top, entries - 1);
        };
        QTRY_VERIFY(!inIgnoreTime(m_proxy.get()) && agree());
        // And stay there.
        QTest::qWait(200);
        QVERIFY(agree());
        const int messages = m_said.size() + m_player->takeWrites().size();
        QVERIFY2(messages <= 4 * changes, qPrintable(QString::number(messages)));
    }
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.value(1) == QLatin1String("--volume")) {
        leaveNoCore();
        const QString what = arguments.value(2);
        const PlayerFixture player(mapOf(what == "nomap" ? 0 : 51));
        SystemVolumeProxy proxy("svc", 100, 1000, false);
        proxy.enable();
        if (what == "device")
            player.setVolume(51);
        else
            proxy.setVolume(what == "nomap" ? 1 : what.toInt());
        QTimer::singleShot(200, &application, &QCoreApplication::quit);
        return QCoreApplication::exec();
    }
    tst_SystemVolumeProxy test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_systemvolumeproxy.moc"
