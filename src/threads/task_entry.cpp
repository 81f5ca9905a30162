#include "threads/task_entry.h"

#include <mutex>

#include "core/exceptions.h"
#include "core/output.h"

namespace orl {

namespace {

constexpr const char* kChildText = "FATAL ERROR: Unhandled exception in child thread.";
constexpr const char* kPoolText = "PushPoolWorker: An exception was thrown from a task.";

/// The first thread that fails speaks and ends the process; any other waits for that end.
void take_the_word() {
  static std::mutex* const word = new std::mutex;
  word->lock();
}

/// Called inside a catch clause.
[[noreturn]] void end_after_child_failure() {
  take_the_word();
  try {
    throw;
  } catch (const Exception& failure) {
    failure.print();
  } catch (const std::exception& failure) {
    notice_line(failure.what(), 'R');
    notice_line(kChildText, 'R');
  } catch (...) {
    notice_line(kChildText, 'R');
  }
  fatal_exit(1);
}

[[noreturn]] void end_after_worker_failure() {
  take_the_word();
  notice_line(kPoolText, 'R');
  try {
    throw;
  } catch (const Exception& failure) {
    failure.print();
  } catch (const std::exception& failure) {
    notice_line(failure.what(), 'R');
  } catch (...) {
    // Nothing is known about it beyond the line above.
  }
  fatal_exit(1);
}

}  // namespace

void run_task(ParallelTask& task, u64 index) {
  try {
    task.run(index);
  } catch (...) {
    end_after_child_failure();
  }
}

void run_task_in_pool(ParallelTask& task, u64 index) {
  try {
    task.run(index);
  } catch (...) {
    end_after_worker_failure();
  }
}

}  // namespace orl
