#include "session/number_layout.h"

#include <algorithm>
#include <cstring>

#include "core/exceptions.h"
#include "words/hash.h"
#include "words/words.h"

namespace orvane {
namespace {

using orl::s64;

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

FixedNumber lay_out(const orl::BigFloat<Word>& number, u64 number_hash, u64 count,
                    orl::ParallelContext parallel) {
  check_range(number.signum() != 0, "Number is zero and out of range.");
  check_range(number.signum() > 0 && number.magnitude() <= 1 && number.magnitude() >= 0,
              "Number is out of range.");
  if (number.size < count)
    throw orl::BufferTooSmallException("lay_out()", number.size * sizeof(Word), count * sizeof(Word));
  const s64 lowest = 1 - static_cast<s64>(count);  // exponent of words[0]
  const u64 dropped = std::min(number.exp < lowest ? static_cast<u64>(lowest - number.exp) : 0, number.L);
  const u64 kept = number.L - dropped;
  const u64 at = number.exp < lowest ? 0 : static_cast<u64>(number.exp - lowest);

  const u64 dropped_hash = orl::hash_mul(orl::bp_hash<Word>(0, number.T, dropped, parallel),
                                         orl::hash_word_pow<Word>(number.exp - lowest));
  const u64 hash = orl::hash_sub(orl::hash_mul(number_hash, orl::hash_word_pow<Word>(-lowest)), dropped_hash);

  // A finished number has more words than the layout, so that it stays where it is; only a short one moves.
  const u64 begin = static_cast<u64>(number.T - number.base) + dropped;
  const bool stays = begin >= at && begin - at + count <= number.size;
  Word* const words = number.base + (stays ? begin - at : 0);
  if (!stays) std::memmove(words + at, number.T + dropped, kept * sizeof(Word));
  orl::bp_fill<Word>(words, at, 0, parallel);
  orl::bp_fill<Word>(words + at + kept, count - at - kept, 0, parallel);
  return {words, count, orl::hash_canon(hash)};
}

}  // namespace orvane
