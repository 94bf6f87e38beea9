#include "core/model/cmrowsfetcher.h"

#include "core/model/cmabstractworker.h"
#include "core/model/cmchangesmerger.h"
#include "core/model/cmglobal.h"
#include "core/model/cmroles.h"
#include "core/model/cmroot.h"
#include "core/model/cmsubscribe.h"
#include "core/orvo.h"
#include "core/orvoLog_p.h"

#include <QPointer>

#include <limits>

namespace {

ORVO_LOGGER("CMRowsFetcher")

constexpr int triggerMs = 30;
constexpr int errorDelayMs = 2000;
constexpr int mostErrors = 3;

} // namespace

CMRowsFetcherRows::CMRowsFetcherRows(QObject* parent, const CMPath& path)
    : QObject(parent), m_fetcher(new CMRowsFetcher(this, path))
{}

CMRowsFetcherRows::~CMRowsFetcherRows() = default;

CMPath CMRowsFetcherRows::path() const
{
    return m_fetcher->path();
}

void CMRowsFetcherRows::setPath(const CMPath& path)
{
    m_fetcher->setPath(path);
}

CMRowsFetcher::CMRowsFetcher(CMRowsFetcherRows* rows, const CMPath& path)
    : QObject(rows), m_roles(CMAllRoles()), m_triggerModerator(new CMChangesMerger(this)), m_rows(rows)
{
    m_triggerModerator->setTimeout(triggerMs);
    orvoConnect(m_triggerModerator, SIGNAL(changed()), this, SLOT(on_triggerModerator_changed()));
    setPath(path);
}

CMRowsFetcher::~CMRowsFetcher()
{
    if (!m_request.isNull())
        m_request.reply().cancel();
    if (!m_path.isEmpty())
        CMRoot()->disconnectRowsChange(m_path, this, SLOT(rowsChanged(CMPath,QStringList,int,int)));
}

CMRowsFetcher* CMRowsFetcher::setPath(const CMPath& path)
{
    if (path == m_path)
        return this;
    if (!m_path.isEmpty())
        CMRoot()->disconnectRowsChange(m_path, this, SLOT(rowsChanged(CMPath,QStringList,int,int)));
    m_path = path;
    m_requestOutdated = !m_request.isNull();
    if (!m_path.isEmpty())
        CMRoot()->connectRowsChange(m_path, this, SLOT(rowsChanged(CMPath,QStringList,int,int)), Qt::QueuedConnection);
    const QPointer<CMRowsFetcher> alive(this);
    reset();
    if (alive)
        trigger();
    return this;
}

CMRowsFetcher* CMRowsFetcher::setRoles(const QStringList& roles)
{
    if (roles == m_roles)
        return this;
    Q_ASSERT(m_path.isEmpty());
    m_roles = roles;
    return this;
}

void CMRowsFetcher::trigger()
{
    if (m_request.isNull() && !m_path.isEmpty())
        m_triggerModerator->change();
}

void CMRowsFetcher::reset()
{
    LOG4CPLUS_INFO(logger(), m_path << " reset()");
    if (m_version >= 0) {
        // Stays in flight until the cancelled reply is delivered, which brings the next try.
        if (!m_request.isNull()) {
            m_request.reply().cancel();
            // A good reply whose delivery waits already shows the list as it was.
            m_requestOutdated = m_requestOutdated || !m_request.reply().error().isError();
        }
        m_rowsCount = 0;
        const QPointer<CMRowsFetcher> alive(this);
        setVersion(-1);
        if (!alive)
            return;
    }
    trigger();
}

void CMRowsFetcher::setVersion(int version)
{
    if (version == m_version)
        return;
    const bool signChanged = (version < 0) != (m_version < 0);
    m_version = version;
    const QPointer<CMRowsFetcher> alive(this);
    emit versionChanged(version);
    // A receiver may have reset this, and so told of the loading itself.
    if (alive && signChanged && m_version == version)
        emit loadingChanged(version < 0);
}

void CMRowsFetcher::setError(const CMError& error)
{
    if (error == m_error)
        return;
    m_error = error;
    emit errorChanged(error);
}

void CMRowsFetcher::setRowsRoles(const OrvoRowsRoles& rowsRoles)
{
    if (rowsRoles == m_rowsRoles)
        return;
    m_rowsRoles = rowsRoles;
    emit rowsRolesChanged(rowsRoles);
}

