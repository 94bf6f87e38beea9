#include "core/model/cmedit.h"

#include "core/model/cmpath.h"
#include "logcapture.h"
#include "records/orvoedit.h"
#include "records/orvovalue.h"

#include <QtTest>

#include <climits>

namespace {

/// A value of the tag, so that one table serves all numeric types.
OrvoValue made(int tag, double number)
{
    switch (tag) {
    case 2:
        return OrvoValue().setByte_(static_cast<signed char>(number));
    case 3:
        return OrvoValue().setI16_(short(number));
    case 4:
        return OrvoValue().setI32_(int(number));
    case 5:
        return OrvoValue().setI64_(static_cast<long long>(number));
    default:
        return OrvoValue().setDouble_(number);
    }
}

OrvoValue validated(const OrvoValue& value, const OrvoEdit& edit)
{
    return CMEdit::validate(OrvoValue(), value, edit, CMPath::fromEncoded("x:v"));
}

} // namespace

class tst_CMEdit : public QObject
{
    Q_OBJECT

private slots:
    void numbersAreRoundedAndLimited_data()
    {
        QTest::addColumn<QString>("step");
        QTest::addColumn<QString>("min");
        QTest::addColumn<QString>("max");
        QTest::addColumn<double>("written");
        QTest::addColumn<double>("stored");
        QTest::newRow("nothing set") << ""
                                     << ""
                                     << "" << 7.0 << 7.0;
        QTest::newRow("step down") << "5"
                                   << ""
                                   << "" << 7.0 << 5.0;
        QTest::newRow("step up") << "5"
                                 << ""
                                 << "" << 8.0 << 10.0;
        QTest::newRow("on the grid") << "5"
                                     << ""
                                     << "" << 10.0 << 10.0;
        QTest::newRow("maximum") << ""
                                 << "0"
                                 << "100" << 120.0 << 100.0;
        QTest::newRow("minimum") << ""
                                 << "0"
                                 << "100" << -5.0 << 0.0;
        QTest::newRow("minimum alone") << ""
                                       << "3"
                                       << "" << 1.0 << 3.0;
        QTest::newRow("maximum alone") << ""
                                       << ""
                                       << "3" << 4.0 << 3.0;
        QTest::newRow("at the limits") << ""
                                       << "3"
                                       << "3" << 3.0 << 3.0;
        QTest::newRow("maximum wins over a greater minimum") << ""
                                                             << "9"
                                                             << "3" << 5.0 << 3.0;
        QTest::newRow("a minimum moves off the grid") << "5"
                                                      << "7"
                                                      << "" << 6.0 << 7.0;
        QTest::newRow("a maximum moves off the grid") << "5"
                                                      << ""
                                                      << "8" << 8.0 << 8.0;
        QTest::newRow("unreadable limits are 0") << ""
                                                 << "x"
                                                 << "y" << 5.0 << 0.0;
    }

    void numbersAreRoundedAndLimited()
    {
        QFETCH(QString, step);
        QFETCH(QString, min);
        QFETCH(QString, max);
        QFETCH(double, written);
        QFETCH(double, stored);
        const OrvoEdit edit = OrvoEdit().setStep(step).setMin(min).setMax(max);
        for (int tag = 2; tag <= 6; ++tag)
            QCOMPARE(validated(made(tag, written), edit), made(tag, stored));
    }

    void negativeIntegersRoundTowardZero()
    {
        for (int tag = 2; tag <= 5; ++tag) {
            QCOMPARE(validated(made(tag, -7), OrvoEdit().setStep("5")), made(tag, -5));
            QCOMPARE(validated(made(tag, -8), OrvoEdit().setStep("5")), made(tag, -5));
            QCOMPARE(validated(made(tag, -12), OrvoEdit().setStep("5")), made(tag, -10));
        }
        QCOMPARE(validated(made(6, -8), OrvoEdit().setStep("5")), made(6, -10));
    }

    void aStepThatReadsAsZeroGivesZeroForIntegers()
    {
        for (int tag = 2; tag <= 5; ++tag) {
            QCOMPARE(validated(made(tag, 7), OrvoEdit().setStep("0")), made(tag, 0));
            QCOMPARE(validated(made(tag, 7), OrvoEdit().setStep("five")), made(tag, 0));
            QCOMPARE(validated(made(tag, 7), OrvoEdit().setStep("2.5")), made(tag, 0));
        }
    }

