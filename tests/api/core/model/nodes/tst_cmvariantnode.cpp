#include "core/model/nodes/cmvariantnode.h"

#include "childprocess.h"
#include "nodetest.h"

#include <QThread>
#include <QtTest>

#include <atomic>
#include <vector>

namespace {

using Hash = QVariantHash;
using List = QVariantList;

CMReply<QVariant> write(const NodesFixture& f, const char* path, const QVariant& value)
{
    return f.worker->setData(P(path), OrvoRoles::Value(), value);
}

OrvoRowsRoles rows(const NodesFixture& f, const char* path, int from, int to, const QStringList& roles)
{
    return f.worker->getRows(P(path), from, to, -1, roles).value();
}

CMVariantNode* nodeWith(const NodesFixture& f, const QVariant& value)
{
    CMVariantNode* node = CMVariantNode::create(f.nodes(), P("x:root"));
    node->setValue(value);
    return node;
}

QString missing(const char* path)
{
    return QString("Node at path '%1' does not exist").arg(path);
}

} // namespace

class ValueReceiver : public QObject
{
    Q_OBJECT

public:
    QVariantList heard;

public slots:
    void hear(CMPath, QVariant value) { heard.append(value); }
};

class tst_CMVariantNode : public QObject
{
    Q_OBJECT

private slots:
    void aNewNodeServesAnEmptyDocument()
    {
        NodesFixture f;
        const CMVariantNode* node = CMVariantNode::create(f.nodes(), P("x:root"));
        QCOMPARE(node->title(), QString());
        QVERIFY(!node->value().isValid());
        QVERIFY(!node->readOnly());
        QCOMPARE(f.data(P("x:root"), {"path", "title", "modifiable", "type", "value"}),
                 (List{"x:root", "", true, QVariant(), QVariant()}));
        QCOMPARE(rows(f, "x:root", 0, 9, {"path"}).rowsCount(), 0);
    }

