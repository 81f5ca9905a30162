// The three frameworks that keep no threads: none at all, a new thread for each fork, and the C++ library's
// std::async.
#pragma once

#include "threads/parallelizer.h"

namespace orl {

/// Runs everything in order on the calling thread. Cheap enough to be built on the stack by code that must
/// run a plan single-threaded. An exception passes through, since there is no fork.
class Parallelizer_None final : public Parallelizer {
 public:
  void run_pair(ParallelTask& first, ParallelTask& second) override;
  void run_range(ParallelTask& task, u64 start, u64 end) override;
  const char* key() const override { return "none"; }
  const char* name() const override { return "None (No Multi-threading)"; }
  u64 threads() const override { return 1; }
};

/// Each fork starts one thread and joins it.
class Parallelizer_Spawn final : public Parallelizer {
 public:
  void run_pair(ParallelTask& first, ParallelTask& second) override;
  void run_range(ParallelTask& task, u64 start, u64 end) override;
  const char* key() const override { return "spawn"; }
  const char* name() const override { return "Thread Spawn (1 Thread/Task)"; }
};

/// Each fork goes through std::async. Own setting: whether the library may defer a task to the waiting
/// thread.
class Parallelizer_Async final : public Parallelizer {
 public:
  void run_pair(ParallelTask& first, ParallelTask& second) override;
  void run_range(ParallelTask& task, u64 start, u64 end) override;
  const char* key() const override { return "cppasync"; }
  const char* name() const override { return "C++ std::async()"; }
  std::string details() const override;
  void print_menu_rows(SettingsMenu& menu) const override;
  void handle_menu_choice(u64 choice, SettingsMenu& menu) override;
  void write_settings(Object& object) const override;
  void read_object(const Object& object) override;

  bool async_only() const { return async_only_; }
  /// Whether std::async must start a thread, or may run a task when it is waited for.
  void set_async_only(bool async_only);

 private:
  bool async_only_ = true;
  u32 launch_bits_ = 1;
};

}  // namespace orl
