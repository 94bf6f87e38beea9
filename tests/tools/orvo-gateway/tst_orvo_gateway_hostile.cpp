#include "support/gatewayfixture.h"

#include <QTcpSocket>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <random>
#include <sys/socket.h>

namespace {

constexpr int bodyLimit = 1024 * 1024;

/// A plain connection to the gateway, whose calls block.
class RawClient
{
public:
    explicit RawClient(quint16 port) : m_fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const timeval patience{20, 0};
        setsockopt(m_fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        m_connected = connect(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }
    ~RawClient() { close(m_fd); }
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    bool isConnected() const { return m_connected; }
    void send(const QByteArray& bytes)
    {
        for (int sent = 0; sent < bytes.size();) {
            const ssize_t now = ::send(m_fd, bytes.constData() + sent, size_t(bytes.size() - sent), MSG_NOSIGNAL);
            if (now <= 0)
                return;
            sent += int(now);
        }
    }
    /// Sends as much as goes at once.
    qint64 push(const QByteArray& bytes)
    {
        return ::send(m_fd, bytes.constData(), size_t(bytes.size()), MSG_NOSIGNAL | MSG_DONTWAIT);
    }
    void endSending() { shutdown(m_fd, SHUT_WR); }
    /// All until the other side closes; *closed tells whether it did in time.
    QByteArray receiveAll(bool* closed)
    {
        QByteArray all;
        char piece[4096];
        ssize_t count = 0;
        while ((count = recv(m_fd, piece, sizeof piece, 0)) > 0)
            all.append(piece, int(count));
        *closed = count == 0 || errno == ECONNRESET;
        return all;
    }
    /// Whether the other side has closed; nothing is read.
    bool isClosed()
    {
        char byte;
        const ssize_t count = recv(m_fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
        return count == 0 || (count < 0 && errno != EAGAIN);
    }

private:
    const int m_fd;
    bool m_connected = false;
};

/// Requests that are nearly right, broken at random, and plain noise; the same for every run.
class Garbage
{
public:
    Garbage(const GatewayFixture& fixture) : m_random(20240611)
    {
        const QByteArray host = "Host: 127.0.0.1:" + QByteArray::number(fixture.port()) + "\r\nConnection: close\r\n";
        const auto get = [&](const char* target) {
            return "GET " + fixture.named(QString::fromLatin1(target)).toUtf8() + " HTTP/1.1\r\n" + host + "\r\n";
        };
        const auto post = [&](const char* target, const char* body) {
            const QByteArray json = fixture.json(QString::fromLatin1(body)).toUtf8();
            return QByteArray("POST ") + target + " HTTP/1.1\r\n" + host
                   + "Content-Length: " + QByteArray::number(json.size()) + "\r\n\r\n" + json;
        };
        m_models = {
            get("/"),
            get("/api/getData?path=@:volume&roles=title,value"),
            get("/api/getRows?path=@:numbers&fromRow=0&toRow=20&roles=id,title"),
            get("/api/event/pollQueue?queueId=%7B5a0dd2d8-9d0c-4b0b-bd9c-6cb1a5b3c1f0%7D&timeout=1"),
            post("/api/setData", "{'path':'@:mute','role':'value','value':{'type':'bool_','bool_':true}}"),
            post("/api/invoke", "{'path':'@:echo','value':[1,2,{'a':1e300,'b':'\\u0000'}]}"),
            post("/api/event/modifyQueue", "{'queueId':'x','unsubscribes':[{'path':'@:volume','type':13}]}"),
        };
    }

    QByteArray next()
    {
        if (number(8) == 0)
            return noise(number(600));
        QByteArray request = m_models.at(number(m_models.size()));
        for (int i = 1 + number(4); i > 0; --i)
            breakOnce(&request);
        return request;
    }

private:
    int number(int below) { return int(m_random() % unsigned(below)); }
    QByteArray noise(int size)
    {
        QByteArray bytes;
        for (int i = 0; i < size; ++i)
            bytes.append(char(number(256)));
        return bytes;
    }
    void breakOnce(QByteArray* request)
    {
        static const char* const tokens[] = {"\r\n",
                                             "\r\n\r\n",
                                             "%00",
                                             "{",
                                             "[[[[[[[[",
                                             "\"",
                                             "-1",
                                             "99999999999999999999",
                                             "1e999",
                                             "\\ud800",
                                             "null",
                                             "?",
                                             "&",
                                             "Content-Length: 7\r\n",
                                             "\xff\xfe",
                                             "Transfer-Encoding: chunked\r\n",
                                             "Expect: 100-continue\r\n",
                                             "HTTP/9.9",
                                             " ",
                                             "%",
                                             "\0"};
        const int place = number(request->size() + 1);
        switch (number(6)) {
        case 0:
            request->truncate(place);
            break;
        case 1:
            request->insert(place, noise(1 + number(8)));
            break;
        case 2:
            request->remove(place, 1 + number(16));
            break;
        case 3:
            request->insert(place, request->mid(number(request->size() + 1), number(64)));
            break;
        default:
            request->insert(place, tokens[number(int(std::size(tokens)))]);
        }
    }

    std::mt19937 m_random;
    QList<QByteArray> m_models;
};

} // namespace

/// What clients do that mean harm or do not know better: the gateway says so, forgets them, and serves the others.
class tst_orvo_gateway_hostile : public QObject
{
    Q_OBJECT

private:
    QByteArray head(const QByteArray& request) const
    {
        return request + " HTTP/1.1\r\nHost: 127.0.0.1:" + QByteArray::number(m_f->port()) + "\r\n";
    }

