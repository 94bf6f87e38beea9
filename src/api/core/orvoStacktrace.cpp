#include "core/orvoStacktrace.h"

#include "core/orvo.h"

#include <QByteArray>
#include <QString>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <cxxabi.h>
#include <execinfo.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace orvoStacktrace {

namespace {

constexpr int maxFrames = 128;
constexpr size_t nameSize = 256;
/// More than a dump takes, and little for a thread to lose.
constexpr int longestWaitMs = 1000;

/// Those ahead of the interrupted function: the one that reads the stack, signal_handler(), and the one that the kernel
/// puts between.
constexpr unsigned int handlerFrames = 3;

bool s_signal_handler_installed = false;
std::atomic<bool> s_signal_handler_called{false};

/// The stack of a living thread, on its way from the handler to the printer.
struct Capture
{
    unsigned ticket;
    int count;
    long threadId;
    void* frames[maxFrames];
};
static_assert(sizeof(Capture) <= PIPE_BUF, "captures of several threads do not mix");

/**
 * Prints for threads that go on. One that SIGUSR1 meets inside malloc() or localtime() must not call them again: it
 * would wait for its own lock for ever. So it hands its frames over a pipe to this thread, by system calls alone.
 */
struct Printer
{
    int pipe[2] = {-1, -1};
    pid_t processId = 0;
    std::atomic<long> threadId{0};
    std::atomic<unsigned> lastTicket{0};
    std::atomic<unsigned> printed{0};
} s_printer;

long threadId()
{
    return long(syscall(SYS_gettid));
}

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

void printFrames(void** frames, int count, unsigned int skipFrames)
{
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

void printHead(const QByteArray& time, long threadId)
{
    char cmdline[512];
    readCmdline(cmdline, sizeof cmdline);
    fprintf(stderr, "--8<-------------------- Stack --------------------8<--\n");
    if (cmdline[0] != '\0')
        fprintf(stderr, "%s [%d.%ld] Program arguments: %s\n", time.constData(), int(getpid()), threadId, cmdline);
}

void printTail()
{
    fprintf(stderr, "--8<-----------------------------------------------8<--\n");
}

void runPrinter()
{
    orvoSetThreadName(QStringLiteral("orvoStacktrace"));
    s_printer.threadId = threadId();
    for (const int number : {SIGSEGV, SIGABRT, SIGUSR1})
        setBlocked(SIG_UNBLOCK, number);
    Capture capture;
    for (;;) {
        if (read(s_printer.pipe[0], &capture, sizeof capture) != ssize_t(sizeof capture))
            continue;
        printHead(orvoLocalTimeDateString().toUtf8(), capture.threadId);
        printFrames(capture.frames, capture.count, handlerFrames);
        printTail();
        s_printer.printed = std::max(s_printer.printed.load(), capture.ticket);
    }
}

/// A thread of this process that takes no signal of the program's own.
void startPrinter()
{
    if (pipe2(s_printer.pipe, O_CLOEXEC) != 0)
        return;
    // A handler never waits for room.
    fcntl(s_printer.pipe[1], F_SETFL, O_NONBLOCK);
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread(runPrinter).detach();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    s_printer.processId = getpid();
}

/// Hands the stack over and waits until it is printed; the same frames stand ahead of the interrupted function as below
/// dumpStack(). False when there is no printer: before install(), and in a child that was forked.
__attribute__((noinline)) bool printElsewhere()
{
    if (s_printer.processId != getpid())
        return false;
    Capture capture;
    capture.ticket = ++s_printer.lastTicket;
    capture.threadId = threadId();
    capture.count = backtrace(capture.frames, maxFrames);
    const bool sent = write(s_printer.pipe[1], &capture, sizeof capture) == ssize_t(sizeof capture);
    // Not for ever: the printer may need what this thread holds, and then it prints once the handler is left.
    const timespec pause{0, 1000000};
    for (int ms = 0; sent && ms < longestWaitMs && s_printer.printed < capture.ticket; ++ms) {
        if (s_printer.threadId == capture.threadId)
            break;
        nanosleep(&pause, nullptr);
    }
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
    startPrinter();
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

// A frame of its own, and so is signal_handler(): what SIGUSR1 leaves out is counted.
__attribute__((noinline)) void dumpStack(unsigned int skipFrames)
{
    void* frames[maxFrames];
    int count = backtrace(frames, maxFrames);
    printFrames(frames, count, skipFrames);
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
    if (signal == SIGUSR1) {
        if (!printElsewhere()) {
            printHead(orvoLocalTimeDateString().toUtf8(), threadId());
            dumpStack(handlerFrames);
            printTail();
        }
        errno = interruptedErrno;
        return;
    }
    const QByteArray time = orvoLocalTimeDateString().toUtf8();
    printHead(time, threadId());
    fprintf(stderr, "%s Error: signal %d:\n", time.constData(), signal);
    dumpStack(0);
    printTail();
    if (signal == SIGSEGV || signal == SIGABRT)
        dumpCore(signal);
    raise(SIGKILL);
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
            orvoStacktrace::threadId(), domain ? domain : "(null)", levelName(level), message ? message : "(null)");
    if (level & G_LOG_FLAG_FATAL) {
        orvoStacktrace::signal_handler(SIGABRT);
        abort();
    }
}

void orvoQtMessageOutput(QtMsgType type, QMessageLogContext const&, QString const& text)
{
    fprintf(stderr, "%s [%i.%li] %s: %s\n", orvoLocalTimeDateString().toUtf8().constData(), int(getpid()),
            orvoStacktrace::threadId(), typeName(type), text.toUtf8().constData());
    if (type == QtFatalMsg) {
        orvoStacktrace::signal_handler(SIGABRT);
        abort();
    }
}
