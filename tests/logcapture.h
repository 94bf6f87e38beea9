#pragma once

#include <QMutex>
#include <QMutexLocker>
#include <QString>
#include <QStringList>

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

/// Keeps the lines of one logger, as "LEVEL text", for as long as it lives; they go nowhere else meanwhile.
class LogCapture
{
public:
    explicit LogCapture(const char* loggerName, log4cplus::LogLevel level = log4cplus::TRACE_LOG_LEVEL)
        : m_logger(log4cplus::Logger::getInstance(loggerName)),
          m_level(m_logger.getLogLevel()),
          m_additivity(m_logger.getAdditivity()),
          m_lines(new Lines),
          m_appender(m_lines)
    {
        m_logger.setAdditivity(false);
        m_logger.setLogLevel(level);
        m_logger.addAppender(m_appender);
    }

    ~LogCapture()
    {
        m_logger.removeAppender(m_appender);
        m_logger.setLogLevel(m_level);
        m_logger.setAdditivity(m_additivity);
    }

    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    QStringList lines() const
    {
        const QMutexLocker locker(&m_lines->mutex);
        return m_lines->lines;
    }

private:
    class Lines : public log4cplus::Appender
    {
    public:
        ~Lines() override { destructorImpl(); }
        void close() override {}

        mutable QMutex mutex;
        QStringList lines;

    protected:
        void append(const log4cplus::spi::InternalLoggingEvent& event) override
        {
            const QMutexLocker locker(&mutex);
            const std::string level = log4cplus::getLogLevelManager().toString(event.getLogLevel());
            lines.append(QString::fromStdString(level + " " + event.getMessage()));
        }
    };

    log4cplus::Logger m_logger;
    const log4cplus::LogLevel m_level;
    const bool m_additivity;
    Lines* const m_lines;
    log4cplus::SharedAppenderPtr m_appender;
};
