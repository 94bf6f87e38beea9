#pragma once

#include "core/model/cmrowsclone.h"
#include "nodetest.h"
#include "records/orvoconstants.h"
#include "support/linkfixture.h"
#include "support/mirror.h"

inline OrvoRoles row(const QString& id, const QString& title = QString())
{
    const OrvoRoles roles = OrvoRoles().setId(id);
    return title.isEmpty() ? roles : OrvoRoles(roles).setTitle(title);
}

inline QString idsOf(const QList<OrvoRoles>& list)
{
    QStringList ids;
    for (const OrvoRoles& roles : list)
        ids.append(roles.id() + roles.title());
    return ids.join(' ');
}

/// Serves lists and writes down which rows it is asked for.
class ListWorker : public CMNodesWorker
{
public:
    ListWorker() : CMNodesWorker({{OrvoWorkerArguments::MergeEvents(), true}}, "lists") {}

    void getRowsRequest(const CMGetRowsRequest& request) override
    {
        asked.append(QStringLiteral("%1-%2@%3").arg(request.fromRow()).arg(request.toRow()).arg(request.rowsVersion()));
        if (holds)
            held.append(request);
        else
            CMNodesWorker::getRowsRequest(request);
    }
    /// Answers the oldest of the held requests.
    void answer() { CMNodesWorker::getRowsRequest(held.takeFirst()); }

    QStringList asked;
    bool holds = false;
    QList<CMGetRowsRequest> held;
};

/// Writes down what a clone tells: "+2 a", "-0 a", "1 a>b", "items", "loading", "loaded".
class Ear : public QObject
{
    Q_OBJECT
public:
    explicit Ear(CMRowsClone* clone)
    {
        connect(clone, SIGNAL(itemChanged(OrvoRoles,OrvoRoles,int)), SLOT(onItem(OrvoRoles,OrvoRoles,int)));
        connect(clone, SIGNAL(itemsChanged()), SLOT(onItems()));
        connect(clone, SIGNAL(loadingChanged(bool)), SLOT(onLoading(bool)));
    }
    QStringList take()
    {
        QStringList taken;
        taken.swap(said);
        return taken;
    }
    QStringList said;
    int items = 0;
public slots:
    void onItem(OrvoRoles newRoles, OrvoRoles oldRoles, int index)
    {
        const QString now = newRoles.id() + newRoles.title();
        const QString old = oldRoles.id() + oldRoles.title();
        if (oldRoles.isEmpty())
            said.append(QStringLiteral("+%1 %2").arg(index).arg(now));
        else if (newRoles.isEmpty())
            said.append(QStringLiteral("-%1 %2").arg(index).arg(old));
        else
            said.append(QStringLiteral("%1 %2>%3").arg(index).arg(old, now));
    }
    void onItems() { ++items; }
    void onLoading(bool loading) { said.append(loading ? "loading" : "loaded"); }
};

/// A test of a clone beside the list in the same process.
class CloneTest : public QObject
{
    Q_OBJECT

protected:
    std::unique_ptr<ListWorker> m_worker;
    CMListRowsNode* m_list = nullptr;

    void fill(int count)
    {
        for (int i = 0; i < count; ++i)
            m_list->rowsAppend(row(QString::number(i)));
    }
    void fill(const QString& ids)
    {
        for (const QString& id : ids.split(' ', Qt::SkipEmptyParts))
            m_list->rowsAppend(row(id));
    }
    /// The list as if its service had started anew: all rows at once, and a reset.
    void become(const QList<OrvoRoles>& rows)
    {
        m_list->rowsClear();
        for (const OrvoRoles& roles : rows)
            m_list->rowsAppend(roles);
    }
    QString listIds() const
    {
        QList<OrvoRoles> list;
        for (const QVariant& roles : m_list->rows())
            list.append(OrvoRoles(roles));
        return idsOf(list);
    }
    bool isLive(const CMRowsClone& clone) const
    {
        return QTest::qWaitFor([&] { return !clone.isLoading() && idsOf(clone.list()) == listIds(); });
    }
    /// Changes the list when the first reply is taken, ahead of the next request.
    void changeBehindFirstReply(const CMRowsClone& clone, const std::function<void()>& change)
    {
        bool done = false;
        connect(clone.fetcher(), &CMRowsFetcher::rowsRolesChanged, this, [&, change] {
            if (done)
                return;
            done = true;
            change();
            m_worker->subscribe()->deliver();
        });
        QTRY_VERIFY(done);
        disconnect(clone.fetcher(), &CMRowsFetcher::rowsRolesChanged, this, nullptr);
    }
    /// Longer than the delays of the hub and of the fetcher's trigger.
    static void turn() { QTest::qWait(80); }

private slots:
    void initTestCase() { ForwardingRoot::instance(); }
    void init()
    {
        m_worker.reset(new ListWorker);
        ForwardingRoot::instance()->reset(m_worker.get());
        m_list = CMListRowsNode::create(m_worker->nodes(), P("t:list"));
    }
    void cleanup()
    {
        deleteWaiting();
        m_worker.reset();
        ForwardingRoot::instance()->reset(nullptr);
    }
};
