#include "support/gatewayfixture.h"

#include <QTcpServer>

namespace {

QJsonArray namesOf(const QJsonArray& rows)
{
    QJsonArray names;
    for (const QJsonValue& row : rows)
        names.append(row.toArray().at(0));
    return names;
}

} // namespace

/// The requests of the gateway, asked with curl, with a service in another process behind it.
class tst_orvo_gateway : public QObject
{
    Q_OBJECT

private:
    void startReader() { QVERIFY(m_f->startGateway({})); }
    void startWriter() { QVERIFY(m_f->startGateway({"--allow-writes"})); }

    std::unique_ptr<GatewayFixture> m_f;

private slots:
    void init()
    {
        m_f = std::make_unique<GatewayFixture>("gateway");
        QVERIFY(m_f->startService());
    }
    void cleanup() { m_f.reset(); }

    void getDataGivesTheValuesInTheOrderOfTheRoles()
    {
        startReader();
        const HttpAnswer answer = m_f->get("/api/getData?path=@:volume&roles=value,title,noSuchRole");
        QCOMPARE(answer.status, 200);
        const QJsonObject value{{"type", "i32_"}, {"i32_", 20}};
        QCOMPARE(answer.list("values"), (QJsonArray{value, "Volume", QJsonValue()}));
    }

    void getRowsGivesTheRangeWithItsVersion()
    {
        startReader();
        const HttpAnswer answer = m_f->get("/api/getRows?path=@:numbers&fromRow=7&toRow=9&roles=id,title");
        QCOMPARE(answer.status, 200);
        QCOMPARE(namesOf(answer.list("rows")), (QJsonArray{"7", "8", "9"}));
        QCOMPARE(answer.list("rows").at(1).toArray().at(1).toString(), QString("Number 8"));
        QCOMPARE(answer.json().value("rowsCount").toInt(), 250);
        QVERIFY(answer.json().contains("rowsVersion"));
    }

    void rowsBehindTheEndAreLeftOut()
    {
        startReader();
        const HttpAnswer answer = m_f->get("/api/getRows?path=@:numbers&fromRow=248&toRow=1000&roles=id");
        QCOMPARE(namesOf(answer.list("rows")), (QJsonArray{"248", "249"}));
        const HttpAnswer beyond = m_f->get("/api/getRows?path=@:numbers&fromRow=2147483000&toRow=2147483647&roles=id");
        QCOMPARE(beyond.status, 400);
        QCOMPARE(beyond.error(), QString("CMAbstractWorker::invalidArgument"));
    }

    void setDataWritesTheValue()
    {
        startWriter();
        const HttpAnswer answer = m_f->setVolume(33);
        QCOMPARE(answer.status, 200);
        QVERIFY(answer.json().contains("value"));
        QCOMPARE(m_f->volume(), 33);
    }

    void invokeGivesTheResultOfTheAction()
    {
        startWriter();
        const HttpAnswer answer = m_f->post("/api/invoke", "{'path':'@:echo','value':{'list':[1,2.5,'x',null,true]}}");
        QCOMPARE(answer.status, 200);
        const QJsonObject echoed = answer.json().value("value").toObject();
        QCOMPARE(echoed.value("list").toArray(), (QJsonArray{1, 2.5, "x", QJsonValue(), true}));
    }

    void theErrorOfAServiceIsPassedOn()
    {
        startWriter();
        const HttpAnswer answer = m_f->post("/api/invoke", "{'path':'@:fail','value':null}");
        QCOMPARE(answer.status, 500);
        QCOMPARE(answer.error(), QString("noMotor"));
        QCOMPARE(answer.text("message"), QString("The motor is missing"));
        QCOMPARE(answer.text("title"), QString("Cannot move"));
    }

    void writingIsRefusedUnlessAllowed()
    {
        startReader();
        const HttpAnswer answer = m_f->setVolume(33);
        QCOMPARE(answer.status, 403);
        QCOMPARE(answer.error(), QString("OrvoHttpGateway::writesNotAllowed"));
        QCOMPARE(m_f->post("/api/invoke", "{'path':'@:crash','value':null}").status, 403);
        QCOMPARE(m_f->volume(), 20);
    }

