#include "core/orvoJson.h"

#include "core/orvoLog_p.h"
#include "records/orvoerror.h"

#include "json_sax.h"

#include <QDebug>
#include <QStack>
#include <QVarLengthArray>
#include <QtNumeric>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <ostream>

namespace orvoJson {

ORVO_LOGGER("OrvoJson")

enum Code {
    EmptyJson = 1000,
    UnfinishedData = 1001,
    UnsupportedType = 1002,
    TrailingCharacters = 1003
};

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
        return QStringLiteral("");
    return isAscii(data, length) ? QString::fromLatin1(data, int(length)) : QString::fromUtf8(data, int(length));
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

    /// A short text repeats too little to pay for the caches.
    explicit MyJsonDom(int length)
    {
        if (length >= 1024) {
            keys.emplace();
            values.emplace();
        }
    }

    void add(QVariant&& value)
    {
        if (stack.isEmpty()) {
            root = std::move(value);
            return;
        }
        StackItem& top = stack.top();
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
        const int depth = stack.size();
        QVariantList list = std::move(stack.top().list);
        if (depth < int(listSizes.size()))
            listSizes[size_t(depth)] = list.size();
        stack.removeLast();
        return list;
    }

    QVariantHash takeHash()
    {
        QVariantHash hash = std::move(stack.top().hash);
        stack.removeLast();
        return hash;
    }

    /// Rows are of equal size: a list gets the room that the one before it on the same level took.
    int expectedSize() const
    {
        const int depth = stack.size();
        return depth < int(listSizes.size()) ? listSizes[size_t(depth)] : 0;
    }

    QStack<StackItem> stack;
    QVariant root;
    std::optional<TextCache> keys;
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
        dom->stack.push(MyJsonDom::StackItem());
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
        dom->stack.top().key = toText(dom->keys, data, length);
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

namespace dom {

QVariant parse(const QByteArray& json, OrvoError& error, unsigned int* processed);

/// A value that stands alone is read as the only element of a list.
QVariant parsePrimitive(const QByteArray& json, OrvoError& error, unsigned int* processed)
{
    LOG4CPLUS_DEBUG(logger(), "Retrying parse of primitive value: " << json);
    const QVariant result = parse('[' + json + ']', error, processed);
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

QVariant parse(const QByteArray& json, OrvoError& error, unsigned int* processed)
{
    error.clear();
    MyJsonDom dom(json.size());
    json_parser parser;
    int ret = json_parser_init(&parser, nullptr, my_json_dom_callback, &dom);
    Q_ASSERT(!ret);
    ret = json_parser_string(&parser, json.constData(), uint32_t(json.size()), processed);
    const bool isDone = json_parser_is_done(&parser);
    json_parser_free(&parser);

    if (!ret && isDone)
        return std::move(dom.root);

    const auto first = std::find_if_not(json.cbegin(), json.cend(), isSpace);
    if (!ret) {
        setError(error, first == json.cend() ? EmptyJson : UnfinishedData);
    } else if (ret != JSON_ERROR_UNEXPECTED_CHARACTER) {
        setError(error, ret);
    } else if (isDone) {
        setError(error, TrailingCharacters);
    } else if (first == json.cend() || *first == '[' || *first == '{') {
        setError(error, ret);
    } else {
        return parsePrimitive(json, error, processed);
    }
    return std::move(dom.root);
}

} // namespace dom

using PrintFunction = int (*)(json_printer*, int, const char*, uint32_t);

int appendOutput(void* userdata, const char* data, uint32_t length)
{
    static_cast<QByteArray*>(userdata)->append(data, int(length));
    return 0;
}

/// One walk over a value. Any error ends it.
class ValuePrinter
{
public:
    ValuePrinter(PrintFunction print, bool sortKeys, OrvoError& error)
        : m_print(print), m_sortKeys(sortKeys), m_error(error)
    {
        m_error.clear();
    }

