#include "core/model/cmrowsbrowser_p.h"

#include "core/model/cmabstractworker.h"
#include "core/model/cmglobal.h"
#include "core/model/cmreplywatcher.h"
#include "core/model/cmroles.h"
#include "core/model/cmroot.h"
#include "core/model/cmsubscribe.h"
#include "core/orvo.h"
#include "core/orvoLog_p.h"

#include <QTimer>

namespace {

ORVO_LOGGER("CMRowsBrowser")

constexpr int maxErrors = 4;
constexpr int maxVersionErrors = 1;

const char* const rowsChangedSlot = SLOT(rowsChanged(CMPath,QStringList,int,int));

} // namespace

CMRowsBrowser::CMRowsBrowser(QObject* parent)
    : QObject(parent), m_worker(CMRoot()), m_triggerTimer(new QTimer(this)), m_closeTimer(new QTimer(this))
{
    m_triggerTimer->setSingleShot(true);
    m_closeTimer->setSingleShot(true);
    orvoConnect(m_triggerTimer, SIGNAL(timeout()), this, SLOT(triggerTimeout()));
    orvoConnect(m_closeTimer, SIGNAL(timeout()), this, SIGNAL(closed()));
    for (const char* signal : {SIGNAL(pathChanged()),
             SIGNAL(loadingChanged()),
                    SIGNAL(sizeChanged()), SIGNAL(currentRowChanged()),
                                                  SIGNAL(currentItemChanged()),
                                                         SIGNAL(itemsChanged()), SIGNAL(titleChanged()),
                                                                                        SIGNAL(typeChanged()),
                                                                                               SIGNAL(errorChanged())})
        orvoConnect(this, signal, this, SIGNAL(updated()));
}

CMRowsBrowser::~CMRowsBrowser()
{
    cancelRequest();
    if (m_subscribed)
        m_worker->disconnectRowsChange(m_path, this, rowsChangedSlot);
}

void CMRowsBrowser::setWorker(CMAbstractWorker* worker)
{
    Q_ASSERT(worker);
    if (worker == m_worker)
        return;
    const CMPath path = m_path;
    const Watch watch(this);
    setPath(CMPath());
    if (!watch.isAlive())
        return;
    m_worker = worker;
    setPath(path);
}

void CMRowsBrowser::setPath(const CMPath& path)
{
    if (path == m_path)
        return;
    if (m_subscribed) {
        m_worker->disconnectRowsChange(m_path, this, rowsChangedSlot);
        m_subscribed = false;
    }
    m_path = path;
    ++m_generation;
    const Watch watch(this);
    emit pathChanged(m_path);
    // Another path may stand already.
    if (watch.isOver())
        return;
    if (!m_path.isEmpty()) {
        m_worker->connectRowsChange(m_path, this, rowsChangedSlot, Qt::QueuedConnection);
        m_subscribed = true;
    }
    // Also where nothing is loaded that reset() would end: the answer of the old path is none of the new one.
    cancelRequest();
    m_missedVersion = -1;
    reset();
    if (watch.isAlive())
        trigger(rowsTriggerDelayMs);
}

void CMRowsBrowser::setRoles(const QStringList& roles)
{
    if (roles == m_roles)
        return;
    m_roles = roles;
    dropItems();
}

void CMRowsBrowser::setRadius(int radius)
{
    Q_ASSERT(m_radius == 0);
    Q_ASSERT(radius >= 0);
    Q_ASSERT(m_items.size() == 1);
    m_radius = radius;
    m_items.resize(2 * centre() + 1);
    trigger(rowsTriggerDelayMs);
}

void CMRowsBrowser::setActive(bool active)
{
    if (active == m_active)
        return;
    m_active = active;
    trigger(rowsTriggerDelayMs);
}

void CMRowsBrowser::setExpandAccept(bool expandAccept)
{
    m_expandAccept = expandAccept;
}

void CMRowsBrowser::setRetryOnError(bool retryOnError)
{
    m_retryOnError = retryOnError;
}

void CMRowsBrowser::setEnumPath(const CMPath& path)
{
    m_enumPath = path;
}

void CMRowsBrowser::addPathWatcher(const CMVariantReply& reply)
{
    auto* watcher = new CMReplyWatcherObject;
    orvoConnect(watcher, SIGNAL(finishedSignal(CMVoidReply)), this,
                                SLOT(pathWatcherFinished(CMVoidReply)), Qt::QueuedConnection);
    reply.addWatcher(watcher);
}

void CMRowsBrowser::pathWatcherFinished(CMVoidReply reply)
{
    const CMError error = reply.error();
    if (error.isError()) {
        LOG4CPLUS_WARN(logger(),
                       m_path << " pathWatcherFinished with error: " << error.name() << ' ' << error.message());
        emit closed(this, error);
        return;
    }
    const CMPath path = CMPath::fromQVariant(reply.toVariantReply().value());
    if (path.isEmpty())
        LOG4CPLUS_TRACE(logger(), "pathWatcherFinished: Empty path");
    else
        setPath(path);
}

