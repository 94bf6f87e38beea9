#include "orvoserviceprocess.h"

#include "childprocess.h"
#include "core/model/cmroot.h"
#include "core/model/cmrpcserver.h"
#include "support/linkfixture.h"

#include <QFileInfo>

#include <log4cplus/loggingmacros.h>

#include <cstdlib>

class tst_OrvoServiceProcess : public QObject
{
    Q_OBJECT

private slots:
    void warningsAndTheTalkativeLoggersInformationGoToStderr()
    {
        const ChildEnd end = runThisProgram({"--log", "talkative"});
        QCOMPARE(end.exitCode, 0);
        QCOMPARE(end.errors, QByteArray("talkative: INFO: begun\ntalkative: WARN: odd\nother: WARN: odd\n"));
    }

    void withoutATalkativeLoggerOnlyWarningsAreTold()
    {
        const ChildEnd end = runThisProgram({"--log"});
        QCOMPARE(end.exitCode, 0);
        QCOMPARE(end.errors, QByteArray("talkative: WARN: odd\nother: WARN: odd\n"));
    }

    void aServiceNameFitsIntoAPathAndAFileName_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("fits");
        QTest::newRow("all that is allowed") << "My_service-2" << true;
        QTest::newRow("empty") << "" << false;
        QTest::newRow("slash") << "a/b" << false;
        QTest::newRow("colon") << "a:" << false;
        QTest::newRow("dot") << "." << false;
        QTest::newRow("space") << "a b" << false;
        QTest::newRow("letter beyond ASCII") << QStringLiteral("\u00e4") << false;
    }

    void aServiceNameFitsIntoAPathAndAFileName()
    {
        QFETCH(QString, name);
        QTEST(orvoIsServiceName(name), "fits");
    }

    void aNameIsServedWhileItsServerListens()
    {
        const QString name = serviceName("served");
        QVERIFY(!orvoIsServed(name));
        ScriptedWorker worker;
        CMRoot_setInstance(&worker);
        {
            const CMRPCServer server(nullptr, name);
            QVERIFY(orvoIsServed(name));
        }
        QVERIFY(!orvoIsServed(name));
    }

    void theSocketFileOfADeadProcessServesNothing()
    {
        const QString name = serviceName("dead");
        QCOMPARE(runThisProgram({"--die-serving", name}).exitCode, 0);
        const QString file = CMRPCSocket::socketPathFromPrefix(name);
        QVERIFY(QFileInfo::exists(file));
        QVERIFY(!orvoIsServed(name));
        QVERIFY(QFile::remove(file));
    }
};

namespace {

void log(const QString& talkativeLogger)
{
    orvoLogToStderr(talkativeLogger);
    for (const char* name : {"talkative", "other"}) {
        const log4cplus::Logger logger = log4cplus::Logger::getInstance(name);
        LOG4CPLUS_DEBUG(logger, "detail");
        LOG4CPLUS_INFO(logger, "begun");
        LOG4CPLUS_WARN(logger, "odd");
    }
}

[[noreturn]] void dieServing(const QString& name)
{
    ScriptedWorker worker;
    CMRoot_setInstance(&worker);
    const CMRPCServer server(nullptr, name);
    std::_Exit(orvoIsServed(name) ? 0 : 1);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.value(1) == QLatin1String("--log")) {
        log(arguments.value(2));
        return 0;
    }
    if (arguments.value(1) == QLatin1String("--die-serving"))
        dieServing(arguments.value(2));
    tst_OrvoServiceProcess test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_orvoserviceprocess.moc"
