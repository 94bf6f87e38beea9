#include "core/orvoJson.h"
#include "records/orvoerror.h"

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>
#include <log4cplus/spi/loggingevent.h>

#include <QJsonDocument>
#include <QProcess>
#include <QtTest>

#include <atomic>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <thread>
#include <vector>

namespace {

/// Keeps the lines of a logger for as long as it lives.
class LogLines : public log4cplus::Appender
{
public:
    explicit LogLines(const char* name) : m_logger(log4cplus::Logger::getInstance(name))
    {
        m_levelBefore = m_logger.getLogLevel();
        m_logger.setLogLevel(log4cplus::ALL_LOG_LEVEL);
        m_logger.setAdditivity(false);
        m_logger.addAppender(log4cplus::SharedAppenderPtr(this));
    }
    ~LogLines() override { destructorImpl(); }

    void remove()
    {
        m_logger.removeAllAppenders();
        m_logger.setLogLevel(m_levelBefore);
        m_logger.setAdditivity(true);
    }

    void close() override {}

    QStringList lines;

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override
    {
        lines.append(QString::number(event.getLogLevel()) + ' ' + QString::fromStdString(event.getMessage()));
    }

private:
    log4cplus::Logger m_logger;
    log4cplus::LogLevel m_levelBefore;
};

/// A parse that must succeed.
QVariant parsed(const QByteArray& json)
{
    OrvoError error;
    error.setMessage(QStringLiteral("left over"));
    const QVariant value = OrvoJson::parse(json, error);
    if (!error.isEmpty())
        qWarning("%s: %s", json.constData(), qPrintable(error.message()));
    return error.isEmpty() ? value : QVariant(QStringLiteral("FAILED"));
}

OrvoError errorOf(const QByteArray& json)
{
    OrvoError error;
    OrvoJson::parse(json, error);
    return error;
}

/// Equal with types; QVariant's own comparison takes an int for a text that reads as it.
bool isSame(const QVariant& a, const QVariant& b)
{
    if (a.type() != b.type())
        return false;
    switch (int(a.type())) {
    case QVariant::Double: {
        const double x = a.toDouble();
        const double y = b.toDouble();
        return std::memcmp(&x, &y, sizeof x) == 0;
    }
    case QVariant::List: {
        const QVariantList listA = a.toList();
        const QVariantList listB = b.toList();
        return listA.size() == listB.size() && std::equal(listA.begin(), listA.end(), listB.begin(), isSame);
    }
    case QVariant::Hash: {
        const QVariantHash hashA = a.toHash();
        const QVariantHash hashB = b.toHash();
        if (hashA.size() != hashB.size())
            return false;
        for (auto it = hashA.begin(); it != hashA.end(); ++it)
            if (!hashB.contains(it.key()) || !isSame(it.value(), hashB.value(it.key())))
                return false;
        return true;
    }
    default:
        return a == b;
    }
}

/// Equal to what Qt's own parser made of the same text, which may keep an integer as a double.
bool readsAlike(const QVariant& ours, const QVariant& theirs)
{
    switch (int(ours.type())) {
    case QVariant::Invalid:
        return theirs.isNull();
    case QVariant::LongLong:
    case QVariant::Double:
        return (theirs.type() == QVariant::Double || theirs.type() == QVariant::LongLong)
               && ours.toDouble() == theirs.toDouble();
    case QVariant::List: {
        const QVariantList a = ours.toList();
        const QVariantList b = theirs.toList();
        return theirs.type() == QVariant::List && a.size() == b.size()
               && std::equal(a.begin(), a.end(), b.begin(), readsAlike);
    }
    case QVariant::Hash: {
        const QVariantHash a = ours.toHash();
        const QVariantMap b = theirs.toMap();
        if (theirs.type() != QVariant::Map || a.size() != b.size())
            return false;
        return std::all_of(b.keyBegin(), b.keyEnd(), [&](const QString& key) {
            return a.contains(key) && readsAlike(a.value(key), b.value(key));
        });
    }
    default:
        return ours.type() == theirs.type() && ours == theirs;
    }
}

class RandomTree
{
public:
    explicit RandomTree(unsigned seed) : m_random(seed) {}

    uint number(uint below) { return uint(m_random() % below); }

    QString text()
    {
        // A few texts come again and again, as they do in rows.
        if (number(2))
            return QStringLiteral("text %1").arg(number(5));
        QString text;
        for (uint i = number(30); i > 0; --i) {
            static const uint limits[] = {0x20, 0x80, 0x80, 0x80, 0x800, 0xD800, 0x110000};
            uint codePoint = number(limits[number(7)]);
            if (codePoint >= 0xD800 && codePoint < 0xE000)
                codePoint = 0xFFFD;
            text += QString::fromUcs4(&codePoint, 1);
        }
        return text.isNull() ? QStringLiteral("") : text;
    }

