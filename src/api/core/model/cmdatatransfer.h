#pragma once

#include "core/model/cmerror.h"

#include <QByteArray>
#include <QExplicitlySharedDataPointer>
#include <QMetaType>
#include <QString>

#include <functional>

class CMDataTransferPrivateBase;

/**
 * A handle on a one-way stream of byte chunks with an end: one pointer, copied freely; all copies share one stream.
 *
 * Every operation may be called from any thread. A callback runs in the thread that registered it: at once, inside the
 * producer's call, when that is the producer's own thread, and otherwise by its event loop, which it has to run for as
 * long as the stream goes on. No lock is held meanwhile. Chunks keep their order, but a last chunk and the end reach a
 * consumer in another thread in either order.
 *
 * The stream lives until the last handle goes; calls that are still queued then arrive all the same. A data callback
 * must not hold a handle of its own stream, or neither of them would ever go; the callbacks of the end may.
 *
 * Handles compare, order and hash by the identity of the stream.
 */
class CMDataTransfer
{
public:
    /// Adopts the stream; it is not null.
    explicit CMDataTransfer(CMDataTransferPrivateBase* d);
    CMDataTransfer(const CMDataTransfer& other);
    CMDataTransfer& operator=(const CMDataTransfer& other);
    ~CMDataTransfer();

    static QString ErrorCancel() { return QStringLiteral("cancel"); }

    /// Hands on one chunk; after the end it is dropped.
    void dataAvailable(const QByteArray& chunk) const;
    /// Ends the stream, with an empty error for success. Only the first end counts.
    void finish(const CMError& error) const;
    /// For a consumer that gives up: ends the stream with the error named ErrorCancel().
    void cancel() const;
    bool isFinished() const;

    const CMDataTransfer& onDataAvailable(std::function<void(const QByteArray&)> callback) const;
    /// Called once; here and now when the stream has ended already.
    const CMDataTransfer& onFinished(std::function<void(const CMError&)> callback) const;

    friend bool operator==(const CMDataTransfer& a, const CMDataTransfer& b) { return a.m_d.data() == b.m_d.data(); }
    friend bool operator!=(const CMDataTransfer& a, const CMDataTransfer& b) { return !(a == b); }
    friend bool operator<(const CMDataTransfer& a, const CMDataTransfer& b) { return a.m_d.data() < b.m_d.data(); }
    friend uint qHash(const CMDataTransfer& transfer);

private:
    QExplicitlySharedDataPointer<CMDataTransferPrivateBase> m_d;
};

uint qHash(const CMDataTransfer& transfer);

/**
 * A stream for one consumer, which may come late: what was sent before it reaches it as one chunk when it registers,
 * also after the end. The first data callback stays; later ones are dropped.
 */
class CMBufferedDataTransfer : public CMDataTransfer
{
public:
    CMBufferedDataTransfer();
};

/// A stream for any number of consumers: each chunk goes to those who are there, and is lost when nobody is.
class CMUnbufferedDataTransfer : public CMDataTransfer
{
public:
    CMUnbufferedDataTransfer();
};

Q_DECLARE_METATYPE(CMBufferedDataTransfer)
Q_DECLARE_METATYPE(CMUnbufferedDataTransfer)
