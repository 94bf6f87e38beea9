#pragma once

#include <QString>

/**
 * The vocabulary of media types: one function for each type, families, and the mapping from file extensions.
 *
 * Without state of its own; all functions may be called from any thread. The texts are made at first use and live until
 * the process ends. Types are compared as they stand: in lower case and, where a whole text counts, without parameters.
 */
class MimeTypes
{
public:
    struct Audio
    {
        static const QString& unknown();
        static const QString& mpeg();
        static const QString& wma();
        static const QString& ogg();
        static const QString& flac();
        static const QString& wav();
        static const QString& aiff();
        static const QString& realaudio();
        static const QString& m3u();
        static const QString& pls();
        /// A playlist, although its text begins with "application/".
        static const QString& wpl();
        static const QString& aac();
        // The three names of direct stream digital share one type.
        static const QString& dsf();
        static const QString& dff();
        static const QString& dsd();
        static const QString& opus();
    };

    struct Image
    {
        static const QString& unknown();
        static const QString& bmp();
        static const QString& jpeg();
        static const QString& png();
        static const QString& gif();
        static const QString& svg();
        static const QString& tiff();
        static const QString& pnm();
        static const QString& pbm();
        static const QString& pgm();
        static const QString& ppm();
        static const QString& rgb();
        static const QString& xbm();
        static const QString& xpm();
    };

    struct Video
    {
        static const QString& unknown();
        static const QString& mpeg();
        static const QString& avi();
    };

    struct Text
    {
        static const QString& plain();
        static const QString& css();
        static const QString& html();
        static const QString& javascript();
        static const QString& xml();
    };

    struct Application
    {
        static const QString& octetStream();
        static const QString& json();
        static const QString& pdf();
        static const QString& pgp();
        static const QString& postscript();
        static const QString& zip();
        static const QString& xBittorrent();
        static const QString& xBzip();
        static const QString& xBzipCompressedTar();
        static const QString& xDvi();
        static const QString& xGzip();
        static const QString& xShockwaveFlash();
        static const QString& xTar();
        static const QString& xTgz();
    };

    /// Also true for "application/ogg" and Audio::wpl().
    static bool isAudio(const QString& mimeType);
    static bool isImage(const QString& mimeType);
    static bool isVideo(const QString& mimeType);
    static bool isPlaylist(const QString& mimeType);

    /// The type of an extension without its dot, in any case of letters; the default value for one that is not known.
    static QString extensionToMimeType(const QString& extension, const QString& defaultValue);
    /**
     * The type for what follows the last dot, or for the whole text when there is none. Of "tar.gz" only "gz" counts,
     * and a query behind the name counts as part of the extension: cut it off first.
     */
    static QString URIToMimeType(const QString& uri, const QString& defaultValue);
};
