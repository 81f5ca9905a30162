// Hashes modulo 2^61 - 1: what every product, conversion and digit file is proved with.
//
// Lazy form  a hash is any u64 congruent to the residue. Results of the functions below stay under about
//            2^62, so the sum of two stored hashes cannot overflow; who accumulates more folds in between.
// Canonical  only hash_canon() values are compared, printed or stored in a file.
// Algebra    the hash of A * B is hash_mul, of A + B hash_add, of A - B hash_sub, of -A hash_neg, of A * W^n
//            hash_mul(h, hash_word_pow<W>(n)); n may be negative, since powers of two have exact inverses.
#pragma once

#include "core/types.h"
#include "threads/parallelizer.h"

namespace orl {

/// The modulus, which is also the mask of its 61 bits.
inline constexpr u64 kHashModulus = (u64{1} << 61) - 1;

/// One fold: at most kHashModulus + 7.
constexpr u64 hash_fold(u64 x) { return (x & kHashModulus) + (x >> 61); }

/// The residue itself, in [0, kHashModulus); any 64-bit x.
constexpr u64 hash_canon(u64 x) {
  const u64 y = hash_fold(x);
  return y >= kHashModulus ? y - kHashModulus : y;
}

/// Folds a 128-bit value; 2^64 is 8. At most 2 * kHashModulus + 70.
constexpr u64 hash_fold_128(u128 x) {
  const u64 lo = static_cast<u64>(x);
  const u64 hi = static_cast<u64>(x >> 64);
  return (lo & kHashModulus) + (lo >> 61) + (hi >> 58) + ((hi << 3) & kHashModulus);
}

/// a + b for stored hashes; a + b must not pass 2^64.
constexpr u64 hash_add(u64 a, u64 b) { return hash_fold(a + b); }

/// a - b for stored hashes (below 2^63). Equal inputs give kHashModulus, not 0.
constexpr u64 hash_sub(u64 a, u64 b) {
  const s64 d = static_cast<s64>(a - b);
  return (static_cast<u64>(d) & kHashModulus) + static_cast<u64>(d >> 61) + kHashModulus;
}

/// -a for a stored hash: -8 modulo 2^64 is 8 times the modulus.
constexpr u64 hash_neg(u64 a) { return hash_fold(hash_fold(u64(0) - 8 - a)); }

/// a * b, lazy; any a and b.
constexpr u64 hash_mul(u64 a, u64 b) { return hash_fold_128(u128{a} * b); }

/// h * b + w: one Horner step; any w.
constexpr u64 hash_mul_add(u64 h, u64 b, u64 w) { return hash_fold_128(u128{h} * b + w); }

/// b^n.
constexpr u64 hash_pow(u64 b, u64 n) {
  if (n == 0) return 1;
  u64 h = b;
  for (int bit = 62 - __builtin_clzll(n); bit >= 0; --bit) {
    h = hash_mul(h, h);
    if (n >> bit & 1) h = hash_mul(h, b);
  }
  return h;
}

/// h * 2^s, s < 32.
constexpr u64 hash_shift_u32(u64 h, u32 s) { return hash_fold_128(u128{h} << s); }

/// 2^(32 n): 2^29 is the inverse of 2^32.
constexpr u64 hash_word_pow_u32(s64 n) {
  return n >= 0 ? hash_pow(u64{1} << 32, static_cast<u64>(n))
                : hash_pow(u64{1} << 29, u64{0} - static_cast<u64>(n));
}

/// 2^(64 n): 2^58 is the inverse of 2^64, which is 8.
constexpr u64 hash_word_pow_u64(s64 n) {
  return n >= 0 ? hash_pow(8, static_cast<u64>(n)) : hash_pow(u64{1} << 58, u64{0} - static_cast<u64>(n));
}

/// 2^(bits of W * n).
template <class W>
constexpr u64 hash_word_pow(s64 n) {
  if constexpr (sizeof(W) == 4)
    return hash_word_pow_u32(n);
  else
    return hash_word_pow_u64(n);
}

/// seed * W^L + sum of A[i] * W^i, with W = 2^(bits of a word); seed is the word above the top. L = 0 gives
/// back seed. W is u32 or u64.
template <class W>
u64 bp_hash(u64 seed, const W* A, u64 L);
/// The residue of the serial form, by up to 64 tasks for L of 10000 and more.
template <class W>
u64 bp_hash(u64 seed, const W* A, u64 L, ParallelContext parallel);

/// seed * base^L + sum of A[i] * base^i: of an array of digit words, the hash of the digits read as an
/// integer.
template <class W>
u64 bp_hash_base(u64 seed, u64 base, const W* A, u64 L);
template <class W>
u64 bp_hash_base(u64 seed, u64 base, const W* A, u64 L, ParallelContext parallel);

}  // namespace orl
