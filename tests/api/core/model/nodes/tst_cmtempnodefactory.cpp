#include "core/model/nodes/cmtempnodefactory.h"

#include "core/model/nodes/cmunusednodetimer.h"
#include "logcapture.h"
#include "nodetest.h"
#include "runtogether.h"
#include "support/heap.h"

#include <QtTest>

#include <thread>

namespace {

/// A factory of lists that hold the parameters of their request.
class Factory : public NodesFixture
{
public:
    explicit Factory(bool synchronized = false)
        : factory(CMTempNodeFactory::create(nodes(), P("x:f"), synchronized,
                                            [this](CMNodes* registry, CMPath path, QMap<QString, QString> params) {
                                                return make(registry, path, params);
                                            }))
    {}
    ~Factory()
    {
        worker.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    CMReply<OrvoRowsRoles> rows(const char* path) const
    {
        return worker->getRows(P(path), 0, 9, -1, {OrvoRoles::Id()});
    }
    QStringList idsAt(const char* path) const
    {
        QStringList ids;
        for (const QVariant& row : rows(path).value().rows().toList())
            ids.append(row.toList().value(0).toString());
        return ids;
    }

    CMTempNodeFactory* const factory;
    bool makesNodes = true;
    std::function<void()> onMake;
    QThread* makingThread = nullptr;

private:
    CMNode* make(CMNodes* registry, const CMPath& path, const QMap<QString, QString>& params)
    {
        makingThread = QThread::currentThread();
        if (onMake)
            onMake();
        if (!makesNodes)
            return nullptr;
        CMListRowsNode* list = CMListRowsNode::create(registry, path);
        for (auto it = params.cbegin(); it != params.cend(); ++it)
            list->rowsAppend(OrvoRoles().setId(it.key() + '=' + it.value()));
        return list;
    }
};

} // namespace

class tst_CMTempNodeFactory : public QObject
{
    Q_OBJECT

private slots:
    void eachRequestMakesANodeWithItsParameters()
    {
        Factory f;
        QCOMPARE(f.rows("x:f?query=a").value().rowsRedirect(), P("x:f/1"));
        QCOMPARE(f.rows("x:f?query=b?type=c").value().rowsRedirect(), P("x:f/2"));
        QCOMPARE(f.idsAt("x:f/1"), QStringList("query=a"));
        QCOMPARE(f.idsAt("x:f/2"), QStringList({"query=b", "type=c"}));
        QCOMPARE(f.nodes()->allNodes().size(), 3);
    }

    void theAnswerHoldsOnlyTheRedirect()
    {
        Factory f;
        // Whatever range, version and roles are asked for.
        const auto reply = f.worker->getRows(P("x:f"), 70, 3, 12, {OrvoRoles::Title()});
        QVERIFY(reply.isFinished());
        QVERIFY(!reply.error().isError());
        QCOMPARE(reply.value().__hash().keys(), QStringList(OrvoRowsRoles::RowsRedirect()));
    }

    void itIsAContainerOtherwise()
    {
        Factory f;
        f.factory->setTitle("search");
        QCOMPARE(f.data(P("x:f"), {OrvoRoles::Title(), OrvoRoles::Type()}), (QVariantList{"search", "container"}));
        QCOMPARE(f.nodes()->allNodes().size(), 1);
    }

    void aPathWithoutANodeIsInvalidAheadAndAfterwards()
    {
        Factory f;
        const auto isInvalid = [&](const char* path) {
            const QString text = QString("Node at path '%1' does not exist").arg(path);
            return f.rows(path).error().message() == text
                   && f.worker->getData(P(path), {OrvoRoles::Title()}).error().message() == text
                   && f.worker->setValue(P(path), 1).error().message() == text;
        };
        QVERIFY(isInvalid("x:f/1"));
        QVERIFY(isInvalid("x:f/1?a=1"));
        QCOMPARE(f.rows("x:f").value().rowsRedirect(), P("x:f/1"));
        QVERIFY(!f.rows("x:f/1").error().isError());
        QVERIFY(isInvalid("x:f/2"));
        f.nodes()->nodesAtPath(P("x:f/1")).first()->deleteLater();
        QVERIFY(isInvalid("x:f/1"));
        // Numbers are not used again.
        QCOMPARE(f.rows("x:f").value().rowsRedirect(), P("x:f/2"));
    }

