#include "core/model/cmoperation.h"

#include "records/orvoedit.h"
#include "records/orvooperation.h"
#include "records/orvovalue.h"

#include <QtTest>

#include <climits>
#include <cmath>

namespace {

OrvoValue made(int tag, double number)
{
    switch (tag) {
    case 1:
        return OrvoValue().setBool_(number != 0);
    case 2:
        return OrvoValue().setByte_(static_cast<signed char>(number));
    case 3:
        return OrvoValue().setI16_(short(number));
    case 4:
        return OrvoValue().setI32_(int(number));
    case 5:
        return OrvoValue().setI64_(static_cast<long long>(number));
    case 6:
        return OrvoValue().setDouble_(number);
    default:
        return OrvoValue().setString_(QString::number(number));
    }
}

OrvoValue stepped(const OrvoValue& value, const OrvoEdit& edit, int steps, bool wrap = false)
{
    const auto addSteps = OrvoOperationAddSteps().setSteps(steps).setWrap(wrap);
    return CMOperation::apply(value, edit, OrvoOperation().setAddSteps(addSteps));
}

OrvoValue added(const OrvoValue& value, const OrvoValue& argument)
{
    return CMOperation::apply(value, OrvoEdit(), OrvoOperation().setAdd(OrvoOperationAdd().setArgument(argument)));
}

} // namespace

class tst_CMOperation : public QObject
{
    Q_OBJECT

private slots:
    void notNegatesABool()
    {
        const OrvoOperation operation = OrvoOperation().setNot_(OrvoOperationNot_());
        QCOMPARE(CMOperation::apply(made(1, 1), OrvoEdit(), operation), made(1, 0));
        QCOMPARE(CMOperation::apply(made(1, 0), OrvoEdit(), operation), made(1, 1));
    }

    void notReadsAnyOtherTypeAsABool()
    {
        const OrvoOperation operation = OrvoOperation().setNot_(OrvoOperationNot_());
        for (int tag = 2; tag <= 7; ++tag)
            QCOMPARE(CMOperation::apply(made(tag, 5), OrvoEdit(), operation), made(1, 1));
        QCOMPARE(CMOperation::apply(OrvoValue(), OrvoEdit(), operation), made(1, 1));
    }

    void addSumsNumbersOfOneType()
    {
        for (int tag = 2; tag <= 6; ++tag)
            QCOMPARE(added(made(tag, 5), made(tag, -7)), made(tag, -2));
        QCOMPARE(added(made(6, 0.5), made(6, 0.25)).double_(), 0.75);
    }

    void addReadsTheArgumentWithTheAccessorOfTheValue()
    {
        // Another type has nothing under this accessor.
        QCOMPARE(added(made(4, 5), made(5, 7)), made(4, 5));
        QCOMPARE(added(made(6, 5), made(4, 7)), made(6, 5));
    }

    void addGivesNothingForOtherTypes()
    {
        QVERIFY(added(made(1, 1), made(1, 1)).isEmpty());
        QVERIFY(added(made(7, 1), made(7, 1)).isEmpty());
        QVERIFY(added(OrvoValue(), made(4, 1)).isEmpty());
    }

    void addIgnoresLimits()
    {
        const auto operation = OrvoOperation().setAdd(OrvoOperationAdd().setArgument(made(4, 100)));
        QCOMPARE(CMOperation::apply(made(4, 5), OrvoEdit().setMax("10"), operation), made(4, 105));
    }

    void stepsAreMultiplesOfTheEditsStep()
    {
        const OrvoEdit edit = OrvoEdit().setStep("5").setMin("0").setMax("12");
        for (int tag : {2, 4, 5, 6}) {
            QCOMPARE(stepped(made(tag, 10), edit, 2), made(tag, 20));
            QCOMPARE(stepped(made(tag, 10), edit, -3), made(tag, -5));
            QCOMPARE(stepped(made(tag, 10), edit, 0), made(tag, 10));
        }
    }

    void aStepThatIsNotSetMovesNothing()
    {
        for (int tag : {2, 4, 5, 6})
            QCOMPARE(stepped(made(tag, 10), OrvoEdit(), 2), made(tag, 10));
    }

    void doublesAreRoundedOnce()
    {
        const OrvoEdit edit = OrvoEdit().setStep("0.1");
        QCOMPARE(stepped(OrvoValue().setDouble_(-0.3), edit, 3).double_(), std::fma(3, 0.1, -0.3));
        QVERIFY(std::fma(3, 0.1, -0.3) != 3 * 0.1 - 0.3);
    }

