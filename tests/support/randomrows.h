#pragma once

#include "core/model/nodes/cmlistrowsnode.h"

#include <QRandomGenerator>

/**
 * A script that changes a list without end, the same one for the same seed: inserts, removals, moves and new contents,
 * now and then rows with the same id or without one, and rarely a clear.
 */
class RandomRows
{
public:
    RandomRows(CMListRowsNode* list, quint32 seed) : m_list(list), m_random(seed) {}

    void steps(int count)
    {
        while (count-- > 0)
            step();
    }
    void step()
    {
        const int size = m_list->rowsSize();
        const int kind = below(100);
        if (kind == 0) {
            m_list->rowsClear();
        } else if (size == 0 || kind < (size < 250 ? 45 : 20)) {
            for (int i = size < 20 ? 30 : 1; i > 0; --i)
                m_list->rowsInsert(below(m_list->rowsSize() + 1), row());
        } else if (kind < 60) {
            m_list->rowsRemoveAt(below(size));
        } else if (kind < 80) {
            // Blocks move upwards only: the other way their rows do not stay together, and may leave the list.
            const int rows = size > 4 && kind < 65 ? 3 : 1;
            const int from = below(size - rows + 1);
            m_list->rowsMove(from, rows, below(rows == 1 ? size : from + 1));
        } else if (kind < 95) {
            const int at = below(size);
            m_list->rowsSet(at, m_list->getRowRoles(at).setTitle(text()));
        } else {
            m_list->rowsSet(below(size), row());
        }
    }

private:
    int below(int end) { return int(m_random.bounded(quint32(end))); }
    QString text() { return QString::number(below(1000)); }
    OrvoRoles row()
    {
        OrvoRoles roles = OrvoRoles().setTitle(text());
        const int kind = below(20);
        if (kind == 1)
            return roles.setId(QStringLiteral("same"));
        return kind == 0 ? roles : roles.setId(QString::number(++m_last));
    }

    CMListRowsNode* const m_list;
    QRandomGenerator m_random;
    int m_last = 0;
};