void CMRowsBrowser::cancelRequest()
{
    if (m_request.isNull())
        return;
    const CMVoidReply reply = m_request.reply();
    m_request = CMGetRowsRequest();
    reply.cancel();
}

void CMRowsBrowser::reset()
{
    LOG4CPLUS_INFO(logger(), m_path << " reset()");
    if (m_version == -1)
        return trigger(rowsTriggerDelayMs);

    // Everything is forgotten before anybody is told.
    ++m_generation;
    const Lost lost = takeItems();
    const bool sizeDiffers = m_rowsCount != 0;
    const bool rowsRolesDiffer = !m_rowsRoles.isEmpty();
    m_rowsCount = 0;
    m_currentRow = 0;
    m_movingForward = true;
    m_version = -1;
    m_versionDoubted = false;
    m_missedVersion = -1;
    m_rowsRoles = OrvoRowsRoles();
    m_acceptRows = 0;
    m_closeTimer->stop();
    m_closeTimer->setInterval(0);
    cancelRequest();
    trigger(rowsTriggerDelayMs);

    const Watch watch(this);
    if (sizeDiffers)
        emit sizeChanged(size());
    if (!watch.isOver() && rowsRolesDiffer)
        emit rowsRolesChanged(m_rowsRoles);
    if (!watch.isOver())
        tellLost(lost);
    if (!watch.isOver())
        emit itemsChanged();
    if (!watch.isOver())
        emit currentItemChanged(item(m_currentRow));
    if (!watch.isOver())
        emit currentRowChanged(m_currentRow);
    if (!watch.isOver())
        emit loadingChanged(true);
}

void CMRowsBrowser::resetCloseTimer()
{
    if (m_closeTimer->isActive())
        m_closeTimer->start();
}

void CMRowsBrowser::setCurrentRow(int row)
{
    if (row == m_currentRow)
        return;
    const RowsCount count = size();
    const int end = count.isUnknown() ? endOfRows() : qMin(endOfRows(), count.count());
    if (row < 0 || row >= end) {
        LOG4CPLUS_ERROR(logger(), "invalid parameter: currentRow:" << row << ", size: " << count.count()
                                                                   << " activeCurrentRow: " << m_currentRow);
        return;
    }
    moveCurrentRow(row);
}

void CMRowsBrowser::moveCurrentRow(int row)
{
    // Only a jump is told row by row: it leaves no slot.
    Lost lost;
    if (qAbs(row - m_currentRow) >= m_items.size())
        lost = takeItems();
    moveWindow(row);
    const Watch watch(this);
    tellLost(lost);
    if (!watch.isOver())
        tellCurrentRow();
}

void CMRowsBrowser::moveWindow(int row)
{
    const int delta = row - m_currentRow;
    m_currentRow = row;
    m_movingForward = delta > 0;
    m_items.shift(delta);
}

void CMRowsBrowser::tellCurrentRow()
{
    const Watch watch(this);
    emit currentRowChanged(m_currentRow);
    if (!watch.isOver())
        emit currentItemChanged(item(m_currentRow));
    if (watch.isAlive())
        trigger(rowsTriggerDelayMs);
}

void CMRowsBrowser::tellCurrentItem()
{
    const Watch watch(this);
    emit currentItemChanged(item(m_currentRow));
    if (watch.isAlive())
        trigger(rowsTriggerDelayMs);
}

CMRowsBrowser::Lost CMRowsBrowser::takeItems()
{
    Lost lost;
    for (int i = 0; i < m_items.size(); ++i) {
        Item& item = m_items.at(i);
        if (!item.roles.isEmpty())
            lost.emplace_back(rowAt(i), item.roles);
        item = Item();
    }
    return lost;
}

void CMRowsBrowser::tellLost(const Lost& lost)
{
    const Watch watch(this);
    for (const auto& [row, roles] : lost) {
        emit itemChanged(OrvoRoles(), roles, row);
        if (watch.isOver())
            return;
    }
}

void CMRowsBrowser::dropItems()
{
    tellLost(takeItems());
}

void CMRowsBrowser::trigger(int delay)
{
    if (!m_active || !m_request.isNull() || m_path.isEmpty())
        return;
    if (m_triggerTimer->isActive() && delay >= m_triggerTimer->interval())
        return;
    if (delay < m_retryInterval) {
        m_errorsCount = 0;
        m_versionErrorsCount = 0;
    }
    // A step among loaded rows costs no timer: whatever makes a gap later triggers by itself.
    if (!m_versionDoubted && calculateFromToRow().first < 0)
        m_triggerTimer->stop();
    else
        m_triggerTimer->start(delay);
}

