// The bottom of the recursion: signed integers of a few words on the stack, multiplied by the schoolbook
// loop, with their hashes beside them. BasicInt knows neither zero nor a sign, both of which a term's P may
// have.
#pragma once

#include <algorithm>

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

/// A signed integer of a few words in a buffer of `capacity` words, and the hash of its value. No operation
/// takes the hash from the words: it follows from the factors and summands, so a comparison proves the words.
/// Zero has L = 0.
template <class W>
struct LeafNumber {
  W* T = nullptr;
  u64 capacity = 0;
  u64 L = 0;
  u64 hash = 0;
  bool negative = false;

  /// value; two words of u32 at most.
  void set(u64 value) {
    L = 0;
    hash = hash_fold(value);
    negative = false;
    for (; value != 0; value = shifted(value)) T[L++] = static_cast<W>(value);
  }
  /// *= w, w > 0; grows by one word, two of u32.
  void mul(u64 w) {
    hash = hash_mul(hash, w);
    mul_words(w, 0);
  }
  /// x w + c, w > 0; grows by one word, two of u32.
  void mul_add(u64 w, s64 c) {
    const u64 magnitude = c < 0 ? u64{0} - static_cast<u64>(c) : static_cast<u64>(c);
    if (negative == (c < 0)) {
      hash = hash_mul(hash, w);
      hash = negative ? hash_sub(hash, hash_fold(magnitude)) : hash_add(hash, hash_fold(magnitude));
      return mul_words(w, magnitude);
    }
    mul(w);
    W words[8 / sizeof(W)];
    LeafNumber summand{words, 8 / sizeof(W)};
    summand.set(magnitude);
    add(summand, c < 0);
  }
  void negate() {
    negative = !negative;
    hash = hash_neg(hash);
  }
  void copy(const LeafNumber& a) {
    copy_words(a);
    negative = a.negative;
    hash = a.hash;
  }
  /// a * b; capacity a.L + b.L.
  void set_product(const LeafNumber& a, const LeafNumber& b) {
    hash = hash_mul(a.hash, b.hash);
    negative = a.negative != b.negative;
    L = 0;
    if (a.L == 0 || b.L == 0) return;
    mulB(T, a.T, a.L, b.T, b.L);
    L = a.L + b.L;
    L -= T[L - 1] == 0;
  }
  /// += b or -= b; capacity of the longer and one word.
  void add(const LeafNumber& b, bool subtract) {
    hash = subtract ? hash_sub(hash, b.hash) : hash_add(hash, b.hash);
    if (b.L == 0) return;
    const bool b_negative = b.negative != subtract;
    if (L == 0) {
      copy_words(b);
      negative = b_negative;
    } else if (negative == b_negative) {
      add_words(b);
    } else if (is_below(b)) {
      subtract_words(b.T, b.L, T, L);
      negative = b_negative;
    } else {
      subtract_words(T, L, b.T, b.L);
    }
  }
  /// += b 2^shift, neither negative; capacity of the longer, b.L + shift / (bits of a word) + 1, and one word.
  void add_shifted(const LeafNumber& b, u64 shift) {
    constexpr u64 kBits = 8 * sizeof(W);
    hash = hash_add(hash, hash_mul(b.hash, u64{1} << shift % 61));
    const u64 from = shift / kBits, rest = shift % kBits;
    while (b.L != 0 && L < from + b.L) T[L++] = 0;
    W carry = 0;
    for (u64 i = 0; i < b.L || carry != 0; ++i) {
      if (from + i == L) T[L++] = 0;
      const D shifted = i < b.L ? D{b.T[i]} << rest : 0;
      const D d = D{T[from + i]} + static_cast<W>(shifted) + carry;
      T[from + i] = static_cast<W>(d);
      carry = static_cast<W>(shifted >> kBits) + static_cast<W>(d >> kBits);
    }
  }

 private:
  using D = typename DoubleWord<W>::type;

