#include "mirror.h"

#include "cmremoteworker.h"
#include "core/model/cmrowsclone.h"
#include "core/model/cmrpcclient.h"
#include "core/model/cmsubscribe.h"
#include "output.h"
#include "values.h"

Mirror::Mirror(CMRemoteWorker* worker, Output& output, const CMPath& path, int count)
    : m_output(output), m_path(path), m_left(count), m_clone(new CMRowsClone(this, path))
{
    connect(m_clone, &CMRowsClone::itemChanged, this, &Mirror::onItemChanged);
    connect(m_clone, &CMRowsClone::loadingChanged, this, &Mirror::onLoadingChanged);
    connect(m_clone->fetcher(), &CMRowsFetcher::closed, this, &Mirror::onClosed);
    connect(worker->client(), &CMRPCClient::connectedChanged, this, &Mirror::onConnectedChanged);
}

void Mirror::exec()
{
    m_loop.exec();
}

void Mirror::onItemChanged(OrvoRoles newRoles, OrvoRoles oldRoles, int row)
{
    setUp(true);
    const QString number = QString::number(row);
    const QVariantHash roles = newRoles.__hash();
    const QVariantHash fields{{QStringLiteral("row"), row}, {QStringLiteral("roles"), roles}};
    if (newRoles.isEmpty())
        print(QLatin1Char('-') + number, {{QStringLiteral("row"), row}}, QString());
    else if (oldRoles.isEmpty())
        print(QLatin1Char('+') + number, fields, rolesText(roles));
    else
        print(number, fields, rolesText(rolesDifference(roles, oldRoles.__hash())));
}

void Mirror::onLoadingChanged(bool loading)
{
    if (loading)
        return;
    setUp(true);
    m_started = true;
    if (isEnough())
        m_loop.quit();
}

void Mirror::onClosed()
{
    print(CMSubscribe::RowsChangeClose(), {}, QString());
}

void Mirror::onConnectedChanged(bool connected)
{
    // A service that is just dying still takes connections, so only its rows tell that it is back.
    if (!connected)
        setUp(false);
}

void Mirror::setUp(bool up)
{
    if (up == m_up)
        return;
    m_up = up;
    Output::error(QStringLiteral("link to service '%1' %2")
                      .arg(m_path.prefix(), up ? QStringLiteral("regained") : QStringLiteral("lost")));
}

void Mirror::print(const QString& change, QVariantHash fields, const QString& text)
{
    if (isEnough())
        return;
    if (m_output.isJson()) {
        fields.insert(QStringLiteral("path"), m_path.toEncoded());
        fields.insert(QStringLiteral("change"), change);
        if (!m_started)
            fields.insert(QStringLiteral("state"), true);
        m_output.documentLine(fields);
    } else {
        m_output.line(text.isEmpty() ? change : change + QLatin1String("  ") + text);
    }
    if (m_started && m_left > 0 && --m_left == 0)
        m_loop.quit();
}
