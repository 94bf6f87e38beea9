#pragma once

#include "core/model/cmrequest.h"

#include <QObject>
#include <QTimer>

#include <memory>
#include <vector>

class CMActivateNode;
class CMListRowsNode;
class CMNodesWorker;
class CMValueNode;
class Service;
class Supervisor;
class UptimeNode;

/**
 * One service as a list of what is told of it, and its three actions. An action is answered when it is done: a service
 * that is to start is up or has failed, one that is to stop has ended. Until then requests wait, for as long as their
 * senders do.
 */
class ServiceNodes : public QObject
{
    Q_OBJECT

public:
    ServiceNodes(CMNodesWorker* worker, Supervisor* supervisor, Service* service);

    CMListRowsNode* list() const { return m_list; }

private slots:
    void on_start_invoked(CMSetDataRequest request);
    void on_stop_invoked(CMSetDataRequest request);
    void on_restart_invoked(CMSetDataRequest request);

private:
    void update();
    bool refuse(const CMSetDataRequest& request);
    CMValueNode* addValue(CMNodesWorker* worker, const QString& id, const char* title);
    CMActivateNode* addAction(CMNodesWorker* worker, const QString& id, const char* title, const char* slot);

    Supervisor* const m_supervisor;
    Service* const m_service;
    CMListRowsNode* const m_list;
    CMValueNode* m_state;
    CMValueNode* m_pid;
    CMValueNode* m_restarts;
    CMValueNode* m_lastExit;
    UptimeNode* m_uptime;
    QList<CMSetDataRequest> m_untilUp;
    QList<CMSetDataRequest> m_untilDown;
};

/**
 * The state of all services as a tree: a list of services below the root of the worker's namespace. The registry owns
 * the nodes; this goes ahead of it, and ahead of the supervisor.
 */
class Tree
{
public:
    Tree(CMNodesWorker* worker, Supervisor* supervisor);
    ~Tree();

private:
    std::vector<std::unique_ptr<ServiceNodes>> m_services;
};
