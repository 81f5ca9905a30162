// Counts what a process allocates: every malloc, calloc, realloc and aligned allocation, and so every
// operator new.
//
//   AllocationWatch watch;
//   plan.run(...);
//   EXPECT_EQ(watch.calls(), 0);
//
// A test program that uses it links orvane_allocation_counter. The thread sanitizer's allocator does not
// report aligned allocations.
#pragma once

#include "core/types.h"

namespace orl::test {

/// Allocations of this process so far, of all threads.
u64 allocation_calls();

/// Allocations since it was made.
class AllocationWatch {
 public:
  AllocationWatch() : start_(allocation_calls()) {}
  u64 calls() const { return allocation_calls() - start_; }

 private:
  u64 start_;
};

}  // namespace orl::test