    std::unique_ptr<GatewayFixture> m_f;

private slots:
    void init()
    {
        m_f = std::make_unique<GatewayFixture>("hostile");
        QVERIFY(m_f->startService());
    }
    void cleanup() { m_f.reset(); }

    void bodiesOverTheLimitAreRefused_data()
    {
        QTest::addColumn<int>("size");
        QTest::addColumn<QString>("header");
        QTest::addColumn<int>("status");
        QTest::newRow("at the limit") << bodyLimit << "Expect: 100-continue" << 200;
        QTest::newRow("asks before") << bodyLimit + 1 << "Expect: 100-continue" << 413;
        QTest::newRow("sends at once") << bodyLimit + 1 << "Expect:" << 413;
        QTest::newRow("in chunks") << bodyLimit + 1 << "Transfer-Encoding: chunked" << 413;
        QTest::newRow("in chunks at the limit") << bodyLimit << "Transfer-Encoding: chunked" << 200;
        QTest::newRow("far over it") << 10 * bodyLimit << "Expect:" << 413;
    }
    void bodiesOverTheLimitAreRefused()
    {
        QFETCH(int, size);
        QFETCH(QString, header);
        QFETCH(int, status);
        QVERIFY(m_f->startGateway({"--allow-writes"}));
        QByteArray body = m_f->json("{'path':'@:echo','value':'").toUtf8();
        body.append(QByteArray(size - body.size() - 2, 'x')).append("\"}");
        const HttpAnswer answer = Curl({"-H", header, "--data-binary", "@-", m_f->at("/api/invoke")}, body).answer();
        QCOMPARE(answer.status, status);
        QCOMPARE(answer.error(), QString(status == 413 ? "OrvoHttpGateway::tooLarge" : ""));
        QCOMPARE(m_f->volume(), 20);
    }

    void anAnnouncedBodyWithoutEndIsRefusedAtOnce()
    {
        QVERIFY(m_f->startGateway({"--allow-writes"}));
        RawClient client(m_f->port());
        client.send(head("POST /api/invoke") + "Content-Length: 1099511627776\r\n\r\n");
        bool closed = false;
        QVERIFY(client.receiveAll(&closed).startsWith("HTTP/1.1 413 "));
        QVERIFY(closed);
    }

    void chunksWithoutEndAreCutOff()
    {
        QVERIFY(m_f->startGateway({"--allow-writes"}));
        QCOMPARE(m_f->volume(), 20);
        const qint64 before = m_f->residentBytes();
        RawClient client(m_f->port());
        client.send(head("POST /api/invoke") + "Transfer-Encoding: chunked\r\n\r\n");
        const QByteArray chunk = "10000\r\n" + QByteArray(0x10000, 'x') + "\r\n";
        for (int i = 0; i < 100 * bodyLimit / 0x10000 && !client.isClosed(); ++i)
            client.send(chunk);
        QTRY_VERIFY(client.isClosed());
        QVERIFY(m_f->residentBytes() - before < 8 * bodyLimit);
        QCOMPARE(m_f->volume(), 20);
    }

