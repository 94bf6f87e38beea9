#pragma once

#include "core/model/cmreply.h"

#include <QStringList>

class CMPath;

namespace log4cplus {
class Logger;
}

/**
 * Reads the roles of a node that another one refers to. Blocks for up to 2,000 ms; a reply that has not come by then
 * ends with the internal error "Timeout", and every failure is logged with `what` ahead of it.
 */
CMReply<QVariantList> readReference(const CMPath& path, const QStringList& roles, const log4cplus::Logger& logger,
                                    const char* what);
