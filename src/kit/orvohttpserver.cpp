#include "orvohttpserver_p.h"

#include "core/orvoLog_p.h"

#include <QSocketNotifier>

#include <microhttpd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace {

ORVO_LOGGER("OrvoHttpServer")

constexpr unsigned connectionLimit = 900;
/// Request line and head of one request fit in here.
constexpr size_t connectionMemory = 16 * 1024;
/// How many times the limit of a refused body is read away, so that the client comes to read the answer.
constexpr int swallowFactor = 16;

int socketOf(MHD_Connection* connection)
{
    const MHD_ConnectionInfo* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
    return info ? info->connect_fd : -1;
}

QByteArray header(MHD_Connection* connection, const char* name)
{
    return QByteArray(MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name));
}

MHD_Result addArgument(void* cls, MHD_ValueKind, const char* key, size_t keySize, const char* value, size_t valueSize)
{
    auto* arguments = static_cast<QHash<QString, QString>*>(cls);
    const QString name = QString::fromUtf8(key, int(keySize));
    if (!arguments->contains(name))
        arguments->insert(name, QString::fromUtf8(value, int(valueSize)));
    return MHD_YES;
}

void logLibrary(void*, const char* format, va_list arguments)
{
    char line[512];
    vsnprintf(line, sizeof line, format, arguments);
    LOG4CPLUS_DEBUG(logger(), QByteArray(line).trimmed());
}

QString systemError(const char* what)
{
    return QStringLiteral("%1: %2").arg(QLatin1String(what), QString::fromLocal8Bit(strerror(errno)));
}

/// A listening socket and its port; a negative one, and the reason in errno, when it cannot be made.
int listenAt(const QHostAddress& address, quint16* port)
{
    sockaddr_storage storage{};
    socklen_t size = 0;
    if (address.protocol() == QAbstractSocket::IPv6Protocol || address == QHostAddress(QHostAddress::Any)) {
        auto* in6 = reinterpret_cast<sockaddr_in6*>(&storage);
        in6->sin6_family = AF_INET6;
        in6->sin6_port = htons(*port);
        const Q_IPV6ADDR bytes = address.toIPv6Address();
        std::memcpy(&in6->sin6_addr, &bytes, sizeof in6->sin6_addr);
        size = sizeof *in6;
    } else {
        auto* in = reinterpret_cast<sockaddr_in*>(&storage);
        in->sin_family = AF_INET;
        in->sin_port = htons(*port);
        in->sin_addr.s_addr = htonl(address.toIPv4Address());
        size = sizeof *in;
    }
    auto* plain = reinterpret_cast<sockaddr*>(&storage);
    const int fd = socket(storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return fd;
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(fd, plain, size) != 0 || ::listen(fd, SOMAXCONN) != 0 || getsockname(fd, plain, &size) != 0) {
        const int reason = errno;
        close(fd);
        errno = reason;
        return -1;
    }
    *port = ntohs(storage.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6*>(&storage)->sin6_port
                                                : reinterpret_cast<sockaddr_in*>(&storage)->sin_port);
    return fd;
}

} // namespace

QHostAddress OrvoHttpExchange::localAddress() const
{
    sockaddr_storage storage{};
    socklen_t size = sizeof storage;
    auto* plain = reinterpret_cast<sockaddr*>(&storage);
    if (!m_connection || getsockname(socketOf(m_connection), plain, &size) != 0)
        return QHostAddress();
    const QHostAddress address(plain);
    bool mapped = false;
    const quint32 v4 = address.toIPv4Address(&mapped);
    return mapped ? QHostAddress(v4) : address;
}

void OrvoHttpExchange::answer(int status, const QByteArray& contentType, const QByteArray& content,
                              const Headers& headers)
{
    if (isAnswered())
        return;
    m_status = status;
    m_contentType = contentType;
    m_content = content;
    m_headers = headers;
    // Let go of at the very end, as it may hold what calls this.
    const std::function<void()> forgotten = std::exchange(m_onHangUp, nullptr);
    if (m_suspended && m_server)
        m_server->resume(*this);
}

void OrvoHttpExchange::onHangUp(std::function<void()> function)
{
    if (isAnswered() || !m_suspended || !m_server)
        return;
    if (m_server->m_hungUp.contains(socketOf(m_connection)))
        return function();
    m_onHangUp = std::move(function);
}

/// What the library calls, all of it within MHD_run() or MHD_stop_daemon().
struct OrvoHttpServer::Callbacks
{
    using Holder = std::shared_ptr<OrvoHttpExchange>;

