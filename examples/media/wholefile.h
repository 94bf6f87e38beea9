#pragma once

#include <QByteArray>
#include <QString>

/// Files that are there as a whole or not at all, whenever the process or the machine ends. Any thread.
namespace WholeFile {

/**
 * Replaces the file. The bytes go to "<file>.new" and to the disk, and then take the file's name, which goes to the
 * disk, too. A file that was there keeps its permissions. Returns what went wrong, and is empty otherwise.
 */
QString write(const QString& file, const QByteArray& bytes);

} // namespace WholeFile
