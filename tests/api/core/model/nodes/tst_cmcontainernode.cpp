#include "core/model/nodes/cmcontainernode.h"

#include "childprocess.h"
#include "logcapture.h"
#include "nodetest.h"
#include "records/orvorowsroles.h"

#include <QtTest>

#include <functional>

namespace {

using Content = CMContainerNode::DynamicContent;
using ContentList = CMContainerNode::DynamicContentList;

/// A stretch of rows that notes what is loaded from it.
Content stretch(const QList<QVariant>& rows, QStringList* loads = nullptr, const QString& name = QString())
{
    return {rows.size(), [=](int offset, int count) {
                if (loads)
                    loads->append(QString("%1%2+%3").arg(name).arg(offset).arg(count));
                return rows.mid(offset, count);
            }};
}

QVariant titled(const QString& title)
{
    return OrvoRoles().setTitle(title).__variant();
}

/// Rows "a0", "a1", ...
QList<QVariant> titledRows(const QString& prefix, int count)
{
    QList<QVariant> rows;
    for (int i = 0; i < count; ++i)
        rows.append(titled(prefix + QString::number(i)));
    return rows;
}

class Container : public CMContainerNode
{
public:
    using CMContainerNode::CMContainerNode;
    static Container* create(CMNodes* nodes, const CMPath& path)
    {
        auto* node = new Container(path);
        node->setNodes(nodes);
        return node;
    }
    bool getRowsRequest(const CMGetRowsRequest& request) override
    {
        if (before)
            before(request);
        respondGetRowsRequest(request, content, version, rowsRoles, copyPathParams);
        return true;
    }

    ContentList content;
    int version = 3;
    OrvoRowsRoles rowsRoles;
    bool copyPathParams = false;
    std::function<void(const CMGetRowsRequest&)> before;
};

QVariantList column(const CMReply<OrvoRowsRoles>& reply, int index = 0)
{
    QVariantList values;
    for (const QVariant& row : reply.value().rows().toList())
        values.append(row.toList().value(index));
    return values;
}

const FatalCalls& fatalCalls()
{
    static const FatalCalls calls{
        {"fromIncluded >= 0", [] { CMContainerNode::loadContentData({}, -1, 0); }},
        {"fromIncluded <= toIncluded", [] { CMContainerNode::loadContentData({}, 2, 1); }},
        {"!elements.isEmpty()",
         [] {
             CMContainerNode::loadContentData({Content{3, [](int, int) { return QList<QVariant>(); }}}, 0, 1);
         }},
    };
    return calls;
}

} // namespace

class tst_CMContainerNode : public QObject
{
    Q_OBJECT

private slots:
    // Data

    void aNewContainerAnswers()
    {
        NodesFixture f;
        CMContainerNode::create(f.nodes(), P("x:a"));
        QCOMPARE(f.datum(P("x:a"), OrvoRoles::Type()), QVariant("container"));
        QCOMPARE(f.datum(P("x:a"), OrvoRoles::ContainerType()), QVariant(""));
        QCOMPARE(f.datum(P("x:a"), OrvoRoles::Activity()), QVariant(false));
        QCOMPARE(f.datum(P("x:a"), OrvoRoles::FillParent()), QVariant(false));
        QVERIFY(!f.datum(P("x:a"), OrvoRoles::ContainerPlayable()).isValid());
        for (const QString& role : {OrvoRoles::Search(), OrvoRoles::Cancel(), OrvoRoles::Accept()}) {
            QCOMPARE(f.datum(P("x:a"), role).type(), QVariant::Hash);
            QVERIFY(f.datum(P("x:a"), role).toHash().isEmpty());
        }
        QCOMPARE(f.datum(P("x:a"), OrvoRoles::Title()), QVariant(QString()));
        QVERIFY(!f.datum(P("x:a"), "unknown").isValid());
    }

