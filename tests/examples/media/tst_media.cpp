#include "mediatest.h"

#include <QLocalSocket>

#include <csignal>

#include <fcntl.h>
#include <sys/stat.h>

namespace {

struct End
{
    int status = -1;
    QByteArray errors;
};

/// Runs the program to its end.
End runMedia(const QStringList& arguments)
{
    QProcess process;
    process.start(QStringLiteral(ORVO_TEST_MEDIA), arguments);
    End end;
    if (process.waitForFinished() && process.exitStatus() == QProcess::NormalExit)
        end.status = process.exitCode();
    end.errors = process.readAllStandardError();
    return end;
}

} // namespace

class tst_Media : public MediaTest
{
    Q_OBJECT

private slots:
    void eachFileIsARowWithItsTags()
    {
        QVERIFY(write(file("one.wav"), wave(1500)));
        QVERIFY(tag(file("one.wav"), {{"TITLE", "Öne"},
                                      {"ARTIST", "Ann"},
                                      {"ALBUM", "First"},
                                      {"GENRE", "Jazz"},
                                      {"TRACKNUMBER", "3"},
                                      {"DATE", "1999"}}));
        start();
        QTRY_COMPARE(ids(), QStringList("one.wav"));

        const OrvoRoles row = rows().first();
        QCOMPARE(row.title(), QString("Öne"));
        QCOMPARE(row.path(), m_service->path("track/one.wav"));
        QCOMPARE(row.icon(), QString("audio-x-generic"));
        QCOMPARE(row.type(), OrvoRolesType::Audio_);
        QCOMPARE(row.timestamp(), QFileInfo(file("one.wav")).lastModified().toMSecsSinceEpoch());
        const OrvoMediaData data = row.mediaData();
        QCOMPARE(data.title(), QString("Öne"));
        QCOMPARE(data.artist(), QString("Ann"));
        QCOMPARE(data.album(), QString("First"));
        QCOMPARE(data.genre(), QString("Jazz"));
        QCOMPARE(data.trackNumber(), 3);
        QCOMPARE(data.year(), 1999);
        QCOMPARE(data.duration(), 1500LL);
        QCOMPARE(data.sampleRate(), sampleRate);
        QCOMPARE(data.channels(), 1);
        QCOMPARE(data.bitRate(), sampleRate * 16);
        QCOMPARE(data.mimeType(), QString("audio/x-wav"));
        QCOMPARE(data.codec(), QString("pcm"));
        QCOMPARE(QUrl(data.url()).toLocalFile(), QFileInfo(file("one.wav")).canonicalFilePath());
    }

    void oggFilesOfTheSoundThemeAreRead()
    {
        const QString bell = QStringLiteral("/usr/share/sounds/freedesktop/stereo/bell.oga");
        QVERIFY2(QFile::copy(bell, file("bell.oga")), "package sound-theme-freedesktop is missing");
        start();
        QTRY_COMPARE(ids(), QStringList("bell.oga"));
        const OrvoRoles row = rows().first();
        QCOMPARE(row.title(), QString("bell"));
        QCOMPARE(row.mediaData().codec(), QString("vorbis"));
        QCOMPARE(row.mediaData().mimeType(), QString("audio/ogg"));
        QVERIFY(row.mediaData().duration() > 0);
        QVERIFY(!row.mediaData().__contains(OrvoMediaData::Artist()));
    }

    void rowsAreSortedByArtistAlbumTrackAndTitle()
    {
        makeTagged("a.wav", "Anna", "A", "1", "x");
        makeTagged("b.wav", "Ann", "Z", "2", "x");
        makeTagged("c.wav", "Ann", "Z", "10", "x");
        makeTagged("d.wav", "ann", "B", "9", "x");
        makeTagged("e.wav", "Änn", "Z", "2", "y");
        QVERIFY(write(file("untagged.wav"), wave(100)));
        start();
        QTRY_COMPARE(ids(), QStringList({"d.wav", "b.wav", "e.wav", "c.wav", "a.wav", "untagged.wav"}));
    }

