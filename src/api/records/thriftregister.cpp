#include "records/thriftregister.h"

#include "records/orvodevice.h"
#include "records/orvoerror.h"
#include "records/orvoevents.h"
#include "records/orvorowsroles.h"
#include "records/orvorpc.h"

#define ORVO_REGISTER(Record) qRegisterMetaType<Record>(#Record)

void ThriftRegister::registerMetaTypes()
{
    ORVO_REGISTER(OrvoHash);
    ORVO_REGISTER(OrvoValue);
    ORVO_REGISTER(OrvoEdit);
    ORVO_REGISTER(OrvoOperation);
    ORVO_REGISTER(OrvoMediaData);
    ORVO_REGISTER(OrvoRoles);
    ORVO_REGISTER(OrvoRowsRoles);
    ORVO_REGISTER(OrvoList<OrvoRowsRolesType::Enum>);
    ORVO_REGISTER(OrvoActionReply);
    ORVO_REGISTER(OrvoError);
    ORVO_REGISTER(OrvoRequest);
    ORVO_REGISTER(OrvoReply);
    ORVO_REGISTER(OrvoSubscribe);
    ORVO_REGISTER(OrvoChangeNotification);
    ORVO_REGISTER(OrvoRPCPacket);
    ORVO_REGISTER(OrvoEventSubscribe);
    ORVO_REGISTER(OrvoRowEvent);
    ORVO_REGISTER(OrvoEvent);
    ORVO_REGISTER(OrvoNetworkAddress);
    ORVO_REGISTER(OrvoNetworkInfo);
    ORVO_REGISTER(OrvoPowerManagerTarget);
}
