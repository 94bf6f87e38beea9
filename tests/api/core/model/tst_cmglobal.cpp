#include "core/model/cmglobal.h"

#include "childprocess.h"
#include "records/orvoroles.h"

#include <QDate>
#include <QtTest>

class tst_CMGlobal : public QObject
{
    Q_OBJECT

private slots:
    void onlyWhatCarriesSomethingIsKept_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<bool>("kept");
        const auto row = [](const char* name, const QVariant& value, bool kept) {
            QTest::newRow(name) << value << kept;
        };
        row("invalid", QVariant(), false);
        row("null int", QVariant(QVariant::Int), false);
        row("null text", QVariant(QString()), false);
        row("null of another type", QVariant(QVariant::Date), false);
        row("false", false, false);
        row("true", true, true);
        row("int 0", 0, false);
        row("int", -1, true);
        row("uint 0", 0u, false);
        row("uint", 1u, true);
        row("greatest uint", ~0u, true);
        row("long long 0", 0LL, false);
        row("long long", 0x100000000LL, true);
        row("unsigned long long 0", 0ULL, false);
        row("unsigned long long", ~0ULL, true);
        row("double 0", 0.0, false);
        row("negative zero", -0.0, false);
        row("double", 0.25, true);
        row("empty text", QVariant(QStringLiteral("")), false);
        row("text", QVariant(QStringLiteral("0")), true);
        row("empty list", QVariantList(), false);
        row("list", QVariantList{QVariant()}, true);
        row("empty hash", QVariantHash(), false);
        row("hash", QVariantHash{{"a", QVariant()}}, true);
        row("bytes", QByteArray("bytes"), false);
        row("map", QVariantMap{{"a", 1}}, false);
        row("string list", QStringList{"a"}, false);
        row("date", QDate(2020, 1, 1), false);
        row("float", QVariant::fromValue(1.0f), false);
        row("char", QVariant(QChar('a')), false);
    }

    void onlyWhatCarriesSomethingIsKept()
    {
        QFETCH(QVariant, value);
        QFETCH(bool, kept);
        const OrvoRoles roles = CMGlobal::rolesValuesToHash({"role"}, {value});
        QCOMPARE(roles.__contains("role"), kept);
        QCOMPARE(roles.__hash(), kept ? QVariantHash({{"role", value}}) : QVariantHash());
    }

    void theOtherRolesAreLeftOut()
    {
        const OrvoRoles roles =
            CMGlobal::rolesValuesToHash({OrvoRoles::Disabled(), OrvoRoles::Title()}, {false, QStringLiteral("Text")});
        QCOMPARE(roles, OrvoRoles().setTitle("Text"));
    }

    void nothingGivesAnEmptyRecord() { QVERIFY(CMGlobal::rolesValuesToHash({}, {}).isEmpty()); }

    void aRoleListedTwiceKeepsTheLastValueThatWasKept()
    {
        QCOMPARE(CMGlobal::rolesValuesToHash({"a", "a", "a"}, {1, 2, 0}).__hash(), QVariantHash({{"a", 2}}));
    }

    void valuesStandInTheOrderOfTheRoles()
    {
        const OrvoRoles item = OrvoRoles().setTitle("Text").setDisabled(false);
        const QList<QVariant> values =
            CMGlobal::itemRolesToList({OrvoRoles::Disabled(), "unknown", OrvoRoles::Title(), OrvoRoles::Title()}, item);
        QCOMPARE(values.size(), 4);
        QCOMPARE(values.at(0), QVariant(false));
        QVERIFY(!values.at(1).isValid());
        QCOMPARE(values.at(2), QVariant("Text"));
        QCOMPARE(values.at(3), QVariant("Text"));
        QVERIFY(CMGlobal::itemRolesToList({}, item).isEmpty());
    }

    void unequalListsStopTheProcess()
    {
        const ChildEnd end = runThisProgram({"--fatal"});
        QVERIFY(end.stopped);
        QVERIFY2(end.errors.contains("roles.size()==values.size()"), end.errors.constData());
    }
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    if (application.arguments().value(1) == QLatin1String("--fatal")) {
        leaveNoCore();
        CMGlobal::rolesValuesToHash({"a", "b"}, {1});
        return 0;
    }
    tst_CMGlobal test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_cmglobal.moc"
