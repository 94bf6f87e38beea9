// The service that the tests of orvoctl speak to: its argument is its name. Prints "ready" when it listens.

#include "orvo_kit.h"

#include <QCoreApplication>

#include <log4cplus/logger.h>

#include <csignal>
#include <cstdio>
#include <sys/prctl.h>
#include <unistd.h>

namespace {

/// A node that takes every request and leaves it open; holding the requests keeps their replies alive.
class SilentNode : public CMNode
{
public:
    using CMNode::CMNode;

    bool request(CMRequest request) override
    {
        m_requests.append(request);
        return true;
    }

private:
    QList<CMRequest> m_requests;
};

/// Counts up right behind each reading, so that whoever subscribes after reading misses a change.
class RestlessNode : public CMValueNode
{
public:
    using CMValueNode::CMValueNode;

    bool getDataRequest(const CMGetDataRequest& request) override
    {
        const bool taken = CMValueNode::getDataRequest(request);
        if (request.roles() == QStringList{OrvoRoles::Value()})
            setValue(OrvoValue().setI32_(value().i32_() + 1));
        return taken;
    }
};

/// Gets a row right ahead of each reading, so that the change is told after an answer that has it in it.
class GrowingNode : public CMListRowsNode
{
public:
    using CMListRowsNode::CMListRowsNode;

    bool getRowsRequest(const CMGetRowsRequest& request) override
    {
        rowsAppend(OrvoRoles().setTitle("Row"));
        return CMListRowsNode::getRowsRequest(request);
    }
};

/// What the actions do.
class Action : public QObject
{
    Q_OBJECT

public:
    explicit Action(CMListRowsNode* rows) : m_rows(rows) {}

public slots:
    void echo(CMSetDataRequest request) { request.reply().setValue(request.value()); }
    void fail(CMSetDataRequest request)
    {
        request.reply().setError(
            CMError(QStringLiteral("noMotor"), QStringLiteral("The motor is missing"), QStringLiteral("Cannot move")));
    }
    /// Inserts, changes, moves and removes rows, in one merged delivery.
    void shuffle(CMSetDataRequest request)
    {
        m_rows->rowsInsert(0, OrvoRoles().setId("new").setTitle("New"));
        m_rows->rowsSet(0, OrvoRoles().setId("new").setTitle("Newer"));
        m_rows->rowsMove(0, 2);
        m_rows->rowsRemoveAt(2);
        request.reply().setValue(QVariant());
    }
    /// Each by its key: "insert", "remove" and "set" name a row, "move" two; "title" is the row's.
    void edit(CMSetDataRequest request)
    {
        const QVariantHash step = request.value().toHash();
        const QString title = step.value("title").toString();
        const QVariantList move = step.value("move").toList();
        if (step.contains("insert"))
            m_rows->rowsInsert(step.value("insert").toInt(), OrvoRoles().setId(title).setTitle(title));
        if (step.contains("remove"))
            m_rows->rowsRemoveAt(step.value("remove").toInt());
        if (step.contains("set")) {
            const int row = step.value("set").toInt();
            m_rows->rowsSet(row, m_rows->getRowRoles(row).setTitle(title));
        }
        if (move.size() == 2)
            m_rows->rowsMove(move.at(0).toInt(), move.at(1).toInt());
        if (step.contains("close"))
            m_rows->nextRowsVersion(CMSubscribe::RowsChangeClose());
        request.reply().setValue(QVariant());
    }
    void crash(CMSetDataRequest) { _exit(9); }

private:
    CMListRowsNode* const m_rows;
};

class Service
{
public:
    explicit Service(const QString& name)
        : m_worker({{OrvoWorkerArguments::MergeEvents(), true},
                    {OrvoWorkerArguments::Prefix(), CMPath::fromPrefix(name).toEncoded()}},
                   name)
    {
        CMRoot_setInstance(&m_worker);
        addValues();
        addList();
        addTree();
        addActions();
        addDesk(name);
        auto* restless = new RestlessNode(path("restless"));
        restless->setValue(OrvoValue().setI32_(0));
        restless->setNodes(m_worker.nodes());
        (new GrowingNode(path("growing")))->setNodes(m_worker.nodes());
        auto* silent = new SilentNode(path("silent"));
        silent->setNodes(m_worker.nodes());
        m_server = new CMRPCServer(&m_worker, name);
    }

private:
    CMPath path(const char* place) const { return m_worker.addPrefix(QLatin1String(place)); }

