#include "../allocations.h"
#include "link.h"

#include "core/model/cmmetatypes.h"
#include "core/model/cmnodes.h"
#include "core/model/cmroot.h"
#include "core/model/cmrpcserver.h"
#include "records/orvovalue.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusServer>
#include <QLocalServer>
#include <QLocalSocket>
#include <QSocketNotifier>
#include <QTimer>

#include <log4cplus/logger.h>

#include <cstdio>
#include <memory>
#include <optional>
#include <unistd.h>

#ifdef ORVO_BENCH_REMOTE_OBJECTS
#include "rep_peer_source.h"

#include <QAbstractListModel>
#endif

// The serving process of the link benchmark: one value and one list, served by one of several means.

namespace {

class Service : public QObject
{
    Q_OBJECT

public:
    virtual void setValue(qlonglong value) = 0;
    /// Where the client finds it.
    virtual QString address() const = 0;
};

class OrvoService : public Service
{
    Q_OBJECT

public:
    explicit OrvoService(int rows) : m_worker({}, QStringLiteral("bench"))
    {
        CMRoot_setInstance(&m_worker);
        m_value = CMValueNode::create(m_worker.nodes(), CMPath::fromEncoded(Link::valuePath()));
        m_value->setValue(OrvoValue().setI64_(1));
        auto* list = CMListRowsNode::create(m_worker.nodes(), CMPath::fromEncoded(Link::rowsPath()));
        const QStringList roles = Link::roles();
        for (int i = 0; i < rows; ++i) {
            QVariantHash row;
            const QVariantList values = Link::row(i);
            for (int role = 0; role < roles.size(); ++role)
                row.insert(roles.at(role), values.at(role));
            list->rowsAppend(QVariant(row));
        }
        m_server = std::make_unique<CMRPCServer>(nullptr, address());
    }

    void setValue(qlonglong value) override { m_value->setValue(OrvoValue().setI64_(value)); }
    QString address() const override { return QStringLiteral("bench-%1").arg(getpid()); }

private:
    CMNodesWorker m_worker;
    CMValueNode* m_value;
    std::unique_ptr<CMRPCServer> m_server;
};

/// Sends back what comes; a change is a message of the same size.
class EchoService : public Service
{
    Q_OBJECT

public:
    explicit EchoService(int messageSize) : m_change(messageSize, 'x')
    {
        QLocalServer::removeServer(address());
        m_server.listen(address());
        connect(&m_server, &QLocalServer::newConnection, this, [this] {
            m_socket = m_server.nextPendingConnection();
            connect(m_socket, &QLocalSocket::readyRead, this, [this] {
                m_socket->write(m_socket->readAll());
                m_socket->flush();
            });
        });
    }

    void setValue(qlonglong value) override
    {
        memcpy(m_change.data(), &value, sizeof value);
        m_socket->write(m_change);
        m_socket->flush();
    }
    QString address() const override { return QStringLiteral("/tmp/orvo-bench-%1.socket").arg(getpid()); }

private:
    QLocalServer m_server;
    QLocalSocket* m_socket = nullptr;
    QByteArray m_change;
};

class BusService : public Service
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "bench.Peer")

public:
    explicit BusService(const QString& daemon)
    {
        const auto options = QDBusConnection::ExportScriptableSlots | QDBusConnection::ExportScriptableSignals;
        if (daemon.isEmpty()) {
            m_server = std::make_unique<QDBusServer>(QStringLiteral("unix:tmpdir=/tmp"));
            connect(m_server.get(), &QDBusServer::newConnection, this, [this, options](QDBusConnection connection) {
                connection.registerObject(QStringLiteral("/peer"), this, options);
            });
            return;
        }
        QDBusConnection bus = QDBusConnection::connectToBus(daemon, QStringLiteral("bench"));
        bus.registerObject(QStringLiteral("/peer"), this, options);
        m_name = bus.baseService();
    }

    void setValue(qlonglong value) override
    {
        m_value = value;
        emit valueChanged(value);
    }
    QString address() const override { return m_server ? m_server->address() : m_name; }

public slots:
    Q_SCRIPTABLE QVariantList get(const QString& path, const QStringList& roles)
    {
        Q_UNUSED(path)
        QVariantList values;
        for (int i = 0; i < roles.size(); ++i)
            values.append(m_value);
        return values;
    }

signals:
    Q_SCRIPTABLE void valueChanged(qlonglong value);

