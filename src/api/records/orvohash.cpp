#include "records/orvohash.h"

#include <QStringList>

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

} // namespace

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
