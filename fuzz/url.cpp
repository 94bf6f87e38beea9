// URLs: an encoded text gives an URL whose encoded text gives the same; its query is taken apart and put together.

#include "fuzz.h"

#include "core/orvoMimeTypes.h"
#include "core/orvoUrl.h"

#include <log4cplus/logger.h>

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::OFF_LOG_LEVEL);
    const QByteArray bytes(reinterpret_cast<const char*>(data), int(size));
    const QString text = QString::fromUtf8(bytes);

    OrvoUrl url = OrvoUrl::fromEncoded(bytes);
    if (url.isValid()) {
        const QByteArray encoded = url.toEncoded();
        FUZZ_CHECK(OrvoUrl::fromEncoded(encoded).toEncoded() == encoded);
        for (const auto& item : url.queryItems())
            FUZZ_CHECK(url.hasQueryItem(item.first));
    }
    url.toString();
    url.cachePath();
    url.path();
    url.encodedQuery();
    url.encodedQueryItemValue(bytes.left(4));
    url.resolved(OrvoUrl(text));
    url.setEncodedPath(bytes);
    url.setEncodedQuery(bytes);
    url.setEncodedHost(bytes);
    url.addEncodedQueryItem(bytes.left(int(size / 2)), bytes.mid(int(size / 2)));
    url.removeQueryItem(text);
    url.clearQueryItems();
    FUZZ_CHECK(url.queryItems().isEmpty());

    // Text is literal, and the escapes of any text give it back.
    OrvoUrl().setUrl(text);
    // Save for a mark of the encoding at the start, which is no text for QUrl.
    if (!text.startsWith(QChar(QChar::ByteOrderMark)))
        FUZZ_CHECK(OrvoUrl::fromPercentEncoding(OrvoUrl::toPercentEncoding(text)) == text);
    OrvoUrl::fromPercentEncoding(bytes);
    MimeTypes::URIToMimeType(text, QString());
    return 0;
}
