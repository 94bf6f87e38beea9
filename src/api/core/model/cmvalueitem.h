#pragma once

#include "core/model/cmpath.h"
#include "core/model/cmrequest.h"
#include "records/orvovalue.h"

#include <QObject>
#include <QTimer>

/**
 * Follows the value of the node at one path: one fetch, repeated until it succeeds, and from then on what the hub
 * pushes. Loading from a path change until the first value.
 *
 * Lives in one thread, whose event loop brings its replies, and speaks to CMRoot(). A failed fetch is repeated after
 * 20 ms, doubling up to 20 s, for ever. May be destroyed at any time, also inside its own signals.
 */
class CMValueItem : public QObject
{
    Q_OBJECT

public:
    /// The slot takes any head of (OrvoValue value, OrvoValue oldValue); it does not hear of the first path.
    explicit CMValueItem(QObject* parent = nullptr, const CMPath& path = CMPath(), QObject* receiver = nullptr,
                         const char* slot = nullptr, Qt::ConnectionType type = Qt::AutoConnection);
    ~CMValueItem() override;

    CMPath path() const { return m_path; }
    OrvoValue value() const { return m_value; }
    bool isLoading() const { return m_loading; }

    /// An empty path follows nothing.
    CMValueItem* setPath(const CMPath& path);
    /**
     * Blocks the item's own thread until the fetch in flight has ended, for at most `timeout` milliseconds; true when
     * it has, or when none is in flight, also without a value. Not where this thread's event loop has to answer.
     */
    bool waitForLoaded(unsigned long timeout);
    /// Stores the value here, and tells. Sends nothing to the node.
    void setValue(const OrvoValue& value, bool loading);
    /// Gives up the fetch in flight and the next try.
    void stopGetData();

signals:
    void changed(OrvoValue value = OrvoValue(), OrvoValue oldValue = OrvoValue());
    void loadingChanged(bool loading);

private slots:
    void on_valueChanged(CMPath path, QVariant value);
    void on_getData();
    void on_getData_finished(CMVoidReply r);

private:
    CMPath m_path;
    QTimer m_timer;
    OrvoValue m_value;
    bool m_loading = false;
    /// The fetch in flight; null when idle.
    CMGetDataRequest m_request;
    /// Milliseconds before the next try.
    int m_repeatTime;
    bool m_warnAtMaxRepeat = true;
};
