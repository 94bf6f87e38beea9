#pragma once

#include "cmroutingworker.h"
#include "core/model/cmnodesworker.h"

#include <QString>
#include <QThread>

#include <memory>
#include <vector>

class CMRemoteWorker;
class CMRPCServer;
class CMValueNode;

/**
 * What all services of the device have in common: a root that finds the trees of this process and those of other
 * services by their prefixes, and a socket for each tree of its own.
 *
 * One for the process, in the main thread, made when the application is there. Other services are reached through a
 * thread of their own, so that the main thread may wait for an answer.
 */
class ServiceProcess
{
public:
    /// `name` is this process's end of its links.
    explicit ServiceProcess(const QString& name);
    ~ServiceProcess();

    /// A tree that this process serves; its nodes are made ahead of exec().
    CMNodesWorker* addTree(const QString& prefix);
    /// Makes the paths of another service known here.
    void reach(const QString& prefix);
    /// Opens the sockets and runs the event loop. 1 when another process serves one of the names already.
    int exec();

private:
    const QString m_name;
    CMRoutingWorker m_router;
    std::vector<std::unique_ptr<CMNodesWorker>> m_trees;
    QThread m_thread;
    std::vector<CMRemoteWorker*> m_remotes;
};

/// Logging to stderr and stacks of crashes; ahead of all else in main().
void prepareServiceProcess();

/// A value with a title; a text, number or bool by what it holds first.
CMValueNode* addValue(CMNodesWorker* tree, const QString& base, const char* title, const OrvoValue& value);
