#include "core/model/nodes/cmreference_p.h"

#include "core/model/cmabstractworker.h"
#include "core/model/cmpath.h"
#include "core/model/cmroot.h"
#include "core/orvoLog_p.h"

namespace {

constexpr unsigned long referenceTimeoutMs = 2000;

} // namespace

CMReply<QVariantList> readReference(const CMPath& path, const QStringList& roles, const log4cplus::Logger& logger,
                                    const char* what)
{
    CMReply<QVariantList> reply = CMRoot()->getData(path, roles);
    if (!reply.waitForFinished(referenceTimeoutMs))
        reply.setError(CMAbstractWorker::createErrorInternal(QStringLiteral("Timeout")));
    const CMError error = reply.error();
    if (error.isError())
        LOG4CPLUS_ERROR(logger, what << path << ' ' << error.name() << ": " << error.message());
    return reply;
}