    void flagsAreReportedOnceAndAnswered()
    {
        NodesFixture f;
        CMContainerNode* node = CMContainerNode::create(f.nodes(), P("x:a"));
        f.spy.watchData(f.worker.get(), P("x:a"));
        const QList<std::function<void()>> sets{
            [&] { node->setActivity(true); },
            [&] { node->setFillParent(true); },
            [&] { node->setPlayable(true); },
            [&] { node->setContainerType(OrvoRolesContainerType::Form_); },
        };
        for (const auto& set : sets) {
            set();
            QCOMPARE(f.delivered(), QStringList("data x:a"));
            set();
            QCOMPARE(f.delivered(), QStringList());
        }
        QVERIFY(node->activity() && node->fillParent() && node->playable());
        QCOMPARE(node->containerType(), OrvoRolesContainerType::Form_);
        QCOMPARE(f.data(P("x:a"), {OrvoRoles::Activity(), OrvoRoles::FillParent(), OrvoRoles::ContainerPlayable(),
                                   OrvoRoles::ContainerType()}),
                 QVariantList({true, true, true, "form"}));
        node->setPlayable(false);
        QVERIFY(!f.datum(P("x:a"), OrvoRoles::ContainerPlayable()).isValid());
    }

    void itemsAreAPathOrARecord_data()
    {
        QTest::addColumn<QString>("role");
        QTest::newRow("search") << OrvoRoles::Search();
        QTest::newRow("cancel") << OrvoRoles::Cancel();
        QTest::newRow("accept") << OrvoRoles::Accept();
    }

    void itemsAreAPathOrARecord()
    {
        QFETCH(QString, role);
        NodesFixture f;
        CMContainerNode* node = CMContainerNode::create(f.nodes(), P("x:a"));
        CMUINode::create(f.nodes(), P("x:s"))->setTitle(QString("by path"));
        f.spy.watchData(f.worker.get(), P("x:a"));
        const auto setPath = [&](const CMPath& path) {
            role == OrvoRoles::Search()   ? node->setSearchPath(path)
            : role == OrvoRoles::Cancel() ? node->setCancelPath(path)
                                          : node->setAcceptPath(path);
        };
        const auto setRecord = [&](const OrvoRoles& roles) {
            role == OrvoRoles::Search()   ? node->setSearch(roles)
            : role == OrvoRoles::Cancel() ? node->setCancel(roles)
                                          : node->setAccept(roles);
        };
        setRecord(OrvoRoles().setTitle("by record"));
        QCOMPARE(f.delivered(), QStringList("data x:a"));
        setRecord(OrvoRoles().setTitle("by record"));
        QCOMPARE(f.delivered(), QStringList());
        QCOMPARE(f.datum(P("x:a?k=v"), role), OrvoRoles().setTitle("by record").__variant());
        setPath(P("x:s?l=w"));
        QCOMPARE(f.delivered(), QStringList("data x:a"));
        setPath(P("x:s?l=w"));
        QCOMPARE(f.delivered(), QStringList());
        const OrvoRoles byPath(f.datum(P("x:a?k=v"), role));
        QCOMPARE(byPath.title(), QString("by path"));
        QCOMPARE(byPath.path(), P("x:s?k=v?l=w"));
        setRecord(OrvoRoles().setTitle("again"));
        QCOMPARE(f.datum(P("x:a"), role), OrvoRoles().setTitle("again").__variant());
    }

    // Parameters

    void mergedParametersWinOverThePaths()
    {
        const LogCapture log("CMContainerNode");
        QCOMPARE(CMContainerNode::mergeParams(P("x:a?a=1"), {{"a", "2"}}).toEncoded(), QString("x:a?a=2"));
        QCOMPARE(log.lines(), QStringList("WARN Overriding param: a in path x:a?a=1"));
        QCOMPARE(CMContainerNode::mergeParams(P("x:a?a=1"), {{"b", "2"}}).toEncoded(), QString("x:a?a=1?b=2"));
        QCOMPARE(CMContainerNode::mergeParams(P("x:a?a=1"), {}).toEncoded(), QString("x:a?a=1"));
        QCOMPARE(log.lines().size(), 1);
        CMContainerNode::mergeParams(P("x:a?a=1?b=2"), {{"a", "1"}, {"b", "3"}});
        QCOMPARE(log.lines().mid(1), QStringList({"WARN Overriding param: a in path x:a?a=1?b=2",
                                                  "WARN Overriding param: b in path x:a?a=1?b=2"}));
    }

    // Stretches

    void oneCallLoadsFromOneStretchAtMost_data()
    {
        QTest::addColumn<int>("from");
        QTest::addColumn<int>("to");
        QTest::addColumn<QString>("load");
        QTest::newRow("head") << 0 << 1 << "a0+2";
        QTest::newRow("whole first") << 0 << 2 << "a0+3";
        QTest::newRow("cut at the end of the first") << 1 << 5 << "a1+2";
        QTest::newRow("last of the first") << 2 << 5 << "a2+1";
        QTest::newRow("second, the empty ones skipped") << 3 << 3 << "b0+1";
        QTest::newRow("within the second") << 4 << 9 << "b1+1";
        QTest::newRow("behind the end") << 5 << 9 << "";
    }

