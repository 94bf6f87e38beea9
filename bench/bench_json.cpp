#include "allocations.h"
#include "core/orvoJson.h"
#include "records/orvoerror.h"

#include <benchmark/benchmark.h>

#include <QDir>
#include <QFile>
#include <QJsonDocument>

#include <cstdlib>

// How long the JSON of a packet takes, against Qt's own JSON and against what making the values alone costs.
// Where ORVO_JSON_SAMPLES names a folder, its *.json are read and printed too.

namespace {

constexpr int Columns = 10;

QVariantList row(int number)
{
    QVariantList row;
    row.reserve(Columns);
    row.append(QStringLiteral("ui:library/albums/%1").arg(number));
    row.append(QStringLiteral("Track number %1").arg(number));
    row.append(QStringLiteral("Some Artist"));
    row.append(QStringLiteral("An Album of Songs"));
    row.append(QStringLiteral("audio"));
    row.append(QStringLiteral("http://10.0.0.7/cover/%1.jpg").arg(number));
    row.append(qlonglong(180000 + number * 37));
    row.append(qlonglong(number));
    row.append(number % 3 == 0);
    row.append(QStringLiteral("flac 44.1 kHz, 16 bit, stereo"));
    return row;
}

/// The reply to a read of so many rows, as it stands in a packet.
QVariantHash reply(int rows)
{
    QVariantList list;
    list.reserve(rows);
    for (int i = 0; i < rows; ++i)
        list.append(QVariant(row(i)));
    QVariantHash value;
    value.insert(QStringLiteral("rows"), list);
    value.insert(QStringLiteral("rowsCount"), qlonglong(rows));
    value.insert(QStringLiteral("rowsVersion"), qlonglong(7));
    QVariantHash reply;
    reply.insert(QStringLiteral("id"), QStringLiteral("client:17"));
    reply.insert(QStringLiteral("value"), value);
    return reply;
}

/// The same content with hashes of roles for rows, where each key comes up in every row.
QVariantHash roleReply(int rows)
{
    static const char* const keys[Columns] = {"path", "title",    "artist", "album",    "type",
                                              "icon", "duration", "index",  "playable", "description"};
    QVariantList list;
    for (int i = 0; i < rows; ++i) {
        const QVariantList values = row(i);
        QVariantHash roles;
        for (int column = 0; column < Columns; ++column)
            roles.insert(QString::fromLatin1(keys[column]), values.at(column));
        list.append(QVariant(roles));
    }
    return {{QStringLiteral("rows"), list}};
}

/// The same with every text made unlike all others, so that nothing can be shared.
QVariant unlike(const QVariant& value, int& count)
{
    switch (value.type()) {
    case QVariant::String: {
        const QString number = QString::number(++count);
        return QString(number + value.toString().mid(number.size()));
    }
    case QVariant::List: {
        QVariantList list;
        for (const QVariant& element : value.toList())
            list.append(unlike(element, count));
        return list;
    }
    case QVariant::Hash: {
        QVariantHash hash = value.toHash();
        for (QVariant& member : hash)
            member = unlike(member, count);
        return hash;
    }
    default:
        return value;
    }
}

/// A copy that shares nothing, made by the calls that a builder needs at least.
QVariant rebuilt(const QVariant& value)
{
    switch (value.type()) {
    case QVariant::String: {
        const auto& text = *static_cast<const QString*>(value.constData());
        return QString(text.constData(), text.size());
    }
    case QVariant::List: {
        QVariantList list;
        for (const QVariant& element : *static_cast<const QVariantList*>(value.constData()))
            list.append(rebuilt(element));
        return list;
    }
    case QVariant::Hash: {
        QVariantHash hash;
        const auto& members = *static_cast<const QVariantHash*>(value.constData());
        for (auto it = members.cbegin(); it != members.cend(); ++it)
            hash.insert(QString(it.key().constData(), it.key().size()), rebuilt(it.value()));
        return hash;
    }
    default:
        return value;
    }
}

template <typename Work>
void measure(benchmark::State& state, int bytes, const Work& work)
{
    const AllocationCounter allocations;
    for (auto _ : state)
        benchmark::DoNotOptimize(work());
    state.counters["allocations"] = benchmark::Counter(double(allocations.count()), benchmark::Counter::kAvgIterations);
    state.SetBytesProcessed(int64_t(state.iterations()) * bytes);
}

QVariant parsed(const QByteArray& json)
{
    OrvoError error;
    return OrvoJson::parse(json, error);
}

void registerFor(const std::string& name, const QVariant& value, const QByteArray& json)
{
    const auto add = [&name](const char* what, const auto& body) {
        benchmark::RegisterBenchmark((name + "/" + what).c_str(), body);
    };
    const int size = json.size();
    add("parse", [=](benchmark::State& state) { measure(state, size, [&] { return parsed(json); }); });
    add("parse/peer:QJsonDocument", [=](benchmark::State& state) {
        measure(state, size, [&] { return QJsonDocument::fromJson(json).toVariant(); });
    });
    add("parse/peer:building the tree alone",
        [=](benchmark::State& state) { measure(state, size, [&] { return rebuilt(value); }); });
    add("print", [=](benchmark::State& state) { measure(state, size, [&] { return OrvoJson::serialize(value); }); });
    add("printPretty",
        [=](benchmark::State& state) { measure(state, size, [&] { return OrvoJson::serializePretty(value); }); });
    add("print/peer:QJsonDocument", [=](benchmark::State& state) {
        measure(state, size, [&] { return QJsonDocument::fromVariant(value).toJson(QJsonDocument::Compact); });
    });
}

void registerAll()
{
    for (const int rows : {1, 10, 100, 1000}) {
        const QVariantHash lists = reply(rows);
        registerFor("listRows/" + std::to_string(rows), lists, OrvoJson::serialize(lists));
    }
    int texts = 0;
    const QVariant unshared = unlike(reply(100), texts);
    registerFor("unlikeRows/100", unshared, OrvoJson::serialize(unshared));
    const QVariantHash roles = roleReply(100);
    registerFor("roleRows/100", roles, OrvoJson::serialize(roles));

    const QDir samples(QString::fromLocal8Bit(qgetenv("ORVO_JSON_SAMPLES")));
    if (!qEnvironmentVariableIsSet("ORVO_JSON_SAMPLES"))
        return;
    for (const QString& name : samples.entryList({QStringLiteral("*.json")}, QDir::Files)) {
        QFile file(samples.filePath(name));
        if (!file.open(QIODevice::ReadOnly))
            continue;
        const QByteArray json = file.readAll();
        registerFor(name.toStdString(), parsed(json), json);
    }
}

[[maybe_unused]] const bool isRegistered = (registerAll(), true);

} // namespace
