#pragma once

#include "ctlrun.h"

#include <QTest>

#include <unistd.h>

/// A test with the service of the tests in a process of its own, under a name of its own.
class CtlServiceTest : public QObject
{
protected:
    explicit CtlServiceTest(const QString& name) : m_name(name + QString::number(getpid()) + 'x') {}

    QString named(const QString& place) const { return m_name + QLatin1Char(':') + place; }
    void startService()
    {
        m_service = startCtlService(m_name);
        QVERIFY(m_service);
    }
    void killService()
    {
        if (m_service) {
            m_service->kill();
            m_service->waitForFinished(longEnoughMs);
        }
        m_service.reset();
    }
    void edit(const QString& json) { QCOMPARE(orvoctl({"invoke", named("edit"), json}).status, 0); }

    const QString m_name;
    std::unique_ptr<QProcess> m_service;
};
