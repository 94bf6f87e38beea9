#pragma once

#include "core/model/cmpath.h"
#include "records/orvoerror.h"
#include "records/orvorecord.h"
#include "records/orvovocabulary.h"

// The packets of the link between processes. Each union-like record holds one of its members.

class OrvoGetDataRequest : public OrvoHash
{
    ORVO_RECORD(OrvoGetDataRequest)
    ORVO_FIELD(CMPath, path, Path)
    ORVO_FIELD(OrvoList<QString>, roles, Roles)
};

class OrvoSetDataRequest : public OrvoHash
{
    ORVO_RECORD(OrvoSetDataRequest)
    ORVO_FIELD(CMPath, path, Path)
    ORVO_FIELD(QString, role, Role)
    ORVO_FIELD(QVariant, value, Value)
};

class OrvoGetRowsRequest : public OrvoHash
{
    ORVO_RECORD(OrvoGetRowsRequest)
    ORVO_FIELD(CMPath, path, Path)
    ORVO_FIELD(int, fromRow, FromRow)
    ORVO_FIELD(int, toRow, ToRow)
    ORVO_FIELD(int, rowsVersion, RowsVersion)
    ORVO_FIELD(OrvoList<QString>, roles, Roles)
};

class OrvoMatchRowsRequest : public OrvoHash
{
    ORVO_RECORD(OrvoMatchRowsRequest)
    ORVO_FIELD(CMPath, path, Path)
    ORVO_FIELD(int, fromRow, FromRow)
    ORVO_FIELD(QString, role, Role)
    ORVO_FIELD(QVariant, value, Value)
    ORVO_FIELD(int, matchFlags, MatchFlags)
    ORVO_FIELD(int, rowsVersion, RowsVersion)
};

/// One of the four requests under an id, or a cancel of the request with that id.
class OrvoRequest : public OrvoHash
{
    ORVO_RECORD(OrvoRequest)
    ORVO_FIELD(QString, id, Id)
    ORVO_FIELD(bool, cancel, Cancel)
    ORVO_FIELD(OrvoGetDataRequest, getDataRequest, GetDataRequest)
    ORVO_FIELD(OrvoSetDataRequest, setDataRequest, SetDataRequest)
    ORVO_FIELD(OrvoGetRowsRequest, getRowsRequest, GetRowsRequest)
    ORVO_FIELD(OrvoMatchRowsRequest, matchRowsRequest, MatchRowsRequest)
};

/// The id of a request with its value (JSON null when it has no payload) or its error.
class OrvoReply : public OrvoHash
{
    ORVO_RECORD(OrvoReply)
    ORVO_FIELD(QString, id, Id)
    ORVO_FIELD(QVariant, value, Value)
    ORVO_FIELD(OrvoError, error, Error)
};

class OrvoSubscribe : public OrvoHash
{
    ORVO_RECORD(OrvoSubscribe)
    ORVO_FIELD(CMPath, path, Path)
    ORVO_FIELD(OrvoSubscribeType::Enum, type, Type)
    /// False ends the subscription.
    ORVO_FIELD(bool, subscribe, Subscribe)
};

class OrvoValueChangeNotification : public OrvoHash
{
    ORVO_RECORD(OrvoValueChangeNotification)
    ORVO_FIELD(CMPath, path, Path)
    ORVO_FIELD(QVariant, value, Value)
};

class OrvoDataChangeNotification : public OrvoHash
{
    ORVO_RECORD(OrvoDataChangeNotification)
    ORVO_FIELD(CMPath, path, Path)
};

class OrvoRowsChangeNotification : public OrvoHash
{
    ORVO_RECORD(OrvoRowsChangeNotification)
    ORVO_FIELD(CMPath, path, Path)
    ORVO_FIELD(OrvoList<QString>, changes, Changes)
    ORVO_FIELD(int, version, Version)
    ORVO_FIELD(int, oldVersion, OldVersion)
};

class OrvoChangeNotification : public OrvoHash
{
    ORVO_RECORD(OrvoChangeNotification)
    ORVO_FIELD(OrvoValueChangeNotification, valueChanged, ValueChanged)
    ORVO_FIELD(OrvoDataChangeNotification, dataChanged, DataChanged)
    ORVO_FIELD(OrvoRowsChangeNotification, rowsChanged, RowsChanged)
};

/// A JSON object with one member.
class OrvoRPCPacket : public OrvoHash
{
    ORVO_RECORD(OrvoRPCPacket)
    ORVO_FIELD(OrvoRequest, request, Request)
    ORVO_FIELD(OrvoReply, reply, Reply)
    ORVO_FIELD(OrvoSubscribe, subscribe, Subscribe)
    ORVO_FIELD(OrvoChangeNotification, change, Change)
};

Q_DECLARE_METATYPE(OrvoRequest)
Q_DECLARE_METATYPE(OrvoReply)
Q_DECLARE_METATYPE(OrvoSubscribe)
Q_DECLARE_METATYPE(OrvoChangeNotification)
Q_DECLARE_METATYPE(OrvoRPCPacket)
