#pragma once

#include "core/model/cmerror.h"

#include <QObject>
#include <QScopedPointer>
#include <QStringList>

#include <functional>

class CMEventQueueManager;
class CMPath;
class QHostAddress;

/**
 * Offers the content tree of CMRoot() and its event queues over HTTP, to clients that have no link: JSON in and out,
 * failures as an OrvoError record with a fitting status. docs/gateway.md lists the requests.
 *
 * Owned by the application, which installs the root ahead of it. Lives in one thread, that of its event queues: HTTP
 * server, queues, polls and requests on the model all run in that thread's event loop, none of them blocks it, and so
 * nothing has a lock; all functions are for that thread. What waits for an answer, a long poll above all, is a
 * suspended connection, which takes a socket and a buffer and no thread. It ends with its answer, with its client, at
 * its time limit, or with this object, which answers all that are open; nothing of it outlives this object. Replies of
 * the model that come later find nobody and are dropped. It may be destroyed by what it
 * asks of the model, within the call.
 *
 * It is meant for clients of the same device and for browsers. A browser that shows a foreign page could be made to
 * send requests: those with a foreign Origin or Host are refused, and so is writing as long as it is not allowed.
 */
class OrvoHttpGateway : public QObject
{
    Q_OBJECT

public:
    /// Gives an error when the path is not to be served, one named ErrorUnreachable() when its service is away.
    using PathCheck = std::function<CMError(const CMPath&)>;

    explicit OrvoHttpGateway(QObject* parent = nullptr);
    ~OrvoHttpGateway() override;

    /// Port 0 picks one. Empty, or why it cannot listen. Called once, after the settings below.
    QString listen(const QHostAddress& address, quint16 port);
    quint16 port() const;
    CMEventQueueManager* queues() const;

    /// Whether setData and invoke are served. They are not unless told so.
    void setWritesAllowed(bool allowed);
    /// Names of this device, beside localhost and the address that the client reached, that a Host header may carry.
    void setHostNames(const QStringList& names);
    /// Asked ahead of each request and each subscription. It must not destroy the gateway.
    void setPathCheck(PathCheck check);
    /// How long the model may take for an answer, in milliseconds; 10,000 unless set.
    void setRequestTimeout(int ms);
    /// After how many seconds a client is let go that neither sends nor takes anything; 30 unless set.
    void setIdleTimeout(int seconds);
    /// Serves the content at that place, such as "/".
    void setFile(const QString& target, const QByteArray& contentType, const QByteArray& content);

    static constexpr int BodyLimit = 1024 * 1024;
    static constexpr int QueuesLimit = 256;
    /// Subscriptions of one queue.
    static constexpr int SubscriptionsLimit = 1024;
    /// Rows of one request.
    static constexpr int RowsLimit = 10000;
    /// Characters of a path.
    static constexpr int PathLimit = 1024;
    /// Levels of JSON in a body: fewer than the link takes, whose packets add some.
    static constexpr int DepthLimit = 128;

    static QString ErrorMalformed() { return QStringLiteral("OrvoHttpGateway::malformed"); }
    static QString ErrorForeign() { return QStringLiteral("OrvoHttpGateway::foreign"); }
    static QString ErrorNotFound() { return QStringLiteral("OrvoHttpGateway::notFound"); }
    static QString ErrorMethod() { return QStringLiteral("OrvoHttpGateway::method"); }
    static QString ErrorWritesNotAllowed() { return QStringLiteral("OrvoHttpGateway::writesNotAllowed"); }
    static QString ErrorTooLarge() { return QStringLiteral("OrvoHttpGateway::tooLarge"); }
    static QString ErrorTooMany() { return QStringLiteral("OrvoHttpGateway::tooMany"); }
    static QString ErrorUnknownQueue() { return QStringLiteral("OrvoHttpGateway::unknownQueue"); }
    static QString ErrorUnreachable() { return QStringLiteral("OrvoHttpGateway::unreachable"); }
    static QString ErrorExpired() { return QStringLiteral("OrvoHttpGateway::expired"); }
    static QString ErrorClosing() { return QStringLiteral("OrvoHttpGateway::closing"); }

private:
    class Private;
    const QScopedPointer<Private> d;
};
