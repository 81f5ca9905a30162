// How numbers are written on the command line and at prompts.
//
// All forms read a leading run of digits and stop without an error at what they do not understand, so a
// malformed number yields what was read so far and an empty one 0. Values past 64 bits stay at the largest.
#pragma once

#include <string_view>

#include "core/types.h"

namespace orl {

/// Digits, then one of K, M, B, T (either case) for 10^3, 10^6, 10^9, 10^12. "2.5b" is 2.
u64 parse_decimal_count(std::string_view text);
/// parse_decimal_count() with an optional leading '-'.
s64 parse_signed_count(std::string_view text);
/// Digits, a fraction, blanks, then one of K, M, G, T, P, E (either case) for 2^10 to 2^60. The fraction
/// times the unit is rounded up to a byte; without a unit it is dropped.
u64 parse_byte_size(std::string_view text);
/// Digits only.
u64 parse_plain_integer(std::string_view text);

/// A text that is to be a number and nothing else.
struct WholeNumber {
  u64 value;
  enum Kind { kExact, kNone, kTooLarge } kind;  ///< none: not digits only, or empty; too large: for 64 bits
};
/// Digits and nothing else; for arguments that must not be misread.
WholeNumber parse_whole_number(std::string_view text);

}  // namespace orl
