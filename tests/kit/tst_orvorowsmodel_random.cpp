#include "orvorowsmodel.h"

#include "cmremoteworker.h"
#include "core/model/cmmetatypes.h"
#include "core/model/cmnodes.h"
#include "core/model/cmnodesworker.h"
#include "core/model/cmroles.h"
#include "core/model/cmrowsbrowser.h"
#include "core/model/cmrpcclient.h"
#include "core/model/cmsubscribe.h"
#include "records/orvoconstants.h"
#include "support/linkfixture.h"
#include "support/randomrows.h"

#include <QAbstractItemModelTester>
#include <QPersistentModelIndex>
#include <QRandomGenerator>

namespace {

/// What differs between the list and what the model shows of it; empty when nothing does. Reads as a view does that
/// stays where the browser is.
QString difference(const OrvoRowsModel& model, const QList<OrvoRoles>& rows, int radius)
{
    if (model.isLoading())
        return QStringLiteral("loading");
    if (model.count() != rows.size() || model.rowCount() != rows.size())
        return QStringLiteral("%1 rows of %2").arg(model.count()).arg(rows.size());
    const int current = model.browser()->currentRow();
    const int idRole = model.roleOf(OrvoRoles::Id());
    for (int row = qMax(0, current - radius); row <= qMin(current + radius, rows.size() - 1); ++row) {
        const QString title = model.data(model.index(row)).toString();
        const QString id = model.data(model.index(row), idRole).toString();
        if (title != rows.at(row).title() || id != rows.at(row).id())
            return QStringLiteral("row %1 is \"%2\" \"%3\", shown \"%4\" \"%5\"")
                .arg(row)
                .arg(rows.at(row).id(), rows.at(row).title(), id, title);
    }
    return {};
}

/// Replays on a list of blanks what the model tells: a view's idea of how many rows there are and which of them moved.
class Follower : public QObject
{
public:
    explicit Follower(OrvoRowsModel* model)
    {
        connect(model, &OrvoRowsModel::rowsInserted, this, [=](const QModelIndex&, int from, int to) {
            for (int row = from; row <= to; ++row)
                numbers.insert(row, ++m_last);
            compare(model);
        });
        connect(model, &OrvoRowsModel::rowsRemoved, this, [=](const QModelIndex&, int from, int to) {
            numbers.erase(numbers.begin() + from, numbers.begin() + to + 1);
            compare(model);
        });
        connect(model, &OrvoRowsModel::rowsMoved, this,
                [=](const QModelIndex&, int from, int, const QModelIndex&, int to) {
                    numbers.move(from, to > from ? to - 1 : to);
                    compare(model);
                });
        connect(model, &OrvoRowsModel::modelReset, this, [=] {
            numbers.clear();
            ++resets;
            compare(model);
        });
    }

    QList<int> numbers;
    int resets = 0;
    int steps = 0;
    QString fault;

private:
    void compare(const OrvoRowsModel* model)
    {
        ++steps;
        if (fault.isEmpty() && numbers.size() != model->rowCount())
            fault = QStringLiteral("%1 rows told, %2 there").arg(numbers.size()).arg(model->rowCount());
    }

    int m_last = 0;
};

} // namespace

/// A real list gets random changes while views read the model; whenever it rests, both agree.
class tst_OrvoRowsModelRandom : public QObject
{
    Q_OBJECT

private:
    static constexpr int radius = 5;

    /// Reads a few rows, as a view that is scrolled.
    static void readSomewhere(QRandomGenerator* random, const OrvoRowsModel& model)
    {
        const int count = model.count();
        if (count == 0)
            return;
        const int first = random->bounded(count);
        for (int row = first; row < qMin(count, first + radius); ++row)
            model.data(model.index(row));
    }
    static QString differenceInQuiet(const OrvoRowsModel& model, const std::function<QList<OrvoRoles>()>& rows)
    {
        QElapsedTimer time;
        time.start();
        QString found;
        do {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
            found = difference(model, rows(), radius);
        } while (!found.isEmpty() && time.elapsed() < 20000);
        return found;
    }

private slots:
    void initTestCase() { orvoRegisterMetaTypes(); }

