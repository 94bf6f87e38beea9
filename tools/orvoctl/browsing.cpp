#include "browsing.h"

#include "cmremoteworker.h"
#include "core/model/cmroles.h"
#include "core/model/cmrowsbrowser.h"
#include "core/model/cmrpcclient.h"
#include "failure.h"
#include "link.h"
#include "values.h"

#include <QCoreApplication>
#include <QPointer>
#include <QSocketNotifier>

#include <unistd.h>

namespace {

/// More rows than most terminals have lines, so that all that is on screen is loaded wherever the current row is.
constexpr int radius = 100;
/// The number of the first row on screen, kept with each list.
constexpr char firstShownProperty[] = "firstShown";

QString rowText(const OrvoRoles& roles)
{
    if (roles.isEmpty())
        return QStringLiteral("  \u2026");
    QString text = roles.title();
    for (const QString& other : {roles.id(), roles.path().toEncoded()})
        if (text.isEmpty())
            text = other;
    const QString value = roleText(roles.__value(OrvoRoles::Value()));
    if (!value.isEmpty())
        text += QStringLiteral(": ") + value;
    switch (roles.type()) {
    case OrvoRolesType::Container_:
    case OrvoRolesType::Playlist_:
        return QStringLiteral("> ") + text;
    case OrvoRolesType::Action_:
        return QStringLiteral("* ") + text;
    default:
        return QStringLiteral("  ") + text;
    }
}

} // namespace

Browsing::Browsing(CMRemoteWorker* worker, Screen& screen, const CMPath& path) : m_screen(screen), m_browser(&m_router)
{
    m_router.registerWorker(path.prefix(), worker);
    m_router.connectUnknown(QStringLiteral("orvoctl-%1").arg(QCoreApplication::applicationPid()));
    m_drawTimer.setSingleShot(true);
    connect(&m_drawTimer, &QTimer::timeout, this, &Browsing::draw);
    connect(&m_browser, &CMBrowser::topRowsChanged, this, &Browsing::redrawLater);
    connect(&m_browser, &CMBrowser::topRowsUpdated, this, &Browsing::redrawLater);
    connect(&m_browser, &CMBrowser::topRowsRowsRolesChanged, this, &Browsing::redrawLater);
    connect(new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this), &QSocketNotifier::activated, this,
            &Browsing::readKeys);
    m_browser.setRoles(CMAllRoles());
    m_browser.setRadius(radius);
    m_browser.setActive(true);
    m_browser.open(path);
}

void Browsing::exec()
{
    draw();
    if (!m_ended)
        m_loop.exec();
}

void Browsing::stop()
{
    m_ended = true;
    m_loop.quit();
}

void Browsing::resize()
{
    m_screen.resize();
    redrawLater();
}

void Browsing::redrawLater()
{
    if (!m_drawTimer.isActive())
        m_drawTimer.start();
}

void Browsing::readKeys()
{
    for (Screen::Key key = m_screen.readKey(); key != Screen::Key::None && !m_ended; key = m_screen.readKey())
        take(key);
    redrawLater();
}

void Browsing::take(Screen::Key key)
{
    m_message.clear();
    const CMRowsBrowser* top = m_browser.topRows();
    if (key == Screen::Key::Quit || !top)
        return stop();
    const int row = top->currentRow();
    const int page = m_screen.rowCount();
    switch (key) {
    case Screen::Key::Up:
        return moveTo(row - 1);
    case Screen::Key::Down:
        return moveTo(row + 1);
    case Screen::Key::PageUp:
        return moveTo(row - page);
    case Screen::Key::PageDown:
        return moveTo(row + page);
    case Screen::Key::Home:
        return moveTo(0);
    case Screen::Key::End:
        return moveTo(top->size() - 1);
    case Screen::Key::Enter:
        return enter();
    case Screen::Key::Back:
        m_browser.closeTop();
        return;
    case Screen::Key::Quit:
    case Screen::Key::None:
        return;
    }
}

void Browsing::moveTo(int row)
{
    CMRowsBrowser* top = m_browser.topRows();
    const int size = top->size();
    if (size > 0)
        top->setCurrentRow(qBound(0, row, size - 1));
}

void Browsing::enter()
{
    const CMRowsBrowser* top = m_browser.topRows();
    const OrvoRoles roles = top->item(top->currentRow());
    const CMPath path = roles.path();
    const int type = roles.type();
    const QString title = roles.title().isEmpty() ? path.toEncoded() : roles.title();
    if (!path.isEmpty() && (type == OrvoRolesType::Container_ || type == OrvoRolesType::Playlist_))
        m_browser.open(path);
    else if (!path.isEmpty() && type == OrvoRolesType::Action_)
        invoke(path, title);
    else if (!roles.isEmpty())
        m_message = QStringLiteral("neither a list nor an action");
    m_messageIsError = false;
}

void Browsing::invoke(const CMPath& path, const QString& title)
{
    m_message = title + QStringLiteral(": under way");
    const QPointer<Browsing> self(this);
    const CMReply<QVariant> reply = m_router.invoke(path, QVariant());
    reply.onFinished([self, reply, title](const CMVoidReply&) {
        if (!self)
            return;
        const CMError error = reply.error();
        const QString text = error.isError() ? errorText(error) : roleText(reply.value());
        self->m_message = title + QStringLiteral(": ") + (text.isEmpty() ? QStringLiteral("done") : text);
        self->m_messageIsError = error.isError();
        self->redrawLater();
    });
}

QString Browsing::trouble(const CMRowsBrowser& top)
{
    const QString service = top.path().prefix();
    if (const auto* worker = qobject_cast<CMRemoteWorker*>(m_router.worker(service))) {
        connect(worker->client(), &CMRPCClient::connectedChanged, this, &Browsing::redrawLater, Qt::UniqueConnection);
        if (!worker->client()->isConnected())
            return QStringLiteral("no link to service '%1'").arg(service);
    }
    return top.error().isError() ? errorText(top.error()) : QString();
}

void Browsing::draw()
{
    CMRowsBrowser* top = m_browser.topRows();
    if (!top)
        return stop();
    const CMRowsBrowser::RowsCount size = top->size();
    const int current = top->currentRow();
    const int shown = qMin(m_screen.rowCount(), radius);
    const int first = qBound(qMax(0, current - shown + 1), top->property(firstShownProperty).toInt(), current);
    top->setProperty(firstShownProperty, first);

    Picture picture;
    picture.title = top->title().isEmpty() ? top->path().toEncoded() : top->title();
    picture.position = QStringLiteral("%1/%2%3")
                           .arg(size.count() > 0 ? current + 1 : 0)
                           .arg(size.count())
                           .arg(size.isUnknown() ? QStringLiteral("+") : QString());
    picture.isLoading = top->isLoading();
    for (int row = first; row < qMin(first + shown, size.count()); ++row) {
        const OrvoRoles roles = top->item(row);
        picture.isLoading |= roles.isEmpty();
        picture.rows.append(rowText(roles));
    }
    picture.current = size.count() > 0 ? current - first : -1;
    picture.status = trouble(*top);
    picture.statusIsError = !picture.status.isEmpty();
    if (picture.status.isEmpty() && !m_message.isEmpty()) {
        picture.status = m_message;
        picture.statusIsError = m_messageIsError;
    }
    if (picture.status.isEmpty())
        picture.status = QStringLiteral("Enter: open  Backspace: back  q: quit");
    m_screen.draw(picture);
}
