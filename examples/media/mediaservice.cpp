#include "mediaservice.h"

#include "medialibrary.h"
#include "tagreader.h"

#include "core/model/cmroot.h"
#include "core/model/cmrpcserver.h"
#include "core/orvo.h"
#include "records/orvoconstants.h"

#include <QLocalSocket>

namespace {

constexpr int connectMs = 1000;

} // namespace

MediaService::MediaService(const QString& name, const QString& folder)
    : m_worker({{OrvoWorkerArguments::Prefix(), CMPath::fromPrefix(name).toEncoded()},
                {OrvoWorkerArguments::MergeEvents(), true}},
               name),
      m_reader(new TagReader(folder))
{
    qRegisterMetaType<Track>();
    CMRoot_setInstance(&m_worker);
    m_library.reset(new MediaLibrary(&m_worker));

    connect(m_reader.get(), &TagReader::trackRead, m_library.get(), &MediaLibrary::trackRead);
    connect(m_reader.get(), &TagReader::trackGone, m_library.get(), &MediaLibrary::trackGone);
    connect(m_reader.get(), &TagReader::busy, m_library.get(), &MediaLibrary::busy);
    connect(m_reader.get(), &TagReader::caughtUp, m_library.get(), &MediaLibrary::caughtUp);
    connect(m_library.get(), &MediaLibrary::rescanWanted, m_reader.get(), &TagReader::rescan);
    connect(&m_thread, &QThread::started, m_reader.get(), [this] { m_reader->rescan(0); });
    connect(&m_thread, &QThread::started, m_reader.get(), [] { orvoSetThreadName(QStringLiteral("tagreader")); });
    m_reader->moveToThread(&m_thread);
    m_thread.start();

    m_server.reset(new CMRPCServer(nullptr, name));
}

MediaService::~MediaService()
{
    m_server.reset();
    m_thread.quit();
    m_thread.wait();
    m_reader.reset();
    m_library.reset();
}

bool MediaService::isServed(const QString& name)
{
    QLocalSocket socket;
    socket.connectToServer(CMRPCSocket::socketPathFromPrefix(name));
    return socket.waitForConnected(connectMs);
}
