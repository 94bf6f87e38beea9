// A value item follows one value: fetched once, and from then on told with each change, without a request.
#include <orvo_kit.h>

#include <QCoreApplication>

#include <iostream>

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    orvoRegisterMetaTypes();
    CMRemoteWorker worker("valueitem", "lamp");
    CMRoot_setInstance(&worker);

    CMValueItem brightness(nullptr, CMPath::fromEncoded("lamp:brightness"));
    QObject::connect(&brightness, &CMValueItem::changed, [&](const OrvoValue& value) {
        std::cout << "brightness " << value.i32_() << std::endl;
        if (value.i32_() == 80)
            application.quit();
        else
            CMRoot()->setValue(brightness.path(), OrvoValue().setI32_(80));
    });
    return application.exec();
}
