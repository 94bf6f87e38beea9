#include "configfile.h"

#include "configdocument.h"
#include "medialog.h"
#include "wholefile.h"

#include <QFile>
#include <QFileInfo>

#include <utility>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

/// So long changes gather.
constexpr int settleMs = 100;
constexpr qint64 mostBytes = 1 << 20;

QString finalName(const QString& file)
{
    const QString canonical = QFileInfo(file).canonicalFilePath();
    return canonical.isEmpty() ? QFileInfo(file).absoluteFilePath() : canonical;
}

} // namespace

ConfigFile::ConfigFile(const QString& file) : m_file(finalName(file)), m_timer(this)
{
    m_timer.setSingleShot(true);
    m_timer.setInterval(settleMs);
    connect(&m_timer, &QTimer::timeout, this, &ConfigFile::finish);
}

QVariantHash ConfigFile::load() const
{
    QFile in(m_file);
    if (!in.exists()) {
        LOG4CPLUS_INFO(mediaLog(), "no configuration yet at " << m_file.toStdString());
        return ConfigDocument::defaults();
    }
    QVariantHash document;
    QString problem;
    if (!in.open(QIODevice::ReadOnly))
        problem = in.errorString();
    else if (in.size() > mostBytes)
        problem = QStringLiteral("it has %1 bytes").arg(in.size());
    else
        problem = ConfigDocument::parse(in.readAll(), document);
    if (problem.isEmpty())
        return document;

    const QString aside = m_file + QStringLiteral(".broken");
    if (std::rename(QFile::encodeName(m_file), QFile::encodeName(aside)) == 0)
        LOG4CPLUS_WARN(mediaLog(), "the configuration is broken, the defaults are served and it is set aside as "
                                       << aside.toStdString() << ": " << problem.toStdString());
    else
        LOG4CPLUS_ERROR(mediaLog(),
                        "the configuration is broken, the defaults are served and it cannot be set aside as "
                            << aside.toStdString() << " (" << std::strerror(errno) << "): " << problem.toStdString());
    return ConfigDocument::defaults();
}

void ConfigFile::save(const QVariantHash& document)
{
    m_unsaved = document;
    if (!m_timer.isActive())
        m_timer.start();
}

void ConfigFile::finish()
{
    m_timer.stop();
    const QVariantHash document = std::exchange(m_unsaved, {});
    if (document.isEmpty())
        return;
    if (const QString problem = WholeFile::write(m_file, ConfigDocument::print(document)); !problem.isEmpty())
        LOG4CPLUS_ERROR(mediaLog(), "the configuration is not saved: " << problem.toStdString());
}