    void inQuietTheModelShowsTheList_data()
    {
        QTest::addColumn<quint32>("seed");
        QTest::addColumn<bool>("merge");
        QTest::addColumn<bool>("readsAll");
        // The tester reads all rows at each change, and so holds the window at the end. Without it the views decide.
        for (const quint32 seed : {9001u, 9002u, 9003u})
            for (const bool readsAll : {true, false})
                QTest::newRow(qPrintable(QString("seed %1%2").arg(seed).arg(readsAll ? ", tester" : "")))
                    << seed << (seed != 9001u) << readsAll;
    }
    void inQuietTheModelShowsTheList()
    {
        QFETCH(quint32, seed);
        QFETCH(bool, merge);
        QFETCH(bool, readsAll);
        CMNodesWorker worker({{OrvoWorkerArguments::MergeEvents(), merge}}, "random");
        const CMPath path = CMPath::fromEncoded("random:list");
        CMListRowsNode* list = CMListRowsNode::create(worker.nodes(), path);
        RandomRows script(list, seed);
        QRandomGenerator random(seed);
        OrvoRowsModel model(nullptr, radius);
        std::unique_ptr<QAbstractItemModelTester> tester;
        if (readsAll)
            tester.reset(new QAbstractItemModelTester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal));
        const Follower follower(&model);
        model.setWorker(&worker);
        model.setPath(path);

