// A thread of a disk array: it does what it is given, in that order.
//
// Transfers run here and not on the threads of a framework, so that they overlap with computation under every framework,
// "none" included, and a task that sleeps in a system call takes no worker away.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "core/uncopied.h"

namespace orl {

/// Jobs in the order in which they were given. A job lets no exception out.
class IoThread : Uncopied {
 public:
  /// Throws SystemException where the system gives no more threads.
  IoThread();
  /// Returns when the jobs that were given are done.
  ~IoThread();

  /// Adds a job; from any thread, also from a job.
  void post(std::function<void()> job);

 private:
  void run();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> jobs_;
  bool ending_ = false;
  std::thread thread_;
};

}  // namespace orl
