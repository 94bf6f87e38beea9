#include "core/model/cmpath.h"

#include "logcapture.h"
#include "support/allocationcount.h"

#include <QDebug>
#include <QRandomGenerator>
#include <QSet>
#include <QtTest>

#include <sstream>

namespace {

using Params = CMPath::Params;

CMPath path(const QString& text, const Params& params = Params())
{
    return CMPath::fromPrefixWithBase(text).setParams(params);
}

const char* const catalogueAddress = "airable:preplay?serviceType=airable";

/// Short texts of few characters, so that equal heads, escapes and repetitions are frequent.
QString randomText(QRandomGenerator& random, int minLength)
{
    static const QStringList alphabet{"a",
                                      "b",
                                      ":",
                                      "/",
                                      "\\",
                                      "?",
                                      "=",
                                      ">",
                                      "]",
                                      QString(QChar(0)),
                                      QString::fromUtf8("é"),
                                      QString::fromUtf8("😀")};
    QString text;
    for (int i = minLength + random.bounded(5); i > 0; --i)
        text += alphabet.at(random.bounded(alphabet.size()));
    return text;
}

CMPath randomPath(QRandomGenerator& random)
{
    CMPath result = path(randomText(random, 0));
    for (int i = qMax(0, random.bounded(6) - 3); i > 0; --i)
        result.addParam(randomText(random, 1), randomText(random, 0));
    return result;
}

} // namespace

class tst_CMPath : public QObject
{
    Q_OBJECT

private slots:
    // Construction

    void emptyPath()
    {
        QCOMPARE(CMPath().toEncoded(), QString());
        QCOMPARE(CMPath().prefix(), QString());
        QCOMPARE(CMPath().base(), QString());
        QVERIFY(CMPath().isEmpty());
        QVERIFY(!CMPath().hasParams());
        QVERIFY(CMPath::fromEncoded(QString()) == CMPath());
        QVERIFY(CMPath::fromEncoded(QByteArray()) == CMPath());
    }

    void aPrefixGetsExactlyOneColon()
    {
        QCOMPARE(CMPath::fromPrefix("ui").baseWithPrefix(), QStringLiteral("ui:"));
        QCOMPARE(CMPath::fromPrefix("ui:").baseWithPrefix(), QStringLiteral("ui:"));
        QCOMPARE(CMPath::fromPrefix("ui").base(), QString());
        QCOMPARE(CMPath::fromPrefix("ui:").prefix(), QStringLiteral("ui"));
        QCOMPARE(CMPath::fromPrefix("").baseWithPrefix(), QStringLiteral(":"));
    }

    void textWithBaseIsTakenAsItStands()
    {
        const QString text = QStringLiteral("ui:a\\?b=c?d=e");
        const CMPath taken = CMPath::fromPrefixWithBase(text);
        QCOMPARE(taken.baseWithPrefix(), text);
        QVERIFY(!taken.hasParams());
    }

    void aVariantIsParsedAsText()
    {
        const CMPath parsed = CMPath::fromQVariant(QVariant(QStringLiteral("p?a=1")));
        QVERIFY(parsed == path("p", {{"a", "1"}}));
        QVERIFY(CMPath::fromQVariant(parsed.__variant()) == parsed);
        QCOMPARE(parsed.__variant(), QVariant(QStringLiteral("p?a=1")));
        QCOMPARE(parsed.__variant().type(), QVariant::String);
        QVERIFY(CMPath::fromQVariant(QVariant()) == CMPath());
    }

    // Parsing