    void headsOverTheLimitAreRefused()
    {
        QVERIFY(m_f->startGateway({}));
        QByteArray longHeaders;
        for (int i = 0; i < 400; ++i)
            longHeaders += "X-" + QByteArray::number(i) + ": " + QByteArray(100, 'x') + "\r\n";
        const QList<QByteArray> requests{head("GET /" + QByteArray(100000, 'x')) + "\r\n",
                                         head("GET /") + longHeaders + "\r\n"};
        for (const QByteArray& request : requests) {
            RawClient client(m_f->port());
            client.send(request);
            bool closed = false;
            const QByteArray answer = client.receiveAll(&closed);
            QVERIFY(closed);
            // What is still on its way when the connection closes may take the answer with it.
            QVERIFY2(answer.isEmpty() || answer.startsWith("HTTP/1.1 4"), answer.left(80));
        }
        QCOMPARE(m_f->volume(), 20);
    }

    void queuesAreLimited()
    {
        QVERIFY(m_f->startGateway({"--allow-writes"}));
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, m_f->port());
        QVERIFY(socket.waitForConnected());
        QByteArray answers;
        for (int i = 0; i < 256; ++i)
            socket.write(head("POST /api/event/modifyQueue") + "Content-Length: 2\r\n\r\n{}");
        while (answers.count("\"queueId\"") < 256 && socket.waitForReadyRead(gatewayPatienceMs))
            answers += socket.readAll();
        QCOMPARE(answers.count("HTTP/1.1 200 "), 256);
        const HttpAnswer refused = m_f->post("/api/event/modifyQueue", "{}");
        QCOMPARE(refused.status, 503);
        QCOMPARE(refused.error(), QString("OrvoHttpGateway::tooMany"));
        // Those that there are still serve.
        const int begin = answers.indexOf("{", answers.indexOf("\"queueId\""));
        const QByteArray known = answers.mid(begin, 38);
        const HttpAnswer answer = m_f->post("/api/event/modifyQueue", "{'queueId':'" + known
                                                                          + "','subscribes':[{'path':'@:volume',"
                                                                            "'type':13}]}");
        QCOMPARE(answer.status, 200);
        QCOMPARE(answer.text("queueId").toLatin1(), known);
        m_f->setVolume(41);
        QCOMPARE(m_f->poll(QString::fromLatin1(known)).list("events").size(), 1);
    }

    void subscriptionsOfOneQueueAreLimited()
    {
        QVERIFY(m_f->startGateway({}));
        QByteArrayList records;
        for (int i = 0; i < 1024; ++i)
            records.append("{'path':'@:p" + QByteArray::number(i) + "','type':13}");
        const HttpAnswer answer = m_f->post("/api/event/modifyQueue", "{'subscribes':[" + records.join(',') + "]}");
        QCOMPARE(answer.status, 200);
        const QByteArray id = "{'queueId':'" + answer.text("queueId").toLatin1() + "',";
        const QByteArray one = "[{'path':'@:volume','type':13}]}";
        QCOMPARE(m_f->post("/api/event/modifyQueue", id + "'subscribes':" + one).status, 503);
        QCOMPARE(m_f->post("/api/event/modifyQueue", id + "'unsubscribes':[" + records.first() + "]}").status, 200);
        QCOMPARE(m_f->post("/api/event/modifyQueue", id + "'subscribes':" + one).status, 200);
    }

    void halfARequestIsLetGo()
    {
        QVERIFY(m_f->startGateway({"--idle-timeout", "1"}));
        QCOMPARE(m_f->volume(), 20);
        const int before = m_f->settledDescriptors();
        std::vector<std::unique_ptr<RawClient>> clients;
        const QList<QByteArray> beginnings{"", "GET", head("GET /"),
                                           head("POST /api/event/modifyQueue") + "Content-Length: 100\r\n\r\n{"};
        for (int i = 0; i < 40; ++i) {
            clients.push_back(std::make_unique<RawClient>(m_f->port()));
            QVERIFY(clients.back()->isConnected());
            clients.back()->send(beginnings.at(i % beginnings.size()));
        }
        QTRY_COMPARE(m_f->descriptors(), before + 40);
        QCOMPARE(m_f->volume(), 20);
        QTRY_COMPARE_WITH_TIMEOUT(m_f->descriptors(), before, gatewayPatienceMs);
    }

