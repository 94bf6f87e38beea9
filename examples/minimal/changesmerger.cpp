// A changes merger makes one call out of many: it waits a moment for more of them.
#include <orvo_kit.h>

#include <QCoreApplication>

#include <iostream>

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);

    int changes = 0;
    CMChangesMerger merger;
    merger.setTimeout(20);
    QObject::connect(&merger, &CMChangesMerger::changed, [&] {
        std::cout << "once for " << changes << " changes" << std::endl;
        application.quit();
    });
    for (changes = 0; changes < 100; ++changes)
        merger.change();
    return application.exec();
}
