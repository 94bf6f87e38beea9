#include "orvohttpgateway.h"

#include "core/model/cmabstractworker.h"
#include "core/model/cmeventqueue.h"
#include "core/model/cmpath.h"
#include "core/model/cmroot.h"
#include "core/model/cmrpccommon.h"
#include "core/orvoJson.h"
#include "core/orvoLog_p.h"
#include "orvohttpinput_p.h"
#include "orvohttpserver_p.h"
#include "records/orvoerror.h"

#include <QDeadlineTimer>
#include <QHostAddress>
#include <QPointer>

#include <algorithm>
#include <deque>
#include <memory>

namespace {

ORVO_LOGGER("OrvoHttpGateway")

using Exchange = std::shared_ptr<OrvoHttpExchange>;

const char* const jsonType = "application/json";

CMError failure(const QString& name, const QString& message)
{
    return CMError(name, message, CMError::DefaultTitle());
}

int statusOf(const CMError& error)
{
    static const QHash<QString, int> statuses{
        {OrvoHttpGateway::ErrorMalformed(), 400},
        {CMAbstractWorker::ErrorInvalidArgument(), 400},
        {OrvoHttpGateway::ErrorForeign(), 403},
        {OrvoHttpGateway::ErrorWritesNotAllowed(), 403},
        {OrvoHttpGateway::ErrorNotFound(), 404},
        {OrvoHttpGateway::ErrorUnknownQueue(), 404},
        {CMAbstractWorker::ErrorInvalidPath(), 404},
        {OrvoHttpGateway::ErrorMethod(), 405},
        {CMAbstractWorker::ErrorInvalidRowsVersion(), 409},
        {OrvoHttpGateway::ErrorTooLarge(), 413},
        // The link ends what is open when it breaks.
        {CMVoidReply::ErrorCancel(), 502},
        {OrvoHttpGateway::ErrorUnreachable(), 502},
        {OrvoHttpGateway::ErrorTooMany(), 503},
        {OrvoHttpGateway::ErrorClosing(), 503},
        {OrvoHttpGateway::ErrorExpired(), 504},
    };
    return statuses.value(error.name(), 500);
}

void refuse(OrvoHttpExchange& exchange, const CMError& error,
            const OrvoHttpExchange::Headers& headers = OrvoHttpExchange::Headers())
{
    const int status = statusOf(error);
    LOG4CPLUS_DEBUG(logger(), exchange.method << ' ' << exchange.target << ": " << status << ' ' << error.name());
    exchange.answer(status, jsonType, OrvoJson::serialize(orvoErrorFromCMError(error).__variant()), headers);
}

void answer(OrvoHttpExchange& exchange, const QVariantHash& content)
{
    exchange.answer(200, jsonType, OrvoJson::serialize(content));
}

/// A long poll that answers an exchange.
class HttpPoll : public CMEventQueueRequest
{
public:
    explicit HttpPoll(const Exchange& exchange) : m_exchange(exchange) {}

    void respond(const OrvoList<OrvoEvent>& events, const QString& queueId) override
    {
        if (const Exchange exchange = m_exchange.lock())
            answer(*exchange, {{QStringLiteral("queueId"), queueId}, {QStringLiteral("events"), events.__variant()}});
    }

private:
    const std::weak_ptr<OrvoHttpExchange> m_exchange;
};

/// The name or address, and the port, of a Host header or of an Origin behind its "http://".
bool splitAuthority(const QByteArray& authority, QString* name, int* port)
{
    const int colon = authority.lastIndexOf(':');
    bool ok = true;
    *port = 80;
    QByteArray host = authority;
    if (colon > authority.lastIndexOf(']')) {
        *port = authority.mid(colon + 1).toUShort(&ok);
        host = authority.left(colon);
    }
    if (host.startsWith('[') && host.endsWith(']'))
        host = host.mid(1, host.size() - 2);
    *name = QString::fromLatin1(host);
    return ok && !host.isEmpty();
}

} // namespace

class OrvoHttpGateway::Private : public OrvoHttpHandler
{
public:
    struct File
    {
        QByteArray contentType;
        QByteArray content;
    };

    /// How an endpoint is asked, and who serves it.
    struct Endpoint
    {
        QByteArray method;
        bool writes;
        void (Private::*serve)(const Exchange& exchange, OrvoHttpInput& input);
    };

    explicit Private(OrvoHttpGateway* gateway) : m_queues(gateway), m_server(new OrvoHttpServer(this))
    {
        m_expiry.setSingleShot(true);
        QObject::connect(&m_expiry, &QTimer::timeout, gateway, [this] { expire(); });
        QObject::connect(&m_queues, &CMEventQueueManager::expired, gateway,
                         [this](const QString& id) { m_subscriptions.remove(id); });
    }

