#include "mediatest.h"

#include "confignode.h"
#include "logcapture.h"
#include "medialibrary.h"
#include "mediasearch.h"
#include "nodetest.h"
#include "searchresults.h"
#include "support/heap.h"

#include <QPointer>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

namespace {

Track track(const char* id, const char* title, const char* artist, const char* album)
{
    return {id, OrvoMediaData().setTitle(title).setArtist(artist).setAlbum(album), 1000};
}

/// The library and its search in this process.
class Search : public NodesFixture
{
public:
    Search()
        : config(ConfigNode::create(nodes(), P("x:config"), ConfigDocument::defaults())),
          library(worker.get(), config),
          search(worker.get(), &library)
    {
        library.trackRead(track("bell.oga", "Bell", "The Alerts", "Close Calls"));
        library.trackRead(track("six.oga", "Six o'Clock", "Early Birds", "Up and Away"));
        library.trackRead(track("deja.oga", "Déjà Vu", "Änn BELL", "Straße"));
        library.trackRead({"plain-file.wav", {}, 2000});
    }

    CMReply<OrvoRowsRoles> rows(const CMPath& path) const
    {
        return worker->getRows(path, 0, 99, -1, {OrvoRoles::Id()});
    }
    CMPath ask(const QString& text) const
    {
        const QVariant answer =
            worker->setData(search.path(), OrvoRoles::Query(), OrvoValue().setString_(text).__variant()).value();
        return rows(CMPath::fromQVariant(answer)).value().rowsRedirect();
    }
    QStringList idsAt(const CMPath& path) const
    {
        QStringList ids;
        for (const QVariant& row : rows(path).value().rows().toList())
            ids.append(row.toList().value(0).toString());
        return ids;
    }
    QStringList find(const QString& text) const { return idsAt(ask(text)); }

    ConfigNode* const config;
    MediaLibrary library;
    MediaSearch search;
};

} // namespace

