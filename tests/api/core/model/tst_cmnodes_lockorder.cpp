#include "core/model/cmnodes.h"

#include "logcapture.h"
#include "nodetest.h"
#include "records/orvoconstants.h"
#include "runtogether.h"

#include <QtTest>

#include <atomic>

namespace {

constexpr int rounds = 3000;

/// Counts what it is told, in whichever thread.
class Counter : public QObject
{
    Q_OBJECT

public:
    std::atomic<int> calls{0};

public slots:
    void told() { ++calls; }
};

/// Calls a function when it is watched, after it has noted so.
class Probe : public CMListRowsNode
{
public:
    using CMListRowsNode::CMListRowsNode;
    void dataPathAdd(const CMPath& path) override
    {
        CMListRowsNode::dataPathAdd(path);
        onWatched();
    }
    void rowsPathAdd(const CMPath& path) override
    {
        CMListRowsNode::rowsPathAdd(path);
        onWatched();
    }

    std::function<void()> onWatched;
};

bool isFree(QMutex* mutex)
{
    bool isFree = false;
    runTogether({[&] {
        isFree = mutex->tryLock();
        if (isFree)
            mutex->unlock();
    }});
    return isFree;
}

} // namespace

/// Nodes that refer to each other in rings, each of them watched and changed by a thread of its own.
class tst_CMNodesLockOrder : public QObject
{
    Q_OBJECT

private:
    Counter m_counter;
    std::unique_ptr<LogCapture> m_errors;

    void watch(CMAbstractWorker* worker, CMAbstractWorker::ChangeType type, const CMPath& path)
    {
        worker->connectChange(type, path, &m_counter, SLOT(told()), Qt::DirectConnection);
    }
    void unwatch(CMAbstractWorker* worker, CMAbstractWorker::ChangeType type, const CMPath& path)
    {
        worker->disconnectChange(type, path, &m_counter, SLOT(told()));
    }
    /// Subscribes and leaves again, over and over.
    std::function<void()> subscriber(CMAbstractWorker* worker, const QList<CMAbstractWorker::ChangeType>& types,
                                     const char* path)
    {
        return [this, worker, types, path] {
            for (int i = 0; i < rounds; ++i) {
                for (auto type : types)
                    watch(worker, type, P(path));
                for (auto type : types)
                    unwatch(worker, type, P(path));
            }
        };
    }
    static bool nothingIsWatched(const NodesFixture& f)
    {
        return f.hub()->valuePathsStartingWith(P("x:")).isEmpty() && f.hub()->dataPathsStartingWith(P("x:")).isEmpty()
               && f.hub()->rowsPathsStartingWith(P("x:")).isEmpty();
    }

private slots:
    void init()
    {
        m_counter.calls = 0;
        m_errors.reset();
        m_errors.reset(new LogCapture("CMChange", log4cplus::ERROR_LOG_LEVEL));
    }

    void cleanup()
    {
        // Nothing was taken away that was not there.
        QCOMPARE(m_errors->lines(), QStringList());
    }

    // The locker

    void workWaitsForTheLastLockerOfTheThread()
    {
        QMutex one(QMutex::Recursive);
        QMutex two;
        QStringList done;
        CMNodeLocker::whenUnlocked([&] { done.append("at once"); });
        QCOMPARE(done, QStringList("at once"));
        done.clear();
        {
            CMNodeLocker outer(&one);
            {
                const CMNodeLocker inner(&one);
                const CMNodeLocker other(&two);
                const CMNodeLocker none(nullptr);
                CMNodeLocker::whenUnlocked([&] {
                    done.append(isFree(&one) && isFree(&two) ? "first" : "first, locked");
                    const CMNodeLocker lock(&one);
                    CMNodeLocker::whenUnlocked([&] { done.append("of the first"); });
                });
                CMNodeLocker::whenUnlocked([&] { done.append("second"); });
            }
            QCOMPARE(done, QStringList());
            QVERIFY(!isFree(&one) && isFree(&two));
            outer.unlock();
            QCOMPARE(done, QStringList({"first", "of the first", "second"}));
            QVERIFY(isFree(&one));
        }
        QCOMPARE(done.size(), 3);
    }

