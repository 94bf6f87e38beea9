#include "core/orvoJson.h"

#include "core/orvoJson_p.h"
#include "core/orvoLog_p.h"
#include "core/orvoUtf8_p.h"
#include "records/orvoerror.h"

#include "json_sax.h"

#include <QDebug>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <ostream>
#include <vector>

namespace orvoJson {

ORVO_LOGGER("OrvoJson")

void setError(OrvoError& error, int code)
{
    static const QHash<int, QString> messages = {
        {JSON_ERROR_NO_MEMORY, QStringLiteral("Out of memory")},
        {JSON_ERROR_BAD_CHARACTER, QStringLiteral("Bad character")},
        {JSON_ERROR_STACK_EMPTY, QStringLiteral("Stack empty")},
        {JSON_ERROR_WRONG_ITEM, QStringLiteral("Wrong item on stack")},
        {JSON_ERROR_NESTING_LIMIT, QStringLiteral("Reached nesting limit")},
        {JSON_ERROR_DATA_LIMIT, QStringLiteral("Reached data limit")},
        {JSON_ERROR_NOT_ALLOWED, QStringLiteral("Content not allowed")},
        {JSON_ERROR_UNEXPECTED_CHARACTER, QStringLiteral("Unexpected character")},
        {JSON_ERROR_MISSING_LOW_SURROGATE, QStringLiteral("Missing unicode low surrogate")},
        {JSON_ERROR_UNEXPECTED_LOW_SURROGATE, QStringLiteral("Unexpected unicode low surrogate")},
        {JSON_ERROR_COMMA, QStringLiteral("Comma out of structure")},
        {JSON_ERROR_CALLBACK, QStringLiteral("Callback error")},
        {JSON_ERROR_INVALID_UTF8, QStringLiteral("Invalid UTF-8")},
        {EmptyJson, QStringLiteral("Empty JSON")},
        {UnfinishedData, QStringLiteral("Unfinished JSON data")},
        {UnsupportedType, QStringLiteral("Unsupported Variant type")},
        {TrailingCharacters, QStringLiteral("Trailing characters after the parsed value")},
    };
    error.setDomain(QStringLiteral("OrvoJson"));
    error.setCode(code);
    error.setMessage(messages.value(code, QStringLiteral("Unknown error")));
}

bool isSpace(char byte)
{
    return std::isspace(static_cast<unsigned char>(byte));
}

bool isAscii(const char* data, uint32_t length)
{
    uint64_t bits = 0;
    for (; length >= 8; data += 8, length -= 8) {
        uint64_t eight;
        std::memcpy(&eight, data, 8);
        bits |= eight;
    }
    uint8_t tail = 0;
    for (; length; ++data, --length)
        tail |= uint8_t(*data);
    return !((bits & 0x8080808080808080u) | (tail & 0x80u));
}

/// Never null, so that an empty key can be told from none.
QString toText(const char* data, uint32_t length)
{
    if (!length)
        return QLatin1String("");
    return isAscii(data, length) ? QString::fromLatin1(data, int(length)) : orvoFromUtf8(data, int(length));
}

/**
 * The short texts met last, so that the many equal keys and values of rows share one text each instead of being made
 * anew. A text has one place it can lie in. It is kept when it comes a second time, so that texts which come only once
 * cost next to nothing.
 */
class TextCache
{
public:
    QString text(const char* data, uint32_t length)
    {
        if (!length || length > MaxLength || !isAscii(data, length))
            return toText(data, length);
        const uint64_t hash = hashed(data, length);
        Place& place = m_places[hash >> 58];
        if (place.hash != hash) {
            place.hash = hash;
            place.isKept = false;
            return QString::fromLatin1(data, int(length));
        }
        if (!place.isKept || place.text != QLatin1String(data, int(length))) {
            place.text = QString::fromLatin1(data, int(length));
            place.isKept = true;
        }
        return place.text;
    }

private:
    static constexpr uint32_t MaxLength = 48;

    struct Place
    {
        uint64_t hash = 0;
        QString text;
        bool isKept = false;
    };

