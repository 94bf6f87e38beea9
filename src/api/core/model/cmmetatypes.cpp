#include "core/model/cmmetatypes.h"

#include "core/model/cmdatatransfer.h"
#include "core/model/cmrequest.h"
#include "core/orvoUrl.h"
#include "records/thriftregister.h"

void orvoRegisterMetaTypes()
{
    ThriftRegister::registerMetaTypes();
    qRegisterMetaType<CMRequest>("CMRequest");
    qRegisterMetaType<CMGetDataRequest>("CMGetDataRequest");
    qRegisterMetaType<CMGetRowsRequest>("CMGetRowsRequest");
    qRegisterMetaType<CMMatchRowRequest>("CMMatchRowRequest");
    qRegisterMetaType<CMSetDataRequest>("CMSetDataRequest");
    qRegisterMetaType<CMBufferedDataTransfer>("CMBufferedDataTransfer");
    qRegisterMetaType<CMUnbufferedDataTransfer>("CMUnbufferedDataTransfer");
    qRegisterMetaType<CMVoidReply>("CMVoidReply");
    qRegisterMetaType<CMError>("CMError");
    qRegisterMetaType<QVariant>("QVariant");
    qRegisterMetaType<OrvoUrl>("OrvoUrl");
    qRegisterMetaType<CMPath>("CMPath");
    qRegisterMetaType<CMPath::Params>("CMPath::Params");
}
