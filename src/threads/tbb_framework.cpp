#include "threads/tbb_framework.h"

#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/global_control.h>
#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/parallel_invoke.h>
#include <oneapi/tbb/partitioner.h>
#include <oneapi/tbb/task_arena.h>

#include <cerrno>
#include <exception>
#include <optional>

#include "config/settings_keys.h"
#include "core/format.h"
#include "system/limits.h"
#include "threads/frameworks.h"
#include "threads/task_entry.h"
#include "threads/thread_start.h"
#include "threads/tsan_edge.h"

#ifdef ORVANE_TSAN
// What the library itself does with memory is not seen whole, so it is not looked at.
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions() { return "called_from_lib:libtbb.so"; }
#endif

namespace orl {

struct Parallelizer_Tbb::Arena {
  explicit Arena(u64 threads)
      : arena(threads == 0 ? tbb::task_arena::automatic : static_cast<int>(threads)) {}

  // No task lets an exception out, so one that comes is the library's own, of a thread that it was refused.
  template <class Body>
  void execute(Body&& body) {
    try {
      arena.execute(body);
    } catch (const std::exception&) {
      throw_thread_refused(EAGAIN);
    }
  }

  tbb::task_arena arena;
  // The library runs at most one thread a processor unless told otherwise.
  std::optional<tbb::global_control> limit;
};

Parallelizer_Tbb::Parallelizer_Tbb() { set_threads(processor_count()); }

Parallelizer_Tbb::~Parallelizer_Tbb() = default;

void Parallelizer_Tbb::set_threads(u64 threads) {
  tbb_threads_ = threads;
  arena_ = std::make_unique<Arena>(threads);
}

void Parallelizer_Tbb::run_pair(ParallelTask& first, ParallelTask& second) {
  TsanEdge fork;
  TsanEdge join;
  const auto enter = [&](ParallelTask& task) {
    fork.arrive();
    run_task(task, 0);
    join.depart();
  };
  fork.depart();
  arena_->execute([&] { tbb::parallel_invoke([&] { enter(first); }, [&] { enter(second); }); });
  join.arrive();
}

void Parallelizer_Tbb::run_range(ParallelTask& task, u64 start, u64 end) {
  if (start >= end) return;
  if (end - start == 1) return run_task(task, start);
  TsanEdge fork;
  TsanEdge join;
  fork.depart();
  arena_->execute([&] {
    tbb::parallel_for(
        tbb::blocked_range<u64>(start, end, 1),
        [&](const tbb::blocked_range<u64>& part) {
          fork.arrive();
          for (u64 i = part.begin(); i < part.end(); ++i) run_task(task, i);
          join.depart();
        },
        tbb::simple_partitioner());
  });
  join.arrive();
}

void Parallelizer_Tbb::reserve() {
  if (tbb_threads_ != 0) {
    arena_->limit.emplace(tbb::global_control::max_allowed_parallelism, tbb_threads_);
  }
  arena_->arena.initialize();
}

void Parallelizer_Tbb::reset() { arena_ = std::make_unique<Arena>(tbb_threads_); }

void Parallelizer_Tbb::print_menu_rows(SettingsMenu& menu) const {
  menu.row("   4    TBB Threads:", format_with_commas(tbb_threads_));
}

void Parallelizer_Tbb::handle_menu_choice(u64 choice, SettingsMenu& menu) {
  if (choice == 4) set_threads(ask_thread_count(menu, "Threads: "));
}

void Parallelizer_Tbb::write_settings(Object& object) const {
  object.add_integer("WorkerThreads", static_cast<s64>(tbb_threads_));
}

void Parallelizer_Tbb::read_object(const Object& object) {
  if (const auto threads = optional_integer(object, "WorkerThreads"))
    set_threads(checked_thread_count(*threads));
}

}  // namespace orl