    static MHD_Result received(void* cls, MHD_Connection* connection, const char* url, const char* method, const char*,
                               const char* data, size_t* size, void** context)
    {
        auto* server = static_cast<OrvoHttpServer*>(cls);
        auto* holder = static_cast<Holder*>(*context);
        if (!holder) {
            holder = new Holder(begin(server, connection, url, method));
            *context = holder;
            OrvoHttpExchange& exchange = **holder;
            const bool endless = exchange.contentLength > swallowFactor * server->m_bodyLimit;
            // A client that waits for leave to send, or would send for ever, is told at once.
            return exchange.isAnswered() && (exchange.m_expectsContinue || endless) ? send(exchange) : MHD_YES;
        }
        OrvoHttpExchange& exchange = **holder;
        if (*size > 0)
            return take(server, exchange, data, size);
        if (exchange.m_tooLarge)
            server->m_handler->refuseTooLarge(exchange);
        server->m_serving.insert(socketOf(connection));
        if (exchange.isAnswered())
            return send(exchange);
        MHD_suspend_connection(connection);
        exchange.m_suspended = true;
        server->m_open.insert(socketOf(connection), *holder);
        server->m_received.append(*holder);
        return MHD_YES;
    }

    static void completed(void* cls, MHD_Connection* connection, void** context, MHD_RequestTerminationCode)
    {
        static_cast<OrvoHttpServer*>(cls)->m_serving.remove(socketOf(connection));
        std::unique_ptr<Holder> holder(static_cast<Holder*>(*context));
        if (holder)
            (*holder)->m_connection = nullptr;
        *context = nullptr;
    }

    static void connection(void* cls, MHD_Connection* connection, void**, MHD_ConnectionNotificationCode code)
    {
        auto* server = static_cast<OrvoHttpServer*>(cls);
        epoll_event event{};
        event.events = EPOLLRDHUP | EPOLLET;
        event.data.fd = socketOf(connection);
        const bool started = code == MHD_CONNECTION_NOTIFY_STARTED;
        server->m_hungUp.remove(event.data.fd);
        if (epoll_ctl(server->m_hangUps, started ? EPOLL_CTL_ADD : EPOLL_CTL_DEL, event.data.fd, &event) != 0)
            LOG4CPLUS_WARN(logger(), "A client that hangs up may not be noticed: " << strerror(errno));
    }

private:
    static Holder begin(OrvoHttpServer* server, MHD_Connection* connection, const char* url, const char* method)
    {
        Holder exchange(new OrvoHttpExchange);
        exchange->m_server = server;
        exchange->m_connection = connection;
        exchange->method = method;
        exchange->target = url;
        exchange->host = header(connection, MHD_HTTP_HEADER_HOST);
        exchange->origin = header(connection, MHD_HTTP_HEADER_ORIGIN);
        exchange->m_expectsContinue = !header(connection, MHD_HTTP_HEADER_EXPECT).isEmpty();
        MHD_get_connection_values_n(connection, MHD_GET_ARGUMENT_KIND, addArgument, &exchange->arguments);
        bool known = false;
        const qint64 length = header(connection, MHD_HTTP_HEADER_CONTENT_LENGTH).toLongLong(&known);
        exchange->contentLength = known ? length : -1;
        server->m_handler->begin(*exchange);
        if (!exchange->isAnswered() && exchange->contentLength > server->m_bodyLimit)
            server->m_handler->refuseTooLarge(*exchange);
        return exchange;
    }

    static MHD_Result take(OrvoHttpServer* server, OrvoHttpExchange& exchange, const char* data, size_t* size)
    {
        exchange.m_received += qint64(*size);
        exchange.m_tooLarge = exchange.m_received > server->m_bodyLimit;
        if (exchange.m_tooLarge || exchange.isAnswered())
            exchange.body.clear();
        else
            exchange.body.append(data, int(*size));
        *size = 0;
        return exchange.m_received > swallowFactor * server->m_bodyLimit ? MHD_NO : MHD_YES;
    }

    static MHD_Result send(OrvoHttpExchange& exchange)
    {
        MHD_Response* response = MHD_create_response_from_buffer(size_t(exchange.m_content.size()),
                                                                 exchange.m_content.data(), MHD_RESPMEM_MUST_COPY);
        if (!response)
            return MHD_NO;
        MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, exchange.m_contentType.constData());
        MHD_add_response_header(response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
        MHD_add_response_header(response, "X-Content-Type-Options", "nosniff");
        for (const auto& pair : qAsConst(exchange.m_headers))
            MHD_add_response_header(response, pair.first.constData(), pair.second.constData());
        const MHD_Result result = MHD_queue_response(exchange.m_connection, unsigned(exchange.m_status), response);
        MHD_destroy_response(response);
        exchange.m_content.clear();
        return result;
    }
};

OrvoHttpServer::OrvoHttpServer(OrvoHttpHandler* handler) : m_handler(handler)
{
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &OrvoHttpServer::run);
}