    QVariant value(int depth)
    {
        switch (number(depth ? 9 : 7)) {
        case 0:
            return QVariant();
        case 1:
            return bool(number(2));
        case 2:
            return qlonglong(m_random()) >> number(64);
        case 3:
            // The fraction keeps it from printing as an integer.
            return double(qlonglong(m_random()) >> (24 + number(40))) + 1.0 / 4096;
        case 7: {
            QVariantList list;
            for (uint i = number(8); i > 0; --i)
                list.append(value(depth - 1));
            return list;
        }
        case 8: {
            QVariantHash hash;
            for (uint i = number(8); i > 0; --i)
                hash.insert(text(), value(depth - 1));
            return hash;
        }
        default:
            return text();
        }
    }

private:
    std::mt19937_64 m_random;
};

struct ChildEnd
{
    bool hasCrashed;
    QByteArray errors;
};

ChildEnd runChild(const char* argument)
{
    QProcess child;
    child.start(QCoreApplication::applicationFilePath(), {QString::fromLatin1(argument)});
    child.waitForFinished();
    return {child.exitStatus() == QProcess::CrashExit, child.readAllStandardError()};
}

} // namespace

class TestOrvoJson : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void everyJsonTypeHasItsVariant();
    void emptyAndBlankInputIsEmptyJson();
    void inputThatEndsEarlyIsUnfinished();
    void trailingCharactersGiveTheValueAndTheError();
    void primitivesParseAndProcessedCountsTheirBytes_data();
    void primitivesParseAndProcessedCountsTheirBytes();
    void theRetryOfAPrimitiveIsLogged();
    void twoPrimitivesAreRefused();
    void brokenPrimitivesAreRefused();
    void nullIsAnInvalidVariantWithoutError();
    void everyParserErrorIsReportedWithItsMessage_data();
    void everyParserErrorIsReportedWithItsMessage();
    void errorIsClearedBySuccess();
    void processedCountsUpToTheError();
    void aRepeatedKeyKeepsTheLastValue();
    void anEmptyKeyIsAMemberLikeAnyOther();
    void integersBeyond64BitsSaturate();
    void floatsReadAsQtReadsThem();
    void textIsReadAsUtf8();
    void aMarkOfTheEncodingInATextIsText();
    void nestingEndsAt512();
    void bytesBehindAViewAreNotRead();
    void equalKeysAndShortTextsShareTheirMemory();
    void textsOfOneCachePlaceStayApart();
    void everySupportedTypeIsPrinted_data();
    void everySupportedTypeIsPrinted();
    void numbersPrintAsToStringDoes();
    void infinityIsPrintedAsAQuotedText();
    void aWholeDoubleComesBackAsAnInteger();
    void loneSurrogatesPrintAsToUtf8Does();
    void prettyTextIsSortedAtEveryLevel();
    void hashOrderDoesNotShowInPrettyText();
    void membersOfAMapStayInOrder();
    void anUnsupportedTypeStopsTheProcess();
    void escapeGivesTheInsideOfAString();
    void unescapeIsTheInverseOfEscape();
    void unescapeOfABrokenTextIsNullWithAnError();
    void randomTreesSurviveARoundTrip();
    void randomTreesReadAsQtReadsThem();
    void threadsMayParseAndPrintAtOnce();
};

void TestOrvoJson::initTestCase()
{
    // Some tests look at the order of a QHash.
    qSetGlobalQHashSeed(0);
}

void TestOrvoJson::everyJsonTypeHasItsVariant()
{
    const QVariantHash value =
        parsed(R"({"n":null,"t":true,"f":false,"i":-5,"d":2.5,"e":1e2,"s":"x","l":[1],"h":{}})").toHash();
    QCOMPARE(value.size(), 9);
    QVERIFY(value.contains("n"));
    QVERIFY(!value.value("n").isValid());
    QVERIFY(isSame(value.value("t"), true));
    QVERIFY(isSame(value.value("f"), false));
    QVERIFY(isSame(value.value("i"), qlonglong(-5)));
    QVERIFY(isSame(value.value("d"), 2.5));
    QVERIFY(isSame(value.value("e"), 100.0));
    QVERIFY(isSame(value.value("s"), QStringLiteral("x")));
    QVERIFY(isSame(value.value("l"), QVariantList{qlonglong(1)}));
    QVERIFY(isSame(value.value("h"), QVariantHash()));
}