    void faultsHaveTheirStatus_data();
    void faultsHaveTheirStatus();
    void requestsFromOrForOtherHostsAreRefused_data();
    void requestsFromOrForOtherHostsAreRefused();

    void aNameOfTheDeviceIsServedWhenItIsTold()
    {
        QVERIFY(m_f->startGateway({"--host", "radio.local"}));
        const QString host = QStringLiteral("Host: Radio.local:%1").arg(m_f->port());
        QCOMPARE(Curl({"-H", host, m_f->url()}).answer().status, 200);
        QCOMPARE(Curl({"-H", host.chopped(1), m_f->url()}).answer().status, 403);
    }

    void aServiceThatDoesNotAnswerExpires()
    {
        QVERIFY(m_f->startGateway({"--timeout", "1"}));
        const HttpAnswer answer = m_f->get("/api/getData?path=@:silent&roles=title");
        QCOMPARE(answer.status, 504);
        QCOMPARE(answer.error(), QString("OrvoHttpGateway::expired"));
        QCOMPARE(m_f->volume(), 20);
    }

    void aServiceThatDiesIsToldAndFoundAgain()
    {
        startWriter();
        const HttpAnswer answer = m_f->post("/api/invoke", "{'path':'@:crash','value':null}");
        QCOMPARE(answer.status, 502);
        QCOMPARE(answer.error(), QString("cancel"));
        m_f->killService();
        const HttpAnswer away = m_f->get("/api/getData?path=@:volume&roles=value");
        QCOMPARE(away.status, 502);
        QCOMPARE(away.error(), QString("OrvoHttpGateway::unreachable"));
        QVERIFY(m_f->startService());
        QCOMPARE(m_f->volume(), 20);
    }

    void aWaitingPollIsAnsweredByAChange()
    {
        startWriter();
        const QString queue = m_f->watch("@:volume", 13);
        const auto poll = m_f->startPoll(queue);
        QVERIFY(!poll->isFinished());
        m_f->setVolume(41);
        const HttpAnswer answer = poll->answer();
        QCOMPARE(answer.status, 200);
        QCOMPARE(answer.text("queueId"), queue);
        const QJsonObject value{{"type", "i32_"}, {"i32_", 41}};
        const QJsonObject event{{"path", m_f->named("@:volume")}, {"itemType", 2}, {"itemValue", value}};
        QCOMPARE(answer.list("events"), QJsonArray{event});
    }

    void eventsWaitForTheNextPoll()
    {
        startWriter();
        const QString queue = m_f->watch("@:volume", 13);
        const QString other = m_f->watch("@:volume", 13);
        const auto poll = m_f->startPoll(other);
        m_f->setVolume(41);
        QCOMPARE(poll->answer().list("events").size(), 1);
        QCOMPARE(m_f->poll(queue).list("events").size(), 1);
    }

    void aPollWithoutEventsEndsEmpty()
    {
        startReader();
        const QString queue = m_f->watch("@:volume", 13);
        const HttpAnswer answer = m_f->poll(queue, 1);
        QCOMPARE(answer.status, 200);
        QCOMPARE(answer.list("events"), QJsonArray());
        QCOMPARE(answer.text("queueId"), queue);
    }

    void aNewerPollEndsTheOlderOne()
    {
        startWriter();
        const QString queue = m_f->watch("@:volume", 13);
        const auto older = m_f->startPoll(queue);
        const auto newer = m_f->startPoll(queue);
        // Either may have come first; one of them gives way, and the other gets the change.
        QTRY_VERIFY(older->isFinished() || newer->isFinished());
        m_f->setVolume(41);
        QCOMPARE(older->answer().list("events").size() + newer->answer().list("events").size(), 1);
    }

