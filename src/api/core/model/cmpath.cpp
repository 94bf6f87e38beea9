#include "core/model/cmpath.h"

#include "core/orvoLog_p.h"
#include "core/orvoUtf8_p.h"

#include <QDebug>

#include <algorithm>
#include <cstring>
#include <ostream>

namespace {

ORVO_LOGGER("CMPath")

bool needsEscape(QChar c)
{
    return c == QLatin1Char('\\') || c == QLatin1Char('?') || c == QLatin1Char('=');
}

/// The bytes as text, null for none. Unlike QString::fromUtf8(QByteArray) it keeps what stands behind a NUL.
QString fromUtf8(const QByteArray& bytes)
{
    return bytes.size() > 0 ? orvoFromUtf8(bytes.constData(), bytes.size()) : QString();
}

/// Whether the text is ASCII and has nothing to escape, told four units at a time: nearly all paths are.
bool isPlain(const QString& text)
{
    constexpr quint64 ones = 0x0001000100010001u;
    const QChar* unit = text.constData();
    int left = text.size();
    quint64 special = 0;
    for (; left >= 4; unit += 4, left -= 4) {
        quint64 four;
        std::memcpy(&four, unit, sizeof four);
        // A borrow may mark the unit above one that is escaped by right, which does not count.
        special |= (((four ^ ones * '\\') - ones) | ((four ^ ones * '?') - ones) | ((four ^ ones * '=') - ones) | four)
                   & (ones * 0xFF80);
    }
    bool plain = !special;
    for (; left; ++unit, --left)
        plain = plain && unit->unicode() < 0x80 && !needsEscape(*unit);
    return plain;
}

QString escaped(const QString& text)
{
    if (isPlain(text))
        return text;
    const QChar* begin = text.constData();
    const QChar* end = begin + text.size();
    const QChar* first = std::find_if(begin, end, needsEscape);
    if (first == end)
        return text;

    QString result;
    result.reserve(text.size() + 8);
    result.append(begin, int(first - begin));
    for (const QChar* c = first; c != end; ++c) {
        if (needsEscape(*c))
            result.append(QLatin1Char('\\'));
        result.append(*c);
    }
    return result;
}

/// The first place where the texts differ, at most `length`.
int mismatch(const QChar* a, const QChar* b, int length)
{
    int i = 0;
    for (; i + 4 <= length; i += 4) {
        quint64 fourA;
        quint64 fourB;
        std::memcpy(&fourA, a + i, sizeof fourA);
        std::memcpy(&fourB, b + i, sizeof fourB);
        if (fourA != fourB)
            break;
    }
    while (i < length && a[i] == b[i])
        ++i;
    return i;
}

/// The first character of what the text form holds from index i of a path text on; below all of them at the end.
int encodedAt(const QString& text, int i, bool hasParams)
{
    if (i < text.size())
        return needsEscape(text.at(i)) ? '\\' : text.at(i).unicode();
    return hasParams ? '?' : -1;
}

} // namespace

CMPath CMPath::fromEncoded(const QByteArray& encoded)
{
    QString path;
    Params params;
    QString key;
    QString value;
    QByteArray buffer;
    bool escape = false;
    bool inKey = true;
    bool pathDone = false;

    for (const char c : encoded) {
        if (c == '\\') {
            if (escape)
                buffer.append(c);
            escape = !escape;
        } else if (escape && (c == '?' || c == '=')) {
            buffer.append(c);
            escape = false;
        } else if (c == '?') {
            (inKey ? key : value) = fromUtf8(buffer);
            if (pathDone)
                params.insert(key, value);
            else
                path = key;
            key = QString();
            value = QString();
            buffer.clear();
            inKey = true;
            pathDone = true;
        } else if (c == '=') {
            if (!key.isEmpty())
                LOG4CPLUS_WARN(logger(), "Invalid constructed path: " << encoded);
            else
                key = fromUtf8(buffer);
            buffer.clear();
            inKey = false;
        } else {
            if (escape)
                LOG4CPLUS_WARN(logger(), "Invalid escape sequence: \\" << c << " in path: " << encoded);
            buffer.append(c);
            escape = false;
        }
    }

    (inKey ? key : value) = fromUtf8(buffer);
    if (!key.isEmpty()) {
        if (pathDone)
            params.insert(key, value);
        else
            path = key;
    }
    return CMPath(path, params);
}