void TestOrvoJson::emptyAndBlankInputIsEmptyJson()
{
    for (const QByteArray& json : {QByteArray(), QByteArray(""), QByteArray("  \t\r\n ")}) {
        OrvoError error;
        uint processed = 77;
        QVERIFY(!OrvoJson::parse(json, error, &processed).isValid());
        QCOMPARE(error.code(), 1000);
        QCOMPARE(error.message(), QStringLiteral("Empty JSON"));
        QCOMPARE(error.domain(), QStringLiteral("OrvoJson"));
        QCOMPARE(processed, uint(json.size()));
    }
    OrvoError error;
    QVERIFY(!OrvoJson::parse(QString(), error).isValid());
    QCOMPARE(error.code(), 1000);
}

void TestOrvoJson::inputThatEndsEarlyIsUnfinished()
{
    for (const char* json : {"{\"a\":1", "[", "[1,", "{\"a", "[tru", "[\"\\u00", "[12", "[\"\xC3"}) {
        OrvoError error;
        QVERIFY(!OrvoJson::parse(QByteArray(json), error).isValid());
        QCOMPARE(error.code(), 1001);
        QCOMPARE(error.message(), QStringLiteral("Unfinished JSON data"));
    }
}

void TestOrvoJson::trailingCharactersGiveTheValueAndTheError()
{
    for (const QByteArray& tail : {QByteArray("x"), QByteArray("}"), QByteArray("[1]"), QByteArray("\0", 1)}) {
        OrvoError error;
        uint processed = 0;
        const QVariant value = OrvoJson::parse("{\"a\":1} " + tail, error, &processed);
        QCOMPARE(error.code(), 1003);
        QCOMPARE(error.message(), QStringLiteral("Trailing characters after the parsed value"));
        QVERIFY(isSame(value, QVariantHash{{"a", qlonglong(1)}}));
        QCOMPARE(processed, 8u);
    }
}

void TestOrvoJson::primitivesParseAndProcessedCountsTheirBytes_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QVariant>("value");
    QTest::newRow("true") << QByteArray("true") << QVariant(true);
    QTest::newRow("false") << QByteArray("false") << QVariant(false);
    QTest::newRow("null") << QByteArray("null") << QVariant();
    QTest::newRow("integer") << QByteArray("123") << QVariant(qlonglong(123));
    QTest::newRow("negative") << QByteArray("-7") << QVariant(qlonglong(-7));
    QTest::newRow("float") << QByteArray("1.5") << QVariant(1.5);
    QTest::newRow("string") << QByteArray("\"x\"") << QVariant("x");
    QTest::newRow("empty string") << QByteArray("\"\"") << QVariant("");
    QTest::newRow("escapes") << QByteArray("\"\\n\\u20ac\"") << QVariant(QStringLiteral("\n\u20ac"));
    QTest::newRow("blanks") << QByteArray(" \n 5\t ") << QVariant(qlonglong(5));
}

void TestOrvoJson::primitivesParseAndProcessedCountsTheirBytes()
{
    QFETCH(QByteArray, json);
    QFETCH(QVariant, value);
    OrvoError error;
    uint processed = 77;
    QVERIFY(isSame(OrvoJson::parse(json, error, &processed), value));
    QVERIFY(error.isEmpty());
    QCOMPARE(processed, uint(json.size()));
    QVERIFY(isSame(OrvoJson::parse(QString::fromUtf8(json), error), value));
    QVERIFY(error.isEmpty());
}

void TestOrvoJson::theRetryOfAPrimitiveIsLogged()
{
    const log4cplus::helpers::SharedObjectPtr<LogLines> log(new LogLines("OrvoJson"));
    parsed(" 12");
    parsed("[12]");
    log->remove();
    QCOMPARE(log->lines, QStringList{QStringLiteral("10000 Retrying parse of primitive value:  12")});
}

void TestOrvoJson::twoPrimitivesAreRefused()
{
    for (const char* json : {"1, 2", "true,false", "\"a\",\"b\",\"c\""}) {
        OrvoError error;
        QVERIFY(!OrvoJson::parse(QByteArray(json), error).isValid());
        QCOMPARE(error.code(), 8);
        QCOMPARE(error.message(), QStringLiteral("Unexpected character"));
    }
}

