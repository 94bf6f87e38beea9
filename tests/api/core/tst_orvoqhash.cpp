#include "core/orvoQHash.h"

#include "childprocess.h"
#include "records/orvohash.h"

#include <QDate>
#include <QtTest>

#include <functional>

namespace {

int doubleHash(double number)
{
    return int(qHash(QByteArray(reinterpret_cast<const char*>(&number), sizeof number), 0));
}

/// What must stop the process, by the argument that the child is given.
const FatalCalls& fatalCalls()
{
    static const FatalCalls calls{
        {"hashInvalid", [] { orvoHash(QVariant()); }},
        {"hashUInt", [] { orvoHash(QVariant(1u)); }},
        {"hashULongLong", [] { orvoHash(QVariant(1ull)); }},
        {"hashDate", [] { orvoHash(QVariant(QDate(2020, 1, 1))); }},
        {"hashStringList", [] { orvoHash(QVariant(QStringList{"a"})); }},
        {"hashInvalidInList",
         [] {
             orvoHash(QVariantList{1, QVariant()});
         }},
        {"compareDates", [] { orvoCompare(QDate(2020, 1, 1), QDate(2020, 1, 2)); }},
        {"compareEmptyLists", [] { orvoCompare(QVariantList(), QVariantList()); }},
        {"compareEqualLists",
         [] {
             orvoCompare(QVariantList{1, 2}, QVariantList{1, 2});
         }},
        {"compareListWithItsPrefix",
         [] {
             orvoCompare(QVariantList{1, 2}, QVariantList{1});
         }},
        {"comparePrefixWithItsList",
         [] {
             orvoCompare(QVariantList{1}, QVariantList{1, 2});
         }},
        {"compareEmptyHashes", [] { orvoCompare(QVariantHash(), QVariantHash()); }},
        {"compareEqualHashes",
         [] {
             orvoCompare(QVariantHash{{"a", 1}}, QVariantHash{{"a", 1}});
         }},
        {"compareHashWithItsPart",
         [] {
             orvoCompare(QVariantHash{{"a", 1}, {"b", 2}}, QVariantHash{{"a", 1}});
         }},
    };
    return calls;
}

} // namespace

