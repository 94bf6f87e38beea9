// The smallest client: follows a value and the data of a list, writes the value, and ends when both have come back.
#include <orvo_kit.h>

#include <QCoreApplication>

#include <iostream>

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    orvoRegisterMetaTypes();

    // Reaches the service, waits for it and comes back to it; the name of the service is the prefix of its paths.
    CMRemoteWorker worker("lampClient", "lamp");
    CMRoot_setInstance(&worker);

    // Each item follows its path for as long as it lives, also across a restart of the service.
    CMValueItem brightness(nullptr, CMPath::fromEncoded("lamp:brightness"));
    CMItem history(nullptr, CMPath::fromEncoded("lamp:history"));
    const auto show = [&] {
        if (brightness.isLoading() || history.isLoading())
            return;
        const int now = brightness.value().i32_();
        std::cout << "brightness " << now << ", list " << history.roles().title().toStdString() << std::endl;
        if (now == 100)
            application.quit();
    };
    QObject::connect(&brightness, &CMValueItem::changed, show);
    QObject::connect(&history, &CMItem::changed, show);

    // 100 is the node's limit.
    CMRoot()->setValue(brightness.path(), OrvoValue().setI32_(170));
    return application.exec();
}
