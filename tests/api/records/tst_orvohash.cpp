#include "core/orvoJson.h"
#include "records/orvohash.h"

#include <QDebug>
#include <QtTest>

#include <sstream>

class TestOrvoHash : public QObject
{
    Q_OBJECT

private slots:
    void jsonIsThatOfTheHash();
    void prettyJsonIsSorted();
    void jsonStringIsReadAsUtf8();
    void aStandardStreamGetsCompactJson();
    void debugGetsCompactJsonAndOneSpace();
    void debugKeepsItsSpacing();
    void recordsCompareAsTheirHashesDo();
};

namespace {

OrvoHash record(const QString& key, const QVariant& value)
{
    OrvoHash record;
    record.__insert(key, value);
    return record;
}

} // namespace

void TestOrvoHash::jsonIsThatOfTheHash()
{
    QCOMPARE(OrvoHash().toJson(false), QByteArray("{}"));
    QCOMPARE(OrvoHash().toJson(true), QByteArray("{}"));
    QCOMPARE(record("a", QVariantList{1, true}).toJson(false), QByteArray("{\"a\":[1,true]}"));
    OrvoHash two = record("a", 1);
    two.__insert("b", 2);
    QCOMPARE(two.toJson(false), OrvoJson::serialize(two.__variant()));
}

void TestOrvoHash::prettyJsonIsSorted()
{
    OrvoHash two = record("b", 1);
    two.__insert("a", 2);
    QCOMPARE(two.toJson(true), QByteArray("{\n  \"a\": 2,\n  \"b\": 1\n}"));
}

void TestOrvoHash::jsonStringIsReadAsUtf8()
{
    QCOMPARE(record("k", QStringLiteral("\u20ac")).toJsonString(), QStringLiteral("{\"k\":\"\u20ac\"}"));
}

void TestOrvoHash::aStandardStreamGetsCompactJson()
{
    std::ostringstream stream;
    stream << '<' << record("k", QStringLiteral("\u00e9")) << '>';
    QCOMPARE(stream.str().c_str(), "<{\"k\":\"\xC3\xA9\"}>");
}

void TestOrvoHash::debugGetsCompactJsonAndOneSpace()
{
    QString text;
    {
        QDebug debug(&text);
        debug << "a" << record("k", "v\n") << 1;
    }
    QCOMPARE(text, QStringLiteral("a {\"k\":\"v\\n\"} 1 "));
}

void TestOrvoHash::debugKeepsItsSpacing()
{
    QString text;
    {
        QDebug debug(&text);
        debug.nospace() << "a" << OrvoHash() << 1 << 2;
    }
    QCOMPARE(text, QStringLiteral("a{} 12"));
}

void TestOrvoHash::recordsCompareAsTheirHashesDo()
{
    const QVariantHash inner{{"a", 1}, {"b", QVariantHash{{"c", "text"}}}};
    QVariantHash other = inner;
    other["b"] = QVariantHash{{"c", "Text"}};
    QVariantHash longer = inner;
    longer["d"] = QVariant();
    const QVariantList values{
        QVariant(),
        false,
        true,
        0,
        1,
        qlonglong(1),
        qulonglong(1),
        1.0,
        1.5,
        qQNaN(),
        QVariant(QString()),
        "",
        "1",
        "text",
        "Text",
        QChar('1'),
        QByteArray("1"),
        QVariantList{1},
        QVariantList{qlonglong(1)},
        QStringList{"1"},
        QVariantHash(),
        inner,
        QVariantHash{{"b", inner["b"]}, {"a", 1}},
        other,
        longer,
        QVariantHash{{"a", 1}, {"x", 2}},
        QVariantMap{{"a", 1}},
    };
    int equal = 0;
    for (const QVariant& a : values) {
        for (const QVariant& b : values) {
            const QVariantHash left{{"k", a}, {"l", 1}};
            const QVariantHash right{{"k", b}, {"l", 1}};
            QVERIFY2((OrvoHash(left) == OrvoHash(right)) == (left == right),
                     record("a", a).toJson(false) + record("b", b).toJson(false));
            QCOMPARE(OrvoHash(left) != OrvoHash(right), left != right);
            equal += left == right;
        }
    }
    QVERIFY(equal > values.size());
    QVERIFY(OrvoHash(inner) != OrvoHash(longer));
    QVERIFY(OrvoHash() == OrvoHash(QVariantHash()));

    // A peer may nest this deep; the time must not double with each level.
    QVariant deep(1);
    QVariant different(2);
    for (int level = 0; level < 200; ++level) {
        deep = level % 2 ? QVariant(QVariantList{deep}) : QVariant(QVariantHash{{"a", deep}});
        different = level % 2 ? QVariant(QVariantList{different}) : QVariant(QVariantHash{{"a", different}});
    }
    QVERIFY(record("k", deep) != record("k", different));
}

QTEST_APPLESS_MAIN(TestOrvoHash)
#include "tst_orvohash.moc"