    void fileThatAppearsIsOneRowInsertedAtItsPlace()
    {
        makeTagged("a.wav", "Ann", "A", "1", "x");
        makeTagged("c.wav", "Cid", "A", "1", "x");
        watch(2);
        QVERIFY(write(file("b.tmp"), wave(100)));
        QVERIFY(QFile::rename(file("b.tmp"), file("b.wav")));
        QVERIFY(tag(file("b.wav"), {{"ARTIST", "Bob"}}));
        QTRY_COMPARE(ids(), QStringList({"a.wav", "b.wav", "c.wav"}));
        QCOMPARE(settledChanges(), QStringList("+1"));
    }

    void fileThatGoesIsOneRowRemoved()
    {
        makeTagged("a.wav", "Ann", "A", "1", "x");
        makeTagged("c.wav", "Cid", "A", "1", "x");
        watch(2);
        QVERIFY(QFile::remove(file("a.wav")));
        QTRY_COMPARE(ids(), QStringList("c.wav"));
        QCOMPARE(settledChanges(), QStringList("-0"));
    }

    void fileThatChangesIsOneRowChanged()
    {
        makeTagged("a.wav", "Ann", "A", "1", "x");
        makeTagged("c.wav", "Cid", "A", "1", "x");
        watch(2);
        QVERIFY(tag(file("c.wav"),
                    {{"ARTIST", "Cid"}, {"ALBUM", "A"}, {"TRACKNUMBER", "1"}, {"TITLE", "x"}, {"GENRE", "Folk"}}));
        QTRY_COMPARE(rows().at(1).mediaData().genre(), QString("Folk"));
        QCOMPARE(settledChanges(), QStringList("1"));
    }

    void fileThatIsReplacedIsFollowedFurther()
    {
        makeTagged("a.wav", "Ann", "A", "1", "x");
        watch(1);
        for (const int milliseconds : {200, 300}) {
            QVERIFY(write(file("a.tmp"), wave(milliseconds)));
            QCOMPARE(::rename(QFile::encodeName(file("a.tmp")), QFile::encodeName(file("a.wav"))), 0);
            QTRY_COMPARE(rows().first().mediaData().duration(), qint64(milliseconds));
        }
        // The folder itself does not change by this one.
        QVERIFY(write(file("a.wav"), wave(400)));
        QTRY_COMPARE(rows().first().mediaData().duration(), 400LL);
        QCOMPARE(settledChanges(), QStringList({"0", "0", "0"}));
    }

    void renamedFileIsOneRowRemovedAndOneInserted()
    {
        makeTagged("a.wav", "Ann", "A", "1", "x");
        makeTagged("c.wav", "Cid", "A", "1", "x");
        watch(2);
        QVERIFY(QFile::rename(file("a.wav"), file("b.wav")));
        QTRY_COMPARE(ids(), QStringList({"b.wav", "c.wav"}));
        QCOMPARE(settledChanges(), QStringList({"-0", "+0"}));
    }

    void fileIsReadOnceItsWriterIsDone()
    {
        watch(0);
        const QByteArray bytes = wave(400);
        QFile out(file("slow.wav"));
        QVERIFY(out.open(QIODevice::WriteOnly));
        for (int at = 0; at < bytes.size(); at += 1000) {
            QVERIFY(out.write(bytes.mid(at, 1000)) > 0 && out.flush());
            QTest::qWait(50);
        }
        out.close();
        QTRY_COMPARE(ids(), QStringList("slow.wav"));
        QTRY_COMPARE(rows().first().mediaData().duration(), 400LL);
    }

    void subfoldersAreServedAsTheyComeAndGo()
    {
        makeTagged("first/a.wav", "Ann", "A", "1", "x");
        watch(1);
        makeTagged("second/deep/b.wav", "Bob", "A", "1", "x");
        QTRY_COMPARE(ids(), QStringList({"first/a.wav", "second/deep/b.wav"}));
        QVERIFY(QDir(m_dir->path()).rename("second", "third"));
        QTRY_COMPARE(ids(), QStringList({"first/a.wav", "third/deep/b.wav"}));
        makeTagged("third/deep/c.wav", "Cid", "A", "1", "x");
        QTRY_COMPARE(ids(), QStringList({"first/a.wav", "third/deep/b.wav", "third/deep/c.wav"}));
        QVERIFY(QDir(file("third")).removeRecursively());
        QTRY_COMPARE(ids(), QStringList("first/a.wav"));
    }

