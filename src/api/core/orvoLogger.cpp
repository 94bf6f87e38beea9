#include "core/orvoLogger.h"

#include "core/orvo.h"
#include "core/orvoNamedPipe.h"

#include <QFile>
#include <QFileSystemWatcher>
#include <QSocketNotifier>
#include <QTimer>

#include <log4cplus/configurator.h>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace {

constexpr int missingFilePollMs = 1000;

struct PipeLevel
{
    const char* name;
    log4cplus::LogLevel level;
};

constexpr PipeLevel pipeLevels[] = {
    {"FATAL", log4cplus::FATAL_LOG_LEVEL}, {"ERROR", log4cplus::ERROR_LOG_LEVEL}, {"WARN", log4cplus::WARN_LOG_LEVEL},
    {"INFO", log4cplus::INFO_LOG_LEVEL},   {"DEBUG", log4cplus::DEBUG_LOG_LEVEL}, {"TRACE", log4cplus::TRACE_LOG_LEVEL},
};

log4cplus::tstring loggerName(const QByteArray& utf8)
{
    return log4cplus::tstring(utf8.constData(), size_t(utf8.size()));
}

/// Copies the lines; the first one that begins with the key is replaced. False when it cannot be read or written.
bool copyWithLine(QFile& from, QFile& to, const QByteArray& key, const QByteArray& value, bool* replaced)
{
    *replaced = false;
    while (!from.atEnd()) {
        QByteArray line = from.readLine();
        if (!*replaced && line.trimmed().startsWith(key)) {
            line = key + value + '\n';
            *replaced = true;
        }
        if (to.write(line) != line.size())
            return false;
    }
    return from.error() == QFile::NoError && to.flush();
}

} // namespace

OrvoLogger::OrvoLogger() : m_loggerConfigTimer(new QTimer(this)), m_loggerWatcher(new QFileSystemWatcher(this))
{
    m_loggerConfigTimer->setInterval(missingFilePollMs);
    m_loggerConfigTimer->setSingleShot(true);
    orvoConnect(m_loggerConfigTimer, SIGNAL(timeout()), this, SLOT(on_loggerConfigTimer_timeout()));
    orvoConnect(m_loggerWatcher, SIGNAL(fileChanged(QString)), this, SLOT(on_loggerWatcher_changed(QString)));
}

OrvoLogger* OrvoLogger::instance()
{
    static auto* const m_instance = new OrvoLogger;
    return m_instance;
}

void OrvoLogger::loadConfiguration(const QString& file, bool noAdditivity)
{
    if (file != m_configFilePath) {
        if (!m_configFilePath.isEmpty()) {
            m_loggerConfigTimer->stop();
            m_loggerWatcher->removePath(m_configFilePath);
        }
        m_loggerWatcher->addPath(file);
    }
    m_configFilePath = file;
    log4cplus::PropertyConfigurator::doConfigure(QFile::encodeName(file).toStdString());
    if (noAdditivity) {
        for (log4cplus::Logger& each : log4cplus::Logger::getCurrentLoggers())
            each.setAdditivity(false);
    }
}

void OrvoLogger::reload()
{
    loadConfiguration(m_configFilePath, true);
    emit configurationChanged();
}

void OrvoLogger::on_loggerWatcher_changed(QString)
{
    m_loggerConfigTimer->stop();
    if (m_loggerWatcher->files().isEmpty())
        m_loggerConfigTimer->start();
    else
        reload();
}

void OrvoLogger::on_loggerConfigTimer_timeout()
{
    if (QFile::exists(m_configFilePath)) {
        m_loggerWatcher->addPath(m_configFilePath);
        reload();
    } else {
        m_loggerConfigTimer->start();
    }
}

QStringList OrvoLogger::loggers() const
{
    QStringList names;
    for (const log4cplus::Logger& each : log4cplus::Logger::getCurrentLoggers())
        names.append(QString::fromStdString(each.getName()));
    names.sort();
    return names;
}