    QByteArray print(const QVariant& value)
    {
        QByteArray output;
        check(json_print_init(&m_printer, appendOutput, &output));
        if (m_error.isEmpty()) {
            printValue(value);
            check(json_print_free(&m_printer));
        }
        return m_error.isEmpty() ? output : QByteArray();
    }

private:
    bool check(int code)
    {
        if (code && m_error.isEmpty())
            setError(m_error, code);
        return !code;
    }

    bool token(int type, const char* data = nullptr, uint32_t length = 0)
    {
        return check(m_print(&m_printer, type, data, length));
    }

    bool token(int type, const QByteArray& text) { return token(type, text.constData(), uint32_t(text.size())); }

    /// As QString::toUtf8() writes it, without memory of its own for each text.
    bool token(int type, const QString& text)
    {
        // A unit takes three bytes at most, and a pair of surrogates four.
        m_utf8.resize(text.size() * 3);
        char* out = m_utf8.data();
        const ushort* p = text.utf16();
        const ushort* const end = p + text.size();
        while (p != end) {
            while (end - p >= 8) {
                ushort bits = 0;
                for (int i = 0; i < 8; ++i)
                    bits |= p[i];
                if (bits >= 0x80)
                    break;
                for (int i = 0; i < 8; ++i)
                    out[i] = char(p[i]);
                p += 8;
                out += 8;
            }
            if (p == end)
                break;
            const uint unit = *p++;
            if (unit < 0x80) {
                *out++ = char(unit);
            } else if (unit < 0x800) {
                *out++ = char(0xC0 | unit >> 6);
                *out++ = char(0x80 | (unit & 0x3F));
            } else if (!QChar::isSurrogate(unit)) {
                *out++ = char(0xE0 | unit >> 12);
                *out++ = char(0x80 | (unit >> 6 & 0x3F));
                *out++ = char(0x80 | (unit & 0x3F));
            } else if (QChar::isHighSurrogate(unit) && p != end && QChar::isLowSurrogate(*p)) {
                const uint codePoint = QChar::surrogateToUcs4(ushort(unit), *p++);
                *out++ = char(0xF0 | codePoint >> 18);
                *out++ = char(0x80 | (codePoint >> 12 & 0x3F));
                *out++ = char(0x80 | (codePoint >> 6 & 0x3F));
                *out++ = char(0x80 | (codePoint & 0x3F));
            } else {
                *out++ = '?';
            }
        }
        return token(type, m_utf8.constData(), uint32_t(out - m_utf8.constData()));
    }

    bool integer(qulonglong magnitude, bool isNegative)
    {
        char text[24];
        char* first = text + sizeof text;
        do {
            *--first = char('0' + magnitude % 10);
            magnitude /= 10;
        } while (magnitude);
        if (isNegative)
            *--first = '-';
        return token(JSON_INT, first, uint32_t(text + sizeof text - first));
    }

    bool integer(qlonglong number)
    {
        return number < 0 ? integer(0 - qulonglong(number), true) : integer(qulonglong(number), false);
    }

    bool floating(const QVariant& value)
    {
        const double number = value.toDouble();
        QByteArray text = value.toString().toUtf8();
        if (qIsNaN(number) || qIsInf(number))
            text = '"' + text + '"';
        return token(JSON_FLOAT, text);
    }

    bool member(const QString& key, const QVariant& value) { return token(JSON_KEY, key) && printValue(value); }

    template <typename Container>
    bool object(const Container& members)
    {
        if (!token(JSON_OBJECT_BEGIN))
            return false;
        for (auto it = members.cbegin(); it != members.cend(); ++it)
            if (!member(it.key(), it.value()))
                return false;
        return token(JSON_OBJECT_END);
    }

    bool sortedObject(const QVariantHash& members)
    {
        QVarLengthArray<QVariantHash::const_iterator, 32> sorted;
        sorted.reserve(members.size());
        for (auto it = members.cbegin(); it != members.cend(); ++it)
            sorted.append(it);
        std::sort(sorted.begin(), sorted.end(), [](auto a, auto b) { return a.key() < b.key(); });
        if (!token(JSON_OBJECT_BEGIN))
            return false;
        for (const auto it : sorted)
            if (!member(it.key(), it.value()))
                return false;
        return token(JSON_OBJECT_END);
    }

