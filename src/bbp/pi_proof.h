// Hexadecimal digits of Pi held against those of the extractor's formula: an independent computation of the end
// of the number.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "core/status.h"
#include "core/types.h"

namespace orvane {

using orl::u64;

/// Digits compared at a place.
inline constexpr u64 kPiProofDigits = 16;

/// Digits at one place, as they were given and as the formula has them.
struct PiProofPlace {
  u64 offset;  ///< digits before the first of them, after the point
  std::string given, expected;
};

/// The outcome of a proof.
struct PiProof {
  /// kNotRun: it was not asked for.
  enum Result { kNotRun, kPassed, kFailed } result = kNotRun;
  std::vector<PiProofPlace> places;  ///< those that were compared
  double seconds = 0;                ///< that it took
};

/// The offsets that a proof of the first `digits` digits looks at: the last sixteen, and sixteen behind the first
/// sixteenth of them. Empty for fewer than 64 digits, and beyond what the extractor reaches.
std::vector<u64> pi_proof_offsets(u64 digits);

/// Seconds that prove_pi(digits, threads) is expected to take, from a sample of its work.
double pi_proof_seconds(u64 digits, u64 threads);

/// Compares the last of the first `digits` hexadecimal digits after the point, and some before them.
/// `digits_at(offset, count)` gives them in lower case.
PiProof prove_pi(u64 digits, u64 threads, const std::function<std::string(u64 offset, u64 count)>& digits_at,
                 orl::StatusNode& status);

/// "Passed - after 24,999,984 and 1,562,500 digits", "Failed - after " with the places that differ, or "Not Run".
std::string to_string(const PiProof& proof);
/// Both readings of each place that differs, a line each.
std::vector<std::string> differing_digits(const PiProof& proof);

}  // namespace orvane
