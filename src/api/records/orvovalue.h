#pragma once

#include "records/orvorecord.h"

/**
 * A typed scalar. The record carries its type as text under "type" and the payload under that same name, so that it
 * survives JSON, where an int comes back as a 64-bit number. A setter replaces whatever the record held.
 */
class OrvoValue : public OrvoHash
{
    ORVO_RECORD(OrvoValue)

    static QString Type() { return QStringLiteral("type"); }

    /// 1 bool_, 2 byte_, 3 i16_, 4 i32_, 5 i64_, 6 double_, 7 string_; 0 without a scalar payload.
    int type() const;

    bool bool_() const { return payload(QStringLiteral("bool_")).toBool(); }
    signed char byte_() const { return static_cast<signed char>(payload(QStringLiteral("byte_")).toInt()); }
    short i16_() const { return static_cast<short>(payload(QStringLiteral("i16_")).toInt()); }
    int i32_() const { return payload(QStringLiteral("i32_")).toInt(); }
    long long i64_() const { return payload(QStringLiteral("i64_")).toLongLong(); }
    double double_() const { return payload(QStringLiteral("double_")).toDouble(); }
    QString string_() const { return payload(QStringLiteral("string_")).toString(); }

    OrvoValue& setBool_(bool value) { return setPayload(QStringLiteral("bool_"), value); }
    OrvoValue& setByte_(signed char value) { return setPayload(QStringLiteral("byte_"), int(value)); }
    OrvoValue& setI16_(short value) { return setPayload(QStringLiteral("i16_"), int(value)); }
    OrvoValue& setI32_(int value) { return setPayload(QStringLiteral("i32_"), value); }
    OrvoValue& setI64_(long long value) { return setPayload(QStringLiteral("i64_"), value); }
    OrvoValue& setDouble_(double value) { return setPayload(QStringLiteral("double_"), value); }
    OrvoValue& setString_(const QString& value) { return setPayload(QStringLiteral("string_"), value); }

    /// A list of numbers, which has no tag.
    static QString DoubleList() { return QStringLiteral("doubleList"); }
    OrvoList<double> doubleList() const { return OrvoList<double>(m_hash.value(DoubleList())); }
    OrvoValue& setDoubleList(const OrvoList<double>& list);

private:
    QVariant payload(const QString& name) const { return m_hash.value(name); }
    OrvoValue& setPayload(const QString& name, const QVariant& value);
};

Q_DECLARE_METATYPE(OrvoValue)