    void oneCallLoadsFromOneStretchAtMost()
    {
        QFETCH(int, from);
        QFETCH(int, to);
        QFETCH(QString, load);
        QStringList loads;
        const ContentList content{stretch({}, &loads, "e"), stretch(titledRows("a", 3), &loads, "a"),
                                  stretch({}, &loads, "e"), Content{-4, nullptr},
                                  stretch(titledRows("b", 2), &loads, "b")};
        const QList<QVariant> rows = CMContainerNode::loadContentData(content, from, to);
        QCOMPARE(loads, load.isEmpty() ? QStringList() : QStringList(load));
        QCOMPARE(rows.isEmpty(), load.isEmpty());
    }

    void rowsAreLoadedAsFarAsAskedAndStretchByStretch()
    {
        NodesFixture f;
        Container* node = Container::create(f.nodes(), P("x:a"));
        QStringList loads;
        node->content = {stretch(titledRows("a", 3), &loads, "a"), stretch(titledRows("b", 4), &loads, "b")};
        const auto reply = f.worker->getRows(P("x:a"), 1, 4, -1, {OrvoRoles::Title()});
        QCOMPARE(column(reply), QVariantList({"a1", "a2", "b0", "b1"}));
        QCOMPARE(loads, QStringList({"a1+2", "b0+2"}));
        QCOMPARE(reply.value().rowsCount(), 7);
    }

    void aStretchThatGivesFewerRowsIsAskedAgain()
    {
        NodesFixture f;
        Container* node = Container::create(f.nodes(), P("x:a"));
        QStringList loads;
        const QList<QVariant> rows = titledRows("a", 5);
        node->content = {Content{5, [&](int offset, int count) {
                                     loads.append(QString("%1+%2").arg(offset).arg(count));
                                     return rows.mid(offset, qMin(count, 2));
                                 }}};
        QCOMPARE(column(f.worker->getRows(P("x:a"), 0, 4, -1, {OrvoRoles::Title()})),
                 QVariantList({"a0", "a1", "a2", "a3", "a4"}));
        QCOMPARE(loads, QStringList({"0+5", "2+3", "4+1"}));
    }

    // Rows requests

    void anEmptyContainerAnswersNoRows()
    {
        NodesFixture f;
        Container::create(f.nodes(), P("x:a"));
        const auto reply = f.worker->getRows(P("x:a"), 0, 10, -1, {OrvoRoles::Title()});
        QVERIFY(!reply.error().isError());
        QCOMPARE(reply.value().rowsCount(), 0);
        QCOMPARE(reply.value().rowsVersion(), 3);
        QCOMPARE(reply.value().rows().type(), QVariant::List);
        QVERIFY(reply.value().rows().toList().isEmpty());
    }

    void rowNumbersAreChecked_data()
    {
        QTest::addColumn<int>("from");
        QTest::addColumn<int>("to");
        QTest::addColumn<int>("version");
        QTest::addColumn<QString>("error");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QVariantList>("rows");
        const QString argument = CMAbstractWorker::ErrorInvalidArgument();
        const auto good = [](const char* name, int from, int to, int version, const QVariantList& rows) {
            QTest::newRow(name) << from << to << version << QString() << QString() << rows;
        };
        const auto bad = [](const char* name, int from, int to, int version, const QString& error,
                            const QString& message) {
            QTest::newRow(name) << from << to << version << error << message << QVariantList();
        };
        good("all", 0, 2, -1, {"a0", "a1", "a2"});
        good("cut to the last row", 1, 99, -1, {"a1", "a2"});
        good("greatest toRow", 1, INT_MAX, -1, {"a1", "a2"});
        good("one", 1, 1, -1, {"a1"});
        good("from the end", 3, 3, -1, {});
        good("from the end on", 3, 9, -1, {});
        good("the right version", 0, 0, 3, {"a0"});
        bad("negative fromRow", -1, 2, -1, argument, "Argument 'fromRow' has invalid value '-1'");
        bad("behind the end", 4, 9, -1, argument, "Argument 'fromRow' has invalid value '4'");
        bad("toRow below fromRow", 3, 2, -1, argument, "Argument 'fromRow > toRow' has invalid value '3 > 2'");
        bad("fromRow is checked first", 5, 3, 0, argument, "Argument 'fromRow' has invalid value '5'");
        bad("toRow is checked ahead of the version", 2, 1, 0, argument,
            "Argument 'fromRow > toRow' has invalid value '2 > 1'");
        bad("version 0", 0, 2, 0, CMAbstractWorker::ErrorInvalidRowsVersion(),
            "Rows version at path 'x:a' does not match: 0!=3");
        bad("newer version", 0, 2, 4, CMAbstractWorker::ErrorInvalidRowsVersion(),
            "Rows version at path 'x:a' does not match: 4!=3");
        good("any negative version", 0, 0, -7, {"a0"});
    }

