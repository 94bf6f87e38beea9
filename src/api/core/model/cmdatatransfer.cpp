#include "core/model/cmdatatransfer.h"

#include "core/model/cmdatatransfer_p.h"
#include "core/orvo.h"
#include "core/orvoLanguage.h"

#include <QThread>

namespace {

/**
 * Whether the thread that asked is still running, to be read by others. A QThread could not be asked that: it may be
 * deleted while one asks.
 */
std::shared_ptr<const std::atomic<bool>> lifeOfThisThread()
{
    struct Life
    {
        ~Life() { *running = false; }
        const std::shared_ptr<std::atomic<bool>> running = std::make_shared<std::atomic<bool>>(true);
    };
    thread_local const Life life;
    return life.running;
}

} // namespace

SynchronizationObserver::~SynchronizationObserver() = default;

QtSynchronizer::QtSynchronizer(SynchronizationObserver* observer) : m_observer(observer)
{
    orvoConnect(this, SIGNAL(synchronizeSignal()), this, SLOT(onSynchronized()), Qt::AutoConnection);
}

QtSynchronizer::~QtSynchronizer()
{
    delete m_observer;
}

void QtSynchronizer::onSynchronized()
{
    // The last call may take both this and the observer with it.
    m_observer->synchronized();
}

ThreadSynchronizer::ThreadSynchronizer() : m_homeRuns(lifeOfThisThread()), m_synchronizer(new QtSynchronizer(this)) {}

bool ThreadSynchronizer::deliver(std::function<void()> call)
{
    if (m_synchronizer->thread() == QThread::currentThread()) {
        call();
        return true;
    }
    // A thread that has ended runs nothing: its calls would only pile up.
    if (!*m_homeRuns)
        return false;

    bool wake;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        wake = m_queue.isEmpty();
        m_queue.append(call);
    }
    if (wake)
        emit m_synchronizer->synchronizeSignal();
    return true;
}

void ThreadSynchronizer::synchronized()
{
    // Outlives the lock: it may hold the last reference to this.
    std::function<void()> call;
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_queue.isEmpty()) {
        std::function<void()> next = m_queue.takeFirst();
        lock.unlock();
        call = std::move(next);
        call();
        lock.lock();
    }
}

void ThreadSynchronizer::release(ThreadSynchronizer* synchronizer)
{
    QtSynchronizer* const owner = synchronizer->m_synchronizer;
    if (owner->thread() == QThread::currentThread() || !*synchronizer->m_homeRuns)
        delete owner;
    else
        owner->deleteLater();
}

CMDataTransferPrivateBase::CMDataTransferPrivateBase() = default;

CMDataTransferPrivateBase::~CMDataTransferPrivateBase() = default;

void CMDataTransferPrivateBase::onFinished(FinishedFunction callback)
{
    CMError error;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_finished) {
            m_finishedCallbacks.append(FinishedCallback::create(std::move(callback)));
            return;
        }
        error = m_error;
    }
    callback(error);
}

void CMDataTransferPrivateBase::finish(const CMError& error)
{
    // Taken, not copied: a callback that holds a handle of this stream would keep both for ever.
    QList<FinishedCallback::Pointer> callbacks;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_finished)
            return;
        m_finished = true;
        m_error = error;
        callbacks.swap(m_finishedCallbacks);
    }
    for (const FinishedCallback::Pointer& callback : qAsConst(callbacks))
        FinishedCallback::call(callback, error);
}

bool CMDataTransferPrivateBase::isFinished() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_finished;
}

void CMBufferedDataTransferPrivate::dataAvailable(const QByteArray& chunk)
{
    DataCallback::Pointer callback;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_finished)
            return;
        if (!m_dataCallback) {
            m_buffer.append(chunk);
            return;
        }
        callback = m_dataCallback;
    }
    DataCallback::call(callback, chunk);
}

void CMBufferedDataTransferPrivate::onDataAvailable(DataFunction function)
{
    const DataCallback::Pointer callback = DataCallback::create(std::move(function));
    QByteArray buffer;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_dataCallback)
            return;
        m_dataCallback = callback;
        buffer.swap(m_buffer);
    }
    // At once, for this is the consumer's thread: a chunk that another thread sends meanwhile comes behind it.
    if (!buffer.isEmpty())
        DataCallback::call(callback, buffer);
}

void CMUnbufferedDataTransferPrivate::dataAvailable(const QByteArray& chunk)
{
    QList<DataCallback::Pointer> callbacks;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_finished)
            return;
        callbacks = m_dataCallbacks;
    }
    for (const DataCallback::Pointer& callback : qAsConst(callbacks))
        DataCallback::call(callback, chunk);
}

void CMUnbufferedDataTransferPrivate::onDataAvailable(DataFunction function)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_finished)
        m_dataCallbacks.append(DataCallback::create(std::move(function)));
}

CMDataTransfer::CMDataTransfer(CMDataTransferPrivateBase* d) : m_d(d) {}

CMDataTransfer::CMDataTransfer(const CMDataTransfer& other) = default;

CMDataTransfer& CMDataTransfer::operator=(const CMDataTransfer& other) = default;

CMDataTransfer::~CMDataTransfer() = default;

void CMDataTransfer::dataAvailable(const QByteArray& chunk) const
{
    m_d->dataAvailable(chunk);
}

void CMDataTransfer::finish(const CMError& error) const
{
    m_d->finish(error);
}

void CMDataTransfer::cancel() const
{
    const auto translated = [](const char* sourceText) {
        return TrString(TrCharData{"CMDataTransfer", sourceText}, QList<TrArg>()).toString();
    };
    finish(CMError(ErrorCancel(), translated("Request was canceled"),
                   translated(CMError::DefaultTitle().toUtf8().constData())));
}

bool CMDataTransfer::isFinished() const
{
    return m_d->isFinished();
}

const CMDataTransfer& CMDataTransfer::onDataAvailable(std::function<void(const QByteArray&)> callback) const
{
    m_d->onDataAvailable(std::move(callback));
    return *this;
}

const CMDataTransfer& CMDataTransfer::onFinished(std::function<void(const CMError&)> callback) const
{
    m_d->onFinished(std::move(callback));
    return *this;
}

uint qHash(const CMDataTransfer& transfer)
{
    return qHash(transfer.m_d.data());
}

CMBufferedDataTransfer::CMBufferedDataTransfer() : CMDataTransfer(new CMBufferedDataTransferPrivate) {}

CMUnbufferedDataTransfer::CMUnbufferedDataTransfer() : CMDataTransfer(new CMUnbufferedDataTransferPrivate) {}