void CMRowsBrowser::triggerTimeout()
{
    Q_ASSERT(m_items.size() == 2 * m_radius * m_radiusMultipler + 1);
    if (!m_active || !m_request.isNull() || m_path.isEmpty())
        return;
    const auto [from, to] = calculateFromToRow();
    if (from < 0 || to < 0) {
        LOG4CPLUS_TRACE(logger(), "getRows not required, from: " << from << " to: " << to);
        // No fetch will show whether changes were lost. The retry's time is theirs to turn up in.
        if (m_versionDoubted)
            m_triggerTimer->interval() < m_retryInterval ? trigger(m_retryInterval) : reset();
        return;
    }
    LOG4CPLUS_INFO(logger(), m_path << " getRowsRequest path:'" << m_path << "' from:" << from << " to:" << to
                                    << " version:" << m_version);
    auto* data = new CMGetRowsRequest::Data;
    data->path = m_path;
    data->fromRow = from;
    data->toRow = to;
    data->rowsVersion = m_version;
    data->roles = CMAllRoles();
    const CMGetRowsRequest request(data);
    request.reply().addWatcher(this, SLOT(getRowsFinished(CMVoidReply)), Qt::QueuedConnection);
    m_request = request;
    m_worker->getRowsRequest(request);
}

void CMRowsBrowser::getRowsFinished(CMVoidReply reply)
{
    // Cancelled meanwhile: what it brings belongs to a window that is gone.
    if (m_request.isNull() || m_request.reply() != reply)
        return;
    const CMGetRowsRequest request = m_request;
    m_request = CMGetRowsRequest();
    CMError error = reply.error();
    if (error.isError())
        return handleError(error);
    const OrvoRowsRoles answer = request.reply().value();
    error = errorOf(answer);
    if (error.isError())
        return handleError(error);

    m_errorsCount = 0;
    m_error = CMError();
    const CMPath redirect = answer.rowsRedirect();
    if (!redirect.isEmpty() && redirect != m_path)
        return setPath(redirect);

    const bool unknown = answer.roles().unknownSize();
    LOG4CPLUS_INFO(logger(), "RowsCount unknown: " << unknown);
    const int count = answer.rowsCount();
    const int version = answer.rowsVersion();
    if (m_version >= 0 && m_version != version) {
        // Of the version that was asked for: then only the window moved on, and it did so change by change.
        m_versionDoubted |= version != request.rowsVersion();
        return handleError(CMAbstractWorker::createErrorInvalidRowsVersion(m_path, m_version, version));
    }
    if (m_version >= 0 && m_rowsCount != count && !unknown) {
        m_versionDoubted = true;
        return handleError(CMAbstractWorker::createErrorInvalidRowsVersion(m_path, -size(), -count));
    }
    m_versionErrorsCount = 0;
    m_rowsCountUnknown = unknown;
    applyReply(answer, request.fromRow());
}

CMError CMRowsBrowser::errorOf(const OrvoRowsRoles& answer) const
{
    if (!answer.rowsRedirect().isEmpty())
        return {};
    if (answer.rowsCount() < 0 || answer.rowsVersion() < 0)
        return CMAbstractWorker::createErrorInternal(QStringLiteral("rows with a negative count or version"));
    const QVariantList rows = answer.rows().toList();
    for (const QVariant& row : rows)
        if (row.toList().size() != m_roles.size())
            return CMAbstractWorker::createErrorInternal(
                QStringLiteral("expected %1 values in a row, got %2").arg(m_roles.size()).arg(row.toList().size()));
    return {};
}

