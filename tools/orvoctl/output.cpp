#include "output.h"

#include "core/orvoJson.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace {

void write(int file, const QByteArray& bytes)
{
    const char* next = bytes.constData();
    qint64 left = bytes.size();
    while (left > 0) {
        const ssize_t written = ::write(file, next, size_t(left));
        if (written < 0) {
            if (errno == EINTR)
                continue;
            if (file == STDOUT_FILENO && errno != EPIPE) {
                const QByteArray line = "orvoctl: cannot write: " + QByteArray(strerror(errno)) + '\n';
                (void)!::write(STDERR_FILENO, line.constData(), size_t(line.size()));
                _exit(EXIT_FAILURE);
            }
            if (file == STDOUT_FILENO)
                _exit(EXIT_SUCCESS);
            return;
        }
        next += written;
        left -= written;
    }
}

QString alignedLine(const QStringList& cells, const QVector<int>& widths)
{
    QString line;
    for (int column = 0; column < cells.size(); ++column) {
        const bool last = column + 1 == cells.size();
        line += last ? cells.at(column) : cells.at(column).leftJustified(widths.at(column) + 2);
    }
    while (line.endsWith(QLatin1Char(' ')))
        line.chop(1);
    return line;
}

} // namespace

Output::Output(Json json)
    : m_json(json), m_colours(isTerminal() && qEnvironmentVariableIsEmpty("NO_COLOR") && qgetenv("TERM") != "dumb")
{}

void Output::document(const QVariant& document)
{
    if (m_json != Json::Pretty)
        return documentLine(document);
    QByteArray text = OrvoJson::serializePretty(document);
    if (!text.endsWith('\n'))
        text += '\n';
    write(STDOUT_FILENO, text);
}

void Output::documentLine(const QVariant& document)
{
    write(STDOUT_FILENO, OrvoJson::serialize(document) + '\n');
}

void Output::line(const QString& text)
{
    write(STDOUT_FILENO, visible(text).toUtf8() + '\n');
}

void Output::table(const QStringList& header, const QVector<QStringList>& rows)
{
    QVector<QStringList> shown;
    shown.reserve(rows.size() + 1);
    if (!header.isEmpty())
        shown.append(header);
    for (const QStringList& row : rows) {
        QStringList cells;
        for (const QString& cell : row)
            cells.append(visible(cell));
        shown.append(cells);
    }
    QVector<int> widths;
    for (const QStringList& row : qAsConst(shown)) {
        widths.resize(std::max(widths.size(), row.size()));
        for (int column = 0; column < row.size(); ++column)
            widths[column] = std::max(widths.at(column), row.at(column).size());
    }
    for (int i = 0; i < shown.size(); ++i) {
        QByteArray bytes = alignedLine(shown.at(i), widths).toUtf8();
        if (m_colours && i == 0 && !header.isEmpty())
            bytes = "\033[1m" + bytes + "\033[0m";
        write(STDOUT_FILENO, bytes + '\n');
    }
}

void Output::text(const QString& text)
{
    write(STDOUT_FILENO, text.toUtf8());
}

QString Output::visible(const QString& text)
{
    QString shown;
    shown.reserve(text.size());
    for (const QChar c : text) {
        if (c == QLatin1Char('\n'))
            shown += QLatin1String("\\n");
        else if (c == QLatin1Char('\t'))
            shown += QLatin1String("\\t");
        else if (c.category() == QChar::Other_Control)
            shown += QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'));
        else
            shown += c;
    }
    return shown;
}

bool Output::isTerminal()
{
    return isatty(STDOUT_FILENO);
}

void Output::error(const QString& text)
{
    write(STDERR_FILENO, "orvoctl: " + visible(text).toUtf8() + '\n');
}
