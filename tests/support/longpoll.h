#pragma once

#include "core/model/cmeventqueue.h"

#include <QStringList>
#include <QTimer>

#include <functional>

/// What polls were told, in order; outlives them.
struct PollAnswers
{
    QList<OrvoList<OrvoEvent>> events;
    QStringList queueIds;
    /// Polls that still exist.
    int alive = 0;

    int count() const { return events.size(); }
};

/// A poll that writes its answer down, and then does what the test wants to happen within it.
class LongPoll : public CMEventQueueRequest
{
public:
    explicit LongPoll(PollAnswers* answers, std::function<void()> then = nullptr)
        : m_answers(answers), m_then(std::move(then))
    {
        ++m_answers->alive;
    }
    ~LongPoll() override { --m_answers->alive; }

    void respond(const OrvoList<OrvoEvent>& events, const QString& queueId) override
    {
        m_answers->events.append(events);
        m_answers->queueIds.append(queueId);
        if (m_then)
            m_then();
    }

private:
    PollAnswers* const m_answers;
    const std::function<void()> m_then;
};

/// The queue's one timer: to read its interval, and to let its time be over.
inline QTimer* timerOf(const CMEventQueue* queue)
{
    return queue->findChild<QTimer*>();
}

inline OrvoEventSubscribe eventSubscribe(const char* path, int type)
{
    return OrvoEventSubscribe().setPath(CMPath::fromEncoded(path)).setType(OrvoEventSubscribeType::Enum(type));
}

/// One text per event: "data p", "value p payload", "reset p", "close p", "rows p [+1,=2..3] 4>6".
inline QStringList eventTexts(const OrvoList<OrvoEvent>& events)
{
    QStringList texts;
    for (const OrvoEvent& event : events.toTyped()) {
        const QString path = event.path().toEncoded();
        if (event.itemType() == OrvoEventItemType::Updated) {
            const bool value = event.__contains(OrvoEvent::ItemValue());
            const QVariantHash payload = event.itemValue().__hash();
            texts.append(value ? "value " + path + ' ' + payload.value(payload.value("type").toString()).toString()
                               : "data " + path);
            continue;
        }
        QStringList rows;
        for (const OrvoRowEvent& row : event.rowsEvents().toTyped()) {
            static const char* const signs[] = {"?", "+", "-", "", "="};
            QString text = signs[row.type()] + QString::number(row.index());
            if (row.__contains(OrvoRowEvent::ToIndex()))
                text += ".." + QString::number(row.toIndex());
            rows.append(text);
        }
        if (event.rowsType() == OrvoEventRowsType::Reset)
            texts.append("reset " + path);
        else if (event.rowsType() == OrvoEventRowsType::Closed)
            texts.append("close " + path);
        else
            texts.append(QString("rows %1 [%2] %3>%4")
                             .arg(path, rows.join(','))
                             .arg(event.rowsOldVersion())
                             .arg(event.rowsVersion()));
    }
    return texts;
}

/// Takes the events that wait, without leaving a poll behind.
inline QStringList taken(CMEventQueue& queue)
{
    PollAnswers answers;
    queue.poll(new LongPoll(&answers), 1);
    queue.sendResponse();
    return answers.count() == 1 ? eventTexts(answers.events.first()) : QStringList("no answer");
}
