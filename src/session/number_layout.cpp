#include "session/number_layout.h"

#include <algorithm>
#include <cstring>

#include "core/exceptions.h"

namespace orvane {
namespace {

// What the conversion to digits is made for: refused with a first line that says why.
void check_range(bool in_range, const char* why) {
  if (in_range) return;
  throw orl::InvalidParametersException(
      "words_to_dec()",
      std::string(why) +
          "\n\nOrvane's radix conversion and digit output is only equipped to handle\n"
          "positive numbers with a magnitude near 1.\n\nThe exact range that Orvane can handle is:\n"
          "    32-bit binaries: 2^-32 < x < 2^32\n    64-bit binaries: 2^-64 < x < 2^64");
}

}  // namespace

void lay_out(const orl::BigFloat<Word>& number, Word* base, u64 words) {
  check_range(number.signum() != 0, "Number is zero and out of range.");
  check_range(number.signum() > 0 && number.magnitude() <= 1 && number.magnitude() >= 0,
              "Number is out of range.");
  const orl::s64 lowest = 1 - static_cast<orl::s64>(words);  // exponent of base[0]
  const u64 dropped = number.exp < lowest ? static_cast<u64>(lowest - number.exp) : 0;
  const u64 kept = number.L - std::min(dropped, number.L);
  const u64 at = static_cast<u64>(number.exp + static_cast<orl::s64>(dropped) - lowest);
  std::memmove(base + at, number.T + dropped, kept * sizeof(Word));
  std::memset(base, 0, at * sizeof(Word));
  std::memset(base + at + kept, 0, (words - at - kept) * sizeof(Word));
}

}  // namespace orvane
