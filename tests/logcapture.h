#pragma once

#include <QStringList>

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>

/// Keeps the lines of one logger, as "LEVEL text", for as long as it lives; they go nowhere else meanwhile.
class LogCapture
{
public:
    explicit LogCapture(const char* loggerName, log4cplus::LogLevel level = log4cplus::TRACE_LOG_LEVEL);
    ~LogCapture();

    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    QStringList lines() const;

private:
    class Lines;

    log4cplus::Logger m_logger;
    const log4cplus::LogLevel m_level;
    const bool m_additivity;
    Lines* const m_lines;
    log4cplus::SharedAppenderPtr m_appender;
};
