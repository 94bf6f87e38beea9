#include "core/orvoUrl.h"

#include "core/orvoLog_p.h"

#include <QUrlQuery>

namespace {

QUrl literalUrl(QString text)
{
    text.replace(QLatin1Char('%'), QLatin1String("%25"));
    return QUrl(text, QUrl::TolerantMode);
}

bool isHexadecimal(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

} // namespace

OrvoUrl::OrvoUrl(const QString& url) : m_url(literalUrl(url)) {}

OrvoUrl& OrvoUrl::operator=(const QString& url)
{
    setUrl(url);
    return *this;
}

OrvoUrl OrvoUrl::fromEncoded(const QByteArray& url)
{
    // QUrl alone would take one stray sign as a reason to escape the valid escapes as well.
    QByteArray repaired;
    repaired.reserve(url.size());
    for (int i = 0; i < url.size(); ++i) {
        repaired.append(url.at(i));
        if (url.at(i) != '%')
            continue;
        const bool escape = i + 2 < url.size() && isHexadecimal(url.at(i + 1)) && isHexadecimal(url.at(i + 2));
        if (!escape)
            repaired.append("25");
    }
    return QUrl::fromEncoded(repaired);
}

OrvoUrl OrvoUrl::fromLocalFile(const QString& file)
{
    return QUrl::fromLocalFile(file);
}

QString OrvoUrl::fromPercentEncoding(const QByteArray& text)
{
    return QUrl::fromPercentEncoding(text);
}

QByteArray OrvoUrl::toPercentEncoding(const QString& text, const QByteArray& exclude, const QByteArray& include)
{
    return QUrl::toPercentEncoding(text, exclude, include);
}

void OrvoUrl::setUrl(const QString& url)
{
    m_url = literalUrl(url);
}

void OrvoUrl::setEncodedHost(const QByteArray& host)
{
    m_url.setHost(QString::fromUtf8(host), QUrl::TolerantMode);
}

void OrvoUrl::setEncodedPath(const QByteArray& path)
{
    m_url.setPath(QString::fromUtf8(path), QUrl::TolerantMode);
}

QByteArray OrvoUrl::encodedQuery() const
{
    return m_url.query(QUrl::FullyEncoded).toLatin1();
}

void OrvoUrl::setEncodedQuery(const QByteArray& query)
{
    m_url.setQuery(QString::fromUtf8(query), QUrl::TolerantMode);
}

bool OrvoUrl::hasQueryItem(const QString& key) const
{
    return QUrlQuery(m_url).hasQueryItem(key);
}

QString OrvoUrl::queryItemValue(const QString& key) const
{
    return QUrlQuery(m_url).queryItemValue(key);
}

QByteArray OrvoUrl::encodedQueryItemValue(const QByteArray& key) const
{
    return QUrlQuery(m_url).queryItemValue(QString::fromUtf8(key), QUrl::FullyEncoded).toLatin1();
}

QList<QPair<QString, QString>> OrvoUrl::queryItems() const
{
    return QUrlQuery(m_url).queryItems();
}

void OrvoUrl::addQueryItem(const QString& key, const QString& value)
{
    QUrlQuery query(m_url);
    query.addQueryItem(key, value);
    m_url.setQuery(query);
}

void OrvoUrl::addEncodedQueryItem(const QByteArray& key, const QByteArray& value)
{
    addQueryItem(QString::fromUtf8(key.constData()), QString::fromUtf8(value.constData()));
}

void OrvoUrl::removeQueryItem(const QString& key)
{
    QUrlQuery query(m_url);
    query.removeQueryItem(key);
    m_url.setQuery(query);
}

void OrvoUrl::clearQueryItems()
{
    m_url.setQuery(QUrlQuery());
}

QString OrvoUrl::toString() const
{
    return QUrl::fromPercentEncoding(m_url.toString().toUtf8());
}

QByteArray OrvoUrl::cachePath() const
{
    QUrl url = m_url;
    url.setFragment(QString());
    return url.toEncoded();
}

std::ostream& operator<<(std::ostream& stream, const OrvoUrl& url)
{
    return stream << url.toString();
}
