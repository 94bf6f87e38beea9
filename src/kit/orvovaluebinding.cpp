#include "orvovaluebinding.h"

#include "core/model/cmabstractworker.h"
#include "core/model/cmroot.h"
#include "core/model/cmvalueitem.h"
#include "records/orvovalue.h"

#include <QPointer>

#include <cmath>
#include <limits>
#include <optional>
#include <utility>

namespace {

QVariant payloadOf(const OrvoValue& value)
{
    switch (value.type()) {
    case 1:
        return value.bool_();
    case 2:
        return int(value.byte_());
    case 3:
        return int(value.i16_());
    case 4:
        return value.i32_();
    case 5:
        return value.i64_();
    case 6:
        return value.double_();
    case 7:
        return value.string_();
    default:
        return value.__hash().contains(OrvoValue::DoubleList()) ? value.doubleList().__variant() : QVariant();
    }
}

/// Rounded; nothing when it is no number, or not one of this type.
template <typename Integer>
std::optional<Integer> toInteger(const QVariant& variant)
{
    using Limits = std::numeric_limits<Integer>;
    bool ok = false;
    const qlonglong exact = variant.toLongLong(&ok);
    const bool isFraction = variant.userType() == QMetaType::Double || variant.userType() == QMetaType::Float || !ok;
    if (!isFraction)
        return exact < Limits::min() || exact > Limits::max() ? std::nullopt : std::optional<Integer>(Integer(exact));
    const double number = std::round(variant.toDouble(&ok));
    // The upper limit of 64 bits is no double; the power of two behind it is.
    if (!ok || !(number >= double(Limits::min()) && number < std::ldexp(1.0, Limits::digits)))
        return std::nullopt;
    return Integer(number);
}

std::optional<OrvoList<double>> toNumbers(const QVariant& variant)
{
    if (!variant.canConvert<QVariantList>())
        return std::nullopt;
    QVariantList numbers = variant.value<QVariantList>();
    for (QVariant& number : numbers) {
        bool ok = false;
        number = number.toDouble(&ok);
        if (!ok)
            return std::nullopt;
    }
    return OrvoList<double>(QVariant(numbers));
}

std::optional<OrvoValue> ofItsOwnType(const QVariant& variant)
{
    switch (variant.userType()) {
    case QMetaType::Bool:
        return OrvoValue().setBool_(variant.toBool());
    case QMetaType::Int:
        return OrvoValue().setI32_(variant.toInt());
    case QMetaType::UInt:
    case QMetaType::LongLong:
        return OrvoValue().setI64_(variant.toLongLong());
    case QMetaType::Double:
        return OrvoValue().setDouble_(variant.toDouble());
    case QMetaType::QString:
        return OrvoValue().setString_(variant.toString());
    default:
        break;
    }
    if (const auto numbers = toNumbers(variant))
        return OrvoValue().setDoubleList(*numbers);
    return std::nullopt;
}

template <typename T, typename Setter>
std::optional<OrvoValue> with(const std::optional<T>& payload, Setter setter)
{
    return payload ? std::optional<OrvoValue>((OrvoValue().*setter)(*payload)) : std::nullopt;
}

/// A value of the type that `present` has; nothing when the variant is none of it.
std::optional<OrvoValue> toValue(const QVariant& variant, const OrvoValue& present)
{
    switch (present.type()) {
    case 1:
        return variant.canConvert<bool>() ? std::optional<OrvoValue>(OrvoValue().setBool_(variant.toBool()))
                                          : std::nullopt;
    case 2:
        return with(toInteger<signed char>(variant), &OrvoValue::setByte_);
    case 3:
        return with(toInteger<short>(variant), &OrvoValue::setI16_);
    case 4:
        return with(toInteger<int>(variant), &OrvoValue::setI32_);
    case 5:
        return with(toInteger<long long>(variant), &OrvoValue::setI64_);
    case 6: {
        bool ok = false;
        const double number = variant.toDouble(&ok);
        return ok ? std::optional<OrvoValue>(OrvoValue().setDouble_(number)) : std::nullopt;
    }
    case 7:
        return variant.canConvert<QString>() ? std::optional<OrvoValue>(OrvoValue().setString_(variant.toString()))
                                             : std::nullopt;
    default:
        break;
    }
    if (present.__hash().contains(OrvoValue::DoubleList())) {
        const auto numbers = toNumbers(variant);
        return numbers ? std::optional<OrvoValue>(OrvoValue().setDoubleList(*numbers)) : std::nullopt;
    }
    return ofItsOwnType(variant);
}

} // namespace

OrvoValueBinding::OrvoValueBinding(QObject* parent) : QObject(parent), m_item(new CMValueItem(this))
{
    connect(m_item, &CMValueItem::changed, this, &OrvoValueBinding::on_item_changed);
    connect(m_item, &CMValueItem::loadingChanged, this, &OrvoValueBinding::on_item_loadingChanged);
}

OrvoValueBinding::~OrvoValueBinding() = default;

QString OrvoValueBinding::path() const
{
    return m_item->path().toEncoded();
}

QVariant OrvoValueBinding::value() const
{
    return payloadOf(m_item->value());
}

bool OrvoValueBinding::isLoading() const
{
    return m_item->isLoading();
}

void OrvoValueBinding::setPath(const QString& path)
{
    const CMPath wanted = CMPath::fromEncoded(path);
    if (wanted == m_item->path())
        return;
    m_waiting.clear();
    const QPointer<OrvoValueBinding> alive(this);
    m_item->setPath(wanted);
    if (alive)
        emit pathChanged();
}

void OrvoValueBinding::setValue(const QVariant& value)
{
    if (m_item->isLoading())
        m_waiting = value;
    else
        write(value);
}

void OrvoValueBinding::on_item_changed(const OrvoValue& value, const OrvoValue& oldValue)
{
    // An end of the loading comes as a change, too.
    if (value != oldValue)
        emit valueChanged();
}

void OrvoValueBinding::on_item_loadingChanged(bool loading)
{
    const QPointer<OrvoValueBinding> alive(this);
    emit loadingChanged();
    if (alive && !loading && !m_item->isLoading() && m_waiting.isValid())
        write(std::exchange(m_waiting, QVariant()));
}

void OrvoValueBinding::write(const QVariant& value)
{
    if (m_item->path().isEmpty()) {
        emit refused(QStringLiteral("There is no path to write to"));
        return;
    }
    const std::optional<OrvoValue> wanted = toValue(value, m_item->value());
    if (!wanted) {
        emit refused(QStringLiteral("'%1' is no value of this kind").arg(value.toString()));
        return;
    }
    const QPointer<OrvoValueBinding> self(this);
    CMRoot()->setValue(m_item->path(), *wanted).onFinished([self](const CMReply<QVariant>& reply) {
        if (!self)
            return;
        const CMError error = reply.error();
        if (error.isError())
            emit self->refused(error.message().isEmpty() ? error.name() : error.message());
        else if (!reply.value().toBool())
            emit self->refused(QStringLiteral("The value is read-only"));
    });
}
