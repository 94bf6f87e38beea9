#include "core/model/cmrpccommon.h"

#include "core/model/cmmetatypes.h"
#include "logcapture.h"
#include "records/orvoconstants.h"
#include "support/linkfixture.h"

#include <QPointer>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {

/// Keeps what it is handed; the base's handlers run on wish. The test may destroy it as the last thing of a handler.
class Probe : public CMRPCSocket
{
public:
    explicit Probe(QLocalSocket* socket, const QString& name = "near", const QString& remoteName = QString())
        : CMRPCSocket(nullptr, name, remoteName, socket)
    {}

    using CMRPCSocket::forgetReceived;
    using CMRPCSocket::logName;
    using CMRPCSocket::socket;

    QStringList taken;
    QList<OrvoRequest> requests;
    bool baseHandlers = false;
    std::function<void()> onTaken;

protected:
    void processRequest(const OrvoRequest& request) override
    {
        requests.append(request);
        if (baseHandlers)
            CMRPCSocket::processRequest(request);
        take("request " + request.id());
    }
    void processReply(const OrvoReply& reply) override
    {
        if (baseHandlers)
            CMRPCSocket::processReply(reply);
        take("reply " + reply.id());
    }
    void processSubscribe(const OrvoSubscribe& subscribe) override
    {
        if (baseHandlers)
            CMRPCSocket::processSubscribe(subscribe);
        take("subscribe " + subscribe.path().toEncoded());
    }
    void processChange(const OrvoChangeNotification& change) override
    {
        if (baseHandlers)
            CMRPCSocket::processChange(change);
        take("change " + change.dataChanged().path().toEncoded());
    }

private:
    void take(const QString& text)
    {
        taken.append(text);
        if (onTaken) {
            const auto function = onTaken;
            function();
        }
    }
};

/// The near end as a socket of the link, the far end as a bare descriptor.
struct Wire
{
    Wire()
    {
        int ends[2];
        socketpair(AF_UNIX, SOCK_STREAM, 0, ends);
        far = ends[0];
        auto* socket = new QLocalSocket;
        socket->setSocketDescriptor(ends[1]);
        near = new Probe(socket);
    }
    ~Wire()
    {
        delete near.data();
        if (far >= 0)
            ::close(far);
        deleteWaiting();
    }
    void write(const QByteArray& bytes) const
    {
        QCOMPARE(::write(far, bytes.constData(), bytes.size()), ssize_t(bytes.size()));
    }
    QByteArray read() const
    {
        QByteArray bytes(65536, Qt::Uninitialized);
        const ssize_t count = ::recv(far, bytes.data(), size_t(bytes.size()), MSG_DONTWAIT);
        return bytes.left(int(qMax<ssize_t>(count, 0)));
    }
    /// Waits until the near end has emptied the stream.
    void settle() const
    {
        for (int i = 0; i < 5; ++i)
            QCoreApplication::processEvents();
    }

    int far = -1;
    QPointer<Probe> near;
};

QByteArray reply(const QByteArray& id)
{
    return "{\"reply\":{\"id\":\"" + id + "\"}}";
}

QByteArray header(quint32 size)
{
    QByteArray bytes("\xC0\xFF\xEE\x00", 4);
    return bytes.append(reinterpret_cast<const char*>(&size), 4);
}

QJsonObject json(const OrvoHash& record)
{
    return QJsonDocument::fromJson(record.toJson(false)).object();
}

} // namespace