    void aValueAnswersItsTypeAndRecord_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QVariant>("type");
        QTest::addColumn<QVariant>("record");
        const auto row = [](const char* name, const QVariant& value, const QVariant& type, const OrvoValue& record) {
            QTest::newRow(name) << value << type << (record.isEmpty() ? QVariant() : record.__variant());
        };
        row("bool", true, "value", OrvoValue().setBool_(true));
        row("int", -5, "value", OrvoValue().setI32_(-5));
        row("uint", 7u, "value", OrvoValue().setI32_(7));
        row("long long", -(1LL << 40), "value", OrvoValue().setI64_(-(1LL << 40)));
        row("unsigned long long", 1ULL << 40, "value", OrvoValue().setI64_(1LL << 40));
        row("double", 1.5, "value", OrvoValue().setDouble_(1.5));
        row("text", "abc", "value", OrvoValue().setString_("abc"));
        row("empty text", "", "value", OrvoValue().setString_(""));
        row("list", List{1}, "container", {});
        row("empty list", List(), "container", {});
        row("hash", Hash{{"k", 1}}, "container", {});
        row("bytes", QByteArray("abc"), QVariant(), {});
        row("map", QVariantMap{{"k", 1}}, QVariant(), {});
        row("invalid", QVariant(), QVariant(), {});
    }

    void aValueAnswersItsTypeAndRecord()
    {
        QFETCH(QVariant, value);
        QFETCH(QVariant, type);
        QFETCH(QVariant, record);
        NodesFixture f;
        nodeWith(f, Hash{{"k", value}});
        QCOMPARE(f.data(P("x:root/k"), {"type", "value", "title", "path"}), (List{type, record, "k", "x:root/k"}));
    }

    void rolesAreAnsweredInTheirOrderAndUnknownOnesInvalid()
    {
        NodesFixture f;
        nodeWith(f, Hash{{"list", List{"a", Hash{{"k", 2}}}}})->setTitle("Root");
        QCOMPARE(f.data(P("x:root"), {"icon", "title", "path", "title"}), (List{QVariant(), "Root", "x:root", "Root"}));
        QCOMPARE(f.data(P("x:root/list/1?p=1"), {"title", "path"}), (List{"1", "x:root/list/1"}));
        QCOMPARE(f.data(P("x:root/list/1/k"), {"title", "path"}), (List{"k", "x:root/list/1/k"}));
        QCOMPARE(f.data(P("x:root"), {}), List());
    }

    void whatIsNotThereYetAnswersWithoutAType_data()
    {
        QTest::addColumn<QByteArray>("path");
        QTest::addColumn<QString>("title");
        QTest::newRow("missing key") << QByteArray("x:root/no") << "no";
        QTest::newRow("below a missing key") << QByteArray("x:root/no/way/7") << "7";
        QTest::newRow("beyond the list") << QByteArray("x:root/list/2") << "2";
        QTest::newRow("empty key") << QByteArray("x:root/") << "";
    }

    void whatIsNotThereYetAnswersWithoutAType()
    {
        QFETCH(QByteArray, path);
        QFETCH(QString, title);
        NodesFixture f;
        const Hash document{{"list", List{1, 2}}};
        const CMVariantNode* node = nodeWith(f, document);
        const auto reply = f.worker->getData(P(path), {"path", "title", "modifiable", "type", "value"});
        QVERIFY(!reply.error().isError());
        QCOMPARE(reply.value(), (List{path, title, true, QVariant(), QVariant()}));
        QCOMPARE(node->value(), QVariant(document));
    }

    void aPathThatLeavesTheDocumentFailsForEveryKindOfRequest_data()
    {
        QTest::addColumn<QByteArray>("path");
        for (const char* path : {"x:root/leaf/k", "x:root/leaf/k/l", "x:root/list/k", "x:root/list/-1",
                                 "x:root/list/0/k", "x:root/list/", "x:rooted", "x:rooted/leaf"})
            QTest::newRow(path) << QByteArray(path);
    }

    void aPathThatLeavesTheDocumentFailsForEveryKindOfRequest()
    {
        QFETCH(QByteArray, path);
        NodesFixture f;
        const Hash document{{"leaf", "text"}, {"list", List{1}}};
        const CMVariantNode* node = nodeWith(f, document);
        f.spy.watchValue(f.worker.get(), P("x:root"));
        f.spy.watchRows(f.worker.get(), P("x:root"));
        const QByteArray asked = path + "?p=1";
        const QList<CMVoidReply> replies{f.worker->getData(P(asked), {"path"}),
                                         f.worker->getRows(P(asked), 0, 1, -1, {"path"}), write(f, asked, 1)};
        for (const CMVoidReply& reply : replies) {
            QVERIFY(reply.isFinished());
            QCOMPARE(reply.error().name(), CMAbstractWorker::ErrorInvalidPath());
            QCOMPARE(reply.error().message(), missing(path));
        }
        QCOMPARE(node->value(), QVariant(document));
        QCOMPARE(f.delivered(), QStringList());
    }

    void aWriteMakesTheHashesOnItsWay()
    {
        NodesFixture f;
        const CMVariantNode* node = CMVariantNode::create(f.nodes(), P("x:root"));
        for (const char* path : {"x:root", "x:root/a", "x:root/a/b"}) {
            f.spy.watchValue(f.worker.get(), P(path));
            f.spy.watchRows(f.worker.get(), P(path));
            f.spy.watchData(f.worker.get(), P(path));
        }
        QCOMPARE(write(f, "x:root/a/b?p=1", "v").value(), QVariant(true));
        QCOMPARE(node->value(), QVariant(Hash{{"a", Hash{{"b", "v"}}}}));
        // From the leaf up; a container's report carries its child's value.
        QCOMPARE(f.delivered(), (QStringList{"value x:root/a/b v", "value x:root/a v", "rows x:root/a [] 0>0",
                                             "value x:root ", "rows x:root [] 0>0"}));
        QCOMPARE(f.datum(P("x:root/a/b"), "value"), OrvoValue().setString_("v").__variant());
    }

    void aContainersReportCarriesTheChildOfThatLevel()
    {
        NodesFixture f;
        nodeWith(f, Hash{{"a", Hash{{"b", 1}}}});
        ValueReceiver receiver;
        f.worker->connectValueChange(P("x:root"), &receiver, SLOT(hear(CMPath,QVariant)), Qt::DirectConnection);
        write(f, "x:root/a/b", 2);
        f.hub()->deliver();
        QCOMPARE(receiver.heard, List{QVariant(Hash{{"b", 2}})});
    }

    void aNumberAsKeyMakesAListThatGrowsToFit()
    {
        NodesFixture f;
        CMVariantNode* node = nodeWith(f, Hash{{"items", List()}});
        QCOMPARE(write(f, "x:root/items/3", "d").value(), QVariant(true));
        QCOMPARE(node->value().toHash().value("items"), QVariant(List{QVariant(), QVariant(), QVariant(), "d"}));
        node->setValue(QVariant());
        QCOMPARE(write(f, "x:root/1/k", 5).value(), QVariant(true));
        QCOMPARE(node->value(), QVariant(List{QVariant(), Hash{{"k", 5}}}));
        // In a hash a number is a key like any other.
        QCOMPARE(write(f, "x:root/1/7", 6).value(), QVariant(true));
        QCOMPARE(node->value(), QVariant(List{QVariant(), Hash{{"k", 5}, {"7", 6}}}));
        // Nothing is where a number cannot be an index, save for the container that is to be.
        node->setValue(QVariant());
        QCOMPARE(write(f, "x:root/-1", 5).error().message(), missing("x:root/-1"));
        QVERIFY(!node->value().isValid());
    }

    void theRootCanBeWritten()
    {
        NodesFixture f;
        const CMVariantNode* node = nodeWith(f, 1);
        f.spy.watchValue(f.worker.get(), P("x:root"));
        f.spy.watchRows(f.worker.get(), P("x:root"));
        QCOMPARE(write(f, "x:root", 2).value(), QVariant(true));
        QCOMPARE(node->value(), QVariant(2));
        QCOMPARE(f.delivered(), QStringList("value x:root 2"));
    }

    void writingAnEqualValueReportsNothingAndAnswersTrue_data()
    {
        QTest::addColumn<QVariant>("present");
        QTest::addColumn<QVariant>("written");
        QTest::addColumn<bool>("equal");
        const auto row = [](const char* name, const QVariant& present, const QVariant& written, bool equal) {
            QTest::newRow(name) << present << written << equal;
        };
        row("text", "a", "a", true);
        row("number", 1, 1, true);
        row("number as JSON has it", 1, 1LL, true);
        row("nothing", QVariant(), QVariant(), true);
        row("hash", Hash{{"k", List{1, "a"}}}, Hash{{"k", List{1LL, "a"}}}, true);
        row("another text", "a", "b", false);
        row("text for a number", 1, "1", false);
        row("number for a text", "1", 1, false);
        row("number for a truth", true, 1, false);
        row("nothing for an empty text", "", QVariant(), false);
        row("an empty text for nothing", QVariant(), "", false);
        row("zero for nothing", QVariant(), 0, false);
        row("text deep in a hash", Hash{{"k", List{1, "a"}}}, Hash{{"k", List{"1", "a"}}}, false);
        row("another key", Hash{{"k", 1}}, Hash{{"l", 1}}, false);
        row("one key more", Hash{{"k", 1}}, Hash{{"k", 1}, {"l", 1}}, false);
        row("a shorter list", List{1, 2}, List{1}, false);
    }

    void writingAnEqualValueReportsNothingAndAnswersTrue()
    {
        QFETCH(QVariant, present);
        QFETCH(QVariant, written);
        QFETCH(bool, equal);
        NodesFixture f;
        CMVariantNode* node = nodeWith(f, Hash{{"k", present}, {"other", 1}});
        f.spy.watchRows(f.worker.get(), P("x:root"));
        QCOMPARE(write(f, "x:root/k", written).value(), QVariant(true));
        QCOMPARE(f.delivered(), equal ? QStringList() : QStringList("rows x:root [] 0>0"));
        const QVariant stored = node->value().toHash().value("k");
        QCOMPARE(stored.userType(), equal ? present.userType() : written.userType());
        QCOMPARE(stored, equal ? present : written);

        // The same holds for the service's own setter.
        node->setValue(present);
        f.delivered();
        node->setValue(written);
        QCOMPARE(f.delivered(), equal ? QStringList() : QStringList("rows x:root [] 0>0"));
    }

    void aWriteToAReadOnlyNodeOrOfAnotherRoleIsFalse()
    {
        NodesFixture f;
        CMVariantNode* node = nodeWith(f, Hash{{"k", 1}});
        const auto refused = [&](const char* path, const QString& role) {
            const auto reply = f.worker->setData(P(path), role, 2);
            return !reply.error().isError() && reply.value() == QVariant(false);
        };
        for (const QString& role : {OrvoRoles::Title(), OrvoRoles::Activate(), OrvoRoles::ValueOperation()})
            QVERIFY(refused("x:root/k", role));
        node->setReadOnly(true);
        f.spy.watchRows(f.worker.get(), P("x:root"));
        QVERIFY(refused("x:root/k", OrvoRoles::Value()));
        QVERIFY(refused("x:root/k/leaves/the/document", OrvoRoles::Value()));
        QCOMPARE(node->value(), QVariant(Hash{{"k", 1}}));
        QCOMPARE(f.delivered(), QStringList());
        QCOMPARE(f.datum(P("x:root/k"), "modifiable"), QVariant(false));
    }

    void theServiceWritesAtASubPathByTheRulesOfAClient()
    {
        NodesFixture f;
        CMVariantNode* node = CMVariantNode::create(f.nodes(), P("x:root"));
        f.spy.watchRows(f.worker.get(), P("x:root"));
        node->setValueAt("a/1", "v");
        QCOMPARE(node->value(), QVariant(Hash{{"a", List{QVariant(), "v"}}}));
        QCOMPARE(f.delivered(), QStringList("rows x:root [] 0>0"));
        node->setValueAt("a/1/k", "w");
        node->setReadOnly(true);
        f.delivered();
        node->setValueAt("a/1", "w");
        QCOMPARE(node->value(), QVariant(Hash{{"a", List{QVariant(), "v"}}}));
        QCOMPARE(f.delivered(), QStringList());
    }

    void settersCompareFirst()
    {
        NodesFixture f;
        CMVariantNode* node = nodeWith(f, Hash{{"a", Hash{{"b", 1}}}});
        for (const char* path : {"x:root", "x:root/a", "x:root/a/b?p=1", "x:other"}) {
            f.spy.watchValue(f.worker.get(), P(path));
            f.spy.watchData(f.worker.get(), P(path));
            f.spy.watchRows(f.worker.get(), P(path));
        }
        node->setTitle("T");
        QCOMPARE(f.delivered(), QStringList("data x:root"));
        node->setTitle("T");
        node->setReadOnly(false);
        node->setValue(Hash{{"a", Hash{{"b", 1}}}});
        QCOMPARE(f.delivered(), QStringList());

        const QStringList all{"data x:root",        "data x:root/a",        "data x:root/a/b?p=1",
                              "rows x:root [] 0>0", "rows x:root/a [] 0>0", "rows x:root/a/b?p=1 [] 0>0"};
        node->setReadOnly(true);
        QVERIFY(node->readOnly());
        QCOMPARE(f.delivered(), all);
        node->setValue("v");
        QCOMPARE(f.delivered(), all + QStringList("value x:root v"));
        node->nextVersion(CMPath());
        QCOMPARE(f.delivered(), all);
        node->nextVersion(P("x:root/a"));
        QCOMPARE(f.delivered(), (QStringList{all.at(1), all.at(2), all.at(4), all.at(5)}));
    }

    void aHashGivesARowForEachKey()
    {
        NodesFixture f;
        const Hash document{{"a", 1}, {"b", "t"}, {"c", List{1, 2}}};
        nodeWith(f, document);
        const OrvoRowsRoles answer = rows(f, "x:root", 0, 10, {"title", "path", "type", "value"});
        QCOMPARE(answer.rowsCount(), 3);
        QVERIFY(!answer.__contains(OrvoRowsRoles::RowsVersion()));
        QVERIFY(!answer.__contains(OrvoRowsRoles::Roles()));
        const Hash expected{
            {"a", List{"a", "x:root/a", "value", OrvoValue().setI32_(1).__variant()}},
            {"b", List{"b", "x:root/b", "value", OrvoValue().setString_("t").__variant()}},
            {"c", List{"c", "x:root/c", "container", QVariant()}},
        };
        const List given = answer.rows().toList();
        QCOMPARE(given.size(), 3);
        const QStringList keys = document.keys();
        for (int i = 0; i < 3; ++i)
            QCOMPARE(given.at(i), expected.value(keys.at(i)));
    }

    void rowsAreAWindow_data()
    {
        QTest::addColumn<int>("from");
        QTest::addColumn<int>("to");
        QTest::addColumn<List>("titles");
        QTest::newRow("all") << 0 << 3 << List{"0", "1", "2", "3"};
        QTest::newRow("first") << 0 << 0 << List{"0"};
        QTest::newRow("middle") << 1 << 2 << List{"1", "2"};
        QTest::newRow("end and beyond") << 3 << INT_MAX << List{"3"};
        QTest::newRow("beyond") << 4 << 9 << List();
        QTest::newRow("backwards") << 2 << 1 << List();
        QTest::newRow("up to a negative one") << 0 << -5 << List();
    }

    void rowsAreAWindow()
    {
        QFETCH(int, from);
        QFETCH(int, to);
        QFETCH(List, titles);
        NodesFixture f;
        nodeWith(f, List{"a", "b", QVariant(), "d"});
        // No version of these rows is checked.
        const auto reply = f.worker->getRows(P("x:root"), from, to, 77, {"title"});
        QVERIFY(!reply.error().isError());
        List given;
        for (const QVariant& row : reply.value().rows().toList())
            given.append(row.toList().value(0));
        QCOMPARE(given, titles);
        QCOMPARE(reply.value().rowsCount(), 4);
    }

    void aLeafHasNoRows()
    {
        NodesFixture f;
        nodeWith(f, Hash{{"leaf", "text"}});
        for (const char* path : {"x:root/leaf", "x:root/missing"}) {
            const auto reply = f.worker->getRows(P(path), 0, 5, -1, {"title"});
            QVERIFY(!reply.error().isError());
            QVERIFY(reply.value().__contains(OrvoRowsRoles::Rows()));
            QCOMPARE(reply.value().rows().toList(), List());
            QCOMPARE(reply.value().rowsCount(), 0);
        }
    }

    void aRowThatCannotBeReadEndsTheAnswerOrFailsItAtItsHead()
    {
        // A key that holds the separator cannot be reached; behind the leaf "k" it leaves the document.
        NodesFixture f;
        Hash document;
        QString bad;
        for (int i = 0; document.keys().indexOf(bad) != 1; ++i) {
            const QString leaf = "k" + QString::number(i);
            bad = leaf + "/b";
            document = Hash{{leaf, 1}, {bad, 2}};
        }
        nodeWith(f, document);
        const OrvoRowsRoles answer = rows(f, "x:root", 0, 1, {"title"});
        QCOMPARE(answer.rows().toList().size(), 1);
        QCOMPARE(answer.rowsCount(), 2);
        const auto reply = f.worker->getRows(P("x:root"), 1, 1, -1, {"title"});
        QCOMPARE(reply.error().message(), missing(("x:root/" + bad).toUtf8()));
    }

    void searchingARowIsLeftToTheWorker()
    {
        NodesFixture f;
        CMVariantNode* node = nodeWith(f, List{"a", "b"});
        auto* data = new CMMatchRowRequest::Data;
        data->path = P("x:root");
        const CMMatchRowRequest request(data);
        QVERIFY(!node->request(request));
        QVERIFY(!request.reply().isFinished());
        QCOMPARE(f.worker->matchRow(P("x:root"), 0, "title", "1", 0, -1).value(), 1);
    }

    void aRequestOfAnUnknownKindIsAnInternalError()
    {
        class Data : public CMRequest::Data
        {
        public:
            CMVoidReply reply() const override { return m_reply; }
            CMReply<int> m_reply;
        };
        NodesFixture f;
        CMVariantNode* node = nodeWith(f, Hash{{"a", 1}});
        for (const char* path : {"x:root", "x:root/a"}) {
            auto* data = new Data;
            data->path = P(path);
            const CMRequest request(data);
            QVERIFY(node->request(request));
            QCOMPARE(request.reply().error().name(), CMAbstractWorker::ErrorInternal());
            QCOMPARE(request.reply().error().message(), QString("Unknown request subclass"));
        }
        QCOMPARE(node->value(), QVariant(Hash{{"a", 1}}));
    }

    void aCancelledWriteStoresNothing()
    {
        NodesFixture f;
        const CMVariantNode* node = nodeWith(f, Hash{{"a", 1}});
        const CMReply<QVariant> reply;
        reply.cancel();
        f.worker->setData(P("x:root/a"), OrvoRoles::Value(), 2, reply);
        QCOMPARE(node->value(), QVariant(Hash{{"a", 1}}));
    }

    void aPathOfAbsurdDepthIsRefused()
    {
        NodesFixture f;
        CMVariantNode* node = CMVariantNode::create(f.nodes(), P("x:root"));
        const auto below = [](int levels) {
            return CMPath::fromPrefixWithBase("x:root" + QString("/a").repeated(levels));
        };
        for (const int levels : {1001, 1000000}) {
            QCOMPARE(f.worker->getData(below(levels), {"title"}).error().name(), CMAbstractWorker::ErrorInvalidPath());
            QCOMPARE(f.worker->setData(below(levels), "value", 1).error().name(), CMAbstractWorker::ErrorInvalidPath());
        }
        QVERIFY(!node->value().isValid());
        QCOMPARE(f.worker->setData(below(1000), "value", 1).value(), QVariant(true));
        QCOMPARE(f.datum(below(1000), "value"), OrvoValue().setI32_(1).__variant());
    }

    void subscribersBelowAreToldWhenTheNodeLeaves()
    {
        NodesFixture f;
        CMVariantNode* node = nodeWith(f, Hash{{"a", Hash()}});
        f.spy.watchRows(f.worker.get(), P("x:root/a"));
        node->deleteLater();
        QCOMPARE(f.delivered(), QStringList("rows x:root/a [close] 0>0"));
        QCOMPARE(f.worker->getData(P("x:root/a"), {"title"}).error().name(), CMAbstractWorker::ErrorInvalidPath());
    }

    void theNodeMayLeaveWithinAnAnswer()
    {
        NodesFixture f;
        CMVariantNode* node = nodeWith(f, Hash{{"a", 1}});
        const CMReply<QVariant> reply;
        reply.onFinished([node](const CMReply<QVariant>&) { node->deleteLater(); });
        f.worker->setData(P("x:root/a"), OrvoRoles::Value(), 2, reply);
        QCOMPARE(reply.value(), QVariant(true));
        QVERIFY(!f.nodes()->isNodeAtPath(P("x:root")));
    }

    void writesOfSeveralThreadsAllArrive()
    {
        NodesFixture f;
        CMVariantNode* node = nodeWith(f, Hash());
        constexpr int threads = 4;
        constexpr int writes = 200;
        std::atomic<bool> done{false};
        std::atomic<int> failures{0};
        std::vector<std::unique_ptr<QThread>> writers;
        for (int t = 0; t < threads; ++t) {
            writers.emplace_back(QThread::create([&, t] {
                for (int i = 0; i < writes; ++i)
                    if (write(f, QString("x:root/t%1/%2").arg(t).arg(i).toUtf8(), i).value() != QVariant(true))
                        ++failures;
            }));
        }
        const std::unique_ptr<QThread> reader(QThread::create([&] {
            // A thread's list has no hole at any time: its writes go in order.
            while (!done) {
                const OrvoRowsRoles answer = rows(f, "x:root/t0", 0, writes, {"value"});
                const List given = answer.rows().toList();
                for (int i = 0; i < given.size(); ++i)
                    if (OrvoValue(given.at(i).toList().value(0)).i32_() != i)
                        ++failures;
                node->setTitle(QString::number(given.size()));
            }
        }));
        reader->start();
        for (const auto& writer : writers)
            writer->start();
        for (const auto& writer : writers)
            writer->wait();
        done = true;
        reader->wait();
        QCOMPARE(failures.load(), 0);
        List all;
        for (int i = 0; i < writes; ++i)
            all.append(i);
        const Hash document = node->value().toHash();
        QCOMPARE(document.size(), threads);
        for (const QVariant& list : document)
            QCOMPARE(list.toList(), all);
    }

    void aBreachOfTheRulesStopsTheProcess_data()
    {
        QTest::addColumn<QString>("what");
        QTest::addColumn<QByteArray>("assertion");
        QTest::newRow("a path elsewhere") << "path" << QByteArray("request.path().startsWith(path())");
        QTest::newRow("a negative row") << "row" << QByteArray("index out of range");
    }

    void aBreachOfTheRulesStopsTheProcess()
    {
        QFETCH(QString, what);
        QFETCH(QByteArray, assertion);
        const ChildEnd end = runThisProgram({"--breach", what});
        QVERIFY(end.stopped);
        QVERIFY2(end.errors.contains(assertion), end.errors.constData());
    }
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.value(1) == QLatin1String("--breach")) {
        leaveNoCore();
        const NodesFixture f;
        CMVariantNode* node = nodeWith(f, List{1, 2});
        if (arguments.value(2) == QLatin1String("row")) {
            rows(f, "x:root", -1, 1, {"title"});
            return 0;
        }
        auto* data = new CMGetDataRequest::Data;
        data->path = P("x:elsewhere");
        node->request(CMGetDataRequest(data));
        return 0;
    }
    tst_CMVariantNode test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_cmvariantnode.moc"
