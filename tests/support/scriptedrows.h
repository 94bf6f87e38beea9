#pragma once

#include "core/model/cmmetatypes.h"
#include "core/model/cmrowsbrowser.h"
#include "linkfixture.h"

#include <QPointer>
#include <QTimer>

/// A list whose answers and changes the test decides, and a browser on it.
class ScriptedRows
{
public:
    /// The rows' ids are "r" and their numbers.
    explicit ScriptedRows(int radius = 1, int rows = 0) : alive(new CMRowsBrowser), browser(*alive), m_radius(radius)
    {
        for (int row = 0; row < rows; ++row)
            ids.append(QLatin1Char('r') + QString::number(row));
        browser.setWorker(&worker);
        browser.setRoles(CMAllRoles());
        browser.setRadius(radius);
        browser.setPath(CMPath::fromEncoded("p:list"));
        browser.setActive(true);
    }
    ~ScriptedRows()
    {
        delete alive;
        worker.clear();
    }

    int requests() const { return worker.requests.size(); }
    CMGetRowsRequest request() const { return worker.last<CMGetRowsRequest>(); }
    /// "from to version" of the last request.
    QString asked() const
    {
        const CMGetRowsRequest last = request();
        return last.isNull() ? QStringLiteral("nothing")
                             : QStringLiteral("%1 %2 %3").arg(last.fromRow()).arg(last.toRow()).arg(last.rowsVersion());
    }
    /// Lets the trigger's time pass; what is asked then, or "nothing" where no request follows.
    QString look()
    {
        const int before = requests();
        triggerTimer()->stop();
        QMetaObject::invokeMethod(&browser, "triggerTimeout");
        return requests() == before ? QStringLiteral("nothing") : asked();
    }
    OrvoRowsRoles answerFor(const CMGetRowsRequest& request) const
    {
        OrvoRowsRoles answer = rowsRoles;
        QVariantList rows;
        for (int row = request.fromRow(); row <= request.toRow() && row < ids.size(); ++row)
            rows.append(QVariant(rowValues(ids.at(row))));
        answer.setRows(rows).setRowsCount(count < 0 ? ids.size() : count).setRowsVersion(version).setRoles(listRoles);
        return answer;
    }
    /// Answers the last request, and lets the browser take it.
    void answer() { answer(answerFor(request())); }
    void answer(const OrvoRowsRoles& answer)
    {
        request().reply().setValue(answer);
        turn();
    }
    void fail(const QString& name)
    {
        request().reply().setError(CMError(name, QStringLiteral("message"), QString()));
        turn();
    }
    void turn() { QCoreApplication::sendPostedEvents(nullptr, QEvent::MetaCall); }
    /// Loads until nothing is missing, or for ever so long.
    void load()
    {
        for (int i = 0; i < 100 && look() != QStringLiteral("nothing"); ++i)
            answer();
    }
    void deliver(const QStringList& changes, int newVersion, int oldVersion)
    {
        QMetaObject::invokeMethod(&browser, "rowsChanged", Q_ARG(CMPath, browser.path()), Q_ARG(QStringList, changes),
                                  Q_ARG(int, newVersion), Q_ARG(int, oldVersion));
    }
    /// The changes as the list's own, one version each.
    void deliver(const QStringList& changes)
    {
        const int old = version;
        version += changes.size();
        deliver(changes, version, old);
    }
    QString id(int row) const { return browser.item(row).id(); }
    /// The ids of the rows, "-" for a row that is not loaded.
    QString shown(int from, int to) const
    {
        QStringList texts;
        for (int row = from; row <= to; ++row)
            texts.append(id(row).isEmpty() ? QStringLiteral("-") : id(row));
        return texts.join(QLatin1Char(' '));
    }
    /// The active range and nothing else.
    QString active() const
    {
        return shown(qMax(0, browser.currentRow() - m_radius),
                     qMin(browser.currentRow() + m_radius, browser.size() - 1));
    }
    QTimer* triggerTimer() const { return browser.findChildren<QTimer*>().value(0); }
    QTimer* closeTimer() const { return browser.findChildren<QTimer*>().value(1); }
    /// The time until the next look; -1 when none is due.
    int due() const { return triggerTimer()->isActive() ? triggerTimer()->interval() : -1; }

    ScriptedWorker worker;
    QStringList ids;
    int version = 3;
    /// Another count than the list's, when not negative.
    int count = -1;
    OrvoRoles listRoles;
    OrvoRowsRoles rowsRoles;
    /// A test may destroy the browser.
    const QPointer<CMRowsBrowser> alive;
    CMRowsBrowser& browser;

private:
    const int m_radius;
};

/// What a browser tells, in order. updated() is counted only.
class BrowserEar : public QObject
{
public:
    explicit BrowserEar(CMRowsBrowser* browser)
    {
        const auto say = [this](const QString& text) { said.append(text); };
        connect(browser, &CMRowsBrowser::updated, this, [this] { ++updates; });
        connect(browser, &CMRowsBrowser::pathChanged, this,
                [=](const CMPath& path) { say("path " + path.toEncoded()); });
        connect(browser, &CMRowsBrowser::loadingChanged, this, [=](bool on) { say(on ? "loading" : "loaded"); });
        connect(browser, &CMRowsBrowser::sizeChanged, this, [=](int size) { say(QString("size %1").arg(size)); });
        connect(browser, &CMRowsBrowser::currentRowChanged, this, [=](int row) { say(QString("row %1").arg(row)); });
        connect(browser, &CMRowsBrowser::currentItemChanged, this,
                [=](const OrvoRoles& item) { say("current " + name(item)); });
        connect(browser, &CMRowsBrowser::rowsRolesChanged, this, [=] { say("rowsRoles"); });
        connect(browser, &CMRowsBrowser::itemsChanged, this, [=] { say("items"); });
        connect(browser, &CMRowsBrowser::itemAdded, this,
                [=](int row, const OrvoRoles& roles) { say(QString("added %1 %2").arg(row).arg(name(roles))); });
        connect(browser, &CMRowsBrowser::itemRemoved, this, [=](int row) { say(QString("removed %1").arg(row)); });
        connect(browser, &CMRowsBrowser::itemMoved, this,
                [=](int from, int to) { say(QString("moved %1 %2").arg(from).arg(to)); });
        connect(browser, &CMRowsBrowser::itemChanged, this,
                [=](const OrvoRoles& roles, const OrvoRoles& oldRoles, int row) {
                    say(QString("%1: %2 <- %3").arg(row).arg(name(roles), name(oldRoles)));
                });
        connect(browser, &CMRowsBrowser::titleChanged, this, [=](const QString& title) { say("title " + title); });
        connect(browser, &CMRowsBrowser::typeChanged, this, [=] { say("type"); });
        connect(browser, &CMRowsBrowser::errorChanged, this,
                [=](const CMError& error) { say("error " + error.name()); });
        connect(browser, &CMRowsBrowser::closed, this, [=](CMRowsBrowser* sender, const CMError& error) {
            say(QString("closed %1 %2").arg(sender == browser ? "this" : "null", error.name()).trimmed());
        });
    }
    QStringList take()
    {
        QStringList taken;
        taken.swap(said);
        updates = 0;
        return taken;
    }

    QStringList said;
    int updates = 0;

private:
    static QString name(const OrvoRoles& roles)
    {
        return roles.isEmpty() ? QStringLiteral("-") : roles.id().isEmpty() ? roles.title() : roles.id();
    }
};
