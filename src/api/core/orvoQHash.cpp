#include "core/orvoQHash.h"

#include "records/orvohash.h"

#include <QDebug>

#include <algorithm>

namespace {

/// Integer hashes wrap; unsigned arithmetic says so.
uint combined(uint hash, uint next)
{
    return hash * 47u + next;
}

int compareLists(const QVariantList& a, const QVariantList& b)
{
    for (int i = 0;;) {
        if (const int result = orvoCompare(a.at(i), b.at(i)))
            return result;
        ++i;
        if (a.size() < i)
            return -1;
        if (b.size() < i)
            return 1;
    }
}

int compareHashes(const QVariantHash& a, const QVariantHash& b)
{
    QStringList keysA = a.keys();
    QStringList keysB = b.keys();
    std::sort(keysA.begin(), keysA.end());
    std::sort(keysB.begin(), keysB.end());
    for (int i = 0;;) {
        if (const int result = keysA.at(i).compare(keysB.at(i)))
            return result;
        if (const int result = orvoCompare(a.value(keysA.at(i)), b.value(keysB.at(i))))
            return result;
        ++i;
        if (keysA.size() < i)
            return -1;
        if (keysB.size() < i)
            return 1;
    }
}

} // namespace

int orvoHash(const QVariant& value)
{
    switch (value.type()) {
    case QVariant::Bool:
        return value.toBool() ? 1 : 0;
    case QVariant::Int:
        return value.toInt();
    case QVariant::LongLong: {
        const qlonglong number = value.toLongLong();
        return int((number >> 31) ^ number);
    }
    case QVariant::Double: {
        const double number = value.toDouble();
        return int(qHash(QByteArray(reinterpret_cast<const char*>(&number), sizeof number), 0));
    }
    case QVariant::List: {
        uint hash = 0;
        const QVariantList elements = value.toList();
        for (const QVariant& element : elements)
            hash = combined(hash, uint(orvoHash(element)));
        return int(hash);
    }
    case QVariant::String:
        return int(qHash(value.toString(), 0));
    case QVariant::ByteArray:
        return int(qHash(value.toByteArray(), 0));
    case QVariant::Hash: {
        uint hash = 0;
        const QVariantHash members = value.toHash();
        for (auto it = members.cbegin(); it != members.cend(); ++it)
            hash = combined(combined(hash, qHash(it.key(), 0)), uint(orvoHash(it.value())));
        return int(hash);
    }
    default:
        Q_ASSERT(false);
        return 0;
    }
}

int orvoCompare(const QVariant& a, const QVariant& b)
{
    if (a.type() != b.type())
        return int(b.type()) - int(a.type());

    switch (a.type()) {
    case QVariant::Invalid:
        return 0;
    case QVariant::Bool:
        return int(b.toBool()) - int(a.toBool());
    case QVariant::Int:
    case QVariant::UInt:
        return int(uint(b.toInt()) - uint(a.toInt()));
    case QVariant::LongLong:
    case QVariant::ULongLong:
        return int(qulonglong(b.toLongLong()) - qulonglong(a.toLongLong()));
    case QVariant::Double:
        return int(b.toDouble() - a.toDouble());
    case QVariant::String:
        return a.toString().compare(b.toString());
    case QVariant::ByteArray:
        return qstrcmp(a.toByteArray(), b.toByteArray());
    case QVariant::List:
        return compareLists(a.toList(), b.toList());
    case QVariant::Hash:
        return compareHashes(a.toHash(), b.toHash());
    default:
        qDebug() << "Cannot compare " << a << " and " << b;
        Q_ASSERT(false);
        return 0;
    }
}

uint qHash(const OrvoHash& record)
{
    return uint(orvoHash(record.__variant()));
}
