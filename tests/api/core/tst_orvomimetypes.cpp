#include "core/orvoMimeTypes.h"

#include "core/model/cmglobal.h"

#include <QSet>
#include <QtTest>

#include <thread>
#include <vector>

namespace {

using Type = const QString& (*)();

struct NamedType
{
    Type function;
    const char* text;
};

const std::vector<NamedType> audioTypes{
    {&MimeTypes::Audio::unknown, "audio/unknown"},
    {&MimeTypes::Audio::mpeg, "audio/mpeg"},
    {&MimeTypes::Audio::wma, "audio/x-ms-wma"},
    {&MimeTypes::Audio::ogg, "audio/ogg"},
    {&MimeTypes::Audio::flac, "audio/flac"},
    {&MimeTypes::Audio::wav, "audio/x-wav"},
    {&MimeTypes::Audio::aiff, "audio/x-aiff"},
    {&MimeTypes::Audio::realaudio, "audio/x-pn-realaudio"},
    {&MimeTypes::Audio::m3u, "audio/x-mpegurl"},
    {&MimeTypes::Audio::pls, "audio/x-scpls"},
    {&MimeTypes::Audio::wpl, "application/vnd.ms-wpl"},
    {&MimeTypes::Audio::aac, "audio/mp4"},
    {&MimeTypes::Audio::dsf, "audio/x-dsd"},
    {&MimeTypes::Audio::dff, "audio/x-dsd"},
    {&MimeTypes::Audio::dsd, "audio/x-dsd"},
    {&MimeTypes::Audio::opus, "audio/opus"},
};
const std::vector<NamedType> imageTypes{
    {&MimeTypes::Image::unknown, "image/unknown"},
    {&MimeTypes::Image::bmp, "image/bmp"},
    {&MimeTypes::Image::jpeg, "image/jpeg"},
    {&MimeTypes::Image::png, "image/png"},
    {&MimeTypes::Image::gif, "image/gif"},
    {&MimeTypes::Image::svg, "image/svg+xml"},
    {&MimeTypes::Image::tiff, "image/tiff"},
    {&MimeTypes::Image::pnm, "image/x-portable-anymap"},
    {&MimeTypes::Image::pbm, "image/x-portable-bitmap"},
    {&MimeTypes::Image::pgm, "image/x-portable-graymap"},
    {&MimeTypes::Image::ppm, "image/x-portable-pixmap"},
    {&MimeTypes::Image::rgb, "image/rgb"},
    {&MimeTypes::Image::xbm, "image/xbm"},
    {&MimeTypes::Image::xpm, "image/xpm"},
};
const std::vector<NamedType> videoTypes{
    {&MimeTypes::Video::unknown, "video/unknown"},
    {&MimeTypes::Video::mpeg, "video/mpeg"},
    {&MimeTypes::Video::avi, "video/x-msvideo"},
};
const std::vector<NamedType> textTypes{
    {&MimeTypes::Text::plain, "text/plain"}, {&MimeTypes::Text::css, "text/css"},
    {&MimeTypes::Text::html, "text/html"},   {&MimeTypes::Text::javascript, "text/javascript"},
    {&MimeTypes::Text::xml, "text/xml"},
};
const std::vector<NamedType> applicationTypes{
    {&MimeTypes::Application::octetStream, "application/octet-stream"},
    {&MimeTypes::Application::json, "application/json"},
    {&MimeTypes::Application::pdf, "application/pdf"},
    {&MimeTypes::Application::pgp, "application/pgp-signature"},
    {&MimeTypes::Application::postscript, "application/postscript"},
    {&MimeTypes::Application::zip, "application/zip"},
    {&MimeTypes::Application::xBittorrent, "application/x-bittorrent"},
    {&MimeTypes::Application::xBzip, "application/x-bzip"},
    {&MimeTypes::Application::xBzipCompressedTar, "application/x-bzip-compressed-tar"},
    {&MimeTypes::Application::xDvi, "application/x-dvi"},
    {&MimeTypes::Application::xGzip, "application/x-gzip"},
    {&MimeTypes::Application::xShockwaveFlash, "application/x-shockwave-flash"},
    {&MimeTypes::Application::xTar, "application/x-tar"},
    {&MimeTypes::Application::xTgz, "application/x-tgz"},
};

/// Type and the extensions that lead to it.
const std::vector<std::pair<const char*, const char*>> extensions{
    {"audio/mpeg", "mp3"},
    {"audio/x-ms-wma", "wma"},
    {"audio/ogg", "ogg oga spx"},
    {"audio/flac", "flac"},
    {"audio/x-wav", "wav"},
    {"audio/x-aiff", "aif aifc aiff"},
    {"audio/x-pn-realaudio", "ra ram"},
    {"audio/x-mpegurl", "m3u m3u8"},
    {"audio/x-scpls", "pls"},
    {"application/vnd.ms-wpl", "wpl"},
    {"audio/mp4", "aac m4a m4b m4p"},
    {"audio/x-dsd", "dsf dff"},
    {"audio/opus", "opus"},
    {"image/bmp", "bmp"},
    {"image/jpeg", "jpg jpeg"},
    {"image/png", "png"},
    {"image/gif", "gif"},
    {"image/svg+xml", "svg"},
    {"image/tiff", "tif tiff"},
    {"image/x-portable-anymap", "pnm"},
    {"image/x-portable-bitmap", "pbm"},
    {"image/x-portable-graymap", "pgm"},
    {"image/x-portable-pixmap", "ppm"},
    {"image/rgb", "rgb"},
    {"image/xbm", "xbm"},
    {"image/xpm", "xpm"},
    {"video/mpeg", "mp2 mpa mpe mpeg mpg mpv2"},
    {"video/x-msvideo", "avi"},
    {"text/plain", "txt asc c cpp log conf text"},
    {"text/css", "css"},
    {"text/html", "html htm"},
    {"text/javascript", "js"},
    {"text/xml", "dtd xml"},
    {"application/json", "json"},
    {"application/pdf", "pdf"},
    {"application/zip", "zip"},
    {"application/pgp-signature", "sig"},
    {"application/postscript", "ps"},
    {"application/x-bittorrent", "torrent"},
    {"application/x-bzip", "bz2"},
    {"application/x-bzip-compressed-tar", "tar.bz2 tbz"},
    {"application/x-dvi", "dvi"},
    {"application/x-gzip", "gz"},
    {"application/x-shockwave-flash", "swf"},
    {"application/x-tar", "tar"},
    {"application/x-tgz", "tar.gz tgz"},
};

const QString fallback = QStringLiteral("fall/back");

} // namespace

