// The shapes of the floating-point FFT: which k, s and w a product of a given
// size takes.
#pragma once

#include <span>

#include "core/types.h"

namespace orl {

/// One row: products of up to bits = points() * w bits. Sorted by bits.
struct FftRow {
  u64 bits;
  u32 k;  ///< odd factor: 1, 3 or 5
  u32 s;  ///< power of two, at least 7
  u32 w;  ///< bits per point

  constexpr u64 points() const { return u64{k} << s; }
};

/// All rows.
std::span<const FftRow> fft_rows();

/// First row with row.bits >= bits. Throws LimitExceededException past the last
/// row.
const FftRow& find_fft_row(u64 bits);

}  // namespace orl