    void sortByIsKeptWithinItsLimitsAndSortsAnew()
    {
        QVERIFY(write(file("a.wav"), wave(300)));
        QVERIFY(tag(file("a.wav"), {{"ARTIST", "Ann"}, {"TITLE", "z"}, {"DATE", "1980"}}));
        QVERIFY(write(file("b.wav"), wave(100)));
        QVERIFY(tag(file("b.wav"), {{"ARTIST", "Bob"}, {"TITLE", "y"}}));
        QVERIFY(write(file("c.wav"), wave(1200)));
        QVERIFY(tag(file("c.wav"), {{"ARTIST", "Cid"}, {"TITLE", "x"}, {"DATE", "1970"}}));
        watch(3);
        const QMap<int, QStringList> orders = {{-7, {"a.wav", "b.wav", "c.wav"}},
                                               {1, {"c.wav", "b.wav", "a.wav"}},
                                               {2, {"c.wav", "a.wav", "b.wav"}},
                                               {99, {"b.wav", "a.wav", "c.wav"}}};
        for (auto it = orders.cbegin(); it != orders.cend(); ++it) {
            setNumber("settings/sortBy", it.key());
            QCOMPARE(number("settings/sortBy"), qBound(0, it.key(), 3));
            QCOMPARE(ids(), it.value());
        }
        QVERIFY(m_changes.contains(QString()));
        // The next file finds its place in the new order.
        QVERIFY(write(file("d.wav"), wave(200)));
        QTRY_COMPARE(ids(), QStringList({"b.wav", "d.wav", "a.wav", "c.wav"}));
    }

    void showHiddenBringsHiddenFilesAndTakesThemAway()
    {
        makeTagged("a.wav", "Ann", "A", "1", "x");
        makeTagged(".b.wav", "Bob", "A", "1", "x");
        makeTagged(".folder/c.wav", "Cid", "A", "1", "x");
        start();
        QCOMPARE(rescan(), 3);
        QCOMPARE(ids(), QStringList("a.wav"));
        setNumber("settings/showHidden", 5);
        QCOMPARE(number("settings/showHidden"), 1);
        QCOMPARE(ids(), QStringList({"a.wav", ".b.wav", ".folder/c.wav"}));
        setNumber("settings/showHidden", 0);
        QCOMPARE(ids(), QStringList("a.wav"));
    }

    void rescanReadsFilesThatDoNotLookChanged()
    {
        makeTagged("a.wav", "Ann", "A", "1", "x");
        const QByteArray path = QFile::encodeName(file("a.wav"));
        struct stat before = {};
        QCOMPARE(::stat(path, &before), 0);
        watch(1);
        // As big and as old as before: only reading it tells.
        makeTagged("a.wav", "Bob", "A", "1", "x");
        const timespec times[] = {before.st_atim, before.st_mtim};
        QCOMPARE(::utimensat(AT_FDCWD, path, times, 0), 0);
        QCOMPARE(rescan(), 1);
        QCOMPARE(rows().first().mediaData().artist(), QString("Bob"));
        QCOMPARE(settledChanges(), QStringList("0"));
    }

    void unreadableFilesAreSkippedAndLogged()
    {
        makeTagged("a.wav", "Ann", "A", "1", "x");
        QVERIFY(write(file("noise.ogg"), "no sound at all"));
        QVERIFY(write(file("noise.mp3"), "no sound at all"));
        QVERIFY(write(file("notes.txt"), "not even by name"));
        QVERIFY(QFile::link(file("nowhere.wav"), file("link.wav")));
        QCOMPARE(::mkfifo(QFile::encodeName(file("pipe.wav")), 0600), 0);
        start();
        QCOMPARE(rescan(), 1);
        QCOMPARE(ids(), QStringList("a.wav"));
        const QByteArray log = m_service->process().readAllStandardError();
        QVERIFY2(log.contains("skipped " + QFile::encodeName(QFileInfo(file("noise.ogg")).canonicalFilePath())), log);
        QVERIFY2(log.contains("noise.mp3"), log);
        QVERIFY2(!log.contains("notes.txt"), log);
    }

