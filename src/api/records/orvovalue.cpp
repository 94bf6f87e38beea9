#include "records/orvovalue.h"

int OrvoValue::type() const
{
    const QString name = m_hash.value(Type()).toString();
    static const QString names[] = {
        QString(),
        QStringLiteral("bool_"),
        QStringLiteral("byte_"),
        QStringLiteral("i16_"),
        QStringLiteral("i32_"),
        QStringLiteral("i64_"),
        QStringLiteral("double_"),
        QStringLiteral("string_"),
    };
    for (int tag = 1; tag <= 7; ++tag)
        if (names[tag] == name)
            return tag;
    return 0;
}

OrvoValue& OrvoValue::setDoubleList(const OrvoList<double>& list)
{
    m_hash.clear();
    m_hash.insert(DoubleList(), list.__variant());
    return *this;
}

OrvoValue& OrvoValue::setPayload(const QString& name, const QVariant& value)
{
    m_hash.clear();
    m_hash.insert(Type(), name);
    m_hash.insert(name, value);
    return *this;
}
