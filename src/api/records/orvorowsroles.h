#pragma once

#include "core/model/cmpath.h"
#include "records/orvorecord.h"
#include "records/orvoroles.h"
#include "records/orvovocabulary.h"

/**
 * The answer to a rows request.
 *
 * Shape of rows(): a list with one element per row; each element is a list with one value per requested role, in the
 * order of the request.
 */
class OrvoRowsRoles : public OrvoHash
{
    ORVO_RECORD(OrvoRowsRoles)
    /// Roles of the list as a whole.
    ORVO_FIELD(OrvoRoles, roles, Roles)
    ORVO_FIELD(QVariant, rows, Rows)
    /// Rows of the whole list, not of this answer.
    ORVO_FIELD(int, rowsCount, RowsCount)
    ORVO_FIELD(int, rowsVersion, RowsVersion)
    /// Another path that serves these rows.
    ORVO_FIELD(CMPath, rowsRedirect, RowsRedirect)
    ORVO_FIELD(CMPath, rowsBackPath, RowsBackPath)
    ORVO_FIELD(CMPath, rowsBackPathBarrier, RowsBackPathBarrier)
    /// The row to show first.
    ORVO_FIELD(int, initialRow, InitialRow)
    /// Milliseconds after which the list closes itself; 0 is never.
    ORVO_FIELD(int, closeTimeout, CloseTimeout)
    ORVO_FIELD(OrvoList<OrvoRowsRolesType::Enum>, type, Type)
};

Q_DECLARE_METATYPE(OrvoRowsRoles)
Q_DECLARE_METATYPE(OrvoList<OrvoRowsRolesType::Enum>)
