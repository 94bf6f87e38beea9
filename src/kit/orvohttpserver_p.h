#pragma once

#include <QByteArray>
#include <QHash>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QPair>
#include <QPointer>
#include <QSet>
#include <QString>
#include <QTimer>

#include <functional>
#include <memory>

class OrvoHttpServer;
class QSocketNotifier;
struct MHD_Connection;
struct MHD_Daemon;

/**
 * One HTTP request, and the answer it waits for.
 *
 * The connection holds it until the answer is out; whoever answers later keeps a weak pointer. While it waits, its
 * connection is suspended: it costs a socket and a buffer, no thread and no event. In the server's thread only.
 */
class OrvoHttpExchange
{
public:
    using Headers = QList<QPair<QByteArray, QByteArray>>;

    QByteArray method;
    /// Without the query, unescaped.
    QByteArray target;
    QHash<QString, QString> arguments;
    /// Null when the header is missing.
    QByteArray host;
    QByteArray origin;
    QByteArray body;
    /// What the head announces; -1 when it does not tell.
    qint64 contentLength = -1;

    /// Where the client reached this process.
    QHostAddress localAddress() const;
    bool isAnswered() const { return m_status != 0; }
    /// The first answer counts.
    void answer(int status, const QByteArray& contentType, const QByteArray& content,
                const Headers& headers = Headers());
    /// Called, at most once, when the client goes away or says that it sends no more while this waits.
    void onHangUp(std::function<void()> function);

private:
    friend class OrvoHttpServer;

    QPointer<OrvoHttpServer> m_server;
    /// Null when the connection is gone.
    MHD_Connection* m_connection = nullptr;
    bool m_suspended = false;
    bool m_expectsContinue = false;
    bool m_tooLarge = false;
    qint64 m_received = 0;
    int m_status = 0;
    QByteArray m_contentType;
    QByteArray m_content;
    Headers m_headers;
    std::function<void()> m_onHangUp;
};

/// Who answers what a server receives. Both functions are called in the server's thread.
class OrvoHttpHandler
{
public:
    virtual ~OrvoHttpHandler() = default;
    /// The head is there. An answer now refuses the request, and its body is not kept. Must not destroy the server.
    virtual void begin(OrvoHttpExchange& exchange) = 0;
    /// The body was longer than allowed.
    virtual void refuseTooLarge(OrvoHttpExchange& exchange) = 0;
    /// All of it is there; to be answered now or later. May destroy the server.
    virtual void serve(const std::shared_ptr<OrvoHttpExchange>& exchange) = 0;
};

/**
 * An HTTP server within a Qt event loop: libmicrohttpd without a thread of its own.
 *
 * Its epoll descriptor is watched by a socket notifier, its deadlines by a timer; so handlers run in the thread of
 * this object, nothing needs a lock, and an answer from any function of that thread goes out by the event loop. The
 * library is not entered again from its own callbacks: what they bring is served after it returned.
 */
class OrvoHttpServer : public QObject
{
    Q_OBJECT

public:
    explicit OrvoHttpServer(OrvoHttpHandler* handler);
    /// Open exchanges are answered with what the handler gave them, or closed.
    ~OrvoHttpServer() override;

    /// Bytes of a body. What is longer is refused.
    void setBodyLimit(qint64 bytes) { m_bodyLimit = bytes; }
    /// Seconds in which a client that neither sends nor takes anything is let go. Does not touch waiting exchanges.
    void setIdleTimeout(int seconds) { m_idleTimeout = seconds; }
    /// Port 0 picks one. Empty, or why it cannot listen.
    QString listen(const QHostAddress& address, quint16 port);
    quint16 port() const { return m_port; }
    /// Exchanges that wait for their answer.
    QList<std::shared_ptr<OrvoHttpExchange>> open() const { return m_open.values(); }

private:
    friend class OrvoHttpExchange;
    struct Callbacks;

    void run();
    void schedule();
    void resume(OrvoHttpExchange& exchange);
    void on_hangUps_activated();
    void closeHungUp();

    OrvoHttpHandler* const m_handler;
    MHD_Daemon* m_daemon = nullptr;
    QSocketNotifier* m_notifier = nullptr;
    QSocketNotifier* m_hangUpNotifier = nullptr;
    /// epoll descriptor that tells which clients send no more: the library does not look at suspended connections, and
    /// misses an end that comes together with the last bytes.
    int m_hangUps = -1;
    /// Sockets of clients that send no more.
    QSet<int> m_hungUp;
    /// Sockets with a request that is complete and whose answer is not yet out.
    QSet<int> m_serving;
    QTimer m_timer{this};
    quint16 m_port = 0;
    qint64 m_bodyLimit = 1024 * 1024;
    int m_idleTimeout = 30;
    bool m_running = false;
    /// Since the library ran last.
    bool m_resumed = false;
    /// Complete, and not yet given to the handler.
    QList<std::shared_ptr<OrvoHttpExchange>> m_received;
    /// Suspended, by their sockets.
    QHash<int, std::shared_ptr<OrvoHttpExchange>> m_open;
};
