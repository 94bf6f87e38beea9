#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

/// What each program reads one input with: bytes of a stranger, as they are. Ends the process when something is wrong.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

/// An invariant of what is read, whatever the input.
#define FUZZ_CHECK(condition)                                                                                          \
    do {                                                                                                               \
        if (!(condition)) {                                                                                            \
            std::fprintf(stderr, "%s:%d: %s does not hold\n", __FILE__, __LINE__, #condition);                         \
            std::abort();                                                                                              \
        }                                                                                                              \
    } while (false)
