// A rows clone is a copy of a whole list; it tells each step by which the list changes.
#include <orvo_kit.h>

#include <QCoreApplication>

#include <iostream>

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    orvoRegisterMetaTypes();
    CMRemoteWorker worker("rowsclone", "lamp");
    CMRoot_setInstance(&worker);

    CMRowsClone history(nullptr, CMPath::fromEncoded("lamp:history"));
    QObject::connect(
        &history, &CMRowsClone::itemChanged, [&](const OrvoRoles& newRoles, const OrvoRoles& oldRoles, int row) {
            const char* what = oldRoles.isEmpty() ? "new" : newRoles.isEmpty() ? "gone" : "changed";
            std::cout << "row " << row << ' ' << what << ": " << newRoles.title().toStdString() << std::endl;
            if (history.list().size() == 2)
                application.quit();
        });
    QObject::connect(&history, &CMRowsClone::loadingChanged, [&](bool loading) {
        std::cout << (loading ? "loading" : "loaded") << std::endl;
        if (!loading)
            CMRoot()->setValue(CMPath::fromEncoded("lamp:brightness"), OrvoValue().setI32_(80));
    });
    return application.exec();
}
