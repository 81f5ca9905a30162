// How numbers are written on the command line, at prompts and in files: the one reader of them all.
//
// Digits may be separated by underscores, and by commas in groups of three: 1,000,000 and 1_000_000. What
// else may stand there depends on the form. A reader that wants the number alone looks at `rest`; nobody takes
// a number that has something behind it.
#pragma once

#include <string>
#include <string_view>

#include "core/types.h"

namespace orl {

/// What may stand behind the digits.
enum class NumberForm {
  kInteger,  ///< digits, or digits and an exponent: 1e9
  kCount,    ///< as kInteger, or one of K, M, B, T (either case) behind the digits: 10^3, 10^6, 10^9, 10^12
  /// As kInteger; or digits, a fraction, blanks, then one of K, M, G, T, P, E (either case) for 2^10 to 2^60,
  /// and "B" or "iB" behind it. The fraction times the unit is rounded up to a byte; without a unit it is
  /// dropped.
  kBytes,
};

/// What stands at the front of a text.
struct Number {
  u64 value = 0;           ///< the largest there is where the text says more
  bool too_large = false;  ///< for 64 bits
  std::string_view read;   ///< the characters that make the value; empty where no number begins
  std::string_view rest;   ///< those behind them

  /// The text is a number and nothing else.
  bool is_whole() const { return !read.empty() && rest.empty(); }
};

/// The number at the front of `text`; blanks in front of it are not skipped.
Number parse_number(std::string_view text, NumberForm form);

/// Why `number` is no answer: what was read of it and how it is written. It has something behind it.
std::string number_refusal(const Number& number, NumberForm form);

/// A text that is to be a number and nothing else.
struct WholeNumber {
  u64 value;
  enum Kind { kExact, kNone, kTooLarge } kind;  ///< none: not of the form, or empty; too large: for 64 bits
};
/// A number of the form kInteger and nothing else; for arguments that must not be misread.
WholeNumber parse_whole_number(std::string_view text);

}  // namespace orl
