#include "core/orvoStacktrace.h"

#include "childprocess.h"
#include "core/model/cmworker.h"
#include "core/orvo.h"

#include <QRegularExpression>
#include <QtTest>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <iostream>
#include <map>
#include <memory>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

// Named functions that a stack shows. Each does something behind its call, so that it keeps its frame.
namespace crashing {

volatile int s_steps = 0;
std::atomic<bool> s_stop{false};

__attribute__((noipa)) void touch(int* address)
{
    *address = 1;
    ++s_steps;
}

__attribute__((noipa)) void call(void (*function)())
{
    function();
    ++s_steps;
}

/// Its mangled name stays short, its demangled one does not.
template <typename A, typename B, typename C>
__attribute__((noipa)) void longName(const std::map<A, std::vector<B>>&, const std::map<B, std::vector<C>>&)
{
    orvoStacktrace::dumpStack(0);
    ++s_steps;
}

__attribute__((noipa)) int recurse(int depth)
{
    char room[256];
    memset(room, depth, sizeof room);
    const int deeper = depth == 0 ? 0 : recurse(depth - 1);
    s_steps = s_steps + room[depth % 256];
    return deeper + 1;
}

__attribute__((noipa)) void dumpBelow(int depth)
{
    if (depth == 0)
        orvoStacktrace::dumpStack(0);
    else
        dumpBelow(depth - 1);
    ++s_steps;
}

__attribute__((noipa)) void work(std::atomic<unsigned>* count)
{
    while (!s_stop)
        *count = *count + 1;
}

/// Is inside the allocator nearly always, and nearly always with its lock.
__attribute__((noipa)) void allocate(std::atomic<unsigned>* count)
{
    std::array<std::unique_ptr<char[]>, 64> blocks;
    for (unsigned random = 1; !s_stop; *count = *count + 1) {
        random = random * 1664525 + 1013904223;
        blocks[random >> 26].reset(new char[1100 + (random >> 8) % 5000]);
    }
}

} // namespace crashing

namespace {

using Lines = QList<QByteArray>;

const char stackBegin[] = "--8<-------------------- Stack --------------------8<--";
const char stackEnd[] = "--8<-----------------------------------------------8<--";
/// Date, time, process and thread.
const char stamp[] = "\\d{8} \\d\\d:\\d\\d:\\d\\d\\.\\d{3} \\[(\\d+)\\.(\\d+)\\] ";

bool matches(const QByteArray& line, const QString& expression)
{
    return QRegularExpression("^" + expression + "$").match(QString::fromUtf8(line)).hasMatch();
}

Lines linesOf(const QByteArray& text)
{
    Lines lines = text.split('\n');
    if (lines.last().isEmpty())
        lines.removeLast();
    return lines;
}

/// What stands between the marks of the only stack.
Lines stackIn(const QByteArray& errors)
{
    const Lines lines = linesOf(errors);
    const int begin = lines.indexOf(stackBegin);
    const int end = lines.indexOf(stackEnd);
    if (begin < 0 || end < begin || lines.count(stackBegin) != 1 || lines.count(stackEnd) != 1)
        return {};
    return lines.mid(begin + 1, end - begin - 1);
}

int frameWith(const Lines& stack, const QByteArray& text)
{
    for (int i = 0; i < stack.size(); ++i)
        if (stack.at(i).contains(text))
            return i;
    return -1;
}

ChildEnd child(const char* how)
{
    return runThisProgram({"--child", how, "an argument"});
}

} // namespace

class tst_OrvoStacktrace : public QObject
{
    Q_OBJECT

private slots:
    // Ways to die

