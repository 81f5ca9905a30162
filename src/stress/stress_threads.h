// The threads of the stress tester: one per core, bound to it, alive over all tests.
//
// Control  a mutex, two condition variables and a state word. The caller's commands go one way, the threads'
//          reports the other; threads never wait for each other.
// Memory   each thread allocates its share itself, after it has been bound, and keeps it for all tests.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "memory/large_memory.h"
#include "stress/stress_test.h"

namespace orvane {

using orl::u32;

/// What a thread did in one test.
struct StressReport {
  /// kOutOfMemory: the thread got no memory for its share.
  enum class Outcome { kPassed, kFailed, kOutOfMemory };

  u32 core = 0;
  Outcome outcome = Outcome::kPassed;
  u64 rounds = 0;
  double cpu_seconds = 0;   ///< of the processor, by this thread
  double wall_seconds = 0;  ///< from the command to the report
};

/// What the threads are started with.
struct StressSetup {
  std::vector<u32> cores;
  u64 share_bytes = 0;  ///< for each thread
  bool stop_on_error = true;
  /// Called by each thread for itself, on its core. What failed goes into `errors`; null when there is no
  /// memory.
  std::function<std::unique_ptr<orl::LargeMemory>(u64 bytes, u32 core, std::vector<std::string>& errors)>
      allocate;
};

/// The threads, and the control block that they share.
class StressThreads {
 public:
  /// Starts the threads. Where the system refuses one, ends those started and throws.
  explicit StressThreads(StressSetup setup);
  /// Ends them; no test runs.
  ~StressThreads();

  /// Waits until every thread is bound and has tried to allocate. False when one could not be bound, which it
  /// has reported; no test may be run then.
  bool ready();
  /// Runs the test on all threads for `seconds` from the moment when all of them have filled their memory, at
  /// least one round each. Ends sooner when all have reported, after an error with stop_on_error, and when
  /// `go_on`, which is called with the seconds so far about ten times a second, returns false; threads that still fill
  /// their memory then do no round.
  std::vector<StressReport> run(const StressTest& test, double seconds,
                                const std::function<bool(double)>& go_on);

 private:
  enum class State { kWait = 0, kRun = 1, kEnd = 2 };
  struct Worker {
    std::thread thread;
    std::unique_ptr<orl::LargeMemory> memory;
    StressReport report;
  };

  void end_threads();
  void enter(Worker& worker);
  bool obtain_memory(Worker& worker);
  StressReport run_test(Worker& worker, const StressTest& test, u64 command);
  void exercise(StressWork& work, const std::string& name, orl::LinearHeapBuffer memory, u64 seed,
                u64& rounds, bool& counted);
  void count(u64& counter);

  const StressSetup setup_;
  std::mutex mutex_;
  std::condition_variable commands_;
  std::condition_variable reports_;
  State state_ = State::kWait;        // this and all below under mutex_
  const StressTest* test_ = nullptr;  // what kRun runs
  u64 command_ = 0;                   // counts the tests, so that a thread sees each once
  u64 started_ = 0;                   // threads bound and allocated, or failed to be bound
  u64 filled_ = 0;                    // threads whose memory is filled
  u64 finished_ = 0;                  // threads that have reported
  bool unbound_ = false;
  std::atomic<bool> stop_{false};  // read between rounds
  std::vector<Worker> workers_;
};

}  // namespace orvane