class tst_OrvoMimeTypes : public QObject
{
    Q_OBJECT

private slots:
    void manyThreadsMayAskFirst();
    void eachTypeHasItsText_data();
    void eachTypeHasItsText();
    void typesAreOneTextEach();
    void eachExtensionLeadsToItsType_data();
    void eachExtensionLeadsToItsType();
    void extensionsCountInAnyCaseOfLetters();
    void unknownExtensionsAnswerTheDefault_data();
    void unknownExtensionsAnswerTheDefault();
    void uriIsJudgedByItsLastSuffix_data();
    void uriIsJudgedByItsLastSuffix();
    void familiesGoByTheBeginning_data();
    void familiesGoByTheBeginning();
    void nodeTypeFollowsTheFamily_data();
    void nodeTypeFollowsTheFamily();
};

void tst_OrvoMimeTypes::manyThreadsMayAskFirst()
{
    std::vector<QString> answers(8);
    std::vector<std::thread> threads;
    for (QString& answer : answers)
        threads.emplace_back([&answer] { answer = MimeTypes::URIToMimeType(QStringLiteral("a.flac"), fallback); });
    for (std::thread& thread : threads)
        thread.join();
    for (const QString& answer : answers)
        QCOMPARE(answer, QStringLiteral("audio/flac"));
}

