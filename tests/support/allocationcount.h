#pragma once

#include <cstdlib>

// Counts what the calling thread allocates. Replaces the allocator's entry points of the program, so it is for one
// source file of a test program.

namespace AllocationCount {

inline thread_local bool s_counting = false;
inline thread_local int s_allocations = 0;

inline void countAllocation()
{
    if (s_counting)
        ++s_allocations;
}

} // namespace AllocationCount

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
// Sanitizers have an allocator of their own, which offers a hook.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void*, size_t),
                                                         void (*)(const volatile void*));

static const int s_hooked = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, size_t) { AllocationCount::countAllocation(); }, [](const volatile void*) {});
#else
extern "C" {

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);

void* malloc(size_t size)
{
    AllocationCount::countAllocation();
    return __libc_malloc(size);
}

void* calloc(size_t count, size_t size)
{
    AllocationCount::countAllocation();
    return __libc_calloc(count, size);
}

void* realloc(void* memory, size_t size)
{
    AllocationCount::countAllocation();
    return __libc_realloc(memory, size);
}

} // extern "C"
#endif

/// How often the function allocates in this thread.
template <typename Function>
int allocationsOf(Function function)
{
    AllocationCount::s_allocations = 0;
    AllocationCount::s_counting = true;
    function();
    AllocationCount::s_counting = false;
    return AllocationCount::s_allocations;
}
