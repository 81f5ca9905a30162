#include "transforms/residue_join.h"

#include <algorithm>
#include <cstring>

namespace orl {
namespace {

constexpr u32 kHead = 10;

void put_word(ResidueWindow w, u64 index, u64 value) {
  const u64 at = 2 * index;
  if (at >= w.begin && at + 2 <= w.end) {
    std::memcpy(w.target + (at - w.begin), &value, 8);
    return;
  }
  if (at >= w.begin && at < w.end) w.target[at - w.begin] = static_cast<u32>(value);
  if (at + 1 >= w.begin && at + 1 < w.end) w.target[at + 1 - w.begin] = static_cast<u32>(value >> 32);
}

// Sum of c_i cofactor_i less the multiple of the modulus that the estimate finds.
template <u32 P>
struct Joiner {
  static constexpr u32 kWords = (48 * P + 63) / 64;
  const ResidueSet& set;
  double inverse[P];

  explicit Joiner(const ResiduePlan& plan) : set(*plan.set) {
    for (u32 i = 0; i < P; ++i) inverse[i] = plan.modulus[i].inverse;
  }

  void operator()(const double* F, u64 points, u64 i, u64 (&x)[kWords + 1]) const {
    double estimate = 0.25;
    u64 low[kWords + 1] = {}, carry[kWords + 1] = {};
    // Products of 48 by 64 bits: nine of them leave room for their sum in 128 bits.
    u128 sum[kWords] = {};
    for (u32 r = 0; r < P; ++r) {
      const double c = F[r * points + i];
      estimate += c * inverse[r];
      const u64 v = static_cast<u64>(c);
#pragma GCC unroll 8
      for (u32 j = 0; j < kWords; ++j) sum[j] += static_cast<u128>(v) * set.cofactor[r][j];
    }
    const u64 q = static_cast<u64>(estimate);
    u64 run = 0;
#pragma GCC unroll 8
    for (u32 j = 0; j < kWords; ++j) {
      u64 out;
      low[j] = static_cast<u64>(sum[j]);
      carry[j + 1] = static_cast<u64>(sum[j] >> 64);
      const u64 c1 = __builtin_add_overflow(low[j], carry[j], &out);
      const u64 c2 = __builtin_add_overflow(out, run, &out);
      x[j] = out;
      run = c1 + c2;
    }
    x[kWords] = carry[kWords] + run;
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

template <u32 P>
u64 join_points(const ResiduePlan& plan, const double* F, u64 begin, u64 end, u32 limit_bits,
                ResidueWindow window, ResidueBlockEnd& result) {
  using J = Joiner<P>;
  constexpr u32 kPointBits = 24 * (P - 1);
  constexpr u32 kRoom = J::kWords + 2;
  const J joiner(plan);
  const u64 points = plan.row.points();
  const u64 first = begin * kPointBits / 64;
  u64 acc[kRoom + 1] = {};  // words from `word` on
  u64 word = first;
  u32 shift = 0;
  u64 largest = 0;
  result.dropped_ones = true;
  for (u64 i = begin; i < end; ++i) {
    u64 x[J::kWords + 1];
    joiner(F, points, i, x);
    u64 above = x[J::kWords];
    for (u32 j = limit_bits / 64; j < J::kWords; ++j)
      above |= j == limit_bits / 64 ? x[j] >> (limit_bits % 64) : x[j];
    largest = std::max(largest, above);
    u64 carry = 0, before = 0;
#pragma GCC unroll 16
    for (u32 j = 0; j < kRoom; ++j) {
      const u64 now = j <= J::kWords ? x[j] : 0;
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
      put_word(window, word, value);
      ++word;
      for (u32 j = 0; j < kRoom; ++j) acc[j] = acc[j + 1];
      shift -= 64;
    }
  }
  std::memset(result.overflow, 0, sizeof(result.overflow));
  std::copy(acc, acc + std::min(kRoom, kHead), result.overflow);
  return largest;
}

}  // namespace

u64 join_residues(const ResiduePlan& plan, const double* F, u64 begin, u64 end, u32 limit_bits,
                  ResidueWindow window, ResidueBlockEnd& result) {
  switch (plan.row.P) {
    case 4:
      return join_points<4>(plan, F, begin, end, limit_bits, window, result);
    case 5:
      return join_points<5>(plan, F, begin, end, limit_bits, window, result);
    case 6:
      return join_points<6>(plan, F, begin, end, limit_bits, window, result);
    case 7:
      return join_points<7>(plan, F, begin, end, limit_bits, window, result);
    case 8:
      return join_points<8>(plan, F, begin, end, limit_bits, window, result);
    default:
      return join_points<9>(plan, F, begin, end, limit_bits, window, result);
  }
}

void resolve_residue_carries(ResidueBlockEnd* blocks, u64 count, u64 words_per_block, u64 total_words,
                             ResidueWindow window) {
  u64 adds[kHead + 1] = {};
  for (u64 b = 0; b < count; ++b) {
    const u64 first = b * words_per_block, last = std::min(first + words_per_block, total_words);
    if (2 * first >= window.end) return;
    ResidueBlockEnd& block = blocks[b];
    if (b > 0) {
      u64 carry = 0;
      for (u32 j = 0; j < kHead; ++j) {
        u64 s;
        const u64 c1 = __builtin_add_overflow(block.head[j], adds[j], &s);
        const u64 c2 = __builtin_add_overflow(s, carry, &s);
        carry = c1 + c2;
        put_word(window, first + j, s);
      }
      // Onwards in 32-bit words.
      u64 at = 2 * (first + kHead);
      if (carry && at < window.begin) {
        if (!block.dropped_ones) carry = 0;
        at = std::min(window.begin, 2 * last);
      }
      for (const u64 stop = std::min(2 * last, window.end); carry && at < stop; ++at)
        carry = ++window.target[at - window.begin] == 0;
      u64 spill = carry;
      for (u32 j = 0; j < kHead && spill; ++j) spill = ++block.overflow[j] == 0;
    }
    std::copy(block.overflow, block.overflow + kHead, adds);
  }
}

}  // namespace orl
