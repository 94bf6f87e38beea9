#pragma once

#include "core/model/cmpath.h"
#include "core/model/cmrequest.h"
#include "records/orvoroles.h"

#include <QObject>

class CMChangesMerger;

/**
 * Follows all roles of the node at one path: fetches them, and again whenever its data changed, a burst of changes
 * with one request. Loading exactly while no roles are held.
 *
 * Lives in one thread, whose event loop brings its replies, and speaks to CMRoot(). A failed fetch keeps the old roles
 * and is repeated with the next change only. May be destroyed at any time, also inside its own signals.
 */
class CMItem : public QObject
{
    Q_OBJECT

public:
    /// The slot takes any head of (OrvoRoles roles, OrvoRoles oldRoles); it does not hear of the first path.
    explicit CMItem(QObject* parent = nullptr, const CMPath& path = CMPath(), QObject* receiver = nullptr,
                    const char* slot = nullptr, Qt::ConnectionType type = Qt::AutoConnection);
    ~CMItem() override;

    CMPath path() const { return m_path; }
    OrvoRoles roles() const { return m_roles; }
    bool isLoading() const { return m_roles.isEmpty(); }

    /// An empty path follows nothing.
    CMItem* setPath(const CMPath& path);
    /// Stores the roles here, and tells when they differ. Sends nothing to the node.
    void setRoles(const OrvoRoles& roles);

signals:
    void changed(OrvoRoles roles = OrvoRoles(), OrvoRoles oldRoles = OrvoRoles());
    void loadingChanged(bool loading);

private slots:
    void on_dataChanged(CMPath path);
    void on_merger_changed();
    void on_getData_finished(CMVoidReply r);

private:
    CMPath m_path;
    const QStringList m_roleNames;
    OrvoRoles m_roles;
    CMChangesMerger* const m_merger;
    /// The fetch in flight; null when idle.
    CMGetDataRequest m_request;
    /// A fetch is due. Falls when it starts, so a change during a fetch brings one further fetch.
    bool m_getDataFlag = false;
};