    CMValueNode* addValue(const char* place, const char* title, const OrvoValue& value)
    {
        CMValueNode* node = CMValueNode::create(m_worker.nodes(), path(place));
        node->setTitle(TrString(QLatin1String(title)));
        node->setValue(value);
        return node;
    }

    void addValues()
    {
        addValue("volume", "Volume", OrvoValue().setI32_(20))
            ->setEdit(OrvoEdit().setMin("0").setMax("100").setStep("1"));
        addValue("mute", "Mute", OrvoValue().setBool_(false));
        addValue("byte", "Byte", OrvoValue().setByte_(1));
        addValue("short", "Short", OrvoValue().setI16_(1));
        addValue("long", "Long", OrvoValue().setI64_(1));
        addValue("gain", "Gain", OrvoValue().setDouble_(0.5));
        addValue("name", "Name", OrvoValue().setString_("Kitchen"));
        addValue("serial", "Serial", OrvoValue().setString_("A1"))->setReadOnly(true);
        CMUINode::create(m_worker.nodes(), path("plain"))->setTitle(TrString("Plain"));
    }

    void addList()
    {
        m_rows = CMListRowsNode::create(m_worker.nodes(), path("numbers"));
        m_rows->setTitle(TrString("Numbers"));
        for (int i = 0; i < 250; ++i) {
            const QString number = QString::number(i);
            m_rows->rowsAppend(OrvoRoles().setId(number).setTitle(QStringLiteral("Number ") + number));
        }
    }

    void addTree()
    {
        CMListRowsNode* root = CMListRowsNode::create(m_worker.nodes(), path("tree"));
        CMListRowsNode* branch = CMListRowsNode::create(m_worker.nodes(), path("tree/branch"));
        root->setTitle(TrString("Tree"));
        branch->setTitle(TrString("Branch"));
        root->rowsAppend(path("volume"));
        root->rowsAppend(path("tree/branch"));
        branch->rowsAppend(path("name"));
        // A circle.
        branch->rowsAppend(path("tree"));
    }

    void addActions()
    {
        m_action.reset(new Action(m_rows));
        CMNodes* nodes = m_worker.nodes();
        CMActivateNode::create(nodes, path("echo"), m_action.data(), SLOT(echo(CMSetDataRequest)));
        CMActivateNode::create(nodes, path("fail"), m_action.data(), SLOT(fail(CMSetDataRequest)));
        CMActivateNode::create(nodes, path("shuffle"), m_action.data(), SLOT(shuffle(CMSetDataRequest)));
        CMActivateNode::create(nodes, path("edit"), m_action.data(), SLOT(edit(CMSetDataRequest)));
        CMActivateNode::create(nodes, path("crash"), m_action.data(), SLOT(crash(CMSetDataRequest)));
    }

    /// A list with something of every kind that a person may enter.
    void addDesk(const QString& name)
    {
        CMListRowsNode* desk = CMListRowsNode::create(m_worker.nodes(), path("desk"));
        desk->setTitle(TrString("Desk"));
        const auto add = [desk](const char* title, OrvoRolesType::Enum type, const CMPath& path) {
            desk->rowsAppend(OrvoRoles().setTitle(title).setType(type).setPath(path));
        };
        add("Tree", OrvoRolesType::Container_, path("tree"));
        add("Echo", OrvoRolesType::Action_, path("echo"));
        add("Fail", OrvoRolesType::Action_, path("fail"));
        add("Silent", OrvoRolesType::Container_, path("silent"));
        add("Nowhere", OrvoRolesType::Container_, path("nowhere"));
        add("Elsewhere", OrvoRolesType::Container_, CMPath::fromPrefix(name + QLatin1Char('2')) + "numbers");
        desk->rowsAppend(OrvoRoles().setTitle("Note"));
    }

    CMNodesWorker m_worker;
    CMListRowsNode* m_rows = nullptr;
    QScopedPointer<Action> m_action;
    CMRPCServer* m_server = nullptr;
};

} // namespace

int main(int argc, char* argv[])
{
    // A test that is stopped leaves no service behind.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    QCoreApplication application(argc, argv);
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::OFF_LOG_LEVEL);
    orvoRegisterMetaTypes();
    const Service service(application.arguments().value(1));
    puts("ready");
    fflush(stdout);
    return application.exec();
}

#include "ctlservice.moc"
