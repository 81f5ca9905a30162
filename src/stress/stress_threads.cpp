#include "stress/stress_threads.h"

#include <time.h>

#include <algorithm>
#include <chrono>

#include "console/console.h"
#include "core/exceptions.h"
#include "core/fault_mutex.h"
#include "core/fault_point.h"
#include "core/format.h"
#include "core/output.h"
#include "core/run_timer.h"
#include "system/machine_fault.h"
#include "system/topology.h"
#include "threads/thread_start.h"

namespace orvane {
namespace {

namespace console = orl::console;
constexpr double kPollSeconds = 0.1;

double thread_seconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

void report_error(const StressTest& test, u32 core, const orl::Exception& error) {
  const std::lock_guard lock(orl::fault_mutex());
  std::string details;
  {
    const orl::OutputCapture capture;
    error.print();
    details = capture.text();
  }
  if (error.is_wrong_result())
    orl::log_event("Wrong result in a stress test",
                   details + "Test: " + test.title() + ", logical core " + std::to_string(core));
  error.print();
  console::println("Error(s) encountered on logical core " + std::to_string(core), 'R');
  console::set_colour('w');
}

}  // namespace

StressThreads::StressThreads(StressSetup setup) : setup_(std::move(setup)), workers_(setup_.cores.size()) {
  const auto body = [this](Worker& worker) {
    try {
      enter(worker);
    } catch (...) {
      const std::lock_guard lock(orl::fault_mutex());
      orl::fatal_error("Unknown exception thrown from worker thread.");
    }
  };
  try {
    for (u64 i = 0; i < workers_.size(); ++i) {
      Worker& worker = workers_[i];
      worker.report.core = setup_.cores[i];
      worker.thread = orl::start_thread([&] { return std::thread(body, std::ref(worker)); });
    }
  } catch (...) {
    end_threads();
    throw;
  }
}

StressThreads::~StressThreads() { end_threads(); }

// Also with only some of them started.
void StressThreads::end_threads() {
  {
    const std::lock_guard lock(mutex_);
    state_ = State::kEnd;
  }
  commands_.notify_all();
  for (Worker& worker : workers_)
    if (worker.thread.joinable()) worker.thread.join();
}

bool StressThreads::ready() {
  std::unique_lock lock(mutex_);
  reports_.wait(lock, [&] { return started_ == workers_.size(); });
  return !unbound_;
}

std::vector<StressReport> StressThreads::run(const StressTest& test, double seconds,
                                             const std::function<bool(double)>& go_on) {
  std::unique_lock lock(mutex_);
  test_ = &test;
  filled_ = finished_ = 0;
  stop_ = false;
  state_ = State::kRun;
  ++command_;
  commands_.notify_all();

  const auto all = [&](const u64& counter) { return counter == workers_.size(); };
  double begin = 0;
  bool timed = false;
  while (!all(finished_) && !stop_) {
    if (!timed && all(filled_)) {
      begin = orl::monotonic_seconds();
      timed = true;
    }
    const double passed = timed ? orl::monotonic_seconds() - begin : 0;
    if ((timed && passed >= seconds) || !go_on(passed)) break;
    const double wait = timed ? std::min(seconds - passed, kPollSeconds) : kPollSeconds;
    reports_.wait_for(lock, std::chrono::duration<double>(wait));
  }
  stop_ = true;
  reports_.wait(lock, [&] { return all(finished_); });
  state_ = State::kWait;
  std::vector<StressReport> reports;
  for (const Worker& worker : workers_) reports.push_back(worker.report);
  return reports;
}

void StressThreads::count(u64& counter) {
  {
    const std::lock_guard lock(mutex_);
    ++counter;
  }
  reports_.notify_all();
}

void StressThreads::enter(Worker& worker) {
  const u32 core = worker.report.core;
  if (!orl::bind_thread({core})) {
    {
      const std::lock_guard lock(orl::fault_mutex());
      console::println("Failed to set core affinity to core: " + std::to_string(core), 'R');
      console::set_colour('w');
    }
    {
      const std::lock_guard lock(mutex_);
      unbound_ = true;
    }
    return count(started_);
  }
  obtain_memory(worker);
  count(started_);
  u64 seen = 0;
  for (;;) {
    const StressTest* test;
    {
      std::unique_lock lock(mutex_);
      commands_.wait(lock, [&] { return state_ == State::kEnd || command_ != seen; });
      if (state_ == State::kEnd) return;
      seen = command_;
      test = test_;
    }
    const StressReport report = run_test(worker, *test, seen);
    {
      const std::lock_guard lock(mutex_);
      worker.report = report;
    }
    count(finished_);
  }
}

bool StressThreads::obtain_memory(Worker& worker) {
  if (worker.memory) return true;
  std::vector<std::string> errors;
  worker.memory = setup_.allocate(setup_.share_bytes, worker.report.core, errors);
  if (worker.memory && errors.empty()) return true;
  const char colour = worker.memory ? 'Y' : 'R';
  const std::lock_guard lock(orl::fault_mutex());
  console::println((worker.memory ? "The memory of logical core "
                                  : "Memory Allocation Failed: " + orl::format_bytes(setup_.share_bytes) +
                                        " for logical core ") +
                       std::to_string(worker.report.core),
                   colour);
  for (const std::string& error : errors) console::println("    " + error, colour);
  console::set_colour('w');
  return worker.memory != nullptr;
}

StressReport StressThreads::run_test(Worker& worker, const StressTest& test, u64 command) {
  StressReport report;
  report.core = worker.report.core;
  const double begin = orl::monotonic_seconds();
  const double cpu_begin = thread_seconds();
  if (!obtain_memory(worker)) {
    report.outcome = StressReport::Outcome::kOutOfMemory;
    count(filled_);
    return report;
  }
  const std::unique_ptr<StressWork> work = test.plan(setup_.share_bytes);
  const std::string name = std::string(test.tag()) + " " + std::to_string(report.core);
  const orl::LinearHeapBuffer memory(worker.memory->address(), worker.memory->length());
  // After an error the load goes on with fresh operands; the first one of a test is told.
  u64 failures = 0;
  bool counted = false;
  do {
    const u64 filling = (command * workers_.size() + static_cast<u64>(&worker - workers_.data())) << 20;
    const u64 seed = (filling + failures) * 0x9E3779B97F4A7C15;
    try {
      exercise(*work, name, memory, seed, report.rounds, counted);
    } catch (const orl::Exception& error) {
      if (failures++ == 0) report_error(test, report.core, error);
      report.outcome = StressReport::Outcome::kFailed;
      if (setup_.stop_on_error) stop_ = true;
      if (!counted) count(filled_);
      counted = true;
    }
  } while (!stop_);
  report.cpu_seconds = thread_seconds() - cpu_begin;
  report.wall_seconds = orl::monotonic_seconds() - begin;
  return report;
}

// Fills the memory, then rounds until the test is stopped, then the proof of all that has lain in memory. A test that is
// stopped while it fills does no round.
void StressThreads::exercise(StressWork& work, const std::string& name, orl::LinearHeapBuffer memory,
                             u64 seed, u64& rounds, bool& counted) {
  const bool filled = work.prepare(memory, seed, stop_);
  if (!counted) count(filled_);
  counted = true;
  if (!filled) return;
  const std::string operands = "stress operands " + name, tables = "stress tables " + name;
  do {
    orl::fault_point(operands.c_str(), memory.ptr, work.operand_bytes());
    orl::fault_point(tables.c_str(), work.tables().ptr, work.tables().size);
    work.round();
    ++rounds;
  } while (!stop_);
  work.check_memory();
}

}  // namespace orvane