    void aDyingProcessShowsItsStackAndEndsThroughItsSignal_data()
    {
        QTest::addColumn<int>("signal");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QByteArray>("frame");
        QTest::newRow("segv") << SIGSEGV << "" << QByteArray(" : crashing::touch(int*)+0x");
        QTest::newRow("segvInThread") << SIGSEGV << "" << QByteArray(" : crashing::touch(int*)+0x");
        QTest::newRow("abort") << SIGABRT << "" << QByteArray(" : crashing::call(void (*)())+0x");
        QTest::newRow("qFatal") << SIGABRT << "QT_FATAL: the end" << QByteArray(" : crashing::call(void (*)())+0x");
        QTest::newRow("assertion") << SIGABRT
                                   << "QT_FATAL: ASSERT: \"1 == 2\" in file .*tst_orvostacktrace.cpp, line \\d+"
                                   << QByteArray(" : crashing::call(void (*)())+0x");
        QTest::newRow("connect") << SIGABRT << "QT_FATAL: ASSERT: \"connectSucceeded\" in file .*orvo.cpp, line \\d+"
                                 << QByteArray(" : crashing::call(void (*)())+0x");
        QTest::newRow("glib") << SIGABRT << "Test-ERROR: glib's end" << QByteArray(" : crashing::call(void (*)())+0x");
        QTest::newRow("glibMadeFatal") << SIGABRT << "Test-CRITICAL: glib's end"
                                       << QByteArray(" : crashing::call(void (*)())+0x");
        QTest::newRow("killed") << SIGSEGV << "" << QByteArray(" : crashing::call(void (*)())+0x");
        QTest::newRow("other") << SIGKILL << "" << QByteArray(" : crashing::call(void (*)())+0x");
    }

    void aDyingProcessShowsItsStackAndEndsThroughItsSignal()
    {
        QFETCH(int, signal);
        QFETCH(QString, message);
        QFETCH(QByteArray, frame);
        const ChildEnd end = child(QTest::currentDataTag());
        QVERIFY2(end.stopped, end.errors);
        QCOMPARE(end.exitCode, signal);

        Lines lines = linesOf(end.errors);
        if (!message.isEmpty()) {
            while (!lines.isEmpty() && (lines.first().startsWith("QObject::") || lines.first().contains("QT_WARNING")))
                lines.removeFirst();
            QVERIFY2(matches(lines.value(0), stamp + message), end.errors);
            lines.removeFirst();
        }
        QCOMPARE(lines.value(0), QByteArray(stackBegin));
        QCOMPARE(lines.last(), QByteArray(stackEnd));

        const Lines stack = stackIn(end.errors);
        const QString program = QRegularExpression::escape(QCoreApplication::applicationFilePath());
        QVERIFY2(matches(stack.value(0), QString("%1Program arguments: %2 --child %3 an argument ")
                                             .arg(stamp, program, QTest::currentDataTag())),
                 end.errors);
        const int told = qstrcmp(QTest::currentDataTag(), "other") == 0 ? SIGTERM : signal;
        QVERIFY2(matches(stack.value(1), QString("\\d{8} \\d\\d:\\d\\d:\\d\\d\\.\\d{3} Error: signal %1:").arg(told)),
                 end.errors);
        for (int i = 2; i < stack.size(); ++i)
            QVERIFY2(matches(stack.at(i), "  [^ ]+ : .+\\+0(x[0-9a-f]+)?"), stack.at(i));
        // With the frames of the handler.
        QVERIFY2(stack.value(2).contains("liborvo_api.so"), end.errors);
        QVERIFY2(stack.value(2).contains(" : orvoStacktrace::dumpStack(unsigned int)+0x"), end.errors);
        QVERIFY2(stack.value(3).contains(" : orvoStacktrace::signal_handler(int)+0x"), end.errors);
        QVERIFY2(frameWith(stack, frame) > 3, end.errors);
        // A name of C has parentheses added to it.
        const bool inThread = qstrcmp(QTest::currentDataTag(), "segvInThread") == 0;
        QCOMPARE(frameWith(stack, " : main()+0x") > 3, !inThread);
    }

    void theKernelWritesACore()
    {
        const int status = waitFor({"--child", "core"});
        QVERIFY(WIFSIGNALED(status));
        QCOMPARE(WTERMSIG(status), SIGABRT);
        QVERIFY(WCOREDUMP(status));
    }

    void aCrashInsideTheHandlerEndsWithOne_data()
    {
        QTest::addColumn<bool>("sameSignal");
        QTest::newRow("abortWithoutStderr") << false;
        QTest::newRow("segvWithoutStderr") << true;
    }

    void aCrashInsideTheHandlerEndsWithOne()
    {
        const ChildEnd end = child(QTest::currentDataTag());
        QVERIFY2(!end.stopped, end.errors);
        QCOMPARE(end.exitCode, 1);
        QCOMPARE(end.errors, QByteArray());
    }

    void aStackThatIsUsedUpEndsThroughItsSignalWithoutAWord()
    {
        const ChildEnd end = child("overflow");
        QVERIFY(end.stopped);
        QCOMPARE(end.exitCode, SIGSEGV);
        QCOMPARE(end.errors, QByteArray());
    }

