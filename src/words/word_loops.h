// The plain loops over words: the reference of the vector kernels, and what short arrays take.
//
// They read through void*, so that a u32 array of even length can be taken as half as many 64-bit words: the
// same bytes, whatever its alignment.
#pragma once

#include <cstring>
#include <type_traits>

#include "core/types.h"
#include "words/hash.h"

namespace orl::word_loops {

/// Twice as wide as W.
template <class W>
using Double = std::conditional_t<sizeof(W) == 4, u64, u128>;
template <class W>
inline constexpr int kBits = sizeof(W) * 8;

/// Word i of an array at any address.
template <class W>
inline W load(const void* A, u64 i) {
  W w;
  std::memcpy(&w, static_cast<const char*>(A) + i * sizeof(W), sizeof(W));
  return w;
}
/// Word i of an array at any address.
template <class W>
inline void store(void* T, u64 i, W w) {
  std::memcpy(static_cast<char*>(T) + i * sizeof(W), &w, sizeof(W));
}

/// T = A + B + carry, all of L words; returns the carry out.
template <class W>
W add(void* T, const void* A, const void* B, u64 L, W carry) {
  for (u64 i = 0; i < L; ++i) {
    const Double<W> s = Double<W>{load<W>(A, i)} + load<W>(B, i) + carry;
    store(T, i, static_cast<W>(s));
    carry = static_cast<W>(s >> kBits<W>);
  }
  return carry;
}

/// T = A - B - borrow, all of L words; returns the borrow out.
template <class W>
W sub(void* T, const void* A, const void* B, u64 L, W borrow) {
  for (u64 i = 0; i < L; ++i) {
    const Double<W> s = Double<W>{load<W>(A, i)} - load<W>(B, i) - borrow;
    store(T, i, static_cast<W>(s));
    borrow = static_cast<W>(s >> kBits<W>) & 1;
  }
  return borrow;
}

/// T = A * w + carry, all of L words; returns the word above.
template <class W>
W mul(void* T, const void* A, u64 L, W w, W carry) {
  for (u64 i = 0; i < L; ++i) {
    const Double<W> s = Double<W>{load<W>(A, i)} * w + carry;
    store(T, i, static_cast<W>(s));
    carry = static_cast<W>(s >> kBits<W>);
  }
  return carry;
}

/// The processor's division: the quotient of remainder * W + x by d > remainder, which becomes the new one.
template <class W>
inline W divide_step(W& remainder, W x, W d) {
  W quotient;
  if constexpr (sizeof(W) == 4)
    asm("divl %[d]" : "=a"(quotient), "=d"(remainder) : "0"(x), "1"(remainder), [d] "r"(d) : "cc");
  else
    asm("divq %[d]" : "=a"(quotient), "=d"(remainder) : "0"(x), "1"(remainder), [d] "r"(d) : "cc");
  return quotient;
}

/// Horner from the top word. After a step h is below 2^61 + 2^36 (u32) or 2^62 + 2^7 (u64).
template <class W>
u64 hash(u64 h, const void* A, u64 L) {
  for (u64 i = L; i-- > 0;) {
    const u64 x = load<W>(A, i);
    if constexpr (sizeof(W) == 4)
      h = ((h << 32) & kHashModulus) + x + (h >> 29);
    else
      h = ((h << 3) & kHashModulus) + (x & kHashModulus) + (x >> 61) + (h >> 58);
  }
  return h;
}

}  // namespace orl::word_loops
