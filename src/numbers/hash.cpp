#include "numbers/hash.h"

#include <algorithm>

#include "numbers/word_kernels.h"
#include "numbers/word_loops.h"

namespace orl {
namespace {

constexpr u64 kSerialHash = 10000;
constexpr u64 kMaxTasks = 64;

// hash_block(at, n, seed) hashes n words from `at`, power(n) is the base to the n.
template <class HashBlock, class Power>
u64 hash_blocks(u64 seed, u64 L, ParallelContext parallel, HashBlock&& hash_block, Power&& power) {
  const u64 tasks = std::min(parallel.tds, kMaxTasks);
  const u64 block = (std::max((L - 1) / tasks + 1, kSerialHash) + 15) & ~u64{15};
  const u64 count = (L - 1) / block + 1;
  u64 hashes[kMaxTasks];
  fork_range(parallel.parallelizer, 0, count, [&](u64 k) {
    const u64 at = k * block;
    const u64 h = hash_block(at, std::min(block, L - at), k + 1 == count ? seed : 0);
    hashes[k] = hash_mul(h, power(at));
  });
  u64 sum = 0;
  for (u64 k = 0; k < count; ++k) sum = hash_add(sum, hashes[k]);
  return sum;
}

}  // namespace

template <class W>
u64 bp_hash(u64 seed, const W* A, u64 L) {
  return word_loops::hash<W>(seed, A, L);
}
template <class W>
u64 bp_hash(u64 seed, const W* A, u64 L, ParallelContext parallel) {
  if (parallel.tds <= 1 || L < kSerialHash) return bp_hash(seed, A, L);
  return hash_blocks(
      seed, L, parallel, [=](u64 at, u64 n, u64 s) { return bp_hash(s, A + at, n); },
      [](u64 n) { return hash_word_pow<W>(static_cast<s64>(n)); });
}

template <class W>
u64 bp_hash_base(u64 seed, u64 base, const W* A, u64 L) {
  base = hash_fold(base);
  u64 h = seed;
  for (u64 i = L; i-- > 0;) h = hash_mul_add(h, base, A[i]);
  return h;
}
template <class W>
u64 bp_hash_base(u64 seed, u64 base, const W* A, u64 L, ParallelContext parallel) {
  if (parallel.tds <= 1 || L < kSerialHash) return bp_hash_base(seed, base, A, L);
  base = hash_fold(base);
  return hash_blocks(
      seed, L, parallel, [=](u64 at, u64 n, u64 s) { return bp_hash_base(s, base, A + at, n); },
      [base](u64 n) { return hash_pow(base, n); });
}

template u64 bp_hash(u64, const u32*, u64);
template u64 bp_hash(u64, const u64*, u64);
template u64 bp_hash(u64, const u32*, u64, ParallelContext);
template u64 bp_hash(u64, const u64*, u64, ParallelContext);
template u64 bp_hash_base(u64, u64, const u32*, u64);
template u64 bp_hash_base(u64, u64, const u64*, u64);
template u64 bp_hash_base(u64, u64, const u32*, u64, ParallelContext);
template u64 bp_hash_base(u64, u64, const u64*, u64, ParallelContext);

}  // namespace orl
