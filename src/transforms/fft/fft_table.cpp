#include "transforms/fft/fft_table.h"

#include <algorithm>
#include <array>

#include "core/exceptions.h"
#include "transforms/fft/fft_bounds.h"

namespace orl {
namespace {

constexpr FftRow kRows[] = {
#include "transforms/fft/fft_table_rows.inc"
};

constexpr bool rows_rise() {
  for (std::size_t i = 0; i < std::size(kRows); ++i) {
    if (kRows[i].bits != kRows[i].points() * kRows[i].w || kRows[i].s < 7) return false;
    if (i > 0 && kRows[i].bits <= kRows[i - 1].bits) return false;
  }
  return true;
}
static_assert(rows_rise());

constexpr bool rows_are_safe() {
  for (const FftRow& row : kRows)
    if (!fft_rounds_safely(row.points(), row.w)) return false;
  return true;
}
static_assert(rows_are_safe());

// The last stage adds two neighbouring coefficients of narrow points, and a carry, in an unsigned word.
constexpr bool pairs_fit() {
  for (const FftRow& row : kRows) {
    const u128 largest = static_cast<u128>(row.points() / 2) << (2 * row.w);
    const u128 pair = largest + (largest << row.w);
    if (row.w <= 16 && (pair + (pair >> row.w)) >> 64 != 0) return false;
  }
  return true;
}
static_assert(pairs_fit());

// Rows are found from the top bits of the size: an octave has 2^kStepBits steps, and kFirst holds the first
// row that can serve the sizes of a step, from which the right one is few rows away.
constexpr u32 kStepBits = 4, kOctaves = 28;
constexpr u32 step_of(u64 bits) {
  const u32 top = 63 - static_cast<u32>(__builtin_clzll(bits));
  return (top << kStepBits) + static_cast<u32>((bits ^ u64{1} << top) >> (top - kStepBits));
}
constexpr auto kFirst = [] {
  std::array<u16, kOctaves << kStepBits> first{};
  u64 row = 0;
  for (u32 i = kStepBits << kStepBits; i < first.size(); ++i) {
    const u32 top = i >> kStepBits;
    const u64 smallest = (u64{1} << top) + (u64{i & ((1u << kStepBits) - 1)} << (top - kStepBits));
    while (row + 1 < std::size(kRows) && kRows[row].bits < smallest) ++row;
    first[i] = static_cast<u16>(row);
  }
  return first;
}();

}  // namespace

std::span<const FftRow> fft_rows() { return kRows; }

const FftRow& find_fft_row(u64 bits) {
  constexpr u64 last = std::end(kRows)[-1].bits;
  static_assert(last < u64{1} << kOctaves);
  if (bits > last) throw LimitExceededException("FFT", last, bits);
  const FftRow* row = kRows + kFirst[step_of(std::max<u64>(bits, 1u << kStepBits))];
  while (row->bits < bits) ++row;
  return *row;
}

}  // namespace orl
