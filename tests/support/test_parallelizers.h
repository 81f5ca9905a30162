// Ways to run a fork in tests.
#pragma once

#include <functional>
#include <string>

#include "threads/parallelizer.h"

namespace orl::test {

/// Runs tasks in the calling thread in the reverse order, so that code which leans on the order of its tasks
/// fails; exceptions pass through. `before_range(n)` is called before the n-th run_range, counted from 0: a
/// test can change memory there, as a failing machine would.
class ReverseOrder : public Parallelizer {
 public:
  void run_pair(ParallelTask& first, ParallelTask& second) override {
    second.run(0);
    first.run(0);
  }
  void run_range(ParallelTask& task, u64 start, u64 end) override {
    if (before_range) before_range(ranges);
    ++ranges;
    for (u64 i = end; i > start; --i) task.run(i - 1);
  }
  const char* key() const override { return "reverse"; }
  const char* name() const override { return "Reverse Order"; }

  std::function<void(u64)> before_range;
  u64 ranges = 0;
};

}  // namespace orl::test
