// What a test needs to multiply: transform tables and scratch of exactly the planned size.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "multiply/algorithm_table.h"

namespace orl::test {

/// `bytes` bytes, 64-byte aligned, between guards: what is written outside shows. The block starts poisoned.
class GuardedBlock {
 public:
  explicit GuardedBlock(u64 bytes)
      : bytes_(bytes), store_(new (std::align_val_t{64}) u8[bytes + 2 * kGuard]) {
    std::fill_n(store_.get(), bytes + 2 * kGuard, kPoison);
  }

  LinearHeapBuffer buffer() const { return {store_.get() + kGuard, bytes_}; }
  /// True while nothing wrote outside.
  bool intact() const {
    const auto clean = [](const u8* guard) {
      return std::all_of(guard, guard + kGuard, [](u8 byte) { return byte == kPoison; });
    };
    return clean(store_.get()) && clean(store_.get() + kGuard + bytes_);
  }

 private:
  static constexpr u64 kGuard = 4096;
  static constexpr u8 kPoison = 0xa5;
  struct Free {
    void operator()(u8* p) const { ::operator delete[](p, std::align_val_t{64}); }
  };

  u64 bytes_;
  std::unique_ptr<u8[], Free> store_;
};

/// The tables of one algorithm for products of up to `bits` bits, in a block of exactly table_bytes.
class AlgorithmTables {
 public:
  AlgorithmTables(const Algorithm& algorithm, u64 bits)
      : block_(algorithm.table_bytes(bits)), tables_(block_.buffer()) {
    algorithm.ensure_tables(tables_, bits);
  }

  operator const TransformTables&() const { return tables_; }
  bool intact() const { return block_.intact(); }

 private:
  GuardedBlock block_;
  TransformTables tables_;
};

/// Tables for products of up to `bits` bits under the tables in force, in a block of exactly table_bytes.
class TestTables {
 public:
  explicit TestTables(u64 bits)
      : block_(std::max(basic_table<u32>().table_bytes(bits), basic_table<u64>().table_bytes(bits))),
        tables_(block_.buffer()) {
    if (basic_table<u32>().table_bytes(bits) >= basic_table<u64>().table_bytes(bits))
      basic_table<u32>().ensure_tables(tables_, bits);
    else
      basic_table<u64>().ensure_tables(tables_, bits);
  }

  operator const TransformTables&() const { return tables_; }
  bool intact() const { return block_.intact(); }

 private:
  GuardedBlock block_;
  TransformTables tables_;
};

/// Two transforms of a shape and its scratch, in exactly their bytes.
struct ShapeAreas {
  explicit ShapeAreas(const Parameters& p)
      : F(p.transform_size()), G(p.transform_size()), tmp(p.scratch_size()) {}
  ~ShapeAreas() { EXPECT_TRUE(F.intact() && G.intact() && tmp.intact()); }

  const GuardedBlock F, G, tmp;
  void *const f = F.buffer().ptr, *const g = G.buffer().ptr, *const t = tmp.buffer().ptr;
};

}  // namespace orl::test
