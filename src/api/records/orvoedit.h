#pragma once

#include "records/orvorecord.h"

/**
 * The constraints of a value. The numbers are texts because their type is the value's; an empty text is not set, and a
 * length counts as set when its key is there.
 */
class OrvoEdit : public OrvoHash
{
    ORVO_RECORD(OrvoEdit)
    ORVO_FIELD(QString, min, Min)
    ORVO_FIELD(QString, max, Max)
    ORVO_FIELD(QString, step, Step)
    ORVO_FIELD(int, minLength, MinLength)
    ORVO_FIELD(int, maxLength, MaxLength)
};

Q_DECLARE_METATYPE(OrvoEdit)
