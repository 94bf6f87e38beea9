// The pipe of log lines: of any bytes, in any pieces, each line that is one reaches the log once, as it was written.

#include "fuzz.h"

#include "core/orvoLogger.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <fcntl.h>
#include <log4cplus/appender.h>
#include <log4cplus/hierarchy.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>
#include <vector>

namespace {

struct Line
{
    std::string logger;
    std::string level;
    std::string message;

    bool operator==(const Line& other) const
    {
        return logger == other.logger && level == other.level && message == other.message;
    }
};

class Keeper : public log4cplus::Appender
{
public:
    ~Keeper() override { destructorImpl(); }
    void close() override {}

    std::vector<Line> lines;

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override
    {
        lines.push_back(
            {event.getLoggerName(), log4cplus::getLogLevelManager().toString(event.getLogLevel()), event.getMessage()});
    }
};

/// What the log is to get of the bytes. An unfinished line gets nothing.
std::vector<Line> linesOf(const std::string& bytes)
{
    static const char* const levels[] = {"FATAL", "ERROR", "WARN", "INFO", "DEBUG", "TRACE"};
    std::vector<Line> lines;
    size_t begin = 0;
    for (size_t end = bytes.find('\n'); end != std::string::npos; end = bytes.find('\n', begin)) {
        const std::string line = bytes.substr(begin, end - begin);
        begin = end + 1;
        for (const std::string level : levels) {
            const size_t blank = line.find(' ');
            if (blank == std::string::npos || blank == 0 || line.compare(blank + 1, level.size(), level) != 0)
                continue;
            const std::string rest = line.substr(blank + 1 + level.size());
            if (rest.empty() || rest.front() == ' ')
                lines.push_back({line.substr(0, blank), level, rest.empty() ? rest : rest.substr(1)});
        }
    }
    return lines;
}

class Service
{
public:
    Service() : m_application(m_argc, m_argv)
    {
        log4cplus::Logger::getRoot().removeAllAppenders();
        log4cplus::Logger::getRoot().setLogLevel(log4cplus::TRACE_LOG_LEVEL);
        const QTemporaryDir folder;
        const QString pipe = folder.filePath(QStringLiteral("log"));
        FUZZ_CHECK(OrvoLogger::instance()->startExternalListener(pipe));
        m_writer = open(QFile::encodeName(pipe).constData(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        FUZZ_CHECK(m_writer >= 0);
        log4cplus::Logger::getRoot().addAppender(log4cplus::SharedAppenderPtr(m_keeper));
        // The folder goes, and nothing stays behind on the disk: later writers open the pipe by this one.
    }

    /// The bytes arrive in pieces, of one writer or each of another one.
    void take(const std::string& bytes, size_t piece, bool manyWriters)
    {
        m_keeper->lines.clear();
        for (size_t done = 0; done < bytes.size(); done += piece) {
            const int writer = manyWriters ? anotherWriter() : m_writer;
            write(writer, bytes.substr(done, piece));
            if (manyWriters)
                close(writer);
            turn();
        }
        // Ends the last line, so that the next input begins one of its own.
        write(m_writer, "\n");
        turn();
        FUZZ_CHECK(m_keeper->lines == linesOf(bytes + '\n'));
        // Loggers of made-up names stay for ever; these were enough.
        if (log4cplus::Logger::getCurrentLoggers().size() > 1000)
            log4cplus::Logger::getDefaultHierarchy().clear();
    }

private:
    int anotherWriter() const
    {
        const std::string name = "/proc/self/fd/" + std::to_string(m_writer);
        const int writer = open(name.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        FUZZ_CHECK(writer >= 0);
        return writer;
    }
    static void write(int writer, const std::string& bytes)
    {
        for (size_t done = 0; done < bytes.size();) {
            const ssize_t count = ::write(writer, bytes.data() + done, bytes.size() - done);
            if (count > 0)
                done += size_t(count);
            else
                FUZZ_CHECK(errno == EAGAIN);
            if (done < bytes.size())
                QCoreApplication::processEvents();
        }
    }
    void turn() const
    {
        int waiting = 0;
        do {
            QCoreApplication::processEvents();
            FUZZ_CHECK(ioctl(m_writer, FIONREAD, &waiting) == 0);
        } while (waiting > 0);
    }

    int m_argc = 1;
    char m_name[5] = "fuzz";
    char* m_argv[2] = {m_name, nullptr};
    QCoreApplication m_application;
    int m_writer = -1;
    Keeper* const m_keeper = new Keeper;
};

} // namespace

/// The first byte is the size of the pieces, 0 for all at once; the second is odd where each has a writer of its own.
int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2)
        return 0;
    // Taken down by nobody: the process ends at any input.
    static Service* const service = new Service;
    const std::string bytes(reinterpret_cast<const char*>(data + 2), size - 2);
    const size_t piece = data[0] ? std::max<size_t>(data[0], size / 64) : size;
    service->take(bytes, piece, data[1] % 2 == 1);
    return 0;
}
