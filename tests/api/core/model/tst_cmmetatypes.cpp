#include "core/model/cmmetatypes.h"

#include "core/model/cmrequest.h"
#include "core/model/cmworker.h"

#include <QtTest>

/// Carries each type of the model by a queued call.
class Carrier : public QObject
{
    Q_OBJECT
public:
    QStringList arrived;
public slots:
    void take(CMRequest request) { arrived.append("request " + request.path().toEncoded()); }
    void take(CMGetDataRequest request) { arrived.append("getData " + request.path().toEncoded()); }
    void take(CMGetRowsRequest request) { arrived.append("getRows " + request.path().toEncoded()); }
    void take(CMMatchRowRequest request) { arrived.append("matchRow " + request.path().toEncoded()); }
    void take(CMSetDataRequest request) { arrived.append("setData " + request.path().toEncoded()); }
    void take(CMVoidReply reply) { arrived.append(reply.isFinished() ? "finished reply" : "reply"); }
    void take(CMError error) { arrived.append("error " + error.name()); }
    void take(QVariant value) { arrived.append("variant " + value.toString()); }
    void take(CMPath path) { arrived.append("path " + path.toEncoded()); }
    void take(CMPath::Params params) { arrived.append("params " + params.value("x")); }
    void take(CMAbstractWorker::ChangeType type) { arrived.append("type " + QString::number(type)); }
};

class tst_CMMetaTypes : public QObject
{
    Q_OBJECT

private slots:
    void theTypesAreUnknownToBeginWith()
    {
        for (const char* name : {"CMRequest", "CMGetDataRequest", "CMVoidReply", "CMError", "CMPath::Params"})
            QVERIFY2(QMetaType::type(name) == QMetaType::UnknownType, name);
    }

    void theTypesAreRegisteredUnderTheirNames_data()
    {
        QTest::addColumn<QByteArray>("name");
        for (const char* name : {"CMRequest", "CMGetDataRequest", "CMGetRowsRequest", "CMMatchRowRequest",
                                 "CMSetDataRequest", "CMVoidReply", "CMError", "QVariant", "CMPath", "CMPath::Params"})
            QTest::newRow(name) << QByteArray(name);
    }

    void theTypesAreRegisteredUnderTheirNames()
    {
        orvoRegisterMetaTypes();
        QFETCH(QByteArray, name);
        const int type = QMetaType::type(name.constData());
        QVERIFY(type != QMetaType::UnknownType);
        QCOMPARE(QByteArray(QMetaType::typeName(type)).replace("QMap<QString,QString>", "CMPath::Params"), name);
    }

    void registeringTwiceChangesNothing()
    {
        orvoRegisterMetaTypes();
        const int type = QMetaType::type("CMRequest");
        orvoRegisterMetaTypes();
        QCOMPARE(QMetaType::type("CMRequest"), type);
    }

    void theChangeTypeIsRegisteredByTheFirstWorker()
    {
        QCOMPARE(QMetaType::type("CMAbstractWorker::ChangeType"), int(QMetaType::UnknownType));
        CMWorker worker({}, "worker");
        QVERIFY(QMetaType::type("CMAbstractWorker::ChangeType") != QMetaType::UnknownType);
    }

    void theTypesTravelInQueuedCalls()
    {
        orvoRegisterMetaTypes();
        CMWorker worker({}, "worker");
        auto* data = new CMGetDataRequest::Data;
        data->path = CMPath::fromEncoded("ui:data");
        const CMGetDataRequest getData(data);
        auto* rows = new CMGetRowsRequest::Data;
        rows->path = CMPath::fromEncoded("ui:rows");
        auto* match = new CMMatchRowRequest::Data;
        match->path = CMPath::fromEncoded("ui:match");
        auto* set = new CMSetDataRequest::Data;
        set->path = CMPath::fromEncoded("ui:set");
        CMVoidReply reply;
        reply.cancel();

        Carrier carrier;
        const auto send = [&](const QGenericArgument& argument) {
            QVERIFY(QMetaObject::invokeMethod(&carrier, "take", Qt::QueuedConnection, argument));
        };
        send(Q_ARG(CMRequest, getData));
        send(Q_ARG(CMGetDataRequest, getData));
        send(Q_ARG(CMGetRowsRequest, CMGetRowsRequest(rows)));
        send(Q_ARG(CMMatchRowRequest, CMMatchRowRequest(match)));
        send(Q_ARG(CMSetDataRequest, CMSetDataRequest(set)));
        send(Q_ARG(CMVoidReply, reply));
        send(Q_ARG(CMError, reply.error()));
        send(Q_ARG(QVariant, QVariant("value")));
        send(Q_ARG(CMPath, CMPath::fromEncoded("ui:path?x=1")));
        send(Q_ARG(CMPath::Params, CMPath::fromEncoded("ui:path?x=2").params()));
        send(Q_ARG(CMAbstractWorker::ChangeType, CMAbstractWorker::RowsChange));
        QCOMPARE(carrier.arrived, QStringList());
        QCoreApplication::sendPostedEvents(&carrier);
        QCOMPARE(carrier.arrived, (QStringList{"request ui:data", "getData ui:data", "getRows ui:rows",
                                               "matchRow ui:match", "setData ui:set", "finished reply", "error cancel",
                                               "variant value", "path ui:path?x=1", "params 2", "type 2"}));
    }
};

QTEST_GUILESS_MAIN(tst_CMMetaTypes)

#include "tst_cmmetatypes.moc"
