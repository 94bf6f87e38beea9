// The text form of paths: whatever comes in, the path it makes has one text form, which makes the same path again.

#include "fuzz.h"

#include "core/model/cmpath.h"

#include <log4cplus/logger.h>

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::OFF_LOG_LEVEL);
    const QByteArray bytes(reinterpret_cast<const char*>(data), int(size));
    const CMPath path = CMPath::fromEncoded(bytes);
    const QString text = path.toEncoded();
    const CMPath again = CMPath::fromEncoded(text.toUtf8());
    // A key without text that stands last is skipped.
    if (!path.hasParam(QString())) {
        FUZZ_CHECK(again == path);
        FUZZ_CHECK(again.toEncoded() == text);
        FUZZ_CHECK(qHash(again) == qHash(path));
        FUZZ_CHECK(!(again < path) && !(path < again));
    }
    const CMPath fromText = CMPath::fromEncoded(QString::fromUtf8(bytes));
    if (!fromText.hasParam(QString()))
        FUZZ_CHECK(CMPath::fromEncoded(fromText.toEncoded()) == fromText);
    FUZZ_CHECK(path.startsWith(path));
    FUZZ_CHECK(path.withoutParams().equals(path, CMPath::WithoutParams));
    FUZZ_CHECK(!path.splitBase().contains(QString()));

    // Any text is a good key and value.
    CMPath added = path.withoutParams();
    const QString any = QLatin1Char('k') + QString::fromUtf8(bytes);
    added.addParam(any, any);
    FUZZ_CHECK(CMPath::fromEncoded(added.toEncoded().toUtf8()) == added);
    FUZZ_CHECK(CMPath::fromEncoded(added.toEncoded()) == added);
    return 0;
}
