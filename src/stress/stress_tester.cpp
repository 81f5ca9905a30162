#include "stress/stress_tester.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <string_view>

#include "console/console.h"
#include "core/exceptions.h"
#include "core/format.h"
#include "core/run_timer.h"
#include "core/uncopied.h"
#include "memory/interleave_allocator.h"
#include "memory/node_placement.h"
#include "stress/stress_threads.h"
#include "system/machine_fault.h"
#include "system/topology.h"

namespace orvane {
namespace {

namespace console = orl::console;
using Outcome = StressReport::Outcome;

std::atomic<bool> interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler stores it");

void stop_at_signal(int) {
  constexpr std::string_view kWords = "\nStopping...\n";
  interrupted = true;
  if (write(STDOUT_FILENO, kWords.data(), kWords.size()) < 0) {
    // The terminal is gone.
  }
}

/// While it lives the first SIGINT or SIGTERM only says so and sets a flag; a second one ends the process.
class InterruptGuard : orl::Uncopied {
 public:
  InterruptGuard() {
    interrupted = false;
    struct sigaction action {};
    action.sa_handler = stop_at_signal;
    action.sa_flags = static_cast<int>(SA_RESETHAND) | SA_RESTART;
    sigaction(SIGINT, &action, &before_[0]);
    sigaction(SIGTERM, &action, &before_[1]);
  }
  ~InterruptGuard() {
    sigaction(SIGINT, &before_[0], nullptr);
    sigaction(SIGTERM, &before_[1], nullptr);
  }

 private:
  struct sigaction before_[2] = {};
};

double processor_share(const StressReport& report) {
  return report.wall_seconds > 0 ? report.cpu_seconds / report.wall_seconds : 0;
}

struct Tally {
  u64 passed = 0, failed = 0, skipped = 0, out_of_memory = 0;
};

class StressRun {
 public:
  explicit StressRun(const StressSettings& settings)
      : settings_(settings), begin_(orl::monotonic_seconds()), threads_(setup()) {}

  int run() {
    // Until now there was nothing to tell of: an interrupt while the system hands out the memory ends the process.
    if (!threads_.ready()) return 1;
    const InterruptGuard guard;
    bool go_on = true;
    for (u64 iteration = 1; go_on; ++iteration) {
      console::println("\nIteration " + orl::format_with_commas(iteration) + "\n", 'T');
      const u64 ran = tally_.passed + tally_.failed;
      go_on = run_iteration() && tally_.passed + tally_.failed > ran;
      if (!go_on) console::println("\nTest Finished. Waiting for threads to terminate...", 'w');
      // Iterations of one round each would print nothing else.
      constexpr double kSecondsBetween = 5;
      const double now = orl::monotonic_seconds();
      if (go_on && iteration != 1 && now - summary_ < kSecondsBetween) continue;
      summary_ = now;
      print_summary();
    }
    return tally_.failed > 0 || tally_.passed + (interrupted ? 1 : 0) == 0 ? 1 : 0;
  }

 private:
  StressSetup setup() const {
    console::println("\nAllocating Memory...", 'w');
    return {settings_.cores, settings_.share_bytes(), settings_.stop_on_error,
            [locally = settings_.allocate_locally](u64 bytes, u32 core, std::vector<std::string>& errors) {
              if (!locally) return orl::allocate_interleaved(bytes, errors);
              return orl::allocate_local(bytes, orl::topology().node_of(core), orl::Mode::attempt, core,
                                         errors);
            }};
  }

  // False when the run is over.
  bool run_iteration() {
    for (const auto& test : settings_.tests) {
      if (interrupted) return false;
      if (!test->enabled) continue;
      const u64 failed = tally_.failed;
      run_test(*test);
      if (settings_.stop_on_error && tally_.failed > failed) {
        console::println("\nErrors encountered. Stopping test...", 'R');
        return false;
      }
    }
    return !interrupted;
  }

  void run_test(const StressTest& test) {
    const auto work = test.plan(settings_.share_bytes());
    console::print("Running ", 'w');
    console::print(test.title(), 'T');
    if (!work) {
      ++tally_.skipped;
      console::println("", 'w');
      console::println(
          "Skipped  It does not fit " + orl::format_bytes(settings_.share_bytes()) + " a thread.", 'Y');
      return;
    }
    console::println("  (" + work->size_text() + " " + test.unit() + ")", 'w');
    const double begin = orl::monotonic_seconds();
    const std::string limit = " / " + orl::format_with_commas(settings_.seconds) + " seconds";
    const auto reports = threads_.run(test, static_cast<double>(settings_.seconds), [&](double passed) {
      console::show_live_line(std::string(test.tag()) + ":  ",
                              orl::format_with_commas(static_cast<u64>(passed)), limit);
      return !interrupted;
    });
    conclude(test, reports, orl::monotonic_seconds() - begin);
  }

  void conclude(const StressTest& test, const std::vector<StressReport>& reports, double seconds) {
    const auto any = [&](Outcome outcome) {
      return std::any_of(reports.begin(), reports.end(),
                         [&](const StressReport& report) { return report.outcome == outcome; });
    };
    if (any(Outcome::kFailed)) {
      ++tally_.failed;
      console::print("Failed", 'R');
    } else if (any(Outcome::kOutOfMemory)) {
      ++tally_.out_of_memory;
      console::print("Out-of-Memory", 'R');
    } else if (interrupted) {
      console::print("Interrupted", 'Y');
    } else {
      ++tally_.passed;
      console::print("Passed", 'G');
    }
    console::label_value("  Test Time:  ", orl::seconds_text(seconds), 'G');
    console::label_value("  Total Elapsed Time: ", orl::seconds_text(orl::monotonic_seconds() - begin_), 'G');
    const auto least = std::min_element(reports.begin(), reports.end(), [](const auto& a, const auto& b) {
      return processor_share(a) < processor_share(b);
    });
    const std::string share = orl::format_float(100 * processor_share(*least), 4) + " %";
    console::label_value("\n        CPU: ", share, 'G');
    console::newline();
    if (!interrupted && processor_share(*least) < lowest_share_) {
      lowest_share_ = processor_share(*least);
      lowest_text_ = share + "  (" + test.tag() + " on logical core " + std::to_string(least->core) + ")";
    }
  }

  void print_summary() const {
    console::println("\nAll tests completed:", 'w');
    const auto row = [](const char* label, u64 count, char colour) {
      console::print_padded(24, label, 'w');
      console::println(orl::format_with_commas(count), count == 0 ? 'w' : colour);
    };
    row("    Passed", tally_.passed, 'G');
    row("    Failed", tally_.failed, 'R');
    row("    Skipped", tally_.skipped, 'Y');
    row("    Out-of-Memory", tally_.out_of_memory, 'R');
    if (!lowest_text_.empty()) {
      console::print_padded(24, "    Lowest CPU Use", 'w');
      console::println(lowest_text_, 'G');
    }
    if (tally_.failed > 0)
      console::println(
          std::string("\nThis machine computed or kept bits wrongly: check memory, processor, clocks and\n"
                      "cooling. What was found is in \"") +
              orl::kEventLogFile + "\".",
          'R');
    console::set_colour('w');
  }

  const StressSettings& settings_;
  double begin_;
  double summary_ = 0;  ///< when the last one was printed
  StressThreads threads_;
  Tally tally_;
  double lowest_share_ = 2;
  std::string lowest_text_;
};

}  // namespace

int run_stress_test(const StressSettings& settings) { return StressRun(settings).run(); }

}  // namespace orvane
