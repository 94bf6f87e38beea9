// JSON: a text in pieces is the text as a whole; what is read and printed is read again as the same.

#include "fuzz.h"

#include "core/orvoJson.h"
#include "json_sax.h"
#include "records/orvoerror.h"

#include <QVariant>

#include <algorithm>
#include <log4cplus/logger.h>
#include <string>
#include <vector>

namespace {

struct Outcome
{
    std::string tokens;
    int error = 0;
    int isDone = 0;
    uint64_t processed = 0;

    bool operator==(const Outcome& other) const
    {
        return tokens == other.tokens && error == other.error && isDone == other.isDone && processed == other.processed;
    }
};

int note(void* userdata, int type, const char* data, uint32_t length)
{
    auto& tokens = *static_cast<std::string*>(userdata);
    tokens += static_cast<char>('a' + type);
    tokens.append(reinterpret_cast<const char*>(&length), sizeof length);
    if (length > 0)
        tokens.append(data, length);
    return 0;
}

/// Pieces of so many bytes, and the rest at once behind the last.
Outcome parse(const char* text, size_t size, const std::vector<size_t>& pieces, bool comments)
{
    json_config config = {};
    config.max_nesting = 64;
    config.max_data = 1000;
    config.allow_comments = comments;
    Outcome outcome;
    json_parser parser;
    FUZZ_CHECK(json_parser_init(&parser, &config, &note, &outcome.tokens) == 0);
    size_t from = 0;
    for (size_t i = 0; from < size && outcome.error == 0; ++i) {
        const size_t length = i < pieces.size() ? std::min(pieces[i], size - from) : size - from;
        // A copy of its own lets a sanitizer see a read beyond the piece.
        const std::vector<char> piece(text + from, text + from + length);
        uint32_t processed = 0;
        outcome.error = json_parser_string(&parser, piece.data(), uint32_t(length), &processed);
        FUZZ_CHECK(processed <= length);
        FUZZ_CHECK(outcome.error != 0 || processed == length);
        outcome.processed += processed;
        from += length;
    }
    outcome.isDone = json_parser_is_done(&parser);
    json_parser_free(&parser);
    return outcome;
}

} // namespace

/// The first eight bytes say where the text behind them is cut.
int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    constexpr size_t head = 8;
    if (size < head)
        return 0;
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::OFF_LOG_LEVEL);
    std::vector<size_t> pieces;
    for (size_t i = 0; i < head; ++i)
        pieces.push_back(data[i]);
    const auto* const text = reinterpret_cast<const char*>(data + head);
    size -= head;
    for (const bool comments : {false, true}) {
        const Outcome whole = parse(text, size, {}, comments);
        FUZZ_CHECK(parse(text, size, pieces, comments) == whole);
        FUZZ_CHECK(parse(text, size, std::vector<size_t>(size, 1), comments) == whole);
    }

    const QByteArray bytes(text, int(size));
    OrvoError error;
    unsigned processed = 0;
    const QVariant value = OrvoJson::parse(bytes, error, &processed);
    // A value that stands alone is read between brackets, which count when it is no good one.
    FUZZ_CHECK(processed <= size + (error.isEmpty() ? 0 : 2));
    if (error.isEmpty()) {
        const QByteArray printed = OrvoJson::serialize(value);
        FUZZ_CHECK(OrvoJson::parse(printed, error) == value);
        FUZZ_CHECK(error.isEmpty());
        FUZZ_CHECK(OrvoJson::parse(OrvoJson::serializePretty(value), error) == value);
        FUZZ_CHECK(error.isEmpty());
    }

    const QString string = QString::fromUtf8(bytes);
    FUZZ_CHECK(OrvoJson::unescape(OrvoJson::escape(string), error) == string);
    FUZZ_CHECK(error.isEmpty());
    OrvoJson::unescape(string, error);
    return 0;
}
