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

QTEST_APPLESS_MAIN(TestOrvoHash)
#include "tst_orvohash.moc"
