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

/// As OrvoJson::parse(), of bytes that nobody has to own as a QByteArray.
QVariant parse(const char* json, int size, OrvoError& error, unsigned int* processed = nullptr);

/// The value's text; empty, and `error`, when it holds something that JSON lacks. The pretty form sorts members. The
/// compact form leaves `headSize` bytes in front of the text for the caller to fill in.
QByteArray printValue(const QVariant& value, bool pretty, OrvoError& error, int headSize = 0);

/// As OrvoJson::serialize(), behind a head.
QByteArray serializeBehind(int headSize, const QVariant& value);

} // namespace orvoJson
