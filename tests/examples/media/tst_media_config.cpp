#include "mediatest.h"

#include "configdocument.h"

#include <QRandomGenerator>

#include <unistd.h>

namespace {

QVariantHash document(int sortBy, int showHidden, int recentSize)
{
    return {{"library", QVariantHash{{"sortBy", sortBy}, {"showHidden", showHidden}}},
            {"recent", QVariantHash{{"size", recentSize}}}};
}

QByteArray contents(const QString& file)
{
    QFile in(file);
    return in.open(QIODevice::ReadOnly) ? in.readAll() : QByteArray();
}

/// What the file holds; empty when it is not whole.
QVariantHash stored(const QString& file)
{
    QVariantHash document;
    return ConfigDocument::parse(contents(file), document).isEmpty() ? document : QVariantHash();
}

} // namespace

class tst_MediaConfig : public MediaTest
{
    Q_OBJECT

public slots:
    void on_valueChanged(const CMPath& path, const QVariant& value) { m_values[path] = value; }

private slots:
    void theDocumentIsReadAsATree()
    {
        start();
        QCOMPARE(titles(m_service->path("config/library")).toSet(), QSet<QString>({"sortBy", "showHidden"}));
        QCOMPARE(served(), document(0, 0, 10));
        QCOMPARE(data(m_service->path("config"), {OrvoRoles::Title(), OrvoRoles::Type()}),
                 QVariantList({"Configuration", "container"}));
    }

    void aSettingIsWrittenPlainOrAsARecordAndKeptWithinItsLimits()
    {
        start();
        QVERIFY(write("config/library/sortBy", 2));
        QCOMPARE(number("config/library/sortBy"), 2);
        QVERIFY(write("config/recent/size", OrvoValue().setI32_(20).__variant()));
        QCOMPARE(number("config/recent/size"), 20);
        QVERIFY(write("config/recent/size", OrvoValue().setI64_(1LL << 40).__variant()));
        QVERIFY(write("config/library/sortBy", -3));
        QCOMPARE(served(), document(0, 0, 100));
    }

    void aGroupAndTheWholeAreWrittenAtOnce()
    {
        start();
        QVERIFY(write("config/library", QVariantHash{{"sortBy", 1}, {"showHidden", 1}}));
        QCOMPARE(served(), document(1, 1, 10));
        QVERIFY(write("config", document(3, 0, 5)));
        QCOMPARE(served(), document(3, 0, 5));
        QVERIFY(write("config", QVariantHash()));
        QCOMPARE(served(), document(0, 0, 10));
    }

    void aWriteThatDoesNotFitIsRefusedAndLogged()
    {
        start();
        QVERIFY(write("config/library/sortBy", 1));
        for (const QVariant& value :
             {QVariant("2"), QVariant(true), QVariant(1.5), QVariant(QVariantList{1}), QVariant(QVariantHash{{"a", 1}}),
              OrvoValue().setString_("2").__variant(), QVariant(QVariantHash{{"type", "i32_"}})})
            QVERIFY(!write("config/library/sortBy", value));
        for (const char* place : {"config", "config/library", "config/none", "config/", "config/library/sortBy/deep",
                                  "config/recent/size/2000000000", "config/list/2000000000"})
            QVERIFY2(!write(place, 1), place);
        QVERIFY(!write("config", QVariantHash{{"library", QVariantHash{{"sortBy", 2}}}, {"none", 1}}));
        QCOMPARE(served(), document(1, 0, 10));
        const QByteArray log = m_service->process().readAllStandardError();
        QVERIFY2(log.contains("media: WARN: refused to configure " + m_service->name().toUtf8()
                              + ":config/library/sortBy: library/sortBy is not a whole number\n"),
                 log);
    }

