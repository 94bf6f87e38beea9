#include "records/orvoconstants.h"

#include "orvobuildconstants.h"

namespace {

CMPath wellKnownPath(const QString& text)
{
    return CMPath::fromPrefixWithBase(text);
}

} // namespace

QString OrvoRPCSocketPrefix()
{
    return QStringLiteral(ORVO_RPC_SOCKET_PREFIX);
}

QString OrvoRPCSocketSuffix()
{
    return QStringLiteral(ORVO_RPC_SOCKET_SUFFIX);
}

int OrvoRPCRequestExpiryTimeoutMs()
{
    return ORVO_RPC_REQUEST_EXPIRY_TIMEOUT_MS;
}

int OrvoRPCSocketReconnectIntervalMs()
{
    return ORVO_RPC_SOCKET_RECONNECT_INTERVAL_MS;
}

QString OrvoWebserverReadPathPrefix()
{
    return QStringLiteral(ORVO_WEBSERVER_READ_PATH_PREFIX);
}

CMPath OrvoPlayerVolumePath()
{
    return wellKnownPath(QStringLiteral("player:volume"));
}

CMPath OrvoPlayerMutePath()
{
    return wellKnownPath(QStringLiteral("player:mute"));
}

CMPath OrvoPlayerAttenuationPath()
{
    return wellKnownPath(QStringLiteral("player:attenuation"));
}

CMPath OrvoPlayerVolumeMapPath()
{
    return wellKnownPath(QStringLiteral("player:volumeMap"));
}

CMPath OrvoNetworkStateConnected()
{
    return wellKnownPath(QStringLiteral("network:state/connected"));
}

CMPath OrvoUILanguagePath()
{
    return wellKnownPath(QStringLiteral("settings:ui/language"));
}

CMPath OrvoSystemManagerResetIdleTimePath()
{
    return wellKnownPath(QStringLiteral("system:resetIdleTime"));
}

CMPath OrvoPowerManagerTargetRequestPath()
{
    return wellKnownPath(QStringLiteral("power:targetRequest"));
}
