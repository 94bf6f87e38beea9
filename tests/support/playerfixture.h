#pragma once

#include "core/model/nodes/cmvaluenode.h"
#include "core/serviceValueSynchronizer.h"
#include "nodetest.h"
#include "records/orvoconstants.h"
#include "support/synchronizertimers.h"

#include <QRegularExpression>

#include <memory>

/// The player's part of the tree, in this process.
class PlayerFixture
{
public:
    explicit PlayerFixture(const QList<double>& volumeMap = {})
    {
        if (!volumeMap.isEmpty())
            make(OrvoPlayerVolumeMapPath())->setValue(OrvoValue().setDoubleList(volumeMap));
        volume = make(OrvoPlayerVolumePath());
        volume->setValue(OrvoValue().setI32_(0));
        attenuation = make(OrvoPlayerAttenuationPath());
        attenuation->setValue(OrvoValue().setDouble_(0));
        mute = make(OrvoPlayerMutePath());
        mute->setValue(OrvoValue().setBool_(false));
    }

    /// The requests that changed the player, as they were sent.
    QStringList takeWrites()
    {
        const QStringList writes = fixture.root()->requests.filter(QRegularExpression("^setData "));
        fixture.root()->requests.clear();
        return writes;
    }
    void setVolume(int value) const { volume->setValue(OrvoValue().setI32_(value)); }
    void setAttenuation(double value) const { attenuation->setValue(OrvoValue().setDouble_(value)); }
    void setMute(bool value) const { mute->setValue(OrvoValue().setBool_(value)); }
    /// What the nodes told so far has arrived.
    void deliver() const
    {
        fixture.hub()->deliver();
        QCoreApplication::processEvents();
    }

    NodesFixture fixture;
    CMValueNode* volume = nullptr;
    CMValueNode* attenuation = nullptr;
    CMValueNode* mute = nullptr;

private:
    CMValueNode* make(const CMPath& path) const { return CMValueNode::create(fixture.nodes(), path); }
};

/// Ends the ignore times that run in the proxy.
inline void endIgnoreTimes(const QObject* proxy)
{
    for (const auto* synchronizer : proxy->findChildren<ServiceValueSynchronizer*>()) {
        const SynchronizerTimers timers(synchronizer);
        for (QTimer* timer : {timers.service, timers.system})
            if (timer->isActive())
                SynchronizerTimers::expire(timer);
    }
}

inline bool inIgnoreTime(const QObject* proxy)
{
    for (const auto* synchronizer : proxy->findChildren<ServiceValueSynchronizer*>())
        if (SynchronizerTimers(synchronizer).running())
            return true;
    return false;
}

/// The proxy's items have their first values.
inline bool isLoaded(const QObject* proxy)
{
    for (const auto* item : proxy->findChildren<CMValueItem*>())
        if (item->isLoading())
            return false;
    return true;
}

/// A test of one proxy in front of the player.
template <typename Proxy>
class ProxyTest : public QObject
{
protected:
    static constexpr int longTime = 3600000;

    std::unique_ptr<PlayerFixture> m_player;
    std::unique_ptr<Proxy> m_proxy;
    /// What the proxy told.
    QStringList m_said;

    template <typename... Arguments>
    void create(const QList<double>& volumeMap, const Arguments&... arguments)
    {
        m_proxy.reset();
        m_player = std::make_unique<PlayerFixture>(volumeMap);
        m_proxy = std::make_unique<Proxy>("svc", arguments...);
        connect(m_proxy.get(), &Proxy::muteChanged, this,
                [this](bool muted) { m_said.append(muted ? "mute" : "unmute"); });
    }
    void load()
    {
        QTRY_VERIFY(isLoaded(m_proxy.get()));
        m_player->takeWrites();
    }
    void verifyTimers(int systemMs, int serviceMs) const
    {
        const auto synchronizers = m_proxy->template findChildren<ServiceValueSynchronizer*>();
        QCOMPARE(synchronizers.size(), 2);
        for (const auto* synchronizer : synchronizers) {
            const SynchronizerTimers timers(synchronizer);
            QCOMPARE(timers.system->interval(), systemMs);
            QCOMPARE(timers.service->interval(), serviceMs);
        }
    }
    QStringList take()
    {
        QStringList taken;
        taken.swap(m_said);
        return taken;
    }
    void clear()
    {
        m_proxy.reset();
        m_player.reset();
        m_said.clear();
    }
};