void CMRowsFetcher::handleError(const CMError& error)
{
    LOG4CPLUS_WARN(logger(), m_path << " m_errorsCount:" << m_errorsCount << " handleError error:" << error.name()
                                    << " errorMessage:" << error.message());
    const QPointer<CMRowsFetcher> alive(this);
    if (++m_errorsCount > mostErrors) {
        LOG4CPLUS_ERROR(logger(), " handleError - too many errors. path:'" << m_path << "' errorsCount:'"
                                                                           << m_errorsCount << '\'');
        m_errorsCount = 1;
        reset();
        if (!alive)
            return;
    }
    if (error.name() == CMAbstractWorker::ErrorInvalidRowsVersion()) {
        reset();
        return;
    }
    setError(error);
    if (alive)
        m_triggerModerator->change(errorDelayMs);
}

void CMRowsFetcher::on_triggerModerator_changed()
{
    if (!m_request.isNull() || m_path.isEmpty()) {
        LOG4CPLUS_WARN(logger(), m_path << " Ignoring trigger request");
        return;
    }
    const QPointer<CMRowsFetcher> alive(this);
    const CMRowsFetcherRows::RequestReply reply = m_rows->getRequest();
    if (!alive)
        return;
    if (reply.from() < 0) {
        LOG4CPLUS_TRACE(logger(), m_path << " No request.");
        return;
    }
    Q_ASSERT(reply.from() <= reply.to());
    // A service that answers with rows that carry nothing is not asked for them over and over at full speed.
    const bool inVain = reply.from() == m_answeredFrom && reply.to() == m_answeredTo && m_version == m_answeredVersion;
    if (inVain && !m_answeredInVain) {
        m_answeredInVain = true;
        m_triggerModerator->change(errorDelayMs);
        return;
    }
    m_answeredInVain = false;

    auto* data = new CMGetRowsRequest::Data;
    data->path = m_path;
    data->fromRow = reply.from();
    data->toRow = reply.to();
    data->rowsVersion = m_version;
    data->roles = m_roles;
    const CMGetRowsRequest request(data);
    LOG4CPLUS_INFO(logger(), m_path << " getRowsRequest path:'" << m_path << "' from:" << reply.from()
                                    << " to:" << reply.to() << " version:" << m_version);
    request.reply().addWatcher(this, SLOT(getRowsFinished(CMVoidReply)), Qt::QueuedConnection);
    m_request = request;
    m_requestOutdated = false;
    m_versionTold = -1;
    CMRoot()->getRowsRequest(request);
}

void CMRowsFetcher::getRowsFinished(CMVoidReply reply)
{
    if (m_request.isNull())
        return;
    const int from = m_request.fromRow();
    const int to = m_request.toRow();
    m_request = CMGetRowsRequest();
    if (m_requestOutdated) {
        trigger();
        return;
    }
    const CMError error = reply.error();
    if (error.isError()) {
        handleError(error);
        return;
    }
    const OrvoRowsRoles rowsRoles = static_cast<CMReplyData<OrvoRowsRoles>*>(reply.data())->value();
    LOG4CPLUS_INFO(logger(), m_path << " rowsRoles:" << rowsRoles);
    m_errorsCount = 0;
    const QPointer<CMRowsFetcher> alive(this);
    setError(CMError());
    if (!alive)
        return;
    const CMPath redirect = rowsRoles.rowsRedirect();
    if (!redirect.isEmpty()) {
        setPath(redirect);
        return;
    }
    takeRows(from, to, rowsRoles);
}

