#pragma once

#include "records/orvorecord.h"

/// What is known about a piece of media.
class OrvoMediaData : public OrvoHash
{
    ORVO_RECORD(OrvoMediaData)
    ORVO_FIELD(QString, title, Title)
    ORVO_FIELD(QString, artist, Artist)
    ORVO_FIELD(QString, album, Album)
    ORVO_FIELD(QString, albumArtist, AlbumArtist)
    ORVO_FIELD(QString, genre, Genre)
    ORVO_FIELD(int, trackNumber, TrackNumber)
    ORVO_FIELD(int, year, Year)
    /// Milliseconds.
    ORVO_FIELD(long long, duration, Duration)
    ORVO_FIELD(QString, url, Url)
    ORVO_FIELD(QString, mimeType, MimeType)
    ORVO_FIELD(QString, codec, Codec)
    /// Samples per second.
    ORVO_FIELD(int, sampleRate, SampleRate)
    /// Bits per second.
    ORVO_FIELD(int, bitRate, BitRate)
    ORVO_FIELD(int, channels, Channels)
    /// URL of a picture.
    ORVO_FIELD(QString, cover, Cover)
};

Q_DECLARE_METATYPE(OrvoMediaData)
