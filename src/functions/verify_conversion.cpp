#include <algorithm>

#include "frame/exceptions.h"
#include "functions/radix_conversion.h"
#include "numbers/algorithm_table.h"
#include "numbers/hash.h"
#include "numbers/words.h"

namespace orl {

namespace {

template <class W>
constexpr u32 kWordBits = 8 * sizeof(W);

// odd^e by squaring and multiplying by odd, bit by bit from the top: a power that shares nothing with the
// conversion's table. `result` and `other` take turns; odd_power_words(e) + 1 words in result, half of that +
// 2 in other.
template <class W>
CBRv2::Power<W> odd_power(const ConvertPlanP<W>& plan, u64 e, W* result, W* other,
                          const MultiplyContext& ctx) {
  int bit = 63 - __builtin_clzll(e);
  CBRv2::Power<W> power{bit % 2 == 0 ? result : other, 1, 0};
  power.T[0] = plan.odd();
  while (bit-- > 0) {
    const u64 reached = e >> bit;
    W* T = power.T == result ? other : result;
    u64 L = std::min(2 * power.L, plan.odd_power_words(reached & ~u64{1}));
    basic_table<W>().sqr_window(ctx, T, 0, L, power.T, power.L);
    L = bp_strip<W>(0, T, L, ctx.parallel);
    if (reached & 1) {
      const W carry = bp_mul_uW(T, T, L, plan.odd(), 0, ctx.parallel);
      if (carry != 0) T[L++] = carry;
    }
    power = {T, L, 0};
  }
  return power;
}

}  // namespace

template <class W>
VerifyConversion<W>::VerifyConversion(W radix, u64 digit_words, u64 tds)
    : plan_(ConvertPlanP<W>::make(radix, digit_words, tds)) {
  const u64 m = plan_.fraction_words();
  zero_words_ = digit_words * plan_.shift() / kWordBits<W>;
  power_words_ = plan_.odd_power_words(digit_words) + 1;
  dropped_words_ = m + 1 - zero_words_;
  const u64 product = std::min(m, dropped_words_) + power_words_;
  const u64 half_power = plan_.odd_power_words((digit_words + 1) / 2) + 2;
  need_.out_words = 0;
  need_.table_bits = product * kWordBits<W>;
  need_.ram_bytes = LinearHeapBuffer::cut_bytes<W>(power_words_) +
                    LinearHeapBuffer::cut_bytes<W>(std::max(dropped_words_, half_power)) +
                    basic_table<W>().max_sizes(product, tds).total_bytes();
}

template <class W>
typename VerifyConversion<W>::Result VerifyConversion<W>::run(const RunContext& ctx, const W* digits,
                                                              const BigFloat<W>& x,
                                                              LinearHeapBuffer heap) const {
  if (heap.size < need_.ram_bytes)
    throw BufferTooSmallException("VerifyConversion::run()", heap.size, need_.ram_bytes);
  const u64 n = plan_.digit_words();
  const FractionView<W> F = fraction_of(x, plan_.fraction_words());
  W* power_buffer = heap.cut<W>(power_words_);
  W* E = heap.cut<W>(std::max(dropped_words_, plan_.odd_power_words((n + 1) / 2) + 2));
  const MultiplyContext multiply = ctx.multiply(heap);

  CBRv2::Power<W> power = odd_power(plan_, n, power_buffer, E, multiply);
  const u32 bits = n * plan_.shift() % kWordBits<W>;
  const W carry = bp_mul_uW(power.T, power.T, power.L, W{1} << bits, 0, ctx.parallel);
  if (carry != 0) power.T[power.L++] = carry;
  power.exp = zero_words_;
  CBRv2::CheckP(plan_.radix(), n, power, ctx.parallel);

  // F * r^n below W^(m+1), without the zeros at its bottom: E and one word, the lowest of the quotient.
  const u64 m = F.L;
  const u64 words = m + 1 > zero_words_ ? m + 1 - zero_words_ : 0;
  const u64 used = std::min(m, words);
  const u64 formed = used == 0 ? 0 : std::min(words, used + power.L);
  if (formed != 0) basic_table<W>().mul_window(multiply, E, 0, formed, F.T, used, power.T, power.L);
  bp_fill(E + formed, words - formed, 0);

  // D modulo W by Horner's rule. D may be one less than the floor, and then E is a whole W^m larger.
  W low = 0;
  for (u64 i = n; i-- > 0;) low = static_cast<W>(low * plan_.radix() + digits[i]);
  const W excess = words == 0 ? W{0} - low : static_cast<W>(E[words - 1] - low);
  const u64 radix_hash = hash_fold(plan_.radix());
  u64 dropped = bp_hash(excess == 1 ? 1 : 0, E, words == 0 ? 0 : words - 1, ctx.parallel);
  if (words != 0) dropped = hash_mul(dropped, hash_word_pow<W>(static_cast<s64>(zero_words_)));
  const u64 D = bp_hash_base(0, radix_hash, digits, n, ctx.parallel);

  Result result;
  result.digits_hash = hash_canon(hash_add(hash_mul(D, hash_word_pow<W>(static_cast<s64>(m))), dropped));
  result.binary_hash = hash_canon(hash_mul(bp_hash(0, F.T, m, ctx.parallel), hash_pow(radix_hash, n)));
  result.ok = result.digits_hash == result.binary_hash;
  return result;
}

template class VerifyConversion<u32>;
template class VerifyConversion<u64>;

}  // namespace orl
