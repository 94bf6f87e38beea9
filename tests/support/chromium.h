#pragma once

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

/**
 * A headless Chromium that shows one page, and what a script in that page says.
 *
 * Speaks the debugging protocol over two pipes, which Chromium expects as its descriptors 3 and 4; each message ends
 * with a NUL. The calls block.
 */
class Chromium : private QProcess
{
public:
    ~Chromium() override
    {
        call("Browser.close", {});
        waitForFinished(5000);
        kill();
        waitForFinished();
        for (const int fd : {m_toBrowser[1], m_fromBrowser[0]})
            ::close(fd);
    }

    bool open(const QString& url)
    {
        if (pipe2(m_toBrowser, O_CLOEXEC) != 0 || pipe2(m_fromBrowser, O_CLOEXEC) != 0)
            return false;
        setStandardErrorFile(QProcess::nullDevice());
        start(ORVO_TEST_CHROMIUM,
              {"--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run",
               "--remote-debugging-pipe", "--user-data-dir=" + m_folder.path(), "about:blank"});
        const bool started = waitForStarted();
        ::close(m_toBrowser[0]);
        ::close(m_fromBrowser[1]);
        if (!started)
            return false;
        const QJsonObject target = call("Target.createTarget", {{"url", url}});
        m_session = call("Target.attachToTarget", {{"targetId", target.value("targetId")}, {"flatten", true}})
                        .value("sessionId")
                        .toString();
        return !m_session.isEmpty();
    }

    /// The value of the expression; what it throws is undefined here.
    QJsonValue evaluate(const QString& expression)
    {
        return call("Runtime.evaluate", {{"expression", expression}, {"returnByValue", true}})
            .value("result")
            .toObject()
            .value("value");
    }

protected:
    void setupChildProcess() override
    {
        // Copies above 4 first, so that neither end is overwritten by the other's place.
        const int in = fcntl(m_toBrowser[0], F_DUPFD, 10);
        const int out = fcntl(m_fromBrowser[1], F_DUPFD, 10);
        dup2(in, 3);
        dup2(out, 4);
        ::close(in);
        ::close(out);
    }

private:
    QJsonObject call(const char* method, const QJsonObject& parameters)
    {
        QJsonObject message{{"id", ++m_id}, {"method", method}, {"params", parameters}};
        if (!m_session.isEmpty() && !QByteArray(method).startsWith("Browser."))
            message.insert("sessionId", m_session);
        const QByteArray bytes = QJsonDocument(message).toJson(QJsonDocument::Compact) + '\0';
        if (write(m_toBrowser[1], bytes) != bytes.size())
            return {};
        // Events of the browser come between the answers.
        for (QByteArray answer = receive(); !answer.isEmpty(); answer = receive()) {
            const QJsonObject object = QJsonDocument::fromJson(answer).object();
            if (object.value("id").toInt() == m_id)
                return object.value("result").toObject();
        }
        return {};
    }
    static qint64 write(int fd, const QByteArray& bytes)
    {
        return ::write(fd, bytes.constData(), size_t(bytes.size()));
    }
    /// The next message; empty when none comes.
    QByteArray receive()
    {
        int end = 0;
        while ((end = m_buffer.indexOf('\0')) < 0) {
            pollfd wait{m_fromBrowser[0], POLLIN, 0};
            char piece[4096];
            const ssize_t count = ::poll(&wait, 1, 30000) > 0 ? ::read(m_fromBrowser[0], piece, sizeof piece) : 0;
            if (count <= 0)
                return QByteArray();
            m_buffer.append(piece, int(count));
        }
        const QByteArray message = m_buffer.left(end);
        m_buffer.remove(0, end + 1);
        return message;
    }

    const QTemporaryDir m_folder;
    int m_toBrowser[2] = {-1, -1};
    int m_fromBrowser[2] = {-1, -1};
    QByteArray m_buffer;
    QString m_session;
    int m_id = 0;
};
