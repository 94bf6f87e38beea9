#include "config.h"

#include <QMap>
#include <QRegularExpression>

#include <algorithm>
#include <limits>
#include <pwd.h>

namespace {

constexpr int maxInt = std::numeric_limits<int>::max();
constexpr int maxServices = 1000;

bool isId(const QString& text)
{
    static const QRegularExpression id(QStringLiteral("\\A[A-Za-z0-9_-]+\\z"));
    return id.match(text).hasMatch();
}

bool isBusName(const QString& text)
{
    static const QRegularExpression name(
        QStringLiteral("\\A[A-Za-z_-][A-Za-z0-9_-]*(\\.[A-Za-z_-][A-Za-z0-9_-]*)+\\z"));
    return text.size() <= 255 && name.match(text).hasMatch();
}

/// The members of one object, taken one by one; what nobody took is unknown.
class Members
{
public:
    Members(const JsonValue& object, QList<Problem>& problems) : m_object(object), m_problems(problems)
    {
        for (const JsonMember& member : object.members) {
            if (m_members.contains(member.key))
                problem(member.place, QStringLiteral("\"%1\" is there twice").arg(member.key));
            m_members.insert(member.key, &member);
        }
    }

    ~Members()
    {
        for (const JsonMember& member : m_object.members)
            if (m_members.value(member.key) == &member)
                problem(member.place, QStringLiteral("unknown key \"%1\"").arg(member.key));
    }

    Members(const Members&) = delete;
    Members& operator=(const Members&) = delete;

    void problem(const Place& place, const QString& text) { m_problems.append({place, text}); }

    /// Null, and a problem where one is there, without a member of the type.
    const JsonValue* take(const char* key, JsonValue::Type type)
    {
        const JsonMember* member = m_members.take(QLatin1String(key));
        if (!member)
            return nullptr;
        if (member->value.type == type)
            return &member->value;
        problem(member->value.place, QStringLiteral("\"%1\" is %2, not %3")
                                         .arg(QLatin1String(key), typeName(type), typeName(member->value.type)));
        return nullptr;
    }
    bool contains(const char* key) const { return m_members.contains(QLatin1String(key)); }

    const JsonValue* text(const char* key, QString& text)
    {
        const JsonValue* value = take(key, JsonValue::Text);
        if (!value || !isText(*value, QLatin1String(key)))
            return nullptr;
        text = value->scalar.toString();
        return value;
    }

    const JsonValue* number(const char* key, int& number, int min, int max)
    {
        const JsonValue* value = take(key, JsonValue::Integer);
        if (!value)
            return nullptr;
        const qlonglong given = value->scalar.toLongLong();
        if (given < min || given > max) {
            problem(value->place,
                    max == maxInt
                        ? QStringLiteral("\"%1\" is at least %2").arg(QLatin1String(key)).arg(min)
                        : QStringLiteral("\"%1\" is from %2 to %3").arg(QLatin1String(key)).arg(min).arg(max));
            return nullptr;
        }
        number = int(given);
        return value;
    }

    QList<JsonValue> texts(const char* key)
    {
        QList<JsonValue> texts;
        if (const JsonValue* array = take(key, JsonValue::Array)) {
            for (const JsonValue& item : array->items) {
                if (item.type != JsonValue::Text)
                    problem(item.place,
                            QStringLiteral("\"%1\" holds texts, not %2").arg(QLatin1String(key), typeName(item.type)));
                else if (isText(item, QLatin1String(key), true))
                    texts.append(item);
            }
        }
        return texts;
    }

private:
    /// The texts go to the kernel, which reads them up to the first NUL.
    bool isText(const JsonValue& value, const QString& key, bool mayBeEmpty = false)
    {
        const QString text = value.scalar.toString();
        if (text.contains(QChar(0)))
            problem(value.place, QStringLiteral("\"%1\" has a NUL in it").arg(key));
        else if (text.isEmpty() && !mayBeEmpty)
            problem(value.place, QStringLiteral("\"%1\" is empty").arg(key));
        else
            return true;
        return false;
    }