        for (int round = 0; round < 60; ++round) {
            for (int turn = int(random.bounded(8)); turn >= 0; --turn) {
                script.steps(int(random.bounded(20)));
                worker.subscribe()->deliver();
                readSomewhere(&random, model);
                QCoreApplication::processEvents();
            }
            worker.subscribe()->deliver();
            const QString found = differenceInQuiet(model, [list] {
                QList<OrvoRoles> rows;
                for (int row = 0; row < list->rowsSize(); ++row)
                    rows.append(list->getRowRoles(row));
                return rows;
            });
            QVERIFY2(found.isEmpty(), qPrintable(QString("round %1: %2").arg(round).arg(found)));
            QVERIFY2(follower.fault.isEmpty(), qPrintable(follower.fault));
        }
        qInfo("%d steps, %d resets", follower.steps, follower.resets);
        QVERIFY(follower.steps > 500);
    }

    void indexesFollowTheirRows_data()
    {
        QTest::addColumn<quint32>("seed");
        for (const quint32 seed : {9101u, 9102u})
            QTest::newRow(qPrintable(QString("seed %1").arg(seed))) << seed;
    }
    void indexesFollowTheirRows()
    {
        QFETCH(quint32, seed);
        CMNodesWorker worker({}, "random");
        const CMPath path = CMPath::fromEncoded("random:list");
        CMListRowsNode* list = CMListRowsNode::create(worker.nodes(), path);
        QStringList ids;
        int last = 0;
        const auto insert = [&](int row) {
            ids.insert(row, QString::number(++last));
            list->rowsInsert(row, OrvoRoles().setId(ids.at(row)));
        };
        for (int row = 0; row < 100; ++row)
            insert(row);
        QRandomGenerator random(seed);
        OrvoRowsModel model(nullptr, radius);
        const QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
        model.setWorker(&worker);
        model.setPath(path);
        QTRY_COMPARE(model.count(), 100);
        QHash<QString, QPersistentModelIndex> kept;
        for (int row = 0; row < 100; ++row)
            kept.insert(ids.at(row), model.index(row));

        for (int round = 0; round < 100; ++round) {
            for (int step = int(random.bounded(10)); step >= 0; --step) {
                const int row = int(random.bounded(quint32(ids.size())));
                const quint32 kind = random.bounded(3u);
                if (kind == 0 || ids.size() < 50) {
                    insert(row);
                } else if (kind == 1) {
                    list->rowsRemoveAt(row);
                    ids.removeAt(row);
                } else {
                    const int to = int(random.bounded(quint32(ids.size())));
                    list->rowsMove(row, to);
                    ids.move(row, to);
                }
            }
            worker.subscribe()->deliver();
            QCoreApplication::processEvents();
            QCOMPARE(model.count(), ids.size());
            for (auto it = kept.cbegin(); it != kept.cend(); ++it) {
                if (ids.contains(it.key()))
                    QCOMPARE(it.value().row(), ids.indexOf(it.key()));
                else
                    QVERIFY(!it.value().isValid());
            }
        }
    }

    void overTheLinkWithAServiceThatIsKilled_data()
    {
        QTest::addColumn<quint32>("seed");
        QTest::addColumn<bool>("readsAll");
        QTest::newRow("seed 9201, tester") << 9201u << true;
        QTest::newRow("seed 9202") << 9202u << false;
    }
    void overTheLinkWithAServiceThatIsKilled()
    {
        QFETCH(quint32, seed);
        QFETCH(bool, readsAll);
        const QString service = serviceName("modelrandom");
        ServerProcess server(service);
        QRandomGenerator random(seed);
        QVERIFY(server.start({"--random", QString::number(seed)}));
        CMRemoteWorker worker("viewer", service);
        const CMPath path = CMPath::fromPrefix(service) + "random";
        OrvoRowsModel model(nullptr, radius);
        std::unique_ptr<QAbstractItemModelTester> tester;
        if (readsAll)
            tester.reset(new QAbstractItemModelTester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal));
        const Follower follower(&model);
        model.setWorker(&worker);
        model.setPath(path);

        int kills = 0;
        for (int round = 0; round < 30; ++round) {
            CMReply<QVariant> last;
            last.setValue(QVariant());
            for (int turn = int(random.bounded(20)); turn >= 0; --turn) {
                last = worker.invoke(path + "/steps", QVariant(int(random.bounded(10))));
                readSomewhere(&random, model);
                QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
            }
            if (random.bounded(4u) == 0) {
                server.kill();
                QTRY_VERIFY(!worker.client()->isConnected());
                QVERIFY(server.start({"--random", QString::number(seed + quint32(round))}));
                QTRY_VERIFY(worker.client()->isConnected());
                ++kills;
            } else {
                QTRY_VERIFY(last.isFinished());
                QVERIFY2(!last.error().isError(), qPrintable(last.error().message()));
            }
            // The list as another reader sees it.
            CMReply<OrvoRowsRoles> reply = worker.getRows(path, 0, 9999, -1, {OrvoRoles::Id(), OrvoRoles::Title()});
            QTRY_VERIFY(reply.isFinished());
            QVERIFY2(!reply.error().isError(), qPrintable(reply.error().message()));
            QList<OrvoRoles> rows;
            const QVariantList values = reply.value().rows().toList();
            for (const QVariant& row : values) {
                OrvoRoles roles;
                roles.setId(row.toList().value(0).toString());
                roles.setTitle(row.toList().value(1).toString());
                rows.append(roles);
            }
            QCOMPARE(rows.size(), reply.value().rowsCount());
            const QString found = differenceInQuiet(model, [&rows] { return rows; });
            QVERIFY2(found.isEmpty(), qPrintable(QString("round %1: %2").arg(round).arg(found)));
            QVERIFY2(follower.fault.isEmpty(), qPrintable(follower.fault));
        }
        qInfo("%d steps, %d resets, %d kills", follower.steps, follower.resets, kills);
        QVERIFY(kills > 3);
    }
};

QTEST_GUILESS_MAIN(tst_OrvoRowsModelRandom)
#include "tst_orvorowsmodel_random.moc"
