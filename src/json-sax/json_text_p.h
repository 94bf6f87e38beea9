#pragma once

#include <cstdint>
#include <cstring>

// What those who read and write JSON know about the inside of a string.
namespace json {

struct Utf8Lead {
    uint8_t left;
    uint8_t low;
    uint8_t high;
};

/// How a UTF-8 sequence goes on behind its first byte. The bounds of the second byte keep overlong forms, surrogates
/// and what lies behind U+10FFFF out; `left` is 0 for a byte that starts no sequence.
inline Utf8Lead utf8Lead(uint8_t byte)
{
    if (byte >= 0xC2 && byte <= 0xDF)
        return {1, 0x80, 0xBF};
    if (byte >= 0xE0 && byte <= 0xEF)
        return {2, uint8_t(byte == 0xE0 ? 0xA0 : 0x80), uint8_t(byte == 0xED ? 0x9F : 0xBF)};
    if (byte >= 0xF0 && byte <= 0xF4)
        return {3, uint8_t(byte == 0xF0 ? 0x90 : 0x80), uint8_t(byte == 0xF4 ? 0x8F : 0xBF)};
    return {0, 0, 0};
}

/// The first byte of a string that is not to be taken as it stands: quote, backslash, control character, beyond ASCII.
inline const uint8_t* skipPlain(const uint8_t* p, const uint8_t* end)
{
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    constexpr uint64_t ones = 0x0101010101010101u;
    while (end - p >= 8) {
        uint64_t eight;
        std::memcpy(&eight, p, 8);
        // The top bit of a byte gets set where the byte is special. A borrow may set bits above the first of these,
        // which do not count.
        const uint64_t special =
            (eight | (eight - ones * 0x20) | ((eight ^ ones * '"') - ones) | ((eight ^ ones * '\\') - ones))
            & (ones * 0x80);
        if (special)
            return p + (__builtin_ctzll(special) >> 3);
        p += 8;
    }
#endif
    while (p != end && *p >= 0x20 && *p < 0x80 && *p != '"' && *p != '\\')
        ++p;
    return p;
}

/// Writes the escape of a quote, a backslash or a control character, and returns its length.
inline uint32_t writeEscape(uint8_t byte, char (&escape)[6])
{
    static const char hexDigits[] = "0123456789abcdef";
    escape[0] = '\\';
    escape[1] = char(byte);
    switch (byte) {
    case '"':
    case '\\':
        return 2;
    case '\b':
        escape[1] = 'b';
        return 2;
    case '\f':
        escape[1] = 'f';
        return 2;
    case '\n':
        escape[1] = 'n';
        return 2;
    case '\r':
        escape[1] = 'r';
        return 2;
    case '\t':
        escape[1] = 't';
        return 2;
    }
    escape[1] = 'u';
    escape[2] = '0';
    escape[3] = '0';
    escape[4] = hexDigits[byte >> 4];
    escape[5] = hexDigits[byte & 15];
    return 6;
}

} // namespace json
