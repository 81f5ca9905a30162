#include "threads/cilk_framework.h"

#include "config/settings_keys.h"
#include "core/format.h"
#include "system/limits.h"
#include "threads/frameworks.h"
#include "threads/task_entry.h"
#include "threads/tsan_edge.h"

// Entry points of the runtime library. The spawn and sync keywords left g++ with release 8; a loop over two
// iterations of grain 1 is what they amount to, and it needs no compiler support.
extern "C" {
int __cilkrts_set_param(const char* name, const char* value);
void __cilkrts_cilk_for_64(void (*body)(void* data, std::uint64_t low, std::uint64_t high), void* data,
                           std::uint64_t count, int grain);
}

namespace orl {

namespace {

/// Calls body(i) for i in [0, count) through the runtime, with grain size 1.
template <class Body>
void cilk_for(u64 count, Body& body) {
  struct Loop {
    Body& body;
    TsanEdge fork, join;
  } loop{body, {}, {}};
  loop.fork.depart();
  __cilkrts_cilk_for_64(
      [](void* data, std::uint64_t low, std::uint64_t high) {
        Loop& self = *static_cast<Loop*>(data);
        self.fork.arrive();
        for (u64 i = low; i < high; ++i) self.body(i);
        self.join.depart();
      },
      &loop, count, 1);
  loop.join.arrive();
}

}  // namespace

Parallelizer_Cilk::Parallelizer_Cilk() : cilk_threads_(processor_count()) {}

void Parallelizer_Cilk::run_pair(ParallelTask& first, ParallelTask& second) {
  const auto body = [&](u64 i) { run_task(i == 0 ? first : second, 0); };
  cilk_for(2, body);
}

void Parallelizer_Cilk::run_range(ParallelTask& task, u64 start, u64 end) {
  if (start >= end) return;
  const auto body = [&](u64 i) { run_task(task, start + i); };
  if (end - start == 1) return body(0);
  cilk_for(end - start, body);
}

void Parallelizer_Cilk::reserve() { __cilkrts_set_param("nworkers", std::to_string(cilk_threads_).c_str()); }

void Parallelizer_Cilk::print_menu_rows(SettingsMenu& menu) const {
  menu.row("   4    Cilk Threads:", format_with_commas(cilk_threads_));
}

void Parallelizer_Cilk::handle_menu_choice(u64 choice, SettingsMenu& menu) {
  if (choice == 4) cilk_threads_ = ask_thread_count(menu, "Threads: ");
}

void Parallelizer_Cilk::write_settings(Object& object) const {
  object.add_integer("WorkerThreads", static_cast<s64>(cilk_threads_));
}

void Parallelizer_Cilk::read_object(const Object& object) {
  if (const auto threads = optional_integer(object, "WorkerThreads")) {
    cilk_threads_ = checked_thread_count(*threads);
  }
}

}  // namespace orl