    void doublesRoundToTheNearestMultiple()
    {
        const OrvoEdit edit = OrvoEdit().setStep("0.5");
        QCOMPARE(validated(made(6, 0.74), edit).double_(), 0.5);
        QCOMPARE(validated(made(6, 0.75), edit).double_(), 1.0);
        QCOMPARE(validated(made(6, -0.75), edit).double_(), -1.0);
    }

    void wideNumbersKeepTheirDigits()
    {
        const OrvoEdit edit = OrvoEdit().setMin("-9223372036854775808").setMax("9223372036854775806");
        QCOMPARE(validated(OrvoValue().setI64_(LLONG_MAX), edit).i64_(), LLONG_MAX - 1);
        QCOMPARE(validated(OrvoValue().setI64_(LLONG_MIN), edit).i64_(), LLONG_MIN);
        // A limit outside of the payload's range is none.
        QCOMPARE(validated(OrvoValue().setByte_(100), OrvoEdit().setMax("1000")).byte_(),
                 static_cast<signed char>(100));
    }

    void boolsAndTextsHaveNoNumericLimits()
    {
        const OrvoEdit edit = OrvoEdit().setStep("5").setMin("10").setMax("20");
        QCOMPARE(validated(OrvoValue().setBool_(true), edit), OrvoValue().setBool_(true));
        QCOMPARE(validated(OrvoValue().setString_("7"), edit), OrvoValue().setString_("7"));
        QCOMPARE(validated(OrvoValue(), edit), OrvoValue());
    }

    void aTextThatIsTooShortRestoresTheOldOne()
    {
        const OrvoValue old = OrvoValue().setString_("before");
        const OrvoEdit edit = OrvoEdit().setMinLength(3);
        QCOMPARE(CMEdit::validate(old, OrvoValue().setString_("ab"), edit, CMPath()), old);
        QCOMPARE(CMEdit::validate(old, OrvoValue().setString_("abc"), edit, CMPath()).string_(), QString("abc"));
        // Restored as it is, also when there was none.
        QVERIFY(CMEdit::validate(OrvoValue(), OrvoValue().setString_("ab"), edit, CMPath()).isEmpty());
    }

    void aTextThatIsTooLongIsCut()
    {
        const OrvoEdit edit = OrvoEdit().setMaxLength(3);
        QCOMPARE(validated(OrvoValue().setString_("abcd"), edit).string_(), QString("abc"));
        QCOMPARE(validated(OrvoValue().setString_("abc"), edit).string_(), QString("abc"));
        QCOMPARE(validated(OrvoValue().setString_("abc"), OrvoEdit().setMaxLength(0)).string_(), QString());
    }

    void aRestoredTextIsCutAsWell()
    {
        const OrvoEdit edit = OrvoEdit().setMinLength(2).setMaxLength(4);
        const OrvoValue old = OrvoValue().setString_("longer");
        QCOMPARE(CMEdit::validate(old, OrvoValue().setString_("a"), edit, CMPath()).string_(), QString("long"));
    }

    void aLengthThatIsNotThereIsNoLimit()
    {
        QVERIFY(!OrvoEdit().__contains(OrvoEdit::MaxLength()));
        QCOMPARE(validated(OrvoValue().setString_("abc"), OrvoEdit()).string_(), QString("abc"));
    }

    void anotherTypeIsBlocked()
    {
        const LogCapture log("CMEdit");
        const OrvoValue old = OrvoValue().setI32_(5);
        QCOMPARE(CMEdit::validate(old, OrvoValue().setString_("7"), OrvoEdit(), CMPath::fromEncoded("x:v?a=1")), old);
        QCOMPARE(log.lines(), QStringList("ERROR Blocking new value because types do not match. Old type: 4 vs new "
                                          "type: 7, path: x:v?a=1"));
    }

    void aValueWithoutATypeIsBlocked()
    {
        const LogCapture log("CMEdit");
        const OrvoValue old = OrvoValue().setBool_(true);
        QCOMPARE(CMEdit::validate(old, OrvoValue(), OrvoEdit(), CMPath::fromEncoded("x:v")), old);
        QCOMPARE(log.lines(), QStringList("ERROR Blocking new value because it hasn't got defined type, path: x:v"));
    }

    void theFirstWriteDecidesTheType()
    {
        const LogCapture log("CMEdit");
        for (int tag = 2; tag <= 6; ++tag)
            QCOMPARE(validated(made(tag, 1), OrvoEdit()), made(tag, 1));
        QCOMPARE(validated(OrvoValue(), OrvoEdit()), OrvoValue());
        QVERIFY(log.lines().isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_CMEdit)
#include "tst_cmedit.moc"
