#pragma once

#include "cmremoteworker.h"
#include "core/model/cmrequest.h"
#include "core/model/cmrpccommon.h"
#include "core/orvo.h"
#include "records/orvoroles.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <memory>

/// How an action was answered.
struct Answer
{
    bool isFinished = false;
    QString error;
};

/// A supervisor in a process of its own, with a folder, a name and a link of its own. Ended, it leaves nothing behind.
class Device
{
public:
    Device() : m_name(QStringLiteral("suptest-%1-%2").arg(QCoreApplication::applicationPid()).arg(++s_count)) {}

    ~Device()
    {
        if (m_process.state() == QProcess::NotRunning)
            return;
        m_process.terminate();
        m_process.waitForFinished();
    }

    bool start(const QJsonArray& services)
    {
        QFile config(file("services.json"));
        if (!config.open(QIODevice::WriteOnly))
            return false;
        config.write(QJsonDocument(QJsonObject{{"services", services}}).toJson());
        config.close();
        m_process.setStandardErrorFile(file("log"));
        m_process.start(ORVO_TEST_SUPERVISOR, {"--name", m_name, config.fileName()});
        m_worker = std::make_unique<CMRemoteWorker>("suptest", m_name);
        return m_process.waitForStarted();
    }

    QString name() const { return m_name; }
    QString file(const QString& name) const { return m_folder.filePath(name); }
    QString socket() const { return CMRPCSocket::socketPathFromPrefix(m_name); }
    QProcess& process() { return m_process; }
    bool signal(int number) { return m_process.processId() > 0 && kill(pid_t(m_process.processId()), number) == 0; }
    /// The supervisor's own lines, without what stands ahead of each.
    QStringList lines() const
    {
        QStringList own;
        QFile log(file("log"));
        if (!log.open(QIODevice::ReadOnly))
            return own;
        for (const QString& line : QString::fromUtf8(log.readAll()).split('\n'))
            if (line.startsWith("supervisor: "))
                own.append(line.section(": ", 2));
        return own;
    }

    /// As a text; null when it was not answered.
    QString read(const QString& base)
    {
        const CMReply<QVariantList> reply = m_worker->getData(path(base), {OrvoRoles::Value()});
        if (!QTest::qWaitFor([&] { return reply.isFinished(); }, 20000) || reply.error().isError())
            return QString();
        return orvoValueToQString(OrvoValue(reply.value().value(0).toHash()));
    }
    QString state(const QString& id) { return read(id + "/state"); }
    int pid(const QString& id) { return read(id + "/pid").toInt(); }
    int restarts(const QString& id) { return read(id + "/restarts").toInt(); }

    CMReply<QVariant> ask(const QString& base) { return m_worker->invoke(path(base), QVariant(true)); }
    Answer invoke(const QString& base)
    {
        const CMReply<QVariant> reply = ask(base);
        Answer answer;
        answer.isFinished = QTest::qWaitFor([&] { return reply.isFinished(); }, 20000);
        if (answer.isFinished)
            answer.error = reply.error().message();
        return answer;
    }

    /// Whether it ended with success after SIGTERM, and took its socket along.
    bool stop()
    {
        m_worker.reset();
        return signal(SIGTERM) && hasEnded();
    }
    bool hasEnded()
    {
        return (m_process.state() == QProcess::NotRunning || m_process.waitForFinished())
               && m_process.exitStatus() == QProcess::NormalExit && m_process.exitCode() == 0
               && !QFile::exists(socket());
    }

private:
    CMPath path(const QString& base) const { return CMPath::fromPrefix(m_name) + "services/" + base; }

    static inline int s_count = 0;
    const QString m_name;
    QTemporaryDir m_folder;
    QProcess m_process;
    std::unique_ptr<CMRemoteWorker> m_worker;
};
