#pragma once

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

/// The one logger of this service.
inline log4cplus::Logger mediaLog()
{
    return log4cplus::Logger::getInstance("media");
}