void TestOrvoJson::brokenPrimitivesAreRefused()
{
    QCOMPARE(errorOf("hello").code(), 8);
    QCOMPARE(errorOf("1 2").code(), 8);
    QCOMPARE(errorOf("\"open").code(), 1001);
    QCOMPARE(errorOf("1,").code(), 11);
    QCOMPARE(errorOf("1]").code(), 1003);
    QCOMPARE(errorOf("\"\\ud800\"").code(), 9);
    QCOMPARE(errorOf("\"\xFF\"").code(), 13);
}

void TestOrvoJson::nullIsAnInvalidVariantWithoutError()
{
    OrvoError error;
    error.setCode(5);
    QVERIFY(!OrvoJson::parse(QByteArray("null"), error).isValid());
    QVERIFY(error.isEmpty());
    const QVariantList list = parsed("[null,1]").toList();
    QCOMPARE(list.size(), 2);
    QVERIFY(!list.first().isValid());
}

void TestOrvoJson::everyParserErrorIsReportedWithItsMessage_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("message");
    const auto add = [](const QByteArray& json, int code, const char* message) {
        QTest::newRow(message) << json << code << QString::fromLatin1(message);
    };
    add("[\x01]", 2, "Bad character");
    add("]", 3, "Stack empty");
    add("[1}", 4, "Wrong item on stack");
    add(QByteArray(513, '['), 5, "Reached nesting limit");
    add("[/**/]", 7, "Content not allowed");
    add("{\"a\" 1}", 8, "Unexpected character");
    add("[\"\\ud800\"]", 9, "Missing unicode low surrogate");
    add("[\"\\udc00\"]", 10, "Unexpected unicode low surrogate");
    add("[1,]", 11, "Comma out of structure");
    add("[\"\xC0\x80\"]", 13, "Invalid UTF-8");
}

void TestOrvoJson::everyParserErrorIsReportedWithItsMessage()
{
    QFETCH(QByteArray, json);
    QFETCH(int, code);
    QFETCH(QString, message);
    OrvoError error;
    QVERIFY(!OrvoJson::parse(json, error).isValid());
    QCOMPARE(error.code(), code);
    QCOMPARE(error.message(), message);
    QCOMPARE(error.domain(), QStringLiteral("OrvoJson"));
    QCOMPARE(error.__hash().size(), 3);
}

void TestOrvoJson::errorIsClearedBySuccess()
{
    OrvoError error;
    OrvoJson::parse(QByteArray("[1,]"), error);
    QVERIFY(!error.isEmpty());
    OrvoJson::parse(QByteArray("[1]"), error);
    QVERIFY(error.isEmpty());
}

void TestOrvoJson::processedCountsUpToTheError()
{
    OrvoError error;
    uint processed = 77;
    OrvoJson::parse(QByteArray("[1,]"), error, &processed);
    QCOMPARE(processed, 3u);
    OrvoJson::parse(QByteArray("[1,2]  "), error, &processed);
    QCOMPARE(processed, 7u);
    OrvoJson::parse(QStringLiteral("[\"\u20ac\"]"), error, &processed);
    QCOMPARE(processed, 7u);
}

void TestOrvoJson::aRepeatedKeyKeepsTheLastValue()
{
    QVERIFY(isSame(parsed(R"({"a":1,"b":2,"a":[3]})"),
                   QVariantHash{{"a", QVariantList{qlonglong(3)}}, {"b", qlonglong(2)}}));
}

void TestOrvoJson::anEmptyKeyIsAMemberLikeAnyOther()
{
    QVERIFY(isSame(parsed(R"({"":1})"), QVariantHash{{"", qlonglong(1)}}));
    QVERIFY(isSame(parsed(R"({"":{"":[1,2]},"a":""})"),
                   QVariantHash{{"", QVariantHash{{"", QVariantList{qlonglong(1), qlonglong(2)}}}}, {"a", ""}}));
    // Long texts are read with a cache of keys.
    QVERIFY(isSame(parsed(QByteArray(2000, ' ') + R"({"":1})"), QVariantHash{{"", qlonglong(1)}}));
}

void TestOrvoJson::integersBeyond64BitsSaturate()
{
    QVERIFY(isSame(parsed("9223372036854775807"), std::numeric_limits<qlonglong>::max()));
    QVERIFY(isSame(parsed("9223372036854775808"), std::numeric_limits<qlonglong>::max()));
    QVERIFY(isSame(parsed("-9223372036854775808"), std::numeric_limits<qlonglong>::min()));
    QVERIFY(isSame(parsed("-9223372036854775809"), std::numeric_limits<qlonglong>::min()));
    QVERIFY(isSame(parsed("1" + QByteArray(300, '0')), std::numeric_limits<qlonglong>::max()));
    QVERIFY(isSame(parsed("999999999999999999"), qlonglong(999999999999999999)));
    QVERIFY(isSame(parsed("-999999999999999999"), qlonglong(-999999999999999999)));
    QVERIFY(isSame(parsed("-0"), qlonglong(0)));
}

