// A rows browser shows the few rows around a current row of a list that may be long.
#include <orvo_kit.h>

#include <QCoreApplication>

#include <iostream>

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    orvoRegisterMetaTypes();
    CMRemoteWorker worker("rowsbrowser", "lamp");
    CMRoot_setInstance(&worker);

    CMRowsBrowser scenes;
    scenes.setRoles(CMAllRoles());
    scenes.setRadius(2);
    scenes.setPath(CMPath::fromEncoded("lamp:scenes"));
    scenes.setActive(true);
    QObject::connect(&scenes, &CMRowsBrowser::itemsChanged, [&] {
        const int current = scenes.currentRow();
        if (scenes.item(current + 2).isEmpty())
            return;
        std::cout << "row " << current << " of " << scenes.size() << ':';
        for (int row = qMax(0, current - 2); row <= current + 2; ++row)
            std::cout << " [" << scenes.item(row).title().toStdString() << ']';
        std::cout << std::endl;
        if (current == 500)
            application.quit();
        else
            scenes.setCurrentRow(500);
    });
    return application.exec();
}