    void rowsEventsListTheChangesBetweenTwoVersions()
    {
        startWriter();
        const QString queue = m_f->watch("@:numbers", 2);
        QCOMPARE(m_f->post("/api/invoke", "{'path':'@:shuffle','value':null}").status, 200);
        const QJsonArray events = m_f->poll(queue).list("events");
        QCOMPARE(events.size(), 1);
        const QJsonObject event = events.at(0).toObject();
        QCOMPARE(event.value("rowsType").toInt(), 3);
        const QJsonArray changes{QJsonObject{{"type", 1}, {"index", 0}}, QJsonObject{{"type", 3}, {"index", 0}},
                                 QJsonObject{{"type", 4}, {"index", 0}, {"toIndex", 2}},
                                 QJsonObject{{"type", 2}, {"index", 2}}};
        QCOMPARE(event.value("rowsEvents").toArray(), changes);
        QCOMPARE(event.value("rowsVersion").toInt() - event.value("rowsOldVersion").toInt(), 4);
    }

    void whatIsNoLongerSubscribedGivesNoEvent()
    {
        startWriter();
        const QString queue = m_f->watch("@:volume", 13);
        const QByteArray change = "','subscribes':[{'path':'@:name','type':13}],"
                                  "'unsubscribes':[{'path':'@:volume','type':13}]}";
        const HttpAnswer answer = m_f->post("/api/event/modifyQueue", "{'queueId':'" + queue.toUtf8() + change);
        QCOMPARE(answer.text("queueId"), queue);
        QCOMPARE(answer.json().value("modified").toBool(), true);
        m_f->setVolume(41);
        m_f->post("/api/setData", "{'path':'@:name','role':'value','value':{'type':'string_','string_':'Garden'}}");
        const QJsonArray events = m_f->poll(queue).list("events");
        QCOMPARE(events.size(), 1);
        QCOMPARE(events.at(0).toObject().value("path").toString(), m_f->named("@:name"));
    }

    void unsubscribingWhatIsNotSubscribedIsTold()
    {
        startReader();
        const HttpAnswer answer =
            m_f->post("/api/event/modifyQueue", "{'unsubscribes':[{'path':'@:volume','type':13}]}");
        QCOMPARE(answer.status, 200);
        QCOMPARE(answer.json().value("modified").toBool(true), false);
        QVERIFY(!answer.text("queueId").isEmpty());
    }

    void anUnknownQueueIsRefusedByPollsAndReplacedByModify()
    {
        startReader();
        const QString unknown("{5a0dd2d8-9d0c-4b0b-bd9c-6cb1a5b3c1f0}");
        for (const QString& id : {unknown, QString("x"), QString()}) {
            const HttpAnswer answer = m_f->poll(id);
            QCOMPARE(answer.status, 404);
            QCOMPARE(answer.error(), QString("OrvoHttpGateway::unknownQueue"));
        }
        const HttpAnswer made = m_f->post("/api/event/modifyQueue", "{'queueId':'" + unknown.toUtf8() + "'}");
        QCOMPARE(made.status, 200);
        QVERIFY(made.text("queueId") != unknown);
        QCOMPARE(m_f->poll(made.text("queueId"), 1).status, 200);
    }

    void aQueueFollowsAServiceThatRestarts()
    {
        startWriter();
        const QString queue = m_f->watch("@:volume", 13);
        m_f->setVolume(41);
        QCOMPARE(m_f->poll(queue).list("events").size(), 1);
        m_f->killService();
        QVERIFY(m_f->startService());
        // The value is read anew when the link stands again.
        const QJsonArray events = m_f->poll(queue).list("events");
        QCOMPARE(events.size(), 1);
        QCOMPARE(events.at(0).toObject().value("itemValue").toObject().value("i32_").toInt(), 20);
    }

    void allPollsWaitInOneThread()
    {
        startWriter();
        QVERIFY(m_f->volume() == 20);
        const int threads = m_f->threads();
        std::vector<std::unique_ptr<Curl>> polls;
        for (int i = 0; i < 20; ++i)
            polls.push_back(m_f->startPoll(m_f->watch("@:volume", 13)));
        QCOMPARE(m_f->threads(), threads);
        m_f->setVolume(41);
        for (const auto& poll : polls)
            QCOMPARE(poll->answer().list("events").size(), 1);
    }

