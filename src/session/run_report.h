// What is known of a finished run. The session fills the record; the console's report, the validation file
// and the machine-readable results are written from it.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "bbp/pi_proof.h"
#include "config/object.h"
#include "core/run_progress.h"
#include "core/run_timer.h"
#include "session/digit_output.h"
#include "session/spot_check.h"
#include "system/machine.h"
#include "system/reference_clocks.h"

namespace orvane {

/// What a run on disks moved.
struct DiskUse {
  u64 peak_bytes = 0, read_bytes = 0, written_bytes = 0;
};

/// See the head of this file.
struct RunReport {
  std::string user;                        ///< from Username.txt
  std::vector<orl::ReportSection> system;  ///< the machine

  std::string constant, constant_long;
  std::string algorithm, algorithm_long;
  u64 decimal_digits = 0;
  u64 hexadecimal_digits = 0;  ///< 0: none were asked for

  std::string mode;       ///< "Ram Only" or "Swap Mode"
  std::string threading;  ///< the framework in words
  u64 threads = 1;        ///< that could run at once
  u64 working_bytes = 0, table_bytes = 0;
  std::optional<DiskUse> disk;
  orl::Object configuration;

  orl::RunTimer timer;  ///< stopped
  /// What the parts of each of the timer's stages took.
  std::vector<std::vector<orl::SpentWork>> stage_parts;
  u64 peak_bytes = 0;              ///< the most memory that the process had at once
  double computation_seconds = 0;  ///< the constant and its conversion to digits

  OutputResult dec, hex;  ///< hex.digit_count is 0 without hexadecimal digits

  SpotCheck spot_check;
  std::optional<PiProof> pi_proof;  ///< of Pi alone
  orl::ClockReport clocks;
  bool debugger = false;
  bool contiguous = true;  ///< from start to end in one process

  std::string events;  ///< lines ended by CR LF
};

/// A line of a report: pieces of text, each with its colour on the console.
using ReportLine = std::vector<std::pair<std::string, char>>;
using ReportLines = std::vector<ReportLine>;

/// On the console.
void print_lines(const ReportLines& lines);
/// Without colours, each line ended by CR LF.
std::string lines_text(const ReportLines& lines);

/// Where times are shown: the labels differ.
enum class ReportForm { kConsole, kFile };

/// Start, end, computation and wall time; use of the processors.
ReportLines time_lines(const RunReport& report, ReportForm form);
ReportLines utilization_lines(const RunReport& report);
/// Last digits, SHA-256 of the digits, counts and hashes, each of both radices before the next.
ReportLines result_lines(const RunReport& report);
ReportLines check_lines(const RunReport& report, ReportForm form);

/// "Passed", "Failed" or "Not Available".
const char* spot_check_text(SpotCheck::Result result);
/// Clocks prove nothing about the time between two processes of a run that is not contiguous.
const char* clock_text(orl::ClockCheck check, bool contiguous);

}  // namespace orvane
