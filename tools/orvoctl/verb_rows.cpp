#include "verbs.h"

#include "core/model/cmpath.h"
#include "failure.h"
#include "link.h"
#include "output.h"
#include "records/orvoroles.h"
#include "rowsreader.h"
#include "values.h"

#include <limits>

namespace {

/// The roles of which at least one row says something.
QVector<int> filledColumns(const RowsRead& read, int columns)
{
    QVector<int> filled;
    for (int column = 0; column < columns; ++column)
        for (const QVariantList& row : read.rows)
            if (isFilled(row.value(column))) {
                filled.append(column);
                break;
            }
    return filled;
}

void printTable(Output& output, const RowsRead& read, const QStringList& roles, const QVector<int>& columns)
{
    QStringList header{QStringLiteral("ROW")};
    for (const int column : columns)
        header.append(roles.at(column).toUpper());
    QVector<QStringList> lines;
    for (int i = 0; i < read.rows.size(); ++i) {
        QStringList line{QString::number(read.from + i)};
        for (const int column : columns)
            line.append(roleText(read.rows.at(i).value(column)));
        lines.append(line);
    }
    output.table(header, lines);
}

QVariant toDocument(const CMPath& path, const RowsRead& read, const QStringList& roles)
{
    QVariantList rows;
    for (int i = 0; i < read.rows.size(); ++i) {
        QVariantHash row;
        for (int column = 0; column < roles.size(); ++column) {
            const QVariant value = read.rows.at(i).value(column);
            if (value.isValid())
                row.insert(roles.at(column), value);
        }
        rows.append(row);
    }
    return QVariantHash{{QStringLiteral("path"), path.toEncoded()},
                        {QStringLiteral("from"), read.from},
                        {QStringLiteral("rowsCount"), read.rowsCount},
                        {QStringLiteral("rowsVersion"), read.rowsVersion},
                        {QStringLiteral("rows"), rows}};
}

void run(Session& session)
{
    const Arguments& arguments = session.arguments;
    const CMPath path = pathArgument(arguments.at(0));
    const QStringList asked = arguments.values(QStringLiteral("role"));
    const QStringList roles =
        asked.isEmpty() ? QStringList{OrvoRoles::Title(), OrvoRoles::Type(), OrvoRoles::Value(), OrvoRoles::Path()}
                        : asked;
    const int count = arguments.positional().size();
    const int from = count > 1 ? parseNumber(QStringLiteral("FROM"), arguments.at(1), 0) : 0;
    const int to =
        count > 2 ? parseNumber(QStringLiteral("TO"), arguments.at(2), from) : std::numeric_limits<int>::max();

    const RowsRead read = readRows(session.link, path, roles, from, to);
    if (session.output.isJson())
        return session.output.document(toDocument(path, read, roles));
    QVector<int> columns = filledColumns(read, roles.size());
    if (!asked.isEmpty()) {
        columns.clear();
        for (int column = 0; column < roles.size(); ++column)
            columns.append(column);
    }
    printTable(session.output, read, roles, columns);
}

} // namespace

Verb rowsVerb()
{
    return {QStringLiteral("rows"),
            QStringLiteral("PATH [FROM [TO]]"),
            QStringLiteral("Show the rows of a list"),
            QStringLiteral("Rows FROM to TO, both included and counted from 0; without them all rows."),
            1,
            3,
            {{QStringLiteral("role"), QString(), Option::Value, QStringLiteral("ROLE"),
              QStringLiteral("show this role, may be repeated (title, type, value, path)")}},
            run};
}