    const JsonValue& m_object;
    QList<Problem>& m_problems;
    QMap<QString, const JsonMember*> m_members;
};

class ConfigReader
{
public:
    QList<Problem> read(const QByteArray& text, Config& config)
    {
        JsonValue root;
        Problem problem;
        if (!parseJson(text, root, problem))
            return {problem};
        if (root.type != JsonValue::Object)
            return {{root.place, QStringLiteral("the file holds an object with \"services\", not an array")}};
        {
            Members members(root, m_problems);
            const bool there = members.contains("services");
            if (const JsonValue* services = members.take("services", JsonValue::Array)) {
                if (services->items.size() > maxServices)
                    return {{services->place, QStringLiteral("there are more than %1 services").arg(maxServices)}};
                for (const JsonValue& service : services->items)
                    readService(service);
            } else if (!there) {
                members.problem(root.place, QStringLiteral("\"services\" is missing"));
            }
        }
        linkDependencies();
        if (m_problems.isEmpty())
            order(config);
        std::stable_sort(m_problems.begin(), m_problems.end(), [](const Problem& a, const Problem& b) {
            return a.place.line < b.place.line || (a.place.line == b.place.line && a.place.column < b.place.column);
        });
        return m_problems;
    }

private:
    struct Dependency
    {
        QString id;
        Place place;
    };
    struct Entry
    {
        ServiceConfig config;
        Place place;
        QList<Dependency> after;
    };
    enum class Visit { No, Begun, Done };

    void readService(const JsonValue& value)
    {
        if (value.type != JsonValue::Object) {
            m_problems.append(
                {value.place, QStringLiteral("a service is an object, not %1").arg(typeName(value.type))});
            return;
        }
        Members members(value, m_problems);
        Entry entry;
        entry.place = value.place;
        ServiceConfig& config = entry.config;
        readId(members, value, config);
        if (!members.contains("program"))
            members.problem(value.place, QStringLiteral("\"program\" is missing"));
        members.text("program", config.program);
        for (const JsonValue& argument : members.texts("arguments"))
            config.arguments.append(argument.scalar.toString());
        readEnvironment(members, config);
        readUser(members, config);
        members.number("nice", config.nice, -20, 19);
        members.text("logFile", config.logFile);
        members.number("stopTimeoutMs", config.stopTimeout, 1, maxInt);
        readBus(members, config);
        readRestart(members, config);
        if (const JsonValue* stop = members.take("stopOnNetworkDown", JsonValue::Bool))
            config.stopOnNetworkDown = stop->scalar.toBool();
        readRestartOnChanged(members, config);
        for (const JsonValue& id : members.texts("after"))
            entry.after.append({id.scalar.toString(), id.place});
        m_entries.append(entry);
    }

    void readId(Members& members, const JsonValue& service, ServiceConfig& config)
    {
        if (!members.contains("id"))
            members.problem(service.place, QStringLiteral("\"id\" is missing"));
        const JsonValue* value = members.text("id", config.id);
        if (!value)
            return;
        if (!isId(config.id))
            members.problem(value->place,
                            QStringLiteral("an id has letters, digits, '-' and '_' only: \"%1\"").arg(config.id));
        else if (m_indexes.contains(config.id))
            members.problem(value->place, QStringLiteral("another service has the id \"%1\"").arg(config.id));
        else
            m_indexes.insert(config.id, m_entries.size());
    }

    void readEnvironment(Members& members, ServiceConfig& config)
    {
        const JsonValue* object = members.take("environment", JsonValue::Object);
        if (!object)
            return;
        for (const JsonMember& member : object->members) {
            const QString value = member.value.scalar.toString();
            if (member.key.isEmpty() || member.key.contains(QLatin1Char('=')) || member.key.contains(QChar(0)))
                members.problem(member.place, QStringLiteral("no name of a variable: \"%1\"").arg(member.key));
            else if (config.environment.contains(member.key))
                members.problem(member.place, QStringLiteral("\"%1\" is there twice").arg(member.key));
            else if (member.value.type != JsonValue::Text)
                members.problem(member.value.place,
                                QStringLiteral("a variable is a text, not %1").arg(typeName(member.value.type)));
            else if (value.contains(QChar(0)))
                members.problem(member.value.place, QStringLiteral("\"%1\" has a NUL in it").arg(member.key));
            config.environment.insert(member.key, value);
        }
    }

    /// A user that is not there would leave the service the supervisor's rights, so the file is refused.
    void readUser(Members& members, ServiceConfig& config)
    {
        const JsonValue* value = members.text("user", config.user);
        if (value && !getpwnam(config.user.toLocal8Bit().constData()))
            members.problem(value->place, QStringLiteral("no such user: \"%1\"").arg(config.user));
    }

