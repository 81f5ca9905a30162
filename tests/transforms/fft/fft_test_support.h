// What the tests of the floating-point FFT share: memory exactly as large as planned, and the targets.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "simd/target.h"
#include "transforms/fft/fft.h"
#include "transforms/fft/fft_kernels.h"
#include "transforms/fft/fft_table.h"

namespace orl::test {

/// `bytes` bytes at a multiple of 64 between two guards.
class GuardedBytes {
 public:
  explicit GuardedBytes(u64 bytes) : bytes_(bytes), store_(bytes + 2 * kGuard + 64, kPoison) {
    const u64 address = reinterpret_cast<std::uintptr_t>(store_.data()) + kGuard;
    start_ = kGuard + (u64{0} - address) % 64;
  }
  u8* data() { return store_.data() + start_; }
  LinearHeapBuffer buffer() { return {data(), bytes_}; }
  bool intact() const {
    for (u64 i = 0; i < store_.size(); ++i)
      if ((i < start_ || i >= start_ + bytes_) && store_[i] != kPoison) return false;
    return true;
  }

 private:
  static constexpr u64 kGuard = 128;
  static constexpr u8 kPoison = 0xa5;
  u64 bytes_;
  std::vector<u8> store_;
  u64 start_ = 0;
};

/// The FFT's tables for products up to some size, in memory of exactly table_bytes.
class Tables {
 public:
  explicit Tables(u64 bits) : memory_(fft_algorithm().table_bytes(bits)), tables_(memory_.buffer()) {
    fft_algorithm().ensure_tables(tables_, bits);
  }
  ~Tables() { EXPECT_TRUE(memory_.intact()); }
  const TransformTables& operator*() const { return tables_; }
  const FftTables* fft() const { return static_cast<const FftTables*>(tables_.find("FFT")); }

 private:
  GuardedBytes memory_;
  TransformTables tables_;
};

/// Runs a test once for each target; those that the machine lacks are skipped.
class EachTarget : public testing::TestWithParam<simd::Target> {
 protected:
  void SetUp() override {
    if (GetParam() > simd::best_target())
      GTEST_SKIP() << "this machine cannot run " << simd::target_name(GetParam());
    simd::set_active_target(GetParam());
  }
  void TearDown() override { simd::set_active_target(simd::best_target()); }
};

class FftEachTarget : public EachTarget {};

inline FftPlan plan_of(const FftRow& row, const Tables& tables) {
  return {row.k, row.s - 1 - kFftBlockLevels, row.w, tables.fft()};
}

inline std::string text_of(const FftRow& row) {
  return "k " + std::to_string(row.k) + " s " + std::to_string(row.s) + " w " + std::to_string(row.w);
}

}  // namespace orl::test
