#pragma once

#include <QStringList>
#include <QVariant>
#include <QVector>

class CMPath;
class Link;

/// Rows of a list, each with one value per role.
struct RowsRead
{
    int from = 0;
    QVector<QVariantList> rows;
    /// Of the whole list.
    int rowsCount = 0;
    int rowsVersion = 0;
};

/// Rows `from` to `to`, both included, in requests of 100, from where the list says that its rows lie.
RowsRead readRows(Link& link, const CMPath& path, const QStringList& roles, int from, int to);
