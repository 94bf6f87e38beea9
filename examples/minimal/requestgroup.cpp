// A request group sends several requests at once and calls back when the last of them has ended.
#include <orvo_kit.h>

#include <QCoreApplication>

#include <iostream>

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    orvoRegisterMetaTypes();
    CMRemoteWorker worker("requestgroup", "lamp");
    CMRoot_setInstance(&worker);

    CMRequestGroup group;
    group.addSetData("write", CMPath::fromEncoded("lamp:brightness"), OrvoRoles::Value(),
                     OrvoValue().setI32_(80).__variant());
    group.addGetData("read", CMPath::fromEncoded("lamp:brightness"), {OrvoRoles::Value()});
    group.addGetRows("rows", CMPath::fromEncoded("lamp:scenes"), 0, 2, -1, {OrvoRoles::Title()});
    group.addGetData("mistake", CMPath::fromEncoded("lamp:darkness"), {OrvoRoles::Value()});
    QObject::connect(&group, &CMRequestGroup::finished, [&] {
        const QHash<QString, CMVoidReply> replies = group.getReplyList();
        const auto of = [&](const char* id) { return CMVariantReply(replies.value(id)).value(); };
        std::cout << replies.size() << " replies" << std::endl;
        std::cout << "brightness " << OrvoValue(of("read").toList().value(0).toHash()).i32_() << std::endl;
        std::cout << OrvoRowsRoles(of("rows").toHash()).rowsCount() << " rows" << std::endl;
        std::cout << "mistake: " << replies.value("mistake").error().name().toStdString() << std::endl;
    });
    // finished() waits for a callback as well.
    group.setCallback(&application, SLOT(quit()));
    return application.exec();
}
