// A service for the tests of the link between processes: linkserver NAME [--safe] [--value N] [--rows N] [--random
// SEED]
//
//   NAME:value   a number            NAME:text   a text
//   NAME:list    N rows (10)         NAME:append an action that appends a row
//   NAME:edit    an action that changes the list: "insert POS ID", "remove POS", "move FROM TO", "set POS ID", "clear"
//   NAME:slow    a number that is told after as many milliseconds as its parameter "ms" says
//   NAME:never   takes requests and never answers
//   NAME:random  a list that changes at random, by as many steps as the action NAME:random/steps is told
//   NAME:die     ends the process when it is asked or subscribed to, unless the service is started with --safe; then
//                a list that grows by a row, and tells all kinds of change, with each set data

#include "core/model/cmmetatypes.h"
#include "core/model/cmnodes.h"
#include "core/model/cmnodesworker.h"
#include "core/model/cmrequest.h"
#include "core/model/cmroot.h"
#include "core/model/cmrpcserver.h"
#include "records/orvoconstants.h"
#include "support/randomrows.h"

#include <QCoreApplication>
#include <QTimer>

#include <csignal>
#include <cstdio>
#include <log4cplus/logger.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace {

class NeverNode : public CMUINode
{
public:
    explicit NeverNode(const CMPath& path) : CMUINode(path) {}
    bool request(CMRequest request) override
    {
        m_open.append(request);
        return true;
    }

private:
    QList<CMRequest> m_open;
};

class SlowNode : public CMUINode
{
public:
    explicit SlowNode(const CMPath& path) : CMUINode(path) {}
    bool request(CMRequest request) override
    {
        QTimer::singleShot(request.path().param("ms").toInt(), this, [request] {
            request.reply().toVariantReply().setValue(QVariantList{OrvoValue().setI32_(1).__variant()});
        });
        return true;
    }
};

/// Ends the process like a crash, in the midst of what it is asked.
class DyingNode : public CMListRowsNode
{
public:
    DyingNode(const CMPath& path, bool safe) : CMListRowsNode(path), m_safe(safe) {}
    bool request(CMRequest request) override
    {
        die();
        if (request_cast<CMSetDataRequest>(request).isNull())
            return CMListRowsNode::request(request);
        // Something to tell to each kind of subscriber.
        rowsAppend(OrvoRoles().setId(QString::number(rowsSize())));
        valueChanged(OrvoValue().setI32_(rowsSize()));
        dataChanged();
        request.reply().toVariantReply().setValue(true);
        return true;
    }
    void valuePathAdd(const CMPath& path) override
    {
        die();
        CMListRowsNode::valuePathAdd(path);
    }
    void dataPathAdd(const CMPath& path) override
    {
        die();
        CMListRowsNode::dataPathAdd(path);
    }
    void rowsPathAdd(const CMPath& path) override
    {
        die();
        CMListRowsNode::rowsPathAdd(path);
    }

private:
    void die() const
    {
        if (!m_safe)
            ::kill(::getpid(), SIGKILL);
    }
    const bool m_safe;
};

class AppendNode : public CMActivateNode
{
public:
    AppendNode(const CMPath& path, CMListRowsNode* list) : CMActivateNode(path), m_list(list) {}
    QVariant activate(const QVariant&, const Params&) override
    {
        m_list->rowsAppend(OrvoRoles().setId(QString::number(m_list->rowsSize())));
        return m_list->rowsSize();
    }

private:
    CMListRowsNode* const m_list;
};

class StepsNode : public CMActivateNode
{
public:
    StepsNode(const CMPath& path, CMListRowsNode* list, quint32 seed) : CMActivateNode(path), m_script(list, seed)
    {
        m_script.steps(20);
    }
    QVariant activate(const QVariant& steps, const Params&) override
    {
        m_script.steps(steps.toInt());
        return QVariant();
    }

private:
    RandomRows m_script;
};

class EditNode : public CMActivateNode
{
public:
    EditNode(const CMPath& path, CMListRowsNode* list) : CMActivateNode(path), m_list(list) {}
    QVariant activate(const QVariant& value, const Params&) override
    {
        const QStringList words = value.toString().split(' ');
        const int pos = words.value(1).toInt();
        const OrvoRoles row = OrvoRoles().setId(words.value(2));
        if (words.first() == "insert")
            m_list->rowsInsert(pos, row);
        else if (words.first() == "remove")
            m_list->rowsRemoveAt(pos);
        else if (words.first() == "move")
            m_list->rowsMove(pos, words.value(2).toInt());
        else if (words.first() == "set")
            m_list->rowsSet(pos, row);
        else
            m_list->rowsClear();
        return m_list->rowsSize();
    }

private:
    CMListRowsNode* const m_list;
};

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    // Nobody outlives the test.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::OFF_LOG_LEVEL);
    orvoRegisterMetaTypes();
    const QStringList arguments = application.arguments();
    const auto number = [&](const QString& option, int other) {
        const int index = arguments.indexOf(option);
        return index < 0 ? other : arguments.value(index + 1).toInt();
    };
    const QString name = arguments.value(1);
    const CMPath prefix = CMPath::fromPrefix(name);

    CMNodesWorker worker(
        {{OrvoWorkerArguments::Prefix(), prefix.toEncoded()}, {OrvoWorkerArguments::MergeEvents(), true}}, name);
    CMRoot_setInstance(&worker);
    CMNodes* nodes = worker.nodes();
    CMValueNode::create(nodes, prefix + "value")->setValue(OrvoValue().setI32_(number("--value", 1)));
    CMValueNode::create(nodes, prefix + "text")->setValue(OrvoValue().setString_(QString()));
    CMListRowsNode* list = CMListRowsNode::create(nodes, prefix + "list");
    for (int row = 0; row < number("--rows", 10); ++row)
        list->rowsAppend(OrvoRoles().setId(QString::number(row)));
    (new AppendNode(prefix + "append", list))->setNodes(nodes);
    CMListRowsNode* random = CMListRowsNode::create(nodes, prefix + "random");
    (new StepsNode(prefix + "random/steps", random, quint32(number("--random", 0))))->setNodes(nodes);
    (new EditNode(prefix + "edit", list))->setNodes(nodes);
    (new SlowNode(prefix + "slow"))->setNodes(nodes);
    (new NeverNode(prefix + "never"))->setNodes(nodes);
    (new DyingNode(prefix + "die", arguments.contains("--safe")))->setNodes(nodes);

    const CMRPCServer server(nullptr, name);
    std::puts("ready");
    std::fflush(stdout);
    return application.exec();
}
