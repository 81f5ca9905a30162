#include "transforms/fft_twiddles.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace orl {
namespace {

// bitreverse(n) of a number below 2^bits, as a numerator over 2^bits.
u64 bit_reverse(u64 n, u32 bits) {
  u64 r = 0;
  for (u32 i = 0; i < bits; ++i) r |= (n >> i & 1) << (bits - 1 - i);
  return r;
}

TurnFraction reduced(u64 numerator, u64 denominator) {
  const u64 g = std::gcd(numerator, denominator);
  return {numerator / g % (denominator / g), denominator / g};
}

// theta of node n at a level below the root (1/4 + j) / k.
TurnFraction node_angle(u32 k, u32 j, u32 level, u64 n) {
  const u64 denominator = u64{4 * k} << level;
  return reduced(1 + 4 * j + 4 * k * bit_reverse(n, level), denominator);
}

// The record of the angle theta / 2^shift.
FftTwiddles record(TurnFraction theta, u32 shift) {
  FftTwiddles t;
  const u64 denominator = theta.denominator << (6 + shift);
  for (u32 i = 0; i < FftTwiddles::kCount; ++i) {
    const u64 multiple = i < 7 ? 8 * (i + 1) : u64{4} >> (i - 7);
    const auto [c, s] = unit_root(reduced(multiple * theta.numerator, denominator));
    t.re[i] = c;
    t.im[i] = s;
  }
  return t;
}

// theta - 1/4, modulo a turn, for theta the root of a subtree: what rotates the table of the root 1/4.
// Powers of roots below it depend on the representative, so it is kept as a signed difference.
FftTwiddles base_record(TurnFraction theta, u32 level) {
  const u64 d = std::lcm(theta.denominator, u64{4});
  const u64 own = theta.numerator * (d / theta.denominator), quarter = d / 4;
  if (own >= quarter) return record({own - quarter, d}, level);
  FftTwiddles t = record({quarter - own, d}, level);
  for (double& im : t.im) im = -im;
  return t;
}

u32 levels_above_blocks(u32 s) { return s - 1 - kFftBlockLevels; }

template <class T>
u64 chunk_bytes(u64 count) {
  return LinearHeapBuffer::cut_bytes<u8>(count * sizeof(T));
}

template <class T>
T* cut_chunk(LinearHeapBuffer& memory, u64 count) {
  return reinterpret_cast<T*>(memory.cut<u8>(count * sizeof(T)));
}

u32 table_levels(const std::array<u32, 3>& s) {
  u32 levels = 0;
  for (u32 x : s)
    if (x) levels = std::max(levels, std::min(levels_above_blocks(x), kFftSubtreeLevels) + 1);
  return levels;
}

u32 subtree_depth(u32 s) {
  const u32 levels = s ? levels_above_blocks(s) : 0;
  return levels > kFftSubtreeLevels ? levels - kFftSubtreeLevels : 0;
}

}  // namespace

std::array<double, 2> unit_root(TurnFraction angle) {
  // Eighths of a turn, and the rest as a fraction of the denominator times 8.
  const u64 eighths = 8 * angle.numerator / angle.denominator;
  u64 rest = 8 * angle.numerator % angle.denominator;
  const bool mirrored = eighths & 1;
  if (mirrored) rest = angle.denominator - rest;
  const long double x = static_cast<long double>(rest) / static_cast<long double>(angle.denominator) *
                        (3.14159265358979323846264338327950288L / 4);
  double c = static_cast<double>(std::cos(x)), s = static_cast<double>(std::sin(x));
  if (rest == angle.denominator) s = c;  // exactly an eighth
  // Quadrant-wise: angle = (eighths + 1) / 8 - x when mirrored, else eighths / 8 + x.
  const u64 quarters = (eighths + (mirrored ? 1 : 0)) / 2;
  if (mirrored) s = -s;
  switch (quarters % 4) {
    case 0:
      return {c, s};
    case 1:
      return {-s, c};
    case 2:
      return {-c, -s};
    default:
      return {s, -c};
  }
}

u64 FftTables::bytes(const std::array<u32, 3>& s) {
  u64 total = 0;
  for (u32 level = 0; level < table_levels(s); ++level) total += chunk_bytes<FftTwiddles>(u64{1} << level);
  for (u32 i = 0; i < 3; ++i) {
    if (!s[i]) continue;
    const u32 k = kOdd[i];
    if (k > 1) total += k * chunk_bytes<FftTwiddles>(kFftSubtreeLevels + 1);
    for (u32 depth = 1; depth <= subtree_depth(s[i]); ++depth)
      total += k * chunk_bytes<FftSubtreeBase>(u64{1} << depth);
  }
  return total;
}

void FftTables::grow(LinearHeapBuffer& memory, const std::array<u32, 3>& s) {
  for (u32 level = 0; level < table_levels(s); ++level) {
    if (levels_[level]) continue;
    FftTwiddles* t = cut_chunk<FftTwiddles>(memory, u64{1} << level);
    for (u64 n = 0; n < u64{1} << level; ++n) t[n] = record(node_angle(1, 0, level, n), 0);
    levels_[level] = t;
  }
  for (u32 i = 0; i < 3; ++i) {
    if (!s[i]) continue;
    const u32 k = kOdd[i];
    for (u32 p = 1; p < k; ++p) {
      const auto [c, sine] = unit_root({p, 4 * k});
      odd_[i].re[p - 1] = c;
      odd_[i].im[p - 1] = sine;
    }
    for (u32 j = 0; j < k; ++j) {
      if (k > 1 && !root_base_[i][j]) {
        FftTwiddles* t = cut_chunk<FftTwiddles>(memory, kFftSubtreeLevels + 1);
        for (u32 level = 0; level <= kFftSubtreeLevels; ++level)
          t[level] = base_record(node_angle(k, j, 0, 0), level);
        root_base_[i][j] = t;
      }
      for (u32 depth = 1; depth <= subtree_depth(s[i]); ++depth) {
        if (subtree_base_[i][j][depth]) continue;
        FftSubtreeBase* t = cut_chunk<FftSubtreeBase>(memory, u64{1} << depth);
        for (u64 n = 0; n < u64{1} << depth; ++n)
          for (u32 p = 0; p < kFftSubtreePasses; ++p)
            t[n].pass[p] = base_record(node_angle(k, j, depth, n), kFftSubtreePassLevels[p]);
        subtree_base_[i][j][depth] = t;
      }
    }
    built_s_[i] = std::max(built_s_[i], s[i]);
  }
}

}  // namespace orl