  static u64 shifted(u64 value) {
    if constexpr (sizeof(W) == 8)
      return 0;
    else
      return value >> 32;
  }
  /// |x| w + carry.
  void mul_words(u64 w, u64 carry) {
    if constexpr (sizeof(W) == 8) {
      for (u64 i = 0; i < L; ++i) {
        const u128 t = u128{T[i]} * w + carry;
        T[i] = static_cast<u64>(t);
        carry = static_cast<u64>(t >> 64);
      }
      if (carry != 0) T[L++] = carry;
    } else {
      u128 above = carry;
      for (u64 i = 0; i < L; ++i) {
        above += u128{T[i]} * w;
        T[i] = static_cast<u32>(above);
        above >>= 32;
      }
      for (; above != 0; above >>= 32) T[L++] = static_cast<u32>(above);
    }
  }
  void copy_words(const LeafNumber& a) {
    for (u64 i = 0; i < a.L; ++i) T[i] = a.T[i];
    L = a.L;
  }
  bool is_below(const LeafNumber& b) const {
    if (L != b.L) return L < b.L;
    for (u64 i = L; i-- > 0;)
      if (T[i] != b.T[i]) return T[i] < b.T[i];
    return false;
  }
  void add_words(const LeafNumber& b) {
    while (L < b.L) T[L++] = 0;
    W carry = 0;
    for (u64 i = 0; i < L && (i < b.L || carry != 0); ++i) {
      const D d = D{T[i]} + (i < b.L ? b.T[i] : 0) + carry;
      T[i] = static_cast<W>(d);
      carry = static_cast<W>(d >> (8 * sizeof(W)));
    }
    if (carry != 0) T[L++] = carry;
  }
  /// |x| - |y| for |x| >= |y|; T may be either of them.
  void subtract_words(const W* x, u64 x_words, const W* y, u64 y_words) {
    W borrow = 0;
    for (u64 i = 0; i < x_words; ++i) {
      const D d = D{x[i]} - (i < y_words ? y[i] : 0) - borrow;
      T[i] = static_cast<W>(d);
      borrow = static_cast<W>(d >> (8 * sizeof(W))) & 1;
    }
    L = x_words;
    while (L != 0 && T[L - 1] == 0) --L;
  }
};

/// Throws BufferTooSmallException under `function` unless the buffer holds `words`.
template <class W>
void check_end_capacity(const char* function, const LeafNumber<W>& number, u64 words) {
  if (number.capacity < words) throw BufferTooSmallException(function, number.capacity, words);
}

/// Hands a leaf's number over to the buffer's number, whose words it wrote.
template <class W>
void finish_leaf(ExactFloat<W>& out, const LeafNumber<W>& number) {
  out.T = out.base;
  out.L = number.L;
  out.exp = 0;
  out.sign = number.L == 0 || !number.negative;
  out.hash = number.hash;
}

/// An empty leaf number in the buffer of `out`.
template <class W>
LeafNumber<W> leaf_number(const ExactFloat<W>& out) {
  return {out.base, out.size};
}

/// P, Q, R of a range of kind CommonP2B3.
template <class W>
struct LeafNode {
  LeafNumber<W> P, Q, R;
};

/// Splits (a, b] of kind CommonP2B3 down to single terms, which `term(k, node)` fills, of any sign and zero P
/// or R included. The right halves and the products of a range are made on the stack.
template <class W, class Term>
class LeafSplitter {
 public:
  /// `function` is the name in exceptions; no number of a term is longer than `term_words`; `term` is
  /// borrowed.
  LeafSplitter(const char* function, const Series<W>& series, u64 term_words, const Term& term)
      : function_(function), series_(series), term_words_(term_words), term_(term) {}

  /// The most terms of a range, at most 8: a power of two whose numbers take at most kLeafWords, or 1.
  static constexpr u64 width(u64 term_words) {
    u64 width = 8;
    while (width > 1 && width * term_words > kLeafWords) width /= 2;
    return width;
  }

  /// b - a is at most width() of the term's words.
  void run(u64 a, u64 b, LeafNode<W>& out) const {
    if (b - a == 1) {
      term_(b, out);
      return;
    }
    // The larger half; a product is as long as its node, with a word to spare for a carry.
    const u64 half = term_words_ * ((b - a + 1) / 2) + 2;
    if (half > kHalfWords) internal_error(function_, "A leaf is wider than its stack.");
    W store[6 * kHalfWords];
    W sum[2 * kHalfWords];
    LeafNode<W> l, r;
    W* next = store;
    for (LeafNumber<W>* n : {&l.P, &l.Q, &l.R, &r.P, &r.Q, &r.R}) {
      *n = {next, half};
      next += half;
    }
    const u64 m = (a + b) >> 1;
    run(a, m, l);
    run(m, b, r);
    check_end_capacity(function_, out.P, std::max(l.P.L + r.Q.L, l.R.L + r.P.L) + 1);
    check_end_capacity(function_, out.Q, l.Q.L + r.Q.L);
    check_end_capacity(function_, out.R, l.R.L + r.R.L);
    LeafNumber<W> t{sum, 2 * half};
    t.set_product(l.R, r.P);
    out.P.set_product(l.P, r.Q);
    out.Q.set_product(l.Q, r.Q);
    out.R.set_product(l.R, r.R);
    out.P.add(t, series_.subtracts(a, m));
  }

 private:
  // 320 bytes: 8 terms of Pi. Beyond that the recursion's own merges are as fast.
  static constexpr u64 kLeafWords = 320 / sizeof(W);
  static constexpr u64 kHalfWords = kLeafWords / 2 + 2;

  const char* function_;
  const Series<W>& series_;
  u64 term_words_;
  const Term& term_;
};

}  // namespace orl
