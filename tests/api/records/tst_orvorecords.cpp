#include "records/orvoconstants.h"
#include "records/orvodevice.h"
#include "records/orvoerror.h"
#include "records/orvoevents.h"
#include "records/orvorowsroles.h"
#include "records/orvorpc.h"
#include "records/thriftregister.h"

#include <QtTest>

#include <type_traits>

namespace {

QtMessageHandler s_previousHandler = nullptr;
QStringList s_messages;

/// Collects what Qt says meanwhile.
struct MessageCapture
{
    MessageCapture()
    {
        s_messages.clear();
        s_previousHandler = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext&, const QString& text) { s_messages.append(text); });
    }
    ~MessageCapture() { qInstallMessageHandler(s_previousHandler); }
};

OrvoHash merged(const QVariantHash& a, const QVariantHash& b)
{
    OrvoHash result(a);
    result.__mergeWith(OrvoHash(b));
    return result;
}

template <typename T>
T sample();
template <>
QString sample()
{
    return QStringLiteral("text");
}
template <>
bool sample()
{
    return true;
}
template <>
int sample()
{
    return -7;
}
template <>
long long sample()
{
    return 1LL << 40;
}
template <>
double sample()
{
    return 2.5;
}
template <>
QVariant sample()
{
    return QVariantList{1, QStringLiteral("a")};
}
template <>
CMPath sample()
{
    return CMPath::fromEncoded("ui:a?k=v");
}
template <>
OrvoHash sample()
{
    return OrvoHash(QVariantHash{{"k", 1}});
}
template <>
OrvoValue sample()
{
    return OrvoValue().setI32_(3);
}
template <>
OrvoRoles sample()
{
    return OrvoRoles().setTitle("t");
}
template <>
OrvoEdit sample()
{
    return OrvoEdit().setMin("1");
}
template <>
OrvoMediaData sample()
{
    return OrvoMediaData().setArtist("a");
}
template <>
OrvoOperation sample()
{
    return OrvoOperation().setNot_(OrvoOperationNot_());
}
template <>
OrvoActionReply sample()
{
    return OrvoActionReply().setXclass("c");
}
template <>
OrvoError sample()
{
    return OrvoError().setName("n");
}
template <>
OrvoNetworkWiredInterface sample()
{
    return OrvoNetworkWiredInterface(QVariantHash{{"k", 1}});
}
template <>
OrvoNetworkWirelessInterface sample()
{
    return OrvoNetworkWirelessInterface(QVariantHash{{"k", 1}});
}
template <>
OrvoGetDataRequest sample()
{
    return OrvoGetDataRequest().setPath(sample<CMPath>());
}
template <>
OrvoSetDataRequest sample()
{
    return OrvoSetDataRequest().setRole("r");
}
template <>
OrvoGetRowsRequest sample()
{
    return OrvoGetRowsRequest().setToRow(4);
}
template <>
OrvoMatchRowsRequest sample()
{
    return OrvoMatchRowsRequest().setMatchFlags(2);
}
template <>
OrvoRequest sample()
{
    return OrvoRequest().setId("i");
}
template <>
OrvoReply sample()
{
    return OrvoReply().setId("i");
}
template <>
OrvoSubscribe sample()
{
    return OrvoSubscribe().setSubscribe(true);
}
template <>
OrvoValueChangeNotification sample()
{
    return OrvoValueChangeNotification().setValue(1);
}
template <>
OrvoDataChangeNotification sample()
{
    return OrvoDataChangeNotification().setPath(sample<CMPath>());
}
template <>
OrvoRowsChangeNotification sample()
{
    return OrvoRowsChangeNotification().setVersion(3);
}
template <>
OrvoChangeNotification sample()
{
    return OrvoChangeNotification().setDataChanged(sample<OrvoDataChangeNotification>());
}
template <>
OrvoList<QString> sample()
{
    return QStringList{"a", "b"};
}
template <>
OrvoList<OrvoNetworkAddress> sample()
{
    return QList<OrvoNetworkAddress>{OrvoNetworkAddress().setIp("x")};
}
template <>
OrvoList<OrvoRowEvent> sample()
{
    return QList<OrvoRowEvent>{OrvoRowEvent().setIndex(3)};
}
template <>
OrvoList<OrvoRowsRolesType::Enum> sample()
{
    return QList<OrvoRowsRolesType::Enum>{OrvoRowsRolesType::Music_, OrvoRowsRolesType::Settings_};
}
template <>
OrvoRolesType::Enum sample()
{
    return OrvoRolesType::Value_;
}
template <>
OrvoRolesContainerType::Enum sample()
{
    return OrvoRolesContainerType::Form_;
}
template <>
OrvoEventSubscribeType::Enum sample()
{
    return OrvoEventSubscribeType::ValueChanged;
}
template <>
OrvoRowEventType::Enum sample()
{
    return OrvoRowEventType::Moved;
}
template <>
OrvoEventItemType::Enum sample()
{
    return OrvoEventItemType::Updated;
}
template <>
OrvoEventRowsType::Enum sample()
{
    return OrvoEventRowsType::Changed;
}
template <>
OrvoSubscribeType::Enum sample()
{
    return OrvoSubscribeType::Rows;
}
template <>
OrvoPowerManagerTargets::Enum sample()
{
    return OrvoPowerManagerTargets::On;
}
template <>
OrvoPowerManagerTargetReason::Enum sample()
{
    return OrvoPowerManagerTargetReason::UserActivity;
}

} // namespace

