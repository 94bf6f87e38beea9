#include "core/model/cmrpccommon.h"

#include <QFile>
#include <QProcess>
#include <QtTest>

/// The two smallest programs, run against each other.
class tst_Minimal : public QObject
{
    Q_OBJECT

private slots:
    void clientHearsOfItsWriteAndOfTheList()
    {
        QProcess client;
        client.start(QStringLiteral(ORVO_TEST_MINIMAL_CLIENT), QStringList());
        QVERIFY(client.waitForStarted());
        // Behind the client, which waits for it.
        QProcess service;
        service.start(QStringLiteral(ORVO_TEST_MINIMAL_SERVICE), QStringList());
        QVERIFY(service.waitForStarted());

        const bool ended = client.waitForFinished();
        service.kill();
        service.waitForFinished();
        QFile::remove(CMRPCSocket::socketPathFromPrefix(QStringLiteral("lamp")));
        const QByteArray output = client.readAllStandardOutput();
        QVERIFY2(ended, output);
        QCOMPARE(client.exitStatus(), QProcess::NormalExit);
        QCOMPARE(client.exitCode(), 0);
        QVERIFY2(output.endsWith("brightness 100, list History\n"), output);
    }
};

QTEST_GUILESS_MAIN(tst_Minimal)
#include "tst_minimal.moc"
