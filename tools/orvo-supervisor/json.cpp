#include "json.h"

#include <json_sax.h>

#include <QByteArray>

#include <cerrno>
#include <cstdlib>

namespace {

QString messageFor(int error)
{
    switch (error) {
    case JSON_ERROR_NO_MEMORY:
        return QStringLiteral("out of memory");
    case JSON_ERROR_STACK_EMPTY:
        return QStringLiteral("a closing bracket without an opening one");
    case JSON_ERROR_WRONG_ITEM:
        return QStringLiteral("a closing bracket of the wrong kind");
    case JSON_ERROR_NESTING_LIMIT:
        return QStringLiteral("nested too deeply");
    case JSON_ERROR_DATA_LIMIT:
        return QStringLiteral("a text or number that is too long");
    case JSON_ERROR_MISSING_LOW_SURROGATE:
    case JSON_ERROR_UNEXPECTED_LOW_SURROGATE:
        return QStringLiteral("half a surrogate pair");
    case JSON_ERROR_COMMA:
        return QStringLiteral("a comma too many");
    case JSON_ERROR_INVALID_UTF8:
        return QStringLiteral("not UTF-8");
    default:
        return QStringLiteral("unexpected character");
    }
}

bool isSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

/// Feeds the parser byte by byte and keeps the place at which the token at hand began.
class Reader
{
public:
    bool read(const QByteArray& text, JsonValue& value, Problem& problem)
    {
        json_parser parser;
        json_parser_init(&parser, nullptr, &Reader::onToken, this);
        int error = 0;
        bool behind = false;
        for (const char c : text) {
            if (json_parser_is_done(&parser)) {
                behind = !isSpace(c);
                if (behind)
                    break;
            } else {
                begin(c);
                error = json_parser_string(&parser, &c, 1, nullptr);
                if (error)
                    break;
            }
            advance(c);
        }
        const bool done = json_parser_is_done(&parser);
        json_parser_free(&parser);
        if (!error && !behind && done) {
            value = m_root;
            return true;
        }
        problem.place = m_here;
        if (behind)
            problem.text = QStringLiteral("something behind the end");
        else if (error)
            problem.text = m_message.isEmpty() ? messageFor(error) : m_message;
        else
            problem.text =
                m_started ? QStringLiteral("the file ends too early") : QStringLiteral("there is nothing in it");
        return false;
    }

private:
    static int onToken(void* reader, int type, const char* data, uint32_t length)
    {
        return static_cast<Reader*>(reader)->token(type, data, length);
    }

    /// What the byte means for the place of the token that it belongs to. The parser judges whether it may be there.
    void begin(char c)
    {
        if (m_inText) {
            if (m_escaped)
                m_escaped = false;
            else if (c == '\\')
                m_escaped = true;
            else if (c == '"')
                m_inText = false;
            return;
        }
        if (isSpace(c)) {
            m_inWord = false;
            return;
        }
        m_started = true;
        switch (c) {
        case '"':
            m_inText = true;
            m_inWord = false;
            m_begin = m_here;
            break;
        case '[':
        case '{':
        case ']':
        case '}':
        case ',':
        case ':':
            m_inWord = false;
            break;
        default:
            if (!m_inWord)
                m_begin = m_here;
            m_inWord = true;
        }
    }

    void advance(char c)
    {
        if (c == '\n')
            m_here = {m_here.line + 1, 1};
        else if ((uchar(c) & 0xC0) != 0x80)
            ++m_here.column;
    }

    int token(int type, const char* data, uint32_t length)
    {
        JsonValue value;
        value.place = m_begin;
        switch (type) {
        case JSON_KEY:
            m_keys.append({QString::fromUtf8(data, int(length)), m_begin, JsonValue()});
            return 0;
        case JSON_ARRAY_BEGIN:
        case JSON_OBJECT_BEGIN:
            value.type = type == JSON_ARRAY_BEGIN ? JsonValue::Array : JsonValue::Object;
            value.place = m_here;
            m_open.append(value);
            return 0;
        case JSON_ARRAY_END:
        case JSON_OBJECT_END:
            value = m_open.takeLast();
            break;
        case JSON_INT:
            errno = 0;
            value.type = JsonValue::Integer;
            value.scalar = qlonglong(strtoll(data, nullptr, 10));
            if (errno == ERANGE)
                return fail(QStringLiteral("a number that is too large"));
            break;
        case JSON_FLOAT:
            value.type = JsonValue::Number;
            value.scalar = QByteArray(data, int(length)).toDouble();
            break;
        case JSON_STRING:
            value.type = JsonValue::Text;
            value.scalar = QString::fromUtf8(data, int(length));
            break;
        case JSON_TRUE:
        case JSON_FALSE:
            value.type = JsonValue::Bool;
            value.scalar = type == JSON_TRUE;
            break;
        }
        put(value);
        return 0;
    }

    void put(const JsonValue& value)
    {
        if (m_open.isEmpty()) {
            m_root = value;
        } else if (m_open.last().type == JsonValue::Array) {
            m_open.last().items.append(value);
        } else {
            JsonMember member = m_keys.takeLast();
            member.value = value;
            m_open.last().members.append(member);
        }
    }

    int fail(const QString& message)
    {
        m_message = message;
        m_here = m_begin;
        return 1;
    }

    Place m_here;
    Place m_begin;
    bool m_started = false;
    bool m_inText = false;
    bool m_escaped = false;
    bool m_inWord = false;
    QString m_message;
    JsonValue m_root;
    /// The arrays and objects that are not complete, outermost first, and the keys that wait for their values.
    QList<JsonValue> m_open;
    QList<JsonMember> m_keys;
};

} // namespace

QString typeName(JsonValue::Type type)
{
    switch (type) {
    case JsonValue::Null:
        return QStringLiteral("null");
    case JsonValue::Bool:
        return QStringLiteral("a bool");
    case JsonValue::Integer:
        return QStringLiteral("a whole number");
    case JsonValue::Number:
        return QStringLiteral("a fraction");
    case JsonValue::Text:
        return QStringLiteral("a text");
    case JsonValue::Array:
        return QStringLiteral("an array");
    case JsonValue::Object:
        return QStringLiteral("an object");
    }
    return QString();
}

bool parseJson(const QByteArray& text, JsonValue& value, Problem& problem)
{
    return Reader().read(text, value, problem);
}
