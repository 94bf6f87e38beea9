#include "core/orvo.h"

#include "core/model/cmrequest.h"
#include "core/model/cmroot.h"
#include "core/model/cmworker.h"
#include "records/orvodevice.h"
#include "records/orvoroles.h"

#include <QMutex>
#include <QtTest>

#include <thread>
#include <vector>

namespace {

/// Keeps the writes that come to it, from any thread, and answers none.
class NotingRoot : public CMWorker
{
public:
    NotingRoot() : CMWorker({}, "noting") {}

    void setDataRequest(const CMSetDataRequest& request) override
    {
        const QMutexLocker locker(&m_mutex);
        m_requests.append(request);
    }

    QList<CMSetDataRequest> requests()
    {
        const QMutexLocker locker(&m_mutex);
        return m_requests;
    }

private:
    QMutex m_mutex;
    QList<CMSetDataRequest> m_requests;
};

} // namespace

/// One test after the other: the time since the last report belongs to the process.
class tst_OrvoActivity : public QObject
{
    Q_OBJECT

private slots:
    void reportsOfManyThreadsAtOnceSendOnePairOfInvocations()
    {
        CMRoot_setInstance(&m_root);
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; ++i)
            threads.emplace_back([] {
                for (int call = 0; call < 100; ++call)
                    orvoReportUserActivity();
            });
        for (std::thread& thread : threads)
            thread.join();
        QCOMPARE(m_root.requests().size(), 2);
    }

    void theIdleTimeIsResetThenPowerIsAskedFor()
    {
        const QList<CMSetDataRequest> requests = m_root.requests();
        QCOMPARE(requests.size(), 2);
        QCOMPARE(requests.at(0).path().toEncoded(), QString("system:resetIdleTime"));
        QCOMPARE(requests.at(0).role(), OrvoRoles::Activate());
        QVERIFY(!requests.at(0).value().isValid());
        QCOMPARE(requests.at(1).path().toEncoded(), QString("power:targetRequest"));
        QCOMPARE(requests.at(1).role(), OrvoRoles::Activate());
        const OrvoPowerManagerTarget target(requests.at(1).value());
        QCOMPARE(int(target.target()), 1);
        QCOMPARE(int(target.reason()), 1);
        QVERIFY(!requests.at(0).reply().isFinished());
    }

    void aReportWithinFiveSecondsIsNotSent()
    {
        orvoReportUserActivity();
        QCOMPARE(m_root.requests().size(), 2);
    }

    void afterFiveSecondsItIsSentAgain()
    {
        QTRY_VERIFY_WITH_TIMEOUT((orvoReportUserActivity(), m_root.requests().size() > 2), 20000);
        QCOMPARE(m_root.requests().size(), 4);
        QCOMPARE(m_root.requests().at(2).path(), m_root.requests().at(0).path());
        QCOMPARE(m_root.requests().at(3).path(), m_root.requests().at(1).path());
    }

private:
    NotingRoot m_root;
};

QTEST_GUILESS_MAIN(tst_OrvoActivity)
#include "tst_orvoactivity.moc"
