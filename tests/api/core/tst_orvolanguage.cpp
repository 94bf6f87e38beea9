#include "core/orvoLanguage.h"

#include "logcapture.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QThread>
#include <QTranslator>
#include <QtTest>

#include <atomic>
#include <cstdio>
#include <sstream>
#include <thread>
#include <type_traits>
#include <vector>

// What setters that take a TrString or a TrArg are called with.
static_assert(std::is_convertible<const char*, TrString>::value, "");
static_assert(std::is_convertible<QString, TrString>::value, "");
static_assert(std::is_convertible<TrCharData, TrString>::value, "");
static_assert(std::is_convertible<QString, TrArg>::value, "");
static_assert(std::is_convertible<int, TrArg>::value, "");
static_assert(std::has_virtual_destructor<TrArg>::value, "");

namespace {

constexpr TrCharData hello{"Greeter", "Hello"};
constexpr TrCharData goodDay{"Greeter", "Good day"};
constexpr TrCharData countOf{"Greeter", "%1 of %2"};
constexpr TrCharData files{"Greeter", "%n file(s) in %1"};
constexpr TrCharData untranslated{"Greeter", "no translation for %1"};

QString qmFile(const QString& language)
{
    return QStringLiteral(ORVO_TEST_TRANSLATIONS "/orvo_") + language + QStringLiteral(".qm");
}

/// Counts the look-ups that no loaded file answers.
class CountingTranslator : public QTranslator
{
public:
    CountingTranslator() { QCoreApplication::installTranslator(this); }
    ~CountingTranslator() override { QCoreApplication::removeTranslator(this); }
    bool isEmpty() const override { return false; }
    QString translate(const char*, const char*, const char*, int) const override
    {
        ++count;
        return QString();
    }

    mutable std::atomic<int> count{0};
};

/// The child of the search tests: loads "xx" and tells the greeting and the log lines.
int searchChild()
{
    const LogCapture log("Language");
    const bool loaded = Language::instance()->loadTranslations(QStringLiteral("xx"));
    const QString greeting = TrString(hello).toString();
    std::printf("%d\n%s\n%s\n", int(loaded), qUtf8Printable(greeting), qUtf8Printable(log.lines().join('\n')));
    return 0;
}

} // namespace

