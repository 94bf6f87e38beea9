#include "soundfile.h"

#include <QFile>
#include <QFileInfo>
#include <QUrl>

#include <taglib/fileref.h>
#include <taglib/flacfile.h>
#include <taglib/oggflacfile.h>
#include <taglib/opusfile.h>
#include <taglib/speexfile.h>
#include <taglib/tag.h>
#include <taglib/tpropertymap.h>

#include <algorithm>

namespace {

struct Kind
{
    const char* suffix;
    const char* mimeType;
    const char* codec;
};

constexpr Kind kinds[] = {
    {"aif", "audio/x-aiff", "pcm"}, {"aiff", "audio/x-aiff", "pcm"}, {"flac", "audio/flac", "flac"},
    {"m4a", "audio/mp4", "aac"},    {"mp3", "audio/mpeg", "mp3"},    {"oga", "audio/ogg", "vorbis"},
    {"ogg", "audio/ogg", "vorbis"}, {"opus", "audio/ogg", "opus"},   {"spx", "audio/ogg", "speex"},
    {"wav", "audio/x-wav", "pcm"},
};

const Kind* kindOf(const QString& fileName)
{
    const QString suffix = QFileInfo(fileName).suffix().toLower();
    const auto it = std::find_if(std::begin(kinds), std::end(kinds),
                                 [&](const Kind& kind) { return suffix == QLatin1String(kind.suffix); });
    return it == std::end(kinds) ? nullptr : it;
}

/// An Ogg file's name does not tell what is in it.
QString codecOf(TagLib::File* file, const Kind& kind)
{
    if (dynamic_cast<TagLib::Ogg::FLAC::File*>(file))
        return QStringLiteral("flac");
    if (dynamic_cast<TagLib::Ogg::Opus::File*>(file))
        return QStringLiteral("opus");
    if (dynamic_cast<TagLib::Ogg::Speex::File*>(file))
        return QStringLiteral("speex");
    return QString::fromLatin1(kind.codec);
}

QString toText(const TagLib::String& text)
{
    return QString::fromStdString(text.to8Bit(true)).simplified();
}

/// Only what the file tells: a missing key is not known.
void setTags(OrvoMediaData& data, const TagLib::FileRef& file)
{
    const TagLib::Tag& tag = *file.tag();
    if (!tag.title().isEmpty())
        data.setTitle(toText(tag.title()));
    if (!tag.artist().isEmpty())
        data.setArtist(toText(tag.artist()));
    if (!tag.album().isEmpty())
        data.setAlbum(toText(tag.album()));
    if (!tag.genre().isEmpty())
        data.setGenre(toText(tag.genre()));
    if (tag.track() > 0)
        data.setTrackNumber(int(tag.track()));
    if (tag.year() > 0)
        data.setYear(int(tag.year()));
    const TagLib::PropertyMap properties = file.file()->properties();
    if (properties.contains("ALBUMARTIST"))
        data.setAlbumArtist(toText(properties["ALBUMARTIST"].toString()));
}

} // namespace

bool SoundFile::isName(const QString& fileName)
{
    return kindOf(fileName);
}

std::optional<OrvoMediaData> SoundFile::read(const QString& path, QString& why)
{
    const Kind* kind = kindOf(path);
    QFile readable(path);
    if (!kind || !readable.open(QIODevice::ReadOnly)) {
        why = kind ? readable.errorString() : QStringLiteral("not a sound file by its name");
        return std::nullopt;
    }
    const TagLib::FileRef file(QFile::encodeName(path).constData());
    if (file.isNull() || !file.tag() || !file.audioProperties() || file.audioProperties()->sampleRate() <= 0) {
        why = QStringLiteral("it holds no sound");
        return std::nullopt;
    }

    OrvoMediaData data;
    setTags(data, file);
    const TagLib::AudioProperties& sound = *file.audioProperties();
    data.setDuration(sound.lengthInMilliseconds());
    data.setSampleRate(sound.sampleRate());
    data.setBitRate(sound.bitrate() * 1000);
    data.setChannels(sound.channels());
    data.setUrl(QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded));
    data.setMimeType(QString::fromLatin1(kind->mimeType));
    data.setCodec(codecOf(file.file(), *kind));
    return data;
}
