// What is known of a stretch of digits without keeping it: counts by value, and the stream as an integer
// modulo 2^61 - 1.
#pragma once

#include <array>
#include <string>

#include "core/types.h"
#include "threads/parallelizer.h"

namespace orl {

/// How often each digit occurs.
class DigitCounts {
 public:
  DigitCounts() = default;  ///< of no radix: counts nothing
  /// Throws InvalidParametersException "Radix is too large." above 16.
  explicit DigitCounts(u32 radix);

  u32 radix() const { return radix_; }
  /// How often `digit` occurs, below 16; how many digits there are; adds the counts of another stretch.
  u64 count(u32 digit) const { return counts_[digit]; }
  u64 total() const;
  void add(const DigitCounts& other);
  /// Counts digits[0, length).
  void append(const u8* digits, u64 length);
  /// Compares all 16 counts.
  bool operator==(const DigitCounts& other) const { return counts_ == other.counts_; }

 private:
  u8 radix_ = 0;
  std::array<u64, 16> counts_{};
};

/// Counts and hash of a stretch of digits.
struct DigitStats {
  /// The empty stretch. Throws as DigitCounts.
  explicit DigitStats(u32 radix) : counts(radix) {}

  DigitCounts counts;
  u64 hash = 0;  ///< lazy

  /// Appends digits[0, length) behind the stretch: counts them, and hash = hash * radix^length + their
  /// integer.
  void append(const u8* digits, u64 length);
  void append(const u8* digits, u64 length, ParallelContext parallel);
  /// Appends a stretch of `length` digits that is known by its own record.
  void append(const DigitStats& next, u64 length);
};

/// The last digits of a stream as text.
class LastDigits {
 public:
  static constexpr u64 kLength = 100;
  /// Takes the end of a stream of which digits[0, length) are the latest; what is left of the former ones
  /// stays before them, kLength in all. Throws InvalidParametersException "Invalid Radix." from
  /// "LastDigits::set()".
  void set(u32 radix, const u8* digits, u64 length);
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

/// Integer of digits[0, length) modulo 2^61 - 1, lazy.
u64 hash_digits(u32 radix, const u8* digits, u64 length);

}  // namespace orl
