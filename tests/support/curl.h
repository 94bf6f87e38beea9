#pragma once

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStringList>

/// What a request got; status 0 when there was no answer.
struct HttpAnswer
{
    int status = 0;
    QByteArray body;

    QJsonObject json() const { return QJsonDocument::fromJson(body).object(); }
    QJsonArray list(const char* key) const { return json().value(QLatin1String(key)).toArray(); }
    QString text(const char* key) const { return json().value(QLatin1String(key)).toString(); }
    QString error() const { return text("name"); }
};

constexpr int gatewayPatienceMs = 30000;

/// A request that curl sends, to be waited for or not.
class Curl
{
public:
    explicit Curl(const QStringList& arguments, const QByteArray& input = QByteArray())
    {
        m_process.start(QStringLiteral("curl"), QStringList{"-sS", "-m", "60", "-w", "\n%{http_code}"} + arguments);
        m_process.write(input);
        m_process.closeWriteChannel();
    }
    ~Curl()
    {
        m_process.kill();
        m_process.waitForFinished();
    }

    bool isFinished() { return m_process.state() == QProcess::NotRunning || m_process.waitForFinished(1); }
    /// As a client that goes away.
    void hangUp()
    {
        m_process.kill();
        m_process.waitForFinished();
    }
    HttpAnswer answer()
    {
        if (m_process.state() != QProcess::NotRunning)
            m_process.waitForFinished(gatewayPatienceMs);
        HttpAnswer answer;
        const QByteArray out = m_process.readAllStandardOutput();
        const int newline = out.lastIndexOf('\n');
        answer.status = out.mid(newline + 1).toInt();
        answer.body = out.left(newline);
        return answer;
    }

private:
    QProcess m_process;
};
