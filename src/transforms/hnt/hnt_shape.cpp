#include "transforms/hnt/hnt_shape.h"

#include <algorithm>

#include "core/exceptions.h"
#include "transforms/fft/fft_bounds.h"
#include "transforms/fft/fft_table.h"

namespace orl {
namespace {

constexpr HntRow kRows[] = {
#include "transforms/hnt/hnt_rows.inc"
};

}  // namespace

std::span<const HntRow> hnt_rows() { return kRows; }

const HntRow& find_hnt_row(u64 bits) {
  const auto rows = hnt_rows();
  const auto found =
      std::partition_point(rows.begin(), rows.end(), [&](const HntRow& r) { return r.bits() < bits; });
  if (found == rows.end()) throw LimitExceededException("HNT", rows.back().bits(), bits);
  return *found;
}

double hnt_remainder_bound(const HntRow& row) {
  const FftRow& fft = find_fft_row(row.remainder_bits());
  return fft_error_bound(fft.points(), fft.w);
}

void check_hnt_row(const HntRow& row) {
  if (row.remainder < 2 || row.remainder > row.wrapped_words() || row.remainder > kHntMaxRemainder ||
      hnt_remainder_bound(row) > 0.5)
    throw InvalidParametersException("HNT", "Invalid Function Parameters:   ");
}

}  // namespace orl
