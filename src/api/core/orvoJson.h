#pragma once

class OrvoError;
class QByteArray;
class QString;
class QVariant;

/**
 * JSON text to and from QVariant trees: the one JSON layer of the library.
 *
 * Null is an invalid variant, numbers are long long or double, text is QString, arrays are QVariantList and objects
 * QVariantHash. All functions are static, keep no state and may run in any thread at once.
 */
class OrvoJson
{
public:
    /**
     * The value of the text. A failure is reported in `error` (domain "OrvoJson", code and message), which is cleared
     * otherwise, and gives an invalid variant, save for characters behind a complete value: then both are given.
     * Where `processed` is given it receives the number of bytes consumed. Arrays and objects nest 512 deep at most.
     */
    static QVariant parse(const QByteArray& json, OrvoError& error, unsigned int* processed = nullptr);
    static QVariant parse(const QString& json, OrvoError& error, unsigned int* processed = nullptr);

    /// Compact text, members in hash order. A value of a type that JSON lacks stops the process.
    static QByteArray serialize(const QVariant& value);
    /// Indented text with sorted members, so equal values give equal text.
    static QByteArray serializePretty(const QVariant& value);

    /// The text as the inside of a JSON string, without the quotes.
    static QString escape(const QString& text);
    /// The inverse of escape(); a null string, and `error`, when the text is no such inside.
    static QString unescape(const QString& text, OrvoError& error);
};
