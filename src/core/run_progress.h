// How far a long run is, from a plan of its work and what has been done of it.
//
// A run goes through stages, and a stage through parts. The plan gives the work of each in the seconds that it took on
// the machine where it was measured; this machine's speed is learned while the run goes on, from what lies behind the
// first entry, which prepares the memory and says little about the rest. Between two fractions that a
// part states, and in a part that states none, time stands for work, slower and slower when it takes longer than
// expected, so that the reading moves at any time and never goes back.
//
// Threads  the run's thread opens and closes; any other may read.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "core/status.h"
#include "core/types.h"
#include "core/uncopied.h"

namespace orl {

/// A part of a stage by the text of its frame; the rest of a stage, behind its last part, has an empty one.
struct PlannedWork {
  std::string stage, part;
  double seconds;
};

/// What a part took. The time since the part before it counts as its own.
struct SpentWork {
  char part[32];
  double wall_seconds, processor_seconds;
};

/// See the head of this file.
class RunProgress : Uncopied {
 public:
  /// A state of the run.
  struct Reading {
    double done = 0;     ///< 0 to 1
    double elapsed = 0;  ///< seconds since the construction
    double left = -1;    ///< seconds; below 0: not known yet
  };

  /// The entries in the order of the run; entries that the run leaves out are passed over.
  explicit RunProgress(std::vector<PlannedWork> plan);

  /// A part begins; one that the plan does not know counts to the entry in work.
  void open_part(std::string_view text);
  /// The part in work says of itself how much of it is done, and what it will say next; a goal that is not above the
  /// fraction is not known.
  void set_fraction(double fraction, double goal = 0);
  /// The part in work is done.
  void close_part();
  /// The stage is done, with all of its entries. Returns what its parts and its rest took.
  std::vector<SpentWork> finish_stage(std::string_view stage);

  /// The state of now. The share done never goes back.
  Reading read();

 private:
  // Of the entry in work, at the given time.
  double fraction_at(double now) const;
  double speed_at(double now, double fraction) const;
  void go_to(u64 entry, double now);
  void record(std::string_view part, double now);

  const std::vector<PlannedWork> plan_;
  std::vector<double> before_;  ///< work of all entries before each, and of all
  mutable SpinLock lock_;
  const double start_;
  double prepared_ = 0;       ///< when the first entry was done
  u64 entry_ = 0;             ///< in work
  double entered_, changed_;  ///< when the entry began, and when it last said how much is done
  double base_ = 0;           ///< share of it that was done when it first said so
  double fraction_ = 0;       ///< of the entry, by what it said of what is behind the base
  double goal_ = 0;           ///< the fraction that it will come to next; not above fraction_: not known
  bool tells_ = false;        ///< it says how much is done, if only that nothing is
  double best_ = 0;           ///< the last reading
  double recorded_wall_, recorded_cpu_;
  bool open_ = false;
  char part_[32] = {};
  std::vector<SpentWork> spent_;  ///< of the stage in work; never grows beyond what was reserved
};

/// "45.1%  0:01:23  left 0:01:40", or without what is not known.
std::string_view progress_text(const RunProgress::Reading& reading, char (&text)[64]);

}  // namespace orl
