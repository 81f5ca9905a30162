// A digit file that is open, and what the viewer does with it: the menu asks for the arguments of a step, the command
// line brings them.
//
// Memory   one block of kViewerWindowBytes, whatever the file's size.
// Faults   a step throws what its reader or writer throws, and InvalidParametersException for what it cannot do.
// Files    nothing that exists is written over; what a failed pass leaves has no finished name, but for whole
//          batches of a set of very many files, which are told.
#pragma once

#include <memory>
#include <string>

#include "digits/digit_reader.h"
#include "digits/ovd_set.h"
#include "memory/aligned_malloc.h"
#include "threads/parallelism.h"
#include "viewer/digit_passes.h"

namespace orvane {

/// Digits and the pages that they come from and go to.
inline constexpr u64 kViewerWindowBytes = u64{20} << 20;
/// Digits on the screen at a time.
inline constexpr u64 kMaxViewDigits = 100000;
/// An index of digits without a bound: an unbounded stream has any.
inline constexpr u64 kNoDigitBound = ~u64{0};

/// Throws InvalidParametersException for a name that the files of a set cannot have.
void check_set_name(const std::string& name);

/// See the head of this file.
class FileView {
 public:
  /// Opens a text file (".txt") or any file of a compressed set (".ovd"). Throws InvalidParametersException "No
  /// Extension found." or "Unrecognized Extension: " and the extension.
  explicit FileView(const std::string& path);

  const orl::DigitReader& reader() const { return *reader_; }
  /// Null for a text file.
  orl::BasicOvdSetReader* set() { return set_; }
  const orl::BasicOvdSetReader* set() const { return set_; }
  /// Index of the last digit, the first one being 1.
  u64 last_digit() const { return reader_->total_digits() ? reader_->total_digits() : kNoDigitBound; }
  /// Id of the last file of a set with so many digits per file.
  u64 last_id(u64 digits_per_file) const;
  /// A name for a set of these digits: that of the file without number and extension.
  std::string own_name() const;

  /// What file it is: its first digits, how many there are, how a set is cut and where its files lie.
  void print_head() const;
  /// Shows `count` digits from `start` on, which counts from 1, in rows. False when the file does not give them, which
  /// has been told.
  bool view(u64 start, u64 count);
  /// Counts and hashes the digits of the range.
  void compute_stats(DigitRange range);
  /// Writes the digits of the range to a text file; ".txt" is added where it is missing.
  void extract(DigitRange range, std::string path);
  /// Writes the files of `target`, whose digits this file has, into its folder, which is made where it is missing.
  void compress(const SetTarget& target);
  /// Looks for the files of the set in `folder` as well. A text file has no others.
  void add_search_directory(const std::string& folder);
  /// Checks all digits against a validation file, or the last ones of Pi against the BBP formula. Prints the outcome;
  /// false when they differ.
  bool check_against_report(const std::string& path);
  bool prove_pi();

 private:
  orl::LinearHeapBuffer window() const { return {memory_.get(), kViewerWindowBytes}; }
  orl::DigitStats read_stats(DigitRange range, u64 top);
  void refuse_other_set(const SetTarget& target, const std::string& file) const;

  std::string path_;
  std::unique_ptr<orl::DigitReader> reader_;
  orl::BasicOvdSetReader* set_;
  orl::AlignedBlock memory_;
  orl::Parallelism parallelism_;
};

}  // namespace orvane
