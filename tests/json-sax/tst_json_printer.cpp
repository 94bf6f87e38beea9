#include "json_sax.h"

#include <QJsonDocument>
#include <QtTest>

#include <random>
#include <string>
#include <vector>

namespace {

struct Token
{
    int type;
    std::string text = {};
};

using Print = int (*)(json_printer*, int, const char*, uint32_t);

int append(void* userdata, const char* data, uint32_t length)
{
    static_cast<std::string*>(userdata)->append(data, length);
    return 0;
}

struct Printed
{
    std::string text;
    int error;
};

Printed printed(const std::vector<Token>& tokens, Print print = json_print_raw)
{
    Printed result;
    json_printer printer;
    if (json_print_init(&printer, append, &result.text))
        qFatal("no printer");
    for (const Token& token : tokens) {
        // In memory of exactly its size, so that a sanitizer sees a read behind it.
        const std::vector<char> bytes(token.text.begin(), token.text.end());
        print(&printer, token.type, bytes.data(), uint32_t(bytes.size()));
    }
    result.error = json_print_free(&printer);
    return result;
}

std::string printedString(const std::string& text)
{
    return printed({{JSON_STRING, text}}).text;
}

const std::vector<Token> nested = {
    {JSON_OBJECT_BEGIN}, {JSON_KEY, "a"},  {JSON_ARRAY_BEGIN}, {JSON_INT, "1"},     {JSON_FLOAT, "2.5"},
    {JSON_TRUE},         {JSON_FALSE},     {JSON_NULL},        {JSON_ARRAY_END},    {JSON_KEY, "b"},
    {JSON_OBJECT_BEGIN}, {JSON_KEY, "c"},  {JSON_STRING, "d"}, {JSON_OBJECT_END},   {JSON_KEY, "e"},
    {JSON_ARRAY_BEGIN},  {JSON_ARRAY_END}, {JSON_KEY, "f"},    {JSON_OBJECT_BEGIN}, {JSON_OBJECT_END},
    {JSON_OBJECT_END},
};

} // namespace

class TestJsonPrinter : public QObject
{
    Q_OBJECT

private slots:
    void rawTextHasNoWhiteSpace();
    void prettyTextIsIndentedByTwoSpaces();
    void aTopLevelValueMayBeOfAnyKind();
    void whatNeedsItIsEscaped();
    void invalidUtf8IsReplacedByteByByte();
    void stringsOfAnyBytesGiveValidJson();
    void longStringsGoOutWhole();
    void depthIsUnlimited();
    void tokensWithoutAPlaceAreRefused_data();
    void tokensWithoutAPlaceAreRefused();
    void whatIsStillOpenIsReportedWhenFreed();
    void aCompleteValueIsHandedOutAtOnce();
    void aCallbackThatRefusesStopsThePrinter();
    void anErrorStaysTheResult();
};

void TestJsonPrinter::rawTextHasNoWhiteSpace()
{
    const Printed result = printed(nested);
    QCOMPARE(result.error, 0);
    QCOMPARE(result.text.c_str(), R"({"a":[1,2.5,true,false,null],"b":{"c":"d"},"e":[],"f":{}})");
}

void TestJsonPrinter::prettyTextIsIndentedByTwoSpaces()
{
    const Printed result = printed(nested, json_print_pretty);
    QCOMPARE(result.error, 0);
    QCOMPARE(result.text.c_str(), R"({
  "a": [
    1,
    2.5,
    true,
    false,
    null
  ],
  "b": {
    "c": "d"
  },
  "e": [],
  "f": {}
})");
}

void TestJsonPrinter::aTopLevelValueMayBeOfAnyKind()
{
    QCOMPARE(printed({{JSON_NULL}}).text.c_str(), "null");
    QCOMPARE(printed({{JSON_INT, "-5"}}, json_print_pretty).text.c_str(), "-5");
    QCOMPARE(printed({{JSON_STRING, ""}}).text.c_str(), "\"\"");
    QCOMPARE(printed({{JSON_ARRAY_BEGIN}, {JSON_ARRAY_END}}, json_print_pretty).text.c_str(), "[]");
    QCOMPARE(printed({}).text.c_str(), "");
}