    void readBus(Members& members, ServiceConfig& config)
    {
        const bool hasBusName = members.contains("busName");
        const JsonValue* name = members.text("busName", config.busName);
        if (name && !isBusName(config.busName))
            members.problem(name->place, QStringLiteral("no bus name: \"%1\"").arg(config.busName));
        const JsonValue* timeout = members.number("startTimeoutMs", config.startTimeout, 0, maxInt);
        if (timeout && !hasBusName)
            members.problem(timeout->place, QStringLiteral("\"startTimeoutMs\" needs a \"busName\""));
        const JsonValue* ping = members.take("ping", JsonValue::Object);
        if (!ping)
            return;
        if (!hasBusName)
            members.problem(ping->place, QStringLiteral("\"ping\" needs a \"busName\""));
        Members inner(*ping, m_problems);
        if (!inner.contains("intervalMs"))
            inner.problem(ping->place, QStringLiteral("\"intervalMs\" is missing"));
        inner.number("intervalMs", config.pingInterval, 1, maxInt);
        config.pingTimeout = config.pingInterval;
        const JsonValue* limit = inner.number("timeoutMs", config.pingTimeout, 1, maxInt);
        if (limit && config.pingInterval > 0 && config.pingTimeout > config.pingInterval)
            inner.problem(limit->place, QStringLiteral("\"timeoutMs\" is at most \"intervalMs\""));
    }

    void readRestart(Members& members, ServiceConfig& config)
    {
        const JsonValue* restart = members.take("restart", JsonValue::Object);
        if (!restart)
            return;
        Members inner(*restart, m_problems);
        QString policy;
        if (const JsonValue* value = inner.text("policy", policy)) {
            if (policy == QLatin1String("always"))
                config.restart = ServiceConfig::Restart::Always;
            else if (policy == QLatin1String("onFailure"))
                config.restart = ServiceConfig::Restart::OnFailure;
            else if (policy == QLatin1String("never"))
                config.restart = ServiceConfig::Restart::Never;
            else
                inner.problem(
                    value->place,
                    QStringLiteral("\"policy\" is \"always\", \"onFailure\" or \"never\", not \"%1\"").arg(policy));
        }
        inner.number("backOffMs", config.backOff, 0, maxInt);
        config.maxBackOff = std::max(config.maxBackOff, config.backOff);
        const JsonValue* max = inner.number("maxBackOffMs", config.maxBackOff, 0, maxInt);
        if (max && config.maxBackOff < config.backOff)
            inner.problem(max->place, QStringLiteral("\"maxBackOffMs\" is at least \"backOffMs\""));
        inner.number("limit", config.limit, 0, maxInt);
        inner.number("healthyMs", config.healthy, 0, maxInt);
    }

    void readRestartOnChanged(Members& members, ServiceConfig& config)
    {
        for (const JsonValue& value : members.texts("restartOnChanged")) {
            const CMPath path = CMPath::fromEncoded(value.scalar.toString());
            if (!isId(path.prefix()) || path.base().isEmpty())
                members.problem(value.place, QStringLiteral("no path: \"%1\"").arg(value.scalar.toString()));
            else if (config.restart == ServiceConfig::Restart::Never)
                members.problem(value.place, QStringLiteral("the restart policy is \"never\""));
            config.restartOnChanged.append(path);
        }
    }

    void linkDependencies()
    {
        for (Entry& entry : m_entries) {
            for (const Dependency& dependency : qAsConst(entry.after)) {
                if (!m_indexes.contains(dependency.id))
                    m_problems.append(
                        {dependency.place, QStringLiteral("no service has the id \"%1\"").arg(dependency.id)});
                entry.config.after.append(dependency.id);
            }
        }
    }

    void order(Config& config)
    {
        QVector<Visit> visits(m_entries.size(), Visit::No);
        QList<int> chain;
        for (int i = 0; i < m_entries.size(); ++i)
            visit(i, visits, chain, config);
    }

    /// Chains are as long as there are services at most, which keeps the recursion in bounds.
    void visit(int index, QVector<Visit>& visits, QList<int>& chain, Config& config)
    {
        if (visits.at(index) != Visit::No)
            return;
        visits[index] = Visit::Begun;
        chain.append(index);
        for (const Dependency& dependency : qAsConst(m_entries.at(index).after)) {
            const int next = m_indexes.value(dependency.id);
            if (visits.at(next) != Visit::Begun) {
                visit(next, visits, chain, config);
                continue;
            }
            QStringList circle;
            for (int i = chain.indexOf(next); i < chain.size(); ++i)
                circle.append(m_entries.at(chain.at(i)).config.id);
            m_problems.append({dependency.place, QStringLiteral("services that wait for each other: %1")
                                                     .arg((circle << dependency.id).join(QLatin1String(" after ")))});
        }
        chain.removeLast();
        visits[index] = Visit::Done;
        config.append(m_entries.at(index).config);
    }

    QList<Problem> m_problems;
    QList<Entry> m_entries;
    QHash<QString, int> m_indexes;
};

} // namespace

QList<Problem> readConfig(const QByteArray& text, Config& config)
{
    config.clear();
    return ConfigReader().read(text, config);
}
