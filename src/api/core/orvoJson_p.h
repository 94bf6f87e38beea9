#pragma once

class OrvoError;
class QByteArray;
class QVariant;

// What reading and printing JSON share.

namespace orvoJson {

/// Failures of this layer; those of the parser and printer below it are 1 to 13.
enum Code { EmptyJson = 1000, UnfinishedData = 1001, UnsupportedType = 1002, TrailingCharacters = 1003 };

/// Sets domain, code and the message that goes with the code.
void setError(OrvoError& error, int code);

/// The value's text; empty, and `error`, when it holds something that JSON lacks. The pretty form sorts members.
QByteArray printValue(const QVariant& value, bool pretty, OrvoError& error);

} // namespace orvoJson