    void aSignalThatDoesNotKillEndsTheProcess()
    {
        const ChildEnd end = child("ignored");
        QVERIFY2(!end.stopped, end.errors);
        QCOMPARE(end.exitCode, 127);
        QCOMPARE(end.errors, QByteArray("ERROR: STILL CONTINUING AFTER RAISE\n"));
    }

    // SIGUSR1

    void aSignalShowsTheInterruptedFunctionFirstAndTheProcessGoesOn()
    {
        const ChildEnd end = child("usr1");
        QVERIFY2(!end.stopped, end.errors);
        QCOMPARE(end.exitCode, 0);
        const Lines stack = stackIn(end.errors);
        QVERIFY2(matches(stack.value(0), QString(stamp) + "Program arguments: .* --child usr1 an argument "),
                 end.errors);
        QVERIFY2(!end.errors.contains("Error: signal"), end.errors);
        QVERIFY2(frameWith(stack, "orvoStacktrace::") < 0, end.errors);
        QVERIFY2(frameWith(stack, " : crashing::call(void (*)())+0x") > 0, end.errors);
    }

    void tenThreadsUnderLoadShowTheirStacksTenTimesAndGoOn()
    {
        QProcess process;
        process.start(QCoreApplication::applicationFilePath(), {"--child", "load"});
        QByteArray errors;
        QByteArray out;
        const auto collect = [&] {
            process.waitForReadyRead(10);
            errors += process.readAllStandardError();
            out += process.readAllStandardOutput();
        };
        QTRY_VERIFY((collect(), out.contains("ready\n")));
        for (int i = 1; i <= 10; ++i) {
            kill(pid_t(process.processId()), SIGUSR1);
            QTRY_COMPARE((collect(), linesOf(errors).count(stackEnd)), i);
        }
        // On a busy machine a thread may come so late that the signals of two become one; it is met the next time.
        QSet<QString> threads;
        QSet<QString> working;
        for (int attempt = 1; attempt <= 15 && working.size() < 10; ++attempt) {
            errors.clear();
            process.write("trace\n");
            QTRY_COMPARE_WITH_TIMEOUT((collect(), out.count("traced\n")), attempt, 20000);
            QTRY_COMPARE((collect(), linesOf(errors).count(stackEnd)), linesOf(errors).count(stackBegin));
            const Lines lines = linesOf(errors);
            for (int i = 0; i + 1 < lines.size(); ++i) {
                const auto match = QRegularExpression(QString("^%1Program arguments: ").arg(stamp))
                                       .match(QString::fromUtf8(lines.at(i)));
                if (!match.hasMatch())
                    continue;
                QCOMPARE(match.captured(1).toLongLong(), process.processId());
                threads.insert(match.captured(2));
                if (lines.at(i + 1).contains(" : crashing::work(std::atomic<unsigned int>*)+0x"))
                    working.insert(match.captured(2));
            }
        }
        QCOMPARE(working.size(), 10);
        QVERIFY(threads.contains(QString::number(process.processId())));
        process.write("end\n");
        QVERIFY(process.state() == QProcess::NotRunning || process.waitForFinished());
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(process.exitCode(), 0);
        out += process.readAllStandardOutput();
        QVERIFY2(out.endsWith("10 went on\n"), out);
    }

    void threadsInsideTheAllocatorGoOn()
    {
        QProcess process;
        process.setStandardErrorFile(QProcess::nullDevice());
        process.start(QCoreApplication::applicationFilePath(), {"--child", "allocating"});
        QByteArray out;
        const auto collect = [&] {
            process.waitForReadyRead(10);
            out += process.readAllStandardOutput();
        };
        QTRY_VERIFY((collect(), out.contains("ready\n")));
        process.write("trace\ntrace\nend\n");
        QTRY_VERIFY_WITH_TIMEOUT((collect(), out.endsWith("10 went on\n")), 30000);
    }

    void aForkedChildPrintsItsStackItself()
    {
        const ChildEnd end = child("forked");
        QVERIFY2(!end.stopped && end.exitCode == 0, end.errors);
        const Lines stack = stackIn(end.errors);
        QVERIFY2(frameWith(stack, "orvoStacktrace::") < 0, end.errors);
        QVERIFY2(frameWith(stack, " : crashing::call(void (*)())+0x") > 0, end.errors);
    }

    void installingTwiceChangesNothing()
    {
        const ChildEnd end = child("twice");
        QVERIFY2(!end.stopped && end.exitCode == 0, end.errors);
    }

