// A file of digits against what is known of them: the report of the run that made it, and for Pi another formula.
#pragma once

#include <string>
#include <string_view>

#include "bbp/pi_proof.h"
#include "core/status.h"
#include "digits/digit_reader.h"
#include "digits/digit_stats.h"
#include "memory/linear_buffer.h"
#include "threads/parallelizer.h"

namespace orvane {

/// What a report says of the digits of one radix.
struct DigitClaim {
  u64 digits = 0;  ///< after the point; 0 when the report knows none of this radix
  u64 hash = 0;
  std::string counts;  ///< as counts_text() writes them
  std::string sha256;  ///< empty when the report has none
};

/// The claim in the text of a validation file, whose own hash the caller has checked.
DigitClaim digit_claim(std::string_view report, orl::u32 radix);

/// A place to read digits, and what may run there.
struct CheckContext {
  orl::ParallelContext parallel;
  orl::LinearHeapBuffer buffer;  ///< two blocks of digits and a window for each
  orl::StatusNode& status;
};

/// Reads all digits of the file. Returns what differs from the claim, a line each with a line feed behind it; empty
/// when all agrees. Throws as the reader does.
std::string check_digits(orl::DigitReader& reader, const DigitClaim& claim, const CheckContext& context);

/// Checks the file of the path, a text file or any file of a set, against the validation file, whose form and hash are
/// checked first; prints the outcome. Status 0 when all agrees, else 1.
int run_digit_check(orl::DigitReader& reader, const std::string& report_path);
/// Proves the end of a file of Pi's hexadecimal digits by the BBP formula; prints the outcome. Status 0 when it agrees,
/// else 1. Throws InvalidParametersException for digits of another radix, or that do not begin with "3.".
int run_pi_proof(orl::DigitReader& reader);

}  // namespace orvane
