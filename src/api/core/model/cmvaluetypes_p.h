#pragma once

#include "records/orvovalue.h"

#include <QString>

/**
 * The numeric payloads of OrvoValue as compile-time types, so that a rule is written once for all of them. Limits and
 * steps are texts, read as Wide: a limit beyond the payload's range is none.
 *
 * withNumber(tag, f) calls f with the traits of the tag 2 to 6 and returns its result, a default one for other tags.
 */
namespace CMValueTypes {

struct Byte
{
    using Number = signed char;
    using Wide = int;
    static Number get(const OrvoValue& value) { return value.byte_(); }
    static OrvoValue make(Number number) { return OrvoValue().setByte_(number); }
    static Wide parse(const QString& text) { return text.toInt(); }
};

struct I16
{
    using Number = short;
    using Wide = int;
    static Number get(const OrvoValue& value) { return value.i16_(); }
    static OrvoValue make(Number number) { return OrvoValue().setI16_(number); }
    static Wide parse(const QString& text) { return text.toInt(); }
};

struct I32
{
    using Number = int;
    using Wide = int;
    static Number get(const OrvoValue& value) { return value.i32_(); }
    static OrvoValue make(Number number) { return OrvoValue().setI32_(number); }
    static Wide parse(const QString& text) { return text.toInt(); }
};

struct I64
{
    using Number = long long;
    using Wide = long long;
    static Number get(const OrvoValue& value) { return value.i64_(); }
    static OrvoValue make(Number number) { return OrvoValue().setI64_(number); }
    static Wide parse(const QString& text) { return text.toLongLong(); }
};

struct Double
{
    using Number = double;
    using Wide = double;
    static Number get(const OrvoValue& value) { return value.double_(); }
    static OrvoValue make(Number number) { return OrvoValue().setDouble_(number); }
    static Wide parse(const QString& text) { return text.toDouble(); }
};

template <typename Function>
OrvoValue withNumber(int tag, const OrvoValue& otherwise, Function function)
{
    switch (tag) {
    case 2:
        return function(Byte());
    case 3:
        return function(I16());
    case 4:
        return function(I32());
    case 5:
        return function(I64());
    case 6:
        return function(Double());
    default:
        return otherwise;
    }
}

} // namespace CMValueTypes
