#pragma once

#include "core/model/cmrequest.h"
#include "core/model/orvoform.h"

#include <memory>

class CMNodesWorker;
class CMValueNode;

/**
 * The form in which a user joins a network: its name, its key, and the actions that connect and disconnect. A key that
 * was typed is forgotten when nobody looks at the form any more.
 */
class NetworkForm : public OrvoForm
{
    Q_OBJECT

public:
    /// Writes the network's state to `connected`.
    NetworkForm(CMNodesWorker* tree, CMValueNode* connected);

public slots:
    void on_load() override;

private slots:
    void on_connect_invoked(CMSetDataRequest request);
    void on_disconnect_invoked(CMSetDataRequest request);

private:
    CMValueNode* const m_connected;
    CMValueNode* m_name;
    CMValueNode* m_key;
    QList<CMPath> m_rows;
};

/// What the user sets on the device: the language and the network.
class Settings
{
public:
    /// The network's state lies in a tree of its own.
    Settings(CMNodesWorker* settings, CMNodesWorker* network);

private:
    std::unique_ptr<NetworkForm> m_form;
};
