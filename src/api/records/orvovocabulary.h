#pragma once

#include <QString>

// The enumerations of the records. Plain enumerators travel as numbers, and hold any number of a peer; the two role
// vocabularies travel as text.

/// What a node is: the role `type`.
struct OrvoRolesType
{
    enum Enum : int {
        None_ = 0,
        Container_ = 1,
        Image_ = 2,
        Audio_ = 3,
        Video_ = 4,
        Playlist_ = 5,
        Query_ = 6,
        Action_ = 7,
        Value_ = 101,
    };

    static QString Container() { return QStringLiteral("container"); }
    static QString Image() { return QStringLiteral("image"); }
    static QString Audio() { return QStringLiteral("audio"); }
    static QString Video() { return QStringLiteral("video"); }
    static QString Playlist() { return QStringLiteral("playlist"); }
    static QString Query() { return QStringLiteral("query"); }
    static QString Action() { return QStringLiteral("action"); }
    static QString Value() { return QStringLiteral("value"); }

    /// Empty for None_ and for numbers that are no enumerator.
    static QString toString(Enum type);
    /// None_ for a text that names no type.
    static Enum fromString(const QString& text);
};

/// What a container is for: the role `containerType`.
struct OrvoRolesContainerType
{
    enum Enum : int {
        None_ = 0,
        Context_ = 100,
        Form_ = 104,
    };

    static QString toString(Enum type);
    static Enum fromString(const QString& text);
};

/// What a list of rows is about.
struct OrvoRowsRolesType
{
    enum Enum : int {
        None_ = 0,
        Context_ = 1,
        Music_ = 2,
        Settings_ = 3,
    };
};

/// The member that an OrvoOperation holds.
struct OrvoOperationType
{
    enum Enum : int {
        Not_ = 0,
        Add = 1,
        AddSteps = 2,
    };
};

/// The kind of change that a subscription over the link is for: the numbers of CMAbstractWorker::ChangeType.
struct OrvoSubscribeType
{
    enum Enum : int {
        Value = 0,
        Data = 1,
        Rows = 2,
    };
};

/// The kind of change that a subscription of an event queue is for.
struct OrvoEventSubscribeType
{
    enum Enum : int {
        DataChanged = 1,
        RowsChanged = 2,
        ValueChanged = 13,
    };
};

struct OrvoEventItemType
{
    enum Enum : int {
        Updated = 2,
    };
};

struct OrvoEventRowsType
{
    enum Enum : int {
        Closed = 1,
        Reset = 2,
        Changed = 3,
    };
};

struct OrvoRowEventType
{
    enum Enum : int {
        Inserted = 1,
        Removed = 2,
        Updated = 3,
        Moved = 4,
    };
};

struct OrvoNetworkProfileWirelessEncryption
{
    enum Enum : int {
        None_ = 0,
        Wep = 1,
        WpaPsk = 2,
    };
};

struct OrvoPowerManagerTargets
{
    enum Enum : int {
        None_ = 0,
        On = 1,
    };
};

struct OrvoPowerManagerTargetReason
{
    enum Enum : int {
        None_ = 0,
        UserActivity = 1,
    };
};

/// The level numbers of log4cplus; Default stands for "no level of its own".
struct OrvoLogLevel
{
    enum Enum : int {
        Default = -1,
        Trace = 0,
        Debug = 10000,
        Info = 20000,
        Warn = 30000,
        Error = 40000,
        Fatal = 50000,
        Off = 60000,
    };

    /// The name in lower case; empty for Default and for numbers that are no enumerator.
    static QString toString(Enum level);
    /// In any case of letters; Default for a text that names no level.
    static Enum fromString(const QString& text);
};
