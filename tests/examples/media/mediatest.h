#pragma once

#include "cmremoteworker.h"

#include "core/model/cmmetatypes.h"
#include "core/model/cmrpccommon.h"
#include "records/orvorowsroles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QtEndian>
#include <QtTest>

#include <taglib/fileref.h>
#include <taglib/tpropertymap.h>

constexpr int sampleRate = 8000;

/// The bytes of a sound file: mono, 16 bits, silent.
inline QByteArray wave(int milliseconds)
{
    const quint32 size = quint32(sampleRate) * 2 * quint32(milliseconds) / 1000;
    const auto number = [](auto value) {
        value = qToLittleEndian(value);
        return QByteArray(reinterpret_cast<const char*>(&value), sizeof value);
    };
    return "RIFF" + number(quint32(size + 36)) + "WAVEfmt " + number(quint32(16)) + number(quint16(1))
           + number(quint16(1)) + number(quint32(sampleRate)) + number(quint32(sampleRate * 2)) + number(quint16(2))
           + number(quint16(16)) + "data" + number(size) + QByteArray(int(size), '\0');
}

inline bool write(const QString& file, const QByteArray& bytes)
{
    QFile out(file);
    return QDir().mkpath(QFileInfo(file).path()) && out.open(QIODevice::WriteOnly) && out.write(bytes) == bytes.size();
}

inline bool tag(const QString& path, const QMap<QString, QString>& tags)
{
    TagLib::FileRef file(QFile::encodeName(path).constData());
    TagLib::PropertyMap properties;
    for (auto it = tags.cbegin(); it != tags.cend(); ++it)
        properties.insert(it.key().toStdString(), TagLib::String(it.value().toStdString(), TagLib::String::UTF8));
    return !file.isNull() && file.file()->setProperties(properties).isEmpty() && file.save();
}

/// A service on a folder of its own, under a name of its own.
class Service
{
public:
    explicit Service(const QString& folder)
        : m_name(QStringLiteral("mediatest-%1-%2").arg(QCoreApplication::applicationPid()).arg(++s_count)),
          m_folder(folder)
    {}

    ~Service()
    {
        if (m_process.state() == QProcess::NotRunning)
            return;
        m_process.terminate();
        m_process.waitForFinished();
    }

    void start(const QStringList& options = {})
    {
        m_process.start(QStringLiteral(ORVO_TEST_MEDIA),
                        QStringList{QStringLiteral("--name"), m_name, m_folder} + options);
    }
    QProcess& process() { return m_process; }
    QString name() const { return m_name; }
    QString socket() const { return CMRPCSocket::socketPathFromPrefix(m_name); }
    CMPath path(const QString& base) const { return CMPath::fromPrefix(m_name) + base; }

private:
    inline static int s_count = 0;
    const QString m_name;
    const QString m_folder;
    QProcess m_process;
};

/// The base of the tests of the media service: a folder of sound files, the service on it, and a client.
class MediaTest : public QObject
{
    Q_OBJECT

public slots:
    void on_rowsChanged(const CMPath&, const QStringList& changes, int, int) { m_changes += changes; }
    void on_dataChanged(const CMPath&) { ++m_dataChanges; }

private slots:
    void initTestCase()
    {
        qputenv("QT_NO_GLIB", "1");
        orvoRegisterMetaTypes();
    }

    void init()
    {
        m_dir.reset(new QTemporaryDir);
        QVERIFY(m_dir->isValid());
        m_changes.clear();
        m_dataChanges = 0;
    }

    void cleanup()
    {
        m_worker.reset();
        m_service.reset();
        m_dir.reset();
    }

protected:
    QString file(const QString& name) const { return m_dir->path() + QLatin1Char('/') + name; }

    void makeTagged(const QString& name, const QString& artist, const QString& album, const QString& track,
                    const QString& title)
    {
        QVERIFY(write(file(name), wave(100)));
        QVERIFY(tag(file(name), {{"ARTIST", artist}, {"ALBUM", album}, {"TRACKNUMBER", track}, {"TITLE", title}}));
    }

    void start(const QStringList& options = {})
    {
        m_service.reset(new Service(m_dir->path()));
        m_service->start(options);
        m_worker.reset(new CMRemoteWorker(QStringLiteral("tst_media"), m_service->name()));
    }

    /// Starts with so many files in the folder, and hears of all changes after them.
    void watch(int count)
    {
        start();
        QCOMPARE(rescan(), count);
        m_worker->connectRowsChange(m_service->path("library"), this,
                                    SLOT(on_rowsChanged(CMPath, QStringList, int, int)));
        // Its answer comes behind the subscription.
        QCOMPARE(ids().size(), count);
    }

    /// The changes so far; whatever waits to be read has been read by then, and what waits in the hub has been told.
    QStringList settledChanges()
    {
        rescan();
        QTest::qWait(100);
        return m_changes;
    }

    template <typename T>
    T finished(const CMReply<T>& reply)
    {
        if (!QTest::qWaitFor([&] { return reply.isFinished(); }, 10000) || reply.error().isError())
            qWarning() << "no answer" << reply.isFinished() << reply.error().message();
        return reply.isFinished() ? reply.value() : T();
    }

    QVariantList data(const CMPath& path, const QStringList& roles) { return finished(m_worker->getData(path, roles)); }

    QList<OrvoRoles> rows(const CMPath& path)
    {
        const QStringList roles = {OrvoRoles::Id(),   OrvoRoles::Title(),     OrvoRoles::Path(),     OrvoRoles::Icon(),
                                   OrvoRoles::Type(), OrvoRoles::MediaData(), OrvoRoles::Timestamp()};
        QList<OrvoRoles> result;
        for (const QVariant& row : finished(m_worker->getRows(path, 0, INT_MAX, -1, roles)).rows().toList()) {
            OrvoRoles read;
            for (int i = 0; i < roles.size(); ++i)
                read.__insert(roles.at(i), row.toList().value(i));
            result.append(read);
        }
        return result;
    }
    QList<OrvoRoles> rows() { return rows(m_service->path("library")); }

    QStringList ids()
    {
        QStringList result;
        for (const OrvoRoles& row : rows())
            result.append(row.id());
        return result;
    }

    QStringList titles(const CMPath& path)
    {
        QStringList result;
        for (const OrvoRoles& row : rows(path))
            result.append(row.title());
        return result;
    }

    int number(const QString& base)
    {
        return OrvoValue(data(m_service->path(base), {OrvoRoles::Value()}).value(0)).i32_();
    }

    void setNumber(const QString& base, int value)
    {
        QVERIFY(finished(m_worker->setValue(m_service->path(base), OrvoValue().setI32_(value))).toBool());
    }

    int rescan() { return finished(m_worker->invoke(m_service->path("library/rescan"), QVariant(true))).toInt(); }

    QScopedPointer<QTemporaryDir> m_dir;
    QScopedPointer<Service> m_service;
    QScopedPointer<CMRemoteWorker> m_worker;
    QStringList m_changes;
    int m_dataChanges = 0;
};
