#pragma once

#include "core/model/cmrowsclone.h"

#include <QStringList>

#include <algorithm>

/// Replays what a clone tells on a list that was empty, and compares the two at every step.
class Mirror : public QObject
{
public:
    explicit Mirror(CMRowsClone* clone) : m_clone(clone)
    {
        connect(clone, &CMRowsClone::itemChanged, this,
                [this](const OrvoRoles& newRoles, const OrvoRoles& oldRoles, int row) {
                    ++changes;
                    replay(newRoles, oldRoles, row);
                    compare();
                });
        connect(clone, &CMRowsClone::loadingChanged, this, [this](bool loading) {
            ++(loading ? loads : loaded);
            compare();
        });
    }

    /// The first thing that went wrong; empty as long as all fits.
    QString fault;
    int changes = 0;
    int loads = 0;
    int loaded = 0;

private:
    void replay(const OrvoRoles& newRoles, const OrvoRoles& oldRoles, int row)
    {
        const bool isInsertion = oldRoles.isEmpty();
        if (newRoles.isEmpty() && isInsertion)
            return say(QStringLiteral("row %1 changes from nothing to nothing").arg(row));
        if (row < 0 || row > m_rows.size() - !isInsertion)
            return say(QStringLiteral("row %1 of %2").arg(row).arg(m_rows.size()));
        if (!isInsertion && m_rows.at(row) != oldRoles)
            return say(QStringLiteral("row %1 had other roles").arg(row));
        if (!isInsertion && newRoles == oldRoles)
            return say(QStringLiteral("row %1 changes to what it is").arg(row));
        if (isInsertion)
            m_rows.insert(row, newRoles);
        else if (newRoles.isEmpty())
            m_rows.removeAt(row);
        else
            m_rows[row] = newRoles;
    }
    void compare()
    {
        if (m_rows != m_clone->list())
            say(QStringLiteral("the list is not what was told"));
        int ids = 0;
        for (const OrvoRoles& roles : qAsConst(m_rows)) {
            const QString id = roles.id();
            if (id.isEmpty())
                continue;
            ++ids;
            const OrvoRoles indexed = m_clone->idIndex().value(id);
            if (indexed != roles && (indexed.id() != id || !m_rows.contains(indexed)))
                say(QStringLiteral("id %1 stands for another row").arg(id));
        }
        if (m_clone->idIndex().size() > ids)
            say(QStringLiteral("the index has ids that no row has"));
        else if (m_clone->idIndex().contains(QString()))
            say(QStringLiteral("the index has an empty id"));
    }
    void say(const QString& text)
    {
        if (fault.isEmpty())
            fault = QStringLiteral("change %1: %2").arg(changes).arg(text);
    }

    CMRowsClone* const m_clone;
    QList<OrvoRoles> m_rows;
};