    void sixteenBitsHaveNoSteps()
    {
        const OrvoEdit edit = OrvoEdit().setStep("1").setMin("0").setMax("10");
        QVERIFY(stepped(made(3, 5), edit, 1).isEmpty());
        QVERIFY(stepped(made(3, 5), edit, 1, true).isEmpty());
        QVERIFY(stepped(made(3, 10), edit, 1, false).isEmpty());
    }

    void otherTypesHaveNoSteps()
    {
        const OrvoEdit edit = OrvoEdit().setStep("1").setMin("0").setMax("0");
        for (bool wrap : {false, true}) {
            QVERIFY(stepped(made(1, 1), edit, 1, wrap).isEmpty());
            QVERIFY(stepped(made(7, 1), edit, 1, wrap).isEmpty());
            QVERIFY(stepped(OrvoValue(), edit, 1, wrap).isEmpty());
        }
    }

    void wrappingLandsOnTheOppositeLimit()
    {
        const OrvoEdit edit = OrvoEdit().setStep("2").setMin("1").setMax("9");
        for (int tag = 2; tag <= 6; ++tag) {
            QCOMPARE(stepped(made(tag, 9), edit, 1, true), made(tag, 1));
            QCOMPARE(stepped(made(tag, 9), edit, 100, true), made(tag, 1));
            QCOMPARE(stepped(made(tag, 12), edit, 1, true), made(tag, 1));
            QCOMPARE(stepped(made(tag, 1), edit, -1, true), made(tag, 9));
            QCOMPARE(stepped(made(tag, -5), edit, -7, true), made(tag, 9));
        }
    }

    void wrappingStepsOnAwayFromTheLimits()
    {
        const OrvoEdit edit = OrvoEdit().setStep("2").setMin("1").setMax("9");
        for (int tag : {2, 4, 5, 6}) {
            // One below the maximum: beyond it, the validator limits later.
            QCOMPARE(stepped(made(tag, 8), edit, 2, true), made(tag, 12));
            QCOMPARE(stepped(made(tag, 9), edit, -1, true), made(tag, 7));
            QCOMPARE(stepped(made(tag, 1), edit, 1, true), made(tag, 3));
            QCOMPARE(stepped(made(tag, 9), edit, 0, true), made(tag, 9));
        }
    }

    void withoutWrapALimitIsPassed()
    {
        const OrvoEdit edit = OrvoEdit().setStep("2").setMin("1").setMax("9");
        QCOMPARE(stepped(made(4, 9), edit, 1), made(4, 11));
        QCOMPARE(stepped(made(4, 1), edit, -1), made(4, -1));
    }

    void aLimitThatIsNotSetIsNoneToWrapAt()
    {
        for (int tag : {2, 4, 5, 6}) {
            QCOMPARE(stepped(made(tag, 0), OrvoEdit().setStep("1"), 1, true), made(tag, 1));
            QCOMPARE(stepped(made(tag, 0), OrvoEdit().setStep("1"), -1, true), made(tag, -1));
            QCOMPARE(stepped(made(tag, -3), OrvoEdit().setStep("1").setMax("10"), -1, true), made(tag, -4));
            QCOMPARE(stepped(made(tag, 3), OrvoEdit().setStep("1").setMin("1"), 1, true), made(tag, 4));
        }
    }

    void wideNumbersKeepTheirDigits()
    {
        const OrvoEdit edit = OrvoEdit().setStep("1").setMin("0").setMax("9007199254740993");
        QCOMPARE(stepped(OrvoValue().setI64_(9007199254740992), edit, 1).i64_(), 9007199254740993);
        QCOMPARE(stepped(OrvoValue().setI64_(9007199254740993), edit, 1, true).i64_(), 0LL);
        QCOMPARE(stepped(OrvoValue().setI64_(0), edit, -1, true).i64_(), 9007199254740993);
    }

    void anUnknownOperationGivesNothing()
    {
        QVERIFY(CMOperation::apply(made(4, 5), OrvoEdit(), OrvoOperation()).isEmpty());
        QVERIFY(CMOperation::apply(made(4, 5), OrvoEdit(), OrvoOperation(QVariantHash{{"mul", 5}})).isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_CMOperation)
#include "tst_cmoperation.moc"
