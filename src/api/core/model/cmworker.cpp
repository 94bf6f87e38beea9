#include "core/model/cmworker.h"

#include "core/model/cmreplywatcher.h"
#include "core/model/cmrequest.h"
#include "core/model/cmsubscribe.h"
#include "core/orvoLog_p.h"
#include "records/orvoconstants.h"

#include <QDirIterator>
#include <QPointer>

#include <atomic>
#include <climits>
#include <csignal>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

ORVO_LOGGER("CMChange")

} // namespace

/**
 * Walks the rows for one match request, from its start to the request's finish; deletes itself. Answers may come inside
 * the asking call or later in any thread: `m_state` settles who goes on, so that a long list takes no deep stack.
 */
class CMWorker::MatchRow : public CMReplyWatcher
{
public:
    MatchRow(CMWorker* worker, const CMMatchRowRequest& request)
        : m_worker(worker), m_request(request), m_row(request.fromRow()), m_roles{request.role()}
    {}

    void next()
    {
        do {
            if (!m_worker) {
                m_request.reply().setError(createErrorInvalidPath(m_request.path()));
                break;
            }
            auto* data = new CMGetRowsRequest::Data;
            data->path = m_request.path();
            data->fromRow = m_row;
            data->toRow = m_row <= INT_MAX - 100 ? m_row + 100 : INT_MAX;
            data->rowsVersion = m_request.rowsVersion();
            data->roles = m_roles;
            const CMGetRowsRequest request(data);
            m_state = Asking;
            request.reply().addWatcher(this);
            m_worker->getRowsRequest(request);
            if (m_state.exchange(Waiting) == Asking)
                return;
        } while (goesOn());
        delete this;
    }

    void finished(const CMVoidReply& reply) override
    {
        m_reply = CMReply<OrvoRowsRoles>(static_cast<CMReplyData<OrvoRowsRoles>*>(reply.data()));
        if (m_state.exchange(Answered) == Asking)
            return;
        if (goesOn())
            next();
        else
            delete this;
    }

private:
    enum State { Asking, Waiting, Answered };

    /// Searches the batch; false when the request is finished.
    bool goesOn()
    {
        const CMError error = m_reply.error();
        if (error.isError()) {
            m_request.reply().setError(error);
            return false;
        }
        const OrvoRowsRoles rowsRoles = m_reply.value();
        const QVariantList rows = rowsRoles.rows().toList();
        for (const QVariant& row : rows) {
            if (row.toList().value(0) == m_request.value()) {
                m_request.reply().setValue(m_row);
                return false;
            }
            ++m_row;
        }
        // A batch without a row makes no progress, whatever count it claims.
        if (!rows.isEmpty() && m_row < rowsRoles.rowsCount())
            return true;
        m_request.reply().setValue(-1);
        return false;
    }

    const QPointer<CMWorker> m_worker;
    const CMMatchRowRequest m_request;
    int m_row;
    const QStringList m_roles;
    /// The last answer. Not held before it is there, so that a reply that nobody will finish is warned of.
    CMReply<OrvoRowsRoles> m_reply{nullptr};
    std::atomic<State> m_state{Asking};
};

CMWorker::CMWorker(const QHash<QString, QVariant>& arguments, const QString& id)
    : CMAbstractWorker(arguments),
      m_threadId(int(syscall(SYS_gettid))),
      m_id(id),
      m_subscribe(new CMSubscribe(id, this, arguments.value(OrvoWorkerArguments::MergeEvents()).toBool())),
      m_prefix(arguments.value(OrvoWorkerArguments::Prefix()).toString())
{}

CMWorker::~CMWorker() = default;

CMPath CMWorker::prefixPath() const
{
    return CMPath::fromEncoded(m_prefix);
}

CMPath CMWorker::addPrefix(const QString& text) const
{
    return prefixPath() + text;
}

void CMWorker::ping(const CMSetDataRequest& request)
{
    QMetaObject::invokeMethod(this, "on_ping_request", Qt::QueuedConnection, Q_ARG(CMVoidReply, request.reply()));
}

void CMWorker::on_ping_request(CMVoidReply voidReply)
{
    if (auto* data = dynamic_cast<CMReplyData<QVariant>*>(voidReply.data()))
        data->setValue(QVariant());
}

void CMWorker::trace()
{
    QDirIterator tasks(QStringLiteral("/proc/%1/task").arg(getpid()));
    while (tasks.hasNext()) {
        tasks.next();
        bool isThread = false;
        const int threadId = tasks.fileName().toInt(&isThread);
        if (!isThread || threadId < 1)
            continue;
        kill(threadId, SIGUSR1);
        // The output of one thread must not run into the next one's.
        usleep(100000);
    }
}

void CMWorker::getDataRequest(const CMGetDataRequest& request)
{
    request.reply().setError(createErrorInvalidPath(request.path()));
}

void CMWorker::getRowsRequest(const CMGetRowsRequest& request)
{
    request.reply().setError(createErrorInvalidPath(request.path()));
}

void CMWorker::matchRowRequest(const CMMatchRowRequest& request)
{
    (new MatchRow(this, request))->next();
}

void CMWorker::setDataRequest(const CMSetDataRequest& request)
{
    request.reply().setError(createErrorInvalidPath(request.path()));
}

void CMWorker::connectChange(CMAbstractWorker::ChangeType changeType, const CMPath& path, QObject* receiver,
                             const char* method, Qt::ConnectionType type)
{
    LOG4CPLUS_TRACE(logger(), "CMWorker::connectChange: " << changeType << ' ' << path << " ("
                                                          << receiver->metaObject()->className() << ' ' << method
                                                          << ')');
    m_subscribe->connectChange(changeType, path, receiver, method, type);
}

void CMWorker::disconnectChange(CMAbstractWorker::ChangeType changeType, const CMPath& path, QObject* receiver,
                                const char* method)
{
    LOG4CPLUS_TRACE(logger(), "CMWorker::disconnectChange: " << changeType << ' ' << path << " ("
                                                             << receiver->metaObject()->className() << ' ' << method
                                                             << ')');
    m_subscribe->disconnectChange(changeType, path, receiver, method);
}