    void stoppingAnswersWhatWaits()
    {
        startReader();
        const QString queue = m_f->watch("@:volume", 13);
        const int before = m_f->settledDescriptors();
        const auto poll = m_f->startPoll(queue);
        QTRY_COMPARE(m_f->descriptors(), before + 1);
        // Asked behind the poll, and so answered behind its parking.
        QCOMPARE(m_f->volume(), 20);
        QCOMPARE(m_f->stopGateway(), 0);
        const HttpAnswer answer = poll->answer();
        QCOMPARE(answer.status, 503);
        QCOMPARE(answer.error(), QString("OrvoHttpGateway::closing"));
    }

    void thePageAndItsFilesAreServed_data();
    void thePageAndItsFilesAreServed();

    void badArgumentsEndTheProgram()
    {
        const QList<QStringList> wrong{{"--listen", "8480"},
                                       {"--listen", "host:8480"},
                                       {"--listen", ":1"},
                                       {"--listen", "127.0.0.1:x"},
                                       {"--nothing"},
                                       {"word"},
                                       {"--timeout", "0"},
                                       {"--idle-timeout", "x"},
                                       {"--listen", "127.0.0.1:65536"}};
        for (const QStringList& arguments : wrong) {
            QProcess process;
            process.start(ORVO_TEST_GATEWAY, arguments);
            QVERIFY(process.waitForFinished(gatewayPatienceMs));
            QCOMPARE(process.exitCode(), 2);
            QVERIFY(!process.readAllStandardError().isEmpty());
        }
    }

    void aPortThatIsTakenEndsTheProgram()
    {
        QTcpServer taken;
        QVERIFY(taken.listen(QHostAddress::LocalHost));
        QProcess process;
        process.start(ORVO_TEST_GATEWAY, {"--listen", QStringLiteral("127.0.0.1:%1").arg(taken.serverPort())});
        QVERIFY(process.waitForFinished(gatewayPatienceMs));
        QCOMPARE(process.exitCode(), 1);
        QVERIFY(process.readAllStandardError().contains("in use"));
    }

    void listensOnIPv6WhenTold()
    {
        QProcess process;
        process.start(ORVO_TEST_GATEWAY, {"--listen", "[::1]:0"});
        if (!process.waitForReadyRead(gatewayPatienceMs) && process.readAllStandardError().contains("assign"))
            QSKIP("This machine has no IPv6");
        const QString url = QString::fromLatin1(process.readLine()).trimmed();
        QVERIFY(url.startsWith("http://[::1]:"));
        QCOMPARE(Curl({"-g", url}).answer().status, 200);
        QCOMPARE(Curl({"-g", "-H", "Host: [::2]", url}).answer().status, 403);
        process.terminate();
        QVERIFY(process.waitForFinished(gatewayPatienceMs));
    }
};

