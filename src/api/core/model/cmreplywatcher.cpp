#include "core/model/cmreplywatcher.h"

#include "core/orvo.h"

#include <QThread>

CMReplyWatcher::~CMReplyWatcher() = default;

CMReplyWatcherObject::CMReplyWatcherObject(QObject* parent) : QObject(parent) {}

CMReplyWatcherObject::CMReplyWatcherObject(QObject* receiver, const char* member, Qt::ConnectionType type)
{
    orvoConnect(this, SIGNAL(finishedSignal(CMVoidReply)), receiver, member, type);
}

void CMReplyWatcherObject::finished(const CMVoidReply& reply)
{
    emit finishedSignal(reply);
    deleteLater();
}

CMReplyWatcherObject2::CMReplyWatcherObject2(QObject* parent, Qt::ConnectionType type)
    : CMReplyWatcherObject(parent), m_type(type)
{}

void CMReplyWatcherObject2::finished(const CMVoidReply& reply)
{
    emit finishedSignal(reply);
    const bool isOwnThread = thread() == QThread::currentThread();
    if (m_type == Qt::DirectConnection || (m_type == Qt::AutoConnection && isOwnThread)) {
        on_finished(reply);
        if (isOwnThread)
            delete this;
        else
            deleteLater();
    } else {
        QMetaObject::invokeMethod(
            this, [this, reply] { on_finished(reply); },
            m_type == Qt::BlockingQueuedConnection ? m_type : Qt::QueuedConnection);
        deleteLater();
    }
}

CMLambdaWatcherObject::CMLambdaWatcherObject(std::function<void(const CMVoidReply&)> function, Qt::ConnectionType type)
    : CMReplyWatcherObject2(nullptr, type), m_function(std::move(function))
{}

void CMLambdaWatcherObject::on_finished(CMVoidReply reply)
{
    m_function(reply);
}
