#include "transforms/common/far_transform.h"

#include <algorithm>

namespace orl {
namespace {

/// x[0, count) += y and a carry, which is returned.
u64 add_words(u64* x, const u64* y, u64 count) {
  u64 carry = 0;
  for (u64 j = 0; j < count; ++j) {
    const u128 sum = static_cast<u128>(x[j]) + y[j] + carry;
    x[j] = static_cast<u64>(sum);
    carry = static_cast<u64>(sum >> 64);
  }
  return carry;
}

}  // namespace

bool FarCarry::zero() const {
  return std::all_of(word, word + kWords, [](u64 w) { return w == 0; });
}
void FarCarry::negate() {
  for (u64& w : word) w = ~w;
  add(1);
}
void FarCarry::add(const FarCarry& other) { add_words(word, other.word, kWords); }
void FarCarry::add(s64 value) {
  FarCarry other;
  std::fill_n(other.word, kWords, value < 0 ? ~u64{0} : 0);
  other.word[0] = static_cast<u64>(value);
  add(other);
}

void FarCarry::add_to(u64* words, u64 count) {
  const u64 sign = word[kWords - 1] >> 63 ? ~u64{0} : 0, known = std::min<u64>(kWords, count);
  u64 carry = add_words(words, word, known);
  std::copy(word + known, word + kWords, word);
  std::fill(word + (kWords - known), word + kWords, sign);
  // Words of the sign, 0 or -1, and the carry: nothing changes once they cancel each other.
  u64 at = known;
  for (; at < count && carry != (sign & 1); ++at) {
    const u128 sum = static_cast<u128>(words[at]) + sign + carry;
    words[at] = static_cast<u64>(sum);
    carry = static_cast<u64>(sum >> 64);
  }
  add(static_cast<s64>(carry));
}

}  // namespace orl
