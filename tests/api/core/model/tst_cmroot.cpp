#include "core/model/cmroot.h"

#include "childprocess.h"
#include "core/model/cmworker.h"

#include <QtTest>

#include <memory>

class tst_CMRoot : public QObject
{
    Q_OBJECT

private slots:
    void theRootIsNullUntilItIsSet()
    {
        QVERIFY(!CMRoot());
        CMWorker worker({}, "root");
        CMRoot_setInstance(&worker);
        QCOMPARE(CMRoot(), &worker);
    }

    void aSecondRootStopsTheProcess_data()
    {
        QTest::addColumn<QString>("second");
        QTest::newRow("another") << "another";
        QTest::newRow("the same") << "same";
        QTest::newRow("null") << "null";
    }

    void aSecondRootStopsTheProcess()
    {
        QFETCH(QString, second);
        const ChildEnd end = runThisProgram({"--twice", second});
        QVERIFY(end.stopped);
        QVERIFY2(end.errors.contains("ASSERT: \"!s_root\""), end.errors.constData());
    }

    void theRootIsNotOwned()
    {
        const ChildEnd end = runThisProgram({"--once"});
        QVERIFY(!end.stopped);
        QCOMPARE(end.exitCode, 0);
    }
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.value(1).startsWith(QLatin1String("--"))) {
        leaveNoCore();
        auto worker = std::make_unique<CMWorker>(QHash<QString, QVariant>(), "root");
        CMWorker other({}, "other");
        CMRoot_setInstance(worker.get());
        if (arguments.value(1) == QLatin1String("--once")) {
            worker.reset();
            return 0;
        }
        const QString second = arguments.value(2);
        CMRoot_setInstance(second == QLatin1String("same")      ? worker.get()
                           : second == QLatin1String("another") ? &other
                                                                : nullptr);
        return 0;
    }
    tst_CMRoot test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_cmroot.moc"
