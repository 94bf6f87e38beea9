#include "core/model/cmedit.h"

#include "core/model/cmpath.h"
#include "core/model/cmvaluetypes_p.h"
#include "core/orvoLog_p.h"
#include "records/orvoedit.h"

#include <algorithm>
#include <cmath>

namespace {

ORVO_LOGGER("CMEdit")

using CMValueTypes::withNumber;

long long roundedToStep(long long number, long long step)
{
    // Wider than the payload, so that half a step more does not overflow; the narrowing back is the caller's.
    return step == 0 ? 0 : static_cast<long long>((static_cast<__int128>(number) + step / 2) / step * step);
}

long long roundedToStep(int number, int step)
{
    return roundedToStep(static_cast<long long>(number), static_cast<long long>(step));
}

double roundedToStep(double number, double step)
{
    return std::round(number / step) * step;
}

OrvoValue rounded(const OrvoValue& value, const QString& step)
{
    return withNumber(value.type(), value, [&](auto type) {
        using Type = decltype(type);
        const typename Type::Wide number = Type::get(value);
        return Type::make(typename Type::Number(roundedToStep(number, Type::parse(step))));
    });
}

OrvoValue limited(const OrvoValue& value, const QString& min, const QString& max)
{
    return withNumber(value.type(), value, [&](auto type) {
        using Type = decltype(type);
        typename Type::Wide number = Type::get(value);
        if (!min.isEmpty())
            number = std::max(number, Type::parse(min));
        if (!max.isEmpty())
            number = std::min(number, Type::parse(max));
        return Type::make(typename Type::Number(number));
    });
}

} // namespace

OrvoValue CMEdit::validate(const OrvoValue& oldValue, const OrvoValue& newValue, const OrvoEdit& edit,
                           const CMPath& path)
{
    OrvoValue value = newValue;
    if (!edit.step().isEmpty())
        value = rounded(value, edit.step());
    if (!edit.min().isEmpty() || !edit.max().isEmpty())
        value = limited(value, edit.min(), edit.max());
    if (value.type() == 7) {
        if (edit.__contains(OrvoEdit::MinLength()) && value.string_().size() < edit.minLength())
            value = oldValue;
        if (edit.__contains(OrvoEdit::MaxLength()) && value.string_().size() > edit.maxLength())
            value.setString_(value.string_().left(edit.maxLength()));
    }

    const int oldType = oldValue.type();
    const int newType = value.type();
    if (oldType != 0 && newType == 0) {
        LOG4CPLUS_ERROR(logger(), "Blocking new value because it hasn't got defined type, path: " << path);
        return oldValue;
    }
    if (oldType != 0 && oldType != newType) {
        LOG4CPLUS_ERROR(logger(), "Blocking new value because types do not match. Old type: "
                                      << oldType << " vs new type: " << newType << ", path: " << path);
        return oldValue;
    }
    return value;
}
