#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <type_traits>

namespace OrvoField {

template <typename T, typename = void>
struct IsRecord : std::false_type
{};

template <typename T>
struct IsRecord<T, std::void_t<decltype(std::declval<T&>().__setVariant(QVariant()))>> : std::true_type
{};

template <typename T, typename = void>
struct HasTextForm : std::false_type
{};

template <typename T>
struct HasTextForm<T, std::void_t<decltype(T::fromQVariant(QVariant()))>> : std::true_type
{};

/// How a field or list element of type T lies in a variant: by T's record protocol where it has one.
template <typename T, typename = void>
struct Codec
{
    static QVariant toVariant(const T& value) { return QVariant::fromValue(value); }
    static T fromVariant(const QVariant& variant) { return variant.value<T>(); }
};

template <>
struct Codec<QVariant>
{
    static QVariant toVariant(const QVariant& value) { return value; }
    static QVariant fromVariant(const QVariant& variant) { return variant; }
};

template <>
struct Codec<QString>
{
    static QVariant toVariant(const QString& value) { return QVariant(value); }
    static QString fromVariant(const QVariant& variant) { return variant.toString(); }
};

/// Enumerators travel as numbers.
template <typename T>
struct Codec<T, std::enable_if_t<std::is_enum<T>::value>>
{
    static QVariant toVariant(T value) { return QVariant(int(value)); }
    static T fromVariant(const QVariant& variant) { return T(variant.toInt()); }
};

/// Records and lists of them.
template <typename T>
struct Codec<T, std::enable_if_t<IsRecord<T>::value>>
{
    static QVariant toVariant(const T& value) { return value.__variant(); }
    static T fromVariant(const QVariant& variant)
    {
        T value;
        value.__setVariant(variant);
        return value;
    }
};

/// Values with a text form of their own, as paths have.
template <typename T>
struct Codec<T, std::enable_if_t<HasTextForm<T>::value>>
{
    static QVariant toVariant(const T& value) { return value.__variant(); }
    static T fromVariant(const QVariant& variant) { return T::fromQVariant(variant); }
};

} // namespace OrvoField

/**
 * The list type of record fields: a QList<QVariant>, every element stored as a variant.
 *
 * Read elements as variants, or with value() as T. A value class, shared implicitly.
 */
template <typename T>
class OrvoList : public QList<QVariant>
{
public:
    OrvoList() = default;
    explicit OrvoList(const QVariant& variant) : QList<QVariant>(variant.toList()) {}
    OrvoList(const QList<T>& list)
    {
        reserve(list.size());
        for (const T& item : list)
            append(item);
    }
    /// For instances of QString: one variant per item, in order.
    template <typename L,
              typename = std::enable_if_t<std::is_same<L, QStringList>::value && std::is_same<T, QString>::value>>
    OrvoList(const L& list)
    {
        reserve(list.size());
        for (const QString& item : list)
            append(item);
    }

    void append(const T& item) { QList<QVariant>::append(OrvoField::Codec<T>::toVariant(item)); }
    OrvoList& operator<<(const T& item)
    {
        append(item);
        return *this;
    }
    /// The element as T; T's default when the index is out of range.
    T value(int index) const { return OrvoField::Codec<T>::fromVariant(QList<QVariant>::value(index)); }
    QList<T> toTyped() const
    {
        QList<T> list;
        list.reserve(size());
        for (const QVariant& item : *this)
            list.append(OrvoField::Codec<T>::fromVariant(item));
        return list;
    }

    QVariant __variant() const { return QVariant(static_cast<const QList<QVariant>&>(*this)); }
    OrvoList& __setVariant(const QVariant& variant)
    {
        QList<QVariant>::operator=(variant.toList());
        return *this;
    }
};