class tst_OrvoQHash : public QObject
{
    Q_OBJECT

private slots:
    void hashesByType_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<int>("hash");
        const auto row = [](const char* name, const QVariant& value, int hash) {
            QTest::newRow(name) << value << hash;
        };
        row("false", false, 0);
        row("true", true, 1);
        row("int", 42, 42);
        row("negative int", -42, -42);
        row("long long", 42LL, 42);
        row("negative long long", -1LL, 0);
        row("most negative int as long long", -2147483648LL, 2147483647);
        row("long long of 32 bits", 0x80000000LL, int(0x80000001u));
        row("long long of 33 bits", 0x100000000LL, 2);
        row("long long with both halves", 0x0123456789abcdefLL,
            int(0x0123456789abcdefLL ^ (0x0123456789abcdefLL >> 31)));
        row("double", 0.5, doubleHash(0.5));
        row("negative zero", -0.0, doubleHash(-0.0));
        row("string", QStringLiteral("text"), int(qHash(QStringLiteral("text"), 0)));
        row("bytes", QByteArray("bytes"), int(qHash(QByteArray("bytes"), 0)));
        row("empty list", QVariantList(), 0);
        row("list", QVariantList{1, 2, 3}, (1 * 47 + 2) * 47 + 3);
        row("nested list", QVariantList{QVariantList{1, 2}, true}, (1 * 47 + 2) * 47 + 1);
        row("empty hash", QVariantHash(), 0);
        row("hash of one", QVariantHash{{"key", 5}}, int(qHash(QStringLiteral("key"), 0) * 47 + 5));
    }

    void hashesByType()
    {
        QFETCH(QVariant, value);
        QTEST(orvoHash(value), "hash");
    }

    void aNegativeZeroHashesUnlikeZero() { QVERIFY(orvoHash(0.0) != orvoHash(-0.0)); }

    void aHashIsHashedInItsIterationOrder()
    {
        const QVariantHash hash{{"a", 1}, {"b", QStringLiteral("x")}, {"c", QVariantList{true}}};
        uint expected = 0;
        for (auto it = hash.cbegin(); it != hash.cend(); ++it)
            expected = (expected * 47 + qHash(it.key(), 0)) * 47 + uint(orvoHash(it.value()));
        QCOMPARE(orvoHash(hash), int(expected));
    }

    void aRecordHashesAsItsVariant()
    {
        const OrvoHash record(QVariantHash{{"a", 1}, {"b", -2LL}});
        QCOMPARE(qHash(record), uint(orvoHash(record.__variant())));
        QCOMPARE(qHash(OrvoHash()), 0u);
    }

    void comparesByType_data()
    {
        QTest::addColumn<QVariant>("a");
        QTest::addColumn<QVariant>("b");
        QTest::addColumn<int>("result");
        const auto row = [](const char* name, const QVariant& a, const QVariant& b, int result) {
            QTest::newRow(name) << a << b << result;
        };
        row("types differ", 1, QStringLiteral("1"), QVariant::String - QVariant::Int);
        row("types differ, other way", QStringLiteral("1"), 1, QVariant::Int - QVariant::String);
        row("int and long long differ", 1, 1LL, QVariant::LongLong - QVariant::Int);
        row("invalid and int", QVariant(), 1, int(QVariant::Int));
        row("invalid", QVariant(), QVariant(), 0);
        row("bools", false, true, 1);
        row("bools, other way", true, false, -1);
        row("equal bools", true, true, 0);
        row("ints", 1, 2, 1);
        row("ints, other way", 20, 2, -18);
        row("equal ints", 2, 2, 0);
        row("unsigned ints", 1u, 5u, 4);
        row("long longs", 1LL, 4LL, 3);
        row("long longs cut to 32 bits", 0LL, 0x100000000LL, 0);
        row("long longs cut to a negative number", 0LL, 0x80000000LL, int(0x80000000u));
        row("unsigned long longs", 9ULL, 4ULL, -5);
        row("doubles closer than 1", 1.2, 1.9, 0);
        row("doubles", 1.0, 3.9, 2);
        row("doubles, other way", 3.9, 1.0, -2);
        row("equal strings", QStringLiteral("a"), QStringLiteral("a"), 0);
        row("equal bytes", QByteArray("a"), QByteArray("a"), 0);
        row("lists", QVariantList{1, 2}, QVariantList{1, 5}, 3);
        row("lists of different types", QVariantList{1}, QVariantList{1LL}, QVariant::LongLong - QVariant::Int);
        row("nested lists", QVariantList{QVariantList{7}}, QVariantList{QVariantList{5}}, -2);
        row("lists that differ ahead of their ends", QVariantList{1, 2, 3}, QVariantList{4}, 3);
        row("hashes by value", QVariantHash{{"a", 1}, {"b", 2}}, QVariantHash{{"a", 1}, {"b", 4}}, 2);
        row("hashes by the first key's value", QVariantHash{{"a", 1}, {"b", 9}}, QVariantHash{{"a", 3}, {"b", 2}}, 2);
    }

    void comparesByType()
    {
        QFETCH(QVariant, a);
        QFETCH(QVariant, b);
        QTEST(orvoCompare(a, b), "result");
    }

    void textsCompareInTheirOwnDirectionUnlikeNumbers()
    {
        QVERIFY(orvoCompare(QStringLiteral("a"), QStringLiteral("b")) < 0);
        QVERIFY(orvoCompare(QStringLiteral("b"), QStringLiteral("a")) > 0);
        QVERIFY(orvoCompare(QStringLiteral("B"), QStringLiteral("a")) < 0);
        QVERIFY(orvoCompare(QByteArray("a"), QByteArray("b")) < 0);
        QVERIFY(orvoCompare(QByteArray("b"), QByteArray("a")) > 0);
        // Keys are compared ahead of values, and in the order of the texts.
        QVERIFY(orvoCompare(QVariantHash{{"a", 1}}, QVariantHash{{"b", 9}}) < 0);
        QVERIFY(orvoCompare(QVariantHash{{"a", 1}, {"c", 1}}, QVariantHash{{"a", 1}, {"b", 1}}) > 0);
        QVERIFY(orvoCompare(QVariantHash{{"B", 1}}, QVariantHash{{"a", 1}}) < 0);
    }

    void aMisuseStopsTheProcess_data()
    {
        QTest::addColumn<QByteArray>("text");
        for (auto it = fatalCalls().cbegin(); it != fatalCalls().cend(); ++it) {
            const bool walk = it.key().startsWith("compare") && it.key() != "compareDates";
            QTest::newRow(qPrintable(it.key())) << (walk ? QByteArray("index out of range") : QByteArray("\"false\""));
        }
    }

    void aMisuseStopsTheProcess()
    {
        QFETCH(QByteArray, text);
        const ChildEnd end = runThisProgram({"--fatal", QTest::currentDataTag()});
        QVERIFY(end.stopped);
        QVERIFY2(end.errors.contains(text), end.errors.constData());
        if (text == "\"false\"")
            QVERIFY2(end.errors.contains("orvoQHash.cpp"), end.errors.constData());
    }

    void comparingUnknownTypesTellsBoth()
    {
        const ChildEnd end = runThisProgram({"--fatal", "compareDates"});
        QVERIFY2(end.errors.contains("Cannot compare "), end.errors.constData());
        QVERIFY2(end.errors.contains("2020-01-01"), end.errors.constData());
        QVERIFY2(end.errors.contains("2020-01-02"), end.errors.constData());
    }
};

int main(int argc, char** argv)
{
    return runTestOrFatalCall<tst_OrvoQHash>(argc, argv, fatalCalls());
}

#include "tst_orvoqhash.moc"