    void workOfAThreadDoesNotWaitForOthers()
    {
        QMutex mutex;
        const CMNodeLocker lock(&mutex);
        bool done = false;
        QVERIFY(runTogether({[&] { CMNodeLocker::whenUnlocked([&] { done = true; }); }}));
        QVERIFY(done);
    }

    // The order of watch and report

    void theTargetOfANewRowIsWatchedUnlockedAndAheadOfTheReport()
    {
        NodesFixture f;
        auto* target = new Probe(P("x:t"));
        target->setNodes(f.nodes());
        CMListRowsNode* list = CMListRowsNode::create(f.nodes(), P("x:l"));
        watch(f.worker.get(), CMAbstractWorker::RowsChange, P("x:l"));
        int watched = 0;
        target->onWatched = [&] {
            ++watched;
            QVERIFY(!f.hub()->rowsPending(P("x:l")));
            QVERIFY(isFree(list->mutex()));
        };
        list->rowsInsert(0, P("x:t"));
        QVERIFY(f.hub()->rowsPending(P("x:l")));
        list->rowsClear();
        f.hub()->deliver();
        list->rowsAppend(P("x:t"));
        QVERIFY(f.hub()->rowsPending(P("x:l")));
        QCOMPARE(watched, 2);
    }

    void aNewLinkIsWatchedUnlockedAndAheadOfTheReport()
    {
        NodesFixture f;
        auto* target = new Probe(P("x:t"));
        target->setNodes(f.nodes());
        CMLinkRowsNode* link = CMLinkRowsNode::create(f.nodes(), P("x:k"), CMPath());
        watch(f.worker.get(), CMAbstractWorker::RowsChange, P("x:k"));
        int watched = 0;
        target->onWatched = [&] {
            ++watched;
            QVERIFY(!f.hub()->rowsPending(P("x:k")));
            QVERIFY(isFree(link->mutex()));
        };
        link->setLinkPath(P("x:t"));
        QVERIFY(f.hub()->rowsPending(P("x:k")));
        QCOMPARE(watched, 1);
    }

    void theWatchesOfANodeAreMadeBeforeASubscriptionReturns()
    {
        NodesFixture f;
        CMLinkNode::create(f.nodes(), P("x:k"), P("x:b"));
        CMRadioButtonNode::create(f.nodes(), P("x:b"), P("x:r"));
        CMUINode* last = CMUINode::create(f.nodes(), P("x:r"));
        watch(f.worker.get(), CMAbstractWorker::DataChange, P("x:k"));
        QCOMPARE(last->dataPaths(), QSet<CMPath>{P("x:r")});
        unwatch(f.worker.get(), CMAbstractWorker::DataChange, P("x:k"));
        QVERIFY(last->dataPaths().isEmpty());
    }

    // Rings

    void listsWithEachOtherAsRowsAreWatchedByTwoThreads()
    {
        NodesFixture f;
        CMListRowsNode* one = CMListRowsNode::create(f.nodes(), P("x:1"));
        CMListRowsNode* two = CMListRowsNode::create(f.nodes(), P("x:2"));
        one->rowsAppend(P("x:2"));
        two->rowsAppend(P("x:1"));
        QVERIFY(runTogether({subscriber(f.worker.get(), {CMAbstractWorker::RowsChange}, "x:1"),
                             subscriber(f.worker.get(), {CMAbstractWorker::RowsChange}, "x:2")}));
        QVERIFY(nothingIsWatched(f));
    }

    void listsWithEachOtherAsRowsAreChangedByTwoThreads()
    {
        NodesFixture f;
        CMListRowsNode* one = CMListRowsNode::create(f.nodes(), P("x:1"));
        CMListRowsNode* two = CMListRowsNode::create(f.nodes(), P("x:2"));
        watch(f.worker.get(), CMAbstractWorker::RowsChange, P("x:1"));
        watch(f.worker.get(), CMAbstractWorker::RowsChange, P("x:2"));
        const auto changer = [](CMListRowsNode* list, const char* row) {
            return [list, row] {
                for (int i = 0; i < rounds; ++i) {
                    list->rowsAppend(P(row));
                    list->setTitle(QString::number(i));
                    list->rowsRemoveAt(0);
                }
                list->rowsAppend(P(row));
            };
        };
        QVERIFY(runTogether({changer(one, "x:2"), changer(two, "x:1")}));
        // The watches that are left are those of the rows that are left.
        QCOMPARE(one->dataPaths(), QSet<CMPath>{P("x:1")});
        QCOMPARE(two->dataPaths(), QSet<CMPath>{P("x:2")});
        f.hub()->deliver();
        m_counter.calls = 0;
        two->setTitle("new");
        f.hub()->deliver();
        f.hub()->deliver();
        QCOMPARE(m_counter.calls.load(), 1);
        one->rowsClear();
        two->rowsClear();
        QVERIFY(one->dataPaths().isEmpty() && two->dataPaths().isEmpty());
    }