    void rowNumbersAreChecked()
    {
        QFETCH(int, from);
        QFETCH(int, to);
        QFETCH(int, version);
        QFETCH(QString, error);
        QFETCH(QString, message);
        QFETCH(QVariantList, rows);
        const LogCapture log("CMContainerNode");
        NodesFixture f;
        Container* node = Container::create(f.nodes(), P("x:a"));
        node->content = {stretch(titledRows("a", 3))};
        const auto reply = f.worker->getRows(P("x:a"), from, to, version, {OrvoRoles::Title()});
        QVERIFY(reply.isFinished());
        QCOMPARE(reply.error().name(), error);
        QCOMPARE(reply.error().message(), message);
        QCOMPARE(column(reply), rows);
        if (error == CMAbstractWorker::ErrorInvalidArgument()) {
            QCOMPARE(log.lines().size(), 1);
            const QString line = log.lines().first();
            QVERIFY2(line.startsWith("ERROR ") && line.contains("x:a") && line.contains(message), qPrintable(line));
        } else {
            QCOMPARE(log.lines(), QStringList());
            if (error.isEmpty())
                QCOMPARE(reply.value().rowsCount(), 3);
        }
    }

    void rowsFiveToThreeFailWithTheirNumbers()
    {
        const LogCapture log("CMContainerNode");
        NodesFixture f;
        Container* node = Container::create(f.nodes(), P("x:a"));
        node->content = {stretch(titledRows("a", 9))};
        QCOMPARE(f.worker->getRows(P("x:a"), 5, 3, -1, {}).error().message(),
                 QString("Argument 'fromRow > toRow' has invalid value '5 > 3'"));
    }

    void theAnswerStartsFromTheRowsRoles()
    {
        NodesFixture f;
        Container* node = Container::create(f.nodes(), P("x:a"));
        node->content = {stretch(titledRows("a", 3))};
        node->setTitle(QString("list"));
        node->rowsRoles = OrvoRowsRoles().setCloseTimeout(7).setRowsVersion(99).setRowsCount(99);
        const OrvoRowsRoles answer =
            f.worker->getRows(P("x:a?k=v"), 0, 0, -1, {OrvoRoles::Title(), OrvoRoles::Path()}).value();
        QCOMPARE(answer.closeTimeout(), 7);
        QCOMPARE(answer.rowsVersion(), 3);
        QCOMPARE(answer.rowsCount(), 3);
        QCOMPARE(answer.roles(), OrvoRoles().setTitle("list").setPath(P("x:a?k=v")));
    }

    void aRolesRowAnswersRoleByRole()
    {
        NodesFixture f;
        Container* node = Container::create(f.nodes(), P("x:a"));
        node->content = {
            stretch({OrvoRoles().setTitle("t").setPath(P("y:t?b=2")).__variant(), titled("pathless"), QVariant(5)})};
        const QStringList roles{OrvoRoles::Title(), "unknown", OrvoRoles::Path(), OrvoRoles::Title()};
        const QVariantList rows = f.worker->getRows(P("x:a?a=1"), 0, 2, -1, roles).value().rows().toList();
        QCOMPARE(rows.at(0).toList(), QVariantList({"t", QVariant(), "y:t?b=2", "t"}));
        QCOMPARE(rows.at(1).toList(), QVariantList({"pathless", QVariant(), "", "pathless"}));
        QCOMPARE(rows.at(1).toList().at(2).type(), QVariant::String);
        QCOMPARE(rows.at(2).toList(), QVariantList({QVariant(), QVariant(), "", QVariant()}));
    }

