#pragma once

#include "core/model/cmmetatypes.h"
#include "core/model/cmnodes.h"
#include "core/model/cmrequest.h"
#include "core/model/cmroot.h"
#include "core/model/cmsubscribe.h"

#include <QMutex>
#include <QStringList>

#include <memory>

/// The root of a test program: hands everything to the worker of the running test, and keeps what it is told to hold.
class ForwardingRoot : public CMAbstractWorker
{
public:
    static ForwardingRoot* instance()
    {
        static auto* const root = [] {
            orvoRegisterMetaTypes();
            auto* made = new ForwardingRoot;
            CMRoot_setInstance(made);
            return made;
        }();
        return root;
    }

    void reset(CMAbstractWorker* worker)
    {
        m_worker = worker;
        m_held.clear();
        requests.clear();
        heldData.clear();
    }
    /// Get-data requests at the path are kept in heldData, unanswered.
    void hold(const CMPath& path) { m_held.append(path); }

    void getDataRequest(const CMGetDataRequest& request) override
    {
        {
            const QMutexLocker lock(&m_mutex);
            requests.append("getData " + request.path().toEncoded());
            if (m_held.contains(request.path())) {
                heldData.append(request);
                return;
            }
        }
        m_worker->getDataRequest(request);
    }
    void getRowsRequest(const CMGetRowsRequest& request) override { m_worker->getRowsRequest(request); }
    void matchRowRequest(const CMMatchRowRequest& request) override { m_worker->matchRowRequest(request); }
    void setDataRequest(const CMSetDataRequest& request) override
    {
        QMutexLocker lock(&m_mutex);
        requests.append("setData " + request.path().toEncoded() + ' ' + request.role());
        lock.unlock();
        m_worker->setDataRequest(request);
    }
    void connectChange(CMAbstractWorker::ChangeType changeType, const CMPath& path, QObject* receiver,
                       const char* method, Qt::ConnectionType type = Qt::AutoConnection) override
    {
        m_worker->connectChange(changeType, path, receiver, method, type);
    }
    void disconnectChange(CMAbstractWorker::ChangeType changeType, const CMPath& path, QObject* receiver,
                          const char* method) override
    {
        m_worker->disconnectChange(changeType, path, receiver, method);
    }

    QStringList requests;
    QList<CMGetDataRequest> heldData;

private:
    CMAbstractWorker* m_worker = nullptr;
    QMutex m_mutex;
    QList<CMPath> m_held;
};

/// Writes down what subscribers are told, one text per delivery.
class ChangeSpy : public QObject
{
    Q_OBJECT

public:
    void watchValue(CMAbstractWorker* worker, const CMPath& path)
    {
        worker->connectValueChange(path, this, SLOT(onValue(CMPath,QVariant)), Qt::DirectConnection);
    }
    void watchData(CMAbstractWorker* worker, const CMPath& path)
    {
        worker->connectDataChange(path, this, SLOT(onData(CMPath)), Qt::DirectConnection);
    }
    void watchRows(CMAbstractWorker* worker, const CMPath& path)
    {
        worker->connectRowsChange(path, this, SLOT(onRows(CMPath,QStringList,int,int)), Qt::DirectConnection);
    }
    void unwatchValue(CMAbstractWorker* worker, const CMPath& path)
    {
        worker->disconnectValueChange(path, this, SLOT(onValue(CMPath,QVariant)));
    }
    void unwatchData(CMAbstractWorker* worker, const CMPath& path)
    {
        worker->disconnectDataChange(path, this, SLOT(onData(CMPath)));
    }
    void unwatchRows(CMAbstractWorker* worker, const CMPath& path)
    {
        worker->disconnectRowsChange(path, this, SLOT(onRows(CMPath,QStringList,int,int)));
    }

    QStringList take()
    {
        QStringList taken;
        taken.swap(m_events);
        return taken;
    }

public slots:
    void onValue(CMPath path, QVariant value)
    {
        m_events.append("value " + path.toEncoded() + ' ' + (value.isValid() ? text(value) : QString("invalid")));
    }
    void onData(CMPath path) { m_events.append("data " + path.toEncoded()); }
    void onRows(CMPath path, QStringList changes, int version, int oldVersion)
    {
        m_events.append(
            QString("rows %1 [%2] %3>%4").arg(path.toEncoded(), changes.join(',')).arg(oldVersion).arg(version));
    }

private:
    static QString text(const QVariant& value)
    {
        if (value.type() != QVariant::Hash)
            return value.toString();
        return value.toHash().value(value.toHash().value(OrvoValue::Type()).toString()).toString();
    }

    QStringList m_events;
};

/// A worker with nodes that is the root as long as it lives, and a spy.
class NodesFixture
{
public:
    NodesFixture() : worker(new CMNodesWorker(QHash<QString, QVariant>(), "test"))
    {
        ForwardingRoot::instance()->reset(worker.get());
    }
    ~NodesFixture()
    {
        worker.reset();
        ForwardingRoot::instance()->reset(nullptr);
    }

    CMNodes* nodes() const { return worker->nodes(); }
    CMSubscribe* hub() const { return worker->subscribe(); }
    ForwardingRoot* root() const { return ForwardingRoot::instance(); }
    /// What the spy is told by the reports so far.
    QStringList delivered()
    {
        hub()->deliver();
        return spy.take();
    }
    QVariantList data(const CMPath& path, const QStringList& roles) const
    {
        return worker->getData(path, roles).value();
    }
    QVariant datum(const CMPath& path, const QString& role) const { return data(path, {role}).value(0); }

    ChangeSpy spy;
    std::unique_ptr<CMNodesWorker> worker;
};

inline CMPath P(const char* encoded)
{
    return CMPath::fromEncoded(encoded);
}
