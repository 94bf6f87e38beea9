#include "json_sax.h"

#include <QtTest>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

namespace {

/// All that a parser told of one text.
struct Told
{
    std::vector<std::pair<int, std::string>> events;
    int error = 0;
    bool isDone = false;
    uint32_t processed = 0;

    bool operator==(const Told& other) const
    {
        return events == other.events && error == other.error && isDone == other.isDone && processed == other.processed;
    }
};

struct Recorder
{
    Told told;
    int stopAt = 0;
};

int record(void* userdata, int type, const char* data, uint32_t length)
{
    auto* const recorder = static_cast<Recorder*>(userdata);
    if ((type == JSON_INT || type == JSON_FLOAT) && data[length] != '\0')
        return 1;
    recorder->told.events.emplace_back(type, data ? std::string(data, length) : std::string());
    return type == recorder->stopAt ? 1002 : 0;
}

/// Parses the pieces, each in memory of exactly its size, so that a sanitizer sees a read behind it.
Told told(const std::vector<std::string>& pieces, const json_config* config = nullptr, int stopAt = 0)
{
    Recorder recorder;
    recorder.stopAt = stopAt;
    json_parser parser;
    if (json_parser_init(&parser, config, record, &recorder))
        qFatal("no parser");
    for (const std::string& piece : pieces) {
        const std::vector<char> bytes(piece.begin(), piece.end());
        uint32_t processed = 77;
        recorder.told.error = json_parser_string(&parser, bytes.data(), uint32_t(bytes.size()), &processed);
        recorder.told.processed += processed;
    }
    recorder.told.isDone = json_parser_is_done(&parser);
    json_parser_free(&parser);
    return recorder.told;
}

Told told(const std::string& text, const json_config* config = nullptr, int stopAt = 0)
{
    return told(std::vector<std::string>{text}, config, stopAt);
}

int errorOf(const std::string& text)
{
    return told(text).error;
}

json_config defaults()
{
    json_config config = {};
    config.max_nesting = JSON_DEFAULT_NESTING;
    return config;
}

/// Texts, good and bad, in which each byte is a place worth cutting.
std::vector<std::string> documents()
{
    return {
        "[]",
        " {} \n",
        "{\"\":1}",
        R"([1,-0,0.5,-12.25e+3,1E-2,7e1,123456789012345678901234567890,true,false,null])",
        R"({"a":"plain","b":["\"\\\/\b\f\n\r\t","\u0041\u00e9\u20ac\ud83d\ude00 tail"],"c":{"d":{}}})",
        "[\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xEF\xBF\xBF\xF4\x8F\xBF\xBF mixed \xC2\x80\"]",
        "{\"\xC3\xA9\\u00e9\":\"\\u0000\"}",
        "[1,]",
        "[1,,2]",
        "{,}",
        "{\"a\":1,}",
        "{\"a\" 1}",
        "[1}",
        "[\"\\ud83d\"]",
        "[\"\\ud83dx\"]",
        "[\"\\ud83d\\n\"]",
        "[\"\\ud83d\\u0041\"]",
        "[\"\\ude00\"]",
        "[\"\xED\xA0\x80\"]",
        "[\"\xC3\"]",
        "[\"\xF0\x9F\"]",
        "[1.]",
        "[01]",
        "[-]",
        "[1e]",
        "[1e+]",
        "[+1]",
        "[tru]",
        "[nulL]",
        "[\"a\tb\"]",
        "[] []",
        "{\"a\":1} x",
        "123",
        "[1 2",
        "{\"a\":[tr",
        "[\"torn \\u00",
    };
}

int allocationsLeft = 0;
int allocationsAlive = 0;

void* limitedReallocate(void* memory, size_t size)
{
    if (!size) {
        --allocationsAlive;
        std::free(memory);
        return nullptr;
    }
    if (allocationsLeft-- <= 0)
        return nullptr;
    if (!memory)
        ++allocationsAlive;
    return std::realloc(memory, size);
}

} // namespace

