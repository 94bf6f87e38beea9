#pragma once

#include "core/model/cmabstractworker.h"
#include "core/model/cmpath.h"

#include <QEventLoop>
#include <QHash>
#include <QObject>
#include <QStringList>
#include <QVariant>
#include <QVector>

class CMRemoteWorker;
class Link;
class Output;

/**
 * Subscribes to paths and prints a line for the present state of each and one for each change, until it is stopped or
 * has printed enough changes. Goes on when a service comes back: what was missed meanwhile is read again.
 *
 * Subscribes first and reads then, so no change falls between the two. Lives in the main thread, no longer than the
 * link and the output.
 */
class Watcher : public QObject
{
    Q_OBJECT

public:
    /// Ends after `count` changes; -1 for never.
    Watcher(Link& link, Output& output, int count);

    /// Paths are written into the lines when there will be several. Throws a Failure while the first state is not read.
    void add(const CMPath& path, CMAbstractWorker::ChangeType kind, bool showPath);
    /// Returns after the last change that was asked for, and after stop().
    void exec();
    void stop();

private slots:
    void onValueChanged(CMPath path, QVariant value);
    void onDataChanged(CMPath path);
    void onRowsChanged(CMPath path, QStringList changes, int version, int oldVersion);

private:
    struct Service
    {
        QString name;
        /// It has answered since the link was made.
        bool up;
    };

    struct Watched
    {
        CMPath path;
        CMAbstractWorker::ChangeType kind;
        CMRemoteWorker* worker;
        bool showPath;
        /// The present state is printed; earlier changes are part of it.
        bool started = false;
        /// As last printed; of data watches a hash of roles.
        QVariant shown{};
        /// The version that the printed count of rows belongs to.
        int rowsVersion = 0;
        /// Rows may have changed while the service was away.
        bool resetDue = false;
    };

    Watched* find(const CMPath& path, CMAbstractWorker::ChangeType kind);
    void follow(CMRemoteWorker* worker, const QString& service);
    void onConnectedChanged(CMRemoteWorker* worker, bool connected);
    void onRegained(CMRemoteWorker* worker);
    bool isUp(const Watched& watched) const { return m_services.value(watched.worker).up; }
    void readState(Watched& watched);
    void readAgain(const Watched& watched);
    void takeValue(Watched& watched, const QVariant& value);
    void takeRoles(Watched& watched, const QVariantHash& roles, bool silentWhenEqual);
    void printChange(const Watched& watched, const QVariantHash& fields, const QString& text);
    void print(const Watched& watched, QVariantHash fields, const QString& text);

    Link& m_link;
    Output& m_output;
    int m_left;
    QEventLoop m_loop;
    QVector<Watched> m_watched;
    QHash<CMRemoteWorker*, Service> m_services;
};
