#include "orvorowsmodel.h"

#include "core/model/cmnodes.h"
#include "core/model/cmnodesworker.h"
#include "core/model/cmroles.h"
#include "core/model/cmrowsbrowser.h"
#include "core/model/cmsubscribe.h"
#include "support/scriptedrows.h"

#include <QAbstractItemModelTester>
#include <QItemSelectionModel>
#include <QPersistentModelIndex>
#include <QSignalSpy>

#include <functional>

namespace {

/// A real list in this process, and a model on it.
class Fixture
{
public:
    explicit Fixture(int rows = 0, int radius = 5) : worker({}, "model"), alive(new OrvoRowsModel(nullptr, radius))
    {
        path = CMPath::fromEncoded("model:list");
        list = CMListRowsNode::create(worker.nodes(), path);
        for (int row = 0; row < rows; ++row)
            list->rowsAppend(named("r" + QString::number(row)));
        alive->setWorker(&worker);
        alive->setPath(path);
    }
    ~Fixture() { delete alive; }

    static OrvoRoles named(const QString& name) { return OrvoRoles().setId(name).setTitle("Row " + name); }
    OrvoRowsModel& model() const { return *alive; }
    QString id(int row) const { return data(row, OrvoRoles::Id()).toString(); }
    QVariant data(int row, const QString& key) const { return model().data(model().index(row), model().roleOf(key)); }
    bool isLoaded() const { return !model().isLoading() && !model().browser()->item(0).isEmpty(); }
    /// The changes of the list so far have reached the model.
    void deliver()
    {
        worker.subscribe()->deliver();
        QCoreApplication::processEvents();
    }

    CMNodesWorker worker;
    CMPath path;
    CMListRowsNode* list;
    const QPointer<OrvoRowsModel> alive;
};

/// Answers rows requests at once with rows whose ids are their numbers, of a list that cannot tell its size.
void serveOpenList(ScriptedWorker* worker, int rows)
{
    worker->onRequest = [rows](const CMRequest& request) {
        const auto asked = request_cast<CMGetRowsRequest>(request);
        QVariantList values;
        for (int row = asked.fromRow(); row <= asked.toRow() && row < rows; ++row)
            values.append(QVariant(rowValues(QString::number(row))));
        asked.reply().setValue(
            OrvoRowsRoles().setRows(values).setRowsVersion(1).setRoles(OrvoRoles().setUnknownSize(true)));
    };
}

} // namespace

Q_DECLARE_METATYPE(std::function<void(OrvoRowsModel*, std::function<void()>)>)

