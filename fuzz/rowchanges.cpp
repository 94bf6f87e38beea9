// The changes of rows that a service tells: views on its list take any strings and versions, and show the list again
// as soon as the service says so.
//
// An input is text, each line one step:
//   +0 -3 =1..2 7    changes; one that fits the list is done to it, and so told by it, any other is told all the same
//   5>4 +0 x         told as the changes that lead from version 4 to version 5
//   @7               the browser goes to row 7
//   ?                from now on the list does not tell its size
//   ...              as many steps of the clock
// An empty string among others, between two blanks or at an end of the line, tells a reset.

#include "fuzz.h"

#include "core/model/cmmetatypes.h"
#include "core/model/cmnodes.h"
#include "core/model/cmnodesworker.h"
#include "core/model/cmroles.h"
#include "core/model/cmrowsbrowser.h"
#include "core/model/cmrowsclone.h"
#include "core/model/cmsubscribe.h"
#include "core/model/nodes/cmlistrowsnode.h"
#include "nodetest.h"
#include "records/orvoconstants.h"
#include "support/virtualclock.h"

#include <log4cplus/logger.h>

namespace {

class List : public CMListRowsNode
{
public:
    using CMListRowsNode::CMListRowsNode;
    QVariant getRoleData(const QString& role, const Params& params) override
    {
        return role == OrvoRoles::UnknownSize() ? QVariant(isOpenEnded) : CMListRowsNode::getRoleData(role, params);
    }

    bool isOpenEnded = false;
};

/// A list, and a browser and a clone on it.
class Views
{
public:
    explicit Views(VirtualClock* clock)
        : m_clock(clock), m_worker({{OrvoWorkerArguments::MergeEvents(), true}}, QStringLiteral("fuzz"))
    {
        ForwardingRoot::instance()->reset(&m_worker);
        m_list = new List(m_path);
        m_list->setNodes(m_worker.nodes());
        for (int row = 0; row < 12; ++row)
            m_list->rowsAppend(newRow());
        m_browser.reset(new CMRowsBrowser);
        m_browser->setRoles(CMAllRoles());
        m_browser->setRadius(m_radius);
        m_browser->setPath(m_path);
        m_browser->setActive(true);
        m_clone.reset(new CMRowsClone(nullptr, m_path));
        rest();
    }
    ~Views()
    {
        m_clone.reset();
        m_browser.reset();
        turn();
    }

    void take(const QByteArray& line)
    {
        if (line.startsWith('@')) {
            m_browser->setCurrentRow(line.mid(1).toInt());
        } else if (line == "?") {
            m_list->isOpenEnded = true;
        } else if (line.startsWith('.')) {
            turn();
            for (int steps = line.count('.'); steps > 0 && !m_clock->idle(); --steps)
                step();
        } else if (!line.isEmpty()) {
            const QStringList words = QString::fromUtf8(line).split(QLatin1Char(' '));
            const QStringList versions = words.first().split(QLatin1Char('>'));
            if (versions.size() == 2) {
                tell(words.mid(1), versions.first().toInt(), versions.last().toInt());
            } else {
                for (const QString& change : words)
                    if (!apply(change))
                        tell({change}, -1, -1);
            }
        }
    }
    /// Longer than any delay of the views.
    void rest()
    {
        const int end = m_clock->now() + 60000;
        turn();
        while (!m_clock->idle() && m_clock->now() < end)
            step();
    }
    void tellReset() { m_list->nextRowsVersion(CMSubscribe::RowsChangeReset()); }
    /// Whether all that was told was so.
    bool isTrue() const { return m_isTrue; }

    void check() const
    {
        const QList<QVariant>& rows = m_list->rows();
        FUZZ_CHECK(!m_clone->isLoading());
        FUZZ_CHECK(m_clone->list().size() == rows.size());
        FUZZ_CHECK(m_clone->idIndex().size() == rows.size());
        for (int row = 0; row < rows.size(); ++row)
            FUZZ_CHECK(m_clone->list().at(row).id() == OrvoRoles(rows.at(row)).id());

        FUZZ_CHECK(!m_browser->isLoading());
        FUZZ_CHECK(m_list->isOpenEnded || m_browser->size() == rows.size());
        const int current = m_browser->currentRow();
        FUZZ_CHECK(current >= 0 && (m_list->isOpenEnded || current <= std::max(0, rows.size() - 1)));
        const int end = std::min(current + m_radius + 1, rows.size());
        for (int row = std::max(0, current - m_radius); row < end; ++row)
            FUZZ_CHECK(m_browser->item(row).id() == OrvoRoles(rows.at(row)).id());
    }

private:
    static void turn()
    {
        QCoreApplication::sendPostedEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    void step()
    {
        m_clock->step();
        turn();
    }
    OrvoRoles newRow() { return OrvoRoles().setId(QString::number(++m_named)); }
    void tell(const QStringList& changes, int version, int oldVersion)
    {
        m_isTrue = false;
        m_worker.subscribe()->rowsChanged(m_path, changes, version, oldVersion);
    }
    /// Whether the text is the number of a row, of so many.
    static bool isRow(const QString& text, int count, int* row)
    {
        *row = text.toInt();
        return QString::number(*row) == text && *row >= 0 && *row < count;
    }
    bool apply(const QString& change)
    {
        const int count = m_list->rows().size();
        const QString text = change.mid(1);
        int row = 0;
        int to = 0;
        if (change == CMSubscribe::RowsChangeReset()) {
            tellReset();
        } else if (change.startsWith(QLatin1Char('+')) && isRow(text, count + 1, &row)) {
            m_list->rowsInsert(row, newRow());
        } else if (change.startsWith(QLatin1Char('-')) && isRow(text, count, &row)) {
            m_list->rowsRemoveAt(row);
        } else if (change.startsWith(QLatin1Char('='))) {
            const QStringList ends = text.split(QStringLiteral(".."));
            if (ends.size() != 2 || !isRow(ends.first(), count, &row) || !isRow(ends.last(), count, &to))
                return false;
            m_list->rowsMove(row, to);
        } else if (isRow(change, count, &row)) {
            m_list->rowsSet(row, newRow());
        } else {
            return false;
        }
        return true;
    }

    const int m_radius = 2;
    const CMPath m_path = CMPath::fromEncoded("fuzz:list");
    VirtualClock* const m_clock;
    CMNodesWorker m_worker;
    List* m_list = nullptr;
    std::unique_ptr<CMRowsBrowser> m_browser;
    std::unique_ptr<CMRowsClone> m_clone;
    int m_named = 0;
    bool m_isTrue = true;
};

void feed(VirtualClock* clock, const QByteArray& bytes)
{
    Views views(clock);
    views.check();
    for (const QByteArray& line : bytes.split('\n'))
        views.take(line);
    views.rest();
    if (views.isTrue())
        views.check();
    views.tellReset();
    views.rest();
    views.check();
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static int argc = 1;
    static char name[] = "fuzz";
    static char* argv[] = {name, nullptr};
    static const QCoreApplication* const application = new QCoreApplication(argc, argv);
    static_cast<void>(application);
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::OFF_LOG_LEVEL);
    ForwardingRoot::instance();
    const QByteArray bytes(reinterpret_cast<const char*>(data), int(size));
    VirtualClock::run([&](VirtualClock* clock) { feed(clock, bytes); });
    return 0;
}
