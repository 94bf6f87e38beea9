#pragma once

#include "cmroutingworker.h"
#include "core/model/cmbrowser.h"
#include "screen.h"

#include <QEventLoop>
#include <QObject>
#include <QTimer>

class CMPath;
class CMRemoteWorker;
class OrvoRoles;

/**
 * A person's walk through the lists of a tree: keys move the current row of the top list and enter and leave lists, and
 * the screen follows what the lists tell. Lists of other services are reached as they are entered.
 *
 * Lives in the main thread, no longer than the worker and the screen.
 */
class Browsing : public QObject
{
    Q_OBJECT

public:
    Browsing(CMRemoteWorker* worker, Screen& screen, const CMPath& path);

    /// Returns when the last list is left, by `q`, and after stop().
    void exec();
    void stop();
    void resize();

private slots:
    void redrawLater();

private:
    void readKeys();
    void take(Screen::Key key);
    void moveTo(int row);
    void enter();
    void invoke(const CMPath& path, const QString& title);
    void draw();
    /// Why the rows on screen may be old; empty when they are not.
    QString trouble(const CMRowsBrowser& top);

    Screen& m_screen;
    CMRoutingWorker m_router;
    CMBrowser m_browser;
    QTimer m_drawTimer;
    QEventLoop m_loop;
    bool m_ended = false;
    /// What became of the last key.
    QString m_message;
    bool m_messageIsError = false;
};