void TestJsonPrinter::whatNeedsItIsEscaped()
{
    QCOMPARE(printedString("\"\\/\b\f\n\r\t").c_str(), R"("\"\\/\b\f\n\r\t")");
    QCOMPARE(printedString(std::string("\0\x01\x1F\x7F", 4)).c_str(), "\"\\u0000\\u0001\\u001f\x7F\"");
    QCOMPARE(printedString("12345678\"12345678\\").c_str(), R"("12345678\"12345678\\")");
    QCOMPARE(printedString("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80").c_str(), "\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\"");
    QCOMPARE(printed({{JSON_OBJECT_BEGIN}, {JSON_KEY, "a\"b\n"}, {JSON_NULL}, {JSON_OBJECT_END}}).text.c_str(),
             R"({"a\"b\n":null})");
}

void TestJsonPrinter::invalidUtf8IsReplacedByteByByte()
{
    const std::string mark = "\xEF\xBF\xBD";
    QCOMPARE(printedString("a\xFFz"), "\"a" + mark + "z\"");
    QCOMPARE(printedString("\xC0\x80"), "\"" + mark + mark + "\"");
    QCOMPARE(printedString("\xED\xA0\x80"), "\"" + mark + mark + mark + "\"");
    QCOMPARE(printedString("\xE2\x82"), "\"" + mark + mark + "\"");
    QCOMPARE(printedString("\xF0\x9F\x98"), "\"" + mark + mark + mark + "\"");
    QCOMPARE(printedString("\xC3"), "\"" + mark + "\"");
    QCOMPARE(printedString("\xC3\""), "\"" + mark + "\\\"\"");
}

void TestJsonPrinter::stringsOfAnyBytesGiveValidJson()
{
    const unsigned seed = std::random_device()();
    qInfo("seed %u", seed);
    std::mt19937 random(seed);
    for (int round = 0; round < 3000; ++round) {
        std::string bytes(random() % 40, '\0');
        for (char& byte : bytes)
            byte = char(random() % 4 ? random() : 'a' + random() % 26);
        const std::string text = "[" + printedString(bytes) + "]";
        QJsonParseError error;
        QJsonDocument::fromJson(QByteArray::fromStdString(text), &error);
        QCOMPARE(int(error.error), int(QJsonParseError::NoError));
        json_parser parser;
        json_parser_init(&parser, nullptr, nullptr, nullptr);
        QCOMPARE(json_parser_string(&parser, text.data(), uint32_t(text.size()), nullptr), 0);
        QVERIFY(json_parser_is_done(&parser));
        json_parser_free(&parser);
    }
}

void TestJsonPrinter::longStringsGoOutWhole()
{
    for (const size_t size :
         {JSON_PRINTER_SPACE - 3, JSON_PRINTER_SPACE - 2, JSON_PRINTER_SPACE - 1, int(JSON_PRINTER_SPACE),
          JSON_PRINTER_SPACE + 1, 2 * JSON_PRINTER_SPACE, 3 * JSON_PRINTER_SPACE + 17}) {
        QCOMPARE(printedString(std::string(size, 'a')), "\"" + std::string(size, 'a') + "\"");
        std::string expected = "\"";
        for (size_t i = 0; i < size; ++i)
            expected += "\\n";
        QCOMPARE(printedString(std::string(size, '\n')), expected + "\"");
    }
}

void TestJsonPrinter::depthIsUnlimited()
{
    const size_t depth = 100000;
    std::vector<Token> tokens(depth, {JSON_ARRAY_BEGIN});
    tokens.insert(tokens.end(), depth, {JSON_ARRAY_END});
    const Printed result = printed(tokens);
    QCOMPARE(result.error, 0);
    QVERIFY(result.text == std::string(depth, '[') + std::string(depth, ']'));
}

