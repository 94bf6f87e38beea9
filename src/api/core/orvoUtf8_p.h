#pragma once

#include <QString>

#include <cstring>

/// QString::fromUtf8(), which would take a U+FEFF at the start for a mark of the encoding and drop it: here it is text.
inline QString orvoFromUtf8(const char* data, int length)
{
    int marks = 0;
    while (length - 3 * marks >= 3 && std::memcmp(data + 3 * marks, "\xEF\xBB\xBF", 3) == 0)
        ++marks;
    const QString text = QString::fromUtf8(data + 3 * marks, length - 3 * marks);
    return marks == 0 ? text : QString(marks, QChar(QChar::ByteOrderMark)) + text;
}
