#pragma once

#include <QString>

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include <ostream>

/// The one logger of the supervisor itself; those of supervision are "AppWatchdog" and "AppWatchdogMonitor".
inline log4cplus::Logger supervisorLog()
{
    return log4cplus::Logger::getInstance("supervisor");
}

inline std::ostream& operator<<(std::ostream& stream, const QString& text)
{
    return stream << text.toStdString();
}
