#include "core/orvoJson_p.h"
#include "records/orvoerror.h"

#include "json_sax.h"

#include <QVarLengthArray>
#include <QtNumeric>

#include <algorithm>

namespace orvoJson {

namespace {

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

} // namespace

QByteArray printValue(const QVariant& value, bool pretty, OrvoError& error)
{
    return ValuePrinter(pretty ? json_print_pretty : json_print_raw, pretty, error).print(value);
}

} // namespace orvoJson
