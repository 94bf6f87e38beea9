#include "core/orvoProfiler.h"

#include "core/orvo.h"
#include "core/orvoLog_p.h"

#include <QMutexLocker>

namespace {

ORVO_LOGGER("Profiler")

timeval now()
{
    timeval time;
    gettimeofday(&time, nullptr);
    return time;
}

} // namespace

Profiler* Profiler::s_profiler = nullptr;

Profiler* Profiler::instance()
{
    if (!s_profiler)
        s_profiler = new Profiler;
    return s_profiler;
}

bool Profiler::createWatcher(const QString& name, const QString& finalEvent)
{
    const QMutexLocker locker(&m_mutex);
    if (m_watchers.contains(name)) {
        LOG4CPLUS_INFO(logger(), "Watcher " << name << " already created");
        return false;
    }
    m_watchers.insert(name, WatcherInfo{name, finalEvent, now(), timeval(), {}});
    LOG4CPLUS_INFO(logger(), "Watcher " << name << " started");
    return true;
}

void Profiler::event(const QString& watcher, const QString& name, const QVariantHash& params)
{
    const QMutexLocker locker(&m_mutex);
    const auto it = m_watchers.find(watcher);
    if (it == m_watchers.end()) {
        LOG4CPLUS_TRACE(logger(), "Watcher " << watcher << " does not exist");
        return;
    }
    it->events.append(EventInfo{name, params, now()});
    if (name != it->finalEvent)
        return;
    it->endTime = it->events.constLast().time;
    LOG4CPLUS_TRACE(logger(), "Watcher " << watcher << " finished in " << timeDiff(&it->startTime, &it->endTime)
                                         << "ms, " << it->events.size() << " event(s)");
    print(&*it);
    m_watchers.erase(it);
}

void Profiler::print(WatcherInfo* info)
{
    QString text = info->name + QLatin1Char(':');
    for (EventInfo& event : info->events)
        text += QLatin1Char(' ') + event.name + QLatin1String(": ")
                + QString::number(timeDiff(&info->startTime, &event.time)) + QLatin1Char(';');
    LOG4CPLUS_INFO(logger(), text);
}

// Each time is cut to milliseconds by itself, so that the differences along one line add up.
long long Profiler::timeDiff(timeval* from, timeval* to)
{
    return timeval_toMsec(to) - timeval_toMsec(from);
}

const QString& Profiler::UIResponseWatcher()
{
    static const QString name = QStringLiteral("UIResponseWatcher");
    return name;
}

const QString& Profiler::UIConsoleDataEvent()
{
    static const QString name = QStringLiteral("conData");
    return name;
}

const QString& Profiler::UISGEDataEvent()
{
    static const QString name = QStringLiteral("sgeData");
    return name;
}

const QString& Profiler::UIDrawStartEvent()
{
    static const QString name = QStringLiteral("drawStart");
    return name;
}

const QString& Profiler::UIDrawEvent()
{
    static const QString name = QStringLiteral("draw");
    return name;
}
