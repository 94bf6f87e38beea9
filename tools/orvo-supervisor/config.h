#pragma once

#include "core/model/cmpath.h"
#include "json.h"

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

/// How one service is to be run: what stands in the file, with defaults for what does not. Times are milliseconds.
struct ServiceConfig
{
    enum class Restart { Always, OnFailure, Never };

    QString id;
    QString program;
    QStringList arguments;
    QHash<QString, QString> environment;
    QString user;
    int nice = 0;
    /// The service is up when this name has an owner on the bus; without one, as soon as it runs.
    QString busName;
    /// How long it may take until it is up; 0 is for ever.
    int startTimeout = 30000;
    /// 0 is no ping.
    int pingInterval = 0;
    int pingTimeout = 0;
    /// Between SIGTERM and SIGKILL.
    int stopTimeout = 10000;
    QString logFile;
    Restart restart = Restart::Always;
    /// Ahead of the first restart in a row; it doubles with each one, up to the maximum.
    int backOff = 100;
    int maxBackOff = 10000;
    /// Restarts in a row before the service counts as failed; 0 is no limit.
    int limit = 10;
    /// A service that was up for so long begins a new row.
    int healthy = 10000;
    bool stopOnNetworkDown = false;
    QList<CMPath> restartOnChanged;
    /// Ids of the services that must be up ahead of this one.
    QStringList after;
};

/**
 * The services in the order in which they start: each behind those that it depends on, and as in the file otherwise.
 */
using Config = QList<ServiceConfig>;

/// All that is wrong with the text, in the order of places; `config` is valid when the list is empty.
QList<Problem> readConfig(const QByteArray& text, Config& config);
