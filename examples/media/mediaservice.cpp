#include "mediaservice.h"

#include "configfile.h"
#include "confignode.h"
#include "medialibrary.h"
#include "mediasearch.h"
#include "mediasettings.h"
#include "recenttracks.h"
#include "tagreader.h"

#include "core/model/cmnodes.h"
#include "core/model/cmroot.h"
#include "core/model/cmrpcserver.h"
#include "core/orvo.h"
#include "records/orvoconstants.h"

MediaService::MediaService(const QString& name, const QString& folder, const QString& configFile)
    : m_worker({{OrvoWorkerArguments::Prefix(), CMPath::fromPrefix(name).toEncoded()},
                {OrvoWorkerArguments::MergeEvents(), true}},
               name),
      m_reader(new TagReader(folder))
{
    qRegisterMetaType<Track>();
    CMRoot_setInstance(&m_worker);
    makeConfig(configFile);
    makeLibrary();
    makeLists();
    m_server.reset(new CMRPCServer(nullptr, name));
}

MediaService::~MediaService()
{
    m_server.reset();
    m_thread.quit();
    m_thread.wait();
    m_reader.reset();
    // Behind the last document that is on its way.
    if (m_configFile)
        QMetaObject::invokeMethod(m_configFile.get(), [this] {
            m_configFile->finish();
            m_configThread.quit();
        });
    m_configThread.wait();
    m_configFile.reset();
    m_settings.reset();
    m_recent.reset();
    m_library.reset();
}

void MediaService::makeConfig(const QString& file)
{
    if (!file.isEmpty())
        m_configFile.reset(new ConfigFile(file));
    m_config = ConfigNode::create(m_worker.nodes(), m_worker.addPrefix(QStringLiteral("config")),
                                  m_configFile ? m_configFile->load() : ConfigDocument::defaults());
    m_config->setTitle(QStringLiteral("Configuration"));
    if (!m_configFile)
        return;
    connect(m_config, &ConfigNode::changed, m_configFile.get(), &ConfigFile::save);
    connect(&m_configThread, &QThread::started, m_configFile.get(),
            [] { orvoSetThreadName(QStringLiteral("configfile")); });
    m_configFile->moveToThread(&m_configThread);
    m_configThread.start();
}

void MediaService::makeLibrary()
{
    m_library.reset(new MediaLibrary(&m_worker, m_config));
    connect(m_reader.get(), &TagReader::trackRead, m_library.get(), &MediaLibrary::trackRead);
    connect(m_reader.get(), &TagReader::trackGone, m_library.get(), &MediaLibrary::trackGone);
    connect(m_reader.get(), &TagReader::busy, m_library.get(), &MediaLibrary::busy);
    connect(m_reader.get(), &TagReader::caughtUp, m_library.get(), &MediaLibrary::caughtUp);
    connect(m_library.get(), &MediaLibrary::rescanWanted, m_reader.get(), &TagReader::rescan);
    connect(&m_thread, &QThread::started, m_reader.get(), [this] { m_reader->rescan(0); });
    connect(&m_thread, &QThread::started, m_reader.get(), [] { orvoSetThreadName(QStringLiteral("tagreader")); });
    m_reader->moveToThread(&m_thread);
    m_thread.start();
}

void MediaService::makeLists()
{
    m_recent.reset(new RecentTracks(&m_worker, m_config, m_library.get()));
    m_settings.reset(new MediaSettings(&m_worker, m_config));
    m_search.reset(new MediaSearch(&m_worker, m_library.get()));

    CMLinkRowsNode* recent =
        CMLinkRowsNode::create(m_worker.nodes(), m_worker.addPrefix(QStringLiteral("home/recent")), m_recent->path());
    recent->setTitle(TrString("Recent files"));
    recent->setIcon(QStringLiteral("document-open-recent"));
    CMListRowsNode* home = CMListRowsNode::create(m_worker.nodes(), m_worker.addPrefix(QStringLiteral("home")));
    home->setTitle(TrString("Home"));
    for (const CMPath& path : {m_library->path(), recent->path(), m_search->path(), m_settings->path()})
        home->rowsAppend(path);

    CMListRowsNode* root = CMListRowsNode::create(m_worker.nodes(), m_worker.prefixPath());
    root->setTitle(TrString("Media"));
    for (const CMPath& path : {home->path(), m_library->path(), m_library->rescanPath(), m_search->path(),
                               m_settings->path(), m_config->path()})
        root->rowsAppend(path);
}