void tst_orvo_gateway::faultsHaveTheirStatus_data()
{
    QTest::addColumn<QString>("target");
    // Of a POST request; null for a GET request.
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("name");
    const QByteArray get;
    const QString malformed("OrvoHttpGateway::malformed");
    const QString invalidPath("CMAbstractWorker::invalidPath");
    const QString unreachable("OrvoHttpGateway::unreachable");
    const QString rows("/api/getRows?path=@:numbers&roles=id&");
    const QString set("/api/setData");
    const QString modify("/api/event/modifyQueue");

    QTest::newRow("no such place") << "/api/nothing" << get << 404 << "OrvoHttpGateway::notFound";
    QTest::newRow("place with a tail") << "/api/getData/" << get << 404 << "OrvoHttpGateway::notFound";
    QTest::newRow("post for get") << "/api/getData" << QByteArray("{}") << 405 << "OrvoHttpGateway::method";
    QTest::newRow("get for post") << set << get << 405 << "OrvoHttpGateway::method";

    QTest::newRow("no path") << "/api/getData?roles=title" << get << 400 << malformed;
    QTest::newRow("empty path") << "/api/getData?path=&roles=title" << get << 400 << malformed;
    QTest::newRow("long path") << "/api/getData?roles=a&path=@:" + QString(2000, 'x') << get << 400 << malformed;
    QTest::newRow("no roles") << "/api/getData?path=@:volume" << get << 400 << malformed;
    QTest::newRow("empty roles") << "/api/getData?path=@:volume&roles=," << get << 400 << malformed;
    QTest::newRow("invalid path") << "/api/getData?path=@:no&roles=title" << get << 404 << invalidPath;
    QTest::newRow("path without service") << "/api/getData?path=volume&roles=title" << get << 404 << invalidPath;
    QTest::newRow("service with a slash") << "/api/getData?path=../x:a&roles=title" << get << 404 << invalidPath;
    QTest::newRow("service with a zero") << "/api/getData?path=@%00:volume&roles=title" << get << 404 << invalidPath;
    QTest::newRow("service away") << "/api/getData?path=no@:a&roles=title" << get << 502 << unreachable;

    QTest::newRow("no range") << rows << get << 400 << malformed;
    QTest::newRow("negative fromRow") << rows + "fromRow=-1&toRow=3" << get << 400 << malformed;
    QTest::newRow("no number") << rows + "fromRow=1x&toRow=3" << get << 400 << malformed;
    QTest::newRow("fraction") << rows + "fromRow=0.5&toRow=3" << get << 400 << malformed;
    QTest::newRow("number too great") << rows + "fromRow=0&toRow=2147483648" << get << 400 << malformed;
    QTest::newRow("rows backwards") << rows + "fromRow=3&toRow=2" << get << 400 << malformed;
    QTest::newRow("too many rows") << rows + "fromRow=0&toRow=10000" << get << 400 << malformed;
    QTest::newRow("other version") << rows + "fromRow=0&toRow=1&rowsVersion=77" << get << 409
                                   << "CMAbstractWorker::invalidRowsVersion";

    QTest::newRow("no JSON") << set << QByteArray("volume=3") << 400 << malformed;
    QTest::newRow("empty body") << set << QByteArray("") << 400 << malformed;
    QTest::newRow("unfinished JSON") << set << QByteArray("{'path':'@:volume'") << 400 << malformed;
    QTest::newRow("JSON with a tail") << set << QByteArray("{} {}") << 400 << malformed;
    QTest::newRow("JSON list") << set << QByteArray("[]") << 400 << malformed;
    QTest::newRow("JSON null") << set << QByteArray("null") << 400 << malformed;
    QTest::newRow("path is no text") << set << QByteArray("{'path':[],'role':'value','value':1}") << 400 << malformed;
    QTest::newRow("no role") << set << QByteArray("{'path':'@:volume','value':1}") << 400 << malformed;
    QTest::newRow("no value") << set << QByteArray("{'path':'@:volume','role':'value'}") << 400 << malformed;
    QTest::newRow("deep JSON") << "/api/invoke"
                               << "{'path':'@:echo','value':" + QByteArray(200, '[') + QByteArray(200, ']') + '}' << 400
                               << malformed;
    QTest::newRow("deepest JSON") << "/api/invoke"
                                  << "{'path':'@:echo','value':" + QByteArray(5000, '[') << 400 << malformed;
    QTest::newRow("write to nothing") << set << QByteArray("{'path':'@:no','role':'value','value':1}") << 404
                                      << invalidPath;
    QTest::newRow("invoke away") << "/api/invoke" << QByteArray("{'path':'no@:x','value':1}") << 502 << unreachable;

    QTest::newRow("subscription of type 3")
        << modify << QByteArray("{'subscribes':[{'path':'@:volume','type':3}]}") << 400 << malformed;
    QTest::newRow("subscription type as text")
        << modify << QByteArray("{'subscribes':[{'path':'@:volume','type':'1'}]}") << 400 << malformed;
    QTest::newRow("subscription without path")
        << modify << QByteArray("{'subscribes':[{'type':1}]}") << 400 << malformed;
    QTest::newRow("subscriptions no list")
        << modify << QByteArray("{'subscribes':{'path':'@:volume','type':1}}") << 400 << malformed;
    QTest::newRow("queue id no text") << modify << QByteArray("{'queueId':7}") << 400 << malformed;
    QTest::newRow("subscription away") << modify << QByteArray("{'subscribes':[{'path':'no@:volume','type':1}]}") << 502
                                       << unreachable;
    QTest::newRow("time-out no number") << "/api/event/pollQueue?queueId=x&timeout=soon" << get << 400 << malformed;
}

