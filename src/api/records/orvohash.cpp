#include "records/orvohash.h"

#include "records/orvosame_p.h"

#include <QStringList>

#include <algorithm>

namespace {

QVariantHash mergedHash(QVariantHash into, const QVariantHash& from);

QVariantList mergedList(QVariantList into, const QVariantList& from)
{
    for (int i = 0; i < from.size(); ++i) {
        into.removeAll(from.at(i));
        // Repeated elements of `from` leave fewer in front than their index says; QList clamps the place.
        into.insert(i, from.at(i));
    }
    return into;
}

QVariant mergedValue(const QVariant& into, const QVariant& from)
{
    if (from.canConvert(QMetaType::QVariantHash))
        return into.canConvert(QMetaType::QVariantHash) ? mergedHash(into.toHash(), from.toHash()) : from;
    if (from.canConvert(QMetaType::QVariantList) && into.canConvert(QMetaType::QVariantList))
        return mergedList(into.toList(), from.toList());
    return from;
}

QVariantHash mergedHash(QVariantHash into, const QVariantHash& from)
{
    for (auto it = from.cbegin(); it != from.cend(); ++it)
        into.insert(it.key(), mergedValue(into.value(it.key()), it.value()));
    return into;
}

bool sameHash(const QVariantHash& a, const QVariantHash& b)
{
    if (a.size() != b.size())
        return false;
    for (auto it = a.cbegin(); it != a.cend(); ++it) {
        const auto found = b.constFind(it.key());
        if (found == b.cend())
            return false;
        if (orvoSameValue(*it, *found))
            continue;
        // Values of two types may compare otherwise the other way around; QHash is content with one of them. It asks so
        // of equal types, too, and thereby takes twice the time for each level that a peer nests.
        if (it->userType() == found->userType() || !(*found == *it))
            return false;
    }
    return true;
}

bool sameList(const QVariantList& a, const QVariantList& b)
{
    return std::equal(a.cbegin(), a.cend(), b.cbegin(), b.cend(), orvoSameValue);
}

template <typename T>
bool same(const QVariant& a, const QVariant& b)
{
    return *static_cast<const T*>(a.constData()) == *static_cast<const T*>(b.constData());
}

} // namespace

bool orvoSameValue(const QVariant& a, const QVariant& b)
{
    const int type = a.userType();
    if (type != b.userType())
        return a == b;
    switch (type) {
    case QMetaType::QVariantHash:
        return sameHash(*static_cast<const QVariantHash*>(a.constData()),
                        *static_cast<const QVariantHash*>(b.constData()));
    case QMetaType::QVariantList:
        return sameList(*static_cast<const QVariantList*>(a.constData()),
                        *static_cast<const QVariantList*>(b.constData()));
    case QMetaType::QString:
        return same<QString>(a, b);
    case QMetaType::LongLong:
        return same<qlonglong>(a, b);
    case QMetaType::Int:
        return same<int>(a, b);
    case QMetaType::Bool:
        return same<bool>(a, b);
    default:
        return a == b;
    }
}

bool operator==(const OrvoHash& a, const OrvoHash& b)
{
    return sameHash(a.m_hash, b.m_hash);
}

const QVariant& OrvoHash::invalid()
{
    static const QVariant none;
    return none;
}

OrvoHash& OrvoHash::__setVariant(const QVariant& variant)
{
    m_hash = variant.toHash();
    return *this;
}

OrvoHash& OrvoHash::__setHash(const QHash<QString, QVariant>& hash)
{
    m_hash = hash;
    return *this;
}

OrvoHash& OrvoHash::__setHashAttribute(const QString& key, const QVariant& value)
{
    m_hash[key] = value;
    return *this;
}

void OrvoHash::__mergeWith(const OrvoHash& other)
{
    m_hash = mergedHash(m_hash, other.m_hash);
}