    void aSlowReaderIsLetGoAndHoldsUpNobody()
    {
        QVERIFY(m_f->startGateway({"--idle-timeout", "1"}));
        QCOMPARE(m_f->volume(), 20);
        const int before = m_f->settledDescriptors();
        const qint64 memory = m_f->residentBytes();
        std::vector<std::unique_ptr<RawClient>> clients;
        const QByteArray request =
            head("GET /api/getRows?path=" + m_f->name().toLatin1() + ":numbers&fromRow=0&toRow=249&roles=id,title")
            + "\r\n";
        for (int i = 0; i < 20; ++i) {
            clients.push_back(std::make_unique<RawClient>(m_f->port()));
            // Asks on and on and reads nothing, until nothing more goes.
            for (int sent = 0; sent < 5000 && clients.back()->push(request) > 0; ++sent)
                ;
        }
        QCOMPARE(m_f->volume(), 20);
        QTRY_COMPARE_WITH_TIMEOUT(m_f->descriptors(), before, gatewayPatienceMs);
        QVERIFY(m_f->residentBytes() - memory < 8 * bodyLimit);
        QCOMPARE(m_f->volume(), 20);
    }

    void aPollWhoseClientIsGoneIsFreedAndTakesNoEvent()
    {
        QVERIFY(m_f->startGateway({"--allow-writes"}));
        const QString queue = m_f->watch("@:volume", 13);
        const int before = m_f->settledDescriptors();
        const auto poll = m_f->startPoll(queue, 300);
        QTRY_COMPARE(m_f->descriptors(), before + 1);
        QCOMPARE(m_f->volume(), 20);
        poll->hangUp();
        QTRY_COMPARE(m_f->descriptors(), before);
        m_f->setVolume(41);
        QCOMPARE(m_f->poll(queue).list("events").size(), 1);
    }

    void tenThousandBrokenRequestsLeaveNothingBehind()
    {
        QVERIFY(m_f->startGateway({"--allow-writes", "--idle-timeout", "5"}));
        QCOMPARE(m_f->volume(), 20);
        const int descriptors = m_f->settledDescriptors();
        Garbage garbage(*m_f);
        qint64 memory = 0;
        int answered = 0;
        for (int i = 0; i < 10000; ++i) {
            // All that is ever made of it once, such as the allowed number of queues, is there by then.
            if (i == 5000)
                memory = m_f->residentBytes();
            const QByteArray request = garbage.next();
            RawClient client(m_f->port());
            QVERIFY(client.isConnected());
            client.send(request);
            client.endSending();
            bool closed = false;
            const QByteArray answer = client.receiveAll(&closed);
            const QByteArray told = QByteArray::number(i) + ": " + request.toPercentEncoding() + " -> " + answer;
            QVERIFY2(closed, told);
            const int status = answer.mid(9, 3).toInt();
            QVERIFY2(answer.isEmpty() || (answer.startsWith("HTTP/1.") && status >= 100 && status < 600), told);
            answered += !answer.isEmpty();
        }
        QVERIFY(answered > 5000);
        QTRY_COMPARE_WITH_TIMEOUT(m_f->descriptors(), descriptors, gatewayPatienceMs);
        const qint64 growth = m_f->residentBytes() - memory;
        QVERIFY2(growth < 4 * bodyLimit, QByteArray::number(growth));
        QCOMPARE(m_f->service().state(), QProcess::Running);
        QCOMPARE(m_f->gateway().state(), QProcess::Running);
        QCOMPARE(m_f->volume(), 20);
        const HttpAnswer rows = m_f->get("/api/getRows?path=@:numbers&fromRow=0&toRow=0&roles=title");
        QCOMPARE(rows.json().value("rowsCount").toInt(), 250);
        QCOMPARE(m_f->stopGateway(), 0);
    }
};

QTEST_GUILESS_MAIN(tst_orvo_gateway_hostile)

#include "tst_orvo_gateway_hostile.moc"
