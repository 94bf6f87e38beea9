#include "orvoserviceprocess.h"

#include "core/model/cmrpccommon.h"

#include <QLocalSocket>

#include <log4cplus/configurator.h>

#include <algorithm>

void orvoLogToStderr(const QString& talkativeLogger)
{
    log4cplus::helpers::Properties properties;
    properties.setProperty("log4cplus.rootLogger", "WARN, console");
    if (!talkativeLogger.isEmpty())
        properties.setProperty("log4cplus.logger." + talkativeLogger.toStdString(), "INFO");
    properties.setProperty("log4cplus.appender.console", "log4cplus::ConsoleAppender");
    properties.setProperty("log4cplus.appender.console.logToStdErr", "true");
    properties.setProperty("log4cplus.appender.console.ImmediateFlush", "true");
    properties.setProperty("log4cplus.appender.console.layout", "log4cplus::PatternLayout");
    properties.setProperty("log4cplus.appender.console.layout.ConversionPattern", "%c: %p: %m%n");
    log4cplus::PropertyConfigurator(properties).configure();
}

bool orvoIsServiceName(const QString& name)
{
    return !name.isEmpty() && std::all_of(name.cbegin(), name.cend(), [](const QChar& c) {
        return (c.unicode() < 128 && c.isLetterOrNumber()) || c == QLatin1Char('-') || c == QLatin1Char('_');
    });
}

bool orvoIsServed(const QString& name)
{
    constexpr int connectMs = 1000;
    QLocalSocket socket;
    socket.connectToServer(CMRPCSocket::socketPathFromPrefix(name));
    return socket.waitForConnected(connectMs);
}
