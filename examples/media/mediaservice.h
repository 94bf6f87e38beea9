#pragma once

#include "core/model/cmnodesworker.h"

#include <QObject>
#include <QThread>

#include <memory>

class CMRPCServer;
class MediaLibrary;
class TagReader;

/**
 * The whole service: the worker that is the root of this process, the library on it, the thread that reads tags, and
 * the socket on which clients come in. Serves from its construction on, while files are still being read.
 */
class MediaService : public QObject
{
    Q_OBJECT

public:
    /// The name is the prefix of all paths, and the folder an absolute one that exists.
    MediaService(const QString& name, const QString& folder);
    /// Waits for the file that is being read.
    ~MediaService() override;

    /// Whether a living process answers at the name's socket.
    static bool isServed(const QString& name);

private:
    CMNodesWorker m_worker;
    QThread m_thread;
    std::unique_ptr<TagReader> m_reader;
    std::unique_ptr<MediaLibrary> m_library;
    std::unique_ptr<CMRPCServer> m_server;
};
