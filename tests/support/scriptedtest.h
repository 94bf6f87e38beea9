#pragma once

#include "core/model/cmmetatypes.h"
#include "core/model/cmroot.h"
#include "support/linkfixture.h"

inline CMPath path(const QString& text)
{
    return CMPath::fromEncoded(text);
}

/// A test of a view whose service is the test itself.
class ScriptedTest : public QObject
{
    Q_OBJECT

protected:
    ScriptedWorker* m_worker = nullptr;

private slots:
    void initTestCase()
    {
        orvoRegisterMetaTypes();
        m_worker = new ScriptedWorker;
        CMRoot_setInstance(m_worker);
    }
    void cleanupTestCase() { delete m_worker; }
    void cleanup()
    {
        m_worker->clear();
        deleteWaiting();
    }
};
