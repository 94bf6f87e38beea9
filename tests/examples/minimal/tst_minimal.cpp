#include "core/model/cmrpccommon.h"

#include <QFile>
#include <QProcess>
#include <QtTest>

/// The smallest programs, each against a service of its own, with what they print.
class tst_Minimal : public QObject
{
    Q_OBJECT

private:
    struct End
    {
        bool well = false;
        QByteArray output;
    };
    /// Runs it against a fresh service.
    static End run(const QString& name)
    {
        const auto program = [](const QString& what) { return QStringLiteral(ORVO_TEST_MINIMAL "/minimal_") + what; };
        QProcess client;
        client.start(program(name), QStringList());
        // Behind the client, which waits for it.
        QProcess service;
        service.start(program("service"), QStringList());
        const bool ended = client.waitForFinished(20000);
        service.kill();
        service.waitForFinished();
        QFile::remove(CMRPCSocket::socketPathFromPrefix(QStringLiteral("lamp")));
        return {ended && client.exitStatus() == QProcess::NormalExit && client.exitCode() == 0,
                client.readAllStandardOutput()};
    }

private slots:
    void programsPrintWhatTheyHear_data()
    {
        QTest::addColumn<QByteArray>("printed");
        const auto row = [](const char* name, const char* printed) { QTest::newRow(name) << QByteArray(printed); };
        row("item", "Brightness 50, at most 100\nBrightness 80, at most 100\n");
        row("valueitem", "brightness 50\nbrightness 80\n");
        row("valuebinding", "brightness 50\nbrightness 80\n");
        row("rowsbrowser", "row 0 of 1000: [Scene 0] [Scene 1] [Scene 2]\n"
                           "row 500 of 1000: [Scene 498] [Scene 499] [Scene 500] [Scene 501] [Scene 502]\n");
        row("browser", "  Scenes: Scene 0\n  Scenes: Scene 1\n    History: 50\n  Scenes: Scene 1\n");
        row("rowsfetcher", "1000 titles, the last one is Scene 999\n");
        row("rowsclone", "row 0 new: 50\nloaded\nrow 1 new: 80\n");
        row("initwatcher", "starts with brightness 50 and the list History\nbrightness 80\n");
        row("requestgroup", "4 replies\nbrightness 80\n1000 rows\nmistake: CMAbstractWorker::invalidPath\n");
        row("changesmerger", "once for 100 changes\n");
        row("datatransfer", "[one two]\n[three]\nended well\n");
    }
    void programsPrintWhatTheyHear()
    {
        QFETCH(QByteArray, printed);
        const End end = run(QTest::currentDataTag());
        QCOMPARE(end.output, printed);
        QVERIFY(end.well);
    }

    void clientHearsOfItsWriteAndOfTheList()
    {
        const End end = run("client");
        QVERIFY2(end.well, end.output);
        QVERIFY2(end.output.endsWith("brightness 100, list History\n"), end.output);
    }
};

QTEST_GUILESS_MAIN(tst_Minimal)
#include "tst_minimal.moc"
