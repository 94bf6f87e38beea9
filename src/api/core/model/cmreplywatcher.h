#pragma once

#include "core/model/cmreply.h"

#include <QObject>

#include <functional>

/**
 * Told once when a reply ends, in the finishing thread, outside the reply's lock. The reply does not own it: it must
 * live until then, or be taken back with removeWatcher().
 */
class CMReplyWatcher
{
public:
    virtual ~CMReplyWatcher();
    virtual void finished(const CMVoidReply& reply) = 0;
};

/**
 * A one-shot watcher that turns the end into a signal, and so into a call in another thread. Lives in the thread that
 * made it and deletes itself there after it fired.
 */
class CMReplyWatcherObject : public QObject, public CMReplyWatcher
{
    Q_OBJECT

public:
    explicit CMReplyWatcherObject(QObject* parent = nullptr);
    /// Without a parent; the member of the receiver takes a CMVoidReply.
    CMReplyWatcherObject(QObject* receiver, const char* member, Qt::ConnectionType type);

    void finished(const CMVoidReply& reply) override;

signals:
    void finishedSignal(CMVoidReply reply);
};

/**
 * A one-shot watcher whose slot runs as by a connection of that type from its own signal: in its own thread unless the
 * type is direct, and at once where that is the finishing thread.
 *
 * The connection itself is left out, and the object goes at once after a call in its own thread: a request is answered
 * without a posted event, and so without another turn of the event loop.
 */
class CMReplyWatcherObject2 : public CMReplyWatcherObject
{
    Q_OBJECT

public:
    CMReplyWatcherObject2(QObject* parent, Qt::ConnectionType type);

    void finished(const CMVoidReply& reply) override;

protected slots:
    virtual void on_finished(CMVoidReply reply) = 0;

private:
    const Qt::ConnectionType m_type;
};

/// A one-shot watcher that calls a function in its own thread.
class CMLambdaWatcherObject : public CMReplyWatcherObject2
{
    Q_OBJECT

public:
    CMLambdaWatcherObject(std::function<void(const CMVoidReply&)> function, Qt::ConnectionType type);

protected slots:
    void on_finished(CMVoidReply reply) override;

private:
    std::function<void(const CMVoidReply&)> m_function;
};
