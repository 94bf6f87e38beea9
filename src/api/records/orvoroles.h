#pragma once

#include "core/model/cmpath.h"
#include "records/orvoedit.h"
#include "records/orvomediadata.h"
#include "records/orvooperation.h"
#include "records/orvorecord.h"
#include "records/orvovalue.h"
#include "records/orvovocabulary.h"

/// The role hash of a node or of a row: one entry for each thing that is known about it.
class OrvoRoles : public OrvoHash
{
    ORVO_RECORD(OrvoRoles)

    // What every node that a user interface can show answers.
    ORVO_FIELD(OrvoRoles, context, Context)
    ORVO_FIELD(QString, description, Description)
    ORVO_FIELD(bool, disabled, Disabled)
    ORVO_FIELD(QString, icon, Icon)
    ORVO_FIELD(QString, id, Id)
    ORVO_FIELD(QString, longDescription, LongDescription)
    ORVO_FIELD(OrvoMediaData, mediaData, MediaData)
    ORVO_FIELD(CMPath, path, Path)
    ORVO_FIELD(bool, preferred, Preferred)
    ORVO_FIELD(bool, renderAsButton, RenderAsButton)
    ORVO_FIELD(bool, risky, Risky)
    /// Milliseconds since the epoch.
    ORVO_FIELD(long long, timestamp, Timestamp)
    ORVO_FIELD(QString, title, Title)
    ORVO_TEXT_ENUM_FIELD(OrvoRolesType, type, Type)

    // Values, queries and actions.
    ORVO_FIELD(OrvoValue, value, Value)
    ORVO_FIELD(bool, modifiable, Modifiable)
    ORVO_FIELD(bool, internal, Internal)
    ORVO_FIELD(OrvoEdit, edit, Edit)
    ORVO_FIELD(CMPath, autoCompletePath, AutoCompletePath)
    ORVO_FIELD(QString, busyText, BusyText)
    /// A hash under the keys of CMFlags.
    ORVO_FIELD(OrvoHash, flags, Flags)

    // Containers.
    ORVO_FIELD(OrvoRoles, accept, Accept)
    ORVO_FIELD(bool, activity, Activity)
    ORVO_FIELD(OrvoRoles, cancel, Cancel)
    ORVO_FIELD(bool, containerPlayable, ContainerPlayable)
    ORVO_TEXT_ENUM_FIELD(OrvoRolesContainerType, containerType, ContainerType)
    ORVO_FIELD(bool, fillParent, FillParent)
    ORVO_FIELD(OrvoRoles, search, Search)

    // Carried in rows only.
    ORVO_FIELD(QString, albumType, AlbumType)
    ORVO_FIELD(QString, audioType, AudioType)
    ORVO_FIELD(OrvoValue, defaultValue, DefaultValue)
    ORVO_FIELD(bool, doNotTrack, DoNotTrack)
    ORVO_FIELD(QString, epgType, EpgType)
    ORVO_FIELD(QString, imageType, ImageType)
    ORVO_FIELD(QVariant, persistentMetaData, PersistentMetaData)
    ORVO_FIELD(QString, personType, PersonType)
    ORVO_FIELD(double, rating, Rating)
    ORVO_FIELD(QString, releaseDate, ReleaseDate)
    ORVO_FIELD(QString, sortKey, SortKey)
    /// The container cannot tell how many rows it has.
    ORVO_FIELD(bool, unknownSize, UnknownSize)
    ORVO_FIELD(QString, valueUnit, ValueUnit)
    ORVO_FIELD(QString, videoType, VideoType)

    // Written through set requests.
    ORVO_FIELD(OrvoOperation, valueOperation, ValueOperation)
    ORVO_FIELD(QVariant, activate, Activate)
    ORVO_FIELD(OrvoRoles, setRoles, SetRoles)
    ORVO_FIELD(OrvoValue, query, Query)
};

Q_DECLARE_METATYPE(OrvoRoles)