    // The stack

    void skippingMoreFramesThanThereAreShowsAll()
    {
        const ChildEnd end = child("skip");
        const Lines lines = linesOf(end.errors);
        const int half = lines.indexOf("--");
        QVERIFY2(half > 2, end.errors);
        QCOMPARE(lines.size(), 3 * half - 1);
        // Two less, and then none less.
        QVERIFY2(lines.at(0).contains("dumpStack"), end.errors);
        QCOMPARE(lines.mid(half + 1, half - 2).first().split('+').first(), lines.at(2).split('+').first());
        QVERIFY2(lines.at(2 * half - 1).contains("dumpStack"), end.errors);
    }

    void aFrameThatRepeatsItselfEndsTheStack()
    {
        const ChildEnd end = child("loop");
        const Lines lines = linesOf(end.errors);
        QVERIFY2(lines.size() >= 3, end.errors);
        QVERIFY2(lines.at(0).contains(" : orvoStacktrace::dumpStack(unsigned int)+0x"), end.errors);
        QCOMPARE(lines.last(), QByteArray("(backtrace corrupted - loop)"));
        QVERIFY2(lines.at(lines.size() - 2).contains(" : crashing::dumpBelow(int)+0x"), end.errors);
        QVERIFY2(frameWith(lines, "__libc_start_main") < 0, end.errors);
    }

    void aNameMayGrowBeyondItsBuffer()
    {
        const ChildEnd end = child("longName");
        const Lines lines = linesOf(end.errors);
        const int frame = frameWith(lines, "crashing::longName<");
        QVERIFY2(frame > 0, end.errors);
        QVERIFY2(lines.at(frame).size() > 600, lines.at(frame));
        QVERIFY2(frameWith(lines, "__libc_start_main") > frame, end.errors);
    }

    void theCommandLineIsCutToItsBuffer()
    {
        QFile file("/proc/self/cmdline");
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray whole = file.readAll().replace('\0', ' ');
        for (const int size : {1, 2, 10, whole.size(), whole.size() + 1, 512}) {
            QByteArray buffer(600, '!');
            orvoStacktrace::readCmdline(buffer.data(), size);
            QCOMPARE(QByteArray(buffer.constData()), whole.left(size - 1));
            QCOMPARE(buffer.at(size), '!');
        }
        char untouched = '!';
        orvoStacktrace::readCmdline(&untouched, 0);
        QCOMPARE(untouched, '!');
    }

    void aCommandLineThatCannotBeReadIsLeftOut()
    {
        const ChildEnd end = child("noDescriptors");
        const Lines lines = linesOf(end.errors);
        QCOMPARE(end.exitCode, 0);
        QCOMPARE(lines.value(0), QByteArray("Can't open /proc/self/cmdline"));
        QCOMPARE(lines.value(1), QByteArray(stackBegin));
        QVERIFY2(!end.errors.contains("Program arguments"), end.errors);
        QVERIFY2(frameWith(lines, " : crashing::call(void (*)())+0x") > 1, end.errors);
        QCOMPARE(lines.last(), QByteArray(stackEnd));
    }

    // Messages

    void messagesOfQtShareOneForm()
    {
        const ChildEnd end = child("qt");
        QCOMPARE(end.exitCode, 0);
        const Lines lines = linesOf(end.errors);
        QCOMPARE(lines.size(), 5);
        QVERIFY2(matches(lines.at(0), QString(stamp) + "QT_DEBUG: one %s"), lines.at(0));
        QVERIFY2(matches(lines.at(1), QString(stamp) + "QT_INFO: two"), lines.at(1));
        QVERIFY2(matches(lines.at(2), QString(stamp) + QString::fromUtf8("QT_WARNING: drei Töne")), lines.at(2));
        QVERIFY2(matches(lines.at(3), QString(stamp) + "QT_CRITICAL: four"), lines.at(3));
        QVERIFY2(matches(lines.at(4), QString(stamp) + "QT_DEBUG: in a thread"), lines.at(4));
        const auto ids = [](const QByteArray& line) {
            const auto match = QRegularExpression(stamp).match(QString::fromUtf8(line));
            return QStringList{match.captured(1), match.captured(2)};
        };
        // The first thread has the number of its process, another one has not.
        QCOMPARE(ids(lines.at(0)).at(0), ids(lines.at(0)).at(1));
        QCOMPARE(ids(lines.at(4)).at(0), ids(lines.at(0)).at(0));
        QVERIFY(ids(lines.at(4)).at(1) != ids(lines.at(0)).at(1));
    }

