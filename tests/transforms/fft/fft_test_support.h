// What the tests of the floating-point FFT share.
#pragma once

#include <string>

#include "transforms/common/product_test_support.h"
#include "transforms/fft/fft.h"
#include "transforms/fft/fft_kernels.h"
#include "transforms/fft/fft_table.h"

namespace orl::test {

inline FftPlan plan_of(const FftRow& row, const TransformTables& tables) {
  return {row.k, row.s - 1 - kFftBlockLevels, row.w, static_cast<const FftTables*>(tables.find("FFT"))};
}

inline std::string text_of(const FftRow& row) {
  return "k " + std::to_string(row.k) + " s " + std::to_string(row.s) + " w " + std::to_string(row.w);
}

}  // namespace orl::test