    void withoutANodeTheNewPathIsInvalid()
    {
        Factory f;
        f.makesNodes = false;
        QCOMPARE(f.rows("x:f").value().rowsRedirect(), P("x:f/1"));
        QCOMPARE(f.rows("x:f/1").error().message(), QString("Node at path 'x:f/1' does not exist"));
        QCOMPARE(f.rows("x:f").value().rowsRedirect(), P("x:f/2"));
    }

    void theNodeIsMadeWithNoLockHeld()
    {
        Factory f;
        bool wasFree = false;
        f.onMake = [&] {
            runTogether({[&] {
                wasFree = f.factory->mutex()->tryLock();
                if (wasFree)
                    f.factory->mutex()->unlock();
            }});
            // The creation may ask the factory itself.
            f.onMake = nullptr;
            QCOMPARE(f.rows("x:f").value().rowsRedirect(), P("x:f/2"));
        };
        QCOMPARE(f.rows("x:f").value().rowsRedirect(), P("x:f/1"));
        QVERIFY(wasFree);
    }

    // Threads

    void aNodeIsMadeInTheThreadOfTheRequest()
    {
        Factory f;
        QThread* asking = nullptr;
        QVERIFY(runTogether({[&] {
            asking = QThread::currentThread();
            QVERIFY(f.rows("x:f").isFinished());
        }}));
        QVERIFY(f.makingThread == asking);
    }

    void aSynchronizedFactoryAnswersItsOwnThreadWithinTheCall()
    {
        Factory f(true);
        const auto reply = f.rows("x:f?a=1");
        QVERIFY(reply.isFinished());
        QCOMPARE(reply.value().rowsRedirect(), P("x:f/1"));
        QCOMPARE(f.idsAt("x:f/1"), QStringList("a=1"));
    }

    void aSynchronizedFactoryAnswersOthersFromItsOwnThread()
    {
        Factory f(true);
        QList<CMReply<OrvoRowsRoles>> replies;
        QThread* thread = QThread::create([&] {
            for (const char* path : {"x:f?a=1", "x:f?a=2", "x:f?a=3"})
                replies.append(f.rows(path));
        });
        thread->start();
        thread->wait();
        delete thread;
        QCOMPARE(replies.size(), 3);
        for (const auto& reply : qAsConst(replies))
            QVERIFY(!reply.isFinished());
        QCOMPARE(f.nodes()->allNodes().size(), 1);
        QTRY_VERIFY(replies.last().isFinished());
        QVERIFY(f.makingThread == QThread::currentThread());
        for (int i = 0; i < 3; ++i)
            QCOMPARE(replies.at(i).value().rowsRedirect(), CMPath::fromEncoded(QString("x:f/%1").arg(i + 1)));
        QCOMPARE(f.idsAt("x:f/3"), QStringList("a=3"));
    }

    void aSynchronizedFactoryThatLeavesStillAnswers()
    {
        Factory f(true);
        CMReply<OrvoRowsRoles> reply;
        QThread* thread = QThread::create([&] { f.worker->getRows(P("x:f"), 0, 9, -1, {}, reply); });
        thread->start();
        thread->wait();
        delete thread;
        f.factory->deleteLater();
        QTRY_VERIFY(reply.isFinished());
        QCOMPARE(reply.value().rowsRedirect(), P("x:f/1"));
    }

    void aSynchronizedFactoryWhoseThreadHasEndedFails()
    {
        NodesFixture f;
        std::thread([&] {
            CMTempNodeFactory::create(f.nodes(), P("x:f"), true,
                                      [](CMNodes*, const CMPath&, const CMPath::Params&) { return nullptr; });
        }).join();
        const auto reply = f.worker->getRows(P("x:f"), 0, 9, -1, {});
        QVERIFY(reply.isFinished());
        QCOMPARE(reply.error().name(), CMAbstractWorker::ErrorInternal());
    }

    void numbersAreGivenOnceToManyThreads()
    {
        Factory f(true);
        constexpr int each = 100;
        std::vector<QList<CMReply<OrvoRowsRoles>>> replies(4);
        std::vector<std::function<void()>> askers;
        for (auto& own : replies)
            askers.emplace_back([&f, &own] {
                for (int i = 0; i < each; ++i)
                    own.append(f.rows("x:f"));
            });
        QVERIFY(runTogether(askers));
        QSet<CMPath> paths;
        for (const auto& own : replies)
            for (const auto& reply : own) {
                QTRY_VERIFY(reply.isFinished());
                paths.insert(reply.value().rowsRedirect());
            }
        QCOMPARE(paths.size(), int(replies.size()) * each);
        QVERIFY(paths.contains(CMPath::fromEncoded(QString("x:f/%1").arg(replies.size() * each))));
    }

