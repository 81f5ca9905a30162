// The push pool as a framework.
#pragma once

#include <memory>

#include "threads/parallelizer.h"
#include "threads/push_pool.h"

namespace orl {

/// With no limit on workers a fork never waits and never runs inline: the pool grows to the largest number of
/// tasks that ran or were blocked at once. With a limit, a fork that finds no idle worker runs inline.
class Parallelizer_PushPool final : public Parallelizer {
 public:
  /// Indices that are pushed one by one; longer ranges are split in halves.
  static constexpr u64 kFlatRange = 16;

  Parallelizer_PushPool();

  void run_pair(ParallelTask& first, ParallelTask& second) override;
  void run_range(ParallelTask& task, u64 start, u64 end) override;
  void reserve() override;
  void reset() override;
  const char* key() const override { return "pushpool"; }
  const char* name() const override { return "Push Pool"; }
  u64 threads() const override { return worker_limit_; }
  std::string details() const override;
  void print_menu_rows(SettingsMenu& menu) const override;
  void handle_menu_choice(u64 choice, SettingsMenu& menu) override;
  void write_settings(Object& object) const override;
  void read_object(const Object& object) override;

  /// 0 means unlimited. Replaces the pool, as set_randomization does.
  void set_worker_limit(u64 workers);
  void set_randomization(bool enabled);
  /// Called first on every new worker, with the worker's number. Replaces the pool.
  void set_thread_start(PushPool::ThreadStart on_thread_start);
  u64 worker_limit() const { return worker_limit_; }
  bool randomization() const { return randomization_; }
  /// Threads that exist now.
  u64 worker_count() const { return pool_->worker_count(); }

 private:
  class LatchBatch;

  bool push(TaskLatch& latch, u64 index);
  void run_flat(ParallelTask& task, u64 start, u64 end);

  u64 worker_limit_ = 0;
  bool randomization_ = true;
  PushPool::ThreadStart on_thread_start_;
  std::unique_ptr<PushPool> pool_;
};

}  // namespace orl
