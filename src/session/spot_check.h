// A finished run against stored digits of the same constant, which another program made.
#pragma once

#include <string>
#include <vector>

#include "session/digit_output.h"

namespace orvane {

/// What the comparison with stored digits found.
struct SpotCheck {
  /// kNotAvailable: there are no stored digits.
  enum Result { kNotAvailable, kPassed, kFailed } result = kNotAvailable;
  std::string file;  ///< the stored digits; empty when there are none
  u64 compared = 0;  ///< digits after the point that were compared and agree
  u64 position = 0;  ///< of the first difference, when failed: 1 is the first digit after the point, 0 stands
                     ///< for the digits before it
};

/// The folders in which stored digits may lie, in the order in which they are searched: four below and above
/// `working_folder`, the same about the program's own folder, and that of an installed program. Both end with
/// a separator; the working folder may be empty.
std::vector<std::string> stored_digit_folders(const std::string& working_folder,
                                              const std::string& program_folder);

/// Compares as many digits as both sides have with the first of the files `folder` + `file_name` that can be
/// read. `number` holds the run's digits, `digit_count` of which count. Line ends behind the stored digits do
/// not count.
SpotCheck spot_check(const std::vector<std::string>& folders, const std::string& file_name,
                     const DigitWords& number, u64 digit_count);

}  // namespace orvane
