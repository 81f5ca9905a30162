// What a run may do to the files of its output folder, settled before it computes.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/uncopied.h"
#include "files/file_lock.h"
#include "session/parameters.h"

namespace orvane {

/// A stream of digits that stands under the name of one that a run would write.
struct StoredDigits {
  std::string path;     ///< the file; of a set, one of its files
  u64 digits = 0;       ///< after the point; 0 when the file cannot be read as digits
  u64 planned = 0;      ///< that the run would write there
  bool larger = false;  ///< it has more digits than the run makes, or more bytes where it cannot be read
};

/// The streams that a run with these parameters would replace.
std::vector<StoredDigits> digits_to_replace(const ComputeParameters& parameters);
/// One sentence for each of the larger ones, with a line feed behind it; empty without any.
std::string larger_digits_text(const std::vector<StoredDigits>& stored);

/// The names of a run's digit files, held from before the computation until they are given. What runs that were
/// killed left under these names is removed.
class OutputClaim : orl::Uncopied {
 public:
  /// Throws InvalidParametersException: another run writes files of these names; a file with more digits stands
  /// there and parameters.overwrite is false; the file system has too little room.
  explicit OutputClaim(const ComputeParameters& parameters);

 private:
  std::vector<std::unique_ptr<orl::FileLock>> locks_;
};

}  // namespace orvane