void TestOrvoJson::floatsReadAsQtReadsThem()
{
    QByteArrayList texts = {"-0.0",
                            "0.1",
                            "1e308",
                            "1e309",
                            "-1e999",
                            "1e-320",
                            "1e-999",
                            "4.9406564584124654e-324",
                            "2.2250738585072011e-308",
                            "9007199254740993.0",
                            "123456789012345678901234567890.5",
                            "0.30000000000000004",
                            "1.7976931348623157e308",
                            "1.7976931348623159e308",
                            "0e99999"};
    const uint seed = std::random_device()();
    qInfo("seed %u", seed);
    std::mt19937_64 random(seed);
    for (int i = 0; i < 5000; ++i) {
        quint64 bits = random();
        double number;
        std::memcpy(&number, &bits, sizeof number);
        if (std::isfinite(number))
            texts.append(QByteArray::number(number, 'e', int(random() % 20)));
        texts.append(QByteArray::number(double(qint64(bits)) / 1e15, 'f', 1 + int(random() % 17)));
    }
    for (const QByteArray& text : texts) {
        const QByteArray json = text.contains('.') || text.contains('e') ? text : text + ".0";
        QVERIFY2(isSame(parsed('[' + json + ']').toList().value(0), QString::fromUtf8(json).toDouble()), json);
    }
}

void TestOrvoJson::aMarkOfTheEncodingInATextIsText()
{
    const QString mark(QChar::ByteOrderMark);
    for (const QString& text : {mark, mark + 'a', mark + mark + 'a' + mark, 'a' + mark}) {
        QVERIFY(isSame(parsed("[\"" + text.toUtf8() + "\"]"), QVariantList{text}));
        QVERIFY(isSame(parsed(OrvoJson::serialize(QVariantHash{{text, text}})), QVariantHash{{text, text}}));
        OrvoError error;
        QCOMPARE(OrvoJson::unescape(OrvoJson::escape(text), error), text);
    }
    QVERIFY(isSame(parsed("[\"\\ufeffa\"]"), QVariantList{QString(mark + 'a')}));
}

void TestOrvoJson::textIsReadAsUtf8()
{
    QVERIFY(isSame(parsed("[\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\"]"),
                   QVariantList{QString::fromUtf8("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80")}));
    QVERIFY(isSame(parsed(R"(["\ud83d\ude00\u0000."])"),
                   QVariantList{QString::fromUtf8("\xF0\x9F\x98\x80") + QChar(0) + '.'}));
    QVERIFY(isSame(parsed("{\"12345678\xC3\xA9\":\"12345678\xC3\xA9\"}"),
                   QVariantHash{{QString::fromUtf8("12345678\xC3\xA9"), QString::fromUtf8("12345678\xC3\xA9")}}));
}

void TestOrvoJson::nestingEndsAt512()
{
    QVariant value = parsed(QByteArray(512, '[') + QByteArray(512, ']'));
    for (int i = 0; i < 511; ++i) {
        QCOMPARE(value.toList().size(), 1);
        value = value.toList().first();
    }
    QVERIFY(isSame(value, QVariantList()));
    QCOMPARE(errorOf(QByteArray(513, '[') + QByteArray(513, ']')).code(), 5);
    // What is printed may be deeper.
    for (int i = 0; i < 2000; ++i)
        value = QVariantList{value};
    QCOMPARE(OrvoJson::serialize(value), QByteArray(2001, '[') + QByteArray(2001, ']'));
}

void TestOrvoJson::bytesBehindAViewAreNotRead()
{
    const QByteArray all = "[123]456";
    OrvoError error;
    // On the heap in exactly its size, so that a sanitizer sees a read behind it.
    for (int size = 0; size <= 5; ++size) {
        const std::vector<char> bytes(all.begin(), all.begin() + size);
        const QVariant value = OrvoJson::parse(QByteArray::fromRawData(bytes.data(), size), error);
        QCOMPARE(error.isEmpty(), size == 5);
        QCOMPARE(value.isValid(), size == 5);
    }
    const QVariant number = OrvoJson::parse(QByteArray::fromRawData(all.constData() + 1, 2), error);
    QVERIFY(isSame(number, qlonglong(12)));
}

