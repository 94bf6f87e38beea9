#include "core/model/cmvalueitem.h"

#include "core/model/cmabstractworker.h"
#include "core/model/cmroot.h"
#include "core/orvo.h"
#include "core/orvoLog_p.h"
#include "records/orvoroles.h"

#include <QPointer>
#include <QThread>

namespace {

ORVO_LOGGER("CMValueItem")

constexpr int firstRepeatMs = 20;
constexpr int maxRepeatMs = 20000;

} // namespace

CMValueItem::CMValueItem(QObject* parent, const CMPath& path, QObject* receiver, const char* slot,
                         Qt::ConnectionType type)
    : QObject(parent), m_repeatTime(firstRepeatMs)
{
    m_timer.setSingleShot(true);
    orvoConnect(&m_timer, SIGNAL(timeout()), this, SLOT(on_getData()));
    setPath(path);
    if (receiver)
        orvoConnect(this, SIGNAL(changed(OrvoValue,OrvoValue)), receiver, slot, type);
}

CMValueItem::~CMValueItem() = default;

CMValueItem* CMValueItem::setPath(const CMPath& path)
{
    if (path == m_path)
        return this;
    if (!m_path.isEmpty()) {
        CMRoot()->disconnectValueChange(m_path, this, SLOT(on_valueChanged(CMPath,QVariant)));
        stopGetData();
    }
    m_path = path;
    const QPointer<CMValueItem> alive(this);
    setValue(OrvoValue(), !path.isEmpty());
    // A receiver may have destroyed this, or set another path already.
    if (!alive || m_path != path)
        return this;
    if (!m_path.isEmpty()) {
        m_repeatTime = firstRepeatMs;
        m_warnAtMaxRepeat = true;
        // Ahead of the request, so that no value slips between the two.
        CMRoot()->connectValueChange(m_path, this, SLOT(on_valueChanged(CMPath,QVariant)));
        on_getData();
    }
    return this;
}

bool CMValueItem::waitForLoaded(unsigned long timeout)
{
    Q_ASSERT(thread() == QThread::currentThread());
    if (m_request.isNull() || !m_loading)
        return true;
    LOG4CPLUS_DEBUG(logger(),
                    "Waiting for the initial request to path " << m_path << " to finish, timeout: " << timeout);
    const CMVoidReply reply = m_request.reply();
    if (reply.waitForFinished(timeout)) {
        on_getData_finished(reply);
        return true;
    }
    LOG4CPLUS_ERROR(logger(), "Waiting for the initial request to path " << m_path << " to finish exceeded timeout");
    return false;
}

void CMValueItem::setValue(const OrvoValue& value, bool loading)
{
    if (loading == m_loading && value == m_value)
        return;
    const OrvoValue oldValue = m_value;
    m_value = value;
    const QPointer<CMValueItem> alive(this);
    emit changed(m_value, oldValue);
    if (!alive || loading == m_loading)
        return;
    m_loading = loading;
    emit loadingChanged(loading);
}

void CMValueItem::stopGetData()
{
    m_timer.stop();
    if (m_request.isNull())
        return;
    const CMVoidReply reply = m_request.reply();
    m_request = CMGetDataRequest();
    reply.cancel();
}

void CMValueItem::on_valueChanged(CMPath path, QVariant value)
{
    if (path != m_path)
        return;
    // Newer than anything that a fetch or the next try could bring.
    stopGetData();
    setValue(OrvoValue(value.toHash()), false);
}

void CMValueItem::on_getData()
{
    auto* data = new CMGetDataRequest::Data;
    data->path = m_path;
    data->roles = QStringList{OrvoRoles::Value()};
    const CMGetDataRequest request(data);
    request.reply().addWatcher(this, SLOT(on_getData_finished(CMVoidReply)), Qt::QueuedConnection);
    m_request = request;
    CMRoot()->getDataRequest(request);
}

void CMValueItem::on_getData_finished(CMVoidReply r)
{
    if (m_request.isNull()) {
        LOG4CPLUS_TRACE(logger(), '[' << m_path << "] getData request already processed");
        return;
    }
    if (m_request.reply() != r)
        LOG4CPLUS_WARN(logger(), '[' << m_path << "] Non matching reply");
    m_request = CMGetDataRequest();
    const CMError error = r.error();
    if (error.isError()) {
        LOG4CPLUS_DEBUG(logger(), '[' << m_path << "] " << error.name());
        if (m_repeatTime == maxRepeatMs && m_warnAtMaxRepeat) {
            LOG4CPLUS_WARN(logger(), m_path << ": at max repeat time, retrying...");
            m_warnAtMaxRepeat = false;
        }
        m_timer.start(m_repeatTime);
        m_repeatTime = qMin(2 * m_repeatTime, maxRepeatMs);
        return;
    }
    m_repeatTime = firstRepeatMs;
    m_warnAtMaxRepeat = true;
    const QVariantList values = static_cast<CMReplyData<QVariantList>*>(r.data())->value();
    // A peer that answers without a value is taken for one without a value, not for a reason to stop.
    setValue(OrvoValue(values.value(0).toHash()), false);
}
