#pragma once

#include <QByteArray>
#include <QString>

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include <ostream>

/**
 * Logging inside the library: ORVO_LOGGER("CMPath") at namespace scope, then LOG4CPLUS_WARN(logger(), "text " <<
 * value).
 *
 * The logger is looked up once and never destroyed, so that it may be used while the process ends. It is not const, as
 * the macros would copy a const one for each line, printed or not.
 */
#define ORVO_LOGGER(name)                                                                                              \
    [[maybe_unused]] log4cplus::Logger& logger()                                                                       \
    {                                                                                                                  \
        static auto* const instance = new log4cplus::Logger(log4cplus::Logger::getInstance(LOG4CPLUS_TEXT(name)));     \
        return *instance;                                                                                              \
    }

inline std::ostream& operator<<(std::ostream& stream, const QByteArray& bytes)
{
    return stream.write(bytes.constData(), bytes.size());
}

inline std::ostream& operator<<(std::ostream& stream, const QString& text)
{
    return stream << text.toUtf8();
}
