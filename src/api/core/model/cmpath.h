#pragma once

#include <QByteArray>
#include <QMap>
#include <QMetaType>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <iosfwd>

class QDebug;

/**
 * The address of everything in the content model: a text of prefix, ":" and base, and a key-ordered map of parameters.
 *
 * A plain value of two implicitly shared members: reentrant, cheap to copy, passed between threads by copy. What
 * crosses a process boundary is its text form, in which each parameter has a "?" of its own and backslash, "?" and "="
 * are escaped: `ui:settings/audio?a=1?b=2`. Parsing never fails; a malformed text is still a path, with a line on the
 * logger "CMPath" at most.
 *
 * Comparing, hashing and toEncoded() allocate nothing for a path that needs no escape and has no parameters.
 */
class CMPath
{
public:
    using Params = QMap<QString, QString>;

    enum Compare {
        WithParams = 0,
        WithoutParams = 1,
    };

    CMPath() = default;

    static CMPath fromEncoded(const QByteArray& encoded);
    /// As the byte form, but an address of the external catalogue service keeps its own "?" and "=" as path text.
    static CMPath fromEncoded(const QString& encoded);
    static CMPath fromEncoded(const char* encoded) { return fromEncoded(QByteArray(encoded)); }
    /// The text with a ":" behind it, unless it ends with one.
    static CMPath fromPrefix(const QString& prefix);
    /// The text as it stands; neither escapes nor parameters are read from it.
    static CMPath fromPrefixWithBase(const QString& text);
    static CMPath fromQVariant(const QVariant& variant);

    QString toEncoded() const;
    QString baseWithPrefix() const { return m_path; }
    /// What stands behind the first ":", the whole text without one.
    QString base() const;
    /// What stands ahead of the first ":", empty without one.
    QString prefix() const;
    /// The components of the base, empty ones skipped.
    QStringList splitBase() const;
    /// Parameters do not count: a path of parameters only is empty.
    bool isEmpty() const { return m_path.isEmpty(); }
    bool contains(const QString& text) const { return m_path.contains(text); }
    /// By plain text and without parameters: "a/bc" starts with "a/b". If so, *rest receives the remaining text.
    bool startsWith(const CMPath& other, QString* rest = nullptr) const;

    bool hasParams() const { return !m_params.isEmpty(); }
    Params params() const { return m_params; }
    bool hasParam(const QString& key) const { return m_params.contains(key); }
    /// A null string for a missing key.
    QString param(const QString& key) const { return m_params.value(key); }
    CMPath withoutParams() const;
    /// The text appended directly, without a separator; parameters are kept.
    CMPath operator+(const QString& text) const;

    bool equals(const CMPath& other, Compare compare) const;
    friend bool operator==(const CMPath& a, const CMPath& b) { return a.equals(b, WithParams); }
    friend bool operator!=(const CMPath& a, const CMPath& b) { return !a.equals(b, WithParams); }
    /// The order of the text forms.
    bool operator<(const CMPath& other) const;

    /// Replaces the base and keeps the prefix.
    CMPath& setBase(const QString& base);
    /// Joins with exactly one "/".
    CMPath& appendSubpath(const QString& subpath);
    CMPath& setParams(const Params& params);
    CMPath& clearParams();
    CMPath& removeParam(const QString& key);
    CMPath& addParam(const QString& key, const QString& value);
    CMPath& addParams(const Params& params);

    /// The text form as a string variant: how a path lies in records.
    QVariant __variant() const { return QVariant(toEncoded()); }

private:
    explicit CMPath(const QString& path, const Params& params = Params()) : m_path(path), m_params(params) {}

    QString m_path;
    Params m_params;
};

uint qHash(const CMPath& path);
/// The UTF-8 of the text form.
std::ostream& operator<<(std::ostream& stream, const CMPath& path);
QDebug operator<<(QDebug debug, const CMPath& path);

Q_DECLARE_TYPEINFO(CMPath, Q_MOVABLE_TYPE);
Q_DECLARE_METATYPE(CMPath)
Q_DECLARE_METATYPE(CMPath::Params)
