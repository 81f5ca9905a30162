// run_range for a framework that only knows pairs: a binary tree of halves.
#pragma once

#include "threads/parallelizer.h"
#include "threads/task_entry.h"

namespace orl {

/// Runs task.run(i) for i in [start, end): one index on the calling thread, more as two halves that are given
/// to parallelizer.run_pair and call its run_range again.
inline void split_range(Parallelizer& parallelizer, ParallelTask& task, u64 start, u64 end) {
  if (start >= end) return;
  if (end - start == 1) return run_task(task, start);
  struct Half final : ParallelTask {
    Half(Parallelizer& p, ParallelTask& t, u64 s, u64 e) : parallelizer(p), task(t), start(s), end(e) {}
    void run(u64) override { parallelizer.run_range(task, start, end); }
    Parallelizer& parallelizer;
    ParallelTask& task;
    u64 start, end;
  };
  const u64 middle = start + (end - start) / 2;
  Half low(parallelizer, task, start, middle);
  Half high(parallelizer, task, middle, end);
  parallelizer.run_pair(low, high);
}

}  // namespace orl