    static uint64_t hashed(const char* data, uint32_t length)
    {
        constexpr uint64_t factor = 0x9E3779B97F4A7C15u;
        uint64_t hash = length;
        uint64_t eight;
        for (; length >= 8; data += 8, length -= 8) {
            std::memcpy(&eight, data, 8);
            hash = (hash ^ eight) * factor;
            hash ^= hash >> 32;
        }
        eight = 0;
        for (uint32_t i = 0; i < length; ++i)
            eight = eight << 8 | uint8_t(data[i]);
        return (hash ^ eight) * factor;
    }

    std::array<Place, 64> m_places;
};

QString toText(std::optional<TextCache>& cache, const char* data, uint32_t length)
{
    return cache ? cache->text(data, length) : toText(data, length);
}

/// What has been read so far of a text.
struct MyJsonDom
{
    /// One open array or object. It is an array as long as no key was read.
    struct StackItem
    {
        QString key;
        QVariantHash hash;
        QVariantList list;
    };

    /// A short text repeats too little to pay for a cache of its own; its keys are those of the texts before it.
    explicit MyJsonDom(int length) : keys(lastKeys())
    {
        if (length >= 1024)
            values.emplace();
        stack.swap(lastStack());
    }
    ~MyJsonDom()
    {
        stack.clear();
        stack.swap(lastStack());
    }
    MyJsonDom(const MyJsonDom&) = delete;
    MyJsonDom& operator=(const MyJsonDom&) = delete;

    /// Its room is used again by the next text of the thread.
    static std::vector<StackItem>& lastStack()
    {
        static thread_local std::vector<StackItem> stack;
        return stack;
    }

    static TextCache& lastKeys()
    {
        static thread_local TextCache cache;
        return cache;
    }

    void add(QVariant&& value)
    {
        if (stack.empty()) {
            root = std::move(value);
            return;
        }
        StackItem& top = stack.back();
        if (!top.key.isNull()) {
            top.hash[top.key] = std::move(value);
            return;
        }
        if (top.list.isEmpty())
            top.list.reserve(expectedSize());
        static const QVariant invalid;
        top.list.append(invalid);
        top.list.last().swap(value);
    }

    QVariantList takeList()
    {
        const size_t depth = stack.size();
        QVariantList list = std::move(stack.back().list);
        if (depth < listSizes.size())
            listSizes[depth] = list.size();
        stack.pop_back();
        return list;
    }

    QVariantHash takeHash()
    {
        QVariantHash hash = std::move(stack.back().hash);
        stack.pop_back();
        return hash;
    }

    /// Rows are of equal size: a list gets the room that the one before it on the same level took.
    int expectedSize() const
    {
        const size_t depth = stack.size();
        return depth < listSizes.size() ? listSizes[depth] : 0;
    }