    void begin(OrvoHttpExchange& exchange) override;
    void refuseTooLarge(OrvoHttpExchange& exchange) override;
    void serve(const Exchange& exchange) override;

    bool isOurs(const OrvoHttpExchange& exchange, const QByteArray& authority) const;
    CMError check(const CMPath& path) const;
    template <typename Reply, typename Content>
    void follow(const Exchange& exchange, const Reply& reply, Content content);
    void expire();

    void getData(const Exchange& exchange, OrvoHttpInput& input);
    void getRows(const Exchange& exchange, OrvoHttpInput& input);
    void setData(const Exchange& exchange, OrvoHttpInput& input);
    void invoke(const Exchange& exchange, OrvoHttpInput& input);
    void modifyQueue(const Exchange& exchange, OrvoHttpInput& input);
    void pollQueue(const Exchange& exchange, OrvoHttpInput& input);

    static const QHash<QByteArray, Endpoint>& endpoints();

    struct Open
    {
        QDeadlineTimer deadline;
        std::weak_ptr<OrvoHttpExchange> exchange;
        CMVoidReply reply;
    };

    bool m_writesAllowed = false;
    QStringList m_hostNames;
    PathCheck m_check;
    int m_requestTimeout = 10000;
    QHash<QByteArray, File> m_files;
    /// What waits for the model; all have the same time, so they are in the order of their ends.
    std::deque<Open> m_open;
    QTimer m_expiry;
    /// How many subscriptions each queue was given.
    QHash<QString, int> m_subscriptions;
    CMEventQueueManager m_queues;
    std::unique_ptr<OrvoHttpServer> m_server;
};

const QHash<QByteArray, OrvoHttpGateway::Private::Endpoint>& OrvoHttpGateway::Private::endpoints()
{
    static const QHash<QByteArray, Endpoint> endpoints{
        {"/api/getData", {"GET", false, &Private::getData}},
        {"/api/getRows", {"GET", false, &Private::getRows}},
        {"/api/setData", {"POST", true, &Private::setData}},
        {"/api/invoke", {"POST", true, &Private::invoke}},
        {"/api/event/modifyQueue", {"POST", false, &Private::modifyQueue}},
        {"/api/event/pollQueue", {"GET", false, &Private::pollQueue}},
    };
    return endpoints;
}

void OrvoHttpGateway::Private::begin(OrvoHttpExchange& exchange)
{
    const QByteArray scheme("http://");
    const bool foreign =
        !isOurs(exchange, exchange.host)
        || (!exchange.origin.isNull()
            && (!exchange.origin.startsWith(scheme) || !isOurs(exchange, exchange.origin.mid(scheme.size()))));
    if (foreign)
        return refuse(exchange, failure(ErrorForeign(), QStringLiteral("Not from or for this host")));

    const auto file = m_files.constFind(exchange.target);
    const auto endpoint = endpoints().constFind(exchange.target);
    if (file == m_files.constEnd() && endpoint == endpoints().constEnd())
        return refuse(exchange, failure(ErrorNotFound(), QStringLiteral("No such place")));
    const QByteArray method = file != m_files.constEnd() ? QByteArray("GET") : endpoint->method;
    if (exchange.method != method)
        return refuse(exchange, failure(ErrorMethod(), QStringLiteral("Only ") + QLatin1String(method)),
                      {{"Allow", method}});
    if (file != m_files.constEnd())
        return exchange.answer(200, file->contentType, file->content,
                               {{"Content-Security-Policy", "default-src 'self'; img-src 'self' http: https: data:"},
                                {"X-Frame-Options", "DENY"},
                                {"Referrer-Policy", "no-referrer"}});
    if (endpoint->writes && !m_writesAllowed)
        refuse(exchange, failure(ErrorWritesNotAllowed(), QStringLiteral("Writing is not allowed")));
}

void OrvoHttpGateway::Private::refuseTooLarge(OrvoHttpExchange& exchange)
{
    refuse(exchange, failure(ErrorTooLarge(), QStringLiteral("A body has %1 bytes at most").arg(BodyLimit)));
}

void OrvoHttpGateway::Private::serve(const Exchange& exchange)
{
    const Endpoint endpoint = endpoints().value(exchange->target);
    OrvoHttpInput input =
        endpoint.method == "GET" ? OrvoHttpInput::fromQuery(*exchange) : OrvoHttpInput::fromBody(*exchange);
    exchange->body.clear();
    (this->*endpoint.serve)(exchange, input);
}

