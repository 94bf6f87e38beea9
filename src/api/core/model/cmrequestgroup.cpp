#include "core/model/cmrequestgroup.h"

#include "core/model/cmabstractworker.h"
#include "core/model/cmreplywatcher.h"
#include "core/model/cmroot.h"
#include "core/orvo.h"
#include "core/orvoLog_p.h"

#include <QDebug>

namespace {

ORVO_LOGGER("CMRequestGroup")

QString text(const QVariant& variant)
{
    QString text;
    QDebug(&text).nospace() << variant;
    return text;
}

} // namespace

CMRequestGroup::CMRequestGroup(QObject* parent) : QObject(parent) {}

CMRequestGroup::~CMRequestGroup() = default;

void CMRequestGroup::addInvoke(const QString& id, const CMPath& path, const QVariant& param)
{
    LOG4CPLUS_TRACE(logger(), id << " path=" << path << " param=" << text(param));
    m_pending.release();
    const CMReply<QVariant> reply;
    CMRoot()->invoke(path, param, reply);
    addWatcher(id, reply);
}

void CMRequestGroup::addGetData(const QString& id, const CMPath& path, const QStringList& roles)
{
    LOG4CPLUS_TRACE(logger(), id << " path=" << path);
    m_pending.release();
    const CMReply<QVariantList> reply;
    CMRoot()->getData(path, roles, reply);
    addWatcher(id, reply);
}

void CMRequestGroup::addSetData(const QString& id, const CMPath& path, const QString& role, const QVariant& value)
{
    LOG4CPLUS_TRACE(logger(), id << " path=" << path);
    m_pending.release();
    const CMReply<QVariant> reply;
    CMRoot()->setData(path, role, value, reply);
    addWatcher(id, reply);
}

void CMRequestGroup::addGetRows(const QString& id, const CMPath& path, int from, int to, int version,
                                const QStringList& roles)
{
    LOG4CPLUS_TRACE(logger(), id << " path=" << path);
    m_pending.release();
    const CMReply<OrvoRowsRoles> reply;
    CMRoot()->getRows(path, from, to, version, roles, reply);
    addWatcher(id, reply);
}

void CMRequestGroup::addWatcher(const QString& id, CMVoidReply reply)
{
    auto* watcher = new CMReplyWatcherObject(this, SLOT(on_subRequest_finished(CMVoidReply)), Qt::QueuedConnection);
    m_requestIDs.insert(watcher, id);
    reply.addWatcher(watcher);
}

void CMRequestGroup::on_subRequest_finished(CMVoidReply reply)
{
    auto* watcher = qobject_cast<CMReplyWatcherObject*>(sender());
    if (!watcher) {
        LOG4CPLUS_FATAL(logger(), "CMRequestGroup subRequest sender is no CMReplyWatcherObject");
        Q_ASSERT_X(false, "CMRequestGroup", "sender is no CMReplyWatcherObject");
        return;
    }
    const auto found = m_requestIDs.find(watcher);
    if (found == m_requestIDs.end()) {
        LOG4CPLUS_FATAL(logger(), "CMReplyWatcherObject is not in m_requestIDs");
        Q_ASSERT_X(false, "CMRequestGroup", "watcher is not in m_requestIDs");
        return;
    }
    const QString id = *found;
    m_requestIDs.erase(found);
    requestFinished(id, reply);
}

void CMRequestGroup::requestFinished(const QString& id, CMVoidReply reply)
{
    m_replies.insert(id, reply);
    if (!m_pending.tryAcquire()) {
        LOG4CPLUS_FATAL(logger(), "Request id \"" << id << "\" finished without any pending requests");
        Q_ASSERT_X(false, "CMRequestGroup", "finished without any pending requests");
        return;
    }
    checkAndCallCallback();
}

void CMRequestGroup::checkAndCallCallback()
{
    if (m_pending.available() != 0 || !m_callbackSet)
        return;
    LOG4CPLUS_DEBUG(logger(), "Last sub-request done, calling callback function");
    emit finished();
}

void CMRequestGroup::setCallback(const QObject* receiver, const char* slot, Qt::ConnectionType type)
{
    orvoConnect(this, SIGNAL(finished()), receiver, slot, type);
    m_callbackSet = true;
    checkAndCallCallback();
}
