#include "core/orvoJson_p.h"
#include "records/orvoerror.h"

#include "json_sax.h"
#include "json_text_p.h"

#include <QVarLengthArray>
#include <QtNumeric>

#include <algorithm>
#include <cstring>

namespace orvoJson {

namespace {

char* writeUtf8(uint codePoint, char* out)
{
    if (codePoint < 0x800) {
        *out++ = char(0xC0 | codePoint >> 6);
    } else {
        if (codePoint < 0x10000) {
            *out++ = char(0xE0 | codePoint >> 12);
        } else {
            *out++ = char(0xF0 | codePoint >> 18);
            *out++ = char(0x80 | (codePoint >> 12 & 0x3F));
        }
        *out++ = char(0x80 | (codePoint >> 6 & 0x3F));
    }
    *out++ = char(0x80 | (codePoint & 0x3F));
    return out;
}

/// Copies units as they stand, four at a time, up to the first four of which one needs more than that.
void copyPlain(const ushort*& p, const ushort* end, char*& out)
{
#if Q_BYTE_ORDER == Q_LITTLE_ENDIAN
    constexpr quint64 ones = 0x0001000100010001u;
    while (end - p >= 4) {
        quint64 four;
        std::memcpy(&four, p, sizeof four);
        // A borrow may set the top bit of a unit above one that has it by right, which does not count.
        const quint64 special =
            (((four - ones * 0x20) | ((four ^ ones * '"') - ones) | ((four ^ ones * '\\') - ones)) & (ones * 0x8000))
            | (four & (ones * 0xFF80));
        if (special)
            return;
        four = (four | four >> 8) & 0x0000FFFF0000FFFFu;
        const quint32 bytes = quint32(four | four >> 16);
        std::memcpy(out, &bytes, sizeof bytes);
        p += 4;
        out += 4;
    }
#else
    Q_UNUSED(p)
    Q_UNUSED(end)
    Q_UNUSED(out)
#endif
}

/// Writes the unit at p, or the pair of them, as QString::toUtf8() and JSON have it.
void writeUnit(const ushort*& p, const ushort* end, char*& out)
{
    const uint unit = *p++;
    if (unit >= 0x80) {
        if (!QChar::isSurrogate(unit))
            out = writeUtf8(unit, out);
        else if (QChar::isHighSurrogate(unit) && p != end && QChar::isLowSurrogate(*p))
            out = writeUtf8(QChar::surrogateToUcs4(ushort(unit), *p++), out);
        else
            *out++ = '?';
    } else if (unit >= 0x20 && unit != '"' && unit != '\\') {
        *out++ = char(unit);
    } else {
        char escape[6];
        const uint32_t length = json::writeEscape(uint8_t(unit), escape);
        std::memcpy(out, escape, length);
        out += length;
    }
}

/**
 * Writes compact text. Every value is followed by a comma, which the bracket behind the last one overwrites.
 *
 * All packets of the link go this way, so it writes straight from the payload of a value into the text, and takes no
 * memory for a small one.
 */
class CompactWriter
{
public:
    static constexpr bool sortsKeys = false;

    void begin(char bracket) { *room(1)++ = bracket; }
    void end(char bracket)
    {
        char*& out = room(2);
        if (out[-1] == ',')
            --out;
        *out++ = bracket;
        *out++ = ',';
    }
    void key(const QString& text) { quoted(text, ':'); }
    void string(const QString& text) { quoted(text, ','); }
    void verbatim(const char* text, int length)
    {
        char*& out = room(length + 1);
        std::memcpy(out, text, size_t(length));
        out += length;
        *out++ = ',';
    }

    QByteArray take(int headSize)
    {
        const int size = used() - 1;
        QByteArray text(headSize + size, Qt::Uninitialized);
        std::memcpy(text.data() + headSize, m_text.constData(), size_t(size));
        return text;
    }

private:
    int used() const { return int(m_out - m_text.constData()); }

    /// Where to write, with that many bytes behind it.
    char*& room(int size)
    {
        const int wanted = used() + size;
        if (Q_UNLIKELY(wanted > m_text.size())) {
            const int before = used();
            m_text.resize(wanted * 4);
            m_out = m_text.data() + before;
        }
        return m_out;
    }

    /// In steps, so that the room for the worst that the text may become stays small.
    void quoted(const QString& text, char behind)
    {
        constexpr int step = 512;
        constexpr int longest = 6;
        const ushort* p = text.utf16();
        const ushort* const end = p + text.size();
        *room(1)++ = '"';
        while (p != end) {
            const ushort* const stop = end - p > step ? p + step : end;
            char* out = room(int(stop - p) * longest);
            while (p < stop) {
                copyPlain(p, stop, out);
                if (p < stop)
                    writeUnit(p, end, out);
            }
            m_out = out;
        }
        char*& out = room(2);
        *out++ = '"';
        *out++ = behind;
    }

