// Times of a run: wall clock and processor, whole and by stage.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "core/types.h"

namespace orl {

/// Seconds since an arbitrary start, from a clock that does not jump.
double monotonic_seconds();
/// "1.234 seconds"
std::string seconds_text(double seconds);
/// The local time by ISO 8601, with the zone's difference from UTC: "2026-11-21T09:24:13+01:00".
std::string iso_date_of_now();

/// The times of a run: of the wall and of the processors, as a whole and by stage.
class RunTimer {
 public:
  /// Starts all sums.
  RunTimer();

  /// Records the time since the last call, or since the start, under a name.
  double add_stage(const std::string& name);
  void stop();

  const std::vector<std::pair<std::string, double>>& stages() const { return stages_; }
  /// Valid after stop(): wall, user and kernel seconds of the process between start and stop.
  double wall_seconds() const { return wall_; }
  double user_seconds() const { return user_; }
  double kernel_seconds() const { return kernel_; }
  /// The processor's share of the wall time of so many cores, "98.76 %  +  0.12 % kernel overhead", or
  /// "Too Fast to Measure".
  std::string utilization(u64 cores) const;
  /// "Sat Nov 21 09:24:13 2026"
  const std::string& start_date() const { return start_date_; }
  const std::string& end_date() const { return end_date_; }
  /// The dates by ISO 8601, as iso_date_of_now() has them.
  const std::string& iso_start_date() const { return iso_start_date_; }
  const std::string& iso_end_date() const { return iso_end_date_; }
  /// The end as names of files hold it, "20261121-092413".
  const std::string& end_stamp() const { return end_stamp_; }
  /// All stages of this name together.
  double stage_seconds(const std::string& name) const;

 private:
  double start_wall_, start_user_, start_kernel_, last_stage_;
  double wall_ = 0, user_ = 0, kernel_ = 0;
  std::string start_date_, end_date_, iso_start_date_, iso_end_date_, end_stamp_;
  std::vector<std::pair<std::string, double>> stages_;
};

}  // namespace orl