class TestJsonParser : public QObject
{
    Q_OBJECT

private slots:
    void everyTokenIsToldInOrder();
    void anyCutGivesTheSameEventsAsTheWhole();
    void byteByByteGivesTheSameEventsAsTheWhole();
    void everyCutOfALongStringGivesTheSameText();
    void numbersFollowTheGrammarStrictly_data();
    void numbersFollowTheGrammarStrictly();
    void everyErrorCodeHasAnInput_data();
    void everyErrorCodeHasAnInput();
    void memoryThatIsRefusedIsReportedAndNothingLeaks();
    void deepNestingEndsAt512ByDefault();
    void aConfiguredNestingMayBeFarDeeper();
    void theDataLimitCountsOneStringOrNumber();
    void aCallbackThatRefusesStopsTheParser();
    void commentsAreReadWhereTheyAreAllowed();
    void commentsAreRefusedByDefault();
    void everyUtf8SequenceIsCheckedCompletely();
    void controlCharactersInStringsAreRefused();
    void processedCountsWhatStandsAheadOfTheError();
    void anErrorStaysTheResult();
    void aCompleteValueStaysDoneBehindTrailingCharacters();
    void withoutACallbackTheTextIsOnlyChecked();
    void stringsWithoutEscapesLieInTheInput();
};

void TestJsonParser::everyTokenIsToldInOrder()
{
    const Told result = told(R"({"a":[1,-2.5,"x\ty",true,false,null],"":{}})");
    const decltype(result.events) expected = {
        {JSON_OBJECT_BEGIN, ""}, {JSON_KEY, "a"},       {JSON_ARRAY_BEGIN, ""}, {JSON_INT, "1"},
        {JSON_FLOAT, "-2.5"},    {JSON_STRING, "x\ty"}, {JSON_TRUE, ""},        {JSON_FALSE, ""},
        {JSON_NULL, ""},         {JSON_ARRAY_END, ""},  {JSON_KEY, ""},         {JSON_OBJECT_BEGIN, ""},
        {JSON_OBJECT_END, ""},   {JSON_OBJECT_END, ""},
    };
    QVERIFY(result.events == expected);
    QCOMPARE(result.error, 0);
    QVERIFY(result.isDone);
    QCOMPARE(result.processed, uint32_t(43));
}

void TestJsonParser::anyCutGivesTheSameEventsAsTheWhole()
{
    for (const std::string& text : documents()) {
        const Told whole = told(text);
        for (size_t first = 0; first <= text.size(); ++first) {
            for (size_t second = first; second <= text.size(); ++second) {
                const Told cut = told({text.substr(0, first), text.substr(first, second - first), text.substr(second)});
                QVERIFY2(cut == whole,
                         (text + " cut at " + std::to_string(first) + " and " + std::to_string(second)).c_str());
            }
        }
    }
}

void TestJsonParser::byteByByteGivesTheSameEventsAsTheWhole()
{
    for (const std::string& text : documents()) {
        std::vector<std::string> bytes;
        for (const char byte : text)
            bytes.emplace_back(1, byte);
        QVERIFY2(told(bytes) == told(text), text.c_str());
    }
}

void TestJsonParser::everyCutOfALongStringGivesTheSameText()
{
    std::string inside;
    for (int i = 0; i < 70; ++i)
        inside += std::string(size_t(i % 11), 'a') + "\xC3\xA9";
    for (size_t cut = 0; cut <= inside.size(); ++cut) {
        const Told result = told({"[\"" + inside.substr(0, cut), inside.substr(cut) + "\"]"});
        QCOMPARE(result.error, 0);
        QVERIFY(result.events.at(1).second == inside);
    }
}

void TestJsonParser::numbersFollowTheGrammarStrictly_data()
{
    QTest::addColumn<QByteArray>("number");
    QTest::addColumn<int>("type");
    for (const char* text : {"0", "-0", "1", "-1", "10", "9223372036854775808", "1234567890"})
        QTest::newRow(text) << QByteArray(text) << int(JSON_INT);
    for (const char* text : {"0.0", "-0.5", "1e5", "1E5", "1e+5", "1e-05", "0e0", "1.25E+10",
                             "0.00000000000000000000000000000000000000000000000000000000000000000001"})
        QTest::newRow(text) << QByteArray(text) << int(JSON_FLOAT);
    for (const char* text : {"00", "01", "-01", "+1", ".5", "1.", "-", "1.e5", "1e", "1e+", "1e+-1", "0x10", "1.5.5",
                             "--1", "1a", "Infinity", "NaN", "-Infinity", "1_000"})
        QTest::newRow(text) << QByteArray(text) << 0;
}

void TestJsonParser::numbersFollowTheGrammarStrictly()
{
    QFETCH(QByteArray, number);
    QFETCH(int, type);
    const Told result = told("[" + number.toStdString() + "]");
    if (!type) {
        QCOMPARE(result.error, int(JSON_ERROR_UNEXPECTED_CHARACTER));
        return;
    }
    QCOMPARE(result.error, 0);
    QCOMPARE(result.events.size(), size_t(3));
    QCOMPARE(result.events.at(1).first, type);
    QCOMPARE(QByteArray::fromStdString(result.events.at(1).second), number);
}

