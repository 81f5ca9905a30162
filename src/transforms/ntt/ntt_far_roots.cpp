#include "transforms/ntt/ntt_far_roots.h"

#include <algorithm>
#include <bit>

namespace orl {

// A shape reads s[j] for j < 2^(n - 3).
u64 NttFarRoots::size(u32 n, u32 table) {
  const u32 bits = n - 3, below = kBits * table;
  return bits <= below ? 0 : std::min(kSize, u64{1} << (bits - below));
}

u64 NttFarRoots::bytes(u32 n) {
  u64 sum = 0;
  for (u32 t = 0; t < kTables; ++t) sum += LinearHeapBuffer::cut_bytes<NttFactor<u64>>(size(n, t));
  return sum;
}

NttFarRoots::NttFarRoots(const NttPrime<u64>& prime, u32 n, LinearHeapBuffer& memory)
    : p_(prime.p), reciprocal_(static_cast<u64>((u128{1} << 127) / prime.p)) {
  for (u32 t = 0; t < kTables && size(n, t); ++t) {
    const u64 count = size(n, t);
    table_[t] = memory.cut<NttFactor<u64>>(count);
    table_[t][0] = prime.factor(1);
    for (u64 j = 1; j < count; ++j) {
      const u32 l = static_cast<u32>(std::bit_width(j)) - 1;
      table_[t][j] =
          prime.factor(prime.multiply(prime.two_root[kBits * t + l + 2], table_[t][j - (u64{1} << l)].w));
    }
  }
}

// floor(w 2^64 / p) is below 2 w + w r / 2^63 by less than two: 2^127 / p is 2^64 + r but for a part below one, and w below
// 2^63.
NttFactor<u64> NttFarRoots::factor(u64 w) const {
  u64 quotient = 2 * w + static_cast<u64>(static_cast<u128>(w) * reciprocal_ >> 63);
  if (u64{0} - quotient * p_ >= p_) ++quotient;
  return {w, quotient};
}

NttFactor<u64> NttFarRoots::times(u64 a, const NttFactor<u64>& f) const {
  const u64 q = static_cast<u64>(static_cast<u128>(a) * f.quotient >> 64);
  const u64 w = a * f.w - q * p_;
  return factor(w < p_ ? w : w - p_);
}

NttFactor<u64> NttFarRoots::root(u64 index) const {
  NttFactor<u64> f = table_[0][index % kSize];
  for (u32 t = 1; (index >>= kBits) != 0; ++t)
    if (index % kSize) f = times(f.w, table_[t][index % kSize]);
  return f;
}

void NttFarRoots::fill(NttFactor<u64>* table, u32 levels, u64 node) const {
  for (u32 l = 0; l < levels; ++l) {
    const NttFactor<u64> head = root(node << l);
    for (u64 b = 0; b < u64{1} << l; ++b) table[(u64{1} << l) + b] = times(table_[0][b].w, head);
  }
}

// A kernel takes the inverse of entry 2^l + b for minus entry 2^l + (2^l - 1 - b). That of s[j] is -s[j'], where j' is j with
// all bits below its highest one turned: of a node but 0, again the table of a node.
void NttFarRoots::fill_back(NttFactor<u64>* table, u32 levels, u64 node) const {
  if (node) return fill(table, levels, node ^ (std::bit_floor(node) - 1));
  for (u32 l = 0; l < levels; ++l)
    for (u64 c = 0; c < u64{1} << l; ++c) {
      const u64 b = (u64{1} << l) - 1 - c;
      table[(u64{1} << l) + c] = b ? table_[0][b ^ (std::bit_floor(b) - 1)] : factor(p_ - 1);
    }
}

}  // namespace orl
