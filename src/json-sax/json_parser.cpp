// One state machine, in one file for all its length: what a byte does is read beside the states that it leads to.

#include "json_sax.h"
#include "json_text_p.h"

#include <cstdlib>
#include <cstring>

using json::skipPlain;
using json::utf8Lead;
using json::Utf8Lead;

namespace {

enum State : uint8_t {
    // Between tokens. White space and comments may stand here.
    Start,
    ArrayFirst,
    ArrayNext,
    ObjectFirst,
    ObjectNext,
    Colon,
    MemberValue,
    AfterValue,
    Done,
    // Inside of a string.
    String,
    Escape,
    Hex,
    LowBackslash,
    LowU,
    // Inside of a number; a number is complete in Zero, Integer, Fraction and Exponent.
    Minus,
    Zero,
    Integer,
    Point,
    Fraction,
    ExponentMark,
    ExponentSign,
    Exponent,
    Literal,
    // Inside of a comment.
    Slash,
    BlockComment,
    BlockCommentStar,
    LineComment
};

enum Container : uint8_t { Array, Object };

bool isDigit(uint8_t byte)
{
    return uint8_t(byte - '0') <= 9;
}

bool isSpace(uint8_t byte)
{
    return byte == ' ' || byte == '\n' || byte == '\r' || byte == '\t';
}

int misplaced(uint8_t byte)
{
    return byte < 0x20 && !isSpace(byte) ? JSON_ERROR_BAD_CHARACTER : JSON_ERROR_UNEXPECTED_CHARACTER;
}

void* reallocate(const json_parser* parser, void* memory, size_t size)
{
    return parser->config.reallocate ? parser->config.reallocate(memory, size) : std::realloc(memory, size);
}

void release(const json_parser* parser, void* memory)
{
    if (parser->config.reallocate)
        parser->config.reallocate(memory, 0);
    else
        std::free(memory);
}

int emit(json_parser* parser, int type, const char* data = nullptr, uint32_t length = 0)
{
    return parser->callback && parser->callback(parser->userdata, type, data, length) ? JSON_ERROR_CALLBACK : 0;
}

bool isTooLong(const json_parser* parser, uint64_t length)
{
    return length > (parser->config.max_data ? parser->config.max_data : UINT32_MAX);
}

int append(json_parser* parser, const void* data, size_t size)
{
    const uint64_t needed = uint64_t(parser->buffer_length) + size;
    if (isTooLong(parser, needed))
        return JSON_ERROR_DATA_LIMIT;
    // One byte more, for the NUL behind a number.
    if (needed >= parser->buffer_capacity) {
        uint64_t capacity = parser->buffer_capacity ? parser->buffer_capacity : 128;
        while (capacity <= needed)
            capacity *= 2;
        if (capacity > UINT32_MAX)
            capacity = UINT32_MAX;
        if (capacity <= needed)
            return JSON_ERROR_DATA_LIMIT;
        void* const grown = reallocate(parser, parser->buffer, size_t(capacity));
        if (!grown)
            return JSON_ERROR_NO_MEMORY;
        parser->buffer = static_cast<char*>(grown);
        parser->buffer_capacity = uint32_t(capacity);
    }
    if (size)
        std::memcpy(parser->buffer + parser->buffer_length, data, size);
    parser->buffer_length = uint32_t(needed);
    return 0;
}

int appendCodePoint(json_parser* parser, uint32_t codePoint)
{
    uint8_t bytes[4];
    size_t size = 0;
    if (codePoint < 0x80) {
        bytes[size++] = uint8_t(codePoint);
    } else if (codePoint < 0x800) {
        bytes[size++] = uint8_t(0xC0 | codePoint >> 6);
        bytes[size++] = uint8_t(0x80 | (codePoint & 0x3F));
    } else if (codePoint < 0x10000) {
        bytes[size++] = uint8_t(0xE0 | codePoint >> 12);
        bytes[size++] = uint8_t(0x80 | (codePoint >> 6 & 0x3F));
        bytes[size++] = uint8_t(0x80 | (codePoint & 0x3F));
    } else {
        bytes[size++] = uint8_t(0xF0 | codePoint >> 18);
        bytes[size++] = uint8_t(0x80 | (codePoint >> 12 & 0x3F));
        bytes[size++] = uint8_t(0x80 | (codePoint >> 6 & 0x3F));
        bytes[size++] = uint8_t(0x80 | (codePoint & 0x3F));
    }
    return append(parser, bytes, size);
}

int open(json_parser* parser, Container container)
{
    if (parser->config.max_nesting && parser->depth == parser->config.max_nesting)
        return JSON_ERROR_NESTING_LIMIT;
    if (parser->depth == parser->stack_capacity) {
        const bool isInline = parser->stack == parser->inline_stack;
        const size_t capacity = size_t(parser->stack_capacity) * 2;
        if (capacity > UINT32_MAX)
            return JSON_ERROR_NESTING_LIMIT;
        void* const grown = reallocate(parser, isInline ? nullptr : parser->stack, capacity);
        if (!grown)
            return JSON_ERROR_NO_MEMORY;
        if (isInline)
            std::memcpy(grown, parser->inline_stack, parser->depth);
        parser->stack = static_cast<uint8_t*>(grown);
        parser->stack_capacity = uint32_t(capacity);
    }
    parser->stack[parser->depth++] = container;
    parser->state = container == Array ? ArrayFirst : ObjectFirst;
    return emit(parser, container == Array ? JSON_ARRAY_BEGIN : JSON_OBJECT_BEGIN);
}

int close(json_parser* parser, Container container)
{
    if (!parser->depth)
        return JSON_ERROR_STACK_EMPTY;
    if (parser->stack[parser->depth - 1] != container)
        return JSON_ERROR_WRONG_ITEM;
    --parser->depth;
    parser->state = parser->depth ? AfterValue : Done;
    const int error = emit(parser, container == Array ? JSON_ARRAY_END : JSON_OBJECT_END);
    if (!error)
        parser->done = parser->state == Done;
    return error;
}

void startString(json_parser* parser, bool isKey)
{
    parser->in_key = isKey;
    parser->buffer_length = 0;
    parser->state = String;
}

int endString(json_parser* parser, const uint8_t* run, size_t size)
{
    const char* text = reinterpret_cast<const char*>(run);
    if (parser->buffer_length) {
        if (const int error = append(parser, run, size))
            return error;
        text = parser->buffer;
        size = parser->buffer_length;
    } else if (isTooLong(parser, size)) {
        return JSON_ERROR_DATA_LIMIT;
    }
    parser->state = parser->in_key ? Colon : AfterValue;
    return emit(parser, parser->in_key ? JSON_KEY : JSON_STRING, text, uint32_t(size));
}

/// Goes on in a string up to its end, to behind a backslash, or to the end of the piece.
int scanString(json_parser* parser, const uint8_t*& cursor, const uint8_t* end)
{
    const uint8_t* const run = cursor;
    const uint8_t* p = cursor;
    Utf8Lead sequence = {parser->utf8_left, parser->utf8_low, parser->utf8_high};
    for (;;) {
        while (sequence.left && p != end) {
            if (*p < sequence.low || *p > sequence.high) {
                cursor = p;
                return JSON_ERROR_INVALID_UTF8;
            }
            sequence = {uint8_t(sequence.left - 1), 0x80, 0xBF};
            ++p;
        }
        p = skipPlain(p, end);
        if (p == end)
            break;
        cursor = p;
        if (*p == '"') {
            if (const int error = endString(parser, run, size_t(p - run)))
                return error;
            parser->utf8_left = 0;
            cursor = p + 1;
            return 0;
        }
        if (*p == '\\') {
            if (const int error = append(parser, run, size_t(p - run)))
                return error;
            parser->utf8_left = 0;
            parser->state = Escape;
            cursor = p + 1;
            return 0;
        }
        if (*p < 0x20)
            return misplaced(*p);
        sequence = utf8Lead(*p);
        if (!sequence.left)
            return JSON_ERROR_INVALID_UTF8;
        ++p;
    }
    parser->utf8_left = sequence.left;
    parser->utf8_low = sequence.low;
    parser->utf8_high = sequence.high;
    cursor = end;
    return append(parser, run, size_t(end - run));
}

int takeEscape(json_parser* parser, uint8_t byte)
{
    char plain;
    switch (byte) {
    case '"':
    case '\\':
    case '/':
        plain = char(byte);
        break;
    case 'b':
        plain = '\b';
        break;
    case 'f':
        plain = '\f';
        break;
    case 'n':
        plain = '\n';
        break;
    case 'r':
        plain = '\r';
        break;
    case 't':
        plain = '\t';
        break;
    case 'u':
        parser->hex_digits = 0;
        parser->hex_value = 0;
        parser->state = Hex;
        return 0;
    default:
        return misplaced(byte);
    }
    parser->state = String;
    return append(parser, &plain, 1);
}

int takeHexDigit(json_parser* parser, uint8_t byte)
{
    unsigned digit;
    if (isDigit(byte))
        digit = unsigned(byte - '0');
    else if (byte >= 'a' && byte <= 'f')
        digit = unsigned(byte - 'a' + 10);
    else if (byte >= 'A' && byte <= 'F')
        digit = unsigned(byte - 'A' + 10);
    else
        return misplaced(byte);

    const uint32_t unit = uint32_t(parser->hex_value) << 4 | digit;
    parser->hex_value = uint16_t(unit);
    if (++parser->hex_digits < 4)
        return 0;

    const bool isLow = unit >= 0xDC00 && unit <= 0xDFFF;
    if (parser->high_surrogate) {
        if (!isLow)
            return JSON_ERROR_MISSING_LOW_SURROGATE;
        const uint32_t codePoint = 0x10000 + ((uint32_t(parser->high_surrogate) - 0xD800) << 10) + (unit - 0xDC00);
        parser->high_surrogate = 0;
        parser->state = String;
        return appendCodePoint(parser, codePoint);
    }
    if (isLow)
        return JSON_ERROR_UNEXPECTED_LOW_SURROGATE;
    if (unit >= 0xD800 && unit <= 0xDBFF) {
        parser->high_surrogate = uint16_t(unit);
        parser->state = LowBackslash;
        return 0;
    }
    parser->state = String;
    return appendCodePoint(parser, unit);
}

void startNumber(json_parser* parser, uint8_t first)
{
    parser->buffer_length = 0;
    parser->state = first == '-' ? Minus : first == '0' ? Zero : Integer;
}

int endNumber(json_parser* parser, const uint8_t* run, size_t size)
{
    const int type = parser->state == Zero || parser->state == Integer ? JSON_INT : JSON_FLOAT;
    parser->state = AfterValue;
    if (!parser->buffer_length && size < JSON_NUMBER_SPACE) {
        if (isTooLong(parser, size))
            return JSON_ERROR_DATA_LIMIT;
        char text[JSON_NUMBER_SPACE];
        std::memcpy(text, run, size);
        text[size] = '\0';
        return emit(parser, type, text, uint32_t(size));
    }
    if (const int error = append(parser, run, size))
        return error;
    parser->buffer[parser->buffer_length] = '\0';
    return emit(parser, type, parser->buffer, parser->buffer_length);
}

/// Goes on in a number up to the byte behind it or the end of the piece. `run` is where it began in this piece.
int scanNumber(json_parser* parser, const uint8_t* run, const uint8_t*& cursor, const uint8_t* end)
{
    const uint8_t* p = cursor;
    uint8_t state = parser->state;
    for (;; ++p) {
        if (p == end) {
            parser->state = state;
            cursor = p;
            return append(parser, run, size_t(p - run));
        }
        const uint8_t byte = *p;
        switch (state) {
        case Minus:
            if (byte == '0')
                state = Zero;
            else if (isDigit(byte))
                state = Integer;
            else
                break;
            continue;
        case Integer:
            if (isDigit(byte))
                continue;
            [[fallthrough]];
        case Zero:
            if (byte == '.')
                state = Point;
            else if (byte == 'e' || byte == 'E')
                state = ExponentMark;
            else
                break;
            continue;
        case Point:
        case Fraction:
            if (isDigit(byte))
                state = Fraction;
            else if (state == Fraction && (byte == 'e' || byte == 'E'))
                state = ExponentMark;
            else
                break;
            continue;
        case ExponentMark:
            if (byte == '+' || byte == '-') {
                state = ExponentSign;
                continue;
            }
            [[fallthrough]];
        default: // ExponentSign, Exponent
            if (!isDigit(byte))
                break;
            state = Exponent;
            continue;
        }
        cursor = p;
        parser->state = state;
        if (state == Zero || state == Integer || state == Fraction || state == Exponent)
            return endNumber(parser, run, size_t(p - run));
        return misplaced(byte);
    }
}

/// `parser->literal` is what is still to come of a literal; the one it belongs to is told by its last letters.
int scanLiteral(json_parser* parser, const uint8_t*& cursor, const uint8_t* end)
{
    for (; cursor != end; ++cursor) {
        if (*cursor != uint8_t(*parser->literal))
            return misplaced(*cursor);
        if (*++parser->literal)
            continue;
        const char last = parser->literal[-1];
        const char beforeLast = parser->literal[-2];
        ++cursor;
        parser->state = AfterValue;
        return emit(parser, last == 'l' ? JSON_NULL : beforeLast == 's' ? JSON_FALSE : JSON_TRUE);
    }
    return 0;
}

/// Where a value may begin. The cursor stands on the byte and goes behind the token, or as far as the piece goes.
int startValue(json_parser* parser, const uint8_t*& cursor, const uint8_t* end)
{
    const uint8_t byte = *cursor;
    switch (byte) {
    case '"':
        startString(parser, false);
        return scanString(parser, ++cursor, end);
    case '-':
    case '0':
    case '1':
    case '2':
    case '3':
    case '4':
    case '5':
    case '6':
    case '7':
    case '8':
    case '9': {
        startNumber(parser, byte);
        const uint8_t* const run = cursor;
        return scanNumber(parser, run, ++cursor, end);
    }
    case '[':
    case '{':
        if (const int error = open(parser, byte == '[' ? Array : Object))
            return error;
        ++cursor;
        return 0;
    case 't':
    case 'f':
    case 'n':
        parser->literal = byte == 't' ? "true" : byte == 'f' ? "false" : "null";
        parser->state = Literal;
        return scanLiteral(parser, cursor, end);
    case ',':
        return JSON_ERROR_COMMA;
    case ']':
    case '}': {
        const Container container = byte == ']' ? Array : Object;
        if (parser->stack[parser->depth - 1] != container)
            return JSON_ERROR_WRONG_ITEM;
        return parser->state == ArrayNext ? JSON_ERROR_COMMA : JSON_ERROR_UNEXPECTED_CHARACTER;
    }
    default:
        return misplaced(byte);
    }
}

/// Where a key or the end of an object may stand.
int startKey(json_parser* parser, const uint8_t*& cursor, const uint8_t* end)
{
    switch (*cursor) {
    case '"':
        startString(parser, true);
        return scanString(parser, ++cursor, end);
    case '}':
        if (parser->state == ObjectNext)
            return JSON_ERROR_COMMA;
        if (const int error = close(parser, Object))
            return error;
        ++cursor;
        return 0;
    case ']':
        return JSON_ERROR_WRONG_ITEM;
    case ',':
        return JSON_ERROR_COMMA;
    default:
        return misplaced(*cursor);
    }
}

int takeAfterValue(json_parser* parser, uint8_t byte)
{
    switch (byte) {
    case ',':
        parser->state = parser->stack[parser->depth - 1] == Array ? ArrayNext : ObjectNext;
        return 0;
    case ']':
        return close(parser, Array);
    case '}':
        return close(parser, Object);
    default:
        return misplaced(byte);
    }
}

int takeStart(json_parser* parser, uint8_t byte)
{
    switch (byte) {
    case '[':
        return open(parser, Array);
    case '{':
        return open(parser, Object);
    case ']':
    case '}':
        return JSON_ERROR_STACK_EMPTY;
    case ',':
        return JSON_ERROR_COMMA;
    default:
        return misplaced(byte);
    }
}

void takeInComment(json_parser* parser, uint8_t byte)
{
    switch (parser->state) {
    case BlockComment:
        if (byte == '*')
            parser->state = BlockCommentStar;
        break;
    case BlockCommentStar:
        if (byte == '/')
            parser->state = parser->state_behind_comment;
        else if (byte != '*')
            parser->state = BlockComment;
        break;
    default:
        if (byte == '\n')
            parser->state = parser->state_behind_comment;
        break;
    }
}

/// A byte that begins a comment: true when it was taken care of.
bool takeCommentMark(json_parser* parser, uint8_t byte, int& error)
{
    if (byte != '/' && byte != '#')
        return false;
    if (parser->config.allow_comments) {
        parser->state_behind_comment = parser->state;
        parser->state = byte == '/' ? Slash : LineComment;
    } else {
        error = parser->state == Done ? JSON_ERROR_UNEXPECTED_CHARACTER : JSON_ERROR_NOT_ALLOWED;
    }
    return true;
}

int parse(json_parser* parser, const uint8_t*& cursor, const uint8_t* end)
{
    int error = 0;
    while (cursor != end) {
        const uint8_t byte = *cursor;
        if (parser->state <= Done) {
            if (byte <= ' ' && isSpace(byte)) {
                ++cursor;
                continue;
            }
            if (takeCommentMark(parser, byte, error)) {
                if (error)
                    return error;
                ++cursor;
                continue;
            }
        }
        switch (parser->state) {
        case ArrayFirst:
            if (byte == ']') {
                error = close(parser, Array);
                break;
            }
            [[fallthrough]];
        case ArrayNext:
        case MemberValue:
            if ((error = startValue(parser, cursor, end)))
                return error;
            continue;
        case AfterValue:
            error = takeAfterValue(parser, byte);
            break;
        case ObjectFirst:
        case ObjectNext:
            if ((error = startKey(parser, cursor, end)))
                return error;
            continue;
        case Colon:
            if (byte == ':')
                parser->state = MemberValue;
            else
                error = byte == ',' ? int(JSON_ERROR_COMMA) : misplaced(byte);
            break;
        case String:
            if ((error = scanString(parser, cursor, end)))
                return error;
            continue;
        case Escape:
            error = takeEscape(parser, byte);
            break;
        case Hex:
            error = takeHexDigit(parser, byte);
            break;
        case LowBackslash:
            error = byte == '\\' ? 0 : JSON_ERROR_MISSING_LOW_SURROGATE;
            parser->state = LowU;
            break;
        case LowU:
            error = byte == 'u' ? takeEscape(parser, byte) : JSON_ERROR_MISSING_LOW_SURROGATE;
            break;
        case Literal:
            if ((error = scanLiteral(parser, cursor, end)))
                return error;
            continue;
        case Start:
            error = takeStart(parser, byte);
            break;
        case Done:
            error = JSON_ERROR_UNEXPECTED_CHARACTER;
            break;
        case Slash:
            if (byte == '*')
                parser->state = BlockComment;
            else
                error = misplaced(byte);
            break;
        case BlockComment:
        case BlockCommentStar:
        case LineComment:
            takeInComment(parser, byte);
            break;
        default:
            if ((error = scanNumber(parser, cursor, cursor, end)))
                return error;
            continue;
        }
        if (error)
            return error;
        ++cursor;
    }
    return 0;
}

} // namespace