void TestJsonParser::everyErrorCodeHasAnInput_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("code");
    const auto add = [](const char* name, const QByteArray& text, int code) { QTest::newRow(name) << text << code; };
    add("a control character between tokens", "[1,\x01]", 2);
    add("a NUL between tokens", QByteArray("[\0]", 3), 2);
    add("a control character in a literal", "[tr\x02", 2);
    add("an array closed before it was opened", "]", 3);
    add("an object closed before it was opened", " }", 3);
    add("an empty array closed as an object", "[}", 4);
    add("an array closed as an object", "[1}", 4);
    add("an object closed as an array", "{\"a\":1]", 4);
    add("an empty object closed as an array", "{]", 4);
    add("an array closed as an object behind a comma", "[1,}", 4);
    add("too deep", QByteArray(513, '['), 5);
    add("a comment", "[1] /* x */", 8);
    add("a comment inside", "[1 /* x */]", 7);
    add("a comment of a line", "# x\n[]", 7);
    add("a letter", "[x]", 8);
    add("a key without quotes", "{a:1}", 8);
    add("no colon", "{\"a\" 1}", 8);
    add("no value", "{\"a\":}", 8);
    add("two colons", "{\"a\"::1}", 8);
    add("two values without a comma", "[1 2]", 8);
    add("a number for a key", "{1:2}", 8);
    add("an unknown escape", "[\"\\x\"]", 8);
    add("a bad hexadecimal digit", "[\"\\u12g4\"]", 8);
    add("a literal in capitals", "[True]", 8);
    add("a number at the top", "1", 8);
    add("a string at the top", "\"a\"", 8);
    add("a literal at the top", "true", 8);
    add("a closing bracket behind the value", "[]]", 8);
    add("a NUL behind the value", QByteArray("[]\0", 3), 8);
    add("a high surrogate at the end", "[\"\\ud800\"]", 9);
    add("a high surrogate before text", "[\"\\udbffx\"]", 9);
    add("a high surrogate before another escape", "[\"\\ud800\\n\"]", 9);
    add("a high surrogate before a letter", "[\"\\ud800\\u0041\"]", 9);
    add("two high surrogates", "[\"\\ud800\\ud800\"]", 9);
    add("a low surrogate", "[\"\\udc00\"]", 10);
    add("the last low surrogate", "[\"\\uDFFF\"]", 10);
    add("a comma first in an array", "[,1]", 11);
    add("a comma first in an object", "{,", 11);
    add("a comma last in an array", "[1,]", 11);
    add("a comma last in an object", "{\"a\":1,}", 11);
    add("two commas in an array", "[1,,2]", 11);
    add("two commas in an object", "{\"a\":1,,", 11);
    add("a comma for a colon", "{\"a\",", 11);
    add("a comma for a value", "{\"a\":,", 11);
    add("a comma at the top", ",", 11);
    add("a continuation byte alone", "[\"\x80\"]", 13);
    add("a sequence cut by the quote", "[\"\xE2\x82\"]", 13);
    add("a sequence cut by an escape", "[\"\xC3\\n\"]", 13);
}

void TestJsonParser::everyErrorCodeHasAnInput()
{
    QFETCH(QByteArray, text);
    QFETCH(int, code);
    QCOMPARE(errorOf(text.toStdString()), code);
}

void TestJsonParser::memoryThatIsRefusedIsReportedAndNothingLeaks()
{
    json_config config = {};
    config.reallocate = limitedReallocate;
    const std::vector<std::string> texts = {"[\"a\\n\"]", "[" + std::string(100, '1') + "]",
                                            "[\"" + std::string(1000, 'a') + "\\n" + std::string(1000, 'b') + "\"]",
                                            std::string(2000, '[') + std::string(2000, ']')};
    for (const std::string& text : texts) {
        for (int allowed = 0; allowed < 8; ++allowed) {
            allocationsLeft = allowed;
            allocationsAlive = 0;
            const Told result = told(text, &config);
            QCOMPARE(allocationsAlive, 0);
            if (!allowed)
                QCOMPARE(result.error, int(JSON_ERROR_NO_MEMORY));
            if (allowed == 7)
                QCOMPARE(result.error, 0);
        }
    }
}

