#include "core/serviceValueSynchronizer.h"

#include "logcapture.h"
#include "support/synchronizertimers.h"
#include "support/virtualclock.h"

#include <QStringList>
#include <QtTest>

#include <functional>
#include <memory>
#include <random>

namespace {

/// An hour: no time is over in these tests unless they say so.
const int longTime = 3600000;

/// A synchronizer and what it says.
struct Desk
{
    explicit Desk(int systemMs = longTime, int serviceMs = longTime, bool enabled = true)
        : log("ServiceValueSynchronizer"), synchronizer("svc", systemMs, serviceMs), timers(&synchronizer)
    {
        QObject::connect(&synchronizer, &ServiceValueSynchronizer::updateServiceValue,
                         [this](const QVariant& value) { said.append("service " + value.toString()); });
        QObject::connect(&synchronizer, &ServiceValueSynchronizer::updateSystemValue,
                         [this](const QVariant& value) { said.append("system " + value.toString()); });
        if (enabled)
            synchronizer.enable();
    }
    QStringList take()
    {
        QStringList taken;
        taken.swap(said);
        return taken;
    }
    QString lastLine() const { return log.lines().isEmpty() ? QString() : log.lines().last(); }

    LogCapture log;
    ServiceValueSynchronizer synchronizer;
    SynchronizerTimers timers;
    QStringList said;
};

/**
 * Two sides that report each change they make, also those they got from the other one, over channels that keep the
 * order and take their time. One that echoes answers each value it gets by the one it holds then, another one only if
 * that is a new one. On a clock of its own.
 */
class Simulation
{
public:
    static constexpr int ignoreMs = 100;
    /// Back and forth it takes less than the ignore time.
    static constexpr int delayMs = 45;

    struct Side
    {
        int value = 0;
        int step = 1;
        int lastIn = 0;
        int lastOut = 0;
        /// When a report of this side was passed on, which begins its ignore time.
        int passed = -ignoreMs;
        bool reporting = false;
        std::function<void(int)> report;
    };

    Simulation(VirtualClock* clock, unsigned seed, int systemStep, int serviceStep, bool echoing)
        : m_clock(clock), m_random(seed), m_echoing(echoing), m_synchronizer("sim", ignoreMs, ignoreMs)
    {
        system.step = systemStep;
        service.step = serviceStep;
        system.report = [this](int value) { m_synchronizer.setSystemValue(value); };
        service.report = [this](int value) { m_synchronizer.setServiceValue(value); };
        QObject::connect(&m_synchronizer, &ServiceValueSynchronizer::updateServiceValue,
                         [this](const QVariant& value) { pass(system, service, value.toInt()); });
        QObject::connect(&m_synchronizer, &ServiceValueSynchronizer::updateSystemValue,
                         [this](const QVariant& value) { pass(service, system, value.toInt()); });
        m_synchronizer.enable();
    }

    /// Somebody moves a slider of either side now and then.
    void addUsers(int changes, int withinMs)
    {
        for (int i = 0; i < changes; ++i) {
            Side& side = upTo(1) ? system : service;
            const int value = upTo(100);
            const int time = upTo(withinMs);
            m_clock->at(time, [this, &side, value] { take(side, value, false); });
            m_lastChange = qMax(m_lastChange, time);
        }
    }

    void run()
    {
        while (!m_clock->idle() && settling() < 100 * ignoreMs)
            m_clock->step();
    }

    /// Milliseconds since the last user let go.
    int settling() const { return m_clock->now() - m_lastChange; }

    Side system;
    Side service;
    int messages = 0;
    QString fault;

private:
    int upTo(int most) { return int(m_random() % unsigned(most + 1)); }
    /// The side gets a value from its user or from the other one.
    void take(Side& side, int value, bool echo)
    {
        value = value / side.step * side.step;
        if (value == side.value && !echo)
            return;
        side.value = value;
        side.lastOut = qMax(side.lastOut, m_clock->now() + upTo(delayMs));
        m_clock->at(side.lastOut, [&side, value] {
            side.reporting = true;
            side.report(value);
            side.reporting = false;
        });
    }
    /// The synchronizer passes a value on.
    void pass(Side& from, Side& to, int value)
    {
        const int now = m_clock->now();
        ++messages;
        if (now - to.passed < ignoreMs)
            fault = QStringLiteral("sent back after %1 ms").arg(now - to.passed);
        if (from.reporting)
            from.passed = now;
        to.lastIn = qMax(to.lastIn, now + upTo(delayMs));
        m_clock->at(to.lastIn, [this, &to, value] { take(to, value, m_echoing); });
    }

