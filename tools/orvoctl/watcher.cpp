#include "watcher.h"

#include "cmremoteworker.h"
#include "core/model/cmroles.h"
#include "core/model/cmrpcclient.h"
#include "core/model/cmsubscribe.h"
#include "failure.h"
#include "link.h"
#include "output.h"
#include "records/orvoroles.h"
#include "values.h"

#include <QPointer>

#include <unistd.h>
#include <utility>

namespace {

QString kindName(CMAbstractWorker::ChangeType kind)
{
    switch (kind) {
    case CMAbstractWorker::ValueChange:
        return QStringLiteral("value");
    case CMAbstractWorker::DataChange:
        return QStringLiteral("data");
    case CMAbstractWorker::RowsChange:
        break;
    }
    return QStringLiteral("rows");
}

QStringList watchedRoles(CMAbstractWorker::ChangeType kind)
{
    return kind == CMAbstractWorker::ValueChange ? QStringList{OrvoRoles::Value()} : CMAllRoles();
}

QVariantHash toRoles(const QVariantList& values)
{
    const QStringList names = CMAllRoles();
    QVariantHash roles;
    for (int i = 0; i < names.size(); ++i)
        if (values.value(i).isValid())
            roles.insert(names.at(i), values.at(i));
    return roles;
}

} // namespace

Watcher::Watcher(Link& link, Output& output, int count) : m_link(link), m_output(output), m_left(count) {}

void Watcher::add(const CMPath& path, CMAbstractWorker::ChangeType kind, bool showPath)
{
    CMRemoteWorker* worker = m_link.reach(path);
    follow(worker, path.prefix());
    m_watched.append({path, kind, worker, showPath});
    switch (kind) {
    case CMAbstractWorker::ValueChange:
        worker->connectValueChange(path, this, SLOT(onValueChanged(CMPath, QVariant)));
        break;
    case CMAbstractWorker::DataChange:
        worker->connectDataChange(path, this, SLOT(onDataChanged(CMPath)));
        break;
    case CMAbstractWorker::RowsChange:
        worker->connectRowsChange(path, this, SLOT(onRowsChanged(CMPath, QStringList, int, int)));
        break;
    }
    readState(m_watched.last());
}

void Watcher::exec()
{
    if (m_left != 0)
        m_loop.exec();
}

void Watcher::stop()
{
    // While the first states are read, a reply is waited for. Nothing is buffered here, and the services notice.
    if (!m_loop.isRunning())
        _exit(int(ExitStatus::Success));
    m_loop.quit();
}

Watcher::Watched* Watcher::find(const CMPath& path, CMAbstractWorker::ChangeType kind)
{
    for (Watched& watched : m_watched)
        if (watched.path == path && watched.kind == kind && watched.started)
            return &watched;
    return nullptr;
}

void Watcher::follow(CMRemoteWorker* worker, const QString& service)
{
    if (m_services.contains(worker))
        return;
    m_services.insert(worker, {service, true});
    connect(worker->client(), &CMRPCClient::connectedChanged, this,
            [=](bool connected) { onConnectedChanged(worker, connected); });
}

void Watcher::onConnectedChanged(CMRemoteWorker* worker, bool connected)
{
    Service& service = m_services[worker];
    if (connected) {
        // A service that is just dying still takes connections, so only an answer tells that it is back.
        const QPointer<Watcher> self(this);
        worker->getData(CMPath::fromPrefix(service.name), {OrvoRoles::Type()})
            .onFinished([=](const CMVoidReply& reply) {
                if (self && reply.error().name() != CMVoidReply::ErrorCancel())
                    self->onRegained(worker);
            });
    } else if (service.up) {
        service.up = false;
        Output::error(QStringLiteral("link to service '%1' lost").arg(service.name));
    }
}

void Watcher::onRegained(CMRemoteWorker* worker)
{
    Service& service = m_services[worker];
    service.up = true;
    Output::error(QStringLiteral("link to service '%1' regained").arg(service.name));
    for (Watched& watched : m_watched) {
        if (watched.worker != worker || !watched.started)
            continue;
        if (watched.kind != CMAbstractWorker::RowsChange)
            readAgain(watched);
        else if (std::exchange(watched.resetDue, false))
            onRowsChanged(watched.path, {CMSubscribe::RowsChangeReset()}, 0, 0);
    }
}