void tst_OrvoMimeTypes::eachTypeHasItsText_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("text");
    for (const auto* group : {&audioTypes, &imageTypes, &videoTypes, &textTypes, &applicationTypes})
        for (const NamedType& type : *group)
            QTest::addRow("%s", type.text) << type.function() << QString::fromLatin1(type.text);
}

void tst_OrvoMimeTypes::eachTypeHasItsText()
{
    QFETCH(QString, type);
    QTEST(type, "text");
}

void tst_OrvoMimeTypes::typesAreOneTextEach()
{
    QCOMPARE(&MimeTypes::Audio::mpeg(), &MimeTypes::Audio::mpeg());
    QVERIFY(MimeTypes::Audio::mpeg() != MimeTypes::Video::mpeg());
    QVERIFY(MimeTypes::Audio::unknown() != MimeTypes::Image::unknown());
}

void tst_OrvoMimeTypes::eachExtensionLeadsToItsType_data()
{
    QTest::addColumn<QString>("extension");
    QTest::addColumn<QString>("type");
    for (const auto& row : extensions)
        for (const QString& extension : QString::fromLatin1(row.second).split(QLatin1Char(' ')))
            QTest::newRow(extension.toLatin1().constData()) << extension << QString::fromLatin1(row.first);
}

void tst_OrvoMimeTypes::eachExtensionLeadsToItsType()
{
    QFETCH(QString, extension);
    QFETCH(QString, type);
    QCOMPARE(MimeTypes::extensionToMimeType(extension, fallback), type);
    QCOMPARE(MimeTypes::extensionToMimeType(extension.toUpper(), fallback), type);
}

void tst_OrvoMimeTypes::extensionsCountInAnyCaseOfLetters()
{
    QCOMPARE(MimeTypes::extensionToMimeType(QStringLiteral("MP3"), fallback), QStringLiteral("audio/mpeg"));
    QCOMPARE(MimeTypes::extensionToMimeType(QStringLiteral("Tar.Gz"), fallback), QStringLiteral("application/x-tgz"));
}

void tst_OrvoMimeTypes::unknownExtensionsAnswerTheDefault_data()
{
    QTest::addColumn<QString>("extension");
    QTest::newRow("unknown") << "xyz";
    QTest::newRow("empty") << "";
    QTest::newRow("null") << QString();
    QTest::newRow("with its dot") << ".mp3";
    QTest::newRow("a blank behind") << "mp3 ";
    QTest::newRow("a type is no extension") << "audio/mpeg";
    // Stream types that only ever come from a server's header.
    QTest::newRow("dsd") << "dsd";
}

void tst_OrvoMimeTypes::unknownExtensionsAnswerTheDefault()
{
    QFETCH(QString, extension);
    QCOMPARE(MimeTypes::extensionToMimeType(extension, fallback), fallback);
    QCOMPARE(MimeTypes::extensionToMimeType(extension, QString()), QString());
}

void tst_OrvoMimeTypes::uriIsJudgedByItsLastSuffix_data()
{
    QTest::addColumn<QString>("uri");
    QTest::addColumn<QString>("type");
    QTest::newRow("path") << "/music/a b/song.flac"
                          << "audio/flac";
    QTest::newRow("capitals") << "http://host/song.FLAC"
                              << "audio/flac";
    QTest::newRow("a query spoils it") << "http://host/song.flac?id=3" << fallback;
    QTest::newRow("a query that ends like a name") << "http://host/song?file=x.mp3"
                                                   << "audio/mpeg";
    QTest::newRow("only the last suffix") << "backup.tar.gz"
                                          << "application/x-gzip";
    QTest::newRow("only the last suffix of bz2") << "backup.tar.bz2"
                                                 << "application/x-bzip";
    QTest::newRow("without a dot the whole text counts") << "mp3"
                                                         << "audio/mpeg";
    QTest::newRow("without a dot and unknown") << "song" << fallback;
    QTest::newRow("dot at the end") << "song." << fallback;
    QTest::newRow("dot in a folder") << "/v1.0/song" << fallback;
    QTest::newRow("hidden file") << ".mp3"
                                 << "audio/mpeg";
    QTest::newRow("empty") << "" << fallback;
}

