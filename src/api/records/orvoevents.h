#pragma once

#include "core/model/cmpath.h"
#include "records/orvorecord.h"
#include "records/orvovalue.h"
#include "records/orvovocabulary.h"

// The records of the event queues, by which a client without a link watches the tree.

/// One subscription of a queue. Two are equal when path and type are, so the record serves as a hash key.
class OrvoEventSubscribe : public OrvoHash
{
    ORVO_RECORD(OrvoEventSubscribe)
    ORVO_FIELD(CMPath, path, Path)
    ORVO_FIELD(OrvoEventSubscribeType::Enum, type, Type)
};

/// One row change.
class OrvoRowEvent : public OrvoHash
{
    ORVO_RECORD(OrvoRowEvent)
    ORVO_FIELD(OrvoRowEventType::Enum, type, Type)
    ORVO_FIELD(int, index, Index)
    /// Where a moved row went.
    ORVO_FIELD(int, toIndex, ToIndex)
};

/// One event of a queue. The path is always set; the item fields on value and data events, the rows fields on others.
class OrvoEvent : public OrvoHash
{
    ORVO_RECORD(OrvoEvent)
    ORVO_FIELD(CMPath, path, Path)
    ORVO_FIELD(OrvoEventItemType::Enum, itemType, ItemType)
    /// On value events only.
    ORVO_FIELD(OrvoValue, itemValue, ItemValue)
    ORVO_FIELD(OrvoEventRowsType::Enum, rowsType, RowsType)
    ORVO_FIELD(OrvoList<OrvoRowEvent>, rowsEvents, RowsEvents)
    ORVO_FIELD(int, rowsVersion, RowsVersion)
    ORVO_FIELD(int, rowsOldVersion, RowsOldVersion)
};

Q_DECLARE_METATYPE(OrvoEventSubscribe)
Q_DECLARE_METATYPE(OrvoRowEvent)
Q_DECLARE_METATYPE(OrvoEvent)
