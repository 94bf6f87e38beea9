#pragma once

#include "core/model/cmrowsfetcher.h"
#include "core/model/cmsubscribe.h"
#include "support/scriptedtest.h"

/// Rows of a list of `count` rows whose ids are their numbers.
inline OrvoRowsRoles rows(int from, int to, int count, int version)
{
    QVariantList list;
    for (int row = from; row <= to; ++row)
        list.append(QVariant(rowValues(QString::number(row))));
    return OrvoRowsRoles().setRows(list).setRowsCount(count).setRowsVersion(version);
}

/// Writes down what it is told, and wants what it is told to want.
class Storage : public CMRowsFetcherRows
{
    Q_OBJECT
public:
    explicit Storage(const CMPath& path) : CMRowsFetcherRows(nullptr, path)
    {
        connect(fetcher(), SIGNAL(versionChanged(int)), SLOT(onVersion(int)));
        connect(fetcher(), SIGNAL(loadingChanged(bool)), SLOT(onLoading(bool)));
        connect(fetcher(), SIGNAL(closed()), SLOT(onClosed()));
        connect(fetcher(), SIGNAL(errorChanged(CMError)), SLOT(onError(CMError)));
        connect(fetcher(), SIGNAL(rowsRolesChanged(OrvoRowsRoles)), SLOT(onRowsRoles(OrvoRowsRoles)));
    }

    RequestReply getRequest() override
    {
        ++asked;
        return wanted.isEmpty() ? RequestReply() : wanted.takeFirst();
    }
    void setItem(int row, const OrvoRoles& roles) override
    {
        say(QStringLiteral("set %1 %2").arg(row).arg(roles.id()));
    }
    void insertItem(int row, const OrvoRoles& roles) override
    {
        say(QStringLiteral("insert %1 %2").arg(row).arg(roles.id()));
    }
    void removeItem(int row) override { say(QStringLiteral("remove %1").arg(row)); }
    void moveItem(int from, int to) override { say(QStringLiteral("move %1 %2").arg(from).arg(to)); }

    QStringList take()
    {
        QStringList taken;
        taken.swap(said);
        return taken;
    }

    QList<RequestReply> wanted;
    int asked = 0;
    QStringList said;
    /// Called with each line; may destroy this.
    std::function<void(const QString&)> onSay;

public slots:
    void onVersion(int version) { say(QStringLiteral("version %1").arg(version)); }
    void onLoading(bool loading) { say(loading ? "loading" : "loaded"); }
    void onClosed() { say("closed"); }
    void onError(CMError error) { say("error " + error.name()); }
    void onRowsRoles(OrvoRowsRoles rowsRoles) { say(QStringLiteral("roles %1").arg(rowsRoles.initialRow())); }

private:
    void say(const QString& line)
    {
        said.append(line.trimmed());
        const auto function = onSay;
        if (function)
            function(line.trimmed());
    }
};

class FetcherTest : public ScriptedTest
{
protected:
    using Range = CMRowsFetcherRows::RequestReply;

    CMGetRowsRequest request(int index) const { return request_cast<CMGetRowsRequest>(m_worker->requests.at(index)); }
    /// As "from-to@version"; empty when it did not come.
    QString awaitRequest(int index)
    {
        if (!QTest::qWaitFor([&] { return m_worker->requests.size() > index; }))
            return QString();
        return QStringLiteral("%1-%2@%3")
            .arg(request(index).fromRow())
            .arg(request(index).toRow())
            .arg(request(index).rowsVersion());
    }
    void change(const QString& where, const QStringList& changes, int version, int oldVersion)
    {
        m_worker->subscribe()->rowsChanged(path(where), changes, version, oldVersion);
        m_worker->subscribe()->deliver();
        QCoreApplication::processEvents();
    }
    /// Loads rows 0 to 4 of a list of `count` rows at version 1. The first request has number 0.
    void load(Storage& storage, int count = 5)
    {
        storage.wanted.append(Range(0, 4));
        QCOMPARE(awaitRequest(0), QString("0-4@-1"));
        request(0).reply().setValue(rows(0, 4, count, 1));
        QTRY_COMPARE(storage.fetcher()->version(), 1);
        storage.take();
    }
    /// Longer than the delay of a trigger.
    static void turn() { QTest::qWait(60); }
};