    void messagesOfGLibShareOneForm()
    {
        const ChildEnd end = child("glibMessages");
        QCOMPARE(end.exitCode, 0);
        const QStringList texts{
            "Test-CRITICAL: 8", "Test-WARNING: 16",  "Test-MESSAGE: 32",   "Test-INFO: 64",
            "Test-DEBUG: 128",  "Test-UNKNOWN: 256", "Test-CRITICAL: 152", "\\(null\\)-WARNING: no domain"};
        const Lines lines = linesOf(end.errors);
        QCOMPARE(lines.size(), texts.size());
        for (int i = 0; i < lines.size(); ++i)
            QVERIFY2(matches(lines.at(i), stamp + texts.at(i)), lines.at(i));
    }

    void theHandlerForADomainIsAlwaysGStreamers()
    {
        const ChildEnd end = child("gstreamer");
        QCOMPARE(end.exitCode, 0);
        const Lines lines = linesOf(end.errors);
        QVERIFY2(matches(lines.value(0), QString(stamp) + "GStreamer-WARNING: ours"), end.errors);
        QVERIFY2(matches(lines.value(1), QString(stamp) + "GStreamer-DEBUG: ours too"), end.errors);
        QVERIFY2(end.errors.contains("Other-WARNING **: ") && !end.errors.contains("Other-WARNING: "), end.errors);
    }

    void aFatalMessageOfGStreamerEndsTheProcess()
    {
        const ChildEnd end = child("gstreamerFatal");
        QVERIFY2(end.stopped, end.errors);
        QCOMPARE(end.exitCode, SIGABRT);
        QVERIFY2(matches(linesOf(end.errors).value(0), QString(stamp) + "GStreamer-ERROR: the end"), end.errors);
        QVERIFY2(frameWith(stackIn(end.errors), " : crashing::call(void (*)())+0x") > 0, end.errors);
    }

private:
    /// The status of waitpid().
    static int waitFor(const QStringList& arguments)
    {
        const QByteArray program = QFile::encodeName(QCoreApplication::applicationFilePath());
        std::vector<QByteArray> words{program};
        for (const QString& argument : arguments)
            words.push_back(argument.toUtf8());
        std::vector<char*> pointers;
        for (QByteArray& word : words)
            pointers.push_back(word.data());
        pointers.push_back(nullptr);
        QTemporaryDir dir;
        const QByteArray folder = QFile::encodeName(dir.path());
        const pid_t pid = fork();
        if (pid == 0) {
            if (chdir(folder) == 0 && freopen("/dev/null", "w", stderr))
                execv(program, pointers.data());
            _exit(99);
        }
        int status = 0;
        waitpid(pid, &status, 0);
        return status;
    }
};

