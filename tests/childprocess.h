#pragma once

#include <QByteArray>
#include <QCoreApplication>
#include <QProcess>
#include <QStringList>

#include <sys/resource.h>

/// How this test program ended when it was run again with the arguments.
struct ChildEnd
{
    /// An assertion or a signal stopped it.
    bool stopped = false;
    int exitCode = -1;
    QByteArray errors;
};

inline ChildEnd runThisProgram(const QStringList& arguments)
{
    QProcess child;
    child.start(QCoreApplication::applicationFilePath(), arguments);
    ChildEnd end;
    if (child.waitForFinished()) {
        end.stopped = child.exitStatus() == QProcess::CrashExit;
        end.exitCode = child.exitCode();
    }
    end.errors = child.readAllStandardError();
    return end;
}

/// For a child that is meant to stop: no core file.
inline void leaveNoCore()
{
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
}
