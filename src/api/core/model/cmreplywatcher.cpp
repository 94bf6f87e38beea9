#include "core/model/cmreplywatcher.h"

#include "core/orvo.h"

CMReplyWatcher::~CMReplyWatcher() = default;

CMReplyWatcherObject::CMReplyWatcherObject(QObject* parent) : QObject(parent)
{
}

CMReplyWatcherObject::CMReplyWatcherObject(QObject* receiver, const char* member, Qt::ConnectionType type)
{
    orvoConnect(this, SIGNAL(finishedSignal(CMVoidReply)), receiver, member, type);
}

void CMReplyWatcherObject::finished(const CMVoidReply& reply)
{
    emit finishedSignal(reply);
    deleteLater();
}

CMReplyWatcherObject2::CMReplyWatcherObject2(QObject* parent, Qt::ConnectionType type) : CMReplyWatcherObject(parent)
{
    connect(this, &CMReplyWatcherObject::finishedSignal, this, &CMReplyWatcherObject2::on_finished, type);
}

CMLambdaWatcherObject::CMLambdaWatcherObject(std::function<void(const CMVoidReply&)> function, Qt::ConnectionType type)
    : CMReplyWatcherObject2(nullptr, type), m_function(std::move(function))
{
}

void CMLambdaWatcherObject::on_finished(CMVoidReply reply)
{
    m_function(reply);
}
