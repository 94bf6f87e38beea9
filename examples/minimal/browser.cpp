// A browser is the stack of lists that a user entered; the last one is on screen.
#include <orvo_kit.h>

#include <QCoreApplication>

#include <iostream>
#include <utility>

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    orvoRegisterMetaTypes();
    CMRemoteWorker worker("browser", "lamp");
    CMRoot_setInstance(&worker);

    bool entered = false;
    CMBrowser browser(CMRoot());
    browser.setRoles(CMAllRoles());
    browser.setRadius(2);
    browser.setActive(true);
    QObject::connect(&browser, &CMBrowser::topRowsCurrentItemChanged, [&](const OrvoRoles& item) {
        if (item.isEmpty())
            return;
        const QString list = browser.topRows()->title();
        std::cout << std::string(2 * browser.rows().size(), ' ') << list.toStdString() << ": "
                  << item.title().toStdString() << std::endl;
        if (list == "History")
            // Back to the list below, whose rows are there still.
            browser.closeTop();
        else if (browser.topRows()->currentRow() == 0)
            browser.topRows()->setCurrentRow(1);
        else if (!std::exchange(entered, true))
            browser.open(CMPath::fromEncoded("lamp:history"));
        else
            application.quit();
    });
    browser.open(CMPath::fromEncoded("lamp:scenes"));
    return application.exec();
}