class tst_MediaSearch : public MediaTest
{
    Q_OBJECT

private slots:
    void aTextFindsTitleArtistAndAlbum_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("found");
        QTest::newRow("title") << "Six" << QStringList("six.oga");
        QTest::newRow("artist") << "Early Birds" << QStringList("six.oga");
        QTest::newRow("album") << "close calls" << QStringList("bell.oga");
        QTest::newRow("several, in the order of the library") << "bell" << QStringList({"deja.oga", "bell.oga"});
        QTest::newRow("inside a word") << "lert" << QStringList("bell.oga");
        QTest::newRow("words of different roles") << "away six" << QStringList("six.oga");
        QTest::newRow("each word must be there") << "bell six" << QStringList();
        QTest::newRow("accents and case") << "DEJA ann" << QStringList("deja.oga");
        QTest::newRow("accents in the text") << "bèll" << QStringList({"deja.oga", "bell.oga"});
        QTest::newRow("not from one role into the next") << "bellthe" << QStringList();
        QTest::newRow("the file's name for a title") << "plain-file" << QStringList("plain-file.wav");
        QTest::newRow("spaces around") << "  \t six\n " << QStringList("six.oga");
        QTest::newRow("signs of a path") << "x?query=bell&a=b/c:d" << QStringList();
        QTest::newRow("nothing") << "" << QStringList();
        QTest::newRow("spaces only") << "   " << QStringList();
    }

    void aTextFindsTitleArtistAndAlbum()
    {
        QFETCH(QString, text);
        QFETCH(QStringList, found);
        const Search f;
        QCOMPARE(f.find(text), found);
    }

    void resultsFollowTheLibrary()
    {
        Search f;
        const CMPath results = f.ask("bell");
        f.spy.watchRows(f.worker.get(), results);
        f.library.trackRead(track("new.oga", "Bell", "Zoe", ""));
        QCOMPARE(f.idsAt(results), QStringList({"deja.oga", "bell.oga", "new.oga"}));
        // No longer a result, and one that becomes it.
        f.library.trackRead(track("deja.oga", "Déjà Vu", "Änn", "Straße"));
        f.library.trackRead(track("six.oga", "Bell", "Early Birds", "Up and Away"));
        QCOMPARE(f.idsAt(results), QStringList({"six.oga", "bell.oga", "new.oga"}));
        f.library.trackGone("bell.oga");
        QCOMPARE(f.idsAt(results), QStringList({"six.oga", "new.oga"}));
        f.library.trackRead(track(".hidden.oga", "Bell", "", ""));
        f.library.trackRead(track("other.oga", "Drum", "", ""));
        QCOMPARE(f.idsAt(results), QStringList({"six.oga", "new.oga"}));
        f.config->setNumber(ConfigDocument::showHidden, 1);
        QCOMPARE(f.idsAt(results), QStringList({"six.oga", "new.oga", ".hidden.oga"}));
        f.config->setNumber(ConfigDocument::showHidden, 0);
        f.library.trackRead(track("new.oga", "A Bell", "Zoe", ""));
        f.config->setNumber(ConfigDocument::sortBy, MediaLibrary::ByTitle);
        QCOMPARE(f.idsAt(results), QStringList({"new.oga", "six.oga"}));
        const QString told = f.delivered().join('\n');
        QVERIFY2(told.startsWith("rows " + results.toEncoded() + " [+2,-0,"), qPrintable(told));
    }

    void aThousandSearchesLeaveNothingBehind()
    {
        constexpr int count = 1000;
        Search f;
        const int nodes = f.nodes()->allNodes().size();
        const auto search = [&f](int number) {
            const CMPath path = f.ask(number % 2 ? "bell" : "six");
            if (number % 3 == 0)
                return path;
            f.spy.watchRows(f.worker.get(), path);
            f.spy.watchData(f.worker.get(), path);
            f.idsAt(path);
            f.spy.unwatchRows(f.worker.get(), path);
            f.spy.unwatchData(f.worker.get(), path);
            return path;
        };
        const auto liveBytes = [&f] {
            f.delivered();
            QCoreApplication::sendPostedEvents();
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
            return heapBytesInUse();
        };
        size_t atMost = 0;
        const auto searchAndWait = [&] {
            const LogCapture log("CMUnusedNodeTimer");
            QList<QPointer<CMNode>> made;
            for (int i = 0; i < count; ++i)
                made.append(f.nodes()->nodesAtPath(search(i)).first().data());
            QCOMPARE(f.nodes()->allNodes().size(), nodes + count);
            atMost = liveBytes();
            QTRY_COMPARE_WITH_TIMEOUT(f.nodes()->allNodes().size(), nodes, 60000);
            liveBytes();
            for (const auto& node : qAsConst(made))
                QVERIFY(!node);
            // Each timer went off once and took its node.
            QCOMPARE(log.lines().size(), count);
        };
        // Lists of Qt keep the room that they once had: the second time shows what is left for each search.
        searchAndWait();
        const size_t before = liveBytes();
        searchAndWait();
        const qint64 left = qint64(liveBytes()) - qint64(before);

        for (const QList<CMPath>& paths :
             {f.hub()->valuePathsStartingWith(CMPath()), f.hub()->dataPathsStartingWith(CMPath()),
              f.hub()->rowsPathsStartingWith(CMPath())})
            QVERIFY2(paths.isEmpty(), qPrintable(paths.value(0).toEncoded()));
        // Not even one small object for each search, such as a timer or a connection to the library.
        QVERIFY(qint64(atMost - before) > qint64(count * sizeof(SearchResults)));
        // The smallest piece of the heap takes 32 bytes.
        QVERIFY2(left < count * 24, qPrintable(QString::number(left)));
        // The library goes on alone.
        f.library.trackRead(track("new.oga", "Bell", "Zoe", ""));
        QCOMPARE(f.find("zoe"), QStringList("new.oga"));
    }

    // Over the link

    void theAnswerIsAPathWhereEachReaderGetsAListOfItsOwn()
    {
        makeTagged("a.wav", "Ann", "First", "1", "x");
        makeTagged("b.wav", "Bob", "Second", "1", "x");
        watch(2);
        const CMPath first = ask("ann");
        QCOMPARE(first.withoutParams(), m_service->path("results"));
        QCOMPARE(first.params().value("query"), QString("ann"));
        const CMPath second = ask("bob");
        const CMPath firstList = redirect(first);
        const CMPath secondList = redirect(second);
        const CMPath again = redirect(first);
        QCOMPARE(firstList, m_service->path("results/1"));
        QCOMPARE(secondList, m_service->path("results/2"));
        QCOMPARE(again, m_service->path("results/3"));
        QCOMPARE(titles(firstList), QStringList("x"));
        QCOMPARE(rows(firstList).value(0).id(), QString("a.wav"));
        QCOMPARE(rows(secondList).value(0).path(), m_service->path("track/b.wav"));
        QCOMPARE(data(firstList, {OrvoRoles::Title(), OrvoRoles::Description()}), QVariantList({"Results", "ann"}));
        QVERIFY(isInvalid(m_service->path("results/4")));
        QVERIFY(isInvalid(m_service->path("results/none")));
    }

    void aListLeavesAfterItsLastWatcher()
    {
        makeTagged("a.wav", "Ann", "First", "1", "x");
        start();
        QCOMPARE(rescan(), 1);
        const CMPath watched = redirect(ask("ann"));
        m_worker->connectRowsChange(watched, this, SLOT(on_rowsChanged(CMPath, QStringList, int, int)));
        const CMPath unwatched = redirect(ask("ann"));
        QTRY_VERIFY_WITH_TIMEOUT(isInvalid(unwatched), 60000);
        QCOMPARE(titles(watched), QStringList("x"));
        QCOMPARE(m_changes, QStringList());
        m_worker->disconnectRowsChange(watched, this, SLOT(on_rowsChanged(CMPath, QStringList, int, int)));
        // A list that is made behind it leaves behind it.
        const CMPath later = redirect(ask("ann"));
        QTRY_VERIFY_WITH_TIMEOUT(isInvalid(watched), 60000);
        QTRY_VERIFY_WITH_TIMEOUT(isInvalid(later), 60000);
    }

private:
    CMPath ask(const QString& text)
    {
        return CMPath::fromQVariant(finished(m_worker->setData(m_service->path("search"), OrvoRoles::Query(),
                                                               OrvoValue().setString_(text).__variant())));
    }
    CMPath redirect(const CMPath& path) { return finished(m_worker->getRows(path, 0, 9, -1, {})).rowsRedirect(); }
    bool isInvalid(const CMPath& path)
    {
        const CMReply<OrvoRowsRoles> reply = m_worker->getRows(path, 0, 9, -1, {});
        return QTest::qWaitFor([&] { return reply.isFinished(); }, 10000)
               && reply.error().name() == CMAbstractWorker::ErrorInvalidPath();
    }
};

int main(int argc, char** argv)
{
    // Free memory that a thread keeps for itself counts as used: none, so that what is counted is what is used.
    const char* const noThreadCache = "glibc.malloc.tcache_count=0";
    if (qgetenv("GLIBC_TUNABLES") != noThreadCache) {
        ::setenv("GLIBC_TUNABLES", noThreadCache, 1);
        ::execv("/proc/self/exe", argv);
        qFatal("cannot run this program anew: %s", std::strerror(errno));
    }
    QCoreApplication application(argc, argv);
    tst_MediaSearch test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_media_search.moc"
