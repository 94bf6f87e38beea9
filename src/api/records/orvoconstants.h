#pragma once

#include "core/model/cmpath.h"

#include <QString>

// Well-known paths, keys and the values that a device sets for itself when it builds the library.

/// A service's socket lies at prefix + its name + suffix.
QString OrvoRPCSocketPrefix();
QString OrvoRPCSocketSuffix();
/// Milliseconds that a request over the link may take, at either end.
int OrvoRPCRequestExpiryTimeoutMs();
/// Milliseconds between two attempts to reach a service.
int OrvoRPCSocketReconnectIntervalMs();
/// A file that the web server may read lies at this prefix + its name.
QString OrvoWebserverReadPathPrefix();

CMPath OrvoPlayerVolumePath();
CMPath OrvoPlayerMutePath();
CMPath OrvoPlayerAttenuationPath();
CMPath OrvoPlayerVolumeMapPath();
CMPath OrvoNetworkStateConnected();
CMPath OrvoUILanguagePath();
CMPath OrvoSystemManagerResetIdleTimePath();
CMPath OrvoPowerManagerTargetRequestPath();

/// Keys of the arguments that a worker is made with.
struct OrvoWorkerArguments
{
    /// The worker's namespace in encoded path form, for instance "ui:".
    static QString Prefix() { return QStringLiteral("prefix"); }
    /// Whether the change hub merges for 20 ms and tells of values as data, too.
    static QString MergeEvents() { return QStringLiteral("mergeEvents"); }
};

struct OrvoWorker
{
    /// The key under which a registry reads the namespace that its nodes must lie in.
    static QString Prefix() { return QStringLiteral("prefix"); }
};
