#include <orvo_api.h>

#ifdef WITH_KIT
#include <orvo_kit.h>
#endif

#include <iostream>

int main()
{
    orvoSetThreadName(QStringLiteral("foreign"));
    CMPath path = CMPath::fromPrefix(QStringLiteral("ui"));
    path.setBase(QStringLiteral("settings")).appendSubpath(QStringLiteral("audio"));
    path.addParam(QStringLiteral("a"), QStringLiteral("1"));
    std::cout << path << std::endl;
}