    void linksAreDrivenFromBothSides()
    {
        // Each link shows a list that has the other link as a row.
        NodesFixture f;
        CMLinkNode* toTwo = CMLinkNode::create(f.nodes(), P("x:to2"), P("x:2"));
        CMLinkNode* toOne = CMLinkNode::create(f.nodes(), P("x:to1"), P("x:1"));
        CMListRowsNode* one = CMListRowsNode::create(f.nodes(), P("x:1"));
        CMListRowsNode* two = CMListRowsNode::create(f.nodes(), P("x:2"));
        one->rowsAppend(P("x:to2"));
        two->rowsAppend(P("x:to1"));
        const QList<CMAbstractWorker::ChangeType> all{CMAbstractWorker::ValueChange, CMAbstractWorker::DataChange,
                                                      CMAbstractWorker::RowsChange};
        const auto changer = [](CMListRowsNode* list, CMLinkNode* link, const char* row) {
            return [list, link, row] {
                for (int i = 0; i < rounds; ++i) {
                    list->rowsInsert(0, P(row));
                    list->setTitle(QString::number(i));
                    link->setTitle(QString::number(i));
                    list->rowsRemoveAt(0);
                }
            };
        };
        const auto reader = [&f](const char* path) {
            return [&f, path] {
                for (int i = 0; i < rounds; ++i) {
                    const auto rows = f.worker->getRows(P(path), 0, 2, -1, {OrvoRoles::Title(), OrvoRoles::Path()});
                    const auto data = f.worker->getData(P(path), {OrvoRoles::Title()});
                    const auto set = f.worker->setValue(P(path), i);
                    if (!rows.isFinished() || !data.isFinished() || !set.isFinished() || rows.error().isError()
                        || data.error().isError())
                        qFatal("A request through a link failed");
                }
            };
        };
        QVERIFY(runTogether({subscriber(f.worker.get(), all, "x:to1"), subscriber(f.worker.get(), all, "x:to2"),
                             changer(one, toOne, "x:to2"), changer(two, toTwo, "x:to1"), reader("x:to1"),
                             reader("x:to2")}));
        QVERIFY(nothingIsWatched(f));
        QVERIFY(one->rowsPaths().isEmpty() && two->rowsPaths().isEmpty());
        QVERIFY(toOne->dataPaths().isEmpty() && toTwo->dataPaths().isEmpty());
    }

    void aRadioButtonAndTheListThatShowsItAreWatchedByTwoThreads()
    {
        NodesFixture f;
        CMListRowsNode* list = CMListRowsNode::create(f.nodes(), P("x:l"));
        CMRadioButtonNode* button = CMRadioButtonNode::create(f.nodes(), P("x:b"), P("x:l"));
        list->rowsAppend(P("x:b"));
        QVERIFY(runTogether({
            subscriber(f.worker.get(), {CMAbstractWorker::RowsChange}, "x:l"),
            subscriber(f.worker.get(), {CMAbstractWorker::ValueChange, CMAbstractWorker::DataChange}, "x:b"),
            [&] {
                for (int i = 0; i < rounds; ++i)
                    button->setValue(i);
            },
            [&] {
                for (int i = 0; i < rounds; ++i)
                    list->setTitle(QString::number(i));
            },
        }));
        QVERIFY(nothingIsWatched(f));
    }

