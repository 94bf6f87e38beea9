#pragma once

#include "records/orvohash.h"
#include "records/orvolist.h"

#include <initializer_list>

/**
 * The two lines a record class is made of.
 *
 *     class OrvoFruit : public OrvoHash
 *     {
 *         ORVO_RECORD(OrvoFruit)
 *         ORVO_FIELD(QString, name, Name)
 *     };
 *
 * declares `static QString Name()`, the key text "name"; `QString name() const`, the typed value or its default; and
 * `OrvoFruit& setName(const QString&)`, which returns the record so that calls chain. The key text on the wire is the
 * getter's name as it stands.
 */
#define ORVO_RECORD(Record)                                                                                            \
public:                                                                                                                \
    using Self = Record;                                                                                               \
    Record() = default;                                                                                                \
    explicit Record(const QHash<QString, QVariant>& hash) : OrvoHash(hash) {}                                          \
    explicit Record(QHash<QString, QVariant>&& hash) : OrvoHash(std::move(hash)) {}                                    \
    explicit Record(const QVariant& variant) : OrvoHash(variant) {}                                                    \
    explicit Record(const OrvoHash& hash) : OrvoHash(hash) {}

#define ORVO_KEY(getter, Name)                                                                                         \
    static QString Name()                                                                                              \
    {                                                                                                                  \
        return QStringLiteral(#getter);                                                                                \
    }

#define ORVO_FIELD(Type, getter, Name)                                                                                 \
    ORVO_KEY(getter, Name)                                                                                             \
    Type getter() const                                                                                                \
    {                                                                                                                  \
        return OrvoField::Codec<Type>::fromVariant(stored(Name()));                                                    \
    }                                                                                                                  \
    Self& set##Name(const Type& value)                                                                                 \
    {                                                                                                                  \
        store(Name(), OrvoField::Codec<Type>::toVariant(value));                                                       \
        return *this;                                                                                                  \
    }

/// A field whose enumerator is stored as the text that its vocabulary class gives it.
#define ORVO_TEXT_ENUM_FIELD(Vocabulary, getter, Name)                                                                 \
    ORVO_KEY(getter, Name)                                                                                             \
    Vocabulary::Enum getter() const                                                                                    \
    {                                                                                                                  \
        return Vocabulary::fromString(stored(Name()).toString());                                                      \
    }                                                                                                                  \
    Self& set##Name(Vocabulary::Enum value)                                                                            \
    {                                                                                                                  \
        store(Name(), Vocabulary::toString(value));                                                                    \
        return *this;                                                                                                  \
    }
