#pragma once

#include <QByteArray>
#include <QCoreApplication>
#include <QMap>
#include <QProcess>
#include <QStringList>
#include <QTest>

#include <functional>
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

/// Calls that must stop the process, by the names under which a test's child is told to make one: `--fatal NAME`.
using FatalCalls = QMap<QString, std::function<void()>>;

/// The data of a test of all the calls: for each the text that it leaves.
inline void addFatalCalls(const FatalCalls& calls, const QMap<QString, QByteArray>& texts)
{
    QTest::addColumn<QByteArray>("text");
    for (auto it = calls.cbegin(); it != calls.cend(); ++it)
        QTest::newRow(qPrintable(it.key())) << texts.value(it.key());
}

/// The test with that data.
inline void verifyFatalCall()
{
    QFETCH(QByteArray, text);
    const ChildEnd end = runThisProgram({"--fatal", QTest::currentDataTag()});
    QVERIFY(end.stopped);
    QVERIFY(!text.isEmpty());
    QVERIFY2(end.errors.contains(text), end.errors.constData());
}

/// The main() of a test program that is its own child.
template <typename Test>
int runTestOrFatalCall(int argc, char** argv, const FatalCalls& calls)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.value(1) == QLatin1String("--fatal")) {
        leaveNoCore();
        calls.value(arguments.value(2))();
        return 0;
    }
    Test test;
    return QTest::qExec(&test, argc, argv);
}
