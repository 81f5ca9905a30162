// Small steps on floating numbers whose hash goes with them.
//
// Hash   of a result follows from those of the operands; the hash of words that are cut off is taken off. So
//        whoever compares words and hash later proves every step since the last comparison.
#pragma once

#include "functions/newton_steps.h"
#include "functions/proved.h"
#include "numbers/big_float.h"

namespace orl {

/// The number 1 with its hash.
template <class Store>
struct HashedOne {
  typename Store::Word word[2] = {};
  typename Store::Number number{word, 2};
  HashedOne() { number.set_uW(1); }
  HashedOne(const HashedOne&) = delete;
  Hashed<typename Store::Number> hashed() const { return {number, 1}; }
};

/// A number in the memory of another one, and its hash.
template <class W>
struct HashedView {
  BigFloat<W> number;
  u64 hash;
  operator Hashed<BigFloat<W>>() const { return {number, hash}; }
};
/// The top `words` words of x.
template <class W>
HashedView<W> top_hashed(const Hashed<BigFloat<W>>& x, u64 words, ParallelContext parallel);

/// Keeps the top p + 2 words of x.
template <class W>
void cut_hashed(BigFloat<W>& x, u64& hash, u64 p, ParallelContext parallel);

/// out = the top p + 2 words of x, or x with zero words below to that length. Returns the hash of `out`.
template <class W>
u64 set_padded(BigFloat<W>& out, u64 p, const Hashed<BigFloat<W>>& x, ParallelContext parallel);

/// add_below() with the hashes; x has a free word above its top.
template <class W>
void add_below(BigFloat<W>& x, u64& x_hash, const Hashed<BigFloat<W>>& c, ParallelContext parallel);

/// x -= c, both positive, x the larger one, c cut at the bottom of x.
template <class W>
void subtract_below(BigFloat<W>& x, u64& x_hash, const Hashed<BigFloat<W>>& c, ParallelContext parallel);

/// x /= 2, exactly: a word more. x has a free word above its top.
template <class W>
void halve_hashed(BigFloat<W>& x, u64& hash, ParallelContext parallel);

/// out = a - b with signs, cut at the higher of the two bottoms, then to p + 2 words. `out` holds the whole difference.
/// Returns the hash of `out`.
template <class W>
u64 subtract_hashed(BigFloat<W>& out, u64 p, const Hashed<BigFloat<W>>& a, const Hashed<BigFloat<W>>& b,
                    ParallelContext parallel);

/// The bits from the top of a down to the top of a - b, one too few at most; all ones where they are equal. Both are
/// positive.
template <class W>
u64 agreeing_bits(const BigFloat<W>& a, const BigFloat<W>& b);

}  // namespace orl