    void theSettingsAndTheDocumentAreTheSame()
    {
        makeTagged("a.wav", "Bob", "A", "1", "x");
        makeTagged("b.wav", "Ann", "A", "1", "y");
        watch(2);
        QCOMPARE(ids(), QStringList({"b.wav", "a.wav"}));
        QVERIFY(write("config/library/sortBy", 1));
        QCOMPARE(number("settings/sortBy"), 1);
        QCOMPARE(ids(), QStringList({"a.wav", "b.wav"}));
        setNumber("settings/sortBy", 0);
        QCOMPARE(number("config/library/sortBy"), 0);
        QCOMPARE(ids(), QStringList({"b.wav", "a.wav"}));
        setNumber("settings/showHidden", 1);
        QVERIFY(write("config", document(2, 0, 7)));
        QCOMPARE(number("settings/sortBy"), 2);
        QCOMPARE(number("settings/showHidden"), 0);
    }

    void whoWatchesASettingHearsOfAnyWrite()
    {
        start();
        const QStringList places = {"settings/sortBy", "config/library/sortBy", "config/recent/size"};
        for (const QString& place : places)
            m_worker->connectValueChange(m_service->path(place), this, SLOT(on_valueChanged(CMPath,QVariant)));
        const auto told = [this](const char* place) {
            const QVariant value = m_values.value(m_service->path(place));
            return value.type() == QVariant::Hash ? OrvoValue(value.toHash()).i32_() : value.toInt();
        };
        QVERIFY(write("config", document(2, 0, 7)));
        for (const auto& [place, value] :
             {std::make_pair("settings/sortBy", 2), {"config/library/sortBy", 2}, {"config/recent/size", 7}})
            QTRY_COMPARE(told(place), value);
        setNumber("settings/sortBy", 3);
        QTRY_COMPARE(told("config/library/sortBy"), 3);
        QTRY_COMPARE(told("settings/sortBy"), 3);
    }

    void whatIsWrittenIsThereAfterTheNextStart()
    {
        makeTagged("a.wav", "Ann", "A", "1", "y");
        makeTagged("b.wav", "Bob", "A", "1", "x");
        startOnFile();
        QVERIFY(write("config/library/sortBy", 1));
        // Ended at once: what is not yet on the disk goes there on the way out.
        m_service->process().terminate();
        QVERIFY(m_service->process().waitForFinished());
        QCOMPARE(contents(configFile()), ConfigDocument::print(document(1, 0, 10)));
        startOnFile();
        QCOMPARE(served(), document(1, 0, 10));
        QCOMPARE(number("settings/sortBy"), 1);
        QCOMPARE(rescan(), 2);
        QCOMPARE(ids(), QStringList({"b.wav", "a.wav"}));
        QVERIFY(write("config/recent/size", 3));
        QTRY_COMPARE(stored(configFile()), document(1, 0, 3));
    }

    void withoutAFileNothingIsKept()
    {
        start();
        setNumber("settings/sortBy", 1);
        m_service->process().terminate();
        QVERIFY(m_service->process().waitForFinished());
        QVERIFY(QDir(m_dir->path()).isEmpty());
        start();
        QCOMPARE(served(), document(0, 0, 10));
    }

