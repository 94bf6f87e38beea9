#pragma once

#include <cstddef>
#include <malloc.h>

#ifdef __SANITIZE_ADDRESS__
// Declared by a header that only clang installs.
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#endif

/// Bytes that the process has taken from the heap and not given back, also where a sanitizer holds the heap.
inline size_t heapBytesInUse()
{
#ifdef __SANITIZE_ADDRESS__
    return __sanitizer_get_current_allocated_bytes();
#else
    return mallinfo2().uordblks;
#endif
}