void Watcher::readState(Watched& watched)
{
    const CMPath& path = watched.path;
    QVariantHash fields;
    QString text;
    if (watched.kind == CMAbstractWorker::RowsChange) {
        const OrvoRowsRoles rows = m_link.answer(path, watched.worker->getRows(path, 0, 0, -1, {OrvoRoles::Title()}));
        watched.rowsVersion = rows.rowsVersion();
        fields = {{OrvoRowsRoles::RowsCount(), rows.rowsCount()}, {OrvoRowsRoles::RowsVersion(), rows.rowsVersion()}};
        text = QStringLiteral("%1 rows").arg(rows.rowsCount());
    } else {
        const QVariantList values = m_link.answer(path, watched.worker->getData(path, watchedRoles(watched.kind)));
        if (watched.kind == CMAbstractWorker::ValueChange) {
            watched.shown = values.value(0);
            fields = {{OrvoRoles::Value(), watched.shown}};
            text = roleText(watched.shown);
        } else {
            watched.shown = toRoles(values);
            fields = {{QStringLiteral("roles"), watched.shown}};
            text = rolesText(watched.shown.toHash());
        }
    }
    watched.started = true;
    fields.insert(QStringLiteral("state"), true);
    print(watched, fields, text);
}

/// A failure leaves what is shown: the next change or the next return of the service reads again.
void Watcher::readAgain(const Watched& watched)
{
    const QPointer<Watcher> self(this);
    const CMPath path = watched.path;
    const CMAbstractWorker::ChangeType kind = watched.kind;
    watched.worker->getData(path, watchedRoles(kind)).onSuccess([=](const QVariantList& values) {
        Watched* present = self ? self->find(path, kind) : nullptr;
        if (!present)
            return;
        if (kind == CMAbstractWorker::ValueChange)
            self->takeValue(*present, values.value(0));
        else
            self->takeRoles(*present, toRoles(values), true);
    });
}

void Watcher::onValueChanged(CMPath path, QVariant value)
{
    if (Watched* watched = find(path, CMAbstractWorker::ValueChange))
        takeValue(*watched, value);
}

void Watcher::onDataChanged(CMPath path)
{
    const Watched* watched = find(path, CMAbstractWorker::DataChange);
    if (!watched || !isUp(*watched))
        return;
    const QPointer<Watcher> self(this);
    watched->worker->getData(path, CMAllRoles()).onSuccess([=](const QVariantList& values) {
        if (Watched* present = self ? self->find(path, CMAbstractWorker::DataChange) : nullptr)
            self->takeRoles(*present, toRoles(values), false);
    });
}

void Watcher::onRowsChanged(CMPath path, QStringList changes, int version, int oldVersion)
{
    Watched* watched = find(path, CMAbstractWorker::RowsChange);
    if (!watched)
        return;
    if (!isUp(*watched)) {
        // Told as one reset when the rows can be read again.
        watched->resetDue = true;
        return;
    }
    const bool isReset = changes.contains(CMSubscribe::RowsChangeReset());
    // What the printed count has in it already.
    const int known = isReset ? 0 : qBound(0, watched->rowsVersion - oldVersion, changes.size());
    watched->rowsVersion = version;
    for (const QString& change : changes.mid(known))
        printChange(*watched, {{QStringLiteral("change"), change}, {QStringLiteral("version"), version}},
                    change.isEmpty() ? QStringLiteral("reset") : change);
}

void Watcher::takeValue(Watched& watched, const QVariant& value)
{
    if (watched.shown == value)
        return;
    watched.shown = value;
    printChange(watched, {{OrvoRoles::Value(), value}}, roleText(value));
}

void Watcher::takeRoles(Watched& watched, const QVariantHash& roles, bool silentWhenEqual)
{
    const QVariantHash changed = rolesDifference(roles, watched.shown.toHash());
    if (changed.isEmpty() && silentWhenEqual)
        return;
    watched.shown = roles;
    printChange(watched, {{QStringLiteral("roles"), changed}},
                changed.isEmpty() ? QStringLiteral("changed") : rolesText(changed));
}

void Watcher::printChange(const Watched& watched, const QVariantHash& fields, const QString& text)
{
    if (m_left == 0)
        return;
    print(watched, fields, text);
    if (m_left > 0 && --m_left == 0)
        m_loop.quit();
}

void Watcher::print(const Watched& watched, QVariantHash fields, const QString& text)
{
    if (m_output.isJson()) {
        fields.insert(QStringLiteral("path"), watched.path.toEncoded());
        fields.insert(QStringLiteral("kind"), kindName(watched.kind));
        m_output.documentLine(fields);
    } else {
        m_output.line(watched.showPath ? watched.path.toEncoded() + QLatin1String("  ") + text : text);
    }
}
