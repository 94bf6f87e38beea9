#pragma once

#include "records/orvorecord.h"
#include "records/orvoroles.h"

/// The result of an action.
class OrvoActionReply : public OrvoHash
{
    ORVO_RECORD(OrvoActionReply)
    ORVO_FIELD(OrvoRoles, result, Result)
    ORVO_FIELD(QString, xclass, Xclass)
};

/// A failure on the wire and of the JSON parser; in process a failed reply carries a CMError. Empty means no failure.
class OrvoError : public OrvoHash
{
    ORVO_RECORD(OrvoError)
    ORVO_FIELD(QString, name, Name)
    ORVO_FIELD(QString, title, Title)
    ORVO_FIELD(QString, message, Message)
    ORVO_FIELD(OrvoActionReply, actionReply, ActionReply)
    ORVO_FIELD(int, code, Code)
    ORVO_FIELD(QString, domain, Domain)
};

Q_DECLARE_METATYPE(OrvoActionReply)
Q_DECLARE_METATYPE(OrvoError)
