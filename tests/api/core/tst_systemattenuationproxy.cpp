#include "core/systemAttenuationProxy.h"

#include "childprocess.h"
#include "core/model/cmvalueitem.h"
#include "logcapture.h"
#include "support/playerfixture.h"

#include <QtTest>

#include <memory>

class tst_SystemAttenuationProxy : public ProxyTest<SystemAttenuationProxy>
{
    Q_OBJECT

private:
    void makeProxy(const QList<double>& map, int ignoreMs = longTime, bool noTimer = false)
    {
        create(map, ignoreMs, noTimer);
        connect(m_proxy.get(), &SystemAttenuationProxy::attenuationChanged, this,
                [this](double value) { m_said.append(QString("attenuation %1").arg(value)); });
        load();
    }

private slots:
    void cleanup() { clear(); }

    void itTellsItsTimers_data()
    {
        QTest::addColumn<bool>("noTimer");
        QTest::addColumn<QString>("line");
        QTest::newRow("timer") << false << "DEBUG svc timer";
        QTest::newRow("no timer") << true << "DEBUG svc no timer";
    }

    void itTellsItsTimers()
    {
        QFETCH(bool, noTimer);
        const LogCapture log("SystemVolumeProxy");
        makeProxy({-60, -30, 0}, 1234, noTimer);
        QTEST(log.lines().value(0), "line");
        verifyTimers(noTimer ? 0 : 1234, 1234);
        const int before = log.lines().size();
        m_proxy->setAttenuation(-30);
        QVERIFY(log.lines().size() > before);
    }

    void anAttenuationSnapsToTheNearestOfTheMap_data()
    {
        QTest::addColumn<QList<double>>("map");
        QTest::addColumn<double>("attenuation");
        QTest::addColumn<double>("sent");
        const QList<double> map{-60, -30, 0};
        QTest::newRow("nearer to the one above") << map << -40.0 << -30.0;
        QTest::newRow("nearer to the one below") << map << -50.0 << -60.0;
        QTest::newRow("tie") << map << -45.0 << -30.0;
        QTest::newRow("above all") << map << 5.0 << 0.0;
        QTest::newRow("below all") << map << -100.0 << -60.0;
        QTest::newRow("first") << map << -60.0 << -60.0;
        QTest::newRow("middle") << map << -30.0 << -30.0;
        QTest::newRow("last") << map << 0.0 << 0.0;
        QTest::newRow("one below") << QList<double>{-7} << -8.0 << -7.0;
        QTest::newRow("one above") << QList<double>{-7} << -6.0 << -7.0;
        QTest::newRow("fractions") << QList<double>{-1.5, -0.5} << -1.01 << -1.5;
    }

    void anAttenuationSnapsToTheNearestOfTheMap()
    {
        QFETCH(QList<double>, map);
        QFETCH(double, attenuation);
        QFETCH(double, sent);
        makeProxy(map);
        m_player->setAttenuation(-1000);
        m_player->deliver();
        m_proxy->enable();
        m_proxy->setAttenuation(attenuation);
        QCOMPARE(m_player->takeWrites(), QStringList("setData player:attenuation value"));
        QCOMPARE(m_player->attenuation->value(), OrvoValue().setDouble_(sent));
    }

    void theStrongestAttenuationIsTheFirst()
    {
        makeProxy({-60, -30, 0});
        QCOMPARE(m_proxy->maxOrvoAttenuation(), -60.0);
    }

    void aDeviceAttenuationIsToldAsItIs()
    {
        makeProxy({-60, -30, 0});
        m_proxy->enable();
        m_player->setAttenuation(-42.5);
        m_player->deliver();
        QCOMPARE(take(), QStringList("attenuation -42.5"));
        QCOMPARE(m_proxy->attenuation(), -42.5);
        QCOMPARE(m_player->takeWrites(), QStringList());
    }

    void muteGoesBothWays()
    {
        makeProxy({-60, 0});
        m_proxy->enable();
        m_proxy->setMute(true);
        QCOMPARE(m_player->takeWrites(), QStringList("setData player:mute value"));
        m_player->deliver();
        QVERIFY(m_proxy->isMuted());
        QCOMPARE(take(), QStringList());
        endIgnoreTimes(m_proxy.get());
        m_player->setMute(false);
        m_player->deliver();
        QCOMPARE(take(), QStringList("unmute"));
    }

