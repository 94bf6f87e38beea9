// An item follows all that a node tells of itself: it fetches the roles, and again whenever they changed.
#include <orvo_kit.h>

#include <QCoreApplication>

#include <iostream>

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    orvoRegisterMetaTypes();
    CMRemoteWorker worker("item", "lamp");
    CMRoot_setInstance(&worker);

    CMItem brightness(nullptr, CMPath::fromEncoded("lamp:brightness"));
    QObject::connect(&brightness, &CMItem::changed, [&](const OrvoRoles& roles) {
        const int value = roles.value().i32_();
        std::cout << roles.title().toStdString() << ' ' << value << ", at most " << roles.edit().max().toStdString()
                  << std::endl;
        if (value == 80)
            application.quit();
        else
            CMRoot()->setValue(brightness.path(), OrvoValue().setI32_(80));
    });
    return application.exec();
}
