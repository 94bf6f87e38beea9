#pragma once

#include "support/curl.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <csignal>
#include <memory>
#include <unistd.h>

/// A service process and an orvo-gateway process in front of it.
class GatewayFixture
{
public:
    explicit GatewayFixture(const char* name) : m_name(QStringLiteral("%1%2x").arg(QLatin1String(name)).arg(getpid()))
    {}
    ~GatewayFixture()
    {
        stopGateway();
        killService();
    }

    bool startService()
    {
        m_service.start(ORVO_TEST_CTLSERVICE, {m_name});
        return m_service.waitForReadyRead(gatewayPatienceMs);
    }
    void killService()
    {
        m_service.kill();
        m_service.waitForFinished();
        m_service.readAll();
    }
    bool startGateway(const QStringList& arguments)
    {
        m_gateway.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_gateway.start(ORVO_TEST_GATEWAY, QStringList{"--listen", "127.0.0.1:0"} + arguments);
        if (!m_gateway.waitForReadyRead(gatewayPatienceMs))
            return false;
        m_url = m_gateway.readLine().trimmed();
        return m_url.startsWith("http://127.0.0.1:");
    }
    /// Its exit status; -1 when it did not end by itself.
    int stopGateway()
    {
        if (m_gateway.state() == QProcess::NotRunning)
            return -1;
        ::kill(pid_t(m_gateway.processId()), SIGTERM);
        const bool ended = m_gateway.waitForFinished(gatewayPatienceMs);
        return ended && m_gateway.exitStatus() == QProcess::NormalExit ? m_gateway.exitCode() : -1;
    }

    const QString& name() const { return m_name; }
    QProcess& service() { return m_service; }
    QProcess& gateway() { return m_gateway; }
    QString url() const { return QString::fromLatin1(m_url); }
    quint16 port() const { return m_url.mid(m_url.lastIndexOf(':') + 1).chopped(1).toUShort(); }
    /// The service's name in the place of "@".
    QString named(QString text) const { return text.replace(QLatin1Char('@'), m_name); }
    QString at(const QString& target) const { return url().chopped(1) + named(target); }

    /// JSON written with single quotes, for the sake of reading.
    QString json(const QString& text) const { return named(text).replace(QLatin1Char('\''), QLatin1Char('"')); }

    HttpAnswer get(const QString& target) const { return Curl({"-g", at(target)}).answer(); }
    HttpAnswer post(const QString& target, const QByteArray& body) const
    {
        return Curl({"--data-binary", "@-", at(target)}, json(QString::fromUtf8(body)).toUtf8()).answer();
    }
    HttpAnswer setVolume(int volume) const
    {
        return post("/api/setData", "{'path':'@:volume','role':'value','value':{'type':'i32_','i32_':"
                                        + QByteArray::number(volume) + "}}");
    }
    int volume() const
    {
        const QJsonArray values = get("/api/getData?path=@:volume&roles=value").list("values");
        return values.at(0).toObject().value("i32_").toInt(-1);
    }
    /// The id of a new queue with one subscription.
    QString watch(const QByteArray& path, int type) const
    {
        return post("/api/event/modifyQueue",
                    "{'subscribes':[{'path':'" + path + "','type':" + QByteArray::number(type) + "}]}")
            .text("queueId");
    }
    QString pollTarget(const QString& queueId, int timeout = 0) const
    {
        return QStringLiteral("/api/event/pollQueue?queueId=%1&timeout=%2").arg(queueId).arg(timeout);
    }
    HttpAnswer poll(const QString& queueId, int timeout = 0) const { return get(pollTarget(queueId, timeout)); }
    std::unique_ptr<Curl> startPoll(const QString& queueId, int timeout = 60) const
    {
        return std::make_unique<Curl>(QStringList{"-g", at(pollTarget(queueId, timeout))});
    }

    int entries(const char* folder) const
    {
        return QDir(QStringLiteral("/proc/%1/%2").arg(m_gateway.processId()).arg(QLatin1String(folder)))
            .entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::System)
            .size();
    }
    int descriptors() const { return entries("fd"); }
    /// When connections that are about to be closed are gone.
    int settledDescriptors() const
    {
        int before = -1;
        for (int now = descriptors(); now != before; now = descriptors()) {
            before = now;
            QTest::qWait(100);
        }
        return before;
    }
    int threads() const { return entries("task"); }
    qint64 residentBytes() const
    {
        QFile file(QStringLiteral("/proc/%1/statm").arg(m_gateway.processId()));
        if (!file.open(QIODevice::ReadOnly))
            return -1;
        return file.readAll().split(' ').value(1).toLongLong() * sysconf(_SC_PAGESIZE);
    }

private:
    const QString m_name;
    QProcess m_service;
    QProcess m_gateway;
    QByteArray m_url;
};
