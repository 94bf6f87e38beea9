#include "core/model/cmreply.h"

#include "core/model/cmreplywatcher.h"
#include "core/orvoLanguage.h"

#include <QDebug>

#include <chrono>

namespace {

constexpr TrCharData canceledText{"CMVoidReply", "Request was canceled", nullptr, -1};

} // namespace

CMReplyAbstractData::CMReplyAbstractData() = default;

CMReplyAbstractData::~CMReplyAbstractData()
{
    if (!m_finished && !m_watchers.isEmpty())
        qWarning("Reply is being destroyed, but it's not finished and it has at least one watcher");
}

QVariant CMReplyAbstractData::variant() const
{
    return QVariant();
}

void CMReplyAbstractData::setVariant(const QVariant&) {}

void CMReplyAbstractData::setError(const CMError& error)
{
    finish([&] { m_error = error; });
}

bool CMReplyAbstractData::isFinished() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_finished;
}

bool CMReplyAbstractData::waitForFinished(unsigned long timeMs) const
{
    std::unique_lock<std::mutex> lock(m_mutex);
    const auto finished = [this] { return m_finished; };
    // Times beyond what the clock can add to now are as good as for ever.
    constexpr unsigned long forEver = 0xFFFFFFFFul;
    if (timeMs >= forEver)
        m_condition.wait(lock, finished);
    else
        m_condition.wait_for(lock, std::chrono::milliseconds(timeMs), finished);
    return m_finished;
}

bool CMReplyAbstractData::hasFailed() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_error.isError();
}

CMError CMReplyAbstractData::error() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_error;
}

void CMReplyAbstractData::addWatcher(CMReplyWatcher* watcher)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_finished) {
            m_watchers.append(watcher);
            return;
        }
    }
    watcher->finished(CMVoidReply(this));
}

void CMReplyAbstractData::removeWatcher(CMReplyWatcher* watcher)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_finished)
        return;
    const int index = m_watchers.indexOf(watcher);
    if (index >= 0)
        m_watchers.remove(index);
}

void CMReplyAbstractData::notify(std::unique_lock<std::mutex> lock)
{
    // A watcher may drop the last other handle.
    const CMVoidReply reply(this);
    m_finished = true;
    const auto watchers = m_watchers;
    m_watchers.clear();
    m_condition.notify_all();
    lock.unlock();
    for (CMReplyWatcher* watcher : watchers)
        watcher->finished(reply);
}

void CMReplyData<void>::setValue()
{
    finish([] {});
}

template <>
void CMReplyData<QVariant>::setVariant(const QVariant& variant)
{
    if (variant.userType() == QMetaType::QVariant)
        setValue(*static_cast<const QVariant*>(variant.constData()));
    else
        setValue(variant);
}

template <>
QVariant CMReplyData<QVariant>::variant() const
{
    return value();
}

template <>
void CMReplyData<QVariantList>::setVariant(const QVariant& variant)
{
    setValue(variant.toList());
}

template <>
QVariant CMReplyData<QVariantList>::variant() const
{
    return QVariant(value());
}

template <>
void CMReplyData<int>::setVariant(const QVariant& variant)
{
    setValue(variant.toInt());
}

template <>
void CMReplyData<OrvoRowsRoles>::setVariant(const QVariant& variant)
{
    setValue(OrvoRowsRoles(variant.toHash()));
}

template <>
QVariant CMReplyData<OrvoRowsRoles>::variant() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_value.__variant();
}

CMVoidReply::CMVoidReply() : m_d(new CMReplyData<void>) {}

void CMVoidReply::cancel() const
{
    setError(CMError(ErrorCancel(), TrString(canceledText, QList<TrArg>()).toString(),
                     TrString(CMError::DefaultTitle()).toString()));
}

void CMVoidReply::addWatcher(QObject* receiver, const char* member, Qt::ConnectionType type) const
{
    addWatcher(new CMReplyWatcherObject(receiver, member, type));
}

void CMVoidReply::addWatcher(std::function<void(const CMVoidReply&)> function, Qt::ConnectionType type) const
{
    addWatcher(new CMLambdaWatcherObject(std::move(function), type));
}

const CMVoidReply& CMVoidReply::onFinished(std::function<void(const CMVoidReply&)> function,
                                           Qt::ConnectionType type) const
{
    addWatcher(std::move(function), type);
    return *this;
}

const CMVoidReply& CMVoidReply::onError(std::function<void(const CMError&)> function, Qt::ConnectionType type) const
{
    addWatcher(
        [function = std::move(function)](const CMVoidReply& reply) {
            const CMError error = reply.error();
            if (error.isError())
                function(error);
        },
        type);
    return *this;
}

CMVariantReply CMVoidReply::toVariantReply() const
{
    return CMVariantReply(*this);
}

uint qHash(const CMVoidReply& reply)
{
    const auto address = reinterpret_cast<quintptr>(reply.data());
    return uint((address >> 31) ^ address);
}

const CMVariantReply& CMVariantReply::onFinished(std::function<void(const CMVariantReply&)> function,
                                                 Qt::ConnectionType type) const
{
    addWatcher(
        [function = std::move(function)](const CMVoidReply& reply) {
            Q_ASSERT_X(reply.isValid(), "CMVariantReply", "Wrong type passed to CMVariantReply::onFinished()!");
            function(CMVariantReply(reply));
        },
        type);
    return *this;
}

const CMVariantReply& CMVariantReply::onSuccess(std::function<void(const QVariant&)> function,
                                                Qt::ConnectionType type) const
{
    addWatcher(
        [function = std::move(function)](const CMVoidReply& reply) {
            Q_ASSERT_X(reply.isValid(), "CMVariantReply", "Wrong type passed to CMVariantReply::onSuccess()!");
            if (!reply.hasFailed())
                function(CMVariantReply(reply).value());
        },
        type);
    return *this;
}

const CMVariantReply& CMVariantReply::onError(std::function<void(const CMError&)> function,
                                              Qt::ConnectionType type) const
{
    CMVoidReply::onError(std::move(function), type);
    return *this;
}
