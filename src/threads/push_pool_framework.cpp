#include "threads/push_pool_framework.h"

#include <array>
#include <cstddef>
#include <new>

#include "config/settings_keys.h"
#include "core/format.h"
#include "system/limits.h"
#include "threads/frameworks.h"
#include "threads/range_split.h"
#include "threads/task_entry.h"

namespace orl {

/// Latches on the stack of the forking thread, waited for and destroyed in reverse order, also when a push
/// throws.
class Parallelizer_PushPool::LatchBatch {
 public:
  LatchBatch() = default;
  LatchBatch(const LatchBatch&) = delete;
  LatchBatch& operator=(const LatchBatch&) = delete;
  ~LatchBatch() {
    while (count_ > 0) {
      TaskLatch& latch = at(--count_);
      latch.finish();
      latch.~TaskLatch();
    }
  }

  /// Gives task.run(index) to a worker, or runs it here when there is none to be had.
  void push_or_run(Parallelizer_PushPool& pool, ParallelTask& task, u64 index) {
    TaskLatch* const latch = new (&storage_[count_ * sizeof(TaskLatch)]) TaskLatch(task);
    bool pushed = false;
    try {
      pushed = pool.push(*latch, index);
    } catch (...) {
      drop(*latch);
      throw;
    }
    if (pushed) {
      ++count_;
    } else {
      drop(*latch);
      run_task(task, index);
    }
  }

 private:
  TaskLatch& at(u64 i) {
    return *std::launder(reinterpret_cast<TaskLatch*>(&storage_[i * sizeof(TaskLatch)]));
  }
  static void drop(TaskLatch& latch) {
    latch.abandon();
    latch.~TaskLatch();
  }

  alignas(TaskLatch) std::array<std::byte, (kFlatRange - 1) * sizeof(TaskLatch)> storage_;
  u64 count_ = 0;
};

Parallelizer_PushPool::Parallelizer_PushPool() { reset(); }

/// Returns false when the task has to run inline: a limited pool without an idle worker.
bool Parallelizer_PushPool::push(TaskLatch& latch, u64 index) {
  if (worker_limit_ != 0) {
    pool_->grow_to(worker_limit_);
    return pool_->try_push(latch, index);
  }
  while (!pool_->try_push(latch, index)) pool_->add_worker();
  return true;
}

void Parallelizer_PushPool::run_pair(ParallelTask& first, ParallelTask& second) {
  TaskLatch latch(first);
  bool pushed = false;
  try {
    pushed = push(latch, 0);
  } catch (...) {
    latch.abandon();
    throw;
  }
  if (!pushed) {
    latch.abandon();
    run_task(first, 0);
  }
  run_task(second, 0);
  if (pushed) latch.finish();
}

void Parallelizer_PushPool::run_range(ParallelTask& task, u64 start, u64 end) {
  if (start >= end) return;
  if (end - start > kFlatRange) {
    split_range(*this, task, start, end);
  } else {
    run_flat(task, start, end);
  }
}

void Parallelizer_PushPool::run_flat(ParallelTask& task, u64 start, u64 end) {
  LatchBatch batch;
  for (u64 i = start; i < end - 1; ++i) batch.push_or_run(*this, task, i);
  run_task(task, end - 1);
}

void Parallelizer_PushPool::reserve() {
  // The calling thread is the remaining one. Without a limit the pool holds one spare for each processor,
  // since a thread that waits for its fork still occupies its record.
  pool_->grow_to(worker_limit_ != 0 ? worker_limit_ - 1 : 2 * processor_count() - 1);
}

void Parallelizer_PushPool::reset() { pool_ = std::make_unique<PushPool>(randomization_, on_thread_start_); }

void Parallelizer_PushPool::set_worker_limit(u64 workers) {
  worker_limit_ = workers;
  reset();
}

void Parallelizer_PushPool::set_randomization(bool enabled) {
  randomization_ = enabled;
  reset();
}

void Parallelizer_PushPool::set_thread_start(PushPool::ThreadStart on_thread_start) {
  on_thread_start_ = std::move(on_thread_start);
  reset();
}

std::string Parallelizer_PushPool::details() const {
  return randomization_ ? "  (randomization on)" : "  (randomization off)";
}

void Parallelizer_PushPool::print_menu_rows(SettingsMenu& menu) const {
  menu.row("   4    Worker Threads:", worker_limit_ == 0 ? "Unlimited" : format_with_commas(worker_limit_));
  menu.row("   5    Thread Randomization:", randomization_ ? "Enabled" : "Disabled");
}

void Parallelizer_PushPool::handle_menu_choice(u64 choice, SettingsMenu& menu) {
  if (choice == 4) set_worker_limit(ask_thread_count(menu, "Threads (0 for unlimited threads): "));
  if (choice == 5) set_randomization(!randomization_);
}

void Parallelizer_PushPool::write_settings(Object& object) const {
  object.add_integer("WorkerThreads", static_cast<s64>(worker_limit_));
  object.add_bool("Randomization", randomization_);
}

void Parallelizer_PushPool::read_object(const Object& object) {
  const auto threads = optional_integer(object, "WorkerThreads");
  const auto randomization = optional_bool(object, "Randomization");
  if (threads) set_worker_limit(checked_thread_count(*threads));
  if (randomization) set_randomization(*randomization);
}

}  // namespace orl