class tst_CMRPCSocket : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        ::signal(SIGPIPE, SIG_IGN);
        orvoRegisterMetaTypes();
    }

    // Sending

    void aPacketIsMagicSizeTextAndNul()
    {
        Wire wire;
        wire.near->sendReply(OrvoReply().setId("a:1"));
        wire.near->socket()->flush();
        const QByteArray text = "{\"reply\":{\"id\":\"a:1\"}}";
        QByteArray expected = QByteArray::fromHex("c0ffee00");
        expected.append(char(text.size() + 1)).append(QByteArray(3, '\0')).append(text).append('\0');
        QCOMPARE(wire.read(), expected);
    }

    void theSizeCountsBytesAndNotCharacters()
    {
        Wire wire;
        wire.near->sendReply(OrvoReply().setId(QString::fromUtf8("é😀")));
        wire.near->socket()->flush();
        QCOMPARE(wire.read(), framed(reply("é😀")));
    }

    void packetsFollowEachOtherWithoutAGap()
    {
        Wire wire;
        wire.near->sendReply(OrvoReply().setId("1"));
        wire.near->sendReply(OrvoReply().setId("2"));
        wire.near->socket()->flush();
        QCOMPARE(wire.read(), framed(reply("1")) + framed(reply("2")));
    }

    void eachSenderWrapsItsRecord()
    {
        Wire wire;
        wire.near->sendRequest(OrvoRequest().setId("1"));
        wire.near->sendSubscribe(OrvoSubscribe().setSubscribe(true));
        wire.near->sendChange(OrvoChangeNotification());
        wire.near->socket()->flush();
        QCOMPARE(wire.read(), framed("{\"request\":{\"id\":\"1\"}}") + framed("{\"subscribe\":{\"subscribe\":true}}")
                                  + framed("{\"change\":{}}"));
    }

    void aBrokenWriteIsALogLine()
    {
        LogCapture log("CMRPCSocket");
        // QLocalSocket says so itself, too.
        QTest::ignoreMessage(QtWarningMsg, "QIODevice::write (QLocalSocket): device not open");
        Probe probe(nullptr, "me", "you");
        probe.sendReply(OrvoReply());
        QCOMPARE(log.lines(), QStringList("ERROR me -> you: Error writing MAGIC to socket!"));
    }

    // Wire records

    void recordsHaveTheirFields_data()
    {
        QTest::addColumn<QJsonObject>("record");
        QTest::addColumn<QJsonObject>("expected");
        const CMPath path = CMPath::fromEncoded(QString("p:a?k=v"));
        QTest::newRow("request") << json(OrvoRequest()
                                             .setId("i")
                                             .setCancel(true)
                                             .setGetDataRequest({})
                                             .setSetDataRequest({})
                                             .setGetRowsRequest({})
                                             .setMatchRowsRequest({}))
                                 << QJsonObject{{"id", "i"},
                                                {"cancel", true},
                                                {"getDataRequest", QJsonObject()},
                                                {"setDataRequest", QJsonObject()},
                                                {"getRowsRequest", QJsonObject()},
                                                {"matchRowsRequest", QJsonObject()}};
        QTest::newRow("get data") << json(OrvoGetDataRequest().setPath(path).setRoles(QStringList{"a", "b"}))
                                  << QJsonObject{{"path", "p:a?k=v"}, {"roles", QJsonArray{"a", "b"}}};
        QTest::newRow("set data") << json(OrvoSetDataRequest().setPath(path).setRole("r").setValue(5))
                                  << QJsonObject{{"path", "p:a?k=v"}, {"role", "r"}, {"value", 5}};
        QTest::newRow("get rows") << json(
            OrvoGetRowsRequest().setPath(path).setFromRow(1).setToRow(2).setRowsVersion(3).setRoles(QStringList{"a"}))
                                  << QJsonObject{{"path", "p:a?k=v"},
                                                 {"fromRow", 1},
                                                 {"toRow", 2},
                                                 {"rowsVersion", 3},
                                                 {"roles", QJsonArray{"a"}}};
        QTest::newRow("match rows") << json(OrvoMatchRowsRequest()
                                                .setPath(path)
                                                .setFromRow(1)
                                                .setRole("r")
                                                .setValue("v")
                                                .setMatchFlags(4)
                                                .setRowsVersion(-1))
                                    << QJsonObject{{"path", "p:a?k=v"}, {"fromRow", 1},    {"role", "r"},
                                                   {"value", "v"},      {"matchFlags", 4}, {"rowsVersion", -1}};
        QTest::newRow("reply without a payload") << json(OrvoReply().setId("i").setValue(QVariant()))
                                                 << QJsonObject{{"id", "i"}, {"value", QJsonValue::Null}};
        QTest::newRow("subscribe") << json(
            OrvoSubscribe().setPath(path).setType(OrvoSubscribeType::Rows).setSubscribe(false))
                                   << QJsonObject{{"path", "p:a?k=v"}, {"type", 2}, {"subscribe", false}};
        QTest::newRow("changes") << json(OrvoChangeNotification()
                                             .setValueChanged(OrvoValueChangeNotification().setPath(path).setValue(1))
                                             .setDataChanged(OrvoDataChangeNotification().setPath(path))
                                             .setRowsChanged(OrvoRowsChangeNotification()
                                                                 .setPath(path)
                                                                 .setChanges(QStringList{"", "+1"})
                                                                 .setVersion(2)
                                                                 .setOldVersion(1)))
                                 << QJsonObject{{"valueChanged", QJsonObject{{"path", "p:a?k=v"}, {"value", 1}}},
                                                {"dataChanged", QJsonObject{{"path", "p:a?k=v"}}},
                                                {"rowsChanged", QJsonObject{{"path", "p:a?k=v"},
                                                                            {"changes", QJsonArray{"", "+1"}},
                                                                            {"version", 2},
                                                                            {"oldVersion", 1}}}};
    }

    void recordsHaveTheirFields()
    {
        QFETCH(QJsonObject, record);
        QFETCH(QJsonObject, expected);
        QCOMPARE(record, expected);
    }

    void subscribeTypesAreThoseOfTheModel()
    {
        QCOMPARE(int(OrvoSubscribeType::Value), int(CMAbstractWorker::ValueChange));
        QCOMPARE(int(OrvoSubscribeType::Data), int(CMAbstractWorker::DataChange));
        QCOMPARE(int(OrvoSubscribeType::Rows), int(CMAbstractWorker::RowsChange));
    }

    void anErrorCrossesTheLinkWithAllItsParts()
    {
        CMError error("n", "m", "t");
        const QVariantHash action{{"xclass", "c"}};
        error.insert(CMError::ActionReply(), action);
        const OrvoError wire = orvoErrorFromCMError(error);
        QCOMPARE(json(wire),
                 (QJsonObject{
                     {"name", "n"}, {"message", "m"}, {"title", "t"}, {"actionReply", QJsonObject{{"xclass", "c"}}}}));
        const CMError back = cmErrorFromOrvoError(wire);
        QCOMPARE(back.name(), QString("n"));
        QCOMPARE(back.message(), QString("m"));
        QCOMPARE(back.title(), QString("t"));
        QCOMPARE(back.value(CMError::ActionReply()).toHash(), action);
    }

    // Receiving

    void aPacketInSingleBytesIsAssembled()
    {
        Wire wire;
        const QByteArray bytes = framed(reply("1"));
        for (int i = 0; i + 1 < bytes.size(); ++i) {
            wire.write(bytes.mid(i, 1));
            wire.settle();
            QVERIFY(wire.near->taken.isEmpty());
        }
        wire.write(bytes.right(1));
        QTRY_COMPARE(wire.near->taken, QStringList("reply 1"));
    }

    void packetsOfOneReadAreHandedOnInOrder()
    {
        Wire wire;
        wire.write(framed(reply("1")) + framed("{\"request\":{\"id\":\"2\"}}")
                   + framed("{\"subscribe\":{\"path\":\"p:3\"}}")
                   + framed("{\"change\":{\"dataChanged\":{\"path\":\"p:4\"}}}") + framed(reply("5")).left(9));
        QTRY_COMPARE(wire.near->taken, (QStringList{"reply 1", "request 2", "subscribe p:3", "change p:4"}));
    }

    void theFirstKeyOfFourDecides()
    {
        Wire wire;
        const QByteArray change = "\"change\":{\"dataChanged\":{\"path\":\"p:4\"}}";
        const QByteArray subscribe = "\"subscribe\":{\"path\":\"p:3\"}";
        wire.write(framed("{" + change + "," + subscribe + "}") + framed("{" + subscribe + ",\"reply\":{\"id\":\"2\"}}")
                   + framed("{\"reply\":{\"id\":\"2\"},\"request\":{\"id\":\"1\"}}"));
        QTRY_COMPARE(wire.near->taken, (QStringList{"subscribe p:3", "reply 2", "request 1"}));
    }

    void whiteSpaceEscapesAndFurtherMembersChangeNothing()
    {
        LogCapture log("CMRPCSocket", log4cplus::ERROR_LOG_LEVEL);
        Wire wire;
        wire.write(framed(" { \"reply\" : { \"id\":\"1\" } } ") + framed("{\"re\\u0070ly\":{\"id\":\"2\"}}")
                   + framed("{\"reply\":{\"id\":\"3\"},\"hello\":{}}")
                   + framed("{\"reply\":{\"id\":\"x\"},\"reply\":{\"id\":\"4\"}}")
                   + framed("{\"reply\":{\"id\":\"5\"} }") + framed("{\"reply\":7,\"request\":{\"id\":\"6\"}}"));
        QTRY_COMPARE(wire.near->taken,
                     (QStringList{"reply 1", "reply 2", "reply 3", "reply 4", "reply 5", "request 6"}));
        QCOMPARE(log.lines(), QStringList());
    }

    void aMemberThatEndsTooEarlyOrTooLateIsAnError_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::newRow("bracket too many") << QByteArray("{\"reply\":{\"id\":\"1\"}}}");
        QTest::newRow("bracket missing") << QByteArray("{\"reply\":{\"id\":\"1\"}");
        QTest::newRow("comma behind") << QByteArray("{\"reply\":{\"id\":\"1\"},}");
        QTest::newRow("bare member") << QByteArray("{\"reply\":{\"id\":\"1\"},2}");
        QTest::newRow("second text") << QByteArray("{\"reply\":{\"id\":\"1\"}}{\"reply\":{\"id\":\"2\"}}");
    }
    void aMemberThatEndsTooEarlyOrTooLateIsAnError()
    {
        QFETCH(QByteArray, body);
        LogCapture log("CMRPCSocket", log4cplus::ERROR_LOG_LEVEL);
        Wire wire;
        wire.write(framed(body));
        QTRY_COMPARE(log.lines().size(), 1);
        QVERIFY2(log.lines().first().startsWith("ERROR near: Error parsing JSON: "), qPrintable(log.lines().first()));
        QCOMPARE(wire.near->taken, QStringList());
    }

    void theTextEndsAtItsFirstNul()
    {
        Wire wire;
        const QByteArray body = reply("1") + QByteArray("\0 rubbish {", 11);
        wire.write(header(quint32(body.size())) + body + framed(reply("2")));
        QTRY_COMPARE(wire.near->taken, (QStringList{"reply 1", "reply 2"}));
    }

    void aBodyWithoutNulEndsWithWhatWasReceived()
    {
        LogCapture log("CMRPCSocket", log4cplus::ERROR_LOG_LEVEL);
        Wire wire;
        wire.write(header(quint32(reply("1").size())) + reply("1"));
        QTRY_COMPARE(wire.near->taken, QStringList("reply 1"));
        QCOMPARE(log.lines(), QStringList());
    }

    void aSizeOfZeroReadsTheTextBehindTheHeader()
    {
        LogCapture log("CMRPCSocket", log4cplus::ERROR_LOG_LEVEL);
        Wire wire;
        wire.write(header(0) + reply("1") + '\0');
        QTRY_COMPARE(wire.near->taken, QStringList("reply 1"));
        // The text itself then stands where the next packet should begin.
        QCOMPARE(log.lines(), QStringList("ERROR near: Invalid magic field in the received packet: "
                                          + QString(reply("1").left(4).toHex())));
        wire.write(framed(reply("2")));
        QTRY_COMPARE(wire.near->taken, (QStringList{"reply 1", "reply 2"}));
    }

    void aHeaderAloneWithASizeOfZeroIsNoText()
    {
        LogCapture log("CMRPCSocket", log4cplus::ERROR_LOG_LEVEL);
        Wire wire;
        wire.write(header(0));
        QTRY_COMPARE(log.lines().size(), 1);
        QVERIFY2(log.lines().first().startsWith("ERROR near: Error parsing JSON: "), qPrintable(log.lines().first()));
        wire.write(framed(reply("2")));
        QTRY_COMPARE(wire.near->taken, QStringList("reply 2"));
    }

    void aWrongMagicLosesTheGoodPacketBehindIt()
    {
        LogCapture log("CMRPCSocket", log4cplus::ERROR_LOG_LEVEL);
        Wire wire;
        wire.write(QByteArray::fromHex("deadbeef01000000") + framed(reply("1")));
        QTRY_COMPARE(log.lines(), QStringList("ERROR near: Invalid magic field in the received packet: deadbeef"));
        wire.write(framed(reply("2")));
        QTRY_COMPARE(wire.near->taken, QStringList("reply 2"));
    }

    void sevenBytesOfRubbishAreNotLookedAt()
    {
        LogCapture log("CMRPCSocket", log4cplus::ERROR_LOG_LEVEL);
        Wire wire;
        wire.write("1234567");
        wire.settle();
        QCOMPARE(log.lines(), QStringList());
        wire.write("8");
        QTRY_COMPARE(log.lines(), QStringList("ERROR near: Invalid magic field in the received packet: 31323334"));
    }

    void badJsonDropsOnePacketAndDelaysTheNext()
    {
        LogCapture log("CMRPCSocket", log4cplus::ERROR_LOG_LEVEL);
        Wire wire;
        wire.write(framed("{\"reply\":") + framed(reply("1")));
        QTRY_COMPARE(log.lines().size(), 1);
        QVERIFY2(log.lines().first().startsWith("ERROR near: Error parsing JSON: "), qPrintable(log.lines().first()));
        wire.settle();
        QCOMPARE(wire.near->taken, QStringList());
        wire.write(framed(reply("2")));
        QTRY_COMPARE(wire.near->taken, (QStringList{"reply 1", "reply 2"}));
        QCOMPARE(log.lines().size(), 1);
    }

    void aPacketOfUnknownKindIsLoggedAndSkipped()
    {
        LogCapture log("CMRPCSocket", log4cplus::ERROR_LOG_LEVEL);
        Wire wire;
        wire.write(framed("{\"hello\":1}") + framed("[1]") + framed("7") + framed(reply("1")));
        QTRY_COMPARE(wire.near->taken, QStringList("reply 1"));
        const QStringList lines = log.lines();
        QCOMPARE(lines.size(), 3);
        QCOMPARE(lines.at(0), QString("ERROR near: Invalid packet received: {\"hello\":1}"));
        for (const QString& line : lines)
            QVERIFY2(line.startsWith("ERROR near: Invalid packet received: "), qPrintable(line));
    }

    void aHugeSizeWaitsForItsBytes()
    {
        LogCapture log("CMRPCSocket", log4cplus::ERROR_LOG_LEVEL);
        Wire wire;
        wire.write(header(0xFFFFFFFF) + reply("1") + '\0' + framed(reply("2")));
        wire.settle();
        QCOMPARE(wire.near->taken, QStringList());
        QCOMPARE(log.lines(), QStringList());
        wire.near->forgetReceived();
        wire.write(framed(reply("3")));
        QTRY_COMPARE(wire.near->taken, QStringList("reply 3"));
    }

    void aPacketLargerThanTheKernelsBufferArrives()
    {
        Wire wire;
        const QByteArray id(3 * 1024 * 1024, 'x');
        const QByteArray bytes = framed(reply(id));
        for (int sent = 0; sent < bytes.size();) {
            const ssize_t count = ::send(wire.far, bytes.constData() + sent, size_t(bytes.size() - sent), MSG_DONTWAIT);
            if (count > 0)
                sent += int(count);
            QCoreApplication::processEvents();
        }
        wire.write(framed(reply("1")));
        QTRY_COMPARE(wire.near->taken, (QStringList{"reply " + id, "reply 1"}));
    }

    void whatAHandlerCausesInANestedEventLoopKeepsTheOrder()
    {
        Wire wire;
        wire.near->onTaken = [&] {
            if (wire.near->taken.size() != 1)
                return;
            wire.write(framed(reply("3")));
            wire.settle();
        };
        wire.write(framed(reply("1")) + framed(reply("2")));
        QTRY_COMPARE(wire.near->taken, (QStringList{"reply 1", "reply 2", "reply 3"}));
    }

    void theAnswerToTheLastPacketLeavesAtOnceAndThoseBeforeInOnePiece()
    {
        Wire wire;
        QList<QByteArray> seen;
        wire.near->onTaken = [&] {
            wire.near->sendReply(OrvoReply().setId(QString::number(wire.near->taken.size())));
            seen.append(wire.read());
        };
        wire.write(framed(reply("a")));
        QTRY_COMPARE(wire.near->taken.size(), 1);
        QCOMPARE(seen, QList<QByteArray>{framed(reply("1"))});
        wire.write(framed(reply("b")) + framed(reply("c")));
        QTRY_COMPARE(wire.near->taken.size(), 3);
        QCOMPARE(seen.mid(1), (QList<QByteArray>{QByteArray(), QByteArray()}));
        QCOMPARE(wire.read(), framed(reply("2")) + framed(reply("3")));
    }

    void whatAHandlerWritesKeepsItsOrderWhenTheKernelTakesOnlyAPart()
    {
        Wire wire;
        const QByteArray large(3 * 1024 * 1024, 'x');
        wire.near->onTaken = [&] {
            for (const QByteArray& id : {large, QByteArray("1"), QByteArray("2")})
                wire.near->sendReply(OrvoReply().setId(id));
        };
        const QByteArray wanted = framed(reply(large)) + framed(reply("1")) + framed(reply("2"));
        wire.write(framed(reply("a")));
        QByteArray got;
        for (QDeadlineTimer end(10000); got.size() < wanted.size() && !end.hasExpired();) {
            QCoreApplication::processEvents();
            got += wire.read();
        }
        QVERIFY(got == wanted);
    }

    void anAnswerToAPeerThatIsGoneIsLeftToTheSocket()
    {
        LogCapture log("CMRPCSocket");
        Wire wire;
        wire.near->onTaken = [&] {
            ::close(std::exchange(wire.far, -1));
            wire.near->sendReply(OrvoReply().setId("1"));
        };
        wire.write(framed(reply("a")));
        QTRY_COMPARE(wire.near->socket()->state(), QLocalSocket::UnconnectedState);
        QCOMPARE(wire.near->taken, QStringList("reply a"));
        QVERIFY2(log.lines().contains("INFO near: Socket disconnected"), qPrintable(log.lines().join('\n')));
    }

    void itMayBeDestroyedInsideAHandler()
    {
        Wire wire;
        int calls = 0;
        wire.near->onTaken = [&] {
            ++calls;
            delete wire.near.data();
        };
        wire.write(framed(reply("1")) + framed(reply("2")));
        QTRY_VERIFY(!wire.near);
        wire.settle();
        QCOMPARE(calls, 1);
    }

    void theFarEndSeesTheEndOfADestroyedSocket()
    {
        Wire wire;
        wire.near->sendReply(OrvoReply().setId("1"));
        delete wire.near.data();
        char byte;
        QCOMPARE(wire.read(), framed(reply("1")));
        QCOMPARE(::recv(wire.far, &byte, 1, 0), ssize_t(0));
    }

    // Log lines

    void defaultHandlersLogWhatTheyDiscard()
    {
        LogCapture log("CMRPCSocket", log4cplus::ERROR_LOG_LEVEL);
        Wire wire;
        wire.near->baseHandlers = true;
        wire.write(framed("{\"request\":{\"id\":\"1\"}}") + framed(reply("2")) + framed("{\"subscribe\":{\"type\":1}}")
                   + framed("{\"change\":{}}"));
        QTRY_COMPARE(log.lines(), (QStringList{
                                      "ERROR near: Request not handled, discarding: {\"id\":\"1\"}",
                                      "ERROR near: Reply not handled, discarding: {\"id\":\"2\"}",
                                      "ERROR near: Subscribe not handled, discarding: {\"type\":1}",
                                      "ERROR near: Change notification not handled, discarding: {}",
                                  }));
    }

    void theEndOfThePeerIsInformation()
    {
        LogCapture log("CMRPCSocket");
        Wire wire;
        ::close(wire.far);
        wire.far = -1;
        QTRY_VERIFY(log.lines().contains("INFO near: Socket error occured: Connection closed by peer"));
    }

    void anyOtherSocketErrorIsAnError()
    {
        LogCapture log("CMRPCSocket");
        Probe probe(nullptr, "me");
        probe.socket()->connectToServer(CMRPCSocket::socketPathFromPrefix(serviceName("nobody")));
        QTRY_COMPARE(log.lines(), QStringList("ERROR me: Socket error occured: Server not found"));
    }

    void linesBeginWithBothNames()
    {
        QCOMPARE(Probe(nullptr, "a").logName(), QString("a"));
        QCOMPARE(Probe(nullptr, "a", "b").logName(), QString("a -> b"));
    }

    // Texts

    void thePathOfAServiceHasPrefixAndSuffix()
    {
        QCOMPARE(CMRPCSocket::socketPathFromPrefix("ui"), OrvoRPCSocketPrefix() + "ui" + OrvoRPCSocketSuffix());
    }

    void statesHaveTexts()
    {
        const QHash<int, QString> texts{{0, "Unconnected"}, {2, "Connecting"}, {3, "Connected"}, {6, "Closing"}};
        for (const int state : {0, 1, 2, 3, 4, 5, 6})
            QCOMPARE(CMRPCSocket::stateToString(QLocalSocket::LocalSocketState(state)), texts.value(state, "Unknown"));
    }

    void errorsHaveTexts()
    {
        const QHash<int, QString> texts{
            {0, "Connection refused"},        {1, "Connection closed by peer"}, {2, "Server not found"},
            {3, "Lacking socket privileges"}, {4, "Too many sockets"},          {5, "Socket timeout"},
            {6, "Datagram too large"},        {7, "Connection error"},          {10, "Unsupported socket operation"},
        };
        for (int error = 0; error <= 12; ++error)
            QCOMPARE(CMRPCSocket::errorToString(QLocalSocket::LocalSocketError(error)),
                     texts.value(error, "Unknown error"));
        QCOMPARE(CMRPCSocket::errorToString(QLocalSocket::LocalSocketError(-1)), QString("Unknown error"));
    }

    void aGivenSocketIsTakenOver()
    {
        auto* socket = new QLocalSocket;
        Probe probe(socket);
        QCOMPARE(socket->parent(), static_cast<QObject*>(&probe));
    }
};

QTEST_GUILESS_MAIN(tst_CMRPCSocket)
#include "tst_cmrpcsocket.moc"
