#include "core/model/cmitem.h"

#include "core/model/cmabstractworker.h"
#include "core/model/cmchangesmerger.h"
#include "core/model/cmglobal.h"
#include "core/model/cmroles.h"
#include "core/model/cmroot.h"
#include "core/orvo.h"
#include "core/orvoLog_p.h"

#include <QPointer>

namespace {

ORVO_LOGGER("CMItem")

} // namespace

CMItem::CMItem(QObject* parent, const CMPath& path, QObject* receiver, const char* slot, Qt::ConnectionType type)
    : QObject(parent), m_roleNames(CMAllRoles()), m_merger(new CMChangesMerger(this))
{
    orvoConnect(m_merger, SIGNAL(changed()), this, SLOT(on_merger_changed()));
    setPath(path);
    if (receiver)
        orvoConnect(this, SIGNAL(changed(OrvoRoles,OrvoRoles)), receiver, slot, type);
}

CMItem::~CMItem() = default;

CMItem* CMItem::setPath(const CMPath& path)
{
    if (path == m_path)
        return this;
    if (!m_path.isEmpty()) {
        CMRoot()->disconnectDataChange(m_path, this, SLOT(on_dataChanged(CMPath)));
        m_getDataFlag = false;
        if (!m_request.isNull()) {
            const CMVoidReply reply = m_request.reply();
            m_request = CMGetDataRequest();
            reply.cancel();
        }
    }
    m_path = path;
    const QPointer<CMItem> alive(this);
    setRoles(OrvoRoles());
    // A receiver may have destroyed this, or set another path already.
    if (!alive || m_path != path)
        return this;
    if (!m_path.isEmpty()) {
        CMRoot()->connectDataChange(m_path, this, SLOT(on_dataChanged(CMPath)));
        m_getDataFlag = true;
        m_merger->change();
    }
    return this;
}

void CMItem::setRoles(const OrvoRoles& roles)
{
    if (roles == m_roles)
        return;
    const OrvoRoles oldRoles = m_roles;
    m_roles = roles;
    const bool loading = m_roles.isEmpty();
    const QPointer<CMItem> alive(this);
    emit changed(m_roles, oldRoles);
    if (alive && loading != oldRoles.isEmpty())
        emit loadingChanged(loading);
}

void CMItem::on_dataChanged(CMPath path)
{
    if (path != m_path)
        return;
    m_getDataFlag = true;
    m_merger->change();
}

void CMItem::on_merger_changed()
{
    if (!m_request.isNull()) {
        LOG4CPLUS_TRACE(logger(), '[' << m_path << "] m_request active");
        return;
    }
    if (!m_getDataFlag) {
        LOG4CPLUS_TRACE(logger(), '[' << m_path << "] m_getDataFlag:" << m_getDataFlag);
        return;
    }
    auto* data = new CMGetDataRequest::Data;
    data->path = m_path;
    data->roles = m_roleNames;
    const CMGetDataRequest request(data);
    request.reply().addWatcher(this, SLOT(on_getData_finished(CMVoidReply)), Qt::QueuedConnection);
    m_request = request;
    m_getDataFlag = false;
    CMRoot()->getDataRequest(request);
}

void CMItem::on_getData_finished(CMVoidReply r)
{
    if (m_request.isNull() || m_request.reply() != r)
        LOG4CPLUS_WARN(logger(), '[' << m_path << "] Non matching reply");
    m_request = CMGetDataRequest();
    const CMError error = r.error();
    if (error.isError()) {
        LOG4CPLUS_DEBUG(logger(), '[' << m_path << "] " << error.name());
        m_getDataFlag = true;
        return;
    }
    const QVariantList values = static_cast<CMReplyData<QVariantList>*>(r.data())->value();
    if (values.size() != m_roleNames.size()) {
        LOG4CPLUS_ERROR(logger(),
                        '[' << m_path << "] expected " << m_roleNames.size() << " values, got " << values.size());
        m_getDataFlag = true;
        return;
    }
    const QPointer<CMItem> alive(this);
    setRoles(CMGlobal::rolesValuesToHash(m_roleNames, values));
    if (alive)
        m_merger->change();
}