    std::vector<StackItem> stack;
    QVariant root;
    TextCache& keys;
    std::optional<TextCache> values;
    std::array<int, 8> listSizes = {};
};

long long toInteger(const char* data, uint32_t length)
{
    const bool isNegative = data[0] == '-';
    // So few digits cannot overflow.
    if (length > 18)
        return std::strtoll(data, nullptr, 10);
    long long number = 0;
    for (uint32_t i = isNegative; i < length; ++i)
        number = number * 10 + (data[i] - '0');
    return isNegative ? -number : number;
}

/// As QString::toDouble() reads it, which alone knows what becomes of numbers that are too great or too small.
double toDouble(const char* data, uint32_t length)
{
    double number;
    if (std::from_chars(data, data + length, number).ec == std::errc())
        return number;
    return QString::fromUtf8(data, int(length)).toDouble();
}

int my_json_dom_callback(void* userdata, int type, const char* data, uint32_t length)
{
    auto* const dom = static_cast<MyJsonDom*>(userdata);
    switch (type) {
    case JSON_ARRAY_BEGIN:
    case JSON_OBJECT_BEGIN:
        dom->stack.emplace_back();
        return 0;
    case JSON_ARRAY_END:
        dom->add(QVariant(dom->takeList()));
        return 0;
    case JSON_OBJECT_END:
        dom->add(QVariant(dom->takeHash()));
        return 0;
    case JSON_INT:
        dom->add(QVariant(toInteger(data, length)));
        return 0;
    case JSON_FLOAT:
        dom->add(QVariant(toDouble(data, length)));
        return 0;
    case JSON_STRING:
        dom->add(QVariant(toText(dom->values, data, length)));
        return 0;
    case JSON_KEY:
        dom->stack.back().key = dom->keys.text(data, length);
        return 0;
    case JSON_TRUE:
        dom->add(QVariant(true));
        return 0;
    case JSON_FALSE:
        dom->add(QVariant(false));
        return 0;
    case JSON_NULL:
        dom->add(QVariant());
        return 0;
    default:
        LOG4CPLUS_ERROR(logger(), "Unknown json type, stopping parse: " << type);
        return UnsupportedType;
    }
}

/// A value that stands alone is read as the only element of a list.
QVariant parsePrimitive(const QByteArray& json, OrvoError& error, unsigned int* processed)
{
    LOG4CPLUS_DEBUG(logger(), "Retrying parse of primitive value: " << json);
    const QByteArray array = '[' + json + ']';
    const QVariant result = parse(array.constData(), array.size(), error, processed);
    if (!error.isEmpty())
        return QVariant();
    if (processed)
        *processed -= 2;
    const QVariantList list = result.toList();
    if (list.size() == 1)
        return list.first();
    setError(error, JSON_ERROR_UNEXPECTED_CHARACTER);
    return QVariant();
}

QVariant parse(const char* json, int size, OrvoError& error, unsigned int* processed)
{
    error.clear();
    MyJsonDom dom(size);
    json_parser parser;
    int ret = json_parser_init(&parser, nullptr, my_json_dom_callback, &dom);
    Q_ASSERT(!ret);
    ret = json_parser_string(&parser, json, uint32_t(size), processed);
    const bool isDone = json_parser_is_done(&parser);
    json_parser_free(&parser);

    if (!ret && isDone)
        return std::move(dom.root);

    const char* const end = json + size;
    const char* const first = std::find_if_not(json, end, isSpace);
    if (!ret) {
        setError(error, first == end ? EmptyJson : UnfinishedData);
    } else if (ret != JSON_ERROR_UNEXPECTED_CHARACTER) {
        setError(error, ret);
    } else if (isDone) {
        setError(error, TrailingCharacters);
    } else if (first == end || *first == '[' || *first == '{') {
        setError(error, ret);
    } else {
        return parsePrimitive(QByteArray(json, size), error, processed);
    }
    return std::move(dom.root);
}

QByteArray serialize(const QVariant& value, bool pretty, const char* where, int headSize = 0)
{
    OrvoError error;
    QByteArray json = printValue(value, pretty, error, headSize);
    if (!error.isEmpty())
        qt_assert_x(where, error.message().toUtf8().constData(), __FILE__, __LINE__);
    return json;
}

QByteArray serializeBehind(int headSize, const QVariant& value)
{
    return serialize(value, false, "serialize", headSize);
}

} // namespace orvoJson

QVariant OrvoJson::parse(const QByteArray& json, OrvoError& error, unsigned int* processed)
{
    return orvoJson::parse(json.constData(), json.size(), error, processed);
}

QVariant OrvoJson::parse(const QString& json, OrvoError& error, unsigned int* processed)
{
    return parse(json.toUtf8(), error, processed);
}

QByteArray OrvoJson::serialize(const QVariant& value)
{
    return orvoJson::serialize(value, false, "serialize");
}

QByteArray OrvoJson::serializePretty(const QVariant& value)
{
    return orvoJson::serialize(value, true, "serializePretty");
}

QString OrvoJson::escape(const QString& text)
{
    const QByteArray json = serialize(QVariant(text));
    return orvoFromUtf8(json.constData() + 1, json.size() - 2);
}

QString OrvoJson::unescape(const QString& text, OrvoError& error)
{
    const QVariant list = parse("[\"" + text.toUtf8() + "\"]", error);
    return error.isEmpty() ? list.toList().value(0).toString() : QString();
}

QByteArray OrvoHash::toJson(bool pretty) const
{
    return pretty ? OrvoJson::serializePretty(__variant()) : OrvoJson::serialize(__variant());
}

QString OrvoHash::toJsonString() const
{
    return QString::fromUtf8(toJson(false));
}

std::ostream& operator<<(std::ostream& stream, const OrvoHash& record)
{
    const QByteArray json = record.toJson(false);
    return stream.write(json.constData(), json.size());
}

QDebug operator<<(QDebug debug, const OrvoHash& record)
{
    const bool hadSpaces = debug.autoInsertSpaces();
    debug.nospace() << record.toJson(false).constData() << ' ';
    debug.setAutoInsertSpaces(hadSpaces);
    return debug;
}
