// The bottom of the recursion: magnitudes of a few words on the stack, multiplied by the schoolbook loop,
// hashes beside.
#pragma once

#include "core/exceptions.h"
#include "multiply/basecase.h"
#include "splitting/series.h"
#include "words/hash.h"

namespace orl {

template <class W>
struct DoubleWord;
template <>
struct DoubleWord<u32> {
  using type = u64;
};
template <>
struct DoubleWord<u64> {
  using type = u128;
};

/// A magnitude in a buffer of `capacity` words, with the hash that it must have.
template <class W>
struct LeafNumber {
  W* T = nullptr;
  u64 capacity = 0;
  u64 L = 0;
  u64 hash = 0;

  /// value; two words of u32 at most.
  void set(u64 value) {
    L = 0;
    for (; value != 0; value = shifted(value)) T[L++] = static_cast<W>(value);
  }
  /// *= w; grows by one word, two of u32.
  void mul(u64 w) {
    if constexpr (sizeof(W) == 8) {
      u64 carry = 0;
      for (u64 i = 0; i < L; ++i) {
        const u128 t = u128{T[i]} * w + carry;
        T[i] = static_cast<u64>(t);
        carry = static_cast<u64>(t >> 64);
      }
      if (carry != 0) T[L++] = carry;
    } else {
      u128 carry = 0;
      for (u64 i = 0; i < L; ++i) {
        carry += u128{T[i]} * w;
        T[i] = static_cast<u32>(carry);
        carry >>= 32;
      }
      for (; carry != 0; carry >>= 32) T[L++] = static_cast<u32>(carry);
    }
  }
  /// += c or -= c; at least c before a subtraction.
  void add_small(W c, bool subtract) {
    u64 i = 0;
    if (subtract) {
      while (c != 0 && i < L) {
        const W before = T[i];
        T[i++] = before - c;
        c = before < c;
      }
      strip();
    } else {
      for (; c != 0 && i < L; ++i) {
        T[i] += c;
        c = T[i] < c;
      }
      if (c != 0) T[L++] = c;
    }
  }
  void copy(const LeafNumber& a) {
    for (u64 i = 0; i < a.L; ++i) T[i] = a.T[i];
    L = a.L;
  }
  void strip() {
    while (L != 0 && T[L - 1] == 0) --L;
  }
  /// a * b, which are not zero.
  void set_product(const LeafNumber& a, const LeafNumber& b) {
    mulB(T, a.T, a.L, b.T, b.L);
    L = a.L + b.L;
    L -= T[L - 1] == 0;
    hash = hash_mul(a.hash, b.hash);
  }
  /// += b or -= b; |this| >= |b| for a subtraction.
  void add(const LeafNumber& b, bool subtract) {
    using D = typename DoubleWord<W>::type;
    hash = subtract ? hash_sub(hash, b.hash) : hash_add(hash, b.hash);
    while (L < b.L) T[L++] = 0;
    W carry = 0;
    if (subtract) {
      for (u64 i = 0; i < L && (i < b.L || carry != 0); ++i) {
        const D d = D{T[i]} - (i < b.L ? b.T[i] : 0) - carry;
        T[i] = static_cast<W>(d);
        carry = static_cast<W>(d >> (8 * sizeof(W))) & 1;
      }
      if (carry != 0) internal_error("LeafNumber::add()", "A negative value was encountered.");
      strip();
    } else {
      for (u64 i = 0; i < L && (i < b.L || carry != 0); ++i) {
        const D d = D{T[i]} + (i < b.L ? b.T[i] : 0) + carry;
        T[i] = static_cast<W>(d);
        carry = static_cast<W>(d >> (8 * sizeof(W)));
      }
      if (carry != 0) T[L++] = carry;
    }
  }
  void take_hash() { hash = bp_hash<W>(0, T, L); }

 private:
  static u64 shifted(u64 value) {
    if constexpr (sizeof(W) == 8)
      return 0;
    else
      return value >> 32;
  }
};

template <class W>
void check_end_capacity(const char* function, const LeafNumber<W>& number, u64 words) {
  if (number.capacity < words) throw BufferTooSmallException(function, number.capacity, words);
}

/// Hands a leaf's number over: buffer, sign, hash.
template <class W>
void finish_leaf(ExactFloat<W>& out, const LeafNumber<W>& number, u8 sign) {
  out.T = out.base;
  out.L = number.L;
  out.exp = 0;
  out.sign = sign;
  out.hash = sign ? number.hash : hash_neg(number.hash);
}

template <class W>
LeafNumber<W> leaf_number(const ExactFloat<W>& out) {
  return {out.base, out.size, 0, 0};
}

/// P, Q, R of a range of kind CommonP2B3.
template <class W>
struct LeafNode {
  LeafNumber<W> P, Q, R;
};

/// Splits (a, b] down to single terms, which `term(k, node)` fills with magnitudes and hashes. The magnitudes
/// of P must fall fast enough that a subtraction in a merge leaves a positive P. `TermWords` bounds one
/// number of one term.
template <class W, u64 TermWords, u64 Width, class Term>
class LeafSplitter {
 public:
  LeafSplitter(const char* function, bool alternating, const Term& term)
      : function_(function), alternating_(alternating), term_(term) {}

  void run(u64 a, u64 b, LeafNode<W>& out) const {
    if (b - a == 1) {
      term_(b, out);
      return;
    }
    // The larger half of a full leaf; a product is as long as its node, with a word to spare for a carry.
    constexpr u64 kHalf = TermWords * ((Width + 1) / 2) + 2;
    W store[6 * kHalf];
    W sum[2 * kHalf];
    LeafNode<W> l, r;
    W* next = store;
    for (LeafNumber<W>* n : {&l.P, &l.Q, &l.R, &r.P, &r.Q, &r.R}) {
      *n = {next, kHalf, 0, 0};
      next += kHalf;
    }
    const u64 m = (a + b) >> 1;
    run(a, m, l);
    run(m, b, r);
    check_end_capacity(function_, out.P, l.P.L + r.Q.L + 1);
    check_end_capacity(function_, out.Q, l.Q.L + r.Q.L);
    check_end_capacity(function_, out.R, l.R.L + r.R.L);
    LeafNumber<W> t{sum, 2 * kHalf, 0, 0};
    t.set_product(l.R, r.P);
    out.P.set_product(l.P, r.Q);
    out.Q.set_product(l.Q, r.Q);
    out.R.set_product(l.R, r.R);
    out.P.add(t, alternating_ && ((m ^ a) & 1));
  }

 private:
  const char* function_;
  bool alternating_;
  const Term& term_;
};

}  // namespace orl