void TestJsonPrinter::tokensWithoutAPlaceAreRefused_data()
{
    QTest::addColumn<QVector<int>>("types");
    QTest::addColumn<int>("code");
    QTest::newRow("close nothing") << QVector<int>{JSON_ARRAY_END} << int(JSON_ERROR_STACK_EMPTY);
    QTest::newRow("close the other") << QVector<int>{JSON_ARRAY_BEGIN, JSON_OBJECT_END} << int(JSON_ERROR_WRONG_ITEM);
    QTest::newRow("key at the top") << QVector<int>{JSON_KEY} << int(JSON_ERROR_UNEXPECTED_CHARACTER);
    QTest::newRow("key in an array") << QVector<int>{JSON_ARRAY_BEGIN, JSON_KEY}
                                     << int(JSON_ERROR_UNEXPECTED_CHARACTER);
    QTest::newRow("value without key") << QVector<int>{JSON_OBJECT_BEGIN, JSON_TRUE}
                                       << int(JSON_ERROR_UNEXPECTED_CHARACTER);
    QTest::newRow("two keys") << QVector<int>{JSON_OBJECT_BEGIN, JSON_KEY, JSON_KEY}
                              << int(JSON_ERROR_UNEXPECTED_CHARACTER);
    QTest::newRow("key without value") << QVector<int>{JSON_OBJECT_BEGIN, JSON_KEY, JSON_OBJECT_END}
                                       << int(JSON_ERROR_UNEXPECTED_CHARACTER);
    QTest::newRow("two values") << QVector<int>{JSON_TRUE, JSON_TRUE} << int(JSON_ERROR_UNEXPECTED_CHARACTER);
    QTest::newRow("no type") << QVector<int>{0} << int(JSON_ERROR_UNEXPECTED_CHARACTER);
    QTest::newRow("unknown type") << QVector<int>{12} << int(JSON_ERROR_UNEXPECTED_CHARACTER);
}

void TestJsonPrinter::tokensWithoutAPlaceAreRefused()
{
    QFETCH(QVector<int>, types);
    QFETCH(int, code);
    json_printer printer;
    std::string text;
    QCOMPARE(json_print_init(&printer, append, &text), 0);
    for (int i = 0; i < types.size() - 1; ++i)
        QCOMPARE(json_print_raw(&printer, types.at(i), "", 0), 0);
    QCOMPARE(json_print_raw(&printer, types.last(), "", 0), code);
    QCOMPARE(json_print_free(&printer), code);
}

void TestJsonPrinter::whatIsStillOpenIsReportedWhenFreed()
{
    const Printed result = printed({{JSON_ARRAY_BEGIN}, {JSON_INT, "1"}});
    QCOMPARE(result.error, int(JSON_ERROR_WRONG_ITEM));
    QCOMPARE(result.text.c_str(), "[1");
}

void TestJsonPrinter::aCompleteValueIsHandedOutAtOnce()
{
    json_printer printer;
    std::string text;
    QCOMPARE(json_print_init(&printer, append, &text), 0);
    QCOMPARE(json_print_raw(&printer, JSON_ARRAY_BEGIN, nullptr, 0), 0);
    QCOMPARE(json_print_raw(&printer, JSON_ARRAY_END, nullptr, 0), 0);
    QCOMPARE(text.c_str(), "[]");
    QCOMPARE(json_print_free(&printer), 0);
    QCOMPARE(text.c_str(), "[]");
}

void TestJsonPrinter::aCallbackThatRefusesStopsThePrinter()
{
    const auto refuse = [](void* userdata, const char*, uint32_t) { return ++*static_cast<int*>(userdata); };
    int calls = 0;
    json_printer printer;
    QCOMPARE(json_print_init(&printer, refuse, &calls), 0);
    QCOMPARE(json_print_raw(&printer, JSON_TRUE, nullptr, 0), int(JSON_ERROR_CALLBACK));
    QCOMPARE(json_print_free(&printer), int(JSON_ERROR_CALLBACK));
    QCOMPARE(calls, 1);

    const std::string text(JSON_PRINTER_SPACE * 2, 'a');
    QCOMPARE(json_print_init(&printer, refuse, &calls), 0);
    QCOMPARE(json_print_raw(&printer, JSON_STRING, text.data(), uint32_t(text.size())), int(JSON_ERROR_CALLBACK));
    QCOMPARE(json_print_free(&printer), int(JSON_ERROR_CALLBACK));
    QCOMPARE(calls, 2);
}

void TestJsonPrinter::anErrorStaysTheResult()
{
    json_printer printer;
    std::string text;
    QCOMPARE(json_print_init(&printer, append, &text), 0);
    QCOMPARE(json_print_raw(&printer, JSON_OBJECT_END, nullptr, 0), int(JSON_ERROR_STACK_EMPTY));
    QCOMPARE(json_print_pretty(&printer, JSON_TRUE, nullptr, 0), int(JSON_ERROR_STACK_EMPTY));
    QCOMPARE(json_print_free(&printer), int(JSON_ERROR_STACK_EMPTY));
    QCOMPARE(json_print_free(&printer), int(JSON_ERROR_STACK_EMPTY));
    QCOMPARE(text.c_str(), "");
}

QTEST_APPLESS_MAIN(TestJsonPrinter)
#include "tst_json_printer.moc"