    void parsesTheTextForm_data()
    {
        QTest::addColumn<QByteArray>("encoded");
        QTest::addColumn<QString>("text");
        QTest::addColumn<Params>("params");
        QTest::addColumn<QStringList>("log");

        const auto row = [](const char* encoded, const QString& text, const Params& params = Params(),
                            const QStringList& log = QStringList()) {
            QTest::newRow(encoded) << QByteArray(encoded) << text << params << log;
        };
        const auto tornApart = [](const char* encoded) {
            return QStringList{QStringLiteral("WARN Invalid constructed path: ") + QString::fromUtf8(encoded)};
        };
        row("", "");
        row("ui:settings/audio", "ui:settings/audio");
        row("ui:settings/audio?a=1?b=2", "ui:settings/audio", {{"a", "1"}, {"b", "2"}});
        row("Gr\xc3\xbc\xc3\x9f?\xc3\xa9=\xe2\x82\xac", QString::fromUtf8("Grüß"),
            {{QString::fromUtf8("é"), QString::fromUtf8("€")}});
        // Escapes.
        row("a\\\\b", "a\\b");
        row("a\\?b", "a?b");
        row("a\\=b", "a=b");
        row("a\\\\?b=c", "a\\", {{"b", "c"}});
        row("a\\\\\\?b=c", "a\\?b", {}, {});
        row("p?a\\=b\\?=c\\=d\\\\", "p", {{"a=b?", "c=d\\"}});
        row("p\\q", "pq", {}, {"WARN Invalid escape sequence: \\q in path: p\\q"});
        row("p?a\\b=\\c", "p", {{"ab", "c"}},
            {"WARN Invalid escape sequence: \\b in path: p?a\\b=\\c",
             "WARN Invalid escape sequence: \\c in path: p?a\\b=\\c"});
        row("p\\", "p");
        row("p?a=1\\", "p", {{"a", "1"}});
        row("\\", "");
        // Empty keys and values.
        row("?a=b", "", {{"a", "b"}});
        row("p?", "p");
        row("p??", "p", {{"", ""}});
        row("p??x=1", "p", {{"", ""}, {"x", "1"}});
        row("p?=v", "p");
        row("p?=v?x=1", "p", {{"", "v"}, {"x", "1"}});
        row("p?a=", "p", {{"a", ""}});
        row("p?flag", "p", {{"flag", ""}});
        row("p?flag?x=1", "p", {{"flag", ""}, {"x", "1"}});
        row("=", "");
        row("=b", "");
        row("=b?c=d", "", {{"c", "d"}});
        // A later equal key wins.
        row("p?a=1?a=2", "p", {{"a", "2"}});
        // A "=" without escape cuts.
        row("a=b?c=d", "a", {{"c", "d"}});
        row("a=b", "a");
        row("p?a=b=c", "p", {{"a", "c"}}, tornApart("p?a=b=c"));
        row("p?a=b=", "p", {{"a", ""}}, tornApart("p?a=b="));
        row("p?a==c", "p", {{"a", "c"}}, tornApart("p?a==c"));
        row("p?==c", "p");
        row("a=b=c", "a", {}, tornApart("a=b=c"));
        row("p?a=b=c=d?e=f", "p", {{"a", "d"}, {"e", "f"}}, tornApart("p?a=b=c=d?e=f") + tornApart("p?a=b=c=d?e=f"));
        // An empty key at first: the second "=" names the key after all.
        row("p?=k=v", "p", {{"k", "v"}});
    }

    void parsesTheTextForm()
    {
        QFETCH(QByteArray, encoded);
        QFETCH(QString, text);
        QFETCH(Params, params);
        QFETCH(QStringList, log);
        {
            const LogCapture capture("CMPath");
            const CMPath parsed = CMPath::fromEncoded(encoded);
            QCOMPARE(parsed.baseWithPrefix(), text);
            QCOMPARE(parsed.params(), params);
            QCOMPARE(capture.lines(), log);
        }
        const LogCapture capture("CMPath");
        QVERIFY(CMPath::fromEncoded(QString::fromUtf8(encoded)) == path(text, params));
        QCOMPARE(capture.lines(), log);
    }

    void aParameterWithoutValueHasANullValueAndPrintsWithEqualsSign()
    {
        const CMPath flag = CMPath::fromEncoded("p?flag");
        QVERIFY(flag.param("flag").isNull());
        QCOMPARE(flag.toEncoded(), QStringLiteral("p?flag="));
        const CMPath emptyKey = CMPath::fromEncoded("p??x=1");
        QVERIFY(emptyKey.hasParam(""));
        QVERIFY(emptyKey.param("").isNull());
    }

