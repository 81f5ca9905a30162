#include "threads/task_entry.h"

#include <mutex>
#include <string_view>

#include "core/exceptions.h"
#include "core/output.h"
#include "system/machine_fault.h"

namespace orl {

namespace {

constexpr const char* kChildText = "FATAL ERROR: Unhandled exception in child thread.";
constexpr const char* kPoolText = "PushPoolWorker: An exception was thrown from a task.";

/// The first thread that fails speaks and ends the process; any other waits for that end.
void take_the_word() {
  static std::mutex* const word = new std::mutex;
  word->lock();
}

/// Called inside a catch clause. Says `before`, then what is known of the failure, then, unless it was one of the
/// family, `behind`; an empty line is left out.
[[noreturn]] void end_after_failure(std::string_view before, std::string_view behind) {
  take_the_word();
  const auto say = [](std::string_view line) {
    if (!line.empty()) notice_line(line, 'R');
  };
  say(before);
  try {
    throw;
  } catch (const Exception& failure) {
    if (failure.is_wrong_result()) tell_wrong_result(failure);
    failure.print();
  } catch (const std::exception& failure) {
    notice_line(failure.what(), 'R');
    say(behind);
  } catch (...) {
    say(behind);
  }
  fatal_exit(1);
}

}  // namespace

void run_task(ParallelTask& task, u64 index) {
  try {
    task.run(index);
  } catch (...) {
    end_after_failure({}, kChildText);
  }
}

void run_task_in_pool(ParallelTask& task, u64 index) {
  try {
    task.run(index);
  } catch (...) {
    end_after_failure(kPoolText, {});
  }
}

}  // namespace orl