/// A name that was made to point here belongs to a foreign page: only localhost and the address itself are ours.
bool OrvoHttpGateway::Private::isOurs(const OrvoHttpExchange& exchange, const QByteArray& authority) const
{
    QString name;
    int port = 0;
    if (!splitAuthority(authority, &name, &port) || port != m_server->port())
        return false;
    const QHostAddress local = exchange.localAddress();
    if (name.compare(QLatin1String("localhost"), Qt::CaseInsensitive) == 0)
        return local.isLoopback();
    return QHostAddress(name) == local || m_hostNames.contains(name, Qt::CaseInsensitive);
}

CMError OrvoHttpGateway::Private::check(const CMPath& path) const
{
    return m_check ? m_check(path) : CMError();
}

/// Answers with what the function makes of the reply's value, or with its error.
template <typename Reply, typename Content>
void OrvoHttpGateway::Private::follow(const Exchange& exchange, const Reply& reply, Content content)
{
    const std::weak_ptr<OrvoHttpExchange> weak = exchange;
    reply.onFinished([weak, content](const Reply& ended) {
        const Exchange waiting = weak.lock();
        if (!waiting)
            return;
        const CMError error = ended.error();
        if (error.isError())
            refuse(*waiting, error);
        else
            answer(*waiting, content(ended.value()));
    });
    if (exchange->isAnswered())
        return;
    const auto isOver = [](const Open& open) {
        const Exchange waiting = open.exchange.lock();
        return !waiting || waiting->isAnswered();
    };
    while (!m_open.empty() && isOver(m_open.front()))
        m_open.pop_front();
    m_open.push_back({QDeadlineTimer(m_requestTimeout), exchange, reply});
    if (!m_expiry.isActive())
        m_expiry.start(m_requestTimeout);
}

void OrvoHttpGateway::Private::expire()
{
    const QPointer<OrvoHttpServer> alive(m_server.get());
    while (alive && !m_open.empty() && m_open.front().deadline.hasExpired()) {
        const Open open = m_open.front();
        m_open.pop_front();
        const Exchange exchange = open.exchange.lock();
        if (!exchange || exchange->isAnswered())
            continue;
        refuse(*exchange, failure(ErrorExpired(), QStringLiteral("No answer in time")));
        open.reply.cancel();
    }
    if (alive && !m_open.empty())
        m_expiry.start(int(m_open.front().deadline.remainingTime()) + 1);
}

void OrvoHttpGateway::Private::getData(const Exchange& exchange, OrvoHttpInput& input)
{
    const CMPath path = input.path();
    const QStringList roles = input.roles();
    const CMError error = input.error().isError() ? input.error() : check(path);
    if (error.isError())
        return refuse(*exchange, error);
    const QPointer<OrvoHttpServer> alive(m_server.get());
    const CMReply<QVariantList> reply = CMRoot()->getData(path, roles);
    if (alive)
        follow(exchange, reply, [](const QVariantList& values) {
            return QVariantHash{{QStringLiteral("values"), values}};
        });
}

void OrvoHttpGateway::Private::getRows(const Exchange& exchange, OrvoHttpInput& input)
{
    const CMPath path = input.path();
    const QStringList roles = input.roles();
    const int from = input.number(QStringLiteral("fromRow"), 0, INT_MAX);
    const int to = input.number(QStringLiteral("toRow"), 0, INT_MAX);
    const int version = input.number(QStringLiteral("rowsVersion"), -1, -1, INT_MAX);
    if (to < from || to - from >= RowsLimit)
        input.fail(QStringLiteral("toRow is not from fromRow to %1 behind it").arg(RowsLimit - 1));
    const CMError error = input.error().isError() ? input.error() : check(path);
    if (error.isError())
        return refuse(*exchange, error);
    const QPointer<OrvoHttpServer> alive(m_server.get());
    const CMReply<OrvoRowsRoles> reply = CMRoot()->getRows(path, from, to, version, roles);
    if (alive)
        follow(exchange, reply, [](const OrvoRowsRoles& rows) { return rows.__hash(); });
}

void OrvoHttpGateway::Private::setData(const Exchange& exchange, OrvoHttpInput& input)
{
    const CMPath path = input.path();
    const QString role = input.text(QStringLiteral("role"));
    const QVariant value = input.value(QStringLiteral("value"));
    if (role.isEmpty())
        input.fail(QStringLiteral("No role"));
    const CMError error = input.error().isError() ? input.error() : check(path);
    if (error.isError())
        return refuse(*exchange, error);
    const QPointer<OrvoHttpServer> alive(m_server.get());
    const CMReply<QVariant> reply = CMRoot()->setData(path, role, value);
    if (alive)
        follow(exchange, reply, [](const QVariant& stored) { return QVariantHash{{QStringLiteral("value"), stored}}; });
}

