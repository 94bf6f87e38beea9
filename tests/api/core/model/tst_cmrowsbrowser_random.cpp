#include "core/model/cmrowsbrowser.h"

#include "cmremoteworker.h"
#include "core/model/cmmetatypes.h"
#include "core/model/cmnodes.h"
#include "core/model/cmnodesworker.h"
#include "core/model/cmroles.h"
#include "core/model/cmroot.h"
#include "core/model/cmrpcclient.h"
#include "core/model/cmsubscribe.h"
#include "records/orvoconstants.h"
#include "support/linkfixture.h"

#include <QTimer>

#include <random>

namespace {

/// Reads rows when it is asked, and answers when the test says so: an answer may be older than what was told since.
class SlowAnswers : public CMNodesWorker
{
public:
    explicit SlowAnswers(bool merge) : CMNodesWorker({{OrvoWorkerArguments::MergeEvents(), merge}}, "random") {}

    void getRowsRequest(const CMGetRowsRequest& request) override
    {
        auto* data = new CMGetRowsRequest::Data;
        data->path = request.path();
        data->fromRow = request.fromRow();
        data->toRow = request.toRow();
        data->rowsVersion = request.rowsVersion();
        data->roles = request.roles();
        const CMGetRowsRequest read(data);
        CMNodesWorker::getRowsRequest(read);
        m_read.append({request, read});
    }
    void answer()
    {
        QList<QPair<CMGetRowsRequest, CMGetRowsRequest>> read;
        read.swap(m_read);
        for (const auto& [request, answer] : read) {
            const CMError error = answer.reply().error();
            if (error.isError())
                request.reply().setError(error);
            else
                request.reply().setValue(answer.reply().value());
        }
    }

private:
    QList<QPair<CMGetRowsRequest, CMGetRowsRequest>> m_read;
};

class Dice
{
public:
    explicit Dice(unsigned seed) : m_engine(seed) {}
    /// From 0 to below the number.
    int roll(int number) { return int(m_engine() % unsigned(number)); }

private:
    std::mt19937 m_engine;
};

/// Lets the time of the trigger pass.
void hurry(CMRowsBrowser* browser)
{
    auto* timer = browser->findChild<QTimer*>();
    if (!timer->isActive())
        return;
    timer->stop();
    QMetaObject::invokeMethod(browser, "triggerTimeout");
}

/// What differs between the list and what the browser shows of it; empty when nothing does.
QString difference(const CMRowsBrowser& browser, const QStringList& ids, int radius)
{
    if (browser.isLoading())
        return "loading";
    if (browser.size() != ids.size())
        return QString("%1 rows of %2").arg(browser.size()).arg(ids.size());
    const int current = browser.currentRow();
    if (current > qMax(0, ids.size() - 1))
        return QString("at row %1 of %2").arg(current).arg(ids.size());
    // Rows around the active range may be missing or stale, and are never wrong.
    for (int row = qMax(0, current - 4 * radius); row <= qMin(current + 4 * radius, ids.size() - 1); ++row) {
        const auto slot = browser.getIteratorForRow(row);
        const bool isActive = qAbs(row - current) <= radius;
        if (slot->isLoaded() ? slot->roles.id() != ids.at(row) : isActive)
            return QString("row %1 is \"%2\", shown \"%3\"").arg(row).arg(ids.at(row), browser.item(row).id());
    }
    return {};
}

/// Whether all rows of the window are those of the list before long, while the list rests.
QString differenceInQuiet(CMRowsBrowser* browser, const QStringList& ids, int radius, std::function<void()> turn)
{
    QElapsedTimer time;
    time.start();
    QString found;
    do {
        turn();
        hurry(browser);
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        found = difference(*browser, ids, radius);
    } while (!found.isEmpty() && time.elapsed() < 20000);
    return found;
}

} // namespace

/// A real list gets random changes while a browser moves about in it; whenever it rests, both agree.
class tst_CMRowsBrowserRandom : public QObject
{
    Q_OBJECT

private:
    int m_named = 0;
    QString name() { return QString("n%1").arg(++m_named); }

    /// One change, as the words of the link server's edit action; applied to the ids.
    QString change(Dice* dice, QStringList* ids)
    {
        const int size = ids->size();
        const int kind = dice->roll(100);
        const int row = size ? dice->roll(size) : 0;
        const int other = size ? dice->roll(size) : 0;
        if (kind == 0 && dice->roll(4) == 0) {
            ids->clear();
            return "clear";
        }
        if (size < 10 || kind < 35) {
            const int pos = dice->roll(size + 1);
            ids->insert(pos, name());
            return QString("insert %1 %2").arg(pos).arg(ids->at(pos));
        }
        if (kind < 60) {
            ids->removeAt(row);
            return QString("remove %1").arg(row);
        }
        if (kind < 85) {
            ids->move(row, other);
            return QString("move %1 %2").arg(row).arg(other);
        }
        (*ids)[row] = name();
        return QString("set %1 %2").arg(row).arg(ids->at(row));
    }
    static void apply(CMListRowsNode* node, const QString& change)
    {
        const QStringList words = change.split(' ');
        const int pos = words.value(1).toInt();
        if (words.first() == "insert")
            node->rowsInsert(pos, OrvoRoles().setId(words.value(2)));
        else if (words.first() == "remove")
            node->rowsRemoveAt(pos);
        else if (words.first() == "move")
            node->rowsMove(pos, words.value(2).toInt());
        else if (words.first() == "set")
            node->rowsSet(pos, OrvoRoles().setId(words.value(2)));
        else
            node->rowsClear();
    }
    static void moveAbout(Dice* dice, CMRowsBrowser* browser)
    {
        const int size = browser->size();
        if (size == 0)
            return;
        const int row = dice->roll(2) ? dice->roll(size) : browser->currentRow() + dice->roll(7) - 3;
        browser->setCurrentRow(qBound(0, row, size - 1));
    }
    static void setUp(CMRowsBrowser* browser, CMAbstractWorker* worker, const CMPath& path, int radius)
    {
        browser->setWorker(worker);
        browser->setRoles(CMAllRoles());
        browser->setRadius(radius);
        browser->setPath(path);
        browser->setActive(true);
    }

private slots:
    void initTestCase() { orvoRegisterMetaTypes(); }

