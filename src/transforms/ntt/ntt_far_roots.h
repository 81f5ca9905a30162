// Roots of the integer residue transforms of numbers on disks: few, and more made of them.
//
// s[], as in ntt_tables.h, is multiplicative over the bits of its index, so a small table for each nine bits gives every
// one. Kernels read roots by their node; of node `i`, and l levels below it, these are s[(i << l) + b], b < 2^l. A local table
// holds them at 2^l + b, which makes it that of node 1.
#pragma once

#include "memory/linear_buffer.h"
#include "transforms/ntt/ntt_primes.h"

namespace orl {

/// The roots of one prime.
class NttFarRoots {
 public:
  /// Bytes of the roots for sequences of 2^n points, in all rings.
  static u64 bytes(u32 n);

  NttFarRoots() = default;
  /// Cuts and fills them.
  NttFarRoots(const NttPrime<u64>& prime, u32 n, LinearHeapBuffer& memory);

  /// table[2^l + b], l < levels, b < 2^l: the local table of a node, levels <= 9; and that for the way back.
  void fill(NttFactor<u64>* table, u32 levels, u64 node) const;
  void fill_back(NttFactor<u64>* table, u32 levels, u64 node) const;

 private:
  static constexpr u32 kBits = 9, kTables = 7;
  static constexpr u64 kSize = u64{1} << kBits;
  static u64 size(u32 n, u32 table);

  NttFactor<u64> factor(u64 w) const;
  NttFactor<u64> times(u64 a, const NttFactor<u64>& f) const;
  NttFactor<u64> root(u64 index) const;

  u64 p_ = 0;
  u64 reciprocal_ = 0;  ///< floor(2^127 / p) - 2^64
  NttFactor<u64>* table_[kTables] = {};
};

}  // namespace orl
