#pragma once

#include "core/model/cmerror.h"

#include <QAbstractListModel>
#include <QStringList>
#include <QVariantMap>

#include <memory>

class CMAbstractWorker;
class CMPath;
class CMRowsBrowser;
class QTimer;

/**
 * A list of the model for any list view of Qt, in C++ or QML: the rows under the names of their roles (`title`,
 * `icon`, ...), the title also for display.
 *
 * A view reads only what it shows, and so tells what is to be loaded: each turn of the event loop the rows that were
 * read in it, loaded or not, are looked at together, and when they lie outside the inner half of the browser's active
 * range, its current row moves into their middle. A view that scrolls finds half a radius of rows loaded ahead. Choose
 * a radius of at least the number of rows that the view shows; when more than two radii are read in one turn, those
 * around the last one read are loaded. A row that is not loaded has no data until dataChanged() announces it. Rows that
 * the window leaves behind are not announced: a view reads them again when it shows them again, and two views at
 * different places do not chase the window from one to the other. A view or proxy that reads all rows of a list (to
 * sort them, say) defeats all this; CMRowsClone is for that.
 *
 * Inserted, removed and moved rows come with the list's own row numbers, so selection and scroll position follow them.
 * A list that is loaded anew, after a restart of its service or with another path, is a reset of the model. Rows that
 * are about to be removed have no data any more, as the list has lost them already. While the list loads it has no
 * rows.
 *
 * Lives in one thread. May be destroyed inside its own signals, save those that announce what is about to change.
 */
class OrvoRowsModel : public QAbstractListModel
{
    Q_OBJECT
    /// The encoded path of the list; follows a redirect. Empty follows nothing.
    Q_PROPERTY(QString path READ path WRITE setPath NOTIFY pathChanged)
    /// Rows as the view sees them, which at the end of an open list is more than are known.
    Q_PROPERTY(int count READ count NOTIFY countChanged)
    /// The list is loaded for the first time, or anew.
    Q_PROPERTY(bool loading READ isLoading NOTIFY loadingChanged)
    /// Why rows cannot be had: name, title and message. Empty again once they can.
    Q_PROPERTY(QVariantMap error READ errorMap NOTIFY errorChanged)

public:
    static constexpr int defaultRadius = 50;

    /// Speaks to CMRoot() until it is given another worker.
    explicit OrvoRowsModel(QObject* parent = nullptr, int radius = defaultRadius);
    ~OrvoRowsModel() override;

    /// The worker outlives this.
    void setWorker(CMAbstractWorker* worker);
    void setPath(const CMPath& path);
    void setPath(const QString& path);
    QString path() const;
    int count() const { return m_count; }
    bool isLoading() const { return m_loading; }
    CMError error() const { return m_error; }
    QVariantMap errorMap() const;
    /// The window. Owned by this; its path and worker are set here.
    CMRowsBrowser* browser() const { return m_browser.get(); }
    /// The number under which data() knows the role of that key; -1 for an unknown one.
    int roleOf(const QString& key) const;

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QHash<int, QByteArray> roleNames() const override;

signals:
    void pathChanged();
    void countChanged();
    void loadingChanged();
    void errorChanged();
    /// The list wants its screen closed.
    void closed();

private:
    /// Rows, both ends included; none when from is negative.
    struct Range
    {
        int from = -1;
        int to = -1;

        bool isEmpty() const { return from < 0; }
    };
    /**
     * What the browser has done already and the views are only about to hear of: until they have, a row number of
     * theirs means another row of the browser's.
     */
    struct Step
    {
        enum Kind { None, Insert, Remove, Move };

        /// The browser's row for a view's; -1 for one that is gone.
        int apply(int row) const;

        Kind kind = None;
        int from = 0;
        int to = 0;
    };

    void onItemAdded(int row);
    void onItemRemoved(int row);
    void onItemMoved(int from, int to);
    void onItemChanged(int row);
    void onItemsChanged();
    void onLoadingChanged();
    void turn();

    /// Whether the views can follow the step now; tells them of changed rows first.
    bool prepare(const Step& step);
    void insertRows(int first, int last);
    void removeRows(int first, int last);
    void resetRows();
    /// Brings the count in line with the browser's where no single row tells of it.
    void settleCount();
    void settleError();
    void tellChanged();
    void want(int row) const;
    void moveWindow();

    const int m_radius;
    const QStringList m_keys;
    const std::unique_ptr<CMRowsBrowser> m_browser;
    QTimer* const m_turnTimer;
    int m_count = 0;
    bool m_loading = true;
    CMError m_error;
    Step m_step;
    /// Rows that have other roles than the views were told.
    Range m_changed;
    /// Rows that were read since the last turn.
    mutable Range m_asked;
    /// The current row is moved by this.
    bool m_moving = false;
};
