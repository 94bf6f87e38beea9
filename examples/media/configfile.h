#pragma once

#include <QObject>
#include <QTimer>
#include <QVariant>

/**
 * The file in which the configuration outlasts the service. Read once, at the start; each change is written a moment
 * after it, so that many changes at once are one writing.
 *
 * Lives in a thread of its own, since a disk may take its time; load() may be called ahead of that.
 */
class ConfigFile : public QObject
{
    Q_OBJECT

public:
    explicit ConfigFile(const QString& file);

    /// The document of the file. One that cannot be used goes aside as "<file>.broken", and the defaults are given.
    QVariantHash load() const;

public slots:
    void save(const QVariantHash& document);
    /// Writes what is not written yet. Ahead of the end.
    void finish();

private:
    /// Not a symbolic link, which would be replaced by the file.
    const QString m_file;
    QTimer m_timer;
    QVariantHash m_unsaved;
};
