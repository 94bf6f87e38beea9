#pragma once

#include "core/model/cmerror.h"
#include "records/orvorowsroles.h"

#include <QExplicitlySharedDataPointer>
#include <QMetaType>
#include <QSharedData>
#include <QVarLengthArray>
#include <QVariant>

#include <climits>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <typeinfo>

class CMReplyWatcher;
class CMVariantReply;
class CMVoidReply;
class QObject;

/**
 * The shared result behind the reply handles: finished once, with a value or an error, by any thread.
 *
 * Lives as long as any handle. One lock guards all fields; no watcher and no callback runs under it. What a finished
 * reply holds no longer changes. Data that dies unfinished with a watcher left logs a warning, and that watcher never
 * fires: whoever receives a request owes it a finish.
 */
class CMReplyAbstractData : public QSharedData
{
public:
    CMReplyAbstractData();
    CMReplyAbstractData(const CMReplyAbstractData&) = delete;
    CMReplyAbstractData& operator=(const CMReplyAbstractData&) = delete;
    virtual ~CMReplyAbstractData();

    /// The value as a variant; waits for the finish, save where the class says otherwise. Here invalid, at once.
    virtual QVariant variant() const;
    /// Finishes with a value converted from the variant. Here nothing: the reply stays unfinished.
    virtual void setVariant(const QVariant& variant);

    void setError(const CMError& error);
    bool isFinished() const;
    bool waitForFinished(unsigned long timeMs) const;
    bool hasFailed() const;
    CMError error() const;
    void addWatcher(CMReplyWatcher* watcher);
    void removeWatcher(CMReplyWatcher* watcher);

protected:
    /// The first finish stores under the lock and notifies outside it; later ones are dropped without a word.
    template <typename Store>
    void finish(Store store)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (m_finished)
            return;
        store();
        notify(std::move(lock));
    }

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_condition;
    bool m_finished = false;
    CMError m_error;
    /// In order of registration; not owned.
    QVarLengthArray<CMReplyWatcher*, 2> m_watchers;

private:
    void notify(std::unique_lock<std::mutex> lock);
};

template <typename T>
class CMReplyData : public CMReplyAbstractData
{
public:
    QVariant variant() const override { return QVariant::fromValue(value()); }
    void setVariant(const QVariant& variant) override { setValue(variant.value<T>()); }

    void setValue(const T& value)
    {
        finish([&] { m_value = value; });
    }
    T value() const
    {
        waitForFinished(ULONG_MAX);
        return m_value;
    }

private:
    T m_value{};
};

template <>
class CMReplyData<void> : public CMReplyAbstractData
{
public:
    void setValue();
};

/// A variant that holds a variant is unwrapped one level.
template <>
void CMReplyData<QVariant>::setVariant(const QVariant& variant);
template <>
QVariant CMReplyData<QVariant>::variant() const;
template <>
void CMReplyData<QVariantList>::setVariant(const QVariant& variant);
template <>
QVariant CMReplyData<QVariantList>::variant() const;
template <>
void CMReplyData<int>::setVariant(const QVariant& variant);
template <>
void CMReplyData<OrvoRowsRoles>::setVariant(const QVariant& variant);
/// The record as it stands, without waiting.
template <>
QVariant CMReplyData<OrvoRowsRoles>::variant() const;

/**
 * A handle on a result that is to come: one pointer, copied freely; all copies see one result.
 *
 * Every operation may be called from any thread. A function given to addWatcher() or an on...() call runs in the
 * registering thread by that thread's event loop, or at once where the finishing (or, if finished already, the
 * registering) thread is the same one; a thread without an event loop uses waitForFinished(). Handles compare, order
 * and hash by the identity of the data. A null handle tests false; any other use of it is a programming error.
 */
class CMVoidReply
{
public:
    using Data = CMReplyAbstractData;

    CMVoidReply();
    /// Adopts existing data.
    explicit CMVoidReply(CMReplyAbstractData* data) : m_d(data) {}

    bool isValid() const { return m_d; }
    explicit operator bool() const { return m_d; }
    bool operator!() const { return !m_d; }
    CMReplyAbstractData* data() const { return m_d.data(); }

    bool isFinished() const { return m_d->isFinished(); }
    /// Whether it is finished after at most `time` milliseconds. Not for the thread that has to finish the reply.
    bool waitForFinished(unsigned long time = ULONG_MAX) const { return m_d->waitForFinished(time); }
    /// Whether it ended with an error. Does not wait.
    bool hasFailed() const { return m_d->hasFailed(); }
    /// A copy; empty when it has not failed, or not yet. Does not wait.
    CMError error() const { return m_d->error(); }
    void setError(const CMError& error) const { m_d->setError(error); }
    /// Finishes with the error named ErrorCancel(). The producer is not told; what it brings later is dropped.
    void cancel() const;
    static QString ErrorCancel() { return QStringLiteral("cancel"); }

