#include "transforms/ntt/ntt_join.h"

#include <algorithm>
#include <cstring>

namespace orl {
namespace {

constexpr u32 kHead = NttBlockEnd::kHead;

// Sum of c_i cofactor_i less the multiple of the modulus that the estimate finds; two's complement.
template <class R, u32 P>
struct Joiner {
  static constexpr u32 kWords = (8 * sizeof(R) * P + 63) / 64;
  const NttSet<R>& set;
  const R* F;
  u64 points;
  double bias;  ///< a quarter, or a half for values of either sign: then these are below a quarter
  double inverse[P];

  Joiner(const NttPlan<R>& plan, const R* residues)
      : set(*plan.set), F(residues), points(plan.row.points()), bias(plan.negacyclic() ? 0.5 : 0.25) {
    for (u32 i = 0; i < P; ++i) inverse[i] = 1 / static_cast<double>(plan.modulus[i].p);
  }

  void operator()(u64 i, u64 (&x)[kWords + 1]) const {
    double estimate = bias;
    for (u64& word : x) word = 0;
    for (u32 r = 0; r < P; ++r) {
      const u64 c = F[r * points + i];
      estimate += static_cast<double>(static_cast<s64>(c)) * inverse[r];
      u64 carry = 0;
#pragma GCC unroll 8
      for (u32 j = 0; j < kWords; ++j) {
        const u128 t = static_cast<u128>(c) * set.cofactor[r][j] + x[j] + carry;
        x[j] = static_cast<u64>(t);
        carry = static_cast<u64>(t >> 64);
      }
      x[kWords] += carry;
    }
    const u64 q = static_cast<u64>(estimate);
    u64 borrow = 0;
#pragma GCC unroll 8
    for (u32 j = 0; j < kWords; ++j) {
      const u128 t = static_cast<u128>(q) * set.modulus[j] + borrow;
      borrow = static_cast<u64>(t >> 64) + (x[j] < static_cast<u64>(t));
      x[j] -= static_cast<u64>(t);
    }
    x[kWords] -= borrow;
  }
};

// Bits from `limit_bits` on of |x|, all words of them together.
template <u32 kWords>
u64 bits_above(const u64 (&x)[kWords], u32 limit_bits) {
  const u64 sign = x[kWords - 1] >> 63 ? ~u64{0} : 0;
  u64 above = (x[limit_bits / 64] ^ sign) >> (limit_bits % 64);
  for (u32 j = limit_bits / 64 + 1; j < kWords; ++j) above |= x[j] ^ sign;
  return above;
}

template <class R, u32 P>
u64 join_points(const NttPlan<R>& plan, const R* F, u64 begin, u64 end, u32 limit_bits, WordWindow window,
                NttBlockEnd& result) {
  using J = Joiner<R, P>;
  constexpr u32 kPointBits = 4 * sizeof(R) * (P - 1);
  constexpr u32 kRoom = J::kWords + 2;
  static_assert(kRoom <= kHead);
  const J joiner(plan, F);
  const u64 first = begin * kPointBits / 64;
  u64 acc[kRoom] = {};  // words from `word` on, two's complement
  u64 word = first;
  u32 shift = 0;
  u64 largest = 0;
  result.dropped_ones = true;
  for (u64 i = begin; i < end; ++i) {
    u64 x[J::kWords + 1];
    joiner(i, x);
    largest = std::max(largest, bits_above(x, limit_bits));
    const u64 sign = x[J::kWords] >> 63 ? ~u64{0} : 0;
    u64 carry = 0, before = 0;
#pragma GCC unroll 16
    for (u32 j = 0; j < kRoom; ++j) {
      const u64 now = j <= J::kWords ? x[j] : sign;
      const u64 part = shift ? now << shift | before >> (64 - shift) : now;
      before = now;
      u64 s;
      const u64 c1 = __builtin_add_overflow(acc[j], part, &s);
      const u64 c2 = __builtin_add_overflow(s, carry, &s);
      acc[j] = s;
      carry = c1 + c2;
    }
    shift += kPointBits;
    while (shift >= 64) {
      const u64 value = acc[0];
      if (word - first < kHead)
        result.head[word - first] = value;
      else if (2 * word + 1 < window.begin)
        result.dropped_ones &= value == ~u64{0};
      else if (2 * word < window.begin)
        result.dropped_ones &= static_cast<u32>(value) == ~u32{0};
      window.put_u64(word, value);
      ++word;
      for (u32 j = 0; j + 1 < kRoom; ++j) acc[j] = acc[j + 1];
      acc[kRoom - 1] = acc[kRoom - 1] >> 63 ? ~u64{0} : 0;
      shift -= 64;
    }
  }
  const u64 sign = acc[kRoom - 1] >> 63 ? ~u64{0} : 0;
  for (u32 j = 0; j < kHead; ++j) result.overflow[j] = j < kRoom ? acc[j] : sign;
  return largest;
}

// T[at, n) += sign times the two's complement words of `overflow`; returns what passes the end.
s64 add_signed(u32* T, u64 n, u64 at, const u64* overflow, s64 sign) {
  s64 carry = 0;
  const auto step = [&](s64 value) {
    const s64 t = static_cast<s64>(load_u32(T + at)) + value + carry;
    store_u32(T + at++, static_cast<u32>(t));
    carry = t >> 32;
  };
  for (u32 j = 0; j < 2 * kHead; ++j) step(sign * static_cast<u32>(overflow[j / 2] >> (32 * (j % 2))));
  if (overflow[kHead - 1] >> 63) carry -= sign;
  while (carry && at < n) step(0);
  return carry;
}

}  // namespace

template <class R>
u64 join_ntt(const NttPlan<R>& plan, const R* F, u64 begin, u64 end, u32 limit_bits, WordWindow window,
             NttBlockEnd& result) {
  switch (plan.row.P) {
    case 4:
      return join_points<R, 4>(plan, F, begin, end, limit_bits, window, result);
    case 5:
      return join_points<R, 5>(plan, F, begin, end, limit_bits, window, result);
    case 6:
      return join_points<R, 6>(plan, F, begin, end, limit_bits, window, result);
    case 7:
      return join_points<R, 7>(plan, F, begin, end, limit_bits, window, result);
    default:
      return join_points<R, 8>(plan, F, begin, end, limit_bits, window, result);
  }
}

void resolve_ntt_carries(NttBlockEnd* blocks, u64 count, u64 words_per_block, u64 total_words,
                         WordWindow window) {
  u64 adds[kHead] = {};
  for (u64 b = 0; b < count; ++b) {
    const u64 first = b * words_per_block, last = std::min(first + words_per_block, total_words);
    if (2 * first >= window.end) return;
    NttBlockEnd& block = blocks[b];
    if (b > 0) {
      u64 carry = 0;
      for (u32 j = 0; j < kHead; ++j) {
        u64 s;
        const u64 c1 = __builtin_add_overflow(block.head[j], adds[j], &s);
        const u64 c2 = __builtin_add_overflow(s, carry, &s);
        carry = c1 + c2;
        window.put_u64(first + j, s);
      }
      // Onwards in 32-bit words.
      u64 at = 2 * (first + kHead);
      if (carry && at < window.begin) {
        if (!block.dropped_ones) carry = 0;
        at = std::min(window.begin, 2 * last);
      }
      for (const u64 stop = std::min(2 * last, window.end); carry && at < stop; ++at) {
        const u32 word = load_u32(window.at(at)) + 1;
        store_u32(window.at(at), word);
        carry = word == 0;
      }
      u64 spill = carry;
      for (u32 j = 0; j < kHead && spill; ++j) spill = ++block.overflow[j] == 0;
    }
    std::copy(block.overflow, block.overflow + kHead, adds);
  }
}

bool resolve_wrapped_carries(const NttBlockEnd* blocks, u64 count, u64 words_per_block, ProductRing ring,
                             u32* T, u64 n) {
  const s64 sign = ring == ProductRing::kNegacyclic ? -1 : 1;  // of W^n
  s64 carry = 0;
  for (u64 b = 0; b + 1 < count; ++b)
    carry += add_signed(T, n, 2 * (b + 1) * words_per_block, blocks[b].overflow, 1);
  carry += add_signed(T, n, 0, blocks[count - 1].overflow, sign);
  while (carry) {
    const s64 wrapped = carry;
    carry *= sign;
    for (u64 at = 0; carry && at < n; ++at) {
      const s64 t = static_cast<s64>(load_u32(T + at)) + carry;
      store_u32(T + at, static_cast<u32>(t));
      carry = t >> 32;
    }
    // W^n itself became W^n - 1 - W^n.
    if (sign < 0 && wrapped == 1 && carry) {
      std::memset(T, 0, 4 * n);
      return true;
    }
  }
  return false;
}

template u64 join_ntt(const NttPlan<u64>&, const u64*, u64, u64, u32, WordWindow, NttBlockEnd&);
template u64 join_ntt(const NttPlan<u32>&, const u32*, u64, u64, u32, WordWindow, NttBlockEnd&);

}  // namespace orl
