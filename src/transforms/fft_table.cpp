#include "transforms/fft_table.h"

#include <algorithm>

#include "frame/exceptions.h"

namespace orl {
namespace {

constexpr FftRow kRows[] = {
#include "transforms/fft_table_rows.inc"
};

constexpr bool rows_rise() {
  for (std::size_t i = 0; i < std::size(kRows); ++i) {
    if (kRows[i].bits != kRows[i].points() * kRows[i].w || kRows[i].s < 7)
      return false;
    if (i > 0 && kRows[i].bits <= kRows[i - 1].bits)
      return false;
  }
  return true;
}
static_assert(rows_rise());

} // namespace

std::span<const FftRow> fft_rows() { return kRows; }

const FftRow &find_fft_row(u64 bits) {
  const FftRow *row =
      std::lower_bound(std::begin(kRows), std::end(kRows), bits,
                       [](const FftRow &r, u64 b) { return r.bits < b; });
  if (row == std::end(kRows))
    throw LimitExceededException("FFT", std::end(kRows)[-1].bits, bits);
  return *row;
}

} // namespace orl
