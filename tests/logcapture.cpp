#include "logcapture.h"

#include <QMutex>
#include <QMutexLocker>
#include <QString>

#include <log4cplus/spi/loggingevent.h>

class LogCapture::Lines : public log4cplus::Appender
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

LogCapture::LogCapture(const char* loggerName, log4cplus::LogLevel level)
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

LogCapture::~LogCapture()
{
    m_logger.removeAppender(m_appender);
    m_logger.setLogLevel(m_level);
    m_logger.setAdditivity(m_additivity);
}

QStringList LogCapture::lines() const
{
    const QMutexLocker locker(&m_lines->mutex);
    return m_lines->lines;
}
