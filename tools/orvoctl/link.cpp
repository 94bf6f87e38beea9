#include "link.h"

#include "cmremoteworker.h"
#include "core/model/cmpath.h"
#include "core/model/cmrpcclient.h"
#include "failure.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <algorithm>

namespace {

/// A service that starts at the same time as the tool is met; one that is not there is told fast.
constexpr int startGraceMs = 500;

} // namespace

QString errorText(const CMError& error)
{
    QStringList parts{error.name(), error.title(), error.message()};
    parts.removeAll(QString());
    return parts.join(QLatin1String(": "));
}

Link::Link(int timeoutMs) : m_timeoutMs(timeoutMs) {}

Link::~Link()
{
    qDeleteAll(m_workers);
}

CMRemoteWorker* Link::reach(const CMPath& path)
{
    const QString service = path.prefix();
    CMRemoteWorker*& worker = m_workers[service];
    if (!worker)
        worker = new CMRemoteWorker(QStringLiteral("orvoctl-%1").arg(QCoreApplication::applicationPid()), service);
    CMRPCClient* client = worker->client();
    if (!client->isConnected()) {
        QEventLoop loop;
        QObject::connect(client, &CMRPCClient::connectedChanged, &loop, &QEventLoop::quit);
        QTimer::singleShot(std::min(startGraceMs, m_timeoutMs), &loop, &QEventLoop::quit);
        loop.exec();
    }
    if (!client->isConnected())
        throw Failure{
            ExitStatus::Unreachable,
            QStringLiteral("service '%1' is not there (%2)").arg(service, CMRPCClient::socketPathFromPrefix(service))};
    return worker;
}

void Link::await(const CMPath& path, const CMVoidReply& reply)
{
    bool timedOut = false;
    if (!reply.isFinished()) {
        QEventLoop loop;
        reply.onFinished([&loop](const CMVoidReply&) { loop.quit(); });
        QTimer timer;
        timer.setSingleShot(true);
        timer.setTimerType(Qt::PreciseTimer);
        QObject::connect(&timer, &QTimer::timeout, [&] {
            timedOut = true;
            reply.cancel();
        });
        timer.start(m_timeoutMs);
        loop.exec();
    }
    const CMError error = reply.error();
    if (!error.isError())
        return;
    if (timedOut)
        throw Failure{ExitStatus::TimedOut,
                      QStringLiteral("%1: no answer within %2 ms").arg(path.toEncoded()).arg(m_timeoutMs)};
    const CMRemoteWorker* worker = m_workers.value(path.prefix());
    if (error.name() == CMVoidReply::ErrorCancel() && !(worker && worker->client()->isConnected()))
        throw Failure{ExitStatus::Unreachable,
                      QStringLiteral("the link to service '%1' broke before its answer").arg(path.prefix())};
    throw Failure{ExitStatus::ErrorReply, errorText(error)};
}

void Link::pause(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}