void TestOrvoJson::equalKeysAndShortTextsShareTheirMemory()
{
    QByteArray json = "[";
    for (int i = 0; i < 200; ++i)
        json += R"({"path":"ui:x","type":"audio"},)";
    json += "{}]";
    const QVariantList rows = parsed(json).toList();
    QCOMPARE(rows.size(), 201);
    const QVariantHash a = rows.at(100).toHash();
    const QVariantHash b = rows.at(150).toHash();
    QVERIFY(a == b);
    QVERIFY(a.find("type").key().constData() == b.find("type").key().constData());
    QVERIFY(a.value("type").toString().constData() == b.value("type").toString().constData());
}

void TestOrvoJson::textsOfOneCachePlaceStayApart()
{
    // Far more texts than places, each of them several times in a row; and two with one and the same hash.
    QVariantList texts;
    for (int i = 0; i < 500; ++i)
        for (int times = 0; times < 3; ++times)
            texts.append(QStringLiteral("%1").arg(i * 7));
    for (int times = 0; times < 3; ++times) {
        texts.append(QStringLiteral("a"));
        texts.append(QStringLiteral("a"));
        texts.append(QString(QChar(0)) + 'b');
        texts.append(QString(QChar(0)) + 'b');
    }
    QVERIFY(isSame(parsed(OrvoJson::serialize(texts)), texts));
    QVariantHash hash;
    for (const QVariant& text : qAsConst(texts))
        hash.insert(text.toString(), text);
    QVERIFY(isSame(parsed(OrvoJson::serialize(QVariantList{hash, hash, hash})), QVariantList({hash, hash, hash})));
}

void TestOrvoJson::everySupportedTypeIsPrinted_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QByteArray>("json");
    const auto add = [](const char* name, const QVariant& value, const QByteArray& json) {
        QTest::newRow(name) << value << json;
    };
    add("invalid", QVariant(), "null");
    add("true", true, "true");
    add("false", false, "false");
    add("int", -5, "-5");
    add("smallest int", std::numeric_limits<int>::min(), "-2147483648");
    add("uint", 4294967295u, "4294967295");
    add("zero", 0, "0");
    add("long long", qlonglong(-9223372036854775807ll - 1), "-9223372036854775808");
    add("unsigned long long", qulonglong(18446744073709551615ull), "18446744073709551615");
    add("double", 2.5, "2.5");
    add("whole double", 1.0, "1");
    add("float", QVariant(0.5f), "0.5");
    add("NaN", qQNaN(), "\"nan\"");
    add("infinite", qInf(), "\"inf\"");
    add("negative infinite", -qInf(), "\"-inf\"");
    add("infinite float", QVariant(float(qInf())), "\"inf\"");
    add("char", QVariant(QChar('x')), "\"x\"");
    add("char beyond ASCII", QVariant(QChar(0x20AC)), "\"\xE2\x82\xAC\"");
    add("string", QStringLiteral("a\"\\\n\u00e9"), "\"a\\\"\\\\\\n\xC3\xA9\"");
    add("null string", QString(), "\"\"");
    add("string with NUL", QString(QChar(0)), "\"\\u0000\"");
    add("bytes", QByteArray("caf\xC3\xA9"), "\"caf\xC3\xA9\"");
    add("bytes up to the NUL", QByteArray("ab\0cd", 5), "\"ab\"");
    add("no bytes", QByteArray(), "\"\"");
    add("bytes that are no UTF-8", QByteArray("a\xFF"), "\"a\xEF\xBF\xBD\"");
    add("string list", QStringList({"a", "b\n"}), "[\"a\",\"b\\n\"]");
    add("empty string list", QStringList(), "[]");
    add("list", QVariantList({1, "x", QVariant(), QVariantList()}), "[1,\"x\",null,[]]");
    add("map", QVariantMap({{"b", 1}, {"a", QVariantMap()}}), "{\"a\":{},\"b\":1}");
    add("hash", QVariantHash({{"k\n", QVariantHash()}}), "{\"k\\n\":{}}");
    add("empty key", QVariantHash({{"", 1}}), "{\"\":1}");
}

void TestOrvoJson::everySupportedTypeIsPrinted()
{
    QFETCH(QVariant, value);
    QFETCH(QByteArray, json);
    QCOMPARE(OrvoJson::serialize(value), json);
    QCOMPARE(OrvoJson::serialize(QVariantList{value}), '[' + json + ']');
    OrvoError error;
    QVERIFY(isSame(OrvoJson::parse(OrvoJson::serializePretty(value), error), OrvoJson::parse(json, error)));
    QVERIFY(error.isEmpty());
}

