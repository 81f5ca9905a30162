#include "transforms/fft/fft_twiddles.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "transforms/fft/fft_plan.h"

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

// Entry i is e(theta / kDivisor[i] + kEighth[i] / 8).
constexpr u64 kDivisor[FftTwiddles::kCount] = {2, 4, 8, 8, 16, 32, 64, 64};
constexpr u64 kEighth[FftTwiddles::kCount] = {0, 0, 0, 1, 0, 0, 0, 1};

FftTwiddles record(TurnFraction theta) {
  FftTwiddles t;
  for (u32 i = 0; i < FftTwiddles::kCount; ++i) {
    const u64 denominator = theta.denominator * kDivisor[i] * 8;
    const auto [c, s] =
        unit_root(reduced(8 * theta.numerator + kEighth[i] * theta.denominator * kDivisor[i], denominator));
    t.re[i] = c;
    t.im[i] = s;
  }
  return t;
}

// Rotates the table of the root 1/4 to the root theta, `level` levels below:
// e((theta - 1/4) / 2^level / kDivisor[i]).
FftTwiddles base_record(TurnFraction theta, u32 level) {
  const u64 d = std::lcm(theta.denominator, u64{4});
  const u64 own = theta.numerator * (d / theta.denominator), quarter = d / 4;
  const bool negative = own < quarter;
  const u64 difference = negative ? quarter - own : own - quarter;
  FftTwiddles t;
  for (u32 i = 0; i < FftTwiddles::kCount; ++i) {
    const auto [c, s] = unit_root(reduced(difference, d * kDivisor[i] << level));
    t.re[i] = c;
    t.im[i] = negative ? -s : s;
  }
  return t;
}

template <class T>
u64 chunk_bytes(u64 count) {
  return LinearHeapBuffer::cut_bytes<u8>(count * sizeof(T));
}

// What the shapes need: levels of the roots' own tables, and depths of
// subtrees, for each odd factor.
struct Extent {
  u32 levels = 0;
  u32 depths = 0;  // bit d: subtrees d levels below the root
};

template <class Body>
void for_each_depth(const Extent& extent, const Body& body) {
  for (u32 depth = 0; extent.depths >> depth != 0; ++depth)
    if (extent.depths >> depth & 1) body(depth);
}

std::array<Extent, 3> extents(const std::array<u32, 3>& s) {
  std::array<Extent, 3> all;
  for (u32 i = 0; i < 3; ++i) {
    for (u32 x = 1 + kFftBlockLevels; x <= s[i]; ++x) {
      const FftPlan plan{FftTables::kOdd[i], x - 1 - kFftBlockLevels, 0, nullptr};
      if (plan.rotated()) {
        all[i].depths |= 1u << plan.subtree_depth();
        all[0].levels = kFftSubtreeLevels + 1;  // what subtrees rotate
      } else {
        all[i].levels = plan.levels + 1;
      }
    }
  }
  return all;
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
  // Quadrant-wise: angle = (eighths + 1) / 8 - x when mirrored, else eighths /
  // 8 + x.
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

const FftPowers& fft_first_powers(u32 radix) {
  static const std::array<FftPowers, 9> all = [] {
    std::array<FftPowers, 9> t{};
    for (u64 r : {2, 3, 4, 5, 8})
      for (u64 p = 1; p < r; ++p) {
        const auto [c, s] = unit_root(reduced(p, 4 * r));
        t[r].re[p - 1] = c;
        t[r].im[p - 1] = s;
      }
    return t;
  }();
  return all[radix];
}

u64 FftTables::bytes(const std::array<u32, 3>& s) {
  u64 total = 0;
  const std::array<Extent, 3> all = extents(s);
  for (u32 i = 0; i < 3; ++i) {
    const u32 k = kOdd[i];
    const Extent& e = all[i];
    for (u32 level = 0; level < e.levels; ++level) total += k * chunk_bytes<FftTwiddles>(u64{1} << level);
    for_each_depth(
        e, [&](u32 depth) { total += k * chunk_bytes<FftTwiddles>(u64{base_count(k, depth)} << depth); });
  }
  return total;
}

void FftTables::grow(LinearHeapBuffer& memory, const std::array<u32, 3>& s) {
  const auto cut = [&](u64 count) {
    return reinterpret_cast<FftTwiddles*>(memory.cut<u8>(count * sizeof(FftTwiddles)));
  };
  const std::array<Extent, 3> all = extents(s);
  for (u32 i = 0; i < 3; ++i) {
    const u32 k = kOdd[i];
    const Extent& e = all[i];
    for (u32 j = 0; j < k; ++j) {
      for (u32 level = 0; level < e.levels; ++level) {
        if (roots_[i][j][level]) continue;
        FftTwiddles* t = cut(u64{1} << level);
        for (u64 n = 0; n < u64{1} << level; ++n) t[n] = record(node_angle(k, j, level, n));
        roots_[i][j][level] = t;
      }
      for_each_depth(e, [&](u32 depth) {
        if (bases_[i][j][depth]) return;
        const u32 count = base_count(k, depth);
        FftTwiddles* t = cut(u64{count} << depth);
        for (u64 n = 0; n < u64{1} << depth; ++n)
          for (u32 b = 0; b < count; ++b)
            t[n * count + b] =
                base_record(node_angle(k, j, depth, n),
                            begins_with_passes(k, depth) ? kFftPassLevels[b] : base_level(k, depth) + b);
        bases_[i][j][depth] = t;
      });
    }
    built_s_[i] = std::max(built_s_[i], s[i]);
  }
}

}  // namespace orl