    void aCatalogueAddressKeepsItsOwnQuery()
    {
        const QString address = QLatin1String(catalogueAddress) + QStringLiteral("?id=7\\x?n=a=b");
        const LogCapture capture("CMPath");
        for (const CMPath& parsed : {CMPath::fromEncoded(address), CMPath::fromQVariant(address)}) {
            QCOMPARE(parsed.baseWithPrefix(), address);
            QVERIFY(!parsed.hasParams());
            QCOMPARE(parsed.toEncoded(),
                     QStringLiteral("airable:preplay\\?serviceType\\=airable\\?id\\=7\\\\x\\?n\\=a\\=b"));
            QVERIFY(CMPath::fromEncoded(parsed.toEncoded()) == parsed);
            QVERIFY(CMPath::fromEncoded(parsed.toEncoded().toUtf8()) == parsed);
        }
        QCOMPARE(capture.lines(), QStringList());
    }

    void aMarkOfTheEncodingIsText()
    {
        const QString mark(QChar::ByteOrderMark);
        for (const QString& text : {mark, mark + 'a', mark + mark + 'a' + mark, 'a' + mark}) {
            const CMPath marked = path(text, {{text, text}});
            QVERIFY(CMPath::fromEncoded(marked.toEncoded()) == marked);
            QVERIFY(CMPath::fromEncoded(marked.toEncoded().toUtf8()) == marked);
        }
    }

    void onlyTheTextFormOfExactlyThatAddressIsSpecial()
    {
        const QString address = QLatin1String(catalogueAddress);
        QVERIFY(CMPath::fromEncoded(address.toUtf8()) == path("airable:preplay", {{"serviceType", "airable"}}));
        QVERIFY(CMPath::fromEncoded(QStringLiteral("A") + address.mid(1))
                == path("Airable:preplay", {{"serviceType", "airable"}}));
        QVERIFY(CMPath::fromEncoded(address.chopped(1)) == path("airable:preplay", {{"serviceType", "airabl"}}));
        QVERIFY(CMPath::fromEncoded(QStringLiteral("x") + address)
                == path("xairable:preplay", {{"serviceType", "airable"}}));
    }

    // Encoding

    void encodesParametersInKeyOrderWithTheirEscapes()
    {
        QCOMPARE(path("ui:settings/audio", {{"b", "2"}, {"a", "1"}}).toEncoded(),
                 QStringLiteral("ui:settings/audio?a=1?b=2"));
        QCOMPARE(path("p", {{"k", ""}}).toEncoded(), QStringLiteral("p?k="));
        QCOMPARE(path("a\\b?c=d:e/f", {{"k?\\=", "v=\\?"}}).toEncoded(),
                 QStringLiteral("a\\\\b\\?c\\=d:e/f?k\\?\\\\\\==v\\=\\\\\\?"));
        QCOMPARE(path("", {{"a", "b"}}).toEncoded(), QStringLiteral("?a=b"));
    }

    void anyPathSurvivesEncodingAndParsing()
    {
        QRandomGenerator random(seed());
        const LogCapture capture("CMPath");
        for (int i = 0; i < 20000; ++i) {
            const CMPath original = randomPath(random);
            const QString encoded = original.toEncoded();
            if (CMPath::fromEncoded(encoded) != original || CMPath::fromEncoded(encoded.toUtf8()) != original)
                QFAIL(qPrintable(QStringLiteral("lost in parsing: ") + encoded));
        }
        QCOMPARE(capture.lines(), QStringList());
    }

    // Reading

    void aUnitThatIsEscapedIsFoundAtEachPlace()
    {
        for (int size = 1; size <= 13; ++size) {
            for (int place = 0; place < size; ++place) {
                for (const QChar c : QStringLiteral("\\?=<>@[]\u0001\u007F\u0080\u00DC\u013F\u5C00\uFFFD")) {
                    QString text(size, QLatin1Char('a'));
                    text[place] = c;
                    QString encoded = text;
                    if (QStringLiteral("\\?=").contains(c))
                        encoded.insert(place, QLatin1Char('\\'));
                    const CMPath plain = CMPath::fromPrefixWithBase(text);
                    QCOMPARE(plain.toEncoded(), encoded);
                    QCOMPARE(CMPath::fromEncoded(encoded).baseWithPrefix(), text);
                }
            }
        }
    }

