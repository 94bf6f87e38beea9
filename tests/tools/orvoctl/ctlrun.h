#pragma once

#include <QByteArray>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStringList>

#include <csignal>
#include <memory>

/// How a run of the tool ended and what it wrote.
struct Run
{
    int status = -1;
    QByteArray out;
    QByteArray err;

    QJsonObject json() const { return QJsonDocument::fromJson(out).object(); }
    QList<QByteArray> lines() const { return out.trimmed().split('\n'); }
};

constexpr int longEnoughMs = 20000;

inline Run end(QProcess& process)
{
    Run run;
    const bool ended = process.state() == QProcess::NotRunning || process.waitForFinished(longEnoughMs);
    if (ended && process.exitStatus() == QProcess::NormalExit)
        run.status = process.exitCode();
    run.out = process.readAllStandardOutput();
    run.err = process.readAllStandardError();
    return run;
}

inline Run orvoctl(const QStringList& arguments)
{
    QProcess process;
    process.start(ORVO_TEST_ORVOCTL, arguments);
    return end(process);
}

inline Run bash(const QString& script)
{
    QProcess process;
    process.start(QStringLiteral("bash"), {QStringLiteral("-c"), script});
    return end(process);
}

/// What bash's completion offers for the line, by the installed script.
inline QStringList completions(const QString& line)
{
    const QString script = QStringLiteral("source '%1'; PATH='%2':$PATH; COMP_LINE='%3'; COMP_POINT=${#COMP_LINE}; "
                                          "_orvoctl; printf '%s\\n' \"${COMPREPLY[@]}\"")
                               .arg(ORVO_TEST_COMPLETION, QFileInfo(ORVO_TEST_ORVOCTL).path(), line);
    const Run run = bash(script);
    return run.err.isEmpty() ? QString::fromUtf8(run.out).split('\n', Qt::SkipEmptyParts)
                             : QStringList(QString::fromUtf8(run.err));
}

/// A run that goes on; what it has written so far.
class Running
{
public:
    explicit Running(const QStringList& arguments) { m_process.start(ORVO_TEST_ORVOCTL, arguments); }

    QProcess& process() { return m_process; }
    QByteArray out()
    {
        m_process.waitForReadyRead(10);
        return m_out += m_process.readAllStandardOutput();
    }
    QByteArray err() { return m_err += m_process.readAllStandardError(); }
    int stop(int signal)
    {
        kill(pid_t(m_process.processId()), signal);
        return m_process.waitForFinished(longEnoughMs) && m_process.exitStatus() == QProcess::NormalExit
                   ? m_process.exitCode()
                   : -1;
    }

private:
    QProcess m_process;
    QByteArray m_out;
    QByteArray m_err;
};

/// Whether the process has a handler for the signal.
inline bool catches(qint64 pid, int signal)
{
    QFile file(QStringLiteral("/proc/%1/status").arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return false;
    for (const QByteArray& line : file.readAll().split('\n'))
        if (line.startsWith("SigCgt:"))
            return line.mid(7).trimmed().toULongLong(nullptr, 16) >> (signal - 1) & 1;
    return false;
}

/// The service of the tests, listening; null when it did not start.
inline std::unique_ptr<QProcess> startCtlService(const QString& name)
{
    std::unique_ptr<QProcess> service(new QProcess);
    service->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    service->start(ORVO_TEST_CTLSERVICE, {name});
    if (!service->waitForReadyRead(longEnoughMs) || service->readLine() != "ready\n")
        service.reset();
    return service;
}
