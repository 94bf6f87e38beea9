// A binding offers a value as properties, for QML and whatever else reads properties.
#include <orvo_kit.h>

#include <QCoreApplication>

#include <iostream>

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    orvoRegisterMetaTypes();
    CMRemoteWorker worker("valuebinding", "lamp");
    CMRoot_setInstance(&worker);

    OrvoValueBinding brightness;
    brightness.setProperty("path", "lamp:brightness");
    QObject::connect(&brightness, &OrvoValueBinding::valueChanged, [&] {
        const QVariant value = brightness.property("value");
        std::cout << "brightness " << value.toString().toStdString() << std::endl;
        if (value == 80)
            application.quit();
        else
            brightness.setProperty("value", "80");
    });
    return application.exec();
}
