// What is told and kept when a check finds that the machine computed or kept something wrongly.
//
// The user reads in plain words what that means and what to do; the details of the check follow as they are. The event
// goes to a log in the working folder, beside the validation files (docs/file-formats.md), with the machine, the work
// and the details: a fault that comes once a month is found in no other way.
//
// Threads  any thread may tell of a fault; the log gets one entry in one piece.
#pragma once

#include <string>
#include <vector>

#include "core/exceptions.h"
#include "core/uncopied.h"

namespace orl {

/// The log's name, in the working folder.
inline constexpr const char* kEventLogFile = "Orvane Event Log.txt";

/// What the process works at, for the log. One at a time.
class LoggedWork : Uncopied {
 public:
  /// `work`: one line, such as "Pi, Chudnovsky (1988), 1,000,000 decimal digits".
  explicit LoggedWork(std::string work);
  ~LoggedWork();
  /// The stage that begins now, such as "Base Converting".
  static void set_stage(std::string stage);
};

/// Adds an entry to the log: `event` in a few words, and the lines of `details`. Returns the words for the user that say
/// where it is, or why it is nowhere.
std::string log_event(const std::string& event, const std::string& details);

/// Puts a wrong result into the log, and says what it means. The caller prints `fault`, or `details`, next.
void tell_wrong_result(const Exception& fault);
void tell_wrong_result(const std::string& details);

/// A check that ends the run: tells, prints the findings and the conclusion in the error colour, and takes fatal_exit(1).
[[noreturn]] void end_at_wrong_result(const std::vector<std::string>& findings,
                                      const std::string& conclusion);

}  // namespace orl