int OrvoLogger::logLevel(const QString& logger) const
{
    return log4cplus::Logger::getInstance(loggerName(logger.toUtf8())).getLogLevel();
}

bool OrvoLogger::setLogLevel(const QString& logger, OrvoLogLevel::Enum level)
{
    if (!loggers().contains(logger))
        return false;
    const QString levelName = OrvoLogLevel::toString(level == OrvoLogLevel::Default ? OrvoLogLevel::Info : level);
    if (levelName.isEmpty())
        return false;
    QFile file(m_configFilePath);
    QFile temporary(m_configFilePath + QLatin1String("_tmp"));
    if (!file.open(QIODevice::ReadOnly) || !temporary.open(QIODevice::WriteOnly))
        return false;
    // Who could read the file can read it still.
    temporary.setPermissions(file.permissions());

    const QByteArray key = "log4cplus.logger." + logger.toUtf8() + '=';
    bool replaced = false;
    const bool written = copyWithLine(file, temporary, key, levelName.toUpper().toUtf8() + ", console", &replaced);
    temporary.close();
    if (!written || rename(QFile::encodeName(temporary.fileName()), QFile::encodeName(m_configFilePath)) != 0) {
        temporary.remove();
        return false;
    }
    return replaced;
}

void OrvoLogger::disable()
{
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.setLogLevel(log4cplus::OFF_LOG_LEVEL);
}

bool OrvoLogger::startExternalListener(const QString& pipeName)
{
    if (m_externalListenerPipe)
        return true;
    // Open in both directions, so that the stream does not end when its last writer goes.
    m_externalListenerPipe = new OrvoNamedPipe(pipeName, 3, this, true);
    m_externalListenerPipe->setNonBlock(true);
    if (!m_externalListenerPipe->create() || !m_externalListenerPipe->open(false)) {
        delete m_externalListenerPipe;
        m_externalListenerPipe = nullptr;
        return false;
    }
    QSocketNotifier* const notifier = m_externalListenerPipe->readNotifier();
    orvoConnect(notifier, SIGNAL(activated(int)), this, SLOT(on_externalListenerPipeNotifier_activated(int)));
    notifier->setEnabled(true);
    return true;
}

void OrvoLogger::on_externalListenerPipeNotifier_activated(int)
{
    static char s_buffer[1024];
    static QByteArray s_input;

    const int count = m_externalListenerPipe->read(s_buffer, int(sizeof s_buffer) - 1);
    if (count < 1) {
        m_externalListenerPipe->readNotifier()->setEnabled(false);
        return;
    }
    s_input.append(s_buffer, count);
    // A long line comes in many pieces: do not walk over all of it for each.
    if (!std::count(s_buffer, s_buffer + count, '\n'))
        return;

    for (int end = s_input.indexOf('\n'); end >= 0; end = s_input.indexOf('\n')) {
        const QByteArray line = s_input.left(end);
        s_input.remove(0, end + 1);
        const int nameEnd = line.indexOf(' ');
        if (nameEnd < 1)
            continue;
        int levelEnd = line.indexOf(' ', nameEnd + 1);
        if (levelEnd < 0)
            levelEnd = line.size();
        const QByteArray levelName = line.mid(nameEnd + 1, levelEnd - nameEnd - 1);
        const auto* const level = std::find_if(std::begin(pipeLevels), std::end(pipeLevels),
                                               [&](const PipeLevel& each) { return levelName == each.name; });
        if (level == std::end(pipeLevels))
            continue;
        const auto target = log4cplus::Logger::getInstance(loggerName(line.left(nameEnd)));
        if (target.isEnabledFor(level->level))
            target.forcedLog(level->level, line.mid(levelEnd + 1).toStdString(), __FILE__, __LINE__,
                             LOG4CPLUS_MACRO_FUNCTION());
    }
}
