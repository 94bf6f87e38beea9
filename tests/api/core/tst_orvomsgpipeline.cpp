#include "core/orvoMsgPipeline.h"

#include "core/orvoMsgAudioPayload.h"
#include "logcapture.h"
#include "support/allocationcount.h"

#include <QProcess>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QtTest>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <iostream>
#include <nanomsg/nn.h>
#include <nanomsg/pipeline.h>
#include <thread>
#include <utility>
#include <vector>

// The calls of nanomsg go through here, for failures that the real ones do not produce at will.

namespace {

bool s_noSockets = false;
bool s_noShutdown = false;
bool s_noClose = false;
bool s_shortSend = false;
int s_sendError = 0;

template <typename Function>
Function real(Function, const char* name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" {

int nn_socket(int domain, int protocol)
{
    static const auto call = real(&nn_socket, "nn_socket");
    if (!s_noSockets)
        return call(domain, protocol);
    errno = EMFILE;
    return -1;
}

int nn_shutdown(int socket, int endpoint)
{
    static const auto call = real(&nn_shutdown, "nn_shutdown");
    const int result = call(socket, endpoint);
    if (!s_noShutdown)
        return result;
    errno = EINVAL;
    return -1;
}

int nn_close(int socket)
{
    static const auto call = real(&nn_close, "nn_close");
    const int result = call(socket);
    if (!s_noClose)
        return result;
    errno = EBADF;
    return -1;
}

int nn_send(int socket, const void* bytes, size_t size, int flags)
{
    static const auto call = real(&nn_send, "nn_send");
    if (s_sendError) {
        errno = s_sendError;
        return -1;
    }
    // nanomsg keeps a copy of each message: its allocation, not ours.
    const bool counting = std::exchange(AllocationCount::s_counting, false);
    const int result = call(socket, bytes, size, flags);
    AllocationCount::s_counting = counting;
    return result > 0 && s_shortSend ? result - 1 : result;
}

} // extern "C"

namespace {

class RawMsg : public OrvoMsg
{
public:
    explicit RawMsg(const QByteArray& bytes) : m_bytes(bytes), told(size_t(bytes.size())) {}

    size_t sizeInBytes() const override { return told; }
    size_t serialize(uint8_t* buffer, size_t capacity) const override
    {
        const size_t size = std::min(capacity, size_t(m_bytes.size()));
        std::memcpy(buffer, m_bytes.constData(), size);
        return size;
    }

private:
    const QByteArray m_bytes;

public:
    size_t told;
};

QByteArray numbered(int number, int size)
{
    QByteArray bytes(size, char(number));
    std::memcpy(bytes.data(), &number, sizeof number);
    return bytes;
}

/// The other process: for each number on its standard input it receives so many messages and writes them as lines.
int pull(const char* uri)
{
    const int socket = nn_socket(AF_SP, NN_PULL);
    if (nn_bind(socket, uri) < 0) {
        std::fprintf(stderr, "%s: %s\n", uri, nn_strerror(nn_errno()));
        return 1;
    }
    std::cout << "ready" << std::endl;
    for (int count; std::cin >> count;)
        for (int i = 0; i < count; ++i) {
            char* bytes = nullptr;
            const int size = nn_recv(socket, &bytes, NN_MSG, 0);
            if (size < 0)
                return 1;
            std::cout << QByteArray::fromRawData(bytes, size).toHex().constData() << std::endl;
            nn_freemsg(bytes);
        }
    return 0;
}

class Reader
{
public:
    explicit Reader(const QString& uri)
    {
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(QCoreApplication::applicationFilePath(), {"--pull", uri});
    }
    ~Reader() { kill(); }

    bool isReady() { return line() == "ready"; }
    /// So many messages from now on, in the order in which they arrive.
    QList<QByteArray> receive(int count)
    {
        ask(count);
        QList<QByteArray> messages;
        while (messages.size() < count) {
            const QByteArray hex = line();
            if (hex.isEmpty())
                break;
            messages.append(QByteArray::fromHex(hex));
        }
        return messages;
    }
    void ask(int count)
    {
        m_process.write(QByteArray::number(count) + '\n');
        m_process.waitForBytesWritten();
    }
    void kill()
    {
        m_process.kill();
        m_process.waitForFinished();
    }

private:
    QByteArray line()
    {
        while (!m_process.canReadLine())
            if (!m_process.waitForReadyRead(20000))
                return QByteArray();
        return m_process.readLine().trimmed();
    }