void TestJsonParser::deepNestingEndsAt512ByDefault()
{
    QCOMPARE(errorOf(std::string(512, '[') + std::string(512, ']')), 0);
    const Told tooDeep = told(std::string(513, '['));
    QCOMPARE(tooDeep.error, int(JSON_ERROR_NESTING_LIMIT));
    QCOMPARE(tooDeep.processed, uint32_t(512));
    std::string objects;
    for (int i = 0; i < 513; ++i)
        objects += "{\"a\":";
    QCOMPARE(errorOf(objects), int(JSON_ERROR_NESTING_LIMIT));
    // Depth counts, not how many containers there are.
    std::string flat = "[0";
    for (int i = 0; i < 2000; ++i)
        flat += ",[]";
    QCOMPARE(errorOf(flat + "]"), 0);
}

void TestJsonParser::aConfiguredNestingMayBeFarDeeper()
{
    json_config config = {};
    const size_t depth = 100000;
    const Told deep = told(std::string(depth, '[') + std::string(depth, ']'), &config);
    QCOMPARE(deep.error, 0);
    QVERIFY(deep.isDone);
    QCOMPARE(deep.events.size(), 2 * depth);
    config.max_nesting = 3;
    QCOMPARE(told("[[[]]]", &config).error, 0);
    QCOMPARE(told("[[{\"a\":[", &config).error, int(JSON_ERROR_NESTING_LIMIT));
}

void TestJsonParser::theDataLimitCountsOneStringOrNumber()
{
    json_config config = defaults();
    config.max_data = 4;
    QCOMPARE(told(R"(["1234","abcd",1234,{"keys":1.25}])", &config).error, 0);
    for (const char* text :
         {R"(["12345"])", "[12345]", R"({"12345":1})", "[1.234]", "[\"1234\\n\"]", "[\"12\\u20ac\"]"})
        QCOMPARE(told(text, &config).error, int(JSON_ERROR_DATA_LIMIT));
    QCOMPARE(told(std::vector<std::string>{"[\"12", "345\"]"}, &config).error, int(JSON_ERROR_DATA_LIMIT));
    QCOMPARE(errorOf("[\"" + std::string(1000000, 'a') + "\"]"), 0);
}

void TestJsonParser::aCallbackThatRefusesStopsTheParser()
{
    const std::string text = R"({"a":[1,2.5,"x",true,false,null]})";
    for (int type = JSON_ARRAY_BEGIN; type <= JSON_NULL; ++type) {
        const Told result = told(text, nullptr, type);
        QCOMPARE(result.error, int(JSON_ERROR_CALLBACK));
        QCOMPARE(result.events.back().first, type);
        QVERIFY(!result.isDone);
        QVERIFY(result.processed < text.size());
    }
}

void TestJsonParser::commentsAreReadWhereTheyAreAllowed()
{
    json_config config = defaults();
    config.allow_comments = 1;
    const std::string text = "# head\n/**/[/* a * b / **/1/***/,# x\r\n{/**/\"/*k*/\"/**/:/**/2/**/}/**/]/**/ # tail";
    const Told plain = told("[1,{\"/*k*/\":2}]");
    for (size_t cut = 0; cut <= text.size(); ++cut) {
        const Told result = told({text.substr(0, cut), text.substr(cut)}, &config);
        QCOMPARE(result.error, 0);
        QVERIFY(result.isDone);
        QVERIFY(result.events == plain.events);
    }
    QVERIFY(!told("[] /* open", &config).isDone);
    QCOMPARE(told("[] /x", &config).error, int(JSON_ERROR_UNEXPECTED_CHARACTER));
}

void TestJsonParser::commentsAreRefusedByDefault()
{
    for (const char* text : {"#", "/**/[]", "[/", "[1#", "{/", "{\"a\"/", "{\"a\":#", "[1,/"})
        QCOMPARE(errorOf(text), int(JSON_ERROR_NOT_ALLOWED));
    QCOMPARE(errorOf("[\"# /* in a string */\"]"), 0);
}