// One field: its key text, its default, and that a chained setter writes exactly that key.
#define FIELD(Record, Type, getter, Name)                                                                              \
    do {                                                                                                               \
        static_assert(std::is_same<decltype(Record().getter()), Type>::value, #Record "::" #getter);                   \
        static_assert(std::is_same<decltype(std::declval<Record&>().set##Name(std::declval<Type>())), Record&>::value, \
                      #Record "::set" #Name);                                                                          \
        QCOMPARE(Record::Name(), QStringLiteral(#getter));                                                             \
        Record record;                                                                                                 \
        using Field = Type;                                                                                            \
        QVERIFY2(record.getter() == Field(), #Record "::" #getter);                                                    \
        QVERIFY(record.isEmpty());                                                                                     \
        QVERIFY2(&record.set##Name(sample<Type>()) == &record, #Record "::set" #Name);                                 \
        QVERIFY2(record.getter() == sample<Type>(), #Record "::" #getter);                                             \
        QCOMPARE(record.__hash().keys(), QStringList{QStringLiteral(#getter)});                                        \
        QVERIFY2(Record(record.__variant()).getter() == sample<Type>(), #Record "::" #getter);                         \
    } while (false)

class tst_OrvoRecords : public QObject
{
    Q_OBJECT

private slots:
    // The base

    void readingNeverInserts()
    {
        const OrvoHash record;
        QVERIFY(!record.__value("k").isValid());
        QVERIFY(!record.__hashAttribute("k").isValid());
        QVERIFY(!record.__contains("k"));
        QVERIFY(record.isEmpty());
        QVERIFY(record.__isEmpty());
    }

    void aHashIsInsertedReadAndRemovedByKey()
    {
        OrvoHash record;
        record.__insert("k", 1);
        record.__insert("k", 2);
        QCOMPARE(record.__value("k"), QVariant(2));
        QCOMPARE(&record.__setHashAttribute("l", "x"), &record);
        QCOMPARE(record.__hashAttribute("l"), QVariant("x"));
        QVERIFY(record.__contains("k"));
        QVERIFY(!record.isEmpty());
        record.__remove("k");
        QVERIFY(!record.__contains("k"));
        record.clear();
        QVERIFY(record.__isEmpty());
    }

    void aRecordIsMadeFromHashAndVariantAndGivesThemBack()
    {
        const QVariantHash hash{{"a", 1}, {"b", "x"}};
        QCOMPARE(OrvoHash(hash).__hash(), hash);
        QCOMPARE(OrvoHash(QVariant(hash)).__hash(), hash);
        QCOMPARE(OrvoHash(hash).__variant(), QVariant(hash));
        QCOMPARE(OrvoHash(hash).__variant().type(), QVariant::Hash);
        QVERIFY(OrvoHash(QVariant(5)).isEmpty());

        OrvoHash record(QVariantHash{{"old", 1}});
        QCOMPARE(&record.__setHash(hash), &record);
        QCOMPARE(record.__hash(), hash);
        QCOMPARE(&record.__setVariant(QVariantHash{{"c", 3}}), &record);
        QCOMPARE(record.__hash(), (QVariantHash{{"c", 3}}));
        QVERIFY(record.__setVariant(QVariant()).isEmpty());
    }

    void recordsCompareAsTheirHashes()
    {
        const OrvoHash a(QVariantHash{{"a", 1}});
        QVERIFY(a == OrvoHash(QVariantHash{{"a", 1}}));
        QVERIFY(!(a != OrvoHash(QVariantHash{{"a", 1}})));
        QVERIFY(a != OrvoHash(QVariantHash{{"a", 2}}));
        QVERIFY(a != OrvoHash());
        QVERIFY(OrvoRoles().setTitle("t") == OrvoRoles(QVariantHash{{"title", "t"}}));
    }

    void aCopyIsNotChanged()
    {
        const OrvoRoles original = OrvoRoles().setTitle("t");
        OrvoRoles copy = original;
        copy.setTitle("u");
        QCOMPARE(original.title(), QStringLiteral("t"));
    }

    // Deep merge

    void merges_data()
    {
        using H = QVariantHash;
        using L = QVariantList;
        QTest::addColumn<QVariantHash>("a");
        QTest::addColumn<QVariantHash>("b");
        QTest::addColumn<QVariantHash>("result");
        const auto row = [](const char* name, const QVariant& a, const QVariant& b, const QVariant& result) {
            QTest::newRow(name) << H{{"k", a}, {"only a", 1}} << H{{"k", b}, {"only b", 2}}
                                << H{{"k", result}, {"only a", 1}, {"only b", 2}};
        };
        row("scalars", 1, 2, 2);
        row("lists", L{1, 2, 3}, L{3, 4}, L{3, 4, 1, 2});
        row("equal lists", L{1, 2}, L{1, 2}, L{1, 2});
        row("list into an empty one", L(), L{1, 2}, L{1, 2});
        row("empty list into a list", L{1, 2}, L(), L{1, 2});
        row("every equal element goes", L{1, 2, 1, 3, 1}, L{1}, L{1, 2, 3});
        row("repeated element", L{1, 2}, L{2, 2, 3}, L{1, 2, 3});
        row("repeated element over nothing", L(), L{5, 5}, L{5});
        row("string list", QStringList{"a", "b"}, QStringList{"b"}, L{"b", "a"});
        row("list over a scalar", 1, L{1}, L{1});
        row("list over a hash", H{{"x", 1}}, L{1}, L{1});
        row("scalar over a list", L{1}, 1, 1);
        row("hashes", H{{"x", 1}}, H{{"y", 2}}, H{{"x", 1}, {"y", 2}});
        row("hash value", H{{"x", 1}, {"z", 0}}, H{{"x", 2}}, H{{"x", 2}, {"z", 0}});
        row("map into a hash", H{{"x", 1}}, QVariantMap{{"y", 2}}, H{{"x", 1}, {"y", 2}});
        row("scalar over a hash", H{{"x", 1}}, 5, 5);
        row("hash over a scalar", 5, H{{"x", 1}}, H{{"x", 1}});
        row("hash over a list", L{1}, H{{"x", 1}}, H{{"x", 1}});
        row("invalid over a hash", H{{"x", 1}}, QVariant(), QVariant());
        row("hash over invalid", QVariant(), H{{"x", 1}}, H{{"x", 1}});
        row("three deep", H{{"x", H{{"l", L{1, 2}}, {"p", 1}}}}, H{{"x", H{{"l", L{2}}, {"q", 2}}}},
            H{{"x", H{{"l", L{2, 1}}, {"p", 1}, {"q", 2}}}});
        row("hashes in lists do not merge", L{H{{"x", 1}}}, L{H{{"y", 1}}}, L{H{{"y", 1}}, H{{"x", 1}}});
    }

    void merges()
    {
        QFETCH(QVariantHash, a);
        QFETCH(QVariantHash, b);
        const MessageCapture messages;
        QTEST(merged(a, b).__hash(), "result");
        QCOMPARE(s_messages, QStringList());
    }

    void mergingWithNothingChangesNothing()
    {
        const QVariantHash hash{{"a", QVariantList{1, 1}}, {"b", 2}};
        QCOMPARE(merged(hash, {}).__hash(), hash);
        QCOMPARE(merged({}, hash).__hash(), hash);
    }

    void theMergedRecordIsNotChanged()
    {
        OrvoHash a(QVariantHash{{"h", QVariantHash{{"x", 1}}}});
        const OrvoHash copy = a;
        const OrvoHash b(QVariantHash{{"h", QVariantHash{{"y", 1}}}});
        a.__mergeWith(b);
        QCOMPARE(copy.__hash(), (QVariantHash{{"h", QVariantHash{{"x", 1}}}}));
        QCOMPARE(b.__hash(), (QVariantHash{{"h", QVariantHash{{"y", 1}}}}));
    }

    // Values

    void anUnsetValueIsAnEmptyRecordWithoutType()
    {
        QVERIFY(OrvoValue().isEmpty());
        QCOMPARE(OrvoValue().type(), 0);
        QCOMPARE(OrvoValue().i32_(), 0);
        QCOMPARE(OrvoValue().string_(), QString());
    }

    void eachSetterGivesItsTagAndItsPayload()
    {
        OrvoValue value;
        QCOMPARE(&value.setBool_(true), &value);
        QCOMPARE(value.type(), 1);
        QCOMPARE(value.bool_(), true);
        QCOMPARE(value.__hash(), (QVariantHash{{"type", "bool_"}, {"bool_", true}}));
        QCOMPARE(&value.setByte_(-128), &value);
        QCOMPARE(value.type(), 2);
        QCOMPARE(value.byte_(), static_cast<signed char>(-128));
        QCOMPARE(value.__hash().keys().toSet(), (QSet<QString>{"type", "byte_"}));
        QCOMPARE(&value.setI16_(-32768), &value);
        QCOMPARE(value.type(), 3);
        QCOMPARE(value.i16_(), short(-32768));
        QCOMPARE(&value.setI32_(-2147483647 - 1), &value);
        QCOMPARE(value.type(), 4);
        QCOMPARE(value.i32_(), -2147483647 - 1);
        QCOMPARE(&value.setI64_(1LL << 62), &value);
        QCOMPARE(value.type(), 5);
        QCOMPARE(value.i64_(), 1LL << 62);
        QCOMPARE(&value.setDouble_(0.25), &value);
        QCOMPARE(value.type(), 6);
        QCOMPARE(value.double_(), 0.25);
        QCOMPARE(&value.setString_("s"), &value);
        QCOMPARE(value.type(), 7);
        QCOMPARE(value.string_(), QStringLiteral("s"));
        QCOMPARE(value.__hash(), (QVariantHash{{"type", "string_"}, {"string_", "s"}}));
    }

    void aValueSurvivesNumbersThatCameBackFromTextAs64Bit_data()
    {
        QTest::addColumn<OrvoValue>("value");
        QTest::newRow("byte") << OrvoValue().setByte_(-5);
        QTest::newRow("16 bits") << OrvoValue().setI16_(-5);
        QTest::newRow("32 bits") << OrvoValue().setI32_(-5);
        QTest::newRow("64 bits") << OrvoValue().setI64_(-5);
        QTest::newRow("double without fraction") << OrvoValue().setDouble_(-5);
    }

    void aValueSurvivesNumbersThatCameBackFromTextAs64Bit()
    {
        QFETCH(OrvoValue, value);
        QVariantHash received = value.__hash();
        const QString name = received.value("type").toString();
        received[name] = -5LL;
        const OrvoValue back(received);
        QCOMPARE(back.type(), value.type());
        QCOMPARE(back.byte_(), value.byte_());
        QCOMPARE(back.i16_(), value.i16_());
        QCOMPARE(back.i32_(), value.i32_());
        QCOMPARE(back.i64_(), value.i64_());
        QCOMPARE(back.double_(), value.double_());
    }

    void aListOfNumbersHasNoTag()
    {
        OrvoValue value;
        QCOMPARE(&value.setString_("s").setDoubleList(QList<double>{1.5, -2}), &value);
        QCOMPARE(value.type(), 0);
        QCOMPARE(value.doubleList().toTyped(), (QList<double>{1.5, -2}));
        QCOMPARE(value.__hash(), (QVariantHash{{"doubleList", QVariantList{1.5, -2.0}}}));
        const OrvoValue received(QVariantHash{{"doubleList", QVariantList{1LL, 2.5, "3.5"}}});
        QCOMPARE(received.doubleList().value(0), 1.0);
        QCOMPARE(received.doubleList().value(1), 2.5);
        QCOMPARE(received.doubleList().value(2), 3.5);
        QCOMPARE(value.setI32_(1).doubleList().size(), 0);
    }

    void anUnknownTypeTextIsNoType() { QCOMPARE(OrvoValue(QVariantHash{{"type", "x_"}, {"x_", 1}}).type(), 0); }

    // Operations

    void anOperationHoldsOneMember()
    {
        OrvoOperation operation;
        QCOMPARE(operation.type(), -1);
        QCOMPARE(&operation.setNot_(OrvoOperationNot_()), &operation);
        QCOMPARE(operation.type(), int(OrvoOperationType::Not_));
        QCOMPARE(operation.__hash().keys(), QStringList{"not_"});

        operation.setAdd(OrvoOperationAdd().setArgument(OrvoValue().setI32_(4)));
        QCOMPARE(operation.type(), int(OrvoOperationType::Add));
        QCOMPARE(operation.add().argument().i32_(), 4);
        QCOMPARE(operation.__hash().keys(), QStringList{"add"});

        operation.setAddSteps(OrvoOperationAddSteps().setSteps(-3).setWrap(true));
        QCOMPARE(operation.type(), int(OrvoOperationType::AddSteps));
        QCOMPARE(operation.addSteps().steps(), -3);
        QCOMPARE(operation.addSteps().wrap(), true);
        QCOMPARE(operation.__hash().keys(), QStringList{"addSteps"});
        QCOMPARE(OrvoOperation(operation.__variant()).type(), 2);

        QCOMPARE(OrvoOperation::Not_(), QStringLiteral("not_"));
        QCOMPARE(OrvoOperation::Add(), QStringLiteral("add"));
        QCOMPARE(OrvoOperation::AddSteps(), QStringLiteral("addSteps"));
    }

    // Lists

    void aListHoldsOneVariantForEachElement()
    {
        const OrvoList<QString> strings(QStringList{"b", "a"});
        QCOMPARE(static_cast<const QVariantList&>(strings), (QVariantList{"b", "a"}));
        QCOMPARE(strings.value(1), QStringLiteral("a"));
        QCOMPARE(strings.value(2), QString());
        QCOMPARE(strings.value(-1), QString());
        QCOMPARE(strings.toTyped(), (QList<QString>{"b", "a"}));
        QCOMPARE(strings.__variant().type(), QVariant::List);
        QCOMPARE(strings.__variant(), QVariant(QVariantList{"b", "a"}));

        OrvoList<QString> read;
        QCOMPARE(&read.__setVariant(QVariantList{"x"}), &read);
        QCOMPARE(read.toTyped(), QList<QString>{"x"});
        QCOMPARE(OrvoList<QString>(QVariant(QVariantList{"y"})).value(0), QStringLiteral("y"));
    }

    void elementsLieInAListByTheirRecordProtocol()
    {
        OrvoList<OrvoRowEvent> events;
        events << OrvoRowEvent().setType(OrvoRowEventType::Moved).setIndex(1).setToIndex(4);
        events.append(OrvoRowEvent().setIndex(2));
        QCOMPARE(events.at(0).type(), QVariant::Hash);
        QCOMPARE(events.at(0).toHash(), (QVariantHash{{"type", 4}, {"index", 1}, {"toIndex", 4}}));
        QCOMPARE(events.value(0).toIndex(), 4);
        QCOMPARE(events.value(1).index(), 2);
        QVERIFY(events.value(7).isEmpty());

        const OrvoList<OrvoRowsRolesType::Enum> types = sample<OrvoList<OrvoRowsRolesType::Enum>>();
        QCOMPARE(static_cast<const QVariantList&>(types), (QVariantList{2, 3}));
        QCOMPARE(types.value(1), OrvoRowsRolesType::Settings_);

        const OrvoList<CMPath> paths(QList<CMPath>{CMPath::fromEncoded("a?x=1")});
        QCOMPARE(paths.at(0), QVariant("a?x=1"));
        QVERIFY(paths.value(0) == CMPath::fromEncoded("a?x=1"));
    }

    void listsAndRecordsAreMetaTypes()
    {
        ThriftRegister::registerMetaTypes();
        ThriftRegister::registerMetaTypes();
        for (const char* name :
             {"OrvoHash", "OrvoValue", "OrvoEdit", "OrvoOperation", "OrvoRoles", "OrvoRowsRoles", "OrvoError",
              "OrvoActionReply", "OrvoList<OrvoRowsRolesType::Enum>", "OrvoRequest", "OrvoReply", "OrvoEvent"})
            QVERIFY2(QMetaType::isRegistered(QMetaType::type(name)), name);
    }

    // Fields

    void rolesFieldsHaveTheirKeys()
    {
        FIELD(OrvoRoles, OrvoRoles, context, Context);
        FIELD(OrvoRoles, QString, description, Description);
        FIELD(OrvoRoles, bool, disabled, Disabled);
        FIELD(OrvoRoles, QString, icon, Icon);
        FIELD(OrvoRoles, QString, id, Id);
        FIELD(OrvoRoles, QString, longDescription, LongDescription);
        FIELD(OrvoRoles, OrvoMediaData, mediaData, MediaData);
        FIELD(OrvoRoles, CMPath, path, Path);
        FIELD(OrvoRoles, bool, preferred, Preferred);
        FIELD(OrvoRoles, bool, renderAsButton, RenderAsButton);
        FIELD(OrvoRoles, bool, risky, Risky);
        FIELD(OrvoRoles, long long, timestamp, Timestamp);
        FIELD(OrvoRoles, QString, title, Title);
        FIELD(OrvoRoles, OrvoRolesType::Enum, type, Type);
        FIELD(OrvoRoles, OrvoValue, value, Value);
        FIELD(OrvoRoles, bool, modifiable, Modifiable);
        FIELD(OrvoRoles, bool, internal, Internal);
        FIELD(OrvoRoles, OrvoEdit, edit, Edit);
        FIELD(OrvoRoles, CMPath, autoCompletePath, AutoCompletePath);
        FIELD(OrvoRoles, QString, busyText, BusyText);
        FIELD(OrvoRoles, OrvoHash, flags, Flags);
        FIELD(OrvoRoles, OrvoRoles, accept, Accept);
        FIELD(OrvoRoles, bool, activity, Activity);
        FIELD(OrvoRoles, OrvoRoles, cancel, Cancel);
        FIELD(OrvoRoles, bool, containerPlayable, ContainerPlayable);
        FIELD(OrvoRoles, OrvoRolesContainerType::Enum, containerType, ContainerType);
        FIELD(OrvoRoles, bool, fillParent, FillParent);
        FIELD(OrvoRoles, OrvoRoles, search, Search);
        FIELD(OrvoRoles, QString, albumType, AlbumType);
        FIELD(OrvoRoles, QString, audioType, AudioType);
        FIELD(OrvoRoles, OrvoValue, defaultValue, DefaultValue);
        FIELD(OrvoRoles, bool, doNotTrack, DoNotTrack);
        FIELD(OrvoRoles, QString, epgType, EpgType);
        FIELD(OrvoRoles, QString, imageType, ImageType);
        FIELD(OrvoRoles, QVariant, persistentMetaData, PersistentMetaData);
        FIELD(OrvoRoles, QString, personType, PersonType);
        FIELD(OrvoRoles, double, rating, Rating);
        FIELD(OrvoRoles, QString, releaseDate, ReleaseDate);
        FIELD(OrvoRoles, QString, sortKey, SortKey);
        FIELD(OrvoRoles, bool, unknownSize, UnknownSize);
        FIELD(OrvoRoles, QString, valueUnit, ValueUnit);
        FIELD(OrvoRoles, QString, videoType, VideoType);
        FIELD(OrvoRoles, OrvoOperation, valueOperation, ValueOperation);
        FIELD(OrvoRoles, QVariant, activate, Activate);
        FIELD(OrvoRoles, OrvoRoles, setRoles, SetRoles);
        FIELD(OrvoRoles, OrvoValue, query, Query);
    }

    void otherRecordsFieldsHaveTheirKeys()
    {
        FIELD(OrvoRowsRoles, OrvoRoles, roles, Roles);
        FIELD(OrvoRowsRoles, QVariant, rows, Rows);
        FIELD(OrvoRowsRoles, int, rowsCount, RowsCount);
        FIELD(OrvoRowsRoles, int, rowsVersion, RowsVersion);
        FIELD(OrvoRowsRoles, CMPath, rowsRedirect, RowsRedirect);
        FIELD(OrvoRowsRoles, CMPath, rowsBackPath, RowsBackPath);
        FIELD(OrvoRowsRoles, CMPath, rowsBackPathBarrier, RowsBackPathBarrier);
        FIELD(OrvoRowsRoles, int, initialRow, InitialRow);
        FIELD(OrvoRowsRoles, int, closeTimeout, CloseTimeout);
        FIELD(OrvoRowsRoles, OrvoList<OrvoRowsRolesType::Enum>, type, Type);

        FIELD(OrvoEdit, QString, min, Min);
        FIELD(OrvoEdit, QString, max, Max);
        FIELD(OrvoEdit, QString, step, Step);
        FIELD(OrvoEdit, int, minLength, MinLength);
        FIELD(OrvoEdit, int, maxLength, MaxLength);

        FIELD(OrvoActionReply, OrvoRoles, result, Result);
        FIELD(OrvoActionReply, QString, xclass, Xclass);
        FIELD(OrvoError, QString, name, Name);
        FIELD(OrvoError, QString, title, Title);
        FIELD(OrvoError, QString, message, Message);
        FIELD(OrvoError, OrvoActionReply, actionReply, ActionReply);
        FIELD(OrvoError, int, code, Code);
        FIELD(OrvoError, QString, domain, Domain);

        FIELD(OrvoOperationAdd, OrvoValue, argument, Argument);
        FIELD(OrvoOperationAddSteps, int, steps, Steps);
        FIELD(OrvoOperationAddSteps, bool, wrap, Wrap);

        FIELD(OrvoNetworkAddress, QString, ip, Ip);
        FIELD(OrvoNetworkAddress, int, protocol, Protocol);
        FIELD(OrvoNetworkWiredInterface, OrvoList<OrvoNetworkAddress>, addresses, Addresses);
        FIELD(OrvoNetworkWirelessInterface, OrvoList<OrvoNetworkAddress>, addresses, Addresses);
        FIELD(OrvoNetworkInfo, OrvoNetworkWiredInterface, wired, Wired);
        FIELD(OrvoNetworkInfo, OrvoNetworkWirelessInterface, wireless, Wireless);
        FIELD(OrvoNetworkInfo, OrvoList<OrvoNetworkAddress>, dns, Dns);
        FIELD(OrvoNetworkInfo, OrvoList<OrvoNetworkAddress>, gateways, Gateways);
        FIELD(OrvoPowerManagerTarget, OrvoPowerManagerTargets::Enum, target, Target);
        FIELD(OrvoPowerManagerTarget, OrvoPowerManagerTargetReason::Enum, reason, Reason);
    }

    void mediaDataFieldsHaveTheirKeys()
    {
        FIELD(OrvoMediaData, QString, title, Title);
        FIELD(OrvoMediaData, QString, artist, Artist);
        FIELD(OrvoMediaData, QString, album, Album);
        FIELD(OrvoMediaData, QString, albumArtist, AlbumArtist);
        FIELD(OrvoMediaData, QString, genre, Genre);
        FIELD(OrvoMediaData, int, trackNumber, TrackNumber);
        FIELD(OrvoMediaData, int, year, Year);
        FIELD(OrvoMediaData, long long, duration, Duration);
        FIELD(OrvoMediaData, QString, url, Url);
        FIELD(OrvoMediaData, QString, mimeType, MimeType);
        FIELD(OrvoMediaData, QString, codec, Codec);
        FIELD(OrvoMediaData, int, sampleRate, SampleRate);
        FIELD(OrvoMediaData, int, bitRate, BitRate);
        FIELD(OrvoMediaData, int, channels, Channels);
        FIELD(OrvoMediaData, QString, cover, Cover);
    }

    void wireRecordsFieldsHaveTheirKeys()
    {
        FIELD(OrvoEventSubscribe, CMPath, path, Path);
        FIELD(OrvoEventSubscribe, OrvoEventSubscribeType::Enum, type, Type);
        FIELD(OrvoRowEvent, OrvoRowEventType::Enum, type, Type);
        FIELD(OrvoRowEvent, int, index, Index);
        FIELD(OrvoRowEvent, int, toIndex, ToIndex);
        FIELD(OrvoEvent, CMPath, path, Path);
        FIELD(OrvoEvent, OrvoEventItemType::Enum, itemType, ItemType);
        FIELD(OrvoEvent, OrvoValue, itemValue, ItemValue);
        FIELD(OrvoEvent, OrvoEventRowsType::Enum, rowsType, RowsType);
        FIELD(OrvoEvent, OrvoList<OrvoRowEvent>, rowsEvents, RowsEvents);
        FIELD(OrvoEvent, int, rowsVersion, RowsVersion);
        FIELD(OrvoEvent, int, rowsOldVersion, RowsOldVersion);

        FIELD(OrvoGetDataRequest, CMPath, path, Path);
        FIELD(OrvoGetDataRequest, OrvoList<QString>, roles, Roles);
        FIELD(OrvoSetDataRequest, CMPath, path, Path);
        FIELD(OrvoSetDataRequest, QString, role, Role);
        FIELD(OrvoSetDataRequest, QVariant, value, Value);
        FIELD(OrvoGetRowsRequest, CMPath, path, Path);
        FIELD(OrvoGetRowsRequest, int, fromRow, FromRow);
        FIELD(OrvoGetRowsRequest, int, toRow, ToRow);
        FIELD(OrvoGetRowsRequest, int, rowsVersion, RowsVersion);
        FIELD(OrvoGetRowsRequest, OrvoList<QString>, roles, Roles);
        FIELD(OrvoMatchRowsRequest, CMPath, path, Path);
        FIELD(OrvoMatchRowsRequest, int, fromRow, FromRow);
        FIELD(OrvoMatchRowsRequest, QString, role, Role);
        FIELD(OrvoMatchRowsRequest, QVariant, value, Value);
        FIELD(OrvoMatchRowsRequest, int, matchFlags, MatchFlags);
        FIELD(OrvoMatchRowsRequest, int, rowsVersion, RowsVersion);
        FIELD(OrvoRequest, QString, id, Id);
        FIELD(OrvoRequest, bool, cancel, Cancel);
        FIELD(OrvoRequest, OrvoGetDataRequest, getDataRequest, GetDataRequest);
        FIELD(OrvoRequest, OrvoSetDataRequest, setDataRequest, SetDataRequest);
        FIELD(OrvoRequest, OrvoGetRowsRequest, getRowsRequest, GetRowsRequest);
        FIELD(OrvoRequest, OrvoMatchRowsRequest, matchRowsRequest, MatchRowsRequest);
        FIELD(OrvoReply, QString, id, Id);
        FIELD(OrvoReply, QVariant, value, Value);
        FIELD(OrvoReply, OrvoError, error, Error);
        FIELD(OrvoSubscribe, CMPath, path, Path);
        FIELD(OrvoSubscribe, OrvoSubscribeType::Enum, type, Type);
        FIELD(OrvoSubscribe, bool, subscribe, Subscribe);
        FIELD(OrvoValueChangeNotification, CMPath, path, Path);
        FIELD(OrvoValueChangeNotification, QVariant, value, Value);
        FIELD(OrvoDataChangeNotification, CMPath, path, Path);
        FIELD(OrvoRowsChangeNotification, CMPath, path, Path);
        FIELD(OrvoRowsChangeNotification, OrvoList<QString>, changes, Changes);
        FIELD(OrvoRowsChangeNotification, int, version, Version);
        FIELD(OrvoRowsChangeNotification, int, oldVersion, OldVersion);
        FIELD(OrvoChangeNotification, OrvoValueChangeNotification, valueChanged, ValueChanged);
        FIELD(OrvoChangeNotification, OrvoDataChangeNotification, dataChanged, DataChanged);
        FIELD(OrvoChangeNotification, OrvoRowsChangeNotification, rowsChanged, RowsChanged);
        FIELD(OrvoRPCPacket, OrvoRequest, request, Request);
        FIELD(OrvoRPCPacket, OrvoReply, reply, Reply);
        FIELD(OrvoRPCPacket, OrvoSubscribe, subscribe, Subscribe);
        FIELD(OrvoRPCPacket, OrvoChangeNotification, change, Change);
    }

    void aReplyWithoutPayloadStillHasItsValue()
    {
        const OrvoReply reply = OrvoReply().setId("i").setValue(QVariant());
        QVERIFY(reply.__contains(OrvoReply::Value()));
        QVERIFY(!reply.__contains(OrvoReply::Error()));
    }

    void pathsLieInRecordsAsTheirText()
    {
        QCOMPARE(OrvoRoles().setPath(CMPath::fromEncoded("ui:a?k=v")).__value("path"), QVariant("ui:a?k=v"));
    }

    void equalEventSubscriptionsAreOneKey()
    {
        const auto subscription = [](const char* path, OrvoEventSubscribeType::Enum type) {
            return OrvoEventSubscribe().setPath(CMPath::fromEncoded(path)).setType(type);
        };
        QHash<OrvoEventSubscribe, int> counts;
        ++counts[subscription("a", OrvoEventSubscribeType::DataChanged)];
        ++counts[subscription("a", OrvoEventSubscribeType::DataChanged)];
        ++counts[subscription("a", OrvoEventSubscribeType::RowsChanged)];
        ++counts[subscription("b", OrvoEventSubscribeType::DataChanged)];
        QCOMPARE(counts.size(), 3);
        QCOMPARE(counts.value(subscription("a", OrvoEventSubscribeType::DataChanged)), 2);
    }

    // Vocabulary

    void roleTypesTravelAsText_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<QString>("text");
        QTest::newRow("none") << 0 << "";
        QTest::newRow("container") << 1 << "container";
        QTest::newRow("image") << 2 << "image";
        QTest::newRow("audio") << 3 << "audio";
        QTest::newRow("video") << 4 << "video";
        QTest::newRow("playlist") << 5 << "playlist";
        QTest::newRow("query") << 6 << "query";
        QTest::newRow("action") << 7 << "action";
        QTest::newRow("value") << 101 << "value";
    }

    void roleTypesTravelAsText()
    {
        QFETCH(int, type);
        QFETCH(QString, text);
        const auto enumerator = OrvoRolesType::Enum(type);
        QCOMPARE(OrvoRolesType::toString(enumerator), text);
        QCOMPARE(int(OrvoRolesType::fromString(text)), type);
        const OrvoRoles roles = OrvoRoles().setType(enumerator);
        QCOMPARE(roles.__value("type"), QVariant(text));
        QCOMPARE(int(roles.type()), type);
    }

    void roleTypesHaveTheirNames()
    {
        QCOMPARE(int(OrvoRolesType::Container_), 1);
        QCOMPARE(int(OrvoRolesType::Value_), 101);
        QCOMPARE(OrvoRolesType::Container(), QStringLiteral("container"));
        QCOMPARE(OrvoRolesType::Image(), QStringLiteral("image"));
        QCOMPARE(OrvoRolesType::Audio(), QStringLiteral("audio"));
        QCOMPARE(OrvoRolesType::Video(), QStringLiteral("video"));
        QCOMPARE(OrvoRolesType::Playlist(), QStringLiteral("playlist"));
        QCOMPARE(OrvoRolesType::Query(), QStringLiteral("query"));
        QCOMPARE(OrvoRolesType::Action(), QStringLiteral("action"));
        QCOMPARE(OrvoRolesType::Value(), QStringLiteral("value"));
        QCOMPARE(OrvoRolesType::fromString("unknown"), OrvoRolesType::None_);
        QCOMPARE(OrvoRolesType::toString(OrvoRolesType::Enum(99)), QString());
    }

    void logLevelsAndTheirTexts()
    {
        const QMap<int, QString> texts{{0, "trace"},     {10000, "debug"}, {20000, "info"}, {30000, "warn"},
                                       {40000, "error"}, {50000, "fatal"}, {60000, "off"}};
        for (auto it = texts.cbegin(); it != texts.cend(); ++it) {
            QCOMPARE(OrvoLogLevel::toString(OrvoLogLevel::Enum(it.key())), it.value());
            QCOMPARE(int(OrvoLogLevel::fromString(it.value())), it.key());
            QCOMPARE(int(OrvoLogLevel::fromString(it.value().toUpper())), it.key());
        }
        QCOMPARE(OrvoLogLevel::toString(OrvoLogLevel::Default), QString());
        QCOMPARE(OrvoLogLevel::toString(OrvoLogLevel::Enum(1)), QString());
        for (const char* text : {"", "default", "loud", " info"})
            QCOMPARE(OrvoLogLevel::fromString(text), OrvoLogLevel::Default);
    }

    void containerTypesTravelAsText()
    {
        QCOMPARE(int(OrvoRolesContainerType::Context_), 100);
        QCOMPARE(int(OrvoRolesContainerType::Form_), 104);
        QCOMPARE(OrvoRolesContainerType::toString(OrvoRolesContainerType::None_), QString());
        QCOMPARE(OrvoRolesContainerType::toString(OrvoRolesContainerType::Context_), QStringLiteral("context"));
        QCOMPARE(OrvoRolesContainerType::toString(OrvoRolesContainerType::Form_), QStringLiteral("form"));
        QCOMPARE(OrvoRolesContainerType::fromString("context"), OrvoRolesContainerType::Context_);
        QCOMPARE(OrvoRolesContainerType::fromString("form"), OrvoRolesContainerType::Form_);
        QCOMPARE(OrvoRolesContainerType::fromString("unknown"), OrvoRolesContainerType::None_);
        const OrvoRoles roles = OrvoRoles().setContainerType(OrvoRolesContainerType::Form_);
        QCOMPARE(roles.__value("containerType"), QVariant("form"));
    }

    void enumeratorsOfTheWireHaveTheirNumbers()
    {
        QCOMPARE(int(OrvoRowsRolesType::None_), 0);
        QCOMPARE(int(OrvoRowsRolesType::Context_), 1);
        QCOMPARE(int(OrvoRowsRolesType::Music_), 2);
        QCOMPARE(int(OrvoRowsRolesType::Settings_), 3);
        QCOMPARE(int(OrvoEventSubscribeType::DataChanged), 1);
        QCOMPARE(int(OrvoEventSubscribeType::RowsChanged), 2);
        QCOMPARE(int(OrvoEventSubscribeType::ValueChanged), 13);
        QCOMPARE(int(OrvoEventItemType::Updated), 2);
        QCOMPARE(int(OrvoEventRowsType::Closed), 1);
        QCOMPARE(int(OrvoEventRowsType::Reset), 2);
        QCOMPARE(int(OrvoEventRowsType::Changed), 3);
        QCOMPARE(int(OrvoRowEventType::Inserted), 1);
        QCOMPARE(int(OrvoRowEventType::Removed), 2);
        QCOMPARE(int(OrvoRowEventType::Updated), 3);
        QCOMPARE(int(OrvoRowEventType::Moved), 4);
        QCOMPARE(int(OrvoSubscribeType::Value), 0);
        QCOMPARE(int(OrvoSubscribeType::Data), 1);
        QCOMPARE(int(OrvoSubscribeType::Rows), 2);
        QCOMPARE(int(OrvoOperationType::Not_), 0);
        QCOMPARE(int(OrvoOperationType::Add), 1);
        QCOMPARE(int(OrvoOperationType::AddSteps), 2);
        QCOMPARE(int(OrvoNetworkProfileWirelessEncryption::None_), 0);
        QCOMPARE(int(OrvoNetworkProfileWirelessEncryption::Wep), 1);
        QCOMPARE(int(OrvoNetworkProfileWirelessEncryption::WpaPsk), 2);
        QCOMPARE(int(OrvoLogLevel::Default), -1);
        QCOMPARE(int(OrvoLogLevel::Trace), 0);
        QCOMPARE(int(OrvoLogLevel::Debug), 10000);
        QCOMPARE(int(OrvoLogLevel::Info), 20000);
        QCOMPARE(int(OrvoLogLevel::Warn), 30000);
        QCOMPARE(int(OrvoLogLevel::Error), 40000);
        QCOMPARE(int(OrvoLogLevel::Fatal), 50000);
        QCOMPARE(int(OrvoLogLevel::Off), 60000);
    }

    // Constants

    void wellKnownPaths()
    {
        QCOMPARE(OrvoPlayerVolumePath().toEncoded(), QStringLiteral("player:volume"));
        QCOMPARE(OrvoPlayerMutePath().toEncoded(), QStringLiteral("player:mute"));
        QCOMPARE(OrvoPlayerAttenuationPath().toEncoded(), QStringLiteral("player:attenuation"));
        QCOMPARE(OrvoPlayerVolumeMapPath().toEncoded(), QStringLiteral("player:volumeMap"));
        QCOMPARE(OrvoNetworkStateConnected().toEncoded(), QStringLiteral("network:state/connected"));
        QCOMPARE(OrvoUILanguagePath().toEncoded(), QStringLiteral("settings:ui/language"));
        QCOMPARE(OrvoSystemManagerResetIdleTimePath().toEncoded(), QStringLiteral("system:resetIdleTime"));
        QCOMPARE(OrvoPowerManagerTargetRequestPath().toEncoded(), QStringLiteral("power:targetRequest"));
    }

    void argumentKeys()
    {
        QCOMPARE(OrvoWorkerArguments::Prefix(), QStringLiteral("prefix"));
        QCOMPARE(OrvoWorker::Prefix(), QStringLiteral("prefix"));
        QCOMPARE(OrvoWorkerArguments::MergeEvents(), QStringLiteral("mergeEvents"));
    }

    void theBuildsValuesAreGiven()
    {
        QCOMPARE(OrvoRPCSocketPrefix(), QStringLiteral(ORVO_TEST_SOCKET_PREFIX));
        QCOMPARE(OrvoRPCSocketSuffix(), QStringLiteral(ORVO_TEST_SOCKET_SUFFIX));
        QCOMPARE(OrvoRPCRequestExpiryTimeoutMs(), ORVO_TEST_EXPIRY);
        QCOMPARE(OrvoRPCSocketReconnectIntervalMs(), ORVO_TEST_RECONNECT);
        QCOMPARE(OrvoWebserverReadPathPrefix(), QStringLiteral(ORVO_TEST_WEB_PREFIX));
    }
};

QTEST_APPLESS_MAIN(tst_OrvoRecords)

#include "tst_orvorecords.moc"
