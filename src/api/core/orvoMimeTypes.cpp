#include "core/orvoMimeTypes.h"

#include <QHash>

#define ORVO_MIME_TYPE(Group, name, text)                                                                              \
    const QString& MimeTypes::Group::name()                                                                            \
    {                                                                                                                  \
        static const QString s_type = QStringLiteral(text);                                                            \
        return s_type;                                                                                                 \
    }

ORVO_MIME_TYPE(Audio, unknown, "audio/unknown")
ORVO_MIME_TYPE(Audio, mpeg, "audio/mpeg")
ORVO_MIME_TYPE(Audio, wma, "audio/x-ms-wma")
ORVO_MIME_TYPE(Audio, ogg, "audio/ogg")
ORVO_MIME_TYPE(Audio, flac, "audio/flac")
ORVO_MIME_TYPE(Audio, wav, "audio/x-wav")
ORVO_MIME_TYPE(Audio, aiff, "audio/x-aiff")
ORVO_MIME_TYPE(Audio, realaudio, "audio/x-pn-realaudio")
ORVO_MIME_TYPE(Audio, m3u, "audio/x-mpegurl")
ORVO_MIME_TYPE(Audio, pls, "audio/x-scpls")
ORVO_MIME_TYPE(Audio, wpl, "application/vnd.ms-wpl")
ORVO_MIME_TYPE(Audio, aac, "audio/mp4")
ORVO_MIME_TYPE(Audio, dsf, "audio/x-dsd")
ORVO_MIME_TYPE(Audio, dff, "audio/x-dsd")
ORVO_MIME_TYPE(Audio, dsd, "audio/x-dsd")
ORVO_MIME_TYPE(Audio, opus, "audio/opus")

ORVO_MIME_TYPE(Image, unknown, "image/unknown")
ORVO_MIME_TYPE(Image, bmp, "image/bmp")
ORVO_MIME_TYPE(Image, jpeg, "image/jpeg")
ORVO_MIME_TYPE(Image, png, "image/png")
ORVO_MIME_TYPE(Image, gif, "image/gif")
ORVO_MIME_TYPE(Image, svg, "image/svg+xml")
ORVO_MIME_TYPE(Image, tiff, "image/tiff")
ORVO_MIME_TYPE(Image, pnm, "image/x-portable-anymap")
ORVO_MIME_TYPE(Image, pbm, "image/x-portable-bitmap")
ORVO_MIME_TYPE(Image, pgm, "image/x-portable-graymap")
ORVO_MIME_TYPE(Image, ppm, "image/x-portable-pixmap")
ORVO_MIME_TYPE(Image, rgb, "image/rgb")
ORVO_MIME_TYPE(Image, xbm, "image/xbm")
ORVO_MIME_TYPE(Image, xpm, "image/xpm")

ORVO_MIME_TYPE(Video, unknown, "video/unknown")
ORVO_MIME_TYPE(Video, mpeg, "video/mpeg")
ORVO_MIME_TYPE(Video, avi, "video/x-msvideo")

ORVO_MIME_TYPE(Text, plain, "text/plain")
ORVO_MIME_TYPE(Text, css, "text/css")
ORVO_MIME_TYPE(Text, html, "text/html")
ORVO_MIME_TYPE(Text, javascript, "text/javascript")
ORVO_MIME_TYPE(Text, xml, "text/xml")

ORVO_MIME_TYPE(Application, octetStream, "application/octet-stream")
ORVO_MIME_TYPE(Application, json, "application/json")
ORVO_MIME_TYPE(Application, pdf, "application/pdf")
ORVO_MIME_TYPE(Application, pgp, "application/pgp-signature")
ORVO_MIME_TYPE(Application, postscript, "application/postscript")
ORVO_MIME_TYPE(Application, zip, "application/zip")
ORVO_MIME_TYPE(Application, xBittorrent, "application/x-bittorrent")
ORVO_MIME_TYPE(Application, xBzip, "application/x-bzip")
ORVO_MIME_TYPE(Application, xBzipCompressedTar, "application/x-bzip-compressed-tar")
ORVO_MIME_TYPE(Application, xDvi, "application/x-dvi")
ORVO_MIME_TYPE(Application, xGzip, "application/x-gzip")
ORVO_MIME_TYPE(Application, xShockwaveFlash, "application/x-shockwave-flash")
ORVO_MIME_TYPE(Application, xTar, "application/x-tar")
ORVO_MIME_TYPE(Application, xTgz, "application/x-tgz")

