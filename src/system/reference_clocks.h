// Three clocks that do not depend on each other, read at both ends of a run: a run time is worth something
// only if they agree on it.
//
// Clock 0  CLOCK_MONOTONIC_RAW, which nothing adjusts.
// Clock 1  CLOCK_REALTIME, which the administrator and the network time set.
// Clock 2  the processor's time-stamp counter, with its frequency measured at both ends of the run.
#pragma once

#include <array>
#include <optional>
#include <string>

#include "core/types.h"

namespace orl {

/// Whether clocks agree; the third is told where they prove nothing.
enum class ClockCheck { kPassed, kFailed, kUnableToValidate };
/// "Passed", "Failed", "Unable to Validate".
const char* clock_check_text(ClockCheck check);

/// Readings taken at one instant, as near as the scheduler lets them; empty: the clock cannot be used.
struct ClockSample {
  std::optional<s64> raw_ns, real_ns;
  std::optional<u64> ticks;  ///< time-stamp counter; only one that runs at a constant rate is used
};
/// Reads all that can be used, now.
ClockSample read_clocks();

/// What a run's clocks say about it.
struct ClockReport {
  ClockCheck timer;                   ///< the elapsed times agree
  ClockCheck frequency;               ///< the counter ran at the frequency that was measured at the start
  std::string reference;              ///< of the line "Reference Clock:", such as "rdtsc at 2.300 GHz"
  std::array<std::string, 3> clocks;  ///< of "Reference Clock 0:" and so on, such as "1.250000 seconds"
};

/// Two clocks agree on a time t if they differ by at most t / 1000 + 1 ms: network time may slew the clock by
/// 500 parts in a million, and a reading may be some microseconds off. Times below 0.1 seconds, and less than
/// two usable clocks, prove nothing: kUnableToValidate. `start_hz` and `end_hz` are the counter's frequency,
/// 0 where unknown.
ClockReport compare_clocks(const ClockSample& start, const ClockSample& end, double start_hz, double end_hz);

/// Made at the start of a run; each end of it costs about 10 ms for the frequency.
class ReferenceClocks {
 public:
  /// `measure_hz` gives the counter's frequency, at each end; 0 where it is not constant.
  explicit ReferenceClocks(double (*measure_hz)() = measured_frequency);
  /// The run until now.
  ClockReport finish() const;

 private:
  static double measured_frequency();

  double (*measure_hz_)();
  double hz_;
  ClockSample start_;
};

}  // namespace orl