void TestOrvoJson::numbersPrintAsToStringDoes()
{
    const uint seed = std::random_device()();
    qInfo("seed %u", seed);
    std::mt19937_64 random(seed);
    const auto check = [](const QVariant& value) {
        QCOMPARE(QString::fromUtf8(OrvoJson::serialize(value)), value.toString());
    };
    for (int i = 0; i < 3000; ++i) {
        const quint64 bits = random() >> random() % 64;
        check(int(bits));
        check(uint(bits));
        check(qlonglong(bits));
        check(qulonglong(bits));
        check(double(bits) / 1000);
        check(double(qlonglong(bits)));
        check(QVariant(float(double(bits) / 1000)));
        double number;
        std::memcpy(&number, &bits, sizeof number);
        if (std::isfinite(number))
            check(number);
    }
    check(-0.0);
    check(1e6);
    check(1e21);
    check(123456789.0);
}

void TestOrvoJson::infinityIsPrintedAsAQuotedText()
{
    const QByteArray json = OrvoJson::serialize(QVariantList{qInf()});
    QCOMPARE(json, QByteArray("[\"inf\"]"));
    QVERIFY(isSame(parsed(json), QVariantList{"inf"}));
}

void TestOrvoJson::aWholeDoubleComesBackAsAnInteger()
{
    QCOMPARE(OrvoJson::serialize(1.0), QByteArray("1"));
    QVERIFY(isSame(parsed(OrvoJson::serialize(1.0)), qlonglong(1)));
}

void TestOrvoJson::loneSurrogatesPrintAsToUtf8Does()
{
    const QString high(QChar(0xD83D));
    const QString low(QChar(0xDE00));
    for (const QString& text : {high, low, low + high, high + high + low, "12345678" + high, high + "12345678",
                                QString(low + "x" + high + low + high)})
        QCOMPARE(OrvoJson::serialize(text), '"' + text.toUtf8() + '"');
}

void TestOrvoJson::prettyTextIsSortedAtEveryLevel()
{
    const QVariantHash inner = {{"z", 1}, {"y", QVariantList{1, 2}}, {"B", QVariant()}, {"a", QVariantHash()}};
    const QByteArray expected = R"({
  "first": [
    {
      "B": null,
      "a": {},
      "y": [
        1,
        2
      ],
      "z": 1
    }
  ],
  "second": {
    "inner": {
      "B": null,
      "a": {},
      "y": [
        1,
        2
      ],
      "z": 1
    }
  }
})";
    // A map keeps its order and its values are sorted as well.
    QCOMPARE(OrvoJson::serializePretty(
                 QVariantHash{{"second", QVariantMap{{"inner", inner}}}, {"first", QVariantList{inner}}}),
             expected);
}

void TestOrvoJson::hashOrderDoesNotShowInPrettyText()
{
    QVariantHash forth;
    QVariantHash back;
    back.reserve(5000);
    for (int i = 0; i < 100; ++i) {
        forth.insert(QString::number(i), i);
        back.insert(QString::number(99 - i), 99 - i);
    }
    QVERIFY(forth.keys() != back.keys());
    QCOMPARE(OrvoJson::serializePretty(forth), OrvoJson::serializePretty(back));
    // The compact text shows it.
    QByteArray expected = "{";
    for (auto it = back.cbegin(); it != back.cend(); ++it)
        expected += '"' + it.key().toUtf8() + "\":" + it.value().toByteArray() + ',';
    expected.back() = '}';
    QCOMPARE(OrvoJson::serialize(back), expected);
}

void TestOrvoJson::membersOfAMapStayInOrder()
{
    QCOMPARE(OrvoJson::serialize(QVariantMap{{"c", 1}, {"a", 2}, {"b", 3}}), QByteArray("{\"a\":2,\"b\":3,\"c\":1}"));
}

void TestOrvoJson::anUnsupportedTypeStopsTheProcess()
{
    const ChildEnd compact = runChild("--serialize");
    QVERIFY(compact.hasCrashed);
    QVERIFY2(compact.errors.contains("ASSERT failure in serialize: \"Unsupported Variant type: QUrl\""),
             compact.errors);
    const ChildEnd pretty = runChild("--serializePretty");
    QVERIFY(pretty.hasCrashed);
    QVERIFY2(pretty.errors.contains("ASSERT failure in serializePretty: \"Unsupported Variant type: OrvoHash\""),
             pretty.errors);
    const ChildEnd supported = runChild("--supported");
    QVERIFY(!supported.hasCrashed);
}

