#ifndef JSON_SAX_H
#define JSON_SAX_H

/*
 * A streaming JSON parser and printer with a C interface.
 *
 * The parser takes a text in one or more pieces, cut at any byte, and calls back for each token; the printer takes the
 * same tokens and calls back with text. Both states are plain structures that the caller owns, and both need memory
 * from the heap only for what is unusually long or deep. Neither recurses. A state is used by one thread at a time;
 * different states share nothing.
 *
 * The fields of the state structures are for the library alone.
 */

/* NOLINTBEGIN(modernize-*): for C, too */

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The tokens, in both directions. */
enum json_type {
    JSON_ARRAY_BEGIN = 1,
    JSON_OBJECT_BEGIN = 2,
    JSON_ARRAY_END = 3,
    JSON_OBJECT_END = 4,
    JSON_INT = 5,
    JSON_FLOAT = 6,
    JSON_STRING = 7,
    JSON_KEY = 8,
    JSON_TRUE = 9,
    JSON_FALSE = 10,
    JSON_NULL = 11
};

enum json_error {
    JSON_ERROR_NO_MEMORY = 1,
    /* A control character that may stand nowhere in a JSON text. */
    JSON_ERROR_BAD_CHARACTER = 2,
    /* A closing bracket while nothing is open. */
    JSON_ERROR_STACK_EMPTY = 3,
    /* A closing bracket of the other kind; from json_print_free: something is still open. */
    JSON_ERROR_WRONG_ITEM = 4,
    JSON_ERROR_NESTING_LIMIT = 5,
    JSON_ERROR_DATA_LIMIT = 6,
    /* A comment while comments are not allowed. */
    JSON_ERROR_NOT_ALLOWED = 7,
    /* Anything else that the grammar has no place for, at the top level also a value that is no array or object. */
    JSON_ERROR_UNEXPECTED_CHARACTER = 8,
    /* An escaped high surrogate without an escaped low one behind it. */
    JSON_ERROR_MISSING_LOW_SURROGATE = 9,
    JSON_ERROR_UNEXPECTED_LOW_SURROGATE = 10,
    /* A comma where no element or member ends or begins: "[,", "[1,,", "[1,]". */
    JSON_ERROR_COMMA = 11,
    JSON_ERROR_CALLBACK = 12,
    JSON_ERROR_INVALID_UTF8 = 13
};

/*
 * One token. A number's text is NUL-terminated and a string or key is not, nor is it free of NUL: `length` counts.
 * Text is valid UTF-8 without escapes and lives until the callback returns. For other tokens data is null and length 0.
 * A result other than 0 stops the parser with JSON_ERROR_CALLBACK.
 */
typedef int (*json_parser_callback)(void* userdata, int type, const char* data, uint32_t length);

typedef struct json_config {
    /* Depth of arrays and objects; 0 is no limit. */
    uint32_t max_nesting;
    /* Bytes of one string, key or number; 0 is no limit but that of `length`. */
    uint32_t max_data;
    /* Other than 0: comments may stand wherever white space may, from slash-star to star-slash and from # to the end
       of the line. */
    int allow_comments;
    /* realloc() by contract; null for realloc() itself. Its memory is given back with size 0 if set, else by free(). */
    void* (*reallocate)(void* memory, size_t size);
} json_config;

/* The nesting that is allowed without a configuration, and the depth up to which no heap is needed. */
enum { JSON_DEFAULT_NESTING = 512, JSON_NUMBER_SPACE = 48, JSON_PRINTER_SPACE = 4000, JSON_PRINTER_NESTING = 48 };

typedef struct json_parser {
    json_parser_callback callback;
    void* userdata;
    json_config config;
    uint8_t* stack;
    char* buffer;
    uint32_t stack_capacity;
    uint32_t depth;
    uint32_t buffer_capacity;
    uint32_t buffer_length;
    int error;
    uint8_t state;
    uint8_t state_behind_comment;
    uint8_t done;
    uint8_t in_key;
    uint8_t utf8_left;
    uint8_t utf8_low;
    uint8_t utf8_high;
    uint8_t hex_digits;
    uint16_t hex_value;
    uint16_t high_surrogate;
    const char* literal;
    uint8_t inline_stack[JSON_DEFAULT_NESTING];
} json_parser;

/*
 * Starts a text. Without a configuration the parser is strict: no comments, 512 levels, data without limit. Without a
 * callback it only checks. Returns 0; every successful call is followed by json_parser_free.
 */
int json_parser_init(json_parser* parser, const json_config* config, json_parser_callback callback, void* userdata);

/*
 * Takes the next piece. Returns 0 or a json_error, and writes to `processed`, where given, how many bytes of this piece
 * were taken: all of them, or those ahead of the offending one. After an error each further call returns it again.
 */
int json_parser_string(json_parser* parser, const char* data, uint32_t length, uint32_t* processed);

/* Other than 0 once one complete array or object was read, also when more than white space followed it. */
int json_parser_is_done(const json_parser* parser);

/* Gives the memory back. Harmless when repeated. */
void json_parser_free(json_parser* parser);

/* A piece of printed text. A result other than 0 stops the printer with JSON_ERROR_CALLBACK. */
typedef int (*json_printer_callback)(void* userdata, const char* data, uint32_t length);

typedef struct json_printer {
    json_printer_callback callback;
    void* userdata;
    uint8_t* stack;
    size_t stack_capacity;
    size_t depth;
    int error;
    uint8_t has_members;
    uint8_t after_key;
    uint8_t done;
    uint32_t length;
    uint8_t inline_stack[JSON_PRINTER_NESTING];
    char text[JSON_PRINTER_SPACE];
} json_printer;

/* Starts a text. Returns 0; every successful call is followed by json_print_free. */
int json_print_init(json_printer* printer, json_printer_callback callback, void* userdata);

/*
 * Print one token of a single top-level value, which may be of any kind; raw without white space, pretty on lines of
 * their own with two spaces for each level. Strings and keys are given as UTF-8 of any content: what needs it is
 * escaped, and each byte that is not valid UTF-8 becomes U+FFFD. Numbers go out as they are given.
 *
 * Text may be kept back until the top-level value is complete. Return 0 or a json_error; a token without a place in
 * the structure is JSON_ERROR_UNEXPECTED_CHARACTER. After an error each further call returns it again.
 */
int json_print_raw(json_printer* printer, int type, const char* data, uint32_t length);
int json_print_pretty(json_printer* printer, int type, const char* data, uint32_t length);

/* Hands out the rest and gives the memory back. Returns the first error of the text. */
int json_print_free(json_printer* printer);

#ifdef __cplusplus
}
#endif

/* NOLINTEND(modernize-*) */

#endif