    QProcess m_process;
};

} // namespace

class tst_OrvoMsgPipeline : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_folder.reset(new QTemporaryDir);
        m_uri = "ipc://" + m_folder->filePath("pipe");
    }

    void cleanup()
    {
        s_noSockets = s_noShutdown = s_noClose = s_shortSend = false;
        s_sendError = 0;
    }

    void theNumbersOfTheStatus()
    {
        QCOMPARE(int(OrvoMsgStatus::Sent), 1);
        QCOMPARE(int(OrvoMsgStatus::NoSocket), 11);
        QCOMPARE(int(OrvoMsgStatus::TryAgain), 12);
        QCOMPARE(int(OrvoMsgStatus::TooBig), 13);
        QCOMPARE(int(OrvoMsgStatus::SerializationFailed), 14);
        QCOMPARE(int(OrvoMsgStatus::Empty), 15);
        QCOMPARE(int(OrvoMsgStatus::SendFailed), 16);
    }

    // With a reader in another process

    void everyMessageArrivesBitForBit_data()
    {
        QTest::addColumn<QString>("uri");
        QTest::newRow("ipc") << QString();
        QTest::newRow("tcp") << "tcp://127.0.0.1:%1";
    }

    void everyMessageArrivesBitForBit()
    {
        QFETCH(QString, uri);
        uri = uri.isEmpty() ? m_uri : uri.arg(freePort());
        Reader reader(uri);
        QVERIFY(reader.isReady());
        OrvoMsgPipeline pipeline;
        pipeline.setURI(uri);
        QList<QByteArray> sent;
        for (const int size : {1, 2, 31, 32, 33, 255, 256, 1000, 4096, 8191, 8192}) {
            QByteArray bytes(size, 0);
            for (int i = 0; i < size; ++i)
                bytes[i] = char(i * 7 + size);
            sent.append(bytes);
            QCOMPARE(pipeline.sendMsg(RawMsg(bytes)), OrvoMsgStatus::Sent);
        }
        QVERIFY(reader.receive(sent.size()) == sent);
    }

    void anAudioBlockArrivesWithItsHeader()
    {
        Reader reader(m_uri);
        QVERIFY(reader.isReady());
        OrvoMsgPipeline pipeline;
        pipeline.setURI(m_uri);
        // The largest block that there is.
        std::vector<int16_t> samples(4080);
        for (size_t i = 0; i < samples.size(); ++i)
            samples[i] = int16_t(i * 16);
        OrvoMsgAudioPayload msg;
        msg.setFlushFlag(true);
        msg.setTimestamp(123456789);
        msg.setSamples(reinterpret_cast<const unsigned char*>(samples.data()), samples.size(), 2, 48000, 2);
        QCOMPARE(msg.sizeInBytes(), size_t(8192));
        QCOMPARE(pipeline.sendMsg(msg), OrvoMsgStatus::Sent);
        const QList<QByteArray> received = reader.receive(1);
        QCOMPARE(received.size(), 1);
        QByteArray expected(8192, 0);
        QCOMPARE(msg.serialize(reinterpret_cast<uint8_t*>(expected.data()), 8192), size_t(8192));
        QVERIFY(received.first() == expected);
        QVERIFY(std::memcmp(received.first().constData() + 32, samples.data(), 8160) == 0);
    }

    void theReaderMayComeAfterTheSender()
    {
        OrvoMsgPipeline pipeline;
        pipeline.setURI(m_uri);
        std::thread sender([&pipeline] {
            for (int i = 0; i < 3; ++i)
                pipeline.sendMsg(RawMsg(numbered(i, 100)));
        });
        Reader reader(m_uri);
        const bool ready = reader.isReady();
        const QList<QByteArray> received = reader.receive(3);
        sender.join();
        QVERIFY(ready);
        QVERIFY(received == (QList<QByteArray>{numbered(0, 100), numbered(1, 100), numbered(2, 100)}));
    }

    void aSlowReaderHoldsUpABlockingSenderAndLosesNothing()
    {
        constexpr int Count = 400;
        Reader reader(m_uri);
        QVERIFY(reader.isReady());
        OrvoMsgPipeline pipeline;
        pipeline.setURI(m_uri);
        std::atomic<int> sent{0};
        std::thread sender([&] {
            for (int i = 0; i < Count; ++i)
                if (pipeline.sendMsg(RawMsg(numbered(i, 8192))) == OrvoMsgStatus::Sent)
                    ++sent;
        });
        QList<QByteArray> received;
        while (received.size() < Count) {
            const QList<QByteArray> piece = reader.receive(50);
            if (piece.isEmpty())
                break;
            received += piece;
        }
        sender.join();
        QCOMPARE(sent.load(), Count);
        QCOMPARE(received.size(), Count);
        for (int i = 0; i < Count; ++i)
            QVERIFY2(received.at(i) == numbered(i, 8192), QByteArray::number(i).constData());
    }

    void aSlowReaderGivesTheNonBlockingSenderItsMessagesBack()
    {
        Reader reader(m_uri);
        QVERIFY(reader.isReady());
        OrvoMsgPipeline pipeline;
        pipeline.setURI(m_uri);
        // Blocks until the connection stands.
        QCOMPARE(pipeline.sendMsg(RawMsg(numbered(0, 8192))), OrvoMsgStatus::Sent);
        pipeline.setNonBlock(true);
        int sent = 1;
        const LogCapture log("OrvoMsgPipeline");
        // The sockets hold some of them; no reader takes any.
        const auto fill = [&] {
            for (int again = 0; again < 100 && sent < 10000;) {
                const OrvoMsgStatus::Type status = pipeline.sendMsg(RawMsg(numbered(sent, 8192)));
                if (status == OrvoMsgStatus::Sent)
                    ++sent;
                else if (status == OrvoMsgStatus::TryAgain)
                    ++again;
                else
                    return status;
            }
            return OrvoMsgStatus::TryAgain;
        };
        QCOMPARE(fill(), OrvoMsgStatus::TryAgain);
        QVERIFY2(sent < 10000, "something queues without limit");
        QVERIFY(log.lines().count("DEBUG Error sending packet, try again.") >= 100);
        const QList<QByteArray> received = reader.receive(sent);
        QCOMPARE(received.size(), sent);
        for (int i = 0; i < sent; ++i)
            QVERIFY2(received.at(i) == numbered(i, 8192), "what was given back does not arrive, all else does");
        QTRY_COMPARE(pipeline.sendMsg(RawMsg("on")), OrvoMsgStatus::Sent);
        QCOMPARE(reader.receive(1), QList<QByteArray>{"on"});
    }

    void aReaderThatGoesAndComesBackIsFoundAgain()
    {
        OrvoMsgPipeline pipeline;
        pipeline.setURI(m_uri);
        {
            Reader reader(m_uri);
            QVERIFY(reader.isReady());
            QCOMPARE(pipeline.sendMsg(RawMsg("first")), OrvoMsgStatus::Sent);
            QCOMPARE(reader.receive(1), QList<QByteArray>{"first"});
        }
        pipeline.setNonBlock(true);
        // Until the loss is noticed, a message may still go out, and be lost.
        QTRY_COMPARE(pipeline.sendMsg(RawMsg("lost")), OrvoMsgStatus::TryAgain);
        Reader reader(m_uri);
        QVERIFY(reader.isReady());
        pipeline.setNonBlock(false);
        QCOMPARE(pipeline.sendMsg(RawMsg("second")), OrvoMsgStatus::Sent);
        QCOMPARE(reader.receive(1), QList<QByteArray>{"second"});
    }

    void anotherUriLeavesTheFirstReader()
    {
        const QString otherUri = m_uri + "2";
        Reader first(m_uri);
        Reader second(otherUri);
        QVERIFY(first.isReady());
        QVERIFY(second.isReady());
        OrvoMsgPipeline pipeline;
        pipeline.setURI(m_uri);
        QCOMPARE(pipeline.sendMsg(RawMsg("one")), OrvoMsgStatus::Sent);
        QCOMPARE(first.receive(1), QList<QByteArray>{"one"});
        pipeline.setURI(otherUri);
        QCOMPARE(pipeline.sendMsg(RawMsg("two")), OrvoMsgStatus::Sent);
        QCOMPARE(second.receive(1), QList<QByteArray>{"two"});
        // The same connection, made anew.
        pipeline.reset();
        QCOMPARE(pipeline.sendMsg(RawMsg("three")), OrvoMsgStatus::Sent);
        QCOMPARE(second.receive(1), QList<QByteArray>{"three"});
    }

    void anAudioMessageAllocatesNothing()
    {
        Reader reader(m_uri);
        QVERIFY(reader.isReady());
        OrvoMsgPipeline pipeline;
        pipeline.setURI(m_uri);
        // Logging is off, as on a device.
        const LogCapture log("OrvoMsgPipeline", log4cplus::INFO_LOG_LEVEL);
        const LogCapture payloadLog("OrvoMsgAudioPayload", log4cplus::INFO_LOG_LEVEL);
        const QByteArray samples(4096, 's');
        OrvoMsgAudioPayload msg;
        const auto send = [&] {
            msg.setSamples(reinterpret_cast<const unsigned char*>(samples.constData()), 2048, 2, 44100, 2);
            msg.setTimestamp(7);
            return pipeline.sendMsg(msg);
        };
        QCOMPARE(send(), OrvoMsgStatus::Sent);
        int sent = 0;
        QCOMPARE(allocationsOf([&] {
                     for (int i = 0; i < 10; ++i)
                         sent += send() == OrvoMsgStatus::Sent;
                 }),
                 0);
        QCOMPARE(sent, 10);
        QCOMPARE(reader.receive(11).size(), 11);
    }

    // Without one

    void withoutAUriThereIsNoSocket()
    {
        const LogCapture log("OrvoMsgPipeline");
        OrvoMsgPipeline pipeline;
        QCOMPARE(pipeline.sendMsg(RawMsg("x")), OrvoMsgStatus::NoSocket);
        QCOMPARE(log.lines(), QStringList{"DEBUG Error socket invalid: sock -1, eid -1"});
    }

    void aClosedPipelineHasNoSocket()
    {
        const LogCapture log("OrvoMsgPipeline");
        OrvoMsgPipeline pipeline;
        pipeline.close();
        pipeline.setURI(m_uri);
        pipeline.close();
        pipeline.close();
        QCOMPARE(log.lines(), QStringList{"DEBUG Using URI " + m_uri});
        QCOMPARE(pipeline.sendMsg(RawMsg("x")), OrvoMsgStatus::NoSocket);
        pipeline.setNonBlock(true);
        pipeline.reset();
        QCOMPARE(pipeline.sendMsg(RawMsg("x")), OrvoMsgStatus::TryAgain);
    }

    void withoutAReaderNothingIsQueued()
    {
        OrvoMsgPipeline pipeline;
        pipeline.setURI(m_uri);
        pipeline.setNonBlock(true);
        for (int i = 0; i < 3; ++i)
            QCOMPARE(pipeline.sendMsg(RawMsg("early")), OrvoMsgStatus::TryAgain);
        Reader reader(m_uri);
        QVERIFY(reader.isReady());
        pipeline.setNonBlock(false);
        QCOMPARE(pipeline.sendMsg(RawMsg("first")), OrvoMsgStatus::Sent);
        QCOMPARE(reader.receive(1), QList<QByteArray>{"first"});
    }

    void aUriThatIsNoneLeavesTheSocketWithoutEnd()
    {
        const LogCapture log("OrvoMsgPipeline");
        OrvoMsgPipeline pipeline;
        pipeline.setNonBlock(true);
        pipeline.setURI("nowhere");
        QCOMPARE(log.lines(), (QStringList{"DEBUG Using URI nowhere",
                                           QString("DEBUG Error connect endpoint, errno: %1").arg(EINVAL)}));
        // The socket is open all the same.
        QCOMPARE(pipeline.sendMsg(RawMsg("x")), OrvoMsgStatus::TryAgain);
        pipeline.close();
        QCOMPARE(log.lines().size(), 3);
        QCOMPARE(pipeline.sendMsg(RawMsg("x")), OrvoMsgStatus::NoSocket);
    }

    void theUriGoesOutAsUtf8()
    {
        const QString uri = m_uri + QString::fromUtf8("-Küche");
        Reader reader(uri);
        QVERIFY(reader.isReady());
        OrvoMsgPipeline pipeline;
        pipeline.setURI(uri);
        QCOMPARE(pipeline.sendMsg(RawMsg("x")), OrvoMsgStatus::Sent);
        QVERIFY(QFile::exists(m_folder->filePath(QString::fromUtf8("pipe-Küche"))));
    }

    // Messages that do not go out, in the order in which they are looked at

    void anEmptyMessageIsNotSent()
    {
        OrvoMsgPipeline pipeline;
        pipeline.setURI(m_uri);
        const LogCapture log("OrvoMsgPipeline");
        QCOMPARE(pipeline.sendMsg(RawMsg("")), OrvoMsgStatus::Empty);
        QCOMPARE(log.lines(), QStringList{"DEBUG Error packet empty"});
        OrvoMsgAudioPayload msg;
        QCOMPARE(pipeline.sendMsg(msg), OrvoMsgStatus::Empty);
        const unsigned char samples[4] = {};
        msg.setSamples(samples, 0, 2, 44100, 2);
        QCOMPARE(pipeline.sendMsg(msg), OrvoMsgStatus::Empty);
        msg.setSamples(nullptr, 1, 2, 44100, 2);
        QCOMPARE(pipeline.sendMsg(msg), OrvoMsgStatus::Empty);
    }

    void aMessageBeyondTheBufferIsTooBig()
    {
        OrvoMsgPipeline pipeline;
        pipeline.setURI(m_uri);
        const LogCapture log("OrvoMsgPipeline");
        QCOMPARE(pipeline.sendMsg(RawMsg(QByteArray(8193, 'x'))), OrvoMsgStatus::TooBig);
        QCOMPARE(log.lines(), QStringList{"DEBUG Error packet to big!"});
        const QByteArray samples(8161, 's');
        OrvoMsgAudioPayload msg;
        msg.setSamples(reinterpret_cast<const unsigned char*>(samples.constData()), 8161, 1, 44100, 1);
        QCOMPARE(pipeline.sendMsg(msg), OrvoMsgStatus::TooBig);
        msg.setSamples(reinterpret_cast<const unsigned char*>(samples.constData()), ~0UL, 1, 44100, 1);
        QCOMPARE(pipeline.sendMsg(msg), OrvoMsgStatus::TooBig);
    }

    void aMessageThatLiesAboutItsSizeIsNotSent_data()
    {
        QTest::addColumn<int>("told");
        QTest::addColumn<int>("written");
        QTest::newRow("wrote less") << 10 << 4;
        QTest::newRow("wrote nothing") << 10 << 0;
    }

    void aMessageThatLiesAboutItsSizeIsNotSent()
    {
        QFETCH(int, told);
        QFETCH(int, written);
        OrvoMsgPipeline pipeline;
        pipeline.setURI(m_uri);
        RawMsg msg(QByteArray(written, 'x'));
        msg.told = size_t(told);
        const LogCapture log("OrvoMsgPipeline");
        QCOMPARE(pipeline.sendMsg(msg), OrvoMsgStatus::SerializationFailed);
        QCOMPARE(
            log.lines(),
            QStringList{
                QString("DEBUG Error serialization length inconsistent! expect: %1 got: %2").arg(told).arg(written)});
    }

    void aMessageThatTellsMoreThanItsCapacityIsNotSent()
    {
        class TellsMore : public RawMsg
        {
        public:
            TellsMore() : RawMsg("abc") {}
            size_t serialize(uint8_t* buffer, size_t capacity) const override
            {
                return RawMsg::serialize(buffer, capacity) + 1;
            }
        };
        OrvoMsgPipeline pipeline;
        pipeline.setURI(m_uri);
        QCOMPARE(pipeline.sendMsg(TellsMore()), OrvoMsgStatus::SerializationFailed);
    }

    // Trouble in the socket

    void aSocketThatCannotBeMade()
    {
        const LogCapture log("OrvoMsgPipeline");
        s_noSockets = true;
        OrvoMsgPipeline pipeline;
        pipeline.setURI(m_uri);
        QCOMPARE(log.lines(), QStringList{QString("DEBUG Error create socket, errno: %1").arg(EMFILE)});
        QCOMPARE(pipeline.sendMsg(RawMsg("x")), OrvoMsgStatus::NoSocket);
        s_noSockets = false;
        pipeline.setNonBlock(true);
        pipeline.reset();
        QCOMPARE(pipeline.sendMsg(RawMsg("x")), OrvoMsgStatus::TryAgain);
    }

    void aSocketThatDoesNotCloseIsForgotten()
    {
        OrvoMsgPipeline pipeline;
        pipeline.setURI(m_uri);
        const LogCapture log("OrvoMsgPipeline");
        s_noShutdown = s_noClose = true;
        pipeline.close();
        QCOMPARE(log.lines(), (QStringList{QString("DEBUG Error shutdown endpoint, errno: %1").arg(EINVAL),
                                           QString("DEBUG Error close socket, errno: %1").arg(EBADF)}));
        QCOMPARE(pipeline.sendMsg(RawMsg("x")), OrvoMsgStatus::NoSocket);
    }

    void aSendThatFailsLeavesTheSocket()
    {
        OrvoMsgPipeline pipeline;
        pipeline.setURI(m_uri);
        pipeline.setNonBlock(true);
        const LogCapture log("OrvoMsgPipeline");
        s_sendError = ETERM;
        QCOMPARE(pipeline.sendMsg(RawMsg("x")), OrvoMsgStatus::SendFailed);
        QCOMPARE(log.lines(), QStringList{QString("DEBUG Error sending packet, errno: %1").arg(ETERM)});
        s_sendError = 0;
        QCOMPARE(pipeline.sendMsg(RawMsg("x")), OrvoMsgStatus::TryAgain);
    }

    void aShortSendConnectsAnew()
    {
        Reader reader(m_uri);
        QVERIFY(reader.isReady());
        OrvoMsgPipeline pipeline;
        pipeline.setURI(m_uri);
        const LogCapture log("OrvoMsgPipeline");
        s_shortSend = true;
        QCOMPARE(pipeline.sendMsg(RawMsg("abcd")), OrvoMsgStatus::SendFailed);
        QCOMPARE(log.lines(),
                 (QStringList{"DEBUG Error to few bytes sent! serialized: 4, sent: 3", "DEBUG Using URI " + m_uri}));
        s_shortSend = false;
        QCOMPARE(pipeline.sendMsg(RawMsg("next")), OrvoMsgStatus::Sent);
    }

    void theDestructorCloses()
    {
        const auto openFiles = [] { return QDir("/proc/self/fd").entryList(QDir::AllEntries | QDir::System).size(); };
        // The library keeps some for itself from its first socket on, as long as there is one.
        const int before = openFiles();
        for (int i = 0; i < 20; ++i) {
            OrvoMsgPipeline pipeline;
            pipeline.setURI(m_uri);
            pipeline.setURI(m_uri);
        }
        QCOMPARE(openFiles(), before);
    }

private:
    static int freePort()
    {
        QTcpServer server;
        server.listen(QHostAddress::LocalHost);
        return server.serverPort();
    }

    std::unique_ptr<QTemporaryDir> m_folder;
    QString m_uri;
};

int main(int argc, char** argv)
{
    if (argc == 3 && std::strcmp(argv[1], "--pull") == 0)
        return pull(argv[2]);
    QCoreApplication application(argc, argv);
    tst_OrvoMsgPipeline test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_orvomsgpipeline.moc"
