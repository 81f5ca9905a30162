#include "words/hash.h"

#include <algorithm>

#include "words/word_kernels.h"
#include "words/word_loops.h"

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
  constexpr u64 kPlainBytes = 128;
  if (L < kPlainBytes / sizeof(W)) return word_loops::hash<W>(seed, A, L);
  // The kernels see 64-bit words: of a u32 array of odd length the top word goes before them.
  const u64 n = L / (8 / sizeof(W));
  const u64 even = n * 8 / sizeof(W);
  return word_kernels().hash(word_loops::hash<W>(seed, A + even, L - even), A, n);
}
template <class W>
u64 bp_hash(u64 seed, const W* A, u64 L, ParallelContext parallel) {
  if (parallel.tds <= 1 || L < kSerialHash) return bp_hash(seed, A, L);
  return hash_blocks(
      seed, L, parallel, [=](u64 at, u64 n, u64 s) { return bp_hash(s, A + at, n); },
      [](u64 n) { return hash_word_pow<W>(static_cast<s64>(n)); });
}

// Six words a turn with one fold: five products of a word and a power below 2^61, one of two hashes and a
// word stay below 2^128.
template <class W>
u64 bp_hash_base(u64 seed, u64 base, const W* A, u64 L) {
  constexpr u64 kWords = 6;
  const u64 b = hash_canon(base);
  u64 h = seed;
  for (; L % kWords; --L) h = hash_mul_add(h, b, A[L - 1]);
  if (L == 0) return h;
  u64 power[kWords + 1] = {1, b};
  for (u64 k = 2; k <= kWords; ++k) power[k] = hash_canon(hash_mul(power[k - 1], b));
  for (h = hash_fold(h); L > 0; L -= kWords) {
    const W* const a = A + L - kWords;
    u128 sum = a[0];
    for (u64 k = 1; k < kWords; ++k) sum += u128{a[k]} * power[k];
    h = hash_fold_128(sum + u128{h} * power[kWords]);
  }
  return h;
}
template <class W>
u64 bp_hash_base(u64 seed, u64 base, const W* A, u64 L, ParallelContext parallel) {
  if (parallel.tds <= 1 || L < kSerialHash) return bp_hash_base(seed, base, A, L);
  base = hash_canon(base);
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