void TestJsonParser::everyUtf8SequenceIsCheckedCompletely()
{
    // All lead bytes with second bytes around each border, against the ranges as Unicode lists them.
    const auto isValid = [](unsigned first, unsigned second) {
        if (second < 0x80 || second > 0xBF)
            return false;
        switch (first) {
        case 0xE0:
            return second >= 0xA0;
        case 0xED:
            return second <= 0x9F;
        case 0xF0:
            return second >= 0x90;
        case 0xF4:
            return second <= 0x8F;
        default:
            return first >= 0xC2 && first <= 0xF4;
        }
    };
    for (unsigned first = 0x80; first <= 0xFF; ++first) {
        const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
        for (unsigned second : {0x22u, 0x41u, 0x7Fu, 0x80u, 0x8Fu, 0x90u, 0x9Fu, 0xA0u, 0xBFu, 0xC0u, 0xFFu}) {
            std::string sequence = {char(first), char(second)};
            sequence.resize(length, '\xBF');
            const int error = errorOf("[\"" + sequence + "\"]");
            QVERIFY2(error == (isValid(first, second) ? 0 : int(JSON_ERROR_INVALID_UTF8)),
                     QByteArray::fromStdString(sequence).toHex().constData());
            if (isValid(first, second) && length > 2) {
                for (const char last : {'A', '\x7F', '\xC0', '"'}) {
                    sequence.back() = last;
                    QCOMPARE(errorOf("[\"" + sequence + "\"]"), int(JSON_ERROR_INVALID_UTF8));
                }
            }
        }
    }
}

void TestJsonParser::controlCharactersInStringsAreRefused()
{
    for (int byte = 0; byte < 0x20; ++byte) {
        const bool isLegalElsewhere = byte == '\t' || byte == '\n' || byte == '\r';
        for (const char* before : {"", "1234567", "12345678901234567"}) {
            const std::string text = std::string("[\"") + before + char(byte) + "some more text\"]";
            QCOMPARE(errorOf(text), int(isLegalElsewhere ? JSON_ERROR_UNEXPECTED_CHARACTER : JSON_ERROR_BAD_CHARACTER));
        }
    }
    QCOMPARE(errorOf("[\"\x7F\"]"), 0);
}

void TestJsonParser::processedCountsWhatStandsAheadOfTheError()
{
    QCOMPARE(told("[1,]").processed, uint32_t(3));
    QCOMPARE(told("  x").processed, uint32_t(2));
    QCOMPARE(told("{\"a\":1} x").processed, uint32_t(8));
    QCOMPARE(told("[\"ab\x01\"]").processed, uint32_t(4));
    QCOMPARE(told("[12x").processed, uint32_t(3));
    QCOMPARE(told("").processed, uint32_t(0));
}

void TestJsonParser::anErrorStaysTheResult()
{
    json_parser parser;
    QCOMPARE(json_parser_init(&parser, nullptr, nullptr, nullptr), 0);
    QCOMPARE(json_parser_string(&parser, "[,", 2, nullptr), int(JSON_ERROR_COMMA));
    uint32_t processed = 77;
    QCOMPARE(json_parser_string(&parser, "1]", 2, &processed), int(JSON_ERROR_COMMA));
    QCOMPARE(processed, uint32_t(0));
    QVERIFY(!json_parser_is_done(&parser));
    json_parser_free(&parser);
    json_parser_free(&parser);
}

void TestJsonParser::aCompleteValueStaysDoneBehindTrailingCharacters()
{
    for (const char* tail : {"x", "1", "[", "]", ",", "\"", "/", "#", "\x01", "\xFF"}) {
        const Told result = told(std::string("{\"a\":[]} \r\n\t") + tail);
        QCOMPARE(result.error, int(JSON_ERROR_UNEXPECTED_CHARACTER));
        QVERIFY(result.isDone);
        QCOMPARE(result.processed, uint32_t(12));
    }
}

void TestJsonParser::withoutACallbackTheTextIsOnlyChecked()
{
    json_parser parser;
    QCOMPARE(json_parser_init(&parser, nullptr, nullptr, nullptr), 0);
    QCOMPARE(json_parser_string(&parser, "[1]", 3, nullptr), 0);
    QVERIFY(json_parser_is_done(&parser));
    json_parser_free(&parser);
}

void TestJsonParser::stringsWithoutEscapesLieInTheInput()
{
    const std::string text = "[\"caf\xC3\xA9\"]";
    const char* seen = nullptr;
    json_parser parser;
    const auto callback = [](void* userdata, int type, const char* data, uint32_t) {
        if (type == JSON_STRING)
            *static_cast<const char**>(userdata) = data;
        return 0;
    };
    QCOMPARE(json_parser_init(&parser, nullptr, callback, &seen), 0);
    QCOMPARE(json_parser_string(&parser, text.data(), uint32_t(text.size()), nullptr), 0);
    json_parser_free(&parser);
    QVERIFY(seen == text.data() + 2);
}

QTEST_APPLESS_MAIN(TestJsonParser)
#include "tst_json_parser.moc"
