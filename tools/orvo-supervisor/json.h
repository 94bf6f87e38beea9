#pragma once

#include <QList>
#include <QString>
#include <QVariant>

class QByteArray;

/// Where something stands in a file; both count from 1, columns in characters.
struct Place
{
    int line = 1;
    int column = 1;
};

/// What is wrong with a file, and where.
struct Problem
{
    Place place;
    QString text;
};

struct JsonMember;

/**
 * A JSON value that knows where it begins, so that a mistake in a file can be shown to whoever wrote it. A plain value.
 */
struct JsonValue
{
    enum Type { Null, Bool, Integer, Number, Text, Array, Object };

    Type type = Null;
    Place place;
    /// Of the types without items: bool, qlonglong, double or QString.
    QVariant scalar;
    QList<JsonValue> items;
    /// In the order of the file; a key may be there twice.
    QList<JsonMember> members;
};

struct JsonMember
{
    QString key;
    Place place;
    JsonValue value;
};

/// The type with its article, for messages: "a text".
QString typeName(JsonValue::Type type);

/// The text's array or object. False, and the first problem, when it is not one complete JSON text.
bool parseJson(const QByteArray& text, JsonValue& value, Problem& problem);