private:
    std::unique_ptr<QDBusServer> m_server;
    QString m_name;
    qlonglong m_value = 1;
};

#ifdef ORVO_BENCH_REMOTE_OBJECTS
class RowsModel : public QAbstractListModel
{
    Q_OBJECT

public:
    explicit RowsModel(int rows)
    {
        for (int i = 0; i < rows; ++i)
            m_rows.append(Link::row(i));
    }

    int rowCount(const QModelIndex& parent = QModelIndex()) const override
    {
        return parent.isValid() ? 0 : m_rows.size();
    }
    QVariant data(const QModelIndex& index, int role) const override
    {
        return m_rows.at(index.row()).value(role - Qt::UserRole);
    }
    QHash<int, QByteArray> roleNames() const override
    {
        QHash<int, QByteArray> names;
        const QStringList roles = Link::roles();
        for (int i = 0; i < roles.size(); ++i)
            names.insert(Qt::UserRole + i, roles.at(i).toLatin1());
        return names;
    }

private:
    QVector<QVariantList> m_rows;
};

class PeerSourceObject : public PeerSimpleSource
{
    Q_OBJECT

public:
    using PeerSimpleSource::setValue;

public slots:
    QVariantList get(const QString& path, const QStringList& roles) override
    {
        Q_UNUSED(path)
        QVariantList values;
        for (int i = 0; i < roles.size(); ++i)
            values.append(value());
        return values;
    }
};

class RemoteObjectService : public Service
{
    Q_OBJECT

public:
    explicit RemoteObjectService(int rows) : m_host(QUrl(address())), m_model(rows)
    {
        m_host.enableRemoting(&m_source);
        m_host.enableRemoting(&m_model, QStringLiteral("rows"), m_model.roleNames().keys().toVector());
    }

    void setValue(qlonglong value) override { m_source.setValue(value); }
    QString address() const override { return QStringLiteral("local:orvo-bench-ro-%1").arg(getpid()); }

private:
    QRemoteObjectHost m_host;
    PeerSourceObject m_source;
    RowsModel m_model;
};
#endif

std::unique_ptr<Service> makeService(const QString& mode, const QString& argument)
{
    if (mode == QLatin1String("orvo"))
        return std::make_unique<OrvoService>(argument.isEmpty() ? Link::Rows : argument.toInt());
    if (mode == QLatin1String("echo"))
        return std::make_unique<EchoService>(argument.toInt());
    if (mode == QLatin1String("dbus") || mode == QLatin1String("dbus-p2p"))
        return std::make_unique<BusService>(argument);
#ifdef ORVO_BENCH_REMOTE_OBJECTS
    if (mode == QLatin1String("qtro"))
        return std::make_unique<RemoteObjectService>(argument.isEmpty() ? Link::Rows : argument.toInt());
#endif
    qFatal("unknown mode %s", qPrintable(mode));
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::WARN_LOG_LEVEL);
    orvoRegisterMetaTypes();
    const QStringList arguments = application.arguments();
    const std::unique_ptr<Service> service = makeService(arguments.value(1), arguments.value(2));
    std::optional<AllocationCounter> allocations;

    int left = 0;
    QTimer pace;
    pace.setTimerType(Qt::PreciseTimer);
    pace.setInterval(1);
    QObject::connect(&pace, &QTimer::timeout, [&] {
        service->setValue(Link::now());
        if (--left == 0)
            pace.stop();
    });

    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QByteArray buffer;
    QObject::connect(&input, &QSocketNotifier::activated, [&] {
        char bytes[256];
        const ssize_t count = read(STDIN_FILENO, bytes, sizeof bytes);
        if (count <= 0)
            return QCoreApplication::quit();
        buffer.append(bytes, int(count));
        for (int end = buffer.indexOf('\n'); end >= 0; end = buffer.indexOf('\n')) {
            const QList<QByteArray> words = buffer.left(end).split(' ');
            buffer.remove(0, end + 1);
            if (words.first() == "count") {
                allocations.emplace();
                std::puts("counting");
            } else if (words.first() == "counted") {
                std::printf("allocations %llu\n", static_cast<unsigned long long>(allocations->count()));
                allocations.reset();
            } else if (words.first() == "changes") {
                left = words.value(1).toInt();
                pace.start();
            }
        }
        std::fflush(stdout);
    });
    std::printf("ready %s\n", qPrintable(service->address()));
    std::fflush(stdout);
    return application.exec();
}

#include "bench_link_peer.moc"
