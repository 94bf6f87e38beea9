// The smallest service: one value and two lists, reached by the name "lamp".
#include <orvo_kit.h>

#include <QCoreApplication>

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    orvoRegisterMetaTypes();

    // A worker serves the paths of one prefix and is the root of this process.
    CMNodesWorker worker({{OrvoWorkerArguments::Prefix(), "lamp:"}, {OrvoWorkerArguments::MergeEvents(), true}},
                         "lamp");
    CMRoot_setInstance(&worker);

    // The registry owns the nodes; what is written outside of the limits is brought back into them.
    CMValueNode* brightness = CMValueNode::create(worker.nodes(), worker.addPrefix("brightness"));
    brightness->setTitle(TrString("Brightness"));
    brightness->setEdit(OrvoEdit().setMin("0").setMax("100"));
    brightness->setValue(OrvoValue().setI32_(50));

    // Each value is one row more; whoever watches the list hears of it.
    CMListRowsNode* history = CMListRowsNode::create(worker.nodes(), worker.addPrefix("history"));
    history->setTitle(TrString("History"));
    const auto remember = [history](const OrvoValue& value) {
        const QString text = QString::number(value.i32_());
        history->rowsAppend(OrvoRoles().setId(QString::number(history->rowsSize())).setTitle(text));
    };
    remember(brightness->value());
    QObject::connect(brightness, &CMValueNode::valueChanged, history, remember);

    // More than fits on a screen.
    CMListRowsNode* scenes = CMListRowsNode::create(worker.nodes(), worker.addPrefix("scenes"));
    scenes->setTitle(TrString("Scenes"));
    for (int i = 0; i < 1000; ++i)
        scenes->rowsAppend(OrvoRoles().setTitle(QStringLiteral("Scene %1").arg(i)));

    CMRPCServer server(nullptr, "lamp");
    return application.exec();
}
