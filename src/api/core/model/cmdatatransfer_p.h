#pragma once

#include "core/model/cmerror.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QSharedData>
#include <QSharedPointer>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>

/// What a QtSynchronizer calls in its thread.
class SynchronizationObserver
{
public:
    virtual ~SynchronizationObserver();
    virtual void synchronized() = 0;
};

/**
 * The foot in the home thread: an emission in any other thread becomes a call of the observer in the one that made
 * this.
 *
 * Owns the observer. It is never deleted in a foreign thread while its own may still be inside onSynchronized().
 */
class QtSynchronizer : public QObject
{
    Q_OBJECT

public:
    explicit QtSynchronizer(SynchronizationObserver* observer);
    ~QtSynchronizer() override;

signals:
    void synchronizeSignal();

private slots:
    void onSynchronized();

private:
    SynchronizationObserver* const m_observer;
};

/**
 * Runs calls in the thread that made it. Lives behind a QSharedPointer with release() as its deleter; each queued call
 * keeps such a pointer.
 */
class ThreadSynchronizer : public SynchronizationObserver
{
public:
    ThreadSynchronizer();

    /**
     * At once in the home thread, otherwise queued. The caller keeps this alive; queued calls run in order. False, and
     * the call dropped, when the home thread has ended.
     */
    bool deliver(std::function<void()> call);
    void synchronized() override;

    /// Deletes it: here in the home thread or when that has ended, otherwise later there.
    static void release(ThreadSynchronizer* synchronizer);

private:
    const std::shared_ptr<const std::atomic<bool>> m_homeRuns;
    QtSynchronizer* const m_synchronizer;
    std::mutex m_mutex;
    QList<std::function<void()>> m_queue;
};

/**
 * The stream behind the handles of one CMDataTransfer. Any thread.
 *
 * A callback may drop the last handle, so nothing of this is touched once the first one has been called.
 */
class CMDataTransferPrivateBase : public QSharedData
{
public:
    using DataFunction = std::function<void(const QByteArray&)>;
    using FinishedFunction = std::function<void(const CMError&)>;

    CMDataTransferPrivateBase();
    CMDataTransferPrivateBase(const CMDataTransferPrivateBase&) = delete;
    CMDataTransferPrivateBase& operator=(const CMDataTransferPrivateBase&) = delete;
    virtual ~CMDataTransferPrivateBase();

    virtual void dataAvailable(const QByteArray& chunk) = 0;
    virtual void onDataAvailable(DataFunction callback) = 0;

    void onFinished(FinishedFunction callback);
    void finish(const CMError& error);
    bool isFinished() const;

protected:
    /// A callback and its way into the thread that registered it.
    template <typename Callback>
    class SynchronizerAndCallback : public ThreadSynchronizer
    {
    public:
        using Pointer = QSharedPointer<SynchronizerAndCallback>;

        static Pointer create(Callback callback)
        {
            return Pointer(new SynchronizerAndCallback(std::move(callback)), &ThreadSynchronizer::release);
        }

        template <typename Argument>
        static void call(const Pointer& target, const Argument& argument)
        {
            target->deliver([target, argument] { target->m_callback(argument); });
        }

    private:
        explicit SynchronizerAndCallback(Callback callback) : m_callback(std::move(callback)) {}

        const Callback m_callback;
    };
    using DataCallback = SynchronizerAndCallback<DataFunction>;
    using FinishedCallback = SynchronizerAndCallback<FinishedFunction>;

    /// Guards all fields, also those of derived classes; never held while a callback runs.
    mutable std::mutex m_mutex;
    bool m_finished = false;

private:
    CMError m_error;
    QList<FinishedCallback::Pointer> m_finishedCallbacks;
};

class CMBufferedDataTransferPrivate : public CMDataTransferPrivateBase
{
public:
    void dataAvailable(const QByteArray& chunk) override;
    void onDataAvailable(DataFunction function) override;

private:
    QByteArray m_buffer;
    DataCallback::Pointer m_dataCallback;
};

class CMUnbufferedDataTransferPrivate : public CMDataTransferPrivateBase
{
public:
    void dataAvailable(const QByteArray& chunk) override;
    void onDataAvailable(DataFunction function) override;

private:
    QList<DataCallback::Pointer> m_dataCallbacks;
};
