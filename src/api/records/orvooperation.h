#pragma once

#include "records/orvorecord.h"
#include "records/orvovalue.h"
#include "records/orvovocabulary.h"

/// Negates a bool. Has no field.
class OrvoOperationNot_ : public OrvoHash
{
    ORVO_RECORD(OrvoOperationNot_)
};

/// Adds the argument, read with the accessor of the value's own type.
class OrvoOperationAdd : public OrvoHash
{
    ORVO_RECORD(OrvoOperationAdd)
    ORVO_FIELD(OrvoValue, argument, Argument)
};

/// Adds whole steps of the value's edit record; with wrap a step beyond a limit lands on the other one.
class OrvoOperationAddSteps : public OrvoHash
{
    ORVO_RECORD(OrvoOperationAddSteps)
    ORVO_FIELD(int, steps, Steps)
    ORVO_FIELD(bool, wrap, Wrap)
};

/// A relative change of a value. Holds one member; setting one replaces another.
class OrvoOperation : public OrvoHash
{
    ORVO_RECORD(OrvoOperation)
    ORVO_KEY(not_, Not_)
    ORVO_KEY(add, Add)
    ORVO_KEY(addSteps, AddSteps)

    /// An OrvoOperationType::Enum, or -1 when no member is set.
    int type() const;

    OrvoOperationNot_ not_() const { return OrvoOperationNot_(m_hash.value(Not_())); }
    OrvoOperationAdd add() const { return OrvoOperationAdd(m_hash.value(Add())); }
    OrvoOperationAddSteps addSteps() const { return OrvoOperationAddSteps(m_hash.value(AddSteps())); }

    OrvoOperation& setNot_(const OrvoOperationNot_& member) { return setMember(Not_(), member); }
    OrvoOperation& setAdd(const OrvoOperationAdd& member) { return setMember(Add(), member); }
    OrvoOperation& setAddSteps(const OrvoOperationAddSteps& member) { return setMember(AddSteps(), member); }

private:
    OrvoOperation& setMember(const QString& key, const OrvoHash& member);
};

Q_DECLARE_METATYPE(OrvoOperation)
