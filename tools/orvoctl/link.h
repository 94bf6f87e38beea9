#pragma once

#include "core/model/cmreply.h"

#include <QHash>
#include <QString>

class CMPath;
class CMRemoteWorker;

/// The error as one line: its name, title and message.
QString errorText(const CMError& error);

/**
 * The services that this run of the tool speaks to, one worker for each, and the waiting for their answers.
 *
 * Its functions wait in an event loop of their own, so what is subscribed is delivered meanwhile. For the main thread.
 */
class Link
{
public:
    /// The time limit for each answer, in milliseconds.
    explicit Link(int timeoutMs);
    ~Link();
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    /**
     * The worker of the path's service, connected. A service that is not there is given half a second to start; then
     * this throws a Failure of ExitStatus::Unreachable.
     */
    CMRemoteWorker* reach(const CMPath& path);

    /// The value of a reply from the path's service. Throws a Failure for an error, a broken link and a time-out.
    template <typename T>
    T answer(const CMPath& path, const CMReply<T>& reply)
    {
        await(path, reply);
        return reply.value();
    }

    int timeoutMs() const { return m_timeoutMs; }
    void setTimeoutMs(int timeoutMs) { m_timeoutMs = timeoutMs; }

    /// Lets events come for so long.
    static void pause(int ms);

private:
    void await(const CMPath& path, const CMVoidReply& reply);

    int m_timeoutMs;
    /// By service name; owned.
    QHash<QString, CMRemoteWorker*> m_workers;
};
