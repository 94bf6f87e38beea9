#pragma once

#include <cstdint>

/**
 * Counts what all threads of the process take from the heap, by malloc() and its siblings and so by operator new too,
 * from the moment it is made.
 *
 *     AllocationCounter allocations;
 *     for (auto _ : state) ...
 *     state.counters["allocations"] = benchmark::Counter(allocations.count(), benchmark::Counter::kAvgIterations);
 *
 * Linking allocations.cpp replaces malloc() of the program. A realloc() counts as one allocation of the new size. While
 * there is no counter, nothing is counted and next to nothing spent.
 */
class AllocationCounter
{
public:
    AllocationCounter();
    ~AllocationCounter();
    AllocationCounter(const AllocationCounter&) = delete;
    AllocationCounter& operator=(const AllocationCounter&) = delete;

    uint64_t count() const;
    uint64_t bytes() const;

private:
    uint64_t m_startCount;
    uint64_t m_startBytes;
};
