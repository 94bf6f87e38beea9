#include "core/model/cmoperation.h"

#include "core/model/cmvaluetypes_p.h"
#include "records/orvoedit.h"
#include "records/orvooperation.h"

#include <cmath>
#include <type_traits>

namespace {

using CMValueTypes::withNumber;

/// Integer payloads wrap around; unsigned arithmetic says so.
template <typename Number>
Number sum(Number a, Number b)
{
    if constexpr (std::is_floating_point<Number>::value)
        return a + b;
    else
        return Number(static_cast<unsigned long long>(a) + static_cast<unsigned long long>(b));
}

OrvoValue added(const OrvoValue& value, const OrvoValue& argument)
{
    return withNumber(value.type(), OrvoValue(), [&](auto type) {
        using Type = decltype(type);
        return Type::make(sum(Type::get(value), Type::get(argument)));
    });
}

/// The opposite limit when the value stands at one and the steps lead beyond it; otherwise an empty value. A limit that
/// is not set is none to wrap at.
OrvoValue wrapped(const OrvoValue& value, const OrvoEdit& edit, int steps)
{
    return withNumber(value.type(), OrvoValue(), [&](auto type) {
        using Type = decltype(type);
        const typename Type::Wide number = Type::get(value);
        if (!edit.min().isEmpty() && number <= Type::parse(edit.min()) && steps < 0)
            return Type::make(typename Type::Number(Type::parse(edit.max())));
        if (!edit.max().isEmpty() && number >= Type::parse(edit.max()) && steps > 0)
            return Type::make(typename Type::Number(Type::parse(edit.min())));
        return OrvoValue();
    });
}

OrvoValue stepped(const OrvoValue& value, const OrvoEdit& edit, int steps)
{
    // The 16-bit type has no steps: the empty result is then blocked when it is written.
    if (value.type() == 3)
        return OrvoValue();
    return withNumber(value.type(), OrvoValue(), [&](auto type) {
        using Type = decltype(type);
        using Number = typename Type::Number;
        if constexpr (std::is_floating_point<Number>::value) {
            return Type::make(std::fma(steps, edit.step().toDouble(), Type::get(value)));
        } else {
            const auto step = static_cast<unsigned long long>(static_cast<long long>(Type::parse(edit.step())));
            const auto way = step * static_cast<unsigned long long>(static_cast<long long>(steps));
            return Type::make(Number(static_cast<unsigned long long>(Type::get(value)) + way));
        }
    });
}

} // namespace

OrvoValue CMOperation::apply(const OrvoValue& value, const OrvoEdit& edit, const OrvoOperation& operation)
{
    switch (operation.type()) {
    case OrvoOperationType::Not_:
        return OrvoValue().setBool_(!value.bool_());
    case OrvoOperationType::Add:
        return added(value, operation.add().argument());
    case OrvoOperationType::AddSteps: {
        const OrvoOperationAddSteps addSteps = operation.addSteps();
        if (addSteps.wrap()) {
            OrvoValue opposite = wrapped(value, edit, addSteps.steps());
            if (!opposite.isEmpty())
                return opposite;
        }
        return stepped(value, edit, addSteps.steps());
    }
    default:
        return OrvoValue();
    }
}