void CMRowsFetcher::takeRows(int from, int to, const OrvoRowsRoles& rowsRoles)
{
    const int count = rowsRoles.rowsCount();
    const int version = rowsRoles.rowsVersion();
    if (count < 0) {
        handleError(CMAbstractWorker::createErrorInternal(QStringLiteral("Reply with rowsCount %1").arg(count)));
        return;
    }
    if (version < 0) {
        handleError(CMAbstractWorker::createErrorInternal(QStringLiteral("Reply with rowsVersion %1").arg(version)));
        return;
    }
    if (m_version >= 0) {
        if (m_version != version) {
            handleError(CMAbstractWorker::createErrorInvalidRowsVersion(m_path, m_version, version));
            return;
        }
        if (count != m_rowsCount) {
            LOG4CPLUS_ERROR(logger(), m_path << " Size changed without event notification; m_rowsCount:" << m_rowsCount
                                             << " rowsCount:" << count);
            reset();
            return;
        }
    } else if (version < m_versionTold) {
        // The change that overtook this reply was not kept, and none might follow that shows the gap.
        handleError(CMAbstractWorker::createErrorInvalidRowsVersion(m_path, m_versionTold, version));
        return;
    }
    m_rowsCount = count;
    const QPointer<CMRowsFetcher> alive(this);
    setVersion(version);

    const QVariantList rows = rowsRoles.rows().toList();
    // No more than what was asked for and what the list has, whatever the service sends.
    const qint64 end = qMin(qint64(to) + 1, qint64(count));
    for (int i = 0; i < rows.size() && from + i < end; ++i) {
        // A receiver may have destroyed or reset this; the row numbers hold for this version only.
        if (!alive)
            return;
        if (m_version != version) {
            trigger();
            return;
        }
        QVariantList values = rows.at(i).toList();
        if (values.size() != m_roles.size()) {
            LOG4CPLUS_ERROR(logger(), m_path << " row " << from + i << ": expected " << m_roles.size()
                                             << " values, got " << values.size());
            values = values.mid(0, m_roles.size());
            while (values.size() < m_roles.size())
                values.append(QVariant());
        }
        m_rows->setItem(from + i, OrvoRoles(CMGlobal::rolesValuesToHash(m_roles, values)));
    }
    if (!alive)
        return;
    m_answeredFrom = from;
    m_answeredTo = to;
    m_answeredVersion = version;
    setRowsRoles(OrvoRowsRoles(rowsRoles).setRows(QVariant()).setRowsVersion(0).setRowsCount(0));
    if (alive)
        trigger();
}

void CMRowsFetcher::rowsChanged(CMPath path, QStringList rowsChanged, int version, int oldVersion)
{
    LOG4CPLUS_INFO(logger(), path << " version:" << version << " oldVersion:" << oldVersion << " rowsChanged:"
                                  << rowsChanged.join(QLatin1Char(',')) << " changesSize:" << rowsChanged.size());
    if (path != m_path) {
        LOG4CPLUS_WARN(logger(), m_path << " event for wrong path:" << path);
        return;
    }
    if (rowsChanged.contains(CMSubscribe::RowsChangeClose())) {
        LOG4CPLUS_INFO(logger(), m_path << " close -> exit");
        emit closed();
        return;
    }
    if (m_version < 0) {
        LOG4CPLUS_INFO(logger(), m_path << " loading -> exit");
        m_versionTold = version;
        return;
    }
    if (rowsChanged.contains(CMSubscribe::RowsChangeReset())) {
        LOG4CPLUS_INFO(logger(), m_path << " reset -> exit");
        reset();
        return;
    }
    if (m_version != oldVersion) {
        handleError(CMAbstractWorker::createErrorInvalidRowsVersion(m_path, m_version, oldVersion));
        return;
    }
    const QPointer<CMRowsFetcher> alive(this);
    setVersion(version);
    for (const QString& change : qAsConst(rowsChanged)) {
        if (!alive)
            return;
        if (m_version < 0) {
            LOG4CPLUS_DEBUG(logger(), m_path << " Skipping change processing because we are in loading state");
            break;
        }
        applyChange(change);
    }
    if (alive)
        trigger();
}

void CMRowsFetcher::applyChange(const QString& change)
{
    if (change.isEmpty())
        return;
    const QChar kind = change.at(0);
    bool parsed = false;
    if (kind == QLatin1Char('=')) {
        const QStringList ends = change.mid(1).split(QStringLiteral(".."));
        if (ends.size() != 2)
            return;
        const int from = ends.at(0).toInt(&parsed);
        if (!parsed)
            return;
        const int to = ends.at(1).toInt(&parsed);
        if (parsed)
            m_rows->moveItem(from, to);
        return;
    }
    const int row = change.toInt(&parsed);
    // The lowest number has no counterpart.
    if (!parsed || row == std::numeric_limits<int>::min())
        return;
    if (kind == QLatin1Char('+')) {
        ++m_rowsCount;
        m_rows->insertItem(row, OrvoRoles());
    } else if (kind == QLatin1Char('-')) {
        --m_rowsCount;
        m_rows->removeItem(-row);
    } else {
        m_rows->setItem(row, OrvoRoles());
    }
}
