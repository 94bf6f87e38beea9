#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QVariant>

/**
 * What the configuration of the service may hold: groups of settings, each a whole number within limits. Knows the
 * settings and their JSON text, and keeps none. Any thread.
 */
namespace ConfigDocument {

struct Setting
{
    /// Where it lies in the document, its group included.
    const char* place;
    int min;
    int max;
    int initial;

    QString path() const { return QLatin1String(place); }
};

/// 0 artist, 1 title, 2 year, 3 duration.
constexpr Setting sortBy{"library/sortBy", 0, 3, 0};
/// 1 shows files and folders whose names begin with a dot.
constexpr Setting showHidden{"library/showHidden", 0, 1, 0};
/// So many files are shown as the recent ones.
constexpr Setting recentSize{"recent/size", 1, 100, 10};

QVariantHash defaults();
int number(const QVariantHash& document, const Setting& setting);

/**
 * Makes the value one that may stand at the place; the empty place is the whole document. Numbers are brought within
 * their limits, and settings that a group lacks get their defaults. Tells what cannot be helped, such as an unknown
 * setting or a text for a number; empty when the value fits.
 */
QString fit(const QString& place, QVariant& value);

/// The settings of a value that fits at the place, by their places in the document.
QMap<QString, int> numbers(const QString& place, const QVariant& value);

/// Tells what is wrong with the text, and is empty when the document has been read.
QString parse(const QByteArray& json, QVariantHash& document);
/// The same text for equal documents.
QByteArray print(const QVariantHash& document);

} // namespace ConfigDocument