    void theFirstColonSplitsPrefixFromBase_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("prefix");
        QTest::addColumn<QString>("base");
        QTest::newRow("plain") << "ui:a"
                               << "ui"
                               << "a";
        QTest::newRow("two colons") << "ui:a:b"
                                    << "ui"
                                    << "a:b";
        QTest::newRow("no colon") << "noprefix"
                                  << ""
                                  << "noprefix";
        QTest::newRow("colon first") << ":a"
                                     << ""
                                     << "a";
        QTest::newRow("colon last") << "ui:"
                                    << "ui"
                                    << "";
        QTest::newRow("empty") << ""
                               << ""
                               << "";
    }

    void theFirstColonSplitsPrefixFromBase()
    {
        QFETCH(QString, text);
        QTEST(path(text).prefix(), "prefix");
        QTEST(path(text).base(), "base");
    }

    void splittingTheBaseSkipsEmptyComponents()
    {
        QCOMPARE(path("ui:/a//b/").splitBase(), (QStringList{"a", "b"}));
        QCOMPARE(path("ui:").splitBase(), QStringList());
        QCOMPARE(path("a/b:c/d").splitBase(), (QStringList{"c", "d"}));
        QCOMPARE(path("a/b").splitBase(), (QStringList{"a", "b"}));
    }

    void aPathOfParametersOnlyIsEmpty()
    {
        const CMPath parsed = CMPath::fromEncoded("?a=b");
        QVERIFY(parsed.isEmpty());
        QVERIFY(parsed.hasParams());
        QCOMPARE(parsed.param("a"), QStringLiteral("b"));
        QVERIFY(parsed != CMPath());
    }

    void containsLooksAtTheTextOnlyAndAtCase()
    {
        const CMPath p = path("ui:abc", {{"key", "value"}});
        QVERIFY(p.contains("i:a"));
        QVERIFY(!p.contains("ABC"));
        QVERIFY(!p.contains("key"));
        QVERIFY(!p.contains("value"));
    }

    void startsWithComparesPlainTextWithoutParameters()
    {
        QString rest = QStringLiteral("untouched");
        QVERIFY(path("a/bc", {{"x", "1"}}).startsWith(path("a/b", {{"y", "2"}}), &rest));
        QCOMPARE(rest, QStringLiteral("c"));
        QVERIFY(path("a").startsWith(path("a"), &rest));
        QCOMPARE(rest, QString());
        rest = QStringLiteral("untouched");
        QVERIFY(!path("A/b").startsWith(path("a"), &rest));
        QVERIFY(!path("a").startsWith(path("a/b"), &rest));
        QCOMPARE(rest, QStringLiteral("untouched"));
        QVERIFY(path("a").startsWith(CMPath()));
    }

    void parametersAreReadByKey()
    {
        const CMPath p = path("p", {{"a", "1"}, {"b", "2"}});
        QVERIFY(p.hasParams());
        QVERIFY(p.hasParam("a"));
        QVERIFY(!p.hasParam("A"));
        QCOMPARE(p.param("b"), QStringLiteral("2"));
        QVERIFY(p.param("c").isNull());
        QCOMPARE(p.params(), (Params{{"a", "1"}, {"b", "2"}}));
        QVERIFY(p.withoutParams() == path("p"));
        QVERIFY(p.hasParams());
    }

    void plusAppendsDirectlyAndKeepsParameters()
    {
        const CMPath p = path("a", {{"x", "1"}});
        QVERIFY(p + "b" == path("ab", {{"x", "1"}}));
        QVERIFY(p + "?b" == path("a?b", {{"x", "1"}}));
        QVERIFY(p == path("a", {{"x", "1"}}));
    }

    // Changing

    void settingTheBaseKeepsThePrefix()
    {
        QCOMPARE(path("noprefix").setBase("x").baseWithPrefix(), QStringLiteral("x"));
        QCOMPARE(path("ui:a:b").setBase("x").baseWithPrefix(), QStringLiteral("ui:x"));
        QCOMPARE(path(":a").setBase("x").baseWithPrefix(), QStringLiteral("x"));
        QCOMPARE(path("ui:a").setBase("").baseWithPrefix(), QStringLiteral("ui:"));
        QVERIFY(path("ui:a", {{"k", "v"}}).setBase("b") == path("ui:b", {{"k", "v"}}));
    }

    void aSubpathIsJoinedWithExactlyOneSlash_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("subpath");
        QTest::addColumn<QString>("joined");
        QTest::newRow("both") << "a/"
                              << "/b"
                              << "a/b";
        QTest::newRow("neither") << "a"
                                 << "b"
                                 << "a/b";
        QTest::newRow("left") << "a/"
                              << "b"
                              << "a/b";
        QTest::newRow("right") << "a"
                               << "/b"
                               << "a/b";
        QTest::newRow("onto nothing") << ""
                                      << "b"
                                      << "/b";
        QTest::newRow("nothing") << "a"
                                 << ""
                                 << "a/";
        QTest::newRow("behind a prefix") << "ui:"
                                         << "b"
                                         << "ui:/b";
        QTest::newRow("one slash of several") << "a//"
                                              << "//b"
                                              << "a///b";
    }

    void aSubpathIsJoinedWithExactlyOneSlash()
    {
        QFETCH(QString, text);
        QFETCH(QString, subpath);
        QTEST(path(text).appendSubpath(subpath).baseWithPrefix(), "joined");
    }

    void changesReturnThePathItself()
    {
        CMPath p = path("ui:a");
        QCOMPARE(&p.setBase("b"), &p);
        QCOMPARE(&p.appendSubpath("c"), &p);
        QCOMPARE(&p.setParams({{"a", "1"}, {"b", "2"}}), &p);
        QCOMPARE(&p.addParam("c", "3"), &p);
        QCOMPARE(&p.addParams({{"c", "4"}, {"d", "5"}}), &p);
        QCOMPARE(&p.removeParam("a"), &p);
        QVERIFY(p == path("ui:b/c", {{"b", "2"}, {"c", "4"}, {"d", "5"}}));
        QVERIFY(p.addParams(Params()) == path("ui:b/c", {{"b", "2"}, {"c", "4"}, {"d", "5"}}));
        QVERIFY(p.removeParam("missing") == path("ui:b/c", {{"b", "2"}, {"c", "4"}, {"d", "5"}}));
        QCOMPARE(&p.clearParams(), &p);
        QVERIFY(p == path("ui:b/c"));
    }

    void aCopyIsNotChanged()
    {
        const CMPath original = path("ui:a", {{"k", "v"}});
        CMPath copy = original;
        copy.appendSubpath("b").addParam("k", "w");
        QVERIFY(original == path("ui:a", {{"k", "v"}}));
    }

    // Comparing

    void equalityCountsParametersUnlessToldNotTo()
    {
        const CMPath plain = path("a");
        const CMPath withParams = path("a", {{"x", "1"}});
        QVERIFY(plain != withParams);
        QVERIFY(!(plain == withParams));
        QVERIFY(!plain.equals(withParams, CMPath::WithParams));
        QVERIFY(plain.equals(withParams, CMPath::WithoutParams));
        QVERIFY(!plain.equals(path("A"), CMPath::WithoutParams));
        QCOMPARE(int(CMPath::WithParams), 0);
        QCOMPARE(int(CMPath::WithoutParams), 1);
    }

    void ordersByTextForm()
    {
        QVERIFY(path("a") < path("a", {{"x", "1"}}));
        QVERIFY(!(path("a", {{"x", "1"}}) < path("a")));
        // As written the "?" would stand ahead of "A", its escape stands behind it.
        QVERIFY(path("A") < path("?"));
        QVERIFY(path("a", {{"x", "1"}}) < path("a?"));
        QVERIFY(path("aA") < path("a="));
        QVERIFY(!(path("a") < path("a")));
    }

    void theOrderIsThatOfTheEncodedTexts()
    {
        QRandomGenerator random(seed());
        for (int i = 0; i < 100000; ++i) {
            const CMPath a = randomPath(random);
            const CMPath b = random.bounded(4) ? randomPath(random) : a + randomText(random, 0);
            if ((a < b) != (a.toEncoded() < b.toEncoded()) || (b < a) != (b.toEncoded() < a.toEncoded())) {
                qDebug() << a << b;
                QFAIL("ordered unlike the encoded texts");
            }
        }
    }

    void theHashIsThatOfTheEncodedText()
    {
        QRandomGenerator random(seed());
        for (int i = 0; i < 1000; ++i) {
            const CMPath p = randomPath(random);
            QCOMPARE(qHash(p), qHash(p.toEncoded(), 0));
        }
        QSet<CMPath> set{path("a"), path("a", {{"x", "1"}}), path("a")};
        QCOMPARE(set.size(), 2);
        QVERIFY(set.contains(CMPath::fromEncoded("a?x=1")));
    }

    void withoutEscapesAndParametersNothingIsAllocated()
    {
        const CMPath a = path("ui:settings/audio/volume");
        const CMPath b = path("ui:settings/audio/mute");
        const CMPath same = path(QStringLiteral("ui:settings/audio/vol") + QStringLiteral("ume"));
        bool result = true;
        uint hash = 0;
        QString encoded;

        QVERIFY(allocationsOf([] { QString(7, QLatin1Char('x')); }) > 0);
        QCOMPARE(allocationsOf([&] { result = a < b; }), 0);
        QVERIFY(!result);
        QCOMPARE(allocationsOf([&] { result = b < a; }), 0);
        QVERIFY(result);
        QCOMPARE(allocationsOf([&] { result = a < same; }), 0);
        QVERIFY(!result);
        QCOMPARE(allocationsOf([&] { result = a == same; }), 0);
        QVERIFY(result);
        QCOMPARE(allocationsOf([&] { hash = qHash(a); }), 0);
        QCOMPARE(hash, qHash(a.baseWithPrefix(), 0));
        QCOMPARE(allocationsOf([&] { encoded = a.toEncoded(); }), 0);
        QCOMPARE(encoded, a.baseWithPrefix());
    }

    // Output

    void streamsWriteTheTextForm()
    {
        const CMPath p = path(QString::fromUtf8("ui:ü?"), {{"k", "v"}});
        std::ostringstream stream;
        stream << p << "|";
        QCOMPARE(QByteArray(stream.str().c_str()), QByteArray("ui:\xc3\xbc\\??k=v|"));

        const CMPath plain = path("ui:a", {{"k", "v"}});
        QString text;
        QDebug(&text) << plain << 1;
        QCOMPARE(text, QStringLiteral("\"ui:a?k=v\" 1 "));
        text.clear();
        QDebug(&text).nospace() << plain << 1;
        QCOMPARE(text, QStringLiteral("\"ui:a?k=v\"1"));
    }

    void isAMetaType()
    {
        QVERIFY(qMetaTypeId<CMPath>() >= int(QMetaType::User));
        QCOMPARE(QByteArray(QMetaType::typeName(qMetaTypeId<CMPath::Params>())), QByteArray("CMPath::Params"));
        const CMPath p = path("a", {{"x", "1"}});
        QVERIFY(QVariant::fromValue(p).value<CMPath>() == p);
    }

private:
    static quint32 seed()
    {
        const QByteArray given = qgetenv("ORVO_TEST_SEED");
        const quint32 value = given.isEmpty() ? QRandomGenerator::global()->generate() : given.toUInt();
        qDebug() << "ORVO_TEST_SEED" << value;
        return value;
    }
};

QTEST_APPLESS_MAIN(tst_CMPath)

#include "tst_cmpath.moc"
