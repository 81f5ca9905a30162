// Passes over digits of any number, through a window of fixed size.
#pragma once

#include <functional>
#include <string>

#include "core/status.h"
#include "digits/digit_reader.h"
#include "digits/digit_writer.h"
#include "digits/ovd_set.h"
#include "memory/linear_buffer.h"
#include "threads/parallelizer.h"

namespace orvane {

using orl::u32;
using orl::u64;

/// What a pass may use.
struct PassContext {
  orl::ParallelContext parallel;
  orl::LinearHeapBuffer buffer;  ///< more of it makes larger blocks; 1 MiB is always enough
  orl::StatusNode& status;
};

/// Stream indices [begin, end), from 0.
struct DigitRange {
  u64 begin, end;
  u64 count() const { return end - begin; }
};

/// Moves a range of `reader` to the stream indices from `target` on of `writer`, reading the next block while
/// one is written. Asks for the whole range first.
void copy_digits(orl::DigitReader& reader, DigitRange range, orl::DigitWriter& writer, u64 target,
                 const PassContext& context);

/// Files [first_id, last_id] of a set of compressed files "<name> - <id>.ovd".
struct SetTarget {
  std::string path, name;
  u64 digits_per_file;  ///< or orl::kSingleFile
  u64 total_digits;     ///< of the whole set; 0: unbounded
  u64 first_id, last_id;

  /// The digits of files [first, last].
  DigitRange range(u64 first, u64 last) const;
};

/// A writer of files of `target` with the digits of `reader`.
orl::BasicOvdSetWriter make_set_writer(const orl::DigitReader& reader, const SetTarget& target);

/// Files of a set that take their names together: more would take more memory.
inline constexpr u64 kFilesAtOnce = 4096;

/// Fills the files of `target` with the digits of `reader` that have their indices, kFilesAtOnce at a time.
/// Calls `named` with the first and the last id of each such batch once all its files have their names; they
/// keep them when a later batch fails, of which no file gets its own.
void copy_to_set(orl::DigitReader& reader, const SetTarget& target, const PassContext& context,
                 const std::function<void(u64 first, u64 last)>& named);

/// Hash of the digits before the point. Throws InvalidParametersException "No decimal place found." from
/// "compute_stats()", or "Invalid Digit".
u64 top_hash(const std::string& first_digits, u32 radix);

}  // namespace orvane
