// Counting allocator for the benchmarks: every operator new in the process bumps a counter, so a
// benchmark can report heap allocations per operation next to its time.
#pragma once

#include <cstdint>

namespace tavro_bench {

// Allocations made by this process so far (all threads).
uint64_t allocationCount();

}  // namespace tavro_bench