OrvoHttpServer::~OrvoHttpServer()
{
    if (!m_daemon)
        return;
    m_received.clear();
    const auto open = m_open.values();
    for (const auto& exchange : open)
        resume(*exchange);
    // Small answers leave now; nobody is waited for.
    m_running = true;
    MHD_run(m_daemon);
    MHD_run(m_daemon);
    delete m_notifier;
    delete m_hangUpNotifier;
    MHD_stop_daemon(m_daemon);
    close(m_hangUps);
}

QString OrvoHttpServer::listen(const QHostAddress& address, quint16 port)
{
    Q_ASSERT(!m_daemon);
    const int fd = listenAt(address, &port);
    if (fd < 0)
        return systemError("Cannot listen");
    m_hangUps = epoll_create1(EPOLL_CLOEXEC);
    if (m_hangUps >= 0)
        m_daemon = MHD_start_daemon(
            MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_ERROR_LOG, 0, nullptr, nullptr, &Callbacks::received,
            this, MHD_OPTION_EXTERNAL_LOGGER, &logLibrary, nullptr, MHD_OPTION_LISTEN_SOCKET, fd,
            MHD_OPTION_NOTIFY_COMPLETED, &Callbacks::completed, this, MHD_OPTION_NOTIFY_CONNECTION,
            &Callbacks::connection, this, MHD_OPTION_CONNECTION_LIMIT, connectionLimit, MHD_OPTION_CONNECTION_TIMEOUT,
            unsigned(m_idleTimeout), MHD_OPTION_CONNECTION_MEMORY_LIMIT, connectionMemory, MHD_OPTION_END);
    if (!m_daemon) {
        QString reason = systemError("Cannot start the HTTP server");
        close(fd);
        if (m_hangUps >= 0)
            close(m_hangUps);
        return reason;
    }
    m_port = port;
    const int events = MHD_get_daemon_info(m_daemon, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd;
    m_notifier = new QSocketNotifier(events, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &OrvoHttpServer::run);
    m_hangUpNotifier = new QSocketNotifier(m_hangUps, QSocketNotifier::Read, this);
    connect(m_hangUpNotifier, &QSocketNotifier::activated, this, &OrvoHttpServer::on_hangUps_activated);
    schedule();
    return QString();
}

void OrvoHttpServer::run()
{
    // A handler may run an event loop of its own, but the library calls none.
    Q_ASSERT(!m_running);
    m_running = true;
    m_resumed = false;
    MHD_run(m_daemon);
    m_running = false;
    const QPointer<OrvoHttpServer> alive(this);
    while (!m_received.isEmpty()) {
        m_handler->serve(m_received.takeFirst());
        if (!alive)
            return;
    }
    schedule();
}

void OrvoHttpServer::schedule()
{
    MHD_UNSIGNED_LONG_LONG ms = 0;
    const bool waits = MHD_get_timeout(m_daemon, &ms) == MHD_YES;
    // The library does not count connections that it is about to resume.
    if (m_resumed || (waits && ms == 0))
        return m_timer.start(0);
    closeHungUp();
    if (waits)
        m_timer.start(int(std::min<MHD_UNSIGNED_LONG_LONG>(ms, INT_MAX)));
    else
        m_timer.stop();
}

void OrvoHttpServer::resume(OrvoHttpExchange& exchange)
{
    const int fd = socketOf(exchange.m_connection);
    const auto kept = m_open.take(fd);
    exchange.m_suspended = false;
    MHD_resume_connection(exchange.m_connection);
    m_resumed = true;
    m_timer.start(0);
}

void OrvoHttpServer::on_hangUps_activated()
{
    epoll_event events[64];
    const int count = epoll_wait(m_hangUps, events, 64, 0);
    QList<std::shared_ptr<OrvoHttpExchange>> gone;
    for (int i = 0; i < count; ++i) {
        m_hungUp.insert(events[i].data.fd);
        if (const auto exchange = m_open.value(events[i].data.fd))
            gone.append(exchange);
    }
    m_timer.start(0);
    // A function may destroy this server, and answer the exchanges behind it.
    for (const auto& exchange : qAsConst(gone))
        if (const auto function = std::exchange(exchange->m_onHangUp, nullptr))
            function();
}

/// Ends the connections whose clients left a request unfinished. All that they sent has been read.
void OrvoHttpServer::closeHungUp()
{
    for (auto it = m_hungUp.begin(); it != m_hungUp.end();) {
        int unread = 0;
        if (m_serving.contains(*it) || (ioctl(*it, FIONREAD, &unread) == 0 && unread > 0)) {
            ++it;
            continue;
        }
        // The library sees this end, and closes the socket.
        shutdown(*it, SHUT_RDWR);
        it = m_hungUp.erase(it);
    }
}