    void aListARadioButtonAndALinkInARing()
    {
        NodesFixture f;
        CMListRowsNode* list = CMListRowsNode::create(f.nodes(), P("x:l"));
        CMRadioButtonNode* button = CMRadioButtonNode::create(f.nodes(), P("x:b"), P("x:k"));
        CMLinkNode* link = CMLinkNode::create(f.nodes(), P("x:k"), P("x:l"));
        CMLinkRowsNode* linkRows = CMLinkRowsNode::create(f.nodes(), P("x:r"), P("x:l"));
        list->rowsAppend(P("x:b"));
        list->rowsAppend(P("x:r"));
        const QList<CMAbstractWorker::ChangeType> all{CMAbstractWorker::ValueChange, CMAbstractWorker::DataChange,
                                                      CMAbstractWorker::RowsChange};
        QVERIFY(runTogether({
            subscriber(f.worker.get(), all, "x:l"),
            subscriber(f.worker.get(), all, "x:b"),
            subscriber(f.worker.get(), all, "x:k"),
            subscriber(f.worker.get(), all, "x:r"),
            [&] {
                for (int i = 0; i < rounds; ++i) {
                    list->rowsInsert(0, P(i % 2 ? "x:k" : "x:b"));
                    list->setTitle(QString::number(i));
                    list->rowsRemoveAt(i % 3);
                }
            },
            [&] {
                for (int i = 0; i < rounds; ++i) {
                    button->setValue(i);
                    link->setTitle(QString::number(i));
                    linkRows->setLinkPath(P(i % 2 ? "x:l" : "x:k"));
                }
            },
        }));
        list->rowsClear();
        QVERIFY(nothingIsWatched(f));
        QVERIFY(list->valuePaths().isEmpty() && list->dataPaths().isEmpty() && list->rowsPaths().isEmpty());
        QVERIFY(link->valuePaths().isEmpty() && link->dataPaths().isEmpty() && link->rowsPaths().isEmpty());
    }

    void nodesOfARingComeAndGoWhileTheyAreWatched()
    {
        NodesFixture f;
        const auto owner = [&](const char* own, const char* other) {
            return [&f, own, other] {
                for (int i = 0; i < rounds; ++i) {
                    CMListRowsNode* list = CMListRowsNode::create(f.nodes(), P(own));
                    const QExplicitlySharedDataPointer<CMNode> kept(list);
                    list->rowsAppend(P(other));
                    list->deleteLater();
                }
            };
        };
        watch(f.worker.get(), CMAbstractWorker::RowsChange, P("x:1"));
        watch(f.worker.get(), CMAbstractWorker::RowsChange, P("x:2"));
        QVERIFY(runTogether({owner("x:1", "x:2"), owner("x:2", "x:1"),
                             subscriber(f.worker.get(), {CMAbstractWorker::RowsChange}, "x:1?k=v")}));
        QVERIFY(f.hub()->dataPathsStartingWith(P("x:")).isEmpty());
    }

    void aTranslatableTitleIsSetByNodesThatTheLanguageNodeRefersTo()
    {
        // The language itself is shown by a list, whose row is a node with a title that follows the language.
        NodesFixture f;
        CMListRowsNode* language = CMListRowsNode::create(f.nodes(), OrvoUILanguagePath());
        CMUINode* node = CMUINode::create(f.nodes(), P("x:1"));
        const TrString translated(TrCharData{"Test", "text"});
        QVERIFY(runTogether({
            [&] {
                for (int i = 0; i < rounds; ++i) {
                    node->setTitle(translated);
                    node->setTitle("plain");
                }
            },
            [&] {
                for (int i = 0; i < rounds; ++i) {
                    node->setTitle(translated);
                    node->setTitle("other");
                }
            },
            [&] {
                for (int i = 0; i < rounds; ++i) {
                    watch(f.worker.get(), CMAbstractWorker::RowsChange, OrvoUILanguagePath());
                    language->rowsAppend(P("x:1"));
                    language->rowsClear();
                    unwatch(f.worker.get(), CMAbstractWorker::RowsChange, OrvoUILanguagePath());
                }
            },
        }));
        QVERIFY(!node->title().translatable());
        QVERIFY(!f.hub()->dataPath(OrvoUILanguagePath()));
        node->setTitle(translated);
        QVERIFY(f.hub()->dataPath(OrvoUILanguagePath()));
    }
};

QTEST_GUILESS_MAIN(tst_CMNodesLockOrder)
#include "tst_cmnodes_lockorder.moc"