    void inQuietTheWindowShowsTheList_data()
    {
        QTest::addColumn<unsigned>("seed");
        QTest::addColumn<int>("radius");
        QTest::addColumn<bool>("merge");
        unsigned seed = 7001;
        for (const int radius : {0, 1, 3, 10})
            for (const bool merge : {false, true}) {
                QTest::newRow(
                    qPrintable(QString("seed %1, radius %2%3").arg(seed).arg(radius).arg(merge ? ", merged" : "")))
                    << seed << radius << merge;
                ++seed;
            }
    }
    void inQuietTheWindowShowsTheList()
    {
        QFETCH(unsigned, seed);
        QFETCH(int, radius);
        QFETCH(bool, merge);
        Dice dice(seed);
        SlowAnswers worker(merge);
        const CMPath path = CMPath::fromEncoded("random:list");
        CMListRowsNode* node = CMListRowsNode::create(worker.nodes(), path);
        QStringList ids;
        for (int i = 0; i < 60; ++i)
            ids.append(name());
        for (const QString& id : qAsConst(ids))
            node->rowsAppend(OrvoRoles().setId(id));
        CMRowsBrowser browser;
        setUp(&browser, &worker, path, radius);

        int resets = 0;
        connect(&browser, &CMRowsBrowser::loadingChanged, this, [&](bool loading) { resets += loading; });
        int changes = 0;
        for (int round = 0; round < 150; ++round) {
            for (int step = dice.roll(40); step >= 0; --step) {
                switch (dice.roll(8)) {
                case 0:
                case 1:
                case 2:
                    apply(node, change(&dice, &ids));
                    ++changes;
                    break;
                case 3:
                    worker.subscribe()->deliver();
                    break;
                case 4:
                    worker.answer();
                    break;
                case 5:
                    moveAbout(&dice, &browser);
                    break;
                case 6:
                    hurry(&browser);
                    break;
                default:
                    QCoreApplication::processEvents();
                }
            }
            const QString found = differenceInQuiet(&browser, ids, radius, [&] {
                worker.subscribe()->deliver();
                worker.answer();
            });
            QVERIFY2(found.isEmpty(), qPrintable(QString("round %1: %2").arg(round).arg(found)));
            QCOMPARE(node->rowsSize(), ids.size());
        }
        qInfo("%d changes, %d resets", changes, resets);
        QVERIFY(changes > 500);
    }

    void overTheLinkWithAServiceThatIsKilled_data()
    {
        QTest::addColumn<unsigned>("seed");
        for (const unsigned seed : {8001u, 8002u})
            QTest::newRow(qPrintable(QString("seed %1").arg(seed))) << seed;
    }
    void overTheLinkWithAServiceThatIsKilled()
    {
        QFETCH(unsigned, seed);
        Dice dice(seed);
        const QString service = serviceName("random");
        ServerProcess server(service);
        const auto start = [&](QStringList* ids) {
            const int rows = dice.roll(60);
            ids->clear();
            for (int row = 0; row < rows; ++row)
                ids->append(QString::number(row));
            return server.start({"--rows", QString::number(rows)});
        };
        QStringList ids;
        QVERIFY(start(&ids));
        CMRemoteWorker worker("viewer", service);
        const CMPath prefix = CMPath::fromPrefix(service);
        const int radius = 3;
        CMRowsBrowser browser;
        setUp(&browser, &worker, prefix + "list", radius);

        int kills = 0;
        int changes = 0;
        for (int round = 0; round < 60; ++round) {
            CMReply<QVariant> last;
            last.setValue(QVariant());
            for (int step = dice.roll(60); step >= 0; --step) {
                switch (dice.roll(5)) {
                case 0:
                case 1:
                    last = worker.invoke(prefix + "edit", QVariant(change(&dice, &ids)));
                    ++changes;
                    break;
                case 2:
                    moveAbout(&dice, &browser);
                    break;
                case 3:
                    hurry(&browser);
                    break;
                default:
                    QCoreApplication::processEvents(QEventLoop::AllEvents, 2);
                }
            }
            if (dice.roll(4) == 0) {
                server.kill();
                if (dice.roll(2) == 0)
                    QTRY_VERIFY(!worker.client()->isConnected());
                QVERIFY(start(&ids));
                ++kills;
            } else {
                QTRY_VERIFY(last.isFinished());
                QVERIFY2(!last.error().isError(), qPrintable(last.error().message()));
            }
            const QString found = differenceInQuiet(&browser, ids, radius, [] {});
            QVERIFY2(found.isEmpty(), qPrintable(QString("round %1: %2").arg(round).arg(found)));
        }
        qInfo("%d changes, %d kills", changes, kills);
        QVERIFY(kills > 5);
    }
};

QTEST_GUILESS_MAIN(tst_CMRowsBrowserRandom)
#include "tst_cmrowsbrowser_random.moc"