    void folderThatGoesAndComesBackIsServedAgain()
    {
        const QString folder = m_dir->path();
        makeTagged("a.wav", "Ann", "A", "1", "x");
        watch(1);
        QVERIFY(QDir().rename(folder, folder + QStringLiteral(".away")));
        QTRY_COMPARE(ids(), QStringList());
        QVERIFY(QDir().rename(folder + QStringLiteral(".away"), folder));
        QTRY_COMPARE(ids(), QStringList("a.wav"));
        makeTagged("b.wav", "Bob", "A", "1", "x");
        QTRY_COMPARE(ids(), QStringList({"a.wav", "b.wav"}));
    }

    void fileThatStopsBeingSoundGoes()
    {
        makeTagged("a.wav", "Ann", "A", "1", "x");
        watch(1);
        QVERIFY(write(file("a.wav"), "no sound any more"));
        QTRY_COMPARE(ids(), QStringList());
        QCOMPARE(settledChanges(), QStringList("-0"));
    }

    void trackAnswersAtThePathOfItsRow()
    {
        makeTagged("sub/what=is?this.wav", "Ann", "A", "1", "x");
        watch(1);
        const CMPath path = rows().first().path();
        m_worker->connectDataChange(path, this, SLOT(on_dataChanged(CMPath)));
        QCOMPARE(data(path, {OrvoRoles::Title(), OrvoRoles::Id()}), QVariantList({"x", "sub/what=is?this.wav"}));
        makeTagged("sub/what=is?this.wav", "Ann", "A", "1", "other");
        QTRY_VERIFY(m_dataChanges > 0);
        QTRY_COMPARE(data(path, {OrvoRoles::Title()}), QVariantList({"other"}));
    }

    void pathThatDoesNotExistIsAnError()
    {
        start();
        for (const char* base : {"track/none.wav", "nothing", "library/none", "settings/sortBy/none"}) {
            const CMReply<QVariantList> reply = m_worker->getData(m_service->path(base), {OrvoRoles::Title()});
            QTRY_VERIFY(reply.isFinished());
            QCOMPARE(reply.error().name(), CMAbstractWorker::ErrorInvalidPath());
        }
    }

    void rootLeadsToEverything()
    {
        start();
        QCOMPARE(titles(m_service->path("")),
                 QStringList({"Home", "Library", "Read all files again", "Search", "Settings", "Configuration"}));
        QCOMPARE(titles(m_service->path("settings")), QStringList({"Sort by", "Show hidden files"}));
    }

    void folderThatIsMissingEndsWithOneLine()
    {
        const QString missing = file("missing");
        const End end = runMedia({missing});
        QCOMPARE(end.status, 1);
        QCOMPARE(end.errors, "media: no such folder: " + missing.toUtf8() + '\n');
    }

    void badArgumentsEndWithOneLine()
    {
        QVERIFY(write(file("plain"), "x"));
        const QVector<QPair<QStringList, int>> calls = {{{}, 2},
                                                        {{m_dir->path(), m_dir->path()}, 2},
                                                        {{"--nonsense", m_dir->path()}, 2},
                                                        {{"--name", "a:b", m_dir->path()}, 2},
                                                        {{"--name", "", m_dir->path()}, 2},
                                                        {{"--log-config", file("missing"), m_dir->path()}, 1},
                                                        {{file("plain")}, 1}};
        for (const auto& call : calls) {
            const End end = runMedia(call.first);
            QCOMPARE(end.status, call.second);
            QVERIFY2(end.errors.startsWith("media: ") && end.errors.count('\n') == 1, end.errors);
        }
    }