    void aBrokenFileIsSetAsideAndTheDefaultsAreServed_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("problem");
        QTest::newRow("empty") << QByteArray() << QByteArray();
        QTest::newRow("half") << ConfigDocument::print(document(1, 1, 1)).left(20) << QByteArray();
        QTest::newRow("list") << QByteArray("[1]") << QByteArray("the document is not an object");
        QTest::newRow("type") << QByteArray("{\"library\":{\"sortBy\":\"1\"}}")
                              << QByteArray("library/sortBy is not a number");
        QTest::newRow("unknown") << QByteArray("{\"sortBy\":1}") << QByteArray("there is no setting sortBy");
        QTest::newRow("noise") << QByteArray(1000, '\xff') << QByteArray();
        QTest::newRow("huge") << QByteArray((1 << 20) + 1, ' ') << QByteArray("it has 1048577 bytes");
        QTest::newRow("deep") << QByteArray(100000, '[') << QByteArray();
    }

    void aBrokenFileIsSetAsideAndTheDefaultsAreServed()
    {
        QFETCH(QByteArray, text);
        QFETCH(QByteArray, problem);
        QVERIFY(::write(configFile(), text));
        startOnFile();
        QCOMPARE(served(), document(0, 0, 10));
        QCOMPARE(contents(configFile() + ".broken"), text);
        QVERIFY(!QFile::exists(configFile()));
        const QByteArray log = m_service->process().readAllStandardError();
        QVERIFY2(
            log.contains("media: WARN: the configuration is broken, the defaults are served and it is set aside as "
                         + configFile().toUtf8() + ".broken: " + problem),
            log);
        QVERIFY(write("config/library/sortBy", 1));
        QTRY_COMPARE(stored(configFile()), document(1, 0, 10));
    }

    void numbersBeyondTheirLimitsInTheFileAreBroughtBack()
    {
        QVERIFY(::write(configFile(), "{\"library\":{\"sortBy\":17},\"recent\":{\"size\":-1}}"));
        startOnFile();
        QCOMPARE(served(), document(3, 0, 1));
        QVERIFY(!QFile::exists(configFile() + ".broken"));
    }

    void aFileBehindASymbolicLinkIsReplacedAndTheLinkStays()
    {
        QVERIFY(::write(file("real.json"), "{}"));
        QVERIFY(QFile::link(file("real.json"), configFile()));
        startOnFile();
        QVERIFY(write("config/library/sortBy", 1));
        QTRY_COMPARE(stored(file("real.json")), document(1, 0, 10));
        QVERIFY(QFileInfo(configFile()).isSymLink());
    }

    void aFailedSaveIsLoggedAndTheServiceGoesOn()
    {
        QVERIFY(QDir().mkdir(file("etc")));
        start({"--config", file("etc/config.json")});
        QCOMPARE(served(), document(0, 0, 10));
        QVERIFY(QDir().rmdir(file("etc")));
        QVERIFY(write("config/library/sortBy", 1));
        QByteArray log;
        QTRY_VERIFY2((log += m_service->process().readAllStandardError())
                         .contains("media: ERROR: the configuration is not saved: cannot write "),
                     log);
        QVERIFY(QDir().mkdir(file("etc")));
        QVERIFY(write("config/library/sortBy", 2));
        QTRY_COMPARE(stored(file("etc/config.json")), document(2, 0, 10));
    }

    void aFileThatCannotBeEndsWithOneLine()
    {
        for (const QString& name : {m_dir->path(), file("missing/config.json"), QString()}) {
            Service service(m_dir->path());
            service.start({"--config", name});
            QVERIFY(service.process().waitForFinished());
            QCOMPARE(service.process().exitCode(), 1);
            const QByteArray errors = service.process().readAllStandardError();
            QVERIFY2(errors.startsWith("media: cannot ") && errors.count('\n') == 1, errors);
        }
    }

    void aServiceKilledAtAnyMomentLeavesOneWholeDocument()
    {
        QSet<int> seen;
        for (int round = 0; round < 10; ++round) {
            startOnFile();
            const QVariantHash before = stored(configFile());
            QCOMPARE(served(), before.isEmpty() ? document(0, 0, 10) : before);
            QElapsedTimer elapsed;
            elapsed.start();
            const int end = QRandomGenerator::global()->bounded(300);
            for (int i = 1 + round; elapsed.elapsed() < end; ++i)
                QVERIFY(write("config", document(i % 4, i % 2, 1 + i % 100)));
            m_service->process().kill();
            QVERIFY(m_service->process().waitForFinished());
            if (!QFile::exists(configFile()))
                continue;
            const QVariantHash found = stored(configFile());
            const int i = ConfigDocument::number(found, ConfigDocument::recentSize) - 1;
            QCOMPARE(found, document(i % 4, i % 2, 1 + i));
            seen.insert(i);
        }
        QVERIFY(!seen.isEmpty());
    }

private:
    QString configFile() const { return file("config.json"); }
    void startOnFile() { start({"--config", configFile()}); }

    bool write(const QString& base, const QVariant& value)
    {
        return finished(m_worker->setData(m_service->path(base), OrvoRoles::Value(), value)).toBool();
    }

    QVariantHash served()
    {
        return document(number("config/library/sortBy"), number("config/library/showHidden"),
                        number("config/recent/size"));
    }

    QHash<CMPath, QVariant> m_values;
};

QTEST_GUILESS_MAIN(tst_MediaConfig)
#include "tst_media_config.moc"