void TestOrvoJson::escapeGivesTheInsideOfAString()
{
    QCOMPARE(OrvoJson::escape(QStringLiteral("a\"b\\c\n\t\u00e9/")), QStringLiteral("a\\\"b\\\\c\\n\\t\u00e9/"));
    QCOMPARE(OrvoJson::escape(QString()), QString());
    QCOMPARE(OrvoJson::escape(QString(QChar(1))), QStringLiteral("\\u0001"));
}

void TestOrvoJson::unescapeIsTheInverseOfEscape()
{
    OrvoError error;
    QCOMPARE(OrvoJson::unescape(QStringLiteral("\\u20ac\\/\\\""), error), QStringLiteral("\u20ac/\""));
    QCOMPARE(OrvoJson::unescape(QString(), error), QString());
    QVERIFY(error.isEmpty());
    const uint seed = std::random_device()();
    qInfo("seed %u", seed);
    RandomTree random(seed);
    for (int i = 0; i < 2000; ++i) {
        const QString text = random.text();
        QCOMPARE(OrvoJson::unescape(OrvoJson::escape(text), error), text);
        QVERIFY(error.isEmpty());
    }
}

void TestOrvoJson::unescapeOfABrokenTextIsNullWithAnError()
{
    OrvoError error;
    QVERIFY(OrvoJson::unescape(QStringLiteral("\\x"), error).isNull());
    QCOMPARE(error.code(), 8);
    QVERIFY(OrvoJson::unescape(QStringLiteral("a\\"), error).isNull());
    QCOMPARE(error.code(), 1001);
    QVERIFY(OrvoJson::unescape(QStringLiteral("\\ude00"), error).isNull());
    QCOMPARE(error.code(), 10);
    QVERIFY(!OrvoJson::unescape(QStringLiteral("fine"), error).isNull());
    QVERIFY(error.isEmpty());
}

void TestOrvoJson::randomTreesSurviveARoundTrip()
{
    const uint seed = std::random_device()();
    qInfo("seed %u", seed);
    RandomTree random(seed);
    for (int i = 0; i < 500; ++i) {
        const QVariant value = random.value(5);
        const QByteArray json = OrvoJson::serialize(value);
        QVERIFY2(isSame(parsed(json), value), json);
        QVERIFY2(isSame(parsed(OrvoJson::serializePretty(value)), value), json);
    }
}

void TestOrvoJson::randomTreesReadAsQtReadsThem()
{
    const uint seed = std::random_device()();
    qInfo("seed %u", seed);
    RandomTree random(seed);
    for (int i = 0; i < 500; ++i) {
        const QByteArray json = OrvoJson::serialize(QVariantList{random.value(5)});
        QJsonParseError parseError;
        const QJsonDocument document = QJsonDocument::fromJson(json, &parseError);
        QCOMPARE(int(parseError.error), int(QJsonParseError::NoError));
        QVERIFY2(readsAlike(parsed(json), document.toVariant()), json);
        QVERIFY2(readsAlike(parsed(document.toJson()), document.toVariant()), json);
    }
}

void TestOrvoJson::threadsMayParseAndPrintAtOnce()
{
    RandomTree random(1);
    QVariantList values;
    QByteArrayList pretty;
    for (int i = 0; i < 50; ++i) {
        values.append(random.value(4));
        pretty.append(OrvoJson::serializePretty(values.last()));
    }
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            for (int i = 0; i < values.size(); ++i) {
                OrvoError error;
                const QVariant value = OrvoJson::parse(OrvoJson::serialize(values.at(i)), error);
                failures += OrvoJson::serializePretty(value) != pretty.at(i);
                OrvoJson::parse(QByteArray("[,"), error);
                failures += error.code() != 11;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    QCOMPARE(failures.load(), 0);
}

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    log4cplus::Logger::getRoot().addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
    if (argc == 2 && !qstrcmp(argv[1], "--serialize")) {
        OrvoJson::serialize(QVariantList{QVariantMap{{"url", QUrl(QStringLiteral("http://x/"))}}, 5});
        return 0;
    }
    if (argc == 2 && !qstrcmp(argv[1], "--serializePretty")) {
        OrvoJson::serializePretty(QVariantHash{{"record", QVariant::fromValue(OrvoHash())}});
        return 0;
    }
    if (argc == 2 && !qstrcmp(argv[1], "--supported")) {
        OrvoJson::serialize(QVariantList{1});
        return 0;
    }
    TestOrvoJson test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_orvojson.moc"