void OrvoHttpGateway::Private::invoke(const Exchange& exchange, OrvoHttpInput& input)
{
    const CMPath path = input.path();
    const QVariant value = input.value(QStringLiteral("value"));
    const CMError error = input.error().isError() ? input.error() : check(path);
    if (error.isError())
        return refuse(*exchange, error);
    const QPointer<OrvoHttpServer> alive(m_server.get());
    const CMReply<QVariant> reply = CMRoot()->invoke(path, value);
    if (alive)
        follow(exchange, reply, [](const QVariant& result) { return QVariantHash{{QStringLiteral("value"), result}}; });
}

void OrvoHttpGateway::Private::modifyQueue(const Exchange& exchange, OrvoHttpInput& input)
{
    const QString id = input.text(QStringLiteral("queueId"));
    const OrvoList<OrvoEventSubscribe> added = input.subscriptions(QStringLiteral("subscribes"));
    const OrvoList<OrvoEventSubscribe> removed = input.subscriptions(QStringLiteral("unsubscribes"));
    // All before the first: what a queue was given stays when a later one fails.
    CMError error = input.error();
    for (int i = 0; i < added.size() && !error.isError(); ++i)
        error = check(added.value(i).path());
    CMEventQueue* known = m_queues.getQueue(id);
    if (!error.isError() && !known && m_queues.queuesCount() >= QueuesLimit)
        error = failure(ErrorTooMany(), QStringLiteral("There are %1 queues already").arg(QueuesLimit));
    const int count = (known ? m_subscriptions.value(known->id().toString()) : 0) + added.size();
    if (!error.isError() && count > SubscriptionsLimit)
        error = failure(ErrorTooMany(), QStringLiteral("A queue has %1 subscriptions at most").arg(SubscriptionsLimit));
    if (error.isError())
        return refuse(*exchange, error);

    const QPointer<OrvoHttpServer> alive(m_server.get());
    const QPointer<CMEventQueue> queue(m_queues.getOrCreateQueue(id));
    const QString queueId = queue->id().toString();
    const bool modified = queue->modify(added, removed);
    if (!alive || !queue)
        return;
    queue->startDeleteCountdown();
    // One that failed half way is taken for as much as it may have left.
    m_subscriptions.insert(queueId, modified ? std::max(0, count - removed.size()) : count);
    answer(*exchange, {{QStringLiteral("queueId"), queueId}, {QStringLiteral("modified"), modified}});
}

void OrvoHttpGateway::Private::pollQueue(const Exchange& exchange, OrvoHttpInput& input)
{
    const QString id = input.text(QStringLiteral("queueId"));
    const int timeout = input.number(QStringLiteral("timeout"), 0, INT_MIN, INT_MAX);
    if (input.error().isError())
        return refuse(*exchange, input.error());
    const QPointer<CMEventQueue> queue(m_queues.getQueue(id));
    if (!queue)
        return refuse(*exchange, failure(ErrorUnknownQueue(), QStringLiteral("No such queue, or it has expired")));
    queue->poll(new HttpPoll(exchange), timeout);
    // A poll whose client is gone would take the next events with it.
    exchange->onHangUp([queue] {
        if (queue)
            queue->sendResponse();
    });
}

OrvoHttpGateway::OrvoHttpGateway(QObject* parent) : QObject(parent), d(new Private(this)) {}

OrvoHttpGateway::~OrvoHttpGateway()
{
    const auto open = d->m_server->open();
    for (const Exchange& exchange : open)
        refuse(*exchange, failure(ErrorClosing(), QStringLiteral("The gateway is closing")));
}

QString OrvoHttpGateway::listen(const QHostAddress& address, quint16 port)
{
    d->m_server->setBodyLimit(BodyLimit);
    return d->m_server->listen(address, port);
}

quint16 OrvoHttpGateway::port() const
{
    return d->m_server->port();
}

CMEventQueueManager* OrvoHttpGateway::queues() const
{
    return &d->m_queues;
}

void OrvoHttpGateway::setWritesAllowed(bool allowed)
{
    d->m_writesAllowed = allowed;
}

void OrvoHttpGateway::setHostNames(const QStringList& names)
{
    d->m_hostNames = names;
}

void OrvoHttpGateway::setPathCheck(PathCheck check)
{
    d->m_check = std::move(check);
}

void OrvoHttpGateway::setRequestTimeout(int ms)
{
    d->m_requestTimeout = ms;
}

void OrvoHttpGateway::setIdleTimeout(int seconds)
{
    d->m_server->setIdleTimeout(seconds);
}

void OrvoHttpGateway::setFile(const QString& target, const QByteArray& contentType, const QByteArray& content)
{
    d->m_files.insert(target.toUtf8(), {contentType, content});
}
