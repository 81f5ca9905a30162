// The last product of a constant, x *= y to a precision of p words, from parts of half the length.
//
// Of x = x1 W^h + x0 and y = y1 W^h + y0 the product needs x1 y1 whole, and only the upper halves of x1 y0
// and x0 y1; x0 y0 lies below the precision. So no product is longer than p plus a few words, in place of 2p:
// half the memory in transforms and half the tables, for eight transforms of that length in place of three of
// twice the length. One transform is kept; with two kept there would be seven, and a sixth more memory in
// all. Each partial product is made whole, since only a whole product has a hash that is known.
#pragma once

#include "numbers/ram_store.h"

namespace orl {

template <class Store>
class FinalProduct {
 public:
  using W = typename Store::Word;
  using Number = typename Store::Number;
  using Arena = typename Store::Arena;

  FinalProduct(u64 p, u64 tds);

  /// Capacity that x must have.
  u64 out_words() const { return p_ + 8; }
  u64 heap_bytes() const { return heap_; }
  u64 product_words() const { return product_words_; }
  /// x *= y: the top p + 2 words or a few more, the lowest of them inexact; relative error below 8 W^-(p+1).
  /// Both are positive and normalised; `x_hash` and `y_hash` are what they hashed to when they were proved.
  /// Throws BufferTooSmallException "FinalProduct::run()"; AlgorithmFailedException "Checksum Mismatch.
  /// Multiplication Failed." when a partial product, or what they add up to, has not the hash that those of
  /// the operands give it.
  void run(const RunContext& ctx, Number& x, u64 x_hash, const Number& y, u64 y_hash, Arena heap) const;

 private:
  /// Words of the sum of the upper halves of x1 y0 and x0 y1, with one for its carry.
  u64 cross_words() const { return half_ + 3; }

  u64 p_;
  u64 half_;           ///< words of a lower half
  u64 product_words_;  ///< of the longest partial product
  u64 heap_;
};

}  // namespace orl
