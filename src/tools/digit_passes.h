// Passes over digits of any number, through a window of fixed size.
#pragma once

#include <string>

#include "digits/digit_reader.h"
#include "digits/digit_writer.h"
#include "frame/status.h"
#include "parallel/linear_buffer.h"
#include "parallel/parallelizer.h"

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

/// Hash of the digits before the point. Throws InvalidParametersException "No decimal place found." from
/// "compute_stats()", or "Invalid Digit".
u64 top_hash(const std::string& first_digits, u32 radix);

}  // namespace orvane
