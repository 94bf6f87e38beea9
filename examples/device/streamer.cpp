#include "streamer.h"

#include "core/model/cmnodes.h"
#include "core/orvo.h"
#include "serviceprocess.h"

namespace {

/// For so long after a change by one side the other one is not listened to.
constexpr int ignoreMs = 500;

} // namespace

Streamer::Streamer(CMNodesWorker* tree, const QString& name, Kind kind, int maxVolume)
{
    const bool isVolume = kind == Kind::Volume;
    m_volume = addValue(tree, QStringLiteral("volume"), isVolume ? "Volume" : "Attenuation",
                        isVolume ? OrvoValue().setI32_(0) : OrvoValue().setDouble_(0));
    m_mute = addValue(tree, QStringLiteral("mute"), "Mute", OrvoValue().setBool_(false));
    m_told = CMListRowsNode::create(tree->nodes(), tree->addPrefix(QStringLiteral("told")));
    m_told->setTitle(TrString("What the device told"));
    CMListRowsNode* root = CMListRowsNode::create(tree->nodes(), tree->prefixPath());
    root->setTitle(TrString("Streaming"));
    for (const CMNode* node :
         {static_cast<const CMNode*>(m_volume), static_cast<const CMNode*>(m_mute), static_cast<const CMNode*>(m_told)})
        root->rowsAppend(node->path());

    // Each of these waits for the player's volume map.
    if (isVolume) {
        m_volumeProxy = std::make_unique<SystemVolumeProxy>(name, maxVolume, ignoreMs, false);
        m_volume->setEdit(OrvoEdit()
                              .setMin(QStringLiteral("0"))
                              .setMax(QString::number(maxVolume < 0 ? m_volumeProxy->maxOrvoVolume() : maxVolume)));
        connect(m_volumeProxy.get(), &SystemVolumeProxy::volumeChanged, this,
                [this](int volume) { setVolume(OrvoValue().setI32_(volume)); });
        connect(m_volume, &CMValueNode::valueChanged, this,
                [this](const OrvoValue& value) { m_volumeProxy->setVolume(value.i32_()); });
        connect(m_mute, &CMValueNode::valueChanged, this,
                [this](const OrvoValue& value) { m_volumeProxy->setMute(value.bool_()); });
        connect(m_volumeProxy.get(), &SystemVolumeProxy::muteChanged, this, [this](bool muted) {
            tell(muted ? QStringLiteral("mute") : QStringLiteral("unmute"));
            m_mute->setValue(OrvoValue().setBool_(muted));
        });
        m_volumeProxy->enable();
    } else {
        m_attenuationProxy = std::make_unique<SystemAttenuationProxy>(name, ignoreMs, false);
        connect(m_attenuationProxy.get(), &SystemAttenuationProxy::attenuationChanged, this,
                [this](double attenuation) { setVolume(OrvoValue().setDouble_(attenuation)); });
        connect(m_volume, &CMValueNode::valueChanged, this,
                [this](const OrvoValue& value) { m_attenuationProxy->setAttenuation(value.double_()); });
        connect(m_mute, &CMValueNode::valueChanged, this,
                [this](const OrvoValue& value) { m_attenuationProxy->setMute(value.bool_()); });
        connect(m_attenuationProxy.get(), &SystemAttenuationProxy::muteChanged, this, [this](bool muted) {
            tell(muted ? QStringLiteral("mute") : QStringLiteral("unmute"));
            m_mute->setValue(OrvoValue().setBool_(muted));
        });
        m_attenuationProxy->enable();
    }
}

void Streamer::setVolume(const OrvoValue& value)
{
    tell(QStringLiteral("volume %1").arg(orvoValueToQString(value)));
    m_volume->setValue(value);
}

void Streamer::tell(const QString& text)
{
    m_told->rowsAppend(OrvoRoles().setId(QString::number(m_told->rowsSize())).setTitle(text));
}
