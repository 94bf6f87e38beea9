#include "core/model/cmrequest.h"

#include "childprocess.h"
#include "core/model/cmabstractworker.h"

#include <QSet>
#include <QtTest>

namespace {

/// A kind of request that no worker knows.
class OtherData : public CMRequest::Data
{
public:
    CMVoidReply reply() const override { return m_reply; }

    CMReply<QVariant> m_reply;
};

template <typename Request>
Request made(const QString& path)
{
    auto* data = new typename Request::Data;
    data->path = CMPath::fromEncoded(path);
    return Request(data);
}

} // namespace

class tst_CMRequest : public QObject
{
    Q_OBJECT

private slots:
    void aHandleReadsTheFieldsOfItsData()
    {
        auto* getData = new CMGetDataRequest::Data;
        getData->path = CMPath::fromEncoded("ui:a?x=1");
        getData->roles = QStringList{"title", "value"};
        const CMGetDataRequest getDataRequest(getData);
        QCOMPARE(getDataRequest.path(), CMPath::fromEncoded("ui:a?x=1"));
        QCOMPARE(getDataRequest.roles(), (QStringList{"title", "value"}));

        auto* getRows = new CMGetRowsRequest::Data;
        getRows->fromRow = 1;
        getRows->toRow = 2;
        getRows->rowsVersion = 3;
        getRows->roles = QStringList("title");
        const CMGetRowsRequest getRowsRequest(getRows);
        QCOMPARE(getRowsRequest.fromRow(), 1);
        QCOMPARE(getRowsRequest.toRow(), 2);
        QCOMPARE(getRowsRequest.rowsVersion(), 3);
        QCOMPARE(getRowsRequest.roles(), QStringList("title"));

        auto* matchRow = new CMMatchRowRequest::Data;
        matchRow->fromRow = 4;
        matchRow->role = "title";
        matchRow->value = 5;
        matchRow->matchFlags = 6;
        matchRow->rowsVersion = 7;
        const CMMatchRowRequest matchRowRequest(matchRow);
        QCOMPARE(matchRowRequest.fromRow(), 4);
        QCOMPARE(matchRowRequest.role(), QString("title"));
        QCOMPARE(matchRowRequest.value(), QVariant(5));
        QCOMPARE(matchRowRequest.matchFlags(), 6);
        QCOMPARE(matchRowRequest.rowsVersion(), 7);

        auto* setData = new CMSetDataRequest::Data;
        setData->role = "value";
        setData->value = "text";
        const CMSetDataRequest setDataRequest(setData);
        QCOMPARE(setDataRequest.role(), QString("value"));
        QCOMPARE(setDataRequest.value(), QVariant("text"));
    }

    void theReplyIsTheSameThroughAnyHandle()
    {
        const CMGetRowsRequest typed = made<CMGetRowsRequest>("ui:a");
        const CMRequest plain = typed;
        QVERIFY(typed.reply() == plain.reply());
        QVERIFY(plain.d()->reply() == plain.reply());
        plain.reply().setError(CMError("bad", "message", "title"));
        QCOMPARE(typed.reply().error().name(), QString("bad"));
    }

    void requestsAreEqualByIdentityOnly()
    {
        const CMGetDataRequest a = made<CMGetDataRequest>("ui:a");
        const CMGetDataRequest copy = a;
        const CMGetDataRequest b = made<CMGetDataRequest>("ui:a");
        QVERIFY(a == copy);
        QVERIFY(!(a != copy));
        QVERIFY(a != b);
        QVERIFY(CMRequest(a) == copy);
        const auto address = reinterpret_cast<quintptr>(static_cast<CMRequest::Data*>(a.d()));
        QCOMPARE(qHash(CMRequest(a)), uint((address >> 31) ^ address));
        QCOMPARE(QSet<CMRequest>({a, copy, b}).size(), 2);
    }

    void aRequestIsCastToItsOwnKindOnly()
    {
        const CMRequest request = made<CMMatchRowRequest>("ui:a");
        QVERIFY(request_cast<CMMatchRowRequest>(request) == request);
        QVERIFY(request_cast<CMGetDataRequest>(request).isNull());
        QVERIFY(request_cast<CMGetRowsRequest>(request).isNull());
        QVERIFY(request_cast<CMSetDataRequest>(request).isNull());
        QVERIFY(request_cast<CMSetDataRequest>(CMRequest(new OtherData)).isNull());
    }

    void theDataLivesAsLongAsAnyHandle()
    {
        const CMReply<QVariantList> reply;
        CMRequest last;
        {
            auto* data = new CMGetDataRequest::Data;
            data->m_reply = reply;
            data->roles = QStringList("title");
            const CMGetDataRequest first(data);
            last = first;
        }
        QCOMPARE(request_cast<CMGetDataRequest>(last).roles(), QStringList("title"));
        last.reply().cancel();
        last = CMRequest();
        QVERIFY(last.isNull());
        QCOMPARE(reply.error().name(), CMVoidReply::ErrorCancel());
    }

    void aNullRequestStopsTheProcess_data()
    {
        QTest::addColumn<QString>("use");
        for (const char* use : {"d", "path", "reply", "roles"})
            QTest::newRow(use) << use;
    }

    void aNullRequestStopsTheProcess()
    {
        QFETCH(QString, use);
        const ChildEnd end = runThisProgram({"--null", use});
        QVERIFY(end.stopped);
        QVERIFY2(end.errors.contains("ASSERT: \"m_d\""), end.errors.constData());
    }
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.value(1) == QLatin1String("--null")) {
        leaveNoCore();
        const QString use = arguments.value(2);
        const CMGetDataRequest request;
        if (use == QLatin1String("d"))
            request.d();
        else if (use == QLatin1String("path"))
            request.path();
        else if (use == QLatin1String("reply"))
            CMRequest(request).reply();
        else
            request.roles();
        return 0;
    }
    tst_CMRequest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_cmrequest.moc"
