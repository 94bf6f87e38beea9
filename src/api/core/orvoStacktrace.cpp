#include "core/orvoStacktrace.h"

#include "core/orvo.h"

#include <QByteArray>
#include <QString>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <execinfo.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace orvoStacktrace {

namespace {

constexpr int maxFrames = 128;
constexpr size_t nameSize = 256;

bool s_signal_handler_installed = false;
std::atomic<bool> s_signal_handler_called{false};

void setBlocked(int how, int signal)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    sigprocmask(how, &set, nullptr);
}

/// Cuts "file(name+offset) [address]" at its marks; false for a line without them.
bool cutSymbol(char* line, char** name, char** offset)
{
    char* const open = strchr(line, '(');
    char* const plus = open ? strchr(open, '+') : nullptr;
    char* const close = plus ? strchr(plus, ')') : nullptr;
    if (!close)
        return false;
    *open = *plus = *close = '\0';
    *name = open + 1;
    *offset = plus + 1;
    return true;
}

} // namespace

void install()
{
    if (s_signal_handler_installed)
        return;
    s_signal_handler_installed = true;
    // The first call loads a library; the next ones, inside a handler, need not.
    void* frame = nullptr;
    backtrace(&frame, 1);
    for (const int number : {SIGSEGV, SIGABRT, SIGUSR1})
        signal(number, signal_handler);
    qInstallMessageHandler(orvoQtMessageOutput);
    g_log_set_default_handler(glibLogHandler, nullptr);
}

void installGLogHandler(char const*)
{
    // GLib looks for a handler that takes all bits of a message, the flags among them.
    const int levels = G_LOG_LEVEL_MASK | G_LOG_FLAG_FATAL | G_LOG_FLAG_RECURSION;
    g_log_set_handler("GStreamer", GLogLevelFlags(levels), glibLogHandler, nullptr);
}

void readCmdline(char* buffer, int size)
{
    if (size < 1)
        return;
    buffer[0] = '\0';
    const int fd = open("/proc/self/cmdline", O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        fprintf(stderr, "Can't open /proc/self/cmdline\n");
        return;
    }
    const ssize_t count = std::max<ssize_t>(read(fd, buffer, size_t(size - 1)), 0);
    close(fd);
    std::replace(buffer, buffer + count, '\0', ' ');
    buffer[count] = '\0';
}

void dumpCore(int signal)
{
    setBlocked(SIG_UNBLOCK, signal);
    ::signal(signal, SIG_DFL);
    raise(signal);
    fprintf(stderr, "ERROR: STILL CONTINUING AFTER RAISE\n");
    fcloseall();
    exit(127);
}

// A frame of its own, and so is signal_handler(): between them and the interrupted function stands the one that the
// kernel puts there, which makes the three that SIGUSR1 leaves out.
__attribute__((noinline)) void dumpStack(unsigned int skipFrames)
{
    void* frames[maxFrames];
    int count = backtrace(frames, maxFrames);
    bool loops = false;
    for (int i = 1; i < count && !loops; ++i) {
        if (frames[i] == frames[i - 1]) {
            count = i;
            loops = true;
        }
    }
    const int first = skipFrames < unsigned(count) ? int(skipFrames) : 0;
    count -= first;

    char** const symbols = backtrace_symbols(frames + first, count);
    size_t size = nameSize;
    auto* demangled = static_cast<char*>(malloc(size));
    for (int i = 0; symbols && i < count; ++i) {
        char* name = nullptr;
        char* offset = nullptr;
        if (!cutSymbol(symbols[i], &name, &offset)) {
            fprintf(stderr, "  %s\n", symbols[i]);
            continue;
        }
        int status = 0;
        if (char* const grown = abi::__cxa_demangle(name, demangled, &size, &status)) {
            demangled = grown;
            fprintf(stderr, "  %s : %s+%s\n", symbols[i], demangled, offset);
        } else {
            fprintf(stderr, "  %s : %s()+%s\n", symbols[i], name, offset);
        }
    }
    free(demangled);
    free(symbols);
    if (loops)
        fprintf(stderr, "(backtrace corrupted - loop)\n");
}

__attribute__((noinline)) void signal_handler(int signal)
{
    const int interruptedErrno = errno;
    if (signal != SIGUSR1) {
        if (s_signal_handler_called.exchange(true))
            exit(1);
        // The kernel holds back the signal that is being handled, and would end the process at a second one itself.
        setBlocked(SIG_UNBLOCK, signal);
    }
    char cmdline[512];
    readCmdline(cmdline, sizeof cmdline);
    const QByteArray time = orvoLocalTimeDateString().toUtf8();
    fprintf(stderr, "--8<-------------------- Stack --------------------8<--\n");
    if (cmdline[0] != '\0')
        fprintf(stderr, "%s [%d.%ld] Program arguments: %s\n", time.constData(), int(getpid()),
                long(syscall(SYS_gettid)), cmdline);
    if (signal == SIGUSR1) {
        dumpStack(3);
    } else {
        fprintf(stderr, "%s Error: signal %d:\n", time.constData(), signal);
        dumpStack(0);
    }
    fprintf(stderr, "--8<-----------------------------------------------8<--\n");
    if (signal == SIGSEGV || signal == SIGABRT)
        dumpCore(signal);
    if (signal != SIGUSR1)
        raise(SIGKILL);
    errno = interruptedErrno;
}

} // namespace orvoStacktrace

namespace {

const char* levelName(GLogLevelFlags level)
{
    if (level & G_LOG_LEVEL_ERROR)
        return "ERROR";
    if (level & G_LOG_LEVEL_CRITICAL)
        return "CRITICAL";
    if (level & G_LOG_LEVEL_WARNING)
        return "WARNING";
    if (level & G_LOG_LEVEL_MESSAGE)
        return "MESSAGE";
    if (level & G_LOG_LEVEL_INFO)
        return "INFO";
    if (level & G_LOG_LEVEL_DEBUG)
        return "DEBUG";
    return "UNKNOWN";
}

const char* typeName(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return "QT_DEBUG";
    case QtWarningMsg:
        return "QT_WARNING";
    case QtCriticalMsg:
        return "QT_CRITICAL";
    case QtFatalMsg:
        return "QT_FATAL";
    case QtInfoMsg:
        return "QT_INFO";
    }
    return "QT_UNKNOWN";
}

} // namespace

void glibLogHandler(char const* domain, GLogLevelFlags level, char const* message, void*)
{
    fprintf(stderr, "%s [%i.%li] %s-%s: %s\n", orvoLocalTimeDateString().toUtf8().constData(), int(getpid()),
            long(syscall(SYS_gettid)), domain ? domain : "(null)", levelName(level), message ? message : "(null)");
    if (level & G_LOG_FLAG_FATAL) {
        orvoStacktrace::signal_handler(SIGABRT);
        abort();
    }
}

void orvoQtMessageOutput(QtMsgType type, QMessageLogContext const&, QString const& text)
{
    fprintf(stderr, "%s [%i.%li] %s: %s\n", orvoLocalTimeDateString().toUtf8().constData(), int(getpid()),
            long(syscall(SYS_gettid)), typeName(type), text.toUtf8().constData());
    if (type == QtFatalMsg) {
        orvoStacktrace::signal_handler(SIGABRT);
        abort();
    }
}