void tst_OrvoMimeTypes::uriIsJudgedByItsLastSuffix()
{
    QFETCH(QString, uri);
    QTEST(MimeTypes::URIToMimeType(uri, fallback), "type");
}

void tst_OrvoMimeTypes::familiesGoByTheBeginning_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("families");
    for (const NamedType& type : audioTypes) {
        const QString text = type.function();
        const QStringList playlists{QStringLiteral("audio/x-mpegurl"), QStringLiteral("audio/x-scpls"),
                                    QStringLiteral("application/vnd.ms-wpl")};
        QTest::addRow("%s", type.text) << text << (playlists.contains(text) ? "audio playlist" : "audio");
    }
    for (const NamedType& type : imageTypes)
        QTest::addRow("%s", type.text) << type.function() << "image";
    for (const NamedType& type : videoTypes)
        QTest::addRow("%s", type.text) << type.function() << "video";
    for (const auto* group : {&textTypes, &applicationTypes})
        for (const NamedType& type : *group)
            QTest::addRow("%s", type.text) << type.function() << "";
    QTest::newRow("ogg as an application") << "application/ogg"
                                           << "audio";
    QTest::newRow("application/ogg with more") << "application/ogg; codecs=x"
                                               << "";
    QTest::newRow("audio with a parameter") << "audio/L16;rate=44100"
                                            << "audio";
    QTest::newRow("playlist with a parameter") << "audio/x-scpls; charset=utf-8"
                                               << "audio";
    QTest::newRow("capitals") << "AUDIO/MPEG"
                              << "";
    QTest::newRow("the family alone") << "audio"
                                      << "";
    QTest::newRow("not at the beginning") << "x-audio/mpeg"
                                          << "";
    QTest::newRow("empty") << ""
                           << "";
}

void tst_OrvoMimeTypes::familiesGoByTheBeginning()
{
    QFETCH(QString, type);
    QStringList families;
    if (MimeTypes::isAudio(type))
        families.append(QStringLiteral("audio"));
    if (MimeTypes::isImage(type))
        families.append(QStringLiteral("image"));
    if (MimeTypes::isVideo(type))
        families.append(QStringLiteral("video"));
    if (MimeTypes::isPlaylist(type))
        families.append(QStringLiteral("playlist"));
    QTEST(families.join(QLatin1Char(' ')), "families");
}

void tst_OrvoMimeTypes::nodeTypeFollowsTheFamily_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<int>("number");
    QTest::newRow("audio") << "audio/mpeg" << 3;
    QTest::newRow("ogg as an application") << "application/ogg" << 3;
    QTest::newRow("image") << "image/svg+xml" << 2;
    QTest::newRow("video") << "video/mpeg" << 4;
    // Audio is asked first, and it takes the playlists as well.
    QTest::newRow("m3u") << "audio/x-mpegurl" << 3;
    QTest::newRow("pls") << "audio/x-scpls" << 3;
    QTest::newRow("wpl") << "application/vnd.ms-wpl" << 3;
    QTest::newRow("text") << "text/plain" << 0;
    QTest::newRow("application") << "application/zip" << 0;
    QTest::newRow("empty") << "" << 0;
}

void tst_OrvoMimeTypes::nodeTypeFollowsTheFamily()
{
    QFETCH(QString, type);
    const OrvoRolesType::Enum rolesType = CMGlobal::mimeTypeToRolesType(type);
    QTEST(int(rolesType), "number");
}

QTEST_APPLESS_MAIN(tst_OrvoMimeTypes)

#include "tst_orvomimetypes.moc"
