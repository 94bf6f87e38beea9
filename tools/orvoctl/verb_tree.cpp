#include "verbs.h"

#include "cmremoteworker.h"
#include "failure.h"
#include "link.h"
#include "output.h"
#include "records/orvoroles.h"
#include "rowsreader.h"
#include "values.h"

#include <QSet>

#include <limits>

namespace {

struct Item
{
    QString title;
    QString path;
    QString type;
    QVariant value;
    /// Why its rows are not there.
    QString error;
    bool shownAbove = false;
    QVector<Item> rows;
};

QStringList itemRoles()
{
    return {OrvoRoles::Title(), OrvoRoles::Path(), OrvoRoles::Type(), OrvoRoles::Value()};
}

Item toItem(const QVariantList& values)
{
    return {values.value(0).toString(),
            values.value(1).toString(),
            values.value(2).toString(),
            values.value(3),
            {},
            false,
            {}};
}

/// Walks containers along the paths of their rows; each container is opened once, so circles end.
class Walk
{
public:
    explicit Walk(Link& link) : m_link(link) {}

    void open(Item& item, int depth)
    {
        const CMPath path = CMPath::fromEncoded(item.path);
        if (depth == 0 || item.type != OrvoRolesType::Container() || path.prefix().isEmpty())
            return;
        item.shownAbove = m_opened.contains(item.path);
        if (item.shownAbove)
            return;
        m_opened.insert(item.path);
        try {
            const RowsRead read = readRows(m_link, path, itemRoles(), 0, std::numeric_limits<int>::max());
            for (const QVariantList& row : read.rows)
                item.rows.append(toItem(row));
        } catch (const Failure& failure) {
            item.error = failure.text;
            Output::error(item.path + QLatin1String(": ") + failure.text);
            if (m_status == ExitStatus::Success)
                m_status = failure.status;
        }
        for (Item& row : item.rows)
            open(row, depth - 1);
    }

    /// Of the first container that could not be opened.
    ExitStatus status() const { return m_status; }

private:
    Link& m_link;
    QSet<QString> m_opened;
    ExitStatus m_status = ExitStatus::Success;
};

void appendLines(const Item& item, int level, QVector<QStringList>& lines)
{
    const QString title = item.title.isEmpty() ? QStringLiteral("-") : item.title;
    lines.append({QString(2 * level, QLatin1Char(' ')) + title, item.path, item.type,
                  item.shownAbove ? QStringLiteral("(see above)") : roleText(item.value)});
    for (const Item& row : item.rows)
        appendLines(row, level + 1, lines);
}

QVariant toDocument(const Item& item)
{
    QVariantHash document{
        {OrvoRoles::Title(), item.title}, {OrvoRoles::Path(), item.path}, {OrvoRoles::Type(), item.type}};
    if (item.value.isValid())
        document.insert(OrvoRoles::Value(), item.value);
    if (!item.error.isEmpty())
        document.insert(QStringLiteral("error"), item.error);
    if (item.shownAbove)
        document.insert(QStringLiteral("shownAbove"), true);
    QVariantList rows;
    for (const Item& row : item.rows)
        rows.append(toDocument(row));
    if (!rows.isEmpty())
        document.insert(QStringLiteral("rows"), rows);
    return document;
}

void run(Session& session)
{
    const CMPath path = pathArgument(session.arguments.at(0));
    Item root = toItem(session.link.answer(path, session.link.reach(path)->getData(path, itemRoles())));
    // A node may be known by another path, too; what was asked for stands.
    root.path = path.toEncoded();
    Walk walk(session.link);
    walk.open(root, session.arguments.number(QStringLiteral("depth"), -1, 0));

    if (session.output.isJson()) {
        session.output.document(toDocument(root));
    } else {
        QVector<QStringList> lines;
        appendLines(root, 0, lines);
        session.output.table({}, lines);
    }
    if (walk.status() != ExitStatus::Success)
        throw Failure{walk.status(), QStringLiteral("the tree is not complete")};
}

} // namespace

Verb treeVerb()
{
    return {QStringLiteral("tree"),
            QStringLiteral("PATH"),
            QStringLiteral("Show a container and all that lies in it"),
            QStringLiteral("Titles, paths, types and values. Rows of the type container are followed by their paths;\n"
                           "a container that stands in several places is opened at the first one."),
            1,
            1,
            {{QStringLiteral("depth"), QString(), Option::Value, QStringLiteral("N"),
              QStringLiteral("open so many levels only")}},
            run};
}
