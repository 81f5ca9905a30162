// The wall that no exception gets through: every task that reaches a thread is entered here.
#pragma once

#include <exception>

#include "threads/parallelizer.h"

namespace orl {

/// Runs task.run(index). If it throws: prints the exception and "FATAL ERROR: Unhandled exception in child
/// thread." as its kind demands, and ends the process with status 1.
void run_task(ParallelTask& task, u64 index);

/// run_task() for a task that a pool worker runs: the report opens with "PushPoolWorker: An exception was
/// thrown from a task.".
void run_task_in_pool(ParallelTask& task, u64 index);

}  // namespace orl
