#pragma once

#include "records/orvomediadata.h"

#include <QMetaType>
#include <QString>

/// What is known of one sound file; crosses from the reading thread to the service's.
struct Track
{
    /// The file's path from the served folder on.
    QString id;
    OrvoMediaData data;
    /// Milliseconds since the epoch of the file's last change.
    qint64 changed = 0;
};

Q_DECLARE_METATYPE(Track)