    static constexpr int smallText = 1024;
    QVarLengthArray<char, smallText> m_text = QVarLengthArray<char, smallText>(smallText);
    char* m_out = m_text.data();
};

int appendOutput(void* userdata, const char* data, uint32_t length)
{
    static_cast<QByteArray*>(userdata)->append(data, int(length));
    return 0;
}

/// Writes text for people to read.
class PrettyWriter
{
public:
    static constexpr bool sortsKeys = true;

    PrettyWriter() { json_print_init(&m_printer, appendOutput, &m_output); }
    ~PrettyWriter() { json_print_free(&m_printer); }
    PrettyWriter(const PrettyWriter&) = delete;
    PrettyWriter& operator=(const PrettyWriter&) = delete;

    void begin(char bracket) { token(bracket == '[' ? JSON_ARRAY_BEGIN : JSON_OBJECT_BEGIN); }
    void end(char bracket) { token(bracket == ']' ? JSON_ARRAY_END : JSON_OBJECT_END); }
    void key(const QString& text) { token(JSON_KEY, text.toUtf8()); }
    void string(const QString& text) { token(JSON_STRING, text.toUtf8()); }
    void verbatim(const char* text, int length) { token(JSON_FLOAT, QByteArray::fromRawData(text, length)); }

    QByteArray take(int) { return m_output; }

private:
    void token(int type, const QByteArray& text = QByteArray())
    {
        // It keeps its first error, and has none but the want of memory.
        const int error = json_print_pretty(&m_printer, type, text.constData(), uint32_t(text.size()));
        Q_CHECK_PTR(!error);
    }

    QByteArray m_output;
    json_printer m_printer;
};

/// One walk over a value. Any error ends it.
template <typename Writer>
class ValuePrinter
{
public:
    explicit ValuePrinter(OrvoError& error) : m_error(error) {}

    QByteArray print(const QVariant& value, int headSize)
    {
        return printValue(value) ? m_writer.take(headSize) : QByteArray();
    }

private:
    bool verbatim(const char* text, int length)
    {
        m_writer.verbatim(text, length);
        return true;
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
        return verbatim(first, int(text + sizeof text - first));
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
        return verbatim(text.constData(), text.size());
    }

    bool string(const QString& text)
    {
        m_writer.string(text);
        return true;
    }

    bool member(const QString& key, const QVariant& value)
    {
        m_writer.key(key);
        return printValue(value);
    }

    template <typename Container>
    bool array(const Container& elements)
    {
        m_writer.begin('[');
        for (const auto& each : elements)
            if (!element(each))
                return false;
        m_writer.end(']');
        return true;
    }

    bool element(const QVariant& value) { return printValue(value); }
    bool element(const QString& text) { return string(text); }

    template <typename Container>
    bool object(const Container& members)
    {
        m_writer.begin('{');
        for (auto it = members.cbegin(); it != members.cend(); ++it)
            if (!member(it.key(), it.value()))
                return false;
        m_writer.end('}');
        return true;
    }

    bool sortedObject(const QVariantHash& members)
    {
        QVarLengthArray<QVariantHash::const_iterator, 32> sorted;
        sorted.reserve(members.size());
        for (auto it = members.cbegin(); it != members.cend(); ++it)
            sorted.append(it);
        std::sort(sorted.begin(), sorted.end(), [](auto a, auto b) { return a.key() < b.key(); });
        m_writer.begin('{');
        for (const auto it : sorted)
            if (!member(it.key(), it.value()))
                return false;
        m_writer.end('}');
        return true;
    }

    bool printValue(const QVariant& value)
    {
        // The payload where it lies: toString() and its like would each make one more copy.
        const void* const data = value.constData();
        switch (int(value.type())) {
        case QVariant::Invalid:
            return verbatim("null", 4);
        case QVariant::Bool:
            return *static_cast<const bool*>(data) ? verbatim("true", 4) : verbatim("false", 5);
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
            return string(*static_cast<const QString*>(data));
        case QVariant::Char:
            return string(value.toString());
        case QVariant::ByteArray:
            // Such bytes are C text: they end at the first NUL.
            return string(QString::fromUtf8(static_cast<const QByteArray*>(data)->constData()));
        case QVariant::StringList:
            return array(*static_cast<const QStringList*>(data));
        case QVariant::List:
            return array(*static_cast<const QVariantList*>(data));
        case QVariant::Map:
            return object(*static_cast<const QVariantMap*>(data));
        case QVariant::Hash: {
            const auto& members = *static_cast<const QVariantHash*>(data);
            return Writer::sortsKeys ? sortedObject(members) : object(members);
        }
        default:
            setError(m_error, UnsupportedType);
            m_error.setMessage(
                QStringLiteral("Unsupported Variant type: %1").arg(QString::fromLatin1(value.typeName())));
            return false;
        }
    }

    OrvoError& m_error;
    Writer m_writer;
};

} // namespace

QByteArray printValue(const QVariant& value, bool pretty, OrvoError& error, int headSize)
{
    error.clear();
    return pretty ? ValuePrinter<PrettyWriter>(error).print(value, 0)
                  : ValuePrinter<CompactWriter>(error).print(value, headSize);
}

} // namespace orvoJson