    void theShippedLogConfigurationIsFollowedOnDisk()
    {
        QFile shipped(QStringLiteral(ORVO_TEST_MEDIA_LOG));
        QVERIFY(shipped.open(QIODevice::ReadOnly));
        const QByteArray text = shipped.readAll().replace("/tmp/orvo-media.log", file("media.log").toUtf8());
        QVERIFY(write(file("log.properties"), text));
        QVERIFY(QDir().mkdir(file("music")));
        Service service(file("music"));
        service.start({"--log-config", file("log.properties")});
        const auto lineOf = [&](const char* level, const QByteArray& logger) {
            const QString pattern = QStringLiteral("^\\x1b\\[90m\\d\\d:\\d\\d:\\d\\d\\.\\d{3}\\x1b\\[0m \\x1b\\[1m%1 *"
                                                   "\\x1b\\[0m \\x1b\\[36m%2\\x1b\\[0m \\x1b\\[33m%3\\x1b\\[0m: .+$")
                                        .arg(QLatin1String(level))
                                        .arg(service.process().processId())
                                        .arg(QString::fromUtf8(logger));
            m_log += service.process().readAllStandardError();
            return QRegularExpression(pattern, QRegularExpression::MultilineOption)
                .match(QString::fromUtf8(m_log))
                .hasMatch();
        };
        QTRY_VERIFY2(lineOf("INFO", "media"), m_log);
        QFile rolling(file("media.log"));
        QVERIFY(rolling.open(QIODevice::ReadOnly));
        const QByteArray line = rolling.readLine();
        const QString form = QStringLiteral("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} INFO  %1 media: .+\n$")
                                 .arg(service.process().processId());
        QVERIFY2(QRegularExpression(form).match(QString::fromUtf8(line)).hasMatch(), line);

        QVERIFY(!lineOf("TRACE", "CMChange"));
        QVERIFY(write(file("log.properties"), QByteArray(text).replace("CMChange=WARN", "CMChange=TRACE")));
        CMRemoteWorker worker(QStringLiteral("tst_media"), service.name());
        // Each subscription is a line, from the reload on.
        QTRY_VERIFY2((worker.connectDataChange(service.path("library"), this, SLOT(on_dataChanged(CMPath))),
                                               worker.disconnectDataChange(service.path("library"), this,
                                                                           SLOT(on_dataChanged(CMPath))),
                                                                           lineOf("TRACE", "CMChange")),
                                               m_log);
    }

    void servedNameIsRefusedAndTheLivingServiceGoesOn()
    {
        makeTagged("a.wav", "Ann", "A", "1", "x");
        watch(1);
        const End end = runMedia({"--name", m_service->name(), m_dir->path()});
        QCOMPARE(end.status, 1);
        QVERIFY2(end.errors.contains("another process serves the name") && end.errors.count('\n') == 1, end.errors);
        QCOMPARE(ids(), QStringList("a.wav"));
        QVERIFY(QFile::remove(file("a.wav")));
        QTRY_COMPARE(settledChanges(), QStringList("-0"));
    }

    void killedServiceComesBackForThoseWhoWatch()
    {
        makeTagged("a.wav", "Ann", "A", "1", "x");
        watch(1);
        m_service->process().kill();
        QVERIFY(m_service->process().waitForFinished());
        QVERIFY(QFile::exists(m_service->socket()));
        m_service->start();
        QTRY_VERIFY(m_changes.contains(QString()));
        QTRY_COMPARE(ids(), QStringList("a.wav"));
        makeTagged("b.wav", "Bob", "A", "1", "x");
        QTRY_COMPARE(m_changes.value(m_changes.size() - 1), QString("+1"));
    }

    void signalsEndTheServiceInOrder_data()
    {
        QTest::addColumn<int>("signal");
        QTest::newRow("SIGTERM") << SIGTERM;
        QTest::newRow("SIGINT") << SIGINT;
    }

    void signalsEndTheServiceInOrder()
    {
        QFETCH(int, signal);
        makeTagged("a.wav", "Ann", "A", "1", "x");
        watch(1);
        QCOMPARE(::kill(pid_t(m_service->process().processId()), signal), 0);
        QVERIFY(m_service->process().waitForFinished());
        QCOMPARE(m_service->process().exitStatus(), QProcess::NormalExit);
        QCOMPARE(m_service->process().exitCode(), 0);
        QVERIFY(!QFile::exists(m_service->socket()));
    }

private:
    QByteArray m_log;
};

QTEST_GUILESS_MAIN(tst_Media)
#include "tst_media.moc"
