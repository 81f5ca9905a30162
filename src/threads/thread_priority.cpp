#include "threads/thread_priority.h"

#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>

#include "core/output.h"

namespace orl {

namespace {

void report_failure(int error) {
  static std::atomic<unsigned> failures{0};
  if (failures.fetch_add(1, std::memory_order_relaxed) != 0) return;
  if (error == EPERM) {
    notice_line("Insufficient permissions to set thread priority. Please retry as root.", 'Y');
  } else {
    notice_line(
        "Unable to set thread priority: errno = " + std::to_string(error) + " (" + std::strerror(error) + ")",
        'Y');
  }
  notice_line("Further messages for this warning will be suppressed.", 'Y');
  output().set_colour('w');
}

}  // namespace

int round_robin_priority(int level) {
  return level < 0 ? sched_get_priority_min(SCHED_RR) : sched_get_priority_max(SCHED_RR);
}

void set_thread_priority(int level) {
  if (level == 0) return;
  sched_param parameters{};
  parameters.sched_priority = round_robin_priority(level);
  const int error = pthread_setschedparam(pthread_self(), SCHED_RR, &parameters);
  if (error != 0) report_failure(error);
}

}  // namespace orl