    void nothingPassesBeforeItIsEnabledAndAfterItIsDisabled()
    {
        makeProxy({-60, -30, 0});
        for (int i = 0; i < 2; ++i) {
            m_proxy->setAttenuation(-30);
            m_proxy->setMute(true);
            m_player->setAttenuation(-10 - i);
            m_player->setMute(i == 0);
            m_player->deliver();
            QCOMPARE(m_player->takeWrites(), QStringList());
            QCOMPARE(take(), QStringList());
            QVERIFY(!inIgnoreTime(m_proxy.get()));
            m_proxy->enable();
            m_proxy->disable();
        }
    }

    void theServicesOwnAttenuationIsCorrectedWhenTheTimeIsOver()
    {
        makeProxy({-60, -30, 0});
        m_proxy->enable();
        m_player->setAttenuation(-42.5);
        m_player->deliver();
        // The service took what it was told, and the map has nothing like it.
        m_proxy->setAttenuation(-42.5);
        QCOMPARE(m_player->takeWrites(), QStringList());
        endIgnoreTimes(m_proxy.get());
        QCOMPARE(m_player->attenuation->value().double_(), -30.0);
        m_player->deliver();
        QCOMPARE(take(), (QStringList{"attenuation -42.5", "attenuation -30"}));
        m_proxy->setAttenuation(-30);
        endIgnoreTimes(m_proxy.get());
        QVERIFY(!inIgnoreTime(m_proxy.get()));
        QCOMPARE(take(), QStringList());
        QCOMPARE(m_player->takeWrites().size(), 1);
    }

    void confirmationIsAskedOfTheAttenuationOnly()
    {
        makeProxy({-60, -30, 0});
        m_proxy->requireVolumeConfirmation(false);
        m_proxy->enable();
        m_player->setAttenuation(-10);
        m_player->setMute(true);
        m_player->deliver();
        m_proxy->setAttenuation(-60);
        m_proxy->setMute(false);
        m_player->setAttenuation(-11);
        m_player->deliver();
        m_player->takeWrites();
        endIgnoreTimes(m_proxy.get());
        QCOMPARE(m_player->takeWrites(), QStringList("setData player:mute value"));
        QCOMPARE(m_player->attenuation->value().double_(), -11.0);
    }

    void withoutAMapAnAttenuationStopsTheProcess_data()
    {
        QTest::addColumn<QString>("what");
        QTest::addColumn<bool>("stops");
        QTest::newRow("setting") << "set" << true;
        QTest::newRow("asking for the strongest") << "max" << true;
        QTest::newRow("muting") << "mute" << false;
    }

    void withoutAMapAnAttenuationStopsTheProcess()
    {
        QFETCH(QString, what);
        QFETCH(bool, stops);
        const ChildEnd end = runThisProgram({"--without-map", what});
        QCOMPARE(end.stopped, stops);
        QVERIFY2(end.errors.contains("\"!isEmpty()\"") == stops, end.errors.constData());
    }

    void itMayBeDestroyedWhenItTells()
    {
        m_player = std::make_unique<PlayerFixture>(QList<double>{-60, 0});
        auto* proxy = new SystemAttenuationProxy("svc", longTime, false);
        const QPointer<SystemAttenuationProxy> alive(proxy);
        connect(proxy, &SystemAttenuationProxy::attenuationChanged, this, [&] { delete proxy; });
        proxy->enable();
        QTRY_VERIFY(!alive);
        QCoreApplication::processEvents();
    }
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.value(1) == QLatin1String("--without-map")) {
        leaveNoCore();
        const PlayerFixture player;
        SystemAttenuationProxy proxy("svc", 1000, false);
        const QString what = arguments.value(2);
        if (what == "set")
            proxy.setAttenuation(-1);
        else if (what == "max")
            return int(proxy.maxOrvoAttenuation());
        else
            proxy.setMute(true);
        return 0;
    }
    tst_SystemAttenuationProxy test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_systemattenuationproxy.moc"