    /// The watcher is not owned and runs in the finishing thread; at once, here, when the reply is finished already.
    void addWatcher(CMReplyWatcher* watcher) const { m_d->addWatcher(watcher); }
    /// The member takes a CMVoidReply and runs in the receiver's thread, once.
    void addWatcher(QObject* receiver, const char* member, Qt::ConnectionType type = Qt::AutoConnection) const;
    void addWatcher(std::function<void(const CMVoidReply&)> function,
                    Qt::ConnectionType type = Qt::AutoConnection) const;
    /// Takes back one registration of the watcher; nothing after the finish.
    void removeWatcher(CMReplyWatcher* watcher) const { m_d->removeWatcher(watcher); }

    const CMVoidReply& onFinished(std::function<void(const CMVoidReply&)> function,
                                  Qt::ConnectionType type = Qt::AutoConnection) const;
    /// Runs only when the reply failed.
    const CMVoidReply& onError(std::function<void(const CMError&)> function,
                               Qt::ConnectionType type = Qt::AutoConnection) const;

    CMVariantReply toVariantReply() const;

    friend bool operator==(const CMVoidReply& a, const CMVoidReply& b) { return a.m_d == b.m_d; }
    friend bool operator!=(const CMVoidReply& a, const CMVoidReply& b) { return a.m_d != b.m_d; }
    friend bool operator<(const CMVoidReply& a, const CMVoidReply& b) { return a.m_d.data() < b.m_d.data(); }

protected:
    QExplicitlySharedDataPointer<CMReplyAbstractData> m_d;
};

uint qHash(const CMVoidReply& reply);

namespace CMReplyDetail {

/// Null when the data is of another class. Mostly it is the very class, which is told without a walk over bases.
template <typename Data>
Data* dataAs(CMReplyAbstractData* data)
{
    return data && typeid(*data) == typeid(Data) ? static_cast<Data*>(data) : dynamic_cast<Data*>(data);
}

/// What an onSuccess() function of a CMReply<T> takes.
template <typename T>
struct Success
{
    using Function = std::function<void(const T&)>;
    static void call(const Function& function, const CMReplyData<T>* data) { function(data->value()); }
};

template <>
struct Success<void>
{
    using Function = std::function<void()>;
    static void call(const Function& function, const CMReplyData<void>*) { function(); }
};

} // namespace CMReplyDetail

/// A handle on a result of type T; see CMVoidReply.
template <typename T>
class CMReply : public CMVoidReply
{
public:
    using Data = CMReplyData<T>;

    CMReply() : CMVoidReply(new Data) {}
    explicit CMReply(Data* data) : CMVoidReply(data) {}

    Data* d() const { return static_cast<Data*>(m_d.data()); }
    /// Waits without limit for the finish; the default T when the reply failed.
    T value() const
    {
        if constexpr (std::is_void<T>::value)
            m_d->waitForFinished(ULONG_MAX);
        else
            return d()->value();
    }
    template <typename U = T>
    void setValue(const std::enable_if_t<!std::is_void<U>::value, U>& value) const
    {
        d()->setValue(value);
    }
    template <typename U = T>
    std::enable_if_t<std::is_void<U>::value> setValue() const
    {
        d()->setValue();
    }

    const CMReply& onFinished(std::function<void(const CMReply&)> function,
                              Qt::ConnectionType type = Qt::AutoConnection) const
    {
        addWatcher(
            [function = std::move(function)](const CMVoidReply& reply) {
                auto* data = CMReplyDetail::dataAs<Data>(reply.data());
                Q_ASSERT_X(data, "CMReply", "Wrong type passed to CMReply::onFinished()!");
                function(CMReply(data));
            },
            type);
        return *this;
    }
    /// Runs only when the reply has not failed.
    const CMReply& onSuccess(typename CMReplyDetail::Success<T>::Function function,
                             Qt::ConnectionType type = Qt::AutoConnection) const
    {
        addWatcher(
            [function = std::move(function)](const CMVoidReply& reply) {
                auto* data = CMReplyDetail::dataAs<Data>(reply.data());
                Q_ASSERT_X(data, "CMReply", "Wrong type passed to CMReply::onSuccess()!");
                if (!reply.hasFailed())
                    CMReplyDetail::Success<T>::call(function, data);
            },
            type);
        return *this;
    }
    const CMReply& onError(std::function<void(const CMError&)> function,
                           Qt::ConnectionType type = Qt::AutoConnection) const
    {
        CMVoidReply::onError(std::move(function), type);
        return *this;
    }
};

/// A handle that reads and finishes a result of any type through variants.
class CMVariantReply : public CMVoidReply
{
public:
    explicit CMVariantReply(CMReplyAbstractData* data) : CMVoidReply(data) {}
    CMVariantReply(const CMVoidReply& reply) : CMVoidReply(reply) {}

    QVariant value() const { return m_d->variant(); }
    void setValue(const QVariant& value) const { m_d->setVariant(value); }
    operator QVariant() const { return value(); }

    const CMVariantReply& onFinished(std::function<void(const CMVariantReply&)> function,
                                     Qt::ConnectionType type = Qt::AutoConnection) const;
    const CMVariantReply& onSuccess(std::function<void(const QVariant&)> function,
                                    Qt::ConnectionType type = Qt::AutoConnection) const;
    const CMVariantReply& onError(std::function<void(const CMError&)> function,
                                  Qt::ConnectionType type = Qt::AutoConnection) const;
};

Q_DECLARE_METATYPE(CMVoidReply)