namespace {

/// Ten busy threads; commands come from standard input.
int underLoad(void (*work)(std::atomic<unsigned>*))
{
    std::vector<std::atomic<unsigned>> counts(10);
    std::vector<std::thread> threads;
    for (auto& count : counts)
        threads.emplace_back(work, &count);
    CMWorker worker({}, "load");
    std::cout << "ready" << std::endl;
    for (std::string line; std::getline(std::cin, line) && line != "end";) {
        worker.trace();
        std::cout << "traced" << std::endl;
    }
    std::vector<unsigned> before(counts.begin(), counts.end());
    int wentOn = 0;
    for (size_t i = 0; i < counts.size(); ++i)
        wentOn += QTest::qWaitFor([&] { return counts[i] != before[i]; }) ? 1 : 0;
    crashing::s_stop = true;
    for (std::thread& thread : threads)
        thread.join();
    std::cout << wentOn << " went on" << std::endl;
    return 0;
}

/// A child without the threads of its parent.
int forked()
{
    const pid_t pid = fork();
    if (pid == 0) {
        crashing::call([] { raise(SIGUSR1); });
        _exit(5);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 5 ? 0 : 1;
}

int installTwice()
{
    orvoStacktrace::install();
    signal(SIGUSR1, SIG_IGN);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    orvoStacktrace::install();
    raise(SIGUSR1);
    qDebug("unseen");
    return 0;
}

void glibMessages()
{
    for (const int level : {8, 16, 32, 64, 128, 256})
        g_log("Test", GLogLevelFlags(level), "%d", level);
    glibLogHandler("Test", GLogLevelFlags(8 | 16 | 128), "152", nullptr);
    glibLogHandler(nullptr, G_LOG_LEVEL_WARNING, "no domain", nullptr);
}

void qtMessages()
{
    qDebug("%s", "one %s");
    qInfo("two");
    qWarning("drei Töne");
    qCritical("four");
    std::thread([] { qDebug("in a thread"); }).join();
}

void gstreamer()
{
    orvoStacktrace::installGLogHandler("Other");
    g_log("GStreamer", G_LOG_LEVEL_WARNING, "ours");
    g_log("GStreamer", G_LOG_LEVEL_DEBUG, "ours too");
    g_log("Other", G_LOG_LEVEL_WARNING, "not ours");
}

void withoutDescriptors()
{
    // Standard input, output and error stay.
    const rlimit three{3, 3};
    setrlimit(RLIMIT_NOFILE, &three);
    crashing::call([] { raise(SIGUSR1); });
}

int runChild(const QByteArray& how)
{
    if (how == "core") {
        rlimit all{};
        getrlimit(RLIMIT_CORE, &all);
        all.rlim_cur = all.rlim_max;
        setrlimit(RLIMIT_CORE, &all);
    } else {
        leaveNoCore();
    }
    if (how == "gstreamer") {
        gstreamer();
        return 0;
    }
    if (how == "gstreamerFatal") {
        orvoStacktrace::installGLogHandler("GStreamer");
        crashing::call([] { g_log("GStreamer", G_LOG_LEVEL_ERROR, "the end"); });
    }
    if (how == "twice")
        return installTwice();
    orvoStacktrace::install();
    using crashing::call;
    if (how == "segv")
        crashing::touch(nullptr);
    else if (how == "segvInThread")
        std::thread([] { crashing::touch(nullptr); }).join();
    else if (how == "abort" || how == "core")
        call([] { abort(); });
    else if (how == "qFatal")
        call([] { qFatal("the %s", "end"); });
    else if (how == "assertion")
        call([] { Q_ASSERT(1 == 2); });
    else if (how == "connect")
        call([] { orvoConnect(qApp, SIGNAL(none()), qApp, SLOT(quit())); });
    else if (how == "glib")
        call([] { g_log("Test", G_LOG_LEVEL_ERROR, "glib's end"); });
    else if (how == "glibMadeFatal") {
        g_log_set_always_fatal(GLogLevelFlags(G_LOG_LEVEL_ERROR | G_LOG_LEVEL_CRITICAL));
        call([] { g_log("Test", G_LOG_LEVEL_CRITICAL, "glib's end"); });
    } else if (how == "killed")
        call([] { kill(getpid(), SIGSEGV); });
    else if (how == "other")
        call([] { orvoStacktrace::signal_handler(SIGTERM); });
    else if (how == "abortWithoutStderr") {
        stderr = nullptr;
        call([] { abort(); });
    } else if (how == "segvWithoutStderr") {
        stderr = nullptr;
        crashing::touch(nullptr);
    } else if (how == "overflow")
        crashing::recurse(100000000);
    else if (how == "ignored")
        orvoStacktrace::dumpCore(SIGCHLD);
    else if (how == "usr1")
        call([] {
            errno = 77;
            raise(SIGUSR1);
            if (errno != 77)
                exit(2);
        });
    else if (how == "load")
        return underLoad(crashing::work);
    else if (how == "allocating")
        return underLoad(crashing::allocate);
    else if (how == "forked")
        return forked();
    else if (how == "skip")
        for (const unsigned skip : {0u, 2u, 1000u}) {
            orvoStacktrace::dumpStack(skip);
            if (skip == 0)
                fprintf(stderr, "--\n");
        }
    else if (how == "loop")
        crashing::dumpBelow(10);
    else if (how == "longName")
        crashing::longName<std::map<std::string, std::string>, std::vector<std::string>, std::map<int, std::string>>(
            {}, {});
    else if (how == "noDescriptors")
        withoutDescriptors();
    else if (how == "qt")
        qtMessages();
    else if (how == "glibMessages")
        glibMessages();
    else
        return 3;
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    if (application.arguments().value(1) == QLatin1String("--child"))
        return runChild(application.arguments().value(2).toUtf8());
    tst_OrvoStacktrace test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_orvostacktrace.moc"