class tst_OrvoLanguage : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(m_directory.isValid());
        for (const char* language : {"de", "fr"})
            QVERIFY(QFile::copy(qmFile(language), m_directory.filePath(QStringLiteral("orvo_%1.qm").arg(language))));
        QVERIFY(QDir::setCurrent(m_directory.path()));
    }

    void init() { Language::instance()->loadTranslations(QStringLiteral("none")); }

    // Plain text

    void plainTextStandsAsItIsAndIgnoresArguments()
    {
        TrString text("a %1");
        QVERIFY(!text.translatable());
        text.setArg(TrArg("b"));
        QCOMPARE(text.toString(), QStringLiteral("a %1"));
        text.setArgs(3, {TrArg("b"), TrArg(4)});
        QCOMPARE(text.toString(), QStringLiteral("a %1"));
    }

    void plainTextOfTheSameSourceIsNotTranslated()
    {
        QVERIFY(Language::instance()->loadTranslations(QStringLiteral("de")));
        QCOMPARE(TrString("Hello").toString(), QStringLiteral("Hello"));
    }

    void plainBytesAreReadAsUtf8()
    {
        QCOMPARE(TrString("Gr\xc3\xbc\xc3\x9f").toString(), QString::fromUtf8("Gr\xc3\xbc\xc3\x9f"));
    }

    void defaultTextIsEmptyAndPlain()
    {
        QVERIFY(!TrString().translatable());
        QCOMPARE(TrString().toString(), QString());
        QVERIFY(TrString() == TrString(""));
    }

    // Translation

    void withoutALanguageTheSourceTextIsGivenWithItsArguments()
    {
        QVERIFY(TrString(hello).translatable());
        QCOMPARE(TrString(hello).toString(), QStringLiteral("Hello"));
        QCOMPARE(TrString(countOf, {TrArg(1), TrArg(2)}).toString(), QStringLiteral("1 of 2"));
    }

    void aTextFollowsEachLanguageThatIsLoaded()
    {
        const TrString text(hello);
        const TrString withArguments(countOf, {TrArg(1), TrArg(2)});
        QVERIFY(Language::instance()->loadTranslations(QStringLiteral("de")));
        QCOMPARE(text.toString(), QString::fromUtf8("Grüß Gott"));
        QCOMPARE(withArguments.toString(), QStringLiteral("Von 2: 1"));
        QVERIFY(Language::instance()->loadTranslations(QStringLiteral("fr")));
        QCOMPARE(text.toString(), QStringLiteral("Bonjour"));
        QCOMPARE(withArguments.toString(), QStringLiteral("1 sur 2"));
        QVERIFY(!Language::instance()->loadTranslations(QStringLiteral("none")));
        QCOMPARE(text.toString(), QStringLiteral("Hello"));
    }

    void contextAndDisambiguationSelectTheText()
    {
        QVERIFY(Language::instance()->loadTranslations(QStringLiteral("de")));
        QCOMPARE(TrString(TrCharData{"Other", "Hello"}).toString(), QStringLiteral("Hallo"));
        QCOMPARE(TrString(TrCharData{"Greeter", "Open", "verb"}).toString(), QString::fromUtf8("Öffnen"));
        QCOMPARE(TrString(TrCharData{"Greeter", "Open", "state"}).toString(), QStringLiteral("Offen"));
        QCOMPARE(Language::ntr(TrCharData{"Greeter", "Open", "state"}), QStringLiteral("Offen"));
    }

    void aTextThatTheFileLacksIsItsSourceText()
    {
        QVERIFY(Language::instance()->loadTranslations(QStringLiteral("de")));
        QCOMPARE(TrString(untranslated, TrArg("x")).toString(), QStringLiteral("no translation for x"));
    }

    void theCountSelectsThePluralFormOfTheLanguage()
    {
        QVERIFY(Language::instance()->loadTranslations(QStringLiteral("de")));
        const TrCharData none{files.context, files.sourceText, nullptr, 0};
        const TrCharData one{files.context, files.sourceText, nullptr, 1};
        QCOMPARE(TrString(none, TrArg("/tmp")).toString(), QStringLiteral("0 Dateien in /tmp"));
        QCOMPARE(TrString(one, TrArg("/tmp")).toString(), QStringLiteral("1 Datei in /tmp"));

        TrString set(files);
        set.setArg(7, TrArg("/tmp"));
        QCOMPARE(set.toString(), QStringLiteral("7 Dateien in /tmp"));

        QVERIFY(Language::instance()->loadTranslations(QStringLiteral("fr")));
        QCOMPARE(TrString(none, TrArg("/tmp")).toString(), QStringLiteral("0 fichier dans /tmp"));
        QCOMPARE(set.toString(), QStringLiteral("7 fichiers dans /tmp"));
        QCOMPARE(Language::ntr(one), QStringLiteral("1 fichier dans %1"));
    }

    void settingArgumentsReplacesAllOfThem()
    {
        TrString text(countOf, {TrArg("a"), TrArg("b")});
        text.setArgs({TrArg("c"), TrArg("d")});
        QCOMPARE(text.toString(), QStringLiteral("c of d"));

        TrString one(countOf, {TrArg("a"), TrArg("b")});
        one.setArg(TrArg("c"));
        QCOMPARE(one.toString(), QStringLiteral("c of %2"));
    }

    void aTextIsTranslatedOncePerLanguageVersionAndCopiesShareTheResult()
    {
        const CountingTranslator translator;
        const TrString text(untranslated, TrArg(1));
        QCOMPARE(translator.count.load(), 0);
        text.toString();
        QCOMPARE(translator.count.load(), 1);

        const TrString copy = text;
        text.toString();
        QCOMPARE(copy.toString(), QStringLiteral("no translation for 1"));
        QCOMPARE(translator.count.load(), 1);

        Language::instance()->loadTranslations(QStringLiteral("de"));
        copy.toString();
        text.toString();
        QCOMPARE(translator.count.load(), 2);
    }

    void aCopyMadeBeforeTheFirstUseSharesTheResultToo()
    {
        const CountingTranslator translator;
        const TrString text(untranslated, TrArg(1));
        const TrString copy = text;
        copy.toString();
        text.toString();
        QCOMPARE(translator.count.load(), 1);
    }

    void argumentsSetOnATranslatedCopyShowAfterTheNextLanguageOnly()
    {
        const CountingTranslator translator;
        const TrString text(untranslated, TrArg(1));
        text.toString();
        TrString copy = text;
        copy.setArg(TrArg(2));
        QCOMPARE(copy.toString(), QStringLiteral("no translation for 1"));
        QCOMPARE(translator.count.load(), 1);

        Language::instance()->loadTranslations(QStringLiteral("de"));
        QCOMPARE(copy.toString(), QStringLiteral("no translation for 2"));
        QCOMPARE(text.toString(), QStringLiteral("no translation for 1"));
    }

    void differentSourcesThatTranslateAlikeAreEqual()
    {
        const TrString a(hello);
        const TrString b(goodDay);
        QVERIFY(a != b);
        QVERIFY(!(a == b));
        QVERIFY(Language::instance()->loadTranslations(QStringLiteral("de")));
        QVERIFY(a == b);
        QVERIFY(!(a != b));
        QVERIFY(a == QString::fromUtf8("Grüß Gott"));
        QVERIFY(a == a);
    }

    void aStreamReceivesUtf8()
    {
        QVERIFY(Language::instance()->loadTranslations(QStringLiteral("de")));
        std::ostringstream stream;
        stream << TrString(hello) << TrString("!");
        QCOMPARE(QByteArray(stream.str().c_str()), QByteArray("Gr\xc3\xbc\xc3\x9f Gott!"));
    }

    // Arguments

    void eachKindOfArgumentIsFormattedAsQStringDoes()
    {
        const QString text = QStringLiteral("<%1>");
        QCOMPARE(TrArg().apply(text), text);
        QCOMPARE(TrArg("a").apply(text), QStringLiteral("<a>"));
        QCOMPARE(TrArg(QStringLiteral("a")).apply(text), QStringLiteral("<a>"));
        QCOMPARE(TrArg(QStringLiteral("a"), 3).apply(text), QStringLiteral("<  a>"));
        QCOMPARE(TrArg(QStringLiteral("a"), -3, '.').apply(text), QStringLiteral("<a..>"));
        QCOMPARE(TrArg(-5).apply(text), QStringLiteral("<-5>"));
        QCOMPARE(TrArg(255, 4, 16, QLatin1Char('0')).apply(text), QStringLiteral("<00ff>"));
        QCOMPARE(TrArg(4294967295u).apply(text), QStringLiteral("<4294967295>"));
        QCOMPARE(TrArg(5u, 3, 2).apply(text), QStringLiteral("<101>"));
        QCOMPARE(TrArg(-5L).apply(text), QStringLiteral("<-5>"));
        QCOMPARE(TrArg(5UL, 2).apply(text), QStringLiteral("< 5>"));
        QCOMPARE(TrArg(-9223372036854775807LL).apply(text), QStringLiteral("<-9223372036854775807>"));
        QCOMPARE(TrArg(18446744073709551615ULL).apply(text), QStringLiteral("<18446744073709551615>"));
        QCOMPARE(TrArg(short(-7)).apply(text), QStringLiteral("<-7>"));
        QCOMPARE(TrArg(static_cast<unsigned short>(65535), 6).apply(text), QStringLiteral("< 65535>"));
        QCOMPARE(TrArg(QChar(0xe9)).apply(text), QStringLiteral("<\u00e9>"));
        QCOMPARE(TrArg(QChar('x'), 3).apply(text), QStringLiteral("<  x>"));
        QCOMPARE(TrArg('x').apply(text), QStringLiteral("<x>"));
        QCOMPARE(TrArg('x', 2, QChar('-')).apply(text), QStringLiteral("<-x>"));
        QCOMPARE(TrArg(0.5).apply(text), QStringLiteral("<0.5>"));
        QCOMPARE(TrArg(1234567.0).apply(text), QStringLiteral("<%1>").arg(1234567.0));
        QCOMPARE(TrArg(2.0f / 3, 6, 'f', 2, QLatin1Char('0')).apply(text), QStringLiteral("<000.67>"));
    }

    void argumentsAreAppliedInOrderOnTheResultOfTheOneBefore()
    {
        const QString text = QStringLiteral("%1 %2");
        QCOMPARE(TrArg::applyArgs(text, {}), text);
        QCOMPARE(TrArg::applyArgs(text, {TrArg("a"), TrArg("b")}), QStringLiteral("a b"));
        QCOMPARE(TrArg::applyArgs(text, {TrArg("%2"), TrArg("b")}), QStringLiteral("b b"));
    }

    void severalTextsInOneArgumentAreNotSearchedForPlaceholders()
    {
        const QString text = QStringLiteral("%1 %2");
        QCOMPARE(TrArg("a", "%2").apply(text), QStringLiteral("a %2"));
        QCOMPARE(TrArg("%2", "b").apply(text), QStringLiteral("%2 b"));
    }

    void twoToNineTextsTakeTheirPlaces()
    {
        const QString text = QStringLiteral("%1%2%3%4%5%6%7%8%9");
        const QString a = QStringLiteral("a"), b = QStringLiteral("b"), c = QStringLiteral("c");
        QCOMPARE(TrArg(a, b).apply(text), QStringLiteral("ab%3%4%5%6%7%8%9"));
        QCOMPARE(TrArg(a, b, c).apply(text), QStringLiteral("abc%4%5%6%7%8%9"));
        QCOMPARE(TrArg(a, b, c, "d").apply(text), QStringLiteral("abcd%5%6%7%8%9"));
        QCOMPARE(TrArg(a, b, c, "d", "e").apply(text), QStringLiteral("abcde%6%7%8%9"));
        QCOMPARE(TrArg(a, b, c, "d", "e", "f").apply(text), QStringLiteral("abcdef%7%8%9"));
        QCOMPARE(TrArg(a, b, c, "d", "e", "f", "g").apply(text), QStringLiteral("abcdefg%8%9"));
        QCOMPARE(TrArg(a, b, c, "d", "e", "f", "g", "h").apply(text), QStringLiteral("abcdefgh%9"));
        QCOMPARE(TrArg(a, b, c, "d", "e", "f", "g", "h", "i").apply(text), QStringLiteral("abcdefghi"));
    }

    // Loading

    void anUnknownLanguageMovesTheVersionAndIsToldAllTheSame()
    {
        QSignalSpy changed(Language::instance(), SIGNAL(languageChanged()));
        const int version = Language::instance()->version();
        QVERIFY(!Language::instance()->loadTranslations(QStringLiteral("unknown")));
        QCOMPARE(Language::instance()->version(), version + 1);
        QCOMPARE(changed.count(), 1);
        QVERIFY(Language::instance()->loadTranslations(QStringLiteral("de")));
        QCOMPARE(Language::instance()->version(), version + 2);
        QCOMPARE(changed.count(), 2);
    }

    void loadingLogsEachTry()
    {
        const LogCapture log("Language");
        Language::instance()->loadTranslations(QStringLiteral("de"));
        QCOMPARE(log.lines(), (QStringList{
                                  "DEBUG Loading translations for de",
                                  "DEBUG loadTranslations: Trying to load 'orvo_de'",
                                  "DEBUG loadTranslations: Loaded translation file 'orvo_de'",
                              }));
    }

    void aFailedLoadLogsAllDirectoriesInOrder()
    {
        const LogCapture log("Language");
        Language::instance()->loadTranslations(QStringLiteral("zz"));
        const QString program = QCoreApplication::applicationDirPath();
        QCOMPARE(log.lines(), (QStringList{
                                  "DEBUG Loading translations for zz",
                                  "DEBUG loadTranslations: Trying to load 'orvo_zz'",
                                  "DEBUG loadTranslations: Trying to load '" + program + "/translations/orvo_zz'",
                                  "DEBUG loadTranslations: Trying to load '" + program + "/../../translations/orvo_zz'",
                              }));
    }

    void theFirstDirectoryThatHasTheFileWins_data()
    {
        QTest::addColumn<QStringList>("places");
        QTest::addColumn<QString>("greeting");
        const QString german = QString::fromUtf8("Grüß Gott");
        const QString french = QStringLiteral("Bonjour");
        // "place:language": the file there holds that language.
        QTest::newRow("nowhere") << QStringList{} << QStringLiteral("Hello");
        QTest::newRow("current directory") << QStringList{"run:de"} << german;
        QTest::newRow("beside the program") << QStringList{"a/b/translations:de"} << german;
        QTest::newRow("two folders above") << QStringList{"translations:de"} << german;
        QTest::newRow("current directory first")
            << QStringList{"run:fr", "a/b/translations:de", "translations:de"} << french;
        QTest::newRow("beside the program second") << QStringList{"a/b/translations:fr", "translations:de"} << french;
        QTest::newRow("no other folder") << QStringList{"a/translations:de", "a/b:de"} << QStringLiteral("Hello");
    }

    void theFirstDirectoryThatHasTheFileWins()
    {
        QFETCH(QStringList, places);
        QFETCH(QString, greeting);

        // The program's folder counts, so a copy of the program runs in a tree of its own.
        const QTemporaryDir tree;
        const QDir root(tree.path());
        for (const char* folder : {"run", "a/b/translations", "a/translations", "translations"})
            QVERIFY(root.mkpath(folder));
        const QString program = root.filePath(QStringLiteral("a/b/program"));
        QVERIFY(QFile::copy(QCoreApplication::applicationFilePath(), program));
        for (const QString& place : places) {
            const QStringList parts = place.split(':');
            QVERIFY(QFile::copy(qmFile(parts.at(1)), root.filePath(parts.at(0) + QStringLiteral("/orvo_xx.qm"))));
        }

        QProcess child;
        child.setWorkingDirectory(root.filePath(QStringLiteral("run")));
        child.start(program, {QStringLiteral("--search")});
        QVERIFY(child.waitForFinished());
        QCOMPARE(child.exitCode(), 0);
        const QStringList output = QString::fromUtf8(child.readAllStandardOutput()).split('\n');
        QVERIFY(output.size() > 2);
        const bool expected = greeting != QLatin1String("Hello");
        QCOMPARE(output.at(0), QString::number(int(expected)));
        QCOMPARE(output.at(1), greeting);
        QCOMPARE(output.filter(QStringLiteral("Loaded translation file")).size(), int(expected));
    }

    // Threads

    void theChangeIsToldWithoutTheMutexInTheThreadOfTheCaller()
    {
        bool free = false;
        QThread* emitter = nullptr;
        QThread* caller = nullptr;
        QObject context;
        connect(
            Language::instance(), &Language::languageChanged, &context,
            [&] {
                emitter = QThread::currentThread();
                std::thread([&] {
                    free = Language::instance()->mutex()->tryLock();
                    if (free)
                        Language::instance()->mutex()->unlock();
                }).join();
            },
            Qt::DirectConnection);

        std::thread([&] {
            caller = QThread::currentThread();
            Language::instance()->loadTranslations(QStringLiteral("de"));
        }).join();
        QVERIFY(free);
        QVERIFY(emitter);
        QCOMPARE(emitter, caller);
        QVERIFY(emitter != QThread::currentThread());
    }

    void theMutexIsRecursive()
    {
        const QMutexLocker locker(Language::instance()->mutex());
        QCOMPARE(TrString(hello).toString(), QStringLiteral("Hello"));
    }

    void textsMayBeReadInManyThreadsWhileLanguagesAreLoaded()
    {
        const TrString shared(hello);
        const QStringList allowed{"Hello", QString::fromUtf8("Grüß Gott"), "Bonjour"};
        const QStringList allowedWithArguments{"1 of 2", "Von 2: 1", "1 sur 2", "3 of 4", "Von 4: 3", "3 sur 4"};
        const TrString sharedWithArguments(countOf, {TrArg(1), TrArg(2)});
        std::atomic<bool> stop{false};
        std::atomic<int> wrong{0};
        std::atomic<int> reads{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&] {
                do {
                    if (!allowed.contains(shared.toString()))
                        ++wrong;
                    TrString own = sharedWithArguments;
                    own.setArgs({TrArg(3), TrArg(4)});
                    if (!allowedWithArguments.contains(own.toString())
                        || !allowedWithArguments.contains(sharedWithArguments.toString()))
                        ++wrong;
                    ++reads;
                } while (!stop);
            });
        }
        for (int i = 0; i < 60; ++i) {
            Language::instance()->loadTranslations(QStringLiteral("de"));
            Language::instance()->loadTranslations(QStringLiteral("fr"));
            Language::instance()->loadTranslations(QStringLiteral("none"));
        }
        stop = true;
        for (std::thread& thread : threads)
            thread.join();
        QCOMPARE(wrong.load(), 0);
        QVERIFY(reads.load() >= 4);
        QCOMPARE(shared.toString(), QStringLiteral("Hello"));
    }

    // Contexts

    void theContextIsTheClassOfAPrettyFunctionName_data()
    {
        QTest::addColumn<QByteArray>("function");
        QTest::addColumn<QByteArray>("context");
        QTest::newRow("member") << QByteArray("void Foo::bar(int)") << QByteArray("Foo");
        QTest::newRow("namespace") << QByteArray("QString ns::Foo::bar(X::Y) const") << QByteArray("ns::Foo");
        QTest::newRow("constructor") << QByteArray("Foo::Foo()") << QByteArray("Foo");
        QTest::newRow("several blanks") << QByteArray("static const A::B* Foo::bar()") << QByteArray("Foo");
        QTest::newRow("no parenthesis") << QByteArray("void Foo::bar") << QByteArray("Foo");
        QTest::newRow("no class") << QByteArray("void bar(int)") << QByteArray("void bar");
        QTest::newRow("neither") << QByteArray("plain text") << QByteArray("plain text");
        QTest::newRow("empty") << QByteArray("") << QByteArray("");
        QTest::newRow("class in the arguments only") << QByteArray("void bar(A::B)") << QByteArray("void bar");
    }

    void theContextIsTheClassOfAPrettyFunctionName()
    {
        QFETCH(QByteArray, function);
        QFETCH(QByteArray, context);
        QCOMPARE(trExtractContext(function.constData()), context);
    }

    void thisCompilersFunctionNamesGiveTheClass()
    {
        QCOMPARE(trExtractContext(__PRETTY_FUNCTION__), QByteArray("tst_OrvoLanguage"));
    }

private:
    QTemporaryDir m_directory;
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    if (application.arguments().contains(QStringLiteral("--search")))
        return searchChild();
    tst_OrvoLanguage test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_orvolanguage.moc"
