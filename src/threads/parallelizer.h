// Fork and join: the only way in which the mathematics uses more than one thread.
//
// A function that can run in parallel takes a ParallelContext as its last argument. `tds` is the number of
// tasks it should cut its work into; it is independent of the number of threads. tds 1 means: do not fork.
// A function that forks gives each branch a share of tds and its own cut of the scratch buffer.
#pragma once

#include <algorithm>
#include <array>
#include <exception>
#include <string>

#include "core/settings_menu.h"
#include "core/types.h"

namespace orl {

class Object;

/// A unit of work. Owned by the caller; lives on the caller's stack until the fork-join returns.
struct ParallelTask {
  virtual ~ParallelTask() = default;
  /// Does unit `index`; 0 for a task of run_pair.
  virtual void run(u64 index) = 0;
};

/// A framework: how tasks reach threads. An exception may not cross a fork: a task that throws ends the
/// process with status 1 after its message has been printed.
class Parallelizer {
 public:
  virtual ~Parallelizer() = default;

  /// Runs first.run(0) and second.run(0), possibly at once; returns when both have finished.
  virtual void run_pair(ParallelTask& first, ParallelTask& second) = 0;
  /// Runs task.run(i) for i in [start, end), possibly at once; an empty or reversed range does nothing.
  virtual void run_range(ParallelTask& task, u64 start, u64 end) = 0;
  /// Prepares the workers before a computation, gives them back after it.
  virtual void reserve() {}
  virtual void reset() {}

  /// The word of the command line and of configuration files; the name in menus and reports.
  virtual const char* key() const = 0;
  virtual const char* name() const = 0;
  /// One line for reports: name, tds, number of threads ("?" when unlimited), details.
  virtual std::string to_string(u64 tds) const;
  /// Prints that line with console colours, without a line feed.
  virtual void print_status(u64 tds) const;
  /// The number of threads as reports show it; 0 when it is not fixed.
  virtual u64 threads() const { return 0; }
  /// The end of the report line: the framework's own settings in words.
  virtual std::string details() const { return {}; }
  /// The framework's own rows of the settings menu, and its answer to a choice among them.
  virtual void print_menu_rows(SettingsMenu&) const {}
  virtual void handle_menu_choice(u64, SettingsMenu&) {}
  /// The framework's settings as an object of their own, with the key under "Framework".
  virtual Object to_object() const;
  /// Adds the framework's own keys to `object`; read_object takes them from there. A key that is absent
  /// leaves its setting alone; a value out of range throws InvalidParametersException.
  virtual void write_settings(Object&) const {}
  virtual void read_object(const Object&) {}
};

struct ParallelContext {
  Parallelizer& parallelizer;
  u64 tds;

  /// The framework with another number of tasks.
  ParallelContext with_tds(u64 share) const { return {parallelizer, share}; }
  /// Shares of a binary split: the left branch gets the larger half. tds >= 2.
  ParallelContext left() const { return {parallelizer, tds - (tds >> 1)}; }
  ParallelContext right() const { return {parallelizer, tds >> 1}; }
};

/// run_pair over two callables, without allocation.
template <class First, class Second>
void fork_pair(Parallelizer& parallelizer, First&& first, Second&& second) {
  struct FirstTask final : ParallelTask {
    explicit FirstTask(First& f) : call(f) {}
    void run(u64) override { call(); }
    First& call;
  } first_task(first);
  struct SecondTask final : ParallelTask {
    explicit SecondTask(Second& f) : call(f) {}
    void run(u64) override { call(); }
    Second& call;
  } second_task(second);
  parallelizer.run_pair(first_task, second_task);
}

/// fork_pair over callables that may throw: once both have finished, the first one's exception is thrown
/// here, or else the second one's.
template <class First, class Second>
void fork_pair_or_throw(Parallelizer& parallelizer, First&& first, Second&& second) {
  std::array<std::exception_ptr, 2> failures;
  const auto guarded = [&failures](std::size_t index, auto& call) {
    try {
      call();
    } catch (...) {
      failures[index] = std::current_exception();
    }
  };
  fork_pair(
      parallelizer, [&] { guarded(0, first); }, [&] { guarded(1, second); });
  for (const auto& failure : failures)
    if (failure) std::rethrow_exception(failure);
}

/// run_range over a callable taking the index, without allocation.
template <class Body>
void fork_range(Parallelizer& parallelizer, u64 start, u64 end, Body&& body) {
  struct RangeTask final : ParallelTask {
    explicit RangeTask(Body& f) : call(f) {}
    void run(u64 index) override { call(index); }
    Body& call;
  } task(body);
  parallelizer.run_range(task, start, end);
}

}  // namespace orl