    VirtualClock* const m_clock;
    std::mt19937 m_random;
    const bool m_echoing;
    ServiceValueSynchronizer m_synchronizer;
    int m_lastChange = 0;
};

} // namespace

class tst_ServiceValueSynchronizer : public QObject
{
    Q_OBJECT

private slots:
    void theTimesAreThoseGiven()
    {
        const Desk desk(7, 11);
        QCOMPARE(desk.timers.system->interval(), 7);
        QCOMPARE(desk.timers.service->interval(), 11);
        QVERIFY(desk.timers.system->isSingleShot() && desk.timers.service->isSingleShot());
        QVERIFY(!desk.timers.running());
    }

    // Disabled

    void aNewOneIsDisabledAndPassesNothing()
    {
        Desk desk(longTime, longTime, false);
        desk.synchronizer.setServiceValue(1);
        desk.synchronizer.setSystemValue(2);
        QCOMPARE(desk.said, QStringList());
        QVERIFY(!desk.timers.running());
        const QString line = "DEBUG svc: Service value synchronizer not enabled, skipping value update";
        QCOMPARE(desk.log.lines(), (QStringList{line, line}));
    }

    void onlyTheSystemsValueIsRememberedWhileDisabled()
    {
        Desk desk(longTime, longTime, false);
        desk.synchronizer.setSystemValue(2);
        desk.synchronizer.setServiceValue(1);
        desk.synchronizer.enable();
        QCOMPARE(desk.said, QStringList());
        // The same as the system has: nothing is left to settle.
        desk.synchronizer.setServiceValue(2);
        QCOMPARE(desk.take(), QStringList("system 2"));
        SynchronizerTimers::expire(desk.timers.service);
        QCOMPARE(desk.said, QStringList());
    }

    void disablingEndsTheIgnoreTimesWithoutSettling()
    {
        Desk desk;
        desk.synchronizer.setSystemValue(1);
        desk.synchronizer.setServiceValue(2);
        QCOMPARE(desk.take(), QStringList("service 1"));
        desk.synchronizer.disable();
        QVERIFY(!desk.timers.running());
        desk.synchronizer.enable();
        desk.synchronizer.setServiceValue(3);
        desk.synchronizer.setSystemValue(4);
        QCOMPARE(desk.take(), QStringList("system 3"));
        desk.synchronizer.disable();
        QVERIFY(!desk.timers.running());
        QCOMPARE(desk.said, QStringList());
    }

    // From the service

    void aServiceValueGoesToTheSystemAtOnce()
    {
        Desk desk;
        desk.synchronizer.setServiceValue(5);
        QCOMPARE(desk.take(), QStringList("system 5"));
        QCOMPARE(desk.log.lines(), QStringList("DEBUG svc: Setting system value to 5"));
        QVERIFY(desk.timers.service->isActive() && !desk.timers.system->isActive());
        // And so does the next.
        desk.synchronizer.setServiceValue(6);
        QCOMPARE(desk.take(), QStringList("system 6"));
    }

    void theSystemsEchoIsNotPassed()
    {
        Desk desk;
        desk.synchronizer.setServiceValue(5);
        desk.take();
        desk.synchronizer.setSystemValue(5);
        QCOMPARE(desk.lastLine(),
                 QString("DEBUG svc: Value is currently being updated from service, skipping value update"));
        const int lines = desk.log.lines().size();
        SynchronizerTimers::expire(desk.timers.service);
        QCOMPARE(desk.said, QStringList());
        QVERIFY(!desk.timers.running());
        QCOMPARE(desk.log.lines().size(), lines);
    }

    void aSystemValueThatDiffersAtTheTimeoutGoesToTheServiceThen()
    {
        Desk desk;
        desk.synchronizer.setServiceValue(5);
        desk.synchronizer.setSystemValue(5);
        desk.synchronizer.setSystemValue(4);
        QCOMPARE(desk.take(), QStringList("system 5"));
        SynchronizerTimers::expire(desk.timers.service);
        QCOMPARE(desk.take(), QStringList("service 4"));
        QCOMPARE(desk.lastLine(), QString("DEBUG Timer expired: applying the last orvo mute 4"));
        QVERIFY(desk.timers.system->isActive() && !desk.timers.service->isActive());
        // The service takes it, and all is settled.
        desk.synchronizer.setServiceValue(4);
        SynchronizerTimers::expire(desk.timers.system);
        QCOMPARE(desk.said, QStringList());
        QVERIFY(!desk.timers.running());
    }

    // From the system