int json_parser_init(json_parser* parser, const json_config* config, json_parser_callback callback, void* userdata)
{
    // The inline stack is left as it is; depth tells what of it counts.
    std::memset(parser, 0, offsetof(json_parser, inline_stack));
    parser->callback = callback;
    parser->userdata = userdata;
    if (config)
        parser->config = *config;
    else
        parser->config.max_nesting = JSON_DEFAULT_NESTING;
    parser->stack = parser->inline_stack;
    parser->stack_capacity = JSON_DEFAULT_NESTING;
    parser->state = Start;
    return 0;
}

int json_parser_string(json_parser* parser, const char* data, uint32_t length, uint32_t* processed)
{
    const uint8_t* const begin = reinterpret_cast<const uint8_t*>(data);
    const uint8_t* cursor = begin;
    if (!parser->error && length)
        parser->error = parse(parser, cursor, begin + length);
    if (processed)
        *processed = uint32_t(cursor - begin);
    return parser->error;
}

int json_parser_is_done(const json_parser* parser)
{
    const bool inComment = parser->state >= Slash && parser->state != LineComment;
    return parser->done && (parser->error || !inComment);
}

void json_parser_free(json_parser* parser)
{
    if (parser->buffer)
        release(parser, parser->buffer);
    if (parser->stack != parser->inline_stack)
        release(parser, parser->stack);
    parser->buffer = nullptr;
    parser->buffer_capacity = 0;
    parser->buffer_length = 0;
    parser->stack = parser->inline_stack;
    parser->stack_capacity = JSON_DEFAULT_NESTING;
    parser->depth = 0;
    // Nothing may be parsed without another init.
    if (!parser->error)
        parser->error = JSON_ERROR_UNEXPECTED_CHARACTER;
}