    void parametersOfTheAskerGoToThePathsOfTheRows()
    {
        const LogCapture quiet("CMContainerNode");
        NodesFixture f;
        CMUINode::create(f.nodes(), P("x:t"));
        Container* node = Container::create(f.nodes(), P("x:a"));
        node->content = {
            stretch({OrvoRoles().setPath(P("y:t?b=2")).__variant(), QString("x:t?b=2"), titled("pathless")})};
        const auto paths = [&] { return column(f.worker->getRows(P("x:a?a=1?b=3"), 0, 2, -1, {OrvoRoles::Path()})); };
        QCOMPARE(paths(), QVariantList({"y:t?b=2", "x:t?b=2", ""}));
        node->copyPathParams = true;
        QCOMPARE(paths().mid(0, 2), QVariantList({"y:t?a=1?b=3", "x:t?a=1?b=3"}));
    }

    void aPathRowIsReadThroughTheRoot()
    {
        NodesFixture f;
        CMUINode::create(f.nodes(), P("x:t"))->setTitle(QString("target"));
        Container* node = Container::create(f.nodes(), P("x:a"));
        node->content = {stretch({QString("x:t"), titled("own")})};
        const QStringList roles{OrvoRoles::Title(), "unknown", OrvoRoles::Path()};
        const QVariantList rows = f.worker->getRows(P("x:a"), 0, 1, -1, roles).value().rows().toList();
        QCOMPARE(rows.at(0).toList(), QVariantList({"target", QVariant(), "x:t"}));
        QCOMPARE(rows.at(1).toList(), QVariantList({"own", QVariant(), ""}));
        QCOMPARE(f.root()->requests, QStringList("getData x:t"));
    }

    void aPathRowThatFailsShowsItsErrorAndTheOthersAreServed()
    {
        const LogCapture log("CMContainerNode");
        NodesFixture f;
        Container* node = Container::create(f.nodes(), P("x:a"));
        node->content = {stretch({QString("y:none?k=v"), titled("own")})};
        const QStringList roles{OrvoRoles::Id(), OrvoRoles::Title(), OrvoRoles::Path()};
        const auto reply = f.worker->getRows(P("x:a"), 0, 1, -1, roles);
        const QString message = "Node at path 'y:none?k=v' does not exist";
        QVERIFY(!reply.error().isError());
        const QVariantList rows = reply.value().rows().toList();
        QCOMPARE(rows.at(0).toList(), QVariantList({QVariant(), message, "y:none?k=v"}));
        QVERIFY(!rows.at(0).toList().at(0).isValid());
        QCOMPARE(rows.at(1).toList().at(1), QVariant("own"));
        QCOMPARE(log.lines(), QStringList("ERROR CMContainerNode::respondGetRowsRequest: y:none?k=v "
                                          "CMAbstractWorker::invalidPath: "
                                          + message));
    }

    void aPathRowThatDoesNotAnswerShowsTimeoutAndTheRestIsFetchedLater()
    {
        const LogCapture log("CMContainerNode");
        NodesFixture f;
        f.root()->hold(P("y:silent"));
        Container* node = Container::create(f.nodes(), P("x:a"));
        node->content = {stretch({titled("first"), QString("y:silent"), titled("last")})};
        const QStringList roles{OrvoRoles::Id(), OrvoRoles::Title(), OrvoRoles::Path()};
        const auto reply = f.worker->getRows(P("x:a"), 0, 2, -1, roles);
        const QVariantList rows = reply.value().rows().toList();
        // The wait used up the time for one answer.
        QCOMPARE(rows.size(), 2);
        QCOMPARE(rows.at(0).toList().at(1), QVariant("first"));
        QCOMPARE(rows.at(1).toList(), QVariantList({QVariant(), "Timeout", "y:silent"}));
        QCOMPARE(reply.value().rowsCount(), 3);
        QCOMPARE(log.lines().size(), 2);
        QCOMPARE(log.lines().first(), QString("ERROR CMContainerNode::respondGetRowsRequest: y:silent "
                                              "CMAbstractWorker::internal: Timeout"));
        QVERIFY(log.lines().last().startsWith("TRACE x:a CMContainerNode::respondGetRowsRequest Timeout "));
        const auto rest = f.worker->getRows(P("x:a"), 2, 2, -1, roles);
        QCOMPARE(column(rest, 1), QVariantList{"last"});
    }

