#pragma once

#include "core/model/cmerror.h"
#include "core/model/cmpath.h"
#include "records/orvoroles.h"
#include "records/orvorowsroles.h"
#include "records/orvovalue.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QStringList>

#include <memory>

class CMAbstractWorker;
class CMRowsBrowser;
class CMVariantReply;

/**
 * The stack of list screens of a user interface: one CMRowsBrowser for each list that the user entered, the last one
 * is on screen, the top.
 *
 * Owns the browsers and gives all of them the same worker, roles, radius and active state. A screen connects once, to
 * the topRows...() signals: those of the top are forwarded, and a new top's state is told at once. Set roles and radius
 * before the first open(). For one thread; may be destroyed at any time, also inside its own signals. A screen that is
 * closed, by itself or by a call, goes with the next turn of the event loop.
 */
class CMBrowser : public QObject
{
    Q_OBJECT

public:
    /// Makes the browsers; a subclass may make browsers of its own kind.
    class RowsFactory
    {
    public:
        virtual ~RowsFactory();
        /// A new browser without a parent.
        virtual CMRowsBrowser* create();
    };

    /// The worker outlives this.
    explicit CMBrowser(CMAbstractWorker* worker);
    ~CMBrowser() override;

    /// Of the length and order of CMAllRoles().
    void setRoles(const QStringList& roles);
    void setRadius(int radius);
    void setActive(bool active);
    void setEnumValue(const OrvoValue& value);

    /// Returns to the list when it is on the stack, which closes the screens above it; enters it as a new screen else.
    void open(const CMPath& path);
    /// Enters a new screen whose path the reply brings; it goes when the reply fails.
    void open(const CMVariantReply& reply);
    // False when there is no such screen.
    bool close(const CMPath& path);
    bool close(CMRowsBrowser* rows);
    bool closeAt(int index);
    /// From begin to the one before end; -1 is the end of the stack.
    void closeAll(int begin, int end);
    /// The back action: to the place that the top's list names for it, or else to the screen below. False with no top.
    bool closeTop();

    /// The place on the stack, the bottom first; -1 when there is none, as for an empty path.
    int findRows(const CMPath& path) const;
    int findRows(CMRowsBrowser* rows) const;
    /// Brings topRows() and its forwarded signals in line with the stack.
    void updateTopRows();

    /// Null on an empty stack.
    CMRowsBrowser* topRows() const { return m_topRows; }
    /// The bottom first.
    QList<CMRowsBrowser*> rows() const { return m_rows; }
    OrvoValue enumValue() const { return m_enumValue; }

signals:
    void topRowsChanged(CMRowsBrowser* rows = nullptr);
    void rowsStackChanged();
    /// For any browser on the stack.
    void anyCurrentItemChanged(CMRowsBrowser* rows = nullptr, OrvoRoles data = OrvoRoles());
    void topRowsUpdated();
    void topRowsPathChanged(CMPath path = CMPath());
    void topRowsLoadingChanged(bool loading = false);
    void topRowsSizeChanged(int size = 0);
    void topRowsCurrentRowChanged(int currentRow = 0);
    void topRowsCurrentItemChanged(OrvoRoles item = OrvoRoles());
    void topRowsRowsRolesChanged(OrvoRowsRoles rowsRoles = OrvoRowsRoles());
    void topRowsItemsChanged();
    void topRowsErrorChanged(CMError error = CMError());

private slots:
    void on_rows_closed();
    void on_rows_pathChanged(CMPath path);
    void on_rows_currentItemChanged(OrvoRoles item);
    void on_item_changed();

private:
    /// The new screen; null when whoever hears of it has destroyed it.
    QPointer<CMRowsBrowser> push(const CMPath& path);
    /// Its last words concern nobody any more.
    void retire(CMRowsBrowser* rows);
    void replayTop();

    CMAbstractWorker* m_worker;
    bool m_active = false;
    QList<CMRowsBrowser*> m_rows;
    CMRowsBrowser* m_topRows = nullptr;
    int m_radius = 0;
    QStringList m_roles;
    std::unique_ptr<RowsFactory> m_rowsFactory;
    OrvoValue m_enumValue;
};
