#include "configdocument.h"

#include <QtTest>

namespace {

QVariant fitted(const QString& place, QVariant value)
{
    const QString problem = ConfigDocument::fit(place, value);
    return problem.isEmpty() ? value : QVariant("! " + problem);
}

QVariantHash document(int sortBy, int showHidden, int recentSize)
{
    return {{"library", QVariantHash{{"sortBy", sortBy}, {"showHidden", showHidden}}},
            {"recent", QVariantHash{{"size", recentSize}}}};
}

} // namespace

class tst_ConfigDocument : public QObject
{
    Q_OBJECT

private slots:
    void theDefaultsAreWholeAndFit()
    {
        QCOMPARE(ConfigDocument::defaults(), document(0, 0, 10));
        QCOMPARE(fitted("", ConfigDocument::defaults()), QVariant(document(0, 0, 10)));
        QCOMPARE(ConfigDocument::number(ConfigDocument::defaults(), ConfigDocument::recentSize), 10);
    }

    void aNumberIsBroughtWithinItsLimits()
    {
        QCOMPARE(fitted("library/sortBy", 2), QVariant(2));
        QCOMPARE(fitted("library/sortBy", 99), QVariant(3));
        QCOMPARE(fitted("library/sortBy", -1), QVariant(0));
        QCOMPARE(fitted("recent/size", 0), QVariant(1));
        QCOMPARE(fitted("recent/size", 2.0), QVariant(2));
        QCOMPARE(fitted("recent/size", std::numeric_limits<qint64>::max()), QVariant(100));
        QCOMPARE(fitted("recent/size", std::numeric_limits<double>::infinity()), QVariant(100));
        QCOMPARE(fitted("recent/size", 7LL).type(), QVariant::Int);
    }

    void whatIsNoWholeNumberDoesNotFit()
    {
        QCOMPARE(fitted("library/sortBy", 1.5), QVariant("! library/sortBy is not a whole number"));
        QCOMPARE(fitted("library/sortBy", std::numeric_limits<double>::quiet_NaN()),
                 QVariant("! library/sortBy is not a whole number"));
        for (const QVariant& value : {QVariant("1"), QVariant(true), QVariant(), QVariant(QVariantList{1}),
                                      QVariant(QVariantHash{{"sortBy", 1}})})
            QCOMPARE(fitted("library/sortBy", value), QVariant("! library/sortBy is not a number"));
    }

    void aGroupGetsWhatItLacks()
    {
        QCOMPARE(fitted("library", QVariantHash{{"sortBy", 5}}),
                 QVariant(QVariantHash{{"sortBy", 3}, {"showHidden", 0}}));
        QCOMPARE(fitted("", QVariantHash{{"library", QVariantHash{{"showHidden", 1}}}}), QVariant(document(0, 1, 10)));
    }

    void whatIsUnknownDoesNotFit()
    {
        for (const char* place : {"none", "librar", "library/", "/library", "library/none", "library/sortBy/deeper",
                                  "library//sortBy", "/"})
            QCOMPARE(fitted(place, 1), QVariant(QString("! there is no setting %1").arg(place)));
        QCOMPARE(fitted("", QVariantHash{{"none", 1}}), QVariant("! there is no setting none"));
        QCOMPARE(fitted("", QVariantHash{{"library", QVariantHash{{"none", 1}}}}),
                 QVariant("! there is no setting library/none"));
        QCOMPARE(fitted("", QVariantHash{{"library", 1}}), QVariant("! library is not an object"));
        QCOMPARE(fitted("", QVariantList()), QVariant("! the document is not an object"));
    }

    void theTextGivesTheDocumentAgain()
    {
        const QByteArray text = ConfigDocument::print(document(1, 1, 5));
        QVariantHash read;
        QCOMPARE(ConfigDocument::parse(text, read), QString());
        QCOMPARE(read, document(1, 1, 5));
        QCOMPARE(ConfigDocument::print(read), text);
    }

    void aBrokenTextTellsSo()
    {
        QVariantHash read{{"kept", 1}};
        for (const char* text :
             {"", "{", "[]", "null", "{}x", "{\"library\":{\"sortBy\":\"1\"}}", "{\"none\":{}}", "{\"library\":null}"})
            QVERIFY2(!ConfigDocument::parse(text, read).isEmpty(), text);
        QCOMPARE(read, (QVariantHash{{"kept", 1}}));
        QCOMPARE(ConfigDocument::parse("{}", read), QString());
        QCOMPARE(read, document(0, 0, 10));
    }

    void theNumbersOfAValueAreToldByTheirPlaces()
    {
        using Numbers = QMap<QString, int>;
        QCOMPARE(ConfigDocument::numbers("recent/size", 4), (Numbers{{"recent/size", 4}}));
        QCOMPARE(ConfigDocument::numbers("", document(1, 0, 4)),
                 (Numbers{{"library/sortBy", 1}, {"library/showHidden", 0}, {"recent/size", 4}}));
    }
};

QTEST_GUILESS_MAIN(tst_ConfigDocument)
#include "tst_configdocument.moc"
