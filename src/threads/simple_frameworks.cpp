#include "threads/simple_frameworks.h"

#include <future>
#include <thread>

#include "config/settings_keys.h"
#include "threads/range_split.h"
#include "threads/task_entry.h"
#include "threads/thread_start.h"

namespace orl {

void Parallelizer_None::run_pair(ParallelTask& first, ParallelTask& second) {
  first.run(0);
  second.run(0);
}

void Parallelizer_None::run_range(ParallelTask& task, u64 start, u64 end) {
  for (u64 i = start; i < end; ++i) task.run(i);
}

void Parallelizer_Spawn::run_pair(ParallelTask& first, ParallelTask& second) {
  std::thread child = start_thread([&] { return std::thread([&first] { run_task(first, 0); }); });
  run_task(second, 0);
  child.join();
}

void Parallelizer_Spawn::run_range(ParallelTask& task, u64 start, u64 end) {
  split_range(*this, task, start, end);
}

void Parallelizer_Async::run_pair(ParallelTask& first, ParallelTask& second) {
  std::future<void> child = start_thread(
      [&] { return std::async(static_cast<std::launch>(launch_bits_), [&first] { run_task(first, 0); }); });
  run_task(second, 0);
  child.get();
}

void Parallelizer_Async::run_range(ParallelTask& task, u64 start, u64 end) {
  split_range(*this, task, start, end);
}

void Parallelizer_Async::set_async_only(bool async_only) {
  static_assert(static_cast<u32>(std::launch::async) == 1 && static_cast<u32>(std::launch::deferred) == 2);
  async_only_ = async_only;
  launch_bits_ = async_only ? 1 : 3;
}

std::string Parallelizer_Async::details() const {
  return async_only_ ? "  (async only)" : "  (async | deferred)";
}

void Parallelizer_Async::print_menu_rows(SettingsMenu& menu) const {
  menu.row("   4    Launch Policy:",
           async_only_ ? "std::launch::async" : "std::launch::async | std::launch::deferred");
}

void Parallelizer_Async::handle_menu_choice(u64 choice, SettingsMenu&) {
  if (choice == 4) set_async_only(!async_only_);
}

void Parallelizer_Async::write_settings(Object& object) const { object.add_bool("AsyncOnly", async_only_); }

void Parallelizer_Async::read_object(const Object& object) {
  if (const auto async_only = optional_bool(object, "AsyncOnly")) set_async_only(*async_only);
}

}  // namespace orl