class tst_OrvoRowsModel : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { orvoRegisterMetaTypes(); }

    void rolesAreNamedByTheirKeys()
    {
        const OrvoRowsModel model;
        const QHash<int, QByteArray> names = model.roleNames();
        for (const QString& key : CMAllRoles())
            QCOMPARE(names.value(model.roleOf(key)), key.toLatin1());
        QVERIFY(names.values().contains("title"));
        QVERIFY(names.values().contains("icon"));
        QCOMPARE(names.value(Qt::DisplayRole), QByteArray("display"));
        QCOMPARE(QSet<QByteArray>(names.cbegin(), names.cend()).size(), names.size());
        QCOMPARE(model.roleOf("nothing"), -1);
    }

    void rowsComeWithTheirRoles()
    {
        Fixture f;
        f.list->rowsAppend(Fixture::named("a").setIcon("note"));
        f.list->rowsAppend(Fixture::named("b").setDisabled(true));
        QTRY_COMPARE(f.model().count(), 2);
        QCOMPARE(f.data(0, OrvoRoles::Icon()), QVariant("note"));
        QCOMPARE(f.data(1, OrvoRoles::Disabled()), QVariant(true));
        QCOMPARE(f.data(1, OrvoRoles::Icon()), QVariant());
        QCOMPARE(f.model().data(f.model().index(1)), QVariant("Row b"));
        QCOMPARE(f.model().data(f.model().index(1), Qt::DecorationRole), QVariant());
        QCOMPARE(f.model().data(f.model().index(2)), QVariant());
        QCOMPARE(f.model().rowCount(f.model().index(0)), 0);
    }

    void aRowThatIsNotLoadedIsEmptyAndComesOnceItIsRead()
    {
        Fixture f(1000);
        QTRY_COMPARE(f.model().count(), 1000);
        QTRY_VERIFY(f.isLoaded());
        QSignalSpy changed(&f.model(), &OrvoRowsModel::dataChanged);
        QCOMPARE(f.data(500, OrvoRoles::Id()), QVariant());
        QTRY_COMPARE(changed.count(), 1);
        QCOMPARE(changed.at(0).at(0).value<QModelIndex>().row(), 495);
        QCOMPARE(changed.at(0).at(1).value<QModelIndex>().row(), 505);
        for (int row = 495; row <= 505; ++row)
            QCOMPARE(f.id(row), QString("r%1").arg(row));
        QCOMPARE(f.data(494, OrvoRoles::Id()), QVariant());
    }

    void rowsReadInOneTurnAreFetchedAroundTheirMiddle()
    {
        Fixture f(1000);
        QTRY_VERIFY(f.isLoaded());
        for (const int row : {304, 300, 307})
            f.id(row);
        QTRY_COMPARE(f.model().browser()->currentRow(), 303);
    }

    void whenMoreIsReadThanCanBeLoadedTheLastRowsCount()
    {
        Fixture f(1000);
        QTRY_VERIFY(f.isLoaded());
        for (int row = 0; row < 1000; ++row)
            f.id(row);
        QTRY_COMPARE(f.model().browser()->currentRow(), 994);
        QTRY_COMPARE(f.model().browser()->item(999).id(), QString("r999"));
        for (int row = 999; row >= 0; --row)
            f.id(row);
        QTRY_COMPARE(f.model().browser()->currentRow(), 5);
    }

    void readingAmongTheRowsInTheMiddleOfTheWindowMovesNothing()
    {
        Fixture f(1000, 10);
        QTRY_VERIFY(f.isLoaded());
        f.id(500);
        QTRY_COMPARE(f.model().browser()->currentRow(), 500);
        QTRY_COMPARE(f.id(510), QString("r510"));
        QTRY_COMPARE(f.model().browser()->currentRow(), 510);
        f.id(505);
        f.id(515);
        QCoreApplication::processEvents();
        QCOMPARE(f.model().browser()->currentRow(), 510);
        f.id(516);
        QCoreApplication::processEvents();
        QCOMPARE(f.model().browser()->currentRow(), 516);
    }

    void rowsThatAreInViewShowTheirChanges()
    {
        Fixture f(100);
        QTRY_VERIFY(f.isLoaded());
        QSignalSpy changed(&f.model(), &OrvoRowsModel::dataChanged);
        f.list->rowsSet(2, Fixture::named("new"));
        f.deliver();
        QTRY_COMPARE(changed.count(), 1);
        QCOMPARE(changed.at(0).at(0).value<QModelIndex>().row(), 2);
        QCOMPARE(f.id(2), QString("new"));
    }

    void rowsThatTheWindowLeavesAreNotAnnounced()
    {
        Fixture f(1000);
        QTRY_VERIFY(f.isLoaded());
        QSignalSpy changed(&f.model(), &OrvoRowsModel::dataChanged);
        f.id(900);
        QTRY_COMPARE(f.id(900), QString("r900"));
        for (const auto& signal : qAsConst(changed))
            QVERIFY(signal.at(0).value<QModelIndex>().row() > 800);
        QCOMPARE(f.id(0), QString());
        QTRY_COMPARE(f.id(0), QString("r0"));
    }

    void insertsRemovalsAndMovesAreToldWithTheirRows()
    {
        Fixture f(20);
        const QAbstractItemModelTester tester(&f.model(), QAbstractItemModelTester::FailureReportingMode::Fatal);
        QTRY_COMPARE(f.model().count(), 20);
        QStringList told;
        connect(&f.model(), &OrvoRowsModel::rowsInserted, this,
                [&](const QModelIndex&, int from, int to) { told << QString("+%1..%2").arg(from).arg(to); });
        connect(&f.model(), &OrvoRowsModel::rowsRemoved, this,
                [&](const QModelIndex&, int from, int to) { told << QString("-%1..%2").arg(from).arg(to); });
        connect(&f.model(), &OrvoRowsModel::rowsMoved, this,
                [&](const QModelIndex&, int from, int, const QModelIndex&, int to) {
                    told << QString("%1->%2").arg(from).arg(to);
                });
        f.list->rowsInsert(3, Fixture::named("new"));
        f.list->rowsRemoveAt(10);
        f.list->rowsMove(2, 8);
        f.list->rowsMove(9, 1);
        f.deliver();
        QCOMPARE(told, QStringList({"+3..3", "-10..10", "2->9", "9->1"}));
        QCOMPARE(f.model().count(), 20);
    }

    void selectionFollowsItsRow()
    {
        Fixture f(100);
        QTRY_VERIFY(f.isLoaded());
        QItemSelectionModel selection(&f.model());
        selection.select(f.model().index(4), QItemSelectionModel::Select);
        selection.setCurrentIndex(f.model().index(50), QItemSelectionModel::NoUpdate);
        const QPersistentModelIndex kept(f.model().index(99));
        const auto selected = [&] { return selection.selectedIndexes().value(0).row(); };

        f.list->rowsInsert(0, Fixture::named("new"));
        f.deliver();
        QCOMPARE(selected(), 5);
        QCOMPARE(f.id(selected()), QString("r4"));
        QCOMPARE(selection.currentIndex().row(), 51);
        QCOMPARE(kept.row(), 100);

        f.list->rowsMove(5, 60);
        f.deliver();
        QCOMPARE(selected(), 60);
        QCOMPARE(selection.currentIndex().row(), 50);

        f.list->rowsMove(60, 2);
        f.list->rowsRemoveAt(0);
        f.list->rowsRemoveAt(90);
        f.deliver();
        QCOMPARE(selected(), 1);
        QTRY_COMPARE(f.id(1), QString("r4"));
        QCOMPARE(kept.row(), 98);

        f.list->rowsRemoveAt(1);
        f.deliver();
        QVERIFY(!selection.hasSelection());
        f.list->rowsClear();
        QTRY_COMPARE(f.model().count(), 0);
        QVERIFY(!kept.isValid());
    }

    void viewsThatReadWhileRowsAreAnnouncedSeeTheRowsOfTheirNumbers()
    {
        Fixture f(11);
        QTRY_COMPARE(f.id(10), QString("r10"));
        const auto ids = [&] {
            QStringList ids;
            for (int row = 0; row < f.model().count(); ++row)
                ids << f.id(row);
            return ids;
        };
        const QStringList before = ids();
        QStringList seen;
        for (const auto signal : {&OrvoRowsModel::rowsAboutToBeInserted, &OrvoRowsModel::rowsAboutToBeRemoved})
            connect(&f.model(), signal, this, [&] { seen = ids(); });
        connect(&f.model(), &OrvoRowsModel::rowsAboutToBeMoved, this, [&] { seen = ids(); });

        f.list->rowsInsert(4, Fixture::named("new"));
        f.deliver();
        QCOMPARE(seen, before);
        f.list->rowsRemoveAt(4);
        f.deliver();
        QStringList without = before;
        without.insert(4, QString());
        QCOMPARE(seen, without);
        f.list->rowsMove(1, 7);
        f.deliver();
        QCOMPARE(seen, before);
        const QStringList moved = ids();
        f.list->rowsMove(7, 1);
        f.deliver();
        QCOMPARE(seen, moved);
        QCOMPARE(ids(), before);
    }

    void propertiesFollowTheList()
    {
        Fixture f(3);
        OrvoRowsModel& model = f.model();
        QSignalSpy loading(&model, &OrvoRowsModel::loadingChanged);
        QSignalSpy count(&model, &OrvoRowsModel::countChanged);
        QSignalSpy path(&model, &OrvoRowsModel::pathChanged);
        QCOMPARE(model.property("loading"), QVariant(true));
        QCOMPARE(model.property("path"), QVariant("model:list"));
        int countWhenLoaded = -1;
        connect(&model, &OrvoRowsModel::loadingChanged, this, [&] { countWhenLoaded = model.count(); });
        QTRY_COMPARE(loading.count(), 1);
        QCOMPARE(countWhenLoaded, 3);
        QCOMPARE(model.property("loading"), QVariant(false));
        QCOMPARE(model.property("count"), QVariant(3));
        QCOMPARE(count.count(), 1);

        QSignalSpy reset(&model, &OrvoRowsModel::modelReset);
        QVERIFY(model.setProperty("path", "model:other"));
        QCOMPARE(path.count(), 1);
        QCOMPARE(reset.count(), 1);
        QCOMPARE(model.count(), 0);
        QCOMPARE(model.property("loading"), QVariant(true));

        QVERIFY(model.property("error").toMap().isEmpty());
        QSignalSpy error(&model, &OrvoRowsModel::errorChanged);
        QTRY_COMPARE(error.count(), 1);
        QVERIFY(!model.property("error").toMap().value("name").toString().isEmpty());
        QCOMPARE(model.property("error").toMap().value("name").toString(), model.error().name());

        model.setPath(f.path);
        QTRY_COMPARE(model.count(), 3);
        QCOMPARE(error.count(), 2);
        QVERIFY(model.property("error").toMap().isEmpty());
    }

    void aListThatIsLoadedAnewIsAReset()
    {
        Fixture f(3);
        QTRY_COMPARE(f.model().count(), 3);
        QSignalSpy reset(&f.model(), &OrvoRowsModel::modelReset);
        f.list->rowsClear();
        f.list->rowsAppend(Fixture::named("only"));
        f.deliver();
        QCOMPARE(reset.count(), 1);
        QTRY_COMPARE(f.model().count(), 1);
        QCOMPARE(f.id(0), QString("only"));
        QVERIFY(!f.model().isLoading());
    }

    void theRowThatTakesNewRowsIsTheLast()
    {
        Fixture f(2);
        f.list->setAccept(OrvoRoles().setTitle("New"));
        QTRY_COMPARE(f.model().count(), 3);
        QCOMPARE(f.data(2, OrvoRoles::Title()), QVariant("New"));
        f.list->rowsAppend(Fixture::named("more"));
        f.deliver();
        QCOMPARE(f.model().count(), 4);
        QTRY_COMPARE(f.id(2), QString("more"));
        QCOMPARE(f.data(3, OrvoRoles::Title()), QVariant("New"));
    }

    void anOpenListGrowsAsTheViewGoesDown()
    {
        ScriptedWorker worker;
        serveOpenList(&worker, 1000);
        OrvoRowsModel model(nullptr, 10);
        model.setWorker(&worker);
        model.setPath(CMPath::fromEncoded("p:open"));
        const auto read = [&](int row) { return model.data(model.index(row), model.roleOf(OrvoRoles::Id())); };
        QTRY_COMPARE(read(4), QVariant("4"));
        QCoreApplication::processEvents();
        // As long as the view stays near the beginning, so does the end.
        QCOMPARE(model.count(), 10);
        for (int first = 0; first < 100; ++first) {
            // A view of ten rows that is scrolled by one of them.
            QTRY_VERIFY(model.count() >= first + 10);
            for (int row = first; row < first + 10; ++row)
                QTRY_COMPARE(read(row), QVariant(QString::number(row)));
        }
        QVERIFY(model.count() < 130);
    }

    void aListThatClosesTells()
    {
        Fixture f(1);
        QTRY_COMPARE(f.model().count(), 1);
        QSignalSpy closed(&f.model(), &OrvoRowsModel::closed);
        f.list->nextRowsVersion(CMSubscribe::RowsChangeClose());
        f.deliver();
        QCOMPARE(closed.count(), 1);
    }

    void itMayBeDestroyedInsideItsSignals_data()
    {
        using Connect = std::function<void(OrvoRowsModel*, std::function<void()>)>;
        QTest::addColumn<Connect>("connectTo");
        const auto row = [](const char* name, auto signal) {
            QTest::newRow(name) << Connect([signal](OrvoRowsModel* model, const std::function<void()>& function) {
                connect(model, signal, [function] { function(); });
            });
        };
        row("path", &OrvoRowsModel::pathChanged);
        row("count", &OrvoRowsModel::countChanged);
        row("loading", &OrvoRowsModel::loadingChanged);
        row("error", &OrvoRowsModel::errorChanged);
        row("closed", &OrvoRowsModel::closed);
        row("data", &OrvoRowsModel::dataChanged);
        row("inserted", &OrvoRowsModel::rowsInserted);
        row("removed", &OrvoRowsModel::rowsRemoved);
        row("moved", &OrvoRowsModel::rowsMoved);
        row("reset", &OrvoRowsModel::modelReset);
    }
    void itMayBeDestroyedInsideItsSignals()
    {
        QFETCH(std::function<void(OrvoRowsModel*, std::function<void()>)>, connectTo);
        Fixture f(200);
        QTRY_VERIFY(f.isLoaded());
        connectTo(f.alive, [&f] { delete f.alive; });
        f.list->rowsSet(0, Fixture::named("new"));
        f.list->rowsMove(0, 2);
        f.list->rowsInsert(2, Fixture::named("newer"));
        f.list->rowsRemoveAt(1);
        f.deliver();
        QTRY_VERIFY(!f.alive || f.model().browser()->item(0).id() == "r1");
        if (f.alive)
            f.list->nextRowsVersion(CMSubscribe::RowsChangeClose());
        f.deliver();
        if (f.alive)
            f.model().setPath("model:nothing");
        QTRY_VERIFY(!f.alive);
    }

    void anotherPathMayBeSetInsideItsSignals()
    {
        Fixture f(50);
        CMListRowsNode* other = CMListRowsNode::create(f.worker.nodes(), CMPath::fromEncoded("model:other"));
        other->rowsAppend(Fixture::named("other"));
        const QAbstractItemModelTester tester(&f.model(), QAbstractItemModelTester::FailureReportingMode::Fatal);
        QTRY_COMPARE(f.model().count(), 50);
        QTRY_VERIFY(f.model().browser()->item(f.model().browser()->currentRow()).id() != QString());
        connect(&f.model(), &OrvoRowsModel::rowsRemoved, this, [&] { f.model().setPath("model:other"); });
        f.list->rowsRemoveAt(3);
        f.list->rowsInsert(1, Fixture::named("x"));
        f.deliver();
        QTRY_COMPARE(f.model().count(), 1);
        QTRY_COMPARE(f.id(0), QString("other"));
    }
};

QTEST_GUILESS_MAIN(tst_OrvoRowsModel)
#include "tst_orvorowsmodel.moc"
