#include "core/model/cmrpccommon.h"

#include <QFile>
#include <QLocalServer>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

namespace {

struct End
{
    int status = -1;
    QByteArray output;
    QByteArray errors;
};

End runSupervisor(const QStringList& arguments)
{
    QProcess process;
    process.start(ORVO_TEST_SUPERVISOR, arguments);
    End end;
    if (process.waitForFinished() && process.exitStatus() == QProcess::NormalExit)
        end.status = process.exitCode();
    end.output = process.readAllStandardOutput();
    end.errors = process.readAllStandardError();
    return end;
}

} // namespace

/// What orvo-supervisor says about its file and its command line.
class tst_OrvoSupervisor_Check : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_folder;

    QString write(const QByteArray& text) const
    {
        QFile file(m_folder.filePath("services.json"));
        if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size())
            return QString();
        return file.fileName();
    }
    /// The lines on stderr, without the file's name in them.
    QStringList check(const QByteArray& text, int status) const
    {
        const QString fileName = write(text);
        const End end = runSupervisor({"--check", fileName});
        if (end.status != status || !end.output.isEmpty())
            return {QString("status %1, output %2").arg(end.status).arg(QString(end.output))};
        QStringList lines = QString::fromUtf8(end.errors).split('\n', Qt::SkipEmptyParts);
        for (QString& line : lines)
            line = line.startsWith(fileName + ":") ? line.mid(fileName.size() + 1) : "no file name in: " + line;
        return lines;
    }

