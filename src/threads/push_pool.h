// A pool of threads without a queue: each worker owns a mailbox for one task, and a fork writes into the
// first empty one that it finds.
//
// Lifetimes    A TaskLatch lies on the stack of the forking thread. Its destructor waits until the worker
//              has left its mutex and condition variable.
// Records      Worker i lies in bucket bit_width(i) and never moves: it holds a mutex, a condition variable
//              and a thread. Dispatch reads the table without a lock while another thread makes it grow.
// Mailbox      A pusher claims a worker by writing its empty slot (compare-and-swap), then writes the index,
//              then sets `ready`. The worker marks the slot as taken, waits for `ready`, runs the task,
//              clears `ready`, then the slot, and only then tells the latch: the thread that waited for it
//              finds the worker free for its next fork.
// Taking back  A forking thread that is done with its own half looks into the mailbox before it waits. A
//              task that the worker has not taken, because it is still waking up or has no processor, is
//              taken back and run by the forking thread, which has nothing else to do. No task waits for
//              another one by this: each has a worker of its own or a thread that would be idle. With 64
//              tasks of 5 us on 2 processors it brought the wall time over the ideal one from 2.9 to 1.7
//              (bench/threads/fork_bench), and a fork to a sleeping worker from 28 to 7 us.
// Sleep        An idle worker spins for a moment (idle.h) before it waits on its condition variable.
#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "core/uncopied.h"
#include "threads/parallelizer.h"

namespace orl {

struct PoolWorker;

/// Completion record of one pushed task.
class TaskLatch : Uncopied {
 public:
  /// For one push of `task`.
  explicit TaskLatch(ParallelTask& task) : task_(task) {}
  /// Spins until the signalling thread is out of the record.
  ~TaskLatch();

  /// Runs the task, on a worker; a task that throws ends the process.
  void run_task(u64 index);
  /// Says that the task has finished. The record may be gone when this returns.
  void signal();
  /// Returns when the task has finished, after running it here if no worker has taken it yet.
  void finish();
  void wait();
  /// Returns whether the task has finished within `milliseconds`.
  bool wait_for(u64 milliseconds);
  /// For a latch whose task was never pushed: nobody will signal it.
  void abandon() { released_.store(1, std::memory_order_relaxed); }

 private:
  friend struct PoolWorker;

  bool is_done() const { return done_.load(std::memory_order_acquire) != 0; }

  ParallelTask& task_;
  PoolWorker* worker_ = nullptr;  ///< in whose mailbox it lies
  std::mutex mutex_;
  std::condition_variable changed_;
  std::atomic<u8> done_{0};
  std::atomic<u8> released_{0};
};

/// See the head of this file.
class PushPool : Uncopied {
 public:
  using ThreadStart = std::function<void(u64 worker_index)>;

  /// `on_thread_start` runs first on every new worker.
  explicit PushPool(bool randomization, ThreadStart on_thread_start = {});
  /// Stops and joins the workers, the last one first. No task may be running.
  ~PushPool();

  /// Gives the latch to an idle worker, or returns false when there is none.
  bool try_push(TaskLatch& latch, u64 index);
  /// Adds one worker. Throws std::system_error when the system gives no more threads.
  void add_worker();
  /// Adds workers until there are at least `workers`.
  void grow_to(u64 workers);

  u64 worker_count() const { return worker_count_.load(std::memory_order_acquire); }
  bool randomization() const { return randomization_; }

 private:
  using Worker = PoolWorker;

  static constexpr u64 kMaxBuckets = 64;
  /// Workers 0 to 64 * kAwakeWords - 1 have a bit that says "awake and idle".
  static constexpr u64 kAwakeWords = 16;

  Worker& worker(u64 index) const;
  void add_worker_locked();
  bool push_to_awake(TaskLatch& latch, u64 index);
  bool push_to_any(TaskLatch& latch, u64 index, u64 begin, u64 end);
  void set_awake(u64 worker_index);
  void clear_awake(u64 worker_index);
  void work(Worker& self, u64 worker_index);

  const bool randomization_;
  const ThreadStart on_thread_start_;
  std::atomic<u64> worker_count_{0};
  std::atomic<u64> random_mask_{0};
  std::mutex growth_;
  std::array<std::unique_ptr<Worker[]>, kMaxBuckets> buckets_;
  alignas(64) std::array<std::atomic<u64>, kAwakeWords> awake_{};
};

}  // namespace orl
