#pragma once

#include <QString>

// What the main() of a service needs before it serves.

/**
 * Everything from WARN on goes to stderr, as "LOGGER: LEVEL: TEXT"; the talkative logger, if one is named, from INFO
 * on. To be called once, ahead of all threads that log; cannot fail.
 */
void orvoLogToStderr(const QString& talkativeLogger = QString());

/// Whether the name can be the prefix of paths and part of a file's name: letters, digits, '-' and '_' of ASCII only.
bool orvoIsServiceName(const QString& name);

/**
 * Whether a living process answers at the name's socket; the file of a dead one is none. From any thread. Waits up to
 * 1 s for a process that does not take its connections, and is false after that.
 */
bool orvoIsServed(const QString& name);
