#pragma once

#include <QMap>
#include <QMutex>
#include <QObject>
#include <QString>

class QIODevice;

/**
 * Turns blobs of memory, cover art for instance, into files that the device's web server can serve under a stable
 * logical name. Equal content stored twice under a name is written once.
 *
 * One object for the process; any thread may call. Writing blocks the caller until the file is written and holds up
 * nobody else. The folder of the files has to be there. When a file cannot be opened or written, neither the file nor
 * its name stays behind. Files outlive the process: cleanup() takes away what an earlier run has left.
 *
 * Two threads that store different content under one name at once leave one of the two under that name; the other's
 * file stays until cleanup().
 */
class TemporaryDataStorage : public QObject
{
    Q_OBJECT

public:
    struct NameInfo
    {
        QString fileName;
        /// Of the content, empty when it was not known at creation.
        QString hash;
        /// "file://" and the file name.
        QString url;
    };

    /// A file being written, for one thread. The file is complete after close() only; an end without it closes, too.
    class FileInfo
    {
    public:
        FileInfo() = default;
        ~FileInfo();
        FileInfo(FileInfo&& other) noexcept;
        FileInfo& operator=(FileInfo&& other) noexcept;

        /// Empty when the file could not be opened or is closed.
        QString url() const;

        QString m_url;
        /// Owned; null when closed or failed.
        QIODevice* device = nullptr;

    private:
        Q_DISABLE_COPY(FileInfo)
    };

    static TemporaryDataStorage* instance();

    /// Writes the bytes into a file and returns its URL, empty on failure. The extension brings its own dot.
    QString store(const QString& name, const char* data, int size, const QString& extension);

    /// Opens a new file under the name, in place of an earlier one. Without a hash the file is numbered.
    FileInfo create(const QString& name, const QString& extension, const QString& hash);
    /// True exactly if all bytes went out to the file.
    bool append(FileInfo& info, const char* data, int size);
    void close(FileInfo& info);

    /// Removes the file and its name; nothing happens for an unknown one.
    void remove(const QString& name);
    /// Removes the files of the name, also those that an earlier run of the process has left. Keeps the name.
    void cleanup(const QString& name);

    /// The path of the name's file, empty for an unknown name.
    QString getName(const QString& name);
    void removeName(const QString& name);
    /// Enters a new file name in place of what stood under the name.
    NameInfo createName(const QString& name, const QString& extension, const QString& hash);

    /// How all file names begin: a folder and possibly the first part of a file name.
    static QString fileNamePrefix();

private:
    TemporaryDataStorage() = default;

    void discard(const QString& name, const QString& fileName);

    QMutex m_mutex;
    int m_counter = 0;
    QMap<QString, NameInfo> m_names;
};