private slots:
    void aCompleteFileIsFine()
    {
        QCOMPARE(check(R"({
            "services": [
                {
                    "id": "player", "program": "/usr/bin/player", "arguments": ["--loud", ""],
                    "environment": {"LANG": "C", "EMPTY": ""}, "user": "root", "nice": -5,
                    "busName": "org.example.player", "startTimeoutMs": 0,
                    "ping": {"intervalMs": 1000, "timeoutMs": 500}, "stopTimeoutMs": 2000,
                    "logFile": "/var/log/player.log",
                    "restart": {"policy": "onFailure", "backOffMs": 50, "maxBackOffMs": 5000, "limit": 0, "healthyMs": 0},
                    "stopOnNetworkDown": true, "restartOnChanged": ["settings:ui/language"], "after": ["media"]
                },
                {"id": "media", "program": "media"}
            ]
        })",
                       0),
                 QStringList());
        QCOMPARE(check("{\"services\": []}", 0), QStringList());
    }

    void brokenJsonIsToldWithItsPlace_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QString>("line");
        QTest::newRow("empty") << QByteArray() << "1:1: there is nothing in it";
        QTest::newRow("spaces") << QByteArray("\n\n  \n") << "4:1: there is nothing in it";
        QTest::newRow("cut") << QByteArray("{\n  \"services\": [\n") << "3:1: the file ends too early";
        QTest::newRow("cut in a text") << QByteArray("{\"serv") << "1:7: the file ends too early";
        QTest::newRow("comma") << QByteArray("{\"services\": [\n  1,\n ]}") << "3:2: a comma too many";
        QTest::newRow("behind a letter of two bytes") << QByteArray("{\"\xC3\xA4\": ?}") << "1:7: unexpected character";
        QTest::newRow("comment") << QByteArray("{\n// services\n}") << "2:1: unexpected character";
        QTest::newRow("bracket") << QByteArray("{\"services\": [}") << "1:15: a closing bracket of the wrong kind";
        QTest::newRow("behind the end") << QByteArray("{\"services\": []}\n x") << "2:2: something behind the end";
        QTest::newRow("second value") << QByteArray("{\"services\": []}{}") << "1:17: something behind the end";
        QTest::newRow("not UTF-8") << QByteArray("{\"\xFF\"}") << "1:3: not UTF-8";
        QTest::newRow("NUL") << QByteArray("{\0}", 3) << "1:2: unexpected character";
        QTest::newRow("too deep") << QByteArray(600, '[') << "1:513: nested too deeply";
        QTest::newRow("large number") << QByteArray("[ 99999999999999999999]") << "1:3: a number that is too large";
        QTest::newRow("no container") << QByteArray("3") << "1:1: unexpected character";
    }
    void brokenJsonIsToldWithItsPlace()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, line);
        QCOMPARE(check(text, 1), QStringList(line));
    }

    void aMistakeIsToldWithItsPlace_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QString>("line");
        QTest::newRow("array") << QByteArray("[]") << "1:1: the file holds an object with \"services\", not an array";
        QTest::newRow("no services") << QByteArray(" {}") << "1:2: \"services\" is missing";
        QTest::newRow("services no array")
            << QByteArray("{\"services\": {}}") << "1:14: \"services\" is an array, not an object";
        QTest::newRow("unknown top key") << QByteArray("{\"services\": [],\n\"version\": 1}")
                                         << "2:1: unknown key \"version\"";
        QTest::newRow("no object") << QByteArray("{\"services\": [null]}") << "1:15: a service is an object, not null";

        const auto member = [](const char* name, const char* text, const char* line) {
            QTest::newRow(name) << QByteArray("{\"services\": [{\"id\": \"a\", \"program\": \"p\",\n") + text + "}]}"
                                << line;
        };
        member("unknown key", "\"nise\": 1", "2:1: unknown key \"nise\"");
        member("twice", "\"nice\": 1, \"nice\": 2", "2:12: \"nice\" is there twice");
        member("text for a number", "\"nice\": \"1\"", "2:9: \"nice\" is a whole number, not a text");
        member("fraction", "\"nice\": 1.5", "2:9: \"nice\" is a whole number, not a fraction");
        member("too nice", "\"nice\": 20", "2:9: \"nice\" is from -20 to 19");
        member("bool", "\"stopOnNetworkDown\": 1", "2:22: \"stopOnNetworkDown\" is a bool, not a whole number");
        member("arguments", "\"arguments\": \"-v\"", "2:14: \"arguments\" is an array, not a text");
        member("argument", "\"arguments\": [\"-v\", 7]", "2:21: \"arguments\" holds texts, not a whole number");
        member("NUL in an argument", "\"arguments\": [\"a\\u0000b\"]", "2:15: \"arguments\" has a NUL in it");
        member("empty text", "\"logFile\": \"\"", "2:12: \"logFile\" is empty");
        member("variable", "\"environment\": {\"A=B\": \"\"}", "2:17: no name of a variable: \"A=B\"");
        member("value of a variable", "\"environment\": {\"A\": true}", "2:22: a variable is a text, not a bool");
        member("user", "\"user\": \"nosuchuser\"", "2:9: no such user: \"nosuchuser\"");
        member("bus name", "\"busName\": \"player\"", "2:12: no bus name: \"player\"");
        member("ping without a name", "\"ping\": {\"intervalMs\": 5}", "2:9: \"ping\" needs a \"busName\"");
        member("time without a name", "\"startTimeoutMs\": 5", "2:19: \"startTimeoutMs\" needs a \"busName\"");
        member("ping without a time", "\"busName\": \"a.b\", \"ping\": {}", "2:27: \"intervalMs\" is missing");
        member("late ping", "\"busName\": \"a.b\", \"ping\": {\"intervalMs\": 5, \"timeoutMs\": 6}",
               "2:58: \"timeoutMs\" is at most \"intervalMs\"");
        member("unknown inner key", "\"restart\": {\"when\": 1}", "2:13: unknown key \"when\"");
        member("policy", "\"restart\": {\"policy\": \"soon\"}",
               "2:23: \"policy\" is \"always\", \"onFailure\" or \"never\", not \"soon\"");
        member("back-off", "\"restart\": {\"backOffMs\": -1}", "2:26: \"backOffMs\" is at least 0");
        member("maximum", "\"restart\": {\"backOffMs\": 9, \"maxBackOffMs\": 8}",
               "2:45: \"maxBackOffMs\" is at least \"backOffMs\"");
        member("path", "\"restartOnChanged\": [\"language\"]", "2:22: no path: \"language\"");
        member("no restart", "\"restart\": {\"policy\": \"never\"}, \"restartOnChanged\": [\"settings:a\"]",
               "2:54: the restart policy is \"never\"");
        member("unknown dependency", "\"after\": [\"b\"]", "2:11: no service has the id \"b\"");
        member("itself", "\"after\": [\"a\"]", "2:11: services that wait for each other: a after a");

        QTest::newRow("no id") << QByteArray("{\"services\": [{\"program\": \"p\"}]}") << "1:15: \"id\" is missing";
        QTest::newRow("no program") << QByteArray("{\"services\": [{\"id\": \"a\"}]}")
                                    << "1:15: \"program\" is missing";
        QTest::newRow("id") << QByteArray("{\"services\": [{\"id\": \"a/b\", \"program\": \"p\"}]}")
                            << "1:22: an id has letters, digits, '-' and '_' only: \"a/b\"";
        QTest::newRow("equal ids") << QByteArray("{\"services\": [{\"id\": \"a\", \"program\": \"p\"},\n"
                                                 "{\"id\": \"a\", \"program\": \"p\"}]}")
                                   << "2:8: another service has the id \"a\"";
        QTest::newRow("circle") << QByteArray(
            "{\"services\": [{\"id\": \"a\", \"program\": \"p\", \"after\": [\"b\"]},\n"
            "{\"id\": \"b\", \"program\": \"p\", \"after\": [\"c\"]},\n"
            "{\"id\": \"c\", \"program\": \"p\", \"after\": [\"a\"]}]}")
                                << "3:39: services that wait for each other: a after b after c after a";
        QByteArray many = "{\"services\": [1";
        for (int i = 0; i < 1000; ++i)
            many += ",1";
        QTest::newRow("many") << many + "]}"
                              << "1:14: there are more than 1000 services";
    }
    void aMistakeIsToldWithItsPlace()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, line);
        QCOMPARE(check(text, 1), QStringList(line));
    }

    void allMistakesAreToldInTheOrderOfTheFile()
    {
        QCOMPARE(check("{\"services\": [\n"
                       "{\"id\": \"a\", \"after\": [\"x\"], \"program\": 1},\n"
                       "{\"id\": \"b\", \"program\": \"p\", \"nise\": 1, \"nice\": 77},\n"
                       "{\"id\": \"a\"}]}",
                       1),
                 QStringList({"2:23: no service has the id \"x\"", "2:40: \"program\" is a text, not a whole number",
                              "3:29: unknown key \"nise\"", "3:48: \"nice\" is from -20 to 19",
                              "4:1: \"program\" is missing", "4:8: another service has the id \"a\""}));
    }

    void aThousandServicesInOneChainAreFine()
    {
        QByteArray text = "{\"services\": [";
        for (int i = 0; i < 1000; ++i) {
            text += QByteArray(i ? "," : "") + "{\"id\": \"s" + QByteArray::number(i) + "\", \"program\": \"p\"";
            if (i < 999)
                text += ", \"after\": [\"s" + QByteArray::number(i + 1) + "\"]";
            text += "}";
        }
        QCOMPARE(check(text + "]}", 0), QStringList());
    }

    void aBrokenFileStartsNothing()
    {
        const QString trace = m_folder.filePath("trace");
        const QString file = write("{\"services\": [{\"id\": \"a\", \"program\": \"touch\", \"arguments\": [\""
                                   + trace.toUtf8() + "\"]}],}");
        const End end = runSupervisor({"--name", QString("supcheck-%1").arg(QCoreApplication::applicationPid()), file});
        QCOMPARE(end.status, 1);
        QVERIFY2(end.errors.endsWith(": a comma too many\n"), end.errors.constData());
        QVERIFY(!QFile::exists(trace));
    }

    void filesThatCannotBeReadAreTold()
    {
        const QString missing = m_folder.filePath("missing.json");
        End end = runSupervisor({"--check", missing});
        QCOMPARE(end.status, 1);
        QCOMPARE(QString(end.errors),
                 QString("orvo-supervisor: cannot read %1: No such file or directory\n").arg(missing));
        end = runSupervisor({"--check", m_folder.path()});
        QCOMPARE(end.status, 1);
        QCOMPARE(QString(end.errors),
                 QString("orvo-supervisor: cannot read %1: it is a folder\n").arg(m_folder.path()));
        end = runSupervisor({"--check", write(QByteArray(5 * 1024 * 1024, ' '))});
        QCOMPARE(end.status, 1);
        QVERIFY2(end.errors.contains("more than 4194304 bytes"), end.errors.constData());
    }

    void aBadCommandLineIsTold_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("no file") << QStringList() << QByteArray("name one file; see orvo-supervisor --help");
        QTest::newRow("two files") << QStringList({"a", "b"})
                                   << QByteArray("name one file; see orvo-supervisor --help");
        QTest::newRow("option") << QStringList({"--loud", "a"}) << QByteArray("Unknown option 'loud'.");
        QTest::newRow("name") << QStringList({"--name", "a/b", "a"})
                              << QByteArray("a name has letters, digits, '-' and '_' only: 'a/b'");
    }
    void aBadCommandLineIsTold()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, text);
        const End end = runSupervisor(arguments);
        QCOMPARE(end.status, 2);
        QCOMPARE(end.errors, "orvo-supervisor: " + text + "\n");
    }

    void aNameThatIsServedIsRefused()
    {
        const QString name = QString("supcheck-%1").arg(QCoreApplication::applicationPid());
        QLocalServer server;
        QVERIFY(server.listen(CMRPCSocket::socketPathFromPrefix(name)));
        const End end = runSupervisor({"--name", name, write("{\"services\": []}")});
        QCOMPARE(end.status, 1);
        QVERIFY2(end.errors.startsWith("orvo-supervisor: another process serves the name"), end.errors.constData());
    }
};

QTEST_GUILESS_MAIN(tst_OrvoSupervisor_Check)

#include "tst_orvosupervisor_check.moc"
