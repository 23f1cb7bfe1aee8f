#pragma once

/// Counts what the code linked into a test takes from the heap and gives back, and lets a chosen request fail. Needs the link options of
/// cm_watch_allocations. For one thread.

#include <cstddef>

namespace reference {

struct Allocations {
    std::size_t taken = 0;  // requests that succeeded: malloc and its kin, operator new
    std::size_t freed = 0;  // blocks given to free
};

/// Since the program began.
Allocations CountedAllocations();

/// The n-th request from now (1 = the next) fails, once; 0 takes that back.
void FailAllocation(std::size_t n);

/// What `work` takes.
template <typename Work>
std::size_t AllocationsDuring(Work work) {
    const std::size_t before = CountedAllocations().taken;
    work();
    return CountedAllocations().taken - before;
}

}  // namespace reference
