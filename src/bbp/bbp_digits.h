// Hexadecimal digits of Pi at any offset, without those before it.
//
// Memory   a few kilobytes per thread for a few digits; about 7 bytes per digit and thread for many.
// Errors   each fraction loses less than a unit of the last bit, so all lose less than their number, which is
//          below 2^43 at offset 2^40 and below 2^56 at kMaxBbpOffset. At least 64 bits follow the digits
//          asked for: these are right unless the 21, or 8, bits behind them happen to be all alike.
// Source   D. Bailey, P. Borwein, S. Plouffe, "On the rapid computation of various polylogarithmic
//          constants", 1997; F. Bellard's series with seven fractions, 1997.
#pragma once

#include <string>
#include <vector>

#include "bbp/bbp_sum.h"
#include "core/status.h"
#include "core/types.h"

namespace orvane {

using orl::u64;

/// Whose series: that of Bailey, Borwein and Plouffe, or that of Bellard.
enum class BbpFormula { kPlouffe, kBellard };

inline constexpr u64 kMinBbpDigits = 8, kMaxBbpDigits = 1048576;
/// Beyond it the digits asked for would too often be within reach of the error.
inline constexpr u64 kMaxBbpOffset = 10'000'000'000'000'000;

/// What is asked of an extraction.
struct BbpTask {
  BbpFormula formula = BbpFormula::kBellard;
  u64 offset = 0;   ///< digits skipped after the point, up to kMaxBbpOffset
  u64 digits = 32;  ///< kMinBbpDigits to kMaxBbpDigits
  u64 threads = 1;
  std::vector<orl::u32> pin_order;  ///< cores that threads are bound to in turn; empty: wherever they like

  /// Digits that are worked with: those asked for and some behind them.
  u64 precision_digits() const { return 8 * precision_words(); }
  /// Indices of each term.
  u64 terms_needed() const;
  /// Limbs of an accumulator.
  u64 limb_count() const;

 private:
  u64 precision_words() const { return (digits + 23) >> 3; }
};

/// The terms whose sum over all indices is 16^offset * Pi modulo 1.
std::vector<orl::BbpTerm> bbp_terms(BbpFormula formula, u64 offset);
/// "Frac( 1/(8k + 1) * 2^(-4k + 2) )"
std::string to_string(const orl::BbpTerm& term);

/// task.precision_digits() digits in lower case, from the one behind the offset on. A core that a thread
/// cannot be bound to is reported; the thread then runs anywhere.
std::string bbp_digits(const BbpTask& task, orl::StatusNode& status);

}  // namespace orvane