void tst_orvo_gateway::faultsHaveTheirStatus()
{
    QFETCH(QString, target);
    QFETCH(QByteArray, body);
    QFETCH(int, status);
    QFETCH(QString, name);
    startWriter();
    const HttpAnswer answer = body.isNull() ? m_f->get(target) : m_f->post(target, body);
    QCOMPARE(answer.status, status);
    QCOMPARE(answer.error(), name);
    QVERIFY(!answer.text("message").isEmpty());
    QCOMPARE(m_f->volume(), 20);
}

void tst_orvo_gateway::requestsFromOrForOtherHostsAreRefused_data()
{
    QTest::addColumn<QString>("header");
    QTest::addColumn<int>("status");
    QTest::newRow("host") << "Host: 127.0.0.1:#" << 200;
    QTest::newRow("localhost") << "Host: localhost:#" << 200;
    QTest::newRow("other name") << "Host: evil.example:#" << 403;
    QTest::newRow("other address") << "Host: 127.0.0.2:#" << 403;
    QTest::newRow("other port") << "Host: 127.0.0.1:1" << 403;
    QTest::newRow("no port") << "Host: 127.0.0.1" << 403;
    QTest::newRow("empty host") << "Host;" << 403;
    QTest::newRow("no number") << "Host: 127.0.0.1:#x" << 403;
    QTest::newRow("name before") << "Host: 127.0.0.1.evil.example:#" << 403;
    QTest::newRow("own origin") << "Origin: http://127.0.0.1:#" << 200;
    QTest::newRow("foreign origin") << "Origin: http://evil.example" << 403;
    QTest::newRow("foreign port") << "Origin: http://127.0.0.1:1" << 403;
    QTest::newRow("other scheme") << "Origin: https://127.0.0.1:#" << 403;
    QTest::newRow("origin of a file") << "Origin: null" << 403;
}

void tst_orvo_gateway::requestsFromOrForOtherHostsAreRefused()
{
    QFETCH(QString, header);
    QFETCH(int, status);
    startWriter();
    header.replace(QLatin1Char('#'), QString::number(m_f->port()));
    const QStringList targets{"/", "/api/getData?path=@:volume&roles=title"};
    for (const QString& target : targets) {
        const HttpAnswer answer = Curl({"-H", header, m_f->at(target)}).answer();
        QCOMPARE(answer.status, status);
        QCOMPARE(answer.error(), QString(status == 403 ? "OrvoHttpGateway::foreign" : ""));
    }
    const QString body = m_f->json("{'path':'@:mute','role':'value','value':{'type':'bool_','bool_':true}}");
    QCOMPARE(Curl({"-H", header, "-d", body, m_f->at("/api/setData")}).answer().status, status);
    const QJsonArray values = m_f->get("/api/getData?path=@:mute&roles=value").list("values");
    QCOMPARE(values.at(0).toObject().value("bool_").toBool(), status == 200);
}

void tst_orvo_gateway::thePageAndItsFilesAreServed_data()
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<QByteArray>("piece");
    QTest::newRow("page") << "/" << QByteArray("text/html") << QByteArray("<ul id=\"rows\">");
    QTest::newRow("style") << "/page.css" << QByteArray("text/css") << QByteArray("#rows");
    QTest::newRow("script") << "/page.js" << QByteArray("text/javascript") << QByteArray("import");
    QTest::newRow("start") << "/start.json" << QByteArray("application/json") << QByteArray("{\"path\":\"a:b\"}");
}

void tst_orvo_gateway::thePageAndItsFilesAreServed()
{
    QFETCH(QString, target);
    QFETCH(QByteArray, type);
    QFETCH(QByteArray, piece);
    QVERIFY(m_f->startGateway({"--start", "a:b"}));
    const HttpAnswer answer = Curl({"-i", m_f->at(target)}).answer();
    QCOMPARE(answer.status, 200);
    QVERIFY(answer.body.contains("Content-Type: " + type));
    QVERIFY(answer.body.contains("Content-Security-Policy: default-src 'self'"));
    QVERIFY(answer.body.contains(piece));
}

QTEST_GUILESS_MAIN(tst_orvo_gateway)

#include "tst_orvo_gateway.moc"