void CMRowsBrowser::applyReply(const OrvoRowsRoles& answer, int from)
{
    const Watch watch(this);
    const bool isFirst = m_version < 0;
    const int count = answer.rowsCount();
    if (count != 0 || !m_rowsCountUnknown)
        setRowsCount(count);
    if (watch.isOver())
        return;
    m_version = answer.rowsVersion();
    m_versionDoubted = isFirst && m_missedVersion > m_version;
    m_missedVersion = -1;
    const OrvoRoles oldItem = item(m_currentRow);
    // The list was open ended before, and ends before the current row.
    if (!m_rowsCountUnknown && m_currentRow > m_rowsCount)
        moveCurrentRow(qMax(0, size() - 1));

    bool brought = false;
    const QVariantList rows = answer.rows().toList();
    const QStringList names = m_roles;
    for (int i = 0; i < rows.size() && !watch.isOver() && m_roles == names; ++i) {
        const OrvoRoles roles = CMGlobal::rolesValuesToHash(names, rows.at(i).toList());
        brought |= !roles.isEmpty();
        rowSet(from + i, roles);
    }
    if (watch.isOver())
        return;

    // Without what each answer has of its own, so that it differs only when the list does.
    OrvoRowsRoles rowsRoles = answer;
    rowsRoles.setRows(QVariant()).setRowsVersion(0).setRowsCount(0);
    setRowsRoles(rowsRoles);
    if (!watch.isOver() && m_title != answer.roles().title()) {
        m_title = answer.roles().title();
        emit titleChanged(m_title);
    }
    if (!watch.isOver() && m_type != answer.type()) {
        m_type = answer.type();
        emit typeChanged(m_type);
    }
    if (watch.isOver())
        return;
    followCloseTimeout(answer.closeTimeout());
    if (isFirst) {
        LOG4CPLUS_DEBUG(logger(), "Setting initial row:" << answer.initialRow());
        setCurrentRow(answer.initialRow());
    }
    if (!watch.isOver() && isFirst)
        emit loadingChanged(false);
    if (!watch.isOver() && item(m_currentRow) != oldItem)
        emit currentItemChanged(item(m_currentRow));
    if (!watch.isOver())
        emit itemsChanged();
    // Rows that are counted and not served are asked for at leisure.
    if (watch.isAlive())
        trigger(isFirst || brought ? rowsTriggerDelayMs : m_retryInterval);
}

void CMRowsBrowser::followCloseTimeout(int closeTimeout)
{
    if (closeTimeout == 0 && m_closeTimer->isActive()) {
        LOG4CPLUS_DEBUG(logger(), "Stopping close timer");
        m_closeTimer->stop();
    } else if (closeTimeout > 0 && (!m_closeTimer->isActive() || closeTimeout < m_closeTimer->interval())) {
        LOG4CPLUS_DEBUG(logger(), "Starting close timer [ms]:" << closeTimeout);
        m_closeTimer->start(closeTimeout);
    }
}

void CMRowsBrowser::handleError(const CMError& error)
{
    const auto counters = [this] { return QStringLiteral("%1, %2").arg(m_errorsCount).arg(m_versionErrorsCount); };
    LOG4CPLUS_WARN(logger(), m_path << " m_errorsCount:" << counters() << " handleError error:" << error.name()
                                    << " errorMessage:" << error.message());
    const bool isVersionError = error.name() == CMAbstractWorker::ErrorInvalidRowsVersion();
    if (isVersionError && ++m_versionErrorsCount > maxVersionErrors) {
        LOG4CPLUS_ERROR(logger(), m_path << " handleError - too many versions errors. path:'" << m_path
                                         << "' errorsCount:'" << counters());
        return reset();
    }
    if (!isVersionError && ++m_errorsCount > maxErrors) {
        LOG4CPLUS_ERROR(logger(), m_path << " handleError - too many fetch errors. path:'" << m_path
                                         << "' errorsCount:'" << counters());
        return;
    }
    const Watch watch(this);
    if (!isVersionError && error.isError() && error != m_error) {
        m_error = error;
        emit errorChanged(m_error);
    }
    if (watch.isAlive() && (m_retryOnError || isVersionError || !error.isError()))
        trigger(m_retryInterval);
}

void CMRowsBrowser::rowsChanged(CMPath path, QStringList rowsChanged, int version, int oldVersion)
{
    LOG4CPLUS_INFO(logger(), m_path << " rowsChanged version:" << version << " oldVersion:" << oldVersion
                                    << " rowsChanged:" << rowsChanged.join(QLatin1Char(' ')));
    if (path != m_path) {
        LOG4CPLUS_WARN(logger(), m_path << " event for wrong path:" << path);
        return;
    }
    if (rowsChanged.contains(CMSubscribe::RowsChangeReset())) {
        // What answers the first load may have been read before.
        if (m_version < 0)
            cancelRequest();
        return reset();
    }
    if (rowsChanged.contains(CMSubscribe::RowsChangeClose())) {
        emit closed(this, CMError());
        return;
    }
    if (m_version != oldVersion) {
        // The rows of this very version are the window's already, read from the list before it told of the change.
        if (m_version < 0)
            m_missedVersion = qMax(m_missedVersion, version);
        else if (m_version != version)
            m_versionDoubted = true;
        return handleError(CMAbstractWorker::createErrorInvalidRowsVersion(path, m_version, oldVersion));
    }
    const Watch watch(this);
    const OrvoRoles oldItem = item(m_currentRow);
    if (m_version >= 0) {
        for (const QString& change : qAsConst(rowsChanged)) {
            applyChange(change);
            if (watch.isOver())
                return;
        }
        m_version = version;
        m_versionDoubted = false;
    }
    if (item(m_currentRow) != oldItem)
        emit currentItemChanged(item(m_currentRow));
    if (!watch.isOver())
        emit itemsChanged();
    if (watch.isAlive())
        trigger(rowsTriggerDelayMs);
}