    void aSystemValueGoesToTheServiceAtOnce()
    {
        Desk desk;
        desk.synchronizer.setSystemValue(5);
        QCOMPARE(desk.take(), QStringList("service 5"));
        QCOMPARE(desk.log.lines(), QStringList());
        QVERIFY(desk.timers.system->isActive() && !desk.timers.service->isActive());
        desk.synchronizer.setSystemValue(6);
        QCOMPARE(desk.take(), QStringList("service 6"));
    }

    void aServiceValueEqualToTheSystemsAtTheTimeoutIsDropped()
    {
        Desk desk;
        desk.synchronizer.setSystemValue(5);
        desk.take();
        desk.synchronizer.setServiceValue(7);
        QCOMPARE(desk.lastLine(), QString("DEBUG svc: Value is currently being updated from system, skipping update"));
        desk.synchronizer.setServiceValue(5);
        const int lines = desk.log.lines().size();
        SynchronizerTimers::expire(desk.timers.system);
        QCOMPARE(desk.said, QStringList());
        QCOMPARE(desk.log.lines().size(), lines);
    }

    void aServiceValueThatDiffersAtTheTimeoutGoesToTheSystemThen()
    {
        Desk desk;
        desk.synchronizer.setSystemValue(5);
        desk.synchronizer.setServiceValue(7);
        QCOMPARE(desk.take(), QStringList("service 5"));
        SynchronizerTimers::expire(desk.timers.system);
        QCOMPARE(desk.take(), QStringList("system 7"));
        QCOMPARE(desk.lastLine(), QString("DEBUG Timer expired: applying the last service mute 7"));
        // No ignore time follows, and nothing is left to apply.
        QVERIFY(!desk.timers.running());
        desk.synchronizer.setSystemValue(8);
        QCOMPARE(desk.take(), QStringList("service 8"));
        SynchronizerTimers::expire(desk.timers.system);
        QCOMPARE(desk.said, QStringList());
    }

    void aZeroIsAValueLikeAnyOther_data()
    {
        QTest::addColumn<QVariant>("zero");
        QTest::addColumn<QVariant>("one");
        QTest::newRow("int") << QVariant(0) << QVariant(1);
        QTest::newRow("bool") << QVariant(false) << QVariant(true);
        QTest::newRow("double") << QVariant(0.0) << QVariant(1.0);
    }

    void aZeroIsAValueLikeAnyOther()
    {
        QFETCH(QVariant, zero);
        QFETCH(QVariant, one);
        Desk desk;
        desk.synchronizer.setSystemValue(one);
        desk.synchronizer.setServiceValue(zero);
        SynchronizerTimers::expire(desk.timers.system);
        QCOMPARE(desk.take(), (QStringList{"service " + one.toString(), "system " + zero.toString()}));
    }

    void withoutATimeForTheSystemNothingIsHeldBack()
    {
        Desk desk(0);
        desk.synchronizer.setSystemValue(5);
        QVERIFY(!desk.timers.running());
        desk.synchronizer.setServiceValue(7);
        QCOMPARE(desk.take(), (QStringList{"service 5", "system 7"}));
        QVERIFY(desk.timers.service->isActive());
        // What the service changes still keeps the system back.
        desk.synchronizer.setSystemValue(8);
        QCOMPARE(desk.take(), QStringList());
        SynchronizerTimers::expire(desk.timers.service);
        QCOMPARE(desk.take(), QStringList("service 8"));
        QVERIFY(!desk.timers.running());
    }

    // Confirmation

    void aSystemChangeKeepsOrWipesWhatTheServiceWished_data()
    {
        QTest::addColumn<bool>("required");
        QTest::addColumn<QStringList>("said");
        QTest::newRow("kept") << true << (QStringList{"service 5", "service 6", "system 7"});
        QTest::newRow("wiped") << false << (QStringList{"service 5", "service 6"});
    }

    void aSystemChangeKeepsOrWipesWhatTheServiceWished()
    {
        QFETCH(bool, required);
        Desk desk;
        desk.synchronizer.requireValueConfirmation(required);
        desk.synchronizer.setSystemValue(5);
        desk.synchronizer.setServiceValue(7);
        desk.synchronizer.setSystemValue(6);
        SynchronizerTimers::expire(desk.timers.system);
        QTEST(desk.said, "said");
    }

    // Two timers

    void theLastOfTwoTimesSettles_data()
    {
        QTest::addColumn<bool>("systemFirst");
        QTest::addColumn<QStringList>("said");
        QTest::newRow("system's first") << true << QStringList("service 5");
        QTest::newRow("service's first") << false << QStringList("system 7");
    }

