#include "cmremoteworker.h"

#include "core/model/cmmetatypes.h"
#include "core/model/cmrpccommon.h"
#include "records/orvorowsroles.h"

#include <QDir>
#include <QFile>
#include <QLocalSocket>
#include <QProcess>
#include <QTemporaryDir>
#include <QtEndian>
#include <QtTest>

#include <taglib/fileref.h>
#include <taglib/tpropertymap.h>

#include <csignal>

#include <fcntl.h>
#include <sys/stat.h>

namespace {

constexpr int sampleRate = 8000;

/// The bytes of a sound file: mono, 16 bits, silent.
QByteArray wave(int milliseconds)
{
    const quint32 size = quint32(sampleRate) * 2 * quint32(milliseconds) / 1000;
    const auto number = [](auto value) {
        value = qToLittleEndian(value);
        return QByteArray(reinterpret_cast<const char*>(&value), sizeof value);
    };
    return "RIFF" + number(quint32(size + 36)) + "WAVEfmt " + number(quint32(16)) + number(quint16(1))
           + number(quint16(1)) + number(quint32(sampleRate)) + number(quint32(sampleRate * 2)) + number(quint16(2))
           + number(quint16(16)) + "data" + number(size) + QByteArray(int(size), '\0');
}

bool write(const QString& file, const QByteArray& bytes)
{
    QFile out(file);
    return QDir().mkpath(QFileInfo(file).path()) && out.open(QIODevice::WriteOnly) && out.write(bytes) == bytes.size();
}

bool tag(const QString& path, const QMap<QString, QString>& tags)
{
    TagLib::FileRef file(QFile::encodeName(path).constData());
    TagLib::PropertyMap properties;
    for (auto it = tags.cbegin(); it != tags.cend(); ++it)
        properties.insert(it.key().toStdString(), TagLib::String(it.value().toStdString(), TagLib::String::UTF8));
    return !file.isNull() && file.file()->setProperties(properties).isEmpty() && file.save();
}

/// A service on a folder of its own, under a name of its own.
class Service
{
public:
    explicit Service(const QString& folder)
        : m_name(QStringLiteral("mediatest-%1-%2").arg(QCoreApplication::applicationPid()).arg(++s_count)),
          m_folder(folder)
    {}

    ~Service()
    {
        if (m_process.state() == QProcess::NotRunning)
            return;
        m_process.terminate();
        m_process.waitForFinished();
    }

    void start(const QStringList& options = {})
    {
        m_process.start(QStringLiteral(ORVO_TEST_MEDIA),
                        QStringList{QStringLiteral("--name"), m_name, m_folder} + options);
    }
    QProcess& process() { return m_process; }
    QString name() const { return m_name; }
    QString socket() const { return CMRPCSocket::socketPathFromPrefix(m_name); }
    CMPath path(const QString& base) const { return CMPath::fromPrefix(m_name) + base; }

private:
    static int s_count;
    const QString m_name;
    const QString m_folder;
    QProcess m_process;
};

int Service::s_count = 0;

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

class tst_Media : public QObject
{
    Q_OBJECT

public slots:
    void on_rowsChanged(const CMPath&, const QStringList& changes, int, int) { m_changes += changes; }
    void on_dataChanged(const CMPath&) { ++m_dataChanges; }

private slots:
    void initTestCase()
    {
        qputenv("QT_NO_GLIB", "1");
        orvoRegisterMetaTypes();
    }

    void init()
    {
        m_dir.reset(new QTemporaryDir);
        QVERIFY(m_dir->isValid());
        m_changes.clear();
        m_dataChanges = 0;
    }

    void cleanup()
    {
        m_worker.reset();
        m_service.reset();
        m_dir.reset();
    }

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
        QCOMPARE(titles(m_service->path("")), QStringList({"Library", "Read all files again", "Settings"}));
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
    QString file(const QString& name) const { return m_dir->path() + QLatin1Char('/') + name; }

    void makeTagged(const QString& name, const QString& artist, const QString& album, const QString& track,
                    const QString& title)
    {
        QVERIFY(write(file(name), wave(100)));
        QVERIFY(tag(file(name), {{"ARTIST", artist}, {"ALBUM", album}, {"TRACKNUMBER", track}, {"TITLE", title}}));
    }

    void start()
    {
        m_service.reset(new Service(m_dir->path()));
        m_service->start();
        m_worker.reset(new CMRemoteWorker(QStringLiteral("tst_media"), m_service->name()));
    }

    /// Starts with so many files in the folder, and hears of all changes after them.
    void watch(int count)
    {
        start();
        QCOMPARE(rescan(), count);
        m_worker->connectRowsChange(m_service->path("library"), this,
                                    SLOT(on_rowsChanged(CMPath, QStringList, int, int)));
        // Its answer comes behind the subscription.
        QCOMPARE(ids().size(), count);
    }

    /// The changes so far; whatever waits to be read has been read by then, and what waits in the hub has been told.
    QStringList settledChanges()
    {
        rescan();
        QTest::qWait(100);
        return m_changes;
    }

    template <typename T>
    T finished(const CMReply<T>& reply)
    {
        if (!QTest::qWaitFor([&] { return reply.isFinished(); }, 10000) || reply.error().isError())
            qWarning() << "no answer" << reply.isFinished() << reply.error().message();
        return reply.isFinished() ? reply.value() : T();
    }

    QVariantList data(const CMPath& path, const QStringList& roles) { return finished(m_worker->getData(path, roles)); }

    QList<OrvoRoles> rows(const CMPath& path)
    {
        const QStringList roles = {OrvoRoles::Id(),   OrvoRoles::Title(),     OrvoRoles::Path(),     OrvoRoles::Icon(),
                                   OrvoRoles::Type(), OrvoRoles::MediaData(), OrvoRoles::Timestamp()};
        QList<OrvoRoles> result;
        for (const QVariant& row : finished(m_worker->getRows(path, 0, INT_MAX, -1, roles)).rows().toList()) {
            OrvoRoles read;
            for (int i = 0; i < roles.size(); ++i)
                read.__insert(roles.at(i), row.toList().value(i));
            result.append(read);
        }
        return result;
    }
    QList<OrvoRoles> rows() { return rows(m_service->path("library")); }

    QStringList ids()
    {
        QStringList result;
        for (const OrvoRoles& row : rows())
            result.append(row.id());
        return result;
    }

    QStringList titles(const CMPath& path)
    {
        QStringList result;
        for (const OrvoRoles& row : rows(path))
            result.append(row.title());
        return result;
    }

    int number(const QString& base)
    {
        return OrvoValue(data(m_service->path(base), {OrvoRoles::Value()}).value(0)).i32_();
    }

    void setNumber(const QString& base, int value)
    {
        QVERIFY(finished(m_worker->setValue(m_service->path(base), OrvoValue().setI32_(value))).toBool());
    }

    int rescan() { return finished(m_worker->invoke(m_service->path("library/rescan"), QVariant(true))).toInt(); }

    QScopedPointer<QTemporaryDir> m_dir;
    QScopedPointer<Service> m_service;
    QScopedPointer<CMRemoteWorker> m_worker;
    QStringList m_changes;
    int m_dataChanges = 0;
    QByteArray m_log;
};

QTEST_GUILESS_MAIN(tst_Media)
#include "tst_media.moc"
