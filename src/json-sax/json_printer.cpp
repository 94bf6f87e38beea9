#include "json_sax.h"
#include "json_text_p.h"

#include <cstdlib>
#include <cstring>

namespace {

enum Container : uint8_t { Array, Object };

int flush(json_printer* printer)
{
    const uint32_t length = printer->length;
    printer->length = 0;
    if (length && printer->callback && printer->callback(printer->userdata, printer->text, length))
        return JSON_ERROR_CALLBACK;
    return 0;
}

int put(json_printer* printer, const char* data, uint32_t length)
{
    if (length > JSON_PRINTER_SPACE - printer->length) {
        if (const int error = flush(printer))
            return error;
        if (length > JSON_PRINTER_SPACE) {
            const bool isRefused = printer->callback && printer->callback(printer->userdata, data, length);
            return isRefused ? JSON_ERROR_CALLBACK : 0;
        }
    }
    if (length)
        std::memcpy(printer->text + printer->length, data, length);
    printer->length += length;
    return 0;
}

int put(json_printer* printer, char byte)
{
    if (printer->length == JSON_PRINTER_SPACE)
        if (const int error = flush(printer))
            return error;
    printer->text[printer->length++] = byte;
    return 0;
}

/// The length of the valid UTF-8 sequence at p, 0 when there is none.
uint32_t sequenceLength(const uint8_t* p, const uint8_t* end)
{
    const json::Utf8Lead lead = json::utf8Lead(*p);
    if (!lead.left || end - p <= lead.left || p[1] < lead.low || p[1] > lead.high)
        return 0;
    for (uint32_t i = 2; i <= lead.left; ++i)
        if ((p[i] & 0xC0) != 0x80)
            return 0;
    return lead.left + 1u;
}

int putEscape(json_printer* printer, uint8_t byte)
{
    char escape[6];
    return put(printer, escape, json::writeEscape(byte, escape));
}

int putString(json_printer* printer, const char* data, uint32_t length)
{
    const uint8_t* p = reinterpret_cast<const uint8_t*>(data);
    const uint8_t* const end = p + length;
    const uint8_t* run = p;
    int error = put(printer, '"');
    while (!error) {
        p = json::skipPlain(p, end);
        if (p != end && *p >= 0x80) {
            if (const uint32_t size = sequenceLength(p, end)) {
                p += size;
                continue;
            }
        }
        error = put(printer, reinterpret_cast<const char*>(run), uint32_t(p - run));
        if (error)
            break;
        if (p == end)
            return put(printer, '"');
        error = *p >= 0x80 ? put(printer, "\xEF\xBF\xBD", 3) : putEscape(printer, *p);
        run = ++p;
    }
    return error;
}

int putLine(json_printer* printer)
{
    int error = put(printer, '\n');
    for (size_t i = 0; i < printer->depth && !error; ++i)
        error = put(printer, "  ", 2);
    return error;
}

bool isInObject(const json_printer* printer)
{
    return printer->depth && printer->stack[printer->depth - 1] == Object;
}

int push(json_printer* printer, Container container)
{
    if (printer->depth == printer->stack_capacity) {
        const bool isInline = printer->stack == printer->inline_stack;
        const size_t capacity = printer->stack_capacity * 2;
        void* const grown = std::realloc(isInline ? nullptr : printer->stack, capacity);
        if (!grown)
            return JSON_ERROR_NO_MEMORY;
        if (isInline)
            std::memcpy(grown, printer->inline_stack, printer->depth);
        printer->stack = static_cast<uint8_t*>(grown);
        printer->stack_capacity = capacity;
    }
    printer->stack[printer->depth++] = container;
    printer->has_members = 0;
    return 0;
}

/// The comma and white space ahead of an element, a key or a value.
int begin(json_printer* printer, bool isKey, bool isPretty)
{
    if (isKey != (isInObject(printer) && !printer->after_key) || printer->done)
        return JSON_ERROR_UNEXPECTED_CHARACTER;
    if (printer->after_key) {
        printer->after_key = 0;
        return 0;
    }
    if (!printer->depth)
        return 0;
    if (printer->has_members)
        if (const int error = put(printer, ','))
            return error;
    printer->has_members = 1;
    return isPretty ? putLine(printer) : 0;
}

/// Behind a value; the top-level one is handed out at once.
int end(json_printer* printer)
{
    if (printer->depth)
        return 0;
    printer->done = 1;
    return flush(printer);
}

int pop(json_printer* printer, Container container, bool isPretty)
{
    if (!printer->depth)
        return JSON_ERROR_STACK_EMPTY;
    if (printer->stack[printer->depth - 1] != container)
        return JSON_ERROR_WRONG_ITEM;
    if (printer->after_key)
        return JSON_ERROR_UNEXPECTED_CHARACTER;
    const bool hadMembers = printer->has_members;
    --printer->depth;
    printer->has_members = 1;
    if (isPretty && hadMembers)
        if (const int error = putLine(printer))
            return error;
    if (const int error = put(printer, container == Array ? ']' : '}'))
        return error;
    return end(printer);
}

int putToken(json_printer* printer, int type, const char* data, uint32_t length, bool isPretty)
{
    int error;
    switch (type) {
    case JSON_ARRAY_END:
        return pop(printer, Array, isPretty);
    case JSON_OBJECT_END:
        return pop(printer, Object, isPretty);
    case JSON_ARRAY_BEGIN:
    case JSON_OBJECT_BEGIN:
        if ((error = begin(printer, false, isPretty)))
            return error;
        if ((error = put(printer, type == JSON_ARRAY_BEGIN ? '[' : '{')))
            return error;
        return push(printer, type == JSON_ARRAY_BEGIN ? Array : Object);
    case JSON_KEY:
        if ((error = begin(printer, true, isPretty)))
            return error;
        if ((error = putString(printer, data, length)))
            return error;
        printer->after_key = 1;
        return isPretty ? put(printer, ": ", 2) : put(printer, ':');
    case JSON_STRING:
        if ((error = begin(printer, false, isPretty)))
            return error;
        if ((error = putString(printer, data, length)))
            return error;
        return end(printer);
    case JSON_INT:
    case JSON_FLOAT:
        break;
    case JSON_TRUE:
        data = "true";
        length = 4;
        break;
    case JSON_FALSE:
        data = "false";
        length = 5;
        break;
    case JSON_NULL:
        data = "null";
        length = 4;
        break;
    default:
        return JSON_ERROR_UNEXPECTED_CHARACTER;
    }
    if ((error = begin(printer, false, isPretty)))
        return error;
    if ((error = put(printer, data, length)))
        return error;
    return end(printer);
}

} // namespace

int json_print_init(json_printer* printer, json_printer_callback callback, void* userdata)
{
    std::memset(printer, 0, offsetof(json_printer, inline_stack));
    printer->callback = callback;
    printer->userdata = userdata;
    printer->stack = printer->inline_stack;
    printer->stack_capacity = JSON_PRINTER_NESTING;
    return 0;
}

int json_print_raw(json_printer* printer, int type, const char* data, uint32_t length)
{
    if (!printer->error)
        printer->error = putToken(printer, type, data, length, false);
    return printer->error;
}

int json_print_pretty(json_printer* printer, int type, const char* data, uint32_t length)
{
    if (!printer->error)
        printer->error = putToken(printer, type, data, length, true);
    return printer->error;
}

int json_print_free(json_printer* printer)
{
    if (!printer->error)
        printer->error = flush(printer);
    if (!printer->error && printer->depth)
        printer->error = JSON_ERROR_WRONG_ITEM;
    if (printer->stack != printer->inline_stack)
        std::free(printer->stack);
    printer->stack = printer->inline_stack;
    printer->stack_capacity = JSON_PRINTER_NESTING;
    printer->depth = 0;
    return printer->error;
}