    /// Both run only when a time is prolonged from outside.
    void theLastOfTwoTimesSettles()
    {
        QFETCH(bool, systemFirst);
        Desk desk;
        desk.synchronizer.setSystemValue(5);
        desk.synchronizer.setServiceValue(7);
        desk.take();
        desk.timers.service->start();
        SynchronizerTimers::expire(systemFirst ? desk.timers.system : desk.timers.service);
        QCOMPARE(desk.said, QStringList());
        SynchronizerTimers::expire(systemFirst ? desk.timers.service : desk.timers.system);
        QTEST(desk.said, "said");
    }

    // Signals

    void theTimesEndByThemselves()
    {
        Desk desk(10, 10);
        desk.synchronizer.setSystemValue(1);
        desk.synchronizer.setServiceValue(2);
        QTRY_COMPARE(desk.said, (QStringList{"service 1", "system 2"}));
        desk.synchronizer.setServiceValue(3);
        desk.synchronizer.setSystemValue(4);
        QTRY_COMPARE(desk.said.mid(2), (QStringList{"system 3", "service 4"}));
    }

    void itMayBeDestroyedWhenItTells_data()
    {
        QTest::addColumn<bool>("bySystem");
        QTest::newRow("system's time") << true;
        QTest::newRow("service's time") << false;
    }

    void itMayBeDestroyedWhenItTells()
    {
        QFETCH(bool, bySystem);
        auto* synchronizer = new ServiceValueSynchronizer("svc", longTime, longTime);
        synchronizer->enable();
        if (bySystem) {
            synchronizer->setSystemValue(1);
            synchronizer->setServiceValue(2);
        } else {
            synchronizer->setServiceValue(2);
            synchronizer->setSystemValue(1);
        }
        QPointer<ServiceValueSynchronizer> alive(synchronizer);
        const auto destroy = [&] { delete synchronizer; };
        connect(synchronizer, &ServiceValueSynchronizer::updateServiceValue, this, destroy);
        connect(synchronizer, &ServiceValueSynchronizer::updateSystemValue, this, destroy);
        const SynchronizerTimers timers(synchronizer);
        SynchronizerTimers::expire(bySystem ? timers.system : timers.service);
        QVERIFY(!alive);
    }

    // Two sides

    void twoSidesThatEchoEachOtherComeToOneValue_data()
    {
        QTest::addColumn<int>("systemStep");
        QTest::addColumn<int>("serviceStep");
        QTest::addColumn<int>("withinMs");
        QTest::addColumn<bool>("echoing");
        for (const bool echoing : {true, false}) {
            const char* kind = echoing ? "echoing" : "reporting changes";
            for (const int withinMs : {5000, 300, 20}) {
                QTest::addRow("equal scales, %s, %d ms", kind, withinMs) << 1 << 1 << withinMs << echoing;
                QTest::addRow("service coarser, %s, %d ms", kind, withinMs) << 1 << 7 << withinMs << echoing;
                QTest::addRow("system coarser, %s, %d ms", kind, withinMs) << 7 << 1 << withinMs << echoing;
            }
        }
    }

    void twoSidesThatEchoEachOtherComeToOneValue()
    {
        QFETCH(int, systemStep);
        QFETCH(int, serviceStep);
        QFETCH(int, withinMs);
        QFETCH(bool, echoing);
        // A side that says nothing of a value that changed nothing leaves the other one with what it rounded.
        const int step = echoing ? 1 : qMax(systemStep, serviceStep);
        const int changes = 12;
        const LogCapture quiet("ServiceValueSynchronizer", log4cplus::OFF_LOG_LEVEL);
        QString fault;
        int mostMessages = 0;
        int longest = 0;
        for (unsigned seed = 1; seed <= 500 && fault.isEmpty(); ++seed) {
            VirtualClock::run([&](VirtualClock* clock) {
                Simulation simulation(clock, seed, systemStep, serviceStep, echoing);
                simulation.addUsers(changes, withinMs);
                simulation.run();
                fault = simulation.fault;
                if (simulation.system.value / step != simulation.service.value / step)
                    fault = QString("system %1, service %2").arg(simulation.system.value).arg(simulation.service.value);
                if (!fault.isEmpty())
                    fault.prepend(QString("seed %1: ").arg(seed));
                mostMessages = qMax(mostMessages, simulation.messages);
                longest = qMax(longest, simulation.settling());
            });
        }
        QVERIFY2(fault.isEmpty(), qPrintable(fault));
        QVERIFY2(mostMessages <= 3 * changes, qPrintable(QString::number(mostMessages)));
        QVERIFY2(longest <= 6 * Simulation::ignoreMs, qPrintable(QString::number(longest)));
        qInfo("at most %d messages, settled within %d ms", mostMessages, longest);
    }
};

QTEST_GUILESS_MAIN(tst_ServiceValueSynchronizer)
#include "tst_servicevaluesynchronizer.moc"
