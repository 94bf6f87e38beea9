#include "rowsreader.h"

#include "cmremoteworker.h"
#include "core/model/cmpath.h"
#include "link.h"

#include <algorithm>

namespace {

constexpr int chunk = 100;
constexpr int mostRedirects = 8;

} // namespace

RowsRead readRows(Link& link, const CMPath& path, const QStringList& roles, int from, int to)
{
    RowsRead read;
    read.from = from;
    CMPath place = path;
    int redirects = 0;
    for (int next = from; next <= to;) {
        const int last = to - next < chunk ? to : next + chunk - 1;
        const OrvoRowsRoles answer = link.answer(place, link.reach(place)->getRows(place, next, last, -1, roles));
        if (!answer.rowsRedirect().isEmpty() && redirects++ < mostRedirects) {
            place = answer.rowsRedirect();
            continue;
        }
        read.rowsCount = answer.rowsCount();
        read.rowsVersion = answer.rowsVersion();
        const QVariantList rows = answer.rows().toList();
        for (const QVariant& row : rows)
            read.rows.append(row.toList());
        // A slow list answers with fewer rows than asked for, but with one at least.
        next += rows.size();
        if (rows.isEmpty() || next >= read.rowsCount)
            break;
    }
    return read;
}