    // The end of the nodes: waits for the 10 s

    void aThousandNodesLeaveNothingBehind()
    {
        constexpr int count = 1000;
        Factory f;
        const auto search = [&f](int number, bool watched) {
            const CMPath path =
                f.worker->getRows(CMPath::fromEncoded(QString("x:f?query=%1").arg(number)), 0, 9, -1, {})
                    .value()
                    .rowsRedirect();
            if (!watched)
                return;
            f.spy.watchRows(f.worker.get(), path);
            f.spy.watchData(f.worker.get(), path);
            f.worker->getRows(path, 0, 9, -1, {OrvoRoles::Id()});
            f.spy.unwatchRows(f.worker.get(), path);
            f.spy.unwatchData(f.worker.get(), path);
        };
        const auto liveBytes = [] {
            QCoreApplication::sendPostedEvents();
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
            return heapBytesInUse();
        };
        // A first one, so that what the library keeps for good is there.
        search(0, true);
        f.nodes()->nodesAtPath(P("x:f/1")).first()->deleteLater();
        f.delivered();
        for (int round = 0; round < 2; ++round) {
            const int first = 2 + round * count;
            const size_t before = liveBytes();

            auto log = std::make_unique<LogCapture>("CMUnusedNodeTimer");
            QList<QPointer<CMNode>> made;
            for (int i = 0; i < count; ++i) {
                search(i, i % 2 == 0);
                made.append(
                    f.nodes()->nodesAtPath(CMPath::fromEncoded(QString("x:f/%1").arg(first + i))).first().data());
            }
            QCOMPARE(f.nodes()->allNodes().size(), count + 1);
            const size_t amid = liveBytes();
            QTRY_COMPARE_WITH_TIMEOUT(f.nodes()->allNodes().size(), 1, 60000);
            f.delivered();
            liveBytes();
            for (const auto& node : qAsConst(made))
                QVERIFY(!node);
            QCOMPARE(log->lines().size(), count);
            QVERIFY(log->lines().contains(
                QString("INFO CMUnusedNodeTimer::on_timeout() deleting node at path x:f/%1").arg(first + count - 1)));
            made.clear();
            log.reset();
            const size_t after = liveBytes();

            const CMPath all = P("x:");
            QVERIFY(f.hub()->valuePathsStartingWith(all).isEmpty() && f.hub()->dataPathsStartingWith(all).isEmpty()
                    && f.hub()->rowsPathsStartingWith(all).isEmpty());
            QVERIFY(f.factory->valuePaths().isEmpty() && f.factory->dataPaths().isEmpty()
                    && f.factory->rowsPaths().isEmpty());
            // Not even one small object for each node; the first round leaves the room that the tables grew to.
            QVERIFY(amid - before > count * sizeof(CMListRowsNode));
            const qint64 left = qint64(after) - qint64(before);
            if (round > 0)
                QVERIFY2(left < qint64(count * 32), qPrintable(QString::number(left)));
        }
    }

    void aSubscriberKeepsTheNodeAndItsEndGivesItTheTimeAgain()
    {
        Factory f;
        const CMPath kept = f.rows("x:f?a=1").value().rowsRedirect();
        f.spy.watchRows(f.worker.get(), kept);
        const CMPath unwatched = f.rows("x:f?a=2").value().rowsRedirect();
        QTRY_VERIFY_WITH_TIMEOUT(!f.nodes()->isNodeAtPath(unwatched), 60000);
        // The other one was made ahead of it.
        QVERIFY(f.nodes()->isNodeAtPath(kept));
        f.spy.unwatchRows(f.worker.get(), kept);
        const CMPath later = f.rows("x:f?a=3").value().rowsRedirect();
        QTRY_VERIFY_WITH_TIMEOUT(!f.nodes()->isNodeAtPath(kept), 60000);
        QTRY_VERIFY_WITH_TIMEOUT(!f.nodes()->isNodeAtPath(later), 60000);
    }
};

QTEST_GUILESS_MAIN(tst_CMTempNodeFactory)
#include "tst_cmtempnodefactory.moc"
