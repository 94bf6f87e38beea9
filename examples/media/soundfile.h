#pragma once

#include "records/orvomediadata.h"

#include <QString>

#include <optional>

/// Reads single sound files. Without state, any thread; blocks on the disk.
class SoundFile
{
public:
    /// Whether the name is one of a sound file.
    static bool isName(const QString& fileName);
    /// Nothing when the file cannot be opened or holds no sound; `why` tells then.
    static std::optional<OrvoMediaData> read(const QString& file, QString& why);
};
