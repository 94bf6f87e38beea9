#pragma once

#include <QByteArray>
#include <QList>
#include <QMetaType>
#include <QPair>
#include <QString>
#include <QUrl>

#include <iosfwd>

/**
 * A URL that takes stray percent signs for what they are, with the query items as functions of its own.
 *
 * A value class over one QUrl: each function forwards to the one of the same sense there unless told here, an invalid
 * URL included. Copies may go to other threads; one object is not shared. Text is taken literally: in
 * OrvoUrl("/50%20off") the percent sign is part of the file name, and an encoded URL comes in through fromEncoded().
 */
class OrvoUrl
{
public:
    OrvoUrl() = default;
    /// Every "%" stands for itself.
    OrvoUrl(const QString& url);
    OrvoUrl(const QUrl& url) : m_url(url) {}
    OrvoUrl& operator=(const QString& url);

    /// Escapes count; a "%" without two hexadecimal digits behind it stands for itself.
    static OrvoUrl fromEncoded(const QByteArray& url);
    static OrvoUrl fromLocalFile(const QString& file);
    static QString fromPercentEncoding(const QByteArray& text);
    static QByteArray toPercentEncoding(const QString& text, const QByteArray& exclude = QByteArray(),
                                        const QByteArray& include = QByteArray());

    bool isEmpty() const { return m_url.isEmpty(); }
    bool isValid() const { return m_url.isValid(); }
    void clear() { m_url.clear(); }
    /// Every "%" stands for itself.
    void setUrl(const QString& url);

    QString scheme() const { return m_url.scheme(); }
    void setScheme(const QString& scheme) { m_url.setScheme(scheme); }
    QString authority() const { return m_url.authority(); }
    void setAuthority(const QString& authority) { m_url.setAuthority(authority); }
    QString userName() const { return m_url.userName(); }
    void setUserName(const QString& userName) { m_url.setUserName(userName); }
    QString password() const { return m_url.password(); }
    void setPassword(const QString& password) { m_url.setPassword(password); }
    QString host() const { return m_url.host(); }
    void setHost(const QString& host) { m_url.setHost(host); }
    void setEncodedHost(const QByteArray& host);
    /// -1 for none.
    int port() const { return m_url.port(); }
    void setPort(int port) { m_url.setPort(port); }
    /// Without escapes.
    QString path() const { return m_url.path(); }
    void setPath(const QString& path) { m_url.setPath(path); }
    void setEncodedPath(const QByteArray& path);
    bool hasFragment() const { return m_url.hasFragment(); }
    QString fragment() const { return m_url.fragment(); }
    void setFragment(const QString& fragment) { m_url.setFragment(fragment); }

    bool hasQuery() const { return m_url.hasQuery(); }
    QByteArray encodedQuery() const;
    void setEncodedQuery(const QByteArray& query);

    // Of several items under one key the first is the one that is found and removed.
    bool hasQueryItem(const QString& key) const;
    QString queryItemValue(const QString& key) const;
    QByteArray encodedQueryItemValue(const QByteArray& key) const;
    QList<QPair<QString, QString>> queryItems() const;
    void addQueryItem(const QString& key, const QString& value);
    /// Both end at their first zero byte.
    void addEncodedQueryItem(const QByteArray& key, const QByteArray& value);
    void removeQueryItem(const QString& key);
    /// Leaves no query at all.
    void clearQueryItems();

    QByteArray toEncoded() const { return m_url.toEncoded(); }
    /// Decoded as far as possible: for display, not to be parsed again.
    QString toString() const;
    /// The encoded form without the fragment: what a cache files the content under.
    QByteArray cachePath() const;
    OrvoUrl resolved(const OrvoUrl& relative) const { return m_url.resolved(relative.m_url); }

    friend bool operator==(const OrvoUrl& a, const OrvoUrl& b) { return a.m_url == b.m_url; }
    friend bool operator!=(const OrvoUrl& a, const OrvoUrl& b) { return a.m_url != b.m_url; }

private:
    QUrl m_url;
};

/// The UTF-8 of toString().
std::ostream& operator<<(std::ostream& stream, const OrvoUrl& url);

Q_DECLARE_METATYPE(OrvoUrl)