CMPath CMPath::fromEncoded(const QString& encoded)
{
    // Addresses of this service carry a query of their own, which belongs to it and not to this system.
    if (encoded.startsWith(QLatin1String("airable:preplay?serviceType=airable")))
        return fromEncoded(escaped(encoded).toUtf8());
    if (isPlain(encoded))
        return CMPath(encoded.isEmpty() ? QString() : encoded);
    const auto needsWork = [](QChar c) { return needsEscape(c) || c.isSurrogate(); };
    if (std::none_of(encoded.cbegin(), encoded.cend(), needsWork))
        return CMPath(encoded.isEmpty() ? QString() : encoded);
    return fromEncoded(encoded.toUtf8());
}

CMPath CMPath::fromPrefix(const QString& prefix)
{
    return CMPath(prefix.endsWith(QLatin1Char(':')) ? prefix : prefix + QLatin1Char(':'));
}

CMPath CMPath::fromPrefixWithBase(const QString& text)
{
    return CMPath(text);
}

CMPath CMPath::fromQVariant(const QVariant& variant)
{
    return fromEncoded(variant.toString());
}

QString CMPath::toEncoded() const
{
    QString result = escaped(m_path);
    for (auto it = m_params.cbegin(); it != m_params.cend(); ++it)
        result += QLatin1Char('?') + escaped(it.key()) + QLatin1Char('=') + escaped(it.value());
    return result;
}

QString CMPath::base() const
{
    const int colon = m_path.indexOf(QLatin1Char(':'));
    return colon < 0 ? m_path : m_path.mid(colon + 1);
}

QString CMPath::prefix() const
{
    const int colon = m_path.indexOf(QLatin1Char(':'));
    return colon < 0 ? QString() : m_path.left(colon);
}

QStringList CMPath::splitBase() const
{
    return base().split(QLatin1Char('/'), Qt::SkipEmptyParts);
}

bool CMPath::startsWith(const CMPath& other, QString* rest) const
{
    if (!m_path.startsWith(other.m_path))
        return false;
    if (rest)
        *rest = m_path.mid(other.m_path.size());
    return true;
}

CMPath CMPath::withoutParams() const
{
    return CMPath(m_path);
}

CMPath CMPath::operator+(const QString& text) const
{
    return CMPath(m_path + text, m_params);
}

bool CMPath::equals(const CMPath& other, Compare compare) const
{
    return m_path == other.m_path && (compare == WithoutParams || m_params == other.m_params);
}

bool CMPath::operator<(const CMPath& other) const
{
    // Equal texts encode equally, so the first difference decides and nothing need be encoded up to it.
    const int common = qMin(m_path.size(), other.m_path.size());
    const QChar* a = m_path.constData();
    const QChar* b = other.m_path.constData();
    const int i = mismatch(a, b, common);
    if (i == m_path.size() && i == other.m_path.size())
        return (hasParams() || other.hasParams()) && toEncoded() < other.toEncoded();

    const int encodedA = encodedAt(m_path, i, hasParams());
    const int encodedB = encodedAt(other.m_path, i, other.hasParams());
    if (encodedA != encodedB)
        return encodedA < encodedB;
    return a[i] < b[i];
}

CMPath& CMPath::setBase(const QString& base)
{
    const QString oldPrefix = prefix();
    m_path = oldPrefix.isEmpty() ? base : oldPrefix + QLatin1Char(':') + base;
    return *this;
}

CMPath& CMPath::appendSubpath(const QString& subpath)
{
    const QLatin1Char slash('/');
    if (!m_path.endsWith(slash) && !subpath.startsWith(slash))
        m_path += slash;
    else if (m_path.endsWith(slash) && subpath.startsWith(slash))
        m_path.chop(1);
    m_path += subpath;
    return *this;
}

CMPath& CMPath::setParams(const Params& params)
{
    m_params = params;
    return *this;
}

CMPath& CMPath::clearParams()
{
    m_params.clear();
    return *this;
}

CMPath& CMPath::removeParam(const QString& key)
{
    m_params.remove(key);
    return *this;
}

CMPath& CMPath::addParam(const QString& key, const QString& value)
{
    m_params.insert(key, value);
    return *this;
}

CMPath& CMPath::addParams(const Params& params)
{
    for (auto it = params.cbegin(); it != params.cend(); ++it)
        m_params.insert(it.key(), it.value());
    return *this;
}

uint qHash(const CMPath& path)
{
    return qHash(path.toEncoded(), 0);
}

std::ostream& operator<<(std::ostream& stream, const CMPath& path)
{
    return stream << path.toEncoded().toUtf8().constData();
}

QDebug operator<<(QDebug debug, const CMPath& path)
{
    return debug << path.toEncoded();
}
