#pragma once

#include "records/orvorecord.h"
#include "records/orvovocabulary.h"

// What the device's network and power services publish.

class OrvoNetworkAddress : public OrvoHash
{
    ORVO_RECORD(OrvoNetworkAddress)
    ORVO_FIELD(QString, ip, Ip)
    /// 0 is IPv4.
    ORVO_FIELD(int, protocol, Protocol)
};

class OrvoNetworkWiredInterface : public OrvoHash
{
    ORVO_RECORD(OrvoNetworkWiredInterface)
    ORVO_FIELD(OrvoList<OrvoNetworkAddress>, addresses, Addresses)
};

class OrvoNetworkWirelessInterface : public OrvoHash
{
    ORVO_RECORD(OrvoNetworkWirelessInterface)
    ORVO_FIELD(OrvoList<OrvoNetworkAddress>, addresses, Addresses)
};

class OrvoNetworkInfo : public OrvoHash
{
    ORVO_RECORD(OrvoNetworkInfo)
    ORVO_FIELD(OrvoNetworkWiredInterface, wired, Wired)
    ORVO_FIELD(OrvoNetworkWirelessInterface, wireless, Wireless)
    ORVO_FIELD(OrvoList<OrvoNetworkAddress>, dns, Dns)
    ORVO_FIELD(OrvoList<OrvoNetworkAddress>, gateways, Gateways)
};

/// A wish for a power state, and why.
class OrvoPowerManagerTarget : public OrvoHash
{
    ORVO_RECORD(OrvoPowerManagerTarget)
    ORVO_FIELD(OrvoPowerManagerTargets::Enum, target, Target)
    ORVO_FIELD(OrvoPowerManagerTargetReason::Enum, reason, Reason)
};

Q_DECLARE_METATYPE(OrvoNetworkAddress)
Q_DECLARE_METATYPE(OrvoNetworkInfo)
Q_DECLARE_METATYPE(OrvoPowerManagerTarget)