namespace {

const QHash<QString, QString>& extensions()
{
    using Audio = MimeTypes::Audio;
    using Image = MimeTypes::Image;
    using Video = MimeTypes::Video;
    using Text = MimeTypes::Text;
    using Application = MimeTypes::Application;
    static const QHash<QString, QString> s_extensions{
        {QStringLiteral("mp3"), Audio::mpeg()},
        {QStringLiteral("wma"), Audio::wma()},
        {QStringLiteral("ogg"), Audio::ogg()},
        {QStringLiteral("oga"), Audio::ogg()},
        {QStringLiteral("spx"), Audio::ogg()},
        {QStringLiteral("flac"), Audio::flac()},
        {QStringLiteral("wav"), Audio::wav()},
        {QStringLiteral("aif"), Audio::aiff()},
        {QStringLiteral("aifc"), Audio::aiff()},
        {QStringLiteral("aiff"), Audio::aiff()},
        {QStringLiteral("ra"), Audio::realaudio()},
        {QStringLiteral("ram"), Audio::realaudio()},
        {QStringLiteral("m3u"), Audio::m3u()},
        {QStringLiteral("m3u8"), Audio::m3u()},
        {QStringLiteral("pls"), Audio::pls()},
        {QStringLiteral("wpl"), Audio::wpl()},
        {QStringLiteral("aac"), Audio::aac()},
        {QStringLiteral("m4a"), Audio::aac()},
        {QStringLiteral("m4b"), Audio::aac()},
        {QStringLiteral("m4p"), Audio::aac()},
        {QStringLiteral("dsf"), Audio::dsf()},
        {QStringLiteral("dff"), Audio::dff()},
        {QStringLiteral("opus"), Audio::opus()},
        {QStringLiteral("bmp"), Image::bmp()},
        {QStringLiteral("jpg"), Image::jpeg()},
        {QStringLiteral("jpeg"), Image::jpeg()},
        {QStringLiteral("png"), Image::png()},
        {QStringLiteral("gif"), Image::gif()},
        {QStringLiteral("svg"), Image::svg()},
        {QStringLiteral("tif"), Image::tiff()},
        {QStringLiteral("tiff"), Image::tiff()},
        {QStringLiteral("pnm"), Image::pnm()},
        {QStringLiteral("pbm"), Image::pbm()},
        {QStringLiteral("pgm"), Image::pgm()},
        {QStringLiteral("ppm"), Image::ppm()},
        {QStringLiteral("rgb"), Image::rgb()},
        {QStringLiteral("xbm"), Image::xbm()},
        {QStringLiteral("xpm"), Image::xpm()},
        {QStringLiteral("mp2"), Video::mpeg()},
        {QStringLiteral("mpa"), Video::mpeg()},
        {QStringLiteral("mpe"), Video::mpeg()},
        {QStringLiteral("mpeg"), Video::mpeg()},
        {QStringLiteral("mpg"), Video::mpeg()},
        {QStringLiteral("mpv2"), Video::mpeg()},
        {QStringLiteral("avi"), Video::avi()},
        {QStringLiteral("txt"), Text::plain()},
        {QStringLiteral("asc"), Text::plain()},
        {QStringLiteral("c"), Text::plain()},
        {QStringLiteral("cpp"), Text::plain()},
        {QStringLiteral("log"), Text::plain()},
        {QStringLiteral("conf"), Text::plain()},
        {QStringLiteral("text"), Text::plain()},
        {QStringLiteral("css"), Text::css()},
        {QStringLiteral("html"), Text::html()},
        {QStringLiteral("htm"), Text::html()},
        {QStringLiteral("js"), Text::javascript()},
        {QStringLiteral("dtd"), Text::xml()},
        {QStringLiteral("xml"), Text::xml()},
        {QStringLiteral("json"), Application::json()},
        {QStringLiteral("pdf"), Application::pdf()},
        {QStringLiteral("zip"), Application::zip()},
        {QStringLiteral("sig"), Application::pgp()},
        {QStringLiteral("ps"), Application::postscript()},
        {QStringLiteral("torrent"), Application::xBittorrent()},
        {QStringLiteral("bz2"), Application::xBzip()},
        {QStringLiteral("tar.bz2"), Application::xBzipCompressedTar()},
        {QStringLiteral("tbz"), Application::xBzipCompressedTar()},
        {QStringLiteral("dvi"), Application::xDvi()},
        {QStringLiteral("gz"), Application::xGzip()},
        {QStringLiteral("swf"), Application::xShockwaveFlash()},
        {QStringLiteral("tar"), Application::xTar()},
        {QStringLiteral("tar.gz"), Application::xTgz()},
        {QStringLiteral("tgz"), Application::xTgz()},
    };
    return s_extensions;
}

} // namespace

bool MimeTypes::isAudio(const QString& mimeType)
{
    return mimeType.startsWith(QLatin1String("audio/")) || mimeType == QLatin1String("application/ogg")
           || mimeType == Audio::wpl();
}

bool MimeTypes::isImage(const QString& mimeType)
{
    return mimeType.startsWith(QLatin1String("image/"));
}

bool MimeTypes::isVideo(const QString& mimeType)
{
    return mimeType.startsWith(QLatin1String("video/"));
}

bool MimeTypes::isPlaylist(const QString& mimeType)
{
    return mimeType == Audio::m3u() || mimeType == Audio::pls() || mimeType == Audio::wpl();
}

QString MimeTypes::extensionToMimeType(const QString& extension, const QString& defaultValue)
{
    return extensions().value(extension.toLower(), defaultValue);
}

QString MimeTypes::URIToMimeType(const QString& uri, const QString& defaultValue)
{
    return extensionToMimeType(uri.mid(uri.lastIndexOf(QLatin1Char('.')) + 1), defaultValue);
}
