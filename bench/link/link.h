#pragma once

#include <QStringList>
#include <QVariant>

#include <time.h>

// What both processes of the link benchmark know of each other.
//
// The client starts the peer as `bench_link_peer MODE ARGUMENT`, the argument being the address of the D-Bus daemon,
// the size of an echoed message, or how many rows the list has; it prints "ready" and its address and obeys lines on
// its standard input: "changes N" sets its value N times to the time of that moment, one a millisecond, "count" makes
// it count its allocations, and "counted" prints how many there were. It ends with its input.

namespace Link {

constexpr int Rows = 10000;
constexpr int Chunk = 100;

inline QString valuePath()
{
    return QStringLiteral("bench:settings/audio/volume");
}

inline QString rowsPath()
{
    return QStringLiteral("bench:library/albums");
}

inline QStringList roles()
{
    return {QStringLiteral("path"),        QStringLiteral("title"),           QStringLiteral("id"),
            QStringLiteral("description"), QStringLiteral("longDescription"), QStringLiteral("icon"),
            QStringLiteral("type"),        QStringLiteral("timestamp"),       QStringLiteral("risky"),
            QStringLiteral("value")};
}

/// One value per role, in their order.
inline QVariantList row(int number)
{
    return {QStringLiteral("bench:library/albums/%1").arg(number),
            QStringLiteral("Track number %1").arg(number),
            QString::number(number),
            QStringLiteral("Some Artist"),
            QStringLiteral("An Album of Songs"),
            QStringLiteral("http://10.0.0.7/cover/%1.jpg").arg(number),
            QStringLiteral("audio"),
            qlonglong(180000 + number * 37),
            number % 3 == 0,
            qlonglong(number)};
}

/// Nanoseconds of a clock that all processes share.
inline qlonglong now()
{
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * 1000000000LL + time.tv_nsec;
}

} // namespace Link