    bool printValue(const QVariant& value)
    {
        // The payload where it lies: toString() and its like would each make one more copy.
        const void* const data = value.constData();
        switch (int(value.type())) {
        case QVariant::Invalid:
            return token(JSON_NULL);
        case QVariant::Bool:
            return token(*static_cast<const bool*>(data) ? JSON_TRUE : JSON_FALSE);
        case QVariant::Int:
            return integer(qlonglong(*static_cast<const int*>(data)));
        case QVariant::UInt:
            return integer(*static_cast<const uint*>(data), false);
        case QVariant::LongLong:
            return integer(*static_cast<const qlonglong*>(data));
        case QVariant::ULongLong:
            return integer(*static_cast<const qulonglong*>(data), false);
        case QVariant::Double:
        case QMetaType::Float:
            return floating(value);
        case QVariant::String:
            return token(JSON_STRING, *static_cast<const QString*>(data));
        case QVariant::Char:
            return token(JSON_STRING, value.toString());
        case QVariant::ByteArray:
            // Such bytes are C text: they end at the first NUL.
            return token(JSON_STRING, QString::fromUtf8(static_cast<const QByteArray*>(data)->constData()));
        case QVariant::StringList: {
            if (!token(JSON_ARRAY_BEGIN))
                return false;
            for (const QString& text : *static_cast<const QStringList*>(data))
                if (!token(JSON_STRING, text))
                    return false;
            return token(JSON_ARRAY_END);
        }
        case QVariant::List: {
            if (!token(JSON_ARRAY_BEGIN))
                return false;
            for (const QVariant& element : *static_cast<const QVariantList*>(data))
                if (!printValue(element))
                    return false;
            return token(JSON_ARRAY_END);
        }
        case QVariant::Map:
            return object(*static_cast<const QVariantMap*>(data));
        case QVariant::Hash: {
            const auto& members = *static_cast<const QVariantHash*>(data);
            return m_sortKeys ? sortedObject(members) : object(members);
        }
        default:
            setError(m_error, UnsupportedType);
            m_error.setMessage(
                QStringLiteral("Unsupported Variant type: %1").arg(QString::fromLatin1(value.typeName())));
            return false;
        }
    }

    const PrintFunction m_print;
    const bool m_sortKeys;
    OrvoError& m_error;
    QVarLengthArray<char, 512> m_utf8;
    json_printer m_printer;
};

QByteArray serialize(const QVariant& value, PrintFunction print, bool sortKeys, const char* where)
{
    OrvoError error;
    const QByteArray json = ValuePrinter(print, sortKeys, error).print(value);
    if (!error.isEmpty())
        qt_assert_x(where, error.message().toUtf8().constData(), __FILE__, __LINE__);
    return json;
}

} // namespace orvoJson

Q_DECLARE_TYPEINFO(orvoJson::MyJsonDom::StackItem, Q_MOVABLE_TYPE);

QVariant OrvoJson::parse(const QByteArray& json, OrvoError& error, unsigned int* processed)
{
    return orvoJson::dom::parse(json, error, processed);
}

QVariant OrvoJson::parse(const QString& json, OrvoError& error, unsigned int* processed)
{
    return parse(json.toUtf8(), error, processed);
}

QByteArray OrvoJson::serialize(const QVariant& value)
{
    return orvoJson::serialize(value, json_print_raw, false, "serialize");
}

QByteArray OrvoJson::serializePretty(const QVariant& value)
{
    return orvoJson::serialize(value, json_print_pretty, true, "serializePretty");
}

QString OrvoJson::escape(const QString& text)
{
    const QByteArray json = serialize(QVariant(text));
    return QString::fromUtf8(json.constData() + 1, json.size() - 2);
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
