#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QVariant>

#include <iosfwd>

class QDebug;

/**
 * Base of all data records: a value class over one QHash<QString, QVariant>.
 *
 * A record is copied by value and shared implicitly; it has no virtual function and no further state, and a derived
 * record adds only typed accessors over keys (see orvorecord.h). A key that is missing reads as an invalid variant or
 * as the accessor type's default. Reentrant: a record may be copied to another thread, one object is not shared.
 *
 * The operations with two leading underscores are the protocol by which a record is stored inside another one.
 */
class OrvoHash
{
public:
    OrvoHash() = default;
    explicit OrvoHash(const QHash<QString, QVariant>& hash) : m_hash(hash) {}
    explicit OrvoHash(QHash<QString, QVariant>&& hash) : m_hash(std::move(hash)) {}
    /// The variant's hash; empty when it holds none.
    explicit OrvoHash(const QVariant& variant) : m_hash(variant.toHash()) {}

    bool isEmpty() const { return m_hash.isEmpty(); }
    bool __isEmpty() const { return m_hash.isEmpty(); }
    void clear() { m_hash.clear(); }

    QVariant __variant() const { return QVariant(m_hash); }
    OrvoHash& __setVariant(const QVariant& variant);
    const QHash<QString, QVariant>& __hash() const { return m_hash; }
    OrvoHash& __setHash(const QHash<QString, QVariant>& hash);

    void __insert(const QString& key, const QVariant& value) { m_hash.insert(key, value); }
    OrvoHash& __setHashAttribute(const QString& key, const QVariant& value);
    bool __contains(const QString& key) const { return m_hash.contains(key); }
    void __remove(const QString& key) { m_hash.remove(key); }
    /// The stored variant, invalid when the key is missing. Never inserts.
    QVariant __value(const QString& key) const { return m_hash.value(key); }
    QVariant __hashAttribute(const QString& key) const { return m_hash.value(key); }

    /**
     * Deep merge: hashes merge key by key, of two lists the other's elements stand first, and anything else is
     * replaced by the other's value.
     */
    void __mergeWith(const OrvoHash& other);

    /// JSON of the hash; the pretty form has sorted keys. A value of a type that JSON lacks stops the process.
    QByteArray toJson(bool pretty) const;
    QString toJsonString() const;

    friend bool operator==(const OrvoHash& a, const OrvoHash& b);
    friend bool operator!=(const OrvoHash& a, const OrvoHash& b) { return !(a == b); }

protected:
    /// Where it lies, without a copy; an invalid variant when the key is missing.
    const QVariant& stored(const QString& key) const
    {
        const auto found = m_hash.constFind(key);
        return found == m_hash.constEnd() ? invalid() : *found;
    }
    void store(const QString& key, QVariant&& value) { m_hash[key] = std::move(value); }

    QHash<QString, QVariant> m_hash;

private:
    static const QVariant& invalid();
};

uint qHash(const OrvoHash& record);
std::ostream& operator<<(std::ostream& stream, const OrvoHash& record);
QDebug operator<<(QDebug debug, const OrvoHash& record);

Q_DECLARE_METATYPE(OrvoHash)
