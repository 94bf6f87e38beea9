#pragma once

#include <QString>

#include <cstring>

/// QString::fromUtf8(), which would take a U+FEFF at the start for a mark of the encoding and drop it: here it is text.
inline QString orvoFromUtf8(const char* data, int length)
{
    const char* rest = data;
    const char* const end = data + length;
    while (end - rest >= 3 && std::memcmp(rest, "\xEF\xBB\xBF", 3) == 0)
        rest += 3;
    const int marks = int(rest - data) / 3;
    const QString text = QString::fromUtf8(rest, int(end - rest));
    return marks == 0 ? text : QString(marks, QChar(QChar::ByteOrderMark)) + text;
}