    void anAnswerThatTakesTooLongIsCutShort()
    {
        const LogCapture log("CMContainerNode");
        NodesFixture f;
        Container* node = Container::create(f.nodes(), P("x:a"));
        int loads = 0;
        node->content = {Content{5, [&](int offset, int) {
                                     if (++loads == 2)
                                         QTest::qSleep(250);
                                     return QList<QVariant>{titled(QString::number(offset))};
                                 }}};
        auto reply = f.worker->getRows(P("x:a"), 0, 4, -1, {OrvoRoles::Title()});
        QCOMPARE(column(reply), QVariantList({"0", "1"}));
        QCOMPARE(reply.value().rowsCount(), 5);
        QCOMPARE(log.lines().size(), 1);
        QVERIFY(log.lines().first().startsWith("TRACE x:a CMContainerNode::respondGetRowsRequest Timeout "));
        reply = f.worker->getRows(P("x:a"), 2, 4, -1, {OrvoRoles::Title()});
        QCOMPARE(column(reply), QVariantList({"2", "3", "4"}));
    }

    void aRequestThatIsCancelledLoadsNoFurtherRow()
    {
        NodesFixture f;
        Container* node = Container::create(f.nodes(), P("x:a"));
        CMReply<OrvoRowsRoles> reply;
        int loads = 0;
        node->content = {Content{5, [&](int, int) {
                                     if (++loads == 2)
                                         reply.cancel();
                                     return QList<QVariant>{titled("t")};
                                 }}};
        f.worker->getRows(P("x:a"), 0, 4, -1, {OrvoRoles::Title()}, reply);
        QCOMPARE(loads, 2);
        QCOMPARE(reply.error().name(), CMVoidReply::ErrorCancel());
        QVERIFY(reply.value().isEmpty());
    }

    // Records as rows

    void recordsAreRowsOfTheHubsVersion()
    {
        NodesFixture f;
        Container* node = Container::create(f.nodes(), P("x:a"));
        const QVector<OrvoRoles> rows{OrvoRoles().setTitle("0").setPath(P("y:t")), OrvoRoles().setTitle("1"),
                                      OrvoRoles().setTitle("2")};
        const auto ask = [&](int rowsVersion) {
            auto* data = new CMGetRowsRequest::Data;
            data->path = P("x:a?a=1");
            data->fromRow = 0;
            data->toRow = 1;
            data->roles = QStringList{OrvoRoles::Title(), OrvoRoles::Path()};
            const CMGetRowsRequest request(data);
            node->respondGetRowsRequest(request, rows, rowsVersion);
            return request.reply();
        };
        QCOMPARE(column(ask(-1)), QVariantList({"0", "1"}));
        // The asker's parameters are not passed on.
        QCOMPARE(column(ask(-1), 1), QVariantList({"y:t", ""}));
        QCOMPARE(ask(-1).value().rowsVersion(), 0);
        QCOMPARE(ask(7).value().rowsVersion(), 7);
        QCOMPARE(ask(0).value().rowsVersion(), 0);
        f.spy.watchRows(f.worker.get(), P("x:a?a=1"));
        node->rowsChanged(QStringList{"0", "1"});
        QCOMPARE(ask(-1).value().rowsVersion(), 2);
        QCOMPARE(ask(-1).value().rowsCount(), 3);
    }

    void hidingTellsTheReadersOfThePathToLeave()
    {
        NodesFixture f;
        Container* node = Container::create(f.nodes(), P("x:a"));
        node->content = {stretch(titledRows("a", 3))};
        f.spy.watchRows(f.worker.get(), P("x:a"));
        f.spy.watchRows(f.worker.get(), P("x:a?k=v"));
        node->rowsChanged(QString("0"));
        f.delivered();
        node->hide();
        QCOMPARE(f.delivered(), QStringList("rows x:a [close] 1>0"));
        QCOMPARE(column(f.worker->getRows(P("x:a"), 0, 2, -1, {OrvoRoles::Title()})).size(), 3);
        QVERIFY(CMContainerNode::staticMetaObject.indexOfSlot("hide()") >= 0);
    }

    void aBrokenInvariantStopsTheProcess_data()
    {
        QTest::addColumn<QByteArray>("text");
        for (auto it = fatalCalls().cbegin(); it != fatalCalls().cend(); ++it)
            QTest::newRow(qPrintable(it.key())) << it.key().toUtf8();
    }

    void aBrokenInvariantStopsTheProcess()
    {
        QFETCH(QByteArray, text);
        const ChildEnd end = runThisProgram({"--fatal", text});
        QVERIFY(end.stopped);
        QVERIFY2(end.errors.contains(text), end.errors.constData());
    }
};

int main(int argc, char** argv)
{
    return runTestOrFatalCall<tst_CMContainerNode>(argc, argv, fatalCalls());
}

#include "tst_cmcontainernode.moc"
