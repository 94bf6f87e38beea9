#pragma once

#include "core/model/cmpath.h"
#include "records/orvoroles.h"

#include <QEventLoop>
#include <QObject>
#include <QVariant>

class CMRemoteWorker;
class CMRowsClone;
class Output;

/**
 * Follows a list and prints a line for each row that is there and for each change, until it is stopped or has printed
 * enough changes: whoever replays the lines on an empty list has the list. When the service comes back, only the rows
 * that are other than before are told.
 *
 * Lives in the main thread, no longer than the worker and the output.
 */
class Mirror : public QObject
{
    Q_OBJECT

public:
    /// Ends after `count` changes; -1 for never. The rows that are there at first are not counted.
    Mirror(CMRemoteWorker* worker, Output& output, const CMPath& path, int count);

    /// Returns after the last change that was asked for, and after stop().
    void exec();
    void stop() { m_loop.quit(); }

private slots:
    void onItemChanged(OrvoRoles newRoles, OrvoRoles oldRoles, int row);
    void onLoadingChanged(bool loading);
    void onClosed();
    void onConnectedChanged(bool connected);

private:
    bool isEnough() const { return m_started && m_left == 0; }
    void setUp(bool up);
    void print(const QString& change, QVariantHash fields, const QString& text);

    Output& m_output;
    const CMPath m_path;
    int m_left;
    QEventLoop m_loop;
    CMRowsClone* const m_clone;
    /// The rows that were there at first are printed.
    bool m_started = false;
    /// Rows have come since the link was made.
    bool m_up = true;
};
