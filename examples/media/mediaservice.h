#pragma once

#include "core/model/cmnodesworker.h"

#include <QObject>
#include <QThread>

#include <memory>

class CMRPCServer;
class ConfigFile;
class ConfigNode;
class MediaLibrary;
class MediaSearch;
class MediaSettings;
class RecentTracks;
class TagReader;

/**
 * The whole service: the worker that is the root of this process, the nodes on it and what feeds them, the threads that
 * read tags and write the configuration, and the socket on which clients come in. Serves from its construction on,
 * while files are still being read.
 */
class MediaService : public QObject
{
    Q_OBJECT

public:
    /**
     * The name is the prefix of all paths, and the folder an absolute one that exists. Without a configuration file the
     * defaults are served, and changes of them end with the service.
     */
    MediaService(const QString& name, const QString& folder, const QString& configFile);
    /// Waits for the file that is being read, and for the configuration that is being written.
    ~MediaService() override;

private:
    void makeConfig(const QString& file);
    void makeLibrary();
    void makeLists();

    CMNodesWorker m_worker;
    QThread m_thread;
    QThread m_configThread;
    std::unique_ptr<TagReader> m_reader;
    std::unique_ptr<ConfigFile> m_configFile;
    ConfigNode* m_config = nullptr;
    std::unique_ptr<MediaLibrary> m_library;
    std::unique_ptr<RecentTracks> m_recent;
    std::unique_ptr<MediaSettings> m_settings;
    std::unique_ptr<MediaSearch> m_search;
    std::unique_ptr<CMRPCServer> m_server;
};
