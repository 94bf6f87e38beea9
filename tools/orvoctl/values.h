#pragma once

#include "records/orvovalue.h"

#include <QString>
#include <QStringList>
#include <QVariant>

/// The names by which the command line calls the types of values.
QStringList valueTypeNames();
/// The name of the value's type; empty when it holds no scalar.
QString valueTypeName(const OrvoValue& value);
/// The text as a value of the named type. Throws a Failure of ExitStatus::Usage when it does not convert.
OrvoValue parseValue(const QString& typeName, const QString& text);
/// The JSON of an argument. Throws a Failure of ExitStatus::Usage when it is malformed.
QVariant parseJson(const QString& text);
/// Whether the value says anything: neither absent nor an empty text, list or hash.
bool isFilled(const QVariant& value);
/// A role's value as people read it; what is neither scalar nor a typed value is shown as JSON.
QString roleText(const QVariant& value);
/// Of `roles` those that are not so in `old`; of `old` those that are gone, as invalid variants.
QVariantHash rolesDifference(const QVariantHash& roles, const QVariantHash& old);
/// "role=value" for each role, in the order of CMAllRoles().
QString rolesText(const QVariantHash& roles);
