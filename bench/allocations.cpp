#include "allocations.h"

#include <atomic>
#include <cerrno>
#include <cstddef>

// The allocator of the C library under the names that stay when malloc() is replaced. Looking the original up by
// dlsym() would itself allocate.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* memory);
}

namespace {

/// The counts of one thread. Only the thread writes, so that no locked instruction slows what is measured.
struct alignas(64) Counts
{
    std::atomic<uint64_t> count{0};
    std::atomic<uint64_t> bytes{0};
};

constexpr unsigned Threads = 256;
Counts ownCounts[Threads];
Counts sharedCounts; // of the threads beyond
std::atomic<unsigned> threads{0};
thread_local Counts* threadCounts = nullptr;
std::atomic<int> counters{0};

void count(size_t size)
{
    if (!threadCounts) {
        const unsigned number = threads.fetch_add(1, std::memory_order_relaxed);
        threadCounts = number < Threads ? &ownCounts[number] : &sharedCounts;
    }
    Counts& counts = *threadCounts;
    if (&counts == &sharedCounts) {
        counts.count.fetch_add(1, std::memory_order_relaxed);
        counts.bytes.fetch_add(size, std::memory_order_relaxed);
        return;
    }
    counts.count.store(counts.count.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    counts.bytes.store(counts.bytes.load(std::memory_order_relaxed) + size, std::memory_order_relaxed);
}

void note(size_t size)
{
    if (counters.load(std::memory_order_relaxed))
        count(size);
}

uint64_t total(std::atomic<uint64_t> Counts::*field)
{
    uint64_t sum = sharedCounts.*field;
    for (const Counts& counts : ownCounts)
        sum += counts.*field;
    return sum;
}

} // namespace

extern "C" {

void* malloc(size_t size)
{
    note(size);
    return __libc_malloc(size);
}

void* calloc(size_t count, size_t size)
{
    note(count * size);
    return __libc_calloc(count, size);
}

void* realloc(void* memory, size_t size)
{
    note(size);
    return __libc_realloc(memory, size);
}

void* memalign(size_t alignment, size_t size)
{
    note(size);
    return __libc_memalign(alignment, size);
}

void* aligned_alloc(size_t alignment, size_t size)
{
    note(size);
    return __libc_memalign(alignment, size);
}

int posix_memalign(void** memory, size_t alignment, size_t size)
{
    note(size);
    *memory = __libc_memalign(alignment, size);
    return *memory ? 0 : ENOMEM;
}

void free(void* memory)
{
    __libc_free(memory);
}

} // extern "C"

AllocationCounter::AllocationCounter() : m_startCount(total(&Counts::count)), m_startBytes(total(&Counts::bytes))
{
    ++counters;
}

AllocationCounter::~AllocationCounter()
{
    --counters;
}

uint64_t AllocationCounter::count() const
{
    return total(&Counts::count) - m_startCount;
}

uint64_t AllocationCounter::bytes() const
{
    return total(&Counts::bytes) - m_startBytes;
}
